// Parcel layout, round trips of every type, and rejection of malformed data.

#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "BinderTestSupport.h"

namespace {

using binder_test::BinderTest;

// A parcelable written the way generated code writes one: size header, fields, patched size.
struct Record {
    int32_t id = 0;
    std::optional<std::string> value;

    binder_status_t writeToParcel(AParcel* parcel) const {
        const int32_t start = AParcel_getDataPosition(parcel);
        binder_status_t status = AParcel_writeInt32(parcel, 0);
        if (status != STATUS_OK) return status;
        if ((status = ndk::AParcel_writeData(parcel, id)) != STATUS_OK) return status;
        if ((status = ndk::AParcel_writeNullableData(parcel, value)) != STATUS_OK) return status;
        const int32_t end = AParcel_getDataPosition(parcel);
        AParcel_setDataPosition(parcel, start);
        AParcel_writeInt32(parcel, end - start);
        AParcel_setDataPosition(parcel, end);
        return STATUS_OK;
    }
    binder_status_t readFromParcel(const AParcel* parcel) {
        const int32_t start = AParcel_getDataPosition(parcel);
        int32_t size = 0;
        binder_status_t status = AParcel_readInt32(parcel, &size);
        if (status != STATUS_OK) return status;
        if (size < 4) return STATUS_BAD_VALUE;
        if ((status = ndk::AParcel_readData(parcel, &id)) != STATUS_OK) return status;
        if ((status = ndk::AParcel_readNullableData(parcel, &value)) != STATUS_OK) return status;
        AParcel_setDataPosition(parcel, start + size);
        return STATUS_OK;
    }
    bool operator==(const Record& other) const { return id == other.id && value == other.value; }
};

class ParcelTest : public BinderTest {
  protected:
    void SetUp() override {
        BinderTest::SetUp();
        parcel.reset(AParcel_create());
    }
    // Raw int32 words of the whole parcel.
    std::vector<int32_t> words() {
        std::vector<int32_t> result(static_cast<size_t>(AParcel_getDataSize(parcel.get())) / 4);
        std::vector<uint8_t> bytes(result.size() * 4);
        EXPECT_EQ(STATUS_OK, AParcel_marshal(parcel.get(), bytes.data(), 0, bytes.size()));
        std::memcpy(result.data(), bytes.data(), bytes.size());
        return result;
    }
    void rewind() { AParcel_setDataPosition(parcel.get(), 0); }
    // Writes `value` and reads it back through the generated-code helpers.
    template <typename T>
    T roundTrip(const T& value) {
        return roundTripWith(
                value, [](AParcel* p, const T& v) { return ndk::AParcel_writeData(p, v); },
                [](const AParcel* p, T* v) { return ndk::AParcel_readData(p, v); });
    }
    template <typename T>
    T roundTripNullable(const T& value) {
        return roundTripWith(
                value, [](AParcel* p, const T& v) { return ndk::AParcel_writeNullableData(p, v); },
                [](const AParcel* p, T* v) { return ndk::AParcel_readNullableData(p, v); });
    }
    template <typename T, typename Write, typename Read>
    T roundTripWith(const T& value, Write write, Read read) {
        AParcel_reset(parcel.get());
        EXPECT_EQ(STATUS_OK, write(parcel.get(), value));
        EXPECT_EQ(0, AParcel_getDataSize(parcel.get()) % 4);
        rewind();
        T result{};
        EXPECT_EQ(STATUS_OK, read(parcel.get(), &result));
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), AParcel_getDataPosition(parcel.get()));
        return result;
    }

    ndk::ScopedAParcel parcel;
};

