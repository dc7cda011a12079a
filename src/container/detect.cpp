// Telling plain media, containers and Voxa blocks apart by the last bytes of
// a file, and recognising ISO base media (MP4) files by their "ftyp" box.
#include <cstdio>
#include <cstring>

#include "container/format.h"
#include "container/owned.h"
#include "tev/detect.h"
#include "util/log.h"

namespace {

using tev::kLogError;
using tev::logLine;

constexpr int64_t kTagSize = tev::kTagSize;
// Where "TEVT" stands when a one-sound Voxa block follows a container.
constexpr int64_t kContainerBeforeVoxaDistance = tev::kVoxaTevTagDistance;
// The box type of the first box of an ISO base media file.
constexpr int64_t kFtypOffset = 4;

// What a descriptor check reports for a descriptor below 1: the size of the
// log entry it wrote (priority byte, tag and text with their terminators),
// as the platform log call reports it. It is positive and no signature value,
// so callers test the descriptor themselves before asking.
constexpr char kFdErrorTag[] = "TEVEncoderAPIs::getSignatureFd";
constexpr char kFdErrorText[] = "fd error!!";
constexpr uint32_t kFdErrorResult = 1 + sizeof kFdErrorTag + sizeof kFdErrorText;

bool sameTag(const unsigned char* bytes, const char* tag, size_t size) {
    return std::memcmp(bytes, tag, size) == 0;
}

// Signature of a file that ends with "VOXABS": is there a container
// directory ("TEVT") right in front of a one-sound Voxa block?
uint32_t voxaSignature(TevStream& stream, int64_t size) {
    if (size < kContainerBeforeVoxaDistance) return SIGNATURE_DETECTION_FAIL;
    if (stream.seek(-kContainerBeforeVoxaDistance, SEEK_END) < 1) {
        logLine(kLogError, "TEV::getSignatureFP", "File Search Error");
        return SIGNATURE_ERROR;
    }
    unsigned char tail[kTagSize] = {};
    stream.read(tail, kTagSize);
    return sameTag(tail, tev::kTagTail, kTagSize) ? SIGNATURE_VOXA_TEV : SIGNATURE_VOXA;
}

uint32_t signatureOf(TevStream& stream) {
    if (stream.seek(0, SEEK_END) < 0) {
        logLine(kLogError, "TEVAPIs::getSignatureStream", "File Search Error");
        return SIGNATURE_ERROR;
    }
    const int64_t size = stream.tell();
    if (size < tev::kVoxaTailMarkSize) return SIGNATURE_DETECTION_FAIL;
    if (stream.seek(-int64_t{tev::kVoxaTailMarkSize}, SEEK_END) < 0) {
        logLine(kLogError, "TEVAPIs::getSignatureStream", "Header Search Error");
        return SIGNATURE_ERROR;
    }
    unsigned char last[tev::kVoxaTailMarkSize] = {};
    if (stream.read(last, tev::kVoxaTailMarkSize) < 1) {
        logLine(kLogError, "TEVAPIs::getSignatureStream", "File Read Error");
        return SIGNATURE_ERROR;
    }
    if (sameTag(last, tev::kVoxaTailMark, tev::kVoxaTailMarkSize)) return voxaSignature(stream, size);
    const unsigned char* lastTag = last + tev::kVoxaTailMarkSize - kTagSize;
    return sameTag(lastTag, tev::kTagTail, kTagSize) ? SIGNATURE_TEV : SIGNATURE_DETECTION_FAIL;
}

}  // namespace

uint32_t getSignatureStream(TevStream* stream) {
    if (stream == nullptr) {
        logLine(kLogError, "TEVAPIs::getSignatureStream", "Stream is null\n");
        return SIGNATURE_ERROR;
    }
    if (!stream->CheckError()) {
        logLine(kLogError, "TEVAPIs::getSignatureStream", "CheckError is false\n");
        return SIGNATURE_ERROR;
    }
    return signatureOf(*stream);
}

uint32_t getSignature(const char* path) {
    tev::OwnedFile fp(path != nullptr ? _kfopen(path, "rb") : nullptr);
    if (!fp) {
        logLine(kLogError, "TEV::getSignature", "File Open Error : %s", path != nullptr ? path : "(null)");
        return SIGNATURE_ERROR;
    }
    TevStreamFile stream(fp.get());
    return getSignatureStream(&stream);
}

uint32_t getSignatureFP(FILE* fp) {
    TevStreamFile stream(fp);
    return getSignatureStream(&stream);
}

uint32_t getSignatureFd(int fd) {
    if (fd < 1) {
        logLine(kLogError, kFdErrorTag, kFdErrorText);
        return kFdErrorResult;
    }
    TevStreamFD stream(fd);
    return getSignatureStream(&stream);
}

uint32_t getSignatureBuffer(TevBufferHandle* handle) {
    TevStreamBuffer stream(handle);
    return getSignatureStream(&stream);
}

uint32_t isTEVFile(const char* path) {
    if (path == nullptr || path[0] == '\0') return LUMET_TEV_FALSE;
    const uint32_t signature = getSignature(path);
    return signature == SIGNATURE_TEV || signature == SIGNATURE_VOXA_TEV ? LUMET_TEV_TRUE
                                                                         : LUMET_TEV_FALSE;
}

uint32_t checkMP4Stream(TevStream* stream) {
    if (stream == nullptr) {
        logLine(kLogError, "TEVAPIs::checkMP4Stream", "Stream is null\n");
        return LUMET_TEV_FALSE;
    }
    if (!stream->CheckError()) return LUMET_TEV_FALSE;
    const int64_t remembered = stream->tell();
    unsigned char boxType[kTagSize] = {};
    stream->seek(0, SEEK_SET);
    const bool atBoxType = stream->seek(kFtypOffset, SEEK_SET) == kFtypOffset;
    const int64_t got = atBoxType ? stream->read(boxType, kTagSize) : 0;
    stream->seek(remembered, SEEK_SET);
    if (got < kTagSize) {
        logLine(kLogError, "TEV::checkMP4Stream", "File Read Error");
        return LUMET_TEV_FALSE;
    }
    return sameTag(boxType, tev::kTagFtyp, kTagSize) ? LUMET_TEV_TRUE : LUMET_TEV_FALSE;
}

uint32_t checkMP4Fp(FILE* fp) {
    TevStreamFile stream(fp);
    return checkMP4Stream(&stream);
}

uint32_t checkMP4Buffer(TevBufferHandle* handle) {
    TevStreamBuffer stream(handle);
    return checkMP4Stream(&stream);
}
