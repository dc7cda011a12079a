// The native methods of TEVJNI and VoxaJNI through a stand-in JNIEnv that hands out malloc'd
// copies and counts local references: after every call nothing may stay borrowed and no local
// reference be left but the result, and under LeakSanitizer a copy never given back is a leak.
// The binding's own refusals are checked here with their log lines; result shapes on a real VM.
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
#include <tuple>
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
        t.GetStringUTFChars = [](JNIEnv*, jstring s, jboolean*) -> const char* { ++vm_->borrowed; return strdup(of(s)->text.c_str()); };
        t.ReleaseStringUTFChars = [](JNIEnv*, jstring, const char* chars) { --vm_->borrowed; std::free(const_cast<char*>(chars)); };
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
    bool thrown = false;          // an exception since the last call()
    int stringsBeforeFailure = -1;  // NewStringUTF throws after this many strings (-1: never)

private:
    static Value* of(const void* ref) { return static_cast<Value*>(const_cast<void*>(ref)); }

    template <typename T> static T* borrow(std::vector<T>& values) {
        ++vm_->borrowed;
        auto* copy = static_cast<T*>(std::malloc(sizeof(T) * (values.size() + 1)));
        std::copy(values.begin(), values.end(), copy);
        return copy;
    }
    template <typename T> static void giveBack(std::vector<T>& values, T* copy, jint mode) {
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
    jobject fail() {
        pending = thrown = true;
        return nullptr;
    }

    static inline FakeVm* vm_ = nullptr;
    JNINativeInterface_ table_{};
    JNIEnv env_{};
    std::vector<std::unique_ptr<Value>> values_;
};

class JniBindingTest : public tevtest::LogCaptureTest {
protected:
    // Runs native calls and checks that they gave everything back and cleared what the VM threw
    // (borrowed, live, thrown, pending).
    void call(const std::string& what, const std::function<void()>& run, bool throws = false) {
        vm.live = vm.peak = 0;
        vm.thrown = false;
        run();
        EXPECT_EQ(std::make_tuple(0, 0, throws, false), std::make_tuple(vm.borrowed, vm.live, vm.thrown, vm.pending))
            << what;
    }
    // A result goes to the caller, so it is no longer the native code's reference.
    jlong held(const void* result) {
        if (result != nullptr) --vm.live;
        return result != nullptr;
    }
    FakeVm vm;
    JNIEnv* env = vm.env();
};

