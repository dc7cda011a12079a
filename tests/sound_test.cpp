// Sound: the Voxa block that ends an image (parsed over every medium, its
// damaged forms refused, its first sound handed out), the writers of the
// block and of the "EchoFrame_Meta_Info" list, and every edit of a file that
// carries sound, bare or kept as container records, byte for byte with the
// log lines it writes.
#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "support/stream_over.h"
#include "tev/tev.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

constexpr uint32_t kMedia = 50;
const std::string kFirst = "EchoFrame_000";
const std::string kTableTooLong = "data + header is bigger then file -> that's not true!!";
const RecordSpec kX = record("x", 9, 0x11);
// What the check for a container in front of the block prints.
const std::pair<std::string, std::string> kMetaNull{"stdout", "meta null\n"}, kMetaNotNull{"stdout", "meta not null\n"};

Bytes media() { return fakeJpeg(kMedia); }
Bytes soundA() { return pattern(37); }
Bytes soundB() { return Bytes(23, 0xB2); }
Bytes soundC() { return Bytes(11, 0xC3); }

// Media, the sound, then a one-sound block of `version` pointing at it.
Bytes bareSound(const Bytes& sound, uint32_t version) {
    return concat(concat(media(), sound), voxaBlock(version, kMedia, kMedia + uint32_t(sound.size())));
}

// A block with any version, count, table and header length field.
Bytes rawBlock(uint32_t version, uint32_t count, const std::vector<uint32_t>& table, uint32_t headerLength,
               size_t padding = 0) {
    ByteBuilder b;
    b.text("VOXA").u32le(version).u32le(count);
    for (uint32_t v : table) b.u32le(v);
    return b.zeros(padding).u32le(headerLength).text("VOXABS").take();
}

// ------------------------------------------------------------ the block over every medium

// The path, FILE*, descriptor and buffer checks, each over its own copy of
// the bytes, released the way that medium's callers release them. A table
// that fails its check closes the FILE* and destroys the buffer handle that
// were handed in, so those are not released again then.
class VoxaOnMedium : public LogCaptureTest, public testing::WithParamInterface<Medium> {
protected:
    _voxa_info_struct* check(const Bytes& content) {
        file_ = std::make_unique<TempFile>(content);
        switch (GetParam()) {
            case Medium::Path: return _checkAudioInImageFile(file_->c_str());
            case Medium::FilePtr: return _checkAudioInImageFP(fp_ = fopen(file_->c_str(), "rb"));
            case Medium::Fd: return _checkAudioInImageFd(fd_ = open(file_->c_str(), O_RDONLY));
            default:
                handle_ = _kbopen(int64_t(content.size()));
                _kbwrite(content.data(), int64_t(content.size()), handle_);
                return _checkAudioInImageBuffer(handle_);
        }
    }
    uint32_t destroy(_voxa_info_struct* info) {
        if (GetParam() == Medium::Path) return DestroyVoxa(info);
        return GetParam() == Medium::Handle ? DestroyVoxaBuffer(info) : DestroyVoxaFP(info);
    }
    void TearDown() override {
        if (fp_ != nullptr) fclose(fp_);
        if (fd_ >= 0) close(fd_);
        _kbclose(handle_);
    }

    std::unique_ptr<TempFile> file_;
    FILE* fp_ = nullptr;
    int fd_ = -1;
    TevBufferHandle* handle_ = nullptr;
};

