#pragma once

// Scripted answers of the reference HAL and the parcels front-end tests expect it to receive.
// Needs the simulator (link torq-sim).

#include <android/binder_status.h>
#include <torq_sim/SimHost.h>
#include <torq_test/Records.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace aidl::vendor::quarn::hardware::torq {
// Whole parcels and records in failed comparisons.
inline void PrintTo(const TorqRequestParcel& p, std::ostream* os) {
    *os << p.toString();
}
inline void PrintTo(const TorqRequestData& d, std::ostream* os) {
    *os << d.toString();
}
}  // namespace aidl::vendor::quarn::hardware::torq

namespace torq_test {

using torq_sim::SentAnswer;
using torq_sim::TorqRequestParcel;

/** An OK answer whose int out value is `value`. */
inline SentAnswer result(int32_t value) {
    SentAnswer a;
    a.result = value;
    return a;
}

/** The transaction works, the status is a service-specific error. */
inline SentAnswer refused() {
    SentAnswer a;
    a.exception = EX_SERVICE_SPECIFIC;
    a.serviceSpecificError = 3;
    return a;
}

/** The transaction itself fails. */
inline SentAnswer broken() {
    SentAnswer a;
    a.transactionError = STATUS_FAILED_TRANSACTION;
    return a;
}

/** An OK state answer carrying these records. */
inline SentAnswer records(std::vector<TorqRequestData> recs) {
    SentAnswer a;
    a.records = std::move(recs);
    return a;
}

/** A parcel with every field at its default but these; `marked` adds the debug marker extra. */
inline TorqRequestParcel parcel(int32_t kind, std::vector<TorqRequestData> data, int32_t tag = 0,
                                bool marked = false) {
    TorqRequestParcel p;
    p.kind = kind;
    p.data = std::move(data);
    p.tag = tag;
    if (marked) p.extras = std::vector<std::optional<std::string>>{std::string("zdbdebug")};
    return p;
}

/** The parcel of an acquisition: `parcel(kind, data)` with the caller's texts and duration. */
inline TorqRequestParcel acquisition(int32_t kind, std::vector<TorqRequestData> data,
                                     std::string pkg, std::string identity, int64_t duration) {
    TorqRequestParcel p = parcel(kind, std::move(data));
    p.pkg = std::move(pkg);
    p.identity = std::move(identity);
    p.duration = duration;
    return p;
}

}  // namespace torq_test
