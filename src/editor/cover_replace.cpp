// Replacing the media in front of a container in place: the records, the
// sound and the MP4 box stay readable with the same bytes, and only what
// must move is written.
//
// The new layout is: new media, the "tevd" box header (MP4 with a box), at
// most one leading "Invalid_Data" filler record, the live records, the
// directory and the Voxa block. When the live records can stay where they
// are (the new media leaves no gap in front of them, or a gap of at least
// one filler record's 20 bytes), only the media, the box header, the filler
// and the directory are written. Otherwise the live records move through a
// bounded buffer to right behind the media, and the directory, the box size
// and the sound table (whose positions are absolute) follow them.
#include <algorithm>
#include <cstring>
#include <vector>

#include "container/check_internal.h"
#include "container/format.h"
#include "container/mp4_box.h"
#include "container/owned.h"
#include "editor/add_internal.h"
#include "editor/delete_rebuild.h"
#include "stream/byte_move.h"
#include "stream/safe_edit.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/sound.h"
#include "tev/voxa.h"
#include "util/checked.h"
#include "util/log.h"

namespace {

using tev::kLogError;
using tev::logLine;

constexpr char kCoverTag[] = "TEVEncoderAPIs::FastChangeCoverData";
constexpr char kOrgTag[] = "TEVEncoderAPIs::FastChangeOrgData";

// Records move through one buffer of at most this size.
// Enough leading bytes to tell the media kinds apart: size, "ftyp", brand.
constexpr int64_t kKindBytes = 12;
constexpr int64_t kMaxPosition = 0xFFFFFFFFu;

// What the first bytes say a media is. An image is replaced only by an
// image of the same family and a video by a video, so that the records keep
// the framing (a "tevd" box or none) their media calls for.
enum class MediaKind { kJpeg, kHeif, kMp4, kOther };

MediaKind kindOf(const unsigned char* head, int64_t length) {
    if (length >= 8 && std::memcmp(head + 4, tev::kTagFtyp, 4) == 0) {
        static const char* const kImageBrands[] = {"heic", "heix", "heim", "heis", "hevc",
                                                   "hevx", "mif1", "msf1", "avif", "avis"};
        if (length >= kKindBytes) {
            for (const char* brand : kImageBrands) {
                if (std::memcmp(head + 8, brand, 4) == 0) return MediaKind::kHeif;
            }
        }
        return MediaKind::kMp4;
    }
    if (length >= 2 && head[0] == 0xFF && head[1] == 0xD8) return MediaKind::kJpeg;
    return MediaKind::kOther;
}

// Reads `length` bytes at `at`; false when the stream gives fewer.
bool readAt(TevStream& stream, int64_t at, void* out, int64_t length) {
    return stream.seek(at, SEEK_SET) == at && stream.read(out, length) == length;
}

bool copyRange(TevStream& src, int64_t from, TevStream& dst, int64_t to, int64_t length) {
    return tev::ByteMover().copy(src, from, dst, to, length) == tev::MoveResult::kDone;
}

// True when the last bytes of the first `length` bytes of `stream` read as
// the end of a container ("TEVT") or of a Voxa block ("VOXABS").
bool endsLikeTrailer(TevStream& stream, int64_t length) {
    unsigned char tail[tev::kVoxaTailMarkSize] = {};
    if (length >= tev::kVoxaTailMarkSize &&
        readAt(stream, length - tev::kVoxaTailMarkSize, tail, tev::kVoxaTailMarkSize) &&
        std::memcmp(tail, tev::kVoxaTailMark, tev::kVoxaTailMarkSize) == 0) {
        return true;
    }
    unsigned char tag[tev::kTagSize] = {};
    return length >= tev::kTagSize && readAt(stream, length - tev::kTagSize, tag, tev::kTagSize) &&
           std::memcmp(tag, tev::kTagTail, tev::kTagSize) == 0;
}

// The new media: its length, its first bytes and a way to write it.
class NewMedia {
public:
    virtual ~NewMedia() = default;
    virtual int64_t length() const = 0;
    // The first min(length, kKindBytes) bytes.
    virtual bool head(unsigned char* out) = 0;
    virtual bool endsLikeTrailer() = 0;
    // Writes the media at the start of `dst`.
    virtual bool writeTo(TevStream& dst) = 0;
};

class MemoryMedia : public NewMedia {
public:
    MemoryMedia(const unsigned char* bytes, uint32_t length) : bytes_(bytes), length_(length) {}
    int64_t length() const override { return length_; }
    bool head(unsigned char* out) override {
        std::memcpy(out, bytes_, std::min<int64_t>(length_, kKindBytes));
        return true;
    }
    bool endsLikeTrailer() override {
        const auto endsWith = [&](const char* mark, uint32_t size) {
            return length_ >= size && std::memcmp(bytes_ + length_ - size, mark, size) == 0;
        };
        return endsWith(tev::kVoxaTailMark, tev::kVoxaTailMarkSize) || endsWith(tev::kTagTail, tev::kTagSize);
    }
    bool writeTo(TevStream& dst) override {
        return dst.seek(0, SEEK_SET) == 0 && dst.write(bytes_, length_) == length_;
    }

private:
    const unsigned char* bytes_;
    uint32_t length_;
};

// The media part of another file: the bytes in front of its own container
// or sound.
class StreamMedia : public NewMedia {
public:
    StreamMedia(TevStream& src, int64_t length) : src_(src), length_(length) {}
    int64_t length() const override { return length_; }
    bool head(unsigned char* out) override {
        return readAt(src_, 0, out, std::min<int64_t>(length_, kKindBytes));
    }
    bool endsLikeTrailer() override { return ::endsLikeTrailer(src_, length_); }
    bool writeTo(TevStream& dst) override { return copyRange(src_, 0, dst, 0, length_); }

private:
    TevStream& src_;
    int64_t length_;
};

bool isFiller(const _TEV_data_info& entry) {
    return _getDataType(entry.meta_type) == TEV_INVALID_DATA && entry.name != nullptr &&
           std::strcmp(entry.name, tev::kFillerName) == 0;
}

// The first sound of a parsed Voxa block of one sound.
struct Sound {
    uint32_t version;
    uint32_t count;
    uint32_t start;
    uint32_t end;
};

// Everything the replacement needs to know about the file as it is.
struct Layout {
    int64_t mediaEnd = 0;   // first byte that is not media
    bool boxed = false;     // a "tevd" box header follows the media
    bool fillerAllowed = false;
    int64_t keptStart = 0;  // the bytes kept as they are: live records, or a
    int64_t keptEnd = 0;    // sound in front of the container and its records
    std::vector<_TEV_data_info> kept;  // directory entries of the kept records
    bool hasSound = false;
    Sound sound{};
    bool hasContainer = false;
};

// The Voxa block behind the container: exactly one sound.
bool readSound(TevStream& stream, Sound* sound) {
    tev::OwnedVoxaOnStream voxa(_checkAudioInImageStream(&stream));
    if (!voxa || voxa->sound_count != 1 || voxa->sound_table == nullptr) return false;
    *sound = {voxa->version, voxa->sound_count, voxa->sound_table[0], voxa->sound_table[1]};
    return sound->start < sound->end;
}

// Fills `layout` from a file of signature 2 or 4. False when the container
// (or the sound behind it) does not parse or lies in a way this edit cannot
// keep.
bool readLayout(TevStream& stream, uint32_t signature, Layout* layout) {
    const tev::OwnedTevInfo info = tev::parseStreamIndex(&stream, true);
    tev::deleting::RecordSpan span{};
    if (!info || info->version >= tev::kFirstWideEntryVersion || !tev::deleting::locateRecords(*info, &span)) {
        return false;
    }
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        if (info->meta_data[i]->name == nullptr) return false;
    }
    layout->hasContainer = true;
    layout->boxed = checkSignatureMP4Tag(info.get()) == LUMET_TEV_TRUE;
    // The parse counts a sound in front of the container as appended data.
    layout->mediaEnd = span.first - (layout->boxed ? tev::kBoxHeaderSize : 0);
    if (info->data_start_position > layout->mediaEnd) return false;
    const uint32_t leading = isFiller(*info->meta_data[0]) ? 1 : 0;
    layout->keptStart = span.first + (leading != 0 ? info->meta_data[0]->length : 0);
    layout->keptEnd = span.directory;
    layout->fillerAllowed = true;
    for (uint32_t i = leading; i < info->meta_count; ++i) layout->kept.push_back(*info->meta_data[i]);
    if (signature != SIGNATURE_VOXA_TEV) return true;
    if (!readSound(stream, &layout->sound)) return false;
    layout->hasSound = true;
    const Sound& s = layout->sound;
    if (s.start >= layout->keptStart && s.end <= layout->keptEnd) return true;
    // A sound between the media and the container: both move together.
    if (s.end > layout->mediaEnd) return false;
    layout->mediaEnd = s.start;
    layout->keptStart = s.start;
    layout->boxed = false;
    layout->fillerAllowed = false;
    layout->kept.clear();
    for (uint32_t i = 0; i < info->meta_count; ++i) layout->kept.push_back(*info->meta_data[i]);
    return true;
}

