// Adding records: the first record behind plain media, appends to a parsed
// container (with and without a Voxa block), the direct forms that take
// pre-formatted records, the tail-only writer, the capacity check and the
// index builders. Expected files are built byte by byte by the test support.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>

#include "support/bytes.h"
#include "support/edit_fixtures.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/container.h"
#include "tev/editor.h"

namespace {

using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::EditableFile;
using tevtest::RecordSpec;
using tevtest::TempFile;

constexpr uint32_t kSignatureTev = 2;
constexpr uint32_t kSignatureVoxaTev = 4;
const char* const kFirstTag = "TEVEncoder::AddTEVDataInFirstTimeStream";
const char* const kPathTag = "TEVEncoder::AddTEVDataInFirstTime";
const char* const kAppendTag = "TEVEncoder::AddTEVDataStream";
const char* const kDirectAppendTag = "TEVEncoder::AddDirectTEVDataFP";
const char* const kUserDataRule = "if Data type is UserData then must use DataSubInfo";

Bytes filled(size_t size, uint8_t value) { return Bytes(size, value); }

const RecordSpec kPhoto{5, "abcd", std::nullopt, filled(10, 0xA1)};
const RecordSpec kNotes{9, "notes", Bytes{1, 2, 3}, filled(7, 0xB2)};

uint32_t addFirst(TevStream* stream, const RecordSpec& r) {
    const unsigned char* sub = r.sub ? r.sub->data() : nullptr;
    const uint32_t subLength = r.sub ? uint32_t(r.sub->size()) : 0;
    return AddTEVDataInFirstTimeStream(stream, r.name.data(), uint32_t(r.name.size()), r.type, sub,
                                       subLength, r.data.data(), uint32_t(r.data.size()));
}

uint32_t append(TevStream* stream, _TEV_info* info, const RecordSpec& r,
                _voxa_info_struct* voxa = nullptr) {
    const unsigned char* sub = r.sub ? r.sub->data() : nullptr;
    const uint32_t subLength = r.sub ? uint32_t(r.sub->size()) : 0;
    return AddTEVDataStream(stream, info, r.name.data(), uint32_t(r.name.size()), r.type, sub,
                            subLength, r.data.data(), uint32_t(r.data.size()), voxa);
}

Bytes prefix(const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + long(n)); }

class FirstAddTest : public tevtest::LogCaptureTest {};

TEST_F(FirstAddTest, WritesRecordAndOneEntryDirectoryBehindMedia) {
    const Bytes media = tevtest::fakeJpeg(100);
    EditableFile file(media);
    ASSERT_EQ(addFirst(file.stream(), kPhoto), 1u) << dumpLog();

    const Bytes out = file.bytes();
    ASSERT_EQ(out.size(), 154u);
    EXPECT_EQ(out, tevtest::buildContainer(media, {kPhoto}));
    EXPECT_EQ(tevtest::readText(out, 122, 4), "TEVH");
    EXPECT_EQ(tevtest::readU32le(out, 138), 22u);  // offset = length for the last record
    EXPECT_EQ(tevtest::readText(out, 150, 4), "TEVT");
    EXPECT_TRUE(logLines().empty()) << dumpLog();

    EditableFile withSub(media);
    ASSERT_EQ(addFirst(withSub.stream(), kNotes), 1u) << dumpLog();
    EXPECT_EQ(withSub.bytes(), tevtest::buildContainer(media, {kNotes}));
}

TEST_F(FirstAddTest, SubPointerWithLengthZeroIsNoSubInformation) {
    const Bytes media = tevtest::fakeJpeg(40);
    const unsigned char sub[] = {7};
    const Bytes data = filled(3, 1);
    EditableFile user(media);
    EXPECT_EQ(AddTEVDataInFirstTimeStream(user.stream(), "x", 1, 0, sub, 0, data.data(), 3), 0u);
    EXPECT_TRUE(loggedError(kFirstTag, kUserDataRule)) << dumpLog();
    EXPECT_EQ(user.bytes(), media);
}

