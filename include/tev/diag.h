// Exported diagnostics: formatted loggers (a copy on standard output and one
// line in the Android log), call tracing and argument checkers.
// Checker results: 0 passed, 1 null pointer, 2 zero value or out of range.
// Guide: docs/api.md.
#ifndef TEV_DIAG_H
#define TEV_DIAG_H

#include "tev/export.h"

TEV_API void TEVLogD(const char* tag, const char* fmt, ...);  // debug priority
TEV_API void TEVLogI(const char* tag, const char* fmt, ...);  // info priority
TEV_API void TEVLogE(const char* tag, const char* fmt, ...);  // error priority; refuses a null fmt

// Call tracing: `name` logged at info priority.
TEV_API int print_TEVLog_at_function_start(const char* name);  // "Function started"; 0
TEV_API int print_TEVLog_at_function_end(const char* name);    // "Function returned"; 0

// Null checks: 1 (logged under "NullException") when the pointer is null. The
// double and triple forms test only the outer pointer.
TEV_API int check_null_pointer(void* value, const char* module, const char* function);     // 1 when null
TEV_API int check_null_2pointer(void** value, const char* module, const char* function);   // outer only
TEV_API int check_null_3pointer(void*** value, const char* module, const char* function);  // outer only

// Zero checks: 2 (logged under "NullException") when the value is 0.
TEV_API int checknull_kchar(char value, const char* module, const char* function);            // 2 when 0
TEV_API int checknull_kuchar(unsigned char value, const char* module, const char* function);  // 2 when 0
TEV_API int checknull_kbyte(unsigned char value, const char* module, const char* function);   // 2 when 0
TEV_API int checknull_kint(int value, const char* module, const char* function);              // 2 when 0
TEV_API int checknull_kuint(unsigned int value, const char* module, const char* function);    // 2 when 0
TEV_API int checknull_klong(long value, const char* module, const char* function);            // 2 when 0
TEV_API int checknull_kulong(unsigned long value, const char* module, const char* function);  // 2 when 0
TEV_API int checknull_kint64(long long value, const char* module, const char* function);      // 2 when 0

// Range checks: 2 (logged) when the value is below `min` or above `max`.
// Bounds are inclusive; each compares in its own type.
TEV_API int checkmedian_kchar(char value, char min, char max, const char* module, const char* function);
// As checkmedian_kchar, compared unsigned.
TEV_API int checkmedian_kuchar(unsigned char value, unsigned char min, unsigned char max,
                               const char* module, const char* function);
// As checkmedian_kchar, compared unsigned.
TEV_API int checkmedian_kbyte(unsigned char value, unsigned char min, unsigned char max,
                              const char* module, const char* function);
// As checkmedian_kchar, compared as int.
TEV_API int checkmedian_kint(int value, int min, int max, const char* module, const char* function);
// As checkmedian_kchar, compared unsigned.
TEV_API int checkmedian_kuint(unsigned int value, unsigned int min, unsigned int max,
                              const char* module, const char* function);
// As checkmedian_kchar, compared as long.
TEV_API int checkmedian_klong(long value, long min, long max, const char* module, const char* function);
// As checkmedian_kchar, compared unsigned.
TEV_API int checkmedian_kulong(unsigned long value, unsigned long min, unsigned long max,
                               const char* module, const char* function);
// As checkmedian_kchar, compared as long long.
TEV_API int checkmedian_kint64(long long value, long long min, long long max,
                               const char* module, const char* function);

#endif  // TEV_DIAG_H
