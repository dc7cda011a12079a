// Parsing containers laid out byte by byte: the directory, entries and names (batched reads fail
// as field reads do), positions of payloads, and the refusals of damaged input and bad arguments.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "support/log_capture.h"
#include "support/medium.h"
#include "support/records.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

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

// Most tests run on a buffer; the batched readers also on a file, whose short reads differ.
class ParseTest : public LogCaptureTest {
protected:
    TevStream* open(const Bytes& content, Medium medium = Medium::Buffer) {
        stream_ = std::make_unique<StreamOver>(medium, content);
        return stream_->get();
    }
    // ParseTEV, getTEVList and, with `names`, getAllNameOfDataList; null when one of them fails.
    tev::Index parse(const Bytes& content, bool names = true, uint32_t signature = SIGNATURE_TEV,
                     Medium medium = Medium::Buffer) {
        tev::Index info(ParseTEV(open(content, medium), signature));
        if (!info || getTEVList(info.get()) != 1) return nullptr;
        if (names && getAllNameOfDataList(info.get()) != 1) return nullptr;
        return info;
    }
    std::unique_ptr<StreamOver> stream_;
};

// Where a record's data (or sub-information) lies; kNoRegion for none.
Region dataAt(_TEV_info* info, uint32_t index, bool sub = false) {
    Region region{-1, -1};
    (sub ? readSubDataInfoOfDataOffset : readDataOfIndexOffset)(info, index, &region.first, &region.second);
    return region;
}
Region subAt(_TEV_info* info, uint32_t index) { return dataAt(info, index, true); }

TEST_F(ParseTest, ReadsEveryRecordOnEveryStreamMedium) {
    for (Medium medium : kStreamMedia) {
        SCOPED_TRACE(mediumName(medium));
        tev::Index info = parse(threeRecordFile(), true, SIGNATURE_TEV, medium);
        ASSERT_TRUE(info) << dumpLog();
        EXPECT_EQ(info->data_start_position, 100);
        ASSERT_EQ(info->meta_count, 3u);
        EXPECT_STREQ(info->meta_data[1]->name, "beta");
        EXPECT_EQ((std::vector<Region>{dataAt(info.get(), 0), subAt(info.get(), 0), subAt(info.get(), 1),
                                       dataAt(info.get(), 1), subAt(info.get(), 2), dataAt(info.get(), 2),
                                       dataAt(info.get(), 3)}),
                  (std::vector<Region>{{113, 11}, kNoRegion, {140, 7}, {147, 2}, {166, 1}, {167, 5}, kNoRegion}));
        // The copies leave the stream where it stood; one that stood at 0
        // reports the seek back as a failure, the copy is still made.
        for (int64_t stood : {7, 0}) {
            ASSERT_EQ(stream_->get()->seek(stood, 0), stood);
            unsigned char *data = nullptr, *sub = nullptr;
            EXPECT_EQ(readDataOfIndex(info.get(), 1, &data, &sub), stood != 0 ? 1u : 0u) << dumpLog();
            const tev::KBytes ownedData(data), ownedSub(sub);
            ASSERT_TRUE(data && sub);
            EXPECT_EQ(std::string(reinterpret_cast<char*>(data), 2) + std::string(reinterpret_cast<char*>(sub), 7),
                      "xySUBINFO");
            EXPECT_EQ(stream_->get()->tell(), stood);
        }
        ASSERT_EQ(logLines().size(), 1u) << dumpLog();
        EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "File seek Error")) << dumpLog();
        clearLog();
    }
}

