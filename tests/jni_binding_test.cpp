// The native methods of TEVJNI and VoxaJNI driven through a stand-in JNIEnv
// that hands out malloc'd copies of strings and arrays and counts local
// references. After every call nothing may stay borrowed and no local
// reference may be left but the result; under LeakSanitizer a copy that was
// never given back, or a pack or list the method did not free, is a leak.
// (The JVM tests cover behaviour on a real VM, where LeakSanitizer cannot run.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <jni.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "com_valtremo_android_media_TEVJNI.h"
#include "com_valtremo_android_media_VoxaJNI.h"
#include "support/bytes.h"
#include "support/files.h"
#include "support/sound_files.h"

namespace {

using tevtest::Bytes;

// Java values of the stand-in VM.
struct Value {
    std::string text;
    std::vector<jbyte> bytes;
    std::vector<jint> ints;
    std::vector<jlong> longs;
    std::vector<Value*> elements;
    bool isArray = false;
};

class FakeVm {
public:
    FakeVm() {
        current_ = this;
        table_.GetStringUTFChars = [](JNIEnv*, jstring s, jboolean*) -> const char* {
            ++current_->borrowed_;
            return strdup(of(s)->text.c_str());
        };
        table_.ReleaseStringUTFChars = [](JNIEnv*, jstring, const char* chars) {
            --current_->borrowed_;
            std::free(const_cast<char*>(chars));
        };
        table_.GetByteArrayElements = [](JNIEnv*, jbyteArray a, jboolean*) { return borrow(of(a)->bytes); };
        table_.ReleaseByteArrayElements = [](JNIEnv*, jbyteArray a, jbyte* e, jint mode) {
            giveBack(of(a)->bytes, e, mode);
        };
        table_.GetIntArrayElements = [](JNIEnv*, jintArray a, jboolean*) { return borrow(of(a)->ints); };
        table_.ReleaseIntArrayElements = [](JNIEnv*, jintArray a, jint* e, jint mode) {
            giveBack(of(a)->ints, e, mode);
        };
        table_.GetArrayLength = [](JNIEnv*, jarray a) -> jsize {
            const Value* v = of(a);
            return static_cast<jsize>(v->bytes.size() + v->ints.size() + v->longs.size() + v->elements.size());
        };
        table_.GetObjectArrayElement = [](JNIEnv*, jobjectArray a, jsize i) -> jobject {
            std::vector<Value*>& elements = of(a)->elements;
            if (i < 0 || static_cast<size_t>(i) >= elements.size()) {
                current_->pendingException_ = current_->thrown_ = true;
                return nullptr;
            }
            return current_->local(elements[i]);
        };
        table_.SetObjectArrayElement = [](JNIEnv*, jobjectArray a, jsize i, jobject v) {
            of(a)->elements.at(static_cast<size_t>(i)) = of(v);
        };
        table_.DeleteLocalRef = [](JNIEnv*, jobject) { --current_->live_; };
        table_.FindClass = [](JNIEnv*, const char*) { return static_cast<jclass>(current_->local(current_->make())); };
        table_.NewStringUTF = [](JNIEnv*, const char* utf) {
            Value* v = current_->make();
            v->text = utf;
            return static_cast<jstring>(current_->local(v));
        };
        table_.NewObjectArray = [](JNIEnv*, jsize n, jclass, jobject init) {
            Value* v = current_->make();
            v->isArray = true;
            v->elements.assign(static_cast<size_t>(n), of(init));
            return static_cast<jobjectArray>(current_->local(v));
        };
        table_.NewIntArray = [](JNIEnv*, jsize n) {
            Value* v = current_->make();
            v->ints.assign(static_cast<size_t>(n), 0);
            return static_cast<jintArray>(current_->local(v));
        };
        table_.SetIntArrayRegion = [](JNIEnv*, jintArray a, jsize start, jsize n, const jint* src) {
            std::copy(src, src + n, of(a)->ints.begin() + start);
        };
        table_.NewLongArray = [](JNIEnv*, jsize n) {
            Value* v = current_->make();
            v->longs.assign(static_cast<size_t>(n), 0);
            return static_cast<jlongArray>(current_->local(v));
        };
        table_.SetLongArrayRegion = [](JNIEnv*, jlongArray a, jsize start, jsize n, const jlong* src) {
            std::copy(src, src + n, of(a)->longs.begin() + start);
        };
        table_.ExceptionCheck = [](JNIEnv*) -> jboolean { return current_->pendingException_; };
        table_.ExceptionClear = [](JNIEnv*) { current_->pendingException_ = false; };
        env_.functions = &table_;
    }

