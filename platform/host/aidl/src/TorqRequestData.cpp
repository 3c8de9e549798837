#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>

#include "StubSupport.h"

namespace aidl::vendor::quarn::hardware::torq {

const char* TorqRequestData::descriptor = "vendor.quarn.hardware.torq.TorqRequestData";

binder_status_t TorqRequestData::readFromParcel(const AParcel* parcel) {
    internal::StructuredReader r(parcel);
    (void)(r.read(&id) && r.read(&subId) && r.readNullable(&value) && r.readNullable(&path) &&
           r.readNullable(&extra));
    return r.finish();
}

binder_status_t TorqRequestData::writeToParcel(AParcel* parcel) const {
    internal::StructuredWriter w(parcel);
    (void)(w.write(id) && w.write(subId) && w.writeNullable(value) && w.writeNullable(path) &&
           w.writeNullable(extra));
    return w.finish();
}

std::string TorqRequestData::toString() const {
    using internal::toText;
    std::string s = "TorqRequestData{";
    s += "id: " + toText(id);
    s += ", subId: " + toText(subId);
    s += ", value: " + toText(value);
    s += ", path: " + toText(path);
    s += ", extra: " + toText(extra);
    return s + "}";
}

}  // namespace aidl::vendor::quarn::hardware::torq