// Layouts that parse, with the version read and where the appended region starts: boxed, behind the
// leading field of the wide versions, in front of a Voxa block, at the boundaries of each value.
TEST_F(ParseTest, AcceptedLayoutsAndBoundaryValues) {
    const Bytes wide = buildContainer({}, kThreeRecords, {110});
    const RecordSpec tiny{1, "n", std::nullopt, {'d'}}, longest{1, std::string(1024, 'n'), std::nullopt, {'d'}};
    // `boxed` is what checkSignatureMP4Tag answers.
    const struct { const char* what; Bytes file; uint32_t version; int64_t dataStart; uint32_t boxed;
                   uint32_t signature = SIGNATURE_TEV; bool names = true; } kCases[] = {
        {"boxed", buildContainer(fakeMp4(64), kThreeRecords, {107, true}), 107, 64, 1},
        {"wide", ByteBuilder().bytes(fakeJpeg(100)).u32le(0).bytes(wide).take(), 110, 100, 0},
        {"wide boxed", ByteBuilder().bytes(fakeMp4(100)).u32be(uint32_t(wide.size() + 12)).text("tevd").u32le(0)
                           .bytes(wide).take(), 110, 100, 1},
        {"voxa behind", threeRecordFile({107, false, true, 90, 100}), 107, 100, 0, SIGNATURE_VOXA_TEV},
        {"newest version", patched(131, 207), 207, 96, 0},  // wide: 4 bytes in front of the record
        {"first record at byte 0", patched(143, 127), 107, 0, 0, SIGNATURE_TEV, false},
        {"4 bytes of media", buildContainer(Bytes(4, 0), {tiny}), 107, 4, 0},
        {"longest name", buildContainer(fakeJpeg(10), {longest}), 107, 10, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        tev::Index info = parse(c.file, c.names, c.signature);
        ASSERT_TRUE(info) << dumpLog();
        EXPECT_EQ(std::make_tuple(info->version, GetTEVVersion(stream_->get()), info->data_start_position,
                                  checkSignatureMP4Tag(info.get())),
                  std::make_tuple(c.version, c.version, c.dataStart, c.boxed));
        if (c.signature == SIGNATURE_VOXA_TEV) {
            EXPECT_EQ(info->header_offset, 56u + 30u);
            EXPECT_EQ(dataAt(info.get(), 2), Region(167, 5));
        }
    }
    for (const auto& [media, ktho] : {std::pair<size_t, uint32_t>{5, 13}, {1, 24}}) {  // directory at byte 1
        const Bytes file = ByteBuilder().zeros(media).text("TEVH").u32le(107).u32le(1).zeros(ktho - 12).u32le(ktho)
                               .text("TEVT").take();
        EXPECT_TRUE(tev::Index(ParseTEV(open(file), SIGNATURE_TEV))) << media;
    }
    tev::Index cut = parse(patched(104, 1000));  // a name past the end is read as far as it goes
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->meta_data[0]->name_length, 1000u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(ParseTest, DamagedInputIsRefusedWithItsLog) {
    const std::string kNoOffs = "file has no sound OFFS";
    const std::string kTooBig = "header is bigger then file -> that's not true!!";
    const RecordSpec tiny{1, "n", std::nullopt, {'d'}};
    const Bytes voxa = threeRecordFile({107, false, true, 90, 100});
    Bytes hostile = voxa;
    putU32le(hostile, hostile.size() - 10, 0xFFFFFFF0u);  // the Voxa block's distance to the directory
    // A null tag: refused without any log line.
    const struct { Bytes file; const char* tag; std::string text;
                   uint32_t signature = SIGNATURE_TEV; } kCases[] = {
        {fakeJpeg(300), nullptr, "no tags at all"},
        {patched(127, 0), nullptr, "no TEVH"},
        {patched(155, 0), nullptr, "no TEVT"},
        {voxa, nullptr, "a Voxa block read as the directory's end"},
        {hostile, "TEV::ParseTEV", "Header Search Error", SIGNATURE_VOXA_TEV},
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
        EXPECT_FALSE(parse(c.file, true, c.signature));
        EXPECT_TRUE(c.tag == nullptr ? logLines().empty() : loggedError(c.tag, c.text)) << dumpLog();
    }
    EXPECT_EQ(GetTEVVersion(open(patched(151, 12))), 0u);  // the version is read from either ending
    EXPECT_TRUE(loggedError("TEV::GetTEVVersion", "file has no suond OFFS")) << dumpLog();
}

TEST_F(ParseTest, OversizedRegionsHaveNoPosition) {
    Bytes file = threeRecordFile();
    putU32le(file, 184 + 8, 10000);   // alpha's record length
    putU32le(file, 132, 0x7FFFFFFF);  // beta's sub-information length
    tev::Index info = parse(file);
    ASSERT_TRUE(info) << dumpLog();
    EXPECT_EQ((std::vector<Region>{dataAt(info.get(), 0), subAt(info.get(), 1), dataAt(info.get(), 1),
                                   dataAt(info.get(), 2)}),
              (std::vector<Region>{kNoRegion, kNoRegion, kNoRegion, {167, 5}}));
    unsigned char *data = nullptr, *sub = nullptr;
    EXPECT_EQ(readDataOfIndex(info.get(), 0, &data, nullptr) + readDataOfIndex(info.get(), 1, nullptr, &sub), 0u);
    EXPECT_TRUE(data == nullptr && sub == nullptr);
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "Data readDataOfIndexOffset Fail")) << dumpLog();
    EXPECT_TRUE(loggedError("TEVDecoder::readDataOfIndex", "SubData readDataOfIndexOffset Fail")) << dumpLog();
}