TEST_F(FirstAddTest, RefusesMissingArgumentsWithoutWriting) {
    const Bytes media = tevtest::fakeJpeg(40);
    EditableFile file(media);
    const Bytes data = filled(3, 1);
    EXPECT_EQ(AddTEVDataInFirstTimeStream(nullptr, "x", 1, 3, nullptr, 0, data.data(), 3), 0u);
    EXPECT_TRUE(loggedError(kFirstTag, "Stream open error"));
    EXPECT_EQ(AddTEVDataInFirstTimeStream(file.stream(), "x", 0, 3, nullptr, 0, data.data(), 3),
              0u);
    EXPECT_TRUE(loggedError(kFirstTag, "name_size <= 0 || name == NULL"));
    EXPECT_EQ(AddTEVDataInFirstTimeStream(file.stream(), "x", 1, 3, nullptr, 0, nullptr, 3), 0u);
    EXPECT_TRUE(loggedError(kFirstTag, "data == 0 || data_size <= 0"));
    // A name longer than a reader accepts would make the container unreadable.
    const std::string longName(1025, 'n');
    EXPECT_EQ(AddTEVDataInFirstTimeStream(file.stream(), longName.data(), 1025, 3, nullptr, 0,
                                          data.data(), 3),
              0u);
    // A record length that does not fit 32 bits.
    EXPECT_EQ(
        AddTEVDataInFirstTimeStream(file.stream(), "x", 1, 3, nullptr, 0, data.data(), 0xFFFFFFF7u),
        0u);
    EXPECT_TRUE(loggedError(kFirstTag, "Too big TEV data to add in the file")) << dumpLog();
    EXPECT_EQ(file.bytes(), media);
}