// Where the media of a file ends: in front of its container or sound, or
// at its end when it has neither. -1 when that cannot be told.
int64_t mediaEndOf(TevStream& stream) {
    const uint32_t signature = getSignatureStream(&stream);
    if (signature == SIGNATURE_DETECTION_FAIL) return stream.seek(0, SEEK_END);
    if (signature == SIGNATURE_VOXA) {
        Sound sound{};
        return readSound(stream, &sound) ? sound.start : -1;
    }
    Layout layout;
    if ((signature != SIGNATURE_TEV && signature != SIGNATURE_VOXA_TEV) || !readLayout(stream, signature, &layout)) {
        return -1;
    }
    return layout.mediaEnd;
}

// The replacement's plan: where the kept bytes go and what fills the gap.
struct Plan {
    int64_t keptTo;    // new position of the kept bytes
    int64_t filler;    // leading filler record in front of them, 0 for none
};

bool planLayout(const Layout& layout, int64_t mediaLength, Plan* plan) {
    const int64_t box = layout.boxed ? tev::kBoxHeaderSize : 0;
    const int64_t keptLength = layout.keptEnd - layout.keptStart;
    const int64_t room = layout.keptStart - mediaLength - box;
    const int64_t bound = static_cast<int64_t>(tev::kContainerSizeBound);
    const bool stays = room >= tev::kFillerHeaderSize || (room == 0 && !layout.kept.empty());
    if (layout.fillerAllowed && stays && room + keptLength < bound) {
        *plan = {layout.keptStart, room};
    } else {
        // A container needs one entry: with no live record the filler stays.
        const int64_t filler = layout.fillerAllowed && layout.kept.empty() ? tev::kFillerHeaderSize : 0;
        *plan = {mediaLength + box + filler, filler};
    }
    // Every position the trailer and the box hold must fit in 32 bits.
    const int64_t shift = plan->keptTo - layout.keptStart;
    const int64_t tailLength = plan->filler + keptLength + box + tev::kDirectoryFixedSize +
                               tev::kDirectoryEntrySize * static_cast<int64_t>(layout.kept.size() + 1) +
                               tev::kVoxaOneSoundBlockSize;
    if (tailLength >= bound) return false;
    return !layout.hasSound || layout.sound.end + shift <= kMaxPosition;
}

