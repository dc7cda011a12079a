#include <android/log.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/log_capture.h"
#include "tev/diag.h"

namespace {

using tevtest::LogCaptureTest;

class DiagLoggers : public LogCaptureTest {};

TEST_F(DiagLoggers, EachLevelPrintsItsLineAndLogsAtItsPriority) {
    testing::internal::CaptureStdout();
    TEVLogD("TagD", "value %d", 1);
    TEVLogI("TagI", "value %s", "two");
    TEVLogE("TagE", "value %u", 3u);
    const std::string out = testing::internal::GetCapturedStdout();

    EXPECT_EQ(out,
              "TEVLog\tD\tTagD\tvalue 1\n"
              "TEVLog\tI\tTagI\tvalue two\n"
              "TEVLog\tE\tTagE\tvalue 3\n");
    ASSERT_EQ(logLines().size(), 3u) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "TagD", "value 1")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "TagI", "value two")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "TagE", "value 3")) << dumpLog();
}

TEST_F(DiagLoggers, FormattedMessageIsExpandedAgainByThePlatformLog) {
    testing::internal::CaptureStdout();
    TEVLogD("Pct", "%s", "100%%");
    const std::string out = testing::internal::GetCapturedStdout();

    EXPECT_EQ(out, "TEVLog\tD\tPct\t100%%\n");
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "Pct", "100%")) << dumpLog();
}

TEST_F(DiagLoggers, DebugAndInfoCutMessagesAt1023Characters) {
    const std::string longText(2000, 'a');
    testing::internal::CaptureStdout();
    TEVLogD("Long", "%s", longText.c_str());
    TEVLogI("Long", "%s", longText.c_str());
    testing::internal::GetCapturedStdout();

    ASSERT_EQ(logLines().size(), 2u);
    EXPECT_EQ(logLines()[0].text, std::string(1023, 'a'));
    EXPECT_EQ(logLines()[1].text, std::string(1023, 'a'));
}

TEST_F(DiagLoggers, ErrorCutsMessagesOneCharacterShorter) {
    const std::string longText(2000, 'b');
    testing::internal::CaptureStdout();
    TEVLogE("Long", "%s", longText.c_str());
    const std::string out = testing::internal::GetCapturedStdout();

    ASSERT_EQ(logLines().size(), 1u);
    EXPECT_EQ(logLines()[0].text, std::string(1022, 'b'));
    EXPECT_EQ(out, "TEVLog\tE\tLong\t" + std::string(1022, 'b') + "\n");
}

TEST_F(DiagLoggers, ErrorWithoutFormatWritesOnlyTheInfoLine) {
    testing::internal::CaptureStdout();
    TEVLogE("Caller", nullptr);
    const std::string out = testing::internal::GetCapturedStdout();

    EXPECT_EQ(out, "TEVLog\tI\tTEVLogE\tlog == NULL!!\n\n");
    ASSERT_EQ(logLines().size(), 1u) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "TEVLogE", "log == NULL!!\n")) << dumpLog();
}

TEST_F(DiagLoggers, ErrorReportsAFailedFormattingInstead) {
    // A wide character with no narrow form makes the formatting fail.
    testing::internal::CaptureStdout();
    TEVLogE("Caller", "%ls", L"\x100");
    const std::string out = testing::internal::GetCapturedStdout();

    EXPECT_EQ(out, "TEVLog\tI\tTEVLog\tvsnprintf fail  ret(-1) !!\n\n");
    ASSERT_EQ(logLines().size(), 1u) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "TEVLog", "vsnprintf fail  ret(-1) !!\n")) << dumpLog();
}

TEST_F(DiagLoggers, CallTracingLogsTheNameAtInfoPriority) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(print_TEVLog_at_function_start("saveTEVDataToFile"), 0);
    EXPECT_EQ(print_TEVLog_at_function_end("saveTEVDataToFile"), 0);
    const std::string out = testing::internal::GetCapturedStdout();

    EXPECT_EQ(out,
              "TEVLog\tI\tFunction started\tsaveTEVDataToFile\n"
              "TEVLog\tI\tFunction returned\tsaveTEVDataToFile\n");
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Function started", "saveTEVDataToFile"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Function returned", "saveTEVDataToFile"));
}

class DiagCheckers : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        testing::internal::CaptureStdout();
    }
    void TearDown() override { testing::internal::GetCapturedStdout(); }
};

