// The foundation helpers: checked arithmetic, the checksums, and the
// exported loggers (standard output line plus platform log) with the
// argument checkers and their result codes and messages.
#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "tev/crc.h"
#include "tev/diag.h"
#include "tev/container.h"
#include "util/checked.h"

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

TEST(Checked, AddRefusesOverflowAndKeepsOutputAndRangeFitsOnlyInsideTheStream) {
    uint32_t out = 7;
    int64_t wide = 0;
    using tev::checkedAdd;
    using tev::rangeFits;
    // A braced list is evaluated in order: `out` is read after the call before it.
    EXPECT_EQ((std::vector<int64_t>{checkedAdd<uint32_t>(0xFFFFFFF0u, 0xFu, &out), out,
                                    checkedAdd<uint32_t>(0xFFFFFFF0u, 0x10u, &out), out,
                                    checkedAdd(kMax, int64_t{1}, &wide), rangeFits(0, 10, 10), rangeFits(10, 0, 10),
                                    rangeFits(1, 10, 10), rangeFits(-1, 1, 10), rangeFits(11, 0, 10),
                                    rangeFits(5, kMax, 10)}),
              (std::vector<int64_t>{1, 0xFFFFFFFF, 0, 0xFFFFFFFF, 0, 1, 1, 0, 0, 0, 0}));
}

const char kCheckInput[] = "123456789";
constexpr int kCheckLength = 9;
unsigned char* checkBytes() { return reinterpret_cast<unsigned char*>(const_cast<char*>(kCheckInput)); }

TEST(Crc, BlockAndIncrementalChecksumsMatchTheCheckValues) {
    EXPECT_EQ(CRC8_BlockChecksum(kCheckInput, kCheckLength), 0xF4);
    EXPECT_EQ(CRC8_BlockChecksum(kCheckInput, 0), 0);
    make_crc_table();
    unsigned char state = 0x55;
    CRC8_InitChecksum(state);
    CRC8_UpdateChecksum(state, kCheckInput, 4);
    CRC8_UpdateChecksum(state, kCheckInput + 4, 0);
    CRC8_Update(state, static_cast<unsigned char>(kCheckInput[4]));
    CRC8_UpdateChecksum(state, kCheckInput + 5, kCheckLength - 5);
    CRC8_FinishChecksum(state);
    EXPECT_EQ(state, 0xF4);
    EXPECT_EQ(getBufferCRC(checkBytes(), kCheckLength), 0xCBF43926u);
    EXPECT_EQ(getBufferCRC(checkBytes(), 0), 0u);
    unsigned int table[256];
    makeCRCtable(table, 0xEDB88320u);
    const unsigned int first = calcCRC(checkBytes(), 5, 0, table);
    EXPECT_EQ(calcCRC(checkBytes() + 5, 4, first, table), 0xCBF43926u);
    EXPECT_EQ(calcCRC(checkBytes(), 0, 0x1234u, table), 0x1234u);
    // CRC-32C (Castagnoli), reflected polynomial 0x82F63B78.
    makeCRCtable(table, 0x82F63B78u);
    EXPECT_EQ(calcCRC(checkBytes(), kCheckLength, 0, table), 0xE3069283u);
}

using DiagTest = tevtest::LogCaptureTest;

// Runs `call` with standard output captured and returns what it printed.
std::string printedBy(const std::function<void()>& call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

// The printed line is "TEVLog", the level letter, the tag and the text
// (as printed, when that differs from the logged text), tab-separated.
TEST_F(DiagTest, EachLoggerPrintsItsLineAndLogsTheTextFormattedTwice) {
    const std::string kLong(2000, 'a');
    constexpr int kD = ANDROID_LOG_DEBUG, kI = ANDROID_LOG_INFO, kE = ANDROID_LOG_ERROR;
    const struct { std::function<void()> call; int priority; const char* tag; std::string text, printed = ""; }
        kCases[] = {
        {[] { TEVLogD("TagD", "value %s", "100%%"); }, kD, "TagD", "value 100%", "value 100%%"},
        {[] { TEVLogI("TagI", "value %d", 2); }, kI, "TagI", "value 2"},
        {[] { TEVLogE("TagE", "value %u", 3u); }, kE, "TagE", "value 3"},
        {[] { EXPECT_EQ(print_TEVLog_at_function_start("open"), 0); }, kI, "Function started", "open"},
        {[] { EXPECT_EQ(print_TEVLog_at_function_end("open"), 0); }, kI, "Function returned", "open"},
        // Cut at each logger's limit.
        {[&] { TEVLogD("Long", "%s", kLong.c_str()); }, kD, "Long", kLong.substr(0, 1023)},
        {[&] { TEVLogE("Long", "%s", kLong.c_str()); }, kE, "Long", kLong.substr(0, 1022)},
        // The error logger alone reports a missing format or a failed
        // formatting (a wide character with no narrow form).
        {[] { TEVLogE("Caller", nullptr); }, kI, "TEVLogE", "log == NULL!!\n"},
        {[] { TEVLogE("Caller", "%ls", L"\x100"); }, kI, "TEVLog", "vsnprintf fail  ret(-1) !!\n"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        tevtest::clearLog();
        const char level = c.priority == kD ? 'D' : c.priority == kI ? 'I' : 'E';
        const std::string tail = c.printed.empty() ? c.text : c.printed;
        EXPECT_EQ(printedBy(c.call), std::string("TEVLog\t") + level + "\t" + c.tag + "\t" + tail + "\n");
        ASSERT_EQ(logLines().size(), 1u) << dumpLog();
        EXPECT_TRUE(logged(c.priority, c.tag, c.text)) << dumpLog();
    }
}

TEST_F(DiagTest, VersionBannerIsThreeDebugLines) {
    const std::string banner = "TEVLog\tD\tTEV Version Info\tLumet TEV Library Version\n\n"
                               "TEVLog\tD\tTEV Version Info\tVersion\t : 107\n\n"
                               "TEVLog\tD\tTEV Version Info\tBuild Date\t : ";
    EXPECT_EQ(printedBy(printTEVVersion).substr(0, banner.size()), banner);
    ASSERT_EQ(logLines().size(), 3u) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "TEV Version Info", "Version\t : 107\n")) << dumpLog();
    // The library's own build date and time, as "Mmm dd yyyy hh:mm:ss".
    EXPECT_EQ(logLines()[2].text.size(), 14u + 20u + 1u) << logLines()[2].text;
}

