#include "StressHal.h"

#include <android/binder_manager.h>
#include <android/binder_status.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>
#include <utility>

namespace stress {

using ::aidl::vendor::quarn::hardware::torq::BnTorq;

std::string stateValue(int32_t id) {
    return "v" + std::to_string(id);
}
std::string stateValue(const std::string& path) {
    return "s:" + path;
}
std::string notifyValue(int32_t id) {
    return "n" + std::to_string(id);
}
std::string notifyValue(const std::string& path) {
    return "n:" + path;
}

namespace {

// Request kinds the front ends send through ITorq::request and ITorq::stateRequest.
bool knownRequestKind(int32_t kind) {
    switch (kind) {
        case 1:   // resource control, resource acquisition
        case 2:   // SA control
        case 5:   // dumps and history switch
        case 7:   // thermal notify
        case 8:   // event acquire
        case 10:  // notify
        case 12:  // platform resource acquisition
            return true;
        default:
            return false;
    }
}

bool knownStateKind(int32_t kind) {
    return kind == 0 || kind == 11 || kind == 13;
}

TorqRequestData record(int32_t id, std::optional<std::string> value) {
    TorqRequestData d;
    d.id = id;
    d.value = std::move(value);
    return d;
}

class Service : public BnTorq {
  public:
    explicit Service(std::shared_ptr<HalCounters> counters) : c_(std::move(counters)) {}

    ndk::ScopedAStatus init() override {
        enter();
        return ok();
    }

    ndk::ScopedAStatus request(const TorqRequestParcel& parcel, int32_t* ret) override {
        enter();
        if (!knownRequestKind(parcel.kind)) c_->malformed++;
        const int32_t handle = ++c_->lastHandle;
        if (parcel.callback != nullptr) {
            c_->callbackRequests++;
            if (parcel.kind != 1 && parcel.kind != 2) c_->malformed++;
            if (withheld(handle) || c_->withholdAll.load()) {
                c_->answersWithheld++;
            } else {
                // Oneway: queued to the client before this reply leaves, so a caller that gets
                // the handle also gets the answer.
                if (parcel.callback->onCallback(parcel.data).isOk()) c_->answersSent++;
            }
        }
        *ret = handle;
        return ok();
    }

    ndk::ScopedAStatus release(int32_t, int32_t* ret) override { return zero(ret); }

    ndk::ScopedAStatus stateRequest(const TorqRequestParcel& parcel,
                                    std::vector<TorqRequestData>* ret) override {
        enter();
        if (!knownStateKind(parcel.kind)) c_->malformed++;
        ret->clear();
        if (parcel.kind == 11) {
            TorqRequestData first;
            first.extra = "h1";
            ret->push_back(first);
            ret->push_back(TorqRequestData());
        } else if (parcel.kind == 13) {
            ret->push_back(record(0, std::to_string(kPmStatus)));
        } else {
            for (const TorqRequestData& d : parcel.data) {
                TorqRequestData r = d;
                r.value = d.path.has_value() ? stateValue(*d.path) : stateValue(d.id);
                ret->push_back(std::move(r));
            }
        }
        return ok();
    }

    ndk::ScopedAStatus listeningRegister(const TorqRequestParcel& parcel,
                                         const std::shared_ptr<ITorqCallback>& callback,
                                         int32_t* ret) override {
        enter();
        if (callback == nullptr || parcel.kind != 0) c_->malformed++;
        std::vector<TorqRequestData> notice;
        for (const TorqRequestData& d : parcel.data) {
            TorqRequestData r = d;
            r.value = d.path.has_value() ? notifyValue(*d.path) : notifyValue(d.id);
            notice.push_back(std::move(r));
        }
        return registerListener(callback, notice, ret);
    }

    ndk::ScopedAStatus listeningUnregister(int32_t handle, int32_t* ret) override {
        return unregisterListener(handle, ret);
    }

    ndk::ScopedAStatus propertyGet(const std::string&, std::string* ret) override {
        enter();
        *ret = "stress";
        return ok();
    }

