// TEVJNI native methods that read a container: detection, positions,
// counts, names and types. Each parses the file, asks one query, turns the
// answer into a Java value and releases the pack. A file without container
// is not an error here: 0, -1 or null come back without a message.
#include <jni.h>

#include <cstdlib>
#include <memory>

#include "jni/java_values.h"
#include "tev/tev.h"
#include "tev/tev.hpp"
#include "util/log.h"

using tev::kLogError;
using tev::logLine;
using tev::jni::JavaString;
using tev::jni::kBadDescriptor;

namespace {

constexpr jint kContainerVersion = 107;

bool hasContainer(uint32_t signature) {
    return signature == SIGNATURE_TEV || signature == SIGNATURE_VOXA_TEV;
}

// The 16-bit data type of each record, widened without sign extension.
jintArray typesOf(JNIEnv* env, const _TEV_info_pack& pack) {
    const uint32_t count = pack.data_count;
    if (count < 1 || pack.info == nullptr || pack.info->meta_data == nullptr) return nullptr;
    std::unique_ptr<jint, decltype(&std::free)> scratch(
        static_cast<jint*>(std::malloc(sizeof(jint) * count)), &std::free);
    if (scratch) {
        for (uint32_t i = 0; i < count; ++i) {
            const _TEV_data_info* entry = pack.info->meta_data[i];
            scratch.get()[i] = entry != nullptr ? static_cast<jint>(_getDataType(entry->meta_type) & 0xFFFF) : 0;
        }
    }
    return tev::jni::newIntArray(env, scratch.get(), count);
}

jobjectArray namesByType(JNIEnv* env, _TEV_info_pack* pack, jint dataType) {
    if (pack == nullptr) return nullptr;
    unsigned int count = 0;
    char** list = getNameListByDataType(pack, dataType, &count);
    const tev::NameList names(list, count);
    if (names.size() == 0) return nullptr;
    return tev::jni::newStringArray(env, names.begin(), static_cast<unsigned int>(names.size()));
}

jobjectArray allNames(JNIEnv* env, const _TEV_info_pack* pack) {
    if (pack == nullptr || pack->name_list == nullptr) return nullptr;
    return tev::jni::newStringArray(env, pack->name_list, pack->data_count);
}

jint dataTypeOf(_TEV_info_pack* pack, const char* keyName) {
    if (pack == nullptr) return 0;
    return static_cast<jint>(getTEVDataType(pack, keyName));
}

using OffsetQuery = TevOffsetInfo* (*)(_TEV_info_pack*, const char*);

jlongArray positionOf(JNIEnv* env, _TEV_info_pack* pack, const char* keyName, OffsetQuery query) {
    if (pack == nullptr) return nullptr;
    const tev::Offset offset(query(pack, keyName));
    return offset ? tev::jni::newPositionArray(env, *offset) : nullptr;
}

// The descriptor forms of the position methods convert the key name before
// they look at the descriptor.
jlongArray positionOfFd(JNIEnv* env, jint fd, jstring keyName, OffsetQuery query) {
    const JavaString key(env, keyName);
    if (key.isNull()) {
        logLine(kLogError, "JNI::getTEVDataPositionFd", "TEVnamePtr is null");
        return nullptr;
    }
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::getTEVDataPositionFd", "fd error");
        return nullptr;
    }
    const tev::Pack pack(checkTEVWithReadPM_Fd(fd));
    return positionOf(env, pack.get(), key.get(), query);
}

}  // namespace

extern "C" {

TEV_API jint Java_com_valtremo_android_media_TEVJNI_getNativeVersion(JNIEnv*, jclass) {
    return kContainerVersion;
}

TEV_API jboolean Java_com_valtremo_android_media_TEVJNI_isTEVFile(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    return hasContainer(getSignature(file.get())) ? JNI_TRUE : JNI_FALSE;
}

TEV_API jboolean Java_com_valtremo_android_media_TEVJNI_isTEVfd(JNIEnv*, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::isTEVFd", "fd error");
        return JNI_FALSE;
    }
    return hasContainer(getSignatureFd(fd)) ? JNI_TRUE : JNI_FALSE;
}

TEV_API jlongArray Java_com_valtremo_android_media_TEVJNI_getTEVDataPosition(JNIEnv* env, jclass, jstring path,
                                                                           jstring keyName) {
    const JavaString file(env, path);
    if (file.isNull()) {
        logLine(kLogError, "JNI::getTEVDataPosition", "filenamePtr is null");
        return nullptr;
    }
    const JavaString key(env, keyName);
    if (key.isNull()) {
        logLine(kLogError, "JNI::getTEVDataPosition", "TEVnamePtr is null");
        return nullptr;
    }
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    return positionOf(env, pack.get(), key.get(), getTEVInFileByName);
}

