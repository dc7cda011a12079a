// Header-only C++17 layer over the C API of tev/tev.h: owners that call the
// right destroy function, and a few typed helpers. Nothing here changes what
// the library does; every call below is one of the exported functions.
// Guide: docs/api.md.
#ifndef TEV_TEV_HPP
#define TEV_TEV_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "tev/tev.h"

namespace tev {

// ------------------------------------------------------------------ owners
// Each deleter calls the one destroy function that matches how the object
// was made. A null pointer never reaches them (std::unique_ptr skips it).

// Packs from checkTEVInFile, checkTEVWithReadPM and checkTEVInBuffer: the
// pack's stream (and the file the path form opened) is closed with it.
struct PackDeleter {
    void operator()(_TEV_info_pack* pack) const noexcept { destroyTEVDATA(pack); }
};
// Packs from checkTEVInFP, checkTEVInFd and checkTEVWithReadPM_Fd: the
// stream object goes, the FILE* or descriptor stays open.
struct PackFPDeleter {
    void operator()(_TEV_info_pack* pack) const noexcept { destroyTEVDATA_FP(pack); }
};
// Packs from checkTEVInHandle: the stream object goes, the handle stays.
struct PackBufferDeleter {
    void operator()(_TEV_info_pack* pack) const noexcept { destroyTEVDATA_Buffer(pack); }
};
// Packs from the stream forms (checkTEVInStream, …): the stream is the caller's.
struct PackStreamDeleter {
    void operator()(_TEV_info_pack* pack) const noexcept { destroyTEVDATA_Stream(pack); }
};

struct IndexDeleter {
    void operator()(_TEV_info* info) const noexcept { DestroyTEV(info); }
};
struct RecordDeleter {
    void operator()(_TEV_data_unit* unit) const noexcept { destroyTEVDATA_UNIT(unit); }
};
struct OffsetDeleter {
    void operator()(TevOffsetInfo* offset) const noexcept { DestroyOffsetInfo(offset); }
};
struct BufferDeleter {
    void operator()(TevBufferHandle* handle) const noexcept { destroyTEVBuffer(handle); }
};

// Voxa records, one deleter per way of making them.
struct VoxaDeleter {  // ParseVoxa, _checkAudioInImageFile: closes the file too
    void operator()(_voxa_info_struct* info) const noexcept { DestroyVoxa(info); }
};
struct VoxaFPDeleter {  // the FP and Fd forms
    void operator()(_voxa_info_struct* info) const noexcept { DestroyVoxaFP(info); }
};
struct VoxaBufferDeleter {  // the Buffer forms
    void operator()(_voxa_info_struct* info) const noexcept { DestroyVoxaBuffer(info); }
};
struct VoxaStreamDeleter {  // the Stream forms and checkVoxaInStream
    void operator()(_voxa_info_struct* info) const noexcept { DestroyVoxaStream(info); }
};
struct VoxaOffsetDeleter {
    void operator()(VoxaSoundOffset* offset) const noexcept { _destroyVOXAOFFSET(offset); }
};

// Library allocations released with _kfree (readDataOfIndex,
// _getAudioStreamBuffer, getTEVVersion).
struct KFreeDeleter {
    void operator()(void* memory) const noexcept { _kfree(memory); }
};
// GetAudioInVoxa hands out memory for the C library's free().
struct FreeDeleter {
    void operator()(void* memory) const noexcept { std::free(memory); }
};

using Pack = std::unique_ptr<_TEV_info_pack, PackDeleter>;
using PackFP = std::unique_ptr<_TEV_info_pack, PackFPDeleter>;
using PackBuffer = std::unique_ptr<_TEV_info_pack, PackBufferDeleter>;
using PackStream = std::unique_ptr<_TEV_info_pack, PackStreamDeleter>;
using Index = std::unique_ptr<_TEV_info, IndexDeleter>;
using Record = std::unique_ptr<_TEV_data_unit, RecordDeleter>;
using Offset = std::unique_ptr<TevOffsetInfo, OffsetDeleter>;
using Buffer = std::unique_ptr<TevBufferHandle, BufferDeleter>;
using Voxa = std::unique_ptr<_voxa_info_struct, VoxaDeleter>;
using VoxaFP = std::unique_ptr<_voxa_info_struct, VoxaFPDeleter>;
using VoxaBuffer = std::unique_ptr<_voxa_info_struct, VoxaBufferDeleter>;
using VoxaStream = std::unique_ptr<_voxa_info_struct, VoxaStreamDeleter>;
using VoxaOffset = std::unique_ptr<VoxaSoundOffset, VoxaOffsetDeleter>;
using KBytes = std::unique_ptr<unsigned char, KFreeDeleter>;
using KString = std::unique_ptr<char, KFreeDeleter>;
using CBytes = std::unique_ptr<unsigned char, FreeDeleter>;

// A list of names handed out by the library (getNameListByDataType,
// getEchoFrameNameList): every string and then the array are released with
// _kfree. Iterates as const char*.
class NameList {
public:
    NameList() = default;
    NameList(char** names, std::size_t count) noexcept : names_(names), count_(names ? count : 0) {}
    NameList(NameList&& other) noexcept : names_(other.names_), count_(other.count_) {
        other.names_ = nullptr;
        other.count_ = 0;
    }
    NameList& operator=(NameList&& other) noexcept {
        if (this != &other) {
            reset();
            names_ = other.names_;
            count_ = other.count_;
            other.names_ = nullptr;
            other.count_ = 0;
        }
        return *this;
    }
    NameList(const NameList&) = delete;
    NameList& operator=(const NameList&) = delete;
    ~NameList() { reset(); }