TEST_F(ParcelTest, ScalarsArePaddedToFourBytesAndRoundTrip) {
    AParcel* p = parcel.get();
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(p, -7));
    ASSERT_EQ(STATUS_OK, AParcel_writeUint32(p, 0xfffffff0u));
    ASSERT_EQ(STATUS_OK, AParcel_writeInt64(p, INT64_MIN + 3));
    ASSERT_EQ(STATUS_OK, AParcel_writeUint64(p, UINT64_MAX - 1));
    ASSERT_EQ(STATUS_OK, AParcel_writeFloat(p, 1.5f));
    ASSERT_EQ(STATUS_OK, AParcel_writeDouble(p, -2.25));
    ASSERT_EQ(STATUS_OK, AParcel_writeBool(p, true));
    ASSERT_EQ(STATUS_OK, AParcel_writeChar(p, u'\u20ac'));
    ASSERT_EQ(STATUS_OK, AParcel_writeByte(p, -2));
    // bool, char and byte each take a whole int32.
    EXPECT_EQ(4 + 4 + 8 + 8 + 4 + 8 + 4 + 4 + 4, AParcel_getDataSize(p));
    EXPECT_EQ(1, words()[9]);
    EXPECT_EQ(-2, words()[11]);

    rewind();
    int32_t i32;
    uint32_t u32;
    int64_t i64;
    uint64_t u64;
    float f;
    double d;
    bool b;
    char16_t c;
    int8_t byte;
    EXPECT_EQ(STATUS_OK, AParcel_readInt32(p, &i32));
    EXPECT_EQ(STATUS_OK, AParcel_readUint32(p, &u32));
    EXPECT_EQ(STATUS_OK, AParcel_readInt64(p, &i64));
    EXPECT_EQ(STATUS_OK, AParcel_readUint64(p, &u64));
    EXPECT_EQ(STATUS_OK, AParcel_readFloat(p, &f));
    EXPECT_EQ(STATUS_OK, AParcel_readDouble(p, &d));
    EXPECT_EQ(STATUS_OK, AParcel_readBool(p, &b));
    EXPECT_EQ(STATUS_OK, AParcel_readChar(p, &c));
    EXPECT_EQ(STATUS_OK, AParcel_readByte(p, &byte));
    EXPECT_EQ(-7, i32);
    EXPECT_EQ(0xfffffff0u, u32);
    EXPECT_EQ(INT64_MIN + 3, i64);
    EXPECT_EQ(UINT64_MAX - 1, u64);
    EXPECT_EQ(1.5f, f);
    EXPECT_EQ(-2.25, d);
    EXPECT_TRUE(b);
    EXPECT_EQ(u'\u20ac', c);
    EXPECT_EQ(-2, byte);
}

TEST_F(ParcelTest, ReadingPastTheEndFailsAndKeepsThePosition) {
    ASSERT_EQ(STATUS_OK, AParcel_writeInt32(parcel.get(), 5));
    rewind();
    int64_t wide = 0;
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt64(parcel.get(), &wide));
    EXPECT_EQ(0, AParcel_getDataPosition(parcel.get()));
    int32_t value = 0;
    EXPECT_EQ(STATUS_OK, AParcel_readInt32(parcel.get(), &value));
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt32(parcel.get(), &value));
    std::string text;
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, ndk::AParcel_readData(parcel.get(), &text));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_setDataPosition(parcel.get(), -1));
    // Seeking beyond the end is allowed, reading there is not.
    EXPECT_EQ(STATUS_OK, AParcel_setDataPosition(parcel.get(), 1000));
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AParcel_readInt32(parcel.get(), &value));
}

TEST_F(ParcelTest, StringsTravelAsUtf16WithLengthAndTerminator) {
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(parcel.get(), std::string("abc")));
    // length 3, then 'a' 'b' 'c' 0 as UTF-16 in two words.
    const std::vector<int32_t> w = words();
    ASSERT_EQ(3u, w.size());
    EXPECT_EQ(3, w[0]);
    EXPECT_EQ('a' | ('b' << 16), w[1]);
    EXPECT_EQ('c', w[2]);

    AParcel_reset(parcel.get());
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(parcel.get(), std::optional<std::string>()));
    EXPECT_EQ(std::vector<int32_t>{-1}, words());
}

