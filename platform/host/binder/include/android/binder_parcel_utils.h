#pragma once

// Typed reading and writing of AParcel data for C++ code, in particular the NDK code the AIDL
// compiler generates: ::ndk::AParcel_writeData / AParcel_readData for non-nullable values and
// ::ndk::AParcel_writeNullableData / AParcel_readNullableData for @nullable ones.
//
// Supported: bool, int8_t/uint8_t, char16_t, int32_t, uint32_t, int64_t, uint64_t, float, double,
// enums of those, std::string, std::optional<std::string>, SpAIBinder, interfaces
// (std::shared_ptr<I> with I derived from ICInterface, written as a nullable binder), parcelables
// (types with readFromParcel/writeToParcel, written after an int32 1, or 0 for a null one) held
// directly or in std::optional / std::unique_ptr, and std::vector / std::optional<std::vector> of
// all of these.

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace ndk {

namespace parcel_traits {

template <typename T, template <typename...> class Template>
struct is_instance_of : std::false_type {};
template <template <typename...> class Template, typename... Args>
struct is_instance_of<Template<Args...>, Template> : std::true_type {};
template <typename T, template <typename...> class Template>
inline constexpr bool is_instance_of_v = is_instance_of<T, Template>::value;

// The T of Wrapper<T, ...>, or void.
template <typename T>
struct inner_type {
    using type = void;
};
template <template <typename...> class Wrapper, typename T, typename... Rest>
struct inner_type<Wrapper<T, Rest...>> {
    using type = T;
};
template <typename T>
using inner_type_t = typename inner_type<T>::type;

// std::shared_ptr<I> where I is an NDK interface.
template <typename T>
inline constexpr bool is_interface_v =
        is_instance_of_v<T, std::shared_ptr>&& std::is_base_of_v<::ndk::ICInterface, inner_type_t<T>>;

template <typename T, typename = void>
struct is_parcelable : std::false_type {};
template <typename T>
struct is_parcelable<
        T, std::void_t<decltype(std::declval<T&>().readFromParcel(std::declval<const AParcel*>())),
                       decltype(std::declval<const T&>().writeToParcel(std::declval<AParcel*>()))>>
    : std::true_type {};
template <typename T>
inline constexpr bool is_parcelable_v = is_parcelable<T>::value;

// std::optional<P> or std::unique_ptr<P> of a parcelable P.
template <typename T>
inline constexpr bool is_nullable_parcelable_v =
        (is_instance_of_v<T, std::optional> ||
         is_instance_of_v<T, std::unique_ptr>)&&is_parcelable_v<inner_type_t<T>>;

template <typename T>
inline constexpr bool always_false_v = false;

}  // namespace parcel_traits

// Upper bound on the element count a reader accepts, so a corrupt length cannot make a reader
// allocate without limit.
constexpr int32_t kMaxParcelVectorSize = 1000000;

// --- Allocators and accessors for the C array API ---------------------------------------------

template <typename T>
static inline bool AParcel_stdVectorAllocator(void* vectorData, int32_t length, T** outBuffer) {
    if (length < 0) return false;
    auto* vec = static_cast<std::vector<T>*>(vectorData);
    vec->resize(static_cast<size_t>(length));
    *outBuffer = vec->data();
    return true;
}

template <typename T>
static inline bool AParcel_nullableStdVectorAllocator(void* vectorData, int32_t length,
                                                      T** outBuffer) {
    auto* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
    if (length < 0) {
        vec->reset();
        return true;
    }
    vec->emplace(static_cast<size_t>(length));
    *outBuffer = (*vec)->data();
    return true;
}

// Sizes the vector only; the elements are filled one by one through callbacks.
template <typename T>
static inline bool AParcel_stdVectorExternalAllocator(void* vectorData, int32_t length) {
    if (length < 0) return false;
    static_cast<std::vector<T>*>(vectorData)->resize(static_cast<size_t>(length));
    return true;
}

template <typename T>
static inline bool AParcel_nullableStdVectorExternalAllocator(void* vectorData, int32_t length) {
    auto* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
    if (length < 0) {
        vec->reset();
        return true;
    }
    vec->emplace(static_cast<size_t>(length));
    return true;
}

template <typename T>
static inline T AParcel_stdVectorGetter(const void* vectorData, size_t index) {
    return (*static_cast<const std::vector<T>*>(vectorData))[index];
}

template <typename T>
static inline void AParcel_stdVectorSetter(void* vectorData, size_t index, T value) {
    (*static_cast<std::vector<T>*>(vectorData))[index] = value;
}

template <typename T>
static inline T AParcel_nullableStdVectorGetter(const void* vectorData, size_t index) {
    return (**static_cast<const std::optional<std::vector<T>>*>(vectorData))[index];
}

template <typename T>
static inline void AParcel_nullableStdVectorSetter(void* vectorData, size_t index, T value) {
    (**static_cast<std::optional<std::vector<T>>*>(vectorData))[index] = value;
}

static inline bool AParcel_stdStringAllocator(void* stringData, int32_t length, char** buffer) {
    if (length <= 0) return false;  // null (or malformed) where a string is required
    auto* str = static_cast<std::string*>(stringData);
    str->resize(static_cast<size_t>(length) - 1);
    *buffer = &(*str)[0];
    return true;
}

static inline bool AParcel_nullableStdStringAllocator(void* stringData, int32_t length,
                                                      char** buffer) {
    if (length == 0) return false;
    auto* str = static_cast<std::optional<std::string>*>(stringData);
    if (length < 0) {
        str->reset();
        return true;
    }
    str->emplace(static_cast<size_t>(length) - 1, '\0');
    *buffer = &(**str)[0];
    return true;
}

static inline bool AParcel_stdVectorStringElementAllocator(void* vectorData, size_t index,
                                                           int32_t length, char** buffer) {
    auto* vec = static_cast<std::vector<std::string>*>(vectorData);
    return AParcel_stdStringAllocator(&(*vec)[index], length, buffer);
}

static inline const char* AParcel_stdVectorStringElementGetter(const void* vectorData, size_t index,
                                                               int32_t* outLength) {
    const std::string& element = (*static_cast<const std::vector<std::string>*>(vectorData))[index];
    *outLength = static_cast<int32_t>(element.size());
    return element.c_str();
}

static inline bool AParcel_stdVectorNullableStringElementAllocator(void* vectorData, size_t index,
                                                                   int32_t length, char** buffer) {
    auto* vec = static_cast<std::vector<std::optional<std::string>>*>(vectorData);
    return AParcel_nullableStdStringAllocator(&(*vec)[index], length, buffer);
}

static inline const char* AParcel_stdVectorNullableStringElementGetter(const void* vectorData,
                                                                       size_t index,
                                                                       int32_t* outLength) {
    const std::optional<std::string>& element =
            (*static_cast<const std::vector<std::optional<std::string>>*>(vectorData))[index];
    if (!element) {
        *outLength = -1;
        return nullptr;
    }
    *outLength = static_cast<int32_t>(element->size());
    return element->c_str();
}

static inline bool AParcel_nullableStdVectorStringElementAllocator(void* vectorData, size_t index,
                                                                   int32_t length, char** buffer) {
    auto* vec = static_cast<std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
    return AParcel_nullableStdStringAllocator(&(**vec)[index], length, buffer);
}

static inline const char* AParcel_nullableStdVectorStringElementGetter(const void* vectorData,
                                                                       size_t index,
                                                                       int32_t* outLength) {
    const auto* vec =
            static_cast<const std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
    return AParcel_stdVectorNullableStringElementGetter(&**vec, index, outLength);
}

// --- Binders -------------------------------------------------------------------------------------

static inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
    return AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
    AIBinder* read = nullptr;
    binder_status_t status = AParcel_readStrongBinder(parcel, &read);
    if (status == STATUS_OK) binder->set(read);
    return status;
}

static inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
    if (binder.get() == nullptr) return STATUS_UNEXPECTED_NULL;
    return AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
    AIBinder* read = nullptr;
    binder_status_t status = AParcel_readStrongBinder(parcel, &read);
    if (status != STATUS_OK) return status;
    if (read == nullptr) return STATUS_UNEXPECTED_NULL;
    binder->set(read);
    return STATUS_OK;
}

// --- Strings -------------------------------------------------------------------------------------

static inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& str) {
    if (str.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeString(parcel, str.c_str(), static_cast<int32_t>(str.size()));
}

static inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* str) {
    return AParcel_readString(parcel, str, AParcel_stdStringAllocator);
}

static inline binder_status_t AParcel_writeString(AParcel* parcel,
                                                  const std::optional<std::string>& str) {
    if (!str) return AParcel_writeString(parcel, nullptr, -1);
    return AParcel_writeString(parcel, *str);
}

static inline binder_status_t AParcel_readString(const AParcel* parcel,
                                                 std::optional<std::string>* str) {
    return AParcel_readString(parcel, str, AParcel_nullableStdStringAllocator);
}

// --- Parcelables and interfaces --------------------------------------------------------------

// A non-null parcelable: int32 1, then its data. An interface is a (nullable) binder.
template <typename P>
static inline binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& p) {
    if constexpr (parcel_traits::is_interface_v<P>) {
        return AParcel_writeStrongBinder(parcel, p ? p->asBinder().get() : nullptr);
    } else {
        static_assert(parcel_traits::is_parcelable_v<P>, "not a parcelable");
        binder_status_t status = AParcel_writeInt32(parcel, 1);
        if (status != STATUS_OK) return status;
        return p.writeToParcel(parcel);
    }
}

