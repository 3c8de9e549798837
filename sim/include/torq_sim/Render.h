#pragma once

// Human-readable text for the HAL's records, as the journal and torqctl show them. Only fields
// that differ from a default record are written, so "what was sent" stays short:
//   {id=0x010108a0 value="50"}   {value="" path="/proc/x"}   {id=0x00000000}
// An absent text is left out; a present but empty one shows as "". A record with nothing but a
// zero id shows that id.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace torq_sim {

// "0x010108a0"; negative ids keep their two's-complement bits.
std::string hexId(int32_t id);

// Double-quoted, with \" \\ and non-printable bytes escaped.
std::string quoted(const std::string& text);
std::string quotedOrNull(const std::optional<std::string>& text);

std::string renderData(const ::aidl::vendor::quarn::hardware::torq::TorqRequestData& data);
std::string renderDataList(
        const std::vector<::aidl::vendor::quarn::hardware::torq::TorqRequestData>& list);
std::string renderParcel(const ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel& parcel);
std::string renderInts(const std::vector<int32_t>& values);

}  // namespace torq_sim
