// What the native methods of TEVJNI and VoxaJNI borrow from Java and what
// they hand back. Each borrowed string or array is held by a small owner
// that gives it back on every return path; the builders make the Java
// results. No function here lets a Java exception escape: a failed JNI call
// is cleared and reported as a null value.
#ifndef TEV_SRC_JNI_JAVA_VALUES_H
#define TEV_SRC_JNI_JAVA_VALUES_H

#include <jni.h>

#include <cstdint>

// The host build generates the JNI headers from the Java classes (javac -h);
// with them in view a native method whose signature differs from its Java
// declaration does not compile. The Android build has no JDK and goes
// without.
#if __has_include("com_valtremo_android_media_TEVJNI.h")
#include "com_valtremo_android_media_TEVJNI.h"
#include "com_valtremo_android_media_VoxaJNI.h"
#endif

#include "tev/types.h"

namespace tev::jni {

// The descriptor value the methods refuse with "fd error".
inline constexpr jint kBadDescriptor = -1;

// The bytes of a Java string (GetStringUTFChars), given back with
// ReleaseStringUTFChars. A null reference, or a conversion that failed,
// gives a null pointer.
class JavaString {
public:
    JavaString(JNIEnv* env, jstring string);
    ~JavaString();
    JavaString(const JavaString&) = delete;
    JavaString& operator=(const JavaString&) = delete;

    const char* get() const { return chars_; }
    bool isNull() const { return chars_ == nullptr; }
    // True when `length` bytes can be read from the converted string (the
    // library takes the caller's length and does not measure the string).
    // A null string fits any length: the library is handed a null pointer
    // and refuses it itself.
    bool fits(jint length) const;

private:
    JNIEnv* env_;
    jstring string_;
    const char* chars_ = nullptr;
};

// A local reference deleted on scope exit.
class LocalRef {
public:
    LocalRef(JNIEnv* env, jobject ref) : env_(env), ref_(ref) {}
    ~LocalRef() {
        if (ref_ != nullptr) env_->DeleteLocalRef(ref_);
    }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;

    jobject get() const { return ref_; }

private:
    JNIEnv* env_;
    jobject ref_;
};

// Element `index` of a String[] as a JavaString. The characters are given
// back before the element's local reference is deleted, so that loops over
// long arrays do not fill the local reference table. An index outside the
// array reads as null.
class JavaStringElement {
public:
    JavaStringElement(JNIEnv* env, jobjectArray array, jsize index);

    const JavaString& string() const { return string_; }

private:
    static jstring elementOf(JNIEnv* env, jobjectArray array, jsize index);

    LocalRef element_;    // destroyed after string_
    JavaString string_;
};

// The elements of a Java byte[] (GetByteArrayElements), released with mode 0
// so that what the library wrote reaches the Java array.
class JavaBytes {
public:
    JavaBytes(JNIEnv* env, jbyteArray array);
    ~JavaBytes();
    JavaBytes(const JavaBytes&) = delete;
    JavaBytes& operator=(const JavaBytes&) = delete;

    unsigned char* get() const { return reinterpret_cast<unsigned char*>(bytes_); }
    bool isNull() const { return bytes_ == nullptr; }
    jsize size() const { return size_; }
    // As JavaString::fits, for a length in bytes.
    bool fits(jint length) const;

private:
    JNIEnv* env_;
    jbyteArray array_;
    jbyte* bytes_ = nullptr;
    jsize size_ = 0;
};

// The elements of a Java int[] (GetIntArrayElements), released with mode 0.
class JavaInts {
public:
    JavaInts(JNIEnv* env, jintArray array);
    ~JavaInts();
    JavaInts(const JavaInts&) = delete;
    JavaInts& operator=(const JavaInts&) = delete;

    bool isNull() const { return ints_ == nullptr; }
    // True when element `index` exists.
    bool has(jint index) const { return ints_ != nullptr && index >= 0 && index < size_; }
    jint operator[](jint index) const { return ints_[index]; }

private:
    JNIEnv* env_;
    jintArray array_;
    jint* ints_ = nullptr;
    jsize size_ = 0;
};

// Logs, under the method's tag, that a stated length reaches past the Java
// string or array it describes; the method then returns its failure value
// instead of letting the library read or write outside the Java value.
void logLengthBeyondValue(const char* tag);

// A Java string with the given name bytes. Names come from files and may
// be any bytes, while Java wants modified UTF-8: four-byte sequences are
// turned into surrogate pairs and bytes that are not UTF-8 into U+FFFD, so
// that no name can upset the VM. Null when the string cannot be made.
jstring newJavaString(JNIEnv* env, const char* name);

// A String[] holding `names` in order (NewObjectArray over "" as the
// initial element, then one element per name). Null on failure.
jobjectArray newStringArray(JNIEnv* env, const char* const* names, uint32_t count);

// A long[2] with the position and the length. Null on failure.
jlongArray newPositionArray(JNIEnv* env, const TevOffsetInfo& offset);

// An int[count] filled from `values` when it is not null; left as made
// (zeros) otherwise. Null on failure.
jintArray newIntArray(JNIEnv* env, const jint* values, uint32_t count);

}  // namespace tev::jni

#endif  // TEV_SRC_JNI_JAVA_VALUES_H
