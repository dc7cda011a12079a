// The _k system layer under the streams: stdio and descriptor wrappers,
// block copies, memory and string helpers.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/log_capture.h"
#include "tev/stream.h"

namespace {

using tevtest::Bytes;
using tevtest::TempFile;

Bytes pattern(size_t size, uint8_t seed) {
    Bytes out(size);
    for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(i * 13 + seed + i / 251);
    return out;
}

// A FILE* over a temporary file, closed at the end of the test.
class OpenFile {
public:
    OpenFile(const TempFile& file, const char* mode) : fp_(_kfopen(file.c_str(), mode)) {}
    ~OpenFile() { _kfclose(fp_); }
    FILE* get() const { return fp_; }

private:
    FILE* fp_;
};

using SystemFileTest = tevtest::LogCaptureTest;

TEST_F(SystemFileTest, IntegerWritesUseFixedOrderAndBypassStdioBuffers) {
    TempFile file;
    OpenFile fp(file, "r+b");
    ASSERT_NE(fp.get(), nullptr);
    EXPECT_EQ(_kfwriteInt32(0x01020304u, fp.get()), 4);
    EXPECT_EQ(_kfwriteInt32_endian(0x01020304u, fp.get()), 4);
    EXPECT_EQ(_kfwriteInt16(0x0102, fp.get()), 2);
    EXPECT_EQ(_kfwrite("xy", 2, fp.get()), 2);
    // No fflush: the bytes must already be in the file.
    EXPECT_EQ(file.read(), (Bytes{4, 3, 2, 1, 1, 2, 3, 4, 2, 1, 'x', 'y'}));
    EXPECT_EQ(_kftell(fp.get()), 12);
}

TEST_F(SystemFileTest, IntegerReadsStoreHostOrderAndReturnTheReadCount) {
    TempFile file({4, 3, 2, 1, 2, 1, 9});
    OpenFile fp(file, "rb");
    uint32_t word = 0;
    int16_t half = 0;
    EXPECT_EQ(_kfreadInt32(&word, fp.get()), 4);
    EXPECT_EQ(word, 0x01020304u);
    EXPECT_EQ(_kfreadInt16(&half, fp.get()), 2);
    EXPECT_EQ(half, 0x0102);
    EXPECT_EQ(_kfreadInt32(&word, fp.get()), 1);
    EXPECT_EQ(word, 9u);
    EXPECT_EQ(_kfreadInt32(nullptr, fp.get()), 0);
    EXPECT_EQ(_kfread(nullptr, 4, fp.get()), 0);
}

TEST_F(SystemFileTest, FailedWriteLogsAndReturnsMinusOne) {
    TempFile file({1, 2, 3});
    OpenFile fp(file, "rb");
    EXPECT_EQ(_kfwrite("abcd", 4, fp.get()), -1);
    EXPECT_TRUE(loggedError("TEVSystemFile::_kfwrite",
                            "write ret != write size_of_byte  ==> fail(-1 != 4)"))
        << dumpLog();
    EXPECT_EQ(_kfwrite(nullptr, 4, fp.get()), 0);
}

TEST_F(SystemFileTest, FailedSeekLogsErrno) {
    TempFile file({1, 2, 3});
    OpenFile fp(file, "rb");
    EXPECT_EQ(_kfseek(fp.get(), -5, SEEK_SET), -1);
    EXPECT_TRUE(loggedError("_klseek", "errno : " + std::to_string(EINVAL))) << dumpLog();
    EXPECT_EQ(_kfseek(fp.get(), -1, SEEK_END), 2);
}

// More than one 64 KiB chunk, with a partial last chunk, between two
// positions that are not the start.
constexpr size_t kCopySize = 0x10000 * 2 + 100;

TEST_F(SystemFileTest, FileCopyMovesSeveralChunksBetweenCurrentPositions) {
    const Bytes source = pattern(kCopySize + 10, 1);
    TempFile src(source);
    TempFile dst({0xAA, 0xBB, 0xCC});
    OpenFile in(src, "rb");
    OpenFile out(dst, "r+b");
    ASSERT_EQ(_kfseek(in.get(), 10, SEEK_SET), 10);
    ASSERT_EQ(_kfseek(out.get(), 2, SEEK_SET), 2);
    EXPECT_EQ(_kfilecopy(out.get(), in.get(), kCopySize), 1);
    Bytes expected{0xAA, 0xBB};
    expected.insert(expected.end(), source.begin() + 10, source.end());
    EXPECT_EQ(dst.read(), expected);
    EXPECT_EQ(_kfilecopy(out.get(), in.get(), 0), 0);
    EXPECT_EQ(_kfilecopy(nullptr, in.get(), 4), 0);
    EXPECT_EQ(_kfilecopy(out.get(), nullptr, 4), 0);
}

using SystemFdTest = tevtest::LogCaptureTest;

TEST_F(SystemFdTest, DescriptorZeroIsRefusedWithoutTouchingIt) {
    // Put a real file behind descriptor 0 so a wrapper that used it would
    // show in the file's position.
    TempFile file(pattern(16, 5));
    const int saved = ::dup(0);
    const int fd = ::open(file.c_str(), O_RDWR);
    ASSERT_GE(fd, 1);
    ASSERT_EQ(::dup2(fd, 0), 0);
    uint8_t buffer[4] = {0x5A, 0x5A, 0x5A, 0x5A};
    uint32_t word = 0x77;
    EXPECT_EQ(_kfdread(0, buffer, 4), 0);
    EXPECT_EQ(_kfdreadInt32(0, &word), 0);
    EXPECT_EQ(_kfdwrite(0, buffer, 4), 0);
    EXPECT_EQ(_kfdwriteInt32(0, 1), 0);
    EXPECT_EQ(_kfdtell(0), -1);
    EXPECT_EQ(_kfdseek(0, 4, SEEK_SET), -1);
    EXPECT_EQ(_kfdcopy(fd, 0, 4), 0);
    EXPECT_EQ(_kfdcopy(0, fd, 4), 0);
    const off_t position = ::lseek(0, 0, SEEK_CUR);
    if (saved >= 0) {
        ::dup2(saved, 0);
        ::close(saved);
    } else {
        ::close(0);
    }
    ::close(fd);
    EXPECT_EQ(position, 0);
    EXPECT_EQ(buffer[0], 0x5A);
    EXPECT_EQ(word, 0x77u);
    EXPECT_EQ(file.read(), pattern(16, 5));
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(SystemFdTest, ShortDescriptorWriteLogsAndReturnsMinusOne) {
    TempFile file({1, 2, 3});
    const int fd = ::open(file.c_str(), O_RDONLY);
    ASSERT_GE(fd, 1);
    EXPECT_EQ(_kfdwrite(fd, "ab", 2), -1);
    EXPECT_TRUE(loggedError("TEVSystemFile::_kfwrite",
                            "write ret != write size_of_byte  ==> fail(-1 != 2)"))
        << dumpLog();
    EXPECT_EQ(_kfdseek(fd, -1, SEEK_SET), -1);
    EXPECT_TRUE(loggedError("_klseek", "errno : " + std::to_string(EINVAL))) << dumpLog();
    ::close(fd);
}

TEST_F(SystemFdTest, DescriptorCopyMovesSeveralChunks) {
    const Bytes source = pattern(kCopySize, 9);
    TempFile src(source);
    TempFile dst;
    const int in = ::open(src.c_str(), O_RDONLY);
    const int out = ::open(dst.c_str(), O_RDWR);
    ASSERT_GE(in, 1);
    ASSERT_GE(out, 1);
    EXPECT_EQ(_kfdcopy(out, in, kCopySize), 1);
    EXPECT_EQ(dst.read(), source);
    EXPECT_EQ(_kfdcopy(out, in, 0), 0);
    ::close(in);
    ::close(out);
}

using MemoryHelpersTest = tevtest::LogCaptureTest;

TEST_F(MemoryHelpersTest, ExtensionIndexIsTheLastDotOrTheLastCharacter) {
    EXPECT_EQ(getExtIndex("a.b.jpg"), 3);
    EXPECT_EQ(getExtIndex("abc"), 2);
    EXPECT_EQ(getExtIndex(".jpg"), 0);
    EXPECT_EQ(getExtIndex(""), -1);
    EXPECT_EQ(getExtIndex(nullptr), -1);
}

TEST_F(MemoryHelpersTest, CopiesAndStringsRefuseNullArguments) {
    char dst[16] = "ab";
    EXPECT_EQ(_kmemcpy(dst, "xyz", 3), dst);
    EXPECT_EQ(std::memcmp(dst, "xyz", 3), 0);
    EXPECT_EQ(_kmemcpy(dst, "q", 0), nullptr);
    EXPECT_EQ(_kmemcpy(nullptr, "q", 1), nullptr);
    EXPECT_EQ(_kmemcpy(dst, nullptr, 1), nullptr);
    EXPECT_EQ(_kstrcpy(dst, "ab"), dst);
    EXPECT_EQ(_kstrcat(dst, "cd"), dst);
    EXPECT_STREQ(dst, "abcd");
    EXPECT_EQ(_kstrcpy(nullptr, "a"), nullptr);
    EXPECT_EQ(_kstrcat(dst, nullptr), nullptr);
    EXPECT_EQ(getStringLen(dst), 4u);
    EXPECT_EQ(getStringLen(nullptr), 0u);
    EXPECT_EQ(_kstrcmp("abc", "abc"), 0);
    EXPECT_LT(_kstrcmp("abc", "abd"), 0);
    EXPECT_LT(_kstrcmp(nullptr, "a"), 0);
    EXPECT_GT(_kstrcmp("a", nullptr), 0);
}

TEST_F(MemoryHelpersTest, AllocationsAreZeroFilled) {
    auto* bytes = static_cast<uint8_t*>(_kmalloc(4096));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(Bytes(bytes, bytes + 4096), Bytes(4096, 0));
    _kfree(bytes);
    auto* counted = static_cast<uint32_t*>(_kcalloc(16, sizeof(uint32_t)));
    ASSERT_NE(counted, nullptr);
    EXPECT_EQ(counted[15], 0u);
    _kfree(counted);
}

}  // namespace
