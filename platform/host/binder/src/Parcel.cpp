// AParcel: data, padding, strings, arrays and the binder object table.

#include <android/binder_parcel.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>

#include "Internal.h"

using binder_host::internal::decStrong;
using binder_host::internal::incStrong;
using binder_host::internal::kMaxArrayLength;

namespace {

constexpr size_t pad4(size_t n) {
    return (n + 3) & ~static_cast<size_t>(3);
}

// A binder occupies 8 bytes in the data: a tag and a reserved word. Only the object table says
// which binder it is, so a reader can never forge one from plain data.
constexpr int32_t kTagNullBinder = 0x4e554c4c;  // "NULL"
constexpr int32_t kTagBinder = 0x424e4452;      // "BNDR"
constexpr size_t kBinderSize = 8;

// Interface token: strict-mode policy, work source uid, partition header, descriptor.
constexpr int32_t kStrictModePolicy = 0x42000004;
constexpr int32_t kUnsetWorkSource = -1;
constexpr int32_t kVendorHeader = 0x564e4452;  // 'VNDR'

// --- UTF-8 / UTF-16 --------------------------------------------------------------------------

// Decodes one code point starting at s[i]; returns the number of bytes used, or 0 when the
// sequence is malformed (truncated, bad continuation, overlong, surrogate, beyond U+10FFFF).
size_t decodeUtf8(const uint8_t* s, size_t len, size_t i, char32_t* out) {
    const uint8_t b0 = s[i];
    if (b0 < 0x80) {
        *out = b0;
        return 1;
    }
    size_t n;
    char32_t cp;
    char32_t min;
    if ((b0 & 0xe0) == 0xc0) {
        n = 2;
        cp = b0 & 0x1f;
        min = 0x80;
    } else if ((b0 & 0xf0) == 0xe0) {
        n = 3;
        cp = b0 & 0x0f;
        min = 0x800;
    } else if ((b0 & 0xf8) == 0xf0) {
        n = 4;
        cp = b0 & 0x07;
        min = 0x10000;
    } else {
        return 0;
    }
    if (i + n > len) return 0;
    for (size_t k = 1; k < n; ++k) {
        const uint8_t b = s[i + k];
        if ((b & 0xc0) != 0x80) return 0;
        cp = (cp << 6) | (b & 0x3f);
    }
    if (cp < min || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) return 0;
    *out = cp;
    return n;
}

// Number of UTF-16 units of a UTF-8 string, or -1 when it is not valid UTF-8.
int64_t utf16Length(const char* str, size_t len) {
    const auto* s = reinterpret_cast<const uint8_t*>(str);
    int64_t units = 0;
    for (size_t i = 0; i < len;) {
        char32_t cp;
        const size_t used = decodeUtf8(s, len, i, &cp);
        if (used == 0) return -1;
        units += cp >= 0x10000 ? 2 : 1;
        i += used;
    }
    return units;
}

// Writes the UTF-16 form of valid UTF-8 to `out` (unaligned-safe).
void utf8ToUtf16(const char* str, size_t len, uint8_t* out) {
    const auto* s = reinterpret_cast<const uint8_t*>(str);
    auto put = [&out](char16_t unit) {
        std::memcpy(out, &unit, sizeof(unit));
        out += sizeof(unit);
    };
    for (size_t i = 0; i < len;) {
        char32_t cp = 0;
        i += decodeUtf8(s, len, i, &cp);
        if (cp >= 0x10000) {
            cp -= 0x10000;
            put(static_cast<char16_t>(0xd800 + (cp >> 10)));
            put(static_cast<char16_t>(0xdc00 + (cp & 0x3ff)));
        } else {
            put(static_cast<char16_t>(cp));
        }
    }
}

char16_t unitAt(const uint8_t* data, size_t index) {
    char16_t unit;
    std::memcpy(&unit, data + index * sizeof(char16_t), sizeof(unit));
    return unit;
}

// Decodes UTF-16 unit `i`; returns the units used, or 0 for an unpaired surrogate.
size_t decodeUtf16(const uint8_t* data, size_t count, size_t i, char32_t* out) {
    const char16_t u = unitAt(data, i);
    if (u < 0xd800 || u > 0xdfff) {
        *out = u;
        return 1;
    }
    if (u >= 0xdc00 || i + 1 >= count) return 0;
    const char16_t low = unitAt(data, i + 1);
    if (low < 0xdc00 || low > 0xdfff) return 0;
    *out = 0x10000 + ((static_cast<char32_t>(u) - 0xd800) << 10) + (low - 0xdc00);
    return 2;
}

// UTF-8 length of `count` UTF-16 units, or -1 when they are not valid UTF-16.
int64_t utf8Length(const uint8_t* data, size_t count) {
    int64_t bytes = 0;
    for (size_t i = 0; i < count;) {
        char32_t cp;
        const size_t used = decodeUtf16(data, count, i, &cp);
        if (used == 0) return -1;
        bytes += cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
        i += used;
    }
    return bytes;
}

void utf16ToUtf8(const uint8_t* data, size_t count, char* out) {
    for (size_t i = 0; i < count;) {
        char32_t cp = 0;
        i += decodeUtf16(data, count, i, &cp);
        if (cp < 0x80) {
            *out++ = static_cast<char>(cp);
        } else if (cp < 0x800) {
            *out++ = static_cast<char>(0xc0 | (cp >> 6));
            *out++ = static_cast<char>(0x80 | (cp & 0x3f));
        } else if (cp < 0x10000) {
            *out++ = static_cast<char>(0xe0 | (cp >> 12));
            *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            *out++ = static_cast<char>(0x80 | (cp & 0x3f));
        } else {
            *out++ = static_cast<char>(0xf0 | (cp >> 18));
            *out++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
            *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            *out++ = static_cast<char>(0x80 | (cp & 0x3f));
        }
    }
}

// --- Scalars -----------------------------------------------------------------------------------

template <typename T>
binder_status_t writeValue(AParcel* parcel, T value) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    return parcel->writeRaw(&value, sizeof(value));
}

