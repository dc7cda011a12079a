#include <gtest/gtest.h>

#include "tev/crc.h"

namespace {

const char kCheckInput[] = "123456789";
constexpr int kCheckLength = 9;

unsigned char* checkBytes() { return reinterpret_cast<unsigned char*>(const_cast<char*>(kCheckInput)); }

TEST(Crc8, BlockAndIncrementalChecksumsMatchTheSmbusCheckValue) {
    EXPECT_EQ(CRC8_BlockChecksum(kCheckInput, kCheckLength), 0xF4);
    EXPECT_EQ(CRC8_BlockChecksum(kCheckInput, 0), 0);
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

TEST(Crc32, BufferCrcMatchesTheStandardCheckValue) {
    EXPECT_EQ(getBufferCRC(checkBytes(), kCheckLength), 0xCBF43926u);
    EXPECT_EQ(getBufferCRC(checkBytes(), 0), 0u);
}

TEST(Crc32, CalcCrcFollowsTheGivenPolynomialAndContinuesAcrossPieces) {
    unsigned int table[256];
    makeCRCtable(table, 0xEDB88320u);
    const unsigned int first = calcCRC(checkBytes(), 5, 0, table);
    EXPECT_EQ(calcCRC(checkBytes() + 5, 4, first, table), 0xCBF43926u);
    EXPECT_EQ(calcCRC(checkBytes(), 0, 0x1234u, table), 0x1234u);
    // CRC-32C (Castagnoli), reflected polynomial 0x82F63B78.
    makeCRCtable(table, 0x82F63B78u);
    EXPECT_EQ(calcCRC(checkBytes(), kCheckLength, 0, table), 0xE3069283u);
}

}  // namespace
