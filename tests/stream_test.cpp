// The stream contract over every stream medium, what is particular to file,
// descriptor and buffer streams, TevStream::Copy, and the _k layer beneath.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/stream.h"

namespace {

using namespace tevtest;

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

// A medium with its stream type and the tag its end-of-file probe logs
// under (none for a buffer, whose size is the handle's write size).
struct StreamCase {
    Medium medium;
    uint32_t type;
    const char* probeTag;
};

class StreamContract : public LogCaptureTest, public ::testing::WithParamInterface<StreamCase> {};

TEST_P(StreamContract, IntegersHaveAFixedByteOrderAndSeeksOverwriteAndTruncate) {
    StreamOver over(GetParam().medium, {}, 16);
    TevStream& s = *over.get();
    EXPECT_EQ(s.GetStreamType(), GetParam().type);
    EXPECT_EQ(s.writeInt32(0x01020304u), 4);
    EXPECT_EQ(s.writeInt32_endian(0x01020304u), 4);
    EXPECT_EQ(s.writeInt16(0x0102), 2);
    EXPECT_EQ(over.contents(), (Bytes{4, 3, 2, 1, 1, 2, 3, 4, 2, 1}));
    uint32_t word = 0;
    int16_t half = 0;
    EXPECT_EQ(s.seek(-10, SEEK_END), 0);
    EXPECT_EQ(s.readInt32(&word), 4);
    EXPECT_EQ(word, 0x01020304u);
    EXPECT_EQ(s.seek(4, SEEK_CUR), 8);
    EXPECT_EQ(s.readInt16(&half), 2);
    EXPECT_EQ(half, 0x0102);
    EXPECT_EQ(s.read(&word, 1), 0);  // at the end: nothing, and the position stays
    EXPECT_EQ(s.readInt32(&word), 0);
    EXPECT_EQ(s.tell(), 10);
    EXPECT_EQ(s.seek(-9, SEEK_END), 1);
    EXPECT_EQ(s.write("\x11\x22", 2), 2);
    EXPECT_EQ(s.tell(), 3);
    EXPECT_EQ(s.truncate(4), 0);
    EXPECT_EQ(over.contents(), (Bytes{4, 0x11, 0x22, 1}));
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(StreamContract, FileSizeProbeFailsAtPositionZeroButKeepsThePosition) {
    StreamOver over(GetParam().medium, pattern(100));
    TevStream& s = *over.get();
    const char* tag = GetParam().probeTag;
    EXPECT_EQ(s.getWriteSize(), tag ? 0 : 100);
    EXPECT_EQ(s.tell(), 0);
    EXPECT_TRUE(!tag || loggedError(tag, "getWriteSize Error")) << dumpLog();
    ASSERT_EQ(s.seek(1, SEEK_SET), 1);
    EXPECT_EQ(s.getWriteSize(), 100);
    EXPECT_EQ(s.getAllocSize(), 100);
    EXPECT_EQ(s.tell(), 1);
    EXPECT_EQ(logLines().size(), tag ? 1u : 0u) << dumpLog();
}

TEST_P(StreamContract, CopyTakesTheSourceFromItsStartToTheDestinationPositionAndRewinds) {
    const Bytes content = pattern(10000);  // several stack chunks and a partial one
    StreamOver src(GetParam().medium, content);
    StreamOver dst(GetParam().medium, {0xEE}, 10000);
    ASSERT_EQ(src.get()->seek(500, SEEK_SET), 500);
    ASSERT_EQ(dst.get()->seek(1, SEEK_SET), 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(TevStream::Copy(dst.get(), src.get(), 10000), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    Bytes expected = content;
    expected.insert(expected.begin(), 0xEE);
    EXPECT_EQ(dst.contents(), expected);
    EXPECT_EQ(src.get()->tell(), 0);
}

INSTANTIATE_TEST_SUITE_P(Media, StreamContract,
                         ::testing::Values(StreamCase{Medium::Buffer, TEV_STREAM_BUFFER, nullptr},
                                           StreamCase{Medium::FilePtr, TEV_STREAM_FILE, "TEVStream::TevStreamFile"},
                                           StreamCase{Medium::Fd, TEV_STREAM_FD, "TEVStreamFile::TevStreamFile"}),
                         [](const auto& info) { return mediumName(info.param.medium); });

using StreamTest = LogCaptureTest;

TEST_F(StreamTest, FileStreamsRewindOnDestructionAndOnlyDestroyPointerClosesTheFile) {
    TempFile file(pattern(100));
    FILE* fp = _kfopen(file.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    const int fd = fileno(fp);
    {
        TevStreamFile s(fp);
        ASSERT_EQ(s.seek(70, SEEK_SET), 70);
    }
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 0);
    {
        TevStreamFD s(fd);
        ASSERT_EQ(s.seek(60, SEEK_SET), 60);
        EXPECT_EQ(s.destroyPointer(), 0);
    }
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 0);
    TevStreamFile closing(fp);
    EXPECT_EQ(closing.destroyPointer(), 0);
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
    TevStreamFile none(nullptr);
    for (TevStream* s : {static_cast<TevStream*>(&closing), static_cast<TevStream*>(&none)}) {
        uint8_t byte = 0;
        EXPECT_FALSE(s->CheckError());
        EXPECT_EQ(s->read(&byte, 1), 0);
        EXPECT_EQ(s->write(&byte, 1), 0);
    }
    EXPECT_TRUE(loggedError("TEVStream::TevStreamFile", "mStreamFd  is NULL")) << dumpLog();
}

TEST_F(StreamTest, BufferStreamLeavesItsHandleUntilDestroyPointer) {
    TevBufferHandle* handle = _kbopen(4);
    delete new TevStreamBuffer(handle);
    EXPECT_EQ(kbgetBufferSize(handle), 4);
    TevStreamBuffer s(handle);
    EXPECT_EQ(s.destroyPointer(), 0);  // frees the handle: a leak shows under the sanitizer
    EXPECT_FALSE(s.CheckError());
    EXPECT_EQ(s.writeInt32(1), 0);
}

TEST_F(StreamTest, CopyRefusesArgumentsInOrderAndStopsAtAShortReadOrWrite) {
    std::string printed;
    const auto copy = [&printed](TevStream* dst, TevStream* src, int64_t size) {
        testing::internal::CaptureStdout();
        const int result = TevStream::Copy(dst, src, size);
        printed = testing::internal::GetCapturedStdout();
        return result;
    };
    StreamOver good(Medium::Buffer, pattern(8));
    TevStreamFile closedFile(nullptr);
    TevStreamBuffer noHandle(nullptr);
    TevStream* src = good.get();
    ASSERT_EQ(src->seek(3, SEEK_SET), 3);
    EXPECT_EQ(copy(nullptr, nullptr, 0), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "size_of_byte <= 0 !!"));
    ASSERT_EQ(logLines().size(), 1u) << dumpLog();
    EXPECT_EQ(copy(nullptr, src, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "dst stream NULL !!"));
    EXPECT_EQ(src->tell(), 0);
    EXPECT_EQ(copy(&closedFile, nullptr, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "dst stream CheckError false"));
    EXPECT_EQ(copy(src, nullptr, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "src stream NULL !!"));
    EXPECT_EQ(copy(src, &noHandle, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "src stream CheckError false"));
    EXPECT_EQ(logLines().size(), 5u) << dumpLog();
    EXPECT_TRUE(printed.empty());

    StreamOver shortSource(Medium::Fd, pattern(10));
    StreamOver roomy(Medium::Buffer, {}, 64);
    ASSERT_EQ(shortSource.get()->seek(5, SEEK_SET), 5);
    EXPECT_EQ(copy(roomy.get(), shortSource.get(), 20), -1);
    EXPECT_EQ(printed, "TevStream::Copy : read error \n");
    EXPECT_EQ(shortSource.get()->tell(), 0);
    StreamOver small(Medium::Buffer, {}, 4);
    EXPECT_EQ(copy(small.get(), shortSource.get(), 10), -1);
    EXPECT_EQ(printed, "TevStream::Copy : write error \n");
    EXPECT_TRUE(small.contents().empty());
}

Bytes handleBytes(TevBufferHandle* handle, int64_t count) {
    const auto* data = static_cast<const uint8_t*>(kbgetBuffer(handle));
    return Bytes(data, data + count);
}

TEST_F(StreamTest, FailedBufferWriteOrReadLeavesPositionAndSizeUnchanged) {
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
    EXPECT_EQ(_kbread(got, kMax, handle), 0);
    EXPECT_EQ(_kbtell(handle), 3);
    ASSERT_EQ(_kbseek(handle, 1, SEEK_SET), 1);
    EXPECT_EQ(_kbwrite("z", 1, handle), 1);
    EXPECT_EQ(kbgetWriteSize(handle), 6);  // a rewrite inside keeps the high-water mark
    _kbclose(handle);
}

TEST_F(StreamTest, BufferSeekStaysInsideTheWrittenBytesAndTheCapacity) {
    TevBufferHandle* handle = _kbopen(8);
    ASSERT_EQ(_kbwriteInt32(0, handle), 4);
    // From position 2 of 4 bytes written into 8.
    const struct {
        int64_t offset;
        int whence;
        int64_t result;
    } kSeeks[] = {{4, SEEK_SET, 4},        {5, SEEK_SET, -1},    {-1, SEEK_SET, -1},
                  {-2, SEEK_CUR, 0},       {-3, SEEK_CUR, -1},   {kMax, SEEK_CUR, -1},
                  {0, SEEK_END, 4},        {1, SEEK_END, -1},    {-3, SEEK_END, 1},
                  {-kMax - 1, SEEK_END, -1}, {0, 9, -1}};
    for (const auto& c : kSeeks) {
        ASSERT_EQ(_kbseek(handle, 2, SEEK_SET), 2);
        EXPECT_EQ(_kbseek(handle, c.offset, c.whence), c.result) << c.offset << " from " << c.whence;
        EXPECT_EQ(_kbtell(handle), c.result < 0 ? 2 : c.result);
    }
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

TEST_F(StreamTest, TruncateClearsTheTailAndSetsTheSizeBeforeJudgingTheLength) {
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

TEST_F(StreamTest, UsedBufferIsReadableUpToTheUsedLength) {
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

TEST_F(StreamTest, AllocSizeAddsThePartsWithThePerRecordPartIn32Bits) {
    EXPECT_EQ(getTEVBufferAllocSize(1000, 1, 4, 0, 10), 1066);
    EXPECT_EQ(getTEVBufferAllocSize(0, -1, 0, 0, 0), 4);
    // 24 * 0x06000000 = 0x90000000: negative once sign-extended.
    EXPECT_EQ(getTEVBufferAllocSize(0, 0x06000000, 0, 0, 0), INT64_C(-1879048192) + 28);
    // 24 * 0x0B000000 = 0x108000000: the high bit is lost.
    EXPECT_EQ(getTEVBufferAllocSize(0, 0x0B000000, 0, 0, 0), INT64_C(0x08000000) + 28);
    EXPECT_EQ(getTEVBufferAllocSize(kMax, 0, 0, 0, 0), -1);
}

using SystemIoTest = LogCaptureTest;

TEST_F(SystemIoTest, FileIntegersUseFixedOrderAndBypassStdioBuffers) {
    TempFile file;
    FILE* fp = _kfopen(file.c_str(), "r+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(_kfwriteInt32(0x01020304u, fp), 4);
    EXPECT_EQ(_kfwriteInt32_endian(0x01020304u, fp), 4);
    EXPECT_EQ(_kfwriteInt16(0x0102, fp), 2);
    EXPECT_EQ(file.read(), (Bytes{4, 3, 2, 1, 1, 2, 3, 4, 2, 1}));  // no fflush
    EXPECT_EQ(_kftell(fp), 10);
    uint32_t word = 0;
    int16_t half = 0;
    ASSERT_EQ(_kfseek(fp, 0, SEEK_SET), 0);
    EXPECT_EQ(_kfreadInt32(&word, fp), 4);
    EXPECT_EQ(word, 0x01020304u);
    ASSERT_EQ(_kfseek(fp, 8, SEEK_SET), 8);
    EXPECT_EQ(_kfreadInt16(&half, fp), 2);
    EXPECT_EQ(half, 0x0102);
    EXPECT_EQ(_kfreadInt16(&half, fp), 0);
    EXPECT_EQ(_kfreadInt32(nullptr, fp), 0);
    EXPECT_EQ(_kftell(fp), 10);
    _kfclose(fp);
    fp = _kfopen(file.c_str(), "rb");
    EXPECT_EQ(_kfwrite("abcd", 4, fp), -1);
    EXPECT_TRUE(loggedError("TEVSystemFile::_kfwrite", "write ret != write size_of_byte  ==> fail(-1 != 4)"))
        << dumpLog();
    EXPECT_EQ(_kfseek(fp, -5, SEEK_SET), -1);
    EXPECT_TRUE(loggedError("_klseek", "errno : " + std::to_string(EINVAL))) << dumpLog();
    _kfclose(fp);
}

TEST_F(SystemIoTest, BlockCopiesMoveSeveralChunksBetweenCurrentPositions) {
    constexpr size_t kCopySize = 0x10000 * 2 + 100;  // two full 64 KiB chunks and a partial one
    const Bytes source = pattern(kCopySize + 10);
    Bytes expected{0xAA, 0xBB};
    expected.insert(expected.end(), source.begin() + 10, source.end());
    for (const bool onDescriptors : {false, true}) {
        TempFile src(source);
        TempFile dst({0xAA, 0xBB, 0xCC});
        FILE* in = _kfopen(src.c_str(), "rb");
        FILE* out = _kfopen(dst.c_str(), "r+b");
        ASSERT_EQ(_kfseek(in, 10, SEEK_SET), 10);
        ASSERT_EQ(_kfseek(out, 2, SEEK_SET), 2);
        const auto copy = [&](int64_t size) {
            return onDescriptors ? _kfdcopy(fileno(out), fileno(in), size) : _kfilecopy(out, in, size);
        };
        EXPECT_EQ(copy(kCopySize), 1);
        EXPECT_EQ(dst.read(), expected);
        EXPECT_EQ(copy(0), 0);
        _kfclose(in);
        _kfclose(out);
    }
}

TEST_F(SystemIoTest, DescriptorZeroIsRefusedWithoutTouchingIt) {
    // A real file behind descriptor 0 would show a wrapper that used it in
    // the file's position or content.
    TempFile file(pattern(16));
    const int saved = ::dup(0);
    const int fd = ::open(file.c_str(), O_RDWR);
    ASSERT_GE(fd, 1);
    ASSERT_EQ(::dup2(fd, 0), 0);
    uint8_t buffer[4] = {0x5A, 0x5A, 0x5A, 0x5A};
    EXPECT_EQ(_kfdread(0, buffer, 4), 0);
    EXPECT_EQ(_kfdwrite(0, buffer, 4), 0);
    EXPECT_EQ(_kfdseek(0, 4, SEEK_SET), -1);
    EXPECT_EQ(_kfdcopy(fd, 0, 4), 0);
    EXPECT_EQ(_kfdcopy(0, fd, 4), 0);
    const off_t position = ::lseek(0, 0, SEEK_CUR);
    if (saved >= 0) ::dup2(saved, 0);
    ::close(saved >= 0 ? saved : 0);
    ::close(fd);
    EXPECT_EQ(position, 0);
    EXPECT_EQ(buffer[0], 0x5A);
    EXPECT_EQ(file.read(), pattern(16));
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(SystemIoTest, MemoryStringAndPathHelpers) {
    EXPECT_EQ(getExtIndex("a.b.jpg"), 3);
    EXPECT_EQ(getExtIndex("abc"), 2);
    EXPECT_EQ(getExtIndex(""), -1);
    EXPECT_EQ(getExtIndex(nullptr), -1);
    // The sanitizer fills fresh allocations with garbage: a missing clear shows there.
    auto* text = static_cast<char*>(_kmalloc(4096));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(Bytes(text, text + 4096), Bytes(4096, 0));
    EXPECT_EQ(_kmemcpy(text, "xyz!", 3), text);
    EXPECT_EQ(_kmemcpy(text, "q", 0), nullptr);
    EXPECT_EQ(_kmemcpy(nullptr, "q", 1), nullptr);
    EXPECT_EQ(_kstrcat(text, ".jpg"), text);
    EXPECT_STREQ(text, "xyz.jpg");
    EXPECT_EQ(getStringLen(text), 7u);
    EXPECT_EQ(_kstrcpy(text, "ab"), text);
    EXPECT_EQ(Bytes(text, text + 4), (Bytes{'a', 'b', 0, '.'}));
    EXPECT_LT(_kstrcmp(text, "ac"), 0);
    EXPECT_EQ(_kstrcmp(text, "ab"), 0);
    EXPECT_EQ(_kstrcpy(nullptr, "a"), nullptr);
    EXPECT_EQ(_kstrcat(text, nullptr), nullptr);
    EXPECT_STREQ(text, "ab");
    _kfree(text);
    TempFile file({1});
    const std::string moved = file.path() + ".moved";
    EXPECT_EQ(_krename(file.c_str(), moved.c_str()), 0);
    EXPECT_EQ(readFile(moved), Bytes{1});
    EXPECT_EQ(_kremove(moved.c_str()), 0);
    EXPECT_EQ(_kremove(moved.c_str()), -1);
}

}  // namespace
