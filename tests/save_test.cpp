// The central save: first record, append, same-name rules, size limits, the
// "tevd" box of MP4 media and the Voxa cases, checked byte for byte against
// containers built independently of the library's writers.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/saved_records.h"
#include "tev/tev.h"

using namespace tevtest;

namespace {

const RecordSpec kAlpha{1, "alpha", std::nullopt, textBytes("first payload")};
const RecordSpec kBeta{7, "beta", textBytes("sub"), textBytes("second")};
const RecordSpec kGamma{300, "gamma", std::nullopt, Bytes(40, 0xC3)};
const RecordSpec kNewAlpha{9, "alpha", textBytes("s2"), textBytes("replacement")};

constexpr uint32_t kReplace = 1;
constexpr const char* kTag = "TEVEncoderAPIs::saveTEVDataToStream";

class SaveTest : public LogCaptureTest {
protected:
    // Saves `r` through the path entry point into a file holding `content`.
    uint32_t saveIntoFile(const Bytes& content, const RecordSpec& r, uint32_t update, Bytes* after) {
        TempFile file(content);
        const uint32_t result = saveSpec(
            [&](auto... args) { return saveTEVDataToFile(file.c_str(), args...); }, r, update);
        *after = file.read();
        return result;
    }

    // Saves `r` into a memory buffer holding `content` with room to spare.
    uint32_t saveIntoBuffer(const Bytes& content, const RecordSpec& r, uint32_t update, Bytes* after) {
        Bytes memory(content.size() + 1024);
        std::copy(content.begin(), content.end(), memory.begin());
        TevBufferHandle* handle = initTEVUsedBuffer(memory.data(), int64_t(memory.size()), int64_t(content.size()));
        const uint32_t result = saveSpec(
            [&](auto... args) { return saveTEVDataToBuffer(handle, args...); }, r, update);
        after->assign(memory.begin(), memory.begin() + getTEVWriteSize(handle));
        destroyTEVBuffer(handle);
        return result;
    }
};

TEST_F(SaveTest, ExistingNameWithoutUpdateBitWritesNothing) {
    const Bytes before = buildContainer(fakeJpeg(64), {kAlpha, kBeta});
    Bytes after;
    for (uint32_t update : {0u, 2u}) {  // only bit 0 asks for a replacement
        EXPECT_EQ(saveIntoFile(before, kNewAlpha, update, &after), 0u);
        EXPECT_EQ(after, before);
        EXPECT_EQ(saveIntoBuffer(before, kNewAlpha, update, &after), 1u);
        EXPECT_EQ(after, before);
    }
}

TEST_F(SaveTest, UpdateBitReplacesTheRecordAndPutsItLast) {
    Bytes after;
    EXPECT_EQ(saveIntoFile(buildContainer(fakeJpeg(64), {kAlpha, kBeta, kGamma}), kNewAlpha, kReplace, &after), 1u)
        << dumpLog();
    EXPECT_EQ(after, buildContainer(fakeJpeg(64), {kBeta, kGamma, kNewAlpha}));
}

TEST_F(SaveTest, NameIsLookedUpByItsLengthNotByATerminator) {
    TempFile file(buildContainer(fakeJpeg(64), {kAlpha}));
    const char name[] = "alphabet";
    EXPECT_EQ(saveTEVDataToFile(file.c_str(), name, 5, nullptr, 0, kNewAlpha.data.data(),
                                uint32_t(kNewAlpha.data.size()), 9, kReplace), 1u);
    EXPECT_EQ(describe(readRecords(file.path())), std::vector<std::string>{"alpha=replacement"});
}

TEST_F(SaveTest, DamagedContainerIsNeverWrittenOver) {
    Bytes damaged = fakeJpeg(64);
    for (char c : std::string("junkTEVT")) damaged.push_back(uint8_t(c));
    Bytes after;
    EXPECT_EQ(saveIntoFile(damaged, kAlpha, kReplace, &after), 0u);
    EXPECT_EQ(after, damaged);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_TEV TEVdata NULL!!")) << dumpLog();
}

TEST_F(SaveTest, RefusesBadArgumentsWithTheirMessages) {
    TempFile file(fakeJpeg(64));
    FILE* fp = fopen(file.c_str(), "r+b");
    auto stream = std::make_unique<TevStreamFile>(fp);
    TevStreamFile unusable(nullptr);
    const unsigned char data[4] = {1, 2, 3, 4};
    const unsigned char sub[2] = {5, 6};
    struct Case {
        TevStream* stream;
        const char* name;
        uint32_t nameLength;
        const unsigned char* data;
        uint32_t dataLength;
        uint32_t type;
        const unsigned char* sub;
        const char* text;
    } cases[] = {
        {stream.get(), nullptr, 4, data, 4, 1, nullptr, "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"},
        {stream.get(), "name", 0, data, 4, 1, nullptr, "TEVName == LUMET_TEV_NULL || TEVName_len <= 0"},
        {stream.get(), "name", 4, nullptr, 4, 1, nullptr, "data == LUMET_TEV_NULL || data_len <= 0"},
        {stream.get(), "name", 4, data, 0, 1, nullptr, "data == LUMET_TEV_NULL || data_len <= 0"},
        {stream.get(), "name", 4, data, 4, TEV_USER_DEFINED_DATA, nullptr, "type & sub wrong !!"},
        {stream.get(), "name", 4, data, 0xFFF00001u, 1, nullptr, "Too big TEV data to add in the file"},
        {nullptr, "name", 4, data, 4, 1, sub, "Stream NULL !!"},
        {&unusable, "name", 4, data, 4, 1, sub, "Stream CheckError is false"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        clearLog();
        EXPECT_EQ(saveTEVDataToStream(c.stream, c.name, c.nameLength, c.sub, c.sub ? 2 : 0, c.data,
                                      c.dataLength, c.type, 0), 0u);
        EXPECT_TRUE(loggedError(kTag, c.text)) << dumpLog();
    }
    stream.reset();  // its descriptor is rewound before the file is closed
    fclose(fp);
    EXPECT_EQ(file.read(), fakeJpeg(64));
}

TEST_F(SaveTest, DataLengthLimitIsFFF00000) {
    const Bytes before = buildContainer(fakeJpeg(64), {kAlpha});
    TempFile file(before);
    const unsigned char data[1] = {0};
    // 0xFFF00000 passes the first check and is stopped only by the container's capacity.
    EXPECT_EQ(saveTEVDataToFile(file.c_str(), "big", 3, nullptr, 0, data, 0xFFF00000u, 1, 0), 0u);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_TEV checkTEVInfoForSaving fail!!")) << dumpLog();
    EXPECT_FALSE(loggedError(kTag, "Too big TEV data to add in the file"));
    clearLog();
    EXPECT_EQ(saveTEVDataToFileSync(file.c_str(), "big", 3, nullptr, 0, data, 0xFFF00001u, 1, 0, 0), 0u);
    EXPECT_TRUE(loggedError("TEVAPI", "Too big TEV data to add in the file")) << dumpLog();
    EXPECT_EQ(file.read(), before);
}

TEST_F(SaveTest, UndetectableStreamIsRefused) {
    TevBufferHandle empty{nullptr, 0, 0, 0, 0};
    EXPECT_EQ(saveSpec([&](auto... args) { return saveTEVDataToBuffer(&empty, args...); }, kAlpha, 0), 0u);
    EXPECT_TRUE(loggedError(kTag, "Signature detection fail!! mode : 0\n")) << dumpLog();
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
    const Bytes before = c.before.empty() ? media : buildContainer(media, c.before, {107, c.boxedBefore});
    Bytes after;
    EXPECT_EQ(saveIntoFile(before, c.saved, c.update, &after), 1u) << dumpLog();
    EXPECT_EQ(after, buildContainer(media, c.after, {107, true}));
    ASSERT_GT(after.size(), media.size() + 8);
    EXPECT_TRUE(std::equal(media.begin(), media.end(), after.begin()));
    EXPECT_EQ(readU32be(after, media.size()), after.size() - media.size());
    EXPECT_EQ(readText(after, media.size() + 4, 4), "tevd");
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, SaveMp4Test,
    ::testing::Values(Mp4Case{"PlainMedia", {}, false, kAlpha, 0, {kAlpha}},
                      Mp4Case{"BoxedAppend", {kAlpha}, true, kBeta, 0, {kAlpha, kBeta}},
                      Mp4Case{"UnboxedGetsWrapped", {kAlpha}, false, kBeta, 0, {kAlpha, kBeta}},
                      Mp4Case{"ReplaceOnlyRecord", {kAlpha}, true, kNewAlpha, kReplace, {kNewAlpha}},
                      Mp4Case{"ReplaceFirstOfTwo", {kAlpha, kGamma}, true, kNewAlpha, kReplace, {kGamma, kNewAlpha}}),
    [](const ::testing::TestParamInfo<Mp4Case>& info) { return std::string(info.param.label); });

// --- Voxa sound: a container whose first record holds the sound, followed by a Voxa block.
class SaveVoxaTest : public SaveTest {
protected:
    const RecordSpec echo_{256, "EchoFrame_000", std::nullopt, Bytes(50, 0x77)};
    // The sound is the data of the first record, which starts right after the media.
    Bytes voxaContainer(const Bytes& media, const std::vector<RecordSpec>& records) const {
        const uint32_t start = uint32_t(media.size()) + 8 + uint32_t(echo_.name.size());
        ContainerOptions options;
        options.voxaTrailer = true;
        options.voxaStart = start;
        options.voxaEnd = start + uint32_t(echo_.data.size());
        return buildContainer(media, records, options);
    }
};

TEST_F(SaveVoxaTest, NewNameKeepsVoxaBlockBehindTheNewDirectory) {
    Bytes after;
    EXPECT_EQ(saveIntoFile(voxaContainer(fakeJpeg(100), {echo_}), kAlpha, 0, &after), 1u) << dumpLog();
    EXPECT_EQ(after, voxaContainer(fakeJpeg(100), {echo_, kAlpha}));
}

TEST_F(SaveVoxaTest, ExistingNameWithoutUpdateBitWritesNothing) {
    const Bytes before = voxaContainer(fakeJpeg(100), {echo_, kAlpha});
    Bytes after;
    EXPECT_EQ(saveIntoFile(before, kNewAlpha, 0, &after), 0u);
    EXPECT_EQ(after, before);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_VOXA_TEV NOT UPDATE!!")) << dumpLog();
}

TEST_F(SaveVoxaTest, VoxaInMp4IsRefused) {
    Bytes soundOnly = fakeMp4(200);
    soundOnly.insert(soundOnly.end(), 50, 0x77);
    const Bytes block = voxaBlock(106, 200, 250);
    soundOnly.insert(soundOnly.end(), block.begin(), block.end());
    Bytes after;
    EXPECT_EQ(saveIntoFile(soundOnly, kAlpha, 0, &after), 0u);
    EXPECT_EQ(after, soundOnly);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_VOXA is not use MP4 Format")) << dumpLog();

    const Bytes withContainer = voxaContainer(fakeMp4(200), {echo_});
    EXPECT_EQ(saveIntoFile(withContainer, kAlpha, 0, &after), 0u);
    EXPECT_EQ(after, withContainer);
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_VOXA_TEV is not use MP4 Format")) << dumpLog();
}

}  // namespace
