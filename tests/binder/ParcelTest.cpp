// Parcel layout, round trips of every type, and rejection of malformed data.

#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "BinderTestSupport.h"

namespace {

using binder_test::BinderTest;

// A parcelable, to exercise the presence marker and arrays around it.
struct Record {
    int32_t id = 0;
    std::optional<std::string> value;

    binder_status_t writeToParcel(AParcel* parcel) const {
        AParcel_writeInt32(parcel, id);
        return ndk::AParcel_writeNullableData(parcel, value);
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        binder_status_t status = AParcel_readInt32(parcel, &id);
        return status != STATUS_OK ? status : ndk::AParcel_readNullableData(parcel, &value);
    }
    bool operator==(const Record& other) const { return id == other.id && value == other.value; }
};

class ParcelTest : public BinderTest {
  protected:
    void SetUp() override {
        BinderTest::SetUp();
        parcel.set(AParcel_create());
    }
    std::vector<int32_t> words() {
        std::vector<int32_t> result(static_cast<size_t>(AParcel_getDataSize(parcel.get())) / 4);
        EXPECT_EQ(STATUS_OK, AParcel_marshal(parcel.get(), reinterpret_cast<uint8_t*>(result.data()),
                                             0, result.size() * 4));
        return result;
    }
    // A parcel holding exactly `raw`, positioned at its start.
    const AParcel* withWords(const std::vector<int32_t>& raw) {
        AParcel_reset(parcel.get());
        for (int32_t word : raw) AParcel_writeInt32(parcel.get(), word);
        rewind();
        return parcel.get();
    }
    void rewind() { AParcel_setDataPosition(parcel.get(), 0); }
    // Writes `value` and reads it back through the generated-code helpers (the nullable ones
    // fall back to the plain ones for plain types); the read must consume exactly what was
    // written.
    template <typename T>
    void expectRoundTrip(const T& value) {
        AParcel_reset(parcel.get());
        EXPECT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(parcel.get(), value));
        EXPECT_EQ(0, AParcel_getDataSize(parcel.get()) % 4);
        rewind();
        T result{};
        EXPECT_EQ(STATUS_OK, ndk::AParcel_readNullableData(parcel.get(), &result));
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), AParcel_getDataPosition(parcel.get()));
        EXPECT_EQ(value, result);
    }

    ndk::ScopedAParcel parcel;
};

TEST_F(ParcelTest, EveryTypeHasItsWireLayout) {
    AParcel* p = parcel.get();
    AParcel_writeBool(p, true);
    AParcel_writeChar(p, u'\u20ac');
    AParcel_writeByte(p, -2);
    AParcel_writeInt64(p, -1);
    ndk::AParcel_writeData(p, std::string("abc"));
    ndk::AParcel_writeNullableData(p, std::optional<std::string>());
    ndk::AParcel_writeData(p, std::string("\xf0\x9f\x98\x80"));
    ndk::AParcel_writeData(p, std::vector<bool>{true, false});
    ndk::AParcel_writeData(p, std::vector<uint8_t>{1, 2, 3, 4, 5});
    ndk::AParcel_writeNullableData(p, std::optional<std::vector<int32_t>>());
    ndk::AParcel_writeData(p, Record{9, "v"});
    ndk::AParcel_writeNullableData(p, std::optional<Record>());
    // Narrow scalars take a whole int32. A string is its length in UTF-16 units, then the units
    // and a terminating 0 padded to four bytes (an emoji is a surrogate pair); a null string is
    // -1. Bools in arrays take an int32 each, bytes are packed and padded; a null array is -1.
    // A parcelable follows a 1; a null one is 0.
    constexpr int32_t kAb = 'a' | ('b' << 16), kEmoji = static_cast<int32_t>(0xde00d83d);
    EXPECT_EQ((std::vector<int32_t>{1, 0x20ac, -2, -1, -1,         3, kAb, 'c', -1, 2, kEmoji, 0,
                                    2, 1,      0,  5,  0x04030201, 5, -1,  1,   9,  1, 'v',    0}),
              words());
    Record record;
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(withWords({0}), &record));
}

