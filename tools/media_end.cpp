// Finding where the media ends and whether the file's end looks like a
// damaged container. Both read the file directly, independently of the
// library's directory parser, so that a file the library cannot read can still be
// judged and cut back to its media.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "cli.h"
#include "container/index.h"
#include "container/mp4_box.h"

namespace tevcli {
namespace {

// How far from the end a stray "TEVH" or "TEVT" still counts as the remains
// of a container.
constexpr int64_t kTrailerScanLength = 64 * 1024;

constexpr unsigned char kMarker = 0xFF;
constexpr unsigned char kStartOfImage = 0xD8;
constexpr unsigned char kEndOfImage = 0xD9;
constexpr unsigned char kStartOfScan = 0xDA;
constexpr unsigned char kFirstRestart = 0xD0;
constexpr unsigned char kLastRestart = 0xD7;
constexpr unsigned char kTemporary = 0x01;

class Reader {
public:
    explicit Reader(const std::string& path) : fp_(std::fopen(path.c_str(), "rb")) {
        struct stat st {};
        if (fp_ && fstat(fileno(fp_.get()), &st) == 0) size_ = st.st_size;
    }
    bool ok() const { return fp_ != nullptr && size_ >= 0; }
    int64_t size() const { return size_; }
    bool read(int64_t position, void* into, size_t length) {
        return position >= 0 && position <= size_ && static_cast<uint64_t>(size_ - position) >= length &&
               fseeko(fp_.get(), position, SEEK_SET) == 0 &&
               std::fread(into, 1, length, fp_.get()) == length;
    }
    bool seek(int64_t position) { return fseeko(fp_.get(), position, SEEK_SET) == 0; }
    // The next byte from the current position; -1 at the end.
    int next() { return std::fgetc(fp_.get()); }
    int64_t tell() { return ftello(fp_.get()); }
    FILE* file() const { return fp_.get(); }

private:
    tev::OwnedFile fp_;
    int64_t size_ = -1;
};

// Skips a scan's entropy-coded bytes from `position` (FF 00 is a data byte,
// FF D0..D7 a restart marker); the position of the marker that ends it.
std::optional<int64_t> skipScan(Reader& r, int64_t position) {
    if (!r.seek(position)) return std::nullopt;
    for (int c = r.next(); c >= 0; c = r.next()) {
        if (c != kMarker) continue;
        int m = r.next();
        while (m == kMarker) m = r.next();
        if (m < 0) return std::nullopt;
        if (m != 0 && (m < kFirstRestart || m > kLastRestart)) return r.tell() - 2;
    }
    return std::nullopt;
}

// Marker segments up to each scan, then the scan's data up to the next
// marker, until the end-of-image marker.
std::optional<int64_t> jpegEnd(Reader& r) {
    unsigned char head[2];
    if (!r.read(0, head, 2) || head[0] != kMarker || head[1] != kStartOfImage) return std::nullopt;
    int64_t position = 2;
    for (;;) {
        if (!r.read(position, head, 2) || head[0] != kMarker) return std::nullopt;
        if (head[1] == kMarker) {  // fill byte
            ++position;
            continue;
        }
        const unsigned char marker = head[1];
        position += 2;
        if (marker == kEndOfImage) return position;
        if ((marker >= kFirstRestart && marker <= kLastRestart) || marker == kTemporary) continue;
        unsigned char length[2];
        if (!r.read(position, length, 2)) return std::nullopt;
        const int segment = length[0] << 8 | length[1];
        if (segment < 2 || segment > r.size() - position) return std::nullopt;
        position += segment;
        if (marker == kStartOfScan) {
            const std::optional<int64_t> next = skipScan(r, position);
            if (!next) return std::nullopt;
            position = *next;
        }
    }
}

bool isBoxTypeChar(unsigned char c) { return c >= 0x20 && c < 0x7F; }

// Top-level boxes from the start; the media ends at the first "tevd" box or
// the first bytes that are not a box. The file must open with "ftyp". Box
// sizes are read as the library reads the "tevd" box's; a size of 1 is
// followed by a 64-bit size, two such fields.
std::optional<int64_t> boxedEnd(Reader& r) {
    unsigned char type[tev::kTagSize];
    if (!r.read(tev::kFieldSize, type, sizeof type) || !tev::tagEquals(reinterpret_cast<char*>(type), tev::kTagFtyp)) {
        return std::nullopt;
    }
    TevStreamFile stream(r.file());
    int64_t position = 0;
    while (position < r.size()) {
        uint32_t field = 0;
        if (!r.read(position + tev::kFieldSize, type, sizeof type) || !tev::readBoxSize(stream, position, &field)) {
            return position;
        }
        if (!std::all_of(type, type + sizeof type, isBoxTypeChar) ||
            tev::tagEquals(reinterpret_cast<char*>(type), tev::kTagBox)) {
            return position;
        }
        uint64_t size = field;
        uint32_t high = 0;
        uint32_t low = 0;
        if (size == 1) {
            if (!tev::readBoxSize(stream, position + tev::kBoxHeaderSize, &high) ||
                !tev::readBoxSize(stream, position + tev::kBoxHeaderSize + tev::kFieldSize, &low)) {
                return position;
            }
            size = uint64_t{high} << 32 | low;
        } else if (size == 0) {
            size = static_cast<uint64_t>(r.size() - position);
        }
        if (size < tev::kBoxHeaderSize || size > static_cast<uint64_t>(r.size() - position)) return position;
        position += static_cast<int64_t>(size);
    }
    return position;
}

bool tailHoldsTag(Reader& r) {
    const int64_t length = std::min(r.size(), kTrailerScanLength);
    std::string tail(static_cast<size_t>(length), '\0');
    if (!r.read(r.size() - length, tail.data(), tail.size())) return false;
    const auto holds = [&tail](const char(&tag)[tev::kTagSize]) {
        return tail.find(std::string(tag, sizeof tag)) != std::string::npos;
    };
    return holds(tev::kTagHead) || holds(tev::kTagTail);
}

}  // namespace

std::optional<int64_t> mediaEnd(const std::string& path) {
    Reader r(path);
    if (!r.ok()) return std::nullopt;
    if (std::optional<int64_t> end = jpegEnd(r)) return end;
    return boxedEnd(r);
}

std::optional<std::string> damagedTrailer(const std::string& path, const FileFacts& facts) {
    if (signatureHasContainer(facts.signature)) {
        if (openContainer(path)) return std::nullopt;
        return std::string("the container's directory does not parse");
    }
    Reader r(path);
    if (!r.ok() || !tailHoldsTag(r)) return std::nullopt;
    return std::string("\"TEVH\" or \"TEVT\" lies near the end of the file but no container ends it "
                       "(a damaged container, or bytes after one)");
}

}  // namespace tevcli
