// Saving into memory: filling a buffer from a file, saving into it, and
// writing it back out, with the buffer's capacity as a hard wall.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/saved_records.h"
#include "tev/tev.h"

using namespace tevtest;

namespace {

const RecordSpec kAlpha{1, "alpha", std::nullopt, textBytes("first payload")};
const RecordSpec kBeta{7, "beta", textBytes("sub"), textBytes("second")};
constexpr uint8_t kGuard = 0xEE;

class BufferIoTest : public LogCaptureTest {
protected:
    // Runs `write` and returns what it printed on standard output.
    template <typename Write>
    std::string printed(Write write) {
        ::testing::internal::CaptureStdout();
        write();
        return ::testing::internal::GetCapturedStdout();
    }
};

TEST_F(BufferIoTest, SaveIntoUsedBufferRoundTripsThroughAFile) {
    const Bytes media = fakeMp4(300);
    const int64_t capacity = getTEVBufferAllocSize(int64_t(media.size()), 2, 64, 64, 64);
    Bytes memory(size_t(capacity), 0);
    std::copy(media.begin(), media.end(), memory.begin());
    TevBufferHandle* handle = initTEVUsedBuffer(memory.data(), capacity, int64_t(media.size()));
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(saveSpec([&](auto... a) { return saveTEVDataToBuffer(handle, a...); }, kAlpha, 0), 1u) << dumpLog();
    EXPECT_EQ(saveSpec([&](auto... a) { return saveTEVDataToBuffer(handle, a...); }, kBeta, 0), 1u) << dumpLog();

    TempFile out;
    const Bytes expected = buildContainer(media, {kAlpha, kBeta}, {107, true});
    EXPECT_EQ(WriteHandle_FilePath(out.c_str(), handle), int64_t(expected.size()));
    destroyTEVBuffer(handle);
    EXPECT_EQ(out.read(), expected);
    EXPECT_EQ(describe(readRecords(out.path())),
              (std::vector<std::string>{"alpha=first payload", "beta=second"}));
}

TEST_F(BufferIoTest, SaveNeverWritesPastTheCapacity) {
    const Bytes media = fakeJpeg(100);
    const size_t capacity = media.size() + 30;  // too small for the record and its directory
    Bytes memory(capacity + 64, kGuard);
    std::copy(media.begin(), media.end(), memory.begin());
    TevBufferHandle* handle = initTEVUsedBuffer(memory.data(), int64_t(capacity), int64_t(media.size()));
    EXPECT_EQ(saveSpec([&](auto... a) { return saveTEVDataToBuffer(handle, a...); }, kAlpha, 0), 0u);
    destroyTEVBuffer(handle);
    EXPECT_TRUE(std::equal(media.begin(), media.end(), memory.begin()));
    EXPECT_TRUE(std::all_of(memory.begin() + long(capacity), memory.end(), [](uint8_t b) { return b == kGuard; }));
}

TEST_F(BufferIoTest, FileCopiedIntoBufferIsWrittenBackUnchanged) {
    const Bytes content = buildContainer(fakeJpeg(70000), {kAlpha});  // more than one block of each copy
    TempFile file(content);
    FILE* fp = fopen(file.c_str(), "rb");
    TevBufferHandle* handle = initTEVBuffer(int64_t(content.size()) + 10);
    EXPECT_EQ(copyFpToBuffer(fp, handle), int64_t(content.size()));
    EXPECT_EQ(getTEVWriteSize(handle), int64_t(content.size()));
    fclose(fp);
    TempFile out;
    fp = fopen(out.c_str(), "wb");
    EXPECT_EQ(WriteHandle_Fp(handle, fp), int64_t(content.size()));
    fclose(fp);
    destroyTEVBuffer(handle);
    EXPECT_EQ(out.read(), content);
}

TEST_F(BufferIoTest, CopyFpToBufferRefusesTooSmallOrMissingBuffer) {
    TempFile file(fakeJpeg(500));
    FILE* fp = fopen(file.c_str(), "rb");
    TevBufferHandle* small = initTEVBuffer(499);
    EXPECT_EQ(copyFpToBuffer(fp, small), 0);
    EXPECT_EQ(getTEVWriteSize(small), 0);
    EXPECT_TRUE(loggedError("TEVEncoderAPIsBuffer::copyFpToBuffer", "ret != ReadSize !!")) << dumpLog();
    destroyTEVBuffer(small);
    EXPECT_EQ(copyFpToBuffer(fp, nullptr), 0);
    EXPECT_TRUE(loggedError("TEVEncoderAPIsBuffer::copyFpToBuffer", "Buffer NULL !!")) << dumpLog();
    fclose(fp);
}

TEST_F(BufferIoTest, WriteHandleReportsOnStandardOutput) {
    Bytes memory(16, 1);
    TevBufferHandle* unused = initTEVAllocatedBuffer(memory.data(), int64_t(memory.size()));
    TempFile out(textBytes("keep me"));
    FILE* fp = fopen(out.c_str(), "r+b");
    int64_t result = 0;
    EXPECT_EQ(printed([&] { result = WriteHandle_Fp(unused, fp); }), "WriteHandle : write size error \n");
    EXPECT_EQ(result, -2);
    EXPECT_EQ(printed([&] { result = WriteHandle_Fp(nullptr, fp); }), "WriteHandle : buffer error \n");
    EXPECT_EQ(result, -2);
    fclose(fp);
    EXPECT_EQ(printed([&] { result = WriteHandle_FilePath(out.c_str(), nullptr); }), "WriteHandle : buffer error \n");
    EXPECT_EQ(out.read(), textBytes("keep me"));  // a bad handle does not empty the file

    TevBufferHandle* used = initTEVUsedBuffer(memory.data(), int64_t(memory.size()), 8);
    const std::string nowhere = out.path() + ".missing/none";
    EXPECT_EQ(printed([&] { result = WriteHandle_FilePath(nowhere.c_str(), used); }), "fp null!!\n");
    EXPECT_EQ(result, -1);
    destroyTEVBuffer(used);
    destroyTEVBuffer(unused);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

}  // namespace
