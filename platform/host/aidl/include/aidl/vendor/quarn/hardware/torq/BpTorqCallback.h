#pragma once

#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <android/binder_ibinder.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {

class BpTorqCallback : public ::ndk::BpCInterface<ITorqCallback> {
  public:
    explicit BpTorqCallback(const ::ndk::SpAIBinder& binder);
    virtual ~BpTorqCallback();

    ::ndk::ScopedAStatus onCallback(
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& in_data)
            override;
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) override;
    std::atomic<int32_t> _aidl_cached_version{-1};
    std::string _aidl_cached_hash = "-1";
    std::mutex _aidl_cached_hash_mutex;
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
};

}  // namespace aidl::vendor::quarn::hardware::torq