    JNIEnv* env() { return &env_; }

    jstring string(const char* text) {
        if (text == nullptr) return nullptr;
        Value* v = make();
        v->text = text;
        return reinterpret_cast<jstring>(v);
    }
    jbyteArray bytes(const Bytes& b) {
        Value* v = make();
        v->bytes.assign(b.begin(), b.end());
        return reinterpret_cast<jbyteArray>(v);
    }
    jintArray ints(const std::vector<jint>& values) {
        Value* v = make();
        v->ints = values;
        return reinterpret_cast<jintArray>(v);
    }
    jobjectArray strings(const std::vector<std::string>& texts) {
        Value* v = make();
        v->isArray = true;
        for (const std::string& t : texts) v->elements.push_back(of(string(t.c_str())));
        return reinterpret_cast<jobjectArray>(v);
    }

    // A call's result goes back to the caller: it is no longer the native code's local reference.
    void returned(const void* result) {
        if (result != nullptr) --live_;
    }
    void startCall() { live_ = peak_ = 0; }
    int borrowed() const { return borrowed_; }
    int live() const { return live_; }
    int peak() const { return peak_; }
    bool thrown() const { return thrown_; }
    bool pendingException() const { return pendingException_; }

private:
    static Value* of(const void* ref) { return static_cast<Value*>(const_cast<void*>(ref)); }

    template <typename T>
    static T* borrow(std::vector<T>& values) {
        ++current_->borrowed_;
        auto* copy = static_cast<T*>(std::malloc(sizeof(T) * (values.size() + 1)));
        std::copy(values.begin(), values.end(), copy);
        return copy;
    }
    template <typename T>
    static void giveBack(std::vector<T>& values, T* copy, jint mode) {
        if (mode != JNI_ABORT) std::copy(copy, copy + values.size(), values.begin());
        if (mode != JNI_COMMIT) {
            --current_->borrowed_;
            std::free(copy);
        }
    }

    Value* make() {
        values_.push_back(std::make_unique<Value>());
        return values_.back().get();
    }
    jobject local(Value* v) {
        if (v == nullptr) return nullptr;
        peak_ = std::max(peak_, ++live_);
        return reinterpret_cast<jobject>(v);
    }

