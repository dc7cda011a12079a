// Sound: the Voxa block (parsed over every medium), its writers and those of the "EchoFrame_Meta_Info" list,
// and every edit of a file that carries sound, byte for byte with the lines it logs and prints.
#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "support/sound_files.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;
using Line = std::pair<std::string, std::string>;  // tag and text, or "stdout" and what was printed

constexpr uint32_t kMedia = 50, kNotFound = 0xFFFFFFFFu;
const std::string kFirst = "EchoFrame_000", kMetaName = "EchoFrame_Meta_Info";
const std::string kTableTooLong = "data + header is bigger then file -> that's not true!!";
const RecordSpec kX = record("x", 9, 0x11);
// What the check for a container in front of the block prints.
const Line kMetaNull{"stdout", "meta null\n"}, kMetaNotNull{"stdout", "meta not null\n"};

Bytes media() { return fakeJpeg(kMedia); }
Bytes withMedia(const Bytes& tail) { return concat(media(), tail); }
const Bytes kSoundA = pattern(37), kSoundB = Bytes(23, 0xB2), kSoundC = Bytes(11, 0xC3);

// A block with any version, count, table and header length field.
Bytes rawBlock(uint32_t version, uint32_t count, const std::vector<uint32_t>& table, uint32_t headerLength,
               size_t padding = 0) {
    ByteBuilder b;
    b.text("VOXA").u32le(version).u32le(count);
    for (uint32_t v : table) b.u32le(v);
    return b.zeros(padding).u32le(headerLength).text("VOXABS").take();
}

// The parser is one body over TevStream: the boundaries run on a buffer.
class SoundBlock : public LogCaptureTest {
protected:
    TevStream* load(const Bytes& content) {
        info_.reset();
        over_ = std::make_unique<FixedBuffer>(content);
        return over_->stream();
    }
    // ParseVoxaStream, then ParseVoxaSound; the record stays in info_ until the next parse.
    uint32_t parseWithTable(const Bytes& content) {
        info_.reset(ParseVoxaStream(load(content)));
        return info_ ? ParseVoxaSound(info_.get()) : 0u;
    }
    std::unique_ptr<FixedBuffer> over_;
    tev::VoxaStream info_;  // released before the buffer it stands on
};

// The check over a path, a FILE*, a descriptor and a buffer handle, each released as that medium's callers release
// it. A table that fails its check closes the FILE* and destroys the buffer handle handed in; the descriptor stays.
TEST_F(SoundBlock, EveryMediumReadsTheSoundBackOrReleasesWhatItStoodOn) {
    const Bytes sound = pattern(100), good = imageWithBareSound(media(), sound);
    const Bytes bad = withMedia(voxaBlock(106, 10, kMedia + 1));  // the sound ends in the file, not before the block
    for (Medium m : {Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Handle}) {
        for (const Bytes* content : {&bad, &good}) {
            clearLog();
            const TempFile file(*content);
            FILE* fp = m == Medium::FilePtr ? fopen(file.c_str(), "rb") : nullptr;
            const int fd = m == Medium::Fd ? open(file.c_str(), O_RDONLY) : -1;
            TevBufferHandle* handle = m == Medium::Handle ? _kbopen(int64_t(content->size())) : nullptr;
            if (handle != nullptr) _kbwrite(content->data(), int64_t(content->size()), handle);
            _voxa_info_struct* info = m == Medium::Path ? _checkAudioInImageFile(file.c_str())
                                      : fp != nullptr  ? _checkAudioInImageFP(fp)
                                      : fd >= 0        ? _checkAudioInImageFd(fd)
                                                       : _checkAudioInImageBuffer(handle);
            if (content == &bad) {
                EXPECT_EQ(info, nullptr) << mediumName(m);
                EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", kTableTooLong)) << dumpLog();
            } else {
                const tev::KBytes copy(_getAudioStreamBuffer(info));
                EXPECT_EQ(copy ? Bytes(copy.get(), copy.get() + 100) : Bytes{}, sound) << mediumName(m);
                EXPECT_EQ(1u, m == Medium::Path ? DestroyVoxa(info) : handle ? DestroyVoxaBuffer(info)
                                                                             : DestroyVoxaFP(info));
                EXPECT_TRUE(logLines().empty()) << dumpLog();
                if (fp != nullptr) fclose(fp);
                _kbclose(handle);
            }
            if (fd >= 0) close(fd);
        }
    }
}

