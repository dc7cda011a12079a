// Parsing containers laid out byte by byte: locating the directory, reading
// entries and names, positions of payloads and sub-information, and the
// refusals of damaged input.
#include <android/log.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/stream_over.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/stream.h"

namespace {

using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::Medium;
using tevtest::RecordSpec;
using tevtest::StreamOver;

struct InfoDeleter {
    void operator()(_TEV_info* info) const { DestroyTEV(info); }
};
using InfoPtr = std::unique_ptr<_TEV_info, InfoDeleter>;
using Region = std::pair<int64_t, int64_t>;  // position, length
const Region kNoRegion{0, 0};

void patchU32(Bytes& bytes, size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes.at(at + i) = uint8_t(value >> (8 * i));
}

// 100 bytes of media, then one record "name" with 10 bytes of data: the
// record lies at 100-121 (name length at 104), "TEVH" at 122, the count at
// 130, the entry at 134 (its offset at 138), KTHO at 146, "TEVT" at 150.
Bytes oneRecordFile() {
    return tevtest::buildContainer(tevtest::fakeJpeg(100),
                                   {RecordSpec{7, "name", std::nullopt, tevtest::textBytes("0123456789")}});
}

// Records at 100 (alpha, 24 bytes), 124 (beta, 25; sub-information length at
// 132) and 149 (gamma, 23); the entries from 184 on.
const std::vector<RecordSpec> kThreeRecords = {
    {1, "alpha", std::nullopt, tevtest::textBytes("payload-one")},
    {0, "beta", tevtest::textBytes("SUBINFO"), tevtest::textBytes("xy")},
    {300, "gamma", tevtest::textBytes("s"), tevtest::textBytes("fifth")},
};

Bytes threeRecordFile(const tevtest::ContainerOptions& options = {}) {
    return tevtest::buildContainer(tevtest::fakeJpeg(100), kThreeRecords, options);
}

// ParseTEV is one body over TevStream: all but one test run on a buffer.
class ParseTest : public tevtest::LogCaptureTest {
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
    for (Medium medium : tevtest::kStreamMedia) {
        SCOPED_TRACE(tevtest::mediumName(medium));
        InfoPtr info = parse(threeRecordFile(), true, SIGNATURE_TEV, medium);
        ASSERT_TRUE(info) << dumpLog();
        EXPECT_EQ(info->stream_size, 228);
        EXPECT_EQ(info->header_offset, 56u);
        EXPECT_EQ(info->data_start_position, 100);
        ASSERT_EQ(info->meta_count, 3u);
        const _TEV_data_info& beta = *info->meta_data[1];
        EXPECT_EQ(beta.meta_type, 0x00008000u);
        EXPECT_EQ(beta.start_offset, 48u);
        EXPECT_EQ(beta.length, 25u);
        EXPECT_STREQ(beta.name, "beta");
        EXPECT_EQ(beta.sub_info_length, 7u);
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
    InfoPtr boxed = parse(tevtest::buildContainer(tevtest::fakeMp4(64), kThreeRecords, {107, true}));
    ASSERT_TRUE(boxed) << dumpLog();
    EXPECT_EQ(checkSignatureMP4Tag(boxed.get()), 1u);
    EXPECT_EQ(boxed->data_start_position, 64);
    InfoPtr plain = parse(tevtest::buildContainer(tevtest::fakeMp4(64), kThreeRecords));
    ASSERT_TRUE(plain) << dumpLog();
    EXPECT_EQ(checkSignatureMP4Tag(plain.get()), 0u);

    const Bytes body = tevtest::buildContainer({}, kThreeRecords, {110});
    InfoPtr wide = parse(ByteBuilder().bytes(tevtest::fakeJpeg(100)).u32le(0).bytes(body).take());
    ASSERT_TRUE(wide) << dumpLog();
    EXPECT_EQ(wide->data_start_position, 100);
    ByteBuilder wideBoxed;
    wideBoxed.bytes(tevtest::fakeMp4(100)).u32be(uint32_t(body.size() + 12)).text("tevd");
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
    patchU32(hostile, hostile.size() - 10, 0xFFFFFFF0u);
    EXPECT_EQ(ParseTEV(open(hostile), SIGNATURE_VOXA_TEV), nullptr);
    EXPECT_TRUE(loggedError("TEV::ParseTEV", "Header Search Error")) << dumpLog();
}

TEST_F(ParseTest, MissingTagsAreNoContainerAndNotLogged) {
    EXPECT_EQ(ParseTEV(open(tevtest::fakeJpeg(300)), SIGNATURE_TEV), nullptr);
    for (size_t tagByte : {size_t{125}, size_t{153}}) {  // in "TEVH", in "TEVT"
        Bytes file = oneRecordFile();
        file[tagByte] = 'X';
        EXPECT_EQ(ParseTEV(open(file), SIGNATURE_TEV), nullptr) << tagByte;
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(ParseTest, KthoMustCoverMoreThanAnEmptyDirectoryAndStayInsideTheFile) {
    for (uint32_t ktho : {12u, 155u, 0xFFFFFFFFu}) {
        Bytes file = oneRecordFile();
        patchU32(file, 146, ktho);
        EXPECT_EQ(ParseTEV(open(file), SIGNATURE_TEV), nullptr) << ktho;
    }
    EXPECT_TRUE(loggedError("TEV::ParseTEV", "file has no sound OFFS")) << dumpLog();
    const Bytes smallest =
        ByteBuilder().zeros(5).text("TEVH").u32le(107).u32le(1).zeros(1).u32le(13).text("TEVT").take();
    EXPECT_TRUE(InfoPtr(ParseTEV(open(smallest), SIGNATURE_TEV))) << dumpLog();
}

TEST_F(ParseTest, DirectoryAtTheFirstByteIsRefused) {
    ByteBuilder directory;
    directory.text("TEVH").u32le(107).u32le(1).u32le(0x10000).u32le(5).u32le(5).u32le(24).text("TEVT");
    EXPECT_EQ(ParseTEV(open(directory.data()), SIGNATURE_TEV), nullptr);
    EXPECT_TRUE(loggedError("TEV::ParseTEV", "File Search Error")) << dumpLog();
    const Bytes oneByteLater = ByteBuilder().zeros(1).bytes(directory.data()).take();
    EXPECT_TRUE(InfoPtr(ParseTEV(open(oneByteLater), SIGNATURE_TEV)));
}

TEST_F(ParseTest, Version207ParsesAnd208IsRefused) {
    InfoPtr newest = parse(threeRecordFile({207}));
    ASSERT_TRUE(newest) << dumpLog();
    EXPECT_EQ(newest->version, 207u);
    EXPECT_EQ(ParseTEV(open(threeRecordFile({208})), SIGNATURE_TEV), nullptr);
    EXPECT_TRUE(loggedError(
        "TEV::ParseTEV",
        "the source file has TEV data but current TEV version is too old to parse the source file"));
}

TEST_F(ParseTest, CountsThatCannotBeRightAreRefusedBeforeReading) {
    Bytes empty = oneRecordFile();
    patchU32(empty, 130, 0);
    EXPECT_FALSE(parse(empty, false));
    EXPECT_TRUE(loggedError("TEV::getTEVList", "there is no data")) << dumpLog();
    for (uint32_t count : {2u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Bytes file = oneRecordFile();
        patchU32(file, 130, count);
        EXPECT_FALSE(parse(file, false)) << count;
    }
    // From version 110 on the file must hold 24 bytes per entry.
    const RecordSpec tiny{1, "n", std::nullopt, {'d'}};
    EXPECT_TRUE(parse(tevtest::buildContainer(Bytes(4, 0), {tiny}, {107})));
    EXPECT_FALSE(parse(tevtest::buildContainer(Bytes(4, 0), {tiny}, {110})));
    EXPECT_TRUE(loggedError("TEV::getTEVList", "header is bigger then file -> that's not true!!"));
}

TEST_F(ParseTest, EntryOffsetMustBeNonZeroAndInsideTheFile) {
    Bytes file = oneRecordFile();
    patchU32(file, 138, 0);
    EXPECT_FALSE(parse(file, false));
    EXPECT_TRUE(loggedError("TEVInternal::_addData", "_addData  start_offset <= 0 !!")) << dumpLog();
    EXPECT_TRUE(loggedError("TEV::getTEVList", "_addData return is LUMET_TEV_FALSE!!")) << dumpLog();
    patchU32(file, 138, 123);  // one byte before the file
    EXPECT_FALSE(parse(file, false));
    patchU32(file, 138, 122);  // the first byte
    EXPECT_TRUE(parse(file, false)) << dumpLog();
}

TEST_F(ParseTest, NameLengthOutsideOneTo1024IsRefused) {
    for (uint32_t length : {0u, 1025u}) {
        Bytes file = oneRecordFile();
        patchU32(file, 104, length);
        EXPECT_FALSE(parse(file));
        EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData",
                                "name length is wrong : " + std::to_string(length) + "byte"));
    }
    EXPECT_TRUE(loggedError("TEV::getAllNameOfDataList", "0th data has no name!")) << dumpLog();
    const RecordSpec longest{1, std::string(1024, 'n'), std::nullopt, {'d'}};
    EXPECT_TRUE(parse(tevtest::buildContainer(tevtest::fakeJpeg(10), {longest}))) << dumpLog();
}

TEST_F(ParseTest, FlaggedRecordNeedsSubInfoLength) {
    Bytes file = threeRecordFile();
    patchU32(file, 132, 0);  // beta's sub-information length
    EXPECT_FALSE(parse(file));
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", "sub data read size <= 0")) << dumpLog();
    EXPECT_TRUE(loggedError("TEV::getAllNameOfDataList", "1th data has no name!")) << dumpLog();
}

TEST_F(ParseTest, NameReaderRefusesNamesOutsideTheFile) {
    Bytes file = oneRecordFile();
    patchU32(file, 104, 1000);
    InfoPtr info = parse(file, false);
    ASSERT_TRUE(info);
    EXPECT_EQ(_getNameOfData(info.get(), 0), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", "name read size < 0")) << dumpLog();
    EXPECT_EQ(info->meta_data[0]->name, nullptr);
    info->meta_data[0]->start_offset = 0xFFFFFFF0u;
    EXPECT_EQ(_getNameOfData(info.get(), 0), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData",
                            "data_start_position is larger than header_offset, abnormal operation"));
}

TEST_F(ParseTest, EmptyOrOversizedRegionsHaveNoPosition) {
    InfoPtr empty = parse(tevtest::buildContainer(tevtest::fakeJpeg(50), {RecordSpec{2, "empty", std::nullopt, {}}}));
    ASSERT_TRUE(empty) << dumpLog();
    EXPECT_EQ(dataAt(empty.get(), 0), kNoRegion);
    unsigned char* data = nullptr;
    EXPECT_EQ(readDataOfIndex(empty.get(), 0, &data, nullptr), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "Data readDataOfIndexOffset Fail"));

    Bytes file = threeRecordFile();
    patchU32(file, 184 + 8, 10000);   // alpha's record length
    patchU32(file, 132, 0x7FFFFFFF);  // beta's sub-information length
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
    const Bytes jpeg = tevtest::fakeJpeg(100);
    EXPECT_EQ(GetTEVVersion(open(threeRecordFile({150}))), 150u);
    EXPECT_EQ(GetTEVVersion(open(threeRecordFile({109, false, true}))), 109u);
    EXPECT_EQ(GetTEVVersion(open(jpeg)), 1u);
    EXPECT_EQ(GetTEVVersion(open(ByteBuilder().zeros(27).text("VOXABS").take())), 1u);
    EXPECT_EQ(GetTEVVersion(open(ByteBuilder().bytes(jpeg).bytes(tevtest::voxaBlock(106, 1, 2)).take())), 0u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    Bytes badKtho = oneRecordFile();
    patchU32(badKtho, 146, 12);
    EXPECT_EQ(GetTEVVersion(open(badKtho)), 0u);
    EXPECT_TRUE(loggedError("TEV::GetTEVVersion", "file has no suond OFFS")) << dumpLog();
}

TEST_F(ParseTest, DuplicateNamesFindTheEarliestEntry) {
    const std::vector<RecordSpec> records = {
        {1, "one", std::nullopt, {'a'}}, {1, "two", std::nullopt, {'b'}}, {1, "one", std::nullopt, {'c'}}};
    _TEV_info_pack* pack = checkTEVInStream(open(tevtest::buildContainer(tevtest::fakeJpeg(10), records)));
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(_getIndexOfName(pack, "two"), 1u);
    EXPECT_EQ(_getIndexOfName(pack, "one"), 0u);
    EXPECT_EQ(_getIndexOfName(pack, "on"), 0xFFFFFFFFu);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    destroyTEVDATA_Stream(pack);
}

TEST_F(ParseTest, VersionTextAndBanner) {
    char* text = getTEVVersion();
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "107");
    _kfree(text);
    printTEVVersion();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "TEV Version Info", "Lumet TEV Library Version\n")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "TEV Version Info", "Version\t : 107\n")) << dumpLog();
}

}  // namespace
