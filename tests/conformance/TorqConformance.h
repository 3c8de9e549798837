#pragma once

// The two implementations of the Torq HAL's NDK stubs side by side: the hand-written host stubs
// (namespace ::aidl) and the code the AIDL compiler generated from interface/ (namespace ::aidlc).
// `Hand` and `Gen` name each side's types so that one template can serve or call either.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <aidlc/vendor/quarn/hardware/torq/BnTorq.h>
#include <aidlc/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <aidlc/vendor/quarn/hardware/torq/ITorq.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace conformance {

struct Hand {
    using ITorq = ::aidl::vendor::quarn::hardware::torq::ITorq;
    using BnTorq = ::aidl::vendor::quarn::hardware::torq::BnTorq;
    using ICallback = ::aidl::vendor::quarn::hardware::torq::ITorqCallback;
    using BnCallback = ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
    using Data = ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
    using Parcel = ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;
};

struct Gen {
    using ITorq = ::aidlc::vendor::quarn::hardware::torq::ITorq;
    using BnTorq = ::aidlc::vendor::quarn::hardware::torq::BnTorq;
    using ICallback = ::aidlc::vendor::quarn::hardware::torq::ITorqCallback;
    using BnCallback = ::aidlc::vendor::quarn::hardware::torq::BnTorqCallback;
    using Data = ::aidlc::vendor::quarn::hardware::torq::TorqRequestData;
    using Parcel = ::aidlc::vendor::quarn::hardware::torq::TorqRequestParcel;
};

template <typename To, typename FromData>
typename To::Data convertData(const FromData& from) {
    typename To::Data to;
    to.id = from.id;
    to.subId = from.subId;
    to.value = from.value;
    to.path = from.path;
    to.extra = from.extra;
    return to;
}

template <typename To, typename FromData>
std::vector<typename To::Data> convertData(const std::vector<FromData>& from) {
    std::vector<typename To::Data> to;
    for (const auto& d : from) to.push_back(convertData<To>(d));
    return to;
}

template <typename To, typename FromParcel>
typename To::Parcel convertParcel(const FromParcel& from) {
    typename To::Parcel to;
    to.kind = from.kind;
    to.data = convertData<To>(from.data);
    to.flag = from.flag;
    to.option = from.option;
    to.tag = from.tag;
    to.duration = from.duration;
    to.extras = from.extras;
    to.param = from.param;
    // Not converted: a process holds one side's stubs per binder, as on a device.
    to.callback = nullptr;
    to.pkg = from.pkg;
    to.identity = from.identity;
    to.numbers = from.numbers;
    return to;
}

// The low 32 bits of `v`: the HAL's results wrap instead of overflowing on hostile arguments.
inline int32_t wrap(int64_t v) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v)));
}

// One HAL for both sides. Every result is a function of the arguments, so a caller can check it,
// and both sides answer the same arguments with the same bytes. A callback handed to a
// registration is called at once with the request's data.
template <typename S>
class Hal : public S::BnTorq {
  public:
    using Data = typename S::Data;
    using Parcel = typename S::Parcel;
    using Callback = std::shared_ptr<typename S::ICallback>;

    ::ndk::ScopedAStatus init() override { return ::ndk::ScopedAStatus::ok(); }
    ::ndk::ScopedAStatus request(const Parcel& p, int32_t* r) override {
        keep(p);
        *r = wrap(int64_t{p.kind} + 100);
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus release(int32_t handle, int32_t* r) override {
        *r = wrap(int64_t{handle} * 2);
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus stateRequest(const Parcel& p, std::vector<Data>* r) override {
        keep(p);
        *r = p.data;
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus listeningRegister(const Parcel& p, const Callback& cb,
                                           int32_t* r) override {
        keep(p);
        *r = 7;
        return callBack(cb, p.data);
    }
    ::ndk::ScopedAStatus listeningUnregister(int32_t handle, int32_t* r) override {
        *r = wrap(-int64_t{handle});
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus propertyGet(const std::string& name, std::string* r) override {
        *r = name + "=value";
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus propertySet(const std::string& name, const std::string& value,
                                     int32_t* r) override {
        *r = wrap(static_cast<int64_t>(name.size() * 1000 + value.size()));
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& ids,
                                                  const Callback& cb, int32_t* r) override {
        std::vector<Data> data;
        for (int32_t id : ids) {
            Data d;
            d.id = id;
            d.subId = 0;
            d.value = std::to_string(id);
            data.push_back(d);
        }
        *r = static_cast<int32_t>(ids.size());
        return callBack(cb, data);
    }
    ::ndk::ScopedAStatus thermalListeningUnregister(int32_t handle, int32_t* r) override {
        *r = wrap(int64_t{handle} + 1);
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus notifyEvent(const Parcel& p, int32_t* r) override {
        keep(p);
        *r = p.tag;
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t type, int64_t value, int32_t* r) override {
        // Unsigned, so a value near the int64 limits wraps instead of overflowing.
        *r = wrap(static_cast<int64_t>(static_cast<uint64_t>(type) + static_cast<uint64_t>(value)));
        return ::ndk::ScopedAStatus::ok();
    }
    ::ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status, const std::vector<Data>& data,
                                 int32_t* r) override {
        *r = wrap(int64_t{ruleId} - status + static_cast<int64_t>(data.size()));
        return ::ndk::ScopedAStatus::ok();
    }

    std::atomic<bool> hadCallback{false};           // the last callback argument was not null
    std::atomic<bool> parcelCallbackRemote{false};  // the last parcel held a callback's proxy

  private:
    ::ndk::ScopedAStatus callBack(const Callback& cb, const std::vector<Data>& data) {
        hadCallback = cb != nullptr;
        return cb ? cb->onCallback(data) : ::ndk::ScopedAStatus::ok();
    }
    void keep(const Parcel& p) {
        parcelCallbackRemote = p.callback != nullptr && p.callback->isRemote();
    }
};

// A callback for either side; onCallback is oneway, so a test waits for it.
template <typename S>
class Listener : public S::BnCallback {
  public:
    ::ndk::ScopedAStatus onCallback(const std::vector<typename S::Data>& data) override {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(convertData<Hand>(data));
        changed.notify_all();
        return ::ndk::ScopedAStatus::ok();
    }

    // The calls received, once there are `count` of them (or after a few seconds).
    std::vector<std::vector<Hand::Data>> waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(5), [&] { return calls.size() >= count; });
        return calls;
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::vector<Hand::Data>> calls;
};

}  // namespace conformance
