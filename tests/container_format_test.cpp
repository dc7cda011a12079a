// The bytes the format writers put on disk, against containers laid out by the test support code,
// also when the medium stops part-way: the directory goes out in one write where it can, and must
// then leave the bytes and the log of field-by-field writes.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>

#include "support/edit.h"
#include "support/medium.h"

namespace {

using namespace tevtest;

TEST(ContainerLayout, MetaTypeAndLengthsFollowTheLayoutAndWrapAt32Bits) {
    const std::pair<uint32_t, uint32_t> kValues[] = {  // computed, expected
        {_setMetaType(7, 42), 0x00078000u}, {_setMetaType(0xFFFF, 1), 0xFFFF8000u},  // any non-zero flag
        {_getDataType(0x7FFE8000u), 32766u}, {_getDataLength(0, 4, 99, 10), 22u}, {_calculateTEV_KTHO(3), 48u},
        {_getDataLength(1, 4, 6, 10), 32u}, {_getDataLength(0, 0xFFFFFFF0u, 0, 7), 0xFFFFFFFFu},
        {_getDataLength(0, 0xFFFFFFF0u, 0, 9), 1u}, {_getDataLength(1, 0xFFFFFFF0u, 0, 4), 0u},
        {_calculateTEV_KTHO(0x20000000u), 0x8000000Cu}};
    for (size_t i = 0; i < std::size(kValues); ++i) EXPECT_EQ(kValues[i].first, kValues[i].second) << i;
}

const Bytes kFiller = ByteBuilder().u32le(0x7FFE0000u).u32le(12).text("Invalid_Data").take();

class FormatWriterTest : public LogCaptureTest {};

// Fillers, the directory and records: exact bytes, and the writers stop only at an error.
TEST_F(FormatWriterTest, FillersHeaderAndRecordsWriteExactBytes) {
    FixedBuffer out({}, 256);
    out.stream()->writeDummyTEVData(20);  // no zero bytes after the name
    EXPECT_EQ(out.contents(), kFiller);
    out.stream()->writeDummyTEVData(19);  // cannot hold its own header
    EXPECT_EQ(out.contents(), kFiller);
    out.stream()->writeDummyTEVData(25);
    EXPECT_EQ(out.contents(), ByteBuilder().bytes(kFiller).bytes(kFiller).zeros(5).take());

    FixedBuffer withDirectory({}, 128);
    withDirectory.stream()->writeDummyTEVDataHeader(100, 1);
    EXPECT_EQ(withDirectory.contents(), ByteBuilder().bytes(kFiller).zeros(48).text("TEVH").u32le(107).u32le(1)
                                            .u32le(0x7FFE8000u).u32le(68).u32le(68).u32le(24).text("TEVT").take());
    // A region too small for filler and directory ends the stream there.
    FixedBuffer small(Bytes(30, 0xAB));
    ASSERT_EQ(small.stream()->seek(10, 0), 10);
    small.stream()->writeDummyTEVDataHeader(52, 0);
    EXPECT_EQ(small.contents(), Bytes(10, 0xAB));

    // The header method stores the count plus two and stops at the first failure.
    _TEV_data_info first{40, 20, 0x00010000u, 0, 0, nullptr, 0};  // start offset, length, meta type
    _TEV_data_info* missing[] = {&first, nullptr};
    FixedBuffer header({}, 128);
    EXPECT_EQ(header.stream()->writeTEVHeader(missing, 2), 0);
    EXPECT_TRUE(header.contents().empty());
    _TEV_data_info second{20, 20, 0x00028000u, 1, 0, nullptr, 0};
    _TEV_data_info* entries[] = {&first, &second};
    EXPECT_EQ(header.stream()->writeTEVHeader(entries, 2), 4);
    EXPECT_EQ(header.contents(), ByteBuilder().text("TEVH").u32le(107).u32le(4)  // the count plus two
                                     .u32le(0x00010000u).u32le(40).u32le(20).u32le(0x00028000u).u32le(20).u32le(20)
                                     .u32le(36).text("TEVT").take());
    // A full buffer: the fields that fit whole, then nothing.
    FixedBuffer full({}, 22);
    EXPECT_EQ(full.stream()->writeTEVHeader(entries, 1), 0);
    EXPECT_EQ(full.contents(), ByteBuilder().text("TEVH").u32le(107).u32le(3).u32le(0x00010000u).u32le(40).take());
    // A full buffer refuses the name without an error (0): the header goes on, and the data byte
    // lands where the name would have begun.
    FixedBuffer s({}, 9);
    EXPECT_EQ(writeTEVData(s.stream(), 1, 0, "longer name", 11, nullptr, 0, "x", 1), 1);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(s.contents(), ByteBuilder().u32le(0x00010000u).u32le(11).text("x").take());
    // A file open only for reading reports an error on the first field.
    TempFile file(Bytes{});
    FILE* readOnly = std::fopen(file.c_str(), "rb");
    ASSERT_NE(readOnly, nullptr);
    TevStreamFile onFile(readOnly);
    EXPECT_EQ(onFile.writeDataTagInfo(1, 0, "n", 1, nullptr, 0), 0u);
    EXPECT_TRUE(loggedError("TevStream::_writeDataTagInfo", "File Write Error")) << dumpLog();
    std::fclose(readOnly);
    EXPECT_EQ(writeTEVData(nullptr, 1, 0, "n", 1, nullptr, 0, "x", 1), 0);
    EXPECT_TRUE(loggedError("TEV::FastDeleteAllTEVData", "Stream is null")) << dumpLog();
}

// A first record: "abcd" of type 5 with 10 data bytes (22 bytes at 100), and its 32-byte directory.
const RecordSpec kPhoto{5, "abcd", std::nullopt, Bytes(10, 0xA1)};
const Bytes kMedia = fakeJpeg(100);
const Bytes kPhotoDirectory =
    ByteBuilder().text("TEVH").u32le(107).u32le(1).u32le(0x00050000).u32le(22).u32le(22).u32le(24).text("TEVT").take();

uint32_t addPhoto(TevStream* stream) {
    return AddTEVDataInFirstTimeStream(stream, kPhoto.name.data(), uint32_t(kPhoto.name.size()), kPhoto.type,
                                       nullptr, 0, kPhoto.data.data(), uint32_t(kPhoto.data.size()));
}

Bytes withDirectoryPrefix(size_t size) {
    return concat(concat(kMedia, encodeRecord(kPhoto)), Bytes(kPhotoDirectory.begin(), kPhotoDirectory.begin() + long(size)));
}

const char* const kFirstTag = "TEVEncoder::AddTEVDataInFirstTimeStream";

TEST_F(FormatWriterTest, DirectoryCutByAFullBufferLeavesTheFieldsThatFit) {
    // Room for part of the directory: the fields that fit whole are written, the first that does
    // not names the step (the entry's writer never fails, so a cut entry shows as KTHO).
    const size_t container = kMedia.size() + encodeRecord(kPhoto).size();
    const std::pair<size_t, std::string> kCuts[] = {
        {0, "Stream writeTEV_KTSS error\n"}, {3, "Stream writeTEV_KTSS error\n"},
        {4, "Stream writeTEV_KVER error\n"}, {9, "Stream writeTEV_KCnt error\n"},
        {12, "Stream writeTEV_KTHO error\n"}, {17, "Stream writeTEV_KTHO error\n"},
        {26, "Stream writeTEV_KTHO error\n"}, {31, "Stream writeTEV_KTS error\n"}, {32, ""}};
    for (const auto& [room, step] : kCuts) {
        SCOPED_TRACE(room);
        clearLog();
        FixedBuffer buffer(kMedia, container + room);
        EXPECT_EQ(addPhoto(buffer.stream()), step.empty() ? 1u : 0u);
        EXPECT_EQ(buffer.contents(), withDirectoryPrefix(room / 4 * 4));
        ASSERT_EQ(logLines().size(), step.empty() ? 0u : 1u) << dumpLog();
        EXPECT_TRUE(step.empty() || loggedError(kFirstTag, step)) << dumpLog();
    }
}

// Lowers the process's file size limit for its lifetime: writes past it stop short, no SIGXFSZ.
struct FileSizeLimit {
    explicit FileSizeLimit(rlim_t limit) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &saved);
        const rlimit lowered{limit, saved.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lowered);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, handler);
    }
    void (*handler)(int);
    rlimit saved{};
};

TEST_F(FormatWriterTest, DirectoryCutByAFileThatStopsGrowingLeavesTheFieldByFieldBytes) {
    // The file takes the directory up to 2 bytes into the entry's start offset: the one write of
    // the whole directory stops there (the system layer logs it), the stream goes back and writes
    // the fields one by one, so the file keeps the bytes and failing step of field-by-field writes
    // (a field cut inside counts as written: a short write returns the bytes that went out).
    StreamOver file(Medium::FilePtr, kMedia);
    EXPECT_EQ([&] {
        const FileSizeLimit limit(kMedia.size() + encodeRecord(kPhoto).size() + 18);
        return addPhoto(file.get());
    }(), 0u);
    EXPECT_EQ(file.contents(), withDirectoryPrefix(18));
    ASSERT_EQ(logLines().size(), 2u) << dumpLog();
    EXPECT_TRUE(loggedError("TEVSystemFile::_kfwrite", "write ret != write size_of_byte  ==> fail(18 != 32)"))
        << dumpLog();
    EXPECT_TRUE(loggedError(kFirstTag, "Stream writeTEV_KTHO error\n")) << dumpLog();
}

}  // namespace
