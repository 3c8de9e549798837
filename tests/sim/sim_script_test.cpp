// The simulator as the HAL of the emulated binder world and as a scriptable HAL for tests, where a
// fault would quietly weaken every test built on it: what it records, how scripted answers
// override the model, the callbacks it holds, what it refuses, clients and itself dying, and the
// manifest. (Callbacks across processes, the host's timer, death notices, calls failing while the
// HAL is down and a fresh model after a restart: torqctl's tour and shell runs.)

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_status.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <thread>

#include "SimTestUtil.h"
#include "torq_sim/SimHost.h"

namespace torq_sim_test {
namespace {

using ::aidl::vendor::quarn::hardware::torq::ITorq;
using torq_sim::SentAnswer;
using torq_sim::SimHost;

std::shared_ptr<ITorq> connect() {
    ::ndk::SpAIBinder binder(AServiceManager_checkService(torq_sim::kTorqInstance));
    return ITorq::fromBinder(binder);
}

SentAnswer result(int32_t value) {
    SentAnswer a;
    a.result = value;
    return a;
}

SentAnswer failure(int32_t exception, int32_t code = 0) {
    SentAnswer a;
    a.exception = exception;
    a.serviceSpecificError = code;
    return a;
}

class SimScriptTest : public ::testing::Test {
  protected:
    void SetUp() override { binder_host::reset(); }
    void TearDown() override { binder_host::reset(); }
};

TEST_F(SimScriptTest, RecordsEveryCallInOrderWithTheCallingProcess) {
    SimHost hal;
    ASSERT_TRUE(hal.start());
    auto torq = connect();
    ASSERT_NE(torq, nullptr);
    int32_t r = 0;
    ASSERT_TRUE(torq->init().isOk());
    ASSERT_TRUE(torq->release(5, &r).isOk());
    binder_host::ProcessId client = binder_host::createProcess("client");
    ASSERT_TRUE(binder_host::runInProcess(client, [&] {
        int32_t x = 0;
        EXPECT_TRUE(connect()->listeningUnregister(6, &x).isOk());
    }));
    auto calls = hal.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].method, "init");
    EXPECT_EQ(calls[1].method, "release");
    EXPECT_EQ(calls[1].callingPid, binder_host::kDefaultProcess);
    EXPECT_EQ(calls[2].method, "listeningUnregister");
    EXPECT_EQ(calls[2].callingPid, client);
    EXPECT_EQ(hal.count("release"), 1u);
    EXPECT_EQ(hal.last("listeningUnregister").handle, 6);
    hal.clearCalls();
    EXPECT_TRUE(hal.calls().empty());
    EXPECT_FALSE(hal.journal()->entries().empty());  // the journal keeps them
    EXPECT_THROW(hal.last("release"), std::invalid_argument);

    EXPECT_FALSE(hal.waitForCalls("release", 1, 50));
    std::thread caller([] {
        int32_t r = 0;
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(connect()->release(i, &r).isOk());
    });
    EXPECT_TRUE(hal.waitForCalls("release", 3));
    caller.join();
}

