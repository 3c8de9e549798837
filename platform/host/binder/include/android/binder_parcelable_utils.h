#pragma once

// Declarations shared by generated parcelables.

#include <android/binder_parcel.h>

#include <cstdint>

namespace ndk {

// The stability a parcelable was declared with (@VintfStability or none). Generated code records
// it in a static member; the emulation has one build and does not check it.
typedef int32_t parcelable_stability_t;
enum {
    STABILITY_LOCAL,
    STABILITY_VINTF,
};

}  // namespace ndk
