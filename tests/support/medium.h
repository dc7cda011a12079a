// Runs the library's medium forms (path, FILE*, descriptor, memory buffer,
// buffer handle) over the same bytes, so that tests of shared behaviour can
// be written once and parametrised over the medium.
#ifndef TEV_TESTS_SUPPORT_MEDIUM_H
#define TEV_TESTS_SUPPORT_MEDIUM_H

#include <cstdint>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"
#include "tev/tev.h"

namespace tevtest {

enum class Medium { Path, FilePtr, Fd, Buffer, Handle };

std::string mediumName(const ::testing::TestParamInfo<Medium>& info);

// A memory buffer of fixed capacity holding `content` (readable up to its
// size), a handle over it and a stream over the handle.
class FixedBuffer {
public:
    explicit FixedBuffer(const Bytes& content, size_t capacity = 0);
    ~FixedBuffer();
    FixedBuffer(const FixedBuffer&) = delete;
    FixedBuffer& operator=(const FixedBuffer&) = delete;

    TevStream* stream() const { return stream_; }
    TevBufferHandle* handle() const { return handle_; }
    Bytes contents() const;  // the bytes up to the handle's write size

private:
    Bytes storage_;
    TevBufferHandle* handle_;
    TevStream* stream_;
};

// The signature of `bytes` through the getSignature form of `medium`
// (Buffer and Handle both use getSignatureBuffer).
uint32_t signatureOn(const Bytes& bytes, Medium medium);

// Holds `bytes` in one medium and runs that medium's check form over it
// (checkTEVInFile, checkTEVInFP, checkTEVInFd, checkTEVInBuffer,
// checkTEVInHandle). Releases the pack with the destroyer that the medium
// calls for, then whatever the test itself opened.
class PackOnMedium {
public:
    PackOnMedium(const Bytes& bytes, Medium medium);
    ~PackOnMedium();
    PackOnMedium(const PackOnMedium&) = delete;
    PackOnMedium& operator=(const PackOnMedium&) = delete;

    _TEV_info_pack* pack() const { return pack_; }
    Bytes contents() const;  // the medium's bytes as they are now

private:
    Medium medium_;
    TempFile file_;
    FILE* fp_ = nullptr;
    int fd_ = -1;
    Bytes buffer_;
    TevBufferHandle* handle_ = nullptr;
    _TEV_info_pack* pack_ = nullptr;
};

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_MEDIUM_H
