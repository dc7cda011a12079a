// Adding records: the first record behind plain media, appends to a parsed
// container (with and without a Voxa block behind it), adds into the leading
// "Invalid_Data" filler record, the refusals of the add family and the
// capacity check. Expected files are built byte by byte by the test support.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <utility>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"
#include "tev/tev.hpp"

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

TEST_F(AddTest, FirstRecordAndAOneEntryDirectoryFollowTheMedia) {
    const Bytes media = fakeJpeg(100);
    TempFile file(media);
    ASSERT_EQ(AddTEVDataInFirstTime(file.c_str(), "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10), 1u)
        << dumpLog();
    // "TEVH", version, count, {meta type, offset = length, length}, 12 + 12 * count, "TEVT".
    const Bytes directory =
        ByteBuilder().text("TEVH").u32le(107).u32le(1).u32le(5u << 16).u32le(22).u32le(22).u32le(24).text("TEVT").take();
    EXPECT_EQ(file.read(), concat(concat(media, encodeRecord(kPhoto)), directory));
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(AddTest, FileAndBufferFormsWriteButReportZero) {
    const Bytes media = fakeJpeg(60);
    TempFile file(media);
    FILE* fp = std::fopen(file.c_str(), "r+b");
    EXPECT_EQ(AddTEVDataInFirstTimeFP(fp, "notes", 5, 9, subOf(kNotes), 3, kNotes.data.data(), 7), 0u);
    std::fclose(fp);
    EXPECT_EQ(file.read(), buildContainer(media, {kNotes}));
    EXPECT_TRUE(loggedError("TEVEncoder::AddTEVDataInFirstTimeStream", "error \n")) << dumpLog();

    // Under the buffer form the stream accepts an empty target.
    TevBufferHandle* empty = initTEVBuffer(256);
    EXPECT_EQ(AddTEVDataInFirstTimeBuffer(empty, "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10), 0u);
    const auto* written = static_cast<const uint8_t*>(getTEVBuffer(empty));
    EXPECT_EQ(Bytes(written, written + getTEVWriteSize(empty)), buildContainer({}, {kPhoto}));
    destroyTEVBuffer(empty);
}

TEST_F(AddTest, PathFormRefusesAnEmptyFile) {
    TempFile empty;
    EXPECT_EQ(AddTEVDataInFirstTime(empty.c_str(), "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10), 0u);
    EXPECT_TRUE(loggedError("TEVEncoder::AddTEVDataInFirstTime", "file search error = 0\n")) << dumpLog();
    EXPECT_TRUE(empty.read().empty());
}

TEST_F(AddTest, AppendShiftsEarlierOffsetsAndAcceptsADuplicateName) {
    const Bytes media = fakeJpeg(100);
    const RecordSpec again = record("abcd", 4, 0x09, 6);
    TempFile file(buildContainer(media, {kPhoto}));
    ASSERT_EQ(editParsed(file.path(), [&](_TEV_info* info) { return append(info, kNotes); }), 1u) << dumpLog();
    const Bytes out = file.read();
    const size_t firstEntry = out.size() - 20 - 24 + 12;
    EXPECT_EQ(readU32le(out, firstEntry + 4), 22u + recordLength(kNotes));
    EXPECT_EQ(out, buildContainer(media, {kPhoto, kNotes}));

    ASSERT_EQ(editParsed(file.path(), [&](_TEV_info* info) { return append(info, again); }), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(media, {kPhoto, kNotes, again}));
}

TEST_F(AddTest, AppendsRewriteTheVoxaBlockBehindTheNewDirectory) {
    const Bytes media = fakeJpeg(80);
    ContainerOptions withVoxa;
    withVoxa.voxaTrailer = true;
    withVoxa.voxaStart = 20;
    withVoxa.voxaEnd = 60;
    uint32_t table[2] = {20, 60};
    _voxa_info_struct voxa{};
    voxa.sound_count = 3;  // the append copies the descriptor's count, the direct add writes 1
    voxa.sound_table = table;
    const Bytes notes = encodeRecord(kNotes);
    const Bytes appended = buildContainer(media, {kPhoto, kNotes});
    // 11 bytes of record and 12 of directory are less than the 30-byte block it replaces.
    const RecordSpec tiny = record("t", 2, 0xCC, 4);
    struct Case {
        const char* label;
        std::function<uint32_t(_TEV_info*)> add;
        Bytes after;
    } cases[] = {
        {"Append", [&](_TEV_info* info) { return append(info, kNotes, &voxa); },
         concat(appended, ByteBuilder().text("VOXA").u32le(106).u32le(3).u32le(20).u32le(60).u32le(20).text("VOXABS").take())},
        {"Direct", [&](_TEV_info* info) { return AddDirectTEVDataStream(info->Stream, info, 9, 1, notes.data(), uint32_t(notes.size()), &voxa); },
         concat(appended, voxaBlock(107, 20, 60))},
        {"NoDescriptor", [&](_TEV_info* info) { return append(info, tiny); }, buildContainer(media, {kPhoto, tiny})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        TempFile file(buildContainer(media, {kPhoto}, withVoxa));
        ASSERT_EQ(editParsed(file.path(), c.add), 1u) << dumpLog();
        EXPECT_EQ(file.read(), c.after);
    }
}

// Each add entry point's refusals, on a file holding one record that must stay as it is.
TEST_F(AddTest, RefusalsLogTheirMessageAndWriteNothing) {
    const unsigned char data[3] = {1, 2, 3};
    const unsigned char sub[1] = {7};
    const std::string longName(1025, 'n');
    const char* first = "TEVEncoder::AddTEVDataInFirstTimeStream";
    const char* add = "TEVEncoder::AddTEVDataStream";
    const char* direct = "TEVEncoder::AddDirectTEVDataFP";
    const char* fast = "TEV::FastAddTEVData";
    TevStreamFile unusable(nullptr);
    // Runs `call` with the index's stream swapped for `stream`, then puts it back.
    const auto withStream = [](_TEV_info* i, TevStream* stream, const std::function<uint32_t()>& call) {
        std::swap(i->Stream, stream);
        const uint32_t result = call();
        i->Stream = stream;
        return result;
    };
    using Call = std::function<uint32_t(_TEV_info*)>;
    const struct {
        const char* label;
        Call call;
        const char* tag;
        const char* text;
    } cases[] = {
        {"FirstUserDataEmptySub", [&](_TEV_info* i) { return AddTEVDataInFirstTimeStream(i->Stream, "x", 1, 0, sub, 0, data, 3); }, first, kUserDataRule},
        {"FirstNameTooLong", [&](_TEV_info* i) { return AddTEVDataInFirstTimeStream(i->Stream, longName.data(), 1025, 3, nullptr, 0, data, 3); }, first, "name_size <= 0 || name == NULL"},
        {"FirstLengthOver32Bits", [&](_TEV_info* i) { return AddTEVDataInFirstTimeStream(i->Stream, "x", 1, 3, nullptr, 0, data, 0xFFFFFFF7u); }, first, "Too big TEV data to add in the file"},
        {"AppendUserDataEmptySub", [&](_TEV_info* i) { return AddTEVDataStream(i->Stream, i, "k", 1, 0, sub, 0, data, 3, nullptr); }, add, kUserDataRule},
        // An index of a file that changed since it was parsed.
        {"AppendStaleIndex", [&](_TEV_info* i) { i->stream_size += 1; return append(i, kNotes); }, add, "File Search Error "},
        // An offset that would no longer fit 32 bits once shifted.
        {"AppendOffsetOverflow", [&](_TEV_info* i) { i->meta_data[0]->start_offset = 0xFFFFFFF0u; return append(i, kNotes); }, add, "Too big TEV data to add in the file"},
        {"DirectUserDataWithoutFlag", [&](_TEV_info* i) { return AddDirectTEVDataStream(i->Stream, i, 0, 0, data, 3, nullptr); }, direct, kUserDataRule},
        {"DirectFirstNullFp", [&](_TEV_info*) { return AddDirectTEVDataInFirstTimeFP(nullptr, 5, 0, data, 3); }, "TEVEncoder::AddDirectTEVDataInFirstTimeFP", "fp is null"},
        {"FastUserData", [&](_TEV_info* i) { return FastAddTEVData(i, "n", 1, 0, nullptr, 0, data, 3, 1); }, "TEV::AddTEVDataInFirstTime", kUserDataRule},
        {"AppendNameNull", [&](_TEV_info* i) { return AddTEVDataStream(i->Stream, i, nullptr, 1, 1, nullptr, 0, data, 3, nullptr); }, add, "name_size <= 0 || name == NULL"},
        {"AppendDataNull", [&](_TEV_info* i) { return AddTEVDataStream(i->Stream, i, "k", 1, 1, nullptr, 0, nullptr, 3, nullptr); }, add, "data == NULL || data_size <= 0"},
        {"AppendNoIndex", [&](_TEV_info* i) { return AddTEVDataStream(i->Stream, nullptr, "k", 1, 1, nullptr, 0, data, 3, nullptr); }, add, "TEV_info == NULL"},
        {"AppendStreamNull", [&](_TEV_info* i) { return AddTEVDataStream(nullptr, i, "k", 1, 1, nullptr, 0, data, 3, nullptr); }, add, "Stream == NULL"},
        {"AppendStreamUnusable", [&](_TEV_info* i) { return AddTEVDataStream(&unusable, i, "k", 1, 1, nullptr, 0, data, 3, nullptr); }, add, "CheckError is false"},
        {"DirectNoBytes", [&](_TEV_info* i) { return AddDirectTEVDataStream(i->Stream, i, 1, 0, nullptr, 3, nullptr); }, direct, "data == LUMET_TEV_NULL || data_size <= 0"},
        {"DirectNoIndex", [&](_TEV_info* i) { return AddDirectTEVDataStream(i->Stream, nullptr, 1, 0, data, 3, nullptr); }, direct, "TEV_info == LUMET_TEV_NULL"},
        {"DirectStreamNull", [&](_TEV_info* i) { return AddDirectTEVDataStream(nullptr, i, 1, 0, data, 3, nullptr); }, direct, "Stream == LUMET_TEV_NULL"},
        {"DirectFpNull", [&](_TEV_info* i) { return AddDirectTEVDataFP(nullptr, i, 1, 0, data, 3, nullptr); }, direct, "fp == LUMET_TEV_NULL"},
        {"DirectOffsetOverflow", [&](_TEV_info* i) { i->meta_data[0]->start_offset = 0xFFFFFFFAu; return AddDirectTEVDataStream(i->Stream, i, 1, 0, kPhoto.data.data(), 10, nullptr); }, direct, "Too big TEV data to add in the file"},
        {"FastOffsetOverflow", [&](_TEV_info* i) { i->meta_data[0]->start_offset = 0xFFFFFFFAu; return FastAddTEVData(i, "n", 1, 1, nullptr, 0, data, 3, 0); }, fast, "Too big TEV data to add in the file"},
        {"FastStreamNull", [&](_TEV_info* i) { return withStream(i, nullptr, [&] { return FastAddTEVData(i, "n", 1, 1, nullptr, 0, data, 3, 0); }); }, fast, "Stream is null"},
        {"FastStreamUnusable", [&](_TEV_info* i) { return withStream(i, &unusable, [&] { return FastAddTEVData(i, "n", 1, 1, nullptr, 0, data, 3, 0); }); }, fast, "CheckError is false"},
        {"CapacityOfNoIndex", [&](_TEV_info*) { return checkTEVInfoForSaving(nullptr, 1, 1, 1); }, "checkTEVInfoForSaving", "tev info null"},
        {"CapacityWithoutEntries", [&](_TEV_info*) { _TEV_info empty{}; _TEV_data_info* none[1] = {nullptr}; empty.meta_data = none; return checkTEVInfoForSaving(&empty, 1, 1, 1); }, "checkTEVInfoForSaving", "tev info meta_data null !!"},
    };
    const Bytes original = buildContainer(fakeJpeg(50), {kPhoto});
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        clearLog();
        TempFile file(original);
        FilePack pack(checkTEVInFile(file.c_str()));
        ASSERT_NE(pack, nullptr);
        EXPECT_EQ(c.call(pack->info), 0u);
        pack.reset();
        EXPECT_TRUE(loggedError(c.tag, c.text)) << dumpLog();
        EXPECT_EQ(file.read(), original);
    }
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
}

// --- Adding into the leading filler record: exact fit, split, or an ordinary append.

constexpr uint32_t kSlot = 100;  // the filler record's length in these files

RecordSpec filler(uint32_t size) { return record("Invalid_Data", size - 20, 0, 32766); }

// A record named "new!" of exactly `length` bytes (12 of them tag header and name).
RecordSpec sized(uint32_t length) { return record("new!", length - 12, 0xEE, 7); }

class FastAddTest : public LogCaptureTest {
protected:
    uint32_t fastAdd(const TempFile& file, const RecordSpec& r, uint32_t reuse) {
        return editParsed(file.path(), [&](_TEV_info* info) {
            return FastAddTEVData(info, r.name.data(), uint32_t(r.name.size()), r.type, subOf(r),
                                  subLengthOf(r), r.data.data(), uint32_t(r.data.size()), reuse);
        });
    }

    const Bytes media = fakeJpeg(90);
};

TEST_F(FastAddTest, RecordLengthChoosesFitSplitOrAppend) {
    enum Layout { kInPlace, kSplit, kAppended };
    const struct {
        const char* label;
        uint32_t length;
        uint32_t reuse;
        Layout layout;
    } cases[] = {
        {"ReuseZero", kSlot, 0, kAppended},         {"ExactFit", kSlot, 1, kInPlace},
        {"LeftoverOf21", kSlot - 21, 1, kSplit},    {"LeftoverOf60", kSlot - 60, 1, kSplit},
        {"LeftoverOf20", kSlot - 20, 1, kAppended}, {"LeftoverOf1", kSlot - 1, 1, kAppended},
        {"Longer", kSlot + 1, 1, kAppended},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        TempFile file(buildContainer(media, {filler(kSlot), kPhoto}));
        const RecordSpec r = sized(c.length);
        ASSERT_EQ(fastAdd(file, r, c.reuse), 1u) << dumpLog();
        // A split leaves a smaller filler in front and the record ending where the old one ended.
        const std::vector<RecordSpec> after =
            c.layout == kInPlace ? std::vector<RecordSpec>{r, kPhoto}
            : c.layout == kSplit ? std::vector<RecordSpec>{filler(kSlot - c.length), r, kPhoto}
                                 : std::vector<RecordSpec>{filler(kSlot), kPhoto, r};
        EXPECT_EQ(file.read(), buildContainer(media, after));
    }
}

TEST_F(FastAddTest, SplitFillerEntryTakesTheNewRecordsSubInformationBit) {
    TempFile file(buildContainer(media, {filler(kSlot), kPhoto}));
    const RecordSpec withSub{7, "new!", Bytes{4, 5, 6}, Bytes(41, 0xEE)};  // 60 bytes
    ASSERT_EQ(fastAdd(file, withSub, 1), 1u) << dumpLog();
    Bytes expected = buildContainer(media, {filler(kSlot - 60), withSub, kPhoto});
    putU32le(expected, expected.size() - (20 + 12 * 3) + 12, (32766u << 16) | 0x8000u);
    EXPECT_EQ(file.read(), expected);
}

TEST_F(FastAddTest, ALiveFirstRecordIsNeverOverwritten) {
    TempFile file(buildContainer(media, {kPhoto, filler(kSlot)}));
    const RecordSpec sameSize = sized(recordLength(kPhoto));
    ASSERT_EQ(fastAdd(file, sameSize, 1), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(media, {kPhoto, filler(kSlot), sameSize}));
}

TEST_F(FastAddTest, AContainerFollowedByAVoxaBlockIsRefused) {
    ContainerOptions withVoxa;
    withVoxa.voxaTrailer = true;
    const Bytes before = buildContainer(media, {filler(kSlot), kPhoto}, withVoxa);
    TempFile file(before);
    EXPECT_EQ(fastAdd(file, sized(50), 1), 0u);
    EXPECT_TRUE(loggedError("TEV::FastAddTEVData", "TEV data is followed by other data")) << dumpLog();
    EXPECT_EQ(file.read(), before);
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
        _TEV_data_info* entry = _generateTEVData("abcdef", 4, 9, hasSub);
        ASSERT_NE(entry, nullptr);
        EXPECT_STREQ(entry->name, "abcd");
        EXPECT_EQ(entry->name_length, 4u);
        EXPECT_EQ(entry->meta_type, 0x90000u | (hasSub ? 0x8000u : 0u));
        EXPECT_EQ(entry->has_sub_info, hasSub);
        EXPECT_EQ(entry->start_offset + entry->length, 0u);
        _kfree(entry->name);
        _kfree(entry);
    }
    EXPECT_EQ(_generateTEVHeader(nullptr), nullptr);
    EXPECT_EQ(_generateTEVData(nullptr, 4, 9, 0), nullptr);
    EXPECT_EQ(_generateTEVData("abcd", 0, 9, 0), nullptr);
    stream.reset();
    std::fclose(fp);
    EXPECT_EQ(file.read(), fakeJpeg(77));
}

}  // namespace
