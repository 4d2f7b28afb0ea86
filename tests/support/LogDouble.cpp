#include "LogDouble.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace mivo::test {
namespace {

std::mutex linesLock;
std::vector<LogLine> lines;

std::string formatted(const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(text.data(), text.size() + 1, fmt, args);
    return text;
}

}  // namespace

std::vector<LogLine> takeLogLines() {
    std::lock_guard<std::mutex> guard(linesLock);
    std::vector<LogLine> taken;
    taken.swap(lines);
    return taken;
}

}  // namespace mivo::test

extern "C" void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const char* message = va_arg(args, const char*);
    va_end(args);
    throw mivo::test::AssertionFailure(cond ? cond : "", tag ? tag : "", fmt ? fmt : "",
                                       message ? message : "");
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::string text = mivo::test::formatted(fmt, args);
    va_end(args);
    std::lock_guard<std::mutex> guard(mivo::test::linesLock);
    mivo::test::lines.push_back({prio, tag ? tag : "", fmt ? fmt : "", std::move(text)});
    return 1;
}