// The types no interface of the conformance tests (tests/conformance) carries; strings of every
// width are the parcelables fuzz corpus's.
TEST_F(ParcelTest, EveryOtherTypeRoundTrips) {
    expectRoundTrip(uint32_t{0xfffffff0u});
    expectRoundTrip(UINT64_MAX - 1);
    expectRoundTrip(1.5f);
    expectRoundTrip(-2.25);
    expectRoundTrip(u'\u20ac');
    expectRoundTrip(int8_t{-2});
    expectRoundTrip(std::vector<double>{0.5, -1});
    expectRoundTrip(std::vector<bool>{true, false, true});
    expectRoundTrip(std::vector<char16_t>{u'x', u'\u4e2d'});
    expectRoundTrip(std::vector<uint8_t>{1, 2, 3, 4, 5});
    using Records = std::optional<std::vector<std::optional<Record>>>;
    expectRoundTrip(Records(std::vector<std::optional<Record>>{Record{4, "four"}, std::nullopt}));
}

// Malformed text is refused both ways. Bad lengths and unpaired surrogates are the parcelables
// fuzz corpus's (a reader that took them would crash or hand out text it cannot write again),
// truncated arrays the conformance tests', which cut parcels anywhere.
TEST_F(ParcelTest, MalformedTextAndMissingValuesAreRefused) {
    for (const std::string& bad :
         {std::string("\xc3"), std::string("\x80"), std::string("\xc0\xaf"),
          std::string("\xed\xa0\x80"), std::string("\xf4\x90\x80\x80"), std::string("a\xe2\x82")}) {
        AParcel_reset(parcel.get());
        EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_writeData(parcel.get(), bad)) << bad.size();
    }
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AParcel_writeString(parcel.get(), nullptr, 3));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeString(parcel.get(), "x", -2));

    std::string text;
    const std::vector<int32_t> unterminated = {1, 'a' | ('b' << 16)};
    EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_readData(withWords(unterminated), &text));
    // Null where the type has no null.
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(withWords({-1}), &text));
    std::vector<int32_t> ints;
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(withWords({-1}), &ints));
    std::optional<std::vector<int32_t>> maybeInts;  // below null is no null
    EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_readNullableData(withWords({-2}), &maybeInts));
}

// Binders in parcels cross between processes in the conformance tests; what those cannot show:
TEST_F(ParcelTest, BindersCannotBeForgedAndGoWithTheirBytes) {
    std::atomic<int> destroyed{0};
    ndk::SpAIBinder binder = binder_test::makeBinder(nullptr, &destroyed);
    ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(parcel.get(), binder));

    // Plain data is never taken for a binder, even when it copies a binder's bytes.
    ndk::ScopedAParcel copy(AParcel_create());
    AParcel_writeInt32(copy.get(), 0);
    AParcel_appendFrom(parcel.get(), copy.get(), 0, 8);  // carries the binder along
    AParcel_writeInt32(copy.get(), 0x424e4452);          // forged tag
    AParcel_writeInt32(copy.get(), 0);
    AParcel_setDataPosition(copy.get(), 4);
    ndk::SpAIBinder read;
    EXPECT_EQ(STATUS_OK, ndk::AParcel_readData(copy.get(), &read));
    EXPECT_EQ(binder.get(), read.get());
    EXPECT_EQ(STATUS_BAD_TYPE, ndk::AParcel_readData(copy.get(), &read));
    uint8_t bytes[4];
    EXPECT_EQ(STATUS_INVALID_OPERATION,
              AParcel_marshal(copy.get(), bytes, 0, 4));  // binders cannot be flattened

    // Overwriting a binder's bytes drops it; deleting parcels drops the rest, for good.
    read.set(nullptr);
    rewind();
    AParcel_writeInt64(parcel.get(), 0);
    EXPECT_EQ(2, AIBinder_debugGetRefCount(binder.get()));  // ours + the copy's
    copy.set(nullptr);
    EXPECT_EQ(1, AIBinder_debugGetRefCount(binder.get()));
    binder.set(nullptr);
    EXPECT_EQ(1, destroyed.load());
    EXPECT_EQ(nullptr, weak.promote().get());  // not resurrected
}

// Statuses of every kind cross in headers in the stub tests (tests/aidl); what they cannot show:
TEST_F(ParcelTest, FailedTransactionsAndTruncatedHeadersAreNoStatus) {
    // A failed transaction is not written: its status becomes the transaction's result.
    ndk::ScopedAStatus failed = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_EQ(STATUS_DEAD_OBJECT, AParcel_writeStatusHeader(parcel.get(), failed.get()));
    EXPECT_EQ(0, AParcel_getDataSize(parcel.get()));

    ndk::ScopedAStatus read;
    EXPECT_NE(STATUS_OK, AParcel_readStatusHeader(withWords({EX_SERVICE_SPECIFIC}), read.getR()));
    EXPECT_EQ(nullptr, read.get());
}

}  // namespace
