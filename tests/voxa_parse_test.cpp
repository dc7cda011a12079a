// Voxa blocks: the check over every medium, the damaged forms the parser
// must refuse, the readers that hand out a sound, and finding the container
// record that holds the sound.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/container.h"
#include "tev/voxa.h"

namespace {

using namespace tevtest;

constexpr uint32_t kMediaSize = 64;
constexpr uint32_t kNotFound = 0xFFFFFFFFu;
const std::string kTableTooLong = "data + header is bigger then file -> that's not true!!";

Bytes mediaThen(const Bytes& tail) { return ByteBuilder().bytes(fakeJpeg(kMediaSize)).bytes(tail).take(); }

// Media, the sound, then a one-sound block pointing at it.
Bytes imageWithSound(const Bytes& sound, uint32_t version = 106) {
    const Bytes tail = voxaBlock(version, kMediaSize, kMediaSize + uint32_t(sound.size()));
    return mediaThen(ByteBuilder().bytes(sound).bytes(tail).take());
}

// A block with any count, table and header length field.
Bytes rawBlock(uint32_t count, const std::vector<uint32_t>& table, uint32_t headerLength, size_t padding = 0) {
    ByteBuilder b;
    b.text("VOXA").u32le(106).u32le(count);
    for (uint32_t v : table) b.u32le(v);
    return b.zeros(padding).u32le(headerLength).text("VOXABS").take();
}

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
    _voxa_info_struct* info = check(imageWithSound(sound));
    ASSERT_NE(info, nullptr) << dumpLog();
    VoxaSoundOffset* offset = _getAudioInImageFile(info);
    ASSERT_NE(offset, nullptr);
    EXPECT_EQ(offset->offset, kMediaSize);
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
    EXPECT_EQ(check(mediaThen(voxaBlock(106, 10, kMediaSize + 1))), nullptr);
    fp_ = nullptr;
    handle_ = nullptr;
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", kTableTooLong)) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(AllMedia, VoxaOnMedium,
                         testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Handle), mediumName);

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
    _voxa_info_struct* parse(const Bytes& content) {
        info_ = ParseVoxaStream(load(content));
        return info_;
    }
    uint32_t parseWithTable(const Bytes& content) { return parse(content) ? ParseVoxaSound(info_) : 0u; }
    void release() {
        DestroyVoxaStream(info_);
        info_ = nullptr;
    }
    void TearDown() override { release(); }

    std::unique_ptr<FixedBuffer> over_;
    _voxa_info_struct* info_ = nullptr;
};