template <typename P>
static inline binder_status_t AParcel_readParcelable(const AParcel* parcel, P* p) {
    if constexpr (parcel_traits::is_interface_v<P>) {
        SpAIBinder binder;
        binder_status_t status = AParcel_readNullableStrongBinder(parcel, &binder);
        if (status != STATUS_OK) return status;
        *p = binder.get() == nullptr ? nullptr : parcel_traits::inner_type_t<P>::fromBinder(binder);
        return STATUS_OK;
    } else {
        static_assert(parcel_traits::is_parcelable_v<P>, "not a parcelable");
        int32_t present = 0;
        binder_status_t status = AParcel_readInt32(parcel, &present);
        if (status != STATUS_OK) return status;
        if (present == 0) return STATUS_UNEXPECTED_NULL;
        return p->readFromParcel(parcel);
    }
}

// std::optional<P> / std::unique_ptr<P>: int32 0 for null, else int32 1 and the data.
template <typename P>
static inline binder_status_t AParcel_writeNullableParcelable(AParcel* parcel, const P& p) {
    if constexpr (parcel_traits::is_interface_v<P>) {
        return AParcel_writeParcelable(parcel, p);
    } else {
        static_assert(parcel_traits::is_nullable_parcelable_v<P>, "not a nullable parcelable");
        if (!p) return AParcel_writeInt32(parcel, 0);
        binder_status_t status = AParcel_writeInt32(parcel, 1);
        if (status != STATUS_OK) return status;
        return p->writeToParcel(parcel);
    }
}

template <typename P>
static inline binder_status_t AParcel_readNullableParcelable(const AParcel* parcel, P* p) {
    if constexpr (parcel_traits::is_interface_v<P>) {
        return AParcel_readParcelable(parcel, p);
    } else {
        static_assert(parcel_traits::is_nullable_parcelable_v<P>, "not a nullable parcelable");
        int32_t present = 0;
        binder_status_t status = AParcel_readInt32(parcel, &present);
        if (status != STATUS_OK) return status;
        if (present == 0) {
            *p = P();
            return STATUS_OK;
        }
        using Inner = parcel_traits::inner_type_t<P>;
        if constexpr (parcel_traits::is_instance_of_v<P, std::optional>) {
            p->emplace();
        } else {
            *p = std::make_unique<Inner>();
        }
        return (*p)->readFromParcel(parcel);
    }
}

template <typename T>
static inline binder_status_t AParcel_writeData(AParcel* parcel, const T& value);
template <typename T>
static inline binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value);
template <typename T>
static inline binder_status_t AParcel_readData(const AParcel* parcel, T* value);
template <typename T>
static inline binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value);

// Element accessors for vectors written through AParcel_writeParcelableArray. Elements that are
// nullable types (std::optional, std::unique_ptr, interfaces) are written as nullable.
template <typename P>
static inline binder_status_t AParcel_writeStdVectorElement(AParcel* parcel, const void* vectorData,
                                                            size_t index) {
    const P& element = (*static_cast<const std::vector<P>*>(vectorData))[index];
    if constexpr (parcel_traits::is_instance_of_v<P, std::optional> ||
                  parcel_traits::is_instance_of_v<P, std::unique_ptr>) {
        return AParcel_writeNullableData(parcel, element);
    } else {
        return AParcel_writeData(parcel, element);
    }
}

