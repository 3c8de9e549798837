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
#include <random>

namespace {

using ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

ndk::ScopedAParcel newParcel() {
    return ndk::ScopedAParcel(AParcel_create());
}

template <typename P>
binder_status_t roundTrip(const P& in, P* out, int32_t* endPosition = nullptr) {
    ndk::ScopedAParcel parcel = newParcel();
    binder_status_t st = in.writeToParcel(parcel.get());
    if (st != STATUS_OK) return st;
    AParcel_setDataPosition(parcel.get(), 0);
    st = out->readFromParcel(parcel.get());
    if (endPosition != nullptr) *endPosition = AParcel_getDataPosition(parcel.get());
    return st;
}

void writeString(AParcel* p, const char* s) {
    ASSERT_EQ(AParcel_writeString(p, s, s == nullptr ? -1 : static_cast<int32_t>(strlen(s))),
              STATUS_OK);
}

// Writes `size` as the size header of a parcelable that starts at `start`.
void patchSize(AParcel* p, int32_t start, int32_t size) {
    int32_t end = AParcel_getDataPosition(p);
    AParcel_setDataPosition(p, start);
    AParcel_writeInt32(p, size);
    AParcel_setDataPosition(p, end);
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
    TorqRequestData a;
    a.id = 0x010108a0;
    a.subId = -3;
    a.value = "1200000";
    TorqRequestData b;
    b.id = 0;
    b.value = "";
    b.path = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_min_freq";
    b.extra = "x";
    p.data = {a, b};
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

TEST(TorqRequestDataParcel, RoundTripsAbsentEmptyAndPresentTexts) {
    const std::optional<std::string> choices[] = {std::nullopt, std::string(),
                                                  std::string("v\xc3\xa5lue \xe2\x98\x83")};
    for (const auto& value : choices) {
        for (const auto& path : choices) {
            for (const auto& extra : choices) {
                TorqRequestData in;
                in.id = INT32_MIN;
                in.subId = INT32_MAX;
                in.value = value;
                in.path = path;
                in.extra = extra;
                ndk::ScopedAParcel parcel = newParcel();
                ASSERT_EQ(in.writeToParcel(parcel.get()), STATUS_OK);
                int32_t written = AParcel_getDataSize(parcel.get());
                AParcel_setDataPosition(parcel.get(), 0);
                TorqRequestData out;
                ASSERT_EQ(out.readFromParcel(parcel.get()), STATUS_OK) << in.toString();
                EXPECT_EQ(out, in) << in.toString() << " vs " << out.toString();
                EXPECT_EQ(AParcel_getDataPosition(parcel.get()), written);
            }
        }
    }
}

TEST(TorqRequestParcelParcel, RoundTripsDefaultAndFullParcels) {
    TorqRequestParcel out;
    ASSERT_EQ(roundTrip(TorqRequestParcel{}, &out), STATUS_OK);
    EXPECT_EQ(out, TorqRequestParcel{});
    EXPECT_FALSE(out.extras.has_value());
    EXPECT_FALSE(out.numbers.has_value());
    EXPECT_EQ(out.callback, nullptr);

    TorqRequestParcel full = fullParcel();
    TorqRequestParcel fullOut;
    ASSERT_EQ(roundTrip(full, &fullOut), STATUS_OK);
    EXPECT_EQ(fullOut, full) << fullOut.toString();

    // Present but empty lists stay present.
    TorqRequestParcel empties;
    empties.extras = std::vector<std::optional<std::string>>{};
    empties.numbers = std::vector<int32_t>{};
    empties.pkg = "";
    TorqRequestParcel emptiesOut;
    ASSERT_EQ(roundTrip(empties, &emptiesOut), STATUS_OK);
    ASSERT_TRUE(emptiesOut.extras.has_value());
    EXPECT_TRUE(emptiesOut.extras->empty());
    ASSERT_TRUE(emptiesOut.numbers.has_value());
    EXPECT_TRUE(emptiesOut.numbers->empty());
    ASSERT_TRUE(emptiesOut.pkg.has_value());
}

TEST(TorqRequestParcelParcel, LocalCallbackComesBackAsTheSameObject) {
    auto callback = ndk::SharedRefBase::make<NoopCallback>();
    TorqRequestParcel in;
    in.callback = callback;
    TorqRequestParcel out;
    ASSERT_EQ(roundTrip(in, &out), STATUS_OK);
    EXPECT_EQ(out.callback.get(), callback.get());
    EXPECT_EQ(out, in);
}

TEST(TorqRequestDataParcel, WireLayoutIsSizeHeaderThenFieldsInOrder) {
    ndk::ScopedAParcel parcel = newParcel();
    AParcel_writeInt32(parcel.get(), 0x5a5a);  // something before: the size counts from the start
    TorqRequestData d;
    d.id = 7;
    d.subId = 9;
    d.value = "ab";
    ASSERT_EQ(d.writeToParcel(parcel.get()), STATUS_OK);
    int32_t end = AParcel_getDataPosition(parcel.get());

    AParcel_setDataPosition(parcel.get(), 4);
    int32_t size = 0, id = 0, subId = 0, len = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &size), STATUS_OK);
    EXPECT_EQ(size, end - 4);
    AParcel_readInt32(parcel.get(), &id);
    AParcel_readInt32(parcel.get(), &subId);
    EXPECT_EQ(id, 7);
    EXPECT_EQ(subId, 9);
    // "ab": UTF-16 length 2, then 2 units and a terminating zero, padded to 8 bytes.
    AParcel_readInt32(parcel.get(), &len);
    EXPECT_EQ(len, 2);
    AParcel_setDataPosition(parcel.get(), AParcel_getDataPosition(parcel.get()) + 8);
    int32_t path = 0, extra = 0;
    AParcel_readInt32(parcel.get(), &path);
    AParcel_readInt32(parcel.get(), &extra);
    EXPECT_EQ(path, -1);
    EXPECT_EQ(extra, -1);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), end);
}