// Blocks parsed with their table: refused with their log line (none without a block), or accepted, handing out
// the first sound's length (0: none; a reversed one's counted in 32 bits) and, unless empty or reversed, its bytes.
TEST_F(SoundBlock, BlocksAreRefusedWithTheirLogOrHandOutTheFirstSound) {
    Bytes noMagic = imageWithBareSound(media(), pattern(8));
    noMagic[noMagic.size() - 30] = 'X';
    const struct { Bytes file; const char* tag; std::string text; } kRefused[] = {  // tag null: no log line
        {fakeJpeg(200), nullptr, ""}, {noMagic, nullptr, ""},
        {Bytes(10, 'x'), "Voxa::ParseVoxa", "File Search Error"},
        {voxaBlock(106, 0, 0), "Voxa::ParseVoxa", "File Search Error"},       // block at the first byte
        {withMedia(rawBlock(106, 0, {}, 12)), "Voxa::ParseVoxa", "file has no suond OFFS"},  // no room for a sound
        {rawBlock(106, 1, {0, 1}, 500), "Voxa::ParseVoxa", "file has no suond OFFS"},
        {withMedia(concat(pattern(8), voxaBlock(207, kMedia, kMedia + 8))), "Voxa::ParseVoxa",
         "the source file has TEV data but current TEV version is too old to parse the source file"},
        {withMedia(rawBlock(106, 0x8000000u, {0, 0}, 20)), "Voxa::ParseVoxa", "There is too much sound data."},
        {withMedia(rawBlock(106, 0x7FFFFFFu, {0, 0}, 20)), "Voxa::ParseVoxaSound",
         "header is bigger then file -> that's not true!!"},
        {withMedia(rawBlock(106, 5, {0, 0}, 20)), "Voxa::ParseVoxa", "sound data read fail."},
    };
    for (const auto& c : kRefused) {
        clearLog();
        EXPECT_EQ(parseWithTable(c.file), 0u) << c.text;
        EXPECT_TRUE(c.tag != nullptr ? loggedError(c.tag, c.text) : info_ == nullptr && logLines().empty())
            << dumpLog();
    }
    const struct { Bytes file; uint32_t count, start, length; } kAccepted[] = {
        {withMedia(voxaBlock(106, 0, kMedia)), 1, 0, kMedia},
        {withMedia(concat(pattern(8), voxaBlock(206, kMedia, kMedia + 8))), 1, kMedia, 8},
        {withMedia(rawBlock(106, 0, {}, 13, 1)), 0, 0, 0},  // header length 13, count 0: an empty table
        {withMedia(concat(pattern(30), rawBlock(106, 2, {kMedia, kMedia + 10, kMedia + 10, kMedia + 30}, 28))), 2,
         kMedia, 10},
        {withMedia(voxaBlock(106, 20, 20)), 1, 0, 0},  // an empty sound is not handed out
        {withMedia(voxaBlock(106, 30, 20)), 1, 30, 0xFFFFFFF6u},
    };
    for (const auto& c : kAccepted) {
        ASSERT_EQ(parseWithTable(c.file), 1u) << dumpLog();
        EXPECT_EQ(std::make_pair(_getAudioCountInImageFile(info_.get()), info_->header_size),
                  std::make_pair(c.count, 22 + 8 * c.count));
        const tev::VoxaOffset offset(_getAudioInImageFile(info_.get()));
        EXPECT_EQ(offset ? std::make_pair(offset->offset, offset->length) : std::make_pair(0u, 0u),
                  std::make_pair(c.start, c.length));
        EXPECT_EQ(tev::KBytes(_getAudioStreamBuffer(info_.get())) != nullptr, c.length > 0 && c.length < 100);
    }
    _voxa_info_struct invalid{}, withoutStream{};
    withoutStream.is_valid = 1;
    const std::pair<_voxa_info_struct*, const char*> records[] = {
        {nullptr, "Wrong voxa_info"}, {&invalid, "Voxa validation failed"}, {&withoutStream, "Stream doesn't exist"}};
    for (const auto& [record, text] : records) {
        EXPECT_EQ(ParseVoxaSound(record), 0u);
        EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", text)) << dumpLog();
    }
}

