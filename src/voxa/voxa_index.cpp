#include "tev/container.h"
#include "tev/voxa.h"

namespace {

constexpr uint32_t kNoRecord = 0xFFFFFFFFu;

}  // namespace

// A Voxa sound that was converted into a container record keeps its bytes
// where they were: the record's payload starts exactly at the sound's start.
uint32_t FindOldVoxaIndex(_TEV_info* info, _voxa_info_struct* voxa) {
    if (info == nullptr || voxa == nullptr || info->meta_count == 0) return kNoRecord;
    if (voxa->sound_table == nullptr || voxa->sound_count == 0) return kNoRecord;
    const int64_t soundStart = voxa->sound_table[0];
    for (uint32_t index = 0; index < info->meta_count; ++index) {
        int64_t position = 0;
        int64_t length = 0;
        if (readDataOfIndexOffset(info, index, &position, &length) == 0) continue;
        if (position == soundStart) return index;
    }
    return kNoRecord;
}
