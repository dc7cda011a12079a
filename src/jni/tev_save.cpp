// TEVJNI native methods that add a record: by path, by descriptor, into a
// Java byte array, from a data file, several data files at once, and the
// MP4 and tag forms that open the file themselves.
#include <jni.h>

#include <cstdio>
#include <memory>

#include "container/owned.h"
#include "jni/java_values.h"
#include "tev/tev.h"
#include "tev/tev.hpp"
#include "util/log.h"

using tev::kLogError;
using tev::logLine;
using tev::jni::JavaBytes;
using tev::jni::JavaInts;
using tev::jni::JavaString;
using tev::jni::JavaStringElement;
using tev::jni::kBadDescriptor;

namespace {

uint32_t u32(jint value) { return static_cast<uint32_t>(value); }

// A record's arguments as the library takes them.
struct Record {
    const char* keyName;
    uint32_t keyNameLength;
    const unsigned char* subInfo;
    uint32_t subInfoLength;
    const unsigned char* data;
    uint32_t dataLength;
};

// Converts the record arguments that are present, refuses lengths that
// reach past their Java value, and hands the rest to `save`. Missing
// arguments go on as null pointers for the library to report. The data
// file forms have no data array and pass null for it.
template <typename Save>
auto addRecord(JNIEnv* env, const char* tag, jstring keyName, jint keyNameLength, jbyteArray subInfo,
               jint subInfoLength, jbyteArray data, jint dataLength, Save save) -> decltype(save(Record{})) {
    const JavaString key(env, keyName);
    const JavaBytes sub(env, subInfo);
    const JavaBytes bytes(env, data);
    if (!key.fits(keyNameLength) || !sub.fits(subInfoLength) || !bytes.fits(dataLength)) {
        tev::jni::logLengthBeyondValue(tag);
        return 0;
    }
    return save(Record{key.get(), u32(keyNameLength), sub.get(), u32(subInfoLength), bytes.get(), u32(dataLength)});
}

// The MP4 and tag forms open the file "r+b" themselves; a file that does not
// open gives 0 without a message.
template <typename SaveFP>
uint32_t saveToOpenedFile(const char* path, SaveFP save) {
    const tev::OwnedFile file(_kfopen(path, "r+b"));
    return file ? save(file.get()) : 0;
}

// The three descriptor forms differ only in their tag.
jint addRecordToFd(JNIEnv* env, const char* tag, jint fd, jstring keyName, jint keyNameLength,
                   jbyteArray subInfo, jint subInfoLength, jbyteArray data, jint dataLength, jint dataType,
                   jint option) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, tag, "fd error");
        return 0;
    }
    if (keyName == nullptr || data == nullptr) {
        // A missing data array is reported with the missing name's text.
        logLine(kLogError, tag, "TEVname is null.");
        return 0;
    }
    return addRecord(env, tag, keyName, keyNameLength, subInfo, subInfoLength, data, dataLength,
                     [&](const Record& r) {
                         return saveTEVDataToFd(fd, r.keyName, r.keyNameLength, r.subInfo, r.subInfoLength,
                                                r.data, r.dataLength, u32(dataType), u32(option));
                     });
}

// The whole content of the file at `path`, read the way the fast data file
// form has always read it. Null after logging when the file does not open,
// is empty (its size taken as a 32-bit signed value) or cannot be read.
tev::KBytes readDataFile(const char* path, uint32_t* size) {
    const tev::OwnedFile file(_kfopen(path, "rb"));
    if (!file) {
        logLine(kLogError, "TEVJNI::addFastTEVDataFile", "data_fp NULL\n");
        return nullptr;
    }
    _kfseek(file.get(), 0, SEEK_END);
    const auto length = static_cast<int32_t>(_kftell(file.get()));
    if (length <= 0) {
        logLine(kLogError, "TEVJNI::addFastTEVDataFile", "data_len<= 0\n");
        return nullptr;
    }
    _kfseek(file.get(), 0, SEEK_SET);
    tev::KBytes bytes(static_cast<unsigned char*>(_kmalloc(static_cast<size_t>(length))));
    if (_kfread(bytes.get(), length, file.get()) <= 0) {
        logLine(kLogError, "TEVJNI::addFastTEVDataFile", "fread fail\n");
        return nullptr;
    }
    *size = static_cast<uint32_t>(length);
    return bytes;
}

