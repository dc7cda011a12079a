// The three stream media: byte order and positioning run over each of them,
// what is particular to file, descriptor and buffer streams, and
// TevStream::Copy.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/stream.h"

namespace {

using namespace tevtest;

using StreamTest = LogCaptureTest;

TEST_F(StreamTest, IntegersHaveAFixedByteOrderOnEveryMedium) {
    const uint32_t kTypes[] = {TEV_STREAM_BUFFER, TEV_STREAM_FILE, TEV_STREAM_FD};
    for (const Medium& medium : kStreamMedia) {
        const uint32_t type = kTypes[&medium - kStreamMedia];
        SCOPED_TRACE(mediumName(medium));
        StreamOver over(medium, {}, 16);
        TevStream& s = *over.get();
        EXPECT_EQ(s.GetStreamType(), type);
        EXPECT_EQ(s.writeInt32(0x01020304u), 4);
        EXPECT_EQ(s.writeInt32_endian(0x01020304u), 4);
        EXPECT_EQ(s.writeInt16(0x0102), 2);
        EXPECT_EQ(over.contents(), (Bytes{4, 3, 2, 1, 1, 2, 3, 4, 2, 1}));
        uint32_t word = 0;
        int16_t half = 0;
        ASSERT_EQ(s.seek(0, SEEK_SET), 0);
        EXPECT_EQ(s.readInt32(&word), 4);
        EXPECT_EQ(word, 0x01020304u);
        ASSERT_EQ(s.seek(8, SEEK_SET), 8);
        EXPECT_EQ(s.readInt16(&half), 2);
        EXPECT_EQ(half, 0x0102);
    }
}

TEST_F(StreamTest, SeeksOverwritesAndTruncatesOnEveryMedium) {
    const Bytes content = pattern(10);
    for (Medium medium : kStreamMedia) {
        SCOPED_TRACE(mediumName(medium));
        StreamOver over(medium, content);
        TevStream& s = *over.get();
        EXPECT_EQ(s.seek(-4, SEEK_END), 6);
        EXPECT_EQ(s.seek(-5, SEEK_CUR), 1);
        EXPECT_EQ(s.write("\x11\x22", 2), 2);
        EXPECT_EQ(s.tell(), 3);
        EXPECT_EQ(s.truncate(4), 0);
        EXPECT_EQ(over.contents(), (Bytes{content[0], 0x11, 0x22, content[3]}));
    }
}

TEST_F(StreamTest, EndOfFileProbeFailsAtPositionZeroButKeepsThePosition) {
    const struct {
        Medium medium;
        const char* tag;
    } kCases[] = {{Medium::FilePtr, "TEVStream::TevStreamFile"}, {Medium::Fd, "TEVStreamFile::TevStreamFile"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.tag);
        clearLog();
        StreamOver over(c.medium, pattern(100));
        TevStream& s = *over.get();
        EXPECT_EQ(s.getWriteSize(), 0);
        EXPECT_EQ(s.tell(), 0);
        EXPECT_TRUE(loggedError(c.tag, "getWriteSize Error")) << dumpLog();
        ASSERT_EQ(s.seek(1, SEEK_SET), 1);
        EXPECT_EQ(s.getWriteSize(), 100);
        EXPECT_EQ(s.getAllocSize(), 100);
        EXPECT_EQ(s.tell(), 1);
        EXPECT_EQ(logLines().size(), 1u) << dumpLog();
    }
}

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

class StreamCopyTest : public LogCaptureTest {
protected:
    // Runs Copy with standard output captured.
    int copy(TevStream* dst, TevStream* src, int64_t size) {
        testing::internal::CaptureStdout();
        const int result = TevStream::Copy(dst, src, size);
        printed_ = testing::internal::GetCapturedStdout();
        return result;
    }
    std::string printed_;
};

TEST_F(StreamCopyTest, CopiesFromTheSourceStartToTheDestinationPositionAndRewinds) {
    const Bytes content = pattern(10000);  // several stack chunks and a partial one
    StreamOver src(Medium::FilePtr, content);
    StreamOver dst(Medium::Buffer, {0xEE}, 10000);
    ASSERT_EQ(src.get()->seek(500, SEEK_SET), 500);
    ASSERT_EQ(dst.get()->seek(1, SEEK_SET), 1);
    EXPECT_EQ(copy(dst.get(), src.get(), 10000), 1);
    Bytes expected{0xEE};
    expected.insert(expected.end(), content.begin(), content.end());
    EXPECT_EQ(dst.contents(), expected);
    EXPECT_EQ(src.get()->tell(), 0);
    EXPECT_TRUE(printed_.empty());
}

TEST_F(StreamCopyTest, RefusesArgumentsInOrder) {
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
}

TEST_F(StreamCopyTest, ShortReadOrWritePrintsTheErrorAndRewindsTheSource) {
    StreamOver src(Medium::Fd, pattern(10));
    StreamOver roomy(Medium::Buffer, {}, 64);
    ASSERT_EQ(src.get()->seek(5, SEEK_SET), 5);
    EXPECT_EQ(copy(roomy.get(), src.get(), 20), -1);
    EXPECT_EQ(printed_, "TevStream::Copy : read error \n");
    EXPECT_EQ(src.get()->tell(), 0);

    StreamOver small(Medium::Buffer, {}, 4);
    EXPECT_EQ(copy(small.get(), src.get(), 10), -1);
    EXPECT_EQ(printed_, "TevStream::Copy : write error \n");
    EXPECT_TRUE(small.contents().empty());
}

}  // namespace