TEV_API jlongArray Java_com_valtremo_android_media_TEVJNI_getTEVDataPositionFd(JNIEnv* env, jclass, jint fd,
                                                                             jstring keyName) {
    return positionOfFd(env, fd, keyName, getTEVInFileByName);
}

TEV_API jlongArray Java_com_valtremo_android_media_TEVJNI_getTEVSubDataPosition(JNIEnv* env, jclass,
                                                                              jstring path, jstring keyName) {
    const JavaString file(env, path);
    const JavaString key(env, keyName);
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    return positionOf(env, pack.get(), key.get(), getTEVSubInfoInFileByName);
}

TEV_API jlongArray Java_com_valtremo_android_media_TEVJNI_getTEVSubDataPositionFd(JNIEnv* env, jclass, jint fd,
                                                                                jstring keyName) {
    return positionOfFd(env, fd, keyName, getTEVSubInfoInFileByName);
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_getTEVDataCount(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    return pack ? static_cast<jint>(pack->data_count) : 0;
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_getTEVDataCountFd(JNIEnv*, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::getTEVDataCountFd", "fd error");
        return 0;
    }
    const tev::Pack pack(checkTEVWithReadPM_Fd(fd));
    return pack ? static_cast<jint>(pack->data_count) : 0;
}

// Callers pass an index from 0 to count-1; any other index answers null
// rather than reading outside the name list.
TEV_API jstring Java_com_valtremo_android_media_TEVJNI_getTEVName(JNIEnv* env, jclass, jstring path,
                                                                 jint index) {
    const JavaString file(env, path);
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    if (!pack || pack->name_list == nullptr || index < 0 || static_cast<uint32_t>(index) >= pack->data_count) {
        return nullptr;
    }
    return tev::jni::newJavaString(env, pack->name_list[index]);
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_getTEVDataType(JNIEnv* env, jclass, jstring path,
                                                                  jstring keyName) {
    const JavaString file(env, path);
    const JavaString key(env, keyName);
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    return dataTypeOf(pack.get(), key.get());
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_getTEVDataTypeFd(JNIEnv* env, jclass, jint fd,
                                                                    jstring keyName) {
    const JavaString key(env, keyName);
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::getTEVDataTypeFd", "fd error");
        return 0;
    }
    const tev::Pack pack(checkTEVWithReadPM_Fd(fd));
    return dataTypeOf(pack.get(), key.get());
}

TEV_API jobjectArray Java_com_valtremo_android_media_TEVJNI_listKeyNames(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    return allNames(env, pack.get());
}

TEV_API jobjectArray Java_com_valtremo_android_media_TEVJNI_listKeyNamesFd(JNIEnv* env, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::listKeyNames", "fd error");
        return nullptr;
    }
    const tev::Pack pack(checkTEVWithReadPM_Fd(fd));
    return allNames(env, pack.get());
}

TEV_API jintArray Java_com_valtremo_android_media_TEVJNI_listTEVDataTypes(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    if (file.isNull()) {
        logLine(kLogError, "JNI::listTEVDataTypes", "filenamePtr is null");
        return nullptr;
    }
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    return pack ? typesOf(env, *pack) : nullptr;
}

TEV_API jintArray Java_com_valtremo_android_media_TEVJNI_listTEVDataTypesFd(JNIEnv* env, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::listTEVDataTypesFd", "fd error");
        return nullptr;
    }
    const tev::Pack pack(checkTEVWithReadPM_Fd(fd));
    return pack ? typesOf(env, *pack) : nullptr;
}

TEV_API jobjectArray Java_com_valtremo_android_media_TEVJNI_listKeyNamesByDataType(JNIEnv* env, jclass,
                                                                                  jstring path, jint dataType) {
    const JavaString file(env, path);
    const tev::Pack pack(checkTEVWithReadPM(file.get()));
    return namesByType(env, pack.get(), dataType);
}

TEV_API jobjectArray Java_com_valtremo_android_media_TEVJNI_listKeyNamesByDataTypeFd(JNIEnv* env, jclass, jint fd,
                                                                                    jint dataType) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::listKeyNamesByDataTypeFd", "fd error");
        return nullptr;
    }
    const tev::Pack pack(checkTEVWithReadPM_Fd(fd));
    return namesByType(env, pack.get(), dataType);
}

}  // extern "C"
