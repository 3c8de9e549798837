#pragma once

// Shared fixture of the torqHalclient tests: the front-end fixture with a HAL that confirms every
// release, and a caller callback that records what reaches it and on which thread.

#include <gmock/gmock.h>
#include <torqHalclient.h>
#include <torq_test/HalTest.h>

#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace halclient_test {

using namespace torq_test;
using torq_sim::SimHost;
using Resources = std::list<ZelClient::Resource>;
using Pairs = std::vector<std::pair<int32_t, std::optional<std::string>>>;
using Strings = std::vector<std::string>;

inline constexpr char kNotDeclared[] = "E Torq is not declared, AServiceManager_isDeclared:0";

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
        record({pairs(resources), {}, {}, std::this_thread::get_id()});
    }
    void onCallback(Strings values, Strings paths) override {
        record({{}, std::move(values), std::move(paths), std::this_thread::get_id()});
    }
    std::vector<Delivery> deliveries() const {
        std::lock_guard<std::mutex> guard(mutex_);
        return deliveries_;
    }

  private:
    void record(Delivery d) {
        std::lock_guard<std::mutex> guard(mutex_);
        deliveries_.push_back(std::move(d));
    }
    mutable std::mutex mutex_;
    std::vector<Delivery> deliveries_;
};

// The HAL confirms every release and unregistration unless a test says otherwise.
inline void confirmReleases(SimHost& hal) {
    for (const char* method : {"release", "listeningUnregister", "thermalListeningUnregister"}) {
        hal.setAnswer(method, result(1));
    }
}

// Every test has a fresh reference HAL that calls nobody back on its own: each test makes the
// callbacks it wants with answer().
class HalclientTest : public HalTest {
  protected:
    SimHost::Options options() const override {
        SimHost::Options options;
        options.modelCallbacks = false;
        return options;
    }
    void SetUp() override {
        HalTest::SetUp();
        confirmReleases(hal());
    }
    Strings lines() const { return HalTest::lines("TORQFramework-lib-vendor"); }
    Strings callbackLines() const { return HalTest::lines("TorqFramework-lib-vendor"); }

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

    std::shared_ptr<Recorder> cb_ = std::make_shared<Recorder>();
};

}  // namespace halclient_test
