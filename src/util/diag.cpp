// Exported diagnostics for native callers: the formatted loggers, call
// tracing and the argument checkers.
//
// The formatted loggers write their line to standard output and to the
// Android log directly; they are a separate, older facility from
// tev::logLine, which the library's own failure messages use.
#include "tev/diag.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kLogBufferSize = 1024;
// TEVLogE formats into one byte less than its buffer.
constexpr size_t kErrorLogLimit = 0x3FF;

constexpr int kCheckPassed = 0;
constexpr int kCheckNullPointer = 1;
constexpr int kCheckBadValue = 2;

constexpr char kNullTag[] = "NullException";

// Hands the finished message to the platform log as the format itself, so a
// "%" in the message is expanded a second time there. Callers of these
// exported loggers have always seen that behaviour, so it is kept; the
// warning about a non-literal format is silenced for this call alone.
void platformLog(int priority, const char* tag, const char* message) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    __android_log_print(priority, tag, message);
#pragma GCC diagnostic pop
}

void emit(char level, int priority, const char* tag, const char* message) {
    printf("TEVLog\t%c\t%s\t%s\n", level, tag, message);
    platformLog(priority, tag, message);
}

void formatAndEmit(char level, int priority, const char* tag, const char* fmt, va_list args) {
    char message[kLogBufferSize];
    message[0] = '\0';
    vsnprintf(message, sizeof message, fmt, args);
    emit(level, priority, tag, message);
}

// `depth` is "", "double " or "triple ": the message names the level of
// indirection that was checked. Only the outermost pointer is tested.
template <typename T>
int checkPointer(T* value, const char* depth, const char* module, const char* function) {
    if (value != nullptr) return kCheckPassed;
    TEVLogE(kNullTag, "%spointer is Null in %s::%s", depth, module, function);
    return kCheckNullPointer;
}

template <typename T>
int checkNonZero(T value, const char* module, const char* function) {
    if (value != 0) return kCheckPassed;
    TEVLogE(kNullTag, "variable is 0 %s::%s", module, function);
    return kCheckBadValue;
}

template <typename T>
int checkRange(T value, T min, T max, const char* module, const char* function) {
    if (value < min) {
        TEVLogE("Under minimum value ", "the value is smaller than the minimum value in %s::%s", module,
                function);
        return kCheckBadValue;
    }
    if (value > max) {
        TEVLogE("Over maximum value", "the value is larger than the maximum value in %s::%s", module,
                function);
        return kCheckBadValue;
    }
    return kCheckPassed;
}

}  // namespace

void TEVLogD(const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    formatAndEmit('D', ANDROID_LOG_DEBUG, tag, fmt, args);
    va_end(args);
}

void TEVLogI(const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    formatAndEmit('I', ANDROID_LOG_INFO, tag, fmt, args);
    va_end(args);
}

void TEVLogE(const char* tag, const char* fmt, ...) {
    if (fmt == nullptr) {
        TEVLogI("TEVLogE", "log == NULL!!\n");
        return;
    }
    char message[kLogBufferSize];
    memset(message, 0, sizeof message);
    va_list args;
    va_start(args, fmt);
    const int result = vsnprintf(message, kErrorLogLimit, fmt, args);
    va_end(args);
    if (result < 0) {
        TEVLogI("TEVLog", "vsnprintf fail  ret(%d) !!\n", result);
        return;
    }
    emit('E', ANDROID_LOG_ERROR, tag, message);
}

int print_TEVLog_at_function_start(const char* name) {
    TEVLogI("Function started", "%s", name);
    return 0;
}

int print_TEVLog_at_function_end(const char* name) {
    TEVLogI("Function returned", "%s", name);
    return 0;
}

int check_null_pointer(void* value, const char* module, const char* function) {
    return checkPointer(value, "", module, function);
}
int check_null_2pointer(void** value, const char* module, const char* function) {
    return checkPointer(value, "double ", module, function);
}
int check_null_3pointer(void*** value, const char* module, const char* function) {
    return checkPointer(value, "triple ", module, function);
}

int checknull_kchar(char value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}
int checknull_kuchar(unsigned char value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}
int checknull_kbyte(unsigned char value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}
int checknull_kint(int value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}
int checknull_kuint(unsigned int value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}
int checknull_klong(long value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}
int checknull_kulong(unsigned long value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}
int checknull_kint64(long long value, const char* module, const char* function) {
    return checkNonZero(value, module, function);
}

int checkmedian_kchar(char value, char min, char max, const char* module, const char* function) {
    return checkRange(value, min, max, module, function);
}
int checkmedian_kuchar(unsigned char value, unsigned char min, unsigned char max, const char* module,
                       const char* function) {
    return checkRange(value, min, max, module, function);
}
int checkmedian_kbyte(unsigned char value, unsigned char min, unsigned char max, const char* module,
                      const char* function) {
    return checkRange(value, min, max, module, function);
}
int checkmedian_kint(int value, int min, int max, const char* module, const char* function) {
    return checkRange(value, min, max, module, function);
}
int checkmedian_kuint(unsigned int value, unsigned int min, unsigned int max, const char* module,
                      const char* function) {
    return checkRange(value, min, max, module, function);
}
int checkmedian_klong(long value, long min, long max, const char* module, const char* function) {
    return checkRange(value, min, max, module, function);
}
int checkmedian_kulong(unsigned long value, unsigned long min, unsigned long max, const char* module,
                       const char* function) {
    return checkRange(value, min, max, module, function);
}
int checkmedian_kint64(long long value, long long min, long long max, const char* module,
                       const char* function) {
    return checkRange(value, min, max, module, function);
}
