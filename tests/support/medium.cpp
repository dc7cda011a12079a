#include "support/medium.h"

#include <fcntl.h>
#include <unistd.h>

namespace tevtest {

std::string mediumName(const ::testing::TestParamInfo<Medium>& info) {
    switch (info.param) {
        case Medium::Path: return "Path";
        case Medium::FilePtr: return "FilePtr";
        case Medium::Fd: return "Fd";
        case Medium::Buffer: return "Buffer";
        case Medium::Handle: return "Handle";
    }
    return "Unknown";
}

uint32_t signatureOn(const Bytes& bytes, Medium medium) {
    TempFile file(bytes);
    switch (medium) {
        case Medium::Path: return getSignature(file.c_str());
        case Medium::FilePtr: {
            FILE* fp = fopen(file.c_str(), "rb");
            const uint32_t signature = getSignatureFP(fp);
            fclose(fp);
            return signature;
        }
        case Medium::Fd: {
            const int fd = open(file.c_str(), O_RDONLY);
            const uint32_t signature = getSignatureFd(fd);
            close(fd);
            return signature;
        }
        case Medium::Buffer:
        case Medium::Handle: {
            Bytes copy = bytes;
            TevBufferHandle* handle = _kbsetbuffer(copy.data(), int64_t(copy.size()));
            btruncate(handle, int64_t(copy.size()));
            const uint32_t signature = getSignatureBuffer(handle);
            _kbclose(handle);
            return signature;
        }
    }
    return SIGNATURE_ERROR;
}

PackOnMedium::PackOnMedium(const Bytes& bytes, Medium medium) : medium_(medium), file_(bytes), buffer_(bytes) {
    switch (medium_) {
        case Medium::Path:
            pack_ = checkTEVInFile(file_.c_str());
            break;
        case Medium::FilePtr:
            fp_ = fopen(file_.c_str(), "r+b");
            pack_ = checkTEVInFP(fp_);
            break;
        case Medium::Fd:
            fd_ = open(file_.c_str(), O_RDWR);
            pack_ = checkTEVInFd(fd_);
            break;
        case Medium::Buffer:
            pack_ = checkTEVInBuffer(buffer_.data(), int64_t(buffer_.size()));
            break;
        case Medium::Handle:
            handle_ = _kbsetbuffer(buffer_.data(), int64_t(buffer_.size()));
            btruncate(handle_, int64_t(buffer_.size()));
            pack_ = checkTEVInHandle(handle_);
            break;
    }
}

PackOnMedium::~PackOnMedium() {
    if (pack_ != nullptr) {
        switch (medium_) {
            case Medium::Path:
            case Medium::Buffer: destroyTEVDATA(pack_); break;
            case Medium::FilePtr:
            case Medium::Fd: destroyTEVDATA_FP(pack_); break;
            case Medium::Handle: destroyTEVDATA_Buffer(pack_); break;
        }
    }
    if (fp_ != nullptr) fclose(fp_);
    if (fd_ >= 0) close(fd_);
    if (handle_ != nullptr) _kbclose(handle_);
}

Bytes PackOnMedium::contents() const {
    return medium_ == Medium::Buffer || medium_ == Medium::Handle ? buffer_ : file_.read();
}

}  // namespace tevtest
