#include <memory>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"

namespace {

using namespace tevtest;

constexpr size_t kMediaSize = 64;
constexpr unsigned int kNone = 0xFFFFFFFFu;

const std::vector<RecordSpec> kRecords = {
    {7, "alpha", std::nullopt, textBytes("0123456789")},
    {0, "beta", textBytes("SUBINFO"), textBytes("payload-b")},
    {7, "gamma", std::nullopt, {}},
    {9, "delta", textBytes("x"), textBytes("d")},
};

int64_t recordStart(size_t index) {
    int64_t start = kMediaSize;
    for (size_t i = 0; i < index; ++i) start += recordLength(kRecords[i]);
    return start;
}

int64_t subInfoPosition(size_t index) { return recordStart(index) + 12 + int64_t(kRecords[index].name.size()); }

int64_t dataPosition(size_t index) {
    const RecordSpec& r = kRecords[index];
    return r.sub ? subInfoPosition(index) + int64_t(r.sub->size()) : recordStart(index) + 8 + int64_t(r.name.size());
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

class QueryOnMedium : public LogCaptureTest, public ::testing::WithParamInterface<Medium> {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        held_ = std::make_unique<PackOnMedium>(file_, GetParam());
        ASSERT_NE(pack(), nullptr) << dumpLog();
    }
    _TEV_info_pack* pack() const { return held_->pack(); }

    const Bytes file_ = buildContainer(fakeJpeg(kMediaSize), kRecords);
    std::unique_ptr<PackOnMedium> held_;
};

TEST_P(QueryOnMedium, PositionsPointAtDataAndSubInformation) {
    for (unsigned int i : {0u, 1u, 3u}) {
        const RecordSpec& r = kRecords[i];
        for (const Offset& data : {Offset(getTEVInFileByName(pack(), r.name.c_str())),
                            Offset(getTEVInStreamByName(pack(), r.name.c_str())),
                            Offset(getTEVInFileByIndex(pack(), i)), Offset(getTEVInStreamByIndex(pack(), i))}) {
            ASSERT_NE(data, nullptr) << r.name;
            EXPECT_EQ(data->position, dataPosition(i)) << r.name;
            EXPECT_EQ(data->length, int64_t(r.data.size())) << r.name;
        }
    }
    for (unsigned int i : {1u, 3u}) {
        const RecordSpec& r = kRecords[i];
        for (const Offset& sub : {Offset(getTEVSubInfoInFileByName(pack(), r.name.c_str())),
                           Offset(getTEVSubInfoInStreamByName(pack(), r.name.c_str())),
                           Offset(getTEVSubInfoInFileByIndex(pack(), i)),
                           Offset(getTEVSubInfoInStreamByIndex(pack(), i))}) {
            ASSERT_NE(sub, nullptr) << r.name;
            EXPECT_EQ(sub->position, subInfoPosition(i)) << r.name;
            EXPECT_EQ(sub->length, int64_t(r.sub->size())) << r.name;
        }
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(QueryOnMedium, ExtractCopiesTheRecordParts) {
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
    EXPECT_EQ(held_->contents(), file_);
}

INSTANTIATE_TEST_SUITE_P(AllMedia, QueryOnMedium,
                         ::testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Buffer, Medium::Handle),
                         mediumName);

class QueryTest : public LogCaptureTest {
protected:
    PackOnMedium held_{buildContainer(fakeJpeg(kMediaSize), kRecords), Medium::Buffer};
    _TEV_info_pack* pack() const { return held_.pack(); }
};

TEST_F(QueryTest, MissingPartsAndAbsentRecordsGiveNothing) {
    EXPECT_EQ(getTEVInFileByName(pack(), "gamma"), nullptr);  // empty data
    EXPECT_EQ(getTEVSubInfoInFileByName(pack(), "alpha"), nullptr);  // no sub-information
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "gamma", 5), nullptr);
    EXPECT_EQ(getTEVInFileByName(pack(), "omega"), nullptr);
    EXPECT_EQ(getTEVSubInfoInStreamByName(pack(), "omega"), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "omega", 5), nullptr);
    EXPECT_EQ(getTEVDataType(pack(), "omega"), kNone);
    for (unsigned int index : {4u, kNone}) {
        EXPECT_EQ(getTEVInFileByIndex(pack(), index), nullptr);
        EXPECT_EQ(getTEVSubInfoInFileByIndex(pack(), index), nullptr);
        EXPECT_EQ(extractTEVDataFromFilebyIndex(pack(), index), nullptr);
    }
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "alpha", 0), nullptr);
    EXPECT_EQ(getTEVInFileByName(nullptr, "alpha"), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(nullptr, 0), nullptr);
    _TEV_info_pack otherKind = *pack();
    otherKind.valid = 2;
    EXPECT_EQ(extractTEVDataFromFilebyIndex(&otherKind, 0), nullptr);
    DestroyOffsetInfo(nullptr);
}

