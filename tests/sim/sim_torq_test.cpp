// SimTorq as an object: the journal and the callbacks it makes after each call.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "SimTestUtil.h"
#include "torq_sim/SimTorq.h"

namespace torq_sim_test {
namespace {

using torq_sim::JournalEntry;
using torq_sim::SimTorq;

class SimTorqTest : public ::testing::Test {
  protected:
    SimTorqTest() {
        SimTorq::Options options;
        options.clock = clock.clock();
        options.dumpSink = [this](const std::vector<std::string>& lines) {
            dumped.insert(dumped.end(), lines.begin(), lines.end());
        };
        hal = ::ndk::SharedRefBase::make<SimTorq>(options);
    }

    ManualClock clock;
    std::vector<std::string> dumped;
    std::shared_ptr<SimTorq> hal;
};

TEST_F(SimTorqTest, JournalShowsCallsAnswersAndCallbacksInOrder) {
    auto answer = ::ndk::SharedRefBase::make<RecordingCallback>();
    TorqRequestParcel p = parcel(torq_sim::kKindResourceControl, {idEntry(0x010108A0, "50")}, 1000);
    p.option = -1;
    p.callback = answer;
    int32_t handle = 0;
    ASSERT_TRUE(hal->request(p, &handle).isOk());
    EXPECT_EQ(handle, 1);
    ASSERT_EQ(answer->calls().size(), 1u);
    EXPECT_EQ(answer->calls()[0][0].value, "50");

    int32_t released = 0;
    ASSERT_TRUE(hal->release(handle, &released).isOk());
    EXPECT_EQ(released, 0);
    std::string text;
    ASSERT_TRUE(hal->propertyGet("torq.version", &text).isOk());

    const auto entries = hal->journal()->entries();
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries[0].toString(),
              "request(kind=1 data=[{id=0x010108a0 value=\"50\"}] option=-1 duration=1000 "
              "callback=yes) -> 1");
    EXPECT_EQ(entries[1].type, JournalEntry::Type::kCallback);
    EXPECT_EQ(entries[1].toString(), "onCallback([{id=0x010108a0 value=\"50\"}]) to request #1");
    EXPECT_EQ(entries[2].toString(), "release(1) -> 0");
    EXPECT_EQ(entries[3].toString(), "propertyGet(\"torq.version\") -> \"torq-sim 1.0\"");
    EXPECT_LT(entries[0].seq, entries[3].seq);
    EXPECT_EQ(hal->journal()->since(entries[2].seq).size(), 2u);
}

TEST_F(SimTorqTest, TickExpiresAndCallsListeners) {
    auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
    int32_t l = 0;
    ASSERT_TRUE(hal->listeningRegister(parcel(0, {idEntry(0x010108B0)}), listener, &l).isOk());
    int32_t h = 0;
    hal->request(parcel(torq_sim::kKindResourceControl, {idEntry(0x010108B0, "1")}, 20), &h);
    ASSERT_EQ(listener->calls().size(), 1u);
    clock.advance(20);
    hal->tick();
    ASSERT_EQ(listener->calls().size(), 2u);
    EXPECT_EQ(listener->calls()[1][0].value, "85");
    EXPECT_EQ(hal->journal()->entries().back().toString(),
              "onCallback([{id=0x010108b0 value=\"85\"}]) to listener #" + std::to_string(l));
}

TEST_F(SimTorqTest, DumpCommandsGoToTheSink) {
    int32_t h = 0;
    hal->request(parcel(torq_sim::kKindCommand, {idEntry(4)}), &h);
    EXPECT_GT(h, 0);
    ASSERT_FALSE(dumped.empty());
    EXPECT_EQ(dumped[0], "dump 4 ResInfo:");
    EXPECT_NE(dumped[1].find("default="), std::string::npos);
}

TEST_F(SimTorqTest, ThermalAndRuleCallsAreJournalled) {
    int32_t r = -1;
    ASSERT_TRUE(hal->ruleCtl(131, 1, {idEntry(0x01011040, "-1")}, &r).isOk());
    EXPECT_EQ(r, 0);
    ASSERT_TRUE(hal->setRelatedSysInfo(2, -5, &r).isOk());
    ASSERT_TRUE(hal->thermalListeningRegister({3, 4}, nullptr, &r).isOk());
    EXPECT_EQ(r, -1);
    const auto entries = hal->journal()->entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].toString(), "ruleCtl(131, 1, [{id=0x01011040 value=\"-1\"}]) -> 0");
    EXPECT_EQ(entries[1].toString(), "setRelatedSysInfo(2, -5) -> 0");
    EXPECT_EQ(entries[2].toString(), "thermalListeningRegister([3 4], null) -> -1");
}

TEST_F(SimTorqTest, DumpsysPrintsTablesAndTheJournalTail) {
    int32_t h = 0;
    hal->request(parcel(torq_sim::kKindResourceControl, {idEntry(0x010108A0, "61")}), &h);
    FILE* file = tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(hal->dump(fileno(file), nullptr, 0), STATUS_OK);
    rewind(file);
    std::string text;
    char buf[512];
    while (size_t n = fread(buf, 1, sizeof(buf), file)) text.append(buf, n);
    fclose(file);
    EXPECT_EQ(text.rfind("torq-sim 1.0\n", 0), 0u);
    EXPECT_NE(text.find("ActiveResMap:\n  0x010108a0 sched.cluster0.target_load = 61 by #1"),
              std::string::npos)
            << text;
    EXPECT_NE(text.find("journal:\n  request(kind=1 data=[{id=0x010108a0 value=\"61\"}]) -> 1"),
              std::string::npos)
            << text;
}

}  // namespace
}  // namespace torq_sim_test
