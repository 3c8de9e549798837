#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <aidl/vendor/quarn/hardware/torq/BpTorq.h>
#include <aidl/vendor/quarn/hardware/torq/ITorq.h>

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
    std::shared_ptr<BnTorq> impl =
            std::static_pointer_cast<BnTorq>(::ndk::ICInterface::asInterface(binder));
    if (!impl) return STATUS_UNEXPECTED_NULL;
    const char* iface = ITorq::descriptor;
    BnTorq* stub = impl.get();
    binder_status_t st = STATUS_OK;
    // Results start zeroed: an implementation that leaves one unset sends 0.
    switch (code) {
        case ITorq::TRANSACTION_init: {
            return serve(stub, iface, "init", false, out, noArgs, [&] { return impl->init(); });
        }
        case ITorq::TRANSACTION_request: {
            TorqRequestParcel in_parcel;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_parcel)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "request", false, out,
                    [&] {
                        return ArgList{{"in_parcel", toText(in_parcel)}};
                    },
                    [&] { return impl->request(in_parcel, &_aidl_return); }, _aidl_return);
        }
        case ITorq::TRANSACTION_release: {
            int32_t in_handle = 0;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_handle)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "release", false, out,
                    [&] {
                        return ArgList{{"in_handle", toText(in_handle)}};
                    },
                    [&] { return impl->release(in_handle, &_aidl_return); }, _aidl_return);
        }
        case ITorq::TRANSACTION_stateRequest: {
            TorqRequestParcel in_parcel;
            std::vector<TorqRequestData> _aidl_return;
            if ((st = readAll(in, &in_parcel)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "stateRequest", false, out,
                    [&] {
                        return ArgList{{"in_parcel", toText(in_parcel)}};
                    },
                    [&] { return impl->stateRequest(in_parcel, &_aidl_return); }, _aidl_return);
        }
        case ITorq::TRANSACTION_listeningRegister: {
            TorqRequestParcel in_parcel;
            std::shared_ptr<ITorqCallback> in_callback;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_parcel, &in_callback)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "listeningRegister", false, out,
                    [&] {
                        return ArgList{{"in_parcel", toText(in_parcel)},
                                       {"in_callback", toText(in_callback)}};
                    },
                    [&] { return impl->listeningRegister(in_parcel, in_callback, &_aidl_return); },
                    _aidl_return);
        }
        case ITorq::TRANSACTION_listeningUnregister: {
            int32_t in_handle = 0;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_handle)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "listeningUnregister", false, out,
                    [&] {
                        return ArgList{{"in_handle", toText(in_handle)}};
                    },
                    [&] { return impl->listeningUnregister(in_handle, &_aidl_return); },
                    _aidl_return);
        }
        case ITorq::TRANSACTION_propertyGet: {
            std::string in_name;
            std::string _aidl_return;
            if ((st = readAll(in, &in_name)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "propertyGet", false, out,
                    [&] {
                        return ArgList{{"in_name", toText(in_name)}};
                    },
                    [&] { return impl->propertyGet(in_name, &_aidl_return); }, _aidl_return);
        }
        case ITorq::TRANSACTION_propertySet: {
            std::string in_name;
            std::string in_value;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_name, &in_value)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "propertySet", false, out,
                    [&] {
                        return ArgList{{"in_name", toText(in_name)}, {"in_value", toText(in_value)}};
                    },
                    [&] { return impl->propertySet(in_name, in_value, &_aidl_return); },
                    _aidl_return);
        }
        case ITorq::TRANSACTION_thermalListeningRegister: {
            std::vector<int32_t> in_ids;
            std::shared_ptr<ITorqCallback> in_callback;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_ids, &in_callback)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "thermalListeningRegister", false, out,
                    [&] {
                        return ArgList{{"in_ids", toText(in_ids)},
                                       {"in_callback", toText(in_callback)}};
                    },
                    [&] {
                        return impl->thermalListeningRegister(in_ids, in_callback, &_aidl_return);
                    },
                    _aidl_return);
        }
        case ITorq::TRANSACTION_thermalListeningUnregister: {
            int32_t in_handle = 0;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_handle)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "thermalListeningUnregister", false, out,
                    [&] {
                        return ArgList{{"in_handle", toText(in_handle)}};
                    },
                    [&] { return impl->thermalListeningUnregister(in_handle, &_aidl_return); },
                    _aidl_return);
        }
        case ITorq::TRANSACTION_notifyEvent: {
            TorqRequestParcel in_parcel;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_parcel)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "notifyEvent", false, out,
                    [&] {
                        return ArgList{{"in_parcel", toText(in_parcel)}};
                    },
                    [&] { return impl->notifyEvent(in_parcel, &_aidl_return); }, _aidl_return);
        }
        case ITorq::TRANSACTION_setRelatedSysInfo: {
            int32_t in_type = 0;
            int64_t in_value = 0;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_type, &in_value)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "setRelatedSysInfo", false, out,
                    [&] {
                        return ArgList{{"in_type", toText(in_type)}, {"in_value", toText(in_value)}};
                    },
                    [&] { return impl->setRelatedSysInfo(in_type, in_value, &_aidl_return); },
                    _aidl_return);
        }
        case ITorq::TRANSACTION_ruleCtl: {
            int32_t in_ruleId = 0;
            int32_t in_status = 0;
            std::vector<TorqRequestData> in_data;
            int32_t _aidl_return = 0;
            if ((st = readAll(in, &in_ruleId, &in_status, &in_data)) != STATUS_OK) return st;
            return serve(
                    stub, iface, "ruleCtl", false, out,
                    [&] {
                        return ArgList{{"in_ruleId", toText(in_ruleId)},
                                       {"in_status", toText(in_status)},
                                       {"in_data", toText(in_data)}};
                    },
                    [&] { return impl->ruleCtl(in_ruleId, in_status, in_data, &_aidl_return); },
                    _aidl_return);
        }
        case ITorq::TRANSACTION_getInterfaceVersion: {
            int32_t _aidl_return = 0;
            return serve(
                    stub, iface, "getInterfaceVersion", false, out, noArgs,
                    [&] { return impl->getInterfaceVersion(&_aidl_return); }, _aidl_return);
        }
        case ITorq::TRANSACTION_getInterfaceHash: {
            std::string _aidl_return;
            return serve(
                    stub, iface, "getInterfaceHash", false, out, noArgs,
                    [&] { return impl->getInterfaceHash(&_aidl_return); }, _aidl_return);
        }
    }
    return STATUS_UNKNOWN_TRANSACTION;
}

