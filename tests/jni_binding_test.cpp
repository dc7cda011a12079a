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
#include "support/log_capture.h"
#include "tev/tev.h"

namespace {

using tevtest::Bytes;

// A Java value of the stand-in VM: a string, a byte or int array, or an array of values.
struct Value {
    std::string text;
    std::vector<jbyte> bytes;
    std::vector<jint> ints;
    std::vector<Value*> elements;
};

class FakeVm {
public:
    FakeVm() {
        vm_ = this;
        JNINativeInterface_& t = table_;
        t.GetStringUTFChars = [](JNIEnv*, jstring s, jboolean*) { return static_cast<const char*>(++vm_->borrowed, strdup(of(s)->text.c_str())); };
        t.ReleaseStringUTFChars = [](JNIEnv*, jstring, const char* chars) { --vm_->borrowed, std::free(const_cast<char*>(chars)); };
        t.GetByteArrayElements = [](JNIEnv*, jbyteArray a, jboolean*) { return borrow(of(a)->bytes); };
        t.ReleaseByteArrayElements = [](JNIEnv*, jbyteArray a, jbyte* e, jint mode) { giveBack(of(a)->bytes, e, mode); };
        t.GetIntArrayElements = [](JNIEnv*, jintArray a, jboolean*) { return borrow(of(a)->ints); };
        t.ReleaseIntArrayElements = [](JNIEnv*, jintArray a, jint* e, jint mode) { giveBack(of(a)->ints, e, mode); };
        t.GetArrayLength = [](JNIEnv*, jarray a) { return static_cast<jsize>(of(a)->bytes.size() + of(a)->ints.size() + of(a)->elements.size()); };
        t.GetObjectArrayElement = [](JNIEnv*, jobjectArray a, jsize i) {  // out of range throws
            return i < 0 || static_cast<size_t>(i) >= of(a)->elements.size() ? vm_->fail() : vm_->local(of(a)->elements[i]);
        };
        t.SetObjectArrayElement = [](JNIEnv*, jobjectArray a, jsize i, jobject v) { of(a)->elements.at(i) = of(v); };
        t.DeleteLocalRef = [](JNIEnv*, jobject) { --vm_->live; };
        t.FindClass = [](JNIEnv*, const char*) { return static_cast<jclass>(vm_->local(vm_->make())); };
        t.NewStringUTF = [](JNIEnv*, const char* utf) {
            return static_cast<jstring>(vm_->stringsBeforeFailure-- == 0 ? vm_->fail() : vm_->local(vm_->make(utf)));
        };
        t.NewObjectArray = [](JNIEnv*, jsize n, jclass, jobject init) {
            return static_cast<jobjectArray>(vm_->local(vm_->make("", std::vector<Value*>(n, of(init)))));
        };
        t.NewIntArray = [](JNIEnv*, jsize n) { return static_cast<jintArray>(vm_->local(vm_->make("", {}, std::vector<jint>(n)))); };
        t.SetIntArrayRegion = [](JNIEnv*, jintArray a, jsize start, jsize n, const jint* src) { std::copy(src, src + n, of(a)->ints.begin() + start); };
        t.NewLongArray = [](JNIEnv*, jsize) { return static_cast<jlongArray>(vm_->local(vm_->make())); };
        t.SetLongArrayRegion = [](JNIEnv*, jlongArray, jsize, jsize, const jlong*) {};
        t.ExceptionCheck = [](JNIEnv*) -> jboolean { return vm_->pending; };
        t.ExceptionClear = [](JNIEnv*) { vm_->pending = false; };
        env_.functions = &table_;
    }

    JNIEnv* env() { return &env_; }
    jstring string(const char* text) { return reinterpret_cast<jstring>(text ? make(text) : nullptr); }
    jbyteArray bytes(const Bytes& b) { return reinterpret_cast<jbyteArray>(make("", {}, {}, {b.begin(), b.end()})); }
    jintArray ints(const std::vector<jint>& values) { return reinterpret_cast<jintArray>(make("", {}, values)); }
    jobjectArray strings(const std::vector<std::string>& texts) {
        std::vector<Value*> elements;
        for (const std::string& t : texts) elements.push_back(make(t.c_str()));
        return reinterpret_cast<jobjectArray>(make("", elements));
    }

    int borrowed = 0;             // strings and arrays handed out and not given back
    int live = 0;                 // local references the native code holds
    int peak = 0;                 // the most it held at once
    bool pending = false;         // an exception not cleared
    bool thrown = false;          // an exception since the test began
    int stringsBeforeFailure = -1;  // NewStringUTF throws after this many strings (-1: never)

private:
    static Value* of(const void* ref) { return static_cast<Value*>(const_cast<void*>(ref)); }