TEST_F(SoundBlock, ReadersHandOutAndPlaceTheFirstSoundOrRefuse) {
    EXPECT_EQ(_getAudioCountInImageFile(nullptr), 0u);
    EXPECT_EQ(ParseVoxaFd(0), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    const Bytes sound = pattern(10);
    TempFile withSound(imageWithBareSound(media(), sound)), plain(fakeJpeg(300)), target(Bytes{1, 2, 3});
    uint32_t size = 1234;
    EXPECT_EQ(GetAudioInVoxa(plain.c_str(), &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(loggedError("LUMET", "ParseVoxaFile :: voxa_info NULL")) << dumpLog();
    EXPECT_EQ(_destroyVOXADATA(ParseVoxa(withSound.c_str())), 1u);
    // The new file stays empty: the sound goes through the record's stream, right behind itself.
    info_.reset(_checkAudioInImageStream(load(withSound.read())));
    Bytes out(10);
    EXPECT_EQ(ReadDataVoxa(info_.get(), kMedia, 10, out.data()), 1u);
    EXPECT_EQ(out, sound);
    EXPECT_EQ(_getSoundFileCreate(info_.get(), target.c_str()), 10u);
    EXPECT_TRUE(target.read().empty());
    Bytes twice = withSound.read();
    std::copy(sound.begin(), sound.end(), twice.begin() + kMedia + 10);
    EXPECT_EQ(over_->contents(), twice);
    EXPECT_EQ(ParseVoxa("/nonexistent/x.jpg"), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Open Error"));
    EXPECT_EQ(deleteAVoxaFd(0), 0u);
    EXPECT_TRUE(loggedError("Voxa::deleteAVoxa", "File descriptor error"));
    EXPECT_EQ(ReadSoundData(load(Bytes(16)), 0xFFFFFFFFu, 4, out.data()), 0u);
    EXPECT_TRUE(loggedError("Voxa::ReadSoundData", "File Search error")) << dumpLog();
    // A failed check leaves the caller's stream usable and as it was.
    const Bytes damaged = withMedia(voxaBlock(106, 0, kMedia + 1));
    TevStream* stream = load(damaged);
    EXPECT_EQ(_checkAudioInImageStream(stream), nullptr);
    EXPECT_TRUE(stream->CheckError());
    EXPECT_EQ(over_->contents(), damaged);
    // The record whose data is the block's first sound, if any: it starts behind the tag header, the name and the
    // sub-information's length and bytes.
    const RecordSpec user{1, "user", Bytes{9, 9, 9, 9}, pattern(12)}, held{256, kFirst, Bytes{1, 2, 3}, pattern(20)};
    const auto blockAt = [&](uint32_t start) {
        return buildContainer(media(), {user, held}, {107, false, true, start, start + 20});
    };
    const std::pair<Bytes, uint32_t> kCases[] = {
        {imageWithSoundBeforeContainer(media(), held.data, {user}), kNotFound},
        {blockAt(kMedia + recordLength(user) + 8 + 13 + 4 + 3), 1},
        {blockAt(kMedia + 8 + 4), kNotFound},  // at a name
    };
    for (const auto& [file, record] : kCases) {
        TevStream* stream = load(file);
        tev::VoxaStream voxa(_checkAudioInImageStream(stream));
        const tev::Index index(ParseTEV(stream, SIGNATURE_VOXA_TEV));
        ASSERT_TRUE(voxa && index && getTEVList(index.get()) == 1u) << dumpLog();  // getTEVList reads the directory
        EXPECT_EQ(FindOldVoxaIndex(index.get(), voxa.get()), record);
    }
    EXPECT_EQ(FindOldVoxaIndex(nullptr, nullptr), kNotFound);
}


TEST(SoundList, ReadBackBuiltAndEditedDamagedListsRefused) {
    Bytes longName = metaPayload({"abc", "de"}), hugeCount = metaPayload({"abc"});
    putU32le(longName, 16, 3);  // "de" claims 3 bytes at the very end
    putU32le(hugeCount, 8, 0xFFFFFFFFu);
    const RecordSpec first = soundRecord(kFirst, kSoundA), note = soundRecord("note", kSoundC);
    // getEchoFrameNameList's result and names, getVoxaCntInFile, the record "note" (empty: none).
    const struct { Bytes file; uint32_t result; std::vector<std::string> names; uint32_t count; Bytes note; }
        kReadBack[] = {
            {imageWithRecordSound(media(), {first, note, metaRecord({kFirst, "memo", "note"})}, 0), 1,
             {kFirst, "memo", "note"}, 3, kSoundC},
            {buildContainer(media(), {first, {2048, kMetaName, {}, longName}}), 0, {}, 2, {}},
            {buildContainer(media(), {first}), 0, {}, kNotFound, {}},
        };
    for (const auto& c : kReadBack) {
        TempFile file(c.file);
        const tev::Pack pack = tev::openForReading(file.c_str());
        ASSERT_NE(pack, nullptr);
        char** names = nullptr;
        uint32_t count = 7;
        EXPECT_EQ(getEchoFrameNameList(pack.get(), &names, &count), c.result);
        const tev::NameList listed(names, count);
        EXPECT_EQ(std::vector<std::string>(listed.begin(), listed.end()), c.names);
        EXPECT_EQ(getVoxaCntInFile(pack.get()), c.count);
        char noteName[] = "note";
        _voxa_audio_buffer* audio = getAudioStreamBuffer(pack.get(), noteName, 4);
        const _TEV_data_unit* data = audio != nullptr ? audio->data_unit : nullptr;
        EXPECT_EQ(data != nullptr ? Bytes(data->data, data->data + data->data_length) : Bytes{}, c.note);
        EXPECT_EQ(audio != nullptr ? audio->length : 0u, c.note.size());
        destroyAudioStreamBuffer(audio);
    }
    // List edits keep the two leading words, whatever they hold, and refuse payloads whose lengths run past them.
    std::vector<char> out(1000);
    EXPECT_EQ(makeSecondVoxaHeader(out.data(), kFirst.c_str(), 13, "memo", 4), 37u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 37), metaPayload({kFirst, "memo"}));
    const auto list = [](const std::vector<std::string>& names) {
        Bytes b = metaPayload(names);
        putU32le(b, 0, 7);
        return b;
    };
    const Bytes shortHeader = ByteBuilder().u32le(1).u32le(0).take();
    const struct { Bytes payload; bool add; std::string name; Bytes expected; } kEdits[] = {  // expected empty: refused
        {list({kFirst, "b"}), true, "memo", list({kFirst, "b", "memo"})},
        {list({kFirst, "b"}), false, kFirst, list({"b"})},
        {metaPayload({"x", "yy"}), false, "y", metaPayload({"x", "yy"})},  // not listed: as it was
        {longName, true, "n", {}},     {longName, false, "abc", {}},    {hugeCount, true, "n", {}},
        {hugeCount, false, "abc", {}}, {shortHeader, true, "n", {}}, {shortHeader, false, "abc", {}},
    };
    for (const auto& c : kEdits) {
        TempFile file(buildContainer(media(), {record("a", 5, 0x11), {2048, kMetaName, {}, c.payload}}));
        const uint32_t size = editParsed(file.path(), [&](_TEV_info* info) {
            return (c.add ? makeAddVoxaHeader : makeMinusVoxaHeader)(out.data(), info, 1, c.name.c_str(),
                                                                     uint32_t(c.name.size()));
        });
        EXPECT_EQ(Bytes(out.begin(), out.begin() + size), c.expected) << c.name;
    }
}

TEST_F(SoundBlock, WritersByteForByteAndTheRoomLeftForThem) {
    StreamOver out(Medium::Buffer, {}, 128);
    TevStream& s = *out.get();
    uint32_t table[] = {10, 20, 30, 40};
    const std::vector<int64_t> written{s.WriteSoundHeader(), s.WriteSoundCount(1), s.WriteSoundData(100, 250),
                                       s.WriteSoundTailer(1), s.WriteSoundHeader(), s.WriteSoundCount(2),
                                       s.WriteSoundDataBuffer(table, 2), s.WriteSoundTailer(2),
                                       int64_t(s.writeVoxaHeader(7, 9))};
    EXPECT_EQ(written, (std::vector<int64_t>{4, 4, 4, 6, 4, 4, 0, 6, 1}));
    EXPECT_EQ(out.contents(),
              concat(concat(voxaBlock(106, 100, 250), rawBlock(106, 2, {10, 20, 30, 40}, 28)), voxaBlock(107, 7, 9)));
    // The sound record, the list record, the directory and a block, over every stream.
    const Bytes meta = metaPayload({"memo"});
    const Bytes expected = imageWithRecordSound(media(), {soundRecord("memo", kSoundA), metaRecord({"memo"})}, 0);
    for (Medium medium : kStreamMedia) {
        StreamOver over(medium, media(), 512);
        EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(over.get(), 2048, 256, "memo", 4, kSoundA.data(), 37, meta.data(),
                                                  uint32_t(meta.size())),
                  1u);
        EXPECT_EQ(over.contents(), expected) << mediumName(medium);
    }
    // Missing parts are refused before anything is written.
    const char* tag = "TEVEncoder::NewAddVoxaDataInFirstTimeStream";
    const unsigned char part[5] = {};
    StreamOver file(Medium::FilePtr, media());
    EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(file.get(), 2048, 256, "a", 1, nullptr, 5, part, 5), 0u);
    EXPECT_TRUE(loggedError(tag, "voxa_data == LUMET_TEV_NULL || voxa_data_size <= 0 "));
    EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(file.get(), 2048, 256, "a", 1, part, 5, part, 0), 0u);
    EXPECT_TRUE(loggedError(tag, "voxa_info_data == LUMET_TEV_NULL || voxa_info_data_size <= 0 "));
    EXPECT_EQ(NewAddVoxaDataInFirstTimeStream(nullptr, 2048, 256, "a", 1, part, 5, part, 5), 0u);
    EXPECT_TRUE(loggedError(tag, "Stream == LUMET_TEV_NULL "));
    EXPECT_EQ(file.contents(), media());
    // Room to save: the last sound's end (else the file size) plus both lengths stays below 0xFFEFFFEB,
    // the sums not wrapping in 32 bits.
    uint32_t sounds[] = {10, 20, 30, 1000};
    _voxa_info_struct voxa{};
    voxa.is_valid = 1, voxa.file_size = 5000, voxa.sound_count = 2, voxa.sound_table = sounds;
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, 0xFFEFFFEBu - 1004, 1, 2), 1u);
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, 0xFFEFFFEBu - 1003, 1, 2), 0u);
    voxa.sound_count = 0;
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, 0xFFEFFFEBu - 5001, 0, 0), 1u);
    EXPECT_EQ(checkVoxaInfoForSaving(&voxa, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu), 0u);
    EXPECT_EQ(checkVoxaInfoForSaving(nullptr, 0, 0, 0), 0u);
    EXPECT_TRUE(loggedError("checkVoxaInfoForSaving", "tev info null"));
}



