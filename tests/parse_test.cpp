// Parsing containers laid out byte by byte: locating the directory, reading
// entries and names, positions of payloads and sub-information, and the
// refusals of damaged input.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/medium.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/stream.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

using InfoPtr = tev::Index;
using Region = std::pair<int64_t, int64_t>;  // position, length
const Region kNoRegion{0, 0};

// One record with sub-information behind 100 bytes of media: name length at
// 104, sub-information length at 108, "TEVH" at 127, version at 131, count at
// 135, the entry's offset at 143, KTHO at 151, "TEVT" at 155; 159 bytes.
Bytes oneRecordFile() {
    return buildContainer(fakeJpeg(100), {RecordSpec{7, "name", textBytes("S"), textBytes("0123456789")}});
}

// The one-record file with the 32-bit field at `at` set to `value`.
Bytes patched(size_t at, uint32_t value) {
    Bytes file = oneRecordFile();
    putU32le(file, at, value);
    return file;
}

// Records at 100 (alpha, 24 bytes), 124 (beta, 25; sub-information length at
// 132) and 149 (gamma, 23); the entries from 184 on.
const std::vector<RecordSpec> kThreeRecords = {
    {1, "alpha", std::nullopt, textBytes("payload-one")},
    {0, "beta", textBytes("SUBINFO"), textBytes("xy")},
    {300, "gamma", textBytes("s"), textBytes("fifth")},
};

Bytes threeRecordFile(const ContainerOptions& options = {}) {
    return buildContainer(fakeJpeg(100), kThreeRecords, options);
}

// ParseTEV is one body over TevStream: all but one test run on a buffer.
class ParseTest : public LogCaptureTest {
protected:
    TevStream* open(const Bytes& content, Medium medium = Medium::Buffer) {
        stream_ = std::make_unique<StreamOver>(medium, content);
        return stream_->get();
    }
    // ParseTEV, getTEVList and, with `names`, getAllNameOfDataList; null when
    // one of them fails.
    InfoPtr parse(const Bytes& content, bool names = true, uint32_t signature = SIGNATURE_TEV,
                  Medium medium = Medium::Buffer) {
        InfoPtr info(ParseTEV(open(content, medium), signature));
        if (!info || getTEVList(info.get()) != 1) return nullptr;
        if (names && getAllNameOfDataList(info.get()) != 1) return nullptr;
        return info;
    }
    static Region dataAt(_TEV_info* info, uint32_t index) {
        Region region{-1, -1};
        readDataOfIndexOffset(info, index, &region.first, &region.second);
        return region;
    }
    static Region subAt(_TEV_info* info, uint32_t index) {
        Region region{-1, -1};
        readSubDataInfoOfDataOffset(info, index, &region.first, &region.second);
        return region;
    }
    std::unique_ptr<StreamOver> stream_;
};

TEST_F(ParseTest, ReadsEveryRecordOnEveryStreamMedium) {
    for (Medium medium : kStreamMedia) {
        SCOPED_TRACE(mediumName(medium));
        InfoPtr info = parse(threeRecordFile(), true, SIGNATURE_TEV, medium);
        ASSERT_TRUE(info) << dumpLog();
        EXPECT_EQ(info->data_start_position, 100);
        ASSERT_EQ(info->meta_count, 3u);
        EXPECT_STREQ(info->meta_data[1]->name, "beta");
        EXPECT_EQ(dataAt(info.get(), 0), Region(113, 11));
        EXPECT_EQ(subAt(info.get(), 0), kNoRegion);
        EXPECT_EQ(subAt(info.get(), 1), Region(140, 7));
        EXPECT_EQ(dataAt(info.get(), 1), Region(147, 2));
        EXPECT_EQ(subAt(info.get(), 2), Region(166, 1));
        EXPECT_EQ(dataAt(info.get(), 2), Region(167, 5));
        EXPECT_EQ(dataAt(info.get(), 3), kNoRegion);

        ASSERT_EQ(stream_->get()->seek(7, 0), 7);
        unsigned char* data = nullptr;
        unsigned char* sub = nullptr;
        ASSERT_EQ(readDataOfIndex(info.get(), 1, &data, &sub), 1u) << dumpLog();
        EXPECT_EQ(std::string(reinterpret_cast<char*>(data), 2), "xy");
        EXPECT_EQ(std::string(reinterpret_cast<char*>(sub), 7), "SUBINFO");
        EXPECT_EQ(stream_->get()->tell(), 7);
        _kfree(data);
        _kfree(sub);
        EXPECT_TRUE(logLines().empty()) << dumpLog();
    }
}

