#pragma once

// Host build of the NDK stub for interface vendor.quarn.hardware.torq.ITorq (V1).
// Same declarations, transaction codes and wire format as the AIDL compiler's NDK back end output.

#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <android/binder_interface_utils.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#ifndef VENDOR_QUARN_HARDWARE_TORQ_V1_HASH
#error "VENDOR_QUARN_HARDWARE_TORQ_V1_HASH is set by the build from the frozen interface's .hash"
#endif

namespace aidl::vendor::quarn::hardware::torq {

class ITorqDelegator;

class ITorq : public ::ndk::ICInterface {
  public:
    typedef ITorqDelegator DefaultDelegator;
    static const char* descriptor;
    ITorq();
    virtual ~ITorq();

    static inline const int32_t version = 1;
    static inline const std::string hash = VENDOR_QUARN_HARDWARE_TORQ_V1_HASH;
    static constexpr uint32_t TRANSACTION_init = FIRST_CALL_TRANSACTION + 0;
    static constexpr uint32_t TRANSACTION_request = FIRST_CALL_TRANSACTION + 1;
    static constexpr uint32_t TRANSACTION_release = FIRST_CALL_TRANSACTION + 2;
    static constexpr uint32_t TRANSACTION_stateRequest = FIRST_CALL_TRANSACTION + 3;
    static constexpr uint32_t TRANSACTION_listeningRegister = FIRST_CALL_TRANSACTION + 4;
    static constexpr uint32_t TRANSACTION_listeningUnregister = FIRST_CALL_TRANSACTION + 5;
    static constexpr uint32_t TRANSACTION_propertyGet = FIRST_CALL_TRANSACTION + 6;
    static constexpr uint32_t TRANSACTION_propertySet = FIRST_CALL_TRANSACTION + 7;
    static constexpr uint32_t TRANSACTION_thermalListeningRegister = FIRST_CALL_TRANSACTION + 8;
    static constexpr uint32_t TRANSACTION_thermalListeningUnregister = FIRST_CALL_TRANSACTION + 9;
    static constexpr uint32_t TRANSACTION_notifyEvent = FIRST_CALL_TRANSACTION + 10;
    static constexpr uint32_t TRANSACTION_setRelatedSysInfo = FIRST_CALL_TRANSACTION + 11;
    static constexpr uint32_t TRANSACTION_ruleCtl = FIRST_CALL_TRANSACTION + 12;
    static constexpr uint32_t TRANSACTION_getInterfaceVersion = FIRST_CALL_TRANSACTION + 16777214;
    static constexpr uint32_t TRANSACTION_getInterfaceHash = FIRST_CALL_TRANSACTION + 16777213;

    static std::shared_ptr<ITorq> fromBinder(const ::ndk::SpAIBinder& binder);
    static binder_status_t writeToParcel(AParcel* parcel, const std::shared_ptr<ITorq>& instance);
    static binder_status_t readFromParcel(const AParcel* parcel, std::shared_ptr<ITorq>* instance);
    static bool setDefaultImpl(const std::shared_ptr<ITorq>& impl);
    static const std::shared_ptr<ITorq>& getDefaultImpl();

    virtual ::ndk::ScopedAStatus init() = 0;
    virtual ::ndk::ScopedAStatus request(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus release(int32_t in_handle, int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus stateRequest(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus listeningRegister(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            const std::shared_ptr<::aidl::vendor::quarn::hardware::torq::ITorqCallback>& in_callback,
            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus listeningUnregister(int32_t in_handle, int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus propertyGet(const std::string& in_name,
                                             std::string* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus propertySet(const std::string& in_name,
                                             const std::string& in_value, int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus thermalListeningRegister(
            const std::vector<int32_t>& in_ids,
            const std::shared_ptr<::aidl::vendor::quarn::hardware::torq::ITorqCallback>& in_callback,
            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus thermalListeningUnregister(int32_t in_handle,
                                                            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus notifyEvent(
            const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& in_parcel,
            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus setRelatedSysInfo(int32_t in_type, int64_t in_value,
                                                   int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus ruleCtl(
            int32_t in_ruleId, int32_t in_status,
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& in_data,
            int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;

  private:
    static std::shared_ptr<ITorq> default_impl;
};

class ITorqDefault : public ITorq {
  public:
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
    ::ndk::SpAIBinder asBinder() override;
    bool isRemote() override;
};

}  // namespace aidl::vendor::quarn::hardware::torq
