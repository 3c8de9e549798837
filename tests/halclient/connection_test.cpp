// The shared connection: lazy connect, the failure rule of every call, death and reconnection.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>

#include "HalclientTest.h"

namespace halclient_test {
namespace {

using namespace torqHalclient;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

struct Call {
    const char* entry;   // the INFO line each call starts with
    const char* method;  // the ITorq method it makes
    const char* step;    // the name its failure line reports
    std::function<int32_t()> run;
};

const std::vector<Call>& allCalls() {
    static const auto idCb = std::make_shared<IdCallback>();
    static const auto pathCb = std::make_shared<PathCallback>();
    static const std::vector<std::string> paths{"/p"}, values{"1"};
    static const std::map<std::string, std::string> pathMap{{"/p", "1"}};
    static const std::vector<Call> calls = {
            {"torq client torq_init", "init", "torq_init", [] { return torq_init(), 0; }},
            {"torq client torqResCtlRequest", "request", "torqResCtlRequest",
             [] {
                 Resources r = res({{0x101, "1"}});
                 return torqResCtlRequest(1, 2, r, 3, 4, 5);
             }},
            {"torq client torqResCtlRequest with callback", "request",
             "torq client TorqCallbackClient with callback",
             [] {
                 Resources r = res({{0x101, "1"}});
                 return torqResCtlRequest(1, 2, r, 3, 4, 5, idCb);
             }},
            {"torq client torqSACtlRequest", "request", "torqSACtlRequest",
             [] { return torqSACtlRequest(1, 2, 3, 4, 5, 6); }},
            {"torq client torqSACtlRequest with callback", "request",
             "torqSACtlRequest with callback",
             [] { return torqSACtlRequest(1, 2, 3, 4, 5, 6, idCb); }},
            {"torq client torqResCtlRelease", "release", "torqResCtlRelease",
             [] { return torqResCtlRelease(9); }},
            {"torq client torqSACtlRelease", "release", "torqSACtlRelease",
             [] { return torqSACtlRelease(9); }},
            {"torqResListeningRegister", "listeningRegister", "torq_res_listening_register_map",
             [] {
                 Resources r = res({{0x555, ""}});
                 return torqResListeningRegister(r, 0, idCb);
             }},
            {"torq client torqResListeningUnRegister", "listeningUnregister",
             "torqResListeningUnRegister", [] { return torqResListeningUnRegister(-77); }},
            {"torq client torqResStateRequest", "stateRequest", "torqResStateRequest",
             [] {
                 Resources r = res({{0x101, ""}}), out;
                 return torqResStateRequest(r, 0, out);
             }},
            {"torq client torqThermalNotify", "request", "torqThermalNotify",
             [] {
                 Resources r = res({{1, "2"}});
                 return torqThermalNotify(r, 0);
             }},
            {"torqThermalListeningRegister", "thermalListeningRegister",
             "torqThermalListeningRegister", [] { return torqThermalListeningRegister({1}, idCb); }},
            {"torq client torqThermalListeningUnregister", "thermalListeningUnregister",
             "torqThermalListeningUnregister", [] { return torqThermalListeningUnregister(9); }},
            {"torq client torq_resctl_request", "request", "torq_resctl_request_by_path",
             [] { return torq_resctl_request_by_path(1, 2, paths, values, 3, 4, 5); }},
            {"torq client torq_resctl_request_with_callback", "request",
             "torq client torq_resctl_request_with_callback",
             [] {
                 return torq_resctl_request_with_callback_by_path(1, 2, paths, values, 3, 4, 5,
                                                                  pathCb);
             }},
            {"torq client torq_res_state_request", "stateRequest", "torq_res_state_request",
             [] {
                 std::vector<std::string> out;
                 return torq_res_state_request_by_path(paths, values, 0, out);
             }},
            {"torq client torq_res_state_request_map", "stateRequest", "torq_res_state_request_map",
             [] {
                 std::map<std::string, std::string> out;
                 return torq_res_state_request_map_by_path(pathMap, 0, out);
             }},
            {"torq client torq_res_listening_register", "listeningRegister",
             "torq_res_listening_register",
             [] { return torq_res_listening_register_by_path({"/unique"}, 0, pathCb); }},
            {"torq client torq_res_listening_register_map", "listeningRegister",
             "torq_res_listening_register_map",
             [] {
                 return torq_res_listening_register_map_by_path({{"/u", "1"}}, 0, pathCb);
             }},
            {"torq client torqDumpToDoQueue", "request", "torqDumpToDoQueue", torqDumpToDoQueue},
            {"torq client torqDumpRunMap", "request", "torqDumpRunMap", torqDumpRunMap},
            {"torq client torqDumpActiveResMap", "request", "torqDumpActiveResMap",
             torqDumpActiveResMap},
            {"torq client torqDumpResRequest", "request", "torqDumpResRequest", torqDumpResRequest},
            {"torq client torqDumpResInfo", "request", "torqDumpResInfo", torqDumpResInfo},
            {"torq client torqDumpSAInfo", "request", "torqDumpSAInfo", torqDumpSAInfo},
            {"torq client torqDumpPidFdList", "request", "torqDumpPidFdList", torqDumpPidFdList},
            {"torq client torqDumpPidfdMonitorMap", "request", "torqDumpPidfdMonitorMap",
             torqDumpPidfdMonitorMap},
            {"torq client torqDumpResRecordList", "request", "torqDumpResRecordList",
             torqDumpResRecordList},
            {"torq client torqHistoryRequestRecordOn", "request", "torqHistoryRequestRecordOn",
             torqHistoryRequestRecordOn},
            {"torq client torqHistoryRequestRecordOff", "request", "torqHistoryRequestRecordOff",
             torqHistoryRequestRecordOff},
            {"torq client torqPropertyGet", "propertyGet", "torqPropertyGet",
             [] {
                 delete[] torqPropertyGet("p");
                 return -1;
             }},
            {"torq client torqPropertySet", "propertySet", "torqPropertySet",
             [] { return torqPropertySet("p", "v"); }},
    };
    return calls;
}

using ConnectionTest = HalclientTest;

TEST_F(ConnectionTest, WithoutDeclaredHalEveryCallFailsAfterOneNotDeclaredLine) {
    for (const Call& call : allCalls()) {
        SCOPED_TRACE(call.entry);
        log_.clear();
        EXPECT_EQ(call.run(), call.method == std::string("init") ? 0 : -1);
        std::vector<std::string> got = lines();
        ASSERT_GE(got.size(), 2u);
        EXPECT_EQ(got[0], std::string("I ") + call.entry);
        EXPECT_EQ(got[1], kNotDeclared0);
        // Only the property read logs its (unwritten) buffer afterwards.
        EXPECT_EQ(got.size(), call.method == std::string("propertyGet") ? 3u : 2u);
    }
}

TEST_F(ConnectionTest, BadStatusLogsStepNameAndTheNextCallConnectsAgain) {
    startHal();
    for (const Call& call : allCalls()) {
        SCOPED_TRACE(call.entry);
        hal().setDefaultAnswers();
        hal().setAnswer(call.method, refused());
        hal().clearCalls();
        log_.clear();
        int32_t ret = call.run();
        if (call.method != std::string("init")) {
            EXPECT_EQ(ret, -1);
        }
        EXPECT_EQ(hal().count(call.method), 1u);
        std::string failure =
                std::string("E ") + call.step + "() failed: torq HAL service not available";
        EXPECT_THAT(lines(), Contains(failure));

        // The cache was emptied: with the instance gone, the next call tries to connect.
        undeclare();
        log_.clear();
        EXPECT_EQ(torqResCtlRelease(1), -1);
        EXPECT_THAT(lines(), ElementsAre("I torq client torqResCtlRelease", kNotDeclared0));
        binder_host::declareInstance(torq_test::kTorqInstance);
    }
}

TEST_F(ConnectionTest, TransportFailureCountsAsBadStatus) {
    startHal();
    Answer broken;
    broken.transactionError = STATUS_FAILED_TRANSACTION;
    hal().setAnswer("release", broken);
    EXPECT_EQ(torqResCtlRelease(3), -1);
    EXPECT_THAT(lines(),
                ElementsAre("I torq client torqResCtlRelease",
                            "E torqResCtlRelease() failed: torq HAL service not available"));
}

TEST_F(ConnectionTest, ConnectsLazilyOnceAndStaysConnected) {
    startHal();
    torq_init();
    EXPECT_EQ(torqResCtlRelease(4), 1);
    EXPECT_EQ(torqSACtlRelease(5), 1);
    // Connecting logs nothing: only the entry lines.
    EXPECT_THAT(lines(), ElementsAre("I torq client torq_init", "I torq client torqResCtlRelease",
                                     "I torq client torqSACtlRelease"));
    EXPECT_EQ(hal().count("init"), 1u);
    // Still connected: removing the instance does not matter to a cached interface.
    undeclare();
    EXPECT_EQ(torqResCtlRelease(6), 1);
    EXPECT_EQ(hal().last("release").callingProcess, binder_host::kDefaultProcess);
}

TEST_F(ConnectionTest, HalDeathClearsCacheAndNextCallReachesRestartedHal) {
    startHal();
    ASSERT_EQ(torqResCtlRelease(1), 1);
    binder_host::ProcessId first = hal().pid();
    hal().restart();
    drain();
    EXPECT_THAT(lines(), Contains("E Torq HAL Service died"));
    ASSERT_NE(hal().pid(), first);
    hal().clearCalls();
    log_.clear();
    EXPECT_EQ(torqResCtlRelease(2), 1);
    EXPECT_EQ(hal().count("release"), 1u);
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResCtlRelease"));
}

TEST_F(ConnectionTest, ReconnectionAfterFailureLinksNewDeathRecipient) {
    startHal();
    hal().answerOnce("release", refused());
    EXPECT_EQ(torqResCtlRelease(1), -1);
    EXPECT_EQ(torqResCtlRelease(2), 1);  // reconnects
    log_.clear();
    hal().kill();
    drain();
    EXPECT_THAT(lines(), ElementsAre("E Torq HAL Service died"));
    undeclare();  // declared without a service, the next call would wait for it forever
    EXPECT_EQ(torqResCtlRelease(3), -1);
}

// Callers that all found the cache empty: one connects, the others find the interface already
// there under the exclusive lock and say so with the "not declared" line showing 1.
TEST_F(ConnectionTest, RacingFirstCallsConnectOnce) {
    constexpr int kThreads = 4;
    // Whether anyone is queued behind the connecting caller is up to the scheduler: try again
    // until it happened, checking every round.
    size_t losers = 0;
    for (int round = 0; round < 20 && losers == 0; ++round) {
        SCOPED_TRACE(round);
        hal_.reset();
        binder_host::reset();
        std::vector<std::thread> threads;
        // Without a declared HAL every call fails at once and the callers cycle through the
        // connect path, most of the time queued for the exclusive lock after finding the cache
        // empty.
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([] {
                while (torqDumpRunMap() != 0) {
                }
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        // Declared but not registered: the next caller waits in waitForService, holding the
        // exclusive lock, while the others queue behind it.
        binder_host::declareInstance(torq_test::kTorqInstance);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        // From here on only what happens once the waiting caller has connected. (A caller that
        // found the instance undeclared just before it was declared may still be writing its
        // "not declared" line, with either answer: those lines say nothing about the race.)
        log_.clear();
        startHal();
        for (auto& t : threads) t.join();

        // One connection served everyone: each caller made exactly its one successful request.
        EXPECT_EQ(hal().count("request"), static_cast<size_t>(kThreads));
        std::vector<std::string> got = lines();
        losers = std::count(got.begin(), got.end(), kNotDeclared1);
        EXPECT_LE(losers, static_cast<size_t>(kThreads - 1));
    }
    EXPECT_GE(losers, 1u);
}

}  // namespace
}  // namespace halclient_test