// The directory behind the kept records at their new place, the Voxa block
// behind it with the sound's positions moved by `shift`, and the cut.
bool writeTail(TevStream& stream, const Layout& layout, const Plan& plan) {
    const int64_t keptLength = layout.keptEnd - layout.keptStart;
    _TEV_data_info filler = tev::makeEntry(_setMetaType(TEV_INVALID_DATA, 0),
                                           static_cast<uint32_t>(plan.filler + keptLength),
                                           static_cast<uint32_t>(plan.filler));
    std::vector<_TEV_data_info> kept = layout.kept;
    std::vector<_TEV_data_info*> entries;
    if (plan.filler > 0 && layout.fillerAllowed) entries.push_back(&filler);
    for (_TEV_data_info& entry : kept) entries.push_back(&entry);
    const int64_t directory = plan.keptTo + keptLength;
    if (stream.seek(directory, SEEK_SET) != directory ||
        !tev::writeDirectory(stream, static_cast<uint32_t>(entries.size()), entries).ok()) {
        return false;
    }
    if (layout.hasSound) {
        const int64_t shift = plan.keptTo - layout.keptStart;
        const Sound& s = layout.sound;
        if (!tev::writeSoundTrailer(stream, s.version, s.count, static_cast<uint32_t>(s.start + shift),
                                   static_cast<uint32_t>(s.end + shift))) {
            return false;
        }
    }
    return stream.truncate(stream.tell()) == 0;
}

