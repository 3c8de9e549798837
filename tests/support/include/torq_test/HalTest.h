#pragma once

// The fixture of the front-end tests: a clean emulated binder world, the reference HAL running in
// its own process, and every log line captured; with the HAL's scripted answers and the parcels
// the tests expect it to receive. Needs the simulator (link torq-sim).

#include <android/binder_status.h>
#include <android/log.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_sim/SimHost.h>
#include <torq_test/Capture.h>
#include <torq_test/Records.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace torq_test {

using torq_sim::SentAnswer;
using torq_sim::TorqRequestParcel;

// Answers: OK with this int out value; a service-specific error; a failed transaction; OK with
// these records.
inline SentAnswer result(int32_t value) {
    SentAnswer a;
    a.result = value;
    return a;
}
inline SentAnswer refused() {
    SentAnswer a;
    a.exception = EX_SERVICE_SPECIFIC;
    a.serviceSpecificError = 3;
    return a;
}
inline SentAnswer broken() {
    SentAnswer a;
    a.transactionError = STATUS_FAILED_TRANSACTION;
    return a;
}
inline SentAnswer records(std::vector<TorqRequestData> recs) {
    SentAnswer a;
    a.records = std::move(recs);
    return a;
}

// A parcel with every field at its default but these; `marked` adds the debug marker extra.
inline TorqRequestParcel parcel(int32_t kind, std::vector<TorqRequestData> data, int32_t tag = 0,
                                bool marked = false) {
    TorqRequestParcel p;
    p.kind = kind;
    p.data = std::move(data);
    p.tag = tag;
    if (marked) p.extras = std::vector<std::optional<std::string>>{std::string("zdbdebug")};
    return p;
}

// The parcel of an acquisition: `parcel(kind, data)` with the caller's texts and duration.
inline TorqRequestParcel acquisition(int32_t kind, std::vector<TorqRequestData> data,
                                     std::string pkg, std::string identity, int64_t duration) {
    TorqRequestParcel p = parcel(kind, std::move(data));
    p.pkg = std::move(pkg);
    p.identity = std::move(identity);
    p.duration = duration;
    return p;
}

class HalTest : public ::testing::Test {
  protected:
    // The library's cached interfaces outlive a test. Killing the previous test's HAL fired their
    // death notices (reset drains), which cleared them, so every test starts disconnected.
    void SetUp() override {
        binder_host::reset();
        // It calls nobody back on its own: the tests make every callback they want.
        torq_sim::SimHost::Options options;
        options.modelCallbacks = false;
        hal_ = std::make_unique<torq_sim::SimHost>(options);
        ASSERT_TRUE(hal_->start());
        log_.clear();
    }
    void TearDown() override {
        hal_.reset();
        binder_host::reset();
    }
    torq_sim::SimHost& hal() { return *hal_; }

    // The lines of one tag as "<level letter> <text>", e.g. "E Torq HAL Service died".
    std::vector<std::string> lines(const std::string& tag) const {
        std::vector<std::string> out;
        for (const LogLine& l : log_.linesWithTag(tag)) {
            const bool known = l.priority >= ANDROID_LOG_VERBOSE && l.priority <= ANDROID_LOG_FATAL;
            out.push_back((known ? "??VDIWEF"[l.priority] : '?') + (" " + l.text));
        }
        return out;
    }

    LogCapture log_;
    std::unique_ptr<torq_sim::SimHost> hal_;
};

}  // namespace torq_test
