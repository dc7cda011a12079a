// Arithmetic on values read from a file. Offsets, lengths and counts from a
// file are untrusted: every sum and every range goes through these helpers so
// that nothing overflows and nothing is read outside the stream.
#ifndef TEV_SRC_UTIL_CHECKED_H
#define TEV_SRC_UTIL_CHECKED_H

#include <cstdint>

namespace tev {

// out = a + b; false (out untouched) when the sum overflows T.
template <typename T>
inline bool checkedAdd(T a, T b, T* out) {
    T sum;
    if (__builtin_add_overflow(a, b, &sum)) return false;
    *out = sum;
    return true;
}

// out = a * b; false (out untouched) when the product overflows T.
template <typename T>
inline bool checkedMul(T a, T b, T* out) {
    T product;
    if (__builtin_mul_overflow(a, b, &product)) return false;
    *out = product;
    return true;
}

// True when [position, position + length) lies inside [0, size).
// length 0 fits anywhere inside or at the end.
inline bool rangeFits(int64_t position, int64_t length, int64_t size) {
    if (position < 0 || length < 0 || size < 0) return false;
    if (position > size) return false;
    return length <= size - position;
}

}  // namespace tev

#endif  // TEV_SRC_UTIL_CHECKED_H
