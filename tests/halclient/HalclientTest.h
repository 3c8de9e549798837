#pragma once

// Shared fixture of the torqHalclient tests: a clean binder world, a fake HAL in its own process,
// log capture, and caller callbacks that record what reaches them and on which thread.

#include <android/binder_status.h>
#include <android/log.h>
#include <binder_host/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <torqHalclient.h>
#include <torq_test/Capture.h>
#include <torq_test/FakeTorqHal.h>

#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {
inline void PrintTo(const TorqRequestParcel& p, std::ostream* os) {
    *os << p.toString();
}
inline void PrintTo(const TorqRequestData& d, std::ostream* os) {
    *os << d.toString();
}
}  // namespace aidl::vendor::quarn::hardware::torq

namespace halclient_test {

using torq_test::Answer;
using torq_test::FakeTorqHal;
using torq_test::idRecord;
using torq_test::pathRecord;
using torq_test::RecordedCall;
using torq_test::TorqRequestData;
using torq_test::TorqRequestParcel;
using Resources = std::list<ZelClient::Resource>;
using Pairs = std::vector<std::pair<int32_t, std::optional<std::string>>>;

inline constexpr char kRequestTag[] = "TORQFramework-lib-vendor";
inline constexpr char kCallbackTag[] = "TorqFramework-lib-vendor";
inline constexpr char kNotDeclared0[] = "E Torq is not declared, AServiceManager_isDeclared:0";
inline constexpr char kNotDeclared1[] = "E Torq is not declared, AServiceManager_isDeclared:1";

inline Resources res(std::initializer_list<std::pair<int32_t, std::optional<std::string>>> list) {
    Resources out;
    for (const auto& [id, value] : list) out.push_back({id, value});
    return out;
}

inline Pairs pairs(const Resources& resources) {
    Pairs out;
    for (const auto& r : resources) out.emplace_back(r.id, r.value);
    return out;
}

inline Answer result(int32_t value) {
    Answer a;
    a.result = value;
    return a;
}
// The transaction works, the status is not OK.
inline Answer refused() {
    Answer a;
    a.exception = EX_SERVICE_SPECIFIC;
    a.serviceSpecificError = 3;
    return a;
}
inline Answer records(std::vector<TorqRequestData> recs) {
    Answer a;
    a.records = std::move(recs);
    return a;
}

// The parcel a request starts from: every field at its default.
inline TorqRequestParcel parcel(int32_t kind, std::vector<TorqRequestData> data = {}) {
    TorqRequestParcel p;
    p.kind = kind;
    p.data = std::move(data);
    return p;
}
inline TorqRequestParcel marked(TorqRequestParcel p) {
    p.extras = std::vector<std::optional<std::string>>{std::string("zdbdebug")};
    return p;
}
// The callback travels as a binder; compare the rest field by field.
inline TorqRequestParcel withoutCallback(TorqRequestParcel p) {
    p.callback = nullptr;
    return p;
}

// Where and with what a caller callback ran.
struct Delivery {
    Pairs resources;
    std::vector<std::string> values, paths;
    binder_host::ProcessId process = 0;
    std::thread::id thread;
};

class Recorder {
  public:
    std::vector<Delivery> deliveries() const {
        std::lock_guard<std::mutex> guard(mutex_);
        return deliveries_;
    }
    size_t count() const {
        std::lock_guard<std::mutex> guard(mutex_);
        return deliveries_.size();
    }

  protected:
    void record(Delivery d) {
        d.process = binder_host::currentProcess();
        d.thread = std::this_thread::get_id();
        std::lock_guard<std::mutex> guard(mutex_);
        deliveries_.push_back(std::move(d));
    }

  private:
    mutable std::mutex mutex_;
    std::vector<Delivery> deliveries_;
};

class IdCallback : public IClientCallback, public Recorder {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override {
        Delivery d;
        d.resources = pairs(resources);
        record(std::move(d));
    }
};

class PathCallback : public IClientCallbackByPath, public Recorder {
  public:
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        Delivery d;
        d.values = std::move(values);
        d.paths = std::move(paths);
        record(std::move(d));
    }
};

class HalclientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // The library's cached interface outlives a test. Killing the previous test's HAL fires
        // the death notice (reset drains), which clears it, so every test starts disconnected.
        binder_host::reset();
        log_.clear();
    }
    void TearDown() override {
        hal_.reset();
        binder_host::reset();
    }

    FakeTorqHal& startHal() {
        hal_ = std::make_unique<FakeTorqHal>();
        return *hal_;
    }
    FakeTorqHal& hal() { return *hal_; }

    // The lines of one tag as "<level letter> <text>".
    std::vector<std::string> lines(const char* tag = kRequestTag) const {
        std::vector<std::string> out;
        for (const auto& l : log_.linesWithTag(tag)) {
            char level = l.priority == ANDROID_LOG_ERROR  ? 'E'
                         : l.priority == ANDROID_LOG_INFO ? 'I'
                                                          : '?';
            out.push_back(std::string(1, level) + " " + l.text);
        }
        return out;
    }
    std::vector<std::string> callbackLines() const { return lines(kCallbackTag); }

    static size_t requestCallbacks() {
        std::lock_guard<std::mutex> guard(request_callback_mutex);
        return request_callbacks.size();
    }
    static void undeclare() { binder_host::undeclareInstance(torq_test::kTorqInstance); }
    static void drain() { ASSERT_TRUE(binder_host::drain()); }

    torq_test::LogCapture log_;
    std::unique_ptr<FakeTorqHal> hal_;
};

}  // namespace halclient_test