// The box header (size to the end of the stream) and the filler record in
// front of the kept records.
bool writeFront(TevStream& stream, const Layout& layout, const Plan& plan, int64_t mediaLength) {
    if (layout.boxed) {
        const int64_t end = stream.seek(0, SEEK_END);
        if (end < mediaLength || stream.seek(mediaLength, SEEK_SET) != mediaLength ||
            !tev::writeBoxHeader(stream, static_cast<uint32_t>(end - mediaLength))) {
            return false;
        }
    }
    if (plan.filler == 0) return true;
    const int64_t at = plan.keptTo - plan.filler;
    if (stream.seek(at, SEEK_SET) != at) return false;
    stream.writeDummyTEVData(static_cast<uint32_t>(plan.filler));
    return stream.tell() == plan.keptTo;
}

// The refusals that leave the file as it was, in the order they are checked.
bool mediaAcceptable(TevStream& stream, NewMedia& media, const char* tag) {
    if (media.length() < 1) {
        logLine(kLogError, tag, "new media is empty");
        return false;
    }
    unsigned char oldHead[kKindBytes] = {};
    unsigned char newHead[kKindBytes] = {};
    const int64_t size = stream.seek(0, SEEK_END);
    const int64_t oldRead = std::min<int64_t>(std::max<int64_t>(size, 0), kKindBytes);
    if (size < 0 || !readAt(stream, 0, oldHead, oldRead) || !media.head(newHead)) {
        logLine(kLogError, tag, "File Read Error");
        return false;
    }
    if (kindOf(oldHead, oldRead) != kindOf(newHead, std::min(media.length(), kKindBytes))) {
        logLine(kLogError, tag, "new media is not of the old media's kind");
        return false;
    }
    if (media.endsLikeTrailer()) {
        logLine(kLogError, tag, "new media ends like TEV data or a voxa block");
        return false;
    }
    return true;
}

// A file that carries a bare sound: the sound is first turned into records,
// as the save family does, so that the replacement keeps it.
bool convertBareSound(TevStream& stream, const char* tag) {
    if (checkMP4Stream(&stream) == LUMET_TEV_TRUE) {
        logLine(kLogError, tag, "SIGNATURE_VOXA is not use MP4 Format");
        return false;
    }
    _voxa_info_struct* voxa = checkVoxaInStream(&stream);
    if (voxa == nullptr || checkVoxaInfoForSaving(voxa, 0, 0, 0) != LUMET_TEV_TRUE) {
        DestroyVoxaStream(voxa);
        logLine(kLogError, tag, "voxa data does not parse");
        return false;
    }
    const uint32_t converted = convertVoxaToEchoFrame(&voxa);
    DestroyVoxaStream(voxa);
    if (converted != LUMET_TEV_TRUE) {
        logLine(kLogError, tag, "voxa conversion fail");
        return false;
    }
    return true;
}