template <typename P>
static inline binder_status_t AParcel_readStdVectorElement(const AParcel* parcel, void* vectorData,
                                                           size_t index) {
    P* element = &(*static_cast<std::vector<P>*>(vectorData))[index];
    if constexpr (parcel_traits::is_instance_of_v<P, std::optional> ||
                  parcel_traits::is_instance_of_v<P, std::unique_ptr>) {
        return AParcel_readNullableData(parcel, element);
    } else {
        return AParcel_readData(parcel, element);
    }
}

template <typename P>
static inline binder_status_t AParcel_writeNullableStdVectorElement(AParcel* parcel,
                                                                    const void* vectorData,
                                                                    size_t index) {
    const auto* vec = static_cast<const std::optional<std::vector<P>>*>(vectorData);
    return AParcel_writeNullableData(parcel, (**vec)[index]);
}

template <typename P>
static inline binder_status_t AParcel_readNullableStdVectorElement(const AParcel* parcel,
                                                                   void* vectorData, size_t index) {
    auto* vec = static_cast<std::optional<std::vector<P>>*>(vectorData);
    return AParcel_readNullableData(parcel, &(**vec)[index]);
}

// --- Vectors ---------------------------------------------------------------------------------

namespace parcel_traits {
template <typename T>
inline constexpr bool is_flat_scalar_v =
        std::is_same_v<T, int32_t> || std::is_same_v<T, uint32_t> || std::is_same_v<T, int64_t> ||
        std::is_same_v<T, uint64_t> || std::is_same_v<T, float> || std::is_same_v<T, double> ||
        std::is_same_v<T, char16_t> || std::is_same_v<T, int8_t> || std::is_same_v<T, uint8_t>;
}  // namespace parcel_traits

namespace internal {

// Writes a contiguous array of a scalar type; data may be null with length -1.
template <typename T>
static inline binder_status_t writeScalarArray(AParcel* parcel, const T* data, int32_t length) {
    if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_writeInt32Array(parcel, data, length);
    } else if constexpr (std::is_same_v<T, uint32_t>) {
        return AParcel_writeUint32Array(parcel, data, length);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_writeInt64Array(parcel, data, length);
    } else if constexpr (std::is_same_v<T, uint64_t>) {
        return AParcel_writeUint64Array(parcel, data, length);
    } else if constexpr (std::is_same_v<T, float>) {
        return AParcel_writeFloatArray(parcel, data, length);
    } else if constexpr (std::is_same_v<T, double>) {
        return AParcel_writeDoubleArray(parcel, data, length);
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return AParcel_writeCharArray(parcel, data, length);
    } else {
        static_assert(std::is_same_v<T, int8_t> || std::is_same_v<T, uint8_t>);
        return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(data), length);
    }
}

// Reads a contiguous array of a scalar type through a vector allocator.
template <typename T, typename Container>
static inline binder_status_t readScalarArray(const AParcel* parcel, Container* container) {
    void* data = static_cast<void*>(container);
    constexpr bool kNullable = parcel_traits::is_instance_of_v<Container, std::optional>;
    if constexpr (std::is_same_v<T, int8_t> || std::is_same_v<T, uint8_t>) {
        // Bytes travel as int8_t; uint8_t vectors share the layout.
        using Alloc = bool (*)(void*, int32_t, int8_t**);
        Alloc alloc;
        if constexpr (kNullable) {
            alloc = [](void* d, int32_t length, int8_t** out) {
                T* buffer = nullptr;
                bool ok = AParcel_nullableStdVectorAllocator<T>(d, length, &buffer);
                *out = reinterpret_cast<int8_t*>(buffer);
                return ok;
            };
        } else {
            alloc = [](void* d, int32_t length, int8_t** out) {
                T* buffer = nullptr;
                bool ok = AParcel_stdVectorAllocator<T>(d, length, &buffer);
                *out = reinterpret_cast<int8_t*>(buffer);
                return ok;
            };
        }
        return AParcel_readByteArray(parcel, data, alloc);
    } else {
        auto alloc =
                kNullable ? AParcel_nullableStdVectorAllocator<T> : AParcel_stdVectorAllocator<T>;
        if constexpr (std::is_same_v<T, int32_t>) {
            return AParcel_readInt32Array(parcel, data, alloc);
        } else if constexpr (std::is_same_v<T, uint32_t>) {
            return AParcel_readUint32Array(parcel, data, alloc);
        } else if constexpr (std::is_same_v<T, int64_t>) {
            return AParcel_readInt64Array(parcel, data, alloc);
        } else if constexpr (std::is_same_v<T, uint64_t>) {
            return AParcel_readUint64Array(parcel, data, alloc);
        } else if constexpr (std::is_same_v<T, float>) {
            return AParcel_readFloatArray(parcel, data, alloc);
        } else if constexpr (std::is_same_v<T, double>) {
            return AParcel_readDoubleArray(parcel, data, alloc);
        } else {
            static_assert(std::is_same_v<T, char16_t>);
            return AParcel_readCharArray(parcel, data, alloc);
        }
    }
}

