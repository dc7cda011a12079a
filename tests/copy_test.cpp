// Copying records between files: all of them, one type, one name, the raw
// merge, and sources with sound. The destination's media bytes never change.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/echo_files.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "tev/tev.h"

namespace {

using namespace tevtest;

constexpr size_t kMediaSize = 200;

struct Named {
    std::string name;
    uint32_t type;
    Bytes data;
    bool hasSub;
};

// The destination's records through the library's own queries.
std::vector<Named> recordsOf(const std::string& path) {
    std::vector<Named> out;
    _TEV_info_pack* pack = checkTEVWithReadPM(path.c_str());
    if (pack == nullptr) return out;
    for (uint32_t i = 0; i < GetTevCount(pack); ++i) {
        _TEV_data_unit* unit = extractTEVDataFromFilebyIndex(pack, i);
        out.push_back({GetNameInList(pack, int(GetTevCount(pack)), int(i)), unit->data_type,
                       Bytes(unit->data, unit->data + unit->data_length), unit->sub_info != nullptr});
        destroyTEVDATA_UNIT(unit);
    }
    destroyTEVDATA(pack);
    return out;
}

std::vector<std::string> namesOf(const std::string& path) {
    std::vector<std::string> names;
    for (const Named& r : recordsOf(path)) names.push_back(r.name);
    return names;
}

Bytes head(const Bytes& file, size_t n) { return Bytes(file.begin(), file.begin() + n); }

// Records "a" (type 3, with sub-information), "b" (type 4), "a2" (type 3).
Bytes sourceFile() {
    return buildContainer(fakeJpeg(150), {{3, "a", textBytes("sub"), Bytes(10, 1)},
                                          {4, "b", std::nullopt, Bytes(20, 2)},
                                          {3, "a2", std::nullopt, Bytes(5, 3)}});
}

class CopyTest : public LogCaptureTest {};

TEST_F(CopyTest, AllRecordsIntoJpegAndMp4) {
    TempFile src(sourceFile());
    for (const Bytes& media : {fakeJpeg(kMediaSize), fakeMp4(kMediaSize)}) {
        TempFile dst(media);
        EXPECT_EQ(copyTEVData(src.c_str(), dst.c_str()), 1u);
        const std::vector<Named> got = recordsOf(dst.path());
        ASSERT_EQ(got.size(), 3u);
        EXPECT_EQ(got[0].name, "a");
        EXPECT_EQ(got[0].type, 3u);
        EXPECT_FALSE(got[0].hasSub);  // sub-information stays behind
        EXPECT_EQ(got[1].data, Bytes(20, 2));
        const Bytes after = dst.read();
        EXPECT_EQ(head(after, kMediaSize), media);
        if (media[4] == 'f') {  // MP4: one "tevd" box right behind the media, reaching the end
            EXPECT_EQ(readText(after, kMediaSize + 4, 4), "tevd");
            EXPECT_EQ(readU32be(after, kMediaSize), after.size() - kMediaSize);
        }
    }
}

TEST_F(CopyTest, AllRecordsReplaceOnesOfTheSameName) {
    TempFile src(sourceFile());
    TempFile dst(buildContainer(fakeJpeg(kMediaSize), {record("b", 7, 9), record("keep", 3, 8)}));
    EXPECT_EQ(copyTEVData(src.c_str(), dst.c_str()), 1u);
    EXPECT_EQ(namesOf(dst.path()), (std::vector<std::string>{"keep", "a", "b", "a2"}));
    EXPECT_EQ(recordsOf(dst.path())[2].data, Bytes(20, 2));
}

TEST_F(CopyTest, ByTypeAndByNameFillOnlyPlainMedia) {
    TempFile src(sourceFile());
    TempFile byType(fakeJpeg(kMediaSize)), byName(fakeJpeg(kMediaSize));
    EXPECT_EQ(copyTEVDataType(src.c_str(), byType.c_str(), 3), 1u);
    EXPECT_EQ(namesOf(byType.path()), (std::vector<std::string>{"a", "a2"}));

    TempFile twice(buildContainer(fakeJpeg(150), {record("x", 4, 1), record("x", 6, 2)}));
    EXPECT_EQ(copyTEVDataKeyName(twice.c_str(), byName.c_str(), "x"), 1u);
    const std::vector<Named> got = recordsOf(byName.path());
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].data, Bytes(4, 1));  // the first occurrence only

    // A destination that already holds a container is left alone.
    const Bytes before = byType.read();
    EXPECT_EQ(copyTEVDataKeyName(src.c_str(), byType.c_str(), "b"), 1u);
    EXPECT_EQ(copyTEVDataType(src.c_str(), byType.c_str(), 4), 1u);
    EXPECT_EQ(byType.read(), before);
}

