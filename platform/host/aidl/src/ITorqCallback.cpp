#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/BpTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>

#include <android/binder_stability.h>

#include "StubSupport.h"

namespace aidl::vendor::quarn::hardware::torq {

namespace {

using internal::ArgList;
using internal::readAll;
using internal::serve;
using internal::toText;
using internal::writeAll;

ArgList noArgs() {
    return {};
}

binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                           AParcel* out) {
    std::shared_ptr<BnTorqCallback> impl =
            std::static_pointer_cast<BnTorqCallback>(::ndk::ICInterface::asInterface(binder));
    if (!impl) return STATUS_UNEXPECTED_NULL;
    const char* iface = ITorqCallback::descriptor;
    BnTorqCallback* stub = impl.get();
    binder_status_t st = STATUS_OK;
    switch (code) {
        case ITorqCallback::TRANSACTION_onCallback: {
            std::vector<TorqRequestData> in_data;
            if ((st = readAll(in, &in_data)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "onCallback", /*oneway=*/true, out,
                    [&] {
                        return ArgList{{"in_data", toText(in_data)}};
                    },
                    [&] { return impl->onCallback(in_data); });
        }
        case ITorqCallback::TRANSACTION_getInterfaceVersion: {
            int32_t _aidl_return = 0;
            return serve(
                    stub, iface, "getInterfaceVersion", false, out, noArgs,
                    [&] { return impl->getInterfaceVersion(&_aidl_return); }, _aidl_return);
        }
        case ITorqCallback::TRANSACTION_getInterfaceHash: {
            std::string _aidl_return;
            return serve(
                    stub, iface, "getInterfaceHash", false, out, noArgs,
                    [&] { return impl->getInterfaceHash(&_aidl_return); }, _aidl_return);
        }
    }
    return STATUS_UNKNOWN_TRANSACTION;
}

AIBinder_Class* const g_clazz =
        ::ndk::ICInterface::defineClass(ITorqCallback::descriptor, onTransact);

// The default implementation's call, or nothing when none is set.
template <typename F>
std::function<::ndk::ScopedAStatus()> defaultImplCall(F call) {
    if (!ITorqCallback::getDefaultImpl()) return nullptr;
    return [call] { return call(*ITorqCallback::getDefaultImpl()); };
}

}  // namespace

// --- BpTorqCallback --------------------------------------------------------------------------

BpTorqCallback::BpTorqCallback(const ::ndk::SpAIBinder& binder) : BpCInterface(binder) {}
BpTorqCallback::~BpTorqCallback() {}
std::function<void(const BpTorqCallback::TransactionLog&)> BpTorqCallback::logFunc;

::ndk::ScopedAStatus BpTorqCallback::onCallback(const std::vector<TorqRequestData>& in_data) {
    return internal::transact(
            this, descriptor, "onCallback", TRANSACTION_onCallback, /*oneway=*/true,
            [&] {
                return ArgList{{"in_data", toText(in_data)}};
            },
            [&](AParcel* p) { return writeAll(p, in_data); }, nullptr,
            defaultImplCall([&](ITorqCallback& d) { return d.onCallback(in_data); }), nullptr);
}

::ndk::ScopedAStatus BpTorqCallback::getInterfaceVersion(int32_t* _aidl_return) {
    if (_aidl_cached_version != -1) {
        *_aidl_return = _aidl_cached_version;
        return ::ndk::ScopedAStatus(AStatus_fromStatus(STATUS_OK));
    }
    return internal::transact(
            this, descriptor, "getInterfaceVersion", TRANSACTION_getInterfaceVersion, false, noArgs,
            [](AParcel*) { return STATUS_OK; },
            [&](const AParcel* p) {
                binder_status_t st = readAll(p, _aidl_return);
                if (st == STATUS_OK) _aidl_cached_version = *_aidl_return;
                return st;
            },
            defaultImplCall([=](ITorqCallback& d) { return d.getInterfaceVersion(_aidl_return); }),
            [=] { return toText(*_aidl_return); });
}

::ndk::ScopedAStatus BpTorqCallback::getInterfaceHash(std::string* _aidl_return) {
    std::lock_guard<std::mutex> lock(_aidl_cached_hash_mutex);
    if (_aidl_cached_hash != "-1") {
        *_aidl_return = _aidl_cached_hash;
        return ::ndk::ScopedAStatus(AStatus_fromStatus(STATUS_OK));
    }
    return internal::transact(
            this, descriptor, "getInterfaceHash", TRANSACTION_getInterfaceHash, false, noArgs,
            [](AParcel*) { return STATUS_OK; },
            [&](const AParcel* p) {
                binder_status_t st = readAll(p, _aidl_return);
                if (st == STATUS_OK) _aidl_cached_hash = *_aidl_return;
                return st;
            },
            defaultImplCall([=](ITorqCallback& d) { return d.getInterfaceHash(_aidl_return); }),
            [=] { return toText(*_aidl_return); });
}

// --- BnTorqCallback --------------------------------------------------------------------------

BnTorqCallback::BnTorqCallback() {}
BnTorqCallback::~BnTorqCallback() {}
std::function<void(const BnTorqCallback::TransactionLog&)> BnTorqCallback::logFunc;

::ndk::SpAIBinder BnTorqCallback::createBinder() {
    AIBinder* binder = AIBinder_new(g_clazz, static_cast<void*>(this));
    // A @VintfStability interface: the device's generated code marks its binders so that they
    // may cross the system/vendor boundary.
    AIBinder_markVintfStability(binder);
    return ::ndk::SpAIBinder(binder);
}

::ndk::ScopedAStatus BnTorqCallback::getInterfaceVersion(int32_t* _aidl_return) {
    *_aidl_return = ITorqCallback::version;
    return ::ndk::ScopedAStatus(AStatus_newOk());
}

::ndk::ScopedAStatus BnTorqCallback::getInterfaceHash(std::string* _aidl_return) {
    *_aidl_return = ITorqCallback::hash;
    return ::ndk::ScopedAStatus(AStatus_newOk());
}

// --- ITorqCallback ---------------------------------------------------------------------------

const char* ITorqCallback::descriptor = "vendor.quarn.hardware.torq.ITorqCallback";
ITorqCallback::ITorqCallback() {}
ITorqCallback::~ITorqCallback() {}

std::shared_ptr<ITorqCallback> ITorqCallback::fromBinder(const ::ndk::SpAIBinder& binder) {
    if (!AIBinder_associateClass(binder.get(), g_clazz)) return nullptr;
    std::shared_ptr<::ndk::ICInterface> interface = ::ndk::ICInterface::asInterface(binder.get());
    if (interface) return std::static_pointer_cast<ITorqCallback>(interface);
    return ::ndk::SharedRefBase::make<BpTorqCallback>(binder);
}

binder_status_t ITorqCallback::writeToParcel(AParcel* parcel,
                                             const std::shared_ptr<ITorqCallback>& instance) {
    return AParcel_writeStrongBinder(parcel, instance ? instance->asBinder().get() : nullptr);
}

binder_status_t ITorqCallback::readFromParcel(const AParcel* parcel,
                                              std::shared_ptr<ITorqCallback>* instance) {
    ::ndk::SpAIBinder binder;
    binder_status_t status = AParcel_readStrongBinder(parcel, binder.getR());
    if (status != STATUS_OK) return status;
    *instance = ITorqCallback::fromBinder(binder);
    return STATUS_OK;
}

bool ITorqCallback::setDefaultImpl(const std::shared_ptr<ITorqCallback>& impl) {
    // Only one user of this interface in a process may set it.
    assert(!ITorqCallback::default_impl);
    if (impl) {
        ITorqCallback::default_impl = impl;
        return true;
    }
    return false;
}

const std::shared_ptr<ITorqCallback>& ITorqCallback::getDefaultImpl() {
    return ITorqCallback::default_impl;
}

std::shared_ptr<ITorqCallback> ITorqCallback::default_impl = nullptr;

::ndk::ScopedAStatus ITorqCallbackDefault::onCallback(const std::vector<TorqRequestData>&) {
    return ::ndk::ScopedAStatus(AStatus_fromStatus(STATUS_UNKNOWN_TRANSACTION));
}

::ndk::ScopedAStatus ITorqCallbackDefault::getInterfaceVersion(int32_t* _aidl_return) {
    *_aidl_return = 0;
    return ::ndk::ScopedAStatus(AStatus_newOk());
}

::ndk::ScopedAStatus ITorqCallbackDefault::getInterfaceHash(std::string* _aidl_return) {
    *_aidl_return = "";
    return ::ndk::ScopedAStatus(AStatus_newOk());
}

::ndk::SpAIBinder ITorqCallbackDefault::asBinder() {
    return ::ndk::SpAIBinder();
}

bool ITorqCallbackDefault::isRemote() {
    return false;
}

}  // namespace aidl::vendor::quarn::hardware::torq
