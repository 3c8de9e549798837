// Marshalling of the two parcelables, written and read directly through a parcel: round trips,
// the structured-parcelable wire layout, version skew in both directions and hostile input.

#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>
#include <aidl/vendor/quarn/hardware/torq/TorqRequestParcel.h>
#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>

namespace {

using ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;
using Texts = std::vector<std::optional<std::string>>;

ndk::ScopedAParcel newParcel() {
    return ndk::ScopedAParcel(AParcel_create());
}

std::vector<uint8_t> marshal(const AParcel* parcel) {
    std::vector<uint8_t> bytes(AParcel_getDataSize(parcel));
    EXPECT_EQ(AParcel_marshal(parcel, bytes.data(), 0, bytes.size()), STATUS_OK);
    return bytes;
}

template <typename P>
std::vector<uint8_t> bytesOf(const P& value) {
    ndk::ScopedAParcel parcel = newParcel();
    EXPECT_EQ(value.writeToParcel(parcel.get()), STATUS_OK);
    return marshal(parcel.get());
}

ndk::ScopedAParcel unmarshal(const std::vector<uint8_t>& bytes) {
    ndk::ScopedAParcel parcel = newParcel();
    EXPECT_EQ(AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size()), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

class NoopCallback : public BnTorqCallback {
  public:
    ndk::ScopedAStatus onCallback(const std::vector<TorqRequestData>&) override {
        return ndk::ScopedAStatus::ok();
    }
};

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
    p.extras = Texts{"zdbdebug", std::nullopt, ""};
    p.param = INT32_MAX;
    p.pkg = "com.example.game";
    p.identity = "";
    p.numbers = std::vector<int32_t>{1, -2, INT32_MAX};
    return p;
}

// Writes `in`, reads it back from the start: the same value, and the read ends where the write did.
template <typename P>
void expectRoundTrip(const P& in) {
    ndk::ScopedAParcel parcel = newParcel();
    ASSERT_EQ(in.writeToParcel(parcel.get()), STATUS_OK);
    const int32_t written = AParcel_getDataPosition(parcel.get());
    AParcel_setDataPosition(parcel.get(), 0);
    P out;
    ASSERT_EQ(out.readFromParcel(parcel.get()), STATUS_OK) << in.toString();
    EXPECT_EQ(out, in) << in.toString() << "\n  read back as " << out.toString();
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), written);
}

TEST(TorqParcelables, RoundTripAbsentEmptyAndPresentValues) {
    const std::optional<std::string> texts[] = {std::nullopt, std::string(),
                                                std::string("v\xc3\xa5lue \xe2\x98\x83")};
    TorqRequestData d;
    d.id = INT32_MIN;
    d.subId = INT32_MAX;
    for (const auto& value : texts) {
        for (const auto& path : texts) {
            for (const auto& extra : texts) {
                d.value = value;
                d.path = path;
                d.extra = extra;
                expectRoundTrip(d);
            }
        }
    }
    expectRoundTrip(TorqRequestParcel{});
    expectRoundTrip(fullParcel());
    TorqRequestParcel empties;  // present but empty stays present
    empties.extras = Texts{};
    empties.numbers = std::vector<int32_t>{};
    empties.pkg = "";
    expectRoundTrip(empties);
    // A local callback comes back as the object itself.
    empties.callback = ndk::SharedRefBase::make<NoopCallback>();
    expectRoundTrip(empties);
}

