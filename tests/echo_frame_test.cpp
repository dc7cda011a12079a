// Sounds kept as container records: writing them, converting a bare sound,
// saving named sounds into images of every kind, deleting them again, and
// the "EchoFrame_Meta_Info" list staying in step after each edit.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/echo_files.h"
#include "support/edit.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "support/stream_over.h"
#include "tev/tev.h"

namespace {

using namespace tevtest;

constexpr uint32_t kMedia = 50;
const std::string kFirst = "EchoFrame_000";

Bytes media() { return fakeJpeg(kMedia); }
Bytes soundA() { return pattern(37); }
Bytes soundB() { return Bytes(23, 0xB2); }
Bytes soundC() { return Bytes(11, 0xC3); }

uint32_t saveSound(const TempFile& file, const std::string& name, Bytes sound) {
    return saveVoxaToImageFile(file.c_str(), sound.data(), uint32_t(sound.size()), name.c_str(),
                               uint32_t(name.size()));
}

uint32_t saveRecord(const TempFile& file, const RecordSpec& r, uint32_t update) {
    return saveSpec(
        [&](const char* name, uint32_t len, const unsigned char* sub, uint32_t subLen,
            const unsigned char* data, uint32_t dataLen, uint32_t type, uint32_t upd) {
            return saveTEVDataToFile(file.c_str(), name, len, sub, subLen, data, dataLen, type, upd);
        },
        r, update);
}

// The first sound the Voxa block points at.
Bytes blockSound(const TempFile& file) {
    uint32_t size = 0;
    unsigned char* bytes = GetAudioInVoxa(file.c_str(), &size);
    Bytes out(bytes, bytes + (bytes != nullptr ? size : 0));
    std::free(bytes);
    return out;
}

// ------------------------------------------------------------ writers

TEST(SoundRecordWriters, FirstTimeLayoutOverEveryMedium) {
    const Bytes meta = metaPayload({"memo"});
    const Bytes expected =
        imageWithRecordSound(media(), {soundRecord("memo", soundA()), metaRecord({"memo"})}, 0);
    for (StreamMedium medium : kStreamMedia) {
        StreamOver s(medium, media(), 512);
        EXPECT_EQ(
            NewAddVoxaDataInFirstTimeStream(s.get(), 2048, 256, "memo", 4, soundA().data(),
                                            uint32_t(soundA().size()), meta.data(), uint32_t(meta.size())),
            1u);
        EXPECT_EQ(s.contents(), expected) << mediumName(medium);
    }
}

TEST(SoundRecordWriters, AddedBehindAnExistingContainer) {
    TempFile file(buildContainer(media(), {record("x", 9, 0x11)}));
    const Bytes meta = metaPayload({"memo"});
    EXPECT_EQ(editParsed(file.path(),
                         [&](_TEV_info* info) {
                             return NewAddVoxaData(info, 2048, 256, "memo", 4, soundA().data(),
                                                   uint32_t(soundA().size()), meta.data(),
                                                   uint32_t(meta.size()));
                         }),
              1u);
    EXPECT_EQ(file.read(),
              imageWithRecordSound(
                  media(), {record("x", 9, 0x11), soundRecord("memo", soundA()), metaRecord({"memo"})}, 1));
}

class SoundRecordLog : public LogCaptureTest {};

TEST_F(SoundRecordLog, FirstTimeRefusesMissingPartsWithoutWriting) {
    const Bytes meta = metaPayload({"memo"});
    StreamOver s(StreamMedium::File, media());
    const char* tag = "TEVEncoder::NewAddVoxaDataInFirstTimeStream";
    EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(s.get(), 2048, 256, "memo", 4, nullptr, 5, meta.data(), 29),
              0u);
    EXPECT_TRUE(loggedError(tag, "voxa_data == LUMET_TEV_NULL || voxa_data_size <= 0 "));
    EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(s.get(), 2048, 256, "memo", 4, meta.data(), 5, meta.data(), 0),
              0u);
    EXPECT_TRUE(loggedError(tag, "voxa_info_data == LUMET_TEV_NULL || voxa_info_data_size <= 0 "));
    EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(nullptr, 2048, 256, "memo", 4, meta.data(), 5, meta.data(), 29),
              0u);
    EXPECT_TRUE(loggedError(tag, "Stream == LUMET_TEV_NULL "));
    EXPECT_EQ(s.contents(), media());
}