TEST_F(ParcelTest, StringRoundTripsIncludingMultibyteEmptyAndNull) {
    for (const std::string& text :
         {std::string(), std::string("plain"), std::string("caf\xc3\xa9"),
          std::string("\xe4\xb8\xad\xe6\x96\x87"), std::string("smile \xf0\x9f\x98\x80 end"),
          std::string("nul\0inside", 10)}) {
        EXPECT_EQ(text, roundTrip(text));
        EXPECT_EQ(std::optional<std::string>(text),
                  roundTripNullable(std::optional<std::string>(text)));
    }
    EXPECT_EQ(std::nullopt, roundTripNullable(std::optional<std::string>()));

    // The emoji takes a surrogate pair: 2 UTF-16 units.
    AParcel_reset(parcel.get());
    ndk::AParcel_writeData(parcel.get(), std::string("\xf0\x9f\x98\x80"));
    EXPECT_EQ(2, words()[0]);
}

TEST_F(ParcelTest, InvalidUtf8IsRefusedOnWrite) {
    for (const std::string& bad :
         {std::string("\xc3"), std::string("\x80"), std::string("\xc0\xaf"),
          std::string("\xed\xa0\x80"), std::string("\xf4\x90\x80\x80"), std::string("a\xe2\x82")}) {
        AParcel_reset(parcel.get());
        EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_writeData(parcel.get(), bad)) << bad.size();
    }
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AParcel_writeString(parcel.get(), nullptr, 3));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeString(parcel.get(), "x", -2));
}

TEST_F(ParcelTest, MalformedStringsAreRefusedOnRead) {
    std::string out;
    // An unpaired high surrogate.
    AParcel_writeInt32(parcel.get(), 1);
    AParcel_writeInt32(parcel.get(), 0xd800);
    rewind();
    EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_readData(parcel.get(), &out));
    EXPECT_EQ(0, AParcel_getDataPosition(parcel.get()));

    // A missing terminator.
    AParcel_reset(parcel.get());
    AParcel_writeInt32(parcel.get(), 1);
    AParcel_writeInt32(parcel.get(), 'a' | ('b' << 16));
    rewind();
    EXPECT_EQ(STATUS_BAD_VALUE, ndk::AParcel_readData(parcel.get(), &out));

    // A length beyond the data, and a negative length other than -1.
    for (int32_t length : {100, INT32_MAX, -2}) {
        AParcel_reset(parcel.get());
        AParcel_writeInt32(parcel.get(), length);
        AParcel_writeInt32(parcel.get(), 'a');
        rewind();
        EXPECT_NE(STATUS_OK, ndk::AParcel_readData(parcel.get(), &out)) << length;
    }

    // Null where a string is required.
    AParcel_reset(parcel.get());
    AParcel_writeString(parcel.get(), nullptr, -1);
    rewind();
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(parcel.get(), &out));
}

