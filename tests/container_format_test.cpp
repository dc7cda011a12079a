// The bytes the format writers put on disk, checked against containers laid
// out independently by the test support code.
#include <gtest/gtest.h>

#include <cstring>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/stream_over.h"
#include "tev/container.h"
#include "tev/stream.h"

namespace {

using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::Medium;
using tevtest::readText;
using tevtest::readU32be;
using tevtest::readU32le;
using tevtest::RecordSpec;
using tevtest::StreamOver;

TEST(ContainerLayout, MetaTypePacksTypeAndSubInfoFlag) {
    EXPECT_EQ(_setMetaType(7, 0), 0x00070000u);
    EXPECT_EQ(_setMetaType(7, 1), 0x00078000u);
    EXPECT_EQ(_setMetaType(7, 42), 0x00078000u);  // any non-zero flag
    EXPECT_EQ(_setMetaType(0xFFFF, 1), 0xFFFF8000u);
    EXPECT_EQ(_getDataType(0x7FFE8000u), 32766u);
    EXPECT_EQ(_getDataType(_setMetaType(256, 1)), 256u);
}

TEST(ContainerLayout, RecordLengthCountsSubInfoOnlyWhenFlagged) {
    EXPECT_EQ(_getDataLength(0, 4, 0, 10), 22u);
    EXPECT_EQ(_getDataLength(0, 4, 99, 10), 22u);
    EXPECT_EQ(_getDataLength(1, 4, 6, 10), 32u);
    EXPECT_EQ(_getDataLength(0, 0xFFFFFFF0u, 0, 7), 0xFFFFFFFFu);
    EXPECT_EQ(_getDataLength(0, 0xFFFFFFF0u, 0, 8), 0u);  // does not fit 32 bits
    EXPECT_EQ(_getDataLength(1, 0xFFFFFFF0u, 0, 3), 0xFFFFFFFFu);
    EXPECT_EQ(_getDataLength(1, 0xFFFFFFF0u, 0, 4), 0u);
}

TEST(ContainerLayout, KthoCoversTagsCountAndEntries) {
    EXPECT_EQ(_calculateTEV_KTHO(0), 12u);
    EXPECT_EQ(_calculateTEV_KTHO(1), 24u);
    EXPECT_EQ(_calculateTEV_KTHO(3), 48u);
    EXPECT_EQ(_calculateTEV_KTHO(0x20000000u), 0u);
}

class FormatWriterTest : public tevtest::LogCaptureTest, public ::testing::WithParamInterface<Medium> {};

void writeDirectory(TevStream* stream, std::vector<_TEV_data_info> entries) {
    stream->writeTEV_KTSS();
    stream->writeTEV_KVER();
    stream->writeTEV_KCnt(uint32_t(entries.size()));
    for (_TEV_data_info& entry : entries) stream->writeTEV_KDR(&entry);
    stream->writeTEV_KTHO(uint32_t(entries.size()));
    stream->writeTEV_KTS();
}

_TEV_data_info entryOf(uint32_t meta, uint32_t offset, uint32_t length) {
    _TEV_data_info entry{};
    entry.meta_type = meta;
    entry.start_offset = offset;
    entry.length = length;
    return entry;
}

TEST_P(FormatWriterTest, OneRecordBehindHundredBytesOfMedia) {
    const Bytes media = tevtest::fakeJpeg(100);
    StreamOver s(GetParam(), media, 64);
    ASSERT_EQ(s.get()->seek(0, 2), 100);
    const Bytes data = tevtest::textBytes("0123456789");
    EXPECT_EQ(writeTEVData(s.get(), 7, 0, "name", 4, nullptr, 0, data.data(), 10), 10);
    writeDirectory(s.get(), {entryOf(_setMetaType(7, 0), 22, 22)});

    const Bytes file = s.contents();
    ASSERT_EQ(file.size(), 154u);
    EXPECT_EQ(file, tevtest::buildContainer(media, {RecordSpec{7, "name", std::nullopt, data}}));
    EXPECT_EQ(readU32le(file, 100), 0x00070000u);
    EXPECT_EQ(readU32le(file, 104), 4u);
    EXPECT_EQ(readText(file, 108, 4), "name");
    EXPECT_EQ(readText(file, 112, 10), "0123456789");
    EXPECT_EQ(readText(file, 122, 4), "TEVH");
    EXPECT_EQ(readU32le(file, 126), 107u);
    EXPECT_EQ(readU32le(file, 130), 1u);
    EXPECT_EQ(readU32le(file, 134), 0x00070000u);
    EXPECT_EQ(readU32le(file, 138), 22u);
    EXPECT_EQ(readU32le(file, 142), 22u);
    EXPECT_EQ(readU32le(file, 146), 24u);
    EXPECT_EQ(readText(file, 150, 4), "TEVT");
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(FormatWriterTest, SubInfoSetsTheFlagAndItsLengthField) {
    StreamOver s(GetParam(), {}, 64);
    const Bytes sub = tevtest::textBytes("abcdef");
    EXPECT_EQ(s.get()->writeDataTagInfo(0, 1, "key", 3, sub.data(), 6), 1u);
    const RecordSpec record{0, "key", sub, {}};
    EXPECT_EQ(s.contents(), tevtest::encodeRecord(record));
    EXPECT_EQ(readU32le(s.contents(), 0), 0x00008000u);
    EXPECT_EQ(readU32le(s.contents(), 8), 6u);
}

TEST_P(FormatWriterTest, SmallWritersReportTheirByteCounts) {
    StreamOver s(GetParam(), {}, 64);
    TevStream* stream = s.get();
    EXPECT_EQ(stream->writeTEV_MP4S(), 4);
    EXPECT_EQ(stream->writeTEV_TOTALSIZE(0x01020304u), 4);
    EXPECT_EQ(stream->writeTEV_KVER(), 4);
    EXPECT_EQ(stream->writeTEV_KTHO(2), 4);
    EXPECT_EQ(stream->writeTEV_KDR(nullptr), 0u);
    const Bytes file = s.contents();
    ASSERT_EQ(file.size(), 16u);
    EXPECT_EQ(readText(file, 0, 4), "tevd");
    EXPECT_EQ(readU32be(file, 4), 0x01020304u);
    EXPECT_EQ(readU32le(file, 8), 107u);
    EXPECT_EQ(readU32le(file, 12), 36u);
}

TEST_P(FormatWriterTest, FillerOfTwentyBytesHasNoZeroBytes) {
    StreamOver s(GetParam(), {}, 64);
    s.get()->writeDummyTEVData(20);
    const Bytes expected = ByteBuilder().u32le(0x7FFE0000u).u32le(12).text("Invalid_Data").take();
    EXPECT_EQ(s.contents(), expected);
    s.get()->writeDummyTEVData(19);  // cannot hold its own header
    EXPECT_EQ(s.contents(), expected);
    s.get()->writeDummyTEVData(25);
    EXPECT_EQ(s.contents(), ByteBuilder().bytes(expected).bytes(expected).zeros(5).take());
}

TEST_P(FormatWriterTest, FillerWithDirectoryFillsTheRegionExactly) {
    StreamOver s(GetParam(), {}, 128);
    s.get()->writeDummyTEVDataHeader(100, 1);
    const Bytes expected = ByteBuilder()
                               .u32le(0x7FFE0000u).u32le(12).text("Invalid_Data").zeros(48)
                               .text("TEVH").u32le(107).u32le(1)
                               .u32le(0x7FFE8000u).u32le(68).u32le(68)
                               .u32le(24).text("TEVT")
                               .take();
    EXPECT_EQ(s.contents(), expected);
}

TEST_P(FormatWriterTest, RegionTooSmallForFillerAndDirectoryEndsTheStream) {
    StreamOver s(GetParam(), Bytes(30, 0xAB));
    ASSERT_EQ(s.get()->seek(10, 0), 10);
    s.get()->writeDummyTEVDataHeader(52, 0);
    EXPECT_EQ(s.contents(), Bytes(10, 0xAB));
    ASSERT_EQ(s.get()->seek(0, 0), 0);
    s.get()->writeDummyTEVDataHeader(8, 0);  // at 0 nothing is cut
    EXPECT_EQ(s.contents(), Bytes(10, 0xAB));
}

TEST_P(FormatWriterTest, HeaderMethodStoresCountPlusTwo) {
    StreamOver s(GetParam(), {}, 128);
    _TEV_data_info first = entryOf(0x00010000u, 40, 20);
    _TEV_data_info second = entryOf(0x00028000u, 20, 20);
    _TEV_data_info* entries[] = {&first, &second};
    EXPECT_EQ(s.get()->writeTEVHeader(entries, 2), 4);
    const Bytes expected = ByteBuilder()
                               .text("TEVH").u32le(107).u32le(4)
                               .u32le(0x00010000u).u32le(40).u32le(20)
                               .u32le(0x00028000u).u32le(20).u32le(20)
                               .u32le(36).text("TEVT")
                               .take();
    EXPECT_EQ(s.contents(), expected);
}

TEST_P(FormatWriterTest, HeaderMethodRefusesMissingEntriesBeforeWriting) {
    StreamOver s(GetParam(), {}, 128);
    _TEV_data_info first = entryOf(0x00010000u, 40, 20);
    _TEV_data_info* entries[] = {&first, nullptr};
    EXPECT_EQ(s.get()->writeTEVHeader(entries, 2), 0);
    EXPECT_EQ(s.get()->writeTEVHeader(nullptr, 1), 0);
    EXPECT_TRUE(s.contents().empty());
}

INSTANTIATE_TEST_SUITE_P(Media, FormatWriterTest, ::testing::Values(Medium::Buffer, Medium::File),
                         [](const auto& info) { return tevtest::mediumName(info.param); });

class RecordWriterFailureTest : public tevtest::LogCaptureTest {};

TEST_F(RecordWriterFailureTest, FullBufferStopsTheTagHeaderWithALog) {
    StreamOver s(Medium::Buffer, {}, 9);  // room for 10 bytes: both length fields, not the name
    EXPECT_EQ(s.get()->writeDataTagInfo(1, 0, "longer name", 11, nullptr, 0), 0u);
    EXPECT_TRUE(loggedError("TevStream::_writeDataTagInfo", "File Write Error")) << dumpLog();
    EXPECT_EQ(writeTEVData(s.get(), 1, 0, "longer name", 11, nullptr, 0, "x", 1), 0);
    EXPECT_EQ(s.contents().size(), 8u);
}

TEST_F(RecordWriterFailureTest, RecordWriterRefusesMissingStream) {
    EXPECT_EQ(writeTEVData(nullptr, 1, 0, "n", 1, nullptr, 0, "x", 1), 0);
    EXPECT_TRUE(loggedError("TEV::FastDeleteAllTEVData", "Stream is null")) << dumpLog();
    TevStreamBuffer unusable(nullptr);
    EXPECT_EQ(writeTEVData(&unusable, 1, 0, "n", 1, nullptr, 0, "x", 1), 0);
    EXPECT_TRUE(loggedError("TEV::FastDeleteAllTEVData", "CheckError is false")) << dumpLog();
}

}  // namespace