// ------------------------------------------------------------ conversion

TEST(SoundConversion, BareSoundBecomesTheFirstRecord) {
    StreamOver s(StreamMedium::File, imageWithBareSound(media(), soundA()));
    _voxa_info_struct* voxa = _checkAudioInImageStream(s.get());
    ASSERT_NE(voxa, nullptr);
    EXPECT_EQ(convertVoxaToEchoFrame(&voxa), 1u);
    DestroyVoxaStream(voxa);
    const Bytes out = s.contents();
    EXPECT_EQ(out, imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0));
    // The block is 30 bytes, version 107, and its sound starts at L + 21.
    EXPECT_EQ(readU32le(out, out.size() - 30 + 4), 107u);
    EXPECT_EQ(readU32le(out, out.size() - 30 + 12), kMedia + 21);
    EXPECT_EQ(readU32le(out, kMedia + 8 + 13 + 37 + 8 + 19), 1u);  // meta payload: 1, 0, 1, 13
}

// ------------------------------------------------------------ saving sounds

TEST(SaveSound, IntoEachSignature) {
    struct Case {
        const char* what;
        Bytes before;
        Bytes after;
    };
    const RecordSpec x = record("x", 9, 0x11);
    const Case cases[] = {
        {"plain image", media(),
         imageWithRecordSound(media(), {soundRecord("memo", soundB()), metaRecord({"memo"})}, 0)},
        {"container without sound", buildContainer(media(), {x}),
         imageWithRecordSound(media(), {x, soundRecord("memo", soundB()), metaRecord({"memo"})}, 1)},
        // The bare sound becomes "EchoFrame_000"; the new one follows it.
        {"bare sound", imageWithBareSound(media(), soundA()),
         imageWithRecordSound(
             media(),
             {soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}), soundRecord("memo", soundB())}, 0,
             106)},
        // A sound in front of a container without list: it becomes a listed record.
        {"sound before container", imageWithSoundBeforeContainer(media(), soundA(), {x}),
         imageWithRecordSound(
             media(),
             {x, soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}), soundRecord("memo", soundB())},
             1, 106)},
        // A listed container: the list is stored again with the name last.
        {"sound records",
         imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0),
         imageWithRecordSound(
             media(),
             {soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}), soundRecord("memo", soundB())}, 0,
             106)},
    };
    for (const Case& c : cases) {
        TempFile file(c.before);
        EXPECT_EQ(saveSound(file, "memo", soundB()), 1u) << c.what;
        EXPECT_EQ(file.read(), c.after) << c.what;
    }
    // Saving under the first sound's own name replaces a bare sound.
    TempFile bare(imageWithBareSound(media(), soundA()));
    EXPECT_EQ(saveSound(bare, kFirst, soundB()), 1u);
    EXPECT_EQ(bare.read(),
              imageWithRecordSound(media(), {soundRecord(kFirst, soundB()), metaRecord({kFirst})}, 0));
}

TEST(SaveSound, ReplacingAListedSoundKeepsTheListExact) {
    // The sound the block points at is replaced: it comes back last, with a new block.
    TempFile single(imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0));
    EXPECT_EQ(saveSound(single, kFirst, soundC()), 1u);
    EXPECT_EQ(single.read(),
              imageWithRecordSound(media(), {soundRecord(kFirst, soundC()), metaRecord({kFirst})}, 0));

    // Another listed sound: the block keeps pointing at the first one.
    const auto twoSounds = [](const Bytes& memo) {
        return std::vector<RecordSpec>{soundRecord(kFirst, soundA()), soundRecord("memo", memo),
                                       metaRecord({kFirst, "memo"})};
    };
    TempFile two(imageWithRecordSound(media(), twoSounds(soundB()), 0));
    EXPECT_EQ(saveSound(two, "memo", soundC()), 1u);
    EXPECT_EQ(two.read(), imageWithRecordSound(media(), twoSounds(soundC()), 0, 106));
}

