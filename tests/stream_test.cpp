// The three stream media: shared behaviour run over each of them, then what
// is particular to files, descriptors and buffers, and TevStream::Copy.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/log_capture.h"
#include "tev/stream.h"

namespace {

using tevtest::Bytes;
using tevtest::TempFile;

enum class Medium { File, Fd, Buffer };

std::string mediumName(const testing::TestParamInfo<Medium>& info) {
    switch (info.param) {
        case Medium::File: return "File";
        case Medium::Fd: return "Fd";
        case Medium::Buffer: return "Buffer";
    }
    return "Unknown";
}

Bytes pattern(size_t size) {
    Bytes out(size);
    for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(i * 7 + 3);
    return out;
}

// A stream of one medium holding `initial`, positioned at 0. Buffers get
// `spare` bytes of capacity beyond the initial content.
class MediumStream {
public:
    MediumStream(Medium medium, const Bytes& initial, int64_t spare = 64)
        : medium_(medium), file_(initial) {
        switch (medium) {
            case Medium::File:
                fp_ = _kfopen(file_.c_str(), "r+b");
                stream_.reset(new TevStreamFile(fp_));
                break;
            case Medium::Fd:
                fd_ = ::open(file_.c_str(), O_RDWR);
                stream_.reset(new TevStreamFD(fd_));
                break;
            case Medium::Buffer:
                handle_ = _kbopen(static_cast<int64_t>(initial.size()) + spare);
                _kbwrite(initial.data(), static_cast<int64_t>(initial.size()), handle_);
                _kbseek(handle_, 0, SEEK_SET);
                stream_.reset(new TevStreamBuffer(handle_));
                break;
        }
    }
    ~MediumStream() {
        stream_.reset();
        if (fp_ != nullptr) _kfclose(fp_);
        if (fd_ >= 0) ::close(fd_);
        _kbclose(handle_);
    }