TEST_F(ParcelTest, VectorsOfEveryElementTypeRoundTrip) {
    EXPECT_EQ(std::vector<int32_t>({1, -2, INT32_MAX}),
              roundTrip(std::vector<int32_t>{1, -2, INT32_MAX}));
    EXPECT_EQ(std::vector<int32_t>(), roundTrip(std::vector<int32_t>()));
    EXPECT_EQ(std::vector<int64_t>({INT64_MIN, 0}), roundTrip(std::vector<int64_t>{INT64_MIN, 0}));
    EXPECT_EQ(std::vector<uint64_t>({7}), roundTrip(std::vector<uint64_t>{7}));
    EXPECT_EQ(std::vector<double>({0.5, -1}), roundTrip(std::vector<double>{0.5, -1}));
    EXPECT_EQ(std::vector<float>({0.25f}), roundTrip(std::vector<float>{0.25f}));
    EXPECT_EQ(std::vector<bool>({true, false, true}),
              roundTrip(std::vector<bool>{true, false, true}));
    EXPECT_EQ(std::vector<char16_t>({u'x', u'\u4e2d'}),
              roundTrip(std::vector<char16_t>{u'x', u'\u4e2d'}));
    EXPECT_EQ(std::vector<uint8_t>({1, 2, 3, 4, 5}), roundTrip(std::vector<uint8_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(std::vector<std::string>({"a", "", "\xc3\xa9"}),
              roundTrip(std::vector<std::string>{"a", "", "\xc3\xa9"}));
    const std::vector<Record> records = {Record{1, "one"}, Record{2, std::nullopt}};
    EXPECT_EQ(records, roundTrip(records));

    using NullableStrings = std::optional<std::vector<std::optional<std::string>>>;
    const NullableStrings extras = std::vector<std::optional<std::string>>{"x", std::nullopt, ""};
    EXPECT_EQ(extras, roundTripNullable(extras));
    EXPECT_EQ(NullableStrings(), roundTripNullable(NullableStrings()));
    EXPECT_EQ(NullableStrings(std::vector<std::optional<std::string>>()),
              roundTripNullable(NullableStrings(std::vector<std::optional<std::string>>())));

    using NullableInts = std::optional<std::vector<int32_t>>;
    EXPECT_EQ(NullableInts(), roundTripNullable(NullableInts()));
    EXPECT_EQ(NullableInts(std::vector<int32_t>{3}),
              roundTripNullable(NullableInts(std::vector<int32_t>{3})));
    using NullableRecords = std::optional<std::vector<std::optional<Record>>>;
    const NullableRecords maybe =
            std::vector<std::optional<Record>>{Record{4, "four"}, std::nullopt};
    EXPECT_EQ(maybe, roundTripNullable(maybe));
}

TEST_F(ParcelTest, ArrayLayoutUsesLengthPrefixAndNullMinusOne) {
    ndk::AParcel_writeData(parcel.get(), std::vector<bool>{true, false});
    ndk::AParcel_writeData(parcel.get(), std::vector<uint8_t>{1, 2, 3, 4, 5});
    ndk::AParcel_writeNullableData(parcel.get(), std::optional<std::vector<int32_t>>());
    const std::vector<int32_t> w = words();
    // bools as int32 each; bytes packed and padded; null as -1.
    ASSERT_EQ(7u, w.size());
    EXPECT_EQ(2, w[0]);
    EXPECT_EQ(1, w[1]);
    EXPECT_EQ(0, w[2]);
    EXPECT_EQ(5, w[3]);
    EXPECT_EQ(0x04030201, w[4]);
    EXPECT_EQ(5, w[5]);
    EXPECT_EQ(-1, w[6]);
}

TEST_F(ParcelTest, NonNullParcelablesArePrecededByOne) {
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(parcel.get(), Record{9, "v"}));
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(parcel.get(), std::optional<Record>()));
    const std::vector<int32_t> w = words();
    EXPECT_EQ(1, w[0]);      // present
    EXPECT_EQ(4 * 4, w[1]);  // size header: itself, id, string length, "v\0"
    EXPECT_EQ(9, w[2]);
    EXPECT_EQ(0, w.back());  // the null parcelable

    // A required parcelable that arrives null.
    rewind();
    AParcel_writeInt32(parcel.get(), 0);
    rewind();
    Record record;
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(parcel.get(), &record));
}