TEST_F(FirstAddTest, StreamFormAcceptsEmptyFilePathFormRefusesIt) {
    EditableFile empty(Bytes{});
    ASSERT_EQ(addFirst(empty.stream(), kPhoto), 1u) << dumpLog();
    EXPECT_EQ(empty.bytes(), tevtest::buildContainer({}, {kPhoto}));

    TempFile emptyPath;
    EXPECT_EQ(
        AddTEVDataInFirstTime(emptyPath.c_str(), "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10),
        0u);
    EXPECT_TRUE(loggedError(kPathTag, "file search error = 0\n")) << dumpLog();
    EXPECT_TRUE(emptyPath.read().empty());
}

TEST_F(FirstAddTest, PathFormWritesAndClosesTheFile) {
    const Bytes media = tevtest::fakeJpeg(100);
    TempFile file(media);
    ASSERT_EQ(AddTEVDataInFirstTime(file.c_str(), "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10),
              1u)
        << dumpLog();
    EXPECT_EQ(file.read(), tevtest::buildContainer(media, {kPhoto}));

    EXPECT_EQ(AddTEVDataInFirstTime("/nonexistent/dir/x.jpg", "abcd", 4, 5, nullptr, 0,
                                    kPhoto.data.data(), 10),
              0u);
    EXPECT_TRUE(loggedError(kPathTag, "file open error"));
    EXPECT_EQ(
        AddTEVDataInFirstTime(file.c_str(), nullptr, 4, 5, nullptr, 0, kPhoto.data.data(), 10), 0u);
    EXPECT_TRUE(loggedError(kPathTag, "name null"));
}

TEST_F(FirstAddTest, FileAndBufferFormsReportZeroEvenAfterWriting) {
    const Bytes media = tevtest::fakeJpeg(60);
    EditableFile file(media);
    EXPECT_EQ(AddTEVDataInFirstTimeFP(file.fp(), "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10),
              0u);
    EXPECT_TRUE(loggedError(kFirstTag, "error \n")) << dumpLog();
    EXPECT_EQ(file.bytes(), tevtest::buildContainer(media, {kPhoto}));

    Bytes memory(256);
    std::copy(media.begin(), media.end(), memory.begin());
    TevBufferHandle* handle = initTEVUsedBuffer(memory.data(), 256, 60);
    ASSERT_NE(handle, nullptr);
    tevtest::clearLog();
    EXPECT_EQ(AddTEVDataInFirstTimeBuffer(handle, "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10),
              0u);
    EXPECT_TRUE(loggedError(kFirstTag, "error \n"));
    const Bytes expected = tevtest::buildContainer(media, {kPhoto});
    ASSERT_EQ(getTEVWriteSize(handle), int64_t(expected.size()));
    EXPECT_EQ(prefix(memory, expected.size()), expected);
    destroyTEVBuffer(handle);

    EXPECT_EQ(AddTEVDataInFirstTimeFP(nullptr, "abcd", 4, 5, nullptr, 0, kPhoto.data.data(), 10),
              0u);
    EXPECT_TRUE(loggedError(kPathTag, "file open error"));
}

class AppendTest : public tevtest::LogCaptureTest {};

TEST_F(AppendTest, SecondRecordShiftsEarlierOffsetsAndGoesLast) {
    const Bytes media = tevtest::fakeJpeg(100);
    EditableFile file(tevtest::buildContainer(media, {kPhoto}));
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
    ASSERT_TRUE(info) << dumpLog();
    ASSERT_EQ(append(file.stream(), info.get(), kNotes), 1u) << dumpLog();

    // Media and first record unchanged; the first offset grew by L, the new
    // entry {meta type, L, L} is last.
    const Bytes out = file.bytes();
    EXPECT_EQ(out, tevtest::buildContainer(media, {kPhoto, kNotes}));
    const uint32_t added = tevtest::recordLength(kNotes);
    const size_t directory = 100 + 22 + added;
    EXPECT_EQ(tevtest::readU32le(out, directory + 16), 22u + added);
    EXPECT_EQ(tevtest::readU32le(out, directory + 28), added);
    // The caller's index now carries the shifted offset.
    EXPECT_EQ(info->meta_data[0]->start_offset, 22u + added);
}

TEST_F(AppendTest, SameNameTwiceGivesTwoEntries) {
    const Bytes media = tevtest::fakeJpeg(50);
    EditableFile file(tevtest::buildContainer(media, {kPhoto}));
    {
        tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
        ASSERT_TRUE(info);
        const RecordSpec again{6, "abcd", std::nullopt, filled(4, 9)};
        ASSERT_EQ(append(file.stream(), info.get(), again), 1u) << dumpLog();
    }
    tevtest::IndexPtr reparsed = tevtest::parseIndex(file.stream(), kSignatureTev);
    ASSERT_TRUE(reparsed) << dumpLog();
    EXPECT_EQ(tevtest::namesOf(*reparsed), (std::vector<std::string>{"abcd", "abcd"}));
    EXPECT_EQ(reparsed->meta_data[1]->meta_type, 6u << 16);
}

TEST_F(AppendTest, ArgumentRefusalsLeaveTheFileAlone) {
    const Bytes original = tevtest::buildContainer(tevtest::fakeJpeg(50), {kPhoto});
    EditableFile file(original);
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
    ASSERT_TRUE(info);
    const unsigned char sub[] = {1};
    const Bytes data = filled(3, 3);
    EXPECT_EQ(
        AddTEVDataStream(file.stream(), info.get(), "k", 1, 0, sub, 0, data.data(), 3, nullptr),
        0u);
    EXPECT_TRUE(loggedError(kAppendTag, kUserDataRule));
    EXPECT_EQ(
        AddTEVDataStream(file.stream(), info.get(), "k", 1, 3, nullptr, 0, nullptr, 3, nullptr),
        0u);
    EXPECT_TRUE(loggedError(kAppendTag, "data == NULL || data_size <= 0"));
    EXPECT_EQ(
        AddTEVDataStream(file.stream(), nullptr, "k", 1, 3, nullptr, 0, data.data(), 3, nullptr),
        0u);
    EXPECT_TRUE(loggedError(kAppendTag, "TEV_info == NULL"));
    EXPECT_EQ(AddTEVDataStream(nullptr, info.get(), "k", 1, 3, nullptr, 0, data.data(), 3, nullptr),
              0u);
    EXPECT_TRUE(loggedError(kAppendTag, "Stream == NULL"));
    EXPECT_EQ(file.bytes(), original);
}

TEST_F(AppendTest, UntrustedIndexValuesAreRefusedBeforeWriting) {
    const Bytes original = tevtest::buildContainer(tevtest::fakeJpeg(50), {kPhoto});
    EditableFile file(original);
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
    ASSERT_TRUE(info);
    info->stream_size += 1;  // as if the file had changed since it was parsed
    EXPECT_EQ(append(file.stream(), info.get(), kNotes), 0u);
    EXPECT_TRUE(loggedError(kAppendTag, "File Search Error ")) << dumpLog();
    info->stream_size -= 1;
    info->meta_data[0]->start_offset = 0xFFFFFFF0u;  // would pass 32 bits once shifted
    EXPECT_EQ(append(file.stream(), info.get(), kNotes), 0u);
    EXPECT_EQ(info->meta_data[0]->start_offset, 0xFFFFFFF0u);
    EXPECT_EQ(file.bytes(), original);
}

// A container followed by a one-sound Voxa block, and its parsed descriptor.
class VoxaAppendTest : public tevtest::LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        voxa_.sound_count = 1;
        voxa_.sound_table = table_;
    }

    Bytes voxaFile() const {
        tevtest::ContainerOptions options;
        options.voxaTrailer = true;
        options.voxaStart = table_[0];
        options.voxaEnd = table_[1];
        return tevtest::buildContainer(media_, {kPhoto}, options);
    }

    Bytes media_ = tevtest::fakeJpeg(80);
    uint32_t table_[2] = {20, 60};
    _voxa_info_struct voxa_{};
};

TEST_F(VoxaAppendTest, AppendRewritesTheVoxaBlockBehindTheDirectory) {
    EditableFile file(voxaFile());
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureVoxaTev);
    ASSERT_TRUE(info) << dumpLog();
    voxa_.sound_count = 3;  // the block carries the descriptor's count as it is
    ASSERT_EQ(append(file.stream(), info.get(), kNotes, &voxa_), 1u) << dumpLog();

    const Bytes container = tevtest::buildContainer(media_, {kPhoto, kNotes});
    const Bytes trailer = ByteBuilder()
                              .text("VOXA")
                              .u32le(106)
                              .u32le(3)
                              .u32le(20)
                              .u32le(60)
                              .u32le(20)
                              .text("VOXABS")
                              .take();
    Bytes expected = container;
    expected.insert(expected.end(), trailer.begin(), trailer.end());
    EXPECT_EQ(file.bytes(), expected);
}

TEST_F(VoxaAppendTest, AppendWithoutDescriptorLeavesNoStaleTail) {
    EditableFile file(voxaFile());
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureVoxaTev);
    ASSERT_TRUE(info);
    // 11 bytes of record and 12 of directory are less than the 30-byte block.
    const RecordSpec tiny{4, "t", std::nullopt, filled(2, 0xCC)};
    ASSERT_EQ(append(file.stream(), info.get(), tiny), 1u) << dumpLog();
    EXPECT_EQ(file.bytes(), tevtest::buildContainer(media_, {kPhoto, tiny}));
}

