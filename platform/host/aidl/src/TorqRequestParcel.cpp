#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>

#include "StubSupport.h"

namespace aidl::vendor::quarn::hardware::torq {

const char* TorqRequestParcel::descriptor = "vendor.quarn.hardware.torq.TorqRequestParcel";

binder_status_t TorqRequestParcel::readFromParcel(const AParcel* parcel) {
    internal::StructuredReader r(parcel);
    (void)(r.read(&kind) && r.read(&data) && r.read(&flag) && r.read(&option) && r.read(&tag) &&
           r.read(&duration) && r.readNullable(&extras) && r.read(&param) &&
           r.readNullable(&callback) && r.readNullable(&pkg) && r.readNullable(&identity) &&
           r.readNullable(&numbers));
    return r.finish();
}

binder_status_t TorqRequestParcel::writeToParcel(AParcel* parcel) const {
    internal::StructuredWriter w(parcel);
    (void)(w.write(kind) && w.write(data) && w.write(flag) && w.write(option) && w.write(tag) &&
           w.write(duration) && w.writeNullable(extras) && w.write(param) &&
           w.writeNullable(callback) && w.writeNullable(pkg) && w.writeNullable(identity) &&
           w.writeNullable(numbers));
    return w.finish();
}

std::string TorqRequestParcel::toString() const {
    using internal::toText;
    std::string s = "TorqRequestParcel{";
    s += "kind: " + toText(kind);
    s += ", data: " + toText(data);
    s += ", flag: " + toText(flag);
    s += ", option: " + toText(option);
    s += ", tag: " + toText(tag);
    s += ", duration: " + toText(duration);
    s += ", extras: " + toText(extras);
    s += ", param: " + toText(param);
    s += ", callback: " + toText(callback);
    s += ", pkg: " + toText(pkg);
    s += ", identity: " + toText(identity);
    s += ", numbers: " + toText(numbers);
    return s + "}";
}

}  // namespace aidl::vendor::quarn::hardware::torq