TEST_F(ParcelTest, MalformedArrayLengthsAreRefused) {
    std::vector<int32_t> ints;
    std::vector<std::string> strings;
    std::vector<Record> records;
    struct Case {
        int32_t length;
        binder_status_t expected;
    };
    for (const Case& c : {Case{-2, STATUS_BAD_VALUE}, Case{1000001, STATUS_NO_MEMORY},
                          Case{999999, STATUS_NOT_ENOUGH_DATA}, Case{3, STATUS_NOT_ENOUGH_DATA}}) {
        AParcel_reset(parcel.get());
        AParcel_writeInt32(parcel.get(), c.length);
        AParcel_writeInt32(parcel.get(), 1);
        rewind();
        EXPECT_EQ(c.expected, ndk::AParcel_readData(parcel.get(), &ints)) << c.length;
        EXPECT_EQ(0, AParcel_getDataPosition(parcel.get()));
        EXPECT_EQ(c.expected, ndk::AParcel_readData(parcel.get(), &strings)) << c.length;
        EXPECT_EQ(c.expected, ndk::AParcel_readData(parcel.get(), &records)) << c.length;
    }
    // Null where an array is required.
    AParcel_reset(parcel.get());
    AParcel_writeInt32(parcel.get(), -1);
    rewind();
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_readData(parcel.get(), &ints));
    // A truncated element inside an otherwise valid array.
    AParcel_reset(parcel.get());
    ndk::AParcel_writeData(parcel.get(), std::vector<std::string>{"abcdef", "ghijkl"});
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(parcel.get())));
    AParcel_marshal(parcel.get(), bytes.data(), 0, bytes.size());
    AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size() - 4);
    EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, ndk::AParcel_readData(parcel.get(), &strings));
    // Writers refuse inconsistent lengths.
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeInt32Array(parcel.get(), nullptr, 2));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_writeInt32Array(parcel.get(), ints.data(), -5));
}

TEST_F(ParcelTest, OutVectorSizesAreBounded) {
    std::vector<int32_t> out;
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeVectorSize(parcel.get(), std::vector<int32_t>(3)));
    AParcel_writeInt32(parcel.get(), 1000001);
    AParcel_writeInt32(parcel.get(), -1);
    rewind();
    EXPECT_EQ(STATUS_OK, ndk::AParcel_resizeVector(parcel.get(), &out));
    EXPECT_EQ(3u, out.size());
    EXPECT_EQ(STATUS_NO_MEMORY, ndk::AParcel_resizeVector(parcel.get(), &out));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, ndk::AParcel_resizeVector(parcel.get(), &out));
}

TEST_F(ParcelTest, BindersAreKeptByReferenceAndCannotBeForged) {
    std::atomic<int> destroyed{0};
    ndk::SpAIBinder binder = binder_test::makeBinder(nullptr, &destroyed);
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeData(parcel.get(), binder));
    ASSERT_EQ(STATUS_OK, ndk::AParcel_writeNullableData(parcel.get(), ndk::SpAIBinder()));
    EXPECT_EQ(2, AIBinder_debugGetRefCount(binder.get()));
    rewind();
    ndk::SpAIBinder read;
    ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(parcel.get(), &read));
    EXPECT_EQ(binder.get(), read.get());
    ASSERT_EQ(STATUS_OK, ndk::AParcel_readNullableData(parcel.get(), &read));
    EXPECT_EQ(nullptr, read.get());

    // Plain data is never taken for a binder, even when it copies a binder's bytes.
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(parcel.get())));
    ndk::ScopedAParcel copy(AParcel_create());
    AParcel_writeInt32(copy.get(), 0);
    AParcel_appendFrom(parcel.get(), copy.get(), 0, 8);  // carries the binder along
    AParcel_writeInt32(copy.get(), 0x424e4452);          // forged tag
    AParcel_writeInt32(copy.get(), 0);
    AParcel_setDataPosition(copy.get(), 4);
    EXPECT_EQ(STATUS_OK, ndk::AParcel_readData(copy.get(), &read));
    EXPECT_EQ(binder.get(), read.get());
    EXPECT_EQ(STATUS_BAD_TYPE, ndk::AParcel_readData(copy.get(), &read));
    EXPECT_EQ(STATUS_INVALID_OPERATION,
              AParcel_marshal(copy.get(), bytes.data(), 0, 4));  // binders cannot be flattened

    // Overwriting a binder's bytes drops it; deleting parcels drops the rest.
    read.set(nullptr);
    AParcel_setDataPosition(parcel.get(), 0);
    AParcel_writeInt64(parcel.get(), 0);
    EXPECT_EQ(2, AIBinder_debugGetRefCount(binder.get()));  // ours + the copy's
    copy.reset();
    EXPECT_EQ(1, AIBinder_debugGetRefCount(binder.get()));
    binder.set(nullptr);
    EXPECT_EQ(1, destroyed.load());
}