    template <typename T>
    static T* borrow(std::vector<T>& values) {
        ++vm_->borrowed;
        auto* copy = static_cast<T*>(std::malloc(sizeof(T) * (values.size() + 1)));
        std::copy(values.begin(), values.end(), copy);
        return copy;
    }
    template <typename T>
    static void giveBack(std::vector<T>& values, T* copy, jint mode) {
        if (mode != JNI_ABORT) std::copy(copy, copy + values.size(), values.begin());
        if (mode == JNI_COMMIT) return;
        --vm_->borrowed;
        std::free(copy);
    }

    Value* make(const char* text = "", std::vector<Value*> elements = {}, std::vector<jint> ints = {},
                std::vector<jbyte> bytes = {}) {
        values_.push_back(std::make_unique<Value>(Value{text, std::move(bytes), std::move(ints), std::move(elements)}));
        return values_.back().get();
    }
    jobject local(Value* v) {
        if (v == nullptr) return nullptr;
        peak = std::max(peak, ++live);
        return reinterpret_cast<jobject>(v);
    }
    jobject fail() { return pending = thrown = true, nullptr; }

    static FakeVm* vm_;
    JNINativeInterface_ table_{};
    JNIEnv env_{};
    std::vector<std::unique_ptr<Value>> values_;
};

FakeVm* FakeVm::vm_ = nullptr;

class JniBindingTest : public tevtest::LogCaptureTest {
protected:
    // Runs one native call and checks that it gave everything back; a result
    // goes to the caller, so it is no longer the native code's reference.
    void call(const char* what, const std::function<const void*()>& run) {
        vm.live = vm.peak = 0;
        if (run() != nullptr) --vm.live;
        EXPECT_EQ(0, vm.borrowed) << what;
        EXPECT_EQ(0, vm.live) << what;
        EXPECT_FALSE(vm.thrown) << what;
        EXPECT_FALSE(vm.pending) << what;
    }
    FakeVm vm;
    JNIEnv* env = vm.env();
};

const void* none(jlong) { return nullptr; }

TEST_F(JniBindingTest, EachMethodFamilyGivesBackWhatItBorrowsOnEveryPath) {
    const Bytes media = tevtest::fakeJpeg(200);
    const Bytes data = tevtest::pattern(40);
    const tevtest::TempFile file(tevtest::buildContainer(media, {{3, "a", Bytes{1, 2}, data}, {4, "b", {}, data}}));
    const tevtest::TempFile sound(media, "sound.jpg");
    ASSERT_EQ(media.size() + data.size() + 30, AddSoundInVoxaFile(sound.c_str(), data.data(), 40));
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
    Bytes room = media;
    room.resize(1000);
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
        {"addTEVDataBufferAddTag", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, vm.bytes(room), 1000, ok ? 200 : 1001, 0, key, 1, sub, 2, bytes, 40, 5, 0)); }},
        {"addTEVDataFiles", [&](bool ok) { return none(Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(env, nullptr, p, vm.strings({"n", "o"}), vm.ints({1, 1}), vm.strings({dataFile.path(), dataFile.path()}), vm.ints({5, 5}), 1, ok ? 2 : 3)); }},
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