// The round trips above rely on the comparison: it must see every field, and tell an absent
// value from a present empty one.
TEST(TorqParcelables, ComparisonSeesEveryField) {
    using Change = std::function<void(TorqRequestParcel&)>;
    const Change changes[] = {[](auto& p) { p.kind = 9; },
                              [](auto& p) { p.data.pop_back(); },
                              [](auto& p) { p.data[0].id = 1; },
                              [](auto& p) { p.data[0].subId = 1; },
                              [](auto& p) { p.data[1].value.reset(); },
                              [](auto& p) { p.data[1].path = "/"; },
                              [](auto& p) { p.data[1].extra = "y"; },
                              [](auto& p) { p.flag = false; },
                              [](auto& p) { p.option = 0; },
                              [](auto& p) { p.tag = 0; },
                              [](auto& p) { p.duration = 0; },
                              [](auto& p) { p.extras.reset(); },
                              [](auto& p) { p.param = 0; },
                              [](auto& p) { p.callback = ndk::SharedRefBase::make<NoopCallback>(); },
                              [](auto& p) { p.pkg = "com.example"; },
                              [](auto& p) { p.identity.reset(); },
                              [](auto& p) { p.numbers = std::vector<int32_t>{}; }};
    const TorqRequestParcel base = fullParcel();
    for (size_t i = 0; i < std::size(changes); ++i) {
        TorqRequestParcel changed = base;
        changes[i](changed);
        EXPECT_NE(changed, base) << "change " << i;
        EXPECT_TRUE(changed < base || base < changed) << "change " << i;
    }
}

TEST(TorqParcelables, WireLayoutIsSizeHeaderThenFieldsInOrder) {
    ndk::ScopedAParcel parcel = newParcel();
    AParcel_writeInt32(parcel.get(), 0x5a5a);  // something before: the size counts from the start
    TorqRequestData d;
    d.id = 7;
    d.subId = 9;
    d.value = "ab";
    ASSERT_EQ(d.writeToParcel(parcel.get()), STATUS_OK);
    const int32_t end = AParcel_getDataPosition(parcel.get());

    // size, id, subId, "ab" (UTF-16 length 2, then 2 units and a terminating zero, padded to 8
    // bytes), then the absent path and extra.
    AParcel_setDataPosition(parcel.get(), 4);
    const int32_t expected[] = {end - 4, 7, 9, 2, 0x00620061, 0, -1, -1};
    for (int32_t word : expected) {
        int32_t read = 0;
        ASSERT_EQ(AParcel_readInt32(parcel.get(), &read), STATUS_OK);
        EXPECT_EQ(read, word) << "at " << AParcel_getDataPosition(parcel.get()) - 4;
    }
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), end);
}

// Reads a P from `bytes`, their size header set to all of them and a marker behind: the read gives
// `expected` and stops at the marker.
template <typename P>
void expectReadUpToMarker(std::vector<uint8_t> bytes, const P& expected) {
    const int32_t size = static_cast<int32_t>(bytes.size());
    std::memcpy(bytes.data(), &size, sizeof(size));
    ndk::ScopedAParcel parcel = unmarshal(bytes);
    AParcel_setDataPosition(parcel.get(), size);
    AParcel_writeInt32(parcel.get(), 0x7777);
    AParcel_setDataPosition(parcel.get(), 0);
    P read;
    ASSERT_EQ(read.readFromParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(read, expected) << read.toString();
    int32_t marker = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &marker), STATUS_OK);
    EXPECT_EQ(marker, 0x7777);
}

TEST(TorqParcelables, VersionSkewInBothDirections) {
    // Older senders: TorqRequestData with id and subId only, TorqRequestParcel with kind and an
    // empty data vector only. The reader defaults the rest.
    TorqRequestData data;
    data.id = 5;
    data.subId = 6;
    TorqRequestData dataFull = data;
    dataFull.value = dataFull.path = dataFull.extra = "v";
    std::vector<uint8_t> bytes = bytesOf(dataFull);
    bytes.resize(12);
    expectReadUpToMarker(bytes, data);
    TorqRequestParcel parcelFull = fullParcel();
    parcelFull.data.clear();
    TorqRequestParcel parcel;
    parcel.kind = parcelFull.kind;
    bytes = bytesOf(parcelFull);
    bytes.resize(12);
    expectReadUpToMarker(bytes, parcel);

    // A newer sender: the fields it added are skipped.
    bytes = bytesOf(dataFull);
    bytes.insert(bytes.end(), {1, 2, 3, 4, 0xff, 0xff, 0xff, 0xff, 9, 9, 9, 9});
    expectReadUpToMarker(bytes, dataFull);
}

