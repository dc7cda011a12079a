// The save family over every entry point and medium, each entry point's own
// refusals, the "FileData" forms, the two-step save, the buffer's capacity,
// and the central save's size limit, MP4 box and Voxa cases, byte for byte.
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "support/edit.h"

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
    return onFp(path, [&](FILE* fp) { return saveSpec([&](auto... a) { return Fn(fp, a...); }, r, update); });
}
template <auto Fn>
uint32_t viaStream(const char* path, const RecordSpec& r, uint32_t update) {
    return onFp(path, [&](FILE* fp) { TevStreamFile s(fp); return saveSpec([&](auto... a) { return Fn(&s, a...); }, r, update); });
}
uint32_t viaFd(const char* path, const RecordSpec& r, uint32_t update) {
    return onFp(path, [&](FILE* fp) { return saveSpec([&](auto... a) { return saveTEVDataToFd(fileno(fp), a...); }, r, update); });
}
// The file-sync save takes a trailing argument that changes nothing.
uint32_t viaSync(const char* path, const RecordSpec& r, uint32_t update) {
    return saveSpec([&](auto... a) { return saveTEVDataToFileSync(path, a..., 0xFF); }, r, update);
}
// The caller hands over the record already formatted.
uint32_t viaDirect(const char* path, const RecordSpec& r, uint32_t update) {
    const Bytes bytes = encodeRecord(r);
    return onFp(path, [&](FILE* fp) { return saveDirectTEVData(fp, bytes.data(), uint32_t(bytes.size()), r.name.c_str(), r.sub ? 1 : 0, r.type, update); });
}
// Saves into a memory buffer that holds the file's bytes, then writes what it holds back to the file.
template <auto Fn>
uint32_t viaBuffer(const char* path, const RecordSpec& r, uint32_t update) {
    return onBuffer(path, 512, [&](TevBufferHandle* b) { return saveSpec([&](auto... a) { return Fn(b, a...); }, r, update); });
}
// The file copied into a buffer sized for the save, saved into, and written back over the path.
uint32_t viaCopiedBuffer(const char* path, const RecordSpec& r, uint32_t update) {
    tev::Buffer handle(initTEVBuffer(getTEVBufferAllocSize(int64_t(readFile(path).size()), 2, 64, 64, 64)));
    const int64_t copied = onFp(path, [&](FILE* fp) { return uint32_t(copyFpToBuffer(fp, handle.get())); });
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
struct Env { FILE* fp; const char* path; const char* emptyData; const char* missing; };

const unsigned char kData[4] = {1, 2, 3, 4};
const unsigned char kSub[2] = {5, 6};
constexpr uint32_t kTooBig = 0xFFF00001u;

struct Refusal { const char* label; std::function<uint32_t(const Env&)> call; ErrorLines log; };

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
        {"NameLengthZero", [](const Env& e) { return saveTEVDataToFP(e.fp, "n", 0, nullptr, 0, kData, 4, 1, 0); }, {{kTag, "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"}}},
        {"UserDataEmptySub", [](const Env& e) { return saveTEVDataToFP(e.fp, "n", 1, kSub, 0, kData, 4, 0, 0); }, {{kTag, "type & sub wrong !!"}}},
        {"StreamTooBig", [](const Env& e) { return saveTEVDataToFP(e.fp, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, {{kTag, "Too big TEV data to add in the file"}}},
        {"StreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return saveTEVDataToStream(&unusable, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {{kTag, "Stream CheckError is false"}}},
        {"Undetectable", [](const Env&) { TevBufferHandle empty{nullptr, 0, 0, 0, 0}; return saveTEVDataToBuffer(&empty, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {{"TEVAPIs::getSignatureStream", "File Search Error"}, {kTag, "Signature detection fail!! mode : 0\n"}}},
        {"FileUnopenable", [](const Env& e) { return saveTEVDataToFile(e.missing, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {}},
        {"FileTooBig", [](const Env& e) { return saveTEVDataToFile(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, {{"TEVAPI::saveTEVDataToFileAddTag", "Too big TEV data to add in the file"}}},
        {"FastFileTooBig", [](const Env& e) { return saveFastTEVDataToFile(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, {{"TEVAPI", "Too big TEV data to add in the file"}}},
        {"FpNull", [](const Env&) { return saveTEVDataToFP(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {{"TEVEncoderAPIs::saveTEVDataToFP", "fp NULL !!"}}},
        {"FastFpType", [](const Env& e) { return saveFastTEVDataToFP(e.fp, "n", 1, kSub, 0, kData, 4, 0, 0); }, {{fastFp, "data_type null\n"}}},
        {"FdZero", [](const Env&) { return saveTEVDataToFd(0, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {{"TEVEncoderAPIs::saveTEVDataToFd", "fd is <= 0!!"}}},
        {"BufferNull", [](const Env&) { return saveTEVDataToBuffer(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {{"TEVEncoderAPIsBuffer::saveTEVDataToBuffer", "Buffer NULL !!"}}},
        {"FileDataEmpty", [](const Env& e) { return saveTEVFileDataToFile(e.path, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, {{"TEVAPI", "data null\n"}}},
        {"FileDataFpType", [](const Env& e) { return saveFastTEVNameToFP(e.fp, "n", 1, nullptr, 0, e.path, 0, 0); }, {{fileDataFp, "data_type fail\n"}}},
        {"FileDataFpMissing", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 1, nullptr, 0, e.missing, 1, 0); }, {{fileDataFp, "fopen fail"}}},
        {"FileDataFpEmpty", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, {{fileDataFp, "File Search Error 0\n"}}},
        {"FileDataAddTagEmpty", [](const Env& e) { return saveTEVDataFileToFileAddTag(e.path, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, {}},
        {"SyncTooBig", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0, 0); }, {{"TEVAPI", "Too big TEV data to add in the file"}}},
        {"SyncType", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, kData, 4, 0, 0, 0); }, {{"TEVAPI", "data_type == TEV_USER_DEFINED_DATA && ( data_sub_info == LUMET_TEV_NULL || data_sub_info_len <= 0 )"}}},
        {"DirectType", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 4, "n", 0, 0, 0); }, {{direct, "data_type == TEV_USER_DEFINED_DATA && ( !check_data_sub_info )"}}},
        {"HeaderType", [](const Env& e) { return saveTEVDataHeaderToFP(e.fp, "n", 1, nullptr, 0, 0); }, {{"TEVEncoderAPIs::saveTEVDataHeaderToStream", "data_type == TEV_USER_DEFINED_DATA && (data_sub_info == LUMET_TEV_NULL || data_sub_info_len <= 0)"}}},
        {"TailTooBig", [](const Env& e) { return saveTEVTailToFP(e.fp, kTooBig, 1, 0); }, {{"TEVEncoderAPIs::saveTEVTailToStream", "Too big TEV data to add in the file"}}},
        {"StreamNull", [](const Env&) { return saveTEVDataToStream(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {{kTag, "Stream NULL !!"}}},
        {"DirectFpNull", [](const Env&) { return saveDirectTEVData(nullptr, kData, 4, "n", 0, 1, 0); }, {{direct, "fp == LUMET_TEV_NULL"}}},
        {"DirectNameNull", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 4, nullptr, 0, 1, 0); }, {{direct, "TEVName == LUMET_TEV_NULL"}}},
        {"DirectNoBytes", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 0, "n", 0, 1, 0); }, {{direct, "data == LUMET_TEV_NULL || data_len <= 0"}}},
        {"FastFpNull", [](const Env&) { return saveFastTEVDataToFP(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, {{fastFp, "fp null\n"}}},
        {"FastFpNameNull", [](const Env& e) { return saveFastTEVDataToFP(e.fp, nullptr, 1, nullptr, 0, kData, 4, 1, 0); }, {{fastFp, "TEVName null\n"}}},
        {"FastFpDataNull", [](const Env& e) { return saveFastTEVDataToFP(e.fp, "n", 1, nullptr, 0, nullptr, 4, 1, 0); }, {{fastFp, "data is null\n"}}},
        {"FileDataFpNull", [](const Env& e) { return saveTEVFileDataToFP(nullptr, "n", 1, nullptr, 0, e.path, 1, 0); }, {{fileDataFp, "fp null\n"}}},
        {"FileDataFpNameEmpty", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 0, nullptr, 0, e.path, 1, 0); }, {{fileDataFp, "TEVName null or tev name length is 0. the length is larger than 1\n"}}},
        {"SyncPathNull", [](const Env&) { return saveTEVDataToFileSync(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0, 0); }, {{"TEVAPI", "filename == LUMET_TEV_NULL"}}},
        {"SyncNameNull", [](const Env& e) { return saveTEVDataToFileSync(e.path, nullptr, 1, nullptr, 0, kData, 4, 1, 0, 0); }, {{"TEVAPI", "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"}}},
        {"SyncDataNull", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, nullptr, 4, 1, 0, 0); }, {{"TEVAPI", "data == LUMET_TEV_NULL || data_len <= 0"}}},
        {"SyncUnopenable", [](const Env& e) { return saveTEVDataToFileSync(e.missing, "n", 1, nullptr, 0, kData, 4, 1, 0, 0); }, {{"TEVEncoderAPIs::saveTEVDataToFileSync", "Stream CheckError is false"}}},
        {"HeaderStreamNull", [](const Env&) { return saveTEVDataHeaderToStream(nullptr, "n", 1, nullptr, 0, 1); }, {{header, "Stream open error"}}},
        {"HeaderStreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return saveTEVDataHeaderToStream(&unusable, "n", 1, nullptr, 0, 1); }, {{header, "Stream CheckError is false"}}},
        {"HeaderNameNull", [](const Env& e) { return saveTEVDataHeaderToFP(e.fp, nullptr, 1, nullptr, 0, 1); }, {{header, "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"}}},
        {"HeaderFpNull", [](const Env&) { return saveTEVDataHeaderToFP(nullptr, "n", 1, nullptr, 0, 1); }, {{"TEVEncoderAPIs::saveTEVDataHeaderToFP", "fp open error"}}},
        {"TailStreamNull", [](const Env&) { return saveTEVTailToStream(nullptr, 9, 1, 0); }, {{tail, "Stream open error"}}},
        {"TailStreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return saveTEVTailToStream(&unusable, 9, 1, 0); }, {{tail, "Stream CheckError is false"}}},
        {"TailFpNull", [](const Env&) { return saveTEVTailToFP(nullptr, 9, 1, 0); }, {{"TEVEncoderAPIs::saveTEVTailToFP", "fp open error"}}},
        {"FirstTailStreamNull", [](const Env&) { return saveFirstTEVTailToStream(nullptr, 9, 1, 0); }, {{firstTail, "Stream open error"}}},
        {"FirstTailUnusable", [](const Env&) { return saveFirstTEVTailToFP(nullptr, 9, 1, 0); }, {{firstTail, "Stream CheckError is false"}}},
        {"FirstStreamNull", [](const Env&) { return AddTEVDataInFirstTimeStream(nullptr, "n", 1, 1, nullptr, 0, kData, 4); }, {{firstStream, "Stream open error"}}},
        {"FirstStreamUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return AddTEVDataInFirstTimeStream(&unusable, "n", 1, 1, nullptr, 0, kData, 4); }, {{firstStream, "file open error"}}},
        {"FirstStreamDataNull", [](const Env& e) { TevStreamFile s(e.fp); return AddTEVDataInFirstTimeStream(&s, "n", 1, 1, nullptr, 0, nullptr, 4); }, {{firstStream, "data == 0 || data_size <= 0"}}},
        {"FirstFpNull", [](const Env&) { return AddTEVDataInFirstTimeFP(nullptr, "n", 1, 1, nullptr, 0, kData, 4); }, {{first, "file open error"}}},
        {"FirstBufferNull", [](const Env&) { return AddTEVDataInFirstTimeBuffer(nullptr, "n", 1, 1, nullptr, 0, kData, 4); }, {{first, "file open error"}}},
        {"FirstPathUserData", [](const Env& e) { return AddTEVDataInFirstTime(e.path, "n", 1, 0, kSub, 0, kData, 4); }, {{first, "if Data type is UserData then must use DataSubInfo"}}},
        {"FirstPathNameNull", [](const Env& e) { return AddTEVDataInFirstTime(e.path, nullptr, 1, 1, nullptr, 0, kData, 4); }, {{first, "name null"}}},
        {"FirstPathDataNull", [](const Env& e) { return AddTEVDataInFirstTime(e.path, "n", 1, 1, nullptr, 0, kData, 0); }, {{first, "data null"}}},
        {"FirstPathTooBig", [](const Env& e) { return AddTEVDataInFirstTime(e.path, "n", 1, 1, nullptr, 0, kData, 0xFFFFFFF7u); }, {{first, "Too big TEV data to add in the file"}}},
        {"FirstPathUnopenable", [](const Env& e) { return AddTEVDataInFirstTime(e.missing, "n", 1, 1, nullptr, 0, kData, 4); }, {{first, "file open error"}}},
        {"FirstDirectStreamNull", [](const Env&) { return AddDirectTEVDataInFirstTimeStream(nullptr, 1, 0, kData, 4); }, {{firstDirect, "src_tev_info->Stream is null"}}},
        {"FirstDirectUnusable", [](const Env&) { TevStreamFile unusable(nullptr); return AddDirectTEVDataInFirstTimeStream(&unusable, 1, 0, kData, 4); }, {{firstDirect, "src_tev_info->Stream CheckError is false"}}},
        {"FirstDirectNoBytes", [](const Env& e) { return AddDirectTEVDataInFirstTimeFP(e.fp, 1, 0, nullptr, 4); }, {{firstDirect, "data == LUMET_TEV_NULL || data_size <= 0"}}},
        {"CopyIntoNoBuffer", [](const Env& e) { return uint32_t(copyFpToBuffer(e.fp, nullptr)); }, {{"TEVEncoderAPIsBuffer::copyFpToBuffer", "Buffer NULL !!"}}},
        {"CopyIntoASmallerBuffer", [](const Env& e) { tev::Buffer small(initTEVBuffer(63)); return uint32_t(copyFpToBuffer(e.fp, small.get()) + getTEVWriteSize(small.get())); }, {{"TEVEncoderAPIsBuffer::copyFpToBuffer", "ret != ReadSize !!"}}},
    };
}

class SaveTest : public LogCaptureTest {};

TEST_F(SaveTest, EachEntryPointRefusesWithItsOwnMessageAndLeavesTheTargetAlone) {
    TempFile emptyData(Bytes{}, "empty.bin");
    std::vector<FileEdit> cases;
    for (const Refusal& r : refusals()) {
        cases.push_back({r.label, fakeJpeg(64), [&emptyData, r](const char* p) {
                             const std::string missing = std::string(p) + ".missing/none";
                             return onFp(p, [&](FILE* fp) { return r.call(Env{fp, p, emptyData.c_str(), missing.c_str()}); });
                         }, 0, {}, r.log});
    }
    runFileEdits(cases);
}

// --- "FileData" forms: the record's data is a whole file.
TEST_F(SaveTest, FileDataFormsSaveTheWholeDataFileAndRefuseOneOfFFF00001Bytes) {
    const struct { const char* label; std::function<uint32_t(const char*, FILE*, const char*)> save; const char* tooBigTag; } forms[] = {
        {"saveTEVFileDataToFile", [](const char* t, FILE*, const char* d) { return saveTEVFileDataToFile(t, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI"},
        {"saveFastTEVDataFileToFile", [](const char* t, FILE*, const char* d) { return saveFastTEVDataFileToFile(t, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI"},
        {"saveTEVDataFileToFileAddTag", [](const char* t, FILE*, const char* d) { return saveTEVDataFileToFileAddTag(t, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI::saveTEVDataFileToFileAddTag"},
        {"saveTEVFileDataToFP", [](const char*, FILE* f, const char* d) { return saveTEVFileDataToFP(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVEncoderAPIs::saveTEVFileDataToFP"},
        {"saveFastTEVNameToFP", [](const char*, FILE* f, const char* d) { return saveFastTEVNameToFP(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVEncoderAPIs::saveTEVFileDataToFP"},
        {"saveTEVDataFileToFPAddTag", [](const char*, FILE* f, const char* d) { return saveTEVDataFileToFPAddTag(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI::saveTEVDataFileToFPAddTag"},
        {"saveTEVDataFileToFPToMP4", [](const char*, FILE* f, const char* d) { return saveTEVDataFileToFPToMP4(f, "beta", 4, kSub, 2, d, 7, 0); }, "TEVAPI"},
    };
    const RecordSpec expected{7, "beta", Bytes(kSub, kSub + 2), Bytes(9000, 0x3C)};
    TempFile data(expected.data, "data.bin");
    TempFile huge(Bytes{}, "huge.bin");
    ASSERT_EQ(truncate(huge.c_str(), 0xFFF00001LL), 0);  // sparse: nothing is stored
    std::vector<FileEdit> cases;
    for (const auto& form : forms) {
        const auto save = [&form](const TempFile& d) {
            return [&form, &d](const char* p) { return onFp(p, [&](FILE* fp) { return form.save(p, fp, d.c_str()); }); };
        };
        cases.push_back({form.label, fakeJpeg(64), save(huge), 0, {}, {{form.tooBigTag, "Too big TEV data to add in the file"}}});
        cases.push_back({form.label, fakeJpeg(64), save(data), 1, buildContainer(fakeJpeg(64), {expected})});
    }
    runFileEdits(cases);
}

// --- The central save and the pieces around it, each on its own file:
// result, every error line and the whole file afterwards.
TEST_F(SaveTest, EachSaveGivesItsFileResultAndLog) {
    const Bytes jpeg = fakeJpeg(64), mp4 = fakeMp4(200);
    const auto save = [](const RecordSpec& r, uint32_t update) { return [r, update](const char* p) { return viaPath<saveTEVDataToFile>(p, r, update); }; };
    // A container whose first record holds the sound, followed by a Voxa block.
    const RecordSpec echo = record("EchoFrame_000", 50, 0x77, 256);
    const ContainerOptions sound{107, false, true, 100 + 8 + 13, 100 + 8 + 13 + 50};
    const Bytes voxaSaved = buildContainer(fakeJpeg(100), {echo, kAlpha}, sound);
    // Eight 10-byte records behind an 8-byte MP4 make the smallest file whose
    // directory the parser accepts (it wants 24 bytes per entry in the file);
    // a ninth leaves the file too small for its own directory, so the parse
    // after the append fails and the box keeps its old size.
    std::vector<RecordSpec> nine;
    for (char name = 'a'; name <= 'i'; ++name) nine.push_back(record(std::string(1, name), 1, uint8_t(name)));
    const Bytes eightBoxed = buildContainer(fakeMp4(8), {nine.begin(), nine.end() - 1}, boxed());
    Bytes nineStaleBox = buildContainer(fakeMp4(8), nine, boxed());
    std::copy_n(eightBoxed.begin() + 8, 4, nineStaleBox.begin() + 8);
    runFileEdits({
        // 0xFFF00000 passes the size check ("FileTooBig" refuses one more) and only the capacity stops it.
        {"DataLengthFFF00000", buildContainer(jpeg, {kAlpha}), [&](const char* p) { return saveTEVDataToFile(p, "big", 3, nullptr, 0, kData, 0xFFF00000u, 1, 0); }, 0, {},
         {{"checkTEVInfoForSaving", "There is no storage for saving TEV data in the source file, delete a tev data"}, {kTag, "SIGNATURE_TEV checkTEVInfoForSaving fail!!"}}},
        {"DamagedContainerIsNeverWrittenOver", concat(jpeg, textBytes("junkTEVT")), save(kAlpha, 1), 0, {}, {{"TEV::ParseTEV", "file has no sound OFFS"}, {kTag, "SIGNATURE_TEV TEVdata NULL!!"}}},
        {"FileSyncGivesMp4MediaNoBox", mp4, [](const char* p) { return viaSync(p, kAlpha, 0); }, 1, buildContainer(mp4, {kAlpha})},
        // MP4 media: the container lives in a "tevd" box reaching to the end.
        {"Mp4PlainMedia", mp4, save(kAlpha, 0), 1, buildContainer(mp4, {kAlpha}, boxed())},
        {"Mp4BoxedAppend", buildContainer(mp4, {kAlpha}, boxed()), save(kBeta, 0), 1, buildContainer(mp4, {kAlpha, kBeta}, boxed())},
        {"Mp4UnboxedGetsWrapped", buildContainer(mp4, {kAlpha}), save(kBeta, 0), 1, buildContainer(mp4, {kAlpha, kBeta}, boxed())},
        {"Mp4ReplaceOnlyRecord", buildContainer(mp4, {kAlpha}, boxed()), save(kNewAlpha, 1), 1, buildContainer(mp4, {kNewAlpha}, boxed())},
        {"Mp4ReplaceFirstOfTwo", buildContainer(mp4, {kAlpha, kGamma}, boxed()), save(kNewAlpha, 1), 1, buildContainer(mp4, {kGamma, kNewAlpha}, boxed())},
        {"Mp4BoxSizedOnlyWhenTheNewDirectoryParses", eightBoxed, save(nine.back(), 0), 1, nineStaleBox,
         {{"TEV::getTEVList", "header is bigger then file -> that's not true!!"}, {"TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getTEVList err."},
          {kTag, "updateMP4Tag TEVdata is NULL."}}},
        {"NewNameKeepsTheVoxaBlockBehindTheNewDirectory", buildContainer(fakeJpeg(100), {echo}, sound), save(kAlpha, 0), 1, voxaSaved},
        {"ExistingNameBesideAVoxaBlockIsRefused", voxaSaved, save(kNewAlpha, 0), 0, {}, {{kTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!"}}},
        // The two-step save: header, the caller's data, tail; on a container both steps succeed without writing.
        {"TwoStepOnPlainMedia", jpeg, [](const char* p) {
             return onFp(p, [](FILE* fp) {
                 const uint32_t header = saveTEVDataHeaderToFP(fp, "beta", 4, kBeta.sub->data(), 3, kBeta.type);
                 fseek(fp, 0, SEEK_END);
                 fwrite(kBeta.data.data(), 1, kBeta.data.size(), fp);
                 fflush(fp);
                 return header == recordLength(kBeta) - kBeta.data.size() ? saveTEVTailToFP(fp, recordLength(kBeta), kBeta.type, 1) : 100;
             });
         }, 1, buildContainer(jpeg, {kBeta})},
        {"TwoStepOnAContainer", buildContainer(jpeg, {kBeta}), [](const char* p) { return onFp(p, [](FILE* fp) { return saveTEVDataHeaderToFP(fp, "gamma", 5, nullptr, 0, 7) + saveTEVTailToFP(fp, 30, 7, 0); }); }, 2, {}},
        // A record written by other means gets its one-entry directory from the first-time tail; formatted bytes from the direct first-time add.
        {"FirstTimeTail", concat(jpeg, encodeRecord(kBeta)), [](const char* p) { return onFp(p, [](FILE* fp) { return saveFirstTEVTailToFP(fp, recordLength(kBeta), 7, 1); }); }, 1, buildContainer(jpeg, {kBeta})},
        {"DirectFirstTime", jpeg, [](const char* p) {
             const Bytes bytes = encodeRecord(kBeta);
             return onFp(p, [&](FILE* fp) { return AddDirectTEVDataInFirstTimeFP(fp, 7, 1, bytes.data(), uint32_t(bytes.size())); });
         }, 1, buildContainer(jpeg, {kBeta})},
    });
}

// --- A memory buffer never grows: nothing is written past its capacity, and
// writing it out opens the path ("w+b") before the handle is looked at, so a
// handle with nothing to write still empties the file.
TEST_F(SaveTest, BufferCapacityIsAWallAndWritingOutOpensThePathFirst) {
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
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "WriteHandle : write size error \nfp null!!\nWriteHandle : buffer error \n");
    fclose(fp);
    EXPECT_EQ(out.read(), Bytes{});
}

}  // namespace
