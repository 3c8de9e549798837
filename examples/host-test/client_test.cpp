// A host test of a client of the Torq HAL, against the installed reference HAL (torq_sim::SimHost):
// scripted answers, what the HAL received, a callback from the HAL, a HAL that is not declared or
// declared but not running, and a HAL death with restart. Plain C++, no test framework: each check
// prints what failed and the exit status says whether all passed.
#include <android/binder_status.h>
#include <binder_host/process.h>
#include <torqHalclient.h>
#include <torq_sim/SimHost.h>
#include <zel.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

int gFailures = 0;

#define CHECK(cond)                                                              \
    do {                                                                         \
        if (!(cond)) {                                                           \
            std::printf("%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++gFailures;                                                         \
        }                                                                        \
    } while (0)

// Whether `fn` throws std::invalid_argument (the simulator's answer to a request it cannot honour).
template <typename Fn>
bool rejected(Fn&& fn) {
    try {
        fn();
    } catch (const std::invalid_argument& e) {
        std::printf("  rejected as expected: %s\n", e.what());
        return true;
    }
    return false;
}

// A listener of the client: remembers the values it was told, on the library's binder threads.
class Watcher : public IClientCallback {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& r : resources) values_.push_back(r.value.value_or("<none>"));
        cv_.notify_all();
    }
    bool waitFor(const std::string& value) {
        std::unique_lock<std::mutex> lock(mutex_);
        return cv_.wait_for(lock, std::chrono::seconds(5), [&] {
            for (const auto& v : values_) {
                if (v == value) return true;
            }
            return false;
        });
    }

  private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::vector<std::string> values_;
};

torq_sim::TorqRequestData record(int32_t id, std::string value) {
    torq_sim::TorqRequestData d;
    d.id = id;
    d.value = std::move(value);
    return d;
}

void scriptedAnswersAndReceivedParcels(torq_sim::SimHost& hal) {
    // The model answers by default: a resource request sets the value a state query reads back.
    const std::vector<ZelClient::Resource> boost = {{0x010108a0, "1500"}};
    const int32_t handle = ZelResAcquire(boost, 0, "camera-launch", 2000);
    CHECK(handle > 0);
    const torq_sim::ReceivedCall request = hal.last("request");
    CHECK(request.parcel.kind == 1);
    CHECK(request.parcel.data.size() == 1 && request.parcel.data[0].id == 0x010108a0 &&
          request.parcel.data[0].value == "1500");
    CHECK(request.parcel.duration == 2000);
    std::string value;
    ZelResStateRequest(0x010108a0, value);
    CHECK(value == "1500");

    // A scripted out value replaces the model's; a scripted failure replaces the model.
    torq_sim::SentAnswer records;
    records.records = std::vector<torq_sim::TorqRequestData>{record(0x010108a0, "777")};
    hal.answerOnce("stateRequest", records);
    ZelResStateRequest(0x010108a0, value);
    CHECK(value == "777");

    torq_sim::SentAnswer refused;
    refused.exception = EX_SERVICE_SPECIFIC;
    refused.serviceSpecificError = 5;
    hal.setAnswer("release", refused);
    ZelRelease(handle);  // refused: the model never sees it and still holds the request
    CHECK(hal.count("release") == 1 && hal.last("release").handle == handle);
    CHECK(hal.journal()->entries().back().answer.serviceSpecificError == 5);
    hal.clearAnswers("release");
    ZelRelease(handle);
    CHECK(hal.count("release") == 2);
    CHECK(hal.journal()->entries().back().answer.result == 0);  // the model released it

    // What the simulator cannot honour is refused with a reason, not ignored.
    CHECK(rejected([&] { hal.setAnswer("releas", torq_sim::SentAnswer{}); }));
    CHECK(rejected([&] { hal.setAnswer("release", records); }));  // release has no records
    torq_sim::SentAnswer text;
    text.text = "x";
    CHECK(rejected([&] { hal.answerOnce("request", text); }));  // request has no text
    CHECK(rejected([&] { hal.count("nosuch"); }));
}

void callbackFromTheHal(torq_sim::SimHost& hal) {
    auto watcher = std::make_shared<Watcher>();
    std::list<ZelClient::Resource> watched = {{0x010108b0, std::nullopt}};
    const size_t heldBefore = hal.callbackCount();
    const int32_t listening = torqHalclient::torqResListeningRegister(watched, 0, watcher);
    CHECK(listening > 0);
    CHECK(hal.last("listeningRegister").hasCallback);
    CHECK(hal.callbackCount() > heldBefore);

    // The model calls listeners back when a value changes...
    const std::vector<ZelClient::Resource> change = {{0x010108b0, "60"}};
    const int32_t handle = ZelResAcquire(change, 0, "scene", 0);
    CHECK(handle > 0);
    CHECK(watcher->waitFor("60"));
    // ...and a test can call back the callback the HAL holds with anything.
    CHECK(hal.invokeCallback(heldBefore, {record(0x010108b0, "61")}).isOk());
    CHECK(watcher->waitFor("61"));
    CHECK(rejected([&] { (void)hal.invokeCallback(hal.callbackCount(), {}); }));
    CHECK(torqHalclient::torqResListeningUnRegister(listening) == 0);
    ZelRelease(handle);
    hal.dropCallbacks();
    CHECK(hal.callbackCount() == 0);
}

void deathAndRestart(torq_sim::SimHost& hal) {
    const int generation = hal.generation();
    CHECK(rejected([&] { hal.restart(); }));  // running: kill it first
    hal.kill();
    CHECK(!hal.alive());
    hal.clearCalls();
    const std::vector<ZelClient::Resource> boost = {{0x010108a0, "1"}};
    CHECK(ZelResAcquire(boost, 0, "while-dead", 0) == -1);  // the library fails fast
    CHECK(hal.count("request") == 0);
    CHECK(hal.restart());
    CHECK(hal.alive() && hal.generation() == generation + 1);
    CHECK(ZelResAcquire(boost, 0, "after-restart", 0) > 0);  // and reconnects by itself
    CHECK(hal.waitForCalls("request", 1, 1000));
    CHECK(hal.last("request").parcel.identity == "after-restart");
}

}  // namespace

int main() {
    {
        // Not declared at all: the library gives up at once.
        binder_host::reset();
        torq_sim::SimHost undeclared;
        CHECK(zelInit() == -1);
    }
    binder_host::reset();
    torq_sim::SimHost hal;
    CHECK(hal.start());
    std::printf("scripted answers and received parcels\n");
    scriptedAnswersAndReceivedParcels(hal);
    std::printf("a callback from the HAL\n");
    callbackFromTheHal(hal);
    std::printf("death and restart\n");
    deathAndRestart(hal);
    hal.kill();
    binder_host::reset();
    std::printf("%s (%d failed checks)\n",
                gFailures == 0 ? "client test passed" : "client test FAILED", gFailures);
    return gFailures == 0 ? 0 : 1;
}
