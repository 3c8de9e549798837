#pragma once

// Shared machinery of the hand-written stubs: marshalling of argument lists, the server side of
// one transaction (read, call, log, reply) and the proxy side (write, transact, read, log).
// The behaviour follows the AIDL compiler's NDK back end output with transaction logging on.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_status.h>
#include <android/binder_to_string.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq::internal {

// --- Text forms used by toString() and by the transaction log -------------------------------

template <typename T>
std::string toText(const T& value) {
    return ::android::internal::ToString(value);
}

// --- Argument lists -------------------------------------------------------------------------

// Writes each value with the NDK parcel helpers, stopping at the first error.
template <typename... T>
binder_status_t writeAll(AParcel* parcel, const T&... values) {
    (void)parcel;  // unused when there is nothing to write
    binder_status_t status = STATUS_OK;
    ((status = (status == STATUS_OK ? ::ndk::AParcel_writeData(parcel, values) : status)), ...);
    return status;
}

// Reads each value with the NDK parcel helpers, stopping at the first error.
template <typename... T>
binder_status_t readAll(const AParcel* parcel, T*... values) {
    (void)parcel;  // unused when there is nothing to read
    binder_status_t status = STATUS_OK;
    ((status = (status == STATUS_OK ? ::ndk::AParcel_readData(parcel, values) : status)), ...);
    return status;
}

using ArgList = std::vector<std::pair<std::string, std::string>>;

template <typename Log>
void fillStatus(Log& log, const ::ndk::ScopedAStatus& status) {
    log.exception_code = AStatus_getExceptionCode(status.get());
    const char* message = AStatus_getMessage(status.get());
    log.exception_message = message != nullptr ? message : "";
    log.transaction_error = AStatus_getStatus(status.get());
    log.service_specific_error_code = AStatus_getServiceSpecificError(status.get());
}

inline double millisSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
}

// --- Structured parcelables ----------------------------------------------------------------

// Reads the fields of a structured parcelable: an int32 size (bytes from the start, header
// included), then the fields in declaration order. A sender built from an older version writes
// fewer fields: reading stops where its size says the data ends. A newer sender writes more:
// they are skipped. Either way the position ends at start + size.
class StructuredReader {
  public:
    explicit StructuredReader(const AParcel* parcel)
        : parcel_(parcel), start_(AParcel_getDataPosition(parcel)) {
        status_ = AParcel_readInt32(parcel_, &size_);
        if (status_ == STATUS_OK && (size_ < 4 || start_ > INT32_MAX - size_)) {
            status_ = STATUS_BAD_VALUE;
        }
        stopped_ = status_ != STATUS_OK;
    }

    // Each returns false once reading has stopped (end of the sender's data, or an error).
    template <typename T>
    bool read(T* value) {
        if (!more()) return false;
        status_ = ::ndk::AParcel_readData(parcel_, value);
        return status_ == STATUS_OK || stop();
    }
    template <typename T>
    bool readNullable(T* value) {
        if (!more()) return false;
        status_ = ::ndk::AParcel_readNullableData(parcel_, value);
        return status_ == STATUS_OK || stop();
    }

    binder_status_t finish() {
        if (status_ != STATUS_OK) return status_;
        AParcel_setDataPosition(parcel_, start_ + size_);
        return STATUS_OK;
    }

  private:
    bool more() {
        if (stopped_) return false;
        if (AParcel_getDataPosition(parcel_) - start_ >= size_) return stop();
        return true;
    }
    bool stop() {
        stopped_ = true;
        return false;
    }

    const AParcel* parcel_;
    int32_t start_;
    int32_t size_ = 0;
    binder_status_t status_;
    bool stopped_;
};

// Writes a structured parcelable: a size placeholder, the fields, then the patched size.
class StructuredWriter {
  public:
    explicit StructuredWriter(AParcel* parcel)
        : parcel_(parcel), start_(AParcel_getDataPosition(parcel)) {
        status_ = AParcel_writeInt32(parcel_, 0);
    }

    template <typename T>
    bool write(const T& value) {
        if (status_ == STATUS_OK) status_ = ::ndk::AParcel_writeData(parcel_, value);
        return status_ == STATUS_OK;
    }
    template <typename T>
    bool writeNullable(const T& value) {
        if (status_ == STATUS_OK) status_ = ::ndk::AParcel_writeNullableData(parcel_, value);
        return status_ == STATUS_OK;
    }