template <typename T>
static inline int32_t checkedLength(const std::vector<T>& vec) {
    return vec.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())
                   ? -2  // refused by the writers as a bad length
                   : static_cast<int32_t>(vec.size());
}

}  // namespace internal

template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<P>& vec) {
    const int32_t length = internal::checkedLength(vec);
    if constexpr (std::is_enum_v<P>) {
        using U = std::underlying_type_t<P>;
        return internal::writeScalarArray(parcel, reinterpret_cast<const U*>(vec.data()), length);
    } else if constexpr (parcel_traits::is_flat_scalar_v<P>) {
        return internal::writeScalarArray(parcel, vec.data(), length);
    } else if constexpr (std::is_same_v<P, bool>) {
        return AParcel_writeBoolArray(parcel, &vec, length, AParcel_stdVectorGetter<bool>);
    } else if constexpr (std::is_same_v<P, std::string>) {
        return AParcel_writeStringArray(parcel, &vec, length, AParcel_stdVectorStringElementGetter);
    } else if constexpr (std::is_same_v<P, std::optional<std::string>>) {
        return AParcel_writeStringArray(parcel, &vec, length,
                                        AParcel_stdVectorNullableStringElementGetter);
    } else {
        return AParcel_writeParcelableArray(parcel, &vec, length, AParcel_writeStdVectorElement<P>);
    }
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<P>* vec) {
    if constexpr (std::is_enum_v<P>) {
        using U = std::underlying_type_t<P>;
        std::vector<U> raw;
        binder_status_t status = internal::readScalarArray<U>(parcel, &raw);
        if (status != STATUS_OK) return status;
        vec->resize(raw.size());
        for (size_t i = 0; i < raw.size(); ++i) (*vec)[i] = static_cast<P>(raw[i]);
        return STATUS_OK;
    } else if constexpr (parcel_traits::is_flat_scalar_v<P>) {
        return internal::readScalarArray<P>(parcel, vec);
    } else if constexpr (std::is_same_v<P, bool>) {
        return AParcel_readBoolArray(parcel, vec, AParcel_stdVectorExternalAllocator<bool>,
                                     AParcel_stdVectorSetter<bool>);
    } else if constexpr (std::is_same_v<P, std::string>) {
        return AParcel_readStringArray(parcel, vec, AParcel_stdVectorExternalAllocator<P>,
                                       AParcel_stdVectorStringElementAllocator);
    } else if constexpr (std::is_same_v<P, std::optional<std::string>>) {
        return AParcel_readStringArray(parcel, vec, AParcel_stdVectorExternalAllocator<P>,
                                       AParcel_stdVectorNullableStringElementAllocator);
    } else {
        return AParcel_readParcelableArray(parcel, vec, AParcel_stdVectorExternalAllocator<P>,
                                           AParcel_readStdVectorElement<P>);
    }
}

