// Voxa blocks: the block and its table over every medium, the damaged forms
// the parser must refuse, the readers that hand out a sound, and finding the
// container record that holds the sound.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/container.h"
#include "tev/stream.h"
#include "tev/voxa.h"

namespace {

using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::TempFile;

constexpr uint32_t kMediaSize = 64;
constexpr uint32_t kNotFound = 0xFFFFFFFFu;
const std::string kTableTooLong = "data + header is bigger then file -> that's not true!!";

Bytes soundBytes(size_t size) {
    Bytes b(size);
    for (size_t i = 0; i < size; ++i) b[i] = static_cast<uint8_t>(i * 7 + 3);
    return b;
}

Bytes mediaThen(const Bytes& tail) { return ByteBuilder().bytes(tevtest::fakeJpeg(kMediaSize)).bytes(tail).take(); }

// Media, the sound, then a one-sound block pointing at it.
Bytes imageWithSound(const Bytes& sound, uint32_t version = 106) {
    const Bytes tail = tevtest::voxaBlock(version, kMediaSize, kMediaSize + uint32_t(sound.size()));
    return mediaThen(ByteBuilder().bytes(sound).bytes(tail).take());
}

// A block with any count, table and header length field.
Bytes rawBlock(uint32_t count, const std::vector<uint32_t>& table, uint32_t headerLength, size_t padding = 0) {
    ByteBuilder b;
    b.text("VOXA").u32le(106).u32le(count);
    for (uint32_t v : table) b.u32le(v);
    return b.zeros(padding).u32le(headerLength).text("VOXABS").take();
}

TevBufferHandle* bufferHolding(const Bytes& content) {
    TevBufferHandle* handle = _kbopen(int64_t(content.size()));
    _kbwrite(content.data(), int64_t(content.size()), handle);
    return handle;
}

Bytes bufferContent(TevBufferHandle* handle) {
    const auto* data = static_cast<const uint8_t*>(kbgetBuffer(handle));
    return Bytes(data, data + kbgetWriteSize(handle));
}

// --- behaviour shared by the path, FILE*, descriptor and buffer forms -------

enum class Medium { Path, File, Descriptor, Buffer };

std::string mediumName(Medium medium) {
    switch (medium) {
        case Medium::Path: return "Path";
        case Medium::File: return "File";
        case Medium::Descriptor: return "Descriptor";
        case Medium::Buffer: return "Buffer";
    }
    return "Unknown";
}

void PrintTo(Medium medium, std::ostream* os) { *os << mediumName(medium); }

// The file and the handle a medium needs; checks and releases records the
// way that medium's callers do.
class Source {
public:
    Source(Medium medium, const Bytes& content) : medium_(medium), file_(content) {
        if (medium == Medium::File) fp_ = fopen(file_.c_str(), "rb");
        if (medium == Medium::Descriptor) fd_ = open(file_.c_str(), O_RDONLY);
        if (medium == Medium::Buffer) handle_ = bufferHolding(content);
    }
    ~Source() {
        if (fp_ != nullptr) fclose(fp_);
        if (fd_ >= 0) close(fd_);
        if (handle_ != nullptr) _kbclose(handle_);
    }

    _voxa_info_struct* check() {
        switch (medium_) {
            case Medium::Path: return _checkAudioInImageFile(file_.c_str());
            case Medium::File: return _checkAudioInImageFP(fp_);
            case Medium::Descriptor: return _checkAudioInImageFd(fd_);
            case Medium::Buffer: return _checkAudioInImageBuffer(handle_);
        }
        return nullptr;
    }

    // A table that fails its check closes a FILE* and destroys a buffer
    // handle that were handed in; they must not be released again.
    void handedOverByFailedCheck() {
        fp_ = nullptr;
        handle_ = nullptr;
    }

