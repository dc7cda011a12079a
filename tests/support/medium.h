// The library's media over the same bytes, so that a test of shared
// behaviour is written once and run over each medium.
#ifndef TEV_TESTS_SUPPORT_MEDIUM_H
#define TEV_TESTS_SUPPORT_MEDIUM_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"
#include "tev/tev.h"

namespace tevtest {

enum class Medium { Path, FilePtr, Fd, Buffer, Handle };
// The media a TevStream stands on.
inline constexpr Medium kStreamMedia[] = {Medium::Buffer, Medium::FilePtr, Medium::Fd};

// A medium, or gtest's parameter info over one, so that mediumName serves
// both trace lines and the names of parametrised tests.
struct MediumOf {
    MediumOf(Medium m) : medium(m) {}
    MediumOf(const ::testing::TestParamInfo<Medium>& info) : medium(info.param) {}
    Medium medium;
};
std::string mediumName(MediumOf medium);

// `content` in a medium with a TevStream over it: test-owned memory of
// capacity content + `spare`, or a temporary file opened for update.
class StreamOver {
public:
    StreamOver(Medium medium, const Bytes& content, size_t spare = 0);
    ~StreamOver();
    StreamOver(const StreamOver&) = delete;

    TevStream* get() const { return stream_.get(); }
    Bytes contents() const;  // the medium's bytes as they are now
    const char* path() const { return file_ ? file_->c_str() : nullptr; }
    FILE* fp() const { return fp_; }
    int fd() const { return fd_; }
    TevBufferHandle* handle() const { return handle_; }
    uint8_t* memory() { return memory_.data(); }

private:
    Medium medium_;
    Bytes memory_;
    TevBufferHandle* handle_ = nullptr;
    std::unique_ptr<TempFile> file_;
    FILE* fp_ = nullptr;
    int fd_ = -1;
    std::unique_ptr<TevStream> stream_;
};

// A buffer stream of exactly `capacity` bytes (at least the content's).
struct FixedBuffer : StreamOver {
    explicit FixedBuffer(const Bytes& content, size_t capacity = 0)
        : StreamOver(Medium::Buffer, content, capacity > content.size() ? capacity - content.size() : 0) {}
    TevStream* stream() const { return get(); }
};

// The signature of `bytes` through the getSignature form of `medium`.
uint32_t signatureOn(const Bytes& bytes, Medium medium);

// Holds `bytes` in one medium and runs that medium's check form over it;
// releases the pack with the destroyer that the medium calls for.
class PackOnMedium {
public:
    PackOnMedium(const Bytes& bytes, Medium medium);
    ~PackOnMedium();
    PackOnMedium(const PackOnMedium&) = delete;

    _TEV_info_pack* pack() const { return pack_; }
    Bytes contents() const { return over_.contents(); }

private:
    Medium medium_;
    StreamOver over_;
    _TEV_info_pack* pack_ = nullptr;
};

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_MEDIUM_H
