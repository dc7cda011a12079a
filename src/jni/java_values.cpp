#include "jni/java_values.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "util/log.h"

namespace tev::jni {
namespace {

// True when the last JNI call left an exception; it is cleared, because the
// binding reports every failure as 0, false or null and never throws.
bool exceptionCleared(JNIEnv* env) {
    if (!env->ExceptionCheck()) return false;
    env->ExceptionClear();
    return true;
}

bool lengthFits(jint length, jsize available) {
    return length >= 0 && length <= available;
}

// --- names into modified UTF-8

bool isContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Length of the UTF-8 sequence starting at `s` when it is well formed and
// allowed in modified UTF-8 as it stands (1 to 3 bytes; three-byte
// surrogates included, as Java itself writes them), 4 for a well-formed
// four-byte sequence, 0 for anything else.
int sequenceLength(const unsigned char* s) {
    const unsigned char lead = s[0];
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return isContinuation(s[1]) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        if (!isContinuation(s[1]) || !isContinuation(s[2])) return 0;
        return lead == 0xE0 && s[1] < 0xA0 ? 0 : 3;  // overlong
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        if (!isContinuation(s[1]) || !isContinuation(s[2]) || !isContinuation(s[3])) return 0;
        if (lead == 0xF0 && s[1] < 0x90) return 0;  // overlong
        if (lead == 0xF4 && s[1] > 0x8F) return 0;  // above U+10FFFF
        return 4;
    }
    return 0;
}

char* putThreeBytes(char* out, uint32_t unit) {
    *out++ = static_cast<char>(0xE0 | (unit >> 12));
    *out++ = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (unit & 0x3F));
    return out;
}

struct FreeDeleter {
    void operator()(char* p) const { std::free(p); }
};

// `name` rewritten as modified UTF-8 in a new buffer (at most three output
// bytes per input byte, plus the terminator).
std::unique_ptr<char, FreeDeleter> toModifiedUtf8(const char* name) {
    const size_t length = std::strlen(name);
    std::unique_ptr<char, FreeDeleter> out(static_cast<char*>(std::malloc(3 * length + 1)));
    if (!out) return out;
    const auto* in = reinterpret_cast<const unsigned char*>(name);
    char* cursor = out.get();
    while (*in != 0) {
        const int n = sequenceLength(in);
        if (n == 4) {
            const uint32_t codePoint = (uint32_t(in[0] & 0x07) << 18) | (uint32_t(in[1] & 0x3F) << 12) |
                                       (uint32_t(in[2] & 0x3F) << 6) | uint32_t(in[3] & 0x3F);
            const uint32_t offset = codePoint - 0x10000;
            cursor = putThreeBytes(cursor, 0xD800 | (offset >> 10));
            cursor = putThreeBytes(cursor, 0xDC00 | (offset & 0x3FF));
        } else if (n == 0) {
            cursor = putThreeBytes(cursor, 0xFFFD);
        } else {
            std::memcpy(cursor, in, static_cast<size_t>(n));
            cursor += n;
        }
        in += n == 0 ? 1 : n;
    }
    *cursor = '\0';
    return out;
}

bool isModifiedUtf8(const char* name) {
    for (const auto* in = reinterpret_cast<const unsigned char*>(name); *in != 0;) {
        const int n = sequenceLength(in);
        if (n == 0 || n == 4) return false;
        in += n;
    }
    return true;
}

// A String[count] whose elements are all "" (the class and the empty string
// are let go before the caller fills the array).
jobjectArray newArrayOfEmptyStrings(JNIEnv* env, uint32_t count) {
    if (count > static_cast<uint32_t>(INT32_MAX)) return nullptr;
    const LocalRef stringClass(env, env->FindClass("java/lang/String"));
    if (exceptionCleared(env) || stringClass.get() == nullptr) return nullptr;
    const LocalRef empty(env, env->NewStringUTF(""));
    if (exceptionCleared(env) || empty.get() == nullptr) return nullptr;
    jobjectArray array =
        env->NewObjectArray(static_cast<jsize>(count), static_cast<jclass>(stringClass.get()), empty.get());
    return exceptionCleared(env) ? nullptr : array;
}

}  // namespace