    binder_status_t finish() {
        if (status_ != STATUS_OK) return status_;
        int32_t end = AParcel_getDataPosition(parcel_);
        AParcel_setDataPosition(parcel_, start_);
        AParcel_writeInt32(parcel_, end - start_);
        AParcel_setDataPosition(parcel_, end);
        return STATUS_OK;
    }

  private:
    AParcel* parcel_;
    int32_t start_;
    binder_status_t status_;
};

// --- Server side ----------------------------------------------------------------------------

// One incoming transaction on a Bn object. The arguments have been read; `call` runs the
// implementation; `results` are written to the reply only when the status is OK.
template <typename Bn, typename Call, typename... R>
binder_status_t serve(const Bn* stub, const char* interfaceName, const char* method, bool oneway,
                      AParcel* out, const std::function<ArgList()>& inputArgs, Call&& call,
                      const R&... results) {
    typename Bn::TransactionLog log{};
    const bool logging = Bn::logFunc != nullptr;
    if (logging) log.input_args = inputArgs();
    auto start = std::chrono::steady_clock::now();
    ::ndk::ScopedAStatus status = call();
    if (logging) {
        log.duration_ms = millisSince(start);
        log.interface_name = interfaceName;
        log.method_name = method;
        log.stub_address = static_cast<const void*>(stub);
        log.proxy_address = nullptr;
        fillStatus(log, status);
        if constexpr (sizeof...(R) > 0) log.result = (toText(results), ...);
        Bn::logFunc(log);
    }
    if (oneway) {
        // The caller is not waiting for a reply: nothing is written.
        return STATUS_OK;
    }
    binder_status_t ret = AParcel_writeStatusHeader(out, status.get());
    if (ret != STATUS_OK) return ret;
    if (!AStatus_isOk(status.get())) return STATUS_OK;
    return writeAll(out, results...);
}

// --- Proxy side -----------------------------------------------------------------------------

// One outgoing transaction from a Bp object. `writeArgs` marshals the arguments after the
// interface token; `readResults` unmarshals the results of an OK reply (not called for oneway
// methods); `fallback` calls the default implementation when the remote side does not know the
// transaction code (may be empty). Any transport or parcel error becomes the returned status.
template <typename Bp>
::ndk::ScopedAStatus transact(Bp* proxy, const char* interfaceName, const char* method,
                              transaction_code_t code, bool oneway,
                              const std::function<ArgList()>& inputArgs,
                              const std::function<binder_status_t(AParcel*)>& writeArgs,
                              const std::function<binder_status_t(const AParcel*)>& readResults,
                              const std::function<::ndk::ScopedAStatus()>& fallback,
                              const std::function<std::string()>& resultText) {
    typename Bp::TransactionLog log{};
    const bool logging = Bp::logFunc != nullptr;
    if (logging) log.input_args = inputArgs();
    auto start = std::chrono::steady_clock::now();

    ::ndk::ScopedAStatus status;
    bool haveStatus = false;
    ::ndk::SpAIBinder binder = proxy->asBinder();
    ::ndk::ScopedAParcel in;
    ::ndk::ScopedAParcel out;
    binder_status_t ret = AIBinder_prepareTransaction(binder.get(), in.getR());
    if (ret == STATUS_OK) ret = writeArgs(in.get());
    if (ret == STATUS_OK) {
        ret = AIBinder_transact(binder.get(), code, in.getR(), out.getR(), oneway ? FLAG_ONEWAY : 0);
        if (ret == STATUS_UNKNOWN_TRANSACTION && fallback) {
            status = fallback();
            haveStatus = true;
        } else if (ret == STATUS_OK && !oneway) {
            ret = AParcel_readStatusHeader(out.get(), status.getR());
            if (ret == STATUS_OK && !AStatus_isOk(status.get())) {
                haveStatus = true;  // the remote side's error, results are not read
            } else if (ret == STATUS_OK) {
                ret = readResults(out.get());
            }
        }
    }
    if (!haveStatus) status = ::ndk::ScopedAStatus(AStatus_fromStatus(ret));

    if (logging) {
        log.duration_ms = millisSince(start);
        log.interface_name = interfaceName;
        log.method_name = method;
        log.stub_address = nullptr;
        log.proxy_address = static_cast<const void*>(proxy);
        fillStatus(log, status);
        if (resultText) log.result = resultText();
        Bp::logFunc(log);
    }
    return status;
}

}  // namespace aidl::vendor::quarn::hardware::torq::internal