// Small packs are scanned, large ones looked up through a table made on the first look-up; both
// answer a name's earliest entry, change no field of the pack, and stop at a null name in the list.
TEST_F(ParseTest, DuplicateNamesFindTheEarliestEntry) {
    for (size_t extra : {0, 60}) {
        std::vector<RecordSpec> records = {
            {1, "one", std::nullopt, {'a'}}, {1, "two", std::nullopt, {'b'}}, {1, "one", std::nullopt, {'c'}}};
        for (size_t i = 0; i < extra; ++i) records.push_back({1, "x" + std::to_string(i % 25), std::nullopt, {'d'}});
        tev::PackStream pack(checkTEVInStream(open(buildContainer(fakeJpeg(2000), records))));
        ASSERT_TRUE(pack) << dumpLog();
        if (extra != 0) {  // before the first look-up, which makes the table
            char* saved = pack->name_list[7];
            pack->name_list[7] = nullptr;
            EXPECT_EQ(_getIndexOfName(pack.get(), "one"), 0u);
            EXPECT_EQ(_getIndexOfName(pack.get(), "x20"), 0xFFFFFFFFu);
            EXPECT_TRUE(loggedError("TEVCommonAPIs::_getIndexOfName", "7 TEV_name null")) << dumpLog();
            pack->name_list[7] = saved;
            clearLog();
        }
        const _TEV_info_pack before = *pack;
        for (size_t i = 0; i < records.size(); ++i) {
            size_t first = 0;
            while (records[first].name != records[i].name) ++first;
            EXPECT_EQ(_getIndexOfName(pack.get(), records[i].name.c_str()), first) << records[i].name;
        }
        EXPECT_EQ(_getIndexOfName(pack.get(), "on"), 0xFFFFFFFFu);
        EXPECT_EQ(_getIndexOfName(pack.get(), "x25"), 0xFFFFFFFFu);
        EXPECT_EQ(std::tie(pack->valid, pack->info, pack->data_count, pack->name_list, pack->unit_count, pack->units),
                  std::tie(before.valid, before.info, before.data_count, before.name_list, before.unit_count,
                           before.units));
        EXPECT_TRUE(logLines().empty()) << dumpLog();
    }
}

