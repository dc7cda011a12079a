// The pure layout functions of records and directories, and the free-standing
// record writer.
#include "container/format.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "util/log.h"

uint32_t _setMetaType(uint16_t type, uint32_t has_sub) {
    const uint32_t flag = has_sub != 0 ? tev::kSubInfoFlag : 0u;
    return (uint32_t{type} << 16) | flag;
}

uint32_t _getDataType(uint32_t meta_type) { return meta_type >> 16; }

// Both are computed in 32-bit unsigned arithmetic: a sum beyond the field
// wraps, as the directory field that holds it would. Callers that write what
// they compute check their sizes first (checkTEVInfoForSaving, the add paths).
uint32_t _getDataLength(uint32_t has_sub, uint32_t name_len, uint32_t sub_len, uint32_t data_len) {
    uint32_t length = tev::kTagHeaderSize + name_len + data_len;
    if (has_sub != 0) length += tev::kSubInfoLengthSize + sub_len;
    return length;
}

uint32_t _calculateTEV_KTHO(uint32_t count) { return tev::kKthoBase + tev::kDirectoryEntrySize * count; }

int64_t writeTEVData(TevStream* stream, uint32_t type, uint32_t has_sub, const void* name, uint32_t name_len,
                     const void* sub, uint32_t sub_len, const void* data, uint32_t data_len) {
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEV::FastDeleteAllTEVData", "Stream is null");
        return 0;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEV::FastDeleteAllTEVData", "CheckError is false");
        return 0;
    }
    // The data follows whatever became of the tag header; the answer is the
    // data write's.
    stream->writeDataTagInfo(type, has_sub, name, name_len, sub, sub_len);
    return stream->write(data, data_len);
}
