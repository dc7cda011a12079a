// Index objects made from scratch rather than parsed from a file.
#include <cstdio>
#include <cstring>
#include <new>

#include "container/format.h"
#include "tev/container.h"
#include "tev/editor.h"

// The index of a stream without a container: no entries yet, its size
// taken at the end of the file. The index owns the new stream object
// (DestroyTEV leaves it to the caller to delete); the FILE* stays the
// caller's.
_TEV_info* _generateTEVHeader(FILE* fp) {
    if (fp == nullptr) return nullptr;
    TevStreamFile* stream = new (std::nothrow) TevStreamFile(fp);
    if (stream == nullptr) return nullptr;
    const int64_t end = stream->seek(0, SEEK_END);
    auto* info = static_cast<_TEV_info*>(end < 0 ? nullptr : _kmalloc(sizeof(_TEV_info)));
    if (info == nullptr) {
        delete stream;
        return nullptr;
    }
    info->Stream = stream;
    // The size is kept as a 32-bit value.
    info->stream_size = static_cast<uint32_t>(end);
    info->version = tev::kVersion;
    return info;
}

_TEV_data_info* _generateTEVData(const char* name, uint32_t name_len, uint32_t type,
                                 uint32_t has_sub) {
    if (name == nullptr || name_len == 0) return nullptr;
    auto* entry = static_cast<_TEV_data_info*>(_kmalloc(sizeof(_TEV_data_info)));
    if (entry == nullptr) return nullptr;
    // One byte more than the name keeps the copy NUL-terminated (_kmalloc zero-fills).
    entry->name = static_cast<char*>(_kmalloc(size_t{name_len} + 1));
    if (entry->name == nullptr) {
        _kfree(entry);
        return nullptr;
    }
    std::memcpy(entry->name, name, name_len);
    entry->name_length = name_len;
    entry->meta_type = _setMetaType(static_cast<uint16_t>(type), has_sub);
    entry->has_sub_info = has_sub != 0 ? 1u : 0u;
    return entry;
}