TEST_F(DiagCheckers, NullPointerChecksTestOnlyTheOuterPointer) {
    int value = 0;
    void* inner = nullptr;
    void** innerOfTriple = nullptr;
    EXPECT_EQ(check_null_pointer(&value, "Mod", "fn"), 0);
    EXPECT_EQ(check_null_2pointer(&inner, "Mod", "fn"), 0);
    EXPECT_EQ(check_null_3pointer(&innerOfTriple, "Mod", "fn"), 0);
    EXPECT_TRUE(logLines().empty()) << dumpLog();

    EXPECT_EQ(check_null_pointer(nullptr, "Mod", "one"), 1);
    EXPECT_EQ(check_null_2pointer(nullptr, "Mod", "two"), 1);
    EXPECT_EQ(check_null_3pointer(nullptr, "Mod", "three"), 1);
    EXPECT_TRUE(loggedError("NullException", "pointer is Null in Mod::one")) << dumpLog();
    EXPECT_TRUE(loggedError("NullException", "double pointer is Null in Mod::two")) << dumpLog();
    EXPECT_TRUE(loggedError("NullException", "triple pointer is Null in Mod::three")) << dumpLog();
}

TEST_F(DiagCheckers, ZeroChecksRefuseZeroInEveryType) {
    EXPECT_EQ(checknull_kchar(0, "M", "f"), 2);
    EXPECT_EQ(checknull_kuchar(0, "M", "f"), 2);
    EXPECT_EQ(checknull_kbyte(0, "M", "f"), 2);
    EXPECT_EQ(checknull_kint(0, "M", "f"), 2);
    EXPECT_EQ(checknull_kuint(0, "M", "f"), 2);
    EXPECT_EQ(checknull_klong(0, "M", "f"), 2);
    EXPECT_EQ(checknull_kulong(0, "M", "f"), 2);
    EXPECT_EQ(checknull_kint64(0, "M", "f"), 2);
    ASSERT_EQ(logLines().size(), 8u) << dumpLog();
    for (const auto& line : logLines()) {
        EXPECT_EQ(line.priority, ANDROID_LOG_ERROR);
        EXPECT_EQ(line.tag, "NullException");
        EXPECT_EQ(line.text, "variable is 0 M::f");
    }
}

TEST_F(DiagCheckers, ZeroChecksPassAnyOtherValue) {
    EXPECT_EQ(checknull_kchar('x', "M", "f"), 0);
    EXPECT_EQ(checknull_kuchar(0xFF, "M", "f"), 0);
    EXPECT_EQ(checknull_kbyte(1, "M", "f"), 0);
    EXPECT_EQ(checknull_kint(-1, "M", "f"), 0);
    EXPECT_EQ(checknull_kuint(0x80000000u, "M", "f"), 0);
    EXPECT_EQ(checknull_klong(LONG_MIN, "M", "f"), 0);
    EXPECT_EQ(checknull_kulong(1ul << 40, "M", "f"), 0);
    // Only the high half is set: a check that narrowed the value would see 0.
    EXPECT_EQ(checknull_kint64(1ll << 32, "M", "f"), 0);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(DiagCheckers, RangeBoundsAreInclusive) {
    EXPECT_EQ(checkmedian_kint(5, 5, 5, "M", "f"), 0);
    EXPECT_EQ(checkmedian_kuchar(9, 0, 9, "M", "f"), 0);
    EXPECT_EQ(checkmedian_kint64(-(1ll << 40), -(1ll << 40), 0, "M", "f"), 0);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(DiagCheckers, RangeBelowMinimumUsesTheTagWithTrailingBlank) {
    EXPECT_EQ(checkmedian_kint(4, 5, 9, "Mod", "fn"), 2);
    ASSERT_EQ(logLines().size(), 1u);
    EXPECT_TRUE(loggedError("Under minimum value ", "the value is smaller than the minimum value in Mod::fn"))
        << dumpLog();
}

TEST_F(DiagCheckers, RangeAboveMaximumIsReported) {
    EXPECT_EQ(checkmedian_klong(10, 0, 9, "Mod", "fn"), 2);
    ASSERT_EQ(logLines().size(), 1u);
    EXPECT_TRUE(loggedError("Over maximum value", "the value is larger than the maximum value in Mod::fn"))
        << dumpLog();
}

TEST_F(DiagCheckers, RangeComparesInTheValuesOwnSignedness) {
    EXPECT_EQ(checkmedian_kuint(0xFFFFFFFFu, 0, 10, "M", "f"), 2);
    EXPECT_EQ(checkmedian_kulong(~0ul, 0, 10, "M", "f"), 2);
    EXPECT_EQ(checkmedian_kbyte(200, 0, 100, "M", "f"), 2);
    EXPECT_EQ(checkmedian_kint(-1, -5, 10, "M", "f"), 0);
    EXPECT_EQ(checkmedian_kint64(-1, 0, 10, "M", "f"), 2);
    EXPECT_EQ(checkmedian_kchar('m', 'a', 'z', "M", "f"), 0);
    EXPECT_EQ(checkmedian_kchar('A', 'a', 'z', "M", "f"), 2);
}

}  // namespace
