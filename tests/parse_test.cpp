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
// record lies at 100-121, "TEVH" at 122, the entry at 134, KTHO at 146.
Bytes oneRecordFile() {
    return tevtest::buildContainer(tevtest::fakeJpeg(100),
                                   {RecordSpec{7, "name", std::nullopt, tevtest::textBytes("0123456789")}});
}

// Records at 100 (alpha, 24 bytes), 124 (beta, 25) and 149 (gamma, 23).
const std::vector<RecordSpec>& threeRecords() {
    static const std::vector<RecordSpec> records = {
        {1, "alpha", std::nullopt, tevtest::textBytes("payload-one")},
        {0, "beta", tevtest::textBytes("SUBINFO"), tevtest::textBytes("xy")},
        {300, "gamma", tevtest::textBytes("s"), tevtest::textBytes("fifth")},
    };
    return records;
}

class ParseTest : public tevtest::LogCaptureTest, public ::testing::WithParamInterface<Medium> {
protected:
    TevStream* open(const Bytes& content) {
        stream_ = std::make_unique<StreamOver>(GetParam(), content);
        return stream_->get();
    }
    // ParseTEV and getTEVList; null when either fails.
    InfoPtr parse(const Bytes& content, uint32_t signature = SIGNATURE_TEV) {
        InfoPtr info(ParseTEV(open(content), signature));
        if (!info || getTEVList(info.get()) != 1) return nullptr;
        return info;
    }
    InfoPtr parseWithNames(const Bytes& content, uint32_t signature = SIGNATURE_TEV) {
        InfoPtr info = parse(content, signature);
        if (!info || getAllNameOfDataList(info.get()) != 1) return nullptr;
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

TEST_P(ParseTest, ReadsOneRecordBehindMedia) {
    InfoPtr info = parseWithNames(oneRecordFile());
    ASSERT_TRUE(info) << dumpLog();
    EXPECT_EQ(info->stream_size, 154);
    EXPECT_EQ(info->header_offset, 32u);
    EXPECT_EQ(info->version, 107u);
    EXPECT_EQ(info->data_start_position, 100);
    ASSERT_EQ(info->meta_count, 1u);
    const _TEV_data_info& entry = *info->meta_data[0];
    EXPECT_EQ(entry.meta_type, 0x00070000u);
    EXPECT_EQ(entry.start_offset, 22u);
    EXPECT_EQ(entry.length, 22u);
    EXPECT_STREQ(entry.name, "name");
    EXPECT_EQ(entry.name_length, 4u);
    EXPECT_EQ(dataAt(info.get(), 0), Region(112, 10));
    EXPECT_EQ(subAt(info.get(), 0), kNoRegion);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(ParseTest, LocatesAndCopiesPayloadAndSubInfoOfEveryRecord) {
    InfoPtr info = parseWithNames(tevtest::buildContainer(tevtest::fakeJpeg(100), threeRecords()));
    ASSERT_TRUE(info) << dumpLog();
    ASSERT_EQ(info->meta_count, 3u);
    EXPECT_EQ(info->meta_data[1]->has_sub_info, 1u);
    EXPECT_EQ(info->meta_data[1]->sub_info_length, 7u);
    EXPECT_STREQ(info->meta_data[2]->name, "gamma");
    EXPECT_EQ(dataAt(info.get(), 0), Region(113, 11));
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
}

TEST_P(ParseTest, DataStartCoversTheTevdBoxAndTheWideVersionsLeadingField) {
    InfoPtr boxed = parse(tevtest::buildContainer(tevtest::fakeMp4(64), threeRecords(), {107, true}));
    ASSERT_TRUE(boxed) << dumpLog();
    EXPECT_EQ(checkSignatureMP4Tag(boxed.get()), 1u);
    EXPECT_EQ(boxed->data_start_position, 64);
    InfoPtr plain = parse(tevtest::buildContainer(tevtest::fakeMp4(64), threeRecords()));
    ASSERT_TRUE(plain) << dumpLog();
    EXPECT_EQ(checkSignatureMP4Tag(plain.get()), 0u);
    EXPECT_EQ(plain->data_start_position, 64);

    const Bytes body = tevtest::buildContainer({}, threeRecords(), {110});
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

TEST_P(ParseTest, VoxaBlockBehindTheDirectoryMovesTheTail) {
    const Bytes file =
        tevtest::buildContainer(tevtest::fakeJpeg(100), threeRecords(), {107, false, true, 90, 100});
    InfoPtr info = parseWithNames(file, SIGNATURE_VOXA_TEV);
    ASSERT_TRUE(info) << dumpLog();
    EXPECT_EQ(info->header_offset, 48u + 38u);
    EXPECT_EQ(info->data_start_position, 100);
    EXPECT_EQ(dataAt(info.get(), 2), Region(167, 5));
    EXPECT_EQ(ParseTEV(open(file), SIGNATURE_TEV), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();

    Bytes hostile = file;
    patchU32(hostile, hostile.size() - 10, 0xFFFFFFF0u);
    EXPECT_EQ(ParseTEV(open(hostile), SIGNATURE_VOXA_TEV), nullptr);
    EXPECT_TRUE(loggedError("TEV::ParseTEV", "Header Search Error")) << dumpLog();
}

TEST_P(ParseTest, MissingTagsAreNoContainerAndNotLogged) {
    EXPECT_EQ(ParseTEV(open(tevtest::fakeJpeg(300)), SIGNATURE_TEV), nullptr);
    Bytes wrongHead = oneRecordFile();
    wrongHead[125] = 'X';
    EXPECT_EQ(ParseTEV(open(wrongHead), SIGNATURE_TEV), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(ParseTest, KthoMustCoverAnEntryAndStayInsideTheFile) {
    for (uint32_t ktho : {12u, 155u, 0xFFFFFFFFu}) {
        Bytes file = oneRecordFile();
        patchU32(file, 146, ktho);
        EXPECT_EQ(ParseTEV(open(file), SIGNATURE_TEV), nullptr) << ktho;
    }
    EXPECT_TRUE(loggedError("TEV::ParseTEV", "file has no sound OFFS")) << dumpLog();
}

TEST_P(ParseTest, DirectoryAtTheFirstByteIsRefused) {
    ByteBuilder directory;
    directory.text("TEVH").u32le(107).u32le(1).u32le(0x10000).u32le(5).u32le(5).u32le(24).text("TEVT");
    EXPECT_EQ(ParseTEV(open(directory.data()), SIGNATURE_TEV), nullptr);
    EXPECT_TRUE(loggedError("TEV::ParseTEV", "File Search Error")) << dumpLog();
    InfoPtr oneByteLater(ParseTEV(open(ByteBuilder().zeros(1).bytes(directory.data()).take()), SIGNATURE_TEV));
    EXPECT_TRUE(oneByteLater);
}

TEST_P(ParseTest, Version207ParsesAnd208IsRefused) {
    const Bytes media = tevtest::fakeJpeg(100);
    InfoPtr newest = parse(tevtest::buildContainer(media, threeRecords(), {207}));
    ASSERT_TRUE(newest) << dumpLog();
    EXPECT_EQ(newest->version, 207u);
    EXPECT_EQ(ParseTEV(open(tevtest::buildContainer(media, threeRecords(), {208})), SIGNATURE_TEV), nullptr);
    EXPECT_TRUE(loggedError(
        "TEV::ParseTEV",
        "the source file has TEV data but current TEV version is too old to parse the source file"));
}

TEST_P(ParseTest, CountsThatCannotBeRightAreRefusedBeforeReading) {
    Bytes empty = oneRecordFile();
    patchU32(empty, 130, 0);
    EXPECT_FALSE(parse(empty));
    EXPECT_TRUE(loggedError("TEV::getTEVList", "there is no data")) << dumpLog();
    for (uint32_t count : {2u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Bytes file = oneRecordFile();
        patchU32(file, 130, count);
        EXPECT_FALSE(parse(file)) << count;
    }
    // From version 110 on the file must hold 24 bytes per entry.
    const RecordSpec tiny{1, "n", std::nullopt, {'d'}};
    EXPECT_TRUE(parse(tevtest::buildContainer(Bytes(4, 0), {tiny}, {107})));
    EXPECT_FALSE(parse(tevtest::buildContainer(Bytes(4, 0), {tiny}, {110})));
    EXPECT_TRUE(loggedError("TEV::getTEVList", "header is bigger then file -> that's not true!!"));
}

TEST_P(ParseTest, EntryWithoutOffsetFailsTheWholeList) {
    Bytes file = oneRecordFile();
    patchU32(file, 138, 0);
    InfoPtr info(ParseTEV(open(file), SIGNATURE_TEV));
    ASSERT_TRUE(info);
    EXPECT_EQ(getTEVList(info.get()), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_addData", "_addData  start_offset <= 0 !!")) << dumpLog();
    EXPECT_TRUE(loggedError("TEV::getTEVList", "_addData return is LUMET_TEV_FALSE!!")) << dumpLog();
    EXPECT_EQ(info->meta_count, 1u);
    EXPECT_EQ(info->meta_data, nullptr);
}

TEST_P(ParseTest, FirstRecordBeforeTheStartOfTheFileIsRefused) {
    Bytes file = oneRecordFile();
    patchU32(file, 138, 123);  // one byte before the file
    EXPECT_FALSE(parse(file));
    patchU32(file, 138, 122);  // the first byte
    EXPECT_TRUE(parse(file)) << dumpLog();
}

TEST_P(ParseTest, NameLengthOutsideOneTo1024IsRefused) {
    for (uint32_t length : {0u, 1025u}) {
        Bytes file = oneRecordFile();
        patchU32(file, 104, length);
        EXPECT_FALSE(parseWithNames(file));
        EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData",
                                "name length is wrong : " + std::to_string(length) + "byte"));
    }
    EXPECT_TRUE(loggedError("TEV::getAllNameOfDataList", "0th data has no name!")) << dumpLog();
}

TEST_P(ParseTest, FlaggedRecordNeedsSubInfoLength) {
    Bytes file = tevtest::buildContainer(tevtest::fakeJpeg(100), threeRecords());
    patchU32(file, 132, 0);  // beta's sub-information length
    EXPECT_FALSE(parseWithNames(file));
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", "sub data read size <= 0")) << dumpLog();
    EXPECT_TRUE(loggedError("TEV::getAllNameOfDataList", "1th data has no name!")) << dumpLog();
}

TEST_P(ParseTest, NameReaderRefusesNamesItCannotLocate) {
    Bytes file = oneRecordFile();
    patchU32(file, 104, 1000);
    InfoPtr info = parse(file);
    ASSERT_TRUE(info);
    EXPECT_EQ(_getNameOfData(info.get(), 0), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", "name read size < 0")) << dumpLog();
    EXPECT_EQ(info->meta_data[0]->name, nullptr);
    EXPECT_EQ(_getNameOfData(info.get(), 1), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", "index false"));
    info->meta_data[0]->start_offset = 0xFFFFFFF0u;
    EXPECT_EQ(_getNameOfData(info.get(), 0), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData",
                            "data_start_position is larger than header_offset, abnormal operation"));
    info->meta_data[0]->start_offset = 200;
    EXPECT_EQ(_getNameOfDataBuffer(info.get(), 0), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", "File System Error -1\n ")) << dumpLog();
}

TEST_P(ParseTest, EmptyOrOversizedRegionsHaveNoPosition) {
    InfoPtr empty = parseWithNames(
        tevtest::buildContainer(tevtest::fakeJpeg(50), {RecordSpec{2, "empty", std::nullopt, {}}}));
    ASSERT_TRUE(empty) << dumpLog();
    EXPECT_EQ(dataAt(empty.get(), 0), kNoRegion);
    unsigned char* data = nullptr;
    EXPECT_EQ(readDataOfIndex(empty.get(), 0, &data, nullptr), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "Data readDataOfIndexOffset Fail"));

    Bytes file = tevtest::buildContainer(tevtest::fakeJpeg(100), threeRecords());
    patchU32(file, 184 + 8, 10000);   // alpha's record length
    patchU32(file, 132, 0x7FFFFFFF);  // beta's sub-information length
    InfoPtr info = parseWithNames(file);
    ASSERT_TRUE(info) << dumpLog();
    EXPECT_EQ(dataAt(info.get(), 0), kNoRegion);
    EXPECT_EQ(subAt(info.get(), 1), kNoRegion);
    EXPECT_EQ(dataAt(info.get(), 1), kNoRegion);
    EXPECT_EQ(dataAt(info.get(), 2), Region(167, 5));
    unsigned char* sub = nullptr;
    EXPECT_EQ(readDataOfIndex(info.get(), 1, nullptr, &sub), 0u);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "SubData readDataOfIndexOffset Fail"));
}

TEST_P(ParseTest, ReadFromAStreamAtZeroReportsTheSeekBack) {
    InfoPtr info = parseWithNames(oneRecordFile());
    ASSERT_TRUE(info);
    ASSERT_EQ(stream_->get()->seek(0, 0), 0);
    unsigned char* data = nullptr;
    EXPECT_EQ(readDataOfIndex(info.get(), 0, &data, nullptr), 0u);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "File seek Error")) << dumpLog();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::memcmp(data, "0123456789", 10), 0);
    _kfree(data);
}

TEST_P(ParseTest, VersionIsReadFromEitherEnding) {
    const Bytes jpeg = tevtest::fakeJpeg(100);
    EXPECT_EQ(GetTEVVersion(open(oneRecordFile())), 107u);
    EXPECT_EQ(GetTEVVersion(open(tevtest::buildContainer(jpeg, threeRecords(), {150}))), 150u);
    EXPECT_EQ(GetTEVVersion(open(tevtest::buildContainer(jpeg, threeRecords(), {109, false, true}))), 109u);
    EXPECT_EQ(GetTEVVersion(open(jpeg)), 1u);
    EXPECT_EQ(GetTEVVersion(open(Bytes(5, 'T'))), 1u);
    EXPECT_EQ(GetTEVVersion(open(ByteBuilder().zeros(27).text("VOXABS").take())), 1u);
    EXPECT_EQ(GetTEVVersion(open(ByteBuilder().bytes(jpeg).bytes(tevtest::voxaBlock(106, 1, 2)).take())), 0u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    Bytes badKtho = oneRecordFile();
    patchU32(badKtho, 146, 12);
    EXPECT_EQ(GetTEVVersion(open(badKtho)), 0u);
    EXPECT_TRUE(loggedError("TEV::GetTEVVersion", "file has no suond OFFS")) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(Media, ParseTest, ::testing::Values(Medium::Buffer, Medium::File),
                         [](const auto& info) { return tevtest::mediumName(info.param); });

class IndexLookupTest : public tevtest::LogCaptureTest {};

// A pack over an index whose entries carry `names`, as the checks make it.
_TEV_info_pack* packWithNames(const std::vector<const char*>& names) {
    auto* info = static_cast<_TEV_info*>(_kmalloc(sizeof(_TEV_info)));
    info->valid = 1;
    info->meta_count = uint32_t(names.size());
    info->meta_data = static_cast<_TEV_data_info**>(_kcalloc(names.size(), sizeof(_TEV_data_info*)));
    auto* pack = static_cast<_TEV_info_pack*>(_kmalloc(sizeof(_TEV_info_pack)));
    pack->valid = 1;
    pack->info = info;
    pack->data_count = info->meta_count;
    pack->name_list = static_cast<char**>(_kcalloc(names.size(), sizeof(char*)));
    for (size_t i = 0; i < names.size(); ++i) {
        auto* entry = static_cast<_TEV_data_info*>(_kmalloc(sizeof(_TEV_data_info)));
        if (names[i] != nullptr) {
            entry->name = static_cast<char*>(_kmalloc(std::strlen(names[i]) + 1));
            std::strcpy(entry->name, names[i]);
        }
        info->meta_data[i] = entry;
        pack->name_list[i] = entry->name;
    }
    return pack;
}

TEST_F(IndexLookupTest, DuplicateNamesFindTheEarliestEntry) {
    _TEV_info_pack* pack = packWithNames({"one", "two", "one", "two"});
    pack->unit_count = 2;
    pack->units = static_cast<void**>(_kcalloc(2, sizeof(void*)));
    pack->units[0] = _kmalloc(16);
    EXPECT_EQ(_getIndexOfName(pack, "two"), 1u);
    EXPECT_EQ(_getIndexOfName(pack, "one"), 0u);
    EXPECT_EQ(_getIndexOfName(pack, "on"), 0xFFFFFFFFu);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(destroyTEVDATA_Stream(pack), 1u);
}

TEST_F(IndexLookupTest, LookupStopsAtAMissingName) {
    _TEV_info_pack* pack = packWithNames({"a", nullptr, "x"});
    EXPECT_EQ(_getIndexOfName(pack, "x"), 0xFFFFFFFFu);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::_getIndexOfName", "1 TEV_name null")) << dumpLog();
    EXPECT_EQ(destroyTEVDATA_Stream(pack), 1u);
}

TEST_F(IndexLookupTest, PackDestroyersReleaseOrKeepWhatTheStreamStandsOn) {
    const Bytes file = oneRecordFile();
    TevBufferHandle* handle = _kbopen(int64_t(file.size()));
    ASSERT_EQ(_kbwrite(file.data(), int64_t(file.size()), handle), int64_t(file.size()));
    _TEV_info_pack* owned = packWithNames({"name"});
    owned->info->Stream = new TevStreamBuffer(handle);
    EXPECT_EQ(destroyTEVDATA(owned), 1u);  // frees the handle as well

    tevtest::TempFile temp(file);
    FILE* fp = _kfopen(temp.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    _TEV_info_pack* borrowed = packWithNames({"name"});
    borrowed->info->Stream = new TevStreamFile(fp);
    EXPECT_EQ(destroyTEVDATA_FP(borrowed), 1u);
    EXPECT_EQ(_kfclose(fp), 0);  // still open

    auto* unit = static_cast<_TEV_data_unit*>(_kmalloc(sizeof(_TEV_data_unit)));
    unit->data = static_cast<unsigned char*>(_kmalloc(4));
    unit->sub_info = static_cast<unsigned char*>(_kmalloc(4));
    destroyTEVDATA_UNIT(unit);
}

TEST_F(IndexLookupTest, VersionTextAndBanner) {
    char* text = getTEVVersion();
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "107");
    _kfree(text);
    printTEVVersion();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "TEV Version Info", "Lumet TEV Library Version\n")) << dumpLog();
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "TEV Version Info", "Version\t : 107\n")) << dumpLog();
    bool dated = false;
    for (const auto& line : logLines()) {
        dated = dated || (line.text.rfind("Build Date\t : ", 0) == 0 && line.text.back() == '\n');
    }
    EXPECT_TRUE(dated) << dumpLog();
}

}  // namespace