template <typename T>
binder_status_t readValue(const AParcel* parcel, T* value) {
    if (parcel == nullptr || value == nullptr) return STATUS_UNEXPECTED_NULL;
    return parcel->readRaw(value, sizeof(T));
}

// Restores the read position unless the read succeeded.
class PositionGuard {
  public:
    explicit PositionGuard(const AParcel* parcel) : mParcel(parcel), mStart(parcel->pos) {}
    ~PositionGuard() {
        if (!mCommitted) mParcel->pos = mStart;
    }
    binder_status_t commit(binder_status_t status) {
        mCommitted = status == STATUS_OK;
        return status;
    }

  private:
    const AParcel* mParcel;
    size_t mStart;
    bool mCommitted = false;
};

// Reads an array length: -1 is null, other negative values are malformed, and lengths beyond
// the limit or beyond what the remaining data could hold are refused before anything is
// allocated.
binder_status_t readLength(const AParcel* parcel, size_t minElementSize, int32_t* length) {
    binder_status_t status = parcel->readRaw(length, sizeof(*length));
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_BAD_VALUE;
    if (*length > kMaxArrayLength) return STATUS_NO_MEMORY;
    if (*length > 0 && static_cast<size_t>(*length) * minElementSize > parcel->available()) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    return STATUS_OK;
}

// Arrays whose elements are stored back to back with their own size (4 or 8 bytes).
template <typename T>
binder_status_t writeFlatArray(AParcel* parcel, const T* data, int32_t length) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (length < -1 || (length > 0 && data == nullptr)) return STATUS_BAD_VALUE;
    binder_status_t status = parcel->writeRaw(&length, sizeof(length));
    if (status != STATUS_OK || length <= 0) return status;
    return parcel->writeRaw(data, static_cast<size_t>(length) * sizeof(T));
}

template <typename T>
binder_status_t readFlatArray(const AParcel* parcel, void* arrayData,
                              bool (*allocator)(void*, int32_t, T**)) {
    if (parcel == nullptr || allocator == nullptr) return STATUS_UNEXPECTED_NULL;
    PositionGuard guard(parcel);
    int32_t length;
    binder_status_t status = readLength(parcel, sizeof(T), &length);
    if (status != STATUS_OK) return status;
    T* out = nullptr;
    if (length == -1) {
        return guard.commit(allocator(arrayData, -1, &out) ? STATUS_OK : STATUS_UNEXPECTED_NULL);
    }
    if (!allocator(arrayData, length, &out) || (length > 0 && out == nullptr)) {
        return STATUS_NO_MEMORY;
    }
    if (length == 0) return guard.commit(STATUS_OK);
    return guard.commit(parcel->readRaw(out, static_cast<size_t>(length) * sizeof(T)));
}

