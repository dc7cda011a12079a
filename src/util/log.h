// The one door to the Android log for the library's own diagnostics.
// Call sites pass the priority, the tag and the fixed text literally, so the
// messages stay greppable; arguments are formatted here and the finished
// line goes to __android_log_print.
#ifndef TEV_SRC_UTIL_LOG_H
#define TEV_SRC_UTIL_LOG_H

#include <android/log.h>

namespace tev {

// Lines longer than this are cut.
inline constexpr int kLogLineMax = 1024;

void logLine(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Failures are logged at error priority; the library writes no other kind.
inline constexpr int kLogError = ANDROID_LOG_ERROR;

}  // namespace tev

#endif  // TEV_SRC_UTIL_LOG_H
