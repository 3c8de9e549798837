// Listening registrations (id, thermal, path) and the callback client: how the HAL's answers reach
// the caller, and the request and listening registries.

#include <atomic>
#include <string>

#include "HalclientTest.h"

namespace halclient_test {
namespace {

using namespace torqHalclient;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

constexpr char kRegistered[] = "I A callback has been registered to Torq HAL ";
constexpr char kDuplicate[] = "E Same callback interface registered already";
constexpr char kEntry[] = "I torq client torqResListeningUnRegister";

std::string unregistered(int32_t handle) {
    return "I a callback has been unregistered to Torq HAL handle " + std::to_string(handle);
}

// Registrations outlive a test in the library; each test removes its own, and uses handles of
// its own so that nothing left behind by a failed test can match.
class ListeningTest : public HalclientTest {
  protected:
    int32_t registerIds(Resources r, int32_t handle) {
        hal().setAnswer("listeningRegister", result(handle));
        return torqResListeningRegister(r, 0, cb_);
    }
};

TEST_F(ListeningTest, IdRegistrationSendsItsParcelAndRefusesTheSameIdList) {
    Resources r = res({{0x10, std::nullopt}, {0x20, "2"}});
    EXPECT_EQ(registerIds(r, 501), 501);
    EXPECT_TRUE(hal().last("listeningRegister").hasCallback);
    EXPECT_EQ(hal().last("listeningRegister").parcel,
              parcel(0, {idRecord(0x10, ""), idRecord(0x20, "2")}));

    // Only the ids count, in their order.
    EXPECT_EQ(registerIds(res({{0x10, "9"}, {0x20, std::nullopt}}), 502), -1);
    EXPECT_EQ(registerIds(res({{0x20, "2"}, {0x10, ""}}), 503), 503);
    EXPECT_EQ(hal().count("listeningRegister"), 2u);

    hal().setAnswer("listeningUnregister", result(0));
    EXPECT_EQ(torqResListeningUnRegister(501), 0);
    EXPECT_EQ(hal().last("listeningUnregister").handle, 501);
    EXPECT_EQ(torqResListeningUnRegister(503), 0);
    EXPECT_EQ(torqResListeningUnRegister(501), 0);  // the HAL is asked even so
    EXPECT_EQ(hal().count("listeningUnregister"), 3u);
    EXPECT_THAT(lines(),
                ElementsAre("I torqResListeningRegister", kRegistered, "I torqResListeningRegister",
                            kDuplicate, "I torqResListeningRegister", kRegistered, kEntry,
                            unregistered(501), kEntry, unregistered(503), kEntry,
                            "E The callback was not registered before"));
    // Gone from the registry: the same list registers again, unless the HAL refuses it; and the
    // registration goes even when the HAL refuses to let go of it.
    hal().answerOnce("listeningRegister", refused());
    EXPECT_EQ(registerIds(r, 504), -1);
    EXPECT_EQ(registerIds(r, 505), 505);
    hal().setAnswer("listeningUnregister", refused());
    EXPECT_EQ(torqResListeningUnRegister(505), -1);
    EXPECT_EQ(registerIds(r, 506), 506);
    confirmReleases(hal());
    EXPECT_EQ(torqResListeningUnRegister(506), 1);
}

TEST_F(ListeningTest, ThermalGroupsAppendWithoutCheckAndLeaveOnlyThroughResUnregister) {
    hal().setAnswer("thermalListeningRegister", result(701));
    EXPECT_EQ(torqThermalListeningRegister({3, 1}, cb_), 701);
    EXPECT_EQ(torqThermalListeningRegister({3, 1}, cb_), 701);  // no duplicate check
    EXPECT_EQ(hal().last("thermalListeningRegister").ids, (std::vector<int32_t>{3, 1}));
    EXPECT_TRUE(hal().last("thermalListeningRegister").hasCallback);

    hal().setAnswer("thermalListeningUnregister", result(4));
    EXPECT_EQ(torqThermalListeningUnregister(701), 4);
    EXPECT_EQ(hal().last("thermalListeningUnregister").handle, 701);
    // Still registered: an id list equal to the thermal ids counts as a duplicate.
    EXPECT_EQ(registerIds(res({{3, "a"}, {1, "b"}}), 702), -1);
    const char kSubsys[] = "I subsys's callback has been registered to Torq HAL";
    EXPECT_THAT(lines(), ElementsAre("I torqThermalListeningRegister", kSubsys,
                                     "I torqThermalListeningRegister", kSubsys,
                                     "I torq client torqThermalListeningUnregister",
                                     "I subsys's callback has been unRegistered to Torq HAL",
                                     "I torqResListeningRegister", kDuplicate));

    log_.clear();
    EXPECT_EQ(torqResListeningUnRegister(701), 1);
    EXPECT_THAT(lines(), ElementsAre(kEntry, unregistered(701), unregistered(701)));
    EXPECT_EQ(registerIds(res({{3, "a"}, {1, "b"}}), 703), 703);
    EXPECT_EQ(torqResListeningUnRegister(703), 1);

    // An empty thermal list blocks the empty id and path lists alike.
    hal().setAnswer("thermalListeningRegister", result(801));
    ASSERT_EQ(torqThermalListeningRegister({}, cb_), 801);
    EXPECT_EQ(registerIds({}, 802), -1);
    EXPECT_EQ(torq_res_listening_register_by_path({}, 0, cb_), -1);
    EXPECT_EQ(torq_res_listening_register_map_by_path({}, 0, cb_), -1);
    EXPECT_EQ(torqResListeningUnRegister(801), 1);
}

TEST_F(ListeningTest, PathRegistrationsSendMarkedPathEntries) {
    hal().setAnswer("listeningRegister", result(901));
    EXPECT_EQ(torq_res_listening_register_by_path({"/b", "/a"}, 4, cb_), 901);
    EXPECT_EQ(hal().last("listeningRegister").parcel,
              parcel(0, {pathRecord("/b", std::nullopt), pathRecord("/a", std::nullopt)}, 4, true));
    EXPECT_TRUE(hal().last("listeningRegister").hasCallback);

    // The map form registers its keys in key order: {"/a", "/b"} is a different list ...
    hal().setAnswer("listeningRegister", result(902));
    EXPECT_EQ(torq_res_listening_register_map_by_path({{"/b", "2"}, {"/a", "1"}}, 5, cb_), 902);
    EXPECT_EQ(hal().last("listeningRegister").parcel,
              parcel(0, {pathRecord("/a", "1"), pathRecord("/b", "2")}, 5, true));
    // ... which is now taken, by either form.
    EXPECT_EQ(torq_res_listening_register_by_path({"/a", "/b"}, 0, cb_), -1);
    EXPECT_EQ(torq_res_listening_register_map_by_path({{"/b", ""}, {"/a", ""}}, 0, cb_), -1);
    EXPECT_THAT(lines(), ElementsAre("I torq client torq_res_listening_register", kRegistered,
                                     "I torq client torq_res_listening_register_map", kRegistered,
                                     "I torq client torq_res_listening_register", kDuplicate,
                                     "I torq client torq_res_listening_register_map", kDuplicate));
    EXPECT_EQ(torqResListeningUnRegister(901), 1);
    EXPECT_EQ(torqResListeningUnRegister(902), 1);
}

constexpr char kDestroyed[] = "I ndk backend ~TorqCallbackClient";
constexpr char kCalled0[] =
        "I TorqCallback::onCallback call IClientCallback onCallback is_register 0";
constexpr char kFound[] = "I callback is found in request_callbacks";

std::string retired(size_t before, size_t after) {
    return "I TorqCallback::onCallback request callback called , remove from request_callbacks , "
           "request_callbacks size before " +
           std::to_string(before) + " after " + std::to_string(after);
}

// Each request client (resource, SA, path; with or without a caller callback) reaches its own
// caller on a binder thread and leaves the registry with its first answer, also an empty one.
TEST_F(ListeningTest, RequestClientsAnswerTheirOwnCallerAndLeaveTheRegistryOnce) {
    // A hook someone else installed: the next client the library makes takes its own back.
    std::atomic<int> foreignCalls{0};
    ::aidl::vendor::quarn::hardware::torq::BnTorqCallback::logFunc = [&foreignCalls](const auto&) {
        foreignCalls++;
    };
    auto other = std::make_shared<Recorder>();
    size_t n = requestCallbacks();
    Resources r = res({{0x1, "1"}});
    ASSERT_GE(torqResCtlRequest(-1, 100, r, -1, -1, 0, other), 1);
    ASSERT_GE(torqResCtlRequest(-1, 100, r, -1, -1, 0, cb_), 1);
    ASSERT_GE(torqSACtlRequest(1, 2, 3, 4, 5, 6, cb_), 1);
    ASSERT_GE(torqSACtlRequest(1, 2, 3, 4, 5, 6, std::shared_ptr<IClientCallback>()), 1);
    ASSERT_GE(torq_resctl_request_with_callback_by_path(0, 0, {"/a"}, {"1"}, 0, 0, 0, cb_), 1);
    ASSERT_EQ(requestCallbacks(), n + 5);
    log_.clear();

    answer(1, {idRecord(0x010108a0, "1200"), idRecord(0x2)});
    answer(2, {});
    answer(3, {idRecord(0x4, "4")});
    // Path answers arrive as values, then paths; an absent field as an empty text.
    answer(4,
           {pathRecord("/a", "1"), pathRecord("/b", std::nullopt), pathRecord(std::nullopt, "3")});
    EXPECT_EQ(requestCallbacks(), n + 1);
    EXPECT_TRUE(other->deliveries().empty());
    std::vector<Delivery> got = cb_->deliveries();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].resources, (Pairs{{0x010108a0, "1200"}, {0x2, ""}}));
    EXPECT_EQ(got[1].values, (Strings{"1", "", "3"}));
    EXPECT_EQ(got[1].paths, (Strings{"/a", "/b", ""}));
    EXPECT_NE(got[0].thread, std::this_thread::get_id());
    EXPECT_NE(got[1].thread, std::this_thread::get_id());
    EXPECT_THAT(callbackLines(),
                ElementsAre("I TorqCallbackClient::onCallback res_Id 0x10108a0 res_Value 1200 "
                            "is_register 0",
                            "I TorqCallbackClient::onCallback res_Id 0x2 is_register 0", kCalled0,
                            kFound, retired(n + 5, n + 4), kFound, retired(n + 4, n + 3),
                            "I TorqCallbackClient::onCallback res_Id 0x4 res_Value 4 is_register 0",
                            kFound, retired(n + 3, n + 2),
                            "I TorqCallbackClient::onCallback res_Id /a res_Value 1 is_register 0",
                            kCalled0, kFound, retired(n + 2, n + 1)));
    // The transaction log goes out untagged.
    EXPECT_EQ(foreignCalls.load(), 0);
    const LogLine transaction{ANDROID_LOG_INFO, false, "",
                              "BnTorqCallback::logFunc NDK BACKEND method_name onCallback "
                              "exception_code 0 exception_message  transaction_error 0 "
                              "service_specific_error_code 0"};
    EXPECT_THAT(log_.lines(), Contains(transaction).Times(4));

