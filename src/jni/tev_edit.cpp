// TEVJNI native methods that delete, clear and copy records, and the ones
// that keep sounds in an image as records.
#include <jni.h>

#include "jni/java_values.h"
#include "tev/tev.h"
#include "tev/tev.hpp"
#include "util/log.h"

using tev::kLogError;
using tev::logLine;
using tev::jni::JavaBytes;
using tev::jni::JavaString;
using tev::jni::kBadDescriptor;

namespace {

// Deletes the named record from a parsed pack. The delete may replace the
// pack by a fresh parse, or consume it when nothing is left.
jint deleteByName(tev::Pack& pack, const char* keyName, jint keyNameLength) {
    _TEV_info_pack* raw = pack.release();
    const uint32_t result = deleteTEVDataFromFilebyName(&raw, keyName, static_cast<uint32_t>(keyNameLength));
    pack.reset(raw);
    return static_cast<jint>(result);
}

}  // namespace

extern "C" {

TEV_API jint Java_com_valtremo_android_media_TEVJNI_deleteTEVData(JNIEnv* env, jclass, jstring path,
                                                                 jstring keyName, jint keyNameLength) {
    const JavaString file(env, path);
    if (file.isNull()) {
        logLine(kLogError, "JNI::deleteTEVData", "filenamePtr is null");
        return 0;
    }
    const JavaString key(env, keyName);
    if (key.isNull()) {
        logLine(kLogError, "JNI::deleteTEVData", "TEVnamePtr is null");
        return 0;
    }
    if (!key.fits(keyNameLength)) {
        tev::jni::logLengthBeyondValue("JNI::deleteTEVData");
        return 0;
    }
    tev::Pack pack(checkTEVInFile(file.get()));
    if (!pack) {
        logLine(kLogError, "JNI::deleteTEVData", "TEV_data is null");
        return 0;
    }
    return deleteByName(pack, key.get(), keyNameLength);
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(JNIEnv* env, jclass, jint fd,
                                                                   jstring keyName, jint keyNameLength) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::deleteTEVDataFd", "fd error");
        return 0;
    }
    const JavaString key(env, keyName);
    if (key.isNull()) {
        logLine(kLogError, "JNI::deleteTEVDataFd", "TEVnamePtr is null");
        return 0;
    }
    if (!key.fits(keyNameLength)) {
        tev::jni::logLengthBeyondValue("JNI::deleteTEVDataFd");
        return 0;
    }
    tev::Pack pack(checkTEVInFd(fd));
    if (!pack) {
        logLine(kLogError, "JNI::deleteTEVDataFd", "TEV_data is null");
        return 0;
    }
    return deleteByName(pack, key.get(), keyNameLength);
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_fastDeleteTEVData(JNIEnv* env, jclass, jstring path,
                                                                     jstring keyName) {
    const JavaString file(env, path);
    const JavaString key(env, keyName);
    return static_cast<jint>(deleteFastATEVData(file.get(), key.get()));
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_clearTEVData(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    return static_cast<jint>(deleteAllDataFromFile(file.get()));
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_clearTEVDataFd(JNIEnv*, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::clearTEVDataFd", "fd error");
        return 0;
    }
    return static_cast<jint>(deleteAllDataFromFd(fd));
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_fastClearTEVData(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    return static_cast<jint>(deleteFastAllTEVData(file.get()));
}

TEV_API jboolean Java_com_valtremo_android_media_TEVJNI_copyAllTEVData(JNIEnv* env, jclass, jstring srcPath,
                                                                      jstring dstPath) {
    const JavaString src(env, srcPath);
    const JavaString dst(env, dstPath);
    if (copyTEVData(src.get(), dst.get()) == 0) {
        logLine(kLogError, "TEV TEVJNI", "copyAllTEVData error.");
        return JNI_FALSE;
    }
    return JNI_TRUE;
}

TEV_API jboolean Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataFd(JNIEnv*, jclass, jint srcFd,
                                                                        jint dstFd) {
    if (copyTEVDataFd(srcFd, dstFd) == 0) {
        logLine(kLogError, "TEV TEVJNI", "copyAllTEVDataFd error.");
        return JNI_FALSE;
    }
    return JNI_TRUE;
}

TEV_API jboolean Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataType(JNIEnv* env, jclass, jstring srcPath,
                                                                          jstring dstPath, jint dataType) {
    const JavaString src(env, srcPath);
    const JavaString dst(env, dstPath);
    return copyTEVDataType(src.get(), dst.get(), static_cast<unsigned int>(dataType)) != 0 ? JNI_TRUE
                                                                                           : JNI_FALSE;
}

TEV_API jboolean Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataKeyName(JNIEnv* env, jclass,
                                                                             jstring srcPath, jstring dstPath,
                                                                             jstring keyName) {
    const JavaString src(env, srcPath);
    const JavaString dst(env, dstPath);
    const JavaString key(env, keyName);
    return copyTEVDataKeyName(src.get(), dst.get(), key.get()) != 0 ? JNI_TRUE : JNI_FALSE;
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_saveAudioJPEG(JNIEnv* env, jclass, jstring path,
                                                                 jbyteArray audio, jint audioLength,
                                                                 jstring name, jint nameLength) {
    const JavaString file(env, path);
    const JavaBytes sound(env, audio);
    const JavaString soundName(env, name);
    if (!sound.fits(audioLength) || !soundName.fits(nameLength)) {
        tev::jni::logLengthBeyondValue("JNI::saveAudioJPEG");
        return 0;
    }
    return static_cast<jint>(saveVoxaToImageFile(file.get(), sound.get(), static_cast<uint32_t>(audioLength),
                                                 soundName.get(), static_cast<uint32_t>(nameLength)));
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_clearVoxaData(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    return static_cast<jint>(deleteAllVoxaFromImageFile(file.get()));
}

TEV_API jint Java_com_valtremo_android_media_TEVJNI_deleteVoxaData(JNIEnv* env, jclass, jstring path,
                                                                  jstring name) {
    const JavaString file(env, path);
    const JavaString soundName(env, name);
    return static_cast<jint>(deleteVoxaFromImageFile(file.get(), soundName.get()));
}

}  // extern "C"