// Arrays whose elements each travel as an int32 (bool, char16_t).
template <typename Get>
binder_status_t writeWideArray(AParcel* parcel, bool isNull, int32_t length, Get get) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (length < -1 || (length >= 0 && isNull) || (length == -1 && !isNull)) {
        return STATUS_BAD_VALUE;
    }
    binder_status_t status = parcel->writeRaw(&length, sizeof(length));
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        const int32_t value = get(static_cast<size_t>(i));
        status = parcel->writeRaw(&value, sizeof(value));
    }
    return status;
}

binder_status_t writeString(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr) {
        if (length != -1) return STATUS_UNEXPECTED_NULL;
        const int32_t null = -1;
        return parcel->writeRaw(&null, sizeof(null));
    }
    if (length < 0) return STATUS_BAD_VALUE;
    const int64_t units = utf16Length(string, static_cast<size_t>(length));
    if (units < 0 || units >= INT32_MAX / 2) return STATUS_BAD_VALUE;
    const auto units32 = static_cast<int32_t>(units);
    binder_status_t status = parcel->writeRaw(&units32, sizeof(units32));
    if (status != STATUS_OK) return status;
    const size_t bytes = (static_cast<size_t>(units) + 1) * sizeof(char16_t);
    const size_t padded = pad4(bytes);
    uint8_t* out = parcel->reserve(padded);
    utf8ToUtf16(string, static_cast<size_t>(length), out);
    std::memset(out + bytes - sizeof(char16_t), 0, padded - bytes + sizeof(char16_t));
    parcel->commit(padded);
    return STATUS_OK;
}

// Reads a string into whatever `allocate(length8, &buffer)` provides; `allocateNull()` accepts
// or refuses a null string.
template <typename Allocate, typename AllocateNull>
binder_status_t readString(const AParcel* parcel, Allocate allocate, AllocateNull allocateNull) {
    PositionGuard guard(parcel);
    int32_t units;
    binder_status_t status = parcel->readRaw(&units, sizeof(units));
    if (status != STATUS_OK) return status;
    if (units == -1) return guard.commit(allocateNull() ? STATUS_OK : STATUS_UNEXPECTED_NULL);
    if (units < -1) return STATUS_BAD_VALUE;
    const size_t bytes = (static_cast<size_t>(units) + 1) * sizeof(char16_t);
    if (pad4(bytes) > parcel->available()) return STATUS_NOT_ENOUGH_DATA;
    const uint8_t* data = parcel->buffer.data() + parcel->pos;
    if (unitAt(data, static_cast<size_t>(units)) != 0) return STATUS_BAD_VALUE;
    const int64_t length8 = utf8Length(data, static_cast<size_t>(units));
    if (length8 < 0 || length8 >= INT32_MAX) return STATUS_BAD_VALUE;
    char* out = nullptr;
    if (!allocate(static_cast<int32_t>(length8 + 1), &out) || out == nullptr) {
        return STATUS_NO_MEMORY;
    }
    utf16ToUtf8(data, static_cast<size_t>(units), out);
    out[length8] = '\0';
    parcel->pos += pad4(bytes);
    return guard.commit(STATUS_OK);
}

}  // namespace

// --- Recycling ---------------------------------------------------------------------------------

namespace {

// Buffers above this size go back to the allocator rather than being kept by a thread.
constexpr size_t kMaxKeptBuffer = 16 * 1024;

struct ThreadSpares {
    std::unique_ptr<AParcel> parcel;  // empty, with its buffer kept
    std::vector<uint8_t> buffer;
};

thread_local ThreadSpares tSpares;

}  // namespace

