#include "util/log.h"

#include <cstdarg>
#include <cstdio>

namespace tev {

void logLine(int priority, const char* tag, const char* format, ...) {
    char line[kLogLineMax];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    __android_log_print(priority, tag, "%s", line);
}

}  // namespace tev
