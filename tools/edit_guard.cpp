#include "edit_guard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "container/index.h"
#include "container/mp4_box.h"

namespace tevcli {
namespace {

constexpr size_t kCompareChunk = 1 << 20;

int64_t fileSize(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

bool sameBytes(int fd, int64_t at, const unsigned char* expected, size_t length) {
    std::vector<unsigned char> chunk(std::min(length, kCompareChunk));
    for (size_t done = 0; done < length;) {
        const size_t step = std::min(chunk.size(), length - done);
        const ssize_t got = pread(fd, chunk.data(), step, at + static_cast<int64_t>(done));
        if (got != static_cast<ssize_t>(step) || std::memcmp(chunk.data(), expected + done, step) != 0) {
            return false;
        }
        done += step;
    }
    return true;
}

bool boxed(_TEV_info_pack* pack) { return checkSignatureMP4Tag(pack->info) == LUMET_TEV_TRUE; }

// The "tevd" box's size field must count the box to the end of the file.
bool boxSizeRight(const std::string& path, _TEV_info_pack* pack) {
    const _TEV_info* info = pack->info;
    uint32_t stored = 0;
    return tev::readBoxSize(*info->Stream, info->data_start_position, &stored) &&
           stored == fileSize(path) - info->data_start_position;
}

}  // namespace

// The library never writes in front of this byte, and an edit leaves it
// where it was (records and sounds always start where the media ends), so a
// change means bytes were left in between.
int64_t firstKeptByte(const std::string& path) {
    int64_t first = fileSize(path);
    const uint32_t signature = getSignature(path.c_str());
    if (signatureHasContainer(signature)) {
        if (tev::Pack pack = openContainer(path)) first = std::min(first, pack->info->data_start_position);
    }
    if (signature == SIGNATURE_VOXA || signature == SIGNATURE_VOXA_TEV) {
        tev::Voxa voxa(_checkAudioInImageFile(path.c_str()));
        for (uint32_t i = 0; voxa && voxa->sound_table != nullptr && i < voxa->sound_count; ++i) {
            first = std::min<int64_t>(first, voxa->sound_table[2 * i]);
        }
    }
    return first;
}

std::vector<Region> appendedRegions(const std::string& path, const FileFacts& facts) {
    int64_t from = firstKeptByte(path);
    if (facts.signature != SIGNATURE_DETECTION_FAIL && from == facts.size) from = 0;  // cannot tell: all of it
    return {{from, facts.size - from}};
}

std::vector<Region> recordRegions(_TEV_info_pack* pack, const std::vector<std::string>& names) {
    const _TEV_info* info = pack->info;
    int64_t from = info->stream_size - static_cast<int64_t>(info->header_offset);  // "TEVH"
    for (uint32_t i = 0; i < info->meta_count; ++i) {
        if (std::find(names.begin(), names.end(), recordName(pack, i)) != names.end()) {
            from = std::min(from, tev::recordStart(*info, *info->meta_data[i]));
        }
    }
    std::vector<Region> regions{{from, info->stream_size - from}};
    if (boxed(pack)) regions.push_back({info->data_start_position, tev::kBoxHeaderSize});
    return regions;
}

int guardedEdit(const std::string& path, const std::vector<Region>& regions, const std::function<int()>& edit,
                const EditCheck& check, std::optional<int64_t> mediaLength) {
    const int64_t first = mediaLength ? *mediaLength : firstKeptByte(path);
    std::optional<UndoFile> undo = UndoFile::save(path, regions);
    if (!undo) return kExitFailed;
    int status = edit();
    if (status == kExitOk) {
        std::optional<std::string> wrong = check();
        if (!wrong) wrong = containerReadsWhole(path);
        if (!wrong && firstKeptByte(path) != first) wrong = "it left bytes between the media and the records";
        if (wrong) status = fail(path, "the edit did not hold (" + *wrong + "); the file is put back as it was");
    }
    if (status == kExitOk) {
        undo->discard();
    } else if (!undo->restore()) {
        fail(path, "run `tev repair` on the file to put it back as it was");
    }
    return status;
}

int guardedCommandWith(const std::string& path, const std::function<int()>& run, const EditCheck& check) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || access(path.c_str(), R_OK | W_OK) != 0) {
        return run();
    }
    const FileFacts facts{st.st_size, getSignature(path.c_str())};
    return guardedEdit(path, appendedRegions(path, facts), run, check);
}

int guardedCommand(const std::string& path, const std::function<int()>& run) {
    return guardedCommandWith(path, run, [] { return std::optional<std::string>(); });
}

bool fileHolds(const std::string& path, int64_t at, const unsigned char* expected, size_t length) {
    Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.ok() && sameBytes(file.get(), at, expected, length);
}

std::optional<std::string> containerReadsWhole(const std::string& path) {
    const uint32_t signature = getSignature(path.c_str());
    if (!signatureHasContainer(signature)) return std::nullopt;
    tev::Pack pack = openContainer(path);
    if (!pack) return "its container does not read";
    for (uint32_t i = 0; i < GetTevCount(pack.get()); ++i) {
        if (recordName(pack.get(), i).empty()) return "a record has no readable name";
    }
    if (signature == SIGNATURE_TEV && boxed(pack.get()) && !boxSizeRight(path, pack.get())) {
        return "the \"tevd\" box size is wrong";
    }
    return std::nullopt;
}

std::optional<std::string> recordHolds(const std::string& path, const std::string& name, uint32_t type,
                                       const unsigned char* sub, size_t subLength, const unsigned char* data,
                                       size_t dataLength, bool boxed) {
    tev::Pack pack = openContainer(path);
    if (!pack) return "its container does not read";
    if (boxed && checkSignatureMP4Tag(pack->info) != LUMET_TEV_TRUE) return "the container is not in a \"tevd\" box";
    _TEV_info* info = pack->info;
    uint32_t index = 0;
    while (index < info->meta_count && recordName(pack.get(), index) != name) ++index;
    if (index == info->meta_count) return "the record is missing";
    if (recordType(pack.get(), index) != type) return "the record has another type";
    int64_t position = 0;
    int64_t length = 0;
    if ((info->meta_data[index]->has_sub_info != 0) != (subLength > 0)) return "the sub-information differs";
    if (subLength > 0 && (readSubDataInfoOfDataOffset(info, index, &position, &length) != LUMET_TEV_TRUE ||
                          length != static_cast<int64_t>(subLength) ||
                          !fileHolds(path, position, sub, subLength))) {
        return "the sub-information differs";
    }
    if (readDataOfIndexOffset(info, index, &position, &length) != LUMET_TEV_TRUE ||
        length != static_cast<int64_t>(dataLength) || !fileHolds(path, position, data, dataLength)) {
        return "the data differs";
    }
    return std::nullopt;
}

}  // namespace tevcli