// A TorqRequestParcel of kind 1 and then `words`, whose size claims more than there is.
binder_status_t readParcelWith(const std::vector<int32_t>& words) {
    ndk::ScopedAParcel parcel = newParcel();
    AParcel_writeInt32(parcel.get(), static_cast<int32_t>(8 + 4 * words.size() + 64));
    AParcel_writeInt32(parcel.get(), 1);
    for (int32_t w : words) AParcel_writeInt32(parcel.get(), w);
    AParcel_setDataPosition(parcel.get(), 0);
    TorqRequestParcel p;
    return p.readFromParcel(parcel.get());
}

TEST(TorqParcelables, HostileInputIsRefused) {
    // Sizes below the header, and one that would run past INT32_MAX.
    for (int32_t size : {INT32_MIN, -1, 0, 3}) {
        ndk::ScopedAParcel parcel = newParcel();
        AParcel_writeInt32(parcel.get(), size);
        AParcel_writeInt32(parcel.get(), 1);
        AParcel_setDataPosition(parcel.get(), 0);
        TorqRequestData d;
        EXPECT_EQ(d.readFromParcel(parcel.get()), STATUS_BAD_VALUE) << "size " << size;
    }
    ndk::ScopedAParcel overflow = unmarshal({0, 0, 0, 0, 0xff, 0xff, 0xff, 0x7f});
    AParcel_setDataPosition(overflow.get(), 4);
    TorqRequestData d;
    EXPECT_EQ(d.readFromParcel(overflow.get()), STATUS_BAD_VALUE);
    ndk::ScopedAParcel empty = newParcel();
    EXPECT_NE(d.readFromParcel(empty.get()), STATUS_OK);

    // `data` lengths: -1 is null (not allowed here), other negatives and huge ones are bad.
    for (int32_t length : {-1, -2, INT32_MIN, 1000001, INT32_MAX}) {
        EXPECT_NE(readParcelWith({length}), STATUS_OK) << "length " << length;
    }
    // A null entry in the vector; a present entry (40 bytes: id 3, subId 0, a string) whose string
    // length runs past the data or is negative.
    EXPECT_NE(readParcelWith({1, 0}), STATUS_OK);
    EXPECT_NE(readParcelWith({1, 1, 40, 3, 0, 100, 0x00620061}), STATUS_OK);
    EXPECT_NE(readParcelWith({1, 1, 40, 3, 0, -5, 0x00620061}), STATUS_OK);

    // Every cut of a valid parcel is refused.
    const std::vector<uint8_t> bytes = bytesOf(fullParcel());
    for (size_t cut = 0; cut < bytes.size(); cut += 4) {
        ndk::ScopedAParcel part = unmarshal({bytes.begin(), bytes.begin() + cut});
        TorqRequestParcel p;
        EXPECT_NE(p.readFromParcel(part.get()), STATUS_OK) << "cut at " << cut;
    }
}

TEST(TorqParcelables, ToStringNamesEveryFieldAndShowsNulls) {
    const std::string s = fullParcel().toString();
    for (const char* field : {"kind: 8", "flag: true", "option: -1", "duration: ", "extras: [",
                              "param: 2147483647", "callback: (null)", "pkg: com.example.game",
                              "numbers: [1, -2, 2147483647]", "TorqRequestData{id: 16844960"}) {
        EXPECT_NE(s.find(field), std::string::npos) << field << " not in " << s;
    }
    EXPECT_EQ(TorqRequestData{}.toString(),
              "TorqRequestData{id: 0, subId: 0, value: (null), path: (null), extra: (null)}");
}

}  // namespace
