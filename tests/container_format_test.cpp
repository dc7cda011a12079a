// The bytes the format writers put on disk, checked against containers laid
// out independently by the test support code.
#include <gtest/gtest.h>

#include <cstdio>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/container.h"
#include "tev/stream.h"

namespace {

using namespace tevtest;

TEST(ContainerLayout, MetaTypeAndLengthsFollowTheLayoutAndWrapAt32Bits) {
    EXPECT_EQ(_setMetaType(7, 42), 0x00078000u);  // any non-zero flag
    EXPECT_EQ(_setMetaType(0xFFFF, 1), 0xFFFF8000u);
    EXPECT_EQ(_getDataType(0x7FFE8000u), 32766u);
    EXPECT_EQ(_getDataLength(0, 4, 99, 10), 22u);
    EXPECT_EQ(_getDataLength(1, 4, 6, 10), 32u);
    EXPECT_EQ(_getDataLength(0, 0xFFFFFFF0u, 0, 7), 0xFFFFFFFFu);
    EXPECT_EQ(_getDataLength(0, 0xFFFFFFF0u, 0, 9), 1u);
    EXPECT_EQ(_getDataLength(1, 0xFFFFFFF0u, 0, 4), 0u);
    EXPECT_EQ(_calculateTEV_KTHO(3), 48u);
    EXPECT_EQ(_calculateTEV_KTHO(0x20000000u), 0x8000000Cu);
}

// The writers are one body over TevStream; the medium is not their concern.
class FormatWriterTest : public LogCaptureTest {
protected:
    StreamOver out_{Medium::Buffer, {}, 128};
    TevStream* stream() { return out_.get(); }
};

_TEV_data_info entryOf(uint32_t meta, uint32_t offset, uint32_t length) {
    _TEV_data_info entry{};
    entry.meta_type = meta;
    entry.start_offset = offset;
    entry.length = length;
    return entry;
}

TEST_F(FormatWriterTest, RecordsAndDirectoryMatchTheLayoutByteForByte) {
    const Bytes media = fakeJpeg(100);
    StreamOver s(Medium::Buffer, media, 128);
    ASSERT_EQ(s.get()->seek(0, 2), 100);
    const RecordSpec plain{7, "name", std::nullopt, textBytes("0123456789")};
    const RecordSpec withSub{0, "key", textBytes("abcdef"), textBytes("xy")};
    EXPECT_EQ(writeTEVData(s.get(), 7, 0, "name", 4, nullptr, 0, plain.data.data(), 10), 10);
    EXPECT_EQ(writeTEVData(s.get(), 0, 1, "key", 3, withSub.sub->data(), 6, "xy", 2), 2);
    _TEV_data_info entries[] = {entryOf(_setMetaType(7, 0), 45, 22), entryOf(_setMetaType(0, 1), 23, 23)};
    s.get()->writeTEV_KTSS();
    s.get()->writeTEV_KVER();
    s.get()->writeTEV_KCnt(2);
    for (_TEV_data_info& entry : entries) EXPECT_EQ(s.get()->writeTEV_KDR(&entry), 1u);
    s.get()->writeTEV_KTHO(2);
    s.get()->writeTEV_KTS();
    EXPECT_EQ(s.contents(), buildContainer(media, {plain, withSub}));
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(FormatWriterTest, FillerOfTwentyBytesHasNoZeroBytes) {
    stream()->writeDummyTEVData(20);
    const Bytes expected = ByteBuilder().u32le(0x7FFE0000u).u32le(12).text("Invalid_Data").take();
    EXPECT_EQ(out_.contents(), expected);
    stream()->writeDummyTEVData(19);  // cannot hold its own header
    EXPECT_EQ(out_.contents(), expected);
    stream()->writeDummyTEVData(25);
    EXPECT_EQ(out_.contents(), ByteBuilder().bytes(expected).bytes(expected).zeros(5).take());
}

TEST_F(FormatWriterTest, FillerWithDirectoryFillsTheRegionExactly) {
    stream()->writeDummyTEVDataHeader(100, 1);
    const Bytes expected = ByteBuilder().u32le(0x7FFE0000u).u32le(12).text("Invalid_Data").zeros(48)
                               .text("TEVH").u32le(107).u32le(1).u32le(0x7FFE8000u).u32le(68).u32le(68)
                               .u32le(24).text("TEVT").take();
    EXPECT_EQ(out_.contents(), expected);
}

TEST_F(FormatWriterTest, RegionTooSmallForFillerAndDirectoryEndsTheStream) {
    StreamOver s(Medium::Buffer, Bytes(30, 0xAB));
    ASSERT_EQ(s.get()->seek(10, 0), 10);
    s.get()->writeDummyTEVDataHeader(52, 0);
    EXPECT_EQ(s.contents(), Bytes(10, 0xAB));
}

TEST_F(FormatWriterTest, HeaderMethodStoresCountPlusTwoAndRefusesMissingEntries) {
    _TEV_data_info first = entryOf(0x00010000u, 40, 20);
    _TEV_data_info* missing[] = {&first, nullptr};
    EXPECT_EQ(stream()->writeTEVHeader(missing, 2), 0);
    EXPECT_TRUE(out_.contents().empty());
    _TEV_data_info second = entryOf(0x00028000u, 20, 20);
    _TEV_data_info* entries[] = {&first, &second};
    EXPECT_EQ(stream()->writeTEVHeader(entries, 2), 4);
    const Bytes expected = ByteBuilder().text("TEVH").u32le(107).u32le(4)  // the count plus two
                               .u32le(0x00010000u).u32le(40).u32le(20).u32le(0x00028000u).u32le(20).u32le(20)
                               .u32le(36).text("TEVT").take();
    EXPECT_EQ(out_.contents(), expected);
}

TEST_F(FormatWriterTest, RecordWriterStopsOnlyAtAnErrorAndLogsAMissingStream) {
    // A full buffer refuses the name without an error (0): the header goes
    // on, and the data byte lands where the name would have begun.
    StreamOver s(Medium::Buffer, {}, 9);
    EXPECT_EQ(writeTEVData(s.get(), 1, 0, "longer name", 11, nullptr, 0, "x", 1), 1);
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

}  // namespace
