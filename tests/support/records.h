// Small helpers for tests that edit containers: records with recognisable
// payloads, owners for packs, and a reader for the directory at a file's end
// that does not go through the library.
#ifndef TEV_TESTS_SUPPORT_RECORDS_H
#define TEV_TESTS_SUPPORT_RECORDS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "tev/container.h"
#include "tev/types.h"

namespace tevtest {

// A record named `name` whose `size` data bytes all equal `fill`.
inline RecordSpec record(const std::string& name, size_t size, uint8_t fill, uint16_t type = 1) {
    RecordSpec r;
    r.type = type;
    r.name = name;
    r.data = Bytes(size, fill);
    return r;
}

struct FilePackDestroyer {
    void operator()(_TEV_info_pack* pack) const { destroyTEVDATA(pack); }
};
// A pack that owns its stream and file (checkTEVInFile, checkTEVWithReadPM).
using FilePack = std::unique_ptr<_TEV_info_pack, FilePackDestroyer>;

struct DirectoryEntry {
    uint32_t metaType;
    uint32_t offset;
    uint32_t length;
};

// The entries of the directory that ends `file` ("TEVT" as its last bytes),
// read byte by byte.
inline std::vector<DirectoryEntry> directoryAtEnd(const Bytes& file) {
    const size_t kthoAt = file.size() - 8;
    const size_t headAt = kthoAt - readU32le(file, kthoAt);
    std::vector<DirectoryEntry> entries(readU32le(file, headAt + 8));
    for (size_t i = 0; i < entries.size(); ++i) {
        const size_t at = headAt + 12 + 12 * i;
        entries[i] = {readU32le(file, at), readU32le(file, at + 4), readU32le(file, at + 8)};
    }
    return entries;
}

// Position of field `field` (0 meta type, 1 offset, 2 length) of directory
// entry `entry` in a file that ends with its directory.
inline size_t directoryFieldAt(const Bytes& file, size_t entry, size_t field) {
    const size_t kthoAt = file.size() - 8;
    return kthoAt - readU32le(file, kthoAt) + 12 + 12 * entry + 4 * field;
}

inline void putU32le(Bytes& bytes, size_t at, uint32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes.at(at + i) = static_cast<uint8_t>(value >> (8 * i));
}

inline Bytes concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_RECORDS_H
