// The hand-written parcelables beyond what the comparison with generated code covers: version
// skew in both directions and damaged input.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

namespace {

using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

TorqRequestParcel fullParcel() {
    TorqRequestParcel p;
    p.kind = 8;
    p.data.resize(2);
    p.data[0].id = 0x010108a0;
    p.data[0].subId = -3;
    p.data[0].value = "1200000";
    p.data[1].value = "";
    p.data[1].path = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_min_freq";
    p.data[1].extra = "x";
    p.flag = true;
    p.option = -1;
    p.tag = INT32_MIN;
    p.duration = INT64_MIN;
    p.extras = std::vector<std::optional<std::string>>{"zdbdebug", std::nullopt, ""};
    p.param = INT32_MAX;
    p.pkg = "com.example.game";
    p.identity = "";
    p.numbers = std::vector<int32_t>{1, -2, INT32_MAX};
    return p;
}

template <typename P>
std::vector<uint8_t> bytesOf(const P& value) {
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(value.writeToParcel(parcel.get()), STATUS_OK);
    std::vector<uint8_t> bytes(AParcel_getDataSize(parcel.get()));
    EXPECT_EQ(AParcel_marshal(parcel.get(), bytes.data(), 0, bytes.size()), STATUS_OK);
    return bytes;
}

// A parcel holding `bytes`, positioned at its start.
ndk::ScopedAParcel parcelOf(const std::vector<uint8_t>& bytes) {
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size()), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

// Reads a P from `bytes` with their size header set to all of them and a marker behind: the
// read gives `expected` and stops at the marker.
template <typename P>
void expectReadUpToMarker(std::vector<uint8_t> bytes, const P& expected) {
    const int32_t size = static_cast<int32_t>(bytes.size());
    std::memcpy(bytes.data(), &size, sizeof(size));
    const int32_t marker = 0x7777;
    bytes.insert(bytes.end(), reinterpret_cast<const uint8_t*>(&marker),
                 reinterpret_cast<const uint8_t*>(&marker) + 4);
    ndk::ScopedAParcel parcel = parcelOf(bytes);
    P read;
    ASSERT_EQ(read.readFromParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(read, expected) << read.toString();
    int32_t after = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &after), STATUS_OK);
    EXPECT_EQ(after, marker);
}

TEST(TorqParcelables, VersionSkewInBothDirections) {
    // An older sender: TorqRequestData with id and subId only. The reader defaults the rest.
    TorqRequestData data;
    data.id = 5;
    data.subId = 6;
    TorqRequestData dataFull = data;
    dataFull.value = dataFull.path = dataFull.extra = "v";
    std::vector<uint8_t> bytes = bytesOf(dataFull);
    expectReadUpToMarker(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 12), data);

    // A newer sender: the fields it added are skipped.
    bytes = bytesOf(dataFull);
    bytes.insert(bytes.end(), {1, 2, 3, 4, 0xff, 0xff, 0xff, 0xff, 9, 9, 9, 9});
    expectReadUpToMarker(bytes, dataFull);
}

// Hostile size headers, and a parcel cut short anywhere, are refused with an error status.
TEST(TorqParcelables, HostileSizesAndCutsAreRefused) {
    // Sizes below the header, and one that would run past INT32_MAX (read from offset 4).
    for (int32_t size : {INT32_MIN, -1, 0, 3}) {
        ndk::ScopedAParcel parcel(AParcel_create());
        AParcel_writeInt32(parcel.get(), size);
        AParcel_writeInt32(parcel.get(), 1);
        AParcel_setDataPosition(parcel.get(), 0);
        TorqRequestData d;
        EXPECT_EQ(d.readFromParcel(parcel.get()), STATUS_BAD_VALUE) << "size " << size;
    }
    ndk::ScopedAParcel overflow = parcelOf({0, 0, 0, 0, 0xff, 0xff, 0xff, 0x7f});
    AParcel_setDataPosition(overflow.get(), 4);
    TorqRequestData d;
    EXPECT_EQ(d.readFromParcel(overflow.get()), STATUS_BAD_VALUE);
    // Lengths inside that are null, negative, huge or run past the data are the runtime's readers'
    // (tests/binder ParcelTest). These bytes are the AIDL compiler's too (tests/conformance).
    const std::vector<uint8_t> bytes = bytesOf(fullParcel());
    for (size_t keep = 0; keep < bytes.size(); ++keep) {
        ndk::ScopedAParcel cut = parcelOf(std::vector<uint8_t>(bytes.begin(), bytes.begin() + keep));
        TorqRequestParcel p;
        EXPECT_NE(p.readFromParcel(cut.get()), STATUS_OK) << "cut to " << keep;
    }
}

}  // namespace
