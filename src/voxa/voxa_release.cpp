// Releasing parsed Voxa records. Each Destroy function matches how the record
// was made: whether the stream is the caller's, a wrapper over the caller's
// FILE* or buffer, or a stream over a file the library opened itself.
#include "tev/stream.h"
#include "tev/voxa.h"
#include "voxa/voxa_internal.h"

namespace tev::voxa {

uint32_t releaseRecord(_voxa_info_struct* info, StreamRelease stream) {
    if (info == nullptr) return LUMET_TEV_FALSE;
    if (info->stream != nullptr && stream != StreamRelease::Keep) {
        if (stream == StreamRelease::Close) info->stream->destroyPointer();
        delete info->stream;
    }
    info->stream = nullptr;
    if (info->sound_table != nullptr) _kfree(info->sound_table);
    _kfree(info);
    return LUMET_TEV_TRUE;
}

}  // namespace tev::voxa

using tev::voxa::releaseRecord;
using tev::voxa::StreamRelease;

uint32_t DestroyVoxa(_voxa_info_struct* info) { return releaseRecord(info, StreamRelease::Close); }

uint32_t _destroyVOXADATA(_voxa_info_struct* info) { return releaseRecord(info, StreamRelease::Close); }

uint32_t DestroyVoxaFP(_voxa_info_struct* info) { return releaseRecord(info, StreamRelease::Delete); }

uint32_t DestroyVoxaBuffer(_voxa_info_struct* info) { return releaseRecord(info, StreamRelease::Delete); }

uint32_t DestroyVoxaStream(_voxa_info_struct* info) { return releaseRecord(info, StreamRelease::Keep); }

void _destroyVOXAOFFSET(VoxaSoundOffset* offset) {
    if (offset != nullptr) _kfree(offset);
}
