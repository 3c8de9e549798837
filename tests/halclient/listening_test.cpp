// Listening registrations (id, thermal, path), state queries, thermal notify and the path forms
// of resource control.

#include <map>
#include <string>

#include "HalclientTest.h"

namespace halclient_test {
namespace {

using namespace torqHalclient;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kRegistered[] = "I A callback has been registered to Torq HAL ";
constexpr char kDuplicate[] = "E Same callback interface registered already";
constexpr char kNotRegistered[] = "E The callback was not registered before";

std::string unregistered(int32_t handle) {
    return "I a callback has been unregistered to Torq HAL handle " + std::to_string(handle);
}

// Registrations outlive a test in the library; each test removes its own, and uses handles of
// its own so that nothing left behind by a failed test can match.
class ListeningTest : public HalclientTest {
  protected:
    void SetUp() override {
        HalclientTest::SetUp();
        startHal();
    }
    int32_t registerIds(Resources r, int32_t handle) {
        hal().setAnswer("listeningRegister", result(handle));
        return torqResListeningRegister(r, 0, cb_);
    }
    std::shared_ptr<IdCallback> cb_ = std::make_shared<IdCallback>();
    std::shared_ptr<PathCallback> pathCb_ = std::make_shared<PathCallback>();
};

TEST_F(ListeningTest, IdRegistrationSendsParcelAndRefusesTheSameIdList) {
    hal().setAnswer("listeningRegister", result(501));
    Resources r = res({{0x10, std::nullopt}, {0x20, "2"}});
    EXPECT_EQ(torqResListeningRegister(r, 6, cb_), 501);
    RecordedCall call = hal().last("listeningRegister");
    EXPECT_TRUE(call.hasCallback);
    TorqRequestParcel expected = parcel(0, {idRecord(0x10, ""), idRecord(0x20, "2")});
    expected.tag = 6;
    EXPECT_EQ(call.parcel, expected);

    Resources same = res({{0x10, "9"}, {0x20, std::nullopt}});
    EXPECT_EQ(registerIds(same, 502), -1);
    Resources reversed = res({{0x20, "2"}, {0x10, ""}});
    EXPECT_EQ(registerIds(reversed, 503), 503);
    EXPECT_EQ(hal().count("listeningRegister"), 2u);

    hal().setAnswer("listeningUnregister", result(0));
    EXPECT_EQ(torqResListeningUnRegister(501), 0);
    EXPECT_EQ(hal().last("listeningUnregister").handle, 501);
    EXPECT_EQ(torqResListeningUnRegister(503), 0);
    EXPECT_EQ(torqResListeningUnRegister(501), 0);  // the HAL is asked even so
    EXPECT_EQ(hal().count("listeningUnregister"), 3u);
    EXPECT_THAT(lines(),
                ElementsAre("I torqResListeningRegister", kRegistered, "I torqResListeningRegister",
                            kDuplicate, "I torqResListeningRegister", kRegistered,
                            "I torq client torqResListeningUnRegister", unregistered(501),
                            "I torq client torqResListeningUnRegister", unregistered(503),
                            "I torq client torqResListeningUnRegister", kNotRegistered));
    // Gone from the registry: the same list registers again.
    EXPECT_EQ(registerIds(r, 504), 504);
    EXPECT_EQ(torqResListeningUnRegister(504), 0);
}

TEST_F(ListeningTest, FailedRegistrationKeepsNothingAndUnregisterRemovesDespiteBadStatus) {
    Resources r = res({{0x30, "1"}});
    hal().answerOnce("listeningRegister", refused());
    EXPECT_EQ(registerIds(r, 601), -1);
    EXPECT_EQ(registerIds(r, 602), 602);  // no group was kept by the failure

    hal().setAnswer("listeningUnregister", refused());
    log_.clear();
    EXPECT_EQ(torqResListeningUnRegister(602), -1);
    EXPECT_THAT(
            lines(),
            ElementsAre("I torq client torqResListeningUnRegister", unregistered(602),
                        "E torqResListeningUnRegister() failed: torq HAL service not available"));
    hal().setDefaultAnswers();
    EXPECT_EQ(registerIds(r, 603), 603);
    EXPECT_EQ(torqResListeningUnRegister(603), 1);
}

TEST_F(ListeningTest, ThermalGroupsAppendWithoutCheckAndLeaveOnlyThroughResUnregister) {
    hal().setAnswer("thermalListeningRegister", result(701));
    EXPECT_EQ(torqThermalListeningRegister({3, 1}, cb_), 701);
    EXPECT_EQ(torqThermalListeningRegister({3, 1}, cb_), 701);  // no duplicate check
    RecordedCall call = hal().last("thermalListeningRegister");
    EXPECT_EQ(call.ids, (std::vector<int32_t>{3, 1}));
    EXPECT_TRUE(call.hasCallback);

    hal().setAnswer("thermalListeningUnregister", result(4));
    EXPECT_EQ(torqThermalListeningUnregister(701), 4);
    EXPECT_EQ(hal().last("thermalListeningUnregister").handle, 701);
    // Still registered: an id list equal to the thermal ids counts as a duplicate.
    EXPECT_EQ(registerIds(res({{3, "a"}, {1, "b"}}), 702), -1);
    EXPECT_THAT(lines(), ElementsAre("I torqThermalListeningRegister",
                                     "I subsys's callback has been registered to Torq HAL",
                                     "I torqThermalListeningRegister",
                                     "I subsys's callback has been registered to Torq HAL",
                                     "I torq client torqThermalListeningUnregister",
                                     "I subsys's callback has been unRegistered to Torq HAL",
                                     "I torqResListeningRegister", kDuplicate));

    log_.clear();
    EXPECT_EQ(torqResListeningUnRegister(701), 1);
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResListeningUnRegister", unregistered(701),
                                     unregistered(701)));
    EXPECT_EQ(registerIds(res({{3, "a"}, {1, "b"}}), 703), 703);
    EXPECT_EQ(torqResListeningUnRegister(703), 1);
}

