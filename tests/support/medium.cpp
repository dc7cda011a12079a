#include "support/medium.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

namespace tevtest {

std::string mediumName(MediumOf medium) {
    static const char* const kNames[] = {"Path", "FilePtr", "Fd", "Buffer", "Handle"};
    return kNames[static_cast<int>(medium.medium)];
}

StreamOver::StreamOver(Medium medium, const Bytes& content, size_t spare) : medium_(medium) {
    if (medium == Medium::Buffer || medium == Medium::Handle) {
        memory_ = content;
        memory_.resize(content.size() + spare + 1);  // a non-null area even when empty
        handle_ = _kbsetbuffer(memory_.data(), int64_t(content.size() + spare));
        if (handle_ == nullptr || btruncate(handle_, int64_t(content.size())) != 0) throw std::runtime_error("handle");
        stream_ = std::make_unique<TevStreamBuffer>(handle_);
        return;
    }
    file_ = std::make_unique<TempFile>(content);
    if (medium == Medium::Fd) {
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
    _kbclose(handle_);
}

Bytes StreamOver::contents() const {
    if (file_) return file_->read();
    return Bytes(memory_.begin(), memory_.begin() + kbgetWriteSize(handle_));
}

uint32_t signatureOn(const Bytes& bytes, Medium medium) {
    StreamOver over(medium, bytes);
    if (medium == Medium::Path) return getSignature(over.path());
    if (medium == Medium::FilePtr) return getSignatureFP(over.fp());
    return medium == Medium::Fd ? getSignatureFd(over.fd()) : getSignatureBuffer(over.handle());
}

PackOnMedium::PackOnMedium(const Bytes& bytes, Medium medium) : medium_(medium), over_(medium, bytes) {
    switch (medium_) {
        case Medium::Path: pack_ = checkTEVInFile(over_.path()); break;
        case Medium::FilePtr: pack_ = checkTEVInFP(over_.fp()); break;
        case Medium::Fd: pack_ = checkTEVInFd(over_.fd()); break;
        case Medium::Buffer: pack_ = checkTEVInBuffer(over_.memory(), int64_t(bytes.size())); break;
        case Medium::Handle: pack_ = checkTEVInHandle(over_.handle()); break;
    }
}

PackOnMedium::~PackOnMedium() {
    if (pack_ == nullptr) return;
    if (medium_ == Medium::Path || medium_ == Medium::Buffer) destroyTEVDATA(pack_);
    if (medium_ == Medium::FilePtr || medium_ == Medium::Fd) destroyTEVDATA_FP(pack_);
    if (medium_ == Medium::Handle) destroyTEVDATA_Buffer(pack_);
}

}  // namespace tevtest
