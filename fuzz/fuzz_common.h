// Pieces shared by the fuzz targets: a quiet log, a memory buffer handle
// over a private copy of the input, and one pass of every read-side query
// over whatever the buffer holds.
#ifndef TEV_FUZZ_FUZZ_COMMON_H
#define TEV_FUZZ_FUZZ_COMMON_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "tev/tev.h"

namespace tevfuzz {

// Drops the library's log lines: malformed input makes it log a lot.
void silenceLog();

// A private, writable copy of the input with `spare` extra bytes of
// capacity, wrapped in a handle whose write size is the input's length.
class InputBuffer {
public:
    InputBuffer(const uint8_t* data, size_t size, size_t spare);
    ~InputBuffer();
    InputBuffer(const InputBuffer&) = delete;
    InputBuffer& operator=(const InputBuffer&) = delete;

    TevBufferHandle* handle() const { return handle_; }
    unsigned char* bytes() const { return memory_.get(); }
    int64_t size() const { return size_; }

private:
    std::unique_ptr<unsigned char[]> memory_;
    int64_t size_;
    TevBufferHandle* handle_;
};

// Detection, validation, parsing with every signature value, every query of
// tev/query.h over every index (and out-of-range ones), record reads, and
// the Voxa parser, releasing all that the library hands out. The handle's
// content is only read.
void exerciseReading(const InputBuffer& input);

// Every query over a parsed pack; used by the edit target after an edit.
void exercisePack(_TEV_info_pack* pack);

}  // namespace tevfuzz

#endif  // TEV_FUZZ_FUZZ_COMMON_H
