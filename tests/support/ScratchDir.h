// A fresh folder per test, named after the test, removed afterwards (kept when the test
// failed, so its files can be looked at).
#ifndef MIVO_TESTS_SUPPORT_SCRATCHDIR_H
#define MIVO_TESTS_SUPPORT_SCRATCHDIR_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>

namespace mivo::test {

class ScratchDirTest : public ::testing::Test {
  protected:
    explicit ScratchDirTest(std::string prefix) : prefix_(std::move(prefix)) {}

    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string(info->test_suite_name()) + "-" + info->name();
        std::replace_if(
            name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
        scratch_ = std::filesystem::temp_directory_path() /
                   (prefix_ + "-" + std::to_string(::getpid()) + "-" + name);
        std::filesystem::remove_all(scratch_);
        std::filesystem::create_directories(scratch_);
    }

    void TearDown() override {
        std::error_code ec;
        if (!HasFailure()) std::filesystem::remove_all(scratch_, ec);
    }

    const std::filesystem::path& scratch() const { return scratch_; }

  private:
    std::string prefix_;
    std::filesystem::path scratch_;
};

}  // namespace mivo::test

#endif  // MIVO_TESTS_SUPPORT_SCRATCHDIR_H
