// The callback client: how the HAL's answers reach the caller, the request and listening
// registries, the client's lifetime, and the registries under concurrent use.

#include <algorithm>
#include <atomic>
#include <thread>

#include "HalclientTest.h"

namespace halclient_test {
namespace {

using namespace torqHalclient;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kDestroyed[] = "I ndk backend ~TorqCallbackClient";

class CallbackTest : public HalclientTest {
  protected:
    void SetUp() override {
        HalclientTest::SetUp();
        startHal();
    }
    // Sends the HAL's answer to the callback it received `index`-th and waits for delivery.
    void answer(size_t index, const std::vector<TorqRequestData>& data) {
        ASSERT_TRUE(hal().invokeCallback(index, data).isOk());
        drain();
    }
    std::shared_ptr<IdCallback> cb_ = std::make_shared<IdCallback>();
    std::shared_ptr<PathCallback> pathCb_ = std::make_shared<PathCallback>();
};

TEST_F(CallbackTest, RequestClientIsAnsweredOnBinderThreadAndLeavesRegistryOnce) {
    size_t registered = requestCallbacks();
    Resources r = res({{0x1, "1"}});
    ASSERT_EQ(torqResCtlRequest(-1, 100, r, -1, -1, 0, cb_), 1);
    ASSERT_EQ(requestCallbacks(), registered + 1);
    ASSERT_EQ(hal().callbackCount(), 1u);
    log_.clear();

    answer(0, {idRecord(0x010108a0, "1200"), idRecord(0x2)});
    std::vector<Delivery> got = cb_->deliveries();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].resources, (Pairs{{0x010108a0, "1200"}, {0x2, ""}}));
    EXPECT_EQ(got[0].process, binder_host::kDefaultProcess);
    EXPECT_NE(got[0].thread, std::this_thread::get_id());
    EXPECT_EQ(requestCallbacks(), registered);
    const std::string sizes =
            "I TorqCallback::onCallback request callback called , remove from "
            "request_callbacks , request_callbacks size before ";
    EXPECT_THAT(callbackLines(),
                ElementsAre("I TorqCallbackClient::onCallback res_Id 0x10108a0 res_Value 1200 "
                            "is_register 0",
                            "I TorqCallbackClient::onCallback res_Id 0x2 is_register 0",
                            "I TorqCallback::onCallback call IClientCallback onCallback "
                            "is_register 0",
                            "I callback is found in request_callbacks",
                            sizes + std::to_string(registered + 1) + " after " +
                                    std::to_string(registered)));

    // A second answer still reaches the caller, but the client is no longer registered.
    log_.clear();
    answer(0, {idRecord(0x3, "x")});
    EXPECT_EQ(cb_->count(), 2u);
    EXPECT_THAT(callbackLines(),
                ElementsAre("I TorqCallbackClient::onCallback res_Id 0x3 res_Value x is_register 0",
                            "I TorqCallback::onCallback call IClientCallback onCallback "
                            "is_register 0",
                            "E callback not found in request_callbacks",
                            sizes + std::to_string(registered) + " after " +
                                    std::to_string(registered)));

    // The transaction log of the callback goes out untagged.
    bool logged = false;
    for (const auto& line : log_.lines()) {
        logged |= !line.hasTag && line.priority == ANDROID_LOG_INFO &&
                  line.text ==
                          "BnTorqCallback::logFunc NDK BACKEND method_name onCallback "
                          "exception_code 0 exception_message  transaction_error 0 "
                          "service_specific_error_code 0";
    }
    EXPECT_TRUE(logged);

    // Only the HAL holds the client now: when it lets go, the client goes.
    EXPECT_THAT(callbackLines(), Not(Contains(kDestroyed)));
    hal().dropCallbacks();
    drain();
    EXPECT_THAT(callbackLines(), Contains(kDestroyed));
}

TEST_F(CallbackTest, EveryNewClientTakesTheTransactionLogHookBack) {
    // Someone else installs a hook of their own; the next client the library makes restores its
    // own untagged transaction log.
    std::atomic<int> foreignCalls{0};
    ::aidl::vendor::quarn::hardware::torq::BnTorqCallback::logFunc = [&foreignCalls](const auto&) {
        foreignCalls++;
    };
    Resources r = res({{0x1, "1"}});
    ASSERT_EQ(torqResCtlRequest(-1, 100, r, -1, -1, 0, cb_), 1);
    log_.clear();
    answer(0, {idRecord(0x1, "1")});
    EXPECT_EQ(foreignCalls.load(), 0);
    EXPECT_EQ(log_.count("BnTorqCallback::logFunc NDK BACKEND method_name onCallback "
                         "exception_code 0 exception_message  transaction_error 0 "
                         "service_specific_error_code 0"),
              1u);
}

TEST_F(CallbackTest, EmptyAnswerAndMissingCallerCallbackStillRetireRequestClient) {
    size_t registered = requestCallbacks();
    ASSERT_GE(torqSACtlRequest(1, 2, 3, 4, 5, 6, cb_), 1);
    ASSERT_GE(torqSACtlRequest(1, 2, 3, 4, 5, 6, std::shared_ptr<IClientCallback>()), 1);
    ASSERT_EQ(requestCallbacks(), registered + 2);
    log_.clear();
    answer(0, {});
    EXPECT_EQ(cb_->count(), 0u);
    answer(1, {idRecord(0x4, "4")});
    EXPECT_EQ(requestCallbacks(), registered);
    EXPECT_THAT(callbackLines(),
                ElementsAre("I callback is found in request_callbacks",
                            "I TorqCallback::onCallback request callback called , remove from "
                            "request_callbacks , request_callbacks size before " +
                                    std::to_string(registered + 2) + " after " +
                                    std::to_string(registered + 1),
                            "I TorqCallbackClient::onCallback res_Id 0x4 res_Value 4 is_register 0",
                            "I callback is found in request_callbacks",
                            "I TorqCallback::onCallback request callback called , remove from "
                            "request_callbacks , request_callbacks size before " +
                                    std::to_string(registered + 1) + " after " +
                                    std::to_string(registered)));
}

