// The save family: the same behaviour over every entry point and medium
// (memory buffers filled from a file and written back out included), each
// save and first-time add entry point's own refusals, the "FileData" forms,
// the two-step save, the buffer's capacity as a hard wall, and the central
// save's size limits, MP4 box and Voxa cases, checked byte for byte against
// containers built independently of the library's writers.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"
#include "tev/tev.hpp"

using namespace tevtest;

namespace {

const RecordSpec kAlpha{1, "alpha", std::nullopt, textBytes("first payload")};
const RecordSpec kBeta{7, "beta", textBytes("sub"), textBytes("second")};
const RecordSpec kGamma{300, "gamma", std::nullopt, Bytes(40, 0xC3)};
const RecordSpec kNewAlpha{9, "alpha", textBytes("s2"), textBytes("replacement")};
constexpr const char* kTag = "TEVEncoderAPIs::saveTEVDataToStream";

// Saves `r` into the file at `path` through one of the entry points.
using Save = uint32_t (*)(const char* path, const RecordSpec& r, uint32_t update);

template <auto Fn>
uint32_t viaPath(const char* path, const RecordSpec& r, uint32_t update) {
    return saveSpec([&](auto... a) { return Fn(path, a...); }, r, update);
}

template <auto Fn>
uint32_t viaFp(const char* path, const RecordSpec& r, uint32_t update) {
    FILE* fp = fopen(path, "r+b");
    const uint32_t result = saveSpec([&](auto... a) { return Fn(fp, a...); }, r, update);
    fclose(fp);
    return result;
}

uint32_t viaFd(const char* path, const RecordSpec& r, uint32_t update) {
    const int fd = open(path, O_RDWR);
    const uint32_t result = saveSpec([&](auto... a) { return saveTEVDataToFd(fd, a...); }, r, update);
    close(fd);
    return result;
}

// The file-sync save takes a trailing argument that changes nothing.
uint32_t viaSync(const char* path, const RecordSpec& r, uint32_t update) {
    return saveSpec([&](auto... a) { return saveTEVDataToFileSync(path, a..., 0xFF); }, r, update);
}

// The caller hands over the record already formatted.
uint32_t viaDirect(const char* path, const RecordSpec& r, uint32_t update) {
    const Bytes bytes = encodeRecord(r);
    FILE* fp = fopen(path, "r+b");
    const uint32_t result =
        saveDirectTEVData(fp, bytes.data(), uint32_t(bytes.size()), r.name.c_str(), r.sub ? 1 : 0, r.type, update);
    fclose(fp);
    return result;
}

// Saves into a memory buffer that holds the file's bytes, then writes what it holds back to the file.
template <auto Fn>
uint32_t viaBuffer(const char* path, const RecordSpec& r, uint32_t update) {
    Bytes memory = readFile(path);
    const int64_t used = int64_t(memory.size());
    memory.resize(memory.size() + 512);
    TevBufferHandle* handle = initTEVUsedBuffer(memory.data(), int64_t(memory.size()), used);
    const uint32_t result = saveSpec([&](auto... a) { return Fn(handle, a...); }, r, update);
    memory.resize(size_t(getTEVWriteSize(handle)));
    destroyTEVBuffer(handle);
    writeFile(path, memory);
    return result;
}

// A file stream over the opened file.
template <auto Fn>
uint32_t viaStream(const char* path, const RecordSpec& r, uint32_t update) {
    FILE* fp = fopen(path, "r+b");
    TevStreamFile stream(fp);
    const uint32_t result = saveSpec([&](auto... a) { return Fn(&stream, a...); }, r, update);
    fclose(fp);
    return result;
}

// The file copied into a buffer sized for the save, saved into, and written back over the path.
uint32_t viaCopiedBuffer(const char* path, const RecordSpec& r, uint32_t update) {
    tev::Buffer handle(initTEVBuffer(getTEVBufferAllocSize(int64_t(readFile(path).size()), 2, 64, 64, 64)));
    FILE* fp = fopen(path, "rb");
    const int64_t copied = copyFpToBuffer(fp, handle.get());
    fclose(fp);
    const uint32_t result = saveSpec([&](auto... a) { return saveTEVDataToBuffer(handle.get(), a...); }, r, update);
    const int64_t written = WriteHandle_FilePath(path, handle.get());
    return copied > 0 && written == int64_t(readFile(path).size()) ? result : 100;
}

struct SaveMedium {
    const char* label;
    Save save;
    uint32_t existingNameResult;  // same name, no update bit: 1 only for a memory buffer
};
void PrintTo(const SaveMedium& m, std::ostream* os) { *os << m.label; }

class SaveMediumTest : public LogCaptureTest, public ::testing::WithParamInterface<SaveMedium> {};

// 70,000 bytes of media take more than one block of each buffer copy.
TEST_P(SaveMediumTest, AddsAppendsReplacesAndKeepsExistingNames) {
    const Bytes media = fakeJpeg(70000);
    TempFile file(media);
    const auto save = [&](const RecordSpec& r, uint32_t update) { return GetParam().save(file.c_str(), r, update); };
    EXPECT_EQ(save(kAlpha, 0), 1u) << dumpLog();
    EXPECT_EQ(save(kBeta, 0), 1u) << dumpLog();
    const Bytes before = buildContainer(media, {kAlpha, kBeta});
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(save(kNewAlpha, 2), GetParam().existingNameResult);  // only bit 0 replaces
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(save(kNewAlpha, 1), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(media, {kBeta, kNewAlpha}));
}

INSTANTIATE_TEST_SUITE_P(
    Media, SaveMediumTest,
    ::testing::Values(SaveMedium{"File", viaPath<saveTEVDataToFile>, 0},
                      SaveMedium{"FileAddTag", viaPath<saveTEVDataToFileAddTag>, 0},
                      SaveMedium{"FastFile", viaPath<saveFastTEVDataToFile>, 0}, SaveMedium{"Sync", viaSync, 0},
                      SaveMedium{"Fp", viaFp<saveTEVDataToFP>, 0}, SaveMedium{"FastFp", viaFp<saveFastTEVDataToFP>, 0},
                      SaveMedium{"FpAddTag", viaFp<saveTEVDataToFPAddTag>, 0},
                      SaveMedium{"FpToMp4", viaFp<saveTEVDataToFPToMP4>, 0}, SaveMedium{"Fd", viaFd, 0},
                      SaveMedium{"Direct", viaDirect, 0}, SaveMedium{"Buffer", viaBuffer<saveTEVDataToBuffer>, 1},
                      SaveMedium{"BufferAddTag", viaBuffer<saveTEVDataToBufferAddTag>, 1},
                      SaveMedium{"CopiedBuffer", viaCopiedBuffer, 1}, SaveMedium{"Stream", viaStream<saveTEVDataToStream>, 0},
                      SaveMedium{"FastStream", viaStream<saveFastTEVDataToStream>, 0}),
    [](const ::testing::TestParamInfo<SaveMedium>& info) { return std::string(info.param.label); });

// --- Each save and first-time add entry point's own refusals. The target is
// a plain JPEG that must stay as it is.
struct Env {
    FILE* fp;
    const char* path;
    const char* emptyData;
    const char* missing;
};

const unsigned char kData[4] = {1, 2, 3, 4};
const unsigned char kSub[2] = {5, 6};
constexpr uint32_t kTooBig = 0xFFF00001u;

struct Refusal {
    const char* label;
    std::function<uint32_t(const Env&)> call;
    const char* tag;  // null: refused without a log line
    const char* text;
};
void PrintTo(const Refusal& r, std::ostream* os) { *os << r.label; }

std::vector<Refusal> refusals() {
    const char* fastFp = "TEVEncoderAPIs::saveFastTEVDataToFP";
    const char* fileDataFp = "TEVEncoderAPIs::saveTEVFileDataToFP";
    const char* direct = "TEVEncoderAPIs::saveDirectTEVData";
    const char* header = "TEVEncoderAPIs::saveTEVDataHeaderToStream";
    const char* tail = "TEVEncoderAPIs::saveTEVTailToStream";
    const char* firstTail = "TEVEncoder::saveFirstTEVTailToFP";
    const char* firstStream = "TEVEncoder::AddTEVDataInFirstTimeStream";
    const char* first = "TEVEncoder::AddTEVDataInFirstTime";
    const char* firstDirect = "TEVEncoder::AddDirectTEVDataInFirstTimeStream";
    return {
        {"NameLengthZero", [](const Env& e) { return saveTEVDataToFP(e.fp, "n", 0, nullptr, 0, kData, 4, 1, 0); }, kTag, "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"},
        {"UserDataEmptySub", [](const Env& e) { return saveTEVDataToFP(e.fp, "n", 1, kSub, 0, kData, 4, 0, 0); }, kTag, "type & sub wrong !!"},
        {"StreamTooBig", [](const Env& e) { return saveTEVDataToFP(e.fp, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, kTag, "Too big TEV data to add in the file"},
        {"StreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return saveTEVDataToStream(&unusable, "n", 1, nullptr, 0, kData, 4, 1, 0); }, kTag, "Stream CheckError is false"},
        {"Undetectable", [](const Env&) { TevBufferHandle empty{nullptr, 0, 0, 0, 0}; return saveTEVDataToBuffer(&empty, "n", 1, nullptr, 0, kData, 4, 1, 0); }, kTag, "Signature detection fail!! mode : 0\n"},
        {"FileUnopenable", [](const Env& e) { return saveTEVDataToFile(e.missing, "n", 1, nullptr, 0, kData, 4, 1, 0); }, nullptr, nullptr},
        {"FileTooBig", [](const Env& e) { return saveTEVDataToFile(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, "TEVAPI::saveTEVDataToFileAddTag", "Too big TEV data to add in the file"},
        {"FastFileTooBig", [](const Env& e) { return saveFastTEVDataToFile(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, "TEVAPI", "Too big TEV data to add in the file"},
        {"FpNull", [](const Env&) { return saveTEVDataToFP(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, "TEVEncoderAPIs::saveTEVDataToFP", "fp NULL !!"},
        {"FastFpType", [](const Env& e) { return saveFastTEVDataToFP(e.fp, "n", 1, kSub, 0, kData, 4, 0, 0); }, fastFp, "data_type null\n"},
        {"FdZero", [](const Env&) { return saveTEVDataToFd(0, "n", 1, nullptr, 0, kData, 4, 1, 0); }, "TEVEncoderAPIs::saveTEVDataToFd", "fd is <= 0!!"},
        {"BufferNull", [](const Env&) { return saveTEVDataToBuffer(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, "TEVEncoderAPIsBuffer::saveTEVDataToBuffer", "Buffer NULL !!"},
        {"FileDataEmpty", [](const Env& e) { return saveTEVFileDataToFile(e.path, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, "TEVAPI", "data null\n"},
        {"FileDataFpType", [](const Env& e) { return saveFastTEVNameToFP(e.fp, "n", 1, nullptr, 0, e.path, 0, 0); }, fileDataFp, "data_type fail\n"},
        {"FileDataFpMissing", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 1, nullptr, 0, e.missing, 1, 0); }, fileDataFp, "fopen fail"},
        {"FileDataFpEmpty", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, fileDataFp, "File Search Error 0\n"},
        {"FileDataAddTagEmpty", [](const Env& e) { return saveTEVDataFileToFileAddTag(e.path, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, nullptr, nullptr},
        {"SyncTooBig", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0, 0); }, "TEVAPI", "Too big TEV data to add in the file"},
        {"SyncType", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, kData, 4, 0, 0, 0); }, "TEVAPI", "data_type == TEV_USER_DEFINED_DATA && ( data_sub_info == LUMET_TEV_NULL || data_sub_info_len <= 0 )"},
        {"DirectType", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 4, "n", 0, 0, 0); }, direct, "data_type == TEV_USER_DEFINED_DATA && ( !check_data_sub_info )"},
        {"HeaderType", [](const Env& e) { return saveTEVDataHeaderToFP(e.fp, "n", 1, nullptr, 0, 0); }, "TEVEncoderAPIs::saveTEVDataHeaderToStream", "data_type == TEV_USER_DEFINED_DATA && (data_sub_info == LUMET_TEV_NULL || data_sub_info_len <= 0)"},
        {"TailTooBig", [](const Env& e) { return saveTEVTailToFP(e.fp, kTooBig, 1, 0); }, "TEVEncoderAPIs::saveTEVTailToStream", "Too big TEV data to add in the file"},
        {"StreamNull", [](const Env&) { return saveTEVDataToStream(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, kTag, "Stream NULL !!"},
        {"DirectFpNull", [](const Env&) { return saveDirectTEVData(nullptr, kData, 4, "n", 0, 1, 0); }, direct, "fp == LUMET_TEV_NULL"},
        {"DirectNameNull", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 4, nullptr, 0, 1, 0); }, direct, "TEVName == LUMET_TEV_NULL"},
        {"DirectNoBytes", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 0, "n", 0, 1, 0); }, direct, "data == LUMET_TEV_NULL || data_len <= 0"},
        {"FastFpNull", [](const Env&) { return saveFastTEVDataToFP(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, fastFp, "fp null\n"},
        {"FastFpNameNull", [](const Env& e) { return saveFastTEVDataToFP(e.fp, nullptr, 1, nullptr, 0, kData, 4, 1, 0); }, fastFp, "TEVName null\n"},
        {"FastFpDataNull", [](const Env& e) { return saveFastTEVDataToFP(e.fp, "n", 1, nullptr, 0, nullptr, 4, 1, 0); }, fastFp, "data is null\n"},
        {"FileDataFpNull", [](const Env& e) { return saveTEVFileDataToFP(nullptr, "n", 1, nullptr, 0, e.path, 1, 0); }, fileDataFp, "fp null\n"},
        {"FileDataFpNameEmpty", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 0, nullptr, 0, e.path, 1, 0); }, fileDataFp, "TEVName null or tev name length is 0. the length is larger than 1\n"},
        {"SyncPathNull", [](const Env&) { return saveTEVDataToFileSync(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0, 0); }, "TEVAPI", "filename == LUMET_TEV_NULL"},
        {"SyncNameNull", [](const Env& e) { return saveTEVDataToFileSync(e.path, nullptr, 1, nullptr, 0, kData, 4, 1, 0, 0); }, "TEVAPI", "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"},
        {"SyncDataNull", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, nullptr, 4, 1, 0, 0); }, "TEVAPI", "data == LUMET_TEV_NULL || data_len <= 0"},
        {"SyncUnopenable", [](const Env& e) { return saveTEVDataToFileSync(e.missing, "n", 1, nullptr, 0, kData, 4, 1, 0, 0); }, "TEVEncoderAPIs::saveTEVDataToFileSync", "Stream CheckError is false"},
        {"HeaderStreamNull", [](const Env&) { return saveTEVDataHeaderToStream(nullptr, "n", 1, nullptr, 0, 1); }, header, "Stream open error"},
        {"HeaderStreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return saveTEVDataHeaderToStream(&unusable, "n", 1, nullptr, 0, 1); }, header, "Stream CheckError is false"},
        {"HeaderNameNull", [](const Env& e) { return saveTEVDataHeaderToFP(e.fp, nullptr, 1, nullptr, 0, 1); }, header, "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"},
        {"HeaderFpNull", [](const Env&) { return saveTEVDataHeaderToFP(nullptr, "n", 1, nullptr, 0, 1); }, "TEVEncoderAPIs::saveTEVDataHeaderToFP", "fp open error"},
        {"TailStreamNull", [](const Env&) { return saveTEVTailToStream(nullptr, 9, 1, 0); }, tail, "Stream open error"},
        {"TailStreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return saveTEVTailToStream(&unusable, 9, 1, 0); }, tail, "Stream CheckError is false"},
        {"TailFpNull", [](const Env&) { return saveTEVTailToFP(nullptr, 9, 1, 0); }, "TEVEncoderAPIs::saveTEVTailToFP", "fp open error"},
        {"FirstTailStreamNull", [](const Env&) { return saveFirstTEVTailToStream(nullptr, 9, 1, 0); }, firstTail, "Stream open error"},
        {"FirstTailUnusable", [](const Env&) { return saveFirstTEVTailToFP(nullptr, 9, 1, 0); }, firstTail, "Stream CheckError is false"},
        {"FirstStreamNull", [](const Env&) { return AddTEVDataInFirstTimeStream(nullptr, "n", 1, 1, nullptr, 0, kData, 4); }, firstStream, "Stream open error"},
        {"FirstStreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return AddTEVDataInFirstTimeStream(&unusable, "n", 1, 1, nullptr, 0, kData, 4); }, firstStream, "file open error"},
        {"FirstStreamDataNull", [](const Env& e) { TevStreamFile s(e.fp); return AddTEVDataInFirstTimeStream(&s, "n", 1, 1, nullptr, 0, nullptr, 4); }, firstStream, "data == 0 || data_size <= 0"},
        {"FirstFpNull", [](const Env&) { return AddTEVDataInFirstTimeFP(nullptr, "n", 1, 1, nullptr, 0, kData, 4); }, first, "file open error"},
        {"FirstBufferNull", [](const Env&) { return AddTEVDataInFirstTimeBuffer(nullptr, "n", 1, 1, nullptr, 0, kData, 4); }, first, "file open error"},
        {"FirstPathUserData", [](const Env& e) { return AddTEVDataInFirstTime(e.path, "n", 1, 0, kSub, 0, kData, 4); }, first, "if Data type is UserData then must use DataSubInfo"},
        {"FirstPathNameNull", [](const Env& e) { return AddTEVDataInFirstTime(e.path, nullptr, 1, 1, nullptr, 0, kData, 4); }, first, "name null"},
        {"FirstPathDataNull", [](const Env& e) { return AddTEVDataInFirstTime(e.path, "n", 1, 1, nullptr, 0, kData, 0); }, first, "data null"},
        {"FirstPathTooBig", [](const Env& e) { return AddTEVDataInFirstTime(e.path, "n", 1, 1, nullptr, 0, kData, 0xFFFFFFF7u); }, first, "Too big TEV data to add in the file"},
        {"FirstPathUnopenable", [](const Env& e) { return AddTEVDataInFirstTime(e.missing, "n", 1, 1, nullptr, 0, kData, 4); }, first, "file open error"},
        {"FirstDirectStreamNull", [](const Env&) { return AddDirectTEVDataInFirstTimeStream(nullptr, 1, 0, kData, 4); }, firstDirect, "src_tev_info->Stream is null"},
        {"FirstDirectUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return AddDirectTEVDataInFirstTimeStream(&unusable, 1, 0, kData, 4); }, firstDirect, "src_tev_info->Stream CheckError is false"},
        {"FirstDirectNoBytes", [](const Env& e) { return AddDirectTEVDataInFirstTimeFP(e.fp, 1, 0, nullptr, 4); }, firstDirect, "data == LUMET_TEV_NULL || data_size <= 0"},
        {"CopyIntoNoBuffer", [](const Env& e) { return uint32_t(copyFpToBuffer(e.fp, nullptr)); }, "TEVEncoderAPIsBuffer::copyFpToBuffer", "Buffer NULL !!"},
        {"CopyIntoASmallerBuffer", [](const Env& e) { tev::Buffer small(initTEVBuffer(63)); return uint32_t(copyFpToBuffer(e.fp, small.get()) + getTEVWriteSize(small.get())); }, "TEVEncoderAPIsBuffer::copyFpToBuffer", "ret != ReadSize !!"},
    };
}

class SaveRefusalTest : public LogCaptureTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(SaveRefusalTest, RefusesWithItsOwnMessageAndLeavesTargetAlone) {
    TempFile target(fakeJpeg(64));
    TempFile emptyData(Bytes{}, "empty.bin");
    const std::string missing = target.path() + ".missing/none";
    FILE* fp = fopen(target.c_str(), "r+b");
    const uint32_t result = GetParam().call(Env{fp, target.c_str(), emptyData.c_str(), missing.c_str()});
    fclose(fp);
    EXPECT_EQ(result, 0u);
    if (GetParam().tag == nullptr) {
        EXPECT_TRUE(logLines().empty()) << dumpLog();
    } else {
        EXPECT_TRUE(loggedError(GetParam().tag, GetParam().text)) << dumpLog();
    }
    EXPECT_EQ(target.read(), fakeJpeg(64));
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, SaveRefusalTest, ::testing::ValuesIn(refusals()),
                         [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.label); });

// --- "FileData" forms: the record's data is a whole file.
struct FileDataForm {
    const char* label;
    std::function<uint32_t(const char* target, FILE* fp, const char* data)> save;
    const char* tooBigTag;
};

std::vector<FileDataForm> fileDataForms() {
    return {
        {"saveTEVFileDataToFile", [](const char* t, FILE*, const char* d) { return saveTEVFileDataToFile(t, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI"},
        {"saveFastTEVDataFileToFile", [](const char* t, FILE*, const char* d) { return saveFastTEVDataFileToFile(t, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI"},
        {"saveTEVDataFileToFileAddTag", [](const char* t, FILE*, const char* d) { return saveTEVDataFileToFileAddTag(t, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI::saveTEVDataFileToFileAddTag"},
        {"saveTEVFileDataToFP", [](const char*, FILE* f, const char* d) { return saveTEVFileDataToFP(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVEncoderAPIs::saveTEVFileDataToFP"},
        {"saveFastTEVNameToFP", [](const char*, FILE* f, const char* d) { return saveFastTEVNameToFP(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVEncoderAPIs::saveTEVFileDataToFP"},
        {"saveTEVDataFileToFPAddTag", [](const char*, FILE* f, const char* d) { return saveTEVDataFileToFPAddTag(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI::saveTEVDataFileToFPAddTag"},
        {"saveTEVDataFileToFPToMP4", [](const char*, FILE* f, const char* d) { return saveTEVDataFileToFPToMP4(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI"},
    };
}

class SaveFileDataTest : public LogCaptureTest {};

TEST_F(SaveFileDataTest, SavesTheWholeDataFileAndRefusesOneOfFFF00001Bytes) {
    const RecordSpec expected{7, "beta", Bytes(kSub, kSub + 2), Bytes(9000, 0x3C)};
    TempFile data(expected.data, "data.bin");
    TempFile huge(Bytes{}, "huge.bin");
    ASSERT_EQ(truncate(huge.c_str(), 0xFFF00001LL), 0);  // sparse: nothing is stored
    for (const FileDataForm& form : fileDataForms()) {
        SCOPED_TRACE(form.label);
        clearLog();
        TempFile target(fakeJpeg(64));
        FILE* fp = fopen(target.c_str(), "r+b");
        EXPECT_EQ(form.save(target.c_str(), fp, huge.c_str()), 0u);
        EXPECT_TRUE(loggedError(form.tooBigTag, "Too big TEV data to add in the file")) << dumpLog();
        EXPECT_EQ(target.read(), fakeJpeg(64));
        EXPECT_EQ(form.save(target.c_str(), fp, data.c_str()), 1u) << dumpLog();
        fclose(fp);
        EXPECT_EQ(target.read(), buildContainer(fakeJpeg(64), {expected}));
    }
}

// --- The two-step save: header, the caller's data, tail.
class SaveTwoStepTest : public LogCaptureTest {};

TEST_F(SaveTwoStepTest, HeaderDataAndTailMakeAContainerOnlyOnPlainMedia) {
    TempFile file(fakeJpeg(64));
    FILE* fp = fopen(file.c_str(), "r+b");
    EXPECT_EQ(saveTEVDataHeaderToFP(fp, "beta", 4, kBeta.sub->data(), 3, kBeta.type),
              recordLength(kBeta) - kBeta.data.size());
    ASSERT_GE(lseek(fileno(fp), 0, SEEK_END), 0);
    ASSERT_EQ(write(fileno(fp), kBeta.data.data(), kBeta.data.size()), ssize_t(kBeta.data.size()));
    EXPECT_EQ(saveTEVTailToFP(fp, recordLength(kBeta), kBeta.type, 1), 1u) << dumpLog();
    const Bytes saved = buildContainer(fakeJpeg(64), {kBeta});
    EXPECT_EQ(file.read(), saved);
    // Now that a container is there, both steps succeed without writing.
    EXPECT_EQ(saveTEVDataHeaderToFP(fp, "gamma", 5, nullptr, 0, 7), 1u);
    EXPECT_EQ(saveTEVTailToFP(fp, 30, 7, 0), 1u);
    fclose(fp);
    EXPECT_EQ(file.read(), saved);
}

// A record written by other means behind plain media gets its one-entry
// directory from the first-time tail; formatted bytes get theirs from the
// direct first-time add.
TEST_F(SaveTwoStepTest, FirstTimeTailAndDirectAddCompleteARecordWrittenByOthers) {
    for (bool direct : {false, true}) {
        TempFile file(concat(fakeJpeg(64), direct ? Bytes{} : encodeRecord(kBeta)));
        FILE* fp = fopen(file.c_str(), "r+b");
        const Bytes bytes = encodeRecord(kBeta);
        EXPECT_EQ(direct ? AddDirectTEVDataInFirstTimeFP(fp, 7, 1, bytes.data(), uint32_t(bytes.size()))
                         : saveFirstTEVTailToFP(fp, recordLength(kBeta), 7, 1), 1u) << dumpLog();
        fclose(fp);
        EXPECT_EQ(file.read(), buildContainer(fakeJpeg(64), {kBeta}));
    }
}

// --- A memory buffer never grows: nothing is written past its capacity, and
// writing it out opens the path ("w+b") before the handle is looked at, so a
// handle with nothing to write still empties the file.
TEST_F(SaveTwoStepTest, BufferCapacityIsAWallAndWritingOutOpensThePathFirst) {
    const Bytes media = fakeJpeg(100);
    const size_t capacity = media.size() + 30;  // too small for the record and its directory
    Bytes memory = concat(media, Bytes(capacity + 64 - media.size(), 0xEE));
    tev::Buffer handle(initTEVUsedBuffer(memory.data(), int64_t(capacity), int64_t(media.size())));
    EXPECT_EQ(saveSpec([&](auto... a) { return saveTEVDataToBuffer(handle.get(), a...); }, kAlpha, 0), 0u);
    EXPECT_TRUE(std::equal(media.begin(), media.end(), memory.begin()));
    EXPECT_TRUE(std::all_of(memory.begin() + long(capacity), memory.end(), [](uint8_t b) { return b == 0xEE; }));

    tev::Buffer unused(initTEVAllocatedBuffer(memory.data(), int64_t(memory.size())));
    TempFile out(textBytes("keep me"));
    FILE* fp = fopen(out.c_str(), "r+b");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(WriteHandle_FilePath(out.c_str(), unused.get()), -2);
    EXPECT_EQ(WriteHandle_FilePath("/nonexistent/dir/out.bin", nullptr), -1);
    EXPECT_EQ(WriteHandle_Fp(nullptr, fp), -2);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "WriteHandle : write size error \nfp null!!\nWriteHandle : buffer error \n");
    fclose(fp);
    EXPECT_EQ(out.read(), Bytes{});
}

// --- The central save behind them: limits, damaged containers, the MP4 box, Voxa sound.
class SaveTest : public LogCaptureTest {
protected:
    // Saves `r` into a file holding *content, which becomes the file's bytes after.
    uint32_t saveIntoFile(Bytes* content, const RecordSpec& r, uint32_t update) {
        TempFile file(*content);
        const uint32_t result = viaPath<saveTEVDataToFile>(file.c_str(), r, update);
        *content = file.read();
        return result;
    }
};

TEST_F(SaveTest, DataLengthLimitIsFFF00000) {
    const Bytes before = buildContainer(fakeJpeg(64), {kAlpha});
    TempFile file(before);
    const unsigned char data[1] = {0};
    // 0xFFF00000 passes the first check and is stopped only by the container's capacity.
    EXPECT_EQ(saveTEVDataToFile(file.c_str(), "big", 3, nullptr, 0, data, 0xFFF00000u, 1, 0), 0u);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_TEV checkTEVInfoForSaving fail!!")) << dumpLog();
    EXPECT_FALSE(loggedError(kTag, "Too big TEV data to add in the file"));
    EXPECT_EQ(saveTEVDataToFile(file.c_str(), "big", 3, nullptr, 0, data, 0xFFF00001u, 1, 0), 0u);
    EXPECT_TRUE(loggedError("TEVAPI::saveTEVDataToFileAddTag", "Too big TEV data to add in the file")) << dumpLog();
    EXPECT_EQ(file.read(), before);
}

TEST_F(SaveTest, DamagedContainerIsNeverWrittenOver) {
    const Bytes damaged = concat(fakeJpeg(64), textBytes("junkTEVT"));
    Bytes after = damaged;
    EXPECT_EQ(saveIntoFile(&after, kAlpha, 1), 0u);
    EXPECT_EQ(after, damaged);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_TEV TEVdata NULL!!")) << dumpLog();
}

TEST_F(SaveTest, FileSyncGivesMp4MediaNoBox) {
    TempFile mp4(fakeMp4(100));
    EXPECT_EQ(saveSpec([&](auto... a) { return saveTEVDataToFileSync(mp4.c_str(), a..., 0); }, kAlpha, 0), 1u);
    EXPECT_EQ(mp4.read(), buildContainer(fakeMp4(100), {kAlpha}));
}

// --- MP4 media: the container lives in a "tevd" box reaching to the end.
struct Mp4Case {
    const char* label;
    std::vector<RecordSpec> before;
    bool boxedBefore;
    RecordSpec saved;
    uint32_t update;
    std::vector<RecordSpec> after;
};
void PrintTo(const Mp4Case& c, std::ostream* os) { *os << c.label; }

class SaveMp4Test : public SaveTest, public ::testing::WithParamInterface<Mp4Case> {};

TEST_P(SaveMp4Test, BoxWrapsTheWholeContainerAndMediaStays) {
    const Mp4Case& c = GetParam();
    const Bytes media = fakeMp4(200);
    Bytes content = c.before.empty() ? media : buildContainer(media, c.before, {107, c.boxedBefore});
    EXPECT_EQ(saveIntoFile(&content, c.saved, c.update), 1u) << dumpLog();
    EXPECT_EQ(content, buildContainer(media, c.after, boxed()));
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, SaveMp4Test,
    ::testing::Values(Mp4Case{"PlainMedia", {}, false, kAlpha, 0, {kAlpha}},
                      Mp4Case{"BoxedAppend", {kAlpha}, true, kBeta, 0, {kAlpha, kBeta}},
                      Mp4Case{"UnboxedGetsWrapped", {kAlpha}, false, kBeta, 0, {kAlpha, kBeta}},
                      Mp4Case{"ReplaceOnlyRecord", {kAlpha}, true, kNewAlpha, 1, {kNewAlpha}},
                      Mp4Case{"ReplaceFirstOfTwo", {kAlpha, kGamma}, true, kNewAlpha, 1, {kGamma, kNewAlpha}}),
    [](const ::testing::TestParamInfo<Mp4Case>& info) { return std::string(info.param.label); });

// --- Voxa sound: a container whose first record holds the sound, followed by a Voxa block.
class SaveVoxaTest : public SaveTest {
protected:
    const RecordSpec echo_ = record("EchoFrame_000", 50, 0x77, 256);
    // The sound is the data of the first record, which starts right after the media.
    Bytes voxaContainer(const Bytes& media, const std::vector<RecordSpec>& records) const {
        ContainerOptions options;
        options.voxaTrailer = true;
        options.voxaStart = uint32_t(media.size()) + 8 + uint32_t(echo_.name.size());
        options.voxaEnd = options.voxaStart + uint32_t(echo_.data.size());
        return buildContainer(media, records, options);
    }
};

TEST_F(SaveVoxaTest, NewNameKeepsTheVoxaBlockBehindTheNewDirectory) {
    Bytes content = voxaContainer(fakeJpeg(100), {echo_});
    EXPECT_EQ(saveIntoFile(&content, kAlpha, 0), 1u) << dumpLog();
    const Bytes saved = voxaContainer(fakeJpeg(100), {echo_, kAlpha});
    EXPECT_EQ(content, saved);
    EXPECT_EQ(saveIntoFile(&content, kNewAlpha, 0), 0u);
    EXPECT_EQ(content, saved);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!")) << dumpLog();
}

}  // namespace
