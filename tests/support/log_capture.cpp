#include "support/log_capture.h"

#include <algorithm>

namespace tevtest {
namespace {

// Never destroyed, so a line logged while the process exits still has a home.
std::vector<LogLine>& gLines = *new std::vector<LogLine>;

void captureLogger(const __android_logger_data* data, const char* message) {
    gLines.push_back(LogLine{data->priority, data->tag ? data->tag : "", message ? message : ""});
}

}  // namespace

const std::vector<LogLine>& capturedLog() { return gLines; }

void clearLog() { gLines.clear(); }

void LogCaptureTest::SetUp() {
    [[maybe_unused]] static const bool installed = [] {
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        __android_log_set_logger(captureLogger);
        return true;
    }();
    clearLog();
}

bool LogCaptureTest::logged(int priority, const std::string& tag, const std::string& text) const {
    const auto same = [&](const LogLine& l) { return l.priority == priority && l.tag == tag && l.text == text; };
    return std::any_of(gLines.begin(), gLines.end(), same);
}

std::string LogCaptureTest::dumpLog() const {
    std::string out;
    for (const LogLine& line : capturedLog()) {
        out += std::to_string(line.priority) + " [" + line.tag + "] " + line.text + "\n";
    }
    return out;
}

}  // namespace tevtest