// Each checker in its own type: a check that narrowed or changed the
// signedness of the value would pass or fail the wrong rows.
TEST_F(DiagTest, CheckersReturnTheirCodeAndNameTheCallerInTheirOneLine) {
    const char* const kUnder = "Under minimum value ";  // the tag ends with a blank
    const char* const kOver = "Over maximum value";
    const std::string kSmaller = "the value is smaller than the minimum value in M::f";
    const std::string kLarger = "the value is larger than the maximum value in M::f";
    void* inner = nullptr;
    const struct { int result; const char* tag; std::string text; std::function<int()> check; } kCases[] = {
        {0, nullptr, "", [&] { return check_null_2pointer(&inner, "M", "f"); }},  // only the outer pointer counts
        {0, nullptr, "", [] { return checknull_kint64(1ll << 32, "M", "f"); }},
        {0, nullptr, "", [] { return checknull_kulong(1ul << 40, "M", "f"); }},
        {0, nullptr, "", [] { return checknull_kint(0x100, "M", "f"); }},
        {0, nullptr, "", [] { return checkmedian_kint(5, 5, 5, "M", "f"); }},
        {0, nullptr, "", [] { return checkmedian_kint64(-(1ll << 40), -(1ll << 40), 0, "M", "f"); }},
        {0, nullptr, "", [] { return checkmedian_kchar('b', 'a', 'b', "M", "f"); }},
        {1, "NullException", "pointer is Null in M::f", [] { return check_null_pointer(nullptr, "M", "f"); }},
        {1, "NullException", "double pointer is Null in M::f", [] { return check_null_2pointer(nullptr, "M", "f"); }},
        {1, "NullException", "triple pointer is Null in M::f", [] { return check_null_3pointer(nullptr, "M", "f"); }},
        {2, "NullException", "variable is 0 M::f", [] { return checknull_kchar(0, "M", "f"); }},
        {2, "NullException", "variable is 0 M::f", [] { return checknull_kuchar(0, "M", "f"); }},
        {2, "NullException", "variable is 0 M::f", [] { return checknull_kbyte(0, "M", "f"); }},
        {2, "NullException", "variable is 0 M::f", [] { return checknull_kint(0, "M", "f"); }},
        {2, "NullException", "variable is 0 M::f", [] { return checknull_kuint(0, "M", "f"); }},
        {2, "NullException", "variable is 0 M::f", [] { return checknull_klong(0, "M", "f"); }},
        {2, kUnder, kSmaller, [] { return checkmedian_kint(4, 5, 9, "M", "f"); }},
        {2, kOver, kLarger, [] { return checkmedian_klong(10, 0, 9, "M", "f"); }},
        {2, kOver, kLarger, [] { return checkmedian_kchar('c', 'a', 'b', "M", "f"); }},
        {2, kOver, kLarger, [] { return checkmedian_kuint(0xFFFFFFFFu, 0, 10, "M", "f"); }},
        {2, kOver, kLarger, [] { return checkmedian_kuchar(200, 0, 100, "M", "f"); }},
        {2, kOver, kLarger, [] { return checkmedian_kbyte(0x80, 1, 0x7F, "M", "f"); }},
        {2, kUnder, kSmaller, [] { return checkmedian_kulong(1, 1ul << 63, ~0ul, "M", "f"); }},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        tevtest::clearLog();
        int result = -1;
        printedBy([&] { result = c.check(); });
        EXPECT_EQ(result, c.result);
        EXPECT_TRUE(c.tag ? logLines().size() == 1 && loggedError(c.tag, c.text) : logLines().empty()) << dumpLog();
    }
}

}  // namespace