template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::optional<std::vector<P>>& vec) {
    if (!vec) {
        if constexpr (std::is_same_v<P, std::optional<std::string>> ||
                      std::is_same_v<P, std::string>) {
            return AParcel_writeStringArray(parcel, nullptr, -1,
                                            AParcel_stdVectorNullableStringElementGetter);
        } else {
            return AParcel_writeInt32(parcel, -1);
        }
    }
    if constexpr (std::is_enum_v<P> || parcel_traits::is_flat_scalar_v<P> ||
                  std::is_same_v<P, bool> || std::is_same_v<P, std::string> ||
                  std::is_same_v<P, std::optional<std::string>>) {
        return AParcel_writeVector(parcel, *vec);
    } else {
        return AParcel_writeParcelableArray(parcel, &vec, internal::checkedLength(*vec),
                                            AParcel_writeNullableStdVectorElement<P>);
    }
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::optional<std::vector<P>>* vec) {
    if constexpr (std::is_enum_v<P>) {
        using U = std::underlying_type_t<P>;
        std::optional<std::vector<U>> raw;
        binder_status_t status = internal::readScalarArray<U>(parcel, &raw);
        if (status != STATUS_OK) return status;
        if (!raw) {
            vec->reset();
            return STATUS_OK;
        }
        vec->emplace(raw->size());
        for (size_t i = 0; i < raw->size(); ++i) (**vec)[i] = static_cast<P>((*raw)[i]);
        return STATUS_OK;
    } else if constexpr (parcel_traits::is_flat_scalar_v<P>) {
        return internal::readScalarArray<P>(parcel, vec);
    } else if constexpr (std::is_same_v<P, bool>) {
        return AParcel_readBoolArray(parcel, vec, AParcel_nullableStdVectorExternalAllocator<bool>,
                                     AParcel_nullableStdVectorSetter<bool>);
    } else if constexpr (std::is_same_v<P, std::optional<std::string>>) {
        return AParcel_readStringArray(parcel, vec, AParcel_nullableStdVectorExternalAllocator<P>,
                                       AParcel_nullableStdVectorStringElementAllocator);
    } else if constexpr (std::is_same_v<P, std::string>) {
        return AParcel_readStringArray(
                parcel, vec, AParcel_nullableStdVectorExternalAllocator<P>,
                [](void* d, size_t index, int32_t length, char** buffer) {
                    auto* v = static_cast<std::optional<std::vector<std::string>>*>(d);
                    return AParcel_stdStringAllocator(&(**v)[index], length, buffer);
                });
    } else {
        return AParcel_readParcelableArray(parcel, vec,
                                           AParcel_nullableStdVectorExternalAllocator<P>,
                                           AParcel_readNullableStdVectorElement<P>);
    }
}

// The size of an out-vector, sent ahead so the callee can size its result.
template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel, const std::vector<T>& vec) {
    if (vec.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeInt32(parcel, static_cast<int32_t>(vec.size()));
}

template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel,
                                                      const std::optional<std::vector<T>>& vec) {
    if (!vec) return AParcel_writeInt32(parcel, -1);
    return AParcel_writeVectorSize(parcel, *vec);
}

template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel, std::vector<T>* vec) {
    int32_t size = 0;
    binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) return status;
    if (size < 0) return STATUS_UNEXPECTED_NULL;
    if (size > kMaxParcelVectorSize) return STATUS_NO_MEMORY;
    vec->resize(static_cast<size_t>(size));
    return STATUS_OK;
}

template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel,
                                                   std::optional<std::vector<T>>* vec) {
    int32_t size = 0;
    binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) return status;
    if (size < -1) return STATUS_UNEXPECTED_NULL;
    if (size == -1) {
        vec->reset();
        return STATUS_OK;
    }
    if (size > kMaxParcelVectorSize) return STATUS_NO_MEMORY;
    vec->emplace(static_cast<size_t>(size));
    return STATUS_OK;
}

// --- Any value -----------------------------------------------------------------------------------