JavaString::JavaString(JNIEnv* env, jstring string) : env_(env), string_(string) {
    if (string_ == nullptr) return;
    chars_ = env_->GetStringUTFChars(string_, nullptr);
    if (exceptionCleared(env_)) chars_ = nullptr;
}

JavaString::~JavaString() {
    if (chars_ != nullptr) env_->ReleaseStringUTFChars(string_, chars_);
}

bool JavaString::fits(jint length) const {
    if (chars_ == nullptr) return true;
    return length >= 0 && static_cast<size_t>(length) <= std::strlen(chars_);
}

jstring JavaStringElement::elementOf(JNIEnv* env, jobjectArray array, jsize index) {
    if (array == nullptr || index < 0 || index >= env->GetArrayLength(array)) return nullptr;
    auto* element = static_cast<jstring>(env->GetObjectArrayElement(array, index));
    return exceptionCleared(env) ? nullptr : element;
}

JavaStringElement::JavaStringElement(JNIEnv* env, jobjectArray array, jsize index)
    : element_(env, elementOf(env, array, index)),
      string_(env, static_cast<jstring>(element_.get())) {}

JavaBytes::JavaBytes(JNIEnv* env, jbyteArray array) : env_(env), array_(array) {
    if (array_ == nullptr) return;
    size_ = env_->GetArrayLength(array_);
    bytes_ = env_->GetByteArrayElements(array_, nullptr);
    if (exceptionCleared(env_)) bytes_ = nullptr;
}

JavaBytes::~JavaBytes() {
    if (bytes_ != nullptr) env_->ReleaseByteArrayElements(array_, bytes_, 0);
}

bool JavaBytes::fits(jint length) const { return bytes_ == nullptr || lengthFits(length, size_); }

JavaInts::JavaInts(JNIEnv* env, jintArray array) : env_(env), array_(array) {
    if (array_ == nullptr) return;
    size_ = env_->GetArrayLength(array_);
    ints_ = env_->GetIntArrayElements(array_, nullptr);
    if (exceptionCleared(env_)) ints_ = nullptr;
}

JavaInts::~JavaInts() {
    if (ints_ != nullptr) env_->ReleaseIntArrayElements(array_, ints_, 0);
}

void logLengthBeyondValue(const char* tag) {
    logLine(kLogError, tag, "length beyond the end of its Java argument");
}

jstring newJavaString(JNIEnv* env, const char* name) {
    if (name == nullptr) return nullptr;
    jstring result = nullptr;
    if (isModifiedUtf8(name)) {
        result = env->NewStringUTF(name);
    } else {
        const auto converted = toModifiedUtf8(name);
        if (!converted) return nullptr;
        result = env->NewStringUTF(converted.get());
    }
    return exceptionCleared(env) ? nullptr : result;
}

jobjectArray newStringArray(JNIEnv* env, const char* const* names, uint32_t count) {
    jobjectArray array = newArrayOfEmptyStrings(env, count);
    if (array == nullptr) return nullptr;
    for (uint32_t i = 0; i < count; ++i) {
        // One name at a time, so that long lists need no more local references.
        const LocalRef name(env, newJavaString(env, names[i]));
        if (name.get() == nullptr && names[i] != nullptr) {
            env->DeleteLocalRef(array);
            return nullptr;
        }
        env->SetObjectArrayElement(array, static_cast<jsize>(i), name.get());
    }
    return array;
}

jlongArray newPositionArray(JNIEnv* env, const TevOffsetInfo& offset) {
    jlongArray array = env->NewLongArray(2);
    if (exceptionCleared(env) || array == nullptr) return nullptr;
    const jlong values[2] = {offset.position, offset.length};
    env->SetLongArrayRegion(array, 0, 2, values);
    return array;
}

jintArray newIntArray(JNIEnv* env, const jint* values, uint32_t count) {
    if (count > static_cast<uint32_t>(INT32_MAX)) return nullptr;
    jintArray array = env->NewIntArray(static_cast<jsize>(count));
    if (exceptionCleared(env) || array == nullptr) return nullptr;
    if (values != nullptr && count > 0) env->SetIntArrayRegion(array, 0, static_cast<jsize>(count), values);
    return array;
}

}  // namespace tev::jni
