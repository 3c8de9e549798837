#pragma once

// Owning C++ wrappers around the NDK binder handles.

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

namespace ndk {

namespace internal {

// Reports a broken invariant of the binder helpers and aborts, like the platform's __assert.
[[noreturn]] inline void fatal(const char* file, int line, const char* message) {
    std::fprintf(stderr, "%s:%d: %s\n", file, line, message);
    std::fflush(stderr);
    std::abort();
}

}  // namespace internal

// A strong reference to an AIBinder. Constructing from a raw pointer adopts one reference;
// copying takes another one.
class SpAIBinder {
  public:
    SpAIBinder() : mBinder(nullptr) {}
    SpAIBinder(std::nullptr_t) : SpAIBinder() {}  // NOLINT(google-explicit-constructor)
    // Takes over the reference the caller holds on `binder`.
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
    SpAIBinder(const SpAIBinder& other) : mBinder(nullptr) { *this = other; }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(other.mBinder) { other.mBinder = nullptr; }
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this == &other) return *this;
        AIBinder_incStrong(other.mBinder);
        set(other.mBinder);
        return *this;
    }
    SpAIBinder& operator=(SpAIBinder&& other) noexcept {
        if (this == &other) return *this;
        AIBinder* binder = other.mBinder;
        other.mBinder = nullptr;
        set(binder);
        return *this;
    }

    // Drops the held reference and adopts `binder`. Dropping a reference may run arbitrary code
    // (a destructor); if that code replaced this very pointer, the object is being used from two
    // places at once and continuing would leak or double-free.
    void set(AIBinder* binder) {
        AIBinder* old = *const_cast<AIBinder* volatile*>(&mBinder);
        if (old != nullptr) AIBinder_decStrong(old);
        if (old != *const_cast<AIBinder* volatile*>(&mBinder)) {
            internal::fatal(__FILE__, __LINE__, "Race detected.");
        }
        mBinder = binder;
    }

    AIBinder* get() const { return mBinder; }
    // For out-parameters (AParcel_readStrongBinder etc.): the pointer must be null before.
    AIBinder** getR() { return &mBinder; }

    bool operator!=(const SpAIBinder& rhs) const { return get() != rhs.get(); }
    bool operator<(const SpAIBinder& rhs) const { return get() < rhs.get(); }
    bool operator<=(const SpAIBinder& rhs) const { return get() <= rhs.get(); }
    bool operator==(const SpAIBinder& rhs) const { return get() == rhs.get(); }
    bool operator>(const SpAIBinder& rhs) const { return get() > rhs.get(); }
    bool operator>=(const SpAIBinder& rhs) const { return get() >= rhs.get(); }

  private:
    AIBinder* mBinder;
};

// Comparisons of a held binder with a raw pointer, either way round.
inline bool operator==(const SpAIBinder& lhs, const AIBinder* rhs) {
    return lhs.get() == rhs;
}
inline bool operator!=(const SpAIBinder& lhs, const AIBinder* rhs) {
    return lhs.get() != rhs;
}
inline bool operator<(const SpAIBinder& lhs, const AIBinder* rhs) {
    return lhs.get() < rhs;
}
inline bool operator<=(const SpAIBinder& lhs, const AIBinder* rhs) {
    return lhs.get() <= rhs;
}
inline bool operator>(const SpAIBinder& lhs, const AIBinder* rhs) {
    return lhs.get() > rhs;
}
inline bool operator>=(const SpAIBinder& lhs, const AIBinder* rhs) {
    return lhs.get() >= rhs;
}
inline bool operator==(const AIBinder* lhs, const SpAIBinder& rhs) {
    return lhs == rhs.get();
}
inline bool operator!=(const AIBinder* lhs, const SpAIBinder& rhs) {
    return lhs != rhs.get();
}
inline bool operator<(const AIBinder* lhs, const SpAIBinder& rhs) {
    return lhs < rhs.get();
}
inline bool operator<=(const AIBinder* lhs, const SpAIBinder& rhs) {
    return lhs <= rhs.get();
}
inline bool operator>(const AIBinder* lhs, const SpAIBinder& rhs) {
    return lhs > rhs.get();
}
inline bool operator>=(const AIBinder* lhs, const SpAIBinder& rhs) {
    return lhs >= rhs.get();
}