TEST_F(SimScriptTest, OnceAnswersGoBeforeTheStandingOneAndOkAnswersKeepTheModel) {
    SimHost hal;
    ASSERT_TRUE(hal.start());
    auto torq = connect();
    const TorqRequestParcel boost = parcel(1, {idRecord(0x010108A0, "55")});
    int32_t handle = -9;

    hal.setAnswer("request", result(500));
    hal.answerOnce("request", failure(EX_ILLEGAL_STATE));
    hal.answerOnce("request", failure(EX_SERVICE_SPECIFIC, 7));
    ndk::ScopedAStatus st = torq->request(boost, &handle);
    EXPECT_EQ(st.getExceptionCode(), EX_ILLEGAL_STATE);
    EXPECT_EQ(handle, -9);  // a failed reply carries no out value
    st = torq->request(boost, &handle);
    EXPECT_EQ(st.getServiceSpecificError(), 7);

    // An OK answer lets the model act and replaces only the out value it names. (Scripted
    // records and texts: the client library's tests against the simulator.)
    ASSERT_TRUE(torq->request(boost, &handle).isOk());
    EXPECT_EQ(handle, 500);
    // dumpsys shows the tables and the journal as answered: the failing answers replaced the
    // model, so this is its first request.
    FILE* file = tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(torq->dump(fileno(file), nullptr, 0), STATUS_OK);
    rewind(file);
    std::string text(4096, '\0');
    text.resize(fread(text.data(), 1, text.size(), file));
    fclose(file);
    for (const char* part : {"torq-sim 1.0\nToDoQueue:\n",
                             "ActiveResMap:\n  0x010108a0 sched.cluster0.target_load = 55 by #1,",
                             "\n  request(kind=1 data=[{id=0x010108a0 value=\"55\"}]) -> 500\n"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\nin:\n" << text;
    }

    hal.setAnswer("release", result(9));
    hal.clearAnswers("request");
    ASSERT_TRUE(torq->request(boost, &handle).isOk());
    EXPECT_EQ(handle, 2);  // the model's own
    int32_t r = 0;
    ASSERT_TRUE(torq->release(handle, &r).isOk());
    EXPECT_EQ(r, 9);
    hal.clearAnswers();
    ASSERT_TRUE(torq->release(handle, &r).isOk());
    EXPECT_EQ(r, -1);  // released already
}

TEST_F(SimScriptTest, RefusesWhatItCannotHonourAndChangesNothing) {
    SimHost hal;
    SentAnswer records;
    records.records = std::vector<TorqRequestData>{};
    SentAnswer text;
    text.text = "x";
    SentAnswer failingWithValue = failure(EX_ILLEGAL_STATE);
    failingWithValue.result = 3;
    SentAnswer codeWithoutException;
    codeWithoutException.serviceSpecificError = 4;
    struct Case {
        const char* what;
        std::function<void()> call;
    };
    const Case cases[] = {
            {"unknown method", [&] { hal.setAnswer("reqest", result(1)); }},
            {"records for release", [&] { hal.setAnswer("release", records); }},
            {"text for request", [&] { hal.answerOnce("request", text); }},
            {"result for stateRequest", [&] { hal.setAnswer("stateRequest", result(1)); }},
            {"result for init", [&] { hal.setAnswer("init", result(1)); }},
            {"value with a failure", [&] { hal.setAnswer("release", failingWithValue); }},
            {"code without exception", [&] { hal.setAnswer("release", codeWithoutException); }},
            {"clear an unknown method", [&] { hal.clearAnswers("nope"); }},
            {"calls of an unknown method", [&] { hal.calls("nope"); }},
            {"callback of a HAL not running", [&] { (void)hal.invokeCallback(0, {}); }},
    };
    for (const Case& c : cases) {
        EXPECT_THROW(c.call(), std::invalid_argument) << c.what;
    }
    // Nothing was scripted by the refused calls: the model answers.
    ASSERT_TRUE(hal.start());
    int32_t r = 0;
    ASSERT_TRUE(connect()->release(77, &r).isOk());
    EXPECT_EQ(r, -1);
    EXPECT_THROW(hal.restart(), std::invalid_argument);  // running
    EXPECT_TRUE(hal.alive());
}

TEST_F(SimScriptTest, HoldsInvokesAndDropsCallbacks) {
    SimHost::Options options;
    options.modelCallbacks = false;
    SimHost hal(options);
    ASSERT_TRUE(hal.start());
    auto torq = connect();
    auto a = ndk::SharedRefBase::make<RecordingCallback>();
    auto b = ndk::SharedRefBase::make<RecordingCallback>();
    TorqRequestParcel withCallback = parcel(1, {idRecord(0x010108A0, "60")});
    withCallback.callback = a;
    int32_t h = 0;
    ASSERT_TRUE(torq->request(withCallback, &h).isOk());
    ASSERT_TRUE(torq->request({}, &h).isOk());  // no callback: nothing held
    ASSERT_TRUE(torq->thermalListeningRegister({}, b, &h).isOk());
    ASSERT_EQ(hal.callbackCount(), 2u);
    EXPECT_TRUE(hal.last("thermalListeningRegister").hasCallback);
    EXPECT_TRUE(hal.calls("request")[0].hasCallback);
    EXPECT_EQ(hal.last("request").parcel.callback, nullptr);  // records keep no callback
    // The model applied the request but, told not to, called nobody back: only the test does.
    ASSERT_TRUE(binder_host::drain());
    EXPECT_TRUE(a->calls().empty());

    ASSERT_TRUE(hal.invokeCallback(1, {idRecord(1), idRecord(2)}).isOk());
    ASSERT_TRUE(hal.invokeCallback(0, {idRecord(1)}).isOk());
    ASSERT_TRUE(a->waitFor(1));
    ASSERT_TRUE(b->waitFor(1));
    EXPECT_EQ(a->calls(), (std::vector<Records>{{idRecord(1)}}));
    EXPECT_EQ(b->calls(), (std::vector<Records>{{idRecord(1), idRecord(2)}}));
    EXPECT_THROW((void)hal.invokeCallback(2, {}), std::invalid_argument);
    hal.dropCallbacks();
    EXPECT_EQ(hal.callbackCount(), 0u);
    EXPECT_THROW((void)hal.invokeCallback(0, {}), std::invalid_argument);
}

// The listeners of a client that died are dropped at the next change they would hear of.
TEST_F(SimScriptTest, ListenersOfADeadClientAreForgotten) {
    SimHost hal;
    ASSERT_TRUE(hal.start());
    auto torq = connect();
    auto listener = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t h = 0;
    ASSERT_TRUE(torq->listeningRegister(parcel(0, {idRecord(0x010108A0)}), listener, &h).isOk());
    auto listeners = [&] {
        size_t n = 0;
        hal.inspect([&](const torq_sim::SimModel& m) { n = m.listenerCount(); });
        return n;
    };
    const binder_host::ProcessId client = binder_host::createProcess("client");
    ASSERT_TRUE(binder_host::runInProcess(client, [&] {
        auto gone = ndk::SharedRefBase::make<RecordingCallback>();
        EXPECT_TRUE(
                connect()->listeningRegister(parcel(0, {idRecord(0x010108A0)}), gone, &h).isOk());
    }));
    ASSERT_EQ(listeners(), 2u);
    binder_host::killProcess(client);
    // The next change it would hear of finds it gone.
    ASSERT_TRUE(torq->request(parcel(1, {idRecord(0x010108A0, "1")}), &h).isOk());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(listeners(), 1u);
}

TEST_F(SimScriptTest, KillAndRestartKeepScriptsAndRecordsAndTheManifestIsAsAsked) {
    auto hal = std::make_unique<SimHost>();
    // Declared but not running: clients are told it exists, but nothing serves yet.
    hal->declare();
    EXPECT_TRUE(AServiceManager_isDeclared(torq_sim::kTorqInstance));
    EXPECT_EQ(connect(), nullptr);
    ASSERT_TRUE(hal->start());
    EXPECT_NE(hal->pid(), binder_host::kDefaultProcess);
    auto torq = connect();
    ASSERT_NE(torq, nullptr);
    auto cb = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t h = 0;
    hal->setAnswer("listeningRegister", result(41));  // scripts survive a restart
    ASSERT_TRUE(torq->listeningRegister({}, cb, &h).isOk());
    EXPECT_EQ(h, 41);

    hal->kill();
    EXPECT_FALSE(hal->alive());
    EXPECT_EQ(hal->callbackCount(), 0u);  // a dead HAL holds nothing
    EXPECT_EQ(connect(), nullptr);
    EXPECT_TRUE(AServiceManager_isDeclared(torq_sim::kTorqInstance));  // still in the manifest

    ASSERT_TRUE(hal->restart());
    auto again = connect();
    ASSERT_NE(again, nullptr);
    ASSERT_TRUE(again->listeningRegister({}, cb, &h).isOk());
    EXPECT_EQ(h, 41);
    EXPECT_EQ(hal->count("listeningRegister"), 2u);  // the record survives the restart

    // Killed behind the host's back, the HAL cannot be called back.
    binder_host::killProcess(hal->pid());
    EXPECT_FALSE(hal->alive());
    EXPECT_THROW((void)hal->invokeCallback(0, {}), std::invalid_argument);
    ASSERT_TRUE(hal->restart());  // a HAL that died on its own can be restarted

    // Gone with the host: neither registered nor declared.
    hal.reset();
    EXPECT_EQ(connect(), nullptr);
    EXPECT_FALSE(AServiceManager_isDeclared(torq_sim::kTorqInstance));
    SimHost::Options options;
    options.declare = false;
    SimHost undeclared(options);
    ASSERT_TRUE(undeclared.start());
    EXPECT_FALSE(AServiceManager_isDeclared(torq_sim::kTorqInstance));
    EXPECT_NE(connect(), nullptr);
}

}  // namespace
}  // namespace torq_sim_test