template <typename T>
static inline binder_status_t AParcel_writeData(AParcel* parcel, const T& value) {
    if constexpr (parcel_traits::is_instance_of_v<T, std::vector>) {
        return AParcel_writeVector(parcel, value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return AParcel_writeString(parcel, value);
    } else if constexpr (std::is_same_v<T, bool>) {
        return AParcel_writeBool(parcel, value);
    } else if constexpr (std::is_same_v<T, int8_t> || std::is_same_v<T, uint8_t>) {
        return AParcel_writeByte(parcel, static_cast<int8_t>(value));
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return AParcel_writeChar(parcel, value);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_writeInt32(parcel, value);
    } else if constexpr (std::is_same_v<T, uint32_t>) {
        return AParcel_writeUint32(parcel, value);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_writeInt64(parcel, value);
    } else if constexpr (std::is_same_v<T, uint64_t>) {
        return AParcel_writeUint64(parcel, value);
    } else if constexpr (std::is_same_v<T, float>) {
        return AParcel_writeFloat(parcel, value);
    } else if constexpr (std::is_same_v<T, double>) {
        return AParcel_writeDouble(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_writeRequiredStrongBinder(parcel, value);
    } else if constexpr (std::is_same_v<T, ScopedFileDescriptor>) {
        return AParcel_writeParcelFileDescriptor(parcel, value.get());
    } else if constexpr (std::is_enum_v<T>) {
        return AParcel_writeData(parcel, static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (parcel_traits::is_interface_v<T> || parcel_traits::is_parcelable_v<T>) {
        return AParcel_writeParcelable(parcel, value);
    } else {
        static_assert(parcel_traits::always_false_v<T>, "type cannot be written to a parcel");
    }
}

template <typename T>
static inline binder_status_t AParcel_writeNullableData(AParcel* parcel, const T& value) {
    if constexpr (parcel_traits::is_instance_of_v<T, std::optional> &&
                  parcel_traits::is_instance_of_v<parcel_traits::inner_type_t<T>, std::vector>) {
        return AParcel_writeVector(parcel, value);
    } else if constexpr (std::is_same_v<T, std::optional<std::string>>) {
        return AParcel_writeString(parcel, value);
    } else if constexpr (parcel_traits::is_nullable_parcelable_v<T> ||
                         parcel_traits::is_interface_v<T>) {
        return AParcel_writeNullableParcelable(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_writeNullableStrongBinder(parcel, value);
    } else {
        return AParcel_writeData(parcel, value);
    }
}

template <typename T>
static inline binder_status_t AParcel_readData(const AParcel* parcel, T* value) {
    if constexpr (parcel_traits::is_instance_of_v<T, std::vector>) {
        return AParcel_readVector(parcel, value);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return AParcel_readString(parcel, value);
    } else if constexpr (std::is_same_v<T, bool>) {
        return AParcel_readBool(parcel, value);
    } else if constexpr (std::is_same_v<T, int8_t>) {
        return AParcel_readByte(parcel, value);
    } else if constexpr (std::is_same_v<T, uint8_t>) {
        return AParcel_readByte(parcel, reinterpret_cast<int8_t*>(value));
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return AParcel_readChar(parcel, value);
    } else if constexpr (std::is_same_v<T, int32_t>) {
        return AParcel_readInt32(parcel, value);
    } else if constexpr (std::is_same_v<T, uint32_t>) {
        return AParcel_readUint32(parcel, value);
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return AParcel_readInt64(parcel, value);
    } else if constexpr (std::is_same_v<T, uint64_t>) {
        return AParcel_readUint64(parcel, value);
    } else if constexpr (std::is_same_v<T, float>) {
        return AParcel_readFloat(parcel, value);
    } else if constexpr (std::is_same_v<T, double>) {
        return AParcel_readDouble(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_readRequiredStrongBinder(parcel, value);
    } else if constexpr (std::is_same_v<T, ScopedFileDescriptor>) {
        int fd = -1;
        binder_status_t status = AParcel_readParcelFileDescriptor(parcel, &fd);
        if (status == STATUS_OK) value->set(fd);
        return status;
    } else if constexpr (std::is_enum_v<T>) {
        std::underlying_type_t<T> raw{};
        binder_status_t status = AParcel_readData(parcel, &raw);
        if (status == STATUS_OK) *value = static_cast<T>(raw);
        return status;
    } else if constexpr (parcel_traits::is_interface_v<T> || parcel_traits::is_parcelable_v<T>) {
        return AParcel_readParcelable(parcel, value);
    } else {
        static_assert(parcel_traits::always_false_v<T>, "type cannot be read from a parcel");
    }
}

template <typename T>
static inline binder_status_t AParcel_readNullableData(const AParcel* parcel, T* value) {
    if constexpr (parcel_traits::is_instance_of_v<T, std::optional> &&
                  parcel_traits::is_instance_of_v<parcel_traits::inner_type_t<T>, std::vector>) {
        return AParcel_readVector(parcel, value);
    } else if constexpr (std::is_same_v<T, std::optional<std::string>>) {
        return AParcel_readString(parcel, value);
    } else if constexpr (parcel_traits::is_nullable_parcelable_v<T> ||
                         parcel_traits::is_interface_v<T>) {
        return AParcel_readNullableParcelable(parcel, value);
    } else if constexpr (std::is_same_v<T, SpAIBinder>) {
        return AParcel_readNullableStrongBinder(parcel, value);
    } else {
        return AParcel_readData(parcel, value);
    }
}

}  // namespace ndk