TEST_F(CallbackTest, PathAnswersArriveAsValuesThenPaths) {
    size_t registered = requestCallbacks();
    ASSERT_EQ(torq_resctl_request_with_callback_by_path(0, 0, {"/a"}, {"1"}, 0, 0, 0, pathCb_), 1);
    log_.clear();
    answer(0,
           {pathRecord("/a", "1"), pathRecord("/b", std::nullopt), pathRecord(std::nullopt, "3")});
    std::vector<Delivery> got = pathCb_->deliveries();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].values, (std::vector<std::string>{"1", "", "3"}));
    EXPECT_EQ(got[0].paths, (std::vector<std::string>{"/a", "/b", ""}));
    EXPECT_NE(got[0].thread, std::this_thread::get_id());
    EXPECT_EQ(requestCallbacks(), registered);
    std::vector<std::string> lines = callbackLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "I TorqCallbackClient::onCallback res_Id /a res_Value 1 is_register 0");
    EXPECT_EQ(lines[1], "I TorqCallback::onCallback call IClientCallback onCallback is_register 0");
}

TEST_F(CallbackTest, ListeningClientsStayUntilUnregisteredThenGoWithTheHalsReference) {
    size_t registered = requestCallbacks();
    hal().setAnswer("listeningRegister", result(1001));
    Resources r = res({{0x41, "1"}});
    ASSERT_EQ(torqResListeningRegister(r, 0, cb_), 1001);
    hal().setAnswer("listeningRegister", result(1002));
    ASSERT_EQ(torq_res_listening_register_by_path({"/l"}, 0, pathCb_), 1002);
    log_.clear();
    for (int i = 0; i < 2; ++i) {
        answer(0, {idRecord(0x41, std::to_string(i))});
        answer(1, {pathRecord("/l", std::to_string(i))});
    }
    EXPECT_EQ(cb_->count(), 2u);
    EXPECT_EQ(cb_->deliveries()[1].resources, (Pairs{{0x41, "1"}}));
    EXPECT_EQ(pathCb_->deliveries()[1].values, (std::vector<std::string>{"1"}));
    EXPECT_EQ(requestCallbacks(), registered);
    EXPECT_THAT(callbackLines(),
                Contains("I TorqCallbackClient::onCallback res_Id /l res_Value 1 is_register 1"));
    for (const std::string& line : callbackLines()) {
        EXPECT_EQ(line.find("request_callbacks"), std::string::npos) << line;
    }

    // The registry still owns both clients: the HAL letting go destroys nothing.
    hal().dropCallbacks();
    drain();
    EXPECT_THAT(callbackLines(), Not(Contains(kDestroyed)));
    EXPECT_EQ(torqResListeningUnRegister(1001), 1);
    EXPECT_EQ(torqResListeningUnRegister(1002), 1);
    drain();
    std::vector<std::string> after = callbackLines();
    EXPECT_EQ(std::count(after.begin(), after.end(), kDestroyed), 2);
}

// Many callers register, answer and unregister at once; every request is answered exactly once
// and every registry ends where it started.
TEST_F(CallbackTest, RegistriesStayConsistentUnderConcurrentUse) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 25;
    size_t registered = requestCallbacks();
    std::vector<std::shared_ptr<IdCallback>> requestCbs;
    for (int i = 0; i < kThreads; ++i) requestCbs.push_back(std::make_shared<IdCallback>());
    auto listenCb = std::make_shared<IdCallback>();
    auto listenPathCb = std::make_shared<PathCallback>();

    std::atomic<int> running{kThreads};
    std::atomic<int> failures{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                Resources r = res({{0x100 + t, "1"}});
                if (torqResCtlRequest(0, 0, r, 0, 0, 0, requestCbs[t]) < 1) ++failures;
                int32_t id = 0x10000 + t * 1000 + i;
                Resources listen = res({{id, "1"}});
                int32_t h = torqResListeningRegister(listen, 0, listenCb);
                int32_t hp =
                        torq_res_listening_register_by_path({std::to_string(id)}, 0, listenPathCb);
                if (h < 1 || hp < 1) ++failures;
                if (torqResListeningUnRegister(h) != 1 || torqResListeningUnRegister(hp) != 1) {
                    ++failures;
                }
            }
            --running;
        });
    }
    // The HAL answers every callback it was given once, while the callers keep going.
    size_t next = 0;
    auto answerNew = [&] {
        for (size_t n = hal().callbackCount(); next < n; ++next) {
            ASSERT_TRUE(hal().invokeCallback(next, {idRecord(0x5, "5")}).isOk());
        }
    };
    while (running > 0) {
        answerNew();
        std::this_thread::yield();
    }
    for (auto& t : callers) t.join();
    answerNew();
    drain();

    EXPECT_EQ(failures, 0);
    for (const auto& cb : requestCbs) EXPECT_EQ(cb->count(), static_cast<size_t>(kRounds));
    EXPECT_EQ(requestCallbacks(), registered);
    // Every listening group is gone again: the same lists register anew.
    Resources listen = res({{0x10000, "1"}});
    int32_t h = torqResListeningRegister(listen, 0, listenCb);
    EXPECT_GE(h, 1);
    EXPECT_EQ(torqResListeningUnRegister(h), 1);
    EXPECT_THAT(lines(), Not(Contains(kNotDeclared1)));
}

}  // namespace
}  // namespace halclient_test