class DocumentedSteps : public LogCaptureTest {
protected:
    // Each edit's result, the file after it, every line it logs (non-error lines marked) and what it prints.
    void run(const std::vector<FileEdit>& cases) {
        for (const FileEdit& c : cases) {
            clearLog();
            TempFile file(c.before);
            testing::internal::CaptureStdout();
            const uint32_t result = c.edit(file.c_str());
            const std::string printed = testing::internal::GetCapturedStdout();
            EXPECT_EQ(result, c.result) << c.label;
            EXPECT_EQ(file.read(), c.after.value_or(c.before)) << c.label;
            std::vector<Line> lines;
            for (const LogLine& line : logLines())
                lines.emplace_back((line.priority == ANDROID_LOG_ERROR ? "" : "not error: ") + line.tag, line.text);
            if (!printed.empty()) lines.emplace_back("stdout", printed);
            EXPECT_EQ(lines, c.log) << c.label;
        }
    }
    // The image with `records` whose block (version 107 unless given) points at records[pointed].
    static Bytes image(const std::vector<RecordSpec>& records, size_t pointed, uint32_t version = 107) {
        return imageWithRecordSound(media(), records, pointed, version);
    }
    const RecordSpec first_ = soundRecord(kFirst, kSoundA), memo_ = soundRecord("memo", kSoundB);
    const RecordSpec list1_ = metaRecord({kFirst}), list2_ = metaRecord({kFirst, "memo"});
    const Bytes bare_ = imageWithBareSound(media(), kSoundA), onlySound_ = image({first_, list1_}, 0);
    const Bytes xFirst_ = image({kX, first_, list1_}, 1), xAndTwo_ = image({kX, first_, memo_, list2_}, 1);
    const Bytes justX_ = buildContainer(media(), {kX});
};