TEST_P(VoxaOnMedium, CheckReadsTheTableAndTheSoundBack) {
    const Bytes sound = pattern(100);
    _voxa_info_struct* info = check(imageWithBareSound(media(), sound));
    ASSERT_NE(info, nullptr) << dumpLog();
    EXPECT_EQ(_getAudioCountInImageFile(info), 1u);
    VoxaSoundOffset* offset = _getAudioInImageFile(info);
    ASSERT_NE(offset, nullptr);
    EXPECT_EQ(offset->offset, kMedia);
    EXPECT_EQ(offset->length, sound.size());
    _destroyVOXAOFFSET(offset);
    unsigned char* copy = _getAudioStreamBuffer(info);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(Bytes(copy, copy + sound.size()), sound);
    _kfree(copy);
    EXPECT_EQ(destroy(info), 1u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(VoxaOnMedium, TableFailureReleasesTheRecordAndWhatItStoodOn) {
    // The sound ends inside the file, but not before the 30-byte block.
    EXPECT_EQ(check(concat(media(), voxaBlock(106, 10, kMedia + 1))), nullptr);
    fp_ = nullptr;
    handle_ = nullptr;
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", kTableTooLong)) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(AllMedia, VoxaOnMedium,
                         testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Handle),
                         [](const testing::TestParamInfo<Medium>& info) { return mediumName(info); });

// ------------------------------------------------------------ parsing the block

// The parser is one body over TevStream: the boundaries run on a buffer.
class VoxaParseTest : public LogCaptureTest {
protected:
    TevStream* load(const Bytes& content) {
        release();
        over_ = std::make_unique<FixedBuffer>(content);
        return over_->stream();
    }
    // ParseVoxaStream, then ParseVoxaSound; the record stays readable in
    // info_ until the next parse.
    uint32_t parseWithTable(const Bytes& content) {
        info_ = ParseVoxaStream(load(content));
        return info_ ? ParseVoxaSound(info_) : 0u;
    }
    void release() {
        DestroyVoxaStream(info_);
        info_ = nullptr;
    }
    void TearDown() override { release(); }

    std::unique_ptr<FixedBuffer> over_;
    _voxa_info_struct* info_ = nullptr;
};

TEST_F(VoxaParseTest, DamagedBlockIsRefusedWithItsLog) {
    const std::string kNoOffs = "file has no suond OFFS";
    Bytes noMagic = imageWithBareSound(media(), pattern(8));
    noMagic[noMagic.size() - 30] = 'X';
    const struct {
        Bytes file;
        const char* tag;  // null: refused without a log line
        std::string text;
    } kCases[] = {
        {fakeJpeg(200), nullptr, ""},
        {noMagic, nullptr, ""},
        {Bytes(10, 'x'), "Voxa::ParseVoxa", "File Search Error"},
        {voxaBlock(106, 0, 0), "Voxa::ParseVoxa", "File Search Error"},  // block at the first byte
        {concat(media(), rawBlock(106, 0, {}, 12)), "Voxa::ParseVoxa", kNoOffs},  // no room for a sound
        {rawBlock(106, 1, {0, 1}, 500), "Voxa::ParseVoxa", kNoOffs},
        {bareSound(pattern(8), 207), "Voxa::ParseVoxa",
         "the source file has TEV data but current TEV version is too old to parse the source file"},
        {concat(media(), rawBlock(106, 0x8000000u, {0, 0}, 20)), "Voxa::ParseVoxa", "There is too much sound data."},
        {concat(media(), rawBlock(106, 0x7FFFFFFu, {0, 0}, 20)), "Voxa::ParseVoxaSound",
         "header is bigger then file -> that's not true!!"},
        {concat(media(), rawBlock(106, 5, {0, 0}, 20)), "Voxa::ParseVoxa", "sound data read fail."},
        // Every sound must end one block (30 bytes) before the end of the file.
        {concat(media(), voxaBlock(106, 0, kMedia + 1)), "Voxa::ParseVoxaSound", kTableTooLong},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        clearLog();
        EXPECT_EQ(parseWithTable(c.file), 0u);
        if (c.tag == nullptr) {
            EXPECT_EQ(info_, nullptr);
            EXPECT_TRUE(logLines().empty()) << dumpLog();
        } else {
            EXPECT_TRUE(loggedError(c.tag, c.text)) << dumpLog();
        }
    }
}

TEST_F(VoxaParseTest, RecordsAndHandlesThatCannotBeReadAreRefused) {
    _voxa_info_struct invalid{};
    _voxa_info_struct withoutStream{};
    withoutStream.is_valid = 1;
    const std::pair<_voxa_info_struct*, const char*> records[] = {
        {nullptr, "Wrong voxa_info"}, {&invalid, "Voxa validation failed"}, {&withoutStream, "Stream doesn't exist"}};
    for (const auto& [record, text] : records) {
        EXPECT_EQ(ParseVoxaSound(record), 0u);
        EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", text)) << dumpLog();
    }
    EXPECT_EQ(_getAudioCountInImageFile(nullptr), 0u);
    clearLog();
    EXPECT_EQ(ParseVoxaFd(0), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(ParseVoxa("/nonexistent/x.jpg"), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Open Error"));
    EXPECT_EQ(deleteAVoxaFd(0), 0u);
    EXPECT_TRUE(loggedError("Voxa::deleteAVoxa", "File descriptor error"));
    Bytes out(4);
    EXPECT_EQ(ReadSoundData(load(Bytes(16)), 0xFFFFFFFFu, 4, out.data()), 0u);
    EXPECT_TRUE(loggedError("Voxa::ReadSoundData", "File Search error")) << dumpLog();
}

TEST_F(VoxaParseTest, BoundaryValuesAreAccepted) {
    EXPECT_EQ(parseWithTable(bareSound(pattern(8), 206)), 1u) << dumpLog();
    EXPECT_EQ(parseWithTable(concat(media(), voxaBlock(106, 0, kMedia))), 1u) << dumpLog();
    // Header length thirteen with a count of 0 in the block: an empty table.
    ASSERT_EQ(parseWithTable(concat(media(), rawBlock(106, 0, {}, 13, 1))), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 0u);
    EXPECT_EQ(info_->header_size, 22u);
    EXPECT_EQ(_getAudioInImageFile(info_), nullptr);
    // Two sounds: the first is handed out.
    const Bytes twoSounds = rawBlock(106, 2, {kMedia, kMedia + 10, kMedia + 10, kMedia + 30}, 28);
    ASSERT_EQ(parseWithTable(concat(concat(media(), pattern(30)), twoSounds)), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 2u);
    VoxaSoundOffset* first = _getAudioInImageFile(info_);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->length, 10u);
    _destroyVOXAOFFSET(first);
}

TEST_F(VoxaParseTest, EmptyOrReversedFirstSoundIsNotHandedOut) {
    for (const auto& [start, end] : {std::pair<uint32_t, uint32_t>{20, 20}, {30, 20}}) {
        ASSERT_EQ(parseWithTable(concat(media(), voxaBlock(106, start, end))), 1u) << dumpLog();
        // Positions of a reversed sound are handed out, its length counted in 32 bits.
        VoxaSoundOffset* offset = _getAudioInImageFile(info_);
        EXPECT_EQ(offset != nullptr, start != end);
        if (offset != nullptr) {
            EXPECT_EQ(offset->length, end - start);
        }
        _destroyVOXAOFFSET(offset);
        EXPECT_EQ(_getAudioStreamBuffer(info_), nullptr);
    }
}

TEST_F(VoxaParseTest, StreamCheckLeavesTheCallersStreamOnFailure) {
    const Bytes content = concat(media(), voxaBlock(106, 0, kMedia + 1));
    TevStream* stream = load(content);
    EXPECT_EQ(_checkAudioInImageStream(stream), nullptr);
    EXPECT_TRUE(stream->CheckError());
    EXPECT_EQ(over_->contents(), content);
}

TEST_F(VoxaParseTest, GetAudioReturnsTheFirstSoundOrReportsNone) {
    const Bytes sound = pattern(77);
    TempFile withSound(imageWithBareSound(media(), sound));
    uint32_t size = 0;
    unsigned char* data = GetAudioInVoxa(withSound.c_str(), &size);
    ASSERT_NE(data, nullptr) << dumpLog();
    EXPECT_EQ(Bytes(data, data + size), sound);
    free(data);
    EXPECT_EQ(_destroyVOXADATA(ParseVoxa(withSound.c_str())), 1u);
    TempFile plain(fakeJpeg(300));
    size = 1234;
    EXPECT_EQ(GetAudioInVoxa(plain.c_str(), &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(loggedError("LUMET", "ParseVoxaFile :: voxa_info NULL")) << dumpLog();
}

TEST_F(VoxaParseTest, SoundFileCreateEmptiesTheFileAndWritesThroughTheRecordsStream) {
    const Bytes sound = pattern(10);
    TempFile target(Bytes{1, 2, 3});
    _voxa_info_struct* info = _checkAudioInImageStream(load(imageWithBareSound(media(), sound)));
    ASSERT_NE(info, nullptr) << dumpLog();
    EXPECT_EQ(_getSoundFileCreate(info, target.c_str()), sound.size());
    EXPECT_TRUE(target.read().empty());
    const Bytes after = over_->contents();  // the sound lands again right after itself
    EXPECT_EQ(Bytes(after.begin() + kMedia + 10, after.begin() + kMedia + 20), sound);
    DestroyVoxaStream(info);
}

// ------------------------------------------------------------ the sound inside a container

TEST_F(VoxaParseTest, WhatEndsTheFileAndWhichRecordHoldsTheSound) {
    const RecordSpec user{1, "user", Bytes{9, 9, 9, 9}, pattern(12)};
    const Bytes sound = pattern(20);
    constexpr uint32_t kNotFound = 0xFFFFFFFFu, kNoBlock = 0xFFFFFFFEu;
    const auto withBlock = [](const Bytes& front, const std::vector<RecordSpec>& records, uint32_t start) {
        return buildContainer(front, records, {107, false, true, start, start + 20});
    };
    const struct {
        const char* what;
        Bytes file;
        uint32_t endsWith;  // hasTEVDataStream
        uint32_t record;    // FindOldVoxaIndex, kNoBlock: not asked
    } kCases[] = {
        {"bare sound", imageWithBareSound(media(), sound), 1, kNoBlock},
        {"sound before a container", imageWithSoundBeforeContainer(media(), sound, {user}), 2, kNotFound},
        {"container", buildContainer(media(), {user}), 2, kNoBlock},
        {"plain image", media(), 0, kNoBlock},
        {"the second record's data",
         withBlock(media(), {user, soundRecord(kFirst, sound)}, kMedia + recordLength(user) + 8 + 13), 2, 1},
        // Tag header, name, sub-information length and bytes come first.
        {"the data behind sub-information",
         withBlock(media(), {RecordSpec{256, kFirst, Bytes{1, 2, 3}, sound}, user}, kMedia + 8 + 13 + 4 + 3), 2,
         0},
        {"a record's name", withBlock(media(), {user, soundRecord(kFirst, sound)}, kMedia + 8 + 4), 2, kNotFound},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        TevStream* stream = load(c.file);
        tev::VoxaStream voxa(_checkAudioInImageStream(stream));
        EXPECT_EQ(hasTEVDataStream(stream, voxa.get()), c.endsWith);
        if (c.record == kNoBlock) continue;
        ASSERT_NE(voxa, nullptr) << dumpLog();
        std::unique_ptr<_TEV_info, decltype(&DestroyTEV)> index(ParseTEV(stream, SIGNATURE_VOXA_TEV), DestroyTEV);
        ASSERT_TRUE(index && getTEVList(index.get()) == 1u) << dumpLog();
        EXPECT_EQ(FindOldVoxaIndex(index.get(), voxa.get()), c.record);
        if (c.record == 1) {
            Bytes out(sound.size());
            EXPECT_EQ(ReadDataVoxa(voxa.get(), voxa->sound_table[0], uint32_t(out.size()), out.data()), 1u);
            EXPECT_EQ(out, sound);
        }
    }
    EXPECT_EQ(FindOldVoxaIndex(nullptr, nullptr), kNotFound);
}

// ------------------------------------------------------------ the list of sound records

std::vector<std::string> listedNames(_TEV_info_pack* pack, uint32_t* result) {
    char** names = nullptr;
    uint32_t count = 7;
    *result = getEchoFrameNameList(pack, &names, &count);
    std::vector<std::string> listed;
    for (uint32_t i = 0; i < count; ++i) {
        listed.emplace_back(names[i]);
        _kfree(names[i]);
    }
    _kfree(names);
    return listed;
}

TEST(SoundList, NamesCountAndSoundsAreReadBackDamagedListsRefused) {
    // Second name's length runs one byte past the payload.
    Bytes damaged = metaPayload({kFirst, "memo"});
    putU32le(damaged, 16, 5);
    const struct {
        const char* what;
        Bytes file;
        uint32_t result;  // getEchoFrameNameList
        std::vector<std::string> names;
        uint32_t count;   // getVoxaCntInFile
        uint32_t listed;  // isIdenticalNameInMetaInfo(kFirst)
        Bytes note;       // the data of record "note", empty: none
    } kCases[] = {
        {"three names",
         imageWithRecordSound(media(),
                              {soundRecord(kFirst, soundA()), soundRecord("memo", soundB()),
                               metaRecord({kFirst, "memo", "note"}), soundRecord("note", soundC())},
                              0),
         1, {kFirst, "memo", "note"}, 3, 1, soundC()},
        {"damaged list",
         buildContainer(media(), {soundRecord(kFirst, soundA()),
                                  RecordSpec{2048, "EchoFrame_Meta_Info", std::nullopt, damaged}}),
         0, {}, 2, 0, {}},
        {"no list", buildContainer(media(), {soundRecord(kFirst, soundA())}), 0, {}, 0xFFFFFFFFu, 0, {}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        TempFile file(c.file);
        FilePack pack(checkTEVWithReadPM(file.c_str()));
        ASSERT_NE(pack, nullptr);
        uint32_t result = 0;
        EXPECT_EQ(listedNames(pack.get(), &result), c.names);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(getVoxaCntInFile(pack.get()), c.count);
        _TEV_data_unit* unit = extractTEVDataFromFilebyName(pack.get(), "EchoFrame_Meta_Info", 19);
        EXPECT_EQ(isIdenticalNameInMetaInfo(unit, kFirst.c_str()), c.listed);
        destroyTEVDATA_UNIT(unit);
        char note[] = "note";
        _voxa_audio_buffer* audio = getAudioStreamBuffer(pack.get(), note, 4);
        ASSERT_EQ(audio != nullptr, !c.note.empty());
        if (audio == nullptr) continue;
        EXPECT_EQ(audio->length, c.note.size());
        EXPECT_EQ(Bytes(audio->data_unit->data, audio->data_unit->data + audio->data_unit->data_length), c.note);
        destroyAudioStreamBuffer(audio);
    }
}

// ------------------------------------------------------------ writers

TEST(SoundWriters, BlockByteForByte) {
    StreamOver out(StreamMedium::Buffer, {}, 128);
    TevStream& s = *out.get();
    EXPECT_EQ(s.WriteSoundHeader(), 4);
    EXPECT_EQ(s.WriteSoundCount(1), 4);
    EXPECT_EQ(s.WriteSoundData(100, 250), 4);
    EXPECT_EQ(s.WriteSoundTailer(1), 6);
    uint32_t table[] = {10, 20, 30, 40};
    s.WriteSoundHeader();
    s.WriteSoundCount(2);
    EXPECT_EQ(s.WriteSoundDataBuffer(table, 2), 0);
    s.WriteSoundTailer(2);
    EXPECT_EQ(s.writeVoxaHeader(7, 9), 1u);
    EXPECT_EQ(out.contents(), concat(concat(voxaBlock(106, 100, 250), rawBlock(106, 2, {10, 20, 30, 40}, 28)),
                                     voxaBlock(107, 7, 9)));
}

TEST(SoundWriters, FirstTimeRecordsOverEveryMedium) {
    const Bytes meta = metaPayload({"memo"});
    const Bytes expected = imageWithRecordSound(media(), {soundRecord("memo", soundA()), metaRecord({"memo"})}, 0);
    for (StreamMedium medium : kStreamMedia) {
        StreamOver s(medium, media(), 512);
        EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(s.get(), 2048, 256, "memo", 4, soundA().data(),
                                                  uint32_t(soundA().size()), meta.data(), uint32_t(meta.size())),
                  1u);
        EXPECT_EQ(s.contents(), expected) << mediumName(medium);
    }
}

// The list builders copy the two leading words, whatever they hold, and
// refuse payloads whose lengths run past them.
TEST(SoundWriters, ListBuilders) {
    std::vector<char> out(1000);
    EXPECT_EQ(makeFirstVoxaHeader(out.data(), kFirst.c_str(), 13), 29u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 29), metaPayload({kFirst}));
    EXPECT_EQ(makeSecondVoxaHeader(out.data(), kFirst.c_str(), 13, "memo", 4), 37u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 37), metaPayload({kFirst, "memo"}));

    const auto list = [](const std::vector<std::string>& names) {
        Bytes b = metaPayload(names);
        putU32le(b, 0, 7);
        return b;
    };
    Bytes longName = metaPayload({"abc", "de"});
    putU32le(longName, 16, 3);  // "de" claims 3 bytes at the very end
    Bytes hugeCount = metaPayload({"abc"});
    putU32le(hugeCount, 8, 0xFFFFFFFFu);
    const Bytes shortHeader = ByteBuilder().u32le(1).u32le(0).take();
    const struct {
        Bytes payload;
        bool add;
        const char* name;
        Bytes expected;  // empty: refused
    } kCases[] = {
        {list({kFirst, "b"}), true, "memo", list({kFirst, "b", "memo"})},
        {list({kFirst, "b"}), false, kFirst.c_str(), list({"b"})},
        {metaPayload({"x", "yy"}), false, "y", metaPayload({"x", "yy"})},  // not listed: as it was
        {longName, true, "n", {}},     {longName, false, "abc", {}},    {hugeCount, true, "n", {}},
        {hugeCount, false, "abc", {}}, {shortHeader, true, "n", {}}, {shortHeader, false, "abc", {}},
    };
    for (const auto& c : kCases) {
        const RecordSpec meta{2048, "EchoFrame_Meta_Info", std::nullopt, c.payload};
        TempFile file(buildContainer(media(), {record("a", 5, 0x11), meta}));
        const uint32_t size = editParsed(file.path(), [&](_TEV_info* info) {
            const uint32_t length = uint32_t(strlen(c.name));
            return c.add ? makeAddVoxaHeader(out.data(), info, 1, c.name, length)
                         : makeMinusVoxaHeader(out.data(), info, 1, c.name, length);
        });
        EXPECT_EQ(Bytes(out.begin(), out.begin() + size), c.expected) << c.name;
    }
}

class SoundRoom : public LogCaptureTest {};

TEST_F(SoundRoom, BoundIsExclusiveAtTheLastSoundsEnd) {
    constexpr uint32_t kRoomBound = 0xFFEFFFEBu;
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

// ------------------------------------------------------------ the documented steps, byte for byte

// One edit of a file built byte by byte: its result, the whole file after
// it and every log line (tag and text, all at error priority) it wrote;
// what it printed, if anything, comes last under the tag "stdout".
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
            testing::internal::CaptureStdout();
            const int64_t result = c.edit(file);
            const std::string printed = testing::internal::GetCapturedStdout();
            EXPECT_EQ(result, c.result) << c.what;
            EXPECT_EQ(file.read(), c.after) << c.what;
            std::vector<std::pair<std::string, std::string>> lines;
            for (const LogLine& line : logLines()) {
                EXPECT_EQ(line.priority, ANDROID_LOG_ERROR) << c.what;
                lines.emplace_back(line.tag, line.text);
            }
            if (!printed.empty()) lines.emplace_back("stdout", printed);
            EXPECT_EQ(lines, c.log) << c.what << "\n" << dumpLog();
        }
    }
};

