// Captures the library's Android log lines so tests can assert priority, tag
// and text. Host-only: it installs its own logger through liblog.
#ifndef TEV_TESTS_SUPPORT_LOG_CAPTURE_H
#define TEV_TESTS_SUPPORT_LOG_CAPTURE_H

#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tevtest {

struct LogLine { int priority; std::string tag, text; };

// Every log line written since the last clearLog().
const std::vector<LogLine>& capturedLog();
void clearLog();

// Base fixture: installs the capture once and starts each test with no lines.
class LogCaptureTest : public ::testing::Test {
protected:
    void SetUp() override;

    const std::vector<LogLine>& logLines() const { return capturedLog(); }
    // True when some captured line has exactly this priority, tag and text.
    bool logged(int priority, const std::string& tag, const std::string& text) const;
    bool loggedError(const std::string& tag, const std::string& text) const {
        return logged(ANDROID_LOG_ERROR, tag, text);
    }
    // All captured lines, one per row, for failure messages.
    std::string dumpLog() const;
};

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_LOG_CAPTURE_H
