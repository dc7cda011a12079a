// Test-only native methods for the JVM tests: capture of the Android log
// lines the library writes (through the host liblog's logger hook) and
// plain open/close of descriptors, so that the descriptor methods can be
// exercised without an Android runtime.
#include <android/log.h>
#include <fcntl.h>
#include <jni.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <vector>

namespace {

std::mutex gLock;
std::vector<std::string> gLines;

void captureLine(const __android_logger_data* data, const char* message) {
    const std::lock_guard<std::mutex> hold(gLock);
    gLines.push_back(std::to_string(data->priority) + "|" + (data->tag ? data->tag : "") + "|" +
                     (message ? message : ""));
}

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_com_valtremo_android_media_NativeTestSupport_startLogCapture(JNIEnv*, jclass) {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(captureLine);
    const std::lock_guard<std::mutex> hold(gLock);
    gLines.clear();
}

// Every line since startLogCapture as "priority|tag|text".
JNIEXPORT jobjectArray JNICALL Java_com_valtremo_android_media_NativeTestSupport_capturedLog(JNIEnv* env, jclass) {
    const std::lock_guard<std::mutex> hold(gLock);
    jclass stringClass = env->FindClass("java/lang/String");
    jobjectArray lines = env->NewObjectArray(static_cast<jsize>(gLines.size()), stringClass, nullptr);
    if (env->ExceptionCheck()) return nullptr;
    for (size_t i = 0; i < gLines.size(); ++i) {
        jstring line = env->NewStringUTF(gLines[i].c_str());
        if (env->ExceptionCheck()) return nullptr;
        env->SetObjectArrayElement(lines, static_cast<jsize>(i), line);
        env->DeleteLocalRef(line);
    }
    return lines;
}

JNIEXPORT jint JNICALL Java_com_valtremo_android_media_NativeTestSupport_openFile(JNIEnv* env, jclass, jstring path,
                                                                                   jboolean writable) {
    const char* chars = env->GetStringUTFChars(path, nullptr);
    if (chars == nullptr) return -1;
    const int fd = open(chars, writable ? O_RDWR : O_RDONLY);
    env->ReleaseStringUTFChars(path, chars);
    return fd;
}

JNIEXPORT jint JNICALL Java_com_valtremo_android_media_NativeTestSupport_closeFile(JNIEnv*, jclass, jint fd) {
    return close(fd);
}

}  // extern "C"
