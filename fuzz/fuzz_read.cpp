// Arbitrary bytes as a memory buffer through detection, parsing, every
// query and the Voxa parser. Nothing may crash, leak or read out of bounds.
#include <cstddef>
#include <cstdint>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    tevfuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const tevfuzz::InputBuffer input(data, size, 0);
    tevfuzz::exerciseReading(input);
    return 0;
}
