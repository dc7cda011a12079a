#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/tev.h"

namespace {

using tevtest::Bytes;
using tevtest::Medium;
using tevtest::RecordSpec;
using tevtest::textBytes;

constexpr size_t kMediaSize = 64;
constexpr unsigned int kNotFound = 0xFFFFFFFFu;

const std::vector<RecordSpec> kRecords = {
    {7, "alpha", std::nullopt, textBytes("0123456789")},
    {0, "beta", textBytes("SUBINFO"), textBytes("payload-b")},
    {7, "gamma", std::nullopt, {}},
    {9, "delta", textBytes("x"), textBytes("d")},
};

// Where record `index` starts in the file built from kRecords.
int64_t recordStart(size_t index) {
    int64_t start = kMediaSize;
    for (size_t i = 0; i < index; ++i) start += tevtest::recordLength(kRecords[i]);
    return start;
}

int64_t subInfoPosition(size_t index) { return recordStart(index) + 12 + int64_t(kRecords[index].name.size()); }

int64_t dataPosition(size_t index) {
    const RecordSpec& r = kRecords[index];
    int64_t position = recordStart(index) + 8 + int64_t(r.name.size());
    if (r.sub) position += 4 + int64_t(r.sub->size());
    return position;
}

struct OffsetDeleter {
    void operator()(TevOffsetInfo* offset) const { DestroyOffsetInfo(offset); }
};
using Offset = std::unique_ptr<TevOffsetInfo, OffsetDeleter>;

struct UnitDeleter {
    void operator()(_TEV_data_unit* unit) const { destroyTEVDATA_UNIT(unit); }
};
using Unit = std::unique_ptr<_TEV_data_unit, UnitDeleter>;

Bytes bytesOf(const unsigned char* data, uint32_t length) { return Bytes(data, data + length); }

class QueryTest : public tevtest::LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        file_ = tevtest::buildContainer(tevtest::fakeJpeg(kMediaSize), kRecords);
        held_ = std::make_unique<tevtest::PackOnMedium>(file_, Medium::Buffer);
        ASSERT_NE(pack(), nullptr) << dumpLog();
    }
    _TEV_info_pack* pack() const { return held_->pack(); }

    Bytes file_;
    std::unique_ptr<tevtest::PackOnMedium> held_;
};

