// Saving into memory: filling a buffer from a file, saving into it, and
// writing it back out, with the buffer's capacity as a hard wall.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"

using namespace tevtest;

namespace {

const RecordSpec kAlpha{1, "alpha", std::nullopt, textBytes("first payload")};
const RecordSpec kBeta{7, "beta", textBytes("sub"), textBytes("second")};
constexpr uint8_t kGuard = 0xEE;

class BufferIoTest : public LogCaptureTest {
protected:
    uint32_t saveInto(TevBufferHandle* handle, const RecordSpec& r) {
        return saveSpec([&](auto... a) { return saveTEVDataToBuffer(handle, a...); }, r, 0);
    }
};

TEST_F(BufferIoTest, FileCopiedIntoABufferSavedIntoAndWrittenBackOut) {
    const Bytes media = fakeMp4(70000);  // more than one block of each copy
    TempFile in(media);
    TempFile out;
    TevBufferHandle* handle = initTEVBuffer(getTEVBufferAllocSize(int64_t(media.size()), 2, 64, 64, 64));
    FILE* fp = fopen(in.c_str(), "rb");
    EXPECT_EQ(copyFpToBuffer(fp, handle), int64_t(media.size()));
    fclose(fp);
    EXPECT_EQ(saveInto(handle, kAlpha), 1u) << dumpLog();
    EXPECT_EQ(saveInto(handle, kBeta), 1u) << dumpLog();
    const Bytes expected = buildContainer(media, {kAlpha, kBeta}, boxed());
    EXPECT_EQ(WriteHandle_FilePath(out.c_str(), handle), int64_t(expected.size()));
    destroyTEVBuffer(handle);
    EXPECT_EQ(out.read(), expected);
}

TEST_F(BufferIoTest, NothingIsWrittenPastTheCapacity) {
    const Bytes media = fakeJpeg(100);
    const size_t capacity = media.size() + 30;  // too small for the record and its directory
    Bytes memory(capacity + 64, kGuard);
    std::copy(media.begin(), media.end(), memory.begin());
    TevBufferHandle* handle = initTEVUsedBuffer(memory.data(), int64_t(capacity), int64_t(media.size()));
    EXPECT_EQ(saveInto(handle, kAlpha), 0u);
    destroyTEVBuffer(handle);
    EXPECT_TRUE(std::equal(media.begin(), media.end(), memory.begin()));
    EXPECT_TRUE(std::all_of(memory.begin() + long(capacity), memory.end(), [](uint8_t b) { return b == kGuard; }));

    TempFile file(fakeJpeg(500));
    FILE* fp = fopen(file.c_str(), "rb");
    TevBufferHandle* small = initTEVBuffer(499);
    EXPECT_EQ(copyFpToBuffer(fp, small), 0);
    EXPECT_EQ(getTEVWriteSize(small), 0);
    EXPECT_TRUE(loggedError("TEVEncoderAPIsBuffer::copyFpToBuffer", "ret != ReadSize !!")) << dumpLog();
    destroyTEVBuffer(small);
    fclose(fp);
}

// The path is opened "w+b" before the handle is looked at: a handle with
// nothing to write still empties the file; a path that cannot be opened
// gives -1 whatever the handle.
TEST_F(BufferIoTest, WriteHandleToAPathOpensItFirst) {
    Bytes memory(16, 1);
    TevBufferHandle* unused = initTEVAllocatedBuffer(memory.data(), int64_t(memory.size()));
    TempFile out(textBytes("keep me"));
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(WriteHandle_FilePath(out.c_str(), unused), -2);
    EXPECT_EQ(WriteHandle_FilePath("/nonexistent/dir/out.bin", nullptr), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "WriteHandle : write size error \nfp null!!\n");
    EXPECT_EQ(out.read(), Bytes{});
    destroyTEVBuffer(unused);
}

}  // namespace