// Hand-made indexes and packs, for refusals the parser never lets through: one line each, in order.
TEST_F(ParseTest, UnusableArgumentsAreRefusedWithTheirLog) {
    StreamOver usable(Medium::Buffer, oneRecordFile());
    TevStreamFile unusable(nullptr);
    _TEV_data_info entry{32, 22, 0, 0, 0, nullptr, 0}, atZero{0, 22, 0, 0, 0, nullptr, 0};
    _TEV_data_info* entries[] = {&entry};
    _TEV_data_info* zeroEntries[] = {&atZero};
    auto index = [](TevStream* stream, int64_t size = 159, _TEV_data_info** data = nullptr, uint32_t count = 1) {
        return _TEV_info{1, size, 0, stream, 32, 107, count, 0, data};
    };
    _TEV_info noStream = index(nullptr, 159, entries), broken = index(&unusable, 159, entries);
    _TEV_info emptyStream = index(usable.get(), 0, entries), noEntries = index(usable.get());
    _TEV_info noCount = index(usable.get(), 159, entries, 0), offsetZero = index(usable.get(), 159, zeroEntries);
    _TEV_info invalid = index(usable.get(), 159, entries);
    invalid.valid = 0;
    _TEV_info_pack noList{1, &noEntries, 1, nullptr, 0, nullptr};
    int64_t at = 0, length = 0;
    const char *const kName = "TEVInternal::_getNameOfData", *const kAll = "TEV::getAllNameOfDataList";
    const char *const kAdd = "TEVInternal::_addData", *const kMp4 = "TEVAPIs::checkSignatureMP4Tag";
    const std::tuple<bool, const char*, const char*> kCases[] = {
        {getTEVList(nullptr) == 0, "TEV::getTEVList", "Wrong TEV_info"},
        {getTEVList(&invalid) == 0, "TEV::getTEVList", "TEV validation failed"},
        {getTEVList(&broken) == 0, "TEV::getTEVList", "File doesn't exist"},
        {_addData(nullptr, 1, 1, 0) == 0, kAdd, "_addData  TEV_info == LUMET_TEV_NULL !!"},
        {_addData(&noStream, 1, 1, 0) == 0, kAdd, "Stream is null"},
        {_addDataBuffer(&broken, 1, 1, 0) == 0, kAdd, "Pointer is null"},
        {_addData(&emptyStream, 1, 1, 0) == 0, kAdd, "_addData  TEV_info->stream_size <= 0 !!"},
        {_getNameOfData(nullptr, 0) == 0, kName, "TEV_info NULL"},
        {_getNameOfData(&noCount, 0) == 0, kName, "index false"},
        {_getNameOfData(&noStream, 0) == 0, kName, "Stream is null"},
        {_getNameOfDataBuffer(&broken, 0) == 0, kName, "Pointer is null"},
        {_getNameOfData(&emptyStream, 0) == 0, kName, "stream_size <= 0"},
        {_getNameOfData(&noEntries, 0) == 0, kName, "meta_data NULL"},
        {_getNameOfData(&offsetZero, 0) == 0, kName, "start_offset <= 0"},
        {getAllNameOfDataList(nullptr) == 0, kAll, "TEV_info NULL!"},
        {getAllNameOfDataList(&noCount) == 0, kAll, "meta_count <= 0"},
        {getAllNameOfDataListBuffer(&broken) == 0, kAll, "fp NULL"},
        {getAllNameOfDataList(&emptyStream) == 0, kAll, "stream_size <= 0"},
        {getAllNameOfDataList(&noEntries) == 0, kAll, "meta_data NULL"},
        {readDataOfIndexOffset(&noStream, 0, &at, &length) == 0, "TEV::readDataOfIndexOffset", "Stream is null"},
        {readSubDataInfoOfDataOffset(&broken, 0, &at, &length) == 0, "TEV::readSubDataInfoOfDataOffset",
         "Pointer is null"},
        {readDataOfIndexOffset(&emptyStream, 0, &at, &length) == 0, "TEV::readDataOfIndexOffset", "file size is <= 0"},
        {checkSignatureMP4Tag(&noStream) == 0, kMp4, "Stream is null\n"},
        {checkSignatureMP4Tag(&broken) == 0, kMp4, "Stream CheckError is false\n"},
        {_getIndexOfName(nullptr, "n") == 0xFFFFFFFFu, "TEVAPIs::_getIndexOfName", "TEVdata null"},
        {_getIndexOfName(&noList, "n") == 0xFFFFFFFFu, "TEVCommonAPIs::_getIndexOfName", "TEV_name_list null"},
    };
    ASSERT_EQ(logLines().size(), std::size(kCases)) << dumpLog();
    for (size_t i = 0; i < std::size(kCases); ++i) {
        const auto& [refused, tag, text] = kCases[i];
        EXPECT_TRUE(refused) << text;
        EXPECT_EQ(logLines()[i].tag + ": " + logLines()[i].text, std::string(tag) + ": " + text);
    }
    EXPECT_EQ(usable.contents(), oneRecordFile());
}

// The stream ends inside the second entry after the directory was located. The entries in front of
// the cut are taken as field reads take them: a refused first entry is reported; behind a sound one
// the cut entry keeps what its reads stored: a file hands over the start offset's low half (so the
// list is read), a memory buffer nothing (the offset stays 0 and is refused).
TEST_F(ParseTest, DirectoryCutShortFailsAtTheSameEntryAsFieldReads) {
    // alpha at 100 (20 bytes), beta at 120; "TEVH" at 139, the entries at 151 and 163.
    const Bytes file = buildContainer(fakeJpeg(100), {RecordSpec{1, "alpha", std::nullopt, textBytes("1234567")},
                                                      RecordSpec{2, "beta", std::nullopt, textBytes("1234567")}});
    Bytes refused = file;
    putU32le(refused, 151 + 4, 0);  // the first entry's start offset
    for (Medium medium : {Medium::Buffer, Medium::FilePtr}) {
        for (const Bytes* bytes : {static_cast<const Bytes*>(&refused), &file}) {
            SCOPED_TRACE(mediumName(medium) + (bytes == &file ? " sound" : " refused"));
            clearLog();
            tev::Index info(ParseTEV(open(*bytes, medium), SIGNATURE_TEV));
            ASSERT_TRUE(info) << dumpLog();
            ASSERT_EQ(stream_->get()->truncate(163 + 6), 0);
            const bool listed = bytes == &file && medium == Medium::FilePtr;
            EXPECT_EQ(getTEVList(info.get()), listed ? 1u : 0u) << dumpLog();
            if (listed) {
                EXPECT_EQ(std::make_pair(info->meta_data[1]->start_offset, info->meta_data[1]->length),
                          std::make_pair(19u, 0u));
            } else {
                EXPECT_TRUE(loggedError("TEVInternal::_addData", "_addData  start_offset <= 0 !!")) << dumpLog();
                EXPECT_TRUE(loggedError("TEV::getTEVList", "_addData return is LUMET_TEV_FALSE!!")) << dumpLog();
                EXPECT_EQ(info->meta_data, nullptr);
            }
        }
    }
}

