// The "tevd" box around a container in MP4 files: the placeholder header,
// its update, the known-size header, and wrapping an existing container.
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"

namespace {

using namespace tevtest;

Bytes boxHeader(uint32_t size) { return ByteBuilder().u32be(size).text("tevd").take(); }

// An index made by hand, for damage that the parser would not let through.
_TEV_info handMadeIndex(TevStream* stream, int64_t streamSize, int64_t dataStart) {
    _TEV_info info{};
    info.valid = 1;
    info.Stream = stream;
    info.stream_size = streamSize;
    info.data_start_position = dataStart;
    return info;
}

// One record of 968 bytes and a one-entry directory of 32: 1000 bytes.
const std::vector<RecordSpec> kThousandBytes = {{5, "blob", std::nullopt, Bytes(956, 0x6B)}};

class Mp4BoxTest : public LogCaptureTest {};

TEST_F(Mp4BoxTest, PlaceholderAtTheEndThenUpdateToTheWholeBox) {
    FixedBuffer buffer(fakeMp4(100), 300);
    buffer.stream()->seek(0, 2);
    int64_t position = -5;
    ASSERT_EQ(writeMP4TagStream(buffer.stream(), &position), 1u);
    EXPECT_EQ(position, 100);
    EXPECT_EQ(buffer.contents(), ByteBuilder().bytes(fakeMp4(100)).bytes(boxHeader(0)).take());

    const Bytes container(77, 0x5C);
    buffer.stream()->write(container.data(), int64_t(container.size()));
    buffer.stream()->seek(10, 0);
    EXPECT_EQ(updateMP4TagStream(buffer.stream(), position), 1u);
    EXPECT_EQ(buffer.stream()->tell(), 10);
    EXPECT_EQ(readU32be(buffer.contents(), 100), 77u + 8u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(Mp4BoxTest, PlaceholderThatDoesNotFitLeavesNoHalfHeader) {
    FixedBuffer buffer(fakeMp4(100), 106);  // room for the size field only
    _kbseek(buffer.handle(), 0, 2);
    int64_t position = 0;
    EXPECT_EQ(writeMP4TagHandle(buffer.handle(), &position), 0u);
    EXPECT_EQ(buffer.contents(), fakeMp4(100));
    EXPECT_TRUE(loggedError("TEVAPIs::writeMP4TagStream", "file write error\n"));
}

TEST_F(Mp4BoxTest, UpdateOutsideTheStreamFailsAndRestoresThePosition) {
    const Bytes content = ByteBuilder().bytes(fakeMp4(40)).bytes(boxHeader(0)).take();
    FixedBuffer buffer(content, 100);
    buffer.stream()->seek(12, 0);
    for (int64_t position : {int64_t{60}, int64_t{46}, int64_t{-1}}) {
        EXPECT_EQ(updateMP4TagStream(buffer.stream(), position), 0u) << position;
        EXPECT_EQ(buffer.stream()->tell(), 12);
    }
    EXPECT_TRUE(loggedError("TEVAPIs::updateMP4TagStream", "file write error\n"));
    EXPECT_EQ(buffer.contents(), content);
    TempFile file(content);
    FILE* fp = fopen(file.c_str(), "r+b");
    EXPECT_EQ(updateMP4TagFp(fp, 1000), 0u);  // a file is never extended
    fclose(fp);
    EXPECT_EQ(file.read(), content);
}

TEST_F(Mp4BoxTest, KnownSizeHeaderIsWrittenWhereTheStreamStands) {
    TempFile file(fakeMp4(100));
    FILE* fp = fopen(file.c_str(), "r+b");
    lseek(fileno(fp), 0, SEEK_END);
    EXPECT_EQ(writeFirstMP4Tag(fp, 500), 1u);
    fclose(fp);
    EXPECT_EQ(file.read(), ByteBuilder().bytes(fakeMp4(100)).bytes(boxHeader(500)).take());

    FixedBuffer full(fakeMp4(30));
    EXPECT_EQ(writeFirstMP4TagStream(full.stream(), 8), 0u);
    EXPECT_TRUE(loggedError("TEV::writeFirstMP4Tag", "File Write Error"));
    EXPECT_EQ(writeFirstMP4TagBuffer(full.handle(), 8), 1u);  // the buffer form ignores failures
    EXPECT_EQ(writeFirstMP4TagBuffer(nullptr, 8), 1u);
    EXPECT_EQ(full.contents(), fakeMp4(30));
}

TEST_F(Mp4BoxTest, UpdateFromTheIndexRestoresADamagedBoxSize) {
    const Bytes good = buildContainer(fakeMp4(120), {{5, "clip", std::nullopt, Bytes(60, 0x42)}}, {107, true});
    Bytes damaged = good;
    std::fill(damaged.begin() + 120, damaged.begin() + 124, 0);
    TempFile file(damaged);
    _TEV_info_pack* pack = checkTEVInFile(file.c_str());
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(updateMP4Tag(pack->info), 1u);
    destroyTEVDATA(pack);
    EXPECT_EQ(file.read(), good);
}

TEST_F(Mp4BoxTest, WrappingMovesTheContainerBehindAHeaderOfItsOwnLength) {
    const Bytes original = buildContainer(fakeMp4(200), kThousandBytes);
    ASSERT_EQ(original.size(), 1200u);
    TempFile file(original);
    _TEV_info_pack* pack = checkTEVInFile(file.c_str());
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(writeMP4Tag(pack->info), 1u);
    destroyTEVDATA(pack);
    const Bytes moved(original.begin() + 200, original.end());
    EXPECT_EQ(file.read(), ByteBuilder().bytes(fakeMp4(200)).bytes(boxHeader(1000)).bytes(moved).take());
}

TEST_F(Mp4BoxTest, WrappingThatCannotFitChangesNothing) {
    const Bytes original = buildContainer(fakeMp4(200), kThousandBytes);
    FixedBuffer buffer(original, original.size() + 4);
    _TEV_info_pack* pack = checkTEVInHandle(buffer.handle());
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(writeMP4Tag(pack->info), 0u);
    destroyTEVDATA_Buffer(pack);
    EXPECT_EQ(buffer.contents(), original);
}

TEST_F(Mp4BoxTest, DamagedIndexesAllocateNothingAndWriteNothing) {
    const Bytes content = fakeMp4(64);
    FixedBuffer buffer(content, 128);
    for (_TEV_info info : {handMadeIndex(buffer.stream(), int64_t(1) << 40, 0),
                           handMadeIndex(buffer.stream(), 64, 64), handMadeIndex(buffer.stream(), 64, 62),
                           handMadeIndex(buffer.stream(), 64, -8)}) {
        EXPECT_EQ(writeMP4Tag(&info), 0u) << info.stream_size << " " << info.data_start_position;
        EXPECT_EQ(updateMP4Tag(&info), 0u) << info.stream_size << " " << info.data_start_position;
    }
    EXPECT_EQ(buffer.contents(), content);
    EXPECT_TRUE(loggedError("TEV::writeMP4Tag", "File Search Error"));
    EXPECT_TRUE(loggedError("TEV::updateMP4Tag", "File Search Error"));
}

}  // namespace