    std::size_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    const char* operator[](std::size_t i) const noexcept { return names_[i]; }
    const char* const* begin() const noexcept { return names_; }
    const char* const* end() const noexcept { return names_ + count_; }

    void reset() noexcept {
        for (std::size_t i = 0; i < count_; ++i) _kfree(names_[i]);
        _kfree(names_);
        names_ = nullptr;
        count_ = 0;
    }

private:
    char** names_ = nullptr;
    std::size_t count_ = 0;
};

// ------------------------------------------------------------ typed values
// What the last bytes of a file hold (SIGNATURE_* in tev/types.h).
enum class Signature : uint32_t {
    Error = SIGNATURE_ERROR,
    Plain = SIGNATURE_DETECTION_FAIL,
    Container = SIGNATURE_TEV,
    Voxa = SIGNATURE_VOXA,
    ContainerThenVoxa = SIGNATURE_VOXA_TEV,
};

// Values outside 0..4 (a descriptor form refusing its argument returns one)
// read as Error.
inline Signature toSignature(uint32_t value) noexcept {
    return value <= SIGNATURE_VOXA_TEV ? static_cast<Signature>(value) : Signature::Error;
}
inline Signature signatureOf(const char* path) noexcept { return toSignature(getSignature(path)); }
inline bool hasContainer(Signature s) noexcept {
    return s == Signature::Container || s == Signature::ContainerThenVoxa;
}

// A record's data type. Types are 16 bits on disk; the C API takes 32 and
// keeps only the low 16, so the typed form refuses wider values at compile
// time ({} initialisation of a uint16_t rejects narrowing).
struct DataType {
    uint16_t value;
};

// Bit 0 of the save functions' last argument.
enum class OnExisting : uint32_t {
    Keep = 0,     // a record of the same name is left alone and the save fails
    Replace = 1,  // a record of the same name is deleted and the new one added
};

// ------------------------------------------------------------------- views
// A read-only view of bytes owned elsewhere (an extracted record's parts).
class ByteView {
public:
    constexpr ByteView() noexcept = default;
    constexpr ByteView(const unsigned char* data, std::size_t size) noexcept
        : data_(data), size_(data ? size : 0) {}
    // Text and byte strings; the terminator is not part of the view.
    ByteView(std::string_view text) noexcept
        : ByteView(reinterpret_cast<const unsigned char*>(text.data()), text.size()) {}

    constexpr const unsigned char* data() const noexcept { return data_; }
    constexpr std::size_t size() const noexcept { return size_; }
    constexpr bool empty() const noexcept { return size_ == 0; }
    constexpr const unsigned char* begin() const noexcept { return data_; }
    constexpr const unsigned char* end() const noexcept { return data_ + size_; }
    constexpr unsigned char operator[](std::size_t i) const noexcept { return data_[i]; }
    std::string_view text() const noexcept {
        return {reinterpret_cast<const char*>(data_), size_};
    }

private:
    const unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
};

inline ByteView dataOf(const _TEV_data_unit& unit) noexcept {
    return {unit.data, unit.data_length};
}
// Empty for a record without sub-information.
inline ByteView subInfoOf(const _TEV_data_unit& unit) noexcept {
    return {unit.sub_info, unit.sub_info_length};
}

// ----------------------------------------------------------------- helpers
// Parses the file read-only; null when it holds no container.
inline Pack openForReading(const char* path) noexcept { return Pack(checkTEVWithReadPM(path)); }

// The record named `name` (a NUL-terminated string: the look-up compares
// whole names), or null.
inline Record extract(_TEV_info_pack* pack, const char* name) noexcept {
    const std::size_t length = name ? std::string_view(name).size() : 0;
    return Record(extractTEVDataFromFilebyName(pack, name, static_cast<unsigned int>(length)));
}
inline Record extract(_TEV_info_pack* pack, unsigned int index) noexcept {
    return Record(extractTEVDataFromFilebyIndex(pack, index));
}

// Position and length of the data of the record named `name`, or null.
inline Offset dataPosition(_TEV_info_pack* pack, const char* name) noexcept {
    return Offset(getTEVInFileByName(pack, name));
}
inline Offset subInfoPosition(_TEV_info_pack* pack, const char* name) noexcept {
    return Offset(getTEVSubInfoInFileByName(pack, name));
}

// Names of the records of one type, in directory order; empty when none.
inline NameList namesOfType(_TEV_info_pack* pack, DataType type) noexcept {
    unsigned int count = 0;
    char** names = getNameListByDataType(pack, type.value, &count);
    return NameList(names, count);
}

// saveTEVDataToFile with the arguments named by type, so that the type, the
// sub-information and the data cannot trade places. The name is stored
// without terminator; 1 to 1024 bytes.
inline bool saveToFile(const char* path, std::string_view name, ByteView data, DataType type,
                       ByteView sub = {}, OnExisting existing = OnExisting::Keep) noexcept {
    constexpr std::size_t kMax = UINT32_MAX;
    if (name.size() > kMax || data.size() > kMax || sub.size() > kMax) return false;
    return saveTEVDataToFile(path, name.data(), static_cast<uint32_t>(name.size()), sub.data(),
                             static_cast<uint32_t>(sub.size()), data.data(),
                             static_cast<uint32_t>(data.size()), type.value,
                             static_cast<uint32_t>(existing)) == LUMET_TEV_TRUE;
}

}  // namespace tev

#endif  // TEV_TEV_HPP
