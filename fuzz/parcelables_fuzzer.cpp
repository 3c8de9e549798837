// The readers of the host AIDL stubs on arbitrary bytes, as a TorqRequestParcel: it holds every
// other type they read (a vector of TorqRequestData as ITorqCallback::onCallback reads it,
// strings, nullable strings and lists). A reader may refuse the bytes; when it accepts them,
// writing the result and reading it back must give the same value.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>

#include <cstddef>
#include <cstdint>

#include "FuzzCheck.h"

using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ::ndk::ScopedAParcel in(AParcel_create());
    if (AParcel_unmarshal(in.get(), data, size) != STATUS_OK) return 0;
    TorqRequestParcel value;
    // A parcelable's size field may point past the data; the reader then leaves the position
    // there, as the platform's does, and only later reads fail.
    if (value.readFromParcel(in.get()) != STATUS_OK) return 0;

    ::ndk::ScopedAParcel out(AParcel_create());
    FUZZ_CHECK(value.writeToParcel(out.get()) == STATUS_OK, "an accepted value cannot be written");
    AParcel_setDataPosition(out.get(), 0);
    TorqRequestParcel again;
    FUZZ_CHECK(again.readFromParcel(out.get()) == STATUS_OK, "a written value cannot be read back");
    FUZZ_CHECK(again == value, "the value changed on the way through a parcel");
    return 0;
}
