// SimTorq as an object: the journal, the callbacks it makes after each call, and its dumps.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "SimTestUtil.h"
#include "torq_sim/SimTorq.h"

namespace torq_sim_test {
namespace {

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
    std::vector<std::string> journal(uint64_t mark = 0) const {
        std::vector<std::string> out;
        for (const auto& e : hal->journal()->since(mark)) out.push_back(e.toString());
        return out;
    }

    ManualClock clock;
    std::vector<std::string> dumped;
    std::shared_ptr<SimTorq> hal;
    int32_t result = 0;
};

TEST_F(SimTorqTest, JournalShowsCallsAnswersAndCallbacksInOrder) {
    auto answer = ::ndk::SharedRefBase::make<RecordingCallback>();
    TorqRequestParcel p = parcel(torq_sim::kKindResourceControl, {idRecord(0x010108A0, "50")}, 1000);
    p.option = -1;
    p.callback = answer;
    ASSERT_TRUE(hal->request(p, &result).isOk());
    EXPECT_EQ(result, 1);
    ASSERT_EQ(answer->calls().size(), 1u);
    EXPECT_EQ(answer->calls()[0], Records{idRecord(0x010108A0, "50")});

    const uint64_t mark = hal->journal()->mark();
    ASSERT_TRUE(hal->release(1, &result).isOk());
    EXPECT_EQ(result, 0);
    std::string text;
    ASSERT_TRUE(hal->propertyGet("torq.version", &text).isOk());
    ASSERT_TRUE(hal->ruleCtl(131, 1, {idRecord(0x01011040, "-1")}, &result).isOk());
    EXPECT_EQ(result, 0);
    ASSERT_TRUE(hal->setRelatedSysInfo(2, -5, &result).isOk());
    ASSERT_TRUE(hal->thermalListeningRegister({3, 4}, nullptr, &result).isOk());
    EXPECT_EQ(result, -1);

    EXPECT_EQ(journal(),
              (std::vector<std::string>{
                      "request(kind=1 data=[{id=0x010108a0 value=\"50\"}] option=-1 duration=1000 "
                      "callback=yes) -> 1",
                      "onCallback([{id=0x010108a0 value=\"50\"}]) to request #1",
                      "release(1) -> 0",
                      "propertyGet(\"torq.version\") -> \"torq-sim 1.0\"",
                      "ruleCtl(131, 1, [{id=0x01011040 value=\"-1\"}]) -> 0",
                      "setRelatedSysInfo(2, -5) -> 0",
                      "thermalListeningRegister([3 4], null) -> -1",
              }));
    EXPECT_EQ(journal(mark).size(), 5u);

    // The text is made from the records; the parcel as received, without the client's binder:
    // sim_script_test.
}

// Dump commands print to the sink (their tables: model_test); dumpsys prints the tables and the
// end of the journal.
TEST_F(SimTorqTest, DumpsGoToTheSinkAndDumpsysShowsTablesAndJournal) {
    hal->request(parcel(torq_sim::kKindResourceControl, {idRecord(0x010108A0, "61")}), &result);
    hal->request(parcel(torq_sim::kKindCommand, {idRecord(4)}), &result);
    EXPECT_GT(result, 0);
    ASSERT_FALSE(dumped.empty());
    EXPECT_EQ(dumped[0], "dump 4 ResInfo:");

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
