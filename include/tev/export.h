// Guide: docs/api.md.
#ifndef TEV_EXPORT_H
#define TEV_EXPORT_H

// The library is built with hidden visibility; only names marked TEV_API
// are exported from libTEV.lumet.so.
#define TEV_API __attribute__((visibility("default")))

#endif  // TEV_EXPORT_H