TEST(TorqRequestDataParcel, OlderSenderWithFewerFieldsIsReadAndPositionLeftAtItsEnd) {
    ndk::ScopedAParcel parcel = newParcel();
    AParcel_writeInt32(parcel.get(), 0);  // size, patched below
    AParcel_writeInt32(parcel.get(), 5);  // id
    AParcel_writeInt32(parcel.get(), 6);  // subId; the sender knew nothing more
    patchSize(parcel.get(), 0, 12);
    AParcel_writeInt32(parcel.get(), 0x7777);  // the next value in the same parcel

    AParcel_setDataPosition(parcel.get(), 0);
    TorqRequestData d;
    ASSERT_EQ(d.readFromParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(d.id, 5);
    EXPECT_EQ(d.subId, 6);
    EXPECT_FALSE(d.value.has_value());
    EXPECT_FALSE(d.path.has_value());
    EXPECT_FALSE(d.extra.has_value());
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 12);
    int32_t next = 0;
    ASSERT_EQ(AParcel_readInt32(parcel.get(), &next), STATUS_OK);
    EXPECT_EQ(next, 0x7777);
}

TEST(TorqRequestParcelParcel, OlderSenderStopsAfterKindAndData) {
    ndk::ScopedAParcel parcel = newParcel();
    AParcel_writeInt32(parcel.get(), 0);
    AParcel_writeInt32(parcel.get(), 10);  // kind
    AParcel_writeInt32(parcel.get(), 0);   // data: empty vector
    patchSize(parcel.get(), 0, AParcel_getDataPosition(parcel.get()));
    int32_t end = AParcel_getDataPosition(parcel.get());
    AParcel_writeInt32(parcel.get(), 42);

    AParcel_setDataPosition(parcel.get(), 0);
    TorqRequestParcel p;
    ASSERT_EQ(p.readFromParcel(parcel.get()), STATUS_OK);
    TorqRequestParcel expected;
    expected.kind = 10;
    EXPECT_EQ(p, expected);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), end);
}

