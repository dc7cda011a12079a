// Writing and editing sound: the block writers, the name-list builders, the
// room check, and adding, replacing and removing the sound of an image with
// and without a container between the sound and its block.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "support/medium.h"
#include "tev/tev.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

constexpr uint32_t kMedia = 40;
constexpr uint32_t kRoomBound = 0xFFEFFFEBu;

Bytes media() { return fakeJpeg(kMedia); }

// ------------------------------------------------------------ block writers

TEST(VoxaBlockWriters, WriteTheBlockByteForByte) {
    StreamOver out(Medium::Buffer, {}, 64);
    TevStream& s = *out.get();
    EXPECT_EQ(s.WriteSoundHeader(), 4);
    EXPECT_EQ(s.WriteSoundCount(1), 4);
    EXPECT_EQ(s.WriteSoundData(100, 250), 4);
    EXPECT_EQ(s.WriteSoundTailer(1), 6);
    EXPECT_EQ(out.contents(), voxaBlock(106, 100, 250));

    StreamOver out107(Medium::Buffer, {}, 64);
    EXPECT_EQ(out107.get()->writeVoxaHeader(7, 9), 1u);
    EXPECT_EQ(out107.contents(), voxaBlock(107, 7, 9));
}

// ------------------------------------------------------------ name lists

TEST(MetaListBuilders, OneAndTwoNames) {
    std::vector<char> out(1000);
    EXPECT_EQ(makeFirstVoxaHeader(out.data(), "EchoFrame_000", 13), 29u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 29), metaPayload({"EchoFrame_000"}));

    EXPECT_EQ(makeSecondVoxaHeader(out.data(), "EchoFrame_000", 13, "memo", 4), 37u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 37), metaPayload({"EchoFrame_000", "memo"}));
}

class MetaListEdit : public testing::Test {
protected:
    // Record "a", then the meta record holding `payload`, at index 1.
    uint32_t run(const Bytes& payload, bool add, const char* name, Bytes* result) {
        const RecordSpec meta{2048, "EchoFrame_Meta_Info", std::nullopt, payload};
        TempFile file(buildContainer(media(), {record("a", 5, 0x11), meta}));
        std::vector<char> out(1000);
        const uint32_t size = editParsed(file.path(), [&](_TEV_info* info) {
            return add ? makeAddVoxaHeader(out.data(), info, 1, name, uint32_t(strlen(name)))
                       : makeMinusVoxaHeader(out.data(), info, 1, name, uint32_t(strlen(name)));
        });
        *result = Bytes(out.begin(), out.begin() + size);
        return size;
    }
};

TEST_F(MetaListEdit, AppendsAndRemovesKeepingOrderAndLeadingWords) {
    // Leading words are copied, whatever they hold.
    const auto list = [](const std::vector<std::string>& names) {
        Bytes b = metaPayload(names);
        putU32le(b, 0, 7);
        return b;
    };
    Bytes out;
    const Bytes added = list({"EchoFrame_000", "b", "memo"});
    EXPECT_EQ(run(list({"EchoFrame_000", "b"}), true, "memo", &out), added.size());
    EXPECT_EQ(out, added);
    const Bytes removed = list({"b"});
    EXPECT_EQ(run(list({"EchoFrame_000", "b"}), false, "EchoFrame_000", &out), removed.size());
    EXPECT_EQ(out, removed);
}

TEST_F(MetaListEdit, NameNotListedLeavesTheListAsItIs) {
    const Bytes payload = metaPayload({"x", "yy"});
    Bytes out;
    EXPECT_EQ(run(payload, false, "y", &out), payload.size());
    EXPECT_EQ(out, payload);
}

TEST_F(MetaListEdit, RefusesPayloadsWhoseLengthsRunPastThem) {
    Bytes longName = metaPayload({"abc", "de"});
    putU32le(longName, 16, 3);  // "de" claims 3 bytes at the very end
    Bytes hugeCount = metaPayload({"abc"});
    putU32le(hugeCount, 8, 0xFFFFFFFFu);
    const Bytes shortHeader = ByteBuilder().u32le(1).u32le(0).take();
    Bytes out;
    for (const Bytes& payload : {longName, hugeCount, shortHeader}) {
        EXPECT_EQ(run(payload, true, "n", &out), 0u);
        EXPECT_EQ(run(payload, false, "abc", &out), 0u);
    }
}

// ------------------------------------------------------------ room check

class VoxaRoom : public LogCaptureTest {};

