// The pure layout functions of records and directories, and the free-standing
// record writer.
#include "container/format.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "util/checked.h"
#include "util/log.h"

uint32_t _setMetaType(uint16_t type, uint32_t has_sub) {
    const uint32_t flag = has_sub != 0 ? tev::kSubInfoFlag : 0u;
    return (uint32_t{type} << 16) | flag;
}

uint32_t _getDataType(uint32_t meta_type) { return meta_type >> 16; }

// A record length that does not fit the 32-bit directory field gives 0, which
// no real record has (the tag header alone is 8 bytes).
uint32_t _getDataLength(uint32_t has_sub, uint32_t name_len, uint32_t sub_len, uint32_t data_len) {
    uint32_t length = tev::kTagHeaderSize;
    if (!tev::checkedAdd(length, name_len, &length) || !tev::checkedAdd(length, data_len, &length)) {
        return 0;
    }
    if (has_sub != 0 && (!tev::checkedAdd(length, tev::kSubInfoLengthSize, &length) ||
                         !tev::checkedAdd(length, sub_len, &length))) {
        return 0;
    }
    return length;
}

// 0 when the count is too large for a 32-bit KTHO field.
uint32_t _calculateTEV_KTHO(uint32_t count) {
    uint32_t entries = 0;
    uint32_t ktho = 0;
    if (!tev::checkedMul(count, tev::kDirectoryEntrySize, &entries) ||
        !tev::checkedAdd(entries, tev::kKthoBase, &ktho)) {
        return 0;
    }
    return ktho;
}

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
    // No data behind a tag header that did not make it to the stream.
    if (stream->writeDataTagInfo(type, has_sub, name, name_len, sub, sub_len) == 0) return 0;
    return stream->write(data, data_len);
}
