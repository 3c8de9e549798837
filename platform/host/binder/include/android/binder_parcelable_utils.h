#pragma once

// Declarations shared by generated parcelables, and ParcelableHolder.

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace ndk {

// The stability a parcelable was declared with (@VintfStability or none). Generated code records
// it in a static member; the emulation has one build and does not check it.
typedef int32_t parcelable_stability_t;
enum {
    STABILITY_LOCAL,
    STABILITY_VINTF,
};

// The value of an AIDL `ParcelableHolder` field: any parcelable of at least the holder's
// stability, kept as its bytes (descriptor, then data) until a reader asks for it by type.
//
// On the wire: int32 stability, int32 byte count, then the bytes.
class AParcelableHolder {
  public:
    AParcelableHolder() = delete;
    // An empty holder that accepts parcelables of `stability` or a wider one.
    explicit AParcelableHolder(parcelable_stability_t stability)
        : mParcel(AParcel_create()), mStability(stability) {}
    AParcelableHolder(const AParcelableHolder& other)
        : mParcel(AParcel_create()), mStability(other.mStability) {
        copyFrom(other);
    }
    AParcelableHolder(AParcelableHolder&& other) = default;
    virtual ~AParcelableHolder() = default;

    AParcelableHolder& operator=(const AParcelableHolder& other) {
        if (this != &other) {
            mStability = other.mStability;
            copyFrom(other);
        }
        return *this;
    }
    AParcelableHolder& operator=(AParcelableHolder&& other) = default;

    binder_status_t writeToParcel(AParcel* parcel) const {
        binder_status_t status = AParcel_writeInt32(parcel, mStability);
        if (status != STATUS_OK) return status;
        const int32_t size = AParcel_getDataSize(mParcel.get());
        status = AParcel_writeInt32(parcel, size);
        if (status != STATUS_OK) return status;
        return AParcel_appendFrom(mParcel.get(), parcel, 0, size);
    }

    // Fails with STATUS_BAD_VALUE when the sender's stability differs from this holder's or the
    // byte count is negative or runs past the parcel.
    binder_status_t readFromParcel(const AParcel* parcel) {
        AParcel_reset(mParcel.get());
        int32_t wireStability = 0;
        binder_status_t status = AParcel_readInt32(parcel, &wireStability);
        if (status != STATUS_OK) return status;
        if (wireStability != mStability) return STATUS_BAD_VALUE;
        int32_t size = 0;
        status = AParcel_readInt32(parcel, &size);
        if (status != STATUS_OK) return status;
        if (size < 0) return STATUS_BAD_VALUE;
        const int32_t start = AParcel_getDataPosition(parcel);
        if (start > INT32_MAX - size || start + size > AParcel_getDataSize(parcel)) {
            return STATUS_BAD_VALUE;
        }
        status = AParcel_appendFrom(parcel, mParcel.get(), start, size);
        if (status != STATUS_OK) return status;
        return AParcel_setDataPosition(parcel, start + size);
    }

    // Stores `p`; STATUS_BAD_VALUE when T's stability is narrower than the holder's.
    template <typename T>
    binder_status_t setParcelable(const T& p) {
        if (mStability > T::_aidl_stability) return STATUS_BAD_VALUE;
        AParcel_reset(mParcel.get());
        binder_status_t status = AParcel_writeString(
                mParcel.get(), T::descriptor, static_cast<int32_t>(std::strlen(T::descriptor)));
        if (status != STATUS_OK) return status;
        return p.writeToParcel(mParcel.get());
    }

    // The held parcelable if it is a T; empty when the holder is empty or holds another type.
    template <typename T>
    binder_status_t getParcelable(std::optional<T>* result) const {
        result->reset();
        if (AParcel_getDataSize(mParcel.get()) == 0) return STATUS_OK;
        AParcel_setDataPosition(mParcel.get(), 0);
        std::string descriptor;
        binder_status_t status = AParcel_readString(mParcel.get(), &descriptor);
        if (status != STATUS_OK || descriptor != T::descriptor) return status;
        result->emplace();
        status = (*result)->readFromParcel(mParcel.get());
        if (status != STATUS_OK) result->reset();
        return status;
    }

    // Empties the holder.
    void reset() { AParcel_reset(mParcel.get()); }

    parcelable_stability_t getStability() const { return mStability; }

    // Holders compare by identity, as the platform's do: their contents are opaque bytes.
    bool operator==(const AParcelableHolder& rhs) const { return this == &rhs; }
    bool operator!=(const AParcelableHolder& rhs) const { return this != &rhs; }
    bool operator<(const AParcelableHolder& rhs) const { return this < &rhs; }
    bool operator<=(const AParcelableHolder& rhs) const { return this <= &rhs; }
    bool operator>(const AParcelableHolder& rhs) const { return this > &rhs; }
    bool operator>=(const AParcelableHolder& rhs) const { return this >= &rhs; }

    std::string toString() const { return "ParcelableHolder"; }

  private:
    void copyFrom(const AParcelableHolder& other) {
        AParcel_reset(mParcel.get());
        AParcel_appendFrom(other.mParcel.get(), mParcel.get(), 0,
                           AParcel_getDataSize(other.mParcel.get()));
    }

    mutable ScopedAParcel mParcel;  // getParcelable moves its read position
    parcelable_stability_t mStability;
};

}  // namespace ndk
