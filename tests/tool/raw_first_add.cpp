// Test helper: writes a first record straight through AddTEVDataInFirstTime,
// which puts no "tevd" box around the container even in an MP4 file. The
// media safety test uses it to make an MP4 whose container has no box.
// Usage: raw_first_add FILE NAME DATA_TEXT
#include <cstdio>
#include <cstring>

#include "tev/tev.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s FILE NAME DATA_TEXT\n", argv[0]);
        return 2;
    }
    const char* name = argv[2];
    const auto* data = reinterpret_cast<const unsigned char*>(argv[3]);
    const uint32_t added = AddTEVDataInFirstTime(argv[1], name, static_cast<uint32_t>(std::strlen(name)),
                                                 1, nullptr, 0, data,
                                                 static_cast<uint32_t>(std::strlen(argv[3])));
    if (added != 1) {
        std::fprintf(stderr, "raw_first_add: %s: AddTEVDataInFirstTime failed\n", argv[1]);
        return 1;
    }
    return 0;
}