    TevStream& stream() { return *stream_; }
    // Everything the medium holds now.
    Bytes contents() const {
        if (medium_ != Medium::Buffer) return file_.read();
        const auto* data = static_cast<const uint8_t*>(kbgetBuffer(handle_));
        return Bytes(data, data + kbgetWriteSize(handle_));
    }

private:
    Medium medium_;
    TempFile file_;
    FILE* fp_ = nullptr;
    int fd_ = -1;
    TevBufferHandle* handle_ = nullptr;
    std::unique_ptr<TevStream> stream_;
};

class StreamMediaTest : public tevtest::LogCaptureTest,
                        public testing::WithParamInterface<Medium> {};

TEST_P(StreamMediaTest, WritesIntegersInFixedByteOrder) {
    MediumStream medium(GetParam(), {});
    TevStream& s = medium.stream();
    EXPECT_EQ(s.writeInt32(0x01020304u), 4);
    EXPECT_EQ(s.writeInt32_endian(0x01020304u), 4);
    EXPECT_EQ(s.writeInt16(0x0102), 2);
    EXPECT_EQ(medium.contents(), (Bytes{4, 3, 2, 1, 1, 2, 3, 4, 2, 1}));
    EXPECT_EQ(s.tell(), 10);
}

TEST_P(StreamMediaTest, ReadsIntegersInHostOrder) {
    MediumStream medium(GetParam(), {4, 3, 2, 1, 2, 1, 0xAA});
    TevStream& s = medium.stream();
    uint32_t word = 0;
    int16_t half = 0;
    EXPECT_EQ(s.readInt32(&word), 4);
    EXPECT_EQ(word, 0x01020304u);
    EXPECT_EQ(s.readInt16(&half), 2);
    EXPECT_EQ(half, 0x0102);
    uint8_t rest[4] = {};
    EXPECT_EQ(s.read(rest, 1), 1);
    EXPECT_EQ(rest[0], 0xAA);
    EXPECT_EQ(s.tell(), 7);
}

TEST_P(StreamMediaTest, SeeksFromEachOriginAndReadsBack) {
    const Bytes content = pattern(10);
    MediumStream medium(GetParam(), content);
    TevStream& s = medium.stream();
    EXPECT_EQ(s.seek(2, SEEK_SET), 2);
    uint8_t got[3] = {};
    EXPECT_EQ(s.read(got, 3), 3);
    EXPECT_EQ(Bytes(got, got + 3), Bytes(content.begin() + 2, content.begin() + 5));
    EXPECT_EQ(s.seek(-1, SEEK_CUR), 4);
    EXPECT_EQ(s.seek(-4, SEEK_END), 6);
    EXPECT_EQ(s.tell(), 6);
    EXPECT_EQ(s.seek(0, SEEK_END), 10);
}

TEST_P(StreamMediaTest, OverwritesInPlaceAndTruncates) {
    MediumStream medium(GetParam(), pattern(10));
    TevStream& s = medium.stream();
    ASSERT_EQ(s.seek(1, SEEK_SET), 1);
    EXPECT_EQ(s.write("\x11\x22", 2), 2);
    EXPECT_EQ(s.truncate(4), 0);
    const Bytes content = pattern(10);
    EXPECT_EQ(medium.contents(), (Bytes{content[0], 0x11, 0x22, content[3]}));
    ASSERT_EQ(s.seek(1, SEEK_SET), 1);
    EXPECT_EQ(s.getWriteSize(), 4);
}

TEST_P(StreamMediaTest, ReportsItsTypeAndIsUsable) {
    MediumStream medium(GetParam(), {});
    const uint32_t expected[] = {TEV_STREAM_FILE, TEV_STREAM_FD, TEV_STREAM_BUFFER};
    EXPECT_EQ(medium.stream().GetStreamType(), expected[static_cast<int>(GetParam())]);
    EXPECT_TRUE(medium.stream().CheckError());
}

INSTANTIATE_TEST_SUITE_P(AllMedia, StreamMediaTest,
                         testing::Values(Medium::File, Medium::Fd, Medium::Buffer), mediumName);

// --- files and descriptors -------------------------------------------------

using FileStreamTest = tevtest::LogCaptureTest;

TEST_F(FileStreamTest, EndOfFileProbeFailsAtPositionZeroButKeepsPosition) {
    TempFile file(pattern(100));
    FILE* fp = _kfopen(file.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    {
        TevStreamFile s(fp);
        EXPECT_EQ(s.getWriteSize(), 0);
        EXPECT_TRUE(loggedError("TEVStream::TevStreamFile", "getWriteSize Error")) << dumpLog();
        EXPECT_EQ(s.tell(), 0);
        EXPECT_EQ(s.getAllocSize(), 0);
    }
    _kfclose(fp);
}

TEST_F(FileStreamTest, EndOfFileProbeAwayFromZeroGivesSizeAndKeepsPosition) {
    TempFile file(pattern(100));
    FILE* fp = _kfopen(file.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    {
        TevStreamFile s(fp);
        ASSERT_EQ(s.seek(1, SEEK_SET), 1);
        EXPECT_EQ(s.getWriteSize(), 100);
        EXPECT_EQ(s.getAllocSize(), 100);
        EXPECT_EQ(s.tell(), 1);
        EXPECT_TRUE(logLines().empty()) << dumpLog();
    }
    _kfclose(fp);
}

TEST_F(FileStreamTest, DescriptorProbeLogsUnderItsOwnTag) {
    TempFile file(pattern(100));
    const int fd = ::open(file.c_str(), O_RDONLY);
    ASSERT_GE(fd, 1);
    {
        TevStreamFD s(fd);
        EXPECT_EQ(s.getWriteSize(), 0);
        EXPECT_TRUE(loggedError("TEVStreamFile::TevStreamFile", "getWriteSize Error")) << dumpLog();
        ASSERT_EQ(s.seek(50, SEEK_SET), 50);
        EXPECT_EQ(s.getWriteSize(), 100);
        EXPECT_EQ(s.tell(), 50);
    }
    ::close(fd);
}

TEST_F(FileStreamTest, DescriptorStreamRewindsOnDestructionAndNeverCloses) {
    TempFile file(pattern(100));
    const int fd = ::open(file.c_str(), O_RDONLY);
    ASSERT_GE(fd, 1);
    {
        TevStreamFD s(fd);
        ASSERT_EQ(s.seek(60, SEEK_SET), 60);
        EXPECT_EQ(s.destroyPointer(), 0);
        EXPECT_TRUE(s.CheckError());
    }
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 0);
    EXPECT_NE(::fcntl(fd, F_GETFD), -1);
    ::close(fd);
}

TEST_F(FileStreamTest, FileStreamDestructionLeavesTheFileOpenAndRewound) {
    TempFile file(pattern(100));
    FILE* fp = _kfopen(file.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    {
        TevStreamFile s(fp);
        ASSERT_EQ(s.seek(70, SEEK_SET), 70);
    }
    EXPECT_EQ(::lseek(fileno(fp), 0, SEEK_CUR), 0);
    EXPECT_EQ(_kfclose(fp), 0);
}

TEST_F(FileStreamTest, DestroyPointerClosesTheFile) {
    TempFile file(pattern(10));
    FILE* fp = _kfopen(file.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    const int fd = fileno(fp);
    TevStreamFile s(fp);
    EXPECT_EQ(s.destroyPointer(), 0);
    EXPECT_FALSE(s.CheckError());
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
    uint8_t byte = 0;
    EXPECT_EQ(s.read(&byte, 1), 0);
    EXPECT_TRUE(loggedError("TEVStream::TevStreamFile", "mStreamFd  is NULL")) << dumpLog();
}

TEST_F(FileStreamTest, NullFileGivesAnUnusableStreamThatRefusesEverything) {
    TevStreamFile s(nullptr);
    EXPECT_FALSE(s.CheckError());
    EXPECT_NE(s.GetStreamType(), uint32_t{TEV_STREAM_FILE});
    uint8_t byte = 0;
    uint32_t word = 7;
    EXPECT_EQ(s.read(&byte, 1), 0);
    EXPECT_EQ(s.readInt32(&word), 0);
    EXPECT_EQ(s.write(&byte, 1), 0);
    EXPECT_EQ(s.writeInt32(1), 0);
    EXPECT_EQ(s.seek(0, SEEK_END), 0);
    EXPECT_EQ(s.truncate(0), 0);
    EXPECT_EQ(s.getWriteSize(), 0);
    EXPECT_TRUE(loggedError("TEVStream::TevStreamFile", "mStreamFd  is NULL")) << dumpLog();
    EXPECT_TRUE(loggedError("TEVStream::TevStreamFile", "getWriteSize Error")) << dumpLog();
}

// --- buffers ------------------------------------------------------------------

using BufferStreamTest = tevtest::LogCaptureTest;

TEST_F(BufferStreamTest, FullBufferRefusesAWriteAndKeepsItsState) {
    TevBufferHandle* handle = _kbopen(8);
    TevStreamBuffer s(handle);
    EXPECT_EQ(s.writeInt32(1), 4);
    EXPECT_EQ(s.writeInt32(2), 4);
    EXPECT_EQ(s.writeInt32(3), 0);
    EXPECT_EQ(s.writeInt32_endian(3), 0);
    EXPECT_EQ(s.writeInt16(3), 0);
    EXPECT_EQ(s.tell(), 8);
    EXPECT_EQ(s.getWriteSize(), 8);
    EXPECT_EQ(s.getAllocSize(), 8);
    s.destroyPointer();
}

TEST_F(BufferStreamTest, SeekStaysInsideTheWrittenBytes) {
    TevBufferHandle* handle = _kbopen(16);
    TevStreamBuffer s(handle);
    ASSERT_EQ(s.writeInt16(0x0102), 2);
    EXPECT_EQ(s.seek(4, SEEK_SET), -1);
    EXPECT_EQ(s.seek(0, SEEK_END), 2);
    EXPECT_EQ(s.seek(1, SEEK_END), -1);
    EXPECT_EQ(s.seek(-3, SEEK_END), -1);
    EXPECT_EQ(s.seek(-1, SEEK_CUR), 1);
    EXPECT_EQ(s.seek(2, SEEK_CUR), -1);
    EXPECT_EQ(s.seek(0, 3), -1);
    EXPECT_EQ(s.tell(), 1);
    s.destroyPointer();
}

TEST_F(BufferStreamTest, ReadStopsAtTheWriteSize) {
    TevBufferHandle* handle = _kbopen(16);
    TevStreamBuffer s(handle);
    ASSERT_EQ(s.writeInt32(0x01020304u), 4);
    ASSERT_EQ(s.seek(0, SEEK_SET), 0);
    uint8_t got[8] = {};
    EXPECT_EQ(s.read(got, 8), 0);
    EXPECT_EQ(s.tell(), 0);
    EXPECT_EQ(s.read(got, 4), 4);
    uint32_t word = 0;
    EXPECT_EQ(s.readInt32(&word), 0);
    s.destroyPointer();
}

TEST_F(BufferStreamTest, DestructionKeepsTheHandleAndDestroyPointerReleasesIt) {
    TevBufferHandle* handle = _kbopen(4);
    delete new TevStreamBuffer(handle);
    EXPECT_EQ(kbgetBufferSize(handle), 4);
    TevStreamBuffer s(handle);
    EXPECT_EQ(s.destroyPointer(), 0);
    EXPECT_FALSE(s.CheckError());
    EXPECT_EQ(s.writeInt32(1), 0);
    EXPECT_EQ(s.getWriteSize(), -1);
}

// --- Copy ---------------------------------------------------------------------

class StreamCopyTest : public tevtest::LogCaptureTest {
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
    MediumStream src(Medium::File, content);
    MediumStream dst(Medium::Buffer, {0xEE}, 10000);
    ASSERT_EQ(src.stream().seek(500, SEEK_SET), 500);
    ASSERT_EQ(dst.stream().seek(1, SEEK_SET), 1);
    EXPECT_EQ(copy(&dst.stream(), &src.stream(), 10000), 1);
    Bytes expected{0xEE};
    expected.insert(expected.end(), content.begin(), content.end());
    EXPECT_EQ(dst.contents(), expected);
    EXPECT_EQ(src.stream().tell(), 0);
    EXPECT_TRUE(printed_.empty());
}

TEST_F(StreamCopyTest, RefusesArgumentsInOrder) {
    MediumStream good(Medium::Buffer, pattern(8));
    TevStreamFile closedFile(nullptr);
    TevStreamBuffer noHandle(nullptr);
    TevStream& src = good.stream();
    ASSERT_EQ(src.seek(3, SEEK_SET), 3);

    EXPECT_EQ(copy(nullptr, nullptr, 0), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "size_of_byte <= 0 !!"));
    ASSERT_EQ(logLines().size(), 1u) << dumpLog();
    EXPECT_EQ(copy(nullptr, &src, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "dst stream NULL !!"));
    EXPECT_EQ(src.tell(), 0);
    EXPECT_EQ(copy(&closedFile, nullptr, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "dst stream CheckError false"));
    EXPECT_EQ(copy(&src, nullptr, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "src stream NULL !!"));
    EXPECT_EQ(copy(&src, &noHandle, 4), 0);
    EXPECT_TRUE(loggedError("TevStream::Copy", "src stream CheckError false"));
    EXPECT_EQ(logLines().size(), 5u) << dumpLog();
}

TEST_F(StreamCopyTest, ShortSourcePrintsReadErrorAndRewinds) {
    MediumStream src(Medium::Fd, pattern(10));
    MediumStream dst(Medium::Buffer, {}, 64);
    ASSERT_EQ(src.stream().seek(5, SEEK_SET), 5);
    EXPECT_EQ(copy(&dst.stream(), &src.stream(), 20), -1);
    EXPECT_EQ(printed_, "TevStream::Copy : read error \n");
    EXPECT_EQ(src.stream().tell(), 0);
}

TEST_F(StreamCopyTest, FullDestinationPrintsWriteError) {
    MediumStream src(Medium::Buffer, pattern(10));
    MediumStream dst(Medium::Buffer, {}, 5);
    EXPECT_EQ(copy(&dst.stream(), &src.stream(), 10), -1);
    EXPECT_EQ(printed_, "TevStream::Copy : write error \n");
    EXPECT_EQ(dst.stream().getWriteSize(), 0);
    EXPECT_EQ(src.stream().tell(), 0);
}

}  // namespace
