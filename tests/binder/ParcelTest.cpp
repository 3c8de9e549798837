// Parcel layout, rejection of malformed data, and binders held by parcels.

#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "BinderTestSupport.h"

namespace {

using binder_test::BinderTest;

// A parcelable, to show the presence marker.
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
        AParcel_setDataPosition(parcel.get(), 0);
        return parcel.get();
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

// A binder in a parcel is a reference: overwriting its bytes or deleting the parcel drops it, for
// good (a weak reference cannot bring the object back).
TEST_F(ParcelTest, BindersInParcelsAreReferences) {
    std::atomic<int> destroyed{0};
    ndk::SpAIBinder binder = binder_test::makeBinder(nullptr, &destroyed);
    ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    ndk::ScopedAParcel copy(AParcel_create());
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(parcel.get(), binder));
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(copy.get(), binder));
    EXPECT_EQ(3, AIBinder_debugGetRefCount(binder.get()));
    AParcel_setDataPosition(parcel.get(), 0);
    AParcel_writeInt64(parcel.get(), 0);
    EXPECT_EQ(2, AIBinder_debugGetRefCount(binder.get()));
    copy.set(nullptr);
    EXPECT_EQ(1, AIBinder_debugGetRefCount(binder.get()));
    binder.set(nullptr);
    EXPECT_EQ(1, destroyed.load());
    EXPECT_EQ(nullptr, weak.promote().get());
}

}  // namespace