    static FakeVm* current_;
    JNINativeInterface_ table_{};
    JNIEnv env_{};
    std::vector<std::unique_ptr<Value>> values_;
    int borrowed_ = 0;
    int live_ = 0;
    int peak_ = 0;
    bool pendingException_ = false;
    bool thrown_ = false;
};

FakeVm* FakeVm::current_ = nullptr;

class JniBindingTest : public ::testing::Test {
protected:
    // Runs one native call and checks that it gave everything back.
    void call(const char* what, const std::function<const void*()>& run) {
        vm.startCall();
        vm.returned(run());
        EXPECT_EQ(0, vm.borrowed()) << what;
        EXPECT_EQ(0, vm.live()) << what;
        EXPECT_FALSE(vm.thrown()) << what;
        EXPECT_FALSE(vm.pendingException()) << what;
    }
    FakeVm vm;
    JNIEnv* env = vm.env();
};

const void* none(jlong) { return nullptr; }

TEST_F(JniBindingTest, EachMethodFamilyGivesBackWhatItBorrowsOnEveryPath) {
    const Bytes media = tevtest::fakeJpeg(200);
    const Bytes data = tevtest::pattern(40);
    const tevtest::TempFile file(tevtest::buildContainer(media, {{3, "a", Bytes{1, 2}, data}, {4, "b", {}, data}}));
    const tevtest::TempFile sound(tevtest::imageWithBareSound(media, data), "sound.jpg");
    const tevtest::TempFile dataFile(data, "data.bin");
    const tevtest::TempFile plain(media, "plain.jpg");
    const char* path = file.c_str();
    const int fd = open(path, O_RDWR);
    const int plainFd = open(plain.c_str(), O_RDWR);
    ASSERT_GT(fd, 0);
    ASSERT_GT(plainFd, 0);
    jstring p = vm.string(path);
    jstring key = vm.string("a");
    jbyteArray bytes = vm.bytes(data);
    jbyteArray sub = vm.bytes({9, 9});
    jstring df = vm.string(dataFile.c_str());

    // Each row runs a method with usable arguments, then with null ones (or descriptor -1).
    // Methods whose path and descriptor forms share one helper and one set of
    // owners appear once; every owner and result builder is reached.
    const std::vector<std::pair<const char*, std::function<const void*(bool)>>> rows = {
        {"isTEVFile", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_isTEVFile(env, nullptr, ok ? p : nullptr)); }},
        {"isTEVfd", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_isTEVfd(env, nullptr, ok ? fd : -1)); }},
        {"getTEVDataPosition", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_TEVJNI_getTEVDataPosition(env, nullptr, p, ok ? key : nullptr); }},
        {"getTEVSubDataPositionFd", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_TEVJNI_getTEVSubDataPositionFd(env, nullptr, fd, ok ? key : nullptr); }},
        {"getTEVDataCount", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_getTEVDataCount(env, nullptr, ok ? p : nullptr)); }},
        {"getTEVName", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_TEVJNI_getTEVName(env, nullptr, p, ok ? 1 : 5); }},
        {"getTEVDataType", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_getTEVDataType(env, nullptr, p, ok ? key : nullptr)); }},
        {"listKeyNames", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_TEVJNI_listKeyNames(env, nullptr, ok ? p : nullptr); }},
        {"listKeyNamesFd", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_TEVJNI_listKeyNamesFd(env, nullptr, ok ? fd : -1); }},
        {"listTEVDataTypes", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_TEVJNI_listTEVDataTypes(env, nullptr, ok ? p : nullptr); }},
        {"listKeyNamesByDataType", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_TEVJNI_listKeyNamesByDataType(env, nullptr, ok ? p : nullptr, 4); }},
        {"addTEVData", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVData(env, nullptr, p, vm.string("c"), 1, ok ? sub : nullptr, 2, bytes, ok ? 40 : 41, 5, 1)); }},
        {"addFastTEVDataFile", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addFastTEVDataFile(env, nullptr, p, vm.string("e"), 1, sub, 2, ok ? df : p, 5, 1)); }},
        {"addTEVDataFile", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataFile(env, nullptr, p, vm.string("f"), 1, sub, 2, ok ? df : nullptr, 5, 1)); }},
        {"addTEVDataToMP4", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataToMP4(env, nullptr, ok ? p : nullptr, vm.string("g"), 1, sub, 2, bytes, 40, 5, 1)); }},
        {"addTEVDataAddTag", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataAddTag(env, nullptr, p, ok ? vm.string("i") : nullptr, 1, sub, 2, bytes, 40, 5, 1)); }},
        {"addTEVDataFd", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataFd(env, nullptr, fd, vm.string("k"), 1, sub, 2, ok ? bytes : nullptr, 40, 5, 1)); }},
        {"addTEVDataFdToMP4", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataFdToMP4(env, nullptr, ok ? fd : -1, vm.string("m"), 1, sub, 2, bytes, 40, 5, 1)); }},
        {"addTEVDataBufferAddTag", [&](bool ok) {
             Bytes room = media;
             room.resize(1000);
             return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, vm.bytes(room), 1000, ok ? 200 : 1001, 0, key, 1, sub, 2, bytes, 40, 5, 0));
         }},
        {"addTEVDataFiles", [&](bool ok) {
             return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(env, nullptr, p, vm.strings({"n", "o"}), vm.ints({1, 1}), vm.strings({dataFile.path(), dataFile.path()}), vm.ints({5, 5}), 1, ok ? 2 : 3));
         }},
        {"saveAudioJPEG", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_saveAudioJPEG(env, nullptr, p, bytes, 40, vm.string("memo"), ok ? 4 : 5)); }},
        {"deleteVoxaData", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_deleteVoxaData(env, nullptr, p, ok ? vm.string("memo") : nullptr)); }},
        {"copyAllTEVData", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_copyAllTEVData(env, nullptr, p, vm.string(ok ? plain.c_str() : nullptr))); }},
        {"copyAllTEVDataFd", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataFd(env, nullptr, fd, ok ? plainFd : -1)); }},
        {"copyAllTEVDataKeyName", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataKeyName(env, nullptr, p, vm.string(plain.c_str()), ok ? key : nullptr)); }},
        {"deleteTEVData", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, p, vm.string("c"), ok ? 1 : 7)); }},
        {"deleteTEVDataFd", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, fd, ok ? vm.string("d") : nullptr, 1)); }},
        {"ParseVoxaFile", [&](bool ok) -> const void* { return Java_com_valtremo_android_media_VoxaJNI_ParseVoxaFile(env, nullptr, ok ? vm.string(sound.c_str()) : nullptr); }},
        {"copyAdioData", [&](bool ok) { return none(Java_com_valtremo_android_media_VoxaJNI_copyAdioData(env, nullptr, vm.string(sound.c_str()), ok ? vm.string(plain.c_str()) : nullptr)); }},
        {"AddSoundInVoxaFile", [&](bool ok) { return none(Java_com_valtremo_android_media_VoxaJNI_AddSoundInVoxaFile(env, nullptr, vm.string(sound.c_str()), bytes, ok ? 40 : 41)); }},
        {"DeleteVoxaFromFile", [&](bool ok) { return none(Java_com_valtremo_android_media_VoxaJNI_DeleteVoxaFromFile(env, nullptr, ok ? vm.string(sound.c_str()) : nullptr)); }},
        {"clearVoxaData", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_clearVoxaData(env, nullptr, ok ? p : nullptr)); }},
        {"clearTEVData", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_clearTEVData(env, nullptr, ok ? vm.string(plain.c_str()) : nullptr)); }},
    };
    for (const auto& [name, run] : rows) {
        call(name, [&] { return run(true); });
        call(name, [&] { return run(false); });
    }
    close(fd);
    close(plainFd);
}