uint32_t replaceMedia(TevStream* stream, NewMedia& media, const char* tag) {
    if (stream == nullptr) {
        logLine(kLogError, tag, "Stream is null");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, tag, "CheckError is false");
        return LUMET_TEV_FALSE;
    }
    if (!mediaAcceptable(*stream, media, tag)) return LUMET_TEV_FALSE;
    uint32_t signature = getSignatureStream(stream);
    if (signature == SIGNATURE_DETECTION_FAIL) {
        if (!media.writeTo(*stream) || stream->truncate(media.length()) != 0) {
            logLine(kLogError, tag, "File Write Error");
            return LUMET_TEV_FALSE;
        }
        return LUMET_TEV_TRUE;
    }
    if (signature == SIGNATURE_VOXA) {
        if (!convertBareSound(*stream, tag)) return LUMET_TEV_FALSE;
        signature = getSignatureStream(stream);
    }
    Layout layout;
    Plan plan{};
    if ((signature != SIGNATURE_TEV && signature != SIGNATURE_VOXA_TEV) ||
        !readLayout(*stream, signature, &layout)) {
        logLine(kLogError, tag, "TEV data does not parse");
        return LUMET_TEV_FALSE;
    }
    if (media.length() == layout.mediaEnd) {
        if (!media.writeTo(*stream)) {
            logLine(kLogError, tag, "File Write Error");
            return LUMET_TEV_FALSE;
        }
        return LUMET_TEV_TRUE;
    }
    if (!planLayout(layout, media.length(), &plan)) {
        logLine(kLogError, tag, "There is no storage for the new media in the source file");
        return LUMET_TEV_FALSE;
    }
    // The kept bytes move first, so that nothing is written over before it
    // was read; the media goes in front of them last.
    if (plan.keptTo != layout.keptStart &&
        !copyRange(*stream, layout.keptStart, *stream, plan.keptTo, layout.keptEnd - layout.keptStart)) {
        logLine(kLogError, tag, "File Move Error");
        return LUMET_TEV_FALSE;
    }
    if (!writeTail(*stream, layout, plan) || !media.writeTo(*stream) ||
        !writeFront(*stream, layout, plan, media.length())) {
        logLine(kLogError, tag, "File Write Error");
        return LUMET_TEV_FALSE;
    }
    return LUMET_TEV_TRUE;
}

}  // namespace

uint32_t FastChangeCoverDataStream(TevStream* stream, const unsigned char* media, uint32_t length) {
    if (media == nullptr) {
        logLine(kLogError, kCoverTag, "new media is empty");
        return LUMET_TEV_FALSE;
    }
    MemoryMedia source(media, length);
    return replaceMedia(stream, source, kCoverTag);
}

uint32_t FastChangeCoverData(const char* path, const unsigned char* media, uint32_t length) {
    const tev::OwnedFile file(path != nullptr ? _kfopen(path, "r+b") : nullptr);
    if (!file) {
        logLine(kLogError, kCoverTag, "File Open Error");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(file.get());
    return tev::guardedStreamEdit(&stream, [&](TevStream& edited) {
        return FastChangeCoverDataStream(&edited, media, length);
    });
}

uint32_t FastChangeCoverDataFd(int fd, const unsigned char* media, uint32_t length) {
    if (fd < 1) {
        logLine(kLogError, kCoverTag, "fd error!!");
        return LUMET_TEV_FALSE;
    }
    TevStreamFD stream(fd);
    return tev::guardedStreamEdit(&stream, [&](TevStream& edited) {
        return FastChangeCoverDataStream(&edited, media, length);
    });
}

uint32_t FastChangeOrgDataStream(TevStream* stream, TevStream* org) {
    if (org == nullptr || !org->CheckError()) {
        logLine(kLogError, kOrgTag, "org Stream is null");
        return LUMET_TEV_FALSE;
    }
    const int64_t length = mediaEndOf(*org);
    if (length < 0) {
        logLine(kLogError, kOrgTag, "org TEV data does not parse");
        return LUMET_TEV_FALSE;
    }
    StreamMedia source(*org, length);
    return replaceMedia(stream, source, kOrgTag);
}

uint32_t FastChangeOrgData(const char* path, const char* orgPath) {
    const tev::OwnedFile file(path != nullptr ? _kfopen(path, "r+b") : nullptr);
    const tev::OwnedFile org(orgPath != nullptr ? _kfopen(orgPath, "rb") : nullptr);
    if (!file || !org) {
        logLine(kLogError, kOrgTag, "File Open Error");
        return LUMET_TEV_FALSE;
    }
    TevStreamFile stream(file.get());
    TevStreamFile orgStream(org.get());
    return tev::guardedStreamEdit(&stream, [&](TevStream& edited) {
        return FastChangeOrgDataStream(&edited, &orgStream);
    });
}

uint32_t FastChangeOrgDataFd(int fd, int orgFd) {
    if (fd < 1 || orgFd < 1) {
        logLine(kLogError, kOrgTag, "fd error!!");
        return LUMET_TEV_FALSE;
    }
    TevStreamFD stream(fd);
    TevStreamFD orgStream(orgFd);
    return tev::guardedStreamEdit(&stream, [&](TevStream& edited) {
        return FastChangeOrgDataStream(&edited, &orgStream);
    });
}