namespace impl {

// Owns one resource of type T, released with Destroy unless it equals Default.
template <typename T, void (*Destroy)(T), T Default>
class ScopedAResource {
  public:
    explicit ScopedAResource(T t = Default) : mT(t) {}
    ~ScopedAResource() { set(Default); }

    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;
    ScopedAResource(ScopedAResource&& other) noexcept : mT(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) set(other.release());
        return *this;
    }

    T get() const { return mT; }
    // For out-parameters: the held resource must be the default before.
    T* getR() { return &mT; }

    // Releases the held resource and takes ownership of `t`. Generated proxies store their
    // result status this way.
    void set(T t) {
        if (mT != Default) Destroy(mT);
        mT = t;
    }
    // Gives up ownership without releasing: the caller now owns the returned resource.
    [[nodiscard]] T release() {
        T t = mT;
        mT = Default;
        return t;
    }

    bool operator!=(const ScopedAResource& rhs) const { return get() != rhs.get(); }
    bool operator<(const ScopedAResource& rhs) const { return get() < rhs.get(); }
    bool operator<=(const ScopedAResource& rhs) const { return get() <= rhs.get(); }
    bool operator==(const ScopedAResource& rhs) const { return get() == rhs.get(); }
    bool operator>(const ScopedAResource& rhs) const { return get() > rhs.get(); }
    bool operator>=(const ScopedAResource& rhs) const { return get() >= rhs.get(); }

  private:
    T mT;
};

}  // namespace impl

class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
  public:
    explicit ScopedAParcel(AParcel* parcel = nullptr) : ScopedAResource(parcel) {}
    ScopedAParcel(ScopedAParcel&&) = default;
    ScopedAParcel& operator=(ScopedAParcel&&) = default;
};

// An owned AStatus. A default-constructed (null) status is not ok.
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
  public:
    explicit ScopedAStatus(AStatus* status = nullptr) : ScopedAResource(status) {}
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
    int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const { return AStatus_getStatus(get()); }
    const char* getMessage() const { return AStatus_getMessage(get()); }
    std::string getDescription() const {
        const char* description = AStatus_getDescription(get());
        std::string result(description);
        AStatus_deleteDescription(description);
        return result;
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                             const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
    }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }
};

// Prints the status's description (as gtest and logging code do with `<<`).
inline std::ostream& operator<<(std::ostream& os, const ScopedAStatus& status) {
    return os << status.getDescription();
}

class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete, nullptr> {
  public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* recipient = nullptr)
        : ScopedAResource(recipient) {}
    ScopedAIBinder_DeathRecipient(ScopedAIBinder_DeathRecipient&&) = default;
    ScopedAIBinder_DeathRecipient& operator=(ScopedAIBinder_DeathRecipient&&) = default;
};

class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
  public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* weak = nullptr) : ScopedAResource(weak) {}
    ScopedAIBinder_Weak(ScopedAIBinder_Weak&&) = default;
    ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&&) = default;

    // One strong reference, or null when the object is gone.
    SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

namespace internal {
inline void closeFd(int fd) {
    ::close(fd);
}
}  // namespace internal

class ScopedFileDescriptor : public impl::ScopedAResource<int, internal::closeFd, -1> {
  public:
    explicit ScopedFileDescriptor(int fd = -1) : ScopedAResource(fd) {}
    ScopedFileDescriptor(ScopedFileDescriptor&&) = default;
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&&) = default;

    ScopedFileDescriptor dup() const { return ScopedFileDescriptor(get() < 0 ? -1 : ::dup(get())); }
};

}  // namespace ndk
