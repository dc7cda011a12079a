// The natives of the Java layer TevFile: its repair() over the library's
// recovery of an edit that a killed process left part-way.
#include <jni.h>

#include "jni/java_values.h"
#include "tev/tev.h"

#if __has_include("com_valtremo_android_media_TevFile.h")
#include "com_valtremo_android_media_TevFile.h"
#endif

extern "C" {

TEV_API jint Java_com_valtremo_android_media_TevFile_recoverFile(JNIEnv* env, jclass, jstring path) {
    const tev::jni::JavaString file(env, path);
    if (file.isNull()) return 0;
    return static_cast<jint>(recoverTEVFile(file.get()));
}

TEV_API jint Java_com_valtremo_android_media_TevFile_recoverFd(JNIEnv*, jclass, jint fd) {
    return static_cast<jint>(recoverTEVFd(fd));
}

}  // extern "C"