// The binding's own refusals: 0 or null, the error line under the method's
// tag, nothing held, the file as it was.
TEST_F(JniBindingTest, RefusalsAnswerZeroWithTheirTagAndText) {
    const Bytes media = tevtest::fakeJpeg(200);
    const tevtest::TempFile plain(media, "plain.jpg");
    const tevtest::TempFile empty(Bytes{}, "empty.bin");
    const int fd = open(plain.c_str(), O_RDWR);
    ASSERT_GT(fd, 0);
    jstring p = vm.string(plain.c_str());
    jstring a = vm.string("a");
    jbyteArray data = vm.bytes(tevtest::pattern(10));
    jbyteArray buffer = vm.bytes(Bytes(64));
    const char* beyond = "length beyond the end of its Java argument";
    const auto isNull = [](const void* result) { return jlong{result != nullptr}; };
    struct Row {
        const char* tag;  // "": refused without a line
        const char* text;
        std::function<jlong()> run;
    };
    const std::vector<Row> rows = {
        {"JNI::isTEVFd", "fd error", [&] { return Java_com_valtremo_android_media_TEVJNI_isTEVfd(env, nullptr, -1); }},
        {"JNI::getTEVDataCountFd", "fd error", [&] { return Java_com_valtremo_android_media_TEVJNI_getTEVDataCountFd(env, nullptr, -1); }},
        {"JNI::getTEVDataTypeFd", "fd error", [&] { return Java_com_valtremo_android_media_TEVJNI_getTEVDataTypeFd(env, nullptr, -1, a); }},
        {"JNI::listKeyNames", "fd error", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_listKeyNamesFd(env, nullptr, -1)); }},
        {"JNI::listTEVDataTypesFd", "fd error", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_listTEVDataTypesFd(env, nullptr, -1)); }},
        {"JNI::listKeyNamesByDataTypeFd", "fd error", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_listKeyNamesByDataTypeFd(env, nullptr, -1, 1)); }},
        {"JNI::getTEVDataPositionFd", "fd error", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_getTEVSubDataPositionFd(env, nullptr, -1, a)); }},
        {"JNI::getTEVDataPositionFd", "TEVnamePtr is null", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_getTEVDataPositionFd(env, nullptr, -1, nullptr)); }},
        {"JNI::getTEVDataPosition", "filenamePtr is null", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_getTEVDataPosition(env, nullptr, nullptr, a)); }},
        {"JNI::getTEVDataPosition", "TEVnamePtr is null", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_getTEVDataPosition(env, nullptr, p, nullptr)); }},
        {"JNI::listTEVDataTypes", "filenamePtr is null", [&] { return isNull(Java_com_valtremo_android_media_TEVJNI_listTEVDataTypes(env, nullptr, nullptr)); }},
        {"JNI::deleteTEVData", "TEV_data is null", [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, p, a, 1); }},
        {"JNI::deleteTEVData", "filenamePtr is null", [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, nullptr, a, 1); }},
        {"JNI::deleteTEVData", "TEVnamePtr is null", [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, p, nullptr, 1); }},
        {"JNI::deleteTEVData", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, p, a, 2); }},
        {"JNI::deleteTEVDataFd", "fd error", [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, -1, a, 1); }},
        {"JNI::deleteTEVDataFd", "TEVnamePtr is null", [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, fd, nullptr, 1); }},
        {"JNI::deleteTEVDataFd", "TEV_data is null", [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, fd, a, 1); }},
        {"JNI::deleteTEVDataFd", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, fd, a, -1); }},
        {"JNI::clearTEVDataFd", "fd error", [&] { return Java_com_valtremo_android_media_TEVJNI_clearTEVDataFd(env, nullptr, -1); }},
        {"TEV TEVJNI", "copyAllTEVData error.", [&] { return Java_com_valtremo_android_media_TEVJNI_copyAllTEVData(env, nullptr, p, p); }},
        {"TEV TEVJNI", "copyAllTEVDataFd error.", [&] { return Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataFd(env, nullptr, -1, 5); }},
        {"TEVJNI::addFastTEVDataFile", "data_fp NULL\n", [&] { return Java_com_valtremo_android_media_TEVJNI_addFastTEVDataFile(env, nullptr, p, a, 1, nullptr, 0, vm.string("/nonexistent/x"), 9, 0); }},
        {"TEVJNI::addFastTEVDataFile", "data_len<= 0\n", [&] { return Java_com_valtremo_android_media_TEVJNI_addFastTEVDataFile(env, nullptr, p, a, 1, nullptr, 0, vm.string(empty.c_str()), 9, 0); }},
        {"JNI::addTEVData", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVData(env, nullptr, p, a, 1, nullptr, 0, data, 11, 7, 0); }},
        {"JNI::addFastTEVData", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_addFastTEVData(env, nullptr, p, a, 1, data, 11, data, 1, 7, 0); }},
        {"JNI::addTEVDataFileAddTag", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFileAddTag(env, nullptr, p, a, 2, nullptr, 0, p, 7, 0); }},
        {"JNI::addTEVDataFiles", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(env, nullptr, p, vm.strings({"n"}), vm.ints({2}), vm.strings({plain.path()}), vm.ints({1}), 0, 1); }},
        {"JNI::saveAudioJPEG", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_saveAudioJPEG(env, nullptr, p, data, 10, a, 2); }},
        {"JNI::addTEVDataFd", "fd error", [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFd(env, nullptr, -1, a, 1, nullptr, 0, data, 9, 2, 0); }},
        {"JNI::addTEVDataFdAddTag", "TEVname is null.", [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFdAddTag(env, nullptr, fd, nullptr, 1, nullptr, 0, data, 9, 2, 0); }},
        {"JNI::addTEVDataFdToMP4", "TEVname is null.", [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFdToMP4(env, nullptr, fd, a, 1, nullptr, 0, nullptr, 9, 2, 0); }},
        {"TEVJNI::addTEVDataBufferAddTag ", "Buffer is LUMET_TEV_NULL \n", [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, nullptr, 10, 0, 0, a, 1, nullptr, 0, data, 10, 7, 0); }},
        {"TEVJNI::addTEVDataBufferAddTag", " TEVname is LUMET_TEV_NULL\n", [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, buffer, 10, 0, 0, nullptr, 1, nullptr, 0, data, 10, 7, 0); }},
        {"TEVJNI::addTEVDataBufferAddTag", "data is LUMET_TEV_NULL\n", [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, buffer, 10, 0, 0, a, 1, nullptr, 0, nullptr, 10, 7, 0); }},
        {"TEVJNI::addTEVDataBufferAddTag", beyond, [&] { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, buffer, 10, 0, 55, a, 1, nullptr, 0, data, 10, 7, 0); }},
        {"JNI::AddSoundInVoxaFile", beyond, [&] { return jlong{Java_com_valtremo_android_media_VoxaJNI_AddSoundInVoxaFile(env, nullptr, p, data, 11)}; }},
        {"JNI::isVoxaFd", "fd error", [&] { return Java_com_valtremo_android_media_VoxaJNI_isVoxaFd(env, nullptr, -1); }},
        {"JNI::ParseVoxaFd", "fd error", [&] { return isNull(Java_com_valtremo_android_media_VoxaJNI_ParseVoxaFd(env, nullptr, -1)); }},
        {"JNI::DeleteVoxaFromFd", "fd error", [&] { return Java_com_valtremo_android_media_VoxaJNI_DeleteVoxaFromFd(env, nullptr, -1); }},
        {"LUMET", "input filename is NULL", [&] { return isNull(Java_com_valtremo_android_media_VoxaJNI_ParseVoxaFile(env, nullptr, nullptr)); }},
        {"", "", [&] { return Java_com_valtremo_android_media_VoxaJNI_isVoxaFd(env, nullptr, 0); }},  // the library's own check
    };
    for (const Row& row : rows) {
        tevtest::clearLog();
        call(row.text, [&] {
            EXPECT_EQ(0, row.run()) << row.tag << row.text;
            return nullptr;
        });
        EXPECT_EQ(*row.tag == '\0', logLines().empty()) << dumpLog();
        EXPECT_TRUE(!*row.tag || loggedError(row.tag, row.text)) << row.tag << row.text << dumpLog();
    }
    EXPECT_EQ(media, plain.read());
    close(fd);
}

