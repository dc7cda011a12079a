#include "container/format.h"
#include "tev/editor.h"
#include "util/log.h"

// The sum of the new record's sizes and the container's present size (its
// first record's distance from "TEVH" plus everything from "TEVH" to the end)
// must stay below the bound, so that every offset of the grown container,
// tag headers and the longer directory included, still fits 32 bits.
uint32_t checkTEVInfoForSaving(_TEV_info* info, uint32_t data_len, uint32_t sub_len, uint32_t name_len) {
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "checkTEVInfoForSaving", "tev info null");
        return LUMET_TEV_FALSE;
    }
    if (info->meta_count == 0 || info->meta_data == nullptr || info->meta_data[0] == nullptr) {
        tev::logLine(tev::kLogError, "checkTEVInfoForSaving", "tev info meta_data null !!");
        return LUMET_TEV_FALSE;
    }
    // Five 32-bit terms cannot overflow 64 bits.
    const uint64_t total =
        uint64_t{data_len} + sub_len + name_len + info->header_offset + info->meta_data[0]->start_offset;
    if (total < tev::kContainerSizeBound) return LUMET_TEV_TRUE;
    tev::logLine(tev::kLogError, "checkTEVInfoForSaving",
                 "There is no storage for saving TEV data in the source file, delete a tev data");
    return LUMET_TEV_FALSE;
}