TEST_F(CopyTest, RefusalsChangeNothing) {
    TempFile plain(fakeJpeg(kMediaSize)), dst(fakeJpeg(kMediaSize));
    EXPECT_EQ(copyTEVData(plain.c_str(), dst.c_str()), 0u);
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::copyTEVDataType", "SIGNATURE_DETECTION_FAIL\n")) << dumpLog();
    EXPECT_EQ(copyTEVDataFd(0, 5), 0u);
    EXPECT_EQ(copyTEVData(nullptr, dst.c_str()), 0u);
    // A container whose directory names records outside the file parses to nothing.
    Bytes damaged = sourceFile();
    putU32le(damaged, damaged.size() - 8 - 12 * 3 + 4, 0x7FFFFFFF);
    TempFile broken(damaged);
    EXPECT_EQ(copyTEVData(broken.c_str(), dst.c_str()), 0u);
    EXPECT_EQ(copyTEVDataType(broken.c_str(), dst.c_str(), 3), 0u);
    EXPECT_EQ(dst.read(), fakeJpeg(kMediaSize));
}

TEST_F(CopyTest, RawMergeAppendsTheContainerUnchanged) {
    const Bytes source = sourceFile();
    TempFile src(source);
    TempFile dst(fakeJpeg(kMediaSize));
    _TEV_info_pack* pack = checkTEVWithReadPM(src.c_str());
    ASSERT_NE(pack, nullptr);
    FILE* out = std::fopen(dst.c_str(), "r+b");
    EXPECT_EQ(copyMergeTEVData(pack->info, out), 1u);
    std::fclose(out);
    EXPECT_EQ(dst.read(), concat(fakeJpeg(kMediaSize), Bytes(source.begin() + 150, source.end())));

    TempFile empty(Bytes{});
    out = std::fopen(empty.c_str(), "r+b");
    EXPECT_EQ(copyMergeTEVData(pack->info, out), 0u);
    std::fclose(out);
    EXPECT_TRUE(loggedError("TEVAPIs::mergeTEVData", "File Search Error 0\n")) << dumpLog();
    EXPECT_TRUE(empty.read().empty());
    destroyTEVDATA(pack);
}

TEST_F(CopyTest, SoundSourcesRebuildTheListOrRefuseMp4) {
    const Bytes sound = pattern(48);
    TempFile bare(imageWithBareSound(fakeJpeg(150), sound));
    TempFile jpeg(fakeJpeg(kMediaSize)), mp4(fakeMp4(kMediaSize));
    EXPECT_EQ(copyTEVData(bare.c_str(), mp4.c_str()), 0u);
    EXPECT_EQ(mp4.read(), fakeMp4(kMediaSize));
    EXPECT_EQ(copyTEVData(bare.c_str(), jpeg.c_str()), 1u);
    EXPECT_EQ(namesOf(jpeg.path()), (std::vector<std::string>{"EchoFrame_000", "EchoFrame_Meta_Info"}));

    // Signature 4: sounds through the sound save, the list never copied as such.
    TempFile withSound(fakeJpeg(150));
    saveVoxaToImageFile(withSound.c_str(), const_cast<uint8_t*>(sound.data()), 48, "memo", 4);
    const unsigned char text[] = "note";
    saveTEVDataToFile(withSound.c_str(), "note", 4, nullptr, 0, text, 4, 5, 0);
    TempFile target(fakeJpeg(kMediaSize));
    EXPECT_EQ(copyTEVData(withSound.c_str(), target.c_str()), 1u);
    EXPECT_EQ(namesOf(target.path()), (std::vector<std::string>{"memo", "EchoFrame_Meta_Info", "note"}));
    EXPECT_EQ(getSignature(target.c_str()), uint32_t{SIGNATURE_VOXA_TEV});
    EXPECT_EQ(head(target.read(), kMediaSize), fakeJpeg(kMediaSize));
    EXPECT_EQ(copyTEVData(withSound.c_str(), mp4.c_str()), 0u);
    EXPECT_EQ(mp4.read(), fakeMp4(kMediaSize));
}

}  // namespace