TEST_F(QueryTest, TypesAndNamesByType) {
    EXPECT_EQ(getTEVDataType(pack(), "alpha"), 7u);
    EXPECT_EQ(getTEVDataType(pack(), "beta"), 0u);
    unsigned int count = 99;
    char** names = getNameListByDataType(pack(), 7, &count);
    ASSERT_NE(names, nullptr);
    ASSERT_EQ(count, 2u);
    EXPECT_STREQ(names[0], "alpha");
    EXPECT_STREQ(names[1], "gamma");
    EXPECT_NE(names[0], pack()->name_list[0]);  // copies the caller frees
    for (unsigned int i = 0; i < count; ++i) _kfree(names[i]);
    _kfree(names);
    count = 99;
    EXPECT_EQ(getNameListByDataType(pack(), 42, &count), nullptr);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(getNameListByDataType(nullptr, 7, &count), nullptr);
    EXPECT_TRUE(loggedError("getNameListByDataType", "TEV_data null!!!\n"));
}

TEST_F(QueryTest, NameInListIsBorrowedAndEveryRefusalIsLogged) {
    EXPECT_EQ(GetNameInList(pack(), 4, 3), pack()->name_list[3]);
    EXPECT_STREQ(GetNameInList(pack(), 4, 3), "delta");
    EXPECT_EQ(GetNameInList(nullptr, 4, 1), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "List is null"));
    EXPECT_EQ(GetNameInList(pack(), 0, 0), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "Count is 0"));
    EXPECT_EQ(GetNameInList(pack(), 4, -1), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "Index < 0"));
    EXPECT_EQ(GetNameInList(pack(), 3, 3), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "Index < Count"));
    EXPECT_EQ(GetNameInList(pack(), 100, 50), nullptr);  // never past the pack's own list
    EXPECT_EQ(GetNameType(pack()), 1u);
    EXPECT_EQ(GetTevCount(pack()), 4u);
    EXPECT_EQ(GetNameType(nullptr), 0u);
    EXPECT_TRUE(loggedError("GetNameType", "List is null"));
    EXPECT_EQ(GetTevCount(nullptr), 0u);
    EXPECT_TRUE(loggedError("GetTevCount", "List is null"));
}

TEST_F(QueryTest, RecordLengthReachingPastTheFileIsNeitherReportedNorRead) {
    Bytes file = buildContainer(fakeJpeg(kMediaSize), kRecords);
    // The length of the first directory entry: after "TEVH", version, count,
    // meta type and start offset.
    const size_t lengthField = file.size() - 8 - readU32le(file, file.size() - 8) + 20;
    for (size_t i = 0; i < 4; ++i) file[lengthField + i] = 0xF0;
    PackOnMedium damaged(file, Medium::Buffer);
    ASSERT_NE(damaged.pack(), nullptr) << dumpLog();
    EXPECT_EQ(getTEVInFileByIndex(damaged.pack(), 0), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(damaged.pack(), 0), nullptr);
    Unit intact(extractTEVDataFromFilebyIndex(damaged.pack(), 1));
    ASSERT_NE(intact, nullptr);
    EXPECT_EQ(bytesOf(intact->data, intact->data_length), textBytes("payload-b"));
}

}  // namespace