// `use` over the file opened for update, closed again before it is read.
int64_t withFile(const TempFile& file, const std::function<int64_t(FILE*)>& use) {
    FILE* fp = std::fopen(file.c_str(), "r+b");
    if (fp == nullptr) return -1;
    const int64_t result = use(fp);
    std::fclose(fp);
    return result;
}

// `use` over a file stream on the file, and the block parsed from it (null
// when there is none).
int64_t withStream(const TempFile& file, const std::function<int64_t(TevStream*, _voxa_info_struct*)>& use) {
    return withFile(file, [&](FILE* fp) -> int64_t {
        TevStreamFile stream(fp);
        tev::VoxaStream voxa(_checkAudioInImageStream(&stream));
        return use(&stream, voxa.get());
    });
}

int64_t directSave(const TempFile& file, const RecordSpec& r, uint32_t update) {
    const Bytes bytes = encodeRecord(r);
    return withFile(file, [&](FILE* fp) -> int64_t {
        return saveDirectTEVData(fp, bytes.data(), uint32_t(bytes.size()), r.name.c_str(), r.sub ? 1 : 0, r.type,
                                 update);
    });
}

int64_t saveRecord(const TempFile& file, const RecordSpec& r, uint32_t update) {
    return saveSpec(
        [&](const char* name, uint32_t len, const unsigned char* sub, uint32_t subLen, const unsigned char* data,
            uint32_t dataLen, uint32_t type, uint32_t upd) {
            return saveTEVDataToFile(file.c_str(), name, len, sub, subLen, data, dataLen, type, upd);
        },
        r, update);
}

