// Replacing the media in front of a container in place: every length case on a real JPEG and a
// real boxed MP4 (the decoders must read the result), with sound, with fillers, and the refusals.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "support/log_capture.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

constexpr int kBase = 400;  // padding of the old media; the new one differs by a case's delta

// The sample with `pad` more bytes that its decoders skip: a JPEG comment
// segment after the start-of-image marker, a "free" box behind an MP4.
Bytes realMedia(bool mp4, int pad, uint8_t fill) {
    const Bytes sample = readFile(sourcePath(mp4 ? "media/sample.mp4" : "media/sample.jpg"));
    ByteBuilder b;
    if (mp4) return b.bytes(sample).u32be(uint32_t(pad)).text("free").bytes(Bytes(size_t(pad - 8), fill)).take();
    b.bytes(Bytes(sample.begin(), sample.begin() + 2)).u16le(0xFEFF);  // FF FE
    b.bytes({uint8_t((pad - 2) >> 8), uint8_t(pad - 2)}).bytes(Bytes(size_t(pad - 4), fill));
    return b.bytes(Bytes(sample.begin() + 2, sample.end())).take();
}

bool decodes(const std::string& path, bool mp4) {
    const std::string cmd = (mp4 ? "ffprobe -v error -show_format '" : "djpeg '") + path + "' >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

const std::vector<RecordSpec> kRecords = {{3, "photo.meta", textBytes("sub"), pattern(300)},
                                          {4, "b", std::nullopt, pattern(77)}};

// The live records through the library's queries (name, type, sub-information,
// data), where the first of them lies, and where the fillers are.
struct Entries {
    std::vector<std::tuple<std::string, uint32_t, Bytes, Bytes>> records;
    int64_t firstAt = -1;
    std::vector<uint32_t> fillers;
};

Entries entriesOf(const std::string& path) {
    Entries out;
    tev::Pack pack = tev::openForReading(path.c_str());
    for (uint32_t i = 0; pack && i < GetTevCount(pack.get()); ++i) {
        const std::string name = pack->name_list[i];
        if (name == "Invalid_Data") {  // a filler of 20 bytes has no data to extract
            out.fillers.push_back(i);
            continue;
        }
        const tev::Record unit = tev::extract(pack.get(), i);
        const tev::Offset at(getTEVInFileByIndex(pack.get(), i));
        if (out.firstAt < 0 && at) out.firstAt = at->position;
        const tev::ByteView sub = unit ? tev::subInfoOf(*unit) : tev::ByteView(), data = unit ? tev::dataOf(*unit) : sub;
        out.records.emplace_back(unit ? name : name + " (unreadable)", unit ? unit->data_type : 0,
                                 Bytes(sub.begin(), sub.end()), Bytes(data.begin(), data.end()));
    }
    return out;
}

class CoverTest : public LogCaptureTest {};

// Successive replacements on one file of each kind: shrinking, further, growing a little, to a
// filler's 20 bytes short, equal (twice), short by less than a filler, and past the old media. The
// records keep their place behind one leading filler at most (grown, reused or gone) until the
// media no longer fits in front of them.
TEST_F(CoverTest, EveryLengthOnJpegAndBoxedMp4KeepsRecordsAndDecodes) {
    const struct { int pad; bool filler, recordsStay; } kSteps[] = {
        {100, true, true}, {60, true, true}, {90, true, true}, {kBase - 20, true, true}, {kBase, false, true},
        {kBase, false, true}, {kBase - 7, false, false}, {kBase + 500, false, false}};
    for (const bool mp4 : {false, true}) {
        TempFile file(buildContainer(realMedia(mp4, kBase, 'o'), kRecords, {.mp4Box = mp4}), mp4 ? "f.mp4" : "f.jpg");
        const Entries before = entriesOf(file.path());
        for (const auto& c : kSteps) {
            SCOPED_TRACE(std::string(mp4 ? "mp4 " : "jpeg ") + std::to_string(c.pad));
            const Bytes media = realMedia(mp4, c.pad, uint8_t(c.pad));
            ASSERT_EQ(FastChangeCoverData(file.c_str(), media.data(), uint32_t(media.size())), 1u) << dumpLog();
            EXPECT_TRUE(logLines().empty()) << dumpLog();
            const Bytes after = file.read();
            EXPECT_EQ(Bytes(after.begin(), after.begin() + media.size()), media);
            const Entries kept = entriesOf(file.path());
            ASSERT_EQ(kept.records, before.records);
            EXPECT_EQ(kept.firstAt == before.firstAt, c.recordsStay);
            EXPECT_EQ(kept.fillers, c.filler ? std::vector<uint32_t>{0} : std::vector<uint32_t>{});
            if (mp4) {
                EXPECT_EQ(readText(after, media.size() + 4, 4), "tevd");
                EXPECT_EQ(readU32be(after, media.size()), after.size() - media.size());
            }
            EXPECT_TRUE(decodes(file.path(), mp4));
        }
    }
}

// Sound as records with the block pointing into them, in front of the container, and bare (made
// records first): the sound's positions still lead to its bytes, shorter and longer.
TEST_F(CoverTest, SoundPositionsFollowTheRecords) {
    const Bytes sound = pattern(500), old = realMedia(false, kBase, 'o');
    const std::vector<Bytes> files = {
        imageWithRecordSound(old, {kRecords[0], soundRecord("EchoFrame_000", sound), metaRecord({"EchoFrame_000"})},
                             1),
        imageWithSoundBeforeContainer(old, sound, kRecords), imageWithBareSound(old, sound)};
    for (size_t f = 0; f < files.size(); ++f) {
        for (const int delta : {-300, -5, 700}) {
            SCOPED_TRACE(std::to_string(f) + " " + std::to_string(delta));
            TempFile file(files[f], "s.jpg");
            const Entries before = entriesOf(file.path());
            const Bytes media = realMedia(false, kBase + delta, 'n');
            ASSERT_EQ(FastChangeCoverData(file.c_str(), media.data(), uint32_t(media.size())), 1u) << dumpLog();
            uint32_t size = 0;
            const tev::CBytes got(GetAudioInVoxa(file.c_str(), &size));
            EXPECT_EQ(got ? Bytes(got.get(), got.get() + size) : Bytes{}, sound);
            if (f < 2) { EXPECT_EQ(entriesOf(file.path()).records, before.records); }
            EXPECT_EQ(getSignature(file.c_str()), uint32_t(SIGNATURE_VOXA_TEV));
            EXPECT_TRUE(decodes(file.path(), false));
        }
    }
}

// The media part of another file: in front of its container, of its bare
// sound, or all of a plain file; through paths and descriptors.
TEST_F(CoverTest, OrgDataTakesTheOtherFilesMediaPart) {
    const Bytes old = realMedia(true, kBase, 'o'), org = realMedia(true, 200, 'g');
    const Bytes boxed = buildContainer(old, kRecords, {.mp4Box = true});
    TempFile file(boxed, "f.mp4");
    TempFile source(buildContainer(org, {{9, "other", std::nullopt, pattern(40)}}, {.mp4Box = true}), "o.mp4");
    const Entries before = entriesOf(file.path());
    ASSERT_EQ(FastChangeOrgData(file.c_str(), source.c_str()), 1u) << dumpLog();
    EXPECT_EQ(entriesOf(file.path()).records, before.records);
    const Bytes after = file.read();
    EXPECT_EQ(Bytes(after.begin(), after.begin() + org.size()), org);
    EXPECT_EQ(readText(after, org.size() + 4, 4), "tevd");
    EXPECT_TRUE(decodes(file.path(), true));
    TempFile plain(old, "p.mp4");
    const int fd = ::open(file.c_str(), O_RDWR), orgFd = ::open(plain.c_str(), O_RDONLY);
    EXPECT_EQ(FastChangeOrgDataFd(fd, orgFd), 1u) << dumpLog();
    EXPECT_EQ(::close(fd) + ::close(orgFd), 0);
    EXPECT_EQ(file.read(), boxed);

    const Bytes jpeg = realMedia(false, kBase, 'o'), small = realMedia(false, 100, 's');
    TempFile image(buildContainer(jpeg, kRecords), "i.jpg");
    TempFile withSound(imageWithBareSound(small, pattern(50)), "s.jpg");
    const Entries imageBefore = entriesOf(image.path());
    ASSERT_EQ(FastChangeOrgData(image.c_str(), withSound.c_str()), 1u) << dumpLog();
    const Bytes replaced = image.read();
    EXPECT_EQ(Bytes(replaced.begin(), replaced.begin() + small.size()), small);
    EXPECT_EQ(entriesOf(image.path()).records, imageBefore.records);
    TempFile bare(old, "b.mp4");
    const int bareFd = ::open(bare.c_str(), O_RDWR);
    EXPECT_EQ(FastChangeCoverDataFd(bareFd, org.data(), uint32_t(org.size())), 1u);
    ::close(bareFd);
    EXPECT_EQ(bare.read(), org);
}

TEST_F(CoverTest, RefusalsLeaveTheFileUnchanged) {
    const Bytes jpegMedia = realMedia(false, kBase, 'o'), mp4Media = realMedia(true, kBase, 'n');
    const Bytes good = realMedia(false, 100, 'n');
    const Bytes jpeg = buildContainer(jpegMedia, kRecords);
    Bytes damaged = jpeg;
    putU32le(damaged, damaged.size() - 8, 9999);  // KTHO pointing nowhere
    const TempFile damagedOrg(damaged), trailingOrg(buildContainer(concat(good, textBytes("TEVT")), {kRecords[1]}));
    const char* const kCover = "TEVEncoderAPIs::FastChangeCoverData";
    const char* const kOrg = "TEVEncoderAPIs::FastChangeOrgData";
    using Call = std::function<uint32_t(const char*)>;
    auto cover = [](const Bytes& media, size_t length) -> Call {
        return [&media, length](const char* path) { return FastChangeCoverData(path, media.data(), uint32_t(length)); };
    };
    auto org = [](const TempFile& source) -> Call {
        return [&source](const char* path) { return FastChangeOrgData(path, source.c_str()); };
    };
    const Bytes trailing = buildContainer(good, {kRecords[1]});
    const struct { Bytes file; Call call; const char* tag; const char* text; } kCases[] = {
        {jpeg, cover(mp4Media, mp4Media.size()), kCover, "new media is not of the old media's kind"},
        {buildContainer(Bytes(500, 0), kRecords), cover(good, good.size()), kCover,
         "new media is not of the old media's kind"},
        {jpeg, cover(good, 0), kCover, "new media is empty"},
        {jpeg, [](const char* path) { return FastChangeCoverData(path, nullptr, 10); }, kCover, "new media is empty"},
        {jpeg, cover(trailing, trailing.size()), kCover, "new media ends like TEV data or a voxa block"},
        {damaged, cover(good, good.size()), kCover, "TEV data does not parse"},
        {imageWithBareSound(mp4Media, pattern(50)), cover(mp4Media, mp4Media.size()), kCover,
         "SIGNATURE_VOXA is not use MP4 Format"},
        {concat(jpegMedia, voxaBlock(106, 5000, 6000)), cover(good, good.size()), kCover, "voxa data does not parse"},
        {jpeg, [&](const char*) { return FastChangeCoverData("/nonexistent/f.jpg", good.data(), 10); }, kCover,
         "File Open Error"},
        {jpeg, [&](const char*) { return FastChangeCoverDataFd(-1, good.data(), 10); }, kCover, "fd error!!"},
        {jpeg, org(damagedOrg), kOrg, "org TEV data does not parse"},
        {jpeg, org(trailingOrg), kOrg, "new media ends like TEV data or a voxa block"},
        {jpeg, [](const char* path) { return FastChangeOrgData(path, "/nonexistent/o.jpg"); }, kOrg, "File Open Error"},
        {jpeg, [](const char*) { return FastChangeOrgDataFd(-1, -1); }, kOrg, "fd error!!"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        clearLog();
        TempFile file(c.file, "r.jpg");
        EXPECT_EQ(c.call(file.c_str()), 0u);
        EXPECT_EQ(file.read(), c.file);
        ASSERT_FALSE(logLines().empty());
        EXPECT_EQ(logLines().back().tag + ": " + logLines().back().text, std::string(c.tag) + ": " + c.text);
    }
}

}  // namespace
