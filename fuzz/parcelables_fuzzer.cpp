// The readers of the host AIDL stubs on arbitrary bytes: TorqRequestParcel, TorqRequestData and a
// vector of TorqRequestData (what ITorqCallback::onCallback reads). A reader may refuse the bytes;
// when it accepts them, writing the result and reading it back must give the same value.
//
// Input: byte 0 picks the type, the rest is the parcel's data.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzCheck.h"

namespace {

using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

struct Parcelable {
    template <typename T>
    static binder_status_t read(const AParcel* p, T* value) {
        return value->readFromParcel(p);
    }
    template <typename T>
    static binder_status_t write(AParcel* p, const T& value) {
        return value.writeToParcel(p);
    }
};

struct Vector {
    static binder_status_t read(const AParcel* p, std::vector<TorqRequestData>* value) {
        return ::ndk::AParcel_readVector(p, value);
    }
    static binder_status_t write(AParcel* p, const std::vector<TorqRequestData>& value) {
        return ::ndk::AParcel_writeVector(p, value);
    }
};

template <typename Io, typename T>
void roundTrip(const uint8_t* data, size_t size) {
    ::ndk::ScopedAParcel in(AParcel_create());
    if (AParcel_unmarshal(in.get(), data, size) != STATUS_OK) return;
    T value;
    // A parcelable's size field may point past the data; the reader then leaves the position
    // there, as the platform's does, and only later reads fail.
    if (Io::read(in.get(), &value) != STATUS_OK) return;

    ::ndk::ScopedAParcel out(AParcel_create());
    FUZZ_CHECK(Io::write(out.get(), value) == STATUS_OK, "an accepted value cannot be written");
    FUZZ_CHECK(AParcel_setDataPosition(out.get(), 0) == STATUS_OK, "rewind");
    T again;
    FUZZ_CHECK(Io::read(out.get(), &again) == STATUS_OK, "a written value cannot be read back");
    FUZZ_CHECK(again == value, "the value changed on the way through a parcel");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    switch (data[0] % 3) {
        case 0:
            roundTrip<Parcelable, TorqRequestParcel>(data + 1, size - 1);
            break;
        case 1:
            roundTrip<Parcelable, TorqRequestData>(data + 1, size - 1);
            break;
        default:
            roundTrip<Vector, std::vector<TorqRequestData>>(data + 1, size - 1);
            break;
    }
    return 0;
}
