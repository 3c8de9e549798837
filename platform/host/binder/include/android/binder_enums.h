#pragma once

// Iteration over the values of an AIDL enum: `for (Foo v : ndk::enum_range<Foo>()) ...`.
// Code generated for an enum specializes ndk::internal::enum_values<Foo> with a std::array of
// its values; enum_range walks that array.

#include <iterator>
#include <type_traits>

namespace ndk {
namespace internal {

// Never defined: the type of enum_values for an enum nobody specialized it for.
template <typename T>
struct invalid_type;

// The values of EnumType, in declaration order. Generated code provides the specializations.
template <typename EnumType, typename = std::enable_if_t<std::is_enum<EnumType>::value>>
constexpr invalid_type<EnumType> enum_values;

}  // namespace internal

// An iterable range over every value of EnumType.
template <typename EnumType, typename = std::enable_if_t<std::is_enum<EnumType>::value>>
struct enum_range {
    // The first value.
    constexpr auto begin() const { return std::begin(internal::enum_values<EnumType>); }
    // One past the last value.
    constexpr auto end() const { return std::end(internal::enum_values<EnumType>); }
};

}  // namespace ndk