    ndk::ScopedAStatus propertySet(const std::string&, const std::string&, int32_t* ret) override {
        return zero(ret);
    }

    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& ids,
                                                const std::shared_ptr<ITorqCallback>& callback,
                                                int32_t* ret) override {
        enter();
        if (callback == nullptr) c_->malformed++;
        std::vector<TorqRequestData> notice;
        for (int32_t id : ids) notice.push_back(record(id, notifyValue(id)));
        return registerListener(callback, notice, ret);
    }

    ndk::ScopedAStatus thermalListeningUnregister(int32_t handle, int32_t* ret) override {
        return unregisterListener(handle, ret);
    }

    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel&, int32_t* ret) override {
        // Never sent by the library.
        c_->malformed++;
        return zero(ret);
    }

    ndk::ScopedAStatus setRelatedSysInfo(int32_t, int64_t, int32_t* ret) override {
        return zero(ret);
    }

    ndk::ScopedAStatus ruleCtl(int32_t, int32_t, const std::vector<TorqRequestData>&,
                               int32_t* ret) override {
        return zero(ret);
    }

  private:
    void enter() {
        c_->calls++;
        if (int us = c_->delayUs.load(); us > 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(us));
        }
    }
    static ndk::ScopedAStatus ok() { return ndk::ScopedAStatus::ok(); }
    ndk::ScopedAStatus zero(int32_t* ret) {
        enter();
        *ret = 0;
        return ok();
    }

    ndk::ScopedAStatus registerListener(const std::shared_ptr<ITorqCallback>& callback,
                                        const std::vector<TorqRequestData>& notice, int32_t* ret) {
        const int32_t handle = ++c_->lastHandle;
        if (callback != nullptr) {
            {
                std::lock_guard<std::mutex> lock(mu_);
                listeners_[handle] = callback;
            }
            if (callback->onCallback(notice).isOk()) c_->notificationsSent++;
        }
        *ret = handle;
        return ok();
    }

    ndk::ScopedAStatus unregisterListener(int32_t handle, int32_t* ret) {
        enter();
        std::shared_ptr<ITorqCallback> dropped;
        {
            std::lock_guard<std::mutex> lock(mu_);
            auto it = listeners_.find(handle);
            if (it != listeners_.end()) {
                dropped = std::move(it->second);
                listeners_.erase(it);
            }
        }
        *ret = 0;
        return ok();
    }

    const std::shared_ptr<HalCounters> c_;
    std::mutex mu_;
    std::map<int32_t, std::shared_ptr<ITorqCallback>> listeners_;
};

}  // namespace

StressHal::StressHal(size_t binderThreads)
    : binderThreads_(binderThreads), counters_(std::make_shared<HalCounters>()) {
    // Grown in the middle of a memory measurement, the list would count as growth.
    pids_.reserve(4096);
}

StressHal::~StressHal() {
    kill();
    binder_host::undeclareInstance(kInstance);
}

void StressHal::start() {
    kill();
    const binder_host::ProcessId pid = binder_host::createProcess("torq-hal", binderThreads_);
    std::shared_ptr<BnTorq> service;
    bool registered = false;
    binder_host::runInProcess(pid, [&] {
        service = ndk::SharedRefBase::make<Service>(counters_);
        registered = AServiceManager_addService(service->asBinder().get(), kInstance) == EX_NONE;
    });
    if (!registered) {
        std::fprintf(stderr, "stress HAL: could not register %s\n", kInstance);
        std::abort();
    }
    {
        std::lock_guard<std::mutex> lock(mu_);
        pids_.push_back(pid);
        service_ = std::move(service);
        running_ = true;
    }
    binder_host::declareInstance(kInstance);
}

void StressHal::kill() {
    binder_host::ProcessId pid = 0;
    std::shared_ptr<BnTorq> service;
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (!running_) return;
        running_ = false;
        pid = pids_.back();
        service = std::move(service_);
    }
    binder_host::killProcess(pid);
    service.reset();
}

binder_host::ProcessId StressHal::pid() const {
    std::lock_guard<std::mutex> lock(mu_);
    return pids_.empty() ? 0 : pids_.back();
}

std::vector<binder_host::ProcessId> StressHal::pids() const {
    std::lock_guard<std::mutex> lock(mu_);
    return pids_;
}

int StressHal::starts() const {
    std::lock_guard<std::mutex> lock(mu_);
    return static_cast<int>(pids_.size());
}

}  // namespace stress
