#pragma once

// Shared fixture of the flat API tests: a clean binder world, a fake HAL in its own process and
// capture of the library's log and trace.

#include <android/log.h>
#include <binder_host/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <torq_test/Capture.h>
#include <torq_test/FakeTorqHal.h>
#include <zel.h>

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {
inline void PrintTo(const TorqRequestParcel& p, std::ostream* os) {
    *os << p.toString();
}
inline void PrintTo(const TorqRequestData& d, std::ostream* os) {
    *os << d.toString();
}
}  // namespace aidl::vendor::quarn::hardware::torq

namespace torq_test {
inline void PrintTo(const LogLine& l, std::ostream* os) {
    *os << "{prio " << l.priority << ", " << (l.hasTag ? l.tag : "<no tag>") << ", \"" << l.text
        << "\"}";
}
}  // namespace torq_test

namespace zel_test {

using torq_test::Answer;
using torq_test::FakeTorqHal;
using torq_test::LogLine;
using torq_test::RecordedCall;
using torq_test::TorqRequestData;
using torq_test::TorqRequestParcel;
using torq_test::TraceEvent;

inline constexpr char kZelTag[] = "[ZEL_CLIENT]";

inline LogLine zlog(int priority, const std::string& text) {
    return LogLine{priority, true, kZelTag, text};
}
inline LogLine info(const std::string& text) {
    return zlog(ANDROID_LOG_INFO, text);
}
inline LogLine debug(const std::string& text) {
    return zlog(ANDROID_LOG_DEBUG, text);
}
inline LogLine error(const std::string& text) {
    return zlog(ANDROID_LOG_ERROR, text);
}

// A request entry as the HAL should see it; texts absent unless given.
inline TorqRequestData entry(int32_t id, std::optional<std::string> value = std::nullopt,
                             int32_t subId = 0) {
    TorqRequestData d;
    d.id = id;
    d.subId = subId;
    d.value = std::move(value);
    return d;
}

inline TorqRequestData historyRecord(std::optional<std::string> extra) {
    TorqRequestData d;
    d.extra = std::move(extra);
    return d;
}

inline Answer result(int32_t value) {
    Answer a;
    a.result = value;
    return a;
}
inline Answer records(std::vector<TorqRequestData> recs) {
    Answer a;
    a.records = std::move(recs);
    return a;
}
// A service-specific error: the transaction works, the status is not OK.
inline Answer refused() {
    Answer a;
    a.exception = EX_SERVICE_SPECIFIC;
    a.serviceSpecificError = 3;
    return a;
}
// The transaction itself fails.
inline Answer transactionFailed() {
    Answer a;
    a.transactionError = STATUS_FAILED_TRANSACTION;
    return a;
}

class ZelTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // The library's cached interface outlives a test. Killing the previous test's HAL fires
        // the death notice (reset drains), which clears it, so every test starts disconnected.
        binder_host::reset();
        log_.clear();
        trace_.clear();
    }
    void TearDown() override {
        hal_.reset();
        binder_host::reset();
    }

    FakeTorqHal& startHal(bool declare = true) {
        hal_ = std::make_unique<FakeTorqHal>(declare);
        return *hal_;
    }
    FakeTorqHal& hal() { return *hal_; }

    std::vector<LogLine> zelLog() const { return log_.linesWithTag(kZelTag); }
    size_t zelLogCount(const LogLine& line) const {
        size_t n = 0;
        for (const LogLine& l : zelLog()) n += (l == line) ? 1 : 0;
        return n;
    }
    void clearCaptures() {
        log_.clear();
        trace_.clear();
    }

    static void undeclare() { binder_host::undeclareInstance(torq_test::kTorqInstance); }
    static void declare() { binder_host::declareInstance(torq_test::kTorqInstance); }

    torq_test::LogCapture log_;
    torq_test::TraceCapture trace_;
    std::unique_ptr<FakeTorqHal> hal_;
};

}  // namespace zel_test