TEST_F(QueryTest, DataPositionSkipsHeaderNameAndSubInformation) {
    for (size_t i : {size_t{0}, size_t{1}, size_t{3}}) {
        Offset byName(getTEVInFileByName(pack(), kRecords[i].name.c_str()));
        ASSERT_NE(byName, nullptr) << kRecords[i].name;
        EXPECT_EQ(byName->position, dataPosition(i)) << kRecords[i].name;
        EXPECT_EQ(byName->length, int64_t(kRecords[i].data.size())) << kRecords[i].name;
        Offset byIndex(getTEVInStreamByIndex(pack(), unsigned(i)));
        ASSERT_NE(byIndex, nullptr);
        EXPECT_EQ(byIndex->position, byName->position);
        EXPECT_EQ(byIndex->length, byName->length);
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(QueryTest, TwinNamesGiveTheSameAnswers) {
    Offset a(getTEVInStreamByName(pack(), "beta"));
    Offset b(getTEVInFileByName(pack(), "beta"));
    Offset c(getTEVInFileByIndex(pack(), 1));
    Offset d(getTEVSubInfoInStreamByName(pack(), "beta"));
    Offset e(getTEVSubInfoInFileByIndex(pack(), 1));
    Offset f(getTEVSubInfoInStreamByIndex(pack(), 1));
    ASSERT_TRUE(a && b && c && d && e && f);
    EXPECT_EQ(a->position, b->position);
    EXPECT_EQ(a->position, c->position);
    EXPECT_EQ(d->position, e->position);
    EXPECT_EQ(d->position, f->position);
}

TEST_F(QueryTest, SubInformationPositionSkipsHeaderAndName) {
    Offset sub(getTEVSubInfoInFileByName(pack(), "beta"));
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(sub->position, subInfoPosition(1));
    EXPECT_EQ(sub->length, 7);
    EXPECT_EQ(tevtest::readText(file_, size_t(sub->position), 7), "SUBINFO");
    Offset tiny(getTEVSubInfoInStreamByIndex(pack(), 3));
    ASSERT_NE(tiny, nullptr);
    EXPECT_EQ(tiny->position, subInfoPosition(3));
    EXPECT_EQ(tiny->length, 1);
}

TEST_F(QueryTest, RecordsWithoutSubInformationHaveNoSubInformationPosition) {
    EXPECT_EQ(getTEVSubInfoInFileByName(pack(), "alpha"), nullptr);
    EXPECT_EQ(getTEVSubInfoInFileByIndex(pack(), 2), nullptr);
}

TEST_F(QueryTest, EmptyDataHasNoPosition) {
    EXPECT_EQ(getTEVInFileByName(pack(), "gamma"), nullptr);
    EXPECT_EQ(getTEVInFileByIndex(pack(), 2), nullptr);
}

TEST_F(QueryTest, AbsentNamesAndIndexesFindNothing) {
    EXPECT_EQ(getTEVInFileByName(pack(), "omega"), nullptr);
    EXPECT_EQ(getTEVSubInfoInFileByName(pack(), "omega"), nullptr);
    EXPECT_EQ(getTEVInFileByName(pack(), nullptr), nullptr);
    EXPECT_EQ(getTEVInFileByName(nullptr, "alpha"), nullptr);
    EXPECT_EQ(getTEVInFileByIndex(pack(), 4), nullptr);
    EXPECT_EQ(getTEVInFileByIndex(pack(), 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(getTEVSubInfoInFileByIndex(pack(), 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(getTEVInFileByIndex(nullptr, 0), nullptr);
    EXPECT_EQ(getTEVDataType(pack(), "omega"), kNotFound);
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "omega", 5), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(pack(), 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(pack(), 4), nullptr);
    DestroyOffsetInfo(nullptr);
}

TEST_F(QueryTest, DataTypeIsTheUpperHalfOfTheMetaType) {
    EXPECT_EQ(getTEVDataType(pack(), "alpha"), 7u);
    EXPECT_EQ(getTEVDataType(pack(), "beta"), 0u);
    EXPECT_EQ(getTEVDataType(pack(), "delta"), 9u);
}

TEST_F(QueryTest, NameListByTypeKeepsDirectoryOrder) {
    unsigned int count = 99;
    char** names = getNameListByDataType(pack(), 7, &count);
    ASSERT_NE(names, nullptr);
    ASSERT_EQ(count, 2u);
    EXPECT_STREQ(names[0], "alpha");
    EXPECT_STREQ(names[1], "gamma");
    // Copies, not the pack's own strings.
    EXPECT_NE(names[0], pack()->name_list[0]);
    for (unsigned int i = 0; i < count; ++i) _kfree(names[i]);
    _kfree(names);
}

TEST_F(QueryTest, NameListForAnUnusedTypeIsNullAndKeepsTheCount) {
    unsigned int count = 99;
    EXPECT_EQ(getNameListByDataType(pack(), 42, &count), nullptr);
    EXPECT_EQ(getNameListByDataType(pack(), -1, &count), nullptr);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(getNameListByDataType(nullptr, 7, &count), nullptr);
    EXPECT_TRUE(loggedError("getNameListByDataType", "TEV_data null!!!\n"));
}

TEST_F(QueryTest, ExtractCopiesDataAndSubInformation) {
    Unit beta(extractTEVDataFromFilebyName(pack(), "beta", 4));
    ASSERT_NE(beta, nullptr) << dumpLog();
    EXPECT_EQ(bytesOf(beta->sub_info, beta->sub_info_length), textBytes("SUBINFO"));
    EXPECT_EQ(bytesOf(beta->data, beta->data_length), textBytes("payload-b"));
    EXPECT_EQ(beta->data_type, 0u);
    Unit alpha(extractTEVDataFromFilebyIndex(pack(), 0));
    ASSERT_NE(alpha, nullptr);
    EXPECT_EQ(alpha->sub_info, nullptr);
    EXPECT_EQ(alpha->sub_info_length, 0u);
    EXPECT_EQ(bytesOf(alpha->data, alpha->data_length), textBytes("0123456789"));
    EXPECT_EQ(alpha->data_type, 7u);
}

TEST_F(QueryTest, ExtractRefusesEmptyDataZeroNameLengthAndForeignPacks) {
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "gamma", 5), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "alpha", 0), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), nullptr, 5), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    _TEV_info_pack notAPack = *pack();
    notAPack.valid = 2;
    EXPECT_EQ(extractTEVDataFromFilebyIndex(&notAPack, 0), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(nullptr, 0), nullptr);
}

TEST_F(QueryTest, ExtractNeedsAUsableStream) {
    TevStream* stream = pack()->info->Stream;
    pack()->info->Stream = nullptr;
    EXPECT_EQ(extractTEVDataFromFilebyIndex(pack(), 0), nullptr);
    pack()->info->Stream = stream;
    EXPECT_TRUE(loggedError("TEVDecoderAPIs::extractTEVDataFromFilebyIndex", "Stream is null")) << dumpLog();
}

TEST_F(QueryTest, NameInListIsBorrowedAndBoundsAreLogged) {
    EXPECT_EQ(GetNameInList(pack(), 4, 1), pack()->name_list[1]);
    EXPECT_STREQ(GetNameInList(pack(), 4, 3), "delta");
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(GetNameInList(nullptr, 4, 1), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "List is null"));
    EXPECT_EQ(GetNameInList(pack(), 0, 0), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "Count is 0"));
    EXPECT_EQ(GetNameInList(pack(), 4, -1), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "Index < 0"));
    EXPECT_EQ(GetNameInList(pack(), 3, 3), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "Index < Count"));
    // A caller's count larger than the pack's never reaches past its list.
    EXPECT_EQ(GetNameInList(pack(), 100, 50), nullptr);
}