TEST_F(ListeningTest, EmptyIdAndPathListsMatchEachOther) {
    hal().setAnswer("thermalListeningRegister", result(801));
    ASSERT_EQ(torqThermalListeningRegister({}, cb_), 801);
    Resources none;
    EXPECT_EQ(registerIds(none, 802), -1);
    EXPECT_EQ(torq_res_listening_register_by_path({}, 0, pathCb_), -1);
    EXPECT_EQ(torq_res_listening_register_map_by_path({}, 0, pathCb_), -1);
    EXPECT_EQ(hal().count("listeningRegister"), 0u);
    EXPECT_EQ(torqResListeningUnRegister(801), 1);
}

TEST_F(ListeningTest, PathRegistrationsSendMarkedPathEntries) {
    hal().setAnswer("listeningRegister", result(901));
    EXPECT_EQ(torq_res_listening_register_by_path({"/b", "/a"}, 4, pathCb_), 901);
    TorqRequestParcel expected =
            marked(parcel(0, {pathRecord("/b", std::nullopt), pathRecord("/a", std::nullopt)}));
    expected.tag = 4;
    EXPECT_EQ(hal().last("listeningRegister").parcel, expected);
    EXPECT_TRUE(hal().last("listeningRegister").hasCallback);

    // The map form registers its keys in key order: {"/a", "/b"} is a different list.
    hal().setAnswer("listeningRegister", result(902));
    std::map<std::string, std::string> m{{"/b", "2"}, {"/a", "1"}};
    EXPECT_EQ(torq_res_listening_register_map_by_path(m, 5, pathCb_), 902);
    expected = marked(parcel(0, {pathRecord("/a", "1"), pathRecord("/b", "2")}));
    expected.tag = 5;
    EXPECT_EQ(hal().last("listeningRegister").parcel, expected);
    // ... which is now taken, by either form.
    EXPECT_EQ(torq_res_listening_register_by_path({"/a", "/b"}, 0, pathCb_), -1);
    EXPECT_EQ(torq_res_listening_register_map_by_path({{"/b", ""}, {"/a", ""}}, 0, pathCb_), -1);
    EXPECT_THAT(lines(), ElementsAre("I torq client torq_res_listening_register", kRegistered,
                                     "I torq client torq_res_listening_register_map", kRegistered,
                                     "I torq client torq_res_listening_register", kDuplicate,
                                     "I torq client torq_res_listening_register_map", kDuplicate));
    EXPECT_EQ(torqResListeningUnRegister(901), 1);
    EXPECT_EQ(torqResListeningUnRegister(902), 1);
}

