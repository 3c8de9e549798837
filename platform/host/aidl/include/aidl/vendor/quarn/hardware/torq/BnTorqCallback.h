#pragma once

#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <android/binder_ibinder.h>

#include <cassert>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {

class BnTorqCallback : public ::ndk::BnCInterface<ITorqCallback> {
  public:
    BnTorqCallback();
    virtual ~BnTorqCallback();
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
class ITorqCallbackDelegator : public BnTorqCallback {
  public:
    explicit ITorqCallbackDelegator(const std::shared_ptr<ITorqCallback>& impl) : _impl(impl) {
        int32_t _impl_ver = 0;
        if (!impl->getInterfaceVersion(&_impl_ver).isOk()) {
            assert(!"Delegator failed to get version of the implementation.");
        }
        if (_impl_ver != ITorqCallback::version) {
            assert(!"Mismatched versions of delegator and implementation is not allowed.");
        }
    }

    ::ndk::ScopedAStatus onCallback(
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& in_data)
            override {
        return _impl->onCallback(in_data);
    }

  private:
    std::shared_ptr<ITorqCallback> _impl;
};

}  // namespace aidl::vendor::quarn::hardware::torq