TEST_F(VoxaRoom, BoundIsExclusiveAtTheLastSoundsEnd) {
    uint32_t table[] = {10, 20, 30, 1000};
    _voxa_info_struct voxa{};
    voxa.is_valid = 1;
    voxa.file_size = 5000;
    voxa.sound_count = 2;
    voxa.sound_table = table;
    const uint32_t a = kRoomBound - 1000 - 3;
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, a - 1, 1, 2), 1u);
    EXPECT_TRUE(logLines().empty());
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, a, 1, 2), 0u);
    EXPECT_TRUE(loggedError("checkVoxaInfoForSaving",
                            "There is no space for saving TEV data in the source file, a voax data"));
    // Without sounds the file size stands in for the last end; sums past
    // 32 bits do not wrap into acceptance.
    voxa.sound_count = 0;
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, kRoomBound - 5001, 0, 0), 1u);
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu), 0u);
    EXPECT_EQ(checkVoxaInfoForSaving(nullptr, 0, 0, 0), 0u);
    EXPECT_TRUE(loggedError("checkVoxaInfoForSaving", "tev info null"));
}

// ------------------------------------------------------------ what ends a file

TEST(WhatEndsTheFile, TellsBareBlockFromContainerAndBlock) {
    const Bytes sound = pattern(50);
    struct Case {
        Bytes content;
        bool parseBlock;
        uint32_t expected;
    } cases[] = {
        {imageWithBareSound(media(), sound), true, 1},
        {imageWithSoundBeforeContainer(media(), sound, {record("a", 3, 1)}), true, 2},
        {buildContainer(media(), {record("a", 3, 1)}), false, 2},
        {media(), false, 0},
    };
    for (const Case& c : cases) {
        StreamOver over(Medium::FilePtr, c.content);
        tev::VoxaStream voxa(c.parseBlock ? _checkAudioInImageStream(over.get()) : nullptr);
        ASSERT_EQ(voxa != nullptr, c.parseBlock);
        EXPECT_EQ(hasTEVDataStream(over.get(), voxa.get()), c.expected);
    }
}

}  // namespace

// ------------------------------------------------------------ adding and deleting

namespace {

const RecordSpec kNote = record("note", 6, 0x33);
const RecordSpec kPhoto = record("photo", 9, 0x44, 7);

// Media whose bytes 4-11 read "ftyp" and a brand, as MP4 and HEIC files do.
Bytes boxMedia(const std::string& brand) {
    Bytes b = fakeJpeg(kMedia);
    const Bytes head = ByteBuilder().u32be(kMedia).text("ftyp").text(brand).take();
    std::copy(head.begin(), head.end(), b.begin());
    return b;
}

uint32_t addSound(TempFile& file, const Bytes& sound) {
    return AddSoundInVoxaFile(file.c_str(), sound.data(), uint32_t(sound.size()));
}

// A sound kept as record "EchoFrame_000" beside the note, the name list,
// and a version 107 block pointing at the record's payload.
Bytes soundAsRecord(const Bytes& sound, const std::vector<std::string>& listed) {
    return imageWithRecordSound(media(), {soundRecord("EchoFrame_000", sound), kNote, metaRecord(listed)}, 0);
}

}  // namespace

class SoundEdit : public LogCaptureTest {};

TEST_F(SoundEdit, AddToPlainImageThenReplaceTheBareSound) {
    TempFile file(media());
    EXPECT_EQ(addSound(file, pattern(70)), kMedia + 70 + 30);
    EXPECT_EQ(file.read(), imageWithBareSound(media(), pattern(70)));
    const Bytes second = Bytes(25, 0xC3);
    EXPECT_EQ(addSound(file, second), kMedia + 25 + 30);
    EXPECT_EQ(file.read(), imageWithBareSound(media(), second));
}

TEST_F(SoundEdit, AddPutsTheSoundInFrontOfAContainerAndReplacesIt) {
    TempFile file(buildContainer(media(), {kNote, kPhoto}));
    const Bytes first = pattern(70);
    const Bytes expected = imageWithSoundBeforeContainer(media(), first, {kNote, kPhoto});
    EXPECT_EQ(addSound(file, first), expected.size());
    EXPECT_EQ(file.read(), expected);

    const Bytes second = Bytes(11, 0x7E);
    addSound(file, second);
    EXPECT_EQ(file.read(), imageWithSoundBeforeContainer(media(), second, {kNote, kPhoto}));
}

TEST_F(SoundEdit, DeleteCutsABareSoundOrMovesTheContainerWholeToWhereItBegan) {
    TempFile bare(imageWithBareSound(media(), pattern(70)));
    EXPECT_EQ(deleteAVoxa(bare.c_str()), 1u);
    EXPECT_EQ(bare.read(), media());

    TempFile file(imageWithSoundBeforeContainer(media(), pattern(70), {kNote, kPhoto}));
    EXPECT_EQ(deleteAVoxa(file.c_str()), 1u);
    const Bytes after = file.read();
    EXPECT_EQ(after, buildContainer(media(), {kNote, kPhoto}));
    EXPECT_EQ(readText(after, after.size() - 4, 4), "TEVT");
}