// Saving records into images whose container is followed by a sound block.
TEST_F(DocumentedSteps, RecordSavesOnSoundImages) {
    const RecordSpec withSub{256, kFirst, Bytes{1, 2, 3}, soundC()};
    const RecordSpec plainFirst = record(kFirst, 11, 0xC3);
    const Bytes bare = imageWithBareSound(media(), soundA());
    const Bytes onlySound = imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0);
    const Bytes twoSounds = imageWithRecordSound(
        media(), {soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})}, 0);
    const Bytes xFirst = imageWithRecordSound(media(), {kX, soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 1);
    const Bytes xAndTwo = imageWithRecordSound(
        media(), {kX, soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})},
        1);
    run({
        // A bare sound becomes the first sound record before the record goes in.
        {"save on a bare sound", bare, [&](const TempFile& f) { return saveRecord(f, kX, 0); }, 1,
         imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst}), kX}, 0, 106), {}},
        {"direct save on a bare sound", bare, [&](const TempFile& f) { return directSave(f, kX, 0); }, 1,
         imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst}), kX}, 0), {}},
        // The only listed sound goes with its list and block; the caller's
        // record, sub-information and all, becomes a first record.
        {"replace the only sound", onlySound, [&](const TempFile& f) { return saveRecord(f, withSub, 1); }, 1,
         buildContainer(media(), {withSub}), {}},
        // The delete took the list with its last name; another record stays,
        // so there is no list to put the name back into.
        {"replace the only sound beside a record", xFirst,
         [&](const TempFile& f) { return saveRecord(f, soundRecord(kFirst, soundC()), 1); }, 0,
         buildContainer(media(), {kX}), {}},
        // The record the block points at is replaced: it comes back as a
        // sound record (type 256 whatever the caller's type), listed last.
        {"replace the pointed sound of two", twoSounds,
         [&](const TempFile& f) { return saveRecord(f, plainFirst, 1); }, 1,
         imageWithRecordSound(
             media(), {soundRecord("memo", soundB()), soundRecord(kFirst, plainFirst.data), metaRecord({"memo", kFirst})},
             1),
         {}},
        {"existing name without update", xFirst, [&](const TempFile& f) { return saveRecord(f, kX, 0); }, 0, xFirst,
         {{"TEVEncoderAPIs::saveTEVDataToStream", "SIGNATURE_VOXA_TEV NOT UPDATE!!"}}},
        // The direct save deletes with the block and appends: the name
        // leaves the list.
        {"direct replace of a listed sound", xAndTwo,
         [&](const TempFile& f) { return directSave(f, soundRecord("memo", soundC()), 1); }, 1,
         imageWithRecordSound(
             media(), {kX, soundRecord(kFirst, soundA()), metaRecord({kFirst}), soundRecord("memo", soundC())}, 1),
         {}},
        {"direct save of an existing name without update", xAndTwo,
         [&](const TempFile& f) { return directSave(f, kX, 0); }, 0, xAndTwo, {}},
        // Clearing every record of a bare sound cuts the sound.
        {"clear a bare sound", bare, [](const TempFile& f) -> int64_t { return deleteAllDataFromFile(f.c_str()); }, 1,
         media(), {kMetaNull}},
        // Deleting a listed sound with the block passed along stores the
        // list again, last, without its name; other records stay.
        {"delete a listed sound by index",
         imageWithRecordSound(media(),
                              {soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), kX,
                               metaRecord({kFirst, "memo"})},
                              0),
         [](const TempFile& f) -> int64_t {
             FilePack pack(checkTEVInFile(f.c_str()));
             if (!pack) return -1;
             tev::VoxaStream voxa(_checkAudioInImageStream(pack->info->Stream));
             return DeleteATEVDataStream(pack->info, 1, voxa.get());
         },
         1, imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), kX, metaRecord({kFirst})}, 0, 106), {}},
        {"delete by index deletes nothing", xFirst,
         [](const TempFile& f) -> int64_t {
             FilePack pack(checkTEVInFile(f.c_str()));
             return pack ? deleteEchoFrameDataFromFilebyIndex(pack->info, 0, 0) : -1;
         },
         0, xFirst, {}},
    });
}

