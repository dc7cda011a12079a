// Calls on different files from several threads are independent: each
// thread edits and reads a file of its own while others do the same, and
// the checksum functions run from several threads at once, two of them
// building the shared CRC-8 table. Built with ThreadSanitizer, which reports
// any data race among them; the results are checked after the threads join.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tev/tev.h"

namespace {

constexpr int kEditors = 4;
constexpr int kRecords = 12;
const char kCheckInput[] = "123456789";

// Plain media for a first record: a JPEG start, filler bytes and its end.
std::string makeMedia(int seed) {
    char path[] = "/tmp/tev-threads-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return {};
    std::string bytes = "\xFF\xD8";
    bytes += std::string(4096 + seed, static_cast<char>('a' + seed));
    bytes += "\xFF\xD9";
    const bool written = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    close(fd);
    return written ? path : std::string();
}

std::string recordName(int i) { return "record-" + std::to_string(i); }

// Adds kRecords records, reads each back, deletes every other one; the
// number of records left that read back with their own bytes.
int editOwnFile(const std::string& path) {
    for (int i = 0; i < kRecords; ++i) {
        const std::string name = recordName(i);
        const std::string data(100 + i, static_cast<char>('0' + i % 10));
        if (saveTEVDataToFile(path.c_str(), name.data(), static_cast<uint32_t>(name.size()), nullptr, 0,
                              reinterpret_cast<const unsigned char*>(data.data()),
                              static_cast<uint32_t>(data.size()), 1, 0) != 1) {
            return -1;
        }
    }
    for (int i = 0; i < kRecords; i += 2) {
        const std::string name = recordName(i);
        if (deleteTEVDataFromFile(path.c_str(), name.data(), static_cast<uint32_t>(name.size())) != 1) return -1;
    }
    _TEV_info_pack* pack = checkTEVWithReadPM(path.c_str());
    if (pack == nullptr) return -1;
    int intact = 0;
    for (int i = 1; i < kRecords; i += 2) {
        const std::string name = recordName(i);
        _TEV_data_unit* unit = extractTEVDataFromFilebyName(pack, name.c_str(), static_cast<unsigned int>(name.size()));
        if (unit != nullptr && unit->data_length == static_cast<uint32_t>(100 + i) &&
            unit->data[0] == static_cast<unsigned char>('0' + i % 10)) {
            ++intact;
        }
        destroyTEVDATA_UNIT(unit);
    }
    const int count = static_cast<int>(GetTevCount(pack));
    destroyTEVDATA(pack);
    return count == intact ? intact : -1;
}

TEST(Threads, EditsOnDifferentFilesAndChecksumsRunSideBySide) {
    std::vector<std::string> paths;
    for (int t = 0; t < kEditors; ++t) paths.push_back(makeMedia(t));
    for (const std::string& path : paths) ASSERT_FALSE(path.empty());

    std::vector<int> intact(kEditors, 0);
    unsigned char blockSums[2] = {0, 0};
    unsigned int bufferSums[2] = {0, 0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kEditors; ++t) {
        threads.emplace_back([&, t] { intact[t] = editOwnFile(paths[t]); });
    }
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            // Steps taken while another thread may be building the table see
            // it empty or whole, never half built: the state is 0 or a
            // value of the finished table, and the block sum is always right.
            unsigned char state = 0x5A;
            CRC8_UpdateChecksum(state, kCheckInput, 9);
            blockSums[t] = CRC8_BlockChecksum(kCheckInput, 9);
            bufferSums[t] = getBufferCRC(reinterpret_cast<unsigned char*>(const_cast<char*>(kCheckInput)), 9);
        });
    }
    for (std::thread& thread : threads) thread.join();

    for (int t = 0; t < kEditors; ++t) EXPECT_EQ(intact[t], kRecords / 2) << paths[t];
    for (int t = 0; t < 2; ++t) {
        EXPECT_EQ(blockSums[t], 0xF4);
        EXPECT_EQ(bufferSums[t], 0xCBF43926u);
    }
    for (const std::string& path : paths) std::remove(path.c_str());
}

}  // namespace
