// Releasing the index, its entries, packs, extracted records and position
// pairs. The index only borrows its stream; the pack destroyers differ in
// what they do to it.
#include "container/name_table.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "tev/types.h"

uint32_t _destroyTEVData(_TEV_data_info* entry) {
    if (entry == nullptr) return 0;
    _kfree(entry->name);
    _kfree(entry);
    return 1;
}

uint32_t _destroyTEVDataList(_TEV_info* info) {
    if (info == nullptr) return 0;
    if (info->meta_data != nullptr) {
        for (uint32_t i = 0; i < info->meta_count; ++i) _destroyTEVData(info->meta_data[i]);
        _kfree(info->meta_data);
        info->meta_data = nullptr;
    }
    return 1;
}

uint32_t DestroyTEV(_TEV_info* info) {
    if (info == nullptr) return 0;
    _destroyTEVDataList(info);
    _kfree(info);
    return 1;
}

uint32_t destroyTEVDATA_Stream(_TEV_info_pack* pack) {
    if (pack == nullptr) return 0;
    tev::forgetPackNames(pack);
    // The names belong to the index entries; only the array is the pack's.
    _kfree(pack->name_list);
    pack->name_list = nullptr;
    if (pack->units != nullptr) {
        for (uint32_t i = 0; i < pack->unit_count; ++i) _kfree(pack->units[i]);
        _kfree(pack->units);
    }
    DestroyTEV(pack->info);
    _kfree(pack);
    return 1;
}

namespace {

TevStream* takeStream(_TEV_info_pack* pack) {
    if (pack->info == nullptr) return nullptr;
    TevStream* stream = pack->info->Stream;
    pack->info->Stream = nullptr;
    return stream;
}

}  // namespace

uint32_t destroyTEVDATA(_TEV_info_pack* pack) {
    if (pack == nullptr) return 0;
    TevStream* stream = takeStream(pack);
    if (stream != nullptr) {
        stream->destroyPointer();
        delete stream;
    }
    return destroyTEVDATA_Stream(pack);
}

uint32_t destroyTEVDATA_FP(_TEV_info_pack* pack) {
    if (pack == nullptr) return 0;
    delete takeStream(pack);
    return destroyTEVDATA_Stream(pack);
}

uint32_t destroyTEVDATA_Buffer(_TEV_info_pack* pack) {
    if (pack == nullptr) return 0;
    delete takeStream(pack);
    return destroyTEVDATA_Stream(pack);
}

void destroyTEVDATA_UNIT(_TEV_data_unit* unit) {
    if (unit == nullptr) return;
    _kfree(unit->data);
    _kfree(unit->sub_info);
    _kfree(unit);
}

void destroyTEVOFFSET(TevOffsetInfo* offset) { _kfree(offset); }