TEST_F(ListeningTest, StateRequestAppendsHalRecordsToOutput) {
    hal().setAnswer("stateRequest",
                    records({idRecord(0x99, "1,2"), idRecord(0x10), pathRecord("/x", "p")}));
    Resources query = res({{0x10, std::nullopt}, {0x20, "5"}});
    Resources out = res({{0x1, "old"}});
    EXPECT_EQ(torqResStateRequest(query, 3, out), 4);
    TorqRequestParcel expected = parcel(0, {idRecord(0x10, ""), idRecord(0x20, "5")});
    expected.tag = 3;
    EXPECT_EQ(hal().last("stateRequest").parcel, expected);
    EXPECT_EQ(pairs(out), (Pairs{{0x1, "old"}, {0x99, "1,2"}, {0x10, ""}, {0, "p"}}));
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResStateRequest",
                                     "I torq client hal torqResStateRequest",
                                     "I torq client torqResStateRequest size 4"));

    hal().setAnswer("stateRequest", records({}));
    EXPECT_EQ(torqResStateRequest(query, 3, out), -1);
    hal().setAnswer("stateRequest", refused());
    EXPECT_EQ(torqResStateRequest(query, 3, out), -1);
    EXPECT_EQ(out.size(), 4u);
}

TEST_F(ListeningTest, ThermalNotifySendsLevelsAndReportsAcceptance) {
    Resources levels = res({{1, "3"}, {2, "0"}});
    hal().setAnswer("request", result(6));
    EXPECT_EQ(torqThermalNotify(levels, 8), 0);
    TorqRequestParcel expected = parcel(7, {idRecord(1, "3"), idRecord(2, "0")});
    expected.tag = 8;
    EXPECT_EQ(hal().last("request").parcel, expected);
    hal().setAnswer("request", result(0));
    EXPECT_EQ(torqThermalNotify(levels, 8), -1);
    EXPECT_THAT(lines(),
                ElementsAre("I torq client torqThermalNotify", "I torq client torqThermalNotify"));
}

