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
    // The writes of start, end and the header length also fail on -2.
    auto failed = [](int64_t result) { return result == -1 || result == -2; };
    if (write(tev::kVoxaMagic, sizeof tev::kVoxaMagic) == -1) return 0;
    if (writeInt32(tev::kVoxaWriterVersion) == -1) return 0;
    if (writeInt32(1) == -1) return 0;
    if (failed(writeInt32(start)) || failed(writeInt32(end))) return 0;
    if (failed(writeInt32(tev::kVoxaOneSoundHeaderLength))) return 0;
    if (write(tev::kVoxaTailMark, tev::kVoxaTailMarkSize) == -1) return 0;
    return 1;
}
