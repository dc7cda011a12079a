// Whether a parsed container sits inside a "tevd" box: the box type lies in
// the 4 bytes in front of the first record (8 bytes in front from version
// 110 on, which keep a field between the box header and the record).
#include <cstdio>

#include "container/format.h"
#include "container/index.h"
#include "tev/detect.h"
#include "tev/stream.h"
#include "util/log.h"

uint32_t checkSignatureMP4Tag(_TEV_info* info) {
    if (info == nullptr) return 0;
    if (info->Stream == nullptr) {
        tev::logLine(tev::kLogError, "TEVAPIs::checkSignatureMP4Tag", "Stream is null\n");
        return 0;
    }
    if (!info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEVAPIs::checkSignatureMP4Tag", "Stream CheckError is false\n");
        return 0;
    }
    if (info->meta_count == 0 || info->meta_data == nullptr || info->meta_data[0] == nullptr) return 0;
    int64_t at = tev::recordStart(*info, *info->meta_data[0]);
    if (at < 0) return 0;
    at -= tev::kTagSize;
    if (tev::isWideVersion(info->version)) at -= tev::kWideDataStartShift;
    if (at < 0) return 0;
    char tag[tev::kTagSize] = {};
    if (info->Stream->seek(at, SEEK_SET) != at || !tev::readFully(*info->Stream, tag, tev::kTagSize)) {
        tev::logLine(tev::kLogError, "TEV::checkSignatureMP4Tag", "File Read Error");
        return 0;
    }
    return tev::tagEquals(tag, tev::kTagBox) ? 1 : 0;
}