TEST_F(VoxaAppendTest, DirectAppendWritesVersion107AndCountOne) {
    EditableFile file(voxaFile());
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureVoxaTev);
    ASSERT_TRUE(info);
    voxa_.sound_count = 3;
    const Bytes record = tevtest::encodeRecord(kNotes);
    ASSERT_EQ(AddDirectTEVDataStream(file.stream(), info.get(), kNotes.type, 1, record.data(),
                                     uint32_t(record.size()), &voxa_),
              1u)
        << dumpLog();

    Bytes expected = tevtest::buildContainer(media_, {kPhoto, kNotes});
    const Bytes trailer = tevtest::voxaBlock(107, 20, 60);
    expected.insert(expected.end(), trailer.begin(), trailer.end());
    EXPECT_EQ(file.bytes(), expected);
}

class DirectAddTest : public tevtest::LogCaptureTest {};

TEST_F(DirectAddTest, FirstTimeAndAppendMatchTheFormattingAdds) {
    const Bytes media = tevtest::fakeJpeg(64);
    EditableFile file(media);
    const Bytes photo = tevtest::encodeRecord(kPhoto);
    const Bytes notes = tevtest::encodeRecord(kNotes);
    ASSERT_EQ(AddDirectTEVDataInFirstTimeFP(file.fp(), 5, 0, photo.data(), uint32_t(photo.size())),
              1u);
    EXPECT_EQ(file.bytes(), tevtest::buildContainer(media, {kPhoto}));
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
    ASSERT_TRUE(info) << dumpLog();
    ASSERT_EQ(AddDirectTEVDataFP(file.fp(), info.get(), 9, 1, notes.data(), uint32_t(notes.size()),
                                 nullptr),
              1u)
        << dumpLog();
    EXPECT_EQ(file.bytes(), tevtest::buildContainer(media, {kPhoto, kNotes}));
}

TEST_F(DirectAddTest, RefusalsUseTheirBorrowedTags) {
    const Bytes original = tevtest::buildContainer(tevtest::fakeJpeg(64), {kPhoto});
    EditableFile file(original);
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
    ASSERT_TRUE(info);
    const Bytes record = tevtest::encodeRecord(kPhoto);
    const uint32_t size = uint32_t(record.size());
    EXPECT_EQ(AddDirectTEVDataStream(file.stream(), info.get(), 0, 0, record.data(), size, nullptr),
              0u);
    EXPECT_TRUE(loggedError(kDirectAppendTag, kUserDataRule));
    EXPECT_EQ(AddDirectTEVDataStream(nullptr, info.get(), 5, 0, record.data(), size, nullptr), 0u);
    EXPECT_TRUE(loggedError(kDirectAppendTag, "Stream == LUMET_TEV_NULL"));
    EXPECT_EQ(AddDirectTEVDataFP(nullptr, info.get(), 5, 0, record.data(), size, nullptr), 0u);
    EXPECT_TRUE(loggedError(kDirectAppendTag, "fp == LUMET_TEV_NULL"));
    EXPECT_EQ(AddDirectTEVDataInFirstTimeFP(nullptr, 5, 0, record.data(), size), 0u);
    EXPECT_TRUE(loggedError("TEVEncoder::AddDirectTEVDataInFirstTimeFP", "fp is null"));
    EXPECT_EQ(AddDirectTEVDataInFirstTimeStream(file.stream(), 5, 0, nullptr, size), 0u);
    EXPECT_TRUE(loggedError("TEVEncoder::AddDirectTEVDataInFirstTimeStream",
                            "data == LUMET_TEV_NULL || data_size <= 0"));
    EXPECT_EQ(file.bytes(), original);
}