// The directory is read in batches of entries, the names in windows over neighbouring records; a
// failure shows as record-by-record reads show it: same line, same record, names before it kept.
TEST_F(ParseTest, BatchedReadsFailWhereRecordByRecordReadsFail) {
    constexpr uint32_t kRecords = 9000;  // more entries than one batch, names over several windows
    std::vector<RecordSpec> records;
    std::vector<size_t> fieldsAt;  // each record's name-length field
    for (size_t i = 0, at = 64; i < kRecords; at += recordLength(records.back()), ++i) {
        records.push_back({uint16_t(i % 3), "r" + std::to_string(i) + std::string(i % 40, 'n'), std::nullopt,
                           Bytes(i % 90, uint8_t(i))});
        if (i % 3 == 0) records.back().sub = Bytes(i % 5 + 1, 0x5B);
        fieldsAt.push_back(at + 4);
    }
    const Bytes file = buildContainer(fakeJpeg(64), records);
    const uint32_t k = 4321;  // no sub-information; k + 2 has some
    const std::string kZero = "name length is wrong : 0byte";
    // A 32-bit patch and a cut of the stream after the directory was read (at 0: none), the record
    // the names fail at, its line, and the line on a file where it differs (a seek past its end works).
    const struct { const char* label; size_t patchAt; uint32_t value; size_t cutAt; uint32_t failsAt;
                   std::string line, onFile = ""; } kCases[] = {
        {"Whole", 0, 0, 0, kRecords, ""},
        {"NameLengthZero", fieldsAt[k], 0, 0, k, kZero},
        {"NameLengthTooLong", fieldsAt[k], 1025, 0, k, "name length is wrong : 1025byte"},
        {"SubLengthZero", fieldsAt[k + 2] + 4, 0, 0, k + 2, "sub data read size <= 0"},
        {"CutAtTheSubLength", 0, 0, fieldsAt[k + 2] + 4, k + 2, "sub data read size <= 0"},
        {"CutInsideAName", 0, 0, fieldsAt[k] + 7, k + 1, "File System Error -1\n ", kZero},
        {"CutInsideLengthFields", 0, 0, fieldsAt[k] + 2, k, kZero},
    };
    for (Medium medium : {Medium::Buffer, Medium::FilePtr}) {
        for (const auto& c : kCases) {
            SCOPED_TRACE(mediumName(medium) + " " + c.label);
            Bytes damaged = file;
            if (c.patchAt != 0) putU32le(damaged, c.patchAt, c.value);
            tev::Index info(ParseTEV(open(damaged, medium), SIGNATURE_TEV));
            ASSERT_TRUE(info);
            ASSERT_EQ(getTEVList(info.get()), 1u);
            if (c.cutAt != 0) { ASSERT_EQ(stream_->get()->truncate(int64_t(c.cutAt)), 0); }
            clearLog();
            EXPECT_EQ(getAllNameOfDataList(info.get()), c.failsAt == kRecords ? 1u : 0u);
            std::vector<std::string> log, expected;
            for (const LogLine& line : logLines()) log.push_back(line.tag + ": " + line.text);
            if (c.failsAt < kRecords) {
                const std::string& first = medium == Medium::FilePtr && !c.onFile.empty() ? c.onFile : c.line;
                expected = {"TEVInternal::_getNameOfData: " + first,
                            "TEV::getAllNameOfDataList: " + std::to_string(c.failsAt) + "th data has no name!"};
            }
            EXPECT_EQ(log, expected);
            const uint32_t intact = c.failsAt == kRecords ? kRecords : k;
            for (uint32_t i = 0; i < kRecords; ++i) {
                const _TEV_data_info& entry = *info->meta_data[i];
                ASSERT_EQ(entry.meta_type, metaTypeOf(records[i])) << i;
                ASSERT_EQ(entry.length, recordLength(records[i])) << i;
                if (i < intact) { ASSERT_STREQ(entry.name, records[i].name.c_str()) << i; }
                if (i >= c.failsAt) { ASSERT_EQ(entry.name, nullptr) << i; }
            }
        }
    }
}

}  // namespace
