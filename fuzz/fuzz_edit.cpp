// Arbitrary bytes as media in a memory buffer with room to grow: save a
// record, save it again as a replacement, re-parse, delete it by index,
// re-parse. Every step runs on whatever the previous one left. A second
// copy of the input goes through the sound edits: a bare sound converted
// into records, a named sound saved, a record deleted by name beside the
// sound list, the sound removed. Last, the input split in two is copied
// from its first half into its second, record by record and raw. Then the
// media in front of the records is replaced in place, by a prefix of the
// input (shorter), by the whole input, and by the media part of the first
// half.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fuzz_common.h"

namespace {

constexpr char kName[] = "fuzz.record";
constexpr char kSoundName[] = "fuzz.sound";
constexpr uint32_t kNameLength = sizeof kName - 1;
constexpr unsigned char kSubInfo[] = {'s', 'u', 'b', '1'};
constexpr uint32_t kUserType = 7;
constexpr uint32_t kReplace = 1;
// Room for two records, their directory entries, a box header and the
// records a Voxa conversion adds in front of them.
constexpr size_t kSpare = 16 * 1024;

void saveRecord(TevBufferHandle* handle, uint32_t type, const unsigned char* sub, uint32_t subLength,
                uint32_t dataLength, uint32_t update) {
    unsigned char data[256];
    std::memset(data, 'd', sizeof data);
    saveTEVDataToBuffer(handle, kName, kNameLength, sub, subLength, data, dataLength, type, update);
}

void deleteRecord(TevBufferHandle* handle) {
    _TEV_info_pack* pack = checkTEVInHandle(handle);
    if (pack == nullptr) return;
    const uint32_t index = _getIndexOfName(pack, kName);
    if (index < GetTevCount(pack)) DeleteATEVDataStream(pack->info, index, nullptr);
    destroyTEVDATA_Buffer(pack);
}

void reparse(TevBufferHandle* handle) {
    _TEV_info_pack* pack = checkTEVInHandle(handle);
    if (pack == nullptr) return;
    tevfuzz::exercisePack(pack);
    destroyTEVDATA_Buffer(pack);
}

void convertBareSound(TevStream& stream) {
    if (getSignatureStream(&stream) != SIGNATURE_VOXA) return;
    _voxa_info_struct* voxa = checkVoxaInStream(&stream);
    if (voxa == nullptr) return;
    convertVoxaToEchoFrame(&voxa);
    DestroyVoxaStream(voxa);
}

void deleteByName(TevStream& stream, const char* name) {
    _TEV_info_pack* pack = checkTEVInStreamAndUpdate(&stream);
    if (pack == nullptr) return;
    TevStream* target = &stream;
    deleteTEVDataFromStreambyName(target, pack, name, static_cast<uint32_t>(std::strlen(name)));
    destroyTEVDATA_Stream(pack);  // the stream is ours, on the stack
}

void soundEdits(TevBufferHandle* handle) {
    TevStreamBuffer stream(handle);
    convertBareSound(stream);
    reparse(handle);
    unsigned char sound[96];
    std::memset(sound, 's', sizeof sound);
    saveVoxaToImageStream(&stream, sound, sizeof sound, kSoundName, sizeof kSoundName - 1);
    reparse(handle);
    deleteByName(stream, kName);
    reparse(handle);
    deleteAVoxaStream(&stream);
    reparse(handle);
}

void copyBetweenHalves(const uint8_t* data, size_t size) {
    const size_t half = size / 2;
    const tevfuzz::InputBuffer source(data, half, kSpare);
    const tevfuzz::InputBuffer destination(data + half, size - half, 4 * kSpare);
    TevStreamBuffer src(source.handle());
    TevStreamBuffer dst(destination.handle());
    copyTEVDataStream(&src, &dst);
    reparse(destination.handle());
    copyTEVDataTypeStream(&src, &dst, kUserType);
    copyTEVDataKeyNameStream(&src, &dst, kName);
    reparse(destination.handle());
}

void replaceMedia(const uint8_t* data, size_t size) {
    const tevfuzz::InputBuffer target(data, size, kSpare);
    saveRecord(target.handle(), kUserType, nullptr, 0, 40, 0);
    TevStreamBuffer stream(target.handle());
    FastChangeCoverDataStream(&stream, data, static_cast<uint32_t>(size / 3));
    reparse(target.handle());
    FastChangeCoverDataStream(&stream, data, static_cast<uint32_t>(size));
    reparse(target.handle());
    const tevfuzz::InputBuffer source(data, size / 2, kSpare);
    TevStreamBuffer org(source.handle());
    FastChangeOrgDataStream(&stream, &org);
    reparse(target.handle());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    tevfuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const tevfuzz::InputBuffer input(data, size, kSpare);
    TevBufferHandle* handle = input.handle();
    saveRecord(handle, kUserType, nullptr, 0, 40, 0);
    reparse(handle);
    saveRecord(handle, TEV_USER_DEFINED_DATA, kSubInfo, sizeof kSubInfo, 200, kReplace);
    reparse(handle);
    deleteRecord(handle);
    reparse(handle);

    const tevfuzz::InputBuffer second(data, size, kSpare);
    soundEdits(second.handle());
    copyBetweenHalves(data, size);
    replaceMedia(data, size);
    return 0;
}
