#pragma once

// android::internal::ToString: the text form of AIDL values used by generated toString() methods
// and transaction logs. Numbers in decimal, bool as true/false, strings as they are, null
// pointer-like values as "(null)", containers as "[a, b]", parcelables through their toString().

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcelable_utils.h>

#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>

namespace android {
namespace internal {

template <typename T>
std::string ToString(const T& t);

namespace to_string_details {

template <typename T, typename = void>
struct has_to_string_method : std::false_type {};
template <typename T>
struct has_to_string_method<T, std::void_t<decltype(std::declval<const T&>().toString())>>
    : std::true_type {};

template <typename T, typename = void>
struct is_iterable : std::false_type {};
template <typename T>
struct is_iterable<T, std::void_t<decltype(std::declval<const T&>().begin()),
                                  decltype(std::declval<const T&>().end()), typename T::value_type>>
    : std::true_type {};

template <typename T, template <typename...> class Template>
struct is_instance_of : std::false_type {};
template <template <typename...> class Template, typename... Args>
struct is_instance_of<Template<Args...>, Template> : std::true_type {};

template <typename T>
inline constexpr bool is_pointer_like_v =
        std::is_pointer_v<T> || is_instance_of<T, std::optional>::value ||
        is_instance_of<T, std::unique_ptr>::value || is_instance_of<T, std::shared_ptr>::value;

template <typename T>
inline constexpr bool always_false_v = false;

}  // namespace to_string_details

template <typename T>
std::string ToString(const T& t) {
    if constexpr (std::is_same_v<T, bool>) {
        return t ? "true" : "false";
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return std::to_string(static_cast<int>(t));
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(t);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return t;
    } else if constexpr (std::is_same_v<T, ::ndk::SpAIBinder>) {
        std::ostringstream out;
        out << "binder:" << std::hex << static_cast<const void*>(t.get());
        return out.str();
    } else if constexpr (std::is_same_v<T, ::ndk::ScopedFileDescriptor>) {
        return "fd:" + std::to_string(t.get());
    } else if constexpr (std::is_base_of_v<::ndk::ICInterface, T>) {
        return "<interface>";
    } else if constexpr (std::is_enum_v<T>) {
        return std::to_string(static_cast<std::underlying_type_t<T>>(t));
    } else if constexpr (to_string_details::is_pointer_like_v<T>) {
        if (!t) return "(null)";
        return ToString(*t);
    } else if constexpr (to_string_details::has_to_string_method<T>::value) {
        return t.toString();
    } else if constexpr (to_string_details::is_iterable<T>::value) {
        std::string out = "[";
        bool first = true;
        for (const auto& element : t) {
            if (!first) out += ", ";
            first = false;
            // The explicit type keeps std::vector<bool>'s proxy references printable.
            out += ToString<typename T::value_type>(element);
        }
        out += "]";
        return out;
    } else {
        static_assert(to_string_details::always_false_v<T>, "no text form for this type");
    }
}

}  // namespace internal
}  // namespace android
