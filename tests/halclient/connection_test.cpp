// The shared connection: lazy connect, the failure rule of every call, death and reconnection.

#include <functional>
#include <map>

#include "HalclientTest.h"

namespace halclient_test {
namespace {

using namespace torqHalclient;
using ::testing::Contains;
using ::testing::ElementsAre;

struct Call {
    std::string entry;   // the INFO line each call starts with
    std::string method;  // the ITorq method it makes
    std::string step;    // the name its failure line reports
    std::function<int32_t()> run;
};

// Most calls start with "torq client <name>" and report failures under <name>.
Call named(const std::string& name, const char* method, std::function<int32_t()> run) {
    return {"torq client " + name, method, name, std::move(run)};
}

const std::vector<Call>& allCalls() {
    static Resources r = res({{0x101, "1"}}), out;
    static Strings paths{"/p"}, values{"1"}, pathOut;
    static std::map<std::string, std::string> pathMap{{"/p", "1"}}, mapOut;
    static const auto cb = std::make_shared<Recorder>();
    static const std::vector<Call> calls = {
            named("torq_init", "init", [] { return torq_init(), 0; }),
            named("torqResCtlRequest", "request",
                  [] { return torqResCtlRequest(1, 2, r, 3, 4, 5); }),
            {"torq client torqResCtlRequest with callback", "request",
             "torq client TorqCallbackClient with callback",
             [] { return torqResCtlRequest(1, 2, r, 3, 4, 5, cb); }},
            named("torqSACtlRequest", "request", [] { return torqSACtlRequest(1, 2, 3, 4, 5, 6); }),
            {"torq client torqSACtlRequest with callback", "request",
             "torqSACtlRequest with callback",
             [] { return torqSACtlRequest(1, 2, 3, 4, 5, 6, cb); }},
            named("torqResCtlRelease", "release", [] { return torqResCtlRelease(9); }),
            named("torqSACtlRelease", "release", [] { return torqSACtlRelease(9); }),
            {"torqResListeningRegister", "listeningRegister", "torq_res_listening_register_map",
             [] { return torqResListeningRegister(r, 0, cb); }},
            named("torqResListeningUnRegister", "listeningUnregister",
                  [] { return torqResListeningUnRegister(-77); }),
            named("torqResStateRequest", "stateRequest",
                  [] { return torqResStateRequest(r, 0, out); }),
            named("torqThermalNotify", "request", [] { return torqThermalNotify(r, 0); }),
            {"torqThermalListeningRegister", "thermalListeningRegister",
             "torqThermalListeningRegister", [] { return torqThermalListeningRegister({1}, cb); }},
            named("torqThermalListeningUnregister", "thermalListeningUnregister",
                  [] { return torqThermalListeningUnregister(9); }),
            {"torq client torq_resctl_request", "request", "torq_resctl_request_by_path",
             [] { return torq_resctl_request_by_path(1, 2, paths, values, 3, 4, 5); }},
            {"torq client torq_resctl_request_with_callback", "request",
             "torq client torq_resctl_request_with_callback",
             [] {
                 return torq_resctl_request_with_callback_by_path(1, 2, paths, values, 3, 4, 5, cb);
             }},
            named("torq_res_state_request", "stateRequest",
                  [] { return torq_res_state_request_by_path(paths, values, 0, pathOut); }),
            named("torq_res_state_request_map", "stateRequest",
                  [] { return torq_res_state_request_map_by_path(pathMap, 0, mapOut); }),
            named("torq_res_listening_register", "listeningRegister",
                  [] { return torq_res_listening_register_by_path(paths, 0, cb); }),
            named("torq_res_listening_register_map", "listeningRegister",
                  [] { return torq_res_listening_register_map_by_path(pathMap, 0, cb); }),
            named("torqDumpToDoQueue", "request", torqDumpToDoQueue),
            named("torqDumpRunMap", "request", torqDumpRunMap),
            named("torqDumpActiveResMap", "request", torqDumpActiveResMap),
            named("torqDumpResRequest", "request", torqDumpResRequest),
            named("torqDumpResInfo", "request", torqDumpResInfo),
            named("torqDumpSAInfo", "request", torqDumpSAInfo),
            named("torqDumpPidFdList", "request", torqDumpPidFdList),
            named("torqDumpPidfdMonitorMap", "request", torqDumpPidfdMonitorMap),
            named("torqDumpResRecordList", "request", torqDumpResRecordList),
            named("torqHistoryRequestRecordOn", "request", torqHistoryRequestRecordOn),
            named("torqHistoryRequestRecordOff", "request", torqHistoryRequestRecordOff),
            named("torqPropertyGet", "propertyGet",
                  [] { return delete[] torqPropertyGet("p"), -1; }),
            named("torqPropertySet", "propertySet", [] { return torqPropertySet("p", "v"); }),
    };
    return calls;
}

using ConnectionTest = HalclientTest;

// Each call twice: without a declared HAL it fails after one "not declared" line; with one that
// refuses (or breaks the transaction) it reports its step and drops the cached interface, which
// the next round proves by trying to connect again.
TEST_F(ConnectionTest, EveryCallFailsCleanlyAndAFailedCallDropsTheConnection) {
    Answer broken;
    broken.transactionError = STATUS_FAILED_TRANSACTION;
    bool useBroken = false;
    for (const Call& call : allCalls()) {
        SCOPED_TRACE(call.entry);
        binder_host::undeclareInstance(torq_sim::kTorqInstance);
        log_.clear();
        EXPECT_EQ(call.run(), call.method == "init" ? 0 : -1);
        Strings got = lines();
        // Only the property read logs its (unwritten) buffer afterwards.
        ASSERT_EQ(got.size(), call.method == "propertyGet" ? 3u : 2u);
        EXPECT_EQ(got[0], "I " + call.entry);
        EXPECT_EQ(got[1], kNotDeclared0);

        binder_host::declareInstance(torq_sim::kTorqInstance);
        hal().clearAnswers();
        hal().setAnswer(call.method, (useBroken = !useBroken) ? broken : refused());
        hal().clearCalls();
        log_.clear();
        EXPECT_EQ(call.run(), call.method == "init" ? 0 : -1);
        EXPECT_EQ(hal().count(call.method), 1u);
        EXPECT_THAT(lines(),
                    Contains("E " + call.step + "() failed: torq HAL service not available"));
    }
    binder_host::undeclareInstance(torq_sim::kTorqInstance);
    log_.clear();
    EXPECT_EQ(torqResCtlRelease(1), -1);
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResCtlRelease", kNotDeclared0));
}

TEST_F(ConnectionTest, ConnectsLazilyOnceAndStaysConnected) {
    torq_init();
    EXPECT_EQ(torqResCtlRelease(4), 1);
    // Connecting logs nothing: only the entry lines.
    EXPECT_THAT(lines(), ElementsAre("I torq client torq_init", "I torq client torqResCtlRelease"));
    EXPECT_EQ(hal().count("init"), 1u);
    // A cached interface does not care that the instance is gone.
    binder_host::undeclareInstance(torq_sim::kTorqInstance);
    EXPECT_EQ(torqSACtlRelease(6), 1);
}

// Each connection, also one made after a failed call, is watched for the HAL's death.
TEST_F(ConnectionTest, DeathOfAReconnectedHalIsNoticedAndTheNextCallReachesItsSuccessor) {
    hal().answerOnce("release", refused());
    EXPECT_EQ(torqResCtlRelease(1), -1);
    EXPECT_EQ(torqResCtlRelease(2), 1);
    binder_host::ProcessId first = hal().pid();
    log_.clear();
    hal().kill();
    hal().restart();
    drain();
    EXPECT_THAT(lines(), ElementsAre("E Torq HAL Service died"));
    ASSERT_NE(hal().pid(), first);
    hal().clearCalls();
    log_.clear();
    EXPECT_EQ(torqResCtlRelease(3), 1);
    EXPECT_EQ(hal().count("release"), 1u);
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResCtlRelease"));
}

// Callers racing to make the first connection while it waits for the service to register:
// nobody is left stuck, and each call reaches the HAL once.
TEST_F(ConnectionTest, RacingFirstCallsAllGetThroughOnceTheServiceArrives) {
    constexpr size_t kThreads = 4;
    hal_.reset();  // undeclared: every call fails at once and the callers keep trying
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            while (torqDumpRunMap() != 0) {
            }
        });
    }
    // Declared before it registers: whoever connects next waits for it holding the connection
    // lock, and the others queue behind.
    binder_host::declareInstance(torq_sim::kTorqInstance);
    hal_ = std::make_unique<SimHost>();
    ASSERT_TRUE(hal_->start());
    for (auto& t : threads) t.join();
    EXPECT_EQ(hal().count("request"), kThreads);
}

}  // namespace
}  // namespace halclient_test
