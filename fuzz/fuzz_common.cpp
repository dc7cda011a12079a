#include "fuzz_common.h"

#include <android/log.h>

#include <cstring>
#include <set>

namespace tevfuzz {
namespace {

void dropLine(const __android_logger_data*, const char*) {}

// Index probes past the end: the record count itself and the largest index.
constexpr uint32_t kLastIndex = 0xFFFFFFFFu;
// A data type that no record can carry (types are 16 bits).
constexpr int kAbsentType = 0x10000;
// Signature values that make the parser take each of its tail layouts.
constexpr uint32_t kParseSignatures[] = {SIGNATURE_TEV, SIGNATURE_VOXA, SIGNATURE_VOXA_TEV};

void releaseOffset(TevOffsetInfo* offset) { DestroyOffsetInfo(offset); }

void releaseNameList(char** names, unsigned int count) {
    if (names == nullptr) return;
    for (unsigned int i = 0; i < count; ++i) _kfree(names[i]);
    _kfree(names);
}

void queryIndex(_TEV_info_pack* pack, uint32_t index) {
    releaseOffset(getTEVInStreamByIndex(pack, index));
    releaseOffset(getTEVInFileByIndex(pack, index));
    releaseOffset(getTEVSubInfoInStreamByIndex(pack, index));
    releaseOffset(getTEVSubInfoInFileByIndex(pack, index));
    destroyTEVDATA_UNIT(extractTEVDataFromFilebyIndex(pack, index));

    int64_t position = 0;
    int64_t length = 0;
    readDataOfIndexOffset(pack->info, index, &position, &length);
    readSubDataInfoOfDataOffset(pack->info, index, &position, &length);
    unsigned char* data = nullptr;
    unsigned char* sub = nullptr;
    readDataOfIndex(pack->info, index, &data, &sub);
    _kfree(data);
    _kfree(sub);
}

void queryName(_TEV_info_pack* pack, const char* name) {
    releaseOffset(getTEVInStreamByName(pack, name));
    releaseOffset(getTEVInFileByName(pack, name));
    releaseOffset(getTEVSubInfoInStreamByName(pack, name));
    releaseOffset(getTEVSubInfoInFileByName(pack, name));
    getTEVDataType(pack, name);
    _getIndexOfName(pack, name);
    destroyTEVDATA_UNIT(
        extractTEVDataFromFilebyName(pack, name, static_cast<unsigned int>(std::strlen(name))));
}

void queryTypes(_TEV_info_pack* pack, const std::set<int>& types) {
    for (int type : types) {
        unsigned int count = 0;
        char** names = getNameListByDataType(pack, type, &count);
        releaseNameList(names, count);
    }
}

// ParseTEV with each tail layout, whatever the real signature is, then the
// entry and name readers on whatever it accepts.
void parseWithEverySignature(TevBufferHandle* handle) {
    for (uint32_t signature : kParseSignatures) {
        TevStreamBuffer stream(handle);
        _TEV_info* info = ParseTEV(&stream, signature);
        if (info == nullptr) continue;
        if (getTEVList(info) == 1) {
            getAllNameOfDataList(info);
            getAllNameOfDataListBuffer(info);
        }
        DestroyTEV(info);
    }
}

// _checkAudioInImageBuffer releases the handle itself when the block parses
// but its table does not; find that out first on a handle of our own so that
// the handle under test is closed exactly once.
bool voxaTableFails(const InputBuffer& input) {
    TevBufferHandle* probe = _kbsetbuffer(input.bytes(), input.size());
    btruncate(probe, input.size());
    _voxa_info_struct* voxa = ParseVoxaBuffer(probe);
    const bool fails = voxa != nullptr && ParseVoxaSound(voxa) != 1;
    DestroyVoxaBuffer(voxa);
    _kbclose(probe);
    return fails;
}

void exerciseVoxa(const InputBuffer& input) {
    const bool handleReleasedOnFailure = voxaTableFails(input);
    TevBufferHandle* handle = _kbsetbuffer(input.bytes(), input.size());
    btruncate(handle, input.size());
    _voxa_info_struct* voxa = _checkAudioInImageBuffer(handle);
    if (voxa == nullptr) {
        if (!handleReleasedOnFailure) _kbclose(handle);
        return;
    }
    _getAudioCountInImageFile(voxa);
    _destroyVOXAOFFSET(_getAudioInImageFile(voxa));
    _kfree(_getAudioStreamBuffer(voxa));
    DestroyVoxaBuffer(voxa);
    _kbclose(handle);
}

}  // namespace

void silenceLog() { __android_log_set_logger(dropLine); }

InputBuffer::InputBuffer(const uint8_t* data, size_t size, size_t spare)
    : memory_(new unsigned char[size + spare + 1]()), size_(static_cast<int64_t>(size)) {
    if (size > 0) std::memcpy(memory_.get(), data, size);
    handle_ = initTEVUsedBuffer(memory_.get(), static_cast<int64_t>(size + spare), size_);
}

InputBuffer::~InputBuffer() { _kbclose(handle_); }

void exercisePack(_TEV_info_pack* pack) {
    GetNameType(pack);
    const uint32_t count = GetTevCount(pack);
    std::set<int> types = {kAbsentType};
    for (uint32_t i = 0; i < count; ++i) {
        queryIndex(pack, i);
        const char* name = GetNameInList(pack, static_cast<int>(count), static_cast<int>(i));
        if (name != nullptr) queryName(pack, name);
        if (pack->info != nullptr && i < pack->info->meta_count && pack->info->meta_data[i] != nullptr) {
            types.insert(static_cast<int>(_getDataType(pack->info->meta_data[i]->meta_type)));
        }
    }
    queryIndex(pack, count);
    queryIndex(pack, kLastIndex);
    queryName(pack, "no such record");
    queryTypes(pack, types);
}

void exerciseReading(const InputBuffer& input) {
    TevBufferHandle* handle = input.handle();
    getSignatureBuffer(handle);
    checkMP4Buffer(handle);
    errorCheckTEVInBuffer(handle);
    {
        TevStreamBuffer stream(handle);
        GetTEVVersion(&stream);
    }
    parseWithEverySignature(handle);

    if (_TEV_info_pack* pack = checkTEVInHandle(handle)) {
        checkSignatureMP4Tag(pack->info);
        exercisePack(pack);
        destroyTEVDATA_Buffer(pack);
    }
    // The same bytes through the form that makes its own handle.
    if (_TEV_info_pack* pack = checkTEVInBuffer(input.bytes(), input.size())) destroyTEVDATA(pack);
    exerciseVoxa(input);
}

}  // namespace tevfuzz
