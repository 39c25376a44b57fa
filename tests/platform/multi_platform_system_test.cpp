// The executable's path fits any buffer; time differences borrow; local time needs no shared record.
#include "platform/multi_platform_system.hpp"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(Executable, IsToldWholeAsDirectoryAndAsName) {
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe");
    char buffer[4096];
    EXPECT_EQ(MP_GetExeFullName(buffer, sizeof buffer), buffer);
    EXPECT_STREQ(buffer, exe.c_str());
    EXPECT_STREQ(MP_GetExePath(buffer, sizeof buffer), exe.parent_path().c_str());
    EXPECT_STREQ(MP_GetExeBaseName(buffer, sizeof buffer), exe.filename().c_str());
}

TEST(Executable, IsCutToTheBuffer) {
    const std::string exe = std::filesystem::read_symlink("/proc/self/exe");
    for (std::size_t size = 0; size < 8; ++size) {
        char buffer[9] = "########";
        MP_GetExeFullName(buffer, size);
        EXPECT_EQ(buffer[size], size < 8 ? '#' : 0) << size;
        if (size > 0) { EXPECT_EQ(buffer, exe.substr(0, size - 1)); }
        MP_GetExePath(buffer, size);
        EXPECT_GE(MP_GetExeBaseName(buffer, size), buffer);
        EXPECT_EQ(buffer[size], size < 8 ? '#' : 0) << size;
    }
}

TEST(Clock, DifferencesAreMicroseconds) {
    struct {
        timeval a, b;
        double difference;
    } cases[] = {
        {{5, 3}, {5, 1}, 2},
        {{5, 1}, {4, 999999}, 2},
        {{4, 999999}, {5, 1}, -2},
        {{1700000000, 0}, {0, 1}, 1699999999999999},
        {{INT64_MAX, 0}, {INT64_MIN, 0}, std::ldexp(1e6, 64)},
    };
    for (const auto &[a, b, difference] : cases) EXPECT_EQ(MP_difftimeval(&a, &b), difference);
}

TEST(Clock, TellsLocalTimeIntoTheGivenRecordOrTheSharedOne) {
    timeval now;
    ASSERT_EQ(MP_gettimeofday(&now), 0);
    EXPECT_LE(std::abs(now.tv_sec - time(nullptr)), 1);
    tm mine;
    EXPECT_EQ(MP_localtime(&now.tv_sec, &mine), &mine);
    EXPECT_EQ(mktime(&mine), now.tv_sec);
    EXPECT_EQ(MP_localtime(&now.tv_sec, nullptr), localtime(&now.tv_sec));
    EXPECT_EQ(MP_localtime(nullptr, &mine), nullptr);
}

} // namespace
