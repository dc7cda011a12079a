// A TevStream over given bytes, in memory (a buffer handle over test-owned
// memory with room to grow) or in a temporary file opened for update through
// a FILE* or a descriptor, so that one test can run over every stream medium.
#ifndef TEV_TESTS_SUPPORT_STREAM_OVER_H
#define TEV_TESTS_SUPPORT_STREAM_OVER_H

#include <cstdio>
#include <memory>
#include <string>

#include "support/files.h"
#include "tev/stream.h"

namespace tevtest {

enum class StreamMedium { Buffer, File, Fd };
inline constexpr StreamMedium kStreamMedia[] = {StreamMedium::Buffer, StreamMedium::File, StreamMedium::Fd};

std::string mediumName(StreamMedium medium);

class StreamOver {
public:
    // `spare` extra bytes of capacity for a buffer stream to write into.
    StreamOver(StreamMedium medium, const Bytes& content, size_t spare = 0);
    ~StreamOver();
    StreamOver(const StreamOver&) = delete;
    StreamOver& operator=(const StreamOver&) = delete;

    TevStream* get() const { return stream_.get(); }
    // The stream's bytes as they are now.
    Bytes contents() const;

private:
    StreamMedium medium_;
    Bytes memory_;
    TevBufferHandle* handle_ = nullptr;
    std::unique_ptr<TempFile> file_;
    FILE* fp_ = nullptr;
    int fd_ = -1;
    std::unique_ptr<TevStream> stream_;
};

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_STREAM_OVER_H
