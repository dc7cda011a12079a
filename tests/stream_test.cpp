// The stream contract over every stream medium, what is particular to file,
// descriptor and buffer streams, TevStream::Copy, and the _k layer beneath.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/stream.h"

namespace {

using namespace tevtest;

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
using Results = std::vector<int64_t>;

class StreamContract : public LogCaptureTest, public ::testing::WithParamInterface<Medium> {};

const Bytes kContent = pattern(10);
constexpr const char* kSeekLog = "errno : 22";  // EINVAL
constexpr const char* kProbeLog = "getWriteSize Error";

Bytes contentWith(size_t at, const Bytes& part) {
    Bytes bytes = kContent;
    std::copy(part.begin(), part.end(), bytes.begin() + at);
    return bytes;
}

// One call at position 2 of kContent (buffer capacity 12): result and position on a
// buffer and on a file, the bytes it leaves (none: unchanged) and what a file logs.
struct Step {
    const char* what;
    std::function<int64_t(TevStream&)> call;
    int64_t onBuffer, onFile, bufferAt, fileAt;
    Bytes after = {};
    const char* fileLog = nullptr;
};

const Step kSteps[] = {
    {"writeInt32", [](TevStream& s) { return s.writeInt32(0x01020304u); }, 4, 4, 6, 6,
     contentWith(2, {4, 3, 2, 1})},
    {"writeInt32_endian", [](TevStream& s) { return s.writeInt32_endian(0x01020304u); }, 4, 4, 6, 6,
     contentWith(2, {1, 2, 3, 4})},
    {"writeInt16", [](TevStream& s) { return s.writeInt16(0x0102); }, 2, 2, 4, 4, contentWith(2, {2, 1})},
    {"write", [](TevStream& s) { return s.write("\x11\x22", 2); }, 2, 2, 4, 4, contentWith(2, {0x11, 0x22})},
    {"readInt32", [](TevStream& s) { uint32_t w = 0; return s.readInt32(&w) == 4 ? int64_t{w} : -1; },
     readU32le(kContent, 2), readU32le(kContent, 2), 6, 6},
    {"readInt16", [](TevStream& s) { int16_t h = 0; return s.readInt16(&h) == 2 ? int64_t{uint16_t(h)} : -1; },
     kContent[2] | kContent[3] << 8, kContent[2] | kContent[3] << 8, 4, 4},
    {"read past the end", [](TevStream& s) { uint8_t b[4]; s.seek(8, SEEK_SET); return s.read(b, 4); }, 0, 2, 8, 10},
    {"read at the end", [](TevStream& s) { uint32_t w; s.seek(10, SEEK_SET); return s.readInt32(&w); }, 0, 0, 10, 10},
    {"seek set", [](TevStream& s) { return s.seek(4, SEEK_SET); }, 4, 4, 4, 4},
    {"seek set past the data", [](TevStream& s) { return s.seek(11, SEEK_SET); }, -1, 11, 2, 11},
    {"seek set before 0", [](TevStream& s) { return s.seek(-1, SEEK_SET); }, -1, -1, 2, 2, {}, kSeekLog},
    {"seek back to 0", [](TevStream& s) { return s.seek(-2, SEEK_CUR); }, 0, 0, 0, 0},
    {"seek back before 0", [](TevStream& s) { return s.seek(-3, SEEK_CUR); }, -1, -1, 2, 2, {}, kSeekLog},
    {"seek end", [](TevStream& s) { return s.seek(-3, SEEK_END); }, 7, 7, 7, 7},
    {"seek past the end", [](TevStream& s) { return s.seek(1, SEEK_END); }, -1, 11, 2, 11},
    {"seek far before the end", [](TevStream& s) { return s.seek(-kMax - 1, SEEK_END); }, -1, -1, 2, 2, {}, kSeekLog},
    {"seek whence 9", [](TevStream& s) { return s.seek(0, 9); }, -1, -1, 2, 2, {}, kSeekLog},
    {"truncate", [](TevStream& s) { return s.truncate(4); }, 0, 0, 2, 2,
     Bytes(kContent.begin(), kContent.begin() + 4)},
    {"size", [](TevStream& s) { return s.getWriteSize(); }, 10, 10, 2, 2},
    {"capacity", [](TevStream& s) { return s.getAllocSize(); }, 12, 10, 2, 2},
    {"size at 0", [](TevStream& s) { s.seek(0, SEEK_SET); return s.getWriteSize(); }, 10, 0, 0, 0, {}, kProbeLog},
};

TEST_P(StreamContract, EachCallGivesItsResultPositionBytesAndLogLine) {
    const bool onBuffer = GetParam() == Medium::Buffer;
    const bool onFd = GetParam() == Medium::Fd;
    const uint32_t type = onBuffer ? TEV_STREAM_BUFFER : onFd ? TEV_STREAM_FD : TEV_STREAM_FILE;
    const char* probeTag = onFd ? "TEVStreamFile::TevStreamFile" : "TEVStream::TevStreamFile";
    for (const Step& step : kSteps) {
        SCOPED_TRACE(step.what);
        StreamOver over(GetParam(), kContent, 2);
        TevStream& s = *over.get();
        EXPECT_EQ(s.GetStreamType(), type);
        ASSERT_EQ(s.seek(2, SEEK_SET), 2);
        clearLog();
        EXPECT_EQ((Results{step.call(s), s.tell()}),
                  (onBuffer ? Results{step.onBuffer, step.bufferAt} : Results{step.onFile, step.fileAt}));
        EXPECT_EQ(over.contents(), step.after.empty() ? kContent : step.after);
        const char* log = onBuffer ? nullptr : step.fileLog;
        const char* tag = log == kProbeLog ? probeTag : "_klseek";
        EXPECT_TRUE(log ? logLines().size() == 1 && loggedError(tag, log) : logLines().empty()) << dumpLog();
    }
}

INSTANTIATE_TEST_SUITE_P(Media, StreamContract, ::testing::ValuesIn(kStreamMedia), mediumName);

using StreamTest = LogCaptureTest;

TEST_F(StreamTest, FileStreamsRewindOnDestructionAndOnlyDestroyPointerClosesTheFile) {
    TempFile file(pattern(100));
    FILE* fp = _kfopen(file.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    const int fd = fileno(fp);
    uint32_t word = 0;
    EXPECT_EQ((Results{_kfreadInt32(nullptr, fp), _kfwrite("abcd", 4, fp)}), (Results{0, -1}));
    EXPECT_TRUE(loggedError("TEVSystemFile::_kfwrite", "write ret != write size_of_byte  ==> fail(-1 != 4)"))
        << dumpLog();
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
        EXPECT_FALSE(s->CheckError());
        EXPECT_EQ((Results{s->read(&word, 1), s->write(&word, 1)}), (Results{0, 0}));
    }
    EXPECT_TRUE(loggedError("TEVStream::TevStreamFile", "mStreamFd  is NULL")) << dumpLog();
}

// Copy takes the source from its start to the destination's position and
// rewinds the source; it refuses its arguments in order and stops at a short
// read or write.
TEST_F(StreamTest, CopyTakesTheWholeSourceOrStopsAtTheFirstRefusal) {
    const Bytes whole = pattern(10001);  // several stack chunks and a partial one
    StreamOver bigSource(Medium::FilePtr, Bytes(whole.begin() + 1, whole.end()));
    StreamOver bigTarget(Medium::Fd, {whole[0]});
    ASSERT_EQ(bigTarget.get()->seek(1, SEEK_SET), 1);
    StreamOver good(Medium::Buffer, pattern(8));
    StreamOver shortSource(Medium::Fd, pattern(10));
    StreamOver roomy(Medium::Buffer, {}, 64);
    StreamOver small(Medium::Buffer, {}, 4);
    TevStreamFile closedFile(nullptr);
    TevStreamBuffer noHandle(nullptr);
    // What each logs under "TevStream::Copy", or prints.
    const struct { TevStream *dst, *src; int64_t size; int result; const char *logged, *printed; } kCases[] = {
        {bigTarget.get(), bigSource.get(), 10000, 1, nullptr, ""},
        {nullptr, nullptr, 0, 0, "size_of_byte <= 0 !!", ""},
        {nullptr, good.get(), 4, 0, "dst stream NULL !!", ""},
        {&closedFile, nullptr, 4, 0, "dst stream CheckError false", ""},
        {good.get(), nullptr, 4, 0, "src stream NULL !!", ""},
        {good.get(), &noHandle, 4, 0, "src stream CheckError false", ""},
        {roomy.get(), shortSource.get(), 20, -1, nullptr, "TevStream::Copy : read error \n"},
        {small.get(), shortSource.get(), 10, -1, nullptr, "TevStream::Copy : write error \n"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        const bool usable = c.src != nullptr && c.src->CheckError();
        ASSERT_EQ(usable ? c.src->seek(3, SEEK_SET) : 3, 3);
        clearLog();
        testing::internal::CaptureStdout();
        EXPECT_EQ(TevStream::Copy(c.dst, c.src, c.size), c.result);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed);
        EXPECT_TRUE(c.logged ? logLines().size() == 1 && loggedError("TevStream::Copy", c.logged) : logLines().empty())
            << dumpLog();
        EXPECT_EQ(usable ? c.src->tell() : 0, 0);
    }
    EXPECT_TRUE(small.contents().empty());
    EXPECT_EQ(bigTarget.contents(), whole);
}

Bytes handleBytes(TevBufferHandle* handle, int64_t count) {
    const auto* data = static_cast<const uint8_t*>(kbgetBuffer(handle));
    return Bytes(data, data + count);
}

TEST_F(StreamTest, BufferHandleNeverPassesItsCapacityAndTruncateClearsTheTail) {
    TevBufferHandle* handle = _kbopen(8);
    delete new TevStreamBuffer(handle);  // leaves the handle
    EXPECT_EQ((Results{_kbwriteInt32(1, handle), _kbwriteInt16(2, handle), _kbwriteInt32(3, handle),
                       _kbwrite("abcd", -1, handle), _kbtell(handle), kbgetWriteSize(handle)}),
              (Results{4, 2, 0, 0, 6, 6}));
    EXPECT_EQ(handleBytes(handle, 8), (Bytes{1, 0, 0, 0, 2, 0, 0, 0}));
    uint8_t got[8] = {};
    // A rewrite inside keeps the high-water mark.
    EXPECT_EQ((Results{_kbseek(handle, 1, SEEK_SET), _kbread(got, kMax, handle), _kbseek(handle, kMax, SEEK_CUR),
                       _kbwrite("z", 1, handle), kbgetWriteSize(handle)}), (Results{1, 0, -1, 1, 6}));
    EXPECT_EQ(btruncate(handle, 3), 0);
    EXPECT_EQ(handleBytes(handle, 8), (Bytes{1, 'z', 0, 0, 0, 0, 0, 0}));
    // A length out of range is refused but set all the same.
    EXPECT_EQ((Results{btruncate(handle, 9), kbgetWriteSize(handle), _kbseek(handle, 0, SEEK_END),
                       btruncate(handle, -1), kbgetWriteSize(handle)}), (Results{-1, 9, -1, -1, -1}));
    EXPECT_EQ(handleBytes(handle, 8), Bytes(8, 0));
    TevStreamBuffer s(handle);
    EXPECT_EQ(s.destroyPointer(), 0);  // frees the handle: a leak shows under the sanitizer
    EXPECT_FALSE(s.CheckError());
    EXPECT_EQ(s.writeInt32(1), 0);
}

TEST_F(StreamTest, UsedBufferIsReadableUpToTheUsedLengthAndAllocSizeKeepsThePerRecordPartIn32Bits) {
    uint8_t memory[16] = {9, 8, 7, 6, 5};
    TevBufferHandle* handle = initTEVUsedBuffer(memory, sizeof memory, 5);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ((Results{getTEVWriteSize(handle), getTEVBufferSize(handle), _kbseek(handle, 6, SEEK_SET)}),
              (Results{5, 16, -1}));
    EXPECT_EQ(handleBytes(handle, 5), (Bytes{9, 8, 7, 6, 5}));
    destroyTEVBuffer(handle);  // the caller's memory stays
    EXPECT_EQ(initTEVUsedBuffer(memory, 16, 17), nullptr);

    // 24 * 0x06000000 = 0x90000000 is negative once sign-extended; of
    // 24 * 0x0B000000 = 0x108000000 the high bit is lost.
    EXPECT_EQ((Results{getTEVBufferAllocSize(1000, 1, 4, 0, 10), getTEVBufferAllocSize(0, -1, 0, 0, 0),
                       getTEVBufferAllocSize(0, 0x06000000, 0, 0, 0), getTEVBufferAllocSize(0, 0x0B000000, 0, 0, 0),
                       getTEVBufferAllocSize(kMax, 0, 0, 0, 0)}),
              (Results{1066, 4, INT64_C(-1879048192) + 28, INT64_C(0x08000000) + 28, -1}));
}

TEST_F(StreamTest, FileIntegersUseFixedOrderAndBypassStdioBuffers) {
    TempFile file;
    FILE* fp = _kfopen(file.c_str(), "r+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ((Results{_kfwriteInt32(0x01020304u, fp), _kfwriteInt32_endian(0x01020304u, fp),
                       _kfwriteInt16(0x0102, fp)}), (Results{4, 4, 2}));
    EXPECT_EQ(file.read(), (Bytes{4, 3, 2, 1, 1, 2, 3, 4, 2, 1}));  // no fflush
    uint32_t word = 0;
    int16_t half = 0, past = 0;
    ASSERT_EQ(_kfseek(fp, 4, SEEK_SET), 4);
    // A braced list is evaluated in order: each value is read after its call.
    EXPECT_EQ((Results{_kfreadInt32(&word, fp), word, _kfreadInt16(&half, fp), half, _kfreadInt16(&past, fp),
                       _kftell(fp)}), (Results{4, 0x04030201, 2, 0x0102, 0, 10}));
    _kfclose(fp);
}

