// The Voxa block writers of TevStream: "VOXA", version, count, the start/end
// table, the header length and "VOXABS", all integers little-endian.
#include "stream/io_detail.h"
#include "stream/sound_block_format.h"
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
    return tev::writeSoundTrailer(*this, tev::kVoxaWriterVersion, 1, start, end) ? 1 : 0;
}

namespace tev {

bool writeSoundTrailer(TevStream& stream, uint32_t version, uint32_t count, uint32_t start, uint32_t end) {
    // Every field must go out whole: files report -1 (or -2) for a failed
    // write, a full memory buffer reports 0.
    auto whole = [](int64_t result, int64_t size) { return result == size; };
    return whole(stream.write(kVoxaMagic, sizeof kVoxaMagic), sizeof kVoxaMagic) &&
           whole(stream.writeInt32(version), kInt32Size) && whole(stream.writeInt32(count), kInt32Size) &&
           whole(stream.writeInt32(start), kInt32Size) && whole(stream.writeInt32(end), kInt32Size) &&
           whole(stream.writeInt32(kVoxaOneSoundHeaderLength), kInt32Size) &&
           whole(stream.write(kVoxaTailMark, kVoxaTailMarkSize), kVoxaTailMarkSize);
}

}  // namespace tev