TEST(SaveSound, ThirdNameIsAppendedToTheList) {
    TempFile file(imageWithBareSound(media(), soundA()));
    ASSERT_EQ(saveSound(file, "memo", soundB()), 1u);
    ASSERT_EQ(saveSound(file, "note", soundC()), 1u);
    FilePack pack(checkTEVWithReadPM(file.c_str()));
    ASSERT_NE(pack, nullptr);
    char** names = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(getEchoFrameNameList(pack.get(), &names, &count), 1u);
    std::vector<std::string> listed;
    for (uint32_t i = 0; i < count; ++i) {
        listed.emplace_back(names[i]);
        _kfree(names[i]);
    }
    _kfree(names);
    EXPECT_EQ(listed, (std::vector<std::string>{kFirst, "memo", "note"}));
    EXPECT_EQ(getVoxaCntInFile(pack.get()), 3u);
    char note[] = "note";
    _voxa_audio_buffer* audio = getAudioStreamBuffer(pack.get(), note, 4);
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->length, soundC().size());
    EXPECT_EQ(Bytes(audio->data_unit->data, audio->data_unit->data + audio->data_unit->data_length), soundC());
    destroyAudioStreamBuffer(audio);
    // The block still points at the first sound.
    EXPECT_EQ(blockSound(file), soundA());
}

// ------------------------------------------------------------ deleting sounds

TEST(DeleteSound, OneOfSeveralThenTheLast) {
    const RecordSpec x = record("x", 9, 0x11);
    TempFile file(imageWithRecordSound(
        media(),
        {x, soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})}, 1));
    EXPECT_EQ(deleteVoxaFromImageFile(file.c_str(), "memo"), 1u);
    EXPECT_EQ(file.read(), imageWithRecordSound(
                               media(), {x, soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 1, 106));
    // The last sound takes the list and the block with it; the record x stays.
    EXPECT_EQ(deleteVoxaFromImageFile(file.c_str(), kFirst.c_str()), 1u);
    EXPECT_EQ(file.read(), buildContainer(media(), {x}));
}

TEST(DeleteSound, TheOnlySoundLeavesThePlainImage) {
    TempFile file(imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0));
    EXPECT_EQ(deleteVoxaFromImageFile(file.c_str(), kFirst.c_str()), 1u);
    EXPECT_EQ(file.read(), media());
}

TEST(DeleteSound, ByFileSignature) {
    const RecordSpec x = record("x", 9, 0x11);
    struct Case {
        const char* what;
        Bytes before;
        uint32_t result;
        Bytes after;
    };
    const Bytes noList = imageWithSoundBeforeContainer(media(), soundA(), {x});
    const Case cases[] = {
        {"plain", media(), 0, media()},
        {"container", buildContainer(media(), {x}), 0, buildContainer(media(), {x})},
        {"bare sound", imageWithBareSound(media(), soundA()), 1, media()},
        // Without a list no sound can be named: nothing happens.
        {"no list", noList, 0, noList},
    };
    for (const Case& c : cases) {
        TempFile file(c.before);
        EXPECT_EQ(deleteVoxaFromImageFile(file.c_str(), "memo"), c.result) << c.what;
        EXPECT_EQ(file.read(), c.after) << c.what;
    }
}

TEST(DeleteSound, AllSoundsGoOtherRecordsStay) {
    const RecordSpec x = record("x", 9, 0x11);
    struct Case {
        const char* what;
        Bytes before;
        uint32_t result;
        Bytes after;
    };
    const Bytes bare = imageWithBareSound(media(), soundA());
    const Case cases[] = {
        {"listed sounds",
         imageWithRecordSound(
             media(),
             {x, soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}), soundRecord("memo", soundB())},
             1),
         1, buildContainer(media(), {x})},
        {"sound before container", imageWithSoundBeforeContainer(media(), soundA(), {x}), 1,
         buildContainer(media(), {x})},
        {"bare sound is not handled", bare, 0, bare},
    };
    for (const Case& c : cases) {
        TempFile file(c.before);
        EXPECT_EQ(deleteAllVoxaFromImageFile(file.c_str()), c.result) << c.what;
        EXPECT_EQ(file.read(), c.after) << c.what;
    }
}

// ------------------------------------------------------------ lookups

