// Adding records: the first record behind plain media, appends (with and
// without a Voxa block behind), adds into the leading "Invalid_Data" filler,
// the add family's refusals, the capacity check and the index builders.
#include <gtest/gtest.h>

#include "support/edit.h"

using namespace tevtest;

namespace {

const RecordSpec kPhoto = record("abcd", 10, 0xA1, 5);  // 22 bytes on disk
const RecordSpec kNotes{9, "notes", Bytes{1, 2, 3}, Bytes(7, 0xB2)};
const char* const kUserDataRule = "if Data type is UserData then must use DataSubInfo";

uint32_t append(_TEV_info* info, const RecordSpec& r, _voxa_info_struct* voxa = nullptr) {
    return AddTEVDataStream(info->Stream, info, r.name.data(), uint32_t(r.name.size()), r.type,
                            subOf(r), subLengthOf(r), r.data.data(), uint32_t(r.data.size()), voxa);
}

class AddTest : public LogCaptureTest {};

TEST_F(AddTest, EachAddGivesItsFileResultAndLog) {
    const Bytes media = fakeJpeg(100);
    // "TEVH", version, count, {meta type, offset = length, length}, 12 + 12 * count, "TEVT".
    const Bytes oneEntry = ByteBuilder().text("TEVH").u32le(107).u32le(1).u32le(5u << 16).u32le(22).u32le(22).u32le(24).text("TEVT").take();
    const ContainerOptions withVoxa{107, false, true, 20, 60};
    static uint32_t table[2] = {20, 60};
    // The append copies the descriptor's sound count (3), the direct add writes 1.
    static _voxa_info_struct voxa{0, 0, 0, 0, 3, 0, nullptr, table, 0};
    const Bytes appended = buildContainer(media, {kPhoto, kNotes});
    // 11 bytes of record and 12 of directory are less than the 30-byte block it replaces.
    const RecordSpec tiny = record("t", 2, 0xCC, 4), again = record("abcd", 4, 0x09, 6);
    const unsigned char data[3] = {1, 2, 3};
    const unsigned char sub[1] = {7};
    const std::string longName(1025, 'n');
    const char* first = "TEVEncoder::AddTEVDataInFirstTimeStream";
    const char* add = "TEVEncoder::AddTEVDataStream";
    const char* direct = "TEVEncoder::AddDirectTEVDataFP";
    TevStreamFile unusable(nullptr);
    std::vector<FileEdit> cases = {
        {"FirstRecordAndAOneEntryDirectory", media, [&](const char* p) { return AddTEVDataInFirstTime(p, "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10); }, 1, concat(concat(media, encodeRecord(kPhoto)), oneEntry)},
        {"FilePointerFormWritesButReportsZero", media, [](const char* p) { return onFp(p, [](FILE* fp) {
             return AddTEVDataInFirstTimeFP(fp, "notes", 5, 9, subOf(kNotes), 3, kNotes.data.data(), 7); }); },
         0, buildContainer(media, {kNotes}), {{first, "error \n"}}},
        // Under the buffer form the stream accepts an empty target.
        {"BufferFormWritesButReportsZero", {}, [&](const char* p) {
             tev::Buffer empty(initTEVBuffer(256));
             const uint32_t result = AddTEVDataInFirstTimeBuffer(empty.get(), "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10);
             const auto* written = static_cast<const uint8_t*>(getTEVBuffer(empty.get()));
             writeFile(p, Bytes(written, written + getTEVWriteSize(empty.get())));
             return result;
         }, 0, buildContainer({}, {kPhoto}), {{first, "error \n"}}},
        {"PathFormRefusesAnEmptyFile", {}, [&](const char* p) { return AddTEVDataInFirstTime(p, "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10); }, 0, {}, {{"TEVEncoder::AddTEVDataInFirstTime", "file search error = 0\n"}}},
        {"AppendShiftsEarlierOffsets", buildContainer(media, {kPhoto}), onParsed([](_TEV_info* i) { return append(i, kNotes); }), 1, appended},
        {"AppendAcceptsADuplicateName", appended, onParsed([&](_TEV_info* i) { return append(i, again); }), 1, buildContainer(media, {kPhoto, kNotes, again})},
        {"AppendRewritesTheVoxaBlock", buildContainer(media, {kPhoto}, withVoxa), onParsed([](_TEV_info* i) { return append(i, kNotes, &voxa); }), 1,
         concat(appended, ByteBuilder().text("VOXA").u32le(106).u32le(3).u32le(20).u32le(60).u32le(20).text("VOXABS").take())},
        {"DirectRewritesTheVoxaBlock", buildContainer(media, {kPhoto}, withVoxa), onParsed([&](_TEV_info* i) {
             const Bytes notes = encodeRecord(kNotes);
             return AddDirectTEVDataStream(i->Stream, i, 9, 1, notes.data(), uint32_t(notes.size()), &voxa);
         }), 1, concat(appended, voxaBlock(107, 20, 60))},
        {"AppendWithoutDescriptorDropsTheBlock", buildContainer(media, {kPhoto}, withVoxa), onParsed([&](_TEV_info* i) { return append(i, tiny); }), 1, buildContainer(media, {kPhoto, tiny})},
    };
    // Each add entry point's refusals, on a file holding one record that must stay as it is.
    const Bytes one = buildContainer(fakeJpeg(50), {kPhoto});
    const std::vector<FileEdit> refusals = {
        {"FirstUserDataEmptySub", one, onParsed([&](_TEV_info* i) { return AddTEVDataInFirstTimeStream(i->Stream, "x", 1, 0, sub, 0, data, 3); }), 0, {}, {{first, kUserDataRule}}},
        {"FirstNameTooLong", one, onParsed([&](_TEV_info* i) { return AddTEVDataInFirstTimeStream(i->Stream, longName.data(), 1025, 3, nullptr, 0, data, 3); }), 0, {}, {{first, "name_size <= 0 || name == NULL"}}},
        {"FirstLengthOver32Bits", one, onParsed([&](_TEV_info* i) { return AddTEVDataInFirstTimeStream(i->Stream, "x", 1, 3, nullptr, 0, data, 0xFFFFFFF7u); }), 0, {}, {{first, "Too big TEV data to add in the file"}}},
        {"AppendUserDataEmptySub", one, onParsed([&](_TEV_info* i) { return AddTEVDataStream(i->Stream, i, "k", 1, 0, sub, 0, data, 3, nullptr); }), 0, {}, {{add, kUserDataRule}}},
        {"AppendNameNull", one, onParsed([&](_TEV_info* i) { return AddTEVDataStream(i->Stream, i, nullptr, 1, 1, nullptr, 0, data, 3, nullptr); }), 0, {}, {{add, "name_size <= 0 || name == NULL"}}},
        {"AppendDataNull", one, onParsed([&](_TEV_info* i) { return AddTEVDataStream(i->Stream, i, "k", 1, 1, nullptr, 0, nullptr, 3, nullptr); }), 0, {}, {{add, "data == NULL || data_size <= 0"}}},
        {"AppendNoIndex", one, onParsed([&](_TEV_info* i) { return AddTEVDataStream(i->Stream, nullptr, "k", 1, 1, nullptr, 0, data, 3, nullptr); }), 0, {}, {{add, "TEV_info == NULL"}}},
        {"AppendStreamNull", one, onParsed([&](_TEV_info* i) { return AddTEVDataStream(nullptr, i, "k", 1, 1, nullptr, 0, data, 3, nullptr); }), 0, {}, {{add, "Stream == NULL"}}},
        {"AppendStreamUnusable", one, onParsed([&](_TEV_info* i) { return AddTEVDataStream(&unusable, i, "k", 1, 1, nullptr, 0, data, 3, nullptr); }), 0, {}, {{add, "CheckError is false"}}},
        // An index of a file that changed since it was parsed.
        {"AppendStaleIndex", one, onParsed([&](_TEV_info* i) { i->stream_size += 1; return append(i, kNotes); }), 0, {}, {{add, "File Search Error "}}},
        // An offset that would no longer fit 32 bits once shifted.
        {"AppendOffsetOverflow", one, onParsed([&](_TEV_info* i) { i->meta_data[0]->start_offset = 0xFFFFFFF0u; return append(i, kNotes); }), 0, {}, {{add, "Too big TEV data to add in the file"}}},
        {"DirectUserDataWithoutFlag", one, onParsed([&](_TEV_info* i) { return AddDirectTEVDataStream(i->Stream, i, 0, 0, data, 3, nullptr); }), 0, {}, {{direct, kUserDataRule}}},
        {"DirectNoBytes", one, onParsed([&](_TEV_info* i) { return AddDirectTEVDataStream(i->Stream, i, 1, 0, nullptr, 3, nullptr); }), 0, {}, {{direct, "data == LUMET_TEV_NULL || data_size <= 0"}}},
        {"DirectNoIndex", one, onParsed([&](_TEV_info* i) { return AddDirectTEVDataStream(i->Stream, nullptr, 1, 0, data, 3, nullptr); }), 0, {}, {{direct, "TEV_info == LUMET_TEV_NULL"}}},
        {"DirectStreamNull", one, onParsed([&](_TEV_info* i) { return AddDirectTEVDataStream(nullptr, i, 1, 0, data, 3, nullptr); }), 0, {}, {{direct, "Stream == LUMET_TEV_NULL"}}},
        {"DirectFpNull", one, onParsed([&](_TEV_info* i) { return AddDirectTEVDataFP(nullptr, i, 1, 0, data, 3, nullptr); }), 0, {}, {{direct, "fp == LUMET_TEV_NULL"}}},
        {"DirectOffsetOverflow", one, onParsed([&](_TEV_info* i) { i->meta_data[0]->start_offset = 0xFFFFFFFAu; return AddDirectTEVDataStream(i->Stream, i, 1, 0, kPhoto.data.data(), 10, nullptr); }), 0, {}, {{direct, "Too big TEV data to add in the file"}}},
        {"DirectFirstNullFp", one, onParsed([&](_TEV_info*) { return AddDirectTEVDataInFirstTimeFP(nullptr, 5, 0, data, 3); }), 0, {}, {{"TEVEncoder::AddDirectTEVDataInFirstTimeFP", "fp is null"}}},
        {"FastUserData", one, onParsed([&](_TEV_info* i) { return FastAddTEVData(i, "n", 1, 0, nullptr, 0, data, 3, 1); }), 0, {}, {{"TEV::AddTEVDataInFirstTime", kUserDataRule}}},
        {"FastOffsetOverflow", one, onParsed([&](_TEV_info* i) { i->meta_data[0]->start_offset = 0xFFFFFFFAu; return FastAddTEVData(i, "n", 1, 1, nullptr, 0, data, 3, 0); }), 0, {}, {{"TEV::FastAddTEVData", "Too big TEV data to add in the file"}}},
        {"FastStreamNull", one, onStream(nullptr, [&](_TEV_info* i) { return FastAddTEVData(i, "n", 1, 1, nullptr, 0, data, 3, 0); }), 0, {}, {{"TEV::FastAddTEVData", "Stream is null"}}},
        {"FastStreamUnusable", one, onStream(&unusable, [&](_TEV_info* i) { return FastAddTEVData(i, "n", 1, 1, nullptr, 0, data, 3, 0); }), 0, {}, {{"TEV::FastAddTEVData", "CheckError is false"}}},
    };
    cases.insert(cases.end(), refusals.begin(), refusals.end());
    runFileEdits(cases);
}

TEST_F(AddTest, CapacityBoundIsExclusiveAt0xFFEFFFF1) {
    // A container that spans header_offset + the first entry's offset = 1024 bytes.
    _TEV_data_info first{};
    first.start_offset = 1000;
    _TEV_data_info* entries[1] = {&first};
    _TEV_info info{};
    info.header_offset = 24;
    info.meta_count = 1;
    info.meta_data = entries;
    EXPECT_EQ(checkTEVInfoForSaving(&info, 0xFFEFFFF0u - 1024 - 10 - 6, 10, 6), 1u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(checkTEVInfoForSaving(&info, 0xFFEFFFF1u - 1024 - 10 - 6, 10, 6), 0u);
    EXPECT_TRUE(loggedError("checkTEVInfoForSaving",
                            "There is no storage for saving TEV data in the source file, delete a tev data"));
    // The sum is taken in 64 bits: three large sizes do not wrap around.
    EXPECT_EQ(checkTEVInfoForSaving(&info, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu), 0u);
    entries[0] = nullptr;
    EXPECT_EQ(checkTEVInfoForSaving(&info, 1, 1, 1) + checkTEVInfoForSaving(nullptr, 1, 1, 1), 0u);
    EXPECT_TRUE(loggedError("checkTEVInfoForSaving", "tev info meta_data null !!"));
    EXPECT_TRUE(loggedError("checkTEVInfoForSaving", "tev info null"));
}

// Index objects made from scratch: an empty index over a FILE* sized at its
// end, and an entry holding its own terminated copy of the name.
TEST_F(AddTest, BuildersMakeAnEmptyIndexAndAnEntry) {
    TempFile file(fakeJpeg(77));
    FILE* fp = std::fopen(file.c_str(), "r+b");
    tev::Index index(_generateTEVHeader(fp));
    ASSERT_NE(index, nullptr);
    std::unique_ptr<TevStream> stream(index->Stream);  // the index leaves its stream to the caller
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->tell(), 77);
    EXPECT_EQ(index->stream_size, 77);
    EXPECT_EQ(index->version, 107u);
    EXPECT_EQ(index->meta_count, 0u);
    EXPECT_EQ(index->meta_data, nullptr);
    for (uint32_t hasSub : {0u, 1u}) {
        std::unique_ptr<_TEV_data_info, tev::KFreeDeleter> entry(_generateTEVData("abcdef", 4, 9, hasSub));
        ASSERT_NE(entry, nullptr);
        tev::KString name(entry->name);
        EXPECT_STREQ(name.get(), "abcd");
        EXPECT_EQ(entry->name_length, 4u);
        EXPECT_EQ(entry->meta_type, 0x90000u | (hasSub ? 0x8000u : 0u));
        EXPECT_EQ(entry->has_sub_info, hasSub);
        EXPECT_EQ(entry->start_offset + entry->length, 0u);
    }
    EXPECT_EQ(_generateTEVHeader(nullptr), nullptr);
    EXPECT_EQ(_generateTEVData(nullptr, 4, 9, 0), nullptr);
    EXPECT_EQ(_generateTEVData("abcd", 0, 9, 0), nullptr);
    stream.reset();
    std::fclose(fp);
    EXPECT_EQ(file.read(), fakeJpeg(77));
}

// --- Adding into the leading filler record: exact fit, split, or an ordinary append.

constexpr uint32_t kSlot = 100;  // the filler record's length in these files

RecordSpec filler(uint32_t size) { return record("Invalid_Data", size - 20, 0, 32766); }

// A record named "new!" of exactly `length` bytes (12 of them tag header and name).
RecordSpec sized(uint32_t length) { return record("new!", length - 12, 0xEE, 7); }

std::function<uint32_t(const char*)> fastAdd(const RecordSpec& r, uint32_t reuse) {
    return onParsed([r, reuse](_TEV_info* info) {
        return FastAddTEVData(info, r.name.data(), uint32_t(r.name.size()), r.type, subOf(r), subLengthOf(r),
                              r.data.data(), uint32_t(r.data.size()), reuse);
    });
}

TEST_F(AddTest, FastAddFitsSplitsOrAppends) {
    const Bytes media = fakeJpeg(90);
    const Bytes slotFirst = buildContainer(media, {filler(kSlot), kPhoto});
    enum Layout { kInPlace, kSplit, kAppended };
    const struct { const char* label; uint32_t length; uint32_t reuse; Layout layout; } layouts[] = {
        {"ReuseZero", kSlot, 0, kAppended},         {"ExactFit", kSlot, 1, kInPlace},
        {"LeftoverOf21", kSlot - 21, 1, kSplit},    {"LeftoverOf60", kSlot - 60, 1, kSplit},
        {"LeftoverOf20", kSlot - 20, 1, kAppended}, {"LeftoverOf1", kSlot - 1, 1, kAppended},
        {"Longer", kSlot + 1, 1, kAppended},
    };
    std::vector<FileEdit> cases;
    for (const auto& c : layouts) {
        const RecordSpec r = sized(c.length);
        // A split leaves a smaller filler in front and the record ending where the old one ended.
        const std::vector<RecordSpec> after = c.layout == kInPlace ? std::vector<RecordSpec>{r, kPhoto}
                                              : c.layout == kSplit ? std::vector<RecordSpec>{filler(kSlot - c.length), r, kPhoto}
                                                                   : std::vector<RecordSpec>{filler(kSlot), kPhoto, r};
        cases.push_back({c.label, slotFirst, fastAdd(r, c.reuse), 1, buildContainer(media, after)});
    }
    // The filler entry of a split takes the new record's sub-information bit.
    const RecordSpec withSub{7, "new!", Bytes{4, 5, 6}, Bytes(41, 0xEE)};  // 60 bytes
    const Bytes plain = buildContainer(media, {filler(kSlot - 60), withSub, kPhoto});
    const Bytes split = patchedU32le(plain, plain.size() - (20 + 12 * 3) + 12, (32766u << 16) | 0x8000u);
    cases.push_back({"SplitFillerEntryTakesTheSubBit", slotFirst, fastAdd(withSub, 1), 1, split});
    const RecordSpec sameSize = sized(recordLength(kPhoto));
    cases.push_back({"ALiveFirstRecordIsNeverOverwritten", buildContainer(media, {kPhoto, filler(kSlot)}), fastAdd(sameSize, 1), 1,
                     buildContainer(media, {kPhoto, filler(kSlot), sameSize})});
    cases.push_back({"AContainerFollowedByAVoxaBlockIsRefused", buildContainer(media, {filler(kSlot), kPhoto}, {107, false, true}), fastAdd(sized(50), 1), 0, {},
                     {{"TEV::FastAddTEVData", "TEV data is followed by other data"}}});
    runFileEdits(cases);
}

}  // namespace
