// Allocation and string helpers. Memory handed to callers comes from here
// and goes back through _kfree.
#include <cstdlib>
#include <cstring>

#include "tev/stream.h"
#include "util/log.h"

// calloc hands out zero-filled memory; for large blocks fresh from the
// system it skips the clearing pass that malloc and memset would make.
void* _kmalloc(size_t size) {
    void* memory = std::calloc(1, size);
    if (memory == nullptr) {
        tev::logLine(tev::kLogError, "_kmalloc error", "pointer allocated is null");
        return nullptr;
    }
    return memory;
}

void* _kcalloc(size_t count, size_t size) {
    void* memory = std::calloc(count, size);
    if (memory == nullptr) {
        tev::logLine(tev::kLogError, "_kmalloc error", "pointer allocated is null");
    }
    return memory;
}

void _kfree(void* ptr) { std::free(ptr); }

void* _kmemcpy(void* dst, const void* src, int64_t size) {
    if (dst == nullptr || src == nullptr || size < 1) return nullptr;
    std::memcpy(dst, src, static_cast<size_t>(size));
    return dst;
}

int getExtIndex(const char* str) {
    if (str == nullptr || str[0] == '\0') return -1;
    const char* dot = std::strrchr(str, '.');
    if (dot != nullptr) return static_cast<int>(dot - str);
    return static_cast<int>(std::strlen(str)) - 1;
}

size_t getStringLen(const char* str) { return str == nullptr ? 0 : std::strlen(str); }

char* _kstrcpy(char* dst, const char* src) {
    if (dst == nullptr || src == nullptr) return nullptr;
    return std::strcpy(dst, src);
}

char* _kstrcat(char* dst, const char* src) {
    if (dst == nullptr || src == nullptr) return nullptr;
    return std::strcat(dst, src);
}

// A null string sorts before every other string instead of crashing.
int _kstrcmp(const char* left, const char* right) {
    if (left == nullptr || right == nullptr) return (left != nullptr) - (right != nullptr);
    return std::strcmp(left, right);
}