// `use` over the file opened for update, closed again before it is read.
int64_t withFile(const char* path, const std::function<int64_t(FILE*)>& use) {
    FILE* fp = std::fopen(path, "r+b");
    const int64_t result = fp != nullptr ? use(fp) : -1;
    if (fp != nullptr) std::fclose(fp);
    return result;
}

TEST_F(DocumentedSteps, SoundEdits) {
    const RecordSpec withSub{256, kFirst, Bytes{1, 2, 3}, kSoundC}, plainFirst = record(kFirst, 11, 0xC3);
    const RecordSpec memoC = soundRecord("memo", kSoundC);
    const auto saveRecord = [](const RecordSpec& r, uint32_t u) {  // a byte not of the name follows it
        return [=](const char* p) { return saveSpec([&](auto... a) { return saveTEVDataToFile(p, a...); }, r, u); };
    };
    const auto directSave = [](const RecordSpec& r, uint32_t update) {
        return [=](const char* path) {
            const Bytes b = encodeRecord(r);
            return withFile(path, [&](FILE* fp) -> int64_t {
                return saveDirectTEVData(fp, b.data(), uint32_t(b.size()), r.name.c_str(), r.sub ? 1 : 0, r.type,
                                         update);
            });
        };
    };
    const auto deleteListed = onParsed([](_TEV_info* info) {
        tev::VoxaStream voxa(_checkAudioInImageStream(info->Stream));
        return DeleteATEVDataStream(info, 1, voxa.get());
    });
    const char* saveTag = "TEVVoxaAPIs::saveVoxaToImageStream";
    const Bytes mp4 = fakeMp4(kMedia), thirty = fakeJpeg(30), padded = withMedia(pattern(30));
    const RecordSpec note = soundRecord("note", kSoundC), listMemo = metaRecord({"memo"});
    const Bytes empty107 = withMedia(rawBlock(107, 0, {0, 0}, 20)), empty106 = withMedia(rawBlock(106, 0, {0, 0}, 20));
    Bytes damagedList = metaPayload({kFirst});
    putU32le(damagedList, 8, 0x40000000);
    const Bytes damaged = image({first_, {2048, kMetaName, {}, damagedList}}, 0);
    const Bytes twoNames = image({first_, list2_, memo_}, 0, 106), torn = withMedia(textBytes("not a directoryTEVT"));
    const Bytes inFront = imageWithSoundBeforeContainer(media(), kSoundA, {kX});
    const Bytes bInFront = imageWithSoundBeforeContainer(media(), kSoundB, {kX});
    const Bytes emptyFirst = concat(padded, voxaBlock(106, kMedia + 30, kMedia + 30));
    Bytes intoContainer = inFront, pastEnd = inFront;  // the sound runs into x, or past the end
    putU32le(intoContainer, intoContainer.size() - 18, kMedia + 40);
    putU32le(intoContainer, intoContainer.size() - 14, kMedia + 50);
    putU32le(pastEnd, pastEnd.size() - 14, 0xFFFFFF00u);
    const TempFile copySource(onlySound_);
    // `size` stands in for the sound's own; the length of a null name is 4.
    const auto save = [](const char* name, Bytes sound, uint32_t size = 0) {
        return [=](const char* path) mutable -> int64_t {
            return saveVoxaToImageFile(path, sound.data(), size ? size : uint32_t(sound.size()), name,
                                       name ? uint32_t(std::string(name).size()) : 4);
        };
    };
    const auto saveMemo = save("memo", kSoundB), saveNote = save("note", kSoundC);
    const auto remove = [](const char* n) { return [=](const char* p) { return deleteVoxaFromImageFile(p, n); }; };
    const auto add = [](const char* path) -> int64_t { return AddSoundInVoxaFile(path, kSoundB.data(), 23); };
    const auto copyAudio = [](const Bytes& from) {
        return [=](const char* path) { return _copyAudioData(TempFile(from).c_str(), path); };
    };
    const auto convert = [](const char* path) {
        return withFile(path, [](FILE* fp) -> int64_t {
            TevStreamFile stream(fp);
            _voxa_info_struct* voxa = _checkAudioInImageStream(&stream);
            const uint32_t result = convertVoxaToEchoFrame(&voxa);
            DestroyVoxaStream(voxa);
            return result;
        });
    };
    const Line refusal{saveTag, "sound is not saved in MP4 or HEIC"};
    run({
        {"save on a bare sound, converted", bare_, saveRecord(kX, 0), 1, image({first_, list1_, kX}, 0, 106)},
        {"direct save on a bare sound", bare_, directSave(kX, 0), 1, image({first_, list1_, kX}, 0), {}},
        {"replace the only sound: list and block go, it comes first", onlySound_, saveRecord(withSub, 1), 1,
         buildContainer(media(), {withSub})},
        // The delete took the list with its last name: beside x there is no list to put it back into.
        {"replace the only sound beside x", xFirst_, saveRecord(soundRecord(kFirst, kSoundC), 1), 0, justX_, {}},
        {"replace the pointed sound: type 256, last", image({first_, memo_, list2_}, 0), saveRecord(plainFirst, 1), 1,
         image({memo_, soundRecord(kFirst, plainFirst.data), metaRecord({"memo", kFirst})}, 1)},
        {"existing name without update", xFirst_, saveRecord(kX, 0), 0, {},
         {{"TEVEncoderAPIs::saveTEVDataToStream", "SIGNATURE_VOXA_TEV NOT UPDATE!!"}}},
        {"direct replace of a listed sound: it leaves the list", xAndTwo_, directSave(memoC, 1), 1,
         image({kX, first_, list1_, memoC}, 1)},
        {"direct save of an existing name", xAndTwo_, directSave(kX, 0), 0, xAndTwo_},
        {"clear a bare sound", bare_, deleteAllDataFromFile, 1, media(), {kMetaNull}},
        {"delete a listed sound: the list is stored again, last", image({first_, memo_, kX, list2_}, 0), deleteListed,
         1, image({first_, kX, list1_}, 0, 106)},
        {"delete by index deletes nothing", xFirst_,
         onParsed([](_TEV_info* i) { return deleteEchoFrameDataFromFilebyIndex(i, 0, 0); }), 0, {}},
        {"an empty sound", bare_, save("memo", {}), 0, bare_, {{saveTag, "audioStream null"}}},
        {"no name", bare_, save(nullptr, kSoundB), 0, {}, {{saveTag, "voxa name is null or voxa_name_len is 0"}}},
        {"no stream", bare_, [](const char*) -> int64_t { return saveVoxaToImageStream(nullptr, nullptr, 1, "a", 1); },
         0, bare_, {{saveTag, "Stream is null"}}},
        {"too big", bare_, save("memo", {0}, 0xFFF00001u), 0, {},
         {{"TEVVoxaAPIs::saveVoxaToImageFile", "Too big file to add"}}},
        // Past the size check, the room check refuses a sum (end + name + size) of exactly 0xFFEFFFEB unread.
        {"no room", bare_, save("memo", {0}, 0xFFEFFFEBu - kMedia - 37 - 4), 0, bare_,
         {{"checkVoxaInfoForSaving", "There is no space for saving TEV data in the source file, a voax data"}}},
        {"plain image", media(), saveMemo, 1, image({memo_, listMemo}, 0)},
        {"container without sound", justX_, saveMemo, 1, image({kX, memo_, listMemo}, 1)},
        {"bare sound: it becomes EchoFrame_000, the new one follows", bare_, saveMemo, 1, twoNames, {kMetaNull}},
        {"sound before a container: it becomes a listed record", inFront, saveMemo, 1,
         image({kX, first_, list2_, memo_}, 1, 106), {kMetaNotNull}},
        {"sound records: the list is stored again, the name last", onlySound_, saveMemo, 1, twoNames},
        {"container with a list and no block: a second list", buildContainer(media(), {kX, memo_, listMemo}), saveNote,
         1, image({kX, memo_, listMemo, note, metaRecord({"note"})}, 3)},
        {"block without sound stays", empty107, saveMemo, 1, imageWithRecordSound(empty107, {memo_, list1_}, 0)},
        {"old block without sound", empty106, saveMemo, 0, empty106},
        // Under the first sound's own name the list names it twice; replacing it leaves nothing to add it behind.
        {"bare sound saved as EchoFrame_000", bare_, save(kFirst.c_str(), kSoundB), 0, media(), {kMetaNull}},
        {"damaged list", damaged, saveMemo, 0, {},
         {{"TEVEncoderAPIs::saveTEVDataToStream", "data == LUMET_TEV_NULL || data_len <= 0"},
          {saveTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!"}, {"stdout", "error!!!!!!!!\n"}}},
        {"delete an unlisted record, one name: it and the list go", xFirst_, remove("x"), 1, image({first_}, 0)},
        {"delete one of two names", xAndTwo_, remove("memo"), 1, image({kX, first_, list1_}, 1, 106)},
        {"delete the last name: list and block go, x stays", xFirst_, remove(kFirst.c_str()), 1, justX_},
        {"delete the only sound", onlySound_, remove(kFirst.c_str()), 1, media()},
        {"delete an absent name", xAndTwo_, remove("none"), 1, xAndTwo_},
        {"delete without a list", inFront, remove("memo"), 0, inFront},
        {"delete from a plain image", media(), remove("memo"), 0, media()},
        {"delete a bare sound by name", bare_, remove(kFirst.c_str()), 1, media(), {kMetaNull}},
        {"delete all listed sounds", image({kX, first_, list2_, memo_}, 1), deleteAllVoxaFromImageFile, 1, justX_},
        {"delete all, sound before container", inFront, deleteAllVoxaFromImageFile, 1, justX_},
        {"delete all leaves a bare sound", bare_, deleteAllVoxaFromImageFile, 0, bare_},
        {"add to a plain image", media(), add, kMedia + 23 + 30, imageWithBareSound(media(), kSoundB)},
        {"add over a bare sound", bare_, add, kMedia + 23 + 30, imageWithBareSound(media(), kSoundB), {kMetaNull}},
        {"add in front of a container", justX_, add, uint32_t(bInFront.size()), bInFront, {kMetaNotNull}},
        {"add over a sound record: record and list go", image({first_, kX, list1_}, 0), add,
         uint32_t(bInFront.size()), bInFront, {kMetaNotNull}},
        {"add behind a file ending in TEVT without container", torn, add, uint32_t(torn.size() + 23 + 30),
         imageWithBareSound(torn, kSoundB), {{"TEV::ParseTEV", "file has no sound OFFS"}, kMetaNotNull}},
        {"add to a missing file", media(), [](const char*) -> int64_t { return AddSoundInVoxaFile("/no", "a", 1); }, 0,
         {}, {{"VoxaAPIs::AddSoundInVoxaFile", "File Search error"}}},
        {"add over a damaged table", intoContainer, add, 0, intoContainer, {kMetaNotNull}},
        {"cut a bare sound", bare_, deleteAVoxa, 1, media(), {kMetaNull}},
        {"cut a sound in front: the container moves whole", inFront, deleteAVoxa, 1, justX_, {kMetaNotNull}},
        {"cut the only listed sound", image({first_, kX, list1_}, 0), deleteAVoxa, 1, justX_, {kMetaNotNull}},
        {"cut an empty sound", emptyFirst, deleteAVoxa, 1, padded, {kMetaNull}},
        {"cut a block without sounds", empty106, deleteAVoxa, 0, empty106, {{"stdout", "sound_count 0\n"}}},
        {"cut a sound running into the container", intoContainer, deleteAVoxa, 1, intoContainer, {kMetaNotNull}},
        {"cut a sound ending past the file", pastEnd, deleteAVoxa, 0, {}, {{"Voxa::ParseVoxaSound", kTableTooLong}}},
        {"convert into the first record", bare_, convert, 1, onlySound_},
        {"copy listed sounds into a JPEG", thirty, [&](const char* p) { return copyVoxaData(copySource.c_str(), p); },
         1, imageWithRecordSound(thirty, {first_, list1_}, 0)},
        {"copy from a missing file", thirty, [](const char* path) { return copyVoxaData("/no", path); }, 1, {}},
        // Nothing is logged: no descriptor is used after its file was closed.
        {"copy the first sound over another", imageWithBareSound(thirty, kSoundC), copyAudio(bare_), 1,
         imageWithBareSound(thirty, kSoundA), {kMetaNull}},
        {"copy from an image without sound", bare_, copyAudio(media()), 1, bare_},
        {"copy into a missing file", bare_, [](const char* path) -> int64_t { return _copyAudioData(path, "/no"); }, 0,
         {}, {{"Voxa::_copyAudioData", "Dst File Open Error"}}},
        // MP4 files keep what they hold: sound does not go behind their box.
        {"save into plain box media", mp4, saveMemo, 0, {}, {refusal}},
        {"save into a boxed container", buildContainer(mp4, {kX}, boxed()), saveMemo, 0, {}, {refusal}},
        {"save beside a bare sound", imageWithBareSound(mp4, kSoundA), saveMemo, 0, {},
         {{saveTag, "SIGNATURE_VOXA is not use MP4 Format"}}},
        {"save beside listed sounds", imageWithRecordSound(mp4, {first_, list1_}, 0), saveMemo, 0, {},
         {{saveTag, "SIGNATURE_VOXA_TEV is not use MP4 Format"}}},
        {"add in front of a container", buildContainer(mp4, {kX}), add, 0, {},
         {{"VoxaAPIs", "addVoxaSound voxa not use MP4, heic tag\n"}, kMetaNotNull}},
        {"cut in front of a container", imageWithSoundBeforeContainer(mp4, kSoundA, {kX}), deleteAVoxa, 1, {},
         {{"VoxaAPIs", "deleteVoxa_ExistTEV voxa not use MP4, heic tag\n"}, kMetaNotNull}},
    });
}

}  // namespace
