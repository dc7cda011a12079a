// Deleting several records by index in one in-place rebuild of the container.
#include <cstdio>

#include "container/format.h"
#include "editor/delete_rebuild.h"
#include "tev/editor.h"
#include "util/checked.h"
#include "util/log.h"

using tev::deleting::locateRecords;
using tev::deleting::RebuildStatus;
using tev::deleting::RecordSpan;
using tev::deleting::Removal;

namespace {

// The refusals of DeleteMultiTEVData after its silent argument checks. The
// records must lie where the directory says, since they are moved by it.
bool multiDeleteUsable(const _TEV_info& info, RecordSpan* span) {
    TevStream* stream = info.Stream;
    if (stream == nullptr) {
        tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "Stream is null");
        return false;
    }
    if (!stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "Pointer is null");
        return false;
    }
    if (info.stream_size < 1) {
        tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "file size is <= 0");
        return false;
    }
    if (!locateRecords(info, span)) {
        tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "TEV directory is damaged");
        return false;
    }
    return true;
}

bool rebuildReported(const _TEV_info& info, const RecordSpan& span, const Removal& removal) {
    switch (tev::deleting::rebuildInPlace(*info.Stream, info, span, removal, false)) {
        case RebuildStatus::kOk:
            return true;
        case RebuildStatus::kNoMemory:
            tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "tempBuff is null");
            return false;
        case RebuildStatus::kReadFailed:
            tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "writeSize != readSize");
            return false;
        case RebuildStatus::kWriteFailed:
            tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "File Write Error");
            return false;
    }
    return false;
}

// The stream is cut at the old "TEVH" position plus the new container's
// length. That is this function's established cut, not the end of the written
// bytes: what lies between them stays (or reads as zeros past the old end).
// A memory buffer cannot grow, so a cut beyond its capacity is refused: it
// would give the caller's buffer a write size past its end. The cut's own
// result is not part of the answer.
bool cutAfterRebuild(TevStream& stream, const RecordSpan& span, int64_t length) {
    int64_t cut = 0;
    if (!tev::checkedAdd(span.directory, length, &cut) ||
        (stream.GetStreamType() == TEV_STREAM_BUFFER && cut > stream.getAllocSize())) {
        tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "truncate size is out of the stream");
        return false;
    }
    stream.truncate(cut);
    return true;
}

uint32_t replaceContainer(const _TEV_info& info, const RecordSpan& span, const Removal& removal) {
    if (!rebuildReported(info, span, removal)) return LUMET_TEV_FALSE;
    const int64_t length = tev::deleting::rebuiltLength(info, span, removal);
    return cutAfterRebuild(*info.Stream, span, length) ? LUMET_TEV_TRUE : LUMET_TEV_FALSE;
}

}  // namespace

uint32_t DeleteMultiTEVData(_TEV_info* info, const uint32_t* indices, uint32_t count) {
    if (info == nullptr || indices == nullptr || count == 0) return LUMET_TEV_FALSE;
    RecordSpan span{};
    if (!multiDeleteUsable(*info, &span)) return LUMET_TEV_FALSE;
    Removal removal;
    if (!removal.init(info->meta_count)) {
        tev::logLine(tev::kLogError, "TEV::DeleteMultiTEVData", "tempBuff is null");
        return LUMET_TEV_FALSE;
    }
    // Indices that match no record are passed over; with none matching the
    // container is written again as it was, and with all matching the new
    // directory lists no entry.
    for (uint32_t i = 0; i < count; ++i) removal.remove(*info, indices[i]);
    return replaceContainer(*info, span, removal);
}
