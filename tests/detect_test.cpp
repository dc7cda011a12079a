// Telling plain, container, Voxa and mixed files apart, the checks that
// parse a container into a pack, and the version read from a directory.
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"

namespace {

using namespace tevtest;

const std::vector<RecordSpec> kRecords = {
    {7, "alpha", std::nullopt, textBytes("first payload")},
    {0, "beta", textBytes("sub"), textBytes("second")},
};
constexpr uint32_t kMediaSize = 100;
constexpr uint32_t kSoundSize = 40;

Bytes endingWith(size_t size, const std::string& tail) {
    return ByteBuilder().zeros(size - tail.size()).text(tail).take();
}

Bytes mediaWithSound() { return ByteBuilder().bytes(fakeJpeg(kMediaSize)).bytes(Bytes(kSoundSize, 0x44)).take(); }
Bytes voxaOnly() { return ByteBuilder().bytes(mediaWithSound()).bytes(voxaBlock(106, 100, 140)).take(); }

// The container of `records` behind `media`, followed by a one-sound Voxa
// block whose table says [start, end).
Bytes containerThenVoxa(const Bytes& media, uint32_t start, uint32_t end,
                        const std::vector<RecordSpec>& records = kRecords) {
    return buildContainer(media, records, {107, false, true, start, end});
}

// The medium forms only build a stream for one body: one test runs them all.
class DetectOnMedium : public LogCaptureTest, public ::testing::WithParamInterface<Medium> {};

TEST_P(DetectOnMedium, SignatureAndCheckFindTheContainerAndLeaveTheBytesAlone) {
    const Bytes original = buildContainer(fakeJpeg(kMediaSize), kRecords);
    EXPECT_EQ(signatureOn(original, GetParam()), SIGNATURE_TEV);
    PackOnMedium held(original, GetParam());
    _TEV_info_pack* pack = held.pack();
    ASSERT_NE(pack, nullptr) << dumpLog();
    ASSERT_EQ(pack->data_count, 2u);
    EXPECT_EQ(std::string(pack->name_list[0]) + "," + pack->name_list[1], "alpha,beta");
    EXPECT_EQ(pack->info->data_start_position, kMediaSize);
    EXPECT_EQ(held.contents(), original);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(AllMedia, DetectOnMedium,
                         ::testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Buffer, Medium::Handle),
                         mediumName);

class DetectTest : public LogCaptureTest {};
using Values = std::vector<int64_t>;

TEST_F(DetectTest, SignatureVersionAndMp4CheckComeFromTheFilesBytes) {
    const struct { Bytes bytes; uint32_t signature, isTev, version, mp4; } kCases[] = {
        {fakeJpeg(200), SIGNATURE_DETECTION_FAIL, 0, 1, 0},
        {fakeMp4(64), SIGNATURE_DETECTION_FAIL, 0, 1, 1},
        {textBytes("TEVT!"), SIGNATURE_DETECTION_FAIL, 0, 1, 0},
        {endingWith(33, "VOXABS"), SIGNATURE_DETECTION_FAIL, 0, 1, 0},
        {buildContainer(fakeJpeg(kMediaSize), kRecords), SIGNATURE_TEV, 1, 107, 0},
        {voxaOnly(), SIGNATURE_VOXA, 0, 0, 0},
        {containerThenVoxa(mediaWithSound(), 100, 140), SIGNATURE_VOXA_TEV, 1, 107, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.bytes.size());
        FixedBuffer buffer(c.bytes);
        ASSERT_EQ(buffer.stream()->seek(3, SEEK_SET), 3);
        // The MP4 check keeps the position.
        EXPECT_EQ((Values{signatureOn(c.bytes, Medium::Buffer), isTEVFile(TempFile(c.bytes).c_str()),
                          checkMP4Stream(buffer.stream()), buffer.stream()->tell(), checkMP4Buffer(buffer.handle()),
                          GetTEVVersion(buffer.stream())}),
                  (Values{c.signature, c.isTev, c.mp4, 3, c.mp4, c.version}));
    }
    // Only the 5-byte file has no bytes 4-7 for the two MP4 checks to read.
    EXPECT_TRUE(logLines().size() == 2 && loggedError("TEV::checkMP4Stream", "File Read Error")) << dumpLog();
}

// Every refusal gives 0 or null, after the line it logs (a failed seek logs
// its own line first) or none.
TEST_F(DetectTest, RefusalsReturnNothingAfterTheirLogLine) {
    TevStreamFile unusable(nullptr);
    TempFile jpeg(fakeJpeg(64));
    FILE* writeOnly = _kfopen(jpeg.c_str(), "ab");
    TevStreamFile unreadable(writeOnly);
    int pipeEnds[2] = {-1, -1};
    ASSERT_EQ(pipe(pipeEnds), 0);
    TevStreamFD unseekable(pipeEnds[0]);
    const std::string missing = jpeg.path() + ".missing";
    const Bytes shortKtho = ByteBuilder().zeros(12).u32le(15).text("TEVT").take();  // reaches before the file
    const char* const kParse = "TEVCommonAPIs::checkTEVInStreamVersionNotchecked";
    const char* const kSignature = "TEVAPIs::getSignatureStream";
    const struct { const char *tag, *text; std::function<bool()> refused; } kCases[] = {
        {kParse, "Stream is null.", [] { return !checkTEVInStream(nullptr); }},
        {kParse, "Stream open error.", [&] { return !checkTEVInStream(&unusable); }},
        {"TEVCommonAPIs::checkTEVInFd", "Stream->CheckError false!!", [] { return !checkTEVInHandle(nullptr); }},
        {"TEVCommonAPIs::checkTEVInFd", "fd error!!", [] { return !checkTEVInFd(-1); }},
        {"TEV::checkTEVInFile", "filename null", [] { return !checkTEVInFile(nullptr); }},
        {"TEVCommonAPIs", "File Open Error", [&] { return !checkTEVInFile(missing.c_str()); }},
        {"TEVCommonAPIs::checkTEVWithReadPM", "File Open Error", [&] { return !checkTEVWithReadPM(missing.c_str()); }},
        {"TEVCommonAPIs::checkTEVWithReadPM", "filename null", [] { return !checkTEVWithReadPM_Fd(0); }},
        {"TEVCommonAPIs::checkTEVInFP", "fp is null!!", [] { return !checkTEVInFP(nullptr); }},
        {nullptr, nullptr, [] { return !PackOnMedium(fakeJpeg(300), Medium::Buffer).pack(); }},
        {"TEV::ParseTEV", "file has no sound OFFS",
         [] { return !PackOnMedium(endingWith(200, "TEVT"), Medium::Buffer).pack(); }},
        {nullptr, nullptr, [] { return errorCheckTEVInFp(nullptr) == 0; }},
        {kSignature, "Stream is null\n", [] { return getSignatureStream(nullptr) == SIGNATURE_ERROR; }},
        {kSignature, "CheckError is false\n", [&] { return getSignatureStream(&unusable) == SIGNATURE_ERROR; }},
        {kSignature, "File Read Error", [&] { return getSignatureStream(&unreadable) == SIGNATURE_ERROR; }},
        // 34 bytes: where "TEVT" would stand is the first byte of the file.
        {"TEV::getSignatureFP", "File Search Error",
         [] { return signatureOn(endingWith(34, "VOXABS"), Medium::Buffer) == SIGNATURE_ERROR; }},
        // What the log call returned, which is no signature value.
        {"TEVEncoderAPIs::getSignatureFd", "fd error!!", [] { return getSignatureFd(0) > SIGNATURE_VOXA_TEV; }},
        {"TEVAPIs::checkMP4Stream", "Stream is null\n", [] { return checkMP4Stream(nullptr) == 0; }},
        {kSignature, "Stream is null\n", [] { return GetTEVVersion(nullptr) == 0; }},
        {kSignature, "CheckError is false\n", [&] { return GetTEVVersion(&unusable) == 0; }},
        {kSignature, "File Search Error", [&] { return GetTEVVersion(&unseekable) == 0; }},
        {nullptr, nullptr, [&] { return GetTEVVersion(&unreadable) == 0; }},
        {"TEV::GetTEVVersion", "Sig Search Error",
         [] { return GetTEVVersion(FixedBuffer(textBytes("xxTEVT")).stream()) == 0; }},
        {"TEV::GetTEVVersion", "Sig Search Error", [&] { return GetTEVVersion(FixedBuffer(shortKtho).stream()) == 0; }},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.tag ? c.tag : "no log") + ": " + (c.text ? c.text : ""));
        clearLog();
        EXPECT_TRUE(c.refused());
        EXPECT_TRUE(c.tag ? loggedError(c.tag, c.text) : logLines().empty()) << dumpLog();
        EXPECT_LE(logLines().size(), 2u) << dumpLog();
    }
    _kfclose(writeOnly);
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST_F(DetectTest, ErrorCheckTrustsTheTailOfOldVersionsOnly) {
    Bytes badName = buildContainer(fakeJpeg(kMediaSize), kRecords);
    badName[kMediaSize + 4] = 0;  // name length 0: the directory parses, the names do not
    StreamOver damaged(Medium::FilePtr, badName);
    EXPECT_EQ(checkTEVInStream(damaged.get()), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getAllNameOfDataList err."));
    EXPECT_EQ(errorCheckTEVInFp(damaged.fp()), 1u);

    // A count the file cannot hold: only the wide-entry versions read the list.
    Bytes overCounted = buildContainer(fakeJpeg(kMediaSize), kRecords, {110});
    EXPECT_EQ(errorCheckTEVInBuffer(FixedBuffer(overCounted).handle()), 1u);
    overCounted[overCounted.size() - 36 + 2] = 0x10;  // the count, after "TEVH" and the version
    EXPECT_EQ(errorCheckTEVInBuffer(FixedBuffer(overCounted).handle()), 0u);
    EXPECT_EQ(errorCheckTEVInStream(FixedBuffer(fakeJpeg(64)).stream()), 0u);
}

int64_t dataStartOf(const Bytes& bytes) {
    PackOnMedium held(bytes, Medium::Handle);
    return held.pack() ? int64_t(held.pack()->info->data_start_position) : -1;
}

TEST_F(DetectTest, UnclaimedVoxaSoundInFrontOfTheContainerJoinsTheAppendedRegion) {
    const uint32_t containerStart = kMediaSize + kSoundSize;
    EXPECT_EQ(dataStartOf(containerThenVoxa(mediaWithSound(), kMediaSize, containerStart)), kMediaSize);
    // A table pointing into the container, at no record's data, moves the
    // start there all the same.
    const uint32_t inside = containerStart + 3;
    EXPECT_EQ(dataStartOf(containerThenVoxa(mediaWithSound(), inside, inside + 6)), inside);
    // A sound held by an EchoFrame record is part of the container already.
    const std::vector<RecordSpec> echo = {{256, "EchoFrame_000", std::nullopt, Bytes(kSoundSize, 0x44)}};
    const uint32_t soundData = kMediaSize + 8 + 13;
    EXPECT_EQ(dataStartOf(containerThenVoxa(fakeJpeg(kMediaSize), soundData, soundData + kSoundSize, echo)),
              kMediaSize);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

}  // namespace
