// Builds files byte by byte: little- and big-endian integers, tags, and whole
// containers (records, directory, optional "tevd" box and Voxa block) laid
// out independently of the library's own writers.
#ifndef TEV_TESTS_SUPPORT_BYTES_H
#define TEV_TESTS_SUPPORT_BYTES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/files.h"

namespace tevtest {

class ByteBuilder {
public:
    ByteBuilder& u16le(uint16_t v);
    ByteBuilder& u32le(uint32_t v);
    ByteBuilder& u32be(uint32_t v);
    ByteBuilder& text(const std::string& s);  // bytes of s, no terminator
    ByteBuilder& bytes(const Bytes& b);
    ByteBuilder& zeros(size_t n);
    size_t size() const { return data_.size(); }
    const Bytes& data() const { return data_; }
    Bytes take() { return std::move(data_); }

private:
    Bytes data_;
};

Bytes textBytes(const std::string& s);
// `size` bytes that do not repeat with any power-of-two period, so that a
// piece copied to the wrong place shows.
Bytes pattern(size_t size);
uint32_t readU32le(const Bytes& b, size_t at);
uint32_t readU32be(const Bytes& b, size_t at);
std::string readText(const Bytes& b, size_t at, size_t n);

// One record as a test wants it on disk.
struct RecordSpec {
    uint16_t type = 1;
    std::string name;
    std::optional<Bytes> sub;  // present: the record carries sub-information
    Bytes data;
};

uint32_t metaTypeOf(const RecordSpec& r);  // type in the high half, 0x8000 with sub-information
uint32_t recordLength(const RecordSpec& r);
// Tag header, name, [sub-information], data.
Bytes encodeRecord(const RecordSpec& r);

struct ContainerOptions {
    uint32_t version = 107;
    bool mp4Box = false;          // wrap in a "tevd" box with the full box size
    bool voxaTrailer = false;     // append a one-sound Voxa block after "TEVT"
    uint32_t voxaStart = 0;       // sound table of that block
    uint32_t voxaEnd = 0;
};

// Records back to back and their directory, appended to `media`.
Bytes buildContainer(const Bytes& media, const std::vector<RecordSpec>& records,
                     const ContainerOptions& options = {});
// A one-sound Voxa block: "VOXA", version, 1, start, end, 20, "VOXABS".
Bytes voxaBlock(uint32_t version, uint32_t start, uint32_t end);

// Stand-in media: `size` bytes that start like a JPEG (FF D8 ...), or an MP4
// whose bytes 4-7 are "ftyp".
Bytes fakeJpeg(size_t size);
Bytes fakeMp4(size_t size);

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_BYTES_H
