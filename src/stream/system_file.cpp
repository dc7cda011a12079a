// stdio wrappers. The FILE* only names the file: every transfer goes through
// the descriptor under it, so no stdio buffering is ever involved.
#include <cerrno>
#include <cstdio>

#include "stream/io_detail.h"
#include "tev/stream.h"

FILE* _kfopen(const char* path, const char* mode) {
    errno = 0;
    if (path == nullptr || mode == nullptr) return nullptr;
    return std::fopen(path, mode);
}

int _kfclose(FILE* fp) {
    if (fp == nullptr) return EOF;
    return std::fclose(fp);
}

int64_t _kfread(void* buffer, int64_t size, FILE* fp) {
    if (buffer == nullptr || fp == nullptr) return 0;
    return tev::readFully(fileno(fp), buffer, size);
}

int64_t _kfreadInt16(int16_t* out, FILE* fp) {
    if (out == nullptr || fp == nullptr) return 0;
    int16_t value = 0;
    const int64_t got = tev::readFully(fileno(fp), &value, tev::kInt16Size);
    *out = value;
    return got;
}

int64_t _kfreadInt32(uint32_t* out, FILE* fp) {
    if (out == nullptr || fp == nullptr) return 0;
    uint32_t value = 0;
    const int64_t got = tev::readFully(fileno(fp), &value, tev::kInt32Size);
    *out = value;
    return got;
}

int64_t _kfwrite(const void* buffer, int64_t size, FILE* fp) {
    if (buffer == nullptr || fp == nullptr) return 0;
    return tev::writeAllOrFail(fileno(fp), buffer, size);
}

int64_t _kfwriteInt16(int16_t value, FILE* fp) {
    if (fp == nullptr) return 0;
    unsigned char bytes[tev::kInt16Size];
    tev::storeLittleEndian16(static_cast<uint16_t>(value), bytes);
    return tev::writeFully(fileno(fp), bytes, sizeof bytes);
}

int64_t _kfwriteInt32(uint32_t value, FILE* fp) {
    if (fp == nullptr) return 0;
    unsigned char bytes[tev::kInt32Size];
    tev::storeLittleEndian32(value, bytes);
    return tev::writeFully(fileno(fp), bytes, sizeof bytes);
}

int64_t _kfwriteInt32_endian(uint32_t value, FILE* fp) {
    if (fp == nullptr) return 0;
    unsigned char bytes[tev::kInt32Size];
    tev::storeBigEndian32(value, bytes);
    return tev::writeFully(fileno(fp), bytes, sizeof bytes);
}

int64_t _kftell(FILE* fp) {
    if (fp == nullptr) return -1;
    return std::ftell(fp);
}

int64_t _kfseek(FILE* fp, int64_t offset, int whence) {
    if (fp == nullptr) return -1;
    return tev::seekLogged(fileno(fp), offset, whence);
}

int _kremove(const char* path) {
    if (path == nullptr) return -1;
    return std::remove(path);
}

int _krename(const char* oldPath, const char* newPath) {
    if (oldPath == nullptr || newPath == nullptr) return -1;
    return std::rename(oldPath, newPath);
}

int _kfilecopy(FILE* dst, FILE* src, int64_t size) {
    if (dst == nullptr || src == nullptr) return 0;
    return tev::copyBetweenDescriptors(fileno(dst), fileno(src), size);
}
