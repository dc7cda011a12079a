#include "support/bytes.h"

#include <algorithm>
#include <stdexcept>

namespace tevtest {

ByteBuilder& ByteBuilder::u16le(uint16_t v) { return bytes({uint8_t(v), uint8_t(v >> 8)}); }
ByteBuilder& ByteBuilder::u32le(uint32_t v) { return bytes({uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}); }
ByteBuilder& ByteBuilder::u32be(uint32_t v) { return bytes({uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}); }
ByteBuilder& ByteBuilder::text(const std::string& s) { return bytes(textBytes(s)); }
ByteBuilder& ByteBuilder::zeros(size_t n) { return bytes(Bytes(n, 0)); }
ByteBuilder& ByteBuilder::bytes(const Bytes& b) {
    data_.insert(data_.end(), b.begin(), b.end());
    return *this;
}

Bytes textBytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

Bytes pattern(size_t size) {
    Bytes out(size);
    for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(i * 7 + 3 + i / 251);
    return out;
}

// Out-of-range reads throw (at()), so a test reading past the end fails.
uint32_t readU32le(const Bytes& b, size_t at) {
    uint32_t v = 0;
    for (size_t i = 4; i-- > 0;) v = v << 8 | b.at(at + i);
    return v;
}
uint32_t readU32be(const Bytes& b, size_t at) {
    uint32_t v = 0;
    for (size_t i = 0; i < 4; ++i) v = v << 8 | b.at(at + i);
    return v;
}
std::string readText(const Bytes& b, size_t at, size_t n) {
    if (at + n > b.size()) throw std::out_of_range("read past the end");
    return std::string(b.begin() + long(at), b.begin() + long(at + n));
}

uint32_t metaTypeOf(const RecordSpec& r) { return (uint32_t(r.type) << 16) | (r.sub ? 0x8000u : 0u); }

uint32_t recordLength(const RecordSpec& r) {
    return 8 + uint32_t(r.name.size()) + uint32_t(r.data.size()) + (r.sub ? 4 + uint32_t(r.sub->size()) : 0);
}

Bytes encodeRecord(const RecordSpec& r) {
    ByteBuilder b;
    b.u32le(metaTypeOf(r)).u32le(uint32_t(r.name.size()));
    if (r.sub) b.u32le(uint32_t(r.sub->size()));
    b.text(r.name);
    if (r.sub) b.bytes(*r.sub);
    return b.bytes(r.data).take();
}

Bytes voxaBlock(uint32_t version, uint32_t start, uint32_t end) {
    return ByteBuilder().text("VOXA").u32le(version).u32le(1).u32le(start).u32le(end).u32le(20).text("VOXABS").take();
}

Bytes buildContainer(const Bytes& media, const std::vector<RecordSpec>& records, const ContainerOptions& options) {
    ByteBuilder body;
    std::vector<uint32_t> starts;
    for (const RecordSpec& r : records) {
        starts.push_back(uint32_t(body.size()));
        body.bytes(encodeRecord(r));
    }
    const uint32_t recordsEnd = uint32_t(body.size());
    body.text("TEVH").u32le(options.version).u32le(uint32_t(records.size()));
    for (size_t i = 0; i < records.size(); ++i) {
        body.u32le(metaTypeOf(records[i])).u32le(recordsEnd - starts[i]).u32le(recordLength(records[i]));
    }
    body.u32le(12 + 12 * uint32_t(records.size())).text("TEVT");

    ByteBuilder file;
    file.bytes(media);
    if (options.mp4Box) file.u32be(uint32_t(body.size()) + 8).text("tevd");
    file.bytes(body.data());
    if (options.voxaTrailer) file.bytes(voxaBlock(106, options.voxaStart, options.voxaEnd));
    return file.take();
}

Bytes fakeJpeg(size_t size) {
    Bytes b(size, 0x5A);
    if (size >= 2) b[0] = 0xFF, b[1] = 0xD8;
    if (size >= 4) b[size - 2] = 0xFF, b[size - 1] = 0xD9;
    return b;
}

Bytes fakeMp4(size_t size) {
    Bytes b(size, 0x11);
    const Bytes head = ByteBuilder().u32be(uint32_t(size < 24 ? size : 24)).text("ftypisom").take();
    std::copy_n(head.begin(), std::min(head.size(), size), b.begin());
    return b;
}

}  // namespace tevtest
