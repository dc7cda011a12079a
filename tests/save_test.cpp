// The save family: the same behaviour over every entry point and medium,
// each entry point's own refusals, the "FileData" forms, the two-step save,
// and the central save's size limits, MP4 box and Voxa cases, checked byte
// for byte against containers built independently of the library's writers.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"

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

struct SaveMedium {
    const char* label;
    Save save;
    uint32_t existingNameResult;  // same name, no update bit: 1 only for a memory buffer
};
void PrintTo(const SaveMedium& m, std::ostream* os) { *os << m.label; }

class SaveMediumTest : public LogCaptureTest, public ::testing::WithParamInterface<SaveMedium> {};

TEST_P(SaveMediumTest, AddsAppendsReplacesAndKeepsExistingNames) {
    TempFile file(fakeJpeg(80));
    const auto save = [&](const RecordSpec& r, uint32_t update) { return GetParam().save(file.c_str(), r, update); };
    EXPECT_EQ(save(kAlpha, 0), 1u) << dumpLog();
    EXPECT_EQ(save(kBeta, 0), 1u) << dumpLog();
    const Bytes before = buildContainer(fakeJpeg(80), {kAlpha, kBeta});
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(save(kNewAlpha, 2), GetParam().existingNameResult);  // only bit 0 replaces
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(save(kNewAlpha, 1), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(fakeJpeg(80), {kBeta, kNewAlpha}));
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
                      SaveMedium{"BufferAddTag", viaBuffer<saveTEVDataToBufferAddTag>, 1}),
    [](const ::testing::TestParamInfo<SaveMedium>& info) { return std::string(info.param.label); });

// --- Each entry point's own refusals. The target is a plain JPEG that must stay as it is.
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