TEST_F(VoxaParseTest, NoBlockIsSilent) {
    EXPECT_EQ(parse(fakeJpeg(200)), nullptr);
    Bytes noMagic = imageWithSound(pattern(8));
    noMagic[noMagic.size() - 30] = 'X';
    EXPECT_EQ(parse(noMagic), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(VoxaParseTest, DamagedBlockIsRefusedWithItsLog) {
    const std::string kNoOffs = "file has no suond OFFS";
    const struct {
        Bytes file;
        const char* tag;
        std::string text;
    } kCases[] = {
        {Bytes(10, 'x'), "Voxa::ParseVoxa", "File Search Error"},
        {voxaBlock(106, 0, 0), "Voxa::ParseVoxa", "File Search Error"},  // block at the first byte
        {mediaThen(rawBlock(0, {}, 12)), "Voxa::ParseVoxa", kNoOffs},             // no room for a sound
        {rawBlock(1, {0, 1}, 500), "Voxa::ParseVoxa", kNoOffs},
        {imageWithSound(pattern(8), 207), "Voxa::ParseVoxa",
         "the source file has TEV data but current TEV version is too old to parse the source file"},
        {mediaThen(rawBlock(0x8000000u, {0, 0}, 20)), "Voxa::ParseVoxa", "There is too much sound data."},
        {mediaThen(rawBlock(0x7FFFFFFu, {0, 0}, 20)), "Voxa::ParseVoxaSound",
         "header is bigger then file -> that's not true!!"},
        {mediaThen(rawBlock(5, {0, 0}, 20)), "Voxa::ParseVoxa", "sound data read fail."},
        // Every sound must end one block (30 bytes) before the end of the file.
        {mediaThen(voxaBlock(106, 0, kMediaSize + 1)), "Voxa::ParseVoxaSound", kTableTooLong},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        clearLog();
        EXPECT_EQ(parseWithTable(c.file), 0u);
        EXPECT_TRUE(loggedError(c.tag, c.text)) << dumpLog();
    }
}

TEST_F(VoxaParseTest, BoundaryValuesAreAccepted) {
    EXPECT_EQ(parseWithTable(imageWithSound(pattern(8), 206)), 1u) << dumpLog();
    EXPECT_EQ(parseWithTable(mediaThen(voxaBlock(106, 0, kMediaSize))), 1u) << dumpLog();
    // Header length thirteen with a count of 0 in the block: an empty table.
    ASSERT_EQ(parseWithTable(mediaThen(rawBlock(0, {}, 13, 1))), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 0u);
    EXPECT_EQ(info_->header_size, 22u);
    EXPECT_EQ(_getAudioInImageFile(info_), nullptr);
}

TEST_F(VoxaParseTest, TableWithTwoSoundsHandsOutTheFirst) {
    const uint32_t s = kMediaSize;
    const Bytes block = rawBlock(2, {s, s + 10, s + 10, s + 30}, 28);
    ASSERT_EQ(parseWithTable(mediaThen(ByteBuilder().bytes(pattern(30)).bytes(block).take())), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 2u);
    VoxaSoundOffset* first = _getAudioInImageFile(info_);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->length, 10u);
    _destroyVOXAOFFSET(first);
}

TEST_F(VoxaParseTest, EmptyOrReversedFirstSoundIsNotHandedOut) {
    for (const auto& [start, end] : {std::pair<uint32_t, uint32_t>{20, 20}, {30, 20}}) {
        ASSERT_EQ(parseWithTable(mediaThen(voxaBlock(106, start, end))), 1u) << dumpLog();
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

TEST_F(VoxaParseTest, ReadersRefuseDescriptorZeroAndAFailedSeek) {
    EXPECT_EQ(ParseVoxaFd(0), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    Bytes out(4);
    EXPECT_EQ(ReadSoundData(load(Bytes(16)), 0xFFFFFFFFu, 4, out.data()), 0u);
    EXPECT_TRUE(loggedError("Voxa::ReadSoundData", "File Search error")) << dumpLog();
}

TEST_F(VoxaParseTest, StreamCheckLeavesTheCallersStreamOnFailure) {
    const Bytes content = mediaThen(voxaBlock(106, 0, kMediaSize + 1));
    TevStream* stream = load(content);
    EXPECT_EQ(_checkAudioInImageStream(stream), nullptr);
    EXPECT_TRUE(stream->CheckError());
    EXPECT_EQ(over_->contents(), content);
}

TEST_F(VoxaParseTest, GetAudioReturnsTheFirstSoundOrReportsNone) {
    const Bytes sound = pattern(77);
    TempFile withSound(imageWithSound(sound));
    uint32_t size = 0;
    unsigned char* data = GetAudioInVoxa(withSound.c_str(), &size);
    ASSERT_NE(data, nullptr) << dumpLog();
    EXPECT_EQ(Bytes(data, data + size), sound);
    free(data);
    TempFile plain(fakeJpeg(300));
    size = 1234;
    EXPECT_EQ(GetAudioInVoxa(plain.c_str(), &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(loggedError("LUMET", "ParseVoxaFile :: voxa_info NULL")) << dumpLog();
}

TEST_F(VoxaParseTest, SoundFileCreateEmptiesTheFileAndWritesThroughTheRecordsStream) {
    const Bytes sound = pattern(10);
    TempFile target(Bytes{1, 2, 3});
    _voxa_info_struct* info = _checkAudioInImageStream(load(imageWithSound(sound)));
    ASSERT_NE(info, nullptr) << dumpLog();
    EXPECT_EQ(_getSoundFileCreate(info, target.c_str()), sound.size());
    EXPECT_TRUE(target.read().empty());
    const Bytes after = over_->contents();  // the sound lands again right after itself
    EXPECT_EQ(Bytes(after.begin() + kMediaSize + 10, after.begin() + kMediaSize + 20), sound);
    DestroyVoxaStream(info);
}

// --- the container record that holds the block's first sound ---------------

class VoxaInContainer : public VoxaParseTest {
protected:
    // Media (and anything in front of the container), the records, their
    // directory and a one-sound block covering [start, start + length); the
    // index of the record that holds the sound.
    uint32_t recordOfSound(const Bytes& front, const std::vector<RecordSpec>& records, uint32_t start,
                           uint32_t length) {
        TevStream* stream = load(buildContainer(front, records, {107, false, true, start, start + length}));
        std::unique_ptr<_TEV_info, decltype(&DestroyTEV)> index(ParseTEV(stream, SIGNATURE_VOXA_TEV), DestroyTEV);
        EXPECT_TRUE(index && getTEVList(index.get()) == 1u) << dumpLog();
        info_ = _checkAudioInImageStream(stream);
        EXPECT_NE(info_, nullptr) << dumpLog();
        return index && info_ ? FindOldVoxaIndex(index.get(), info_) : 0u;
    }

    const RecordSpec user_{1, "user", Bytes{9, 9, 9, 9}, pattern(12)};
};

RecordSpec echoFrame(const Bytes& sound, std::optional<Bytes> sub = std::nullopt) {
    return RecordSpec{uint16_t(TEV_ECHOFRAME_SOUND_DATA), "EchoFrame_000", sub, sound};
}

TEST_F(VoxaInContainer, FindsTheRecordWhoseDataIsTheSound) {
    const Bytes sound = pattern(20);
    const uint32_t soundData = kMediaSize + recordLength(user_) + 8 + 13;
    EXPECT_EQ(recordOfSound(fakeJpeg(kMediaSize), {user_, echoFrame(sound)}, soundData, 20), 1u);
    Bytes out(sound.size());
    EXPECT_EQ(ReadDataVoxa(info_, info_->sound_table[0], uint32_t(out.size()), out.data()), 1u);
    EXPECT_EQ(out, sound);
    // Tag header, name, sub-information length and bytes come first.
    const uint32_t afterSub = kMediaSize + 8 + 13 + 4 + 3;
    EXPECT_EQ(recordOfSound(fakeJpeg(kMediaSize), {echoFrame(sound, Bytes{1, 2, 3}), user_}, afterSub, 20), 0u);
}

TEST_F(VoxaInContainer, SoundOutsideEveryRecordsDataMatchesNoRecord) {
    EXPECT_EQ(recordOfSound(mediaThen(pattern(16)), {user_}, kMediaSize, 16), kNotFound);  // in front
    EXPECT_EQ(recordOfSound(fakeJpeg(kMediaSize), {user_}, kMediaSize + 8 + 4, 4), kNotFound);  // at a name
    EXPECT_EQ(FindOldVoxaIndex(nullptr, info_), kNotFound);
}

}  // namespace
