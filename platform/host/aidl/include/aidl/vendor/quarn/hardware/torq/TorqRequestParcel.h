#pragma once

// Host build of the NDK stub for parcelable vendor.quarn.hardware.torq.TorqRequestParcel (V1).
// Same declarations and wire format as the AIDL compiler's NDK back end output.

#include <aidl/vendor/quarn/hardware/torq/ITorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcelable_utils.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {

class ITorqCallback;

class TorqRequestParcel {
  public:
    typedef std::false_type fixed_size;
    static const char* descriptor;

    int32_t kind = 0;
    std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData> data;
    bool flag = false;
    int32_t option = 0;
    int32_t tag = 0;
    int64_t duration = 0L;
    std::optional<std::vector<std::optional<std::string>>> extras;
    int32_t param = 0;
    std::shared_ptr<::aidl::vendor::quarn::hardware::torq::ITorqCallback> callback;
    std::optional<std::string> pkg;
    std::optional<std::string> identity;
    std::optional<std::vector<int32_t>> numbers;

    binder_status_t readFromParcel(const AParcel* parcel);
    binder_status_t writeToParcel(AParcel* parcel) const;

    inline bool operator!=(const TorqRequestParcel& rhs) const {
        return std::tie(kind, data, flag, option, tag, duration, extras, param, callback, pkg,
                        identity, numbers) !=
               std::tie(rhs.kind, rhs.data, rhs.flag, rhs.option, rhs.tag, rhs.duration, rhs.extras,
                        rhs.param, rhs.callback, rhs.pkg, rhs.identity, rhs.numbers);
    }
    inline bool operator<(const TorqRequestParcel& rhs) const {
        return std::tie(kind, data, flag, option, tag, duration, extras, param, callback, pkg,
                        identity, numbers) <
               std::tie(rhs.kind, rhs.data, rhs.flag, rhs.option, rhs.tag, rhs.duration, rhs.extras,
                        rhs.param, rhs.callback, rhs.pkg, rhs.identity, rhs.numbers);
    }
    inline bool operator<=(const TorqRequestParcel& rhs) const {
        return std::tie(kind, data, flag, option, tag, duration, extras, param, callback, pkg,
                        identity, numbers) <=
               std::tie(rhs.kind, rhs.data, rhs.flag, rhs.option, rhs.tag, rhs.duration, rhs.extras,
                        rhs.param, rhs.callback, rhs.pkg, rhs.identity, rhs.numbers);
    }
    inline bool operator==(const TorqRequestParcel& rhs) const {
        return std::tie(kind, data, flag, option, tag, duration, extras, param, callback, pkg,
                        identity, numbers) ==
               std::tie(rhs.kind, rhs.data, rhs.flag, rhs.option, rhs.tag, rhs.duration, rhs.extras,
                        rhs.param, rhs.callback, rhs.pkg, rhs.identity, rhs.numbers);
    }
    inline bool operator>(const TorqRequestParcel& rhs) const {
        return std::tie(kind, data, flag, option, tag, duration, extras, param, callback, pkg,
                        identity, numbers) >
               std::tie(rhs.kind, rhs.data, rhs.flag, rhs.option, rhs.tag, rhs.duration, rhs.extras,
                        rhs.param, rhs.callback, rhs.pkg, rhs.identity, rhs.numbers);
    }
    inline bool operator>=(const TorqRequestParcel& rhs) const {
        return std::tie(kind, data, flag, option, tag, duration, extras, param, callback, pkg,
                        identity, numbers) >=
               std::tie(rhs.kind, rhs.data, rhs.flag, rhs.option, rhs.tag, rhs.duration, rhs.extras,
                        rhs.param, rhs.callback, rhs.pkg, rhs.identity, rhs.numbers);
    }

    static const ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_VINTF;
    std::string toString() const;
};

}  // namespace aidl::vendor::quarn::hardware::torq
