#pragma once

// Host build of the NDK stub for interface vendor.quarn.hardware.torq.ITorqCallback (V1).
// Same declarations, transaction codes and wire format as the AIDL compiler's NDK back end output.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
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

class ITorqCallbackDelegator;

class ITorqCallback : public ::ndk::ICInterface {
  public:
    typedef ITorqCallbackDelegator DefaultDelegator;
    static const char* descriptor;
    ITorqCallback();
    virtual ~ITorqCallback();

    static inline const int32_t version = 1;
    static inline const std::string hash = VENDOR_QUARN_HARDWARE_TORQ_V1_HASH;
    static constexpr uint32_t TRANSACTION_onCallback = FIRST_CALL_TRANSACTION + 0;
    static constexpr uint32_t TRANSACTION_getInterfaceVersion = FIRST_CALL_TRANSACTION + 16777214;
    static constexpr uint32_t TRANSACTION_getInterfaceHash = FIRST_CALL_TRANSACTION + 16777213;

    static std::shared_ptr<ITorqCallback> fromBinder(const ::ndk::SpAIBinder& binder);
    static binder_status_t writeToParcel(AParcel* parcel,
                                         const std::shared_ptr<ITorqCallback>& instance);
    static binder_status_t readFromParcel(const AParcel* parcel,
                                          std::shared_ptr<ITorqCallback>* instance);
    static bool setDefaultImpl(const std::shared_ptr<ITorqCallback>& impl);
    static const std::shared_ptr<ITorqCallback>& getDefaultImpl();

    virtual ::ndk::ScopedAStatus onCallback(
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& in_data) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;

  private:
    static std::shared_ptr<ITorqCallback> default_impl;
};

class ITorqCallbackDefault : public ITorqCallback {
  public:
    ::ndk::ScopedAStatus onCallback(
            const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& in_data)
            override;
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) override;
    ::ndk::SpAIBinder asBinder() override;
    bool isRemote() override;
};

}  // namespace aidl::vendor::quarn::hardware::torq
