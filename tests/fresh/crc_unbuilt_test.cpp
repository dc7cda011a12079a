// The CRC-8 table is process state that nothing ever clears, so the steps
// before its first build can only be seen in a process of their own: this
// program holds that one test and nothing else.
#include <gtest/gtest.h>

#include "tev/crc.h"

namespace {

TEST(Crc8Unbuilt, StepsYieldZeroUntilTheTableIsBuilt) {
    const char input[] = "123456789";
    unsigned char state = 0x12;
    CRC8_Update(state, 0x34);
    EXPECT_EQ(state, 0);
    unsigned char block = 0x77;
    CRC8_UpdateChecksum(block, input, 9);
    EXPECT_EQ(block, 0);

    make_crc_table();
    state = 0;
    CRC8_UpdateChecksum(state, input, 9);
    EXPECT_EQ(state, 0xF4);
}

}  // namespace