AIBinder_Class* const g_clazz = ::ndk::ICInterface::defineClass(ITorq::descriptor, onTransact);

// The default implementation's call, or nothing when none is set.
template <typename F>
std::function<::ndk::ScopedAStatus()> defaultImplCall(F call) {
    if (!ITorq::getDefaultImpl()) return nullptr;
    return [call] { return call(*ITorq::getDefaultImpl()); };
}

binder_status_t nothingToWrite(AParcel*) {
    return STATUS_OK;
}

}  // namespace

// --- BpTorq ----------------------------------------------------------------------------------

BpTorq::BpTorq(const ::ndk::SpAIBinder& binder) : BpCInterface(binder) {}
BpTorq::~BpTorq() {}
std::function<void(const BpTorq::TransactionLog&)> BpTorq::logFunc;

// Reads one result from an OK reply.
#define TORQ_READ_RESULT [=](const AParcel* p) { return readAll(p, _aidl_return); }
#define TORQ_RESULT_TEXT [=] { return toText(*_aidl_return); }

::ndk::ScopedAStatus BpTorq::init() {
    return internal::transact(
            this, descriptor, "init", TRANSACTION_init, false, noArgs, nothingToWrite,
            [](const AParcel*) { return STATUS_OK; },
            defaultImplCall([](ITorq& d) { return d.init(); }), nullptr);
}