TEST_F(StreamTest, BlockCopiesMoveSeveralChunksBetweenCurrentPositions) {
    constexpr size_t kCopySize = 0x10000 * 2 + 100;  // two full 64 KiB chunks and a partial one
    const Bytes source = pattern(kCopySize + 10);
    Bytes expected{0xAA, 0xBB};
    expected.insert(expected.end(), source.begin() + 10, source.end());
    for (const bool onDescriptors : {false, true}) {
        TempFile src(source), dst({0xAA, 0xBB, 0xCC});
        FILE *in = _kfopen(src.c_str(), "rb"), *out = _kfopen(dst.c_str(), "r+b");
        ASSERT_EQ(_kfseek(in, 10, SEEK_SET) + _kfseek(out, 2, SEEK_SET), 12);
        const auto copy = [&](int64_t size) {
            return onDescriptors ? _kfdcopy(fileno(out), fileno(in), size) : _kfilecopy(out, in, size);
        };
        EXPECT_EQ((Results{copy(kCopySize), copy(0)}), (Results{1, 0}));
        EXPECT_EQ(dst.read(), expected);
        _kfclose(in);
        _kfclose(out);
    }
}

TEST_F(StreamTest, DescriptorZeroIsRefusedWithoutTouchingIt) {
    // A real file behind descriptor 0 would show a wrapper that used it in
    // the file's position or content.
    TempFile file(pattern(16));
    const int saved = ::dup(0);
    const int fd = ::open(file.c_str(), O_RDWR);
    ASSERT_GE(fd, 1);
    ASSERT_EQ(::dup2(fd, 0), 0);
    uint8_t buffer[4] = {0x5A, 0x5A, 0x5A, 0x5A};
    EXPECT_EQ((Results{_kfdread(0, buffer, 4), _kfdwrite(0, buffer, 4), _kfdseek(0, 4, SEEK_SET), _kfdcopy(fd, 0, 4),
                       _kfdcopy(0, fd, 4), ::lseek(0, 0, SEEK_CUR), buffer[0]}), (Results{0, 0, -1, 0, 0, 0, 0x5A}));
    if (saved >= 0) ::dup2(saved, 0);
    ::close(saved >= 0 ? saved : 0);
    ::close(fd);
    EXPECT_EQ(file.read(), pattern(16));
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(StreamTest, MemoryStringAndPathHelpers) {
    EXPECT_EQ((Results{getExtIndex("a.b.jpg"), getExtIndex("abc"), getExtIndex(""), getExtIndex(nullptr)}),
              (Results{3, 2, -1, -1}));
    // The sanitizer fills fresh allocations with garbage: a missing clear shows there.
    auto* text = static_cast<char*>(_kmalloc(4096));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(Bytes(text, text + 4096), Bytes(4096, 0));
    using Pointers = std::vector<const void*>;
    EXPECT_EQ((Pointers{_kmemcpy(text, "xyz!", 3), _kmemcpy(text, "q", 0), _kmemcpy(nullptr, "q", 1),
                        _kstrcat(text, ".jpg")}), (Pointers{text, nullptr, nullptr, text}));
    EXPECT_STREQ(text, "xyz.jpg");
    EXPECT_EQ(getStringLen(text), 7u);
    EXPECT_EQ((Pointers{_kstrcpy(text, "ab"), _kstrcpy(nullptr, "a"), _kstrcat(text, nullptr)}),
              (Pointers{text, nullptr, nullptr}));
    EXPECT_EQ(Bytes(text, text + 4), (Bytes{'a', 'b', 0, '.'}));
    EXPECT_LT(_kstrcmp(text, "ac"), 0);
    EXPECT_EQ(_kstrcmp(text, "ab"), 0);
    _kfree(text);
    TempFile file({1});
    const std::string moved = file.path() + ".moved";
    EXPECT_EQ(_krename(file.c_str(), moved.c_str()), 0);
    EXPECT_EQ(readFile(moved), Bytes{1});
    EXPECT_EQ((Results{_kremove(moved.c_str()), _kremove(moved.c_str())}), (Results{0, -1}));
}

}  // namespace