TEST_F(DirectAddTest, TailOnlyDescribesARecordWrittenByTheCaller) {
    const Bytes media = tevtest::fakeJpeg(64);
    Bytes withRecord = media;
    const Bytes record = tevtest::encodeRecord(kPhoto);
    withRecord.insert(withRecord.end(), record.begin(), record.end());
    EditableFile file(withRecord);
    ASSERT_EQ(saveFirstTEVTailToFP(file.fp(), uint32_t(record.size()), kPhoto.type, 0), 1u);
    EXPECT_EQ(file.bytes(), tevtest::buildContainer(media, {kPhoto}));

    EXPECT_EQ(saveFirstTEVTailToStream(nullptr, 22, 5, 0), 0u);
    EXPECT_TRUE(loggedError("TEVEncoder::saveFirstTEVTailToFP", "Stream open error"));
    EXPECT_EQ(saveFirstTEVTailToFP(nullptr, 22, 5, 0), 0u);
    EXPECT_TRUE(loggedError("TEVEncoder::saveFirstTEVTailToFP", "Stream CheckError is false"));
}

class CapacityTest : public tevtest::LogCaptureTest {
protected:
    // An index whose container spans header_offset + the first offset bytes.
    void SetUp() override {
        LogCaptureTest::SetUp();
        first_.start_offset = 1000;
        entries_[0] = &first_;
        info_.header_offset = 24;
        info_.meta_count = 1;
        info_.meta_data = entries_;
    }

    _TEV_data_info first_{};
    _TEV_data_info* entries_[1] = {};
    _TEV_info info_{};
};

TEST_F(CapacityTest, BoundIsExclusiveAt0xFFEFFFF1) {
    const uint32_t present = 1024;
    EXPECT_EQ(checkTEVInfoForSaving(&info_, 0xFFEFFFF0u - present - 10 - 6, 10, 6), 1u);
    EXPECT_TRUE(logLines().empty());
    EXPECT_EQ(checkTEVInfoForSaving(&info_, 0xFFEFFFF1u - present - 10 - 6, 10, 6), 0u);
    EXPECT_TRUE(loggedError(
        "checkTEVInfoForSaving",
        "There is no storage for saving TEV data in the source file, delete a tev data"));
    // The sum is taken in 64 bits: three large sizes do not wrap around.
    EXPECT_EQ(checkTEVInfoForSaving(&info_, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu), 0u);
}

TEST_F(CapacityTest, RefusesMissingIndexOrEntries) {
    EXPECT_EQ(checkTEVInfoForSaving(nullptr, 1, 1, 1), 0u);
    EXPECT_TRUE(loggedError("checkTEVInfoForSaving", "tev info null"));
    entries_[0] = nullptr;
    EXPECT_EQ(checkTEVInfoForSaving(&info_, 1, 1, 1), 0u);
    EXPECT_TRUE(loggedError("checkTEVInfoForSaving", "tev info meta_data null !!"));
}

TEST(IndexBuilders, GenerateDataCopiesTheNameAndPacksTheType) {
    EXPECT_EQ(_generateTEVData(nullptr, 3, 1, 0), nullptr);
    EXPECT_EQ(_generateTEVData("abc", 0, 1, 0), nullptr);
    _TEV_data_info* entry = _generateTEVData("abcdef", 3, 0x12, 1);
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->name, "abc");
    EXPECT_EQ(entry->name_length, 3u);
    EXPECT_EQ(entry->meta_type, 0x128000u);
    EXPECT_EQ(entry->start_offset, 0u);
    EXPECT_EQ(_destroyTEVData(entry), 1u);
}

TEST(IndexBuilders, GenerateHeaderDescribesAnEmptyContainer) {
    EXPECT_EQ(_generateTEVHeader(nullptr), nullptr);
    EditableFile file(tevtest::fakeJpeg(77));
    _TEV_info* info = _generateTEVHeader(file.fp());
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->stream_size, 77);
    EXPECT_EQ(info->version, 107u);
    EXPECT_EQ(info->meta_count, 0u);
    ASSERT_NE(info->Stream, nullptr);
    EXPECT_TRUE(info->Stream->CheckError());
    delete info->Stream;
    DestroyTEV(info);
}

}  // namespace
