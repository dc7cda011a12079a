// VoxaJNI native methods: the Voxa block behind an image, its sound table
// as an int[] and adding, copying and removing the sound.
#include <jni.h>

#include <cstdint>

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

constexpr jint kContainerVersion = 107;

jint validityOf(const tev::Voxa& voxa) { return voxa ? static_cast<jint>(voxa->is_valid) : 0; }

// Start and end of each sound, in table order; the u32 positions go to Java
// unchanged, so positions from 2 GiB on read as negative.
jintArray soundTableOf(JNIEnv* env, const tev::Voxa& voxa) {
    if (!voxa || voxa->sound_count > static_cast<uint32_t>(INT32_MAX) / 2) return nullptr;
    const uint32_t values = 2 * voxa->sound_count;
    const auto* table = reinterpret_cast<const jint*>(voxa->sound_table);
    return tev::jni::newIntArray(env, table, values);
}

}  // namespace

extern "C" {

TEV_API jint Java_com_valtremo_android_media_VoxaJNI_getNativeVersion(JNIEnv*, jclass) { return kContainerVersion; }

TEV_API jint Java_com_valtremo_android_media_VoxaJNI_isVoxaFile(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    return validityOf(tev::Voxa(ParseVoxa(file.get())));
}

TEV_API jint Java_com_valtremo_android_media_VoxaJNI_isVoxaFd(JNIEnv*, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::isVoxaFd", "fd error");
        return 0;
    }
    return validityOf(tev::Voxa(ParseVoxaFd(fd)));
}

// The copy's own result is not passed on: the method answers 1.
TEV_API jint Java_com_valtremo_android_media_VoxaJNI_copyAdioData(JNIEnv* env, jclass, jstring srcPath,
                                                                 jstring dstPath) {
    const JavaString src(env, srcPath);
    const JavaString dst(env, dstPath);
    _copyAudioData(src.get(), dst.get());
    return 1;
}

TEV_API jintArray Java_com_valtremo_android_media_VoxaJNI_ParseVoxaFile(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    if (file.isNull()) {
        logLine(kLogError, "LUMET", "input filename is NULL");
        return nullptr;
    }
    return soundTableOf(env, tev::Voxa(_checkAudioInImageFile(file.get())));
}

TEV_API jintArray Java_com_valtremo_android_media_VoxaJNI_ParseVoxaFd(JNIEnv* env, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::ParseVoxaFd", "fd error");
        return nullptr;
    }
    return soundTableOf(env, tev::Voxa(_checkAudioInImageFd(fd)));
}

TEV_API jint Java_com_valtremo_android_media_VoxaJNI_AddSoundInVoxaFile(JNIEnv* env, jclass, jstring path,
                                                                       jbyteArray sound, jint soundLength) {
    const JavaString file(env, path);
    const JavaBytes bytes(env, sound);
    if (!bytes.fits(soundLength)) {
        tev::jni::logLengthBeyondValue("JNI::AddSoundInVoxaFile");
        return 0;
    }
    return static_cast<jint>(AddSoundInVoxaFile(file.get(), bytes.get(), static_cast<uint32_t>(soundLength)));
}

TEV_API jint Java_com_valtremo_android_media_VoxaJNI_DeleteVoxaFromFile(JNIEnv* env, jclass, jstring path) {
    const JavaString file(env, path);
    return static_cast<jint>(deleteAVoxa(file.get()));
}

TEV_API jint Java_com_valtremo_android_media_VoxaJNI_DeleteVoxaFromFd(JNIEnv*, jclass, jint fd) {
    if (fd == kBadDescriptor) {
        logLine(kLogError, "JNI::DeleteVoxaFromFd", "fd error");
        return 0;
    }
    return static_cast<jint>(deleteAVoxaFd(fd));
}

}  // extern "C"