// Each row runs a method with usable arguments, then with the refused ones. When the row names
// a tag, the refusal is the binding's own: 0 or null and that error line (tag "": no line).
// Path and descriptor forms sharing one helper and its owners appear once; every owner and
// result builder is reached.
TEST_F(JniBindingTest, EachMethodGivesBackWhatItBorrowsOnEveryPathAndRefusesWithItsLine) {
    const Bytes media = tevtest::fakeJpeg(200), data = tevtest::pattern(40);
    const tevtest::TempFile file(tevtest::buildContainer(media, {{3, "a", Bytes{1, 2}, data}, {4, "b", {}, data}}));
    const tevtest::TempFile plain(media, "plain.jpg"), bare(media, "bare.jpg"), sound(media, "sound.jpg");
    ASSERT_EQ(media.size() + data.size() + 30, AddSoundInVoxaFile(sound.c_str(), data.data(), 40));
    const tevtest::TempFile dataFile(data, "data.bin"), emptyFile(Bytes{}, "empty.bin");
    const int fd = open(file.c_str(), O_RDWR), plainFd = open(plain.c_str(), O_RDWR);
    const int bareFd = open(bare.c_str(), O_RDWR);
    ASSERT_TRUE(fd > 0 && plainFd > 0 && bareFd > 0);
    jstring p = vm.string(file.c_str()), key = vm.string("a"), df = vm.string(dataFile.c_str());
    jbyteArray bytes = vm.bytes(data), sub = vm.bytes({9, 9});
    Bytes room = media;
    room.resize(1000);
    const char* beyond = "length beyond the end of its Java argument";
    struct Row { const char *name, *tag, *text; std::function<jlong(bool)> run; };
    const std::vector<Row> rows = {
        {"isTEVFile", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_isTEVFile(env, nullptr, ok ? p : nullptr); }},
        {"isTEVfd", "JNI::isTEVFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_isTEVfd(env, nullptr, ok ? fd : -1); }},
        {"getTEVDataPosition", "JNI::getTEVDataPosition", "TEVnamePtr is null", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_getTEVDataPosition(env, nullptr, p, ok ? key : nullptr)); }},
        {"getTEVDataPosition", "JNI::getTEVDataPosition", "filenamePtr is null", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_getTEVDataPosition(env, nullptr, ok ? p : nullptr, key)); }},
        {"getTEVSubDataPositionFd", "JNI::getTEVDataPositionFd", "fd error", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_getTEVSubDataPositionFd(env, nullptr, ok ? fd : -1, key)); }},
        {"getTEVDataPositionFd", "JNI::getTEVDataPositionFd", "TEVnamePtr is null", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_getTEVDataPositionFd(env, nullptr, fd, ok ? key : nullptr)); }},
        {"getTEVDataCount", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_getTEVDataCount(env, nullptr, ok ? p : nullptr); }},
        {"getTEVDataCountFd", "JNI::getTEVDataCountFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_getTEVDataCountFd(env, nullptr, ok ? fd : -1); }},
        {"getTEVName", nullptr, nullptr, [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_getTEVName(env, nullptr, p, ok ? 1 : 5)); }},
        {"getTEVDataType", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_getTEVDataType(env, nullptr, p, ok ? key : nullptr); }},
        {"getTEVDataTypeFd", "JNI::getTEVDataTypeFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_getTEVDataTypeFd(env, nullptr, ok ? fd : -1, key); }},
        {"listKeyNames", nullptr, nullptr, [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_listKeyNames(env, nullptr, ok ? p : nullptr)); }},
        {"listKeyNamesFd", "JNI::listKeyNames", "fd error", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_listKeyNamesFd(env, nullptr, ok ? fd : -1)); }},
        {"listTEVDataTypes", "JNI::listTEVDataTypes", "filenamePtr is null", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_listTEVDataTypes(env, nullptr, ok ? p : nullptr)); }},
        {"listTEVDataTypesFd", "JNI::listTEVDataTypesFd", "fd error", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_listTEVDataTypesFd(env, nullptr, ok ? fd : -1)); }},
        {"listKeyNamesByDataType", nullptr, nullptr, [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_listKeyNamesByDataType(env, nullptr, ok ? p : nullptr, 4)); }},
        {"listKeyNamesByDataTypeFd", "JNI::listKeyNamesByDataTypeFd", "fd error", [&](bool ok) { return held(Java_com_valtremo_android_media_TEVJNI_listKeyNamesByDataTypeFd(env, nullptr, ok ? fd : -1, 4)); }},
        {"addTEVData", "JNI::addTEVData", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVData(env, nullptr, p, vm.string("c"), 1, ok ? sub : nullptr, 2, bytes, ok ? 40 : 41, 5, 1); }},
        {"addFastTEVData", "JNI::addFastTEVData", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addFastTEVData(env, nullptr, p, vm.string("ff"), 2, sub, ok ? 2 : 3, bytes, 40, 5, 1); }},
        {"addFastTEVDataFile", "TEVJNI::addFastTEVDataFile", "data_fp NULL\n", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addFastTEVDataFile(env, nullptr, p, vm.string("e"), 1, sub, 2, ok ? df : vm.string("/nonexistent/e"), 5, 1); }},
        {"addFastTEVDataFile", "TEVJNI::addFastTEVDataFile", "data_len<= 0\n", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addFastTEVDataFile(env, nullptr, p, vm.string("e"), 1, sub, 2, ok ? df : vm.string(emptyFile.c_str()), 5, 1); }},
        {"addTEVDataFile", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFile(env, nullptr, p, vm.string("f"), 1, sub, 2, ok ? df : nullptr, 5, 1); }},
        {"addTEVDataFileAddTag", "JNI::addTEVDataFileAddTag", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFileAddTag(env, nullptr, p, vm.string("h"), ok ? 1 : 2, sub, 2, df, 5, 1); }},
        {"addTEVDataToMP4", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataToMP4(env, nullptr, ok ? p : nullptr, vm.string("g"), 1, sub, 2, bytes, 40, 5, 1); }},
        {"addTEVDataAddTag", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataAddTag(env, nullptr, p, ok ? vm.string("i") : nullptr, 1, sub, 2, bytes, 40, 5, 1); }},
        {"addTEVDataFd", "JNI::addTEVDataFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFd(env, nullptr, ok ? fd : -1, vm.string("k"), 1, sub, 2, bytes, 40, 5, 1); }},
        {"addTEVDataFdAddTag", "JNI::addTEVDataFdAddTag", "TEVname is null.", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFdAddTag(env, nullptr, fd, ok ? vm.string("l") : nullptr, 1, sub, 2, bytes, 40, 5, 1); }},
        {"addTEVDataFdToMP4", "JNI::addTEVDataFdToMP4", "TEVname is null.", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFdToMP4(env, nullptr, fd, vm.string("m"), 1, sub, 2, ok ? bytes : nullptr, 40, 5, 1); }},
        {"addTEVDataBufferAddTag", "TEVJNI::addTEVDataBufferAddTag", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, vm.bytes(room), 1000, 200, ok ? 0 : 1, key, 1, sub, 2, bytes, 40, 5, 0); }},
        {"addTEVDataBufferAddTag", "TEVJNI::addTEVDataBufferAddTag ", "Buffer is LUMET_TEV_NULL \n", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, ok ? vm.bytes(room) : nullptr, 1000, 200, 0, key, 1, sub, 2, bytes, 40, 5, 0); }},
        {"addTEVDataBufferAddTag", "TEVJNI::addTEVDataBufferAddTag", " TEVname is LUMET_TEV_NULL\n", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, vm.bytes(room), 1000, 200, 0, ok ? key : nullptr, 1, sub, 2, bytes, 40, 5, 0); }},
        {"addTEVDataBufferAddTag", "TEVJNI::addTEVDataBufferAddTag", "data is LUMET_TEV_NULL\n", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataBufferAddTag(env, nullptr, vm.bytes(room), 1000, 200, 0, key, 1, sub, 2, ok ? bytes : nullptr, 40, 5, 0); }},
        {"addTEVDataFiles", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(env, nullptr, p, vm.strings({"n", "o"}), vm.ints({1, 1}), vm.strings({dataFile.path(), dataFile.path()}), vm.ints({5, 5}), 1, ok ? 2 : 3); }},
        {"addTEVDataFiles", "JNI::addTEVDataFiles", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(env, nullptr, p, vm.strings({"q"}), vm.ints({ok ? 1 : 2}), vm.strings({dataFile.path()}), vm.ints({5}), 1, 1); }},
        {"saveAudioJPEG", "JNI::saveAudioJPEG", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_saveAudioJPEG(env, nullptr, p, bytes, 40, vm.string("memo"), ok ? 4 : 5); }},
        {"saveAudioJPEG", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_saveAudioJPEG(env, nullptr, p, ok ? bytes : nullptr, 40, vm.string("memo"), 4); }},
        {"deleteVoxaData", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteVoxaData(env, nullptr, p, ok ? vm.string("memo") : nullptr); }},
        {"copyAllTEVData", "TEV TEVJNI", "copyAllTEVData error.", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_copyAllTEVData(env, nullptr, ok ? p : vm.string(bare.c_str()), vm.string(ok ? plain.c_str() : bare.c_str())); }},
        {"copyAllTEVDataFd", "TEV TEVJNI", "copyAllTEVDataFd error.", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataFd(env, nullptr, ok ? fd : -1, plainFd); }},
        {"copyAllTEVDataKeyName", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_copyAllTEVDataKeyName(env, nullptr, p, vm.string(plain.c_str()), ok ? key : nullptr); }},
        {"deleteTEVData", "JNI::deleteTEVData", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, p, vm.string("c"), ok ? 1 : 7); }},
        {"deleteTEVData", "JNI::deleteTEVData", "filenamePtr is null", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, ok ? p : nullptr, vm.string("e"), 1); }},
        {"deleteTEVData", "JNI::deleteTEVData", "TEVnamePtr is null", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, p, ok ? vm.string("f") : nullptr, 1); }},
        {"deleteTEVData", "JNI::deleteTEVData", "TEV_data is null", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVData(env, nullptr, vm.string(ok ? file.c_str() : bare.c_str()), vm.string("g"), 1); }},
        {"deleteTEVDataFd", "JNI::deleteTEVDataFd", "TEVnamePtr is null", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, fd, ok ? vm.string("d") : nullptr, 1); }},
        {"deleteTEVDataFd", "JNI::deleteTEVDataFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, ok ? fd : -1, vm.string("h"), 1); }},
        {"deleteTEVDataFd", "JNI::deleteTEVDataFd", "TEV_data is null", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, ok ? fd : bareFd, vm.string("i"), 1); }},
        {"deleteTEVDataFd", "JNI::deleteTEVDataFd", beyond, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_deleteTEVDataFd(env, nullptr, fd, vm.string("k"), ok ? 1 : -1); }},
        {"ParseVoxaFile", "LUMET", "input filename is NULL", [&](bool ok) { return held(Java_com_valtremo_android_media_VoxaJNI_ParseVoxaFile(env, nullptr, ok ? vm.string(sound.c_str()) : nullptr)); }},
        {"ParseVoxaFd", "JNI::ParseVoxaFd", "fd error", [&](bool ok) { return held(Java_com_valtremo_android_media_VoxaJNI_ParseVoxaFd(env, nullptr, ok ? fd : -1)); }},
        {"isVoxaFd", "JNI::isVoxaFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_VoxaJNI_isVoxaFd(env, nullptr, ok ? fd : -1); }},
        {"isVoxaFd", "", "", [&](bool ok) { return Java_com_valtremo_android_media_VoxaJNI_isVoxaFd(env, nullptr, ok ? fd : 0); }},  // the library's own check
        {"copyAdioData", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_VoxaJNI_copyAdioData(env, nullptr, vm.string(sound.c_str()), ok ? vm.string(plain.c_str()) : nullptr); }},
        {"copyAdioData", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_VoxaJNI_copyAdioData(env, nullptr, ok ? vm.string(sound.c_str()) : nullptr, vm.string(plain.c_str())); }},
        {"AddSoundInVoxaFile", "JNI::AddSoundInVoxaFile", beyond, [&](bool ok) { return Java_com_valtremo_android_media_VoxaJNI_AddSoundInVoxaFile(env, nullptr, vm.string(sound.c_str()), bytes, ok ? 40 : 41); }},
        {"DeleteVoxaFromFile", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_VoxaJNI_DeleteVoxaFromFile(env, nullptr, ok ? vm.string(sound.c_str()) : nullptr); }},
        {"DeleteVoxaFromFd", "JNI::DeleteVoxaFromFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_VoxaJNI_DeleteVoxaFromFd(env, nullptr, ok ? bareFd : -1); }},
        {"clearVoxaData", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_clearVoxaData(env, nullptr, ok ? p : nullptr); }},
        {"clearTEVDataFd", "JNI::clearTEVDataFd", "fd error", [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_clearTEVDataFd(env, nullptr, ok ? bareFd : -1); }},
        {"clearTEVData", nullptr, nullptr, [&](bool ok) { return Java_com_valtremo_android_media_TEVJNI_clearTEVData(env, nullptr, ok ? vm.string(plain.c_str()) : nullptr); }},
    };
    for (const Row& row : rows) {
        call(row.name, [&] { row.run(true); });
        tevtest::clearLog();
        jlong refused = -1;
        call(row.name, [&] { refused = row.run(false); });
        if (row.tag == nullptr) continue;
        EXPECT_EQ(0, refused) << row.name << ": " << row.text;
        EXPECT_EQ(*row.tag == '\0', logLines().empty()) << row.name << dumpLog();
        EXPECT_TRUE(!*row.tag || loggedError(row.tag, row.text)) << row.name << ": " << row.text << dumpLog();
    }
    EXPECT_EQ(media, bare.read());
    for (int open : {fd, plainFd, bareFd}) close(open);
}

