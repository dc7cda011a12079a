// The Voxa block writers of TevStream: "VOXA", version, count, the start/end
// table, the header length and "VOXABS", all integers little-endian.
#include "container/format.h"
#include "tev/stream.h"

namespace {

constexpr uint32_t kFirstWriterVersion = tev::kVoxaAppendVersion;  // 106

// The header length field covers "VOXA", version, count and the table.
constexpr uint32_t kHeaderLengthBase = 12;
constexpr uint32_t kTableEntrySize = 8;

}  // namespace

int64_t TevStream::WriteSoundHeader() {
    const int64_t magic = write(tev::kVoxaMagic, sizeof tev::kVoxaMagic);
    writeInt32(kFirstWriterVersion);
    return magic;
}

int64_t TevStream::WriteSoundCount(uint32_t count) { return writeInt32(count); }

int64_t TevStream::WriteSoundData(uint32_t start, uint32_t end) {
    writeInt32(start);
    return writeInt32(end);
}

int64_t TevStream::WriteSoundDataBuffer(uint32_t* table, uint32_t count) {
    for (uint64_t i = 0; table != nullptr && i < uint64_t{count} * 2; ++i) writeInt32(table[i]);
    return 0;
}

int64_t TevStream::WriteSoundTailer(uint32_t count) {
    writeInt32(count * kTableEntrySize + kHeaderLengthBase);
    return write(tev::kVoxaTailMark, tev::kVoxaTailMarkSize);
}

uint32_t TevStream::writeVoxaHeader(uint32_t start, uint32_t end) {
    // Every field must go out whole: files report -1 (or -2) for a failed
    // write, a full memory buffer reports 0.
    auto whole = [](int64_t result, int64_t size) { return result == size; };
    constexpr int64_t kInt = tev::kFieldSize;
    const bool written = whole(write(tev::kVoxaMagic, sizeof tev::kVoxaMagic), sizeof tev::kVoxaMagic) &&
                         whole(writeInt32(tev::kVoxaWriterVersion), kInt) && whole(writeInt32(1), kInt) &&
                         whole(writeInt32(start), kInt) && whole(writeInt32(end), kInt) &&
                         whole(writeInt32(tev::kVoxaOneSoundHeaderLength), kInt) &&
                         whole(write(tev::kVoxaTailMark, tev::kVoxaTailMarkSize), tev::kVoxaTailMarkSize);
    return written ? 1 : 0;
}