TEST_F(ListeningTest, PathControlForwardsArgumentsAndChecksSizes) {
    hal().setAnswer("request", result(31));
    const std::vector<std::string> paths{"/p1", "/p2"}, values{"1", ""};
    EXPECT_EQ(torq_resctl_request_by_path(4, INT64_C(1) << 40, paths, values, 6, 1, 7), 31);
    TorqRequestParcel expected = marked(parcel(1, {pathRecord("/p1", "1"), pathRecord("/p2", "")}));
    expected.param = 4;
    expected.duration = INT64_C(1) << 40;
    expected.option = 6;
    expected.flag = true;
    expected.tag = 7;
    EXPECT_EQ(hal().last("request").parcel, expected);
    EXPECT_FALSE(hal().last("request").hasCallback);
    EXPECT_EQ(torq_resctl_request_by_path(4, 5, paths, values, 6, 0, 7), 31);
    EXPECT_FALSE(hal().last("request").parcel.flag);

    size_t registered = requestCallbacks();
    EXPECT_EQ(torq_resctl_request_with_callback_by_path(4, 5, paths, values, 6, -3, 7, pathCb_), 31);
    EXPECT_TRUE(hal().last("request").hasCallback);
    expected.duration = 5;
    expected.flag = false;
    EXPECT_EQ(withoutCallback(hal().last("request").parcel), expected);
    EXPECT_EQ(requestCallbacks(), registered + 1);

    log_.clear();
    const std::vector<std::string> one{"1"};
    EXPECT_EQ(torq_resctl_request_by_path(4, 5, paths, one, 6, 1, 7), -1);
    EXPECT_EQ(torq_resctl_request_with_callback_by_path(4, 5, paths, one, 6, 1, 7, pathCb_), -1);
    EXPECT_EQ(hal().count("request"), 3u);
    EXPECT_EQ(requestCallbacks(), registered + 1);
    EXPECT_THAT(
            lines(),
            ElementsAre(
                    "I torq client torq_resctl_request",
                    "E torq_resctl_request ERROR: size unmatched for paths and value ",
                    "I torq client torq_resctl_request_with_callback",
                    "E torq client torq_resctl_request ERROR: size unmatched for id and value "));
}

TEST_F(ListeningTest, PathStateQueriesFillOutputs) {
    hal().setAnswer("stateRequest", records({pathRecord("/z", "9"), pathRecord(std::nullopt, "8"),
                                             pathRecord("/y", std::nullopt)}));
    const std::vector<std::string> paths{"/a", "/b", "/c"};
    std::vector<std::string> out{"kept"};
    // Values that do not match the paths are dropped: only the paths are asked.
    EXPECT_EQ(torq_res_state_request_by_path(paths, {"1", "2"}, 2, out), 4);
    TorqRequestParcel expected =
            marked(parcel(0, {pathRecord("/a", std::nullopt), pathRecord("/b", std::nullopt),
                              pathRecord("/c", std::nullopt)}));
    expected.tag = 2;
    EXPECT_EQ(hal().last("stateRequest").parcel, expected);
    EXPECT_EQ(out, (std::vector<std::string>{"kept", "9", "8", ""}));
    EXPECT_EQ(torq_res_state_request_by_path(paths, {"1", "2", "3"}, 2, out), 7);
    expected.data = {pathRecord("/a", "1"), pathRecord("/b", "2"), pathRecord("/c", "3")};
    EXPECT_EQ(hal().last("stateRequest").parcel, expected);

    hal().setAnswer("stateRequest", records({pathRecord("/z", "9"), pathRecord(std::nullopt, "8"),
                                             pathRecord("/z", "10"), pathRecord("/y", "")}));
    std::map<std::string, std::string> map{{"/q", "1"}}, mapOut{{"/old", "o"}};
    log_.clear();
    EXPECT_EQ(torq_res_state_request_map_by_path(map, 3, mapOut), 3);
    expected = marked(parcel(0, {pathRecord("/q", "1")}));
    expected.tag = 3;
    EXPECT_EQ(hal().last("stateRequest").parcel, expected);
    EXPECT_EQ(mapOut, (std::map<std::string, std::string>{{"/old", "o"}, {"/y", ""}, {"/z", "10"}}));
    EXPECT_THAT(lines(), ElementsAre("I torq client torq_res_state_request_map",
                                     "E res_Path: /z, res_Value:9", "E res_Path: /z, res_Value:10",
                                     "E res_Path: /y, res_Value:",
                                     "I torq client torq_res_state_request_map size 3"));

    hal().setAnswer("stateRequest", records({}));
    EXPECT_EQ(torq_res_state_request_by_path(paths, {}, 2, out), -1);
    EXPECT_EQ(torq_res_state_request_map_by_path(map, 3, mapOut), -1);
    EXPECT_EQ(out.size(), 7u);
    EXPECT_EQ(mapOut.size(), 3u);
}

}  // namespace
}  // namespace halclient_test