TEST_F(JniBindingTest, LongListsKeepTheLocalReferencesFewAndLetGoOnFailure) {
    const tevtest::TempFile file(tevtest::fakeJpeg(100));
    const tevtest::TempFile dataFile(Bytes{1, 2, 3}, "data.bin");
    constexpr int kCount = 300;
    std::vector<std::string> names(kCount);
    std::vector<jint> lengths(kCount);
    for (int i = 0; i < kCount; ++i) lengths[i] = static_cast<jint>((names[i] = "r" + std::to_string(i)).size());
    jstring path = vm.string(file.c_str());

    call("addTEVDataFiles", [&] {
        EXPECT_EQ(1, Java_com_valtremo_android_media_TEVJNI_addTEVDataFiles(env, nullptr, path, vm.strings(names),
                         vm.ints(lengths), vm.strings(std::vector<std::string>(kCount, dataFile.path())),
                         vm.ints(std::vector<jint>(kCount, 1)), 0, kCount));
    });
    EXPECT_LE(vm.peak, 2);

    call("listKeyNames", [&] { EXPECT_EQ(1, held(Java_com_valtremo_android_media_TEVJNI_listKeyNames(env, nullptr, path))); });
    EXPECT_LE(vm.peak, 3);

    // A VM that cannot make a string (out of memory) throws: the list is null, the
    // exception cleared and the half-made array let go.
    for (int made : {0, 1, 299}) {  // the array's filler "", then the first and the last name
        vm.stringsBeforeFailure = made;
        call("failing string " + std::to_string(made),
             [&] { EXPECT_EQ(nullptr, Java_com_valtremo_android_media_TEVJNI_listKeyNames(env, nullptr, path)); },
             true);
    }
}

}  // namespace
