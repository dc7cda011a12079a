// The container version: read from a file's directory, and the one this
// library writes.
#include <cstdio>
#include <cstring>

#include "container/format.h"
#include "container/index.h"
#include "tev/container.h"
#include "tev/diag.h"
#include "tev/stream.h"
#include "util/log.h"

namespace {

// A file ends with "VOXABS" when a Voxa block closes it, else possibly with
// "TEVT"; both are found in its last 6 bytes.
constexpr int64_t kEndingSize = tev::kVoxaTailMarkSize;
constexpr int kVersionTextSize = 4;

// Reads KTHO `distance` bytes before the end and the version 4 bytes after
// the "TEVH" it points at. 0 when either cannot be read.
uint32_t readVersionBehind(TevStream& stream, int64_t size, int64_t distance) {
    uint32_t ktho = 0;
    if (distance > size || stream.seek(-distance, SEEK_END) < 0) {
        tev::logLine(tev::kLogError, "TEV::GetTEVVersion", "Sig Search Error");
        return 0;
    }
    if (!tev::readWord(stream, &ktho)) return 0;
    if (ktho < tev::kMinKtho || ktho > size) {
        tev::logLine(tev::kLogError, "TEV::GetTEVVersion", "file has no suond OFFS");
        return 0;
    }
    const int64_t headDistance = distance + ktho;
    if (headDistance > size || stream.seek(-(headDistance - tev::kTagSize), SEEK_END) < 0) {
        tev::logLine(tev::kLogError, "TEV::GetTEVVersion", "Sig Search Error");
        return 0;
    }
    uint32_t version = 0;
    return tev::readWord(stream, &version) ? version : 0;
}

}  // namespace

uint32_t GetTEVVersion(TevStream* stream) {
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVAPIs::getSignatureStream", "Stream is null\n");
        return 0;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVAPIs::getSignatureStream", "CheckError is false\n");
        return 0;
    }
    const int64_t size = stream->seek(0, SEEK_END);
    if (size < 0) {
        tev::logLine(tev::kLogError, "TEVAPIs::getSignatureStream", "File Search Error");
        return 0;
    }
    if (size < kEndingSize) return 1;
    char ending[kEndingSize] = {};
    if (stream->seek(-kEndingSize, SEEK_END) < 0 || !tev::readFully(*stream, ending, kEndingSize))
        return 0;
    if (std::memcmp(ending, tev::kVoxaTailMark, tev::kVoxaTailMarkSize) == 0) {
        if (size < tev::kVoxaTevTagDistance) return 1;
        if (stream->seek(-int64_t{tev::kVoxaTevTagDistance}, SEEK_END) < 0 ||
            !tev::readTag(*stream, tev::kTagTail)) {
            return 0;
        }
        return readVersionBehind(*stream, size, tev::kVoxaTevKthoDistance);
    }
    if (tev::tagEquals(ending + kEndingSize - tev::kTagSize, tev::kTagTail)) {
        return readVersionBehind(*stream, size, tev::kTailFieldsSize);
    }
    return 1;
}

char* getTEVVersion() {
    auto* text = static_cast<char*>(_kmalloc(kVersionTextSize));
    if (text == nullptr) return nullptr;
    std::snprintf(text, kVersionTextSize, "%d", static_cast<int>(tev::kVersion));
    return text;
}

void printTEVVersion() {
    TEVLogD("TEV Version Info", "Lumet TEV Library Version\n");
    TEVLogD("TEV Version Info", "Version\t : %d\n", static_cast<int>(tev::kVersion));
    TEVLogD("TEV Version Info", "Build Date\t : %s %s\n", __DATE__, __TIME__);
}