TEST_F(JniBindingTest, LongListsKeepTheLocalReferencesFewAndLetGoOnFailure) {
    const tevtest::TempFile file(tevtest::fakeJpeg(100));
    const tevtest::TempFile dataFile(Bytes{1, 2, 3}, "data.bin");
    constexpr int kCount = 300;
    std::vector<std::string> names;
    std::vector<jint> lengths;
    for (int i = 0; i < kCount; ++i) {
        names.push_back("r" + std::to_string(i));
        lengths.push_back(static_cast<jint>(names.back().size()));
    }
    jstring path = vm.string(file.c_str());

    call("addTEVDataFiles", [&] {
        EXPECT_EQ(1, Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(
                         env, nullptr, path, vm.strings(names), vm.ints(lengths),
                         vm.strings(std::vector<std::string>(kCount, dataFile.path())),
                         vm.ints(std::vector<jint>(kCount, 1)), 0, kCount));
        return nullptr;
    });
    EXPECT_LE(vm.peak, 2);

    call("listKeyNames", [&]() -> const void* {
        jobjectArray list = Java_com_valtremo_android_media_TEVJNI_listKeyNames(env, nullptr, path);
        EXPECT_NE(nullptr, list);
        return list;
    });
    EXPECT_LE(vm.peak, 3);

    // A VM that cannot make a string (out of memory) throws: the list is null, the
    // exception cleared and the half-made array let go.
    for (int made : {0, 1, 299}) {  // the array's filler "", then the first and the last name
        vm.stringsBeforeFailure = made;
        vm.live = 0;
        EXPECT_EQ(nullptr, Java_com_valtremo_android_media_TEVJNI_listKeyNames(env, nullptr, path)) << made;
        EXPECT_EQ(0, vm.live) << made;
        EXPECT_EQ(0, vm.borrowed) << made;
        EXPECT_FALSE(vm.pending) << made;
    }
}


}  // namespace
