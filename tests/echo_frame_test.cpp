// Sounds kept as container records: writing them, converting a bare sound,
// saving named sounds into images of every kind, deleting them again, and
// the "EchoFrame_Meta_Info" list staying in step after each edit.
#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "support/medium.h"
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
    for (Medium medium : kStreamMedia) {
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
    StreamOver s(Medium::FilePtr, media());
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
    StreamOver s(Medium::FilePtr, imageWithBareSound(media(), soundA()));
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

// ------------------------------------------------------------ refusals

class SoundRefusal : public LogCaptureTest {};

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

// ------------------------------------------------------------ the documented steps, byte for byte

// One edit of a file built byte by byte: its result, the whole file after
// it and every log line (tag and text, all at error priority) it wrote.
struct EditCase {
    const char* what;
    Bytes before;
    std::function<int64_t(const TempFile&)> edit;
    int64_t result;
    Bytes after;
    std::vector<std::pair<std::string, std::string>> log;
};

class DocumentedSteps : public LogCaptureTest {
protected:
    void run(const std::vector<EditCase>& cases) {
        for (const EditCase& c : cases) {
            clearLog();
            TempFile file(c.before);
            EXPECT_EQ(c.edit(file), c.result) << c.what;
            EXPECT_EQ(file.read(), c.after) << c.what;
            std::vector<std::pair<std::string, std::string>> lines;
            for (const LogLine& line : logLines()) {
                EXPECT_EQ(line.priority, ANDROID_LOG_ERROR) << c.what;
                lines.emplace_back(line.tag, line.text);
            }
            EXPECT_EQ(lines, c.log) << c.what << "\n" << dumpLog();
        }
    }
};

int64_t directSave(const TempFile& file, const RecordSpec& r, uint32_t update) {
    const Bytes bytes = encodeRecord(r);
    FILE* fp = std::fopen(file.c_str(), "r+b");
    if (fp == nullptr) return -1;
    const uint32_t result = saveDirectTEVData(fp, bytes.data(), uint32_t(bytes.size()), r.name.c_str(),
                                              r.sub ? 1 : 0, r.type, update);
    std::fclose(fp);
    return result;
}

// A block of `version` whose count is 0: "VOXA", version, 0, an unused
// start and end pair, 20, "VOXABS".
Bytes emptyBlock(uint32_t version) {
    ByteBuilder b;
    b.text("VOXA").u32le(version).u32le(0).u32le(0).u32le(0).u32le(20).text("VOXABS");
    return b.take();
}

// Saving records into images whose container is followed by a sound block.
TEST_F(DocumentedSteps, RecordSavesOnSoundImages) {
    const RecordSpec x = record("x", 9, 0x11);
    const RecordSpec withSub{256, kFirst, Bytes{1, 2, 3}, soundC()};
    const RecordSpec plainFirst = record(kFirst, 11, 0xC3);
    const Bytes onlySound = imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0);
    const Bytes twoSounds = imageWithRecordSound(
        media(), {soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})}, 0);
    const Bytes xFirst = imageWithRecordSound(media(), {x, soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 1);
    const Bytes xAndTwo = imageWithRecordSound(
        media(), {x, soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})},
        1);
    run({
        // The only listed sound goes with its list and block; the caller's
        // record, sub-information and all, becomes a first record.
        {"replace the only sound", onlySound, [&](const TempFile& f) { return saveRecord(f, withSub, 1); }, 1,
         buildContainer(media(), {withSub}), {}},
        // The delete took the list with its last name; another record stays,
        // so there is no list to put the name back into.
        {"replace the only sound beside a record", xFirst,
         [&](const TempFile& f) { return saveRecord(f, soundRecord(kFirst, soundC()), 1); }, 0,
         buildContainer(media(), {x}), {}},
        // The record the block points at is replaced: it comes back as a
        // sound record (type 256 whatever the caller's type), listed last.
        {"replace the pointed sound of two", twoSounds, [&](const TempFile& f) { return saveRecord(f, plainFirst, 1); },
         1,
         imageWithRecordSound(media(),
                              {soundRecord("memo", soundB()), soundRecord(kFirst, plainFirst.data),
                               metaRecord({"memo", kFirst})},
                              1),
         {}},
        {"existing name without update", xFirst, [&](const TempFile& f) { return saveRecord(f, x, 0); }, 0, xFirst,
         {{"TEVEncoderAPIs::saveTEVDataToStream", "SIGNATURE_VOXA_TEV NOT UPDATE!!"}}},
        // The direct save deletes with the block and appends: the name
        // leaves the list.
        {"direct replace of a listed sound", xAndTwo,
         [&](const TempFile& f) { return directSave(f, soundRecord("memo", soundC()), 1); }, 1,
         imageWithRecordSound(media(), {x, soundRecord(kFirst, soundA()), metaRecord({kFirst}),
                                        soundRecord("memo", soundC())},
                              1),
         {}},
        {"direct save of an existing name without update", xAndTwo,
         [&](const TempFile& f) { return directSave(f, x, 0); }, 0, xAndTwo, {}},
    });
}