TEST_F(ParseTest, DataStartCoversTheTevdBoxAndTheWideVersionsLeadingField) {
    InfoPtr boxed = parse(buildContainer(fakeMp4(64), kThreeRecords, {107, true}));
    ASSERT_TRUE(boxed) << dumpLog();
    EXPECT_EQ(checkSignatureMP4Tag(boxed.get()), 1u);
    EXPECT_EQ(boxed->data_start_position, 64);

    const Bytes body = buildContainer({}, kThreeRecords, {110});
    InfoPtr wide = parse(ByteBuilder().bytes(fakeJpeg(100)).u32le(0).bytes(body).take());
    ASSERT_TRUE(wide) << dumpLog();
    EXPECT_EQ(wide->data_start_position, 100);
    ByteBuilder wideBoxed;
    wideBoxed.bytes(fakeMp4(100)).u32be(uint32_t(body.size() + 12)).text("tevd");
    InfoPtr wideInBox = parse(wideBoxed.u32le(0).bytes(body).take());
    ASSERT_TRUE(wideInBox) << dumpLog();
    EXPECT_EQ(checkSignatureMP4Tag(wideInBox.get()), 1u);
    EXPECT_EQ(wideInBox->data_start_position, 100);
}

TEST_F(ParseTest, VoxaBlockBehindTheDirectoryMovesTheTail) {
    const Bytes file = threeRecordFile({107, false, true, 90, 100});
    InfoPtr info = parse(file, true, SIGNATURE_VOXA_TEV);
    ASSERT_TRUE(info) << dumpLog();
    EXPECT_EQ(info->header_offset, 56u + 30u);
    EXPECT_EQ(dataAt(info.get(), 2), Region(167, 5));
    EXPECT_EQ(ParseTEV(open(file), SIGNATURE_TEV), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();

    Bytes hostile = file;
    putU32le(hostile, hostile.size() - 10, 0xFFFFFFF0u);
    EXPECT_EQ(ParseTEV(open(hostile), SIGNATURE_VOXA_TEV), nullptr);
    EXPECT_TRUE(loggedError("TEV::ParseTEV", "Header Search Error")) << dumpLog();
}

TEST_F(ParseTest, MissingTagsAreNoContainerAndNotLogged) {
    EXPECT_EQ(ParseTEV(open(fakeJpeg(300)), SIGNATURE_TEV), nullptr);
    for (size_t tagByte : {size_t{130}, size_t{158}}) {  // in "TEVH", in "TEVT"
        Bytes file = oneRecordFile();
        file[tagByte] = 'X';
        EXPECT_EQ(ParseTEV(open(file), SIGNATURE_TEV), nullptr) << tagByte;
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(ParseTest, DamagedDirectoryOrRecordHeaderIsRefusedWithItsLog) {
    const std::string kNoOffs = "file has no sound OFFS";
    const std::string kTooBig = "header is bigger then file -> that's not true!!";
    const RecordSpec tiny{1, "n", std::nullopt, {'d'}};
    const struct {
        Bytes file;
        const char* tag;  // null: refused without a log
        std::string text;
    } kCases[] = {
        {patched(151, 12), "TEV::ParseTEV", kNoOffs},  // KTHO of an empty directory
        {patched(151, 160), "TEV::ParseTEV", kNoOffs},
        {patched(151, 0xFFFFFFFFu), "TEV::ParseTEV", kNoOffs},
        {ByteBuilder().text("TEVH").u32le(107).u32le(1).zeros(12).u32le(24).text("TEVT").take(), "TEV::ParseTEV",
         "File Search Error"},  // directory at the first byte
        {patched(131, 208), "TEV::ParseTEV",
         "the source file has TEV data but current TEV version is too old to parse the source file"},
        {patched(135, 0), "TEV::getTEVList", "there is no data"},
        {patched(135, 0x7FFFFFFFu), "TEV::getTEVList", kTooBig},
        {buildContainer(Bytes(4, 0), {tiny}, {110}), "TEV::getTEVList", kTooBig},  // 24 bytes an entry
        {patched(143, 0), "TEVInternal::_addData", "_addData  start_offset <= 0 !!"},
        {patched(143, 128), nullptr, "first record one byte before the file"},
        {patched(104, 0), "TEVInternal::_getNameOfData", "name length is wrong : 0byte"},
        {patched(104, 1025), "TEVInternal::_getNameOfData", "name length is wrong : 1025byte"},
        {patched(108, 0), "TEVInternal::_getNameOfData", "sub data read size <= 0"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        clearLog();
        EXPECT_FALSE(parse(c.file));
        EXPECT_TRUE(c.tag == nullptr || loggedError(c.tag, c.text)) << dumpLog();
    }
}

TEST_F(ParseTest, BoundaryValuesAreAccepted) {
    const Bytes smallestKtho =
        ByteBuilder().zeros(5).text("TEVH").u32le(107).u32le(1).zeros(1).u32le(13).text("TEVT").take();
    EXPECT_TRUE(InfoPtr(ParseTEV(open(smallestKtho), SIGNATURE_TEV)));
    const Bytes directoryAtByteOne =
        ByteBuilder().zeros(1).text("TEVH").u32le(107).u32le(1).zeros(12).u32le(24).text("TEVT").take();
    EXPECT_TRUE(InfoPtr(ParseTEV(open(directoryAtByteOne), SIGNATURE_TEV)));
    InfoPtr newest = parse(patched(131, 207));
    ASSERT_TRUE(newest);
    EXPECT_EQ(newest->version, 207u);
    EXPECT_TRUE(parse(patched(143, 127), false));  // the first record at the file's first byte
    const RecordSpec tiny{1, "n", std::nullopt, {'d'}};
    EXPECT_TRUE(parse(buildContainer(Bytes(4, 0), {tiny}, {107})));
    const RecordSpec longest{1, std::string(1024, 'n'), std::nullopt, {'d'}};
    EXPECT_TRUE(parse(buildContainer(fakeJpeg(10), {longest})));
    // A name running past the end of the stream is read as far as it goes.
    InfoPtr cut = parse(patched(104, 1000));
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->meta_data[0]->name_length, 1000u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(ParseTest, EmptyOrOversizedRegionsHaveNoPosition) {
    InfoPtr empty = parse(buildContainer(fakeJpeg(50), {RecordSpec{2, "empty", std::nullopt, {}}}));
    ASSERT_TRUE(empty) << dumpLog();
    EXPECT_EQ(dataAt(empty.get(), 0), kNoRegion);
    unsigned char* data = nullptr;
    EXPECT_EQ(readDataOfIndex(empty.get(), 0, &data, nullptr), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "Data readDataOfIndexOffset Fail"));

    Bytes file = threeRecordFile();
    putU32le(file, 184 + 8, 10000);   // alpha's record length
    putU32le(file, 132, 0x7FFFFFFF);  // beta's sub-information length
    InfoPtr info = parse(file);
    ASSERT_TRUE(info) << dumpLog();
    EXPECT_EQ(dataAt(info.get(), 0), kNoRegion);
    EXPECT_EQ(subAt(info.get(), 1), kNoRegion);
    EXPECT_EQ(dataAt(info.get(), 1), kNoRegion);
    EXPECT_EQ(dataAt(info.get(), 2), Region(167, 5));
    unsigned char* sub = nullptr;
    EXPECT_EQ(readDataOfIndex(info.get(), 1, nullptr, &sub), 0u);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "SubData readDataOfIndexOffset Fail"));
}

TEST_F(ParseTest, ReadFromAStreamAtZeroReportsTheSeekBackButKeepsTheCopy) {
    InfoPtr info = parse(oneRecordFile());
    ASSERT_TRUE(info);
    ASSERT_EQ(stream_->get()->seek(0, 0), 0);
    unsigned char* data = nullptr;
    EXPECT_EQ(readDataOfIndex(info.get(), 0, &data, nullptr), 0u);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "File seek Error")) << dumpLog();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::memcmp(data, "0123456789", 10), 0);
    _kfree(data);
}