TEST_F(QueryTest, KindMarkerAndCount) {
    EXPECT_EQ(GetNameType(pack()), 1u);
    EXPECT_EQ(GetTevCount(pack()), 4u);
    EXPECT_EQ(GetNameType(nullptr), 0u);
    EXPECT_TRUE(loggedError("GetNameType", "List is null"));
    EXPECT_EQ(GetTevCount(nullptr), 0u);
    EXPECT_TRUE(loggedError("GetTevCount", "List is null"));
}

// --- the same answers from files and descriptors ---------------------------

class QueryOnMedium : public tevtest::LogCaptureTest, public ::testing::WithParamInterface<Medium> {};

TEST_P(QueryOnMedium, PositionsPointAtTheRecordBytes) {
    const Bytes file = tevtest::buildContainer(tevtest::fakeJpeg(kMediaSize), kRecords);
    tevtest::PackOnMedium held(file, GetParam());
    ASSERT_NE(held.pack(), nullptr) << dumpLog();
    Offset data(getTEVInFileByName(held.pack(), "beta"));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(tevtest::readText(file, size_t(data->position), size_t(data->length)), "payload-b");
    Unit unit(extractTEVDataFromFilebyName(held.pack(), "delta", 5));
    ASSERT_NE(unit, nullptr) << dumpLog();
    EXPECT_EQ(bytesOf(unit->sub_info, unit->sub_info_length), textBytes("x"));
    EXPECT_EQ(bytesOf(unit->data, unit->data_length), textBytes("d"));
    EXPECT_EQ(unit->data_type, 9u);
}

INSTANTIATE_TEST_SUITE_P(FilesAndBuffers, QueryOnMedium,
                         ::testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Handle),
                         tevtest::mediumName);

// --- damaged directories ----------------------------------------------------

class DamagedQueryTest : public tevtest::LogCaptureTest {};

TEST_F(DamagedQueryTest, RecordLengthReachingPastTheFileIsNeverReadOrAllocated) {
    Bytes file = tevtest::buildContainer(tevtest::fakeJpeg(kMediaSize), kRecords);
    // The length field of the first directory entry: "TEVH", version, count,
    // then meta type and start offset.
    const size_t ktho = tevtest::readU32le(file, file.size() - 8);
    const size_t lengthField = file.size() - 8 - ktho + 12 + 8;
    for (size_t i = 0; i < 4; ++i) file[lengthField + i] = 0xF0;
    tevtest::PackOnMedium held(file, Medium::Buffer);
    ASSERT_NE(held.pack(), nullptr) << dumpLog();
    EXPECT_EQ(getTEVInFileByIndex(held.pack(), 0), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(held.pack(), 0), nullptr);
    Unit other(extractTEVDataFromFilebyIndex(held.pack(), 1));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(bytesOf(other->data, other->data_length), textBytes("payload-b"));
}

}  // namespace
