// Replacing the media in front of a container in place: every length case on
// a real JPEG and a real boxed MP4 (the decoders must read the result), with
// sound, with a leading filler, repeated, and the refusals.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "tev/tev.h"

namespace {

using namespace tevtest;

constexpr int kBase = 400;  // padding of the old media; the new one differs by a case's delta

// The sample with `pad` more bytes that its decoders skip: a JPEG comment
// segment after the start-of-image marker, a "free" box behind an MP4.
Bytes realMedia(bool mp4, int pad, uint8_t fill) {
    const Bytes sample = readFile(sourcePath(mp4 ? "media/sample.mp4" : "media/sample.jpg"));
    ByteBuilder b;
    if (mp4) {
        b.bytes(sample).u32be(uint32_t(pad)).text("free").bytes(Bytes(size_t(pad - 8), fill));
    } else {
        b.bytes(Bytes(sample.begin(), sample.begin() + 2)).u16le(0xFEFF);  // FF FE
        b.bytes({uint8_t((pad - 2) >> 8), uint8_t(pad - 2)}).bytes(Bytes(size_t(pad - 4), fill));
        b.bytes(Bytes(sample.begin() + 2, sample.end()));
    }
    return b.take();
}

bool decodes(const std::string& path, bool mp4) {
    const std::string cmd = mp4 ? "ffprobe -v error -show_format '" + path + "' >/dev/null 2>&1"
                                : "djpeg '" + path + "' >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

const std::vector<RecordSpec> kRecords = {{3, "photo.meta", textBytes("sub"), pattern(300)},
                                          {4, "b", std::nullopt, pattern(77)}};

struct Entry {
    std::string name;
    uint32_t type;
    Bytes sub, data;
    int64_t position;
    bool operator==(const Entry& o) const {
        return name == o.name && type == o.type && sub == o.sub && data == o.data;
    }
};

// Records through the library's queries; the filler entries are counted apart.
std::vector<Entry> entriesOf(const std::string& path, int* fillers = nullptr, int* fillerIndex = nullptr) {
    std::vector<Entry> out;
    _TEV_info_pack* pack = checkTEVWithReadPM(path.c_str());
    if (fillers != nullptr) *fillers = 0;
    for (uint32_t i = 0; pack != nullptr && i < GetTevCount(pack); ++i) {
        const std::string name = GetNameInList(pack, int(GetTevCount(pack)), int(i));
        if (name == "Invalid_Data") {  // a filler of 20 bytes has no data to extract
            if (fillers != nullptr) ++*fillers;
            if (fillerIndex != nullptr) *fillerIndex = int(i);
            continue;
        }
        _TEV_data_unit* unit = extractTEVDataFromFilebyIndex(pack, i);
        TevOffsetInfo* at = getTEVInFileByIndex(pack, i);
        if (unit == nullptr) {
            out.push_back({name + " (unreadable)", 0, {}, {}, -1});
        } else {
            out.push_back({name, unit->data_type,
                           unit->sub_info ? Bytes(unit->sub_info, unit->sub_info + unit->sub_info_length) : Bytes(),
                           Bytes(unit->data, unit->data + unit->data_length), at ? at->position : -1});
        }
        DestroyOffsetInfo(at);
        destroyTEVDATA_UNIT(unit);
    }
    if (pack != nullptr) destroyTEVDATA(pack);
    return out;
}

struct LengthCase {
    const char* what;
    int delta;         // new media length minus old
    bool recordsStay;  // the live records keep their positions
};

const LengthCase kLengthCases[] = {
    {"shorter", -300, true}, {"shorter by 20", -20, true}, {"equal", 0, true},
    {"shorter by 7", -7, false}, {"longer", 500, false},
};

class CoverTest : public LogCaptureTest {};

TEST_F(CoverTest, EveryLengthOnJpegAndBoxedMp4KeepsRecordsAndDecodes) {
    for (const bool mp4 : {false, true}) {
        for (const LengthCase& c : kLengthCases) {
            SCOPED_TRACE(std::string(mp4 ? "mp4 " : "jpeg ") + c.what);
            const Bytes old = realMedia(mp4, kBase, 'o');
            TempFile file(buildContainer(old, kRecords, {.mp4Box = mp4}), mp4 ? "f.mp4" : "f.jpg");
            const std::vector<Entry> before = entriesOf(file.path());
            const Bytes media = realMedia(mp4, kBase + c.delta, 'n');
            ASSERT_EQ(FastChangeCoverData(file.c_str(), media.data(), uint32_t(media.size())), 1u) << dumpLog();
            EXPECT_TRUE(logLines().empty()) << dumpLog();
            const Bytes after = file.read();
            EXPECT_EQ(Bytes(after.begin(), after.begin() + media.size()), media);
            int fillers = 0, fillerIndex = -1;
            const std::vector<Entry> kept = entriesOf(file.path(), &fillers, &fillerIndex);
            ASSERT_EQ(kept, before);
            EXPECT_EQ(kept[0].position == before[0].position, c.recordsStay);
            EXPECT_EQ(fillers, c.delta <= -20 ? 1 : 0);
            if (fillers == 1) { EXPECT_EQ(fillerIndex, 0); }
            if (mp4) {
                EXPECT_EQ(readText(after, media.size() + 4, 4), "tevd");
                EXPECT_EQ(readU32be(after, media.size()), after.size() - media.size());
            }
            EXPECT_TRUE(decodes(file.path(), mp4));
        }
    }
}

// Shrinking, shrinking further, growing a little, then past the old media:
// one leading filler at most, grown or reused, gone once the records move.
TEST_F(CoverTest, RepeatedReplacementsNeverStackFillers) {
    TempFile file(buildContainer(realMedia(false, kBase, 'o'), kRecords), "f.jpg");
    const std::vector<Entry> before = entriesOf(file.path());
    for (const int pad : {100, 60, 90, 381, 1000}) {
        SCOPED_TRACE(pad);
        const Bytes media = realMedia(false, pad, uint8_t(pad));
        ASSERT_EQ(FastChangeCoverData(file.c_str(), media.data(), uint32_t(media.size())), 1u) << dumpLog();
        int fillers = 0;
        EXPECT_EQ(entriesOf(file.path(), &fillers), before);
        EXPECT_EQ(fillers, pad <= kBase - 20 ? 1 : 0);
        EXPECT_EQ(entriesOf(file.path())[0].position == before[0].position, pad <= kBase - 20);
        EXPECT_TRUE(decodes(file.path(), false));
    }
}

// Sound as records with the block pointing into them, a sound in front of
// the container, and a bare sound (turned into records first): the sound's
// positions still lead to its bytes, shorter and longer.
TEST_F(CoverTest, SoundPositionsFollowTheRecords) {
    const Bytes sound = pattern(500);
    const Bytes old = realMedia(false, kBase, 'o');
    const std::vector<Bytes> files = {
        imageWithRecordSound(old, {kRecords[0], soundRecord("EchoFrame_000", sound), metaRecord({"EchoFrame_000"})},
                             1),
        imageWithSoundBeforeContainer(old, sound, kRecords),
        imageWithBareSound(old, sound),
    };
    for (size_t f = 0; f < files.size(); ++f) {
        for (const int delta : {-300, -5, 700}) {
            SCOPED_TRACE(std::to_string(f) + " " + std::to_string(delta));
            TempFile file(files[f], "s.jpg");
            const std::vector<Entry> before = entriesOf(file.path());
            const Bytes media = realMedia(false, kBase + delta, 'n');
            ASSERT_EQ(FastChangeCoverData(file.c_str(), media.data(), uint32_t(media.size())), 1u) << dumpLog();
            uint32_t size = 0;
            unsigned char* got = GetAudioInVoxa(file.c_str(), &size);
            ASSERT_NE(got, nullptr);
            EXPECT_EQ(Bytes(got, got + size), sound);
            std::free(got);
            if (f < 2) { EXPECT_EQ(entriesOf(file.path()), before); }
            EXPECT_EQ(getSignature(file.c_str()), uint32_t(SIGNATURE_VOXA_TEV));
            EXPECT_TRUE(decodes(file.path(), false));
        }
    }
}

TEST_F(CoverTest, OrgDataTakesTheOtherFilesMediaPartAndFdFormsWork) {
    const Bytes old = realMedia(true, kBase, 'o');
    const Bytes org = realMedia(true, 200, 'g');
    TempFile file(buildContainer(old, kRecords, {.mp4Box = true}), "f.mp4");
    TempFile source(buildContainer(org, {{9, "other", std::nullopt, pattern(40)}}, {.mp4Box = true}), "o.mp4");
    const std::vector<Entry> before = entriesOf(file.path());
    ASSERT_EQ(FastChangeOrgData(file.c_str(), source.c_str()), 1u) << dumpLog();
    EXPECT_EQ(entriesOf(file.path()), before);
    const Bytes after = file.read();
    EXPECT_EQ(Bytes(after.begin(), after.begin() + org.size()), org);
    EXPECT_EQ(readText(after, org.size() + 4, 4), "tevd");
    EXPECT_TRUE(decodes(file.path(), true));
    // Back to the first media through descriptors; a plain file takes the media whole.
    TempFile plain(old, "p.mp4");
    const int fd = ::open(file.c_str(), O_RDWR), orgFd = ::open(plain.c_str(), O_RDONLY);
    EXPECT_EQ(FastChangeOrgDataFd(fd, orgFd), 1u) << dumpLog();
    ::close(fd);
    ::close(orgFd);
    EXPECT_EQ(file.read(), buildContainer(old, kRecords, {.mp4Box = true}));
    TempFile bare(old, "b.mp4");
    const int bareFd = ::open(bare.c_str(), O_RDWR);
    EXPECT_EQ(FastChangeCoverDataFd(bareFd, org.data(), uint32_t(org.size())), 1u);
    ::close(bareFd);
    EXPECT_EQ(bare.read(), org);
}

TEST_F(CoverTest, RefusalsLeaveTheFileUnchanged) {
    const Bytes jpeg = buildContainer(realMedia(false, kBase, 'o'), kRecords);
    Bytes damaged = jpeg;
    putU32le(damaged, damaged.size() - 8, 9999);  // KTHO pointing nowhere
    const Bytes mp4Media = realMedia(true, kBase, 'n');
    const Bytes trailing = buildContainer(realMedia(false, 100, 'n'), {kRecords[1]});
    const Bytes good = realMedia(false, 100, 'n');
    struct Refusal {
        const Bytes* file;
        const Bytes* media;
        uint32_t length;
        const char* text;
    };
    const Refusal cases[] = {
        {&jpeg, &mp4Media, uint32_t(mp4Media.size()), "new media is not of the old media's kind"},
        {&jpeg, &good, 0, "new media is empty"},
        {&jpeg, &trailing, uint32_t(trailing.size()), "new media ends like TEV data or a voxa block"},
        {&damaged, &good, uint32_t(good.size()), "TEV data does not parse"},
    };
    for (const Refusal& r : cases) {
        SCOPED_TRACE(r.text);
        clearLog();
        TempFile file(*r.file, "r.jpg");
        EXPECT_EQ(FastChangeCoverData(file.c_str(), r.media->data(), r.length), 0u);
        EXPECT_EQ(file.read(), *r.file);
        EXPECT_TRUE(loggedError("TEVEncoderAPIs::FastChangeCoverData", r.text)) << dumpLog();
        if (r.file != &damaged) { EXPECT_EQ(logLines().size(), 1u) << dumpLog(); }
    }
}

}  // namespace
