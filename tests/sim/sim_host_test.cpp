// The simulator as the HAL of the emulated binder world: reached over binder, killed, restarted.

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_status.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>

#include <chrono>
#include <thread>

#include "SimTestUtil.h"
#include "torq_sim/SimHost.h"

namespace torq_sim_test {
namespace {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using torq_sim::SimHost;

std::shared_ptr<ITorq> connect() {
    ::ndk::SpAIBinder binder(AServiceManager_checkService(torq_sim::kTorqInstance));
    return ITorq::fromBinder(binder);
}

class SimHostTest : public ::testing::Test {
  protected:
    void TearDown() override { binder_host::reset(); }
};

TEST_F(SimHostTest, ServesOverBinderAndComesBackFreshAfterAKill) {
    SimHost host;
    ASSERT_TRUE(host.start());
    EXPECT_TRUE(AServiceManager_isDeclared(torq_sim::kTorqInstance));
    EXPECT_NE(host.pid(), binder_host::kDefaultProcess);

    auto hal = connect();
    ASSERT_NE(hal, nullptr);
    int32_t handle = 0;
    ASSERT_TRUE(hal->request(parcel(1, {idEntry(0x010108A0, "50")}), &handle).isOk());
    EXPECT_EQ(handle, 1);
    bool seen = false;
    host.inspect([&](const torq_sim::SimModel& m) { seen = m.value(0x010108A0) == "50"; });
    EXPECT_TRUE(seen);

    host.kill();
    EXPECT_FALSE(host.alive());
    EXPECT_FALSE(host.inspect([](const torq_sim::SimModel&) {}));
    ::ndk::ScopedAStatus dead = hal->request(parcel(1, {idEntry(0x010108A0, "51")}), &handle);
    EXPECT_FALSE(dead.isOk());
    EXPECT_EQ(AServiceManager_checkService(torq_sim::kTorqInstance), nullptr);
    EXPECT_TRUE(AServiceManager_isDeclared(torq_sim::kTorqInstance));  // init would restart it

    ASSERT_TRUE(host.restart());
    EXPECT_EQ(host.generation(), 2);
    auto again = connect();
    ASSERT_NE(again, nullptr);
    ASSERT_TRUE(again->request(parcel(1, {idEntry(0x010108A0, "52")}), &handle).isOk());
    EXPECT_EQ(handle, 1);  // a fresh model

    size_t notes = 0;
    for (const auto& e : host.journal()->entries()) {
        notes += e.type == torq_sim::JournalEntry::Type::kNote ? 1 : 0;
    }
    EXPECT_EQ(notes, 3u);  // started, killed, started
}

TEST_F(SimHostTest, ListenerCallbacksCrossProcesses) {
    SimHost host;
    ASSERT_TRUE(host.start());
    auto hal = connect();
    auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
    int32_t l = 0;
    ASSERT_TRUE(
            hal->listeningRegister(parcel(0, {pathEntry("/proc/sys/walt/cluster2/target_load")}),
                                   listener, &l)
                    .isOk());
    ASSERT_GT(l, 0);
    int32_t h = 0;
    hal->request(parcel(1, {idEntry(0x010108C0, "44")}), &h);
    ASSERT_TRUE(listener->waitFor(1));
    const auto call = listener->calls()[0];
    ASSERT_EQ(call.size(), 1u);
    EXPECT_EQ(call[0].path, "/proc/sys/walt/cluster2/target_load");
    EXPECT_EQ(call[0].value, "44");
}

TEST_F(SimHostTest, TheTimerExpiresRequestsOnItsOwn) {
    SimHost host;
    ASSERT_TRUE(host.start());
    auto hal = connect();
    auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
    int32_t l = 0;
    hal->listeningRegister(parcel(0, {idEntry(0x010108A0)}), listener, &l);
    int32_t h = 0;
    hal->request(parcel(1, {idEntry(0x010108A0, "99")}, 50), &h);
    ASSERT_TRUE(listener->waitFor(2, 3000));
    EXPECT_EQ(listener->calls()[1][0].value, "80");
}

TEST_F(SimHostTest, ListenersOfADeadClientAreDropped) {
    SimHost host;
    ASSERT_TRUE(host.start());
    const binder_host::ProcessId client = binder_host::createProcess("client");
    binder_host::runInProcess(client, [] {
        auto hal = connect();
        auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
        int32_t l = 0;
        hal->listeningRegister(parcel(0, {idEntry(0x010108A0)}), listener, &l);
        ASSERT_GT(l, 0);
    });
    size_t listeners = 0;
    host.inspect([&](const torq_sim::SimModel& m) { listeners = m.listenerCount(); });
    ASSERT_EQ(listeners, 1u);

    binder_host::killProcess(client);
    auto hal = connect();
    int32_t h = 0;
    hal->request(parcel(1, {idEntry(0x010108A0, "1")}), &h);
    binder_host::drain();
    host.inspect([&](const torq_sim::SimModel& m) { listeners = m.listenerCount(); });
    EXPECT_EQ(listeners, 0u);
}

}  // namespace
}  // namespace torq_sim_test
