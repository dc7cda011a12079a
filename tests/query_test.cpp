// Queries on a checked container: positions, extraction, types and names.
#include <memory>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

constexpr unsigned int kNone = 0xFFFFFFFFu;

// Records at 64 (alpha, 23 bytes), 87 (beta, 32), 119 (gamma, 13) and 132 (delta, 19).
const std::vector<RecordSpec> kRecords = {
    {7, "alpha", std::nullopt, textBytes("0123456789")},
    {0, "beta", textBytes("SUBINFO"), textBytes("payload-b")},
    {7, "gamma", std::nullopt, {}},
    {9, "delta", textBytes("x"), textBytes("d")},
};

using Offset = tev::Offset;
using Unit = tev::Record;

Bytes bytesOf(const unsigned char* data, uint32_t length) { return Bytes(data, data + length); }

// The queries work on the pack whatever medium it came from; a file is the
// common case.
class QueryTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        ASSERT_NE(pack(), nullptr);
    }
    PackOnMedium held_{buildContainer(fakeJpeg(64), kRecords), Medium::Path};
    _TEV_info_pack* pack() const { return held_.pack(); }
};

TEST_F(QueryTest, PositionsPointAtDataAndSubInformation) {
    const struct {
        const char* name;
        unsigned int index;
        int64_t data, dataLength, sub, subLength;
    } kExpected[] = {{"alpha", 0, 77, 10, 0, 0}, {"beta", 1, 110, 9, 103, 7}, {"delta", 3, 150, 1, 149, 1}};
    for (const auto& e : kExpected) {
        SCOPED_TRACE(e.name);
        for (const Offset& data : {Offset(getTEVInFileByName(pack(), e.name)),
                                   Offset(getTEVInStreamByIndex(pack(), e.index))}) {
            ASSERT_NE(data, nullptr);
            EXPECT_EQ(data->position, e.data);
            EXPECT_EQ(data->length, e.dataLength);
        }
        if (e.subLength == 0) continue;
        for (const Offset& sub : {Offset(getTEVSubInfoInStreamByName(pack(), e.name)),
                                  Offset(getTEVSubInfoInFileByIndex(pack(), e.index))}) {
            ASSERT_NE(sub, nullptr);
            EXPECT_EQ(sub->position, e.sub);
            EXPECT_EQ(sub->length, e.subLength);
        }
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(QueryTest, ExtractCopiesTheRecordParts) {
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

TEST_F(QueryTest, MissingPartsAndAbsentRecordsGiveNothing) {
    EXPECT_EQ(getTEVInFileByName(pack(), "gamma"), nullptr);         // empty data
    EXPECT_EQ(getTEVSubInfoInFileByName(pack(), "alpha"), nullptr);  // no sub-information
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "gamma", 5), nullptr);
    EXPECT_EQ(getTEVInFileByName(pack(), "omega"), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "omega", 5), nullptr);
    EXPECT_EQ(getTEVDataType(pack(), "omega"), kNone);
    for (unsigned int index : {4u, kNone}) {
        EXPECT_EQ(getTEVInFileByIndex(pack(), index), nullptr);
        EXPECT_EQ(getTEVSubInfoInFileByIndex(pack(), index), nullptr);
        EXPECT_EQ(extractTEVDataFromFilebyIndex(pack(), index), nullptr);
    }
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "alpha", 0), nullptr);
}

TEST_F(QueryTest, TypesAndNamesByType) {
    EXPECT_EQ(getTEVDataType(pack(), "alpha"), 7u);
    unsigned int count = 99;
    char** names = getNameListByDataType(pack(), 7, &count);
    ASSERT_NE(names, nullptr);
    ASSERT_EQ(count, 2u);
    EXPECT_STREQ(names[0], "alpha");
    EXPECT_STREQ(names[1], "gamma");
    for (unsigned int i = 0; i < count; ++i) _kfree(names[i]);
    _kfree(names);
    count = 99;
    EXPECT_EQ(getNameListByDataType(pack(), 42, &count), nullptr);
    EXPECT_EQ(count, 99u);
}

TEST_F(QueryTest, NameInListIsBorrowedAndStaysInsideThePacksList) {
    EXPECT_EQ(GetNameInList(pack(), 4, 3), pack()->name_list[3]);
    EXPECT_EQ(GetNameInList(pack(), 3, 3), nullptr);
    EXPECT_TRUE(loggedError("GetNameInList", "Index < Count"));
    EXPECT_EQ(GetNameInList(pack(), 4, -1), nullptr);
    EXPECT_EQ(GetNameInList(pack(), 100, 50), nullptr);
    EXPECT_EQ(GetTevCount(pack()), 4u);
}

}  // namespace