TEST_F(JniBindingTest, LongListsKeepTheLocalReferencesFew) {
    const tevtest::TempFile file(tevtest::fakeJpeg(100));
    const tevtest::TempFile dataFile(Bytes{1, 2, 3}, "data.bin");
    constexpr int kCount = 300;
    std::vector<std::string> names;
    std::vector<jint> lengths;
    std::vector<std::string> paths(kCount, dataFile.path());
    for (int i = 0; i < kCount; ++i) {
        names.push_back("r" + std::to_string(i));
        lengths.push_back(static_cast<jint>(names.back().size()));
    }
    jstring path = vm.string(file.c_str());

    call("addTEVDataFiles", [&] {
        EXPECT_EQ(1, Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(
                         env, nullptr, path, vm.strings(names), vm.ints(lengths),
                         vm.strings(paths), vm.ints(std::vector<jint>(kCount, 1)), 0, kCount));
        return nullptr;
    });
    EXPECT_LE(vm.peak(), 2);

    call("listKeyNames", [&]() -> const void* {
        jobjectArray list = Java_com_valtremo_android_media_TEVJNI_listKeyNames(env, nullptr, path);
        EXPECT_NE(nullptr, list);
        return list;
    });
    EXPECT_LE(vm.peak(), 3);
}

}  // namespace