TEST(SoundLookups, DamagedOrMissingListsAreRefused) {
    // Second name's length runs one byte past the payload.
    Bytes damaged = metaPayload({kFirst, "memo"});
    putU32le(damaged, 16, 5);
    const RecordSpec bad{2048, "EchoFrame_Meta_Info", std::nullopt, damaged};
    TempFile file(buildContainer(media(), {soundRecord(kFirst, soundA()), bad}));
    FilePack pack(checkTEVWithReadPM(file.c_str()));
    ASSERT_NE(pack, nullptr);
    char** names = nullptr;
    uint32_t count = 7;
    EXPECT_EQ(getEchoFrameNameList(pack.get(), &names, &count), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(names, nullptr);
    _TEV_data_unit* unit = extractTEVDataFromFilebyName(pack.get(), "EchoFrame_Meta_Info", 19);
    EXPECT_EQ(isIdenticalNameInMetaInfo(unit, kFirst.c_str()), 0u);
    destroyTEVDATA_UNIT(unit);

    TempFile noMeta(buildContainer(media(), {soundRecord(kFirst, soundA())}));
    FilePack plain(checkTEVWithReadPM(noMeta.c_str()));
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(getVoxaCntInFile(plain.get()), 0xFFFFFFFFu);
    char absent[] = "memo";
    EXPECT_EQ(getAudioStreamBuffer(plain.get(), absent, 4), nullptr);
}

TEST(SoundLookups, SavingOverADamagedListLeavesAReadableOne) {
    Bytes damaged = metaPayload({kFirst});
    putU32le(damaged, 8, 0x40000000);  // a count whose lengths cannot fit
    const RecordSpec bad{2048, "EchoFrame_Meta_Info", std::nullopt, damaged};
    TempFile file(imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), bad}, 0));
    EXPECT_EQ(saveSound(file, "memo", soundB()), 1u);
    EXPECT_EQ(file.read(), imageWithRecordSound(media(),
                                                {soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}),
                                                 soundRecord("memo", soundB())},
                                                0, 106));
}

// ------------------------------------------------------------ refusals

class SoundRefusal : public LogCaptureTest {};

TEST_F(SoundRefusal, BoxMediaWithSoundIsLeftAlone) {
    const Bytes bareMp4 = imageWithBareSound(fakeMp4(kMedia), soundA());
    Bytes heic = fakeMp4(kMedia);
    for (size_t i = 0; i < 4; ++i) heic[8 + i] = uint8_t("heic"[i]);
    const Bytes listedHeic =
        imageWithRecordSound(heic, {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0);
    struct Case {
        Bytes before;
        const char* tag;
        const char* text;
        bool throughRecordSave;
    };
    const Case cases[] = {
        {bareMp4, "TEVVoxaAPIs::saveVoxaToImageStream", "SIGNATURE_VOXA is not use MP4 Format", false},
        {listedHeic, "TEVVoxaAPIs::saveVoxaToImageStream", "SIGNATURE_VOXA_TEV is not use MP4 Format", false},
        {bareMp4, "TEVEncoderAPIs::saveTEVDataToStream", "SIGNATURE_VOXA is not use MP4 Format", true},
        {listedHeic, "TEVEncoderAPIs::saveTEVDataToStream", "SIGNATURE_VOXA_TEV is not use MP4 Format", true},
    };
    for (const Case& c : cases) {
        clearLog();
        TempFile file(c.before);
        const uint32_t result =
            c.throughRecordSave ? saveRecord(file, record("x", 4, 1), 1) : saveSound(file, "memo", soundB());
        EXPECT_EQ(result, 0u) << c.text;
        EXPECT_TRUE(loggedError(c.tag, c.text)) << dumpLog();
        EXPECT_EQ(file.read(), c.before) << c.text;
    }
}

TEST_F(SoundRefusal, SizeBoundaries) {
    unsigned char byte = 0;
    TempFile file(imageWithBareSound(media(), soundA()));
    const Bytes before = file.read();
    EXPECT_EQ(saveVoxaToImageFile(file.c_str(), &byte, 0xFFF00001u, "memo", 4), 0u);
    EXPECT_TRUE(loggedError("TEVVoxaAPIs::saveVoxaToImageFile", "Too big file to add"));
    // 0xFFF00000 passes the size check; the room check then refuses a sum of
    // exactly 0xFFEFFFEB (sound end + name length + size) before any byte is read.
    const uint32_t soundEnd = kMedia + uint32_t(soundA().size());
    EXPECT_EQ(saveVoxaToImageFile(file.c_str(), &byte, 0xFFEFFFEBu - soundEnd - 4, "memo", 4), 0u);
    EXPECT_TRUE(loggedError("checkVoxaInfoForSaving",
                            "There is no space for saving TEV data in the source file, a voax data"));
    EXPECT_EQ(file.read(), before);
}

// ------------------------------------------------------------ records on sound images

TEST(RecordSave, BareSoundIsConvertedFirst) {
    TempFile file(imageWithBareSound(media(), soundA()));
    const RecordSpec x = record("x", 9, 0x11);
    EXPECT_EQ(saveRecord(file, x, 0), 1u);
    EXPECT_EQ(file.read(), imageWithRecordSound(
                               media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst}), x}, 0, 106));
}

