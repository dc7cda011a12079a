#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"

namespace {

using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::RecordSpec;
using tevtest::TempFile;
using tevtest::textBytes;

const Bytes kEmptyHeader = ByteBuilder().u32be(0).text("tevd").take();

// A memory buffer of fixed capacity holding `content`, with a stream over it.
class FixedBuffer {
public:
    FixedBuffer(const Bytes& content, size_t capacity) : storage_(capacity, 0) {
        std::copy(content.begin(), content.end(), storage_.begin());
        handle_ = _kbsetbuffer(storage_.data(), int64_t(capacity));
        btruncate(handle_, int64_t(content.size()));
        stream_ = new TevStreamBuffer(handle_);
    }
    ~FixedBuffer() {
        delete stream_;
        _kbclose(handle_);
    }
    FixedBuffer(const FixedBuffer&) = delete;
    FixedBuffer& operator=(const FixedBuffer&) = delete;

    TevStream* stream() const { return stream_; }
    TevBufferHandle* handle() const { return handle_; }
    Bytes contents() const { return Bytes(storage_.begin(), storage_.begin() + kbgetWriteSize(handle_)); }

private:
    Bytes storage_;
    TevBufferHandle* handle_;
    TevStream* stream_;
};

Bytes tail(const Bytes& bytes, size_t n) { return Bytes(bytes.end() - long(n), bytes.end()); }

class Mp4BoxTest : public tevtest::LogCaptureTest {};

// --- opening a box ---------------------------------------------------------

TEST_F(Mp4BoxTest, PlaceholderHeaderGoesAtTheCurrentPosition) {
    FixedBuffer buffer(tevtest::fakeMp4(100), 200);
    buffer.stream()->seek(0, 2);
    int64_t position = -5;
    EXPECT_EQ(writeMP4TagStream(buffer.stream(), &position), 1u);
    EXPECT_EQ(position, 100);
    const Bytes after = buffer.contents();
    ASSERT_EQ(after.size(), 108u);
    EXPECT_EQ(tail(after, 8), kEmptyHeader);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(Mp4BoxTest, PlaceholderHeaderThroughAFileAndAHandle) {
    TempFile file(tevtest::fakeMp4(100));
    FILE* fp = fopen(file.c_str(), "r+b");
    ASSERT_EQ(lseek(fileno(fp), 0, SEEK_END), 100);
    int64_t position = 0;
    EXPECT_EQ(writeMP4TagFp(fp, &position), 1u);
    fclose(fp);
    EXPECT_EQ(position, 100);
    EXPECT_EQ(tail(file.read(), 8), kEmptyHeader);
    EXPECT_EQ(file.read().size(), 108u);

    FixedBuffer buffer(tevtest::fakeMp4(50), 64);
    _kbseek(buffer.handle(), 0, 2);
    EXPECT_EQ(writeMP4TagHandle(buffer.handle(), &position), 1u);
    EXPECT_EQ(position, 50);
    EXPECT_EQ(tail(buffer.contents(), 8), kEmptyHeader);
}

TEST_F(Mp4BoxTest, PlaceholderThatDoesNotFitLeavesNoHalfHeader) {
    const Bytes media = tevtest::fakeMp4(100);
    FixedBuffer buffer(media, 106);  // room for the size field, not the type
    _kbseek(buffer.handle(), 0, 2);
    int64_t position = 0;
    EXPECT_EQ(writeMP4TagHandle(buffer.handle(), &position), 0u);
    EXPECT_EQ(buffer.contents(), media);
    EXPECT_TRUE(loggedError("TEVAPIs::writeMP4TagStream", "file write error\n")) << dumpLog();
    EXPECT_TRUE(loggedError("TEVAPIs::writeMP4TagFp", "writeMP4TagStream error\n")) << dumpLog();
}

TEST_F(Mp4BoxTest, WritersRefuseUnusableStreamsUnderTheUpdateTag) {
    int64_t position = 0;
    EXPECT_EQ(writeMP4TagStream(nullptr, &position), 0u);
    EXPECT_TRUE(loggedError("TEVAPIs::updateMP4TagStream", "Stream null\n"));
    TevStreamBuffer unusable(nullptr);
    EXPECT_EQ(writeMP4TagStream(&unusable, &position), 0u);
    EXPECT_EQ(updateMP4TagStream(&unusable, 0), 0u);
    EXPECT_TRUE(loggedError("TEVAPIs::updateMP4TagStream", "CheckError is false\n"));
    EXPECT_EQ(updateMP4TagStream(nullptr, 0), 0u);
}

// --- fixing the size by position -------------------------------------------

TEST_F(Mp4BoxTest, UpdateWritesTheWholeBoxLengthAndKeepsThePosition) {
    FixedBuffer buffer(tevtest::fakeMp4(100), 300);
    buffer.stream()->seek(0, 2);
    int64_t position = 0;
    ASSERT_EQ(writeMP4TagStream(buffer.stream(), &position), 1u);
    const Bytes container(77, 0x5C);
    buffer.stream()->write(container.data(), int64_t(container.size()));
    buffer.stream()->seek(10, 0);
    EXPECT_EQ(updateMP4TagStream(buffer.stream(), position), 1u);
    EXPECT_EQ(buffer.stream()->tell(), 10);
    EXPECT_EQ(tevtest::readU32be(buffer.contents(), size_t(position)), 77u + 8u);
    EXPECT_EQ(tevtest::readText(buffer.contents(), size_t(position) + 4, 4), "tevd");
}

TEST_F(Mp4BoxTest, UpdateThroughAFile) {
    TempFile file(ByteBuilder().bytes(tevtest::fakeMp4(40)).bytes(kEmptyHeader).zeros(30).take());
    FILE* fp = fopen(file.c_str(), "r+b");
    EXPECT_EQ(updateMP4TagFp(fp, 40), 1u);
    fclose(fp);
    EXPECT_EQ(tevtest::readU32be(file.read(), 40), 38u);
}

TEST_F(Mp4BoxTest, UpdateBeyondTheEndFailsAndRestoresThePosition) {
    const Bytes content = ByteBuilder().bytes(tevtest::fakeMp4(40)).bytes(kEmptyHeader).take();
    FixedBuffer buffer(content, 100);
    buffer.stream()->seek(12, 0);
    EXPECT_EQ(updateMP4TagStream(buffer.stream(), 60), 0u);
    EXPECT_EQ(buffer.stream()->tell(), 12);
    EXPECT_TRUE(loggedError("TEVAPIs::updateMP4TagStream", "file write error\n"));
    EXPECT_EQ(updateMP4TagStream(buffer.stream(), -1), 0u);
    EXPECT_EQ(updateMP4TagHandle(buffer.handle(), 60), 0u);
    EXPECT_TRUE(loggedError("TEVAPIs::updateMP4TagFp", "updateMP4TagStream error\n"));
    EXPECT_EQ(buffer.contents(), content);
}

TEST_F(Mp4BoxTest, UpdateNeverExtendsAFile) {
    const Bytes content = tevtest::fakeMp4(40);
    TempFile file(content);
    FILE* fp = fopen(file.c_str(), "r+b");
    EXPECT_EQ(updateMP4TagFp(fp, 38), 0u);
    EXPECT_EQ(updateMP4TagFp(fp, 1000), 0u);
    fclose(fp);
    EXPECT_EQ(file.read(), content);
}

// --- opening a box of known size -------------------------------------------

TEST_F(Mp4BoxTest, KnownSizeHeaderGoesAtTheEnd) {
    FixedBuffer buffer(tevtest::fakeMp4(30), 64);
    buffer.stream()->seek(0, 0);
    EXPECT_EQ(writeFirstMP4TagStream(buffer.stream(), 0x01020304u), 1u);
    EXPECT_EQ(tail(buffer.contents(), 8), ByteBuilder().u32be(0x01020304u).text("tevd").take());

    TempFile file(tevtest::fakeMp4(30));
    FILE* fp = fopen(file.c_str(), "r+b");
    EXPECT_EQ(writeFirstMP4Tag(fp, 500), 1u);
    fclose(fp);
    EXPECT_EQ(tail(file.read(), 8), ByteBuilder().u32be(500).text("tevd").take());
}

TEST_F(Mp4BoxTest, KnownSizeHeaderFailures) {
    FixedBuffer full(tevtest::fakeMp4(30), 30);
    EXPECT_EQ(writeFirstMP4TagStream(full.stream(), 8), 0u);
    EXPECT_TRUE(loggedError("TEV::writeFirstMP4Tag", "File Write Error"));
    EXPECT_EQ(writeFirstMP4Tag(nullptr, 8), 0u);
    EXPECT_TRUE(loggedError("TEV::writeMP4Tag", "src_tev_info->Stream CheckError is false"));
    EXPECT_EQ(writeFirstMP4TagStream(nullptr, 8), 0u);
    EXPECT_TRUE(loggedError("TEV::writeMP4Tag", "src_tev_info->Stream is null"));
}

TEST_F(Mp4BoxTest, KnownSizeHeaderIntoABufferAlwaysReportsSuccess) {
    EXPECT_EQ(writeFirstMP4TagBuffer(nullptr, 8), 1u);
    EXPECT_TRUE(loggedError("TEV::writeMP4Tag", "src_tev_info->Stream CheckError is false"));
    FixedBuffer full(tevtest::fakeMp4(30), 30);
    EXPECT_EQ(writeFirstMP4TagBuffer(full.handle(), 8), 1u);
    EXPECT_EQ(full.contents(), tevtest::fakeMp4(30));
}

// --- fixing the size from a parsed index ------------------------------------

const std::vector<RecordSpec> kRecords = {{5, "clip", std::nullopt, Bytes(60, 0x42)}};

TEST_F(Mp4BoxTest, UpdateFromTheIndexRewritesTheBoxSize) {
    tevtest::ContainerOptions boxed;
    boxed.mp4Box = true;
    const Bytes good = tevtest::buildContainer(tevtest::fakeMp4(120), kRecords, boxed);
    Bytes damaged = good;
    for (size_t i = 120; i < 124; ++i) damaged[i] = 0;
    TempFile file(damaged);
    _TEV_info_pack* pack = checkTEVInFile(file.c_str());
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(pack->info->data_start_position, 120);
    EXPECT_EQ(updateMP4Tag(pack->info), 1u);
    destroyTEVDATA(pack);
    EXPECT_EQ(file.read(), good);
}

// An index made by hand, for damage the parser would not let through.
_TEV_info handMadeIndex(TevStream* stream, int64_t streamSize, int64_t dataStart) {
    _TEV_info info{};
    info.valid = 1;
    info.Stream = stream;
    info.stream_size = streamSize;
    info.data_start_position = dataStart;
    return info;
}

TEST_F(Mp4BoxTest, UpdateFromADamagedIndexWritesNothing) {
    const Bytes content = tevtest::fakeMp4(64);
    FixedBuffer buffer(content, 128);
    _TEV_info beyond = handMadeIndex(buffer.stream(), 64, 62);
    EXPECT_EQ(updateMP4Tag(&beyond), 0u);
    EXPECT_TRUE(loggedError("TEV::updateMP4Tag", "File Search Error"));
    _TEV_info negative = handMadeIndex(buffer.stream(), 64, -8);
    EXPECT_EQ(updateMP4Tag(&negative), 0u);
    EXPECT_EQ(buffer.contents(), content);
    EXPECT_EQ(updateMP4Tag(nullptr), 0u);
    EXPECT_TRUE(loggedError("TEV::updateMP4Tag", "src_tev_info->Stream is null"));
}

// --- wrapping an unboxed container -----------------------------------------

// One record of 968 bytes and a one-entry directory of 32: 1000 bytes.
const std::vector<RecordSpec> kThousandByteContainer = {{5, "blob", std::nullopt, Bytes(956, 0x6B)}};

TEST_F(Mp4BoxTest, WrappingMovesTheContainerBehindAHeaderOfItsOwnLength) {
    const Bytes media = tevtest::fakeMp4(200);
    const Bytes original = tevtest::buildContainer(media, kThousandByteContainer);
    ASSERT_EQ(original.size(), 1200u);
    TempFile file(original);
    _TEV_info_pack* pack = checkTEVInFile(file.c_str());
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(writeMP4Tag(pack->info), 1u);
    destroyTEVDATA(pack);

    const Bytes wrapped = file.read();
    ASSERT_EQ(wrapped.size(), 1208u);
    EXPECT_EQ(Bytes(wrapped.begin(), wrapped.begin() + 200), media);
    EXPECT_EQ(tevtest::readU32be(wrapped, 200), 1000u);
    EXPECT_EQ(tevtest::readText(wrapped, 204, 4), "tevd");
    EXPECT_EQ(Bytes(wrapped.begin() + 208, wrapped.end()), Bytes(original.begin() + 200, original.end()));

    // The container is now found inside its box.
    _TEV_info_pack* again = checkTEVWithReadPM(file.c_str());
    ASSERT_NE(again, nullptr) << dumpLog();
    EXPECT_EQ(again->info->data_start_position, 200);
    destroyTEVDATA(again);
}

TEST_F(Mp4BoxTest, WrappingInAFullBufferChangesNothing) {
    const Bytes original = tevtest::buildContainer(tevtest::fakeMp4(200), kThousandByteContainer);
    FixedBuffer buffer(original, original.size() + 4);
    _TEV_info_pack* pack = checkTEVInHandle(buffer.handle());
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(writeMP4Tag(pack->info), 0u);
    destroyTEVDATA_Buffer(pack);
    EXPECT_EQ(buffer.contents(), original);
}

TEST_F(Mp4BoxTest, WrappingADamagedIndexAllocatesNothingAndWritesNothing) {
    const Bytes content = tevtest::fakeMp4(64);
    FixedBuffer buffer(content, 128);
    _TEV_info huge = handMadeIndex(buffer.stream(), int64_t(1) << 40, 0);
    EXPECT_EQ(writeMP4Tag(&huge), 0u);
    EXPECT_TRUE(loggedError("TEV::writeMP4Tag", "File Search Error"));
    _TEV_info empty = handMadeIndex(buffer.stream(), 64, 64);
    EXPECT_EQ(writeMP4Tag(&empty), 0u);
    _TEV_info negative = handMadeIndex(buffer.stream(), 64, -1);
    EXPECT_EQ(writeMP4Tag(&negative), 0u);
    EXPECT_EQ(buffer.contents(), content);
    EXPECT_EQ(writeMP4Tag(nullptr), 0u);
    EXPECT_TRUE(loggedError("TEV::writeMP4Tag", "src_tev_info->Stream is null"));
}

}  // namespace
