#pragma once

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_ibinder.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {

class BpTorq : public ::ndk::BpCInterface<ITorq> {
  public:
    explicit BpTorq(const ::ndk::SpAIBinder& binder);
    virtual ~BpTorq();

    ::ndk::ScopedAStatus init() override;
    ::ndk::ScopedAStatus request(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus release(int32_t in_handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus stateRequest(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>* _aidl_return)
            override;
    ::ndk::ScopedAStatus listeningRegister(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            const std::shared_ptr<::aidl::vendor::quarn::hardware::torq::ITorqCallback>& in_callback,
            int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus listeningUnregister(int32_t in_handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus propertyGet(const std::string& in_name, std::string* _aidl_return) override;
    ::ndk::ScopedAStatus propertySet(const std::string& in_name, const std::string& in_value,
                                     int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus thermalListeningRegister(
            const std::vector<int32_t>& in_ids,
            const std::shared_ptr<::aidl::vendor::quarn::hardware::torq::ITorqCallback>& in_callback,
            int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus thermalListeningUnregister(int32_t in_handle,
                                                    int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus notifyEvent(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t in_type, int64_t in_value,
                                           int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus ruleCtl(
            int32_t in_ruleId, int32_t in_status,
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& in_data,
            int32_t* _aidl_return) override;
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
