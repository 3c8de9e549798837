// The simulator as the HAL of the emulated binder world: callbacks across processes and its timer.
// (Death, restart and the manifest: sim_script_test.)

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_status.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>

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
    void SetUp() override { ASSERT_TRUE(host->start()); }
    void TearDown() override {
        host.reset();
        binder_host::reset();
    }
    size_t listeners() {
        size_t n = 0;
        host->inspect([&](const torq_sim::SimModel& m) { n = m.listenerCount(); });
        return n;
    }

    std::unique_ptr<SimHost> host = std::make_unique<SimHost>();
    int32_t handle = 0;
};

// A listener in the client's process hears of a request and, through the host's timer, of its
// expiry.
TEST_F(SimHostTest, ListenerCallbacksCrossProcessesAndTheTimerExpiresRequests) {
    auto hal = connect();
    auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
    const char kPath[] = "/proc/sys/walt/cluster2/target_load";
    ASSERT_TRUE(hal->listeningRegister(parcel(0, {pathEntry(kPath)}), listener, &handle).isOk());
    ASSERT_GT(handle, 0);
    hal->request(parcel(1, {idRecord(0x010108C0, "44")}, 50), &handle);
    ASSERT_TRUE(listener->waitFor(2));
    EXPECT_EQ(listener->calls(),
              (std::vector<Records>{{pathEntry(kPath, "44")}, {pathEntry(kPath, "90")}}));
}

TEST_F(SimHostTest, ListenersOfADeadClientAreDropped) {
    const binder_host::ProcessId client = binder_host::createProcess("client");
    binder_host::runInProcess(client, [this] {
        auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
        connect()->listeningRegister(parcel(0, {idRecord(0x010108A0)}), listener, &handle);
    });
    ASSERT_GT(handle, 0);
    ASSERT_EQ(listeners(), 1u);

    binder_host::killProcess(client);
    connect()->request(parcel(1, {idRecord(0x010108A0, "1")}), &handle);
    binder_host::drain();
    EXPECT_EQ(listeners(), 0u);
}

}  // namespace
}  // namespace torq_sim_test
