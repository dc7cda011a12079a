// The exported loggers (standard output line plus platform log) and the
// argument checkers with their result codes and messages.
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>

#include "support/log_capture.h"
#include "tev/diag.h"

namespace {

// Every test here collects standard output, so logger lines stay out of the
// test report.
class DiagTest : public tevtest::LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        if (!stdoutTaken_) testing::internal::GetCapturedStdout();
    }
    std::string takeStdout() {
        stdoutTaken_ = true;
        return testing::internal::GetCapturedStdout();
    }

private:
    bool stdoutTaken_ = false;
};

TEST_F(DiagTest, EachLevelPrintsItsLineAndLogsTheTextFormattedTwice) {
    TEVLogD("TagD", "value %s", "100%%");
    TEVLogI("TagI", "value %d", 2);
    TEVLogE("TagE", "value %u", 3u);
    EXPECT_EQ(print_TEVLog_at_function_start("open"), 0);
    EXPECT_EQ(takeStdout(),
              "TEVLog\tD\tTagD\tvalue 100%%\nTEVLog\tI\tTagI\tvalue 2\nTEVLog\tE\tTagE\tvalue 3\n"
              "TEVLog\tI\tFunction started\topen\n");
    ASSERT_EQ(logLines().size(), 4u) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "TagD", "value 100%")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "TagI", "value 2")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "TagE", "value 3")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Function started", "open")) << dumpLog();
}

TEST_F(DiagTest, LongMessagesAreCutAtEachLoggersLimit) {
    const std::string longText(2000, 'a');
    TEVLogD("Long", "%s", longText.c_str());
    TEVLogE("Long", "%s", longText.c_str());
    ASSERT_EQ(logLines().size(), 2u);
    EXPECT_EQ(logLines()[0].text, std::string(1023, 'a'));
    EXPECT_EQ(logLines()[1].text, std::string(1022, 'a'));
}

TEST_F(DiagTest, ErrorLoggerReportsAMissingFormatOrAFailedFormatting) {
    TEVLogE("Caller", nullptr);
    // A wide character with no narrow form makes the formatting fail.
    TEVLogE("Caller", "%ls", L"\x100");
    EXPECT_EQ(takeStdout(), "TEVLog\tI\tTEVLogE\tlog == NULL!!\n\nTEVLog\tI\tTEVLog\tvsnprintf fail  ret(-1) !!\n\n");
    ASSERT_EQ(logLines().size(), 2u) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "TEVLogE", "log == NULL!!\n")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "TEVLog", "vsnprintf fail  ret(-1) !!\n")) << dumpLog();
}

TEST_F(DiagTest, NullAndZeroChecksRefuseOnlyNullOrZeroAndNameTheCaller) {
    void* inner = nullptr;
    EXPECT_EQ(check_null_2pointer(&inner, "Mod", "fn"), 0);  // only the outer pointer counts
    // Only high bits set: a check that narrowed the value would see 0.
    EXPECT_EQ(checknull_kint64(1ll << 32, "M", "f"), 0);
    EXPECT_EQ(checknull_kulong(1ul << 40, "M", "f"), 0);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(check_null_pointer(nullptr, "Mod", "one"), 1);
    EXPECT_EQ(check_null_3pointer(nullptr, "Mod", "three"), 1);
    EXPECT_EQ(checknull_kchar(0, "M", "f"), 2);
    EXPECT_TRUE(loggedError("NullException", "pointer is Null in Mod::one")) << dumpLog();
    EXPECT_TRUE(loggedError("NullException", "triple pointer is Null in Mod::three")) << dumpLog();
    EXPECT_TRUE(loggedError("NullException", "variable is 0 M::f")) << dumpLog();
}

TEST_F(DiagTest, RangeChecksAreInclusiveInTheValuesOwnSignednessAndNameTheFailedBound) {
    EXPECT_EQ(checkmedian_kint(5, 5, 5, "M", "f"), 0);
    EXPECT_EQ(checkmedian_kint64(-(1ll << 40), -(1ll << 40), 0, "M", "f"), 0);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(checkmedian_kuint(0xFFFFFFFFu, 0, 10, "M", "f"), 2);
    EXPECT_EQ(checkmedian_kint(4, 5, 9, "Mod", "low"), 2);
    EXPECT_EQ(checkmedian_klong(10, 0, 9, "Mod", "high"), 2);
    EXPECT_TRUE(loggedError("Under minimum value ", "the value is smaller than the minimum value in Mod::low"))
        << dumpLog();
    EXPECT_TRUE(loggedError("Over maximum value", "the value is larger than the maximum value in Mod::high"))
        << dumpLog();
}

}  // namespace
