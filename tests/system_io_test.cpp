// The _k system layer under the streams: stdio and descriptor wrappers,
// block copies, memory and string helpers.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "tev/stream.h"

namespace {

using namespace tevtest;

using SystemIoTest = LogCaptureTest;

TEST_F(SystemIoTest, FileIntegersUseFixedOrderAndBypassStdioBuffers) {
    TempFile file;
    FILE* fp = _kfopen(file.c_str(), "r+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(_kfwriteInt32(0x01020304u, fp), 4);
    EXPECT_EQ(_kfwriteInt32_endian(0x01020304u, fp), 4);
    EXPECT_EQ(_kfwriteInt16(0x0102, fp), 2);
    // No fflush: the bytes must already be in the file.
    EXPECT_EQ(file.read(), (Bytes{4, 3, 2, 1, 1, 2, 3, 4, 2, 1}));
    EXPECT_EQ(_kftell(fp), 10);
    _kfclose(fp);
}

TEST_F(SystemIoTest, FailedWriteAndSeekAreLogged) {
    TempFile file({1, 2, 3});
    FILE* fp = _kfopen(file.c_str(), "rb");
    EXPECT_EQ(_kfwrite("abcd", 4, fp), -1);
    EXPECT_TRUE(loggedError("TEVSystemFile::_kfwrite", "write ret != write size_of_byte  ==> fail(-1 != 4)"))
        << dumpLog();
    EXPECT_EQ(_kfseek(fp, -5, SEEK_SET), -1);
    EXPECT_TRUE(loggedError("_klseek", "errno : " + std::to_string(EINVAL))) << dumpLog();
    _kfclose(fp);
}

TEST_F(SystemIoTest, FileCopyMovesSeveralChunksBetweenCurrentPositions) {
    constexpr size_t kCopySize = 0x10000 * 2 + 100;  // two full 64 KiB chunks and a partial one
    const Bytes source = pattern(kCopySize + 10);
    TempFile src(source);
    TempFile dst({0xAA, 0xBB, 0xCC});
    FILE* in = _kfopen(src.c_str(), "rb");
    FILE* out = _kfopen(dst.c_str(), "r+b");
    ASSERT_EQ(_kfseek(in, 10, SEEK_SET), 10);
    ASSERT_EQ(_kfseek(out, 2, SEEK_SET), 2);
    EXPECT_EQ(_kfilecopy(out, in, kCopySize), 1);
    Bytes expected{0xAA, 0xBB};
    expected.insert(expected.end(), source.begin() + 10, source.end());
    EXPECT_EQ(dst.read(), expected);
    EXPECT_EQ(_kfilecopy(out, in, 0), 0);
    _kfclose(in);
    _kfclose(out);
}

TEST_F(SystemIoTest, DescriptorZeroIsRefusedWithoutTouchingIt) {
    // Put a real file behind descriptor 0 so a wrapper that used it would
    // show in the file's position or content.
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
    if (saved >= 0) {
        ::dup2(saved, 0);
        ::close(saved);
    } else {
        ::close(0);
    }
    ::close(fd);
    EXPECT_EQ(position, 0);
    EXPECT_EQ(buffer[0], 0x5A);
    EXPECT_EQ(file.read(), pattern(16));
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(SystemIoTest, ExtensionIndexIsTheLastDotOrTheLastCharacter) {
    EXPECT_EQ(getExtIndex("a.b.jpg"), 3);
    EXPECT_EQ(getExtIndex("abc"), 2);
    EXPECT_EQ(getExtIndex(""), -1);
    EXPECT_EQ(getExtIndex(nullptr), -1);
}

TEST_F(SystemIoTest, AllocationsAreZeroFilled) {
    // The sanitizer fills fresh allocations with garbage, so a missing
    // clear shows there.
    auto* bytes = static_cast<uint8_t*>(_kmalloc(4096));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(Bytes(bytes, bytes + 4096), Bytes(4096, 0));
    _kfree(bytes);
}

}  // namespace
