// A test double of the Android log functions. Linked into a test binary, it takes the place
// of liblog's __android_log_assert and __android_log_print, so a test sees every argument:
// an assertion throws AssertionFailure instead of ending the process, and printed lines are
// recorded.
#ifndef MIVO_TESTS_SUPPORT_LOGDOUBLE_H
#define MIVO_TESTS_SUPPORT_LOGDOUBLE_H

#include <stdexcept>
#include <string>
#include <vector>

namespace mivo::test {

struct AssertionFailure : std::runtime_error {
    AssertionFailure(std::string cond, std::string tag, std::string fmt, std::string text)
        : std::runtime_error(text),
          condition(std::move(cond)),
          tag(std::move(tag)),
          format(std::move(fmt)),
          message(std::move(text)) {}

    std::string condition;  // the condition text, as given
    std::string tag;
    std::string format;   // the format string, as given
    std::string message;  // the first vararg (the assertion message)
};

struct LogLine {
    int priority;
    std::string tag;
    std::string format;
    std::string text;  // the formatted line
};

// Lines printed since the last call, oldest first; clears the record.
std::vector<LogLine> takeLogLines();

}  // namespace mivo::test

#endif  // MIVO_TESTS_SUPPORT_LOGDOUBLE_H