int64_t saveSound(const TempFile& file, const std::string& name, Bytes sound) {
    return saveVoxaToImageFile(file.c_str(), sound.data(), uint32_t(sound.size()), name.c_str(),
                               uint32_t(name.size()));
}

// Storing, adding and deleting named sounds in files of every kind.
TEST_F(DocumentedSteps, SoundEdits) {
    const char* saveTag = "TEVVoxaAPIs::saveVoxaToImageStream";
    const char* firstTag = "TEVEncoder::NewAddVoxaDataInFirstTimeStream";
    const Bytes mp4 = fakeMp4(kMedia);
    Bytes heic = fakeMp4(kMedia);
    for (size_t i = 0; i < 4; ++i) heic[8 + i] = uint8_t("heic"[i]);
    const Bytes boxedHeic = buildContainer(heic, {kX}, ContainerOptions{107, true});
    const Bytes bare = imageWithBareSound(media(), soundA());
    const Bytes bareMp4 = imageWithBareSound(mp4, soundA());
    const Bytes listedHeic = imageWithRecordSound(heic, {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0);
    const Bytes listed = buildContainer(media(), {kX, soundRecord("memo", soundB()), metaRecord({"memo"})});
    const Bytes emptySound107 = concat(media(), rawBlock(107, 0, {0, 0}, 20));
    const Bytes emptySound106 = concat(media(), rawBlock(106, 0, {0, 0}, 20));
    Bytes damagedList = metaPayload({kFirst});
    putU32le(damagedList, 8, 0x40000000);
    const Bytes damaged = imageWithRecordSound(
        media(), {soundRecord(kFirst, soundA()), RecordSpec{2048, "EchoFrame_Meta_Info", std::nullopt, damagedList}},
        0);
    const Bytes onlySound = imageWithRecordSound(media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0);
    const Bytes oneListed = imageWithRecordSound(media(), {kX, soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 1);
    const Bytes twoListed = imageWithRecordSound(
        media(), {kX, soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})},
        1);
    const Bytes twoNames = imageWithRecordSound(
        media(), {soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}), soundRecord("memo", soundB())}, 0, 106);
    const Bytes beforeContainer = imageWithSoundBeforeContainer(media(), soundA(), {kX});
    const Bytes meta = metaPayload({"memo"});
    const TempFile copySource(onlySound);
    const auto save = [](const std::string& name, const Bytes& sound) {
        return [=](const TempFile& f) { return saveSound(f, name, sound); };
    };
    const auto remove = [](const char* name) {
        return [=](const TempFile& f) -> int64_t { return deleteVoxaFromImageFile(f.c_str(), name); };
    };
    const auto removeAll = [](const TempFile& f) -> int64_t { return deleteAllVoxaFromImageFile(f.c_str()); };
    const auto firstTime = [&](bool stream, const unsigned char* sound, uint32_t soundSize, uint32_t metaSize) {
        return [=](const TempFile& f) {
            return withStream(f, [&](TevStream* s, _voxa_info_struct*) -> int64_t {
                return NewAddVoxaDataInFirstTimeStream(stream ? s : nullptr, 2048, 256, "memo", 4, sound, soundSize,
                                                       meta.data(), metaSize);
            });
        };
    };
    const std::pair<std::string, std::string> refused{saveTag, "sound is not saved in MP4 or HEIC"};
    unsigned char byte = 0;
    run({
        {"plain MP4", mp4, save("memo", soundB()), 0, mp4, {refused}},
        {"HEIC with a boxed container", boxedHeic, save("memo", soundB()), 0, boxedHeic, {refused}},
        {"MP4 with a bare sound", bareMp4, save("memo", soundB()), 0, bareMp4,
         {{saveTag, "SIGNATURE_VOXA is not use MP4 Format"}}},
        {"HEIC with listed sounds", listedHeic, save("memo", soundB()), 0, listedHeic,
         {{saveTag, "SIGNATURE_VOXA_TEV is not use MP4 Format"}}},
        {"an empty sound", bare, save("memo", {}), 0, bare, {{saveTag, "audioStream null"}}},
        {"a sound without name", bare,
         [](const TempFile& f) -> int64_t { return saveVoxaToImageFile(f.c_str(), soundB().data(), 23, nullptr, 4); },
         0, bare, {{saveTag, "voxa name is null or voxa_name_len is 0"}}},
        {"no stream", bare,
         [](const TempFile&) -> int64_t { return saveVoxaToImageStream(nullptr, soundB().data(), 23, "memo", 4); }, 0,
         bare, {{saveTag, "Stream is null"}}},
        {"too big", bare,
         [&](const TempFile& f) -> int64_t { return saveVoxaToImageFile(f.c_str(), &byte, 0xFFF00001u, "memo", 4); },
         0, bare, {{"TEVVoxaAPIs::saveVoxaToImageFile", "Too big file to add"}}},
        // 0xFFF00000 passes the size check; the room check then refuses a sum
        // of exactly 0xFFEFFFEB (sound end + name length + size) before any
        // byte is read.
        {"no room", bare,
         [&](const TempFile& f) -> int64_t {
             return saveVoxaToImageFile(f.c_str(), &byte, 0xFFEFFFEBu - kMedia - 37 - 4, "memo", 4);
         },
         0, bare,
         {{"checkVoxaInfoForSaving", "There is no space for saving TEV data in the source file, a voax data"}}},
        {"plain image", media(), save("memo", soundB()), 1,
         imageWithRecordSound(media(), {soundRecord("memo", soundB()), metaRecord({"memo"})}, 0), {}},
        {"container without sound", buildContainer(media(), {kX}), save("memo", soundB()), 1,
         imageWithRecordSound(media(), {kX, soundRecord("memo", soundB()), metaRecord({"memo"})}, 1), {}},
        // The bare sound becomes "EchoFrame_000"; the new one follows it.
        {"bare sound", bare, save("memo", soundB()), 1, twoNames, {kMetaNull}},
        // A sound in front of a container without list: it becomes a listed record.
        {"sound before container", beforeContainer, save("memo", soundB()), 1,
         imageWithRecordSound(
             media(), {kX, soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}), soundRecord("memo", soundB())},
             1, 106),
         {kMetaNotNull}},
        // A listed container: the list is stored again with the name last.
        {"sound records", onlySound, save("memo", soundB()), 1, twoNames, {}},
        {"third name", twoNames, save("note", soundC()), 1,
         imageWithRecordSound(media(),
                              {soundRecord(kFirst, soundA()), soundRecord("memo", soundB()),
                               metaRecord({kFirst, "memo", "note"}), soundRecord("note", soundC())},
                              0, 106),
         {}},
        // A container without block gets the sound with a list of its name
        // alone; the older list stays where it is.
        {"container with a list", listed, save("note", soundC()), 1,
         imageWithRecordSound(
             media(),
             {kX, soundRecord("memo", soundB()), metaRecord({"memo"}), soundRecord("note", soundC()), metaRecord({"note"})},
             3),
         {}},
        // A current block that lists no sound stays between media and records.
        {"block without sound", emptySound107, save("memo", soundB()), 1,
         imageWithRecordSound(emptySound107, {soundRecord("memo", soundB()), metaRecord({kFirst})}, 0), {}},
        {"old block without sound", emptySound106, save("memo", soundB()), 0, emptySound106, {}},
        // Saved under the first sound's own name, the list names it twice;
        // replacing it then leaves nothing to add it behind.
        {"bare sound saved as EchoFrame_000", bare, save(kFirst, soundB()), 0, media(), {kMetaNull}},
        {"damaged list", damaged, save("memo", soundB()), 0, damaged,
         {{"TEVEncoderAPIs::saveTEVDataToStream", "data == LUMET_TEV_NULL || data_len <= 0"},
          {saveTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!"},
          {"stdout", "error!!!!!!!!\n"}}},
        // The record writers behind the saves.
        {"first-time records without sound", media(), firstTime(false, meta.data(), 5, 29), 0, media(),
         {{firstTag, "Stream == LUMET_TEV_NULL "}}},
        {"first-time records with an empty sound", media(), firstTime(true, nullptr, 5, 29), 0, media(),
         {{firstTag, "voxa_data == LUMET_TEV_NULL || voxa_data_size <= 0 "}}},
        {"first-time records without list", media(), firstTime(true, meta.data(), 5, 0), 0, media(),
         {{firstTag, "voxa_info_data == LUMET_TEV_NULL || voxa_info_data_size <= 0 "}}},
        {"records added behind a container", buildContainer(media(), {kX}),
         [&](const TempFile& f) -> int64_t {
             return editParsed(f.path(), [&](_TEV_info* info) {
                 return NewAddVoxaData(info, 2048, 256, "memo", 4, soundA().data(), 37, meta.data(),
                                       uint32_t(meta.size()));
             });
         },
         1, imageWithRecordSound(media(), {kX, soundRecord("memo", soundA()), metaRecord({"memo"})}, 1), {}},
        // One listed name: the record asked for and the list go, whatever
        // the record is.
        {"delete an unlisted record, one name", oneListed, remove("x"), 1,
         imageWithRecordSound(media(), {soundRecord(kFirst, soundA())}, 0), {}},
        {"delete an unlisted record, two names", twoListed, remove("x"), 1,
         imageWithRecordSound(
             media(), {soundRecord(kFirst, soundA()), soundRecord("memo", soundB()), metaRecord({kFirst, "memo"})}, 0),
         {}},
        {"delete one of two names", twoListed, remove("memo"), 1,
         imageWithRecordSound(media(), {kX, soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 1, 106), {}},
        // The last sound takes the list and the block with it; x stays.
        {"delete the last name", oneListed, remove(kFirst.c_str()), 1, buildContainer(media(), {kX}), {}},
        {"delete the only sound", onlySound, remove(kFirst.c_str()), 1, media(), {}},
        {"delete an absent name, two names", twoListed, remove("none"), 1, twoListed, {}},
        {"delete without a list", beforeContainer, remove("memo"), 0, beforeContainer, {}},
        {"delete from a plain image", media(), remove("memo"), 0, media(), {}},
        {"delete a bare sound by name", bare, remove(kFirst.c_str()), 1, media(), {kMetaNull}},
        {"delete all listed sounds",
         imageWithRecordSound(
             media(), {kX, soundRecord(kFirst, soundA()), metaRecord({kFirst, "memo"}), soundRecord("memo", soundB())},
             1),
         removeAll, 1,
         buildContainer(media(), {kX}), {}},
        {"delete all, sound before container", beforeContainer, removeAll, 1, buildContainer(media(), {kX}), {}},
        {"delete all leaves a bare sound", bare, removeAll, 0, bare, {}},
        // The sounds of one image copied into another.
        {"copy listed sounds into a plain image", fakeJpeg(30),
         [&](const TempFile& f) -> int64_t { return copyVoxaData(copySource.c_str(), f.c_str()); }, 1,
         imageWithRecordSound(fakeJpeg(30), {soundRecord(kFirst, soundA()), metaRecord({kFirst})}, 0), {}},
        {"copy from a file that is not there", fakeJpeg(30),
         [&](const TempFile& f) -> int64_t { return copyVoxaData("/nonexistent/x.jpg", f.c_str()); }, 1, fakeJpeg(30),
         {}},
    });
}

