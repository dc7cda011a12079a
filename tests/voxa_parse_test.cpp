#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/stream.h"
#include "tev/voxa.h"

namespace {

using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::LogCaptureTest;
using tevtest::TempFile;

constexpr size_t kMediaSize = 64;

Bytes soundBytes(size_t size) {
    Bytes b(size);
    for (size_t i = 0; i < size; ++i) b[i] = static_cast<uint8_t>(i * 7 + 3);
    return b;
}

// Media, then the sound, then a one-sound block pointing at it.
Bytes imageWithSound(const Bytes& sound, uint32_t version = 106) {
    const uint32_t start = kMediaSize;
    return ByteBuilder()
        .bytes(tevtest::fakeJpeg(kMediaSize))
        .bytes(sound)
        .bytes(tevtest::voxaBlock(version, start, start + uint32_t(sound.size())))
        .take();
}

// A block with any count, table and header length field.
Bytes rawBlock(uint32_t version, uint32_t count, const std::vector<uint32_t>& table, uint32_t headerLength,
               size_t padding = 0) {
    ByteBuilder b;
    b.text("VOXA").u32le(version).u32le(count);
    for (uint32_t v : table) b.u32le(v);
    b.zeros(padding).u32le(headerLength).text("VOXABS");
    return b.take();
}

Bytes mediaThen(const Bytes& tail, size_t mediaSize = kMediaSize) {
    return ByteBuilder().bytes(tevtest::fakeJpeg(mediaSize)).bytes(tail).take();
}

Bytes bufferContent(TevBufferHandle* handle) {
    const auto* data = static_cast<const uint8_t*>(kbgetBuffer(handle));
    return Bytes(data, data + kbgetWriteSize(handle));
}

// ---------------------------------------------------------------------------
// Behaviour shared by the path, FILE*, descriptor and buffer forms.

enum class Medium { Path, File, Descriptor, Buffer };

std::string mediumName(Medium medium) {
    switch (medium) {
        case Medium::Path:
            return "Path";
        case Medium::File:
            return "File";
        case Medium::Descriptor:
            return "Descriptor";
        case Medium::Buffer:
            return "Buffer";
    }
    return "Unknown";
}

void PrintTo(Medium medium, std::ostream* os) { *os << mediumName(medium); }

// Holds the file and whatever handle a medium needs, and releases records
// the way that medium's callers do.
class Source {
public:
    Source(Medium medium, const Bytes& content) : medium_(medium), file_(content) {
        switch (medium) {
            case Medium::Path:
                break;
            case Medium::File:
                fp_ = fopen(file_.c_str(), "rb");
                break;
            case Medium::Descriptor:
                fd_ = open(file_.c_str(), O_RDONLY);
                break;
            case Medium::Buffer:
                handle_ = _kbopen(static_cast<int64_t>(content.size()));
                _kbwrite(content.data(), static_cast<int64_t>(content.size()), handle_);
                _kbseek(handle_, 0, SEEK_SET);
                break;
        }
    }
    ~Source() {
        if (fp_ != nullptr) fclose(fp_);
        if (fd_ >= 0) close(fd_);
        if (handle_ != nullptr) _kbclose(handle_);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    _voxa_info_struct* parse() {
        switch (medium_) {
            case Medium::Path:
                return ParseVoxa(file_.c_str());
            case Medium::File:
                return ParseVoxaFP(fp_);
            case Medium::Descriptor:
                return ParseVoxaFd(fd_);
            case Medium::Buffer:
                return ParseVoxaBuffer(handle_);
        }
        return nullptr;
    }

    _voxa_info_struct* check() {
        _voxa_info_struct* info = nullptr;
        switch (medium_) {
            case Medium::Path:
                info = _checkAudioInImageFile(file_.c_str());
                break;
            case Medium::File:
                info = _checkAudioInImageFP(fp_);
                break;
            case Medium::Descriptor:
                info = _checkAudioInImageFd(fd_);
                break;
            case Medium::Buffer:
                info = _checkAudioInImageBuffer(handle_);
                break;
        }
        if (info == nullptr && parsedBlockWithoutTable_) forgetReleasedHandles();
        return info;
    }

    // A failing table check closes a FILE* and destroys a buffer handle
    // that were handed in; the test must not release them again.
    void expectTableFailure() { parsedBlockWithoutTable_ = true; }

    uint32_t destroy(_voxa_info_struct* info) {
        switch (medium_) {
            case Medium::Path:
                return DestroyVoxa(info);
            case Medium::File:
            case Medium::Descriptor:
                return DestroyVoxaFP(info);
            case Medium::Buffer:
                return DestroyVoxaBuffer(info);
        }
        return 0;
    }

    const TempFile& file() const { return file_; }
    TevBufferHandle* handle() const { return handle_; }

private:
    void forgetReleasedHandles() {
        fp_ = nullptr;
        handle_ = nullptr;
    }

    Medium medium_;
    TempFile file_;
    FILE* fp_ = nullptr;
    int fd_ = -1;
    TevBufferHandle* handle_ = nullptr;
    bool parsedBlockWithoutTable_ = false;
};

class VoxaMedia : public LogCaptureTest, public testing::WithParamInterface<Medium> {};

TEST_P(VoxaMedia, CheckReadsTheTableAndTheSoundBack) {
    const Bytes sound = soundBytes(100);
    const Bytes content = imageWithSound(sound);
    Source source(GetParam(), content);

    _voxa_info_struct* info = source.check();
    ASSERT_NE(info, nullptr) << dumpLog();
    EXPECT_EQ(info->is_valid, 1u);
    EXPECT_EQ(info->file_size, content.size());
    EXPECT_EQ(info->header_length, 20u);
    EXPECT_EQ(info->version, 106u);
    EXPECT_EQ(info->sound_count, 1u);
    EXPECT_EQ(info->header_size, 30u);
    EXPECT_EQ(info->position_mark, 0u);
    EXPECT_EQ(_getAudioCountInImageFile(info), 1u);

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

    EXPECT_EQ(source.destroy(info), 1u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(VoxaMedia, PlainImageHasNoBlockAndLogsNothing) {
    Source source(GetParam(), tevtest::fakeJpeg(200));
    EXPECT_EQ(source.parse(), nullptr);
    EXPECT_EQ(source.check(), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(VoxaMedia, FileOfTenBytesIsASearchError) {
    Source source(GetParam(), Bytes(10, 'x'));
    EXPECT_EQ(source.parse(), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Search Error")) << dumpLog();
}

TEST_P(VoxaMedia, TableFailureReleasesTheRecord) {
    // The sound ends inside the file, but not before the 30-byte block.
    const Bytes content = mediaThen(tevtest::voxaBlock(106, 10, kMediaSize + 1));
    Source source(GetParam(), content);

    source.expectTableFailure();
    EXPECT_EQ(source.check(), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "data + header is bigger then file -> that's not true!!"))
        << dumpLog();
}

TEST_P(VoxaMedia, RecordKeepsItsStreamUntilDestroyed) {
    const Bytes sound = soundBytes(40);
    Source source(GetParam(), imageWithSound(sound));

    _voxa_info_struct* info = source.parse();
    ASSERT_NE(info, nullptr) << dumpLog();
    ASSERT_EQ(ParseVoxaSound(info), 1u) << dumpLog();
    unsigned char* copy = _getAudioStreamBuffer(info);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(Bytes(copy, copy + sound.size()), sound);
    _kfree(copy);
    EXPECT_EQ(source.destroy(info), 1u);
}

INSTANTIATE_TEST_SUITE_P(AllMedia, VoxaMedia,
                         testing::Values(Medium::Path, Medium::File, Medium::Descriptor, Medium::Buffer),
                         [](const testing::TestParamInfo<Medium>& param) { return mediumName(param.param); });

// ---------------------------------------------------------------------------
// The block and its table, through a stream over a file.

class VoxaBlockParse : public LogCaptureTest {
protected:
    // Parses the block of `content` and, when asked, its table; the record
    // is released at the end of the test.
    _voxa_info_struct* parse(const Bytes& content) {
        file_ = std::make_unique<TempFile>(content);
        fp_ = fopen(file_->c_str(), "rb");
        stream_ = std::make_unique<TevStreamFile>(fp_);
        info_ = ParseVoxaStream(stream_.get());
        return info_;
    }
    void TearDown() override {
        DestroyVoxaStream(info_);
        stream_.reset();
        if (fp_ != nullptr) fclose(fp_);
    }

    std::unique_ptr<TempFile> file_;
    FILE* fp_ = nullptr;
    std::unique_ptr<TevStreamFile> stream_;
    _voxa_info_struct* info_ = nullptr;
};

TEST_F(VoxaBlockParse, HeaderLengthOfTwelveHasNoRoomForASound) {
    EXPECT_EQ(parse(mediaThen(rawBlock(106, 0, {}, 12))), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "file has no suond OFFS")) << dumpLog();
}

TEST_F(VoxaBlockParse, HeaderLengthLongerThanTheFileIsRefused) {
    EXPECT_EQ(parse(rawBlock(106, 1, {0, 1}, 500)), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "file has no suond OFFS")) << dumpLog();
}

TEST_F(VoxaBlockParse, BlockStartingAtTheFirstByteIsASearchError) {
    // The length field is consistent, but nothing precedes the block.
    EXPECT_EQ(parse(tevtest::voxaBlock(106, 0, 0)), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Search Error")) << dumpLog();
}

TEST_F(VoxaBlockParse, CountOfZeroParsesToAnEmptyTable) {
    // Header length 13: "VOXA", version, count and one spare byte.
    ASSERT_NE(parse(mediaThen(rawBlock(106, 0, {}, 13, 1))), nullptr) << dumpLog();
    EXPECT_EQ(info_->header_length, 13u);
    ASSERT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 0u);
    EXPECT_EQ(info_->header_size, 22u);
    EXPECT_EQ(_getAudioInImageFile(info_), nullptr);
    EXPECT_EQ(_getAudioStreamBuffer(info_), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(VoxaBlockParse, Version206IsReadable) {
    ASSERT_NE(parse(imageWithSound(soundBytes(8), 206)), nullptr) << dumpLog();
    EXPECT_EQ(info_->version, 206u);
}

TEST_F(VoxaBlockParse, Version207IsTooNew) {
    EXPECT_EQ(parse(imageWithSound(soundBytes(8), 207)), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa",
                            "the source file has TEV data but current TEV version is too old to parse "
                            "the source file"))
        << dumpLog();
}

TEST_F(VoxaBlockParse, MissingMagicIsNotABlock) {
    Bytes content = imageWithSound(soundBytes(8));
    content[content.size() - 30] = 'X';
    EXPECT_EQ(parse(content), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(VoxaBlockParse, EveryOtherSoundCountIsAccepted) {
    const uint32_t s = kMediaSize;
    const Bytes content = ByteBuilder()
                              .bytes(tevtest::fakeJpeg(kMediaSize))
                              .bytes(soundBytes(30))
                              .bytes(rawBlock(106, 2, {s, s + 10, s + 10, s + 30}, 28))
                              .take();
    ASSERT_NE(parse(content), nullptr) << dumpLog();
    ASSERT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
    EXPECT_EQ(info_->sound_count, 2u);
    EXPECT_EQ(info_->header_size, 38u);
    EXPECT_EQ(info_->sound_table[2], s + 10);
    EXPECT_EQ(info_->sound_table[3], s + 30);
    VoxaSoundOffset* first = _getAudioInImageFile(info_);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->offset, s);
    EXPECT_EQ(first->length, 10u);
    _destroyVOXAOFFSET(first);
}

TEST_F(VoxaBlockParse, CountFromTheLimitOnIsTooMuch) {
    ASSERT_NE(parse(mediaThen(rawBlock(106, 0x8000000u, {0, 0}, 20))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_EQ(info_->sound_table, nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "There is too much sound data.")) << dumpLog();
}

TEST_F(VoxaBlockParse, CountWhoseHeaderExceedsTheFileIsRefusedBeforeAllocating) {
    ASSERT_NE(parse(mediaThen(rawBlock(106, 0x7FFFFFFu, {0, 0}, 20))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_EQ(info_->sound_table, nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "header is bigger then file -> that's not true!!"))
        << dumpLog();
}

TEST_F(VoxaBlockParse, TableRunningPastTheEndIsAReadFailure) {
    // Five sounds claimed, room for one: the table read hits the end.
    ASSERT_NE(parse(mediaThen(rawBlock(106, 5, {0, 0}, 20))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_EQ(info_->sound_table, nullptr);
    EXPECT_EQ(info_->sound_count, 0u);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "sound data read fail.")) << dumpLog();
}

TEST_F(VoxaBlockParse, SoundEndingInsideTheBlockFailsTheTableCheck) {
    const uint32_t fileSize = kMediaSize + 30;
    ASSERT_NE(parse(mediaThen(tevtest::voxaBlock(106, 0, fileSize - 29))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 0u);
    EXPECT_EQ(info_->sound_count, 0u);
    EXPECT_NE(info_->sound_table, nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "data + header is bigger then file -> that's not true!!"))
        << dumpLog();
}

TEST_F(VoxaBlockParse, SoundEndingRightBeforeTheBlockPasses) {
    const uint32_t fileSize = kMediaSize + 30;
    ASSERT_NE(parse(mediaThen(tevtest::voxaBlock(106, 0, fileSize - 30))), nullptr);
    EXPECT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
}

TEST_F(VoxaBlockParse, ZeroLengthFirstSoundIsNotHandedOut) {
    ASSERT_NE(parse(mediaThen(tevtest::voxaBlock(106, 20, 20))), nullptr);
    ASSERT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
    EXPECT_EQ(_getAudioInImageFile(info_), nullptr);
    EXPECT_EQ(_getAudioStreamBuffer(info_), nullptr);
}

TEST_F(VoxaBlockParse, FirstSoundEndingBeforeItsStartIsNotHandedOut) {
    ASSERT_NE(parse(mediaThen(tevtest::voxaBlock(106, 30, 20))), nullptr);
    ASSERT_EQ(ParseVoxaSound(info_), 1u) << dumpLog();
    EXPECT_EQ(_getAudioInImageFile(info_), nullptr);
    EXPECT_EQ(_getAudioStreamBuffer(info_), nullptr);
}

TEST_F(VoxaBlockParse, TableReaderRefusesUnusableRecords) {
    EXPECT_EQ(ParseVoxaSound(nullptr), 0u);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "Wrong voxa_info")) << dumpLog();

    _voxa_info_struct record{};
    EXPECT_EQ(ParseVoxaSound(&record), 0u);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "Voxa validation failed")) << dumpLog();

    record.is_valid = 1;
    EXPECT_EQ(ParseVoxaSound(&record), 0u);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxaSound", "Stream doesn't exist")) << dumpLog();
}

// ---------------------------------------------------------------------------
// Entry points with their own rules.

class VoxaEntryPoints : public LogCaptureTest {};

TEST_F(VoxaEntryPoints, DescriptorBelowOneIsRefusedAtOnce) {
    EXPECT_EQ(ParseVoxaFd(0), nullptr);
    EXPECT_EQ(ParseVoxaFd(-1), nullptr);
    EXPECT_EQ(_checkAudioInImageFd(0), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(VoxaEntryPoints, NullInputsGiveNull) {
    EXPECT_EQ(ParseVoxaStream(nullptr), nullptr);
    EXPECT_EQ(ParseVoxaFP(nullptr), nullptr);
    EXPECT_EQ(ParseVoxaBuffer(nullptr), nullptr);
    EXPECT_EQ(_checkAudioInImageFile(nullptr), nullptr);
    EXPECT_EQ(_checkAudioInImageFP(nullptr), nullptr);
    EXPECT_EQ(_checkAudioInImageBuffer(nullptr), nullptr);
    EXPECT_EQ(_checkAudioInImageStream(nullptr), nullptr);
    EXPECT_EQ(ReadSoundData(nullptr, 0, 0, nullptr), 0u);
    EXPECT_EQ(ReadDataVoxa(nullptr, 0, 0, nullptr), 0u);
    EXPECT_EQ(_getAudioCountInImageFile(nullptr), 0u);
    EXPECT_EQ(_getAudioInImageFile(nullptr), nullptr);
    EXPECT_EQ(_getAudioStreamBuffer(nullptr), nullptr);
    EXPECT_EQ(_getSoundFileCreate(nullptr, "unused"), 0u);
    EXPECT_EQ(getVoxaHeaderCount(nullptr), 0u);
    EXPECT_EQ(DestroyVoxa(nullptr), 0u);
    EXPECT_EQ(_destroyVOXADATA(nullptr), 0u);
    EXPECT_EQ(DestroyVoxaFP(nullptr), 0u);
    EXPECT_EQ(DestroyVoxaBuffer(nullptr), 0u);
    EXPECT_EQ(DestroyVoxaStream(nullptr), 0u);
    _destroyVOXAOFFSET(nullptr);
}

TEST_F(VoxaEntryPoints, MissingPathIsAnOpenError) {
    EXPECT_EQ(ParseVoxa("/nonexistent/dir/image.jpg"), nullptr);
    EXPECT_TRUE(loggedError("Voxa::ParseVoxa", "File Open Error")) << dumpLog();
}

TEST_F(VoxaEntryPoints, StreamCheckLeavesTheCallersStreamOnFailure) {
    TevBufferHandle* handle = _kbopen(200);
    const Bytes content = mediaThen(tevtest::voxaBlock(106, 0, kMediaSize + 1));
    _kbwrite(content.data(), int64_t(content.size()), handle);
    TevStreamBuffer stream(handle);

    EXPECT_EQ(_checkAudioInImageStream(&stream), nullptr);
    EXPECT_TRUE(stream.CheckError());
    EXPECT_EQ(bufferContent(handle), content);
    _kbclose(handle);
}

TEST_F(VoxaEntryPoints, GetAudioReturnsTheFirstSound) {
    const Bytes sound = soundBytes(77);
    TempFile file(imageWithSound(sound));
    uint32_t size = 0;
    unsigned char* data = GetAudioInVoxa(file.c_str(), &size);
    ASSERT_NE(data, nullptr) << dumpLog();
    EXPECT_EQ(size, sound.size());
    EXPECT_EQ(Bytes(data, data + size), sound);
    free(data);
}

TEST_F(VoxaEntryPoints, GetAudioOnAFileWithoutBlockReportsNothing) {
    TempFile file(tevtest::fakeJpeg(300));
    uint32_t size = 1234;
    EXPECT_EQ(GetAudioInVoxa(file.c_str(), &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(loggedError("LUMET", "ParseVoxaFile :: voxa_info NULL")) << dumpLog();
}

TEST_F(VoxaEntryPoints, GetAudioRefusesAFirstSoundEndingBeforeItsStart) {
    TempFile file(mediaThen(tevtest::voxaBlock(106, 30, 20)));
    uint32_t size = 1234;
    EXPECT_EQ(GetAudioInVoxa(file.c_str(), &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(loggedError("LUMET", "ParseVoxaFile :: voxa_info NULL")) << dumpLog();
}

TEST_F(VoxaEntryPoints, ReadSoundDataReportsAFailedSeek) {
    TevBufferHandle* handle = _kbopen(16);
    TevStreamBuffer stream(handle);
    Bytes out(4);
    EXPECT_EQ(ReadSoundData(&stream, 0xFFFFFFFFu, 4, out.data()), 0u);
    EXPECT_TRUE(loggedError("Voxa::ReadSoundData", "File Search error")) << dumpLog();
    _kbclose(handle);
}

TEST_F(VoxaEntryPoints, BufferRecordOutlivesTheParseAndSparesTheBuffer) {
    const Bytes sound = soundBytes(25);
    const Bytes content = imageWithSound(sound);
    TevBufferHandle* handle = _kbopen(int64_t(content.size()));
    _kbwrite(content.data(), int64_t(content.size()), handle);

    _voxa_info_struct* info = _checkAudioInImageBuffer(handle);
    ASSERT_NE(info, nullptr) << dumpLog();
    Bytes out(sound.size());
    EXPECT_EQ(ReadDataVoxa(info, kMediaSize, uint32_t(sound.size()), out.data()), 1u);
    EXPECT_EQ(out, sound);
    EXPECT_EQ(DestroyVoxaBuffer(info), 1u);
    EXPECT_EQ(bufferContent(handle), content);
    _kbclose(handle);
}

TEST_F(VoxaEntryPoints, FpRecordLeavesTheFileOpen) {
    TempFile file(imageWithSound(soundBytes(12)));
    FILE* fp = fopen(file.c_str(), "rb");
    _voxa_info_struct* info = _checkAudioInImageFP(fp);
    ASSERT_NE(info, nullptr) << dumpLog();
    EXPECT_EQ(DestroyVoxaFP(info), 1u);
    EXPECT_EQ(fseek(fp, 0, SEEK_END), 0);
    EXPECT_EQ(fclose(fp), 0);
}

TEST_F(VoxaEntryPoints, SoundFileCreateLeavesTheNewFileEmpty) {
    const Bytes content = imageWithSound(soundBytes(50));
    TempFile image(content);
    TempFile target(Bytes{1, 2, 3});
    _voxa_info_struct* info = _checkAudioInImageFile(image.c_str());
    ASSERT_NE(info, nullptr) << dumpLog();

    // The image is open read-only, so writing the sound back through its
    // stream fails and reports nothing written.
    EXPECT_EQ(_getSoundFileCreate(info, target.c_str()), 0u);
    EXPECT_TRUE(target.read().empty());
    EXPECT_EQ(image.read(), content);
    DestroyVoxa(info);
}

TEST_F(VoxaEntryPoints, SoundFileCreateWritesThroughTheRecordsStream) {
    const Bytes sound = soundBytes(10);
    const Bytes content = imageWithSound(sound);
    TevBufferHandle* handle = _kbopen(int64_t(content.size()));
    _kbwrite(content.data(), int64_t(content.size()), handle);
    TempFile target(Bytes{1, 2, 3});
    _voxa_info_struct* info = _checkAudioInImageBuffer(handle);
    ASSERT_NE(info, nullptr) << dumpLog();

    EXPECT_EQ(_getSoundFileCreate(info, target.c_str()), sound.size());
    EXPECT_TRUE(target.read().empty());
    // The sound was written again right after itself, over the block.
    const Bytes after = bufferContent(handle);
    EXPECT_EQ(Bytes(after.begin() + kMediaSize + 10, after.begin() + kMediaSize + 20), sound);
    DestroyVoxaBuffer(info);
    _kbclose(handle);
}

TEST_F(VoxaEntryPoints, HeaderCountIsTheThirdLittleEndianWord) {
    Bytes payload = ByteBuilder().u32le(7).u32le(9).u32le(0x01020304).text("EchoFrame_000").take();
    EXPECT_EQ(getVoxaHeaderCount(reinterpret_cast<char*>(payload.data())), 0x01020304u);
}

}  // namespace
