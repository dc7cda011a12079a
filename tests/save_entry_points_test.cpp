// The save entry points: the same behaviour over every medium, each entry
// point's own refusals, the "FileData" forms, the file-sync, direct and
// two-step saves.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/saved_records.h"
#include "tev/tev.h"

using namespace tevtest;

namespace {

const RecordSpec kAlpha{1, "alpha", std::nullopt, textBytes("first payload")};
const RecordSpec kBeta{7, "beta", textBytes("sub"), textBytes("second")};
const RecordSpec kNewAlpha{9, "alpha", textBytes("s2"), textBytes("replacement")};
constexpr uint32_t kReplace = 1;

using PathSave = uint32_t (*)(const char*, const char*, uint32_t, const unsigned char*, uint32_t,
                              const unsigned char*, uint32_t, uint32_t, uint32_t);
using FpSave = uint32_t (*)(FILE*, const char*, uint32_t, const unsigned char*, uint32_t,
                            const unsigned char*, uint32_t, uint32_t, uint32_t);
using BufferSave = uint32_t (*)(TevBufferHandle*, const char*, uint32_t, const unsigned char*, uint32_t,
                                const unsigned char*, uint32_t, uint32_t, uint32_t);

// Saves a record into a target holding *content; *content becomes what the target holds after.
using MediumSave = std::function<uint32_t(Bytes* content, const RecordSpec& r, uint32_t update)>;

struct SaveMedium {
    const char* label;
    MediumSave save;
    uint32_t existingNameResult;  // same name, no update bit
};
void PrintTo(const SaveMedium& m, std::ostream* os) { *os << m.label; }

SaveMedium onPath(const char* label, PathSave fn) {
    return {label, [fn](Bytes* content, const RecordSpec& r, uint32_t update) {
                TempFile file(*content);
                const uint32_t result = saveSpec([&](auto... a) { return fn(file.c_str(), a...); }, r, update);
                *content = file.read();
                return result;
            }, 0};
}

SaveMedium onFp(const char* label, FpSave fn) {
    return {label, [fn](Bytes* content, const RecordSpec& r, uint32_t update) {
                TempFile file(*content);
                FILE* fp = fopen(file.c_str(), "r+b");
                const uint32_t result = saveSpec([&](auto... a) { return fn(fp, a...); }, r, update);
                fclose(fp);
                *content = file.read();
                return result;
            }, 0};
}

SaveMedium onFd() {
    return {"Fd", [](Bytes* content, const RecordSpec& r, uint32_t update) {
                TempFile file(*content);
                const int fd = open(file.c_str(), O_RDWR);
                const uint32_t result = saveSpec([&](auto... a) { return saveTEVDataToFd(fd, a...); }, r, update);
                close(fd);
                *content = file.read();
                return result;
            }, 0};
}

SaveMedium onBuffer(const char* label, BufferSave fn) {
    return {label, [fn](Bytes* content, const RecordSpec& r, uint32_t update) {
                Bytes memory(content->size() + 512);
                std::copy(content->begin(), content->end(), memory.begin());
                TevBufferHandle* handle =
                    initTEVUsedBuffer(memory.data(), int64_t(memory.size()), int64_t(content->size()));
                const uint32_t result = saveSpec([&](auto... a) { return fn(handle, a...); }, r, update);
                content->assign(memory.begin(), memory.begin() + getTEVWriteSize(handle));
                destroyTEVBuffer(handle);
                return result;
            }, 1};
}

class SaveMediumTest : public LogCaptureTest, public ::testing::WithParamInterface<SaveMedium> {};

TEST_P(SaveMediumTest, AddsAppendsReplacesAndKeepsExistingNames) {
    const MediumSave& save = GetParam().save;
    Bytes content = fakeJpeg(80);
    EXPECT_EQ(save(&content, kAlpha, 0), 1u) << dumpLog();
    EXPECT_EQ(save(&content, kBeta, 0), 1u) << dumpLog();
    EXPECT_EQ(content, buildContainer(fakeJpeg(80), {kAlpha, kBeta}));
    const Bytes before = content;
    EXPECT_EQ(save(&content, kNewAlpha, 0), GetParam().existingNameResult);
    EXPECT_EQ(content, before);
    EXPECT_EQ(save(&content, kNewAlpha, kReplace), 1u) << dumpLog();
    EXPECT_EQ(content, buildContainer(fakeJpeg(80), {kBeta, kNewAlpha}));
}

INSTANTIATE_TEST_SUITE_P(
    Media, SaveMediumTest,
    ::testing::Values(onPath("File", saveTEVDataToFile), onPath("FileAddTag", saveTEVDataToFileAddTag),
                      onPath("FastFile", saveFastTEVDataToFile), onFp("Fp", saveTEVDataToFP),
                      onFp("FastFp", saveFastTEVDataToFP), onFp("FpAddTag", saveTEVDataToFPAddTag),
                      onFp("FpToMp4", saveTEVDataToFPToMP4), onFd(),
                      onBuffer("Buffer", saveTEVDataToBuffer), onBuffer("BufferAddTag", saveTEVDataToBufferAddTag)),
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
    const char* tag;   // null: refused without a log line
    const char* text;
};
void PrintTo(const Refusal& r, std::ostream* os) { *os << r.label; }

std::vector<Refusal> refusals() {
    const char* fastFp = "TEVEncoderAPIs::saveFastTEVDataToFP";
    const char* fileDataFp = "TEVEncoderAPIs::saveTEVFileDataToFP";
    const char* sync = "TEVAPI";
    const char* direct = "TEVEncoderAPIs::saveDirectTEVData";
    return {
        {"FileNullPath", [](const Env&) { return saveTEVDataToFile(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, nullptr, nullptr},
        {"FileUnopenable", [](const Env& e) { return saveTEVDataToFile(e.missing, "n", 1, nullptr, 0, kData, 4, 1, 0); }, nullptr, nullptr},
        {"FileTooBig", [](const Env& e) { return saveTEVDataToFile(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, "TEVAPI::saveTEVDataToFileAddTag", "Too big TEV data to add in the file"},
        {"FastFileTooBig", [](const Env& e) { return saveFastTEVDataToFile(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0); }, "TEVAPI", "Too big TEV data to add in the file"},
        {"FpNull", [](const Env&) { return saveTEVDataToFP(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, "TEVEncoderAPIs::saveTEVDataToFP", "fp NULL !!"},
        {"FastFpNull", [](const Env&) { return saveFastTEVDataToFP(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, fastFp, "fp null\n"},
        {"FastFpName", [](const Env& e) { return saveFastTEVDataToFP(e.fp, nullptr, 1, nullptr, 0, kData, 4, 1, 0); }, fastFp, "TEVName null\n"},
        {"FastFpData", [](const Env& e) { return saveFastTEVDataToFP(e.fp, "n", 1, nullptr, 0, nullptr, 4, 1, 0); }, fastFp, "data is null\n"},
        {"FastFpType", [](const Env& e) { return saveFastTEVDataToFP(e.fp, "n", 1, kSub, 0, kData, 4, 0, 0); }, fastFp, "data_type null\n"},
        {"FdZero", [](const Env&) { return saveTEVDataToFd(0, "n", 1, nullptr, 0, kData, 4, 1, 0); }, "TEVEncoderAPIs::saveTEVDataToFd", "fd is <= 0!!"},
        {"BufferNull", [](const Env&) { return saveTEVDataToBuffer(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0); }, "TEVEncoderAPIsBuffer::saveTEVDataToBuffer", "Buffer NULL !!"},
        {"FileDataEmpty", [](const Env& e) { return saveTEVFileDataToFile(e.path, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, "TEVAPI", "data null\n"},
        {"FileDataFpNull", [](const Env& e) { return saveTEVFileDataToFP(nullptr, "n", 1, nullptr, 0, e.path, 1, 0); }, fileDataFp, "fp null\n"},
        {"FileDataFpName", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 0, nullptr, 0, e.path, 1, 0); }, fileDataFp, "TEVName null or tev name length is 0. the length is larger than 1\n"},
        {"FileDataFpType", [](const Env& e) { return saveFastTEVNameToFP(e.fp, "n", 1, nullptr, 0, e.path, 0, 0); }, fileDataFp, "data_type fail\n"},
        {"FileDataFpMissing", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 1, nullptr, 0, e.missing, 1, 0); }, fileDataFp, "fopen fail"},
        {"FileDataFpEmpty", [](const Env& e) { return saveTEVFileDataToFP(e.fp, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, fileDataFp, "File Search Error 0\n"},
        {"FileDataAddTagEmpty", [](const Env& e) { return saveTEVDataFileToFileAddTag(e.path, "n", 1, nullptr, 0, e.emptyData, 1, 0); }, nullptr, nullptr},
        {"SyncTooBig", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, kData, kTooBig, 1, 0, 0); }, sync, "Too big TEV data to add in the file"},
        {"SyncPath", [](const Env&) { return saveTEVDataToFileSync(nullptr, "n", 1, nullptr, 0, kData, 4, 1, 0, 0); }, sync, "filename == LUMET_TEV_NULL"},
        {"SyncType", [](const Env& e) { return saveTEVDataToFileSync(e.path, "n", 1, nullptr, 0, kData, 4, 0, 0, 0); }, sync, "data_type == TEV_USER_DEFINED_DATA && ( data_sub_info == LUMET_TEV_NULL || data_sub_info_len <= 0 )"},
        {"SyncUnopenable", [](const Env& e) { return saveTEVDataToFileSync(e.missing, "n", 1, nullptr, 0, kData, 4, 1, 0, 0); }, "TEVEncoderAPIs::saveTEVDataToFileSync", "Stream CheckError is false"},
        {"DirectFp", [](const Env&) { return saveDirectTEVData(nullptr, kData, 4, "n", 0, 1, 0); }, direct, "fp == LUMET_TEV_NULL"},
        {"DirectName", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 4, nullptr, 0, 1, 0); }, direct, "TEVName == LUMET_TEV_NULL"},
        {"DirectType", [](const Env& e) { return saveDirectTEVData(e.fp, kData, 4, "n", 0, 0, 0); }, direct, "data_type == TEV_USER_DEFINED_DATA && ( !check_data_sub_info )"},
        {"HeaderType", [](const Env& e) { return saveTEVDataHeaderToFP(e.fp, "n", 1, nullptr, 0, 0); }, "TEVEncoderAPIs::saveTEVDataHeaderToStream", "data_type == TEV_USER_DEFINED_DATA && (data_sub_info == LUMET_TEV_NULL || data_sub_info_len <= 0)"},
        {"HeaderFpNull", [](const Env&) { return saveTEVDataHeaderToFP(nullptr, "n", 1, nullptr, 0, 1); }, "TEVEncoderAPIs::saveTEVDataHeaderToFP", "fp open error"},
        {"TailTooBig", [](const Env& e) { return saveTEVTailToFP(e.fp, kTooBig, 1, 0); }, "TEVEncoderAPIs::saveTEVTailToStream", "Too big TEV data to add in the file"},
        {"TailFpNull", [](const Env&) { return saveTEVTailToFP(nullptr, 20, 1, 0); }, "TEVEncoderAPIs::saveTEVTailToFP", "fp open error"},
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
using FileDataSave = std::function<uint32_t(const char* target, FILE* fp, const char* data)>;

std::vector<std::pair<const char*, FileDataSave>> fileDataForms() {
    return {
        {"saveTEVFileDataToFile", [](const char* t, FILE*, const char* d) { return saveTEVFileDataToFile(t, "beta", 4, kSub, 2, d, 7, 0); }},
        {"saveFastTEVDataFileToFile", [](const char* t, FILE*, const char* d) { return saveFastTEVDataFileToFile(t, "beta", 4, kSub, 2, d, 7, 0); }},
        {"saveTEVDataFileToFileAddTag", [](const char* t, FILE*, const char* d) { return saveTEVDataFileToFileAddTag(t, "beta", 4, kSub, 2, d, 7, 0); }},
        {"saveTEVFileDataToFP", [](const char*, FILE* f, const char* d) { return saveTEVFileDataToFP(f, "beta", 4, kSub, 2, d, 7, 0); }},
        {"saveFastTEVNameToFP", [](const char*, FILE* f, const char* d) { return saveFastTEVNameToFP(f, "beta", 4, kSub, 2, d, 7, 0); }},
        {"saveTEVDataFileToFPAddTag", [](const char*, FILE* f, const char* d) { return saveTEVDataFileToFPAddTag(f, "beta", 4, kSub, 2, d, 7, 0); }},
        {"saveTEVDataFileToFPToMP4", [](const char*, FILE* f, const char* d) { return saveTEVDataFileToFPToMP4(f, "beta", 4, kSub, 2, d, 7, 0); }},
    };
}

class SaveFileDataTest : public LogCaptureTest {};

TEST_F(SaveFileDataTest, SavesTheWholeDataFileAsTheRecord) {
    const RecordSpec expected{7, "beta", Bytes(kSub, kSub + 2), Bytes(9000, 0x3C)};
    TempFile data(expected.data, "data.bin");
    for (const auto& [label, save] : fileDataForms()) {
        SCOPED_TRACE(label);
        TempFile target(fakeJpeg(64));
        FILE* fp = fopen(target.c_str(), "r+b");
        EXPECT_EQ(save(target.c_str(), fp, data.c_str()), 1u) << dumpLog();
        fclose(fp);
        EXPECT_EQ(target.read(), buildContainer(fakeJpeg(64), {expected}));
    }
}

TEST_F(SaveFileDataTest, DataFileOfFFF00001BytesIsRefusedBeforeReading) {
    TempFile data(Bytes{}, "huge.bin");
    ASSERT_EQ(truncate(data.c_str(), 0xFFF00001LL), 0);  // sparse: nothing is stored
    const std::vector<std::pair<const char*, const char*>> tags = {
        {"saveTEVFileDataToFile", "TEVAPI"}, {"saveFastTEVDataFileToFile", "TEVAPI"},
        {"saveTEVDataFileToFileAddTag", "TEVAPI::saveTEVDataFileToFileAddTag"},
        {"saveTEVFileDataToFP", "TEVEncoderAPIs::saveTEVFileDataToFP"},
        {"saveFastTEVNameToFP", "TEVEncoderAPIs::saveTEVFileDataToFP"},
        {"saveTEVDataFileToFPAddTag", "TEVAPI::saveTEVDataFileToFPAddTag"},
        {"saveTEVDataFileToFPToMP4", "TEVAPI"}};
    const auto forms = fileDataForms();
    for (size_t i = 0; i < forms.size(); ++i) {
        SCOPED_TRACE(forms[i].first);
        clearLog();
        TempFile target(fakeJpeg(64));
        FILE* fp = fopen(target.c_str(), "r+b");
        EXPECT_EQ(forms[i].second(target.c_str(), fp, data.c_str()), 0u);
        fclose(fp);
        EXPECT_TRUE(loggedError(tags[i].second, "Too big TEV data to add in the file")) << dumpLog();
        EXPECT_EQ(target.read(), fakeJpeg(64));
    }
}

// --- The file-sync save: no MP4 box work, a trailing argument that is not used.
class SaveSyncTest : public LogCaptureTest {
protected:
    uint32_t sync(TempFile& file, const RecordSpec& r, uint32_t update, unsigned char ignored) {
        return saveSpec([&](auto... a) { return saveTEVDataToFileSync(file.c_str(), a..., ignored); }, r, update);
    }
};

TEST_F(SaveSyncTest, TrailingArgumentChangesNothing) {
    for (unsigned char ignored : {0x00, 0x01, 0xFF}) {
        SCOPED_TRACE(int(ignored));
        TempFile file(fakeJpeg(64));
        EXPECT_EQ(sync(file, kAlpha, 0, ignored), 1u) << dumpLog();
        EXPECT_EQ(sync(file, kNewAlpha, 0, ignored), 0u);
        EXPECT_EQ(file.read(), buildContainer(fakeJpeg(64), {kAlpha}));
        EXPECT_EQ(sync(file, kBeta, 0, ignored), 1u);
        EXPECT_EQ(sync(file, kNewAlpha, kReplace, ignored), 1u);
        EXPECT_EQ(file.read(), buildContainer(fakeJpeg(64), {kBeta, kNewAlpha}));
    }
}

TEST_F(SaveSyncTest, Mp4MediaGetsNoBox) {
    TempFile mp4(fakeMp4(100));
    EXPECT_EQ(sync(mp4, kAlpha, 0, 0), 1u);
    EXPECT_EQ(mp4.read(), buildContainer(fakeMp4(100), {kAlpha}));
}

// --- The direct save: the caller hands over a formatted record.
class SaveDirectTest : public LogCaptureTest {
protected:
    uint32_t direct(TempFile& file, const RecordSpec& r, uint32_t update) {
        const Bytes record = encodeRecord(r);
        FILE* fp = fopen(file.c_str(), "r+b");
        const uint32_t result = saveDirectTEVData(fp, record.data(), uint32_t(record.size()), r.name.c_str(),
                                                  r.sub ? 1 : 0, r.type, update);
        fclose(fp);
        return result;
    }
};

TEST_F(SaveDirectTest, WritesTheRecordAsGivenAndFollowsTheNameRules) {
    TempFile file(fakeJpeg(64));
    EXPECT_EQ(direct(file, kAlpha, 0), 1u) << dumpLog();
    EXPECT_EQ(direct(file, kBeta, 0), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(fakeJpeg(64), {kAlpha, kBeta}));
    EXPECT_EQ(direct(file, kNewAlpha, 0), 0u);
    EXPECT_EQ(file.read(), buildContainer(fakeJpeg(64), {kAlpha, kBeta}));
    EXPECT_EQ(direct(file, kNewAlpha, kReplace), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(fakeJpeg(64), {kBeta, kNewAlpha}));
}

TEST_F(SaveDirectTest, VoxaBlockIsRewrittenBehindEveryNewDirectory) {
    const RecordSpec echo{256, "EchoFrame_000", std::nullopt, Bytes(50, 0x77)};
    const uint32_t soundStart = 64 + 8 + uint32_t(echo.name.size());  // the first record's data
    ContainerOptions withVoxa;
    withVoxa.voxaTrailer = true;
    withVoxa.voxaStart = soundStart;
    withVoxa.voxaEnd = soundStart + uint32_t(echo.data.size());
    TempFile file(buildContainer(fakeJpeg(64), {echo}, withVoxa));
    const Bytes block = voxaBlock(107, withVoxa.voxaStart, withVoxa.voxaEnd);
    EXPECT_EQ(direct(file, kAlpha, 0), 1u) << dumpLog();
    Bytes expected = buildContainer(fakeJpeg(64), {echo, kAlpha});
    expected.insert(expected.end(), block.begin(), block.end());
    EXPECT_EQ(file.read(), expected);
    EXPECT_EQ(direct(file, kNewAlpha, kReplace), 1u) << dumpLog();
    expected = buildContainer(fakeJpeg(64), {echo, kNewAlpha});
    expected.insert(expected.end(), block.begin(), block.end());
    EXPECT_EQ(file.read(), expected);
}

// --- The two-step save: header, the caller's data, tail.
class SaveTwoStepTest : public LogCaptureTest {};

TEST_F(SaveTwoStepTest, HeaderDataAndTailMakeAValidContainer) {
    TempFile file(fakeJpeg(64));
    FILE* fp = fopen(file.c_str(), "r+b");
    const uint32_t headerLength = saveTEVDataHeaderToFP(fp, "beta", 4, kBeta.sub->data(), 3, kBeta.type);
    EXPECT_EQ(headerLength, recordLength(kBeta) - kBeta.data.size());
    ASSERT_GE(lseek(fileno(fp), 0, SEEK_END), 0);
    ASSERT_EQ(write(fileno(fp), kBeta.data.data(), kBeta.data.size()), ssize_t(kBeta.data.size()));
    EXPECT_EQ(saveTEVTailToFP(fp, recordLength(kBeta), kBeta.type, 1), 1u) << dumpLog();
    fclose(fp);
    EXPECT_EQ(file.read(), buildContainer(fakeJpeg(64), {kBeta}));
    EXPECT_EQ(describe(readRecords(file.path())), std::vector<std::string>{"beta=second"});
}

TEST_F(SaveTwoStepTest, ExistingContainerIsLeftAlone) {
    const Bytes before = buildContainer(fakeJpeg(64), {kAlpha});
    TempFile file(before);
    FILE* fp = fopen(file.c_str(), "r+b");
    EXPECT_EQ(saveTEVDataHeaderToFP(fp, "beta", 4, nullptr, 0, 7), 1u);
    EXPECT_EQ(saveTEVTailToFP(fp, 30, 7, 0), 1u);
    fclose(fp);
    EXPECT_EQ(file.read(), before);
}

}  // namespace
