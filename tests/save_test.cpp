// The central save: size limits, damaged containers, the "tevd" box of MP4
// media and the Voxa cases, checked byte for byte against containers built
// independently of the library's writers.
#include <gtest/gtest.h>

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

class SaveTest : public LogCaptureTest {
protected:
    // Saves `r` through the path entry point into a file holding *content,
    // which becomes the file's bytes after.
    uint32_t saveIntoFile(Bytes* content, const RecordSpec& r, uint32_t update) {
        TempFile file(*content);
        const uint32_t result =
            saveSpec([&](auto... args) { return saveTEVDataToFile(file.c_str(), args...); }, r, update);
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

TEST_F(SaveVoxaTest, VoxaInMp4IsRefused) {
    const Bytes soundOnly = concat(concat(fakeMp4(200), Bytes(50, 0x77)), voxaBlock(106, 200, 250));
    const Bytes withContainer = voxaContainer(fakeMp4(200), {echo_});
    for (const Bytes& before : {soundOnly, withContainer}) {
        Bytes after = before;
        EXPECT_EQ(saveIntoFile(&after, kAlpha, 0), 0u);
        EXPECT_EQ(after, before);
    }
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_VOXA is not use MP4 Format")) << dumpLog();
    EXPECT_TRUE(loggedError(kTag, "SIGNATURE_VOXA_TEV is not use MP4 Format")) << dumpLog();
}

}  // namespace