TEST(RecordSave, DirectSaveOnBareSound) {
    TempFile file(imageWithBareSound(media(), soundA()));
    const RecordSpec x = record("x", 9, 0x11);
    const Bytes bytes = encodeRecord(x);
    FILE* fp = std::fopen(file.c_str(), "r+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(saveDirectTEVData(fp, bytes.data(), uint32_t(bytes.size()), "x", 0, 1, 0), 1u);
    std::fclose(fp);
    EXPECT_EQ(file.read(),
              imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst}), x}, 0));

    // Replacing a listed sound keeps its name listed.
    const auto records = [&](const Bytes& memo) {
        return std::vector<RecordSpec>{x, soundRecord(kFirst, soundA()), soundRecord("memo", memo),
                                       metaRecord({kFirst, "memo"})};
    };
    file.write(imageWithRecordSound(media(), records(soundB()), 1));
    const Bytes memo = encodeRecord(soundRecord("memo", soundC()));
    fp = std::fopen(file.c_str(), "r+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(saveDirectTEVData(fp, memo.data(), uint32_t(memo.size()), "memo", 0, 256, 1), 1u);
    std::fclose(fp);
    EXPECT_EQ(file.read(), imageWithRecordSound(media(), records(soundC()), 1, 106));
}

TEST(RecordDelete, ClearingABareSoundCutsIt) {
    TempFile file(imageWithBareSound(media(), soundA()));
    EXPECT_EQ(deleteAllDataFromFile(file.c_str()), 1u);
    EXPECT_EQ(file.read(), media());
}

TEST(RecordDelete, ListedSoundLeavesTheListWithItsRecord) {
    const RecordSpec x = record("x", 9, 0x11);
    const std::vector<RecordSpec> records{soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), x,
                                          metaRecord({kFirst, "memo"})};
    TempFile file(imageWithRecordSound(media(), records, 0));
    FilePack pack(checkTEVInFile(file.c_str()));
    ASSERT_NE(pack, nullptr);
    _voxa_info_struct* voxa = _checkAudioInImageStream(pack->info->Stream);
    ASSERT_NE(voxa, nullptr);
    EXPECT_EQ(DeleteATEVDataStream(pack->info, 1, voxa), 1u);
    DestroyVoxaStream(voxa);
    pack.reset();
    // The list is stored again, last, without "memo"; x is untouched.
    EXPECT_EQ(file.read(), imageWithRecordSound(
                               media(), {soundRecord(kFirst, soundA()), x, metaRecord({kFirst})}, 0, 106));
}

TEST(RecordSave, ReplacingAListedSoundThroughTheRecordSave) {
    const RecordSpec x = record("x", 9, 0x11);
    TempFile file(imageWithRecordSound(media(), {x, soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 1));
    EXPECT_EQ(saveRecord(file, soundRecord(kFirst, soundC()), 1), 1u);
    EXPECT_EQ(file.read(),
              imageWithRecordSound(media(), {x, soundRecord(kFirst, soundC()), metaRecord({kFirst})}, 1));
    // Without the update bit nothing changes.
    const Bytes before = file.read();
    EXPECT_EQ(saveRecord(file, soundRecord(kFirst, soundA()), 0), 0u);
    EXPECT_EQ(file.read(), before);
}

}  // namespace