::ndk::ScopedAStatus BpTorq::request(const TorqRequestParcel& in_parcel, int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "request", TRANSACTION_request, false,
            [&] {
                return ArgList{{"in_parcel", toText(in_parcel)}};
            },
            [&](AParcel* p) { return writeAll(p, in_parcel); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) { return d.request(in_parcel, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::release(int32_t in_handle, int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "release", TRANSACTION_release, false,
            [&] {
                return ArgList{{"in_handle", toText(in_handle)}};
            },
            [&](AParcel* p) { return writeAll(p, in_handle); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) { return d.release(in_handle, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::stateRequest(const TorqRequestParcel& in_parcel,
                                          std::vector<TorqRequestData>* _aidl_return) {
    return internal::transact(
            this, descriptor, "stateRequest", TRANSACTION_stateRequest, false,
            [&] {
                return ArgList{{"in_parcel", toText(in_parcel)}};
            },
            [&](AParcel* p) { return writeAll(p, in_parcel); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) { return d.stateRequest(in_parcel, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::listeningRegister(const TorqRequestParcel& in_parcel,
                                               const std::shared_ptr<ITorqCallback>& in_callback,
                                               int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "listeningRegister", TRANSACTION_listeningRegister, false,
            [&] {
                return ArgList{{"in_parcel", toText(in_parcel)},
                               {"in_callback", toText(in_callback)}};
            },
            [&](AParcel* p) { return writeAll(p, in_parcel, in_callback); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) {
                return d.listeningRegister(in_parcel, in_callback, _aidl_return);
            }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::listeningUnregister(int32_t in_handle, int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "listeningUnregister", TRANSACTION_listeningUnregister, false,
            [&] {
                return ArgList{{"in_handle", toText(in_handle)}};
            },
            [&](AParcel* p) { return writeAll(p, in_handle); }, TORQ_READ_RESULT,
            defaultImplCall(
                    [&](ITorq& d) { return d.listeningUnregister(in_handle, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::propertyGet(const std::string& in_name, std::string* _aidl_return) {
    return internal::transact(
            this, descriptor, "propertyGet", TRANSACTION_propertyGet, false,
            [&] {
                return ArgList{{"in_name", toText(in_name)}};
            },
            [&](AParcel* p) { return writeAll(p, in_name); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) { return d.propertyGet(in_name, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::propertySet(const std::string& in_name, const std::string& in_value,
                                         int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "propertySet", TRANSACTION_propertySet, false,
            [&] {
                return ArgList{{"in_name", toText(in_name)}, {"in_value", toText(in_value)}};
            },
            [&](AParcel* p) { return writeAll(p, in_name, in_value); }, TORQ_READ_RESULT,
            defaultImplCall(
                    [&](ITorq& d) { return d.propertySet(in_name, in_value, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::thermalListeningRegister(
        const std::vector<int32_t>& in_ids, const std::shared_ptr<ITorqCallback>& in_callback,
        int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "thermalListeningRegister", TRANSACTION_thermalListeningRegister,
            false,
            [&] {
                return ArgList{{"in_ids", toText(in_ids)}, {"in_callback", toText(in_callback)}};
            },
            [&](AParcel* p) { return writeAll(p, in_ids, in_callback); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) {
                return d.thermalListeningRegister(in_ids, in_callback, _aidl_return);
            }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::thermalListeningUnregister(int32_t in_handle, int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "thermalListeningUnregister", TRANSACTION_thermalListeningUnregister,
            false,
            [&] {
                return ArgList{{"in_handle", toText(in_handle)}};
            },
            [&](AParcel* p) { return writeAll(p, in_handle); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) {
                return d.thermalListeningUnregister(in_handle, _aidl_return);
            }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::notifyEvent(const TorqRequestParcel& in_parcel, int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "notifyEvent", TRANSACTION_notifyEvent, false,
            [&] {
                return ArgList{{"in_parcel", toText(in_parcel)}};
            },
            [&](AParcel* p) { return writeAll(p, in_parcel); }, TORQ_READ_RESULT,
            defaultImplCall([&](ITorq& d) { return d.notifyEvent(in_parcel, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::setRelatedSysInfo(int32_t in_type, int64_t in_value,
                                               int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "setRelatedSysInfo", TRANSACTION_setRelatedSysInfo, false,
            [&] {
                return ArgList{{"in_type", toText(in_type)}, {"in_value", toText(in_value)}};
            },
            [&](AParcel* p) { return writeAll(p, in_type, in_value); }, TORQ_READ_RESULT,
            defaultImplCall(
                    [&](ITorq& d) { return d.setRelatedSysInfo(in_type, in_value, _aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::ruleCtl(int32_t in_ruleId, int32_t in_status,
                                     const std::vector<TorqRequestData>& in_data,
                                     int32_t* _aidl_return) {
    return internal::transact(
            this, descriptor, "ruleCtl", TRANSACTION_ruleCtl, false,
            [&] {
                return ArgList{{"in_ruleId", toText(in_ruleId)},
                               {"in_status", toText(in_status)},
                               {"in_data", toText(in_data)}};
            },
            [&](AParcel* p) { return writeAll(p, in_ruleId, in_status, in_data); },
            TORQ_READ_RESULT, defaultImplCall([&](ITorq& d) {
                return d.ruleCtl(in_ruleId, in_status, in_data, _aidl_return);
            }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::getInterfaceVersion(int32_t* _aidl_return) {
    if (_aidl_cached_version != -1) {
        *_aidl_return = _aidl_cached_version;
        return ::ndk::ScopedAStatus(AStatus_fromStatus(STATUS_OK));
    }
    return internal::transact(
            this, descriptor, "getInterfaceVersion", TRANSACTION_getInterfaceVersion, false, noArgs,
            nothingToWrite,
            [&](const AParcel* p) {
                binder_status_t st = readAll(p, _aidl_return);
                if (st == STATUS_OK) _aidl_cached_version = *_aidl_return;
                return st;
            },
            defaultImplCall([=](ITorq& d) { return d.getInterfaceVersion(_aidl_return); }),
            TORQ_RESULT_TEXT);
}

::ndk::ScopedAStatus BpTorq::getInterfaceHash(std::string* _aidl_return) {
    std::lock_guard<std::mutex> lock(_aidl_cached_hash_mutex);
    if (_aidl_cached_hash != "-1") {
        *_aidl_return = _aidl_cached_hash;
        return ::ndk::ScopedAStatus(AStatus_fromStatus(STATUS_OK));
    }
    return internal::transact(
            this, descriptor, "getInterfaceHash", TRANSACTION_getInterfaceHash, false, noArgs,
            nothingToWrite,
            [&](const AParcel* p) {
                binder_status_t st = readAll(p, _aidl_return);
                if (st == STATUS_OK) _aidl_cached_hash = *_aidl_return;
                return st;
            },
            defaultImplCall([=](ITorq& d) { return d.getInterfaceHash(_aidl_return); }),
            TORQ_RESULT_TEXT);
}

#undef TORQ_READ_RESULT
#undef TORQ_RESULT_TEXT

// --- BnTorq ----------------------------------------------------------------------------------

BnTorq::BnTorq() {}
BnTorq::~BnTorq() {}
std::function<void(const BnTorq::TransactionLog&)> BnTorq::logFunc;

::ndk::SpAIBinder BnTorq::createBinder() {
    AIBinder* binder = AIBinder_new(g_clazz, static_cast<void*>(this));
    // A @VintfStability interface: the device's generated code marks its binders so that they
    // may cross the system/vendor boundary.
    AIBinder_markVintfStability(binder);
    return ::ndk::SpAIBinder(binder);
}

::ndk::ScopedAStatus BnTorq::getInterfaceVersion(int32_t* _aidl_return) {
    *_aidl_return = ITorq::version;
    return ::ndk::ScopedAStatus(AStatus_newOk());
}

::ndk::ScopedAStatus BnTorq::getInterfaceHash(std::string* _aidl_return) {
    *_aidl_return = ITorq::hash;
    return ::ndk::ScopedAStatus(AStatus_newOk());
}

// --- ITorq -----------------------------------------------------------------------------------

const char* ITorq::descriptor = "vendor.quarn.hardware.torq.ITorq";
ITorq::ITorq() {}
ITorq::~ITorq() {}

std::shared_ptr<ITorq> ITorq::fromBinder(const ::ndk::SpAIBinder& binder) {
    if (!AIBinder_associateClass(binder.get(), g_clazz)) return nullptr;
    std::shared_ptr<::ndk::ICInterface> interface = ::ndk::ICInterface::asInterface(binder.get());
    if (interface) return std::static_pointer_cast<ITorq>(interface);
    return ::ndk::SharedRefBase::make<BpTorq>(binder);
}

binder_status_t ITorq::writeToParcel(AParcel* parcel, const std::shared_ptr<ITorq>& instance) {
    return AParcel_writeStrongBinder(parcel, instance ? instance->asBinder().get() : nullptr);
}

binder_status_t ITorq::readFromParcel(const AParcel* parcel, std::shared_ptr<ITorq>* instance) {
    ::ndk::SpAIBinder binder;
    binder_status_t status = AParcel_readStrongBinder(parcel, binder.getR());
    if (status != STATUS_OK) return status;
    *instance = ITorq::fromBinder(binder);
    return STATUS_OK;
}

bool ITorq::setDefaultImpl(const std::shared_ptr<ITorq>& impl) {
    // Only one user of this interface in a process may set it.
    assert(!ITorq::default_impl);
    if (impl) {
        ITorq::default_impl = impl;
        return true;
    }
    return false;
}

const std::shared_ptr<ITorq>& ITorq::getDefaultImpl() {
    return ITorq::default_impl;
}

std::shared_ptr<ITorq> ITorq::default_impl = nullptr;

// --- ITorqDefault ----------------------------------------------------------------------------

namespace {
::ndk::ScopedAStatus unknownTransaction() {
    return ::ndk::ScopedAStatus(AStatus_fromStatus(STATUS_UNKNOWN_TRANSACTION));
}
}  // namespace

::ndk::ScopedAStatus ITorqDefault::init() {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::request(const TorqRequestParcel&, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::release(int32_t, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::stateRequest(const TorqRequestParcel&,
                                                std::vector<TorqRequestData>*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::listeningRegister(const TorqRequestParcel&,
                                                     const std::shared_ptr<ITorqCallback>&,
                                                     int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::listeningUnregister(int32_t, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::propertyGet(const std::string&, std::string*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::propertySet(const std::string&, const std::string&, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::thermalListeningRegister(const std::vector<int32_t>&,
                                                            const std::shared_ptr<ITorqCallback>&,
                                                            int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::thermalListeningUnregister(int32_t, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::notifyEvent(const TorqRequestParcel&, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::setRelatedSysInfo(int32_t, int64_t, int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::ruleCtl(int32_t, int32_t, const std::vector<TorqRequestData>&,
                                           int32_t*) {
    return unknownTransaction();
}
::ndk::ScopedAStatus ITorqDefault::getInterfaceVersion(int32_t* _aidl_return) {
    *_aidl_return = 0;
    return ::ndk::ScopedAStatus(AStatus_newOk());
}
::ndk::ScopedAStatus ITorqDefault::getInterfaceHash(std::string* _aidl_return) {
    *_aidl_return = "";
    return ::ndk::ScopedAStatus(AStatus_newOk());
}
::ndk::SpAIBinder ITorqDefault::asBinder() {
    return ::ndk::SpAIBinder();
}
bool ITorqDefault::isRemote() {
    return false;
}

}  // namespace aidl::vendor::quarn::hardware::torq
