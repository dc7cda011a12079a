#include "support/stream_over.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

namespace tevtest {

std::string mediumName(StreamMedium medium) {
    static const char* const kNames[] = {"Buffer", "File", "Fd"};
    return kNames[static_cast<int>(medium)];
}

StreamOver::StreamOver(StreamMedium medium, const Bytes& content, size_t spare) : medium_(medium) {
    if (medium == StreamMedium::Buffer) {
        memory_ = content;
        memory_.resize(content.size() + spare + 1);  // never an empty area
        handle_ = _kbsetbuffer(memory_.data(), int64_t(memory_.size()));
        if (handle_ == nullptr || btruncate(handle_, int64_t(content.size())) != 0) {
            throw std::runtime_error("buffer handle");
        }
        stream_ = std::make_unique<TevStreamBuffer>(handle_);
        return;
    }
    file_ = std::make_unique<TempFile>(content);
    if (medium == StreamMedium::Fd) {
        fd_ = open(file_->c_str(), O_RDWR);
        if (fd_ < 1) throw std::runtime_error("open " + file_->path());
        stream_ = std::make_unique<TevStreamFD>(fd_);
        return;
    }
    fp_ = _kfopen(file_->c_str(), "r+b");
    if (fp_ == nullptr) throw std::runtime_error("open " + file_->path());
    stream_ = std::make_unique<TevStreamFile>(fp_);
}

StreamOver::~StreamOver() {
    stream_.reset();
    if (fp_ != nullptr) _kfclose(fp_);
    if (fd_ >= 0) close(fd_);
    if (handle_ != nullptr) _kbclose(handle_);
}

Bytes StreamOver::contents() const {
    if (medium_ != StreamMedium::Buffer) return file_->read();
    const int64_t size = kbgetWriteSize(handle_);
    return Bytes(memory_.begin(), memory_.begin() + size);
}

}  // namespace tevtest
