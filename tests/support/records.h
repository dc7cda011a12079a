// Small byte-level helpers for tests that build, edit or damage containers:
// records with recognisable payloads, little-endian patches, concatenation.
#ifndef TEV_TESTS_SUPPORT_RECORDS_H
#define TEV_TESTS_SUPPORT_RECORDS_H

#include <cstdint>
#include <string>

#include "support/bytes.h"

namespace tevtest {

// A record named `name` whose `size` data bytes all equal `fill`.
inline RecordSpec record(const std::string& name, size_t size, uint8_t fill, uint16_t type = 1) {
    return {type, name, std::nullopt, Bytes(size, fill)};
}

inline void putU32le(Bytes& bytes, size_t at, uint32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes.at(at + i) = uint8_t(value >> (8 * i));
}

inline Bytes patchedU32le(Bytes bytes, size_t at, uint32_t value) {
    putU32le(bytes, at, value);
    return bytes;
}

inline Bytes concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_RECORDS_H
