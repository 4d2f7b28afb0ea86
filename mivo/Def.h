// Common definitions of the mivo framework: the assertion helper and text helpers.
#ifndef MIVO_DEF_H
#define MIVO_DEF_H

#include <android/log.h>

#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#define MIVO_LOG_TAG "MivoVexaPlugin"

// The libraries are built with hidden symbols; this marks their public API.
#define MIVO_EXPORT __attribute__((visibility("default")))

// Ends the process through the platform's assertion log when `expr` is false. The file tag
// and line are fixed texts of the message (they name where the check lives in the
// framework's sources), and `note` is appended after the message's line break.
#define MIVO_ASSERT_NOTE(fileTag, line, note, expr)                                \
    do {                                                                           \
        if (!(expr)) {                                                             \
            __android_log_assert("!(" #expr ")", MIVO_LOG_TAG, "%s\n" note,        \
                                 fileTag "[" #line "] ASSERT(" #expr ") failed."); \
        }                                                                          \
    } while (0)

#define MIVO_ASSERT(fileTag, line, expr) MIVO_ASSERT_NOTE(fileTag, line, "not supported", expr)

namespace mivo {

namespace type_detail {

// True when T is one of Us.
template <typename T, typename... Us>
struct is_type_of : std::disjunction<std::is_same<T, Us>...> {};

template <typename T>
inline constexpr bool is_text_v =
    is_type_of<std::decay_t<T>, std::string, char, char*, const char*>::value;

inline void appendPart(std::string& out, const std::string& part) {
    out += part;
}
inline void appendPart(std::string& out, char part) {
    out += part;
}
inline void appendPart(std::string& out, const char* part) {
    out += part;
}

}  // namespace type_detail

// printf-style formatting into a string.
template <typename... Args>
std::string format(const std::string& fmt, Args&&... args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    const size_t size = static_cast<size_t>(std::snprintf(nullptr, 0, fmt.c_str(), args...)) + 1;
    MIVO_ASSERT_NOTE("Def", 156, "error on format string", size > 0);
    std::unique_ptr<char[]> text(new char[size]);
    std::snprintf(text.get(), size, fmt.c_str(), args...);
#pragma GCC diagnostic pop
    return std::string(text.get(), text.get() + size - 1);
}

// Joins text parts with a separator between each two of them.
template <typename First, typename... Rest>
std::string join(const std::string& sep, First&& first, Rest&&... rest) {
    static_assert(type_detail::is_text_v<First> && (type_detail::is_text_v<Rest> && ...),
                  "join takes strings, characters and character pointers");
    std::string out;
    type_detail::appendPart(out, std::forward<First>(first));
    ((out += sep, type_detail::appendPart(out, std::forward<Rest>(rest))), ...);
    return out;
}

}  // namespace mivo

#endif  // MIVO_DEF_H