    // A second answer still reaches the caller, but the client is no longer registered.
    log_.clear();
    answer(1, {idRecord(0x3, "x")});
    EXPECT_EQ(cb_->deliveries().size(), 3u);
    EXPECT_THAT(callbackLines(),
                ElementsAre("I TorqCallbackClient::onCallback res_Id 0x3 res_Value x is_register 0",
                            kCalled0, "E callback not found in request_callbacks",
                            retired(n + 1, n + 1)));
    answer(0, {idRecord(0x3, "y")});
    EXPECT_EQ(other->deliveries().size(), 1u);

    // Only the HAL holds the answered clients now: when it lets go, they go.
    EXPECT_THAT(callbackLines(), Not(Contains(kDestroyed)));
    hal().dropCallbacks();
    drain();
    EXPECT_THAT(callbackLines(), Contains(kDestroyed));
}

// Listening clients are answered any number of times and never touch the request registry; the
// listening registry owns them until they are unregistered.
TEST_F(ListeningTest, ListeningClientsStayUntilUnregisteredThenGoWithTheHalsReference) {
    size_t registered = requestCallbacks();
    Resources r = res({{0x41, "1"}});
    const int32_t byId = torqResListeningRegister(r, 0, cb_);
    const int32_t byPath = torq_res_listening_register_by_path({"/l"}, 0, cb_);
    ASSERT_GT(byPath, byId);
    log_.clear();
    for (int i = 0; i < 2; ++i) {
        answer(0, {idRecord(0x41, std::to_string(i))});
        answer(1, {pathRecord("/l", std::to_string(i))});
    }
    std::vector<Delivery> got = cb_->deliveries();
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(got[2].resources, (Pairs{{0x41, "1"}}));
    EXPECT_EQ(got[3].values, (Strings{"1"}));
    EXPECT_EQ(requestCallbacks(), registered);
    EXPECT_THAT(callbackLines(),
                Contains("I TorqCallbackClient::onCallback res_Id /l res_Value 1 is_register 1"));
    EXPECT_THAT(callbackLines(), Not(Contains(::testing::HasSubstr("request_callbacks"))));

    hal().dropCallbacks();
    drain();
    EXPECT_THAT(callbackLines(), Not(Contains(kDestroyed)));
    EXPECT_EQ(torqResListeningUnRegister(byId), 1);
    EXPECT_EQ(torqResListeningUnRegister(byPath), 1);
    drain();
    EXPECT_THAT(callbackLines(), Contains(kDestroyed).Times(2));
}

}  // namespace
}  // namespace halclient_test
