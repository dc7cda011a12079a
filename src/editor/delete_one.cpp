// Deleting one record by index: the records behind it move forward over it,
// a new directory and, for images with Voxa sound, a Voxa block follow them,
// and the stream is cut right behind that.
#include <cstdio>

#include "container/check_internal.h"
#include "container/format.h"
#include "editor/delete_rebuild.h"
#include "editor/save_internal.h"
#include "editor/sound_bridge.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/voxa.h"
#include "util/log.h"

using tev::deleting::locateRecords;
using tev::deleting::RebuildStatus;
using tev::deleting::RecordSpan;
using tev::deleting::Removal;

namespace {

// The one-sound Voxa block written behind the rebuilt directory.
struct VoxaTrailer {
    uint32_t count;
    uint32_t start;
    uint32_t end;
};

// The refusals of DeleteATEVDataStream, in the order they are checked.
bool deleteArgumentsUsable(const _TEV_info* info, uint32_t index) {
    if (info == nullptr) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "TEV_info is null");
        return false;
    }
    if (info->Stream == nullptr) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "Stream is null");
        return false;
    }
    if (!info->Stream->CheckError()) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "Pointer is null");
        return false;
    }
    if (info->stream_size < 1) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "file size is <= 0");
        return false;
    }
    if (index >= info->meta_count) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream",
                     "if index < 0 || index >= TEV_info->meta_count");
        return false;
    }
    return true;
}


// The block keeps the descriptor's count and the first entry of its sound
// table. The sound keeps its place unless a record in front of it goes; then
// both positions move forward by that record's length (in 32 bits, as the
// fields hold them). A descriptor whose table is missing gives positions of 0.
VoxaTrailer planVoxaTrailer(const _voxa_info_struct& voxa, uint32_t removedLength) {
    uint32_t start = voxa.sound_table != nullptr ? voxa.sound_table[0] : 0;
    uint32_t end = voxa.sound_table != nullptr ? voxa.sound_table[1] : 0;
    if (voxa.position_mark == tev::kVoxaMarkBefore) {
        start -= removedLength;
        end -= removedLength;
    }
    return {voxa.sound_count, start, end};
}

// True when every entry of the index has its name, read from the stream
// when the index was made.
bool hasAllNames(const _TEV_info& info) {
    for (uint32_t i = 0; i < info.meta_count; ++i) {
        if (info.meta_data[i] == nullptr || info.meta_data[i]->name == nullptr) return false;
    }
    return true;
}

// The stream is parsed again, for the names; that parse failing ends the
// delete with its own log lines. The names are read only where they are
// needed: when the index lacks some, or for the Voxa bookkeeping. The
// index's records must then lie where its directory says before anything
// is moved.
bool indexDescribesStream(_TEV_info& info, bool forVoxa, tev::OwnedTevInfo* fresh, RecordSpan* span) {
    *fresh = tev::parseStreamIndex(info.Stream, forVoxa || !hasAllNames(info));
    if (!*fresh) return false;
    if (!locateRecords(info, span)) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "TEV directory is damaged");
        return false;
    }
    return true;
}

bool rebuildReported(const _TEV_info& info, const RecordSpan& span, const Removal& removal) {
    switch (tev::deleting::rebuildInPlace(*info.Stream, info, span, removal, true)) {
        case RebuildStatus::kOk:
            return true;
        case RebuildStatus::kNoMemory:
            tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "TempHandle is null");
            return false;
        case RebuildStatus::kReadFailed:
            tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "File Read Error");
            return false;
        case RebuildStatus::kWriteFailed:
            tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "File Write Error");
            return false;
    }
    return false;
}

// Rebuilds the container in place, writes the Voxa block behind its
// directory and cuts the stream there.
uint32_t replaceContainer(const _TEV_info& info, const RecordSpan& span, const Removal& removal,
                          const VoxaTrailer* trailer) {
    if (!rebuildReported(info, span, removal)) return LUMET_TEV_FALSE;
    TevStream& stream = *info.Stream;
    if (trailer != nullptr && !tev::writeSoundTrailer(stream, tev::kVoxaWriterVersion, trailer->count, trailer->start, trailer->end)) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "File Write Error");
        return LUMET_TEV_FALSE;
    }
    // The cut's own result is not part of the answer.
    stream.truncate(stream.tell());
    return LUMET_TEV_TRUE;
}

}  // namespace

uint32_t DeleteATEVDataStream(_TEV_info* info, uint32_t index, _voxa_info_struct* voxa) {
    if (!deleteArgumentsUsable(info, index)) return LUMET_TEV_FALSE;
    if (index == 0 && info->meta_count == 1) return DeleteAllTEVDataStream(info);
    tev::OwnedTevInfo fresh;
    RecordSpan span{};
    if (!indexDescribesStream(*info, voxa != nullptr, &fresh, &span)) return LUMET_TEV_FALSE;
    Removal removal;
    if (!removal.init(info->meta_count)) {
        tev::logLine(tev::kLogError, "TEV::DeleteATEVDataStream", "tempBuff is null");
        return LUMET_TEV_FALSE;
    }
    removal.remove(*info, index);
    if (voxa == nullptr) {
        fresh.reset();  // only needed for the check; the move buffer is the one to have room for
        return replaceContainer(*info, span, removal, nullptr);
    }
    voxa->position_mark = tev::voxaPositionMark(*fresh, *voxa, index);
    // The sound list as it was, and the name that goes.
    const tev::sound_bridge::ListHandle sounds = tev::sound_bridge::readSoundList(*fresh);
    if (!sounds) return LUMET_TEV_FALSE;
    const char* deletedName = fresh->meta_data[index]->name;
    const std::string deleted = deletedName != nullptr ? deletedName : "";
    fresh.reset();
    const bool withTrailer = voxa->position_mark != tev::kVoxaMarkItself;
    const VoxaTrailer trailer = planVoxaTrailer(*voxa, static_cast<uint32_t>(removal.length()));
    if (replaceContainer(*info, span, removal, withTrailer ? &trailer : nullptr) != LUMET_TEV_TRUE) {
        return LUMET_TEV_FALSE;
    }
    tev::sound_bridge::dropFromSoundList(*info->Stream, *sounds, deleted);
    return LUMET_TEV_TRUE;
}

uint32_t FastDeleteATEVData(_TEV_info* info, uint32_t index, uint32_t /*ignored*/) {
    return DeleteATEVDataStream(info, index, nullptr);
}
