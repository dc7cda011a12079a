// Memory buffer handles and the buffer family of the save API.
#include <cstdint>
#include <cstdio>
#include <limits>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/log_capture.h"
#include "tev/stream.h"

namespace {

using namespace tevtest;

Bytes handleBytes(TevBufferHandle* handle, int64_t count) {
    const auto* data = static_cast<const uint8_t*>(kbgetBuffer(handle));
    return Bytes(data, data + count);
}

using BufferHandleTest = LogCaptureTest;

TEST_F(BufferHandleTest, FailedWriteOrReadLeavesPositionAndSizeUnchanged) {
    TevBufferHandle* handle = _kbopen(8);
    EXPECT_EQ(_kbwriteInt32(1, handle), 4);
    EXPECT_EQ(_kbwriteInt16(2, handle), 2);
    EXPECT_EQ(_kbwriteInt32(3, handle), 0);
    EXPECT_EQ(_kbwriteInt32_endian(3, handle), 0);
    EXPECT_EQ(_kbwrite("abcd", -1, handle), 0);
    EXPECT_EQ(_kbtell(handle), 6);
    EXPECT_EQ(kbgetWriteSize(handle), 6);
    EXPECT_EQ(handleBytes(handle, 8), (Bytes{1, 0, 0, 0, 2, 0, 0, 0}));

    ASSERT_EQ(_kbseek(handle, 3, SEEK_SET), 3);
    uint8_t got[8] = {};
    EXPECT_EQ(_kbread(got, 4, handle), 0);  // inside the capacity, past the write size
    EXPECT_EQ(_kbread(got, std::numeric_limits<int64_t>::max(), handle), 0);
    EXPECT_EQ(_kbtell(handle), 3);
    ASSERT_EQ(_kbseek(handle, 1, SEEK_SET), 1);
    EXPECT_EQ(_kbwrite("z", 1, handle), 1);
    EXPECT_EQ(kbgetWriteSize(handle), 6);  // a rewrite inside keeps the high-water mark
    _kbclose(handle);
}

TEST_F(BufferHandleTest, SeekStaysInsideTheWrittenBytesAndTheCapacity) {
    TevBufferHandle* handle = _kbopen(8);
    ASSERT_EQ(_kbwriteInt32(0, handle), 4);
    EXPECT_EQ(_kbseek(handle, 4, SEEK_SET), 4);
    EXPECT_EQ(_kbseek(handle, 5, SEEK_SET), -1);
    EXPECT_EQ(_kbseek(handle, -1, SEEK_SET), -1);
    EXPECT_EQ(_kbseek(handle, -4, SEEK_CUR), 0);
    EXPECT_EQ(_kbseek(handle, -1, SEEK_CUR), -1);
    EXPECT_EQ(_kbseek(handle, std::numeric_limits<int64_t>::max(), SEEK_CUR), -1);
    EXPECT_EQ(_kbseek(handle, 0, SEEK_END), 4);
    EXPECT_EQ(_kbseek(handle, 1, SEEK_END), -1);
    EXPECT_EQ(_kbseek(handle, -2, SEEK_END), 2);
    EXPECT_EQ(_kbseek(handle, std::numeric_limits<int64_t>::min(), SEEK_END), -1);
    EXPECT_EQ(_kbseek(handle, 0, 9), -1);
    EXPECT_EQ(_kbtell(handle), 2);

    ASSERT_EQ(_kbseek(handle, 0, SEEK_END), 4);
    ASSERT_EQ(_kbwriteInt32(0, handle), 4);  // full
    EXPECT_EQ(_kbseek(handle, 8, SEEK_SET), 8);
    ASSERT_EQ(btruncate(handle, 9), -1);  // leaves a write size past the capacity
    EXPECT_EQ(_kbseek(handle, 9, SEEK_SET), -1);
    EXPECT_EQ(_kbseek(handle, 0, SEEK_END), -1);
    EXPECT_EQ(_kbtell(handle), 8);
    EXPECT_EQ(_kbseek(nullptr, 0, SEEK_SET), -1);
    _kbclose(handle);
}

TEST_F(BufferHandleTest, TruncateClearsTheTailAndSetsTheSizeBeforeJudgingTheLength) {
    TevBufferHandle* handle = _kbopen(8);
    const Bytes full{1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(_kbwrite(full.data(), 8, handle), 8);
    EXPECT_EQ(btruncate(handle, 3), 0);
    EXPECT_EQ(kbgetWriteSize(handle), 3);
    EXPECT_EQ(handleBytes(handle, 8), (Bytes{1, 2, 3, 0, 0, 0, 0, 0}));
    EXPECT_EQ(btruncate(handle, -1), -1);
    EXPECT_EQ(kbgetWriteSize(handle), -1);
    EXPECT_EQ(handleBytes(handle, 8), Bytes(8, 0));
    _kbclose(handle);
}

using BufferFamilyTest = LogCaptureTest;

TEST_F(BufferFamilyTest, UsedBufferIsReadableUpToTheUsedLength) {
    uint8_t memory[16] = {9, 8, 7, 6, 5};
    TevBufferHandle* handle = initTEVUsedBuffer(memory, sizeof memory, 5);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(getTEVWriteSize(handle), 5);
    EXPECT_EQ(getTEVBufferSize(handle), 16);
    uint8_t got[5] = {};
    EXPECT_EQ(_kbread(got, 5, handle), 5);
    EXPECT_EQ(Bytes(got, got + 5), (Bytes{9, 8, 7, 6, 5}));
    EXPECT_EQ(_kbread(got, 1, handle), 0);
    destroyTEVBuffer(handle);  // the caller's memory stays
    EXPECT_EQ(initTEVUsedBuffer(memory, 16, 17), nullptr);
}

TEST_F(BufferFamilyTest, AllocSizeAddsThePartsWithThePerRecordPartIn32Bits) {
    EXPECT_EQ(getTEVBufferAllocSize(1000, 1, 4, 0, 10), 1066);
    EXPECT_EQ(getTEVBufferAllocSize(0, -1, 0, 0, 0), 4);
    // 24 * 0x06000000 = 0x90000000: negative once sign-extended.
    EXPECT_EQ(getTEVBufferAllocSize(0, 0x06000000, 0, 0, 0), INT64_C(-1879048192) + 28);
    // 24 * 0x0B000000 = 0x108000000: the high bit is lost.
    EXPECT_EQ(getTEVBufferAllocSize(0, 0x0B000000, 0, 0, 0), INT64_C(0x08000000) + 28);
    EXPECT_EQ(getTEVBufferAllocSize(std::numeric_limits<int64_t>::max(), 0, 0, 0, 0), -1);
}

}  // namespace