TEST(TorqRequestDataParcel, FieldsOfANewerSenderAreSkipped) {
    ndk::ScopedAParcel parcel = newParcel();
    TorqRequestData d;
    d.id = 1;
    d.extra = "e";
    ASSERT_EQ(d.writeToParcel(parcel.get()), STATUS_OK);
    int32_t known = AParcel_getDataPosition(parcel.get());
    AParcel_writeInt32(parcel.get(), 123);  // a sixth field we do not know
    writeString(parcel.get(), "future");
    int32_t end = AParcel_getDataPosition(parcel.get());
    patchSize(parcel.get(), 0, end);
    AParcel_writeInt32(parcel.get(), -99);
    ASSERT_GT(end, known);

    AParcel_setDataPosition(parcel.get(), 0);
    TorqRequestData out;
    ASSERT_EQ(out.readFromParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(out, d);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), end);
    int32_t next = 0;
    AParcel_readInt32(parcel.get(), &next);
    EXPECT_EQ(next, -99);
}

TEST(TorqRequestDataParcel, RejectsSizesBelowTheHeaderAndPastInt32) {
    for (int32_t size : {INT32_MIN, -1, 0, 3}) {
        ndk::ScopedAParcel parcel = newParcel();
        AParcel_writeInt32(parcel.get(), size);
        AParcel_writeInt32(parcel.get(), 1);
        AParcel_setDataPosition(parcel.get(), 0);
        TorqRequestData d;
        EXPECT_EQ(d.readFromParcel(parcel.get()), STATUS_BAD_VALUE) << "size " << size;
    }
    // start + size would overflow.
    ndk::ScopedAParcel parcel = newParcel();
    AParcel_writeInt32(parcel.get(), 0);
    AParcel_writeInt32(parcel.get(), INT32_MAX);
    AParcel_setDataPosition(parcel.get(), 4);
    TorqRequestData d;
    EXPECT_EQ(d.readFromParcel(parcel.get()), STATUS_BAD_VALUE);
    // Nothing at all.
    ndk::ScopedAParcel empty = newParcel();
    EXPECT_NE(d.readFromParcel(empty.get()), STATUS_OK);
}

// A TorqRequestParcel whose `data` vector is written by `writeData`.
binder_status_t readParcelWithData(const std::function<void(AParcel*)>& writeData) {
    ndk::ScopedAParcel parcel = newParcel();
    AParcel_writeInt32(parcel.get(), 0);
    AParcel_writeInt32(parcel.get(), 1);  // kind
    writeData(parcel.get());
    patchSize(parcel.get(), 0, AParcel_getDataPosition(parcel.get()) + 64);
    AParcel_setDataPosition(parcel.get(), 0);
    TorqRequestParcel p;
    return p.readFromParcel(parcel.get());
}

TEST(TorqRequestParcelParcel, RejectsBadLengthsNullEntriesAndTruncatedStrings) {
    // Vector lengths: -1 is null (not allowed for `data`), other negatives and huge ones are bad.
    for (int32_t length : {-1, -2, INT32_MIN, 1000001, INT32_MAX}) {
        EXPECT_NE(readParcelWithData([&](AParcel* p) { AParcel_writeInt32(p, length); }), STATUS_OK)
                << "length " << length;
    }
    // An entry marked null inside a non-null vector.
    EXPECT_NE(readParcelWithData([](AParcel* p) {
                  AParcel_writeInt32(p, 1);
                  AParcel_writeInt32(p, 0);
              }),
              STATUS_OK);
    // A string length beyond the data, and a negative one other than -1.
    for (int32_t length : {100, -5}) {
        EXPECT_NE(readParcelWithData([&](AParcel* p) {
                      AParcel_writeInt32(p, 1);   // one entry
                      AParcel_writeInt32(p, 1);   // present
                      AParcel_writeInt32(p, 40);  // its size
                      AParcel_writeInt32(p, 3);   // id
                      AParcel_writeInt32(p, 0);   // subId
                      AParcel_writeInt32(p, length);
                      AParcel_writeInt32(p, 0x00620061);  // "ab"
                  }),
                  STATUS_OK)
                << "string length " << length;
    }
}