namespace binder_host::internal {

AParcel* newParcel() {
    if (tSpares.parcel != nullptr) return tSpares.parcel.release();
    return new AParcel;
}

void recycleParcel(AParcel* parcel) {
    if (parcel == nullptr) return;
    if (tSpares.parcel != nullptr || parcel->buffer.size() > kMaxKeptBuffer) {
        delete parcel;
        return;
    }
    parcel->clear();
    parcel->target = nullptr;
    tSpares.parcel.reset(parcel);
}

void lendSpareBuffer(AParcel* reply) {
    if (reply->buffer.empty()) reply->buffer.swap(tSpares.buffer);
}

void keepSpareBuffer(AParcel* served) {
    if (!tSpares.buffer.empty() || served->buffer.size() > kMaxKeptBuffer) return;
    tSpares.buffer.swap(served->buffer);
    served->size = 0;
    served->pos = 0;
}

}  // namespace binder_host::internal

// --- AParcel members -------------------------------------------------------------------------------

AParcel::AParcel(AParcel&& other) noexcept
    : buffer(std::move(other.buffer)),
      size(other.size),
      pos(other.pos),
      objects(std::move(other.objects)),
      target(other.target) {
    other.size = 0;
    other.pos = 0;
    other.objects.clear();
}

AParcel& AParcel::operator=(AParcel&& other) noexcept {
    if (this != &other) {
        releaseObjects();
        buffer = std::move(other.buffer);
        size = other.size;
        pos = other.pos;
        objects = std::move(other.objects);
        target = other.target;
        other.size = 0;
        other.pos = 0;
        other.objects.clear();
    }
    return *this;
}

AParcel::~AParcel() {
    releaseObjects();
}

void AParcel::releaseObjects() {
    if (objects.empty()) return;
    std::vector<Object> dropped;
    dropped.swap(objects);
    for (const Object& object : dropped) decStrong(object.binder);
}

void AParcel::clear() {
    releaseObjects();
    size = 0;
    pos = 0;
}

uint8_t* AParcel::reserve(size_t n) {
    const size_t end = pos + n;
    if (end > buffer.size()) {
        buffer.resize(std::max<size_t>({end, buffer.size() * 2, 256}));
    }
    if (pos > size) std::memset(buffer.data() + size, 0, pos - size);  // gap after a seek
    if (pos < size && !objects.empty()) {
        // Overwriting a binder's bytes removes the binder.
        std::vector<Object> dropped;
        auto overlaps = [&](const Object& o) {
            return o.offset < end && o.offset + kBinderSize > pos;
        };
        for (auto it = objects.begin(); it != objects.end();) {
            if (overlaps(*it)) {
                dropped.push_back(*it);
                it = objects.erase(it);
            } else {
                ++it;
            }
        }
        for (const Object& object : dropped) decStrong(object.binder);
    }
    return buffer.data() + pos;
}

void AParcel::commit(size_t n) {
    pos += n;
    if (pos > size) size = pos;
}

binder_status_t AParcel::writeRaw(const void* data, size_t len) {
    if (len == 0) return STATUS_OK;
    const size_t padded = pad4(len);
    if (pos + padded > static_cast<size_t>(INT32_MAX)) return STATUS_NO_MEMORY;
    uint8_t* out = reserve(padded);
    std::memcpy(out, data, len);
    if (padded != len) std::memset(out + len, 0, padded - len);
    commit(padded);
    return STATUS_OK;
}

binder_status_t AParcel::readRaw(void* out, size_t len) const {
    if (len == 0) return STATUS_OK;
    const size_t padded = pad4(len);
    if (padded > available()) return STATUS_NOT_ENOUGH_DATA;
    std::memcpy(out, buffer.data() + pos, len);
    pos += padded;
    return STATUS_OK;
}

