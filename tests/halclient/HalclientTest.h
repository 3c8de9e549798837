#pragma once

// Shared fixture of the torqHalclient tests: a clean binder world, the reference HAL in its own
// process, log capture, and a caller callback that records what reaches it and on which thread.

#include <android/binder_status.h>
#include <android/log.h>
#include <binder_host/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <torqHalclient.h>
#include <torq_sim/SimHost.h>
#include <torq_test/Capture.h>
#include <torq_test/Records.h>

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
}  // namespace aidl::vendor::quarn::hardware::torq

namespace halclient_test {

using Answer = torq_sim::SentAnswer;
using torq_sim::SimHost;
using torq_sim::TorqRequestParcel;
using torq_test::idRecord;
using torq_test::pathRecord;
using torq_test::TorqRequestData;
using Resources = std::list<ZelClient::Resource>;
using Pairs = std::vector<std::pair<int32_t, std::optional<std::string>>>;
using Strings = std::vector<std::string>;

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

// A parcel with every field at its default but these. (The HAL records parcels without
// their callback.)
inline TorqRequestParcel parcel(int32_t kind, std::vector<TorqRequestData> data, int32_t tag = 0,
                                bool marked = false) {
    TorqRequestParcel p;
    p.kind = kind;
    p.data = std::move(data);
    p.tag = tag;
    if (marked) p.extras = std::vector<std::optional<std::string>>{std::string("zdbdebug")};
    return p;
}

// What reached a caller callback, and on which thread.
struct Delivery {
    Pairs resources;
    Strings values, paths;
    std::thread::id thread;
};

// A caller callback of either kind.
class Recorder : public IClientCallback, public IClientCallbackByPath {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override {
        record(pairs(resources), {}, {});
    }
    void onCallback(Strings values, Strings paths) override {
        record({}, std::move(values), std::move(paths));
    }
    std::vector<Delivery> deliveries() const {
        std::lock_guard<std::mutex> guard(mutex_);
        return deliveries_;
    }
    size_t count() const { return deliveries().size(); }

  private:
    void record(Pairs resources, Strings values, Strings paths) {
        Delivery d{std::move(resources), std::move(values), std::move(paths),
                   std::this_thread::get_id()};
        std::lock_guard<std::mutex> guard(mutex_);
        deliveries_.push_back(std::move(d));
    }
    mutable std::mutex mutex_;
    std::vector<Delivery> deliveries_;
};

// The answers these tests take for granted: the HAL confirms every release and unregistration.
inline void confirmReleases(SimHost& hal) {
    for (const char* method : {"release", "listeningUnregister", "thermalListeningUnregister"}) {
        hal.setAnswer(method, result(1));
    }
}

// Every test starts disconnected (killing the previous test's HAL fired the death notice, which
// reset drains) with a fresh reference HAL. The HAL calls nobody back on its own: each test makes
// the callbacks it wants with invokeCallback.
class HalclientTest : public ::testing::Test {
  protected:
    void SetUp() override {
        binder_host::reset();
        SimHost::Options options;
        options.modelCallbacks = false;
        hal_ = std::make_unique<SimHost>(options);
        ASSERT_TRUE(hal_->start());
        confirmReleases(*hal_);
        log_.clear();
    }
    void TearDown() override {
        hal_.reset();
        binder_host::reset();
    }
    SimHost& hal() { return *hal_; }

    // The lines of one tag as "<level letter> <text>".
    Strings lines(const char* tag = "TORQFramework-lib-vendor") const {
        Strings out;
        for (const auto& l : log_.linesWithTag(tag)) {
            char level = l.priority == ANDROID_LOG_ERROR  ? 'E'
                         : l.priority == ANDROID_LOG_INFO ? 'I'
                                                          : '?';
            out.push_back(std::string(1, level) + " " + l.text);
        }
        return out;
    }
    Strings callbackLines() const { return lines("TorqFramework-lib-vendor"); }

    static size_t requestCallbacks() {
        std::lock_guard<std::mutex> guard(request_callback_mutex);
        return request_callbacks.size();
    }
    static void drain() { ASSERT_TRUE(binder_host::drain()); }
    // The HAL answers the callback it received `index`-th; returns once it was delivered.
    void answer(size_t index, const std::vector<TorqRequestData>& data) {
        ASSERT_TRUE(hal().invokeCallback(index, data).isOk());
        drain();
    }

    torq_test::LogCapture log_;
    std::unique_ptr<SimHost> hal_;
    std::shared_ptr<Recorder> cb_ = std::make_shared<Recorder>();
};

}  // namespace halclient_test