TEST_F(ParcelTest, StatusHeaderRoundTripsEveryKindOfStatus) {
    const std::vector<AStatus*> statuses = {
            AStatus_newOk(),
            AStatus_fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, "bad state"),
            AStatus_fromServiceSpecificErrorWithMessage(42, "specific"),
            AStatus_fromExceptionCode(EX_NULL_POINTER),
    };
    for (AStatus* original : statuses) {
        AParcel_reset(parcel.get());
        ASSERT_EQ(STATUS_OK, AParcel_writeStatusHeader(parcel.get(), original));
        AParcel_writeInt32(parcel.get(), 77);  // what follows stays readable
        rewind();
        ndk::ScopedAStatus read;
        ASSERT_EQ(STATUS_OK, AParcel_readStatusHeader(parcel.get(), read.getR()));
        EXPECT_EQ(AStatus_getExceptionCode(original), read.getExceptionCode());
        EXPECT_STREQ(AStatus_getMessage(original), read.getMessage());
        EXPECT_EQ(AStatus_getServiceSpecificError(original), read.getServiceSpecificError());
        int32_t next = 0;
        EXPECT_EQ(STATUS_OK, AParcel_readInt32(parcel.get(), &next));
        EXPECT_EQ(77, next);
        AStatus_delete(original);
    }

    // A failed transaction is not written: its status becomes the transaction's result.
    AParcel_reset(parcel.get());
    ndk::ScopedAStatus failed = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_EQ(STATUS_DEAD_OBJECT, AParcel_writeStatusHeader(parcel.get(), failed.get()));
    EXPECT_EQ(0, AParcel_getDataSize(parcel.get()));

    // A truncated header is an error, not a status.
    AParcel_writeInt32(parcel.get(), EX_SERVICE_SPECIFIC);
    rewind();
    ndk::ScopedAStatus read;
    EXPECT_NE(STATUS_OK, AParcel_readStatusHeader(parcel.get(), read.getR()));
    EXPECT_EQ(nullptr, read.get());
}

TEST_F(ParcelTest, AppendFromAndUnmarshalCopyTheRequestedRange) {
    for (int32_t v : {10, 20, 30}) AParcel_writeInt32(parcel.get(), v);
    ndk::ScopedAParcel other(AParcel_create());
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_appendFrom(parcel.get(), other.get(), 8, 8));
    ASSERT_EQ(STATUS_OK, AParcel_appendFrom(parcel.get(), other.get(), 4, 8));
    AParcel_setDataPosition(other.get(), 0);
    int32_t a = 0, b = 0;
    AParcel_readInt32(other.get(), &a);
    AParcel_readInt32(other.get(), &b);
    EXPECT_EQ(20, a);
    EXPECT_EQ(30, b);

    std::vector<uint8_t> bytes(12);
    ASSERT_EQ(STATUS_OK, AParcel_marshal(parcel.get(), bytes.data(), 0, bytes.size()));
    ASSERT_EQ(STATUS_OK, AParcel_unmarshal(other.get(), bytes.data(), bytes.size()));
    EXPECT_EQ(12, AParcel_getDataSize(other.get()));
    AParcel_readInt32(other.get(), &a);
    EXPECT_EQ(10, a);
}

}  // namespace