namespace binder_host::internal {

binder_status_t writeInterfaceToken(AParcel* parcel, const AIBinder_Class* clazz) {
    const int32_t header[3] = {kStrictModePolicy, kUnsetWorkSource, kVendorHeader};
    binder_status_t status = parcel->writeRaw(header, sizeof(header));
    if (status != STATUS_OK) return status;
    const auto units = static_cast<int32_t>(clazz->descriptor16.size());
    status = parcel->writeRaw(&units, sizeof(units));
    if (status != STATUS_OK) return status;
    // The descriptor with its terminator, as a UTF-16 string.
    return parcel->writeRaw(clazz->descriptor16.c_str(),
                            (clazz->descriptor16.size() + 1) * sizeof(char16_t));
}

binder_status_t checkInterfaceToken(const AParcel* parcel, const AIBinder_Class* clazz) {
    int32_t header[3];
    if (parcel->readRaw(header, sizeof(header)) != STATUS_OK) return STATUS_BAD_TYPE;
    int32_t units;
    if (parcel->readRaw(&units, sizeof(units)) != STATUS_OK) return STATUS_BAD_TYPE;
    if (units < 0 || static_cast<size_t>(units) != clazz->descriptor16.size()) {
        return STATUS_BAD_TYPE;
    }
    const size_t bytes = (static_cast<size_t>(units) + 1) * sizeof(char16_t);
    if (pad4(bytes) > parcel->available()) return STATUS_BAD_TYPE;
    if (std::memcmp(parcel->buffer.data() + parcel->pos, clazz->descriptor16.c_str(), bytes) != 0) {
        return STATUS_BAD_TYPE;
    }
    parcel->pos += pad4(bytes);
    return STATUS_OK;
}

}  // namespace binder_host::internal

// --- C API -------------------------------------------------------------------------------------------

extern "C" {

void AParcel_delete(AParcel* parcel) {
    binder_host::internal::recycleParcel(parcel);
}

AParcel* AParcel_create(void) {
    return binder_host::internal::newParcel();
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (position < 0) return STATUS_BAD_VALUE;
    parcel->pos = static_cast<size_t>(position);
    return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return parcel == nullptr ? 0 : static_cast<int32_t>(parcel->pos);
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return parcel == nullptr ? 0 : static_cast<int32_t>(parcel->size);
}

binder_status_t AParcel_reset(AParcel* parcel) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    parcel->clear();
    return STATUS_OK;
}

void AParcel_markSensitive(const AParcel* /*parcel*/) {}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    const int32_t word[2] = {binder == nullptr ? kTagNullBinder : kTagBinder, 0};
    const size_t offset = parcel->pos;
    binder_status_t status = parcel->writeRaw(word, sizeof(word));
    if (status != STATUS_OK || binder == nullptr) return status;
    incStrong(binder);
    AParcel::Object object{static_cast<uint32_t>(offset), binder};
    auto at = std::lower_bound(
            parcel->objects.begin(), parcel->objects.end(), object.offset,
            [](const AParcel::Object& o, uint32_t offset) { return o.offset < offset; });
    parcel->objects.insert(at, object);
    return STATUS_OK;
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    if (parcel == nullptr || binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (parcel->available() < kBinderSize) return STATUS_NOT_ENOUGH_DATA;
    int32_t tag;
    std::memcpy(&tag, parcel->buffer.data() + parcel->pos, sizeof(tag));
    if (tag == kTagNullBinder) {
        *binder = nullptr;
        parcel->pos += kBinderSize;
        return STATUS_OK;
    }
    if (tag != kTagBinder) return STATUS_BAD_TYPE;
    const auto offset = static_cast<uint32_t>(parcel->pos);
    auto it = std::lower_bound(
            parcel->objects.begin(), parcel->objects.end(), offset,
            [](const AParcel::Object& o, uint32_t value) { return o.offset < value; });
    if (it == parcel->objects.end() || it->offset != offset) return STATUS_BAD_TYPE;
    incStrong(it->binder);
    *binder = it->binder;
    parcel->pos += kBinderSize;
    return STATUS_OK;
}

binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (fd >= 0) return STATUS_FDS_NOT_ALLOWED;
    const int32_t null = 0;  // "no descriptor"
    return parcel->writeRaw(&null, sizeof(null));
}

binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) {
    if (parcel == nullptr || fd == nullptr) return STATUS_UNEXPECTED_NULL;
    PositionGuard guard(parcel);
    int32_t present;
    binder_status_t status = parcel->readRaw(&present, sizeof(present));
    if (status != STATUS_OK) return status;
    if (present != 0) return STATUS_FDS_NOT_ALLOWED;
    *fd = -1;
    return guard.commit(STATUS_OK);
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    if (parcel == nullptr || status == nullptr) return STATUS_UNEXPECTED_NULL;
    // A failed transaction is not an answer: the transaction itself returns the status.
    if (status->exception == EX_TRANSACTION_FAILED) {
        return status->errorCode == STATUS_OK ? STATUS_FAILED_TRANSACTION : status->errorCode;
    }
    binder_status_t result = parcel->writeRaw(&status->exception, sizeof(status->exception));
    if (result != STATUS_OK || status->exception == EX_NONE) return result;
    result = writeString(parcel, status->message.c_str(),
                         static_cast<int32_t>(status->message.size()));
    if (result != STATUS_OK) return result;
    const int32_t noStackTrace = 0;
    result = parcel->writeRaw(&noStackTrace, sizeof(noStackTrace));
    if (result != STATUS_OK) return result;
    if (status->exception == EX_SERVICE_SPECIFIC) {
        result = parcel->writeRaw(&status->errorCode, sizeof(status->errorCode));
    } else if (status->exception == EX_PARCELABLE) {
        const int32_t emptyParcelable = 0;
        result = parcel->writeRaw(&emptyParcelable, sizeof(emptyParcelable));
    }
    return result;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    if (parcel == nullptr || status == nullptr) return STATUS_UNEXPECTED_NULL;
    constexpr int32_t kHasReplyHeader = -128;
    PositionGuard guard(parcel);
    // Read into a local: a successful reply (nearly all of them) then allocates nothing.
    AStatus header;
    AStatus* const result = &header;
    binder_status_t err = parcel->readRaw(&result->exception, sizeof(result->exception));
    if (err != STATUS_OK) return err;
    if (result->exception == kHasReplyHeader) {
        // A reply header (written by some platform services) precedes the real exception code.
        const size_t start = parcel->pos;
        int32_t headerSize;
        err = parcel->readRaw(&headerSize, sizeof(headerSize));
        if (err != STATUS_OK) return err;
        if (headerSize < 0 || static_cast<size_t>(headerSize) > parcel->size - start) {
            return STATUS_BAD_VALUE;
        }
        parcel->pos = start + static_cast<size_t>(headerSize);
        err = parcel->readRaw(&result->exception, sizeof(result->exception));
        if (err != STATUS_OK) return err;
    }
    if (result->exception != EX_NONE) {
        std::optional<std::string> message;
        err = readString(
                parcel,
                [&](int32_t length, char** buffer) {
                    message.emplace(static_cast<size_t>(length) - 1, '\0');
                    *buffer = &(*message)[0];
                    return true;
                },
                [] { return true; });
        if (err != STATUS_OK) return err;
        if (message) result->message = std::move(*message);
        int32_t stackTraceSize;
        err = parcel->readRaw(&stackTraceSize, sizeof(stackTraceSize));
        if (err != STATUS_OK) return err;
        if (stackTraceSize < 0 || static_cast<size_t>(stackTraceSize) > parcel->available()) {
            return STATUS_BAD_VALUE;
        }
        parcel->pos += static_cast<size_t>(stackTraceSize);
        if (result->exception == EX_SERVICE_SPECIFIC) {
            err = parcel->readRaw(&result->errorCode, sizeof(result->errorCode));
            if (err != STATUS_OK) return err;
        } else if (result->exception == EX_PARCELABLE) {
            int32_t parcelableSize;
            err = parcel->readRaw(&parcelableSize, sizeof(parcelableSize));
            if (err != STATUS_OK) return err;
            if (parcelableSize > 4) {
                const size_t skip = static_cast<size_t>(parcelableSize) - 4;
                if (skip > parcel->available()) return STATUS_NOT_ENOUGH_DATA;
                parcel->pos += skip;
            }
        }
    }
    *status = header.exception == EX_NONE ? AStatus_newOk() : new AStatus(std::move(header));
    return guard.commit(STATUS_OK);
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    return writeString(parcel, string, length);
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
    if (parcel == nullptr || allocator == nullptr) return STATUS_UNEXPECTED_NULL;
    return readString(
            parcel,
            [&](int32_t length, char** buffer) { return allocator(stringData, length, buffer); },
            [&] {
                char* unused = nullptr;
                return allocator(stringData, -1, &unused);
            });
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (length < -1 || (length > 0 && getter == nullptr)) return STATUS_BAD_VALUE;
    binder_status_t status = parcel->writeRaw(&length, sizeof(length));
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        int32_t elementLength = 0;
        const char* element = getter(arrayData, static_cast<size_t>(i), &elementLength);
        status = writeString(parcel, element, elementLength);
    }
    return status;
}

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
    if (parcel == nullptr || allocator == nullptr || elementAllocator == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    PositionGuard guard(parcel);
    int32_t length;
    binder_status_t status = readLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (length == -1) {
        return guard.commit(allocator(arrayData, -1) ? STATUS_OK : STATUS_UNEXPECTED_NULL);
    }
    if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
    for (int32_t i = 0; i < length; ++i) {
        const auto index = static_cast<size_t>(i);
        status = readString(
                parcel,
                [&](int32_t len, char** buffer) {
                    return elementAllocator(arrayData, index, len, buffer);
                },
                [&] {
                    char* unused = nullptr;
                    return elementAllocator(arrayData, index, -1, &unused);
                });
        if (status != STATUS_OK) return status;
    }
    return guard.commit(STATUS_OK);
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    if (parcel == nullptr) return STATUS_UNEXPECTED_NULL;
    if (length < -1 || (length > 0 && elementWriter == nullptr)) return STATUS_BAD_VALUE;
    binder_status_t status = parcel->writeRaw(&length, sizeof(length));
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = elementWriter(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    if (parcel == nullptr || allocator == nullptr || elementReader == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    PositionGuard guard(parcel);
    int32_t length;
    binder_status_t status = readLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (length == -1) {
        return guard.commit(allocator(arrayData, -1) ? STATUS_OK : STATUS_UNEXPECTED_NULL);
    }
    if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
    for (int32_t i = 0; i < length; ++i) {
        status = elementReader(parcel, arrayData, static_cast<size_t>(i));
        if (status != STATUS_OK) return status;
    }
    return guard.commit(STATUS_OK);
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return writeValue(parcel, value);
}
binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value) {
    return writeValue(parcel, value);
}
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return writeValue(parcel, value);
}
binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value) {
    return writeValue(parcel, value);
}
binder_status_t AParcel_writeFloat(AParcel* parcel, float value) {
    return writeValue(parcel, value);
}
binder_status_t AParcel_writeDouble(AParcel* parcel, double value) {
    return writeValue(parcel, value);
}
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return writeValue<int32_t>(parcel, value ? 1 : 0);
}
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) {
    return writeValue<int32_t>(parcel, value);
}
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) {
    return writeValue<int32_t>(parcel, value);
}

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return readValue(parcel, value);
}
binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value) {
    return readValue(parcel, value);
}
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return readValue(parcel, value);
}
binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value) {
    return readValue(parcel, value);
}
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) {
    return readValue(parcel, value);
}
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) {
    return readValue(parcel, value);
}
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    if (value == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t raw = 0;
    binder_status_t status = readValue(parcel, &raw);
    if (status == STATUS_OK) *value = raw != 0;
    return status;
}
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) {
    if (value == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t raw = 0;
    binder_status_t status = readValue(parcel, &raw);
    if (status == STATUS_OK) *value = static_cast<char16_t>(raw);
    return status;
}
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) {
    if (value == nullptr) return STATUS_UNEXPECTED_NULL;
    int32_t raw = 0;
    binder_status_t status = readValue(parcel, &raw);
    if (status == STATUS_OK) *value = static_cast<int8_t>(raw);
    return status;
}

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length) {
    return writeFlatArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* arrayData,
                                         int32_t length) {
    return writeFlatArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length) {
    return writeFlatArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* arrayData,
                                         int32_t length) {
    return writeFlatArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* arrayData, int32_t length) {
    return writeFlatArray(parcel, arrayData, length);
}
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* arrayData, int32_t length) {
    return writeFlatArray(parcel, arrayData, length);
}

binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) {
    if (length > 0 && getter == nullptr) return STATUS_BAD_VALUE;
    return writeWideArray(parcel, arrayData == nullptr, length,
                          [&](size_t i) -> int32_t { return getter(arrayData, i) ? 1 : 0; });
}

binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* arrayData, int32_t length) {
    return writeWideArray(parcel, arrayData == nullptr, length,
                          [&](size_t i) -> int32_t { return arrayData[i]; });
}

// Bytes are packed, then the whole array is padded.
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    return writeFlatArray(parcel, arrayData, length);
}

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator) {
    return readFlatArray(parcel, arrayData, allocator);
}
binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator) {
    return readFlatArray(parcel, arrayData, allocator);
}
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator) {
    return readFlatArray(parcel, arrayData, allocator);
}
binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator) {
    return readFlatArray(parcel, arrayData, allocator);
}
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator) {
    return readFlatArray(parcel, arrayData, allocator);
}
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator) {
    return readFlatArray(parcel, arrayData, allocator);
}
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) {
    return readFlatArray(parcel, arrayData, allocator);
}

binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) {
    if (parcel == nullptr || allocator == nullptr || setter == nullptr) {
        return STATUS_UNEXPECTED_NULL;
    }
    PositionGuard guard(parcel);
    int32_t length;
    binder_status_t status = readLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (length == -1) {
        return guard.commit(allocator(arrayData, -1) ? STATUS_OK : STATUS_UNEXPECTED_NULL);
    }
    if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
    for (int32_t i = 0; i < length; ++i) {
        int32_t value;
        parcel->readRaw(&value, sizeof(value));  // room checked by readLength
        setter(arrayData, static_cast<size_t>(i), value != 0);
    }
    return guard.commit(STATUS_OK);
}

binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator) {
    if (parcel == nullptr || allocator == nullptr) return STATUS_UNEXPECTED_NULL;
    PositionGuard guard(parcel);
    int32_t length;
    binder_status_t status = readLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    char16_t* out = nullptr;
    if (length == -1) {
        return guard.commit(allocator(arrayData, -1, &out) ? STATUS_OK : STATUS_UNEXPECTED_NULL);
    }
    if (!allocator(arrayData, length, &out) || (length > 0 && out == nullptr)) {
        return STATUS_NO_MEMORY;
    }
    for (int32_t i = 0; i < length; ++i) {
        int32_t value;
        parcel->readRaw(&value, sizeof(value));  // room checked by readLength
        out[i] = static_cast<char16_t>(value);
    }
    return guard.commit(STATUS_OK);
}

binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size) {
    if (from == nullptr || to == nullptr) return STATUS_UNEXPECTED_NULL;
    if (start < 0 || size < 0) return STATUS_BAD_VALUE;
    const auto begin = static_cast<size_t>(start);
    const auto len = static_cast<size_t>(size);
    if (begin > from->size || len > from->size - begin) return STATUS_BAD_VALUE;
    if (from == to) return STATUS_INVALID_OPERATION;
    const size_t base = to->pos;
    if (len > 0) {
        uint8_t* out = to->reserve(len);
        std::memcpy(out, from->buffer.data() + begin, len);
        to->commit(len);
    }
    for (const AParcel::Object& object : from->objects) {
        if (object.offset >= begin && object.offset + kBinderSize <= begin + len) {
            incStrong(object.binder);
            const auto offset = static_cast<uint32_t>(base + (object.offset - begin));
            auto at = std::lower_bound(
                    to->objects.begin(), to->objects.end(), offset,
                    [](const AParcel::Object& o, uint32_t value) { return o.offset < value; });
            to->objects.insert(at, AParcel::Object{offset, object.binder});
        }
    }
    return STATUS_OK;
}

binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len) {
    if (parcel == nullptr || (buffer == nullptr && len > 0)) return STATUS_UNEXPECTED_NULL;
    if (!parcel->objects.empty()) return STATUS_INVALID_OPERATION;
    if (start > parcel->size || len > parcel->size - start) return STATUS_BAD_VALUE;
    if (len > 0) std::memcpy(buffer, parcel->buffer.data() + start, len);
    return STATUS_OK;
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    if (parcel == nullptr || (buffer == nullptr && len > 0)) return STATUS_UNEXPECTED_NULL;
    if (len > static_cast<size_t>(INT32_MAX)) return STATUS_BAD_VALUE;
    parcel->clear();
    if (len > 0) {
        uint8_t* out = parcel->reserve(len);
        std::memcpy(out, buffer, len);
        parcel->commit(len);
    }
    parcel->pos = 0;
    return STATUS_OK;
}

}  // extern "C"
