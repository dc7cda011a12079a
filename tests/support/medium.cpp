#include "support/medium.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

namespace tevtest {

std::string mediumName(const ::testing::TestParamInfo<Medium>& info) {
    static const char* const kNames[] = {"Path", "FilePtr", "Fd", "Buffer", "Handle"};
    return kNames[static_cast<int>(info.param)];
}

FixedBuffer::FixedBuffer(const Bytes& content, size_t capacity)
    : storage_(std::max(capacity, content.size()), 0) {
    std::copy(content.begin(), content.end(), storage_.begin());
    handle_ = _kbsetbuffer(storage_.data(), int64_t(storage_.size()));
    btruncate(handle_, int64_t(content.size()));
    stream_ = new TevStreamBuffer(handle_);
}

FixedBuffer::~FixedBuffer() {
    delete stream_;
    _kbclose(handle_);
}

Bytes FixedBuffer::contents() const {
    return Bytes(storage_.begin(), storage_.begin() + kbgetWriteSize(handle_));
}

uint32_t signatureOn(const Bytes& bytes, Medium medium) {
    TempFile file(bytes);
    uint32_t signature = SIGNATURE_ERROR;
    if (medium == Medium::Path) {
        signature = getSignature(file.c_str());
    } else if (medium == Medium::FilePtr) {
        FILE* fp = fopen(file.c_str(), "rb");
        signature = getSignatureFP(fp);
        fclose(fp);
    } else if (medium == Medium::Fd) {
        const int fd = open(file.c_str(), O_RDONLY);
        signature = getSignatureFd(fd);
        close(fd);
    } else {
        FixedBuffer buffer(bytes);
        signature = getSignatureBuffer(buffer.handle());
    }
    return signature;
}

PackOnMedium::PackOnMedium(const Bytes& bytes, Medium medium) : medium_(medium), file_(bytes), buffer_(bytes) {
    switch (medium_) {
        case Medium::Path: pack_ = checkTEVInFile(file_.c_str()); break;
        case Medium::FilePtr:
            fp_ = fopen(file_.c_str(), "r+b");
            pack_ = checkTEVInFP(fp_);
            break;
        case Medium::Fd:
            fd_ = open(file_.c_str(), O_RDWR);
            pack_ = checkTEVInFd(fd_);
            break;
        case Medium::Buffer: pack_ = checkTEVInBuffer(buffer_.data(), int64_t(buffer_.size())); break;
        case Medium::Handle:
            handle_ = _kbsetbuffer(buffer_.data(), int64_t(buffer_.size()));
            btruncate(handle_, int64_t(buffer_.size()));
            pack_ = checkTEVInHandle(handle_);
            break;
    }
}

PackOnMedium::~PackOnMedium() {
    if (pack_ != nullptr) {
        if (medium_ == Medium::Path || medium_ == Medium::Buffer) destroyTEVDATA(pack_);
        if (medium_ == Medium::FilePtr || medium_ == Medium::Fd) destroyTEVDATA_FP(pack_);
        if (medium_ == Medium::Handle) destroyTEVDATA_Buffer(pack_);
    }
    if (fp_ != nullptr) fclose(fp_);
    if (fd_ >= 0) close(fd_);
    if (handle_ != nullptr) _kbclose(handle_);
}

Bytes PackOnMedium::contents() const {
    return medium_ == Medium::Buffer || medium_ == Medium::Handle ? buffer_ : file_.read();
}

}  // namespace tevtest