std::vector<uint8_t> marshal(const AParcel* parcel) {
    std::vector<uint8_t> bytes(AParcel_getDataSize(parcel));
    EXPECT_EQ(AParcel_marshal(parcel, bytes.data(), 0, bytes.size()), STATUS_OK);
    return bytes;
}

TEST(TorqRequestParcelParcel, EveryTruncationOfAValidParcelIsAnError) {
    ndk::ScopedAParcel whole = newParcel();
    ASSERT_EQ(fullParcel().writeToParcel(whole.get()), STATUS_OK);
    std::vector<uint8_t> bytes = marshal(whole.get());
    ASSERT_FALSE(bytes.empty());
    for (size_t cut = 0; cut < bytes.size(); cut += 4) {
        ndk::ScopedAParcel part = newParcel();
        ASSERT_EQ(AParcel_unmarshal(part.get(), bytes.data(), cut), STATUS_OK);
        AParcel_setDataPosition(part.get(), 0);
        TorqRequestParcel p;
        EXPECT_NE(p.readFromParcel(part.get()), STATUS_OK) << "cut at " << cut;
    }
}

TEST(TorqRequestParcelParcel, CorruptedBytesNeverCrashTheReader) {
    ndk::ScopedAParcel whole = newParcel();
    ASSERT_EQ(fullParcel().writeToParcel(whole.get()), STATUS_OK);
    const std::vector<uint8_t> bytes = marshal(whole.get());
    std::mt19937 rng(20240601);
    const int32_t interesting[] = {0, -1, 1, 3, 4, INT32_MAX, INT32_MIN, 1000000, 0x7fff};
    int accepted = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> mutated = bytes;
        int changes = 1 + static_cast<int>(rng() % 3);
        for (int c = 0; c < changes; ++c) {
            size_t word = rng() % (mutated.size() / 4);
            int32_t v = rng() % 2 ? interesting[rng() % std::size(interesting)]
                                  : static_cast<int32_t>(rng());
            std::memcpy(&mutated[word * 4], &v, 4);
        }
        if (rng() % 4 == 0) mutated.resize(rng() % mutated.size());
        ndk::ScopedAParcel parcel = newParcel();
        ASSERT_EQ(AParcel_unmarshal(parcel.get(), mutated.data(), mutated.size()), STATUS_OK);
        AParcel_setDataPosition(parcel.get(), 0);
        TorqRequestParcel p;
        if (p.readFromParcel(parcel.get()) == STATUS_OK) {
            ++accepted;
            int32_t size = 0;
            std::memcpy(&size, mutated.data(), 4);
            if (static_cast<size_t>(size) <= mutated.size()) {
                EXPECT_EQ(AParcel_getDataPosition(parcel.get()), size);
            }
        }
    }
    // Changing a value field (not a length) must still read: the reader is not just failing.
    EXPECT_GT(accepted, 0);
}

TEST(TorqRequestParcelParcel, ToStringNamesEveryFieldAndShowsNulls) {
    TorqRequestParcel p = fullParcel();
    std::string s = p.toString();
    for (const char* field : {"kind: 8", "flag: true", "option: -1", "duration: ", "extras: [",
                              "param: 2147483647", "callback: (null)", "pkg: com.example.game",
                              "numbers: [1, -2, 2147483647]", "TorqRequestData{id: 16844960"}) {
        EXPECT_NE(s.find(field), std::string::npos) << field << " not in " << s;
    }
    TorqRequestData d;
    EXPECT_EQ(d.toString(),
              "TorqRequestData{id: 0, subId: 0, value: (null), path: (null), extra: (null)}");
}

TEST(TorqRequestDataParcel, ComparisonCoversEveryField) {
    TorqRequestData a;
    a.value = "";
    TorqRequestData absent;
    EXPECT_NE(a, absent);  // present-empty differs from absent
    TorqRequestData b = a;
    b.extra = "x";
    EXPECT_NE(a, b);
    EXPECT_LT(absent, a);
    TorqRequestParcel p1, p2;
    p2.numbers = std::vector<int32_t>{};
    EXPECT_NE(p1, p2);
}

}  // namespace
