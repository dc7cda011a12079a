#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "tev/crc.h"

namespace {

const char kCheckInput[] = "123456789";
constexpr int kCheckLength = 9;

unsigned char* checkBytes() {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(kCheckInput));
}

TEST(Crc8, BlockChecksumMatchesTheSmbusCheckValue) {
    EXPECT_EQ(CRC8_BlockChecksum(kCheckInput, kCheckLength), 0xF4);
    EXPECT_EQ(CRC8_BlockChecksum(kCheckInput, 0), 0);
}

TEST(Crc8, TableHoldsTheMsbFirstEntriesOfPolynomial07) {
    make_crc_table();
    const struct {
        unsigned char index;
        unsigned char entry;
    } expected[] = {{0, 0x00}, {1, 0x07}, {2, 0x0E}, {128, 0x89}, {255, 0xF3}};
    for (const auto& e : expected) {
        unsigned char state = 0;
        CRC8_Update(state, e.index);
        EXPECT_EQ(state, e.entry) << "entry " << int(e.index);
    }
}

TEST(Crc8, IncrementalUpdatesEqualTheBlockChecksum) {
    make_crc_table();
    unsigned char state = 0x55;
    CRC8_InitChecksum(state);
    CRC8_UpdateChecksum(state, kCheckInput, 4);
    CRC8_UpdateChecksum(state, kCheckInput + 4, 0);
    CRC8_Update(state, static_cast<unsigned char>(kCheckInput[4]));
    CRC8_UpdateChecksum(state, kCheckInput + 5, kCheckLength - 5);
    CRC8_FinishChecksum(state);
    EXPECT_EQ(state, 0xF4);
}

TEST(Crc8, StepsYieldZeroUntilTheTableIsBuilt) {
    // The table is process state: run in a fresh process so no other test
    // has built it yet.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            unsigned char state = 0x12;
            CRC8_Update(state, 0x34);
            unsigned char block = 0x77;
            CRC8_UpdateChecksum(block, kCheckInput, kCheckLength);
            std::exit(state == 0 && block == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Crc32, BufferCrcMatchesTheStandardCheckValue) {
    EXPECT_EQ(getBufferCRC(checkBytes(), kCheckLength), 0xCBF43926u);
    EXPECT_EQ(getBufferCRC(checkBytes(), 0), 0u);
}

TEST(Crc32, CalcCrcContinuesAcrossPieces) {
    unsigned int table[256];
    makeCRCtable(table, 0xEDB88320u);
    EXPECT_EQ(table[1], 0x77073096u);
    EXPECT_EQ(table[255], 0x2D02EF8Du);

    const unsigned char* bytes = checkBytes();
    const unsigned int first = calcCRC(bytes, 5, 0, table);
    EXPECT_EQ(calcCRC(bytes + 5, 4, first, table), 0xCBF43926u);
    EXPECT_EQ(calcCRC(bytes, kCheckLength, 0, table), getBufferCRC(checkBytes(), kCheckLength));
    EXPECT_EQ(calcCRC(bytes, 0, 0x1234u, table), 0x1234u);
}

TEST(Crc32, TableFollowsTheGivenPolynomial) {
    // CRC-32C (Castagnoli), reflected polynomial 0x82F63B78: check value 0xE3069283.
    unsigned int table[256];
    makeCRCtable(table, 0x82F63B78u);
    EXPECT_EQ(calcCRC(checkBytes(), kCheckLength, 0, table), 0xE3069283u);
}

}  // namespace