// The Java array's bytes from `offset` on, `capacity` of them, must lie
// inside the array, since the library writes up to the capacity.
bool bufferFits(const JavaBytes& buffer, jlong capacity, jlong offset) {
    return offset >= 0 && capacity >= 0 && offset <= buffer.size() && capacity <= buffer.size() - offset;
}

}  // namespace

extern "C" {

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVData(JNIEnv* env, jclass, jstring path, jstring keyName,
                                                              jint keyNameLength, jbyteArray subInfo,
                                                              jint subInfoLength, jbyteArray data, jint dataLength,
                                                              jint dataType, jint option) {
    const JavaString file(env, path);
    return addRecord(env, "JNI::addTEVData", keyName, keyNameLength, subInfo, subInfoLength, data, dataLength,
                     [&](const Record& r) {
                         return saveTEVDataToFile(file.get(), r.keyName, r.keyNameLength, r.subInfo,
                                                  r.subInfoLength, r.data, r.dataLength, u32(dataType),
                                                  u32(option));
                     });
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addFastTEVData(JNIEnv* env, jclass, jstring path,
                                                                  jstring keyName, jint keyNameLength,
                                                                  jbyteArray subInfo, jint subInfoLength,
                                                                  jbyteArray data, jint dataLength, jint dataType,
                                                                  jint option) {
    const JavaString file(env, path);
    return addRecord(env, "JNI::addFastTEVData", keyName, keyNameLength, subInfo, subInfoLength, data,
                     dataLength, [&](const Record& r) {
                         return saveFastTEVDataToFile(file.get(), r.keyName, r.keyNameLength, r.subInfo,
                                                      r.subInfoLength, r.data, r.dataLength, u32(dataType),
                                                      u32(option));
                     });
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addFastTEVDataFile(JNIEnv* env, jclass, jstring path,
                                                                      jstring keyName, jint keyNameLength,
                                                                      jbyteArray subInfo, jint subInfoLength,
                                                                      jstring dataFilePath, jint dataType,
                                                                      jint option) {
    const JavaString file(env, path);
    const JavaString dataFile(env, dataFilePath);
    return addRecord(env, "JNI::addFastTEVDataFile", keyName, keyNameLength, subInfo, subInfoLength, nullptr, 0,
                     [&](const Record& r) -> uint32_t {
                         uint32_t size = 0;
                         const tev::KBytes bytes = readDataFile(dataFile.get(), &size);
                         if (!bytes) return 0;
                         return saveFastTEVDataToFile(file.get(), r.keyName, r.keyNameLength, r.subInfo,
                                                      r.subInfoLength, bytes.get(), size, u32(dataType),
                                                      u32(option));
                     });
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataFile(JNIEnv* env, jclass, jstring path,
                                                                  jstring keyName, jint keyNameLength,
                                                                  jbyteArray subInfo, jint subInfoLength,
                                                                  jstring dataFilePath, jint dataType, jint option) {
    const JavaString file(env, path);
    const JavaString dataFile(env, dataFilePath);
    return addRecord(env, "JNI::addTEVDataFile", keyName, keyNameLength, subInfo, subInfoLength, nullptr, 0,
                     [&](const Record& r) {
                         return saveTEVFileDataToFile(file.get(), r.keyName, r.keyNameLength, r.subInfo,
                                                      r.subInfoLength, dataFile.get(), u32(dataType),
                                                      u32(option));
                     });
}

// Adds `count` records one after another and stops at the first that fails
// (a missing element, a name length past its name, or a failed save): the
// records before it stay added and the result is 0. Otherwise the result is
// the last save's.
TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(JNIEnv* env, jclass, jstring path,
                                                                   jobjectArray keyNames, jintArray keyNameLengths,
                                                                   jobjectArray dataFilePaths, jintArray dataTypes,
                                                                   jint option, jint count) {
    const JavaString file(env, path);
    const JavaInts nameLengths(env, keyNameLengths);
    const JavaInts types(env, dataTypes);
    if (count < 1) return 0;
    uint32_t result = 0;
    for (jint i = 0; i < count; ++i) {
        const JavaStringElement key(env, keyNames, i);
        const JavaStringElement dataFile(env, dataFilePaths, i);
        if (key.string().isNull() || dataFile.string().isNull() || !nameLengths.has(i) || !types.has(i)) return 0;
        if (!key.string().fits(nameLengths[i])) {
            tev::jni::logLengthBeyondValue("JNI::addTEVDataFiles");
            return 0;
        }
        result = saveTEVFileDataToFile(file.get(), key.string().get(), u32(nameLengths[i]), nullptr, 0,
                                       dataFile.string().get(), u32(types[i]), u32(option));
        if (result < 1) return 0;
    }
    return static_cast<jint>(result);
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataToMP4(JNIEnv* env, jclass, jstring path,
                                                                   jstring keyName, jint keyNameLength,
                                                                   jbyteArray subInfo, jint subInfoLength,
                                                                   jbyteArray data, jint dataLength, jint dataType,
                                                                   jint option) {
    const JavaString file(env, path);
    return addRecord(env, "JNI::addTEVDataToMP4", keyName, keyNameLength, subInfo, subInfoLength, data,
                     dataLength, [&](const Record& r) {
                         return saveToOpenedFile(file.get(), [&](FILE* fp) {
                             return saveTEVDataToFPToMP4(fp, r.keyName, r.keyNameLength, r.subInfo,
                                                         r.subInfoLength, r.data, r.dataLength, u32(dataType),
                                                         u32(option));
                         });
                     });
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataFileToMP4(JNIEnv* env, jclass, jstring path,
                                                                       jstring keyName, jint keyNameLength,
                                                                       jbyteArray subInfo, jint subInfoLength,
                                                                       jstring dataFilePath, jint dataType,
                                                                       jint option) {
    const JavaString file(env, path);
    const JavaString dataFile(env, dataFilePath);
    return addRecord(env, "JNI::addTEVDataFileToMP4", keyName, keyNameLength, subInfo, subInfoLength, nullptr, 0,
                     [&](const Record& r) {
                         return saveToOpenedFile(file.get(), [&](FILE* fp) {
                             return saveTEVDataFileToFPToMP4(fp, r.keyName, r.keyNameLength, r.subInfo,
                                                             r.subInfoLength, dataFile.get(), u32(dataType),
                                                             u32(option));
                         });
                     });
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataAddTag(JNIEnv* env, jclass, jstring path,
                                                                    jstring keyName, jint keyNameLength,
                                                                    jbyteArray subInfo, jint subInfoLength,
                                                                    jbyteArray data, jint dataLength, jint dataType,
                                                                    jint option) {
    const JavaString file(env, path);
    return addRecord(env, "JNI::addTEVDataAddTag", keyName, keyNameLength, subInfo, subInfoLength, data,
                     dataLength, [&](const Record& r) {
                         return saveToOpenedFile(file.get(), [&](FILE* fp) {
                             return saveTEVDataToFPAddTag(fp, r.keyName, r.keyNameLength, r.subInfo,
                                                          r.subInfoLength, r.data, r.dataLength, u32(dataType),
                                                          u32(option));
                         });
                     });
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataFileAddTag(JNIEnv* env, jclass, jstring path,
                                                                        jstring keyName, jint keyNameLength,
                                                                        jbyteArray subInfo, jint subInfoLength,
                                                                        jstring dataFilePath, jint dataType,
                                                                        jint option) {
    const JavaString file(env, path);
    const JavaString dataFile(env, dataFilePath);
    return addRecord(env, "JNI::addTEVDataFileAddTag", keyName, keyNameLength, subInfo, subInfoLength, nullptr,
                     0, [&](const Record& r) {
                         return saveToOpenedFile(file.get(), [&](FILE* fp) {
                             return saveTEVDataFileToFPAddTag(fp, r.keyName, r.keyNameLength, r.subInfo,
                                                              r.subInfoLength, dataFile.get(), u32(dataType),
                                                              u32(option));
                         });
                     });
}

// The array size to allocate before addTEVDataBufferAddTag: media length,
// key name length, sub-information length and data length, plus 24 bytes
// per record (computed in 32 bits, then sign-extended) and 28 fixed bytes.
// Plain arithmetic: a sum past 64 bits wraps (computed unsigned), it is
// not refused.
TEV_API jlong Java_com_valtremo_android_media_TEVJNI_getTEVBufferAllocSize(JNIEnv*, jclass, jlong mediaLength,
                                                                          jint recordCount, jlong keyNameLength,
                                                                          jlong subInfoLength, jlong dataLength) {
    constexpr uint32_t kPerRecord = 24;
    constexpr uint64_t kFixed = 28;
    const auto perRecord = static_cast<int64_t>(static_cast<int32_t>(u32(recordCount) * kPerRecord));
    const uint64_t total = uint64_t(mediaLength) + uint64_t(keyNameLength) + uint64_t(subInfoLength) +
                           uint64_t(dataLength) + uint64_t(perRecord) + kFixed;
    return static_cast<jlong>(total);
}

// Adds a record to media held in a Java byte array with room behind it. The
// container is written into the array itself; the result is the new used
// length counted from `offset`, or 0.
TEV_API jlong Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(
    JNIEnv* env, jclass, jbyteArray buffer, jlong capacity, jlong usedLength, jlong offset, jstring keyName,
    jint keyNameLength, jbyteArray subInfo, jint subInfoLength, jbyteArray data, jint dataLength, jint dataType,
    jint option) {
    if (buffer == nullptr) {
        logLine(kLogError, "TEVJNI::addTEVDataBufferAddTag ", "Buffer is LUMET_TEV_NULL \n");
        return 0;
    }
    const JavaBytes media(env, buffer);
    if (keyName == nullptr) {
        logLine(kLogError, "TEVJNI::addTEVDataBufferAddTag", " TEVname is LUMET_TEV_NULL\n");
        return 0;
    }
    if (data == nullptr) {
        logLine(kLogError, "TEVJNI::addTEVDataBufferAddTag", "data is LUMET_TEV_NULL\n");
        return 0;
    }
    if (media.isNull()) return 0;
    if (!bufferFits(media, capacity, offset)) {
        tev::jni::logLengthBeyondValue("TEVJNI::addTEVDataBufferAddTag");
        return 0;
    }
    return addRecord(env, "TEVJNI::addTEVDataBufferAddTag", keyName, keyNameLength, subInfo, subInfoLength, data,
                     dataLength, [&](const Record& r) -> jlong {
                         // Destroyed before `media` gives the bytes back to the array.
                         const tev::Buffer handle(initTEVUsedBuffer(media.get() + offset, capacity, usedLength));
                         if (!handle) return 0;
                         const uint32_t result = saveTEVDataToBufferAddTag(
                             handle.get(), r.keyName, r.keyNameLength, r.subInfo, r.subInfoLength, r.data,
                             r.dataLength, u32(dataType), u32(option));
                         return result == 1 ? getTEVWriteSize(handle.get()) : static_cast<jlong>(result);
                     });
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataFdAddTag(JNIEnv* env, jclass, jint fd, jstring keyName,
                                                                      jint keyNameLength, jbyteArray subInfo,
                                                                      jint subInfoLength, jbyteArray data,
                                                                      jint dataLength, jint dataType, jint option) {
    return addRecordToFd(env, "JNI::addTEVDataFdAddTag", fd, keyName, keyNameLength, subInfo, subInfoLength, data,
                         dataLength, dataType, option);
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataFdToMP4(JNIEnv* env, jclass, jint fd, jstring keyName,
                                                                     jint keyNameLength, jbyteArray subInfo,
                                                                     jint subInfoLength, jbyteArray data,
                                                                     jint dataLength, jint dataType, jint option) {
    return addRecordToFd(env, "JNI::addTEVDataFdToMP4", fd, keyName, keyNameLength, subInfo, subInfoLength, data,
                         dataLength, dataType, option);
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_addTEVDataFd(JNIEnv* env, jclass, jint fd, jstring keyName,
                                                                jint keyNameLength, jbyteArray subInfo,
                                                                jint subInfoLength, jbyteArray data, jint dataLength,
                                                                jint dataType, jint option) {
    return addRecordToFd(env, "JNI::addTEVDataFd", fd, keyName, keyNameLength, subInfo, subInfoLength, data,
                         dataLength, dataType, option);
}

}  // extern "C"
