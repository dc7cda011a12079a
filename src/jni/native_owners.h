// Owners for what the library hands the native methods: parsed packs,
// position records, buffer handles, Voxa records, _kmalloc buffers and name
// lists, each released with the function that matches how it was made.
// They live in tev::jni and not in tev.hpp's tev:: owners on purpose: the
// library's internals have their own tev:: deleters, and two inline classes
// of one name in one library would be merged into either.
#ifndef TEV_SRC_JNI_NATIVE_OWNERS_H
#define TEV_SRC_JNI_NATIVE_OWNERS_H

#include <cstdlib>
#include <memory>

#include "tev/tev.h"

namespace tev::jni {

// Packs of the path checks close their file with them; for the descriptor
// checks the stream's release leaves the caller's descriptor open.
struct PackRelease {
    void operator()(_TEV_info_pack* pack) const { destroyTEVDATA(pack); }
};
using Pack = std::unique_ptr<_TEV_info_pack, PackRelease>;

struct OffsetRelease {
    void operator()(TevOffsetInfo* offset) const { destroyTEVOFFSET(offset); }
};
using Offset = std::unique_ptr<TevOffsetInfo, OffsetRelease>;

struct BufferRelease {
    void operator()(TevBufferHandle* handle) const { destroyTEVBuffer(handle); }
};
using Buffer = std::unique_ptr<TevBufferHandle, BufferRelease>;

struct VoxaRelease {
    void operator()(_voxa_info_struct* voxa) const { DestroyVoxa(voxa); }
};
using Voxa = std::unique_ptr<_voxa_info_struct, VoxaRelease>;

struct KFreeRelease {
    void operator()(unsigned char* bytes) const { _kfree(bytes); }
};
using KBytes = std::unique_ptr<unsigned char, KFreeRelease>;

// A list from getNameListByDataType: each name, then the array, with free.
class NameList {
public:
    NameList(char** names, unsigned int count) : names_(names), count_(names != nullptr ? count : 0) {}
    ~NameList() {
        for (unsigned int i = 0; i < count_; ++i) std::free(names_[i]);
        std::free(names_);
    }
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;

    const char* const* names() const { return names_; }
    unsigned int size() const { return count_; }

private:
    char** names_;
    unsigned int count_;
};

}  // namespace tev::jni

#endif  // TEV_SRC_JNI_NATIVE_OWNERS_H
