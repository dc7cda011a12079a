#include "editor/delete_rebuild.h"

#include <cstdio>
#include <algorithm>
#include <vector>

#include "container/directory_image.h"
#include "container/format.h"
#include "stream/byte_move.h"
#include "util/checked.h"

namespace tev::deleting {

namespace {

// Start of entry `index`'s record, counted back from "TEVH".
int64_t recordStart(const RecordSpan& span, const _TEV_data_info& entry) {
    return span.directory - static_cast<int64_t>(entry.start_offset);
}

// The kept records between two removed ones lie back to back (locateRecords
// checked that the records follow each other in directory order), so each
// such run moves as one piece. Its length is returned and `next` is set to
// the first entry after it.
int64_t keptRunFrom(const _TEV_info& info, const Removal& removal, uint32_t first, uint32_t* next) {
    int64_t length = 0;
    uint32_t i = first;
    for (; i < info.meta_count && !removal.removed(i); ++i) length += info.meta_data[i]->length;
    *next = i;
    return length;
}

uint32_t firstRemoved(const _TEV_info& info, const Removal& removal) {
    uint32_t i = 0;
    while (i < info.meta_count && !removal.removed(i)) ++i;
    return i;
}

// Moves the kept records behind the first removed one forward, so that they
// follow each other from where that record began; `end` is set to the end of
// the last kept record.
RebuildStatus moveKeptRecords(TevStream& stream, const _TEV_info& info, const RecordSpan& span,
                              const Removal& removal, int64_t* end) {
    uint32_t i = firstRemoved(info, removal);
    if (i >= info.meta_count) {
        // Nothing removed: every record stays where it is.
        *end = span.directory;
        return RebuildStatus::kOk;
    }
    int64_t to = recordStart(span, *info.meta_data[i]);
    // The span and the removed lengths were checked against each other by
    // locateRecords: the kept bytes behind `to` fit the stream and are not negative.
    const int64_t toMove = span.directory - to - removal.length();
    ByteMover mover;
    if (!mover.reserve(toMove)) return RebuildStatus::kNoMemory;
    while (i < info.meta_count) {
        if (removal.removed(i)) {
            ++i;
            continue;
        }
        const int64_t from = recordStart(span, *info.meta_data[i]);
        const int64_t length = keptRunFrom(info, removal, i, &i);
        const MoveResult moved = mover.forward(stream, from, to, length);
        if (moved == MoveResult::kNoMemory) return RebuildStatus::kNoMemory;
        if (moved == MoveResult::kReadFailed) return RebuildStatus::kReadFailed;
        if (moved == MoveResult::kWriteFailed) return RebuildStatus::kWriteFailed;
        to += length;
    }
    *end = to;
    return RebuildStatus::kOk;
}

// Calls `visit` with every kept entry in directory order, as the rebuilt
// directory holds it: its offset shrinks by the removed length that lies
// between its record and "TEVH".
template <typename Visit>
void forEachKeptEntry(const _TEV_info& info, const Removal& removal, Visit visit) {
    int64_t removedBehind = removal.length();
    for (uint32_t i = 0; i < info.meta_count; ++i) {
        const _TEV_data_info& entry = *info.meta_data[i];
        if (removal.removed(i)) {
            removedBehind -= entry.length;
            continue;
        }
        _TEV_data_info moved = entry;
        moved.start_offset = static_cast<uint32_t>(entry.start_offset - removedBehind);
        visit(moved);
    }
}

// "TEVH", version, count, the kept entries with their new offsets, KTHO, "TEVT".
RebuildStatus writeDirectory(const _TEV_info& info, const Removal& removal, TevStream& out) {
    std::vector<_TEV_data_info> kept;
    kept.reserve(info.meta_count - removal.count());
    forEachKeptEntry(info, removal, [&](const _TEV_data_info& moved) { kept.push_back(moved); });
    std::vector<_TEV_data_info*> entries;
    entries.reserve(kept.size());
    for (_TEV_data_info& entry : kept) entries.push_back(&entry);
    const uint32_t count = static_cast<uint32_t>(kept.size());
    return tev::writeDirectory(out, count, entries).ok() ? RebuildStatus::kOk : RebuildStatus::kWriteFailed;
}

// Zeroes the old directory's "TEVH" in a file before the first record
// moves, so that a rebuild cut short (the process killed, a write failing)
// leaves a container that does not parse instead of a directory naming bytes
// which have moved. The tag must be gone once the rebuild is done, so that
// its bytes stay the same: written over by the rebuilt container (which
// ends at `rewrittenEnd`), or cut off when the caller cuts right behind what
// it writes. A memory buffer does not outlive the process and is left alone.
void retireOldDirectory(TevStream& stream, const RecordSpan& span, int64_t rewrittenEnd, bool cutBehind) {
    if (stream.GetStreamType() == TEV_STREAM_BUFFER) return;
    if (!cutBehind && span.directory + kTagSize > rewrittenEnd) return;
    const unsigned char zeros[kTagSize] = {};
    if (stream.seek(span.directory, SEEK_SET) == span.directory) stream.write(zeros, kTagSize);
}

}  // namespace

bool locateRecords(const _TEV_info& info, RecordSpan* span) {
    if (info.meta_count == 0 || info.meta_data == nullptr || info.meta_data[0] == nullptr) {
        return false;
    }
    RecordSpan found{0, info.stream_size - static_cast<int64_t>(info.header_offset)};
    found.first = found.directory - static_cast<int64_t>(info.meta_data[0]->start_offset);
    if (info.data_start_position < 0 || found.first < info.data_start_position) return false;
    int64_t expected = found.first;
    for (uint32_t i = 0; i < info.meta_count; ++i) {
        const _TEV_data_info* entry = info.meta_data[i];
        if (entry == nullptr || entry->length < kMinRecordLength) return false;
        if (recordStart(found, *entry) != expected) return false;
        if (!checkedAdd<int64_t>(expected, entry->length, &expected) || expected > found.directory) {
            return false;
        }
    }
    if (expected != found.directory) return false;
    *span = found;
    return true;
}

bool Removal::init(uint32_t entryCount) {
    flags_.reset(static_cast<uint8_t*>(_kcalloc(std::max<uint32_t>(entryCount, 1), 1)));
    entryCount_ = entryCount;
    count_ = 0;
    length_ = 0;
    return flags_ != nullptr;
}

void Removal::remove(const _TEV_info& info, uint32_t index) {
    if (index >= entryCount_ || index >= info.meta_count || removed(index)) return;
    flags_.get()[index] = 1;
    ++count_;
    length_ += info.meta_data[index]->length;
}

int64_t rebuiltLength(const _TEV_info& info, const RecordSpan& span, const Removal& removal) {
    // The span and the removed lengths were checked against each other by
    // locateRecords, so these values are small enough not to overflow.
    const int64_t keptRecords = span.directory - span.first - removal.length();
    const int64_t keptEntries = static_cast<int64_t>(info.meta_count - removal.count());
    return keptRecords + kDirectoryFixedSize + kDirectoryEntrySize * keptEntries;
}

RebuildStatus rebuildInPlace(TevStream& stream, const _TEV_info& info, const RecordSpan& span,
                             const Removal& removal, bool cutBehind) {
    int64_t end = 0;
    retireOldDirectory(stream, span, span.first + rebuiltLength(info, span, removal), cutBehind);
    const RebuildStatus status = moveKeptRecords(stream, info, span, removal, &end);
    if (status != RebuildStatus::kOk) return status;
    if (stream.seek(end, SEEK_SET) != end) return RebuildStatus::kWriteFailed;
    return writeDirectory(info, removal, stream);
}

bool TempStream::open(int64_t capacity) {
    handle_.reset(initTEVBuffer(capacity));
    if (!handle_) return false;
    stream_.emplace(handle_.get());
    return true;
}

bool copyBack(TevStream& stream, int64_t at, TevStream& temp, int64_t length) {
    if (stream.seek(at, SEEK_SET) != at) return false;
    return TevStream::Copy(&stream, &temp, length) == 1;
}

}  // namespace tev::deleting
