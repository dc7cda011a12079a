// Checksums exported for native clients.
//
// CRC-8/SMBUS keeps one process-wide table, zero until it is built. The
// table is published as a whole: the entries are atomic bytes and a flag,
// set with release order once the last entry is stored, tells readers that
// every entry is final. A reader that does not yet see the flag treats the
// table as still empty, so no thread ever computes with a half-built table,
// on any memory order. Concurrent builders store the same values, and once
// the flag is set the table never changes again.
// The CRC-32 functions keep no shared state.
#include "tev/crc.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace {

constexpr size_t kTableSize = 256;
constexpr unsigned char kCrc8Polynomial = 0x07;
constexpr unsigned char kCrc8TopBit = 0x80;
constexpr unsigned int kCrc32ReflectedPolynomial = 0xEDB88320u;
constexpr unsigned int kCrc32AllOnes = 0xFFFFFFFFu;
constexpr unsigned int kLowByte = 0xFFu;
constexpr int kBitsPerByte = 8;

std::atomic<unsigned char> gCrc8Table[kTableSize];
std::atomic<bool> gCrc8TablePublished{false};

// The table entry a step reads: 0 until the whole table is published.
unsigned char crc8Entry(unsigned int index) {
    if (!gCrc8TablePublished.load(std::memory_order_acquire)) return 0;
    return gCrc8Table[index].load(std::memory_order_relaxed);
}

// A negative or zero length, or no data, is an empty run.
bool isEmptyRun(const void* data, long long length) { return data == nullptr || length <= 0; }

unsigned int crc32Step(const unsigned int* table, unsigned int crc, unsigned char byte) {
    return table[(crc ^ byte) & kLowByte] ^ (crc >> kBitsPerByte);
}

}  // namespace

void make_crc_table() {
    if (gCrc8TablePublished.load(std::memory_order_acquire)) return;
    for (size_t i = 0; i < kTableSize; ++i) {
        unsigned char c = static_cast<unsigned char>(i);
        for (int bit = 0; bit < kBitsPerByte; ++bit) {
            c = (c & kCrc8TopBit) ? static_cast<unsigned char>((c << 1) ^ kCrc8Polynomial)
                                  : static_cast<unsigned char>(c << 1);
        }
        gCrc8Table[i].store(c, std::memory_order_relaxed);
    }
    gCrc8TablePublished.store(true, std::memory_order_release);
}

void CRC8_InitChecksum(unsigned char& state) { state = 0; }

void CRC8_Update(unsigned char& state, unsigned char byte) {
    state = crc8Entry(static_cast<unsigned int>(state ^ byte));
}

void CRC8_UpdateChecksum(unsigned char& state, const void* data, int length) {
    if (isEmptyRun(data, length)) return;
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    for (int i = 0; i < length; ++i) CRC8_Update(state, bytes[i]);
}

void CRC8_FinishChecksum(unsigned char& state) {
    // CRC-8/SMBUS has no final XOR: the running state is the result.
    (void)state;
}

unsigned char CRC8_BlockChecksum(const void* data, int length) {
    make_crc_table();
    unsigned char state = 0;
    CRC8_UpdateChecksum(state, data, length);
    return state;
}

unsigned int getBufferCRC(unsigned char* data, long long length) {
    if (isEmptyRun(data, length)) return 0;
    unsigned int table[kTableSize];
    makeCRCtable(table, kCrc32ReflectedPolynomial);
    unsigned int crc = kCrc32AllOnes;
    for (long long i = 0; i < length; ++i) crc = crc32Step(table, crc, data[i]);
    return crc ^ kCrc32AllOnes;
}

void makeCRCtable(unsigned int* table, unsigned int polynomial) {
    if (table == nullptr) return;
    for (unsigned int i = 0; i < kTableSize; ++i) {
        unsigned int c = i;
        for (int bit = 0; bit < kBitsPerByte; ++bit) c = (c & 1u) ? (polynomial ^ (c >> 1)) : (c >> 1);
        table[i] = c;
    }
}

unsigned int calcCRC(const unsigned char* data, long long length, unsigned int crc, unsigned int* table) {
    if (isEmptyRun(data, length) || table == nullptr) return crc;
    unsigned int c = ~crc;
    for (long long i = 0; i < length; ++i) c = crc32Step(table, c, data[i]);
    return ~c;
}