TEST_F(SoundEdit, DeleteOfASoundRecordKeepsTheNameListTrue) {
    const Bytes sound = pattern(33);
    TempFile listed(soundAsRecord(sound, {"EchoFrame_000", "note"}));
    EXPECT_EQ(deleteAVoxa(listed.c_str()), 1u);
    const RecordSpec shorter{2048, "EchoFrame_Meta_Info", std::nullopt, metaPayload({"note"})};
    EXPECT_EQ(listed.read(), buildContainer(media(), {kNote, shorter}));

    TempFile alone(soundAsRecord(sound, {"EchoFrame_000"}));
    EXPECT_EQ(deleteAVoxa(alone.c_str()), 1u);
    EXPECT_EQ(alone.read(), buildContainer(media(), {kNote}));
}

TEST_F(SoundEdit, AddOverASoundRecordTakesTheRecordAndItsListOut) {
    TempFile file(soundAsRecord(pattern(33), {"EchoFrame_000"}));
    const Bytes sound = Bytes(17, 0x5C);
    addSound(file, sound);
    EXPECT_EQ(file.read(), imageWithSoundBeforeContainer(media(), sound, {kNote}));
}

TEST_F(SoundEdit, DeleteOfABlockWithoutSoundsSaysSo) {
    const Bytes block = ByteBuilder().text("VOXA").u32le(106).u32le(0).zeros(8).u32le(20).text("VOXABS").take();
    const Bytes content = concat(media(), block);
    StreamOver over(Medium::FilePtr, content);
    testing::internal::CaptureStdout();
    const uint32_t result = deleteAVoxaStream(over.get());
    EXPECT_NE(testing::internal::GetCapturedStdout().find("sound_count 0\n"), std::string::npos);
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(over.contents(), content);
}

TEST_F(SoundEdit, BoxMediaIsRefusedAndLeftAsItWas) {
    for (const std::string brand : {"isom", "heic"}) {
        const Bytes container = buildContainer(boxMedia(brand), {kNote});
        StreamOver adding(Medium::FilePtr, container);
        const Bytes sound = pattern(20);
        EXPECT_EQ(addVoxaSoundStream(adding.get(), nullptr, sound.data(), 20), 0);
        EXPECT_EQ(adding.contents(), container);
        EXPECT_TRUE(loggedError("VoxaAPIs", "addVoxaSound voxa not use MP4, heic tag\n")) << dumpLog();

        const Bytes withSound = imageWithSoundBeforeContainer(boxMedia(brand), sound, {kNote});
        StreamOver deleting(Medium::FilePtr, withSound);
        tev::VoxaStream voxa(_checkAudioInImageStream(deleting.get()));
        ASSERT_NE(voxa, nullptr);
        EXPECT_EQ(deleteVoxa_ExistTEV_Stream(deleting.get(), voxa.get()), 0u);
        EXPECT_EQ(deleting.contents(), withSound);
        EXPECT_TRUE(loggedError("VoxaAPIs", "deleteVoxa_ExistTEV voxa not use MP4, heic tag\n"));
    }
}

// Also: nothing is logged on success, which a stream that seeks its
// descriptor after the file was closed would ("_klseek").
TEST_F(SoundEdit, CopyAudioCarriesTheFirstSoundOver) {
    const Bytes sound = pattern(45);
    TempFile src(imageWithBareSound(media(), sound));
    TempFile dst(imageWithBareSound(fakeJpeg(30), Bytes(9, 1)));
    TempFile plain(fakeJpeg(30)), noSound(media());
    EXPECT_EQ(_copyAudioData(src.c_str(), dst.c_str()), 1u);
    EXPECT_EQ(dst.read(), imageWithBareSound(fakeJpeg(30), sound));
    EXPECT_EQ(_copyAudioData(src.c_str(), plain.c_str()), 1u);
    EXPECT_EQ(plain.read(), imageWithBareSound(fakeJpeg(30), sound));
    EXPECT_EQ(_copyAudioData(noSound.c_str(), dst.c_str()), 1u);  // nothing to copy
    // Nothing is logged: no descriptor is used after its file was closed.
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(_copyAudioData(src.c_str(), "/nonexistent/x.jpg"), 0u);
    EXPECT_TRUE(loggedError("Voxa::_copyAudioData", "Dst File Open Error"));
}

TEST_F(SoundEdit, DamagedTablesLeaveTheFileAsItWas) {
    const Bytes sound = pattern(50);
    Bytes intoContainer = imageWithSoundBeforeContainer(media(), sound, {kNote, kPhoto});
    putU32le(intoContainer, intoContainer.size() - 18, kMedia + 55);  // inside "note"
    putU32le(intoContainer, intoContainer.size() - 14, kMedia + 70);
    Bytes pastEnd = imageWithSoundBeforeContainer(media(), sound, {kNote});
    putU32le(pastEnd, pastEnd.size() - 14, 0xFFFFFF00u);
    for (const Bytes& content : {intoContainer, pastEnd}) {
        TempFile file(content);
        deleteAVoxa(file.c_str());
        EXPECT_EQ(file.read(), content);
    }
    TempFile file(intoContainer);
    EXPECT_EQ(addSound(file, sound), 0u);
    EXPECT_EQ(file.read(), intoContainer);
}