TEST_F(ParseTest, VersionIsReadFromEitherEnding) {
    const Bytes jpeg = fakeJpeg(100);
    EXPECT_EQ(GetTEVVersion(open(threeRecordFile({150}))), 150u);
    EXPECT_EQ(GetTEVVersion(open(threeRecordFile({109, false, true}))), 109u);
    EXPECT_EQ(GetTEVVersion(open(jpeg)), 1u);
    EXPECT_EQ(GetTEVVersion(open(ByteBuilder().zeros(27).text("VOXABS").take())), 1u);
    EXPECT_EQ(GetTEVVersion(open(ByteBuilder().bytes(jpeg).bytes(voxaBlock(106, 1, 2)).take())), 0u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(GetTEVVersion(open(patched(151, 12))), 0u);
    EXPECT_TRUE(loggedError("TEV::GetTEVVersion", "file has no suond OFFS")) << dumpLog();
}

// Small packs are scanned, large ones looked up through a table made on the
// first look-up; both answer the earliest entry of a name, and neither
// changes a field of the caller's pack.
TEST_F(ParseTest, DuplicateNamesFindTheEarliestEntry) {
    for (size_t extra : {0, 60}) {
        std::vector<RecordSpec> records = {
            {1, "one", std::nullopt, {'a'}}, {1, "two", std::nullopt, {'b'}}, {1, "one", std::nullopt, {'c'}}};
        for (size_t i = 0; i < extra; ++i) records.push_back({1, "x" + std::to_string(i % 25), std::nullopt, {'d'}});
        _TEV_info_pack* pack = checkTEVInStream(open(buildContainer(fakeJpeg(2000), records)));
        ASSERT_NE(pack, nullptr) << dumpLog();
        const _TEV_info_pack before = *pack;
        for (size_t i = 0; i < records.size(); ++i) {
            size_t first = 0;
            while (records[first].name != records[i].name) ++first;
            EXPECT_EQ(_getIndexOfName(pack, records[i].name.c_str()), first) << records[i].name;
        }
        EXPECT_EQ(_getIndexOfName(pack, "on"), 0xFFFFFFFFu);
        EXPECT_EQ(_getIndexOfName(pack, "x25"), 0xFFFFFFFFu);
        EXPECT_EQ(std::tie(pack->valid, pack->info, pack->data_count, pack->name_list, pack->unit_count, pack->units),
                  std::tie(before.valid, before.info, before.data_count, before.name_list, before.unit_count,
                           before.units));
        EXPECT_TRUE(logLines().empty()) << dumpLog();
        destroyTEVDATA_Stream(pack);
    }
}

TEST_F(ParseTest, ANullNameInALargeListIsReportedAsTheScanReportsIt) {
    std::vector<RecordSpec> records;
    for (int i = 0; i < 40; ++i) records.push_back({1, "n" + std::to_string(i), std::nullopt, {'e'}});
    _TEV_info_pack* pack = checkTEVInStream(open(buildContainer(fakeJpeg(10), records)));
    ASSERT_NE(pack, nullptr) << dumpLog();
    char* saved = pack->name_list[7];
    pack->name_list[7] = nullptr;
    EXPECT_EQ(_getIndexOfName(pack, "n3"), 3u);
    EXPECT_EQ(_getIndexOfName(pack, "n30"), 0xFFFFFFFFu);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::_getIndexOfName", "7 TEV_name null")) << dumpLog();
    pack->name_list[7] = saved;
    destroyTEVDATA_Stream(pack);
}

}  // namespace
