#pragma once

// Host build of the NDK stub for parcelable vendor.quarn.hardware.torq.TorqRequestData (V1).
// Same declarations and wire format as the AIDL compiler's NDK back end output.

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

class TorqRequestData {
  public:
    typedef std::false_type fixed_size;
    static const char* descriptor;

    int32_t id = 0;
    int32_t subId = 0;
    std::optional<std::string> value;
    std::optional<std::string> path;
    std::optional<std::string> extra;

    binder_status_t readFromParcel(const AParcel* parcel);
    binder_status_t writeToParcel(AParcel* parcel) const;

    inline bool operator!=(const TorqRequestData& rhs) const {
        return std::tie(id, subId, value, path, extra) !=
               std::tie(rhs.id, rhs.subId, rhs.value, rhs.path, rhs.extra);
    }
    inline bool operator<(const TorqRequestData& rhs) const {
        return std::tie(id, subId, value, path, extra) <
               std::tie(rhs.id, rhs.subId, rhs.value, rhs.path, rhs.extra);
    }
    inline bool operator<=(const TorqRequestData& rhs) const {
        return std::tie(id, subId, value, path, extra) <=
               std::tie(rhs.id, rhs.subId, rhs.value, rhs.path, rhs.extra);
    }
    inline bool operator==(const TorqRequestData& rhs) const {
        return std::tie(id, subId, value, path, extra) ==
               std::tie(rhs.id, rhs.subId, rhs.value, rhs.path, rhs.extra);
    }
    inline bool operator>(const TorqRequestData& rhs) const {
        return std::tie(id, subId, value, path, extra) >
               std::tie(rhs.id, rhs.subId, rhs.value, rhs.path, rhs.extra);
    }
    inline bool operator>=(const TorqRequestData& rhs) const {
        return std::tie(id, subId, value, path, extra) >=
               std::tie(rhs.id, rhs.subId, rhs.value, rhs.path, rhs.extra);
    }

    static const ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_VINTF;
    std::string toString() const;
};

}  // namespace aidl::vendor::quarn::hardware::torq