    uint32_t destroy(_voxa_info_struct* info) {
        if (medium_ == Medium::Path) return DestroyVoxa(info);
        if (medium_ == Medium::Buffer) return DestroyVoxaBuffer(info);
        return DestroyVoxaFP(info);
    }

private:
    Medium medium_;
    TempFile file_;
    FILE* fp_ = nullptr;
    int fd_ = -1;
    TevBufferHandle* handle_ = nullptr;
};

class VoxaMedia : public tevtest::LogCaptureTest, public testing::WithParamInterface<Medium> {};

TEST_P(VoxaMedia, CheckReadsTheTableAndTheSoundBack) {
    const Bytes sound = soundBytes(100);
    const Bytes content = imageWithSound(sound);
    Source source(GetParam(), content);

    _voxa_info_struct* info = source.check();
    ASSERT_NE(info, nullptr) << dumpLog();
    EXPECT_EQ(info->file_size, content.size());
    EXPECT_EQ(info->header_length, 20u);
    EXPECT_EQ(info->version, 106u);
    EXPECT_EQ(_getAudioCountInImageFile(info), 1u);
    EXPECT_EQ(info->header_size, 30u);
    EXPECT_EQ(info->position_mark, 0u);

    VoxaSoundOffset* offset = _getAudioInImageFile(info);
    ASSERT_NE(offset, nullptr);
    EXPECT_EQ(offset->offset, kMediaSize);
    EXPECT_EQ(offset->length, sound.size());
    _destroyVOXAOFFSET(offset);

    unsigned char* copy = _getAudioStreamBuffer(info);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(Bytes(copy, copy + sound.size()), sound);
    _kfree(copy);

    Bytes middle(10);
    EXPECT_EQ(ReadDataVoxa(info, kMediaSize + 20, 10, middle.data()), 1u);
    EXPECT_EQ(middle, Bytes(sound.begin() + 20, sound.begin() + 30));
    // The buffer and FILE* forms leave the caller's handle usable: the
    // Source releases it afterwards.
    EXPECT_EQ(source.destroy(info), 1u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(VoxaMedia, PlainImageIsSilentAndTinyFileIsASearchError) {
    Source plain(GetParam(), tevtest::fakeJpeg(200));
    EXPECT_EQ(plain.check(), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();

    Source tiny(GetParam(), Bytes(10, 'x'));
    EXPECT_EQ(tiny.check(), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Search Error")) << dumpLog();
}

TEST_P(VoxaMedia, TableFailureReleasesTheRecord) {
    // The sound ends inside the file, but not before the 30-byte block.
    Source source(GetParam(), mediaThen(tevtest::voxaBlock(106, 10, kMediaSize + 1)));
    EXPECT_EQ(source.check(), nullptr);
    source.handedOverByFailedCheck();
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", kTableTooLong)) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(AllMedia, VoxaMedia,
                         testing::Values(Medium::Path, Medium::File, Medium::Descriptor, Medium::Buffer),
                         [](const testing::TestParamInfo<Medium>& param) { return mediumName(param.param); });

// --- bytes held in a memory buffer behind a caller-owned stream ------------

class BufferStreamTest : public tevtest::LogCaptureTest {
protected:
    // Replaces what an earlier load made.
    TevStream* load(const Bytes& content) {
        release();
        handle_ = bufferHolding(content);
        stream_ = std::make_unique<TevStreamBuffer>(handle_);
        return stream_.get();
    }
    void TearDown() override { release(); }
    void release() {
        stream_.reset();
        if (handle_ != nullptr) _kbclose(handle_);
        handle_ = nullptr;
    }

    TevBufferHandle* handle_ = nullptr;
    std::unique_ptr<TevStreamBuffer> stream_;
};

class VoxaBlockParse : public BufferStreamTest {
protected:
    _voxa_info_struct* parse(const Bytes& content) {
        info_ = ParseVoxaStream(load(content));
        return info_;
    }
    void TearDown() override {
        DestroyVoxaStream(info_);
        BufferStreamTest::TearDown();
    }

    _voxa_info_struct* info_ = nullptr;
};

TEST_F(VoxaBlockParse, HeaderLengthMustLeaveRoomForASoundAndFitTheFile) {
    EXPECT_EQ(parse(mediaThen(rawBlock(0, {}, 12))), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "file has no suond OFFS")) << dumpLog();
    tevtest::clearLog();
    EXPECT_EQ(parse(rawBlock(1, {0, 1}, 500)), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "file has no suond OFFS")) << dumpLog();
}

TEST_F(VoxaBlockParse, BlockStartingAtTheFirstByteIsASearchError) {
    EXPECT_EQ(parse(tevtest::voxaBlock(106, 0, 0)), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Search Error")) << dumpLog();
}

TEST_F(VoxaBlockParse, HeaderLengthThirteenWithCountZeroGivesAnEmptyTable) {
    ASSERT_NE(parse(mediaThen(rawBlock(0, {}, 13, 1))), nullptr) << dumpLog();
    ASSERT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 0u);
    EXPECT_EQ(info_->header_size, 22u);
    EXPECT_EQ(_getAudioInImageFile(info_), nullptr);
    EXPECT_EQ(_getAudioStreamBuffer(info_), nullptr);
}

TEST_F(VoxaBlockParse, Version206IsReadableAnd207IsNot) {
    ASSERT_NE(parse(imageWithSound(soundBytes(8), 206)), nullptr) << dumpLog();
    EXPECT_EQ(info_->version, 206u);
    DestroyVoxaStream(info_);
    EXPECT_EQ(parse(imageWithSound(soundBytes(8), 207)), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa",
                            "the source file has TEV data but current TEV version is too old to parse "
                            "the source file"))
        << dumpLog();
}

TEST_F(VoxaBlockParse, MissingMagicIsSilentlyNoBlock) {
    Bytes content = imageWithSound(soundBytes(8));
    content[content.size() - 30] = 'X';
    EXPECT_EQ(parse(content), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(VoxaBlockParse, TableWithTwoSoundsHandsOutTheFirst) {
    const uint32_t s = kMediaSize;
    const Bytes sounds = ByteBuilder().bytes(soundBytes(30)).bytes(rawBlock(2, {s, s + 10, s + 10, s + 30}, 28)).take();
    ASSERT_NE(parse(mediaThen(sounds)), nullptr) << dumpLog();
    ASSERT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 2u);
    EXPECT_EQ(info_->sound_table[3], s + 30);
    VoxaSoundOffset* first = _getAudioInImageFile(info_);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->length, 10u);
    _destroyVOXAOFFSET(first);
}

TEST_F(VoxaBlockParse, OversizedCountIsRefusedBeforeAllocating) {
    ASSERT_NE(parse(mediaThen(rawBlock(0x8000000u, {0, 0}, 20))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "There is too much sound data.")) << dumpLog();
    DestroyVoxaStream(info_);

    ASSERT_NE(parse(mediaThen(rawBlock(0x7FFFFFFu, {0, 0}, 20))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_EQ(info_->sound_table, nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "header is bigger then file -> that's not true!!"))
        << dumpLog();
}

TEST_F(VoxaBlockParse, TableRunningPastTheEndIsAReadFailure) {
    ASSERT_NE(parse(mediaThen(rawBlock(5, {0, 0}, 20))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_EQ(info_->sound_table, nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "sound data read fail.")) << dumpLog();
}

TEST_F(VoxaBlockParse, EverySoundMustEndOneBlockBeforeTheEnd) {
    const uint32_t fileSize = kMediaSize + 30;
    ASSERT_NE(parse(mediaThen(tevtest::voxaBlock(106, 0, fileSize - 30))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
    DestroyVoxaStream(info_);

    ASSERT_NE(parse(mediaThen(tevtest::voxaBlock(106, 0, fileSize - 29))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_EQ(info_->sound_count, 0u);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", kTableTooLong)) << dumpLog();
}

TEST_F(VoxaBlockParse, EmptyOrReversedFirstSoundIsNotHandedOut) {
    for (const auto& [start, end] : {std::pair<uint32_t, uint32_t>{20, 20}, {30, 20}}) {
        ASSERT_NE(parse(mediaThen(tevtest::voxaBlock(106, start, end))), nullptr);
        ASSERT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
        EXPECT_EQ(_getAudioInImageFile(info_), nullptr);
        EXPECT_EQ(_getAudioStreamBuffer(info_), nullptr);
        DestroyVoxaStream(info_);
        info_ = nullptr;
    }
}

TEST_F(VoxaBlockParse, TableReaderRefusesUnusableRecords) {
    EXPECT_EQ(ParseVoxaSound(nullptr), 0u);
    _voxa_info_struct record{};
    EXPECT_EQ(ParseVoxaSound(&record), 0u);
    record.is_valid = 1;
    EXPECT_EQ(ParseVoxaSound(&record), 0u);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "Wrong voxa_info")) << dumpLog();
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "Voxa validation failed")) << dumpLog();
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "Stream doesn't exist")) << dumpLog();
}

// --- entry points with rules of their own -----------------------------------

class VoxaReaders : public BufferStreamTest {};

TEST_F(VoxaReaders, RefuseMissingInputsWithoutReading) {
    EXPECT_EQ(ParseVoxaFd(0), nullptr);
    EXPECT_EQ(_checkAudioInImageFd(-1), nullptr);
    EXPECT_EQ(_checkAudioInImageFP(nullptr), nullptr);
    EXPECT_EQ(_checkAudioInImageBuffer(nullptr), nullptr);
    EXPECT_EQ(_checkAudioInImageStream(nullptr), nullptr);
    EXPECT_EQ(ReadDataVoxa(nullptr, 0, 0, nullptr), 0u);
    EXPECT_EQ(_getSoundFileCreate(nullptr, "unused"), 0u);
    EXPECT_EQ(getVoxaHeaderCount(nullptr), 0u);
    EXPECT_EQ(DestroyVoxaStream(nullptr), 0u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();

    EXPECT_EQ(ParseVoxa("/nonexistent/dir/image.jpg"), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Open Error")) << dumpLog();
}

TEST_F(VoxaReaders, StreamCheckLeavesTheCallersStreamOnFailure) {
    const Bytes content = mediaThen(tevtest::voxaBlock(106, 0, kMediaSize + 1));
    TevStream* stream = load(content);
    EXPECT_EQ(_checkAudioInImageStream(stream), nullptr);
    EXPECT_TRUE(stream->CheckError());
    EXPECT_EQ(bufferContent(handle_), content);
}

TEST_F(VoxaReaders, GetAudioReturnsTheFirstSoundOrReportsNone) {
    const Bytes sound = soundBytes(77);
    TempFile withSound(imageWithSound(sound));
    uint32_t size = 0;
    unsigned char* data = GetAudioInVoxa(withSound.c_str(), &size);
    ASSERT_NE(data, nullptr) << dumpLog();
    EXPECT_EQ(Bytes(data, data + size), sound);
    free(data);

    // A plain file, and one whose first sound ends before it starts.
    for (const Bytes& content : {tevtest::fakeJpeg(300), mediaThen(tevtest::voxaBlock(106, 30, 20))}) {
        TempFile file(content);
        size = 1234;
        EXPECT_EQ(GetAudioInVoxa(file.c_str(), &size), nullptr);
        EXPECT_EQ(size, 0u);
    }
    EXPECT_TRUE(loggedError("LUMET", "ParseVoxaFile :: voxa_info NULL")) << dumpLog();
}

TEST_F(VoxaReaders, ReadSoundDataReportsAFailedSeek) {
    Bytes out(4);
    EXPECT_EQ(ReadSoundData(load(Bytes(16)), 0xFFFFFFFFu, 4, out.data()), 0u);
    EXPECT_TRUE(loggedError("Voxa::ReadSoundData", "File Search error")) << dumpLog();
}

TEST_F(VoxaReaders, SoundFileCreateEmptiesTheFileAndWritesThroughTheRecordsStream) {
    const Bytes sound = soundBytes(10);
    const Bytes content = imageWithSound(sound);
    TempFile target(Bytes{1, 2, 3});

    // Read-only image: the write back through its stream fails.
    TempFile image(content);
    _voxa_info_struct* fromFile = _checkAudioInImageFile(image.c_str());
    ASSERT_NE(fromFile, nullptr) << dumpLog();
    EXPECT_EQ(_getSoundFileCreate(fromFile, target.c_str()), 0u);
    EXPECT_TRUE(target.read().empty());
    EXPECT_EQ(image.read(), content);
    DestroyVoxa(fromFile);

    // Writable buffer: the sound lands again right after itself.
    target.write(Bytes{1, 2, 3});
    _voxa_info_struct* fromBuffer = _checkAudioInImageStream(load(content));
    ASSERT_NE(fromBuffer, nullptr) << dumpLog();
    EXPECT_EQ(_getSoundFileCreate(fromBuffer, target.c_str()), sound.size());
    EXPECT_TRUE(target.read().empty());
    const Bytes after = bufferContent(handle_);
    EXPECT_EQ(Bytes(after.begin() + kMediaSize + 10, after.begin() + kMediaSize + 20), sound);
    DestroyVoxaStream(fromBuffer);
}

TEST_F(VoxaReaders, HeaderCountIsTheThirdLittleEndianWord) {
    Bytes payload = ByteBuilder().u32le(7).u32le(9).u32le(0x01020304).text("EchoFrame_000").take();
    EXPECT_EQ(getVoxaHeaderCount(reinterpret_cast<char*>(payload.data())), 0x01020304u);
}

// --- the container record that holds the block's first sound ---------------

class VoxaInContainer : public BufferStreamTest {
protected:
    // Media (and anything in front of the container), the records, their
    // directory and a one-sound block covering [start, start + length).
    void parse(const Bytes& front, const std::vector<tevtest::RecordSpec>& records, uint32_t start,
               uint32_t length) {
        tevtest::ContainerOptions options;
        options.voxaTrailer = true;
        options.voxaStart = start;
        options.voxaEnd = start + length;
        TevStream* stream = load(tevtest::buildContainer(front, records, options));
        info_ = ParseTEV(stream, SIGNATURE_VOXA_TEV);
        ASSERT_NE(info_, nullptr) << dumpLog();
        ASSERT_EQ(getTEVList(info_), 1u) << dumpLog();
        voxa_ = _checkAudioInImageStream(stream);
        ASSERT_NE(voxa_, nullptr) << dumpLog();
    }
    void TearDown() override {
        DestroyVoxaStream(voxa_);
        DestroyTEV(info_);
        BufferStreamTest::TearDown();
    }

    const tevtest::RecordSpec user_{1, "user", Bytes{9, 9, 9, 9}, soundBytes(12)};
    _TEV_info* info_ = nullptr;
    _voxa_info_struct* voxa_ = nullptr;
};

tevtest::RecordSpec echoFrame(const Bytes& sound) {
    return tevtest::RecordSpec{uint16_t(TEV_ECHOFRAME_SOUND_DATA), "EchoFrame_000", std::nullopt, sound};
}

TEST_F(VoxaInContainer, FindsTheRecordWhoseDataIsTheSound) {
    const Bytes sound = soundBytes(20);
    const uint32_t soundData = kMediaSize + tevtest::recordLength(user_) + 8 + 13;
    parse(tevtest::fakeJpeg(kMediaSize), {user_, echoFrame(sound)}, soundData, 20);
    EXPECT_EQ(FindOldVoxaIndex(info_, voxa_), 1u) << dumpLog();

    Bytes out(sound.size());
    EXPECT_EQ(ReadDataVoxa(voxa_, voxa_->sound_table[0], uint32_t(out.size()), out.data()), 1u);
    EXPECT_EQ(out, sound);
}

TEST_F(VoxaInContainer, CountsTheSubInformationOfTheRecord) {
    tevtest::RecordSpec withSub = echoFrame(soundBytes(20));
    withSub.sub = Bytes{1, 2, 3};
    // Tag header, name, sub-information length and bytes come first.
    parse(tevtest::fakeJpeg(kMediaSize), {withSub, user_}, kMediaSize + 8 + 13 + 4 + 3, 20);
    EXPECT_EQ(FindOldVoxaIndex(info_, voxa_), 0u) << dumpLog();
}

TEST_F(VoxaInContainer, SoundInFrontOfTheContainerBelongsToNoRecord) {
    parse(mediaThen(soundBytes(16)), {user_}, kMediaSize, 16);
    EXPECT_EQ(FindOldVoxaIndex(info_, voxa_), kNotFound) << dumpLog();
    EXPECT_EQ(FindOldVoxaIndex(nullptr, voxa_), kNotFound);
    EXPECT_EQ(FindOldVoxaIndex(info_, nullptr), kNotFound);
}

TEST_F(VoxaInContainer, SoundStartingAtARecordsNameMatchesNoRecord) {
    parse(tevtest::fakeJpeg(kMediaSize), {user_}, kMediaSize + 8 + 4, 4);
    EXPECT_EQ(FindOldVoxaIndex(info_, voxa_), kNotFound) << dumpLog();
}

}  // namespace
