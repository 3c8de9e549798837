#pragma once

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_ibinder.h>

#include <cassert>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {

class BnTorq : public ::ndk::BnCInterface<ITorq> {
  public:
    BnTorq();
    virtual ~BnTorq();
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final;
    struct TransactionLog {
        double duration_ms;
        std::string interface_name;
        std::string method_name;
        const void* proxy_address;
        const void* stub_address;
        std::vector<std::pair<std::string, std::string>> input_args;
        std::vector<std::pair<std::string, std::string>> output_args;
        std::string result;
        std::string exception_message;
        int32_t exception_code;
        int32_t transaction_error;
        int32_t service_specific_error_code;
    };
    static std::function<void(const TransactionLog&)> logFunc;

  protected:
    ::ndk::SpAIBinder createBinder() override;
};

// Forwards every call to another implementation (which must be of the same version).
class ITorqDelegator : public BnTorq {
  public:
    explicit ITorqDelegator(const std::shared_ptr<ITorq>& impl) : _impl(impl) {
        int32_t _impl_ver = 0;
        if (!impl->getInterfaceVersion(&_impl_ver).isOk()) {
            assert(!"Delegator failed to get version of the implementation.");
        }
        if (_impl_ver != ITorq::version) {
            assert(!"Mismatched versions of delegator and implementation is not allowed.");
        }
    }

    ::ndk::ScopedAStatus init() override { return _impl->init(); }
    ::ndk::ScopedAStatus request(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            int32_t* _aidl_return) override {
        return _impl->request(in_parcel, _aidl_return);
    }
    ::ndk::ScopedAStatus release(int32_t in_handle, int32_t* _aidl_return) override {
        return _impl->release(in_handle, _aidl_return);
    }
    ::ndk::ScopedAStatus stateRequest(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>* _aidl_return)
            override {
        return _impl->stateRequest(in_parcel, _aidl_return);
    }
    ::ndk::ScopedAStatus listeningRegister(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            const std::shared_ptr<::aidl::vendor::quarn::hardware::torq::ITorqCallback>& in_callback,
            int32_t* _aidl_return) override {
        return _impl->listeningRegister(in_parcel, in_callback, _aidl_return);
    }
    ::ndk::ScopedAStatus listeningUnregister(int32_t in_handle, int32_t* _aidl_return) override {
        return _impl->listeningUnregister(in_handle, _aidl_return);
    }
    ::ndk::ScopedAStatus propertyGet(const std::string& in_name,
                                     std::string* _aidl_return) override {
        return _impl->propertyGet(in_name, _aidl_return);
    }
    ::ndk::ScopedAStatus propertySet(const std::string& in_name, const std::string& in_value,
                                     int32_t* _aidl_return) override {
        return _impl->propertySet(in_name, in_value, _aidl_return);
    }
    ::ndk::ScopedAStatus thermalListeningRegister(
            const std::vector<int32_t>& in_ids,
            const std::shared_ptr<::aidl::vendor::quarn::hardware::torq::ITorqCallback>& in_callback,
            int32_t* _aidl_return) override {
        return _impl->thermalListeningRegister(in_ids, in_callback, _aidl_return);
    }
    ::ndk::ScopedAStatus thermalListeningUnregister(int32_t in_handle,
                                                    int32_t* _aidl_return) override {
        return _impl->thermalListeningUnregister(in_handle, _aidl_return);
    }
    ::ndk::ScopedAStatus notifyEvent(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            int32_t* _aidl_return) override {
        return _impl->notifyEvent(in_parcel, _aidl_return);
    }
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t in_type, int64_t in_value,
                                           int32_t* _aidl_return) override {
        return _impl->setRelatedSysInfo(in_type, in_value, _aidl_return);
    }
    ::ndk::ScopedAStatus ruleCtl(
            int32_t in_ruleId, int32_t in_status,
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& in_data,
            int32_t* _aidl_return) override {
        return _impl->ruleCtl(in_ruleId, in_status, in_data, _aidl_return);
    }

  private:
    std::shared_ptr<ITorq> _impl;
};

}  // namespace aidl::vendor::quarn::hardware::torq