// Adding, replacing, converting and cutting the first sound of the block.
TEST_F(DocumentedSteps, BareSoundEdits) {
    const RecordSpec note = record("note", 6, 0x33);
    const RecordSpec photo = record("photo", 9, 0x44, 7);
    const Bytes first = pattern(70);
    const Bytes second(25, 0xC3);
    const Bytes bare = imageWithBareSound(media(), first);
    const Bytes container = buildContainer(media(), {note, photo});
    const Bytes inFront = imageWithSoundBeforeContainer(media(), first, {note, photo});
    const Bytes secondInFront = imageWithSoundBeforeContainer(media(), second, {note, photo});
    const Bytes secondBeforeNote = imageWithSoundBeforeContainer(media(), second, {note});
    const Bytes tornContainer = concat(media(), textBytes("not a directoryTEVT"));
    const uint32_t at = kMedia + 30;
    const Bytes emptyFirst = concat(concat(media(), pattern(30)), voxaBlock(106, at, at));
    Bytes intoContainer = inFront;  // the sound runs into "note"
    putU32le(intoContainer, intoContainer.size() - 18, kMedia + 75);
    putU32le(intoContainer, intoContainer.size() - 14, kMedia + 90);
    Bytes pastEnd = imageWithSoundBeforeContainer(media(), first, {note});
    putU32le(pastEnd, pastEnd.size() - 14, 0xFFFFFF00u);
    const auto listedWith = [&](const std::vector<std::string>& names) {
        return imageWithRecordSound(media(), {soundRecord(kFirst, first), note, metaRecord(names)}, 0);
    };
    const auto add = [](const Bytes& sound) {
        return [=](const TempFile& f) -> int64_t {
            return AddSoundInVoxaFile(f.c_str(), sound.data(), uint32_t(sound.size()));
        };
    };
    const auto cut = [](const TempFile& f) -> int64_t { return deleteAVoxa(f.c_str()); };
    const auto copyFrom = [](const Bytes& source) {
        return [=](const TempFile& f) -> int64_t {
            TempFile src(source);
            return _copyAudioData(src.c_str(), f.c_str());
        };
    };
    std::vector<EditCase> cases = {
        {"add to a plain image", media(), add(first), kMedia + 70 + 30, bare, {}},
        {"add over a bare sound", bare, add(second), kMedia + 25 + 30, imageWithBareSound(media(), second), {kMetaNull}},
        {"add in front of a container", container, add(first), int64_t(inFront.size()), inFront, {kMetaNotNull}},
        {"add over a sound in front of a container", inFront, add(second), int64_t(secondInFront.size()),
         secondInFront, {kMetaNotNull}},
        // A sound kept as a record leaves with its record and its list.
        {"add over a sound record", listedWith({kFirst}), add(second), int64_t(secondBeforeNote.size()),
         secondBeforeNote, {kMetaNotNull}},
        // A file that ends in "TEVT" but holds no container takes the sound
        // behind it.
        {"add behind a torn container", tornContainer, add(second),
         int64_t(tornContainer.size() + second.size() + 30), imageWithBareSound(tornContainer, second),
         {{"TEV::ParseTEV", "file has no sound OFFS"}, kMetaNotNull}},
        {"add over an empty sound", emptyFirst, add(second), int64_t(at + second.size() + 30),
         imageWithBareSound(concat(media(), pattern(30)), second), {kMetaNull}},
        {"add to a file that is not there", media(),
         [](const TempFile&) -> int64_t { return AddSoundInVoxaFile("/nonexistent/x.jpg", "a", 1); }, 0, media(),
         {{"VoxaAPIs::AddSoundInVoxaFile", "File Search error"}}},
        {"add over a damaged table", intoContainer, add(second), 0, intoContainer, {kMetaNotNull}},
        {"cut a bare sound", bare, cut, 1, media(), {kMetaNull}},
        // The container moves whole to where the sound began.
        {"cut a sound in front of a container", inFront, cut, 1, container, {kMetaNotNull}},
        {"cut a listed sound", listedWith({kFirst, "note"}), cut, 1,
         buildContainer(media(), {note, metaRecord({"note"})}), {kMetaNotNull}},
        {"cut the only listed sound", listedWith({kFirst}), cut, 1, buildContainer(media(), {note}), {kMetaNotNull}},
        {"cut an empty sound", emptyFirst, cut, 1, concat(media(), pattern(30)), {kMetaNull}},
        {"cut a block without sounds", concat(media(), rawBlock(106, 0, {0, 0}, 20)), cut, 0,
         concat(media(), rawBlock(106, 0, {0, 0}, 20)), {{"stdout", "sound_count 0\n"}}},
        {"cut a sound running into the container", intoContainer, cut, 1, intoContainer, {kMetaNotNull}},
        {"cut a sound ending past the file", pastEnd, cut, 0, pastEnd, {{"Voxa::ParseVoxaSound", kTableTooLong}}},
        {"convert a bare sound into the first record", bare,
         [](const TempFile& f) {
             return withStream(f, [](TevStream*, _voxa_info_struct* voxa) -> int64_t {
                 return voxa ? convertVoxaToEchoFrame(&voxa) : -1;
             });
         },
         1, imageWithRecordSound(media(), {soundRecord(kFirst, first), metaRecord({kFirst})}, 0), {}},
        // Nothing is logged: no descriptor is used after its file was closed.
        {"copy the first sound over another", imageWithBareSound(fakeJpeg(30), Bytes(9, 1)), copyFrom(bare), 1,
         imageWithBareSound(fakeJpeg(30), first), {kMetaNull}},
        {"copy the first sound into a plain image", fakeJpeg(30), copyFrom(bare), 1,
         imageWithBareSound(fakeJpeg(30), first), {}},
        {"copy from an image without sound", bare, copyFrom(media()), 1, bare, {}},
        {"copy into a file that is not there", bare,
         [](const TempFile& f) -> int64_t { return _copyAudioData(f.c_str(), "/nonexistent/x.jpg"); }, 0, bare,
         {{"Voxa::_copyAudioData", "Dst File Open Error"}}},
    };
    // MP4 and HEIC media keep their container as it is.
    for (const std::string brand : {"isom", "heic"}) {
        Bytes box = media();
        const Bytes head = ByteBuilder().u32be(kMedia).text("ftyp").text(brand).take();
        std::copy(head.begin(), head.end(), box.begin());
        const Bytes boxed = buildContainer(box, {note});
        const Bytes boxedSound = imageWithSoundBeforeContainer(box, first, {note});
        cases.push_back({"add to boxed media", boxed, add(second), 0, boxed,
                         {{"VoxaAPIs", "addVoxaSound voxa not use MP4, heic tag\n"}, kMetaNotNull}});
        cases.push_back({"cut from boxed media", boxedSound, cut, 1, boxedSound,
                         {{"VoxaAPIs", "deleteVoxa_ExistTEV voxa not use MP4, heic tag\n"}, kMetaNotNull}});
    }
    run(cases);
}

}  // namespace