// Storing, adding and deleting sounds in files of every kind.
TEST_F(DocumentedSteps, SoundEdits) {
    const RecordSpec x = record("x", 9, 0x11);
    const char* saveTag = "TEVVoxaAPIs::saveVoxaToImageStream";
    const Bytes mp4 = fakeMp4(kMedia);
    Bytes heic = fakeMp4(kMedia);
    for (size_t i = 0; i < 4; ++i) heic[8 + i] = uint8_t("heic"[i]);
    const Bytes boxedHeic = buildContainer(heic, {x}, ContainerOptions{107, true});
    const Bytes bareMp4 = imageWithBareSound(mp4, soundA());
    const Bytes listedHeic = imageWithRecordSound(heic, {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0);
    const Bytes listed = buildContainer(media(), {x, soundRecord("memo", soundB()), metaRecord({"memo"})});
    const Bytes emptySound107 = concat(media(), emptyBlock(107));
    const Bytes emptySound106 = concat(media(), emptyBlock(106));
    Bytes damagedList = metaPayload({kFirst});
    putU32le(damagedList, 8, 0x40000000);
    const Bytes damaged = imageWithRecordSound(
        media(), {soundRecord(kFirst, soundA()), RecordSpec{2048, "EchoFrame_Meta_Info", std::nullopt, damagedList}},
        0);
    const Bytes oneListed = imageWithRecordSound(media(), {x, soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 1);
    const Bytes twoListed = imageWithRecordSound(
        media(), {x, soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})},
        1);
    const Bytes tornContainer = concat(media(), textBytes("not a directoryTEVT"));
    const uint32_t at = uint32_t(kMedia + 30);
    const Bytes emptyFirst = concat(concat(media(), pattern(30)), voxaBlock(106, at, at));
    const auto save = [](const std::string& name, const Bytes& sound) {
        return [=](const TempFile& f) -> int64_t { return saveSound(f, name, sound); };
    };
    const auto remove = [](const char* name) {
        return [=](const TempFile& f) -> int64_t { return deleteVoxaFromImageFile(f.c_str(), name); };
    };
    const auto add = [](const Bytes& sound) {
        return [=](const TempFile& f) -> int64_t {
            return AddSoundInVoxaFile(f.c_str(), sound.data(), uint32_t(sound.size()));
        };
    };
    const std::pair<std::string, std::string> refused{saveTag, "sound is not saved in MP4 or HEIC"};
    run({
        {"plain MP4", mp4, save("memo", soundB()), 0, mp4, {refused}},
        {"HEIC with a boxed container", boxedHeic, save("memo", soundB()), 0, boxedHeic, {refused}},
        {"MP4 with a bare sound", bareMp4, save("memo", soundB()), 0, bareMp4,
         {{saveTag, "SIGNATURE_VOXA is not use MP4 Format"}}},
        {"HEIC with listed sounds", listedHeic, save("memo", soundB()), 0, listedHeic,
         {{saveTag, "SIGNATURE_VOXA_TEV is not use MP4 Format"}}},
        // A container without block gets the sound with a list of its name
        // alone; the older list stays where it is.
        {"container with a list", listed, save("note", soundC()), 1,
         imageWithRecordSound(media(),
                              {x, soundRecord("memo", soundB()), metaRecord({"memo"}), soundRecord("note", soundC()),
                               metaRecord({"note"})},
                              3),
         {}},
        // A current block that lists no sound stays between media and records.
        {"block without sound", emptySound107, save("memo", soundB()), 1,
         imageWithRecordSound(emptySound107, {soundRecord("memo", soundB()), metaRecord({kFirst})}, 0),
         {}},
        {"old block without sound", emptySound106, save("memo", soundB()), 0, emptySound106, {}},
        // Saved under the first sound's own name, the list names it twice;
        // replacing it then leaves nothing to add it behind.
        {"bare sound saved as EchoFrame_000", imageWithBareSound(media(), soundA()), save(kFirst, soundB()), 0, media(),
         {}},
        {"damaged list", damaged, save("memo", soundB()), 0, damaged,
         {{"TEVEncoderAPIs::saveTEVDataToStream", "data == LUMET_TEV_NULL || data_len <= 0"},
          {saveTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!"}}},
        // One listed name: the record asked for and the list go, whatever
        // the record is.
        {"delete an unlisted record, one name", oneListed, remove("x"), 1,
         imageWithRecordSound(media(), {soundRecord(kFirst, soundA())}, 0), {}},
        {"delete an unlisted record, two names", twoListed, remove("x"), 1,
         imageWithRecordSound(
             media(), {soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})}, 0),
         {}},
        {"delete an absent name, two names", twoListed, remove("none"), 1, twoListed, {}},
        {"delete without a list", imageWithSoundBeforeContainer(media(), soundA(), {x}), remove("memo"), 0,
         imageWithSoundBeforeContainer(media(), soundA(), {x}), {}},
        {"delete from a plain image", media(), remove("memo"), 0, media(), {}},
        // A file that ends in "TEVT" but holds no container takes the sound
        // behind it.
        {"add behind a torn container", tornContainer, add(soundB()),
         int64_t(tornContainer.size() + soundB().size() + 30), imageWithBareSound(tornContainer, soundB()),
         {{"TEV::ParseTEV", "file has no sound OFFS"}}},
        // An empty first sound is cut where it starts.
        {"delete an empty sound", emptyFirst, [](const TempFile& f) -> int64_t { return deleteAVoxa(f.c_str()); }, 1,
         concat(media(), pattern(30)), {}},
        {"add over an empty sound", emptyFirst, add(soundB()), int64_t(at + soundB().size() + 30),
         imageWithBareSound(concat(media(), pattern(30)), soundB()), {}},
    });
}

}  // namespace
