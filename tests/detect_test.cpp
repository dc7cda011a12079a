// Telling plain, container, Voxa and mixed files apart, and the checks that
// parse a container into a pack.
#include <sys/stat.h>
#include <unistd.h>

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
    EXPECT_STREQ(pack->name_list[0], "alpha");
    EXPECT_STREQ(pack->name_list[1], "beta");
    EXPECT_EQ(pack->info->data_start_position, kMediaSize);
    EXPECT_EQ(held.contents(), original);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(AllMedia, DetectOnMedium,
                         ::testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Buffer, Medium::Handle),
                         mediumName);

class DetectTest : public LogCaptureTest {};

TEST_F(DetectTest, SignatureComesFromTheLastBytes) {
    EXPECT_EQ(signatureOn(fakeJpeg(200), Medium::Buffer), SIGNATURE_DETECTION_FAIL);
    EXPECT_EQ(signatureOn(textBytes("TEVT!"), Medium::Buffer), SIGNATURE_DETECTION_FAIL);
    EXPECT_EQ(signatureOn(endingWith(50, "TEVT"), Medium::Buffer), SIGNATURE_TEV);
    EXPECT_EQ(signatureOn(endingWith(33, "VOXABS"), Medium::Buffer), SIGNATURE_DETECTION_FAIL);
    EXPECT_EQ(signatureOn(voxaOnly(), Medium::Buffer), SIGNATURE_VOXA);
    EXPECT_EQ(signatureOn(containerThenVoxa(mediaWithSound(), 100, 140), Medium::Buffer), SIGNATURE_VOXA_TEV);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    // 34 bytes: where "TEVT" would stand is the first byte of the file.
    EXPECT_EQ(signatureOn(endingWith(34, "VOXABS"), Medium::Buffer), SIGNATURE_ERROR);
    EXPECT_TRUE(loggedError("TEV::getSignatureFP", "File Search Error"));
    EXPECT_EQ(getSignatureStream(nullptr), SIGNATURE_ERROR);
    EXPECT_TRUE(loggedError("TEVAPIs::getSignatureStream", "Stream is null\n"));
    EXPECT_GT(getSignatureFd(0), SIGNATURE_VOXA_TEV);  // what the log call returned
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::getSignatureFd", "fd error!!"));
}

TEST_F(DetectTest, CheckFindsNothingInPlainMediaGarbageOrMissingInput) {
    EXPECT_EQ(PackOnMedium(fakeJpeg(300), Medium::Buffer).pack(), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    EXPECT_EQ(PackOnMedium(endingWith(200, "TEVT"), Medium::Buffer).pack(), nullptr);
    EXPECT_EQ(checkTEVWithReadPM_Fd(0), nullptr);
    EXPECT_EQ(checkTEVInFP(nullptr), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInFP", "fp is null!!"));
}

TEST_F(DetectTest, IsTEVFileOnlyForFilesEndingWithAContainer) {
    const std::pair<Bytes, uint32_t> kCases[] = {{buildContainer(fakeJpeg(kMediaSize), kRecords), 1u},
                                                 {containerThenVoxa(mediaWithSound(), 100, 140), 1u},
                                                 {voxaOnly(), 0u},
                                                 {fakeJpeg(kMediaSize), 0u}};
    for (const auto& [bytes, expected] : kCases) EXPECT_EQ(isTEVFile(TempFile(bytes).c_str()), expected);
}

TEST_F(DetectTest, Mp4CheckLooksForFtypAndKeepsThePosition) {
    FixedBuffer mp4(fakeMp4(64));
    FixedBuffer jpeg(fakeJpeg(64));
    mp4.stream()->seek(17, 0);
    jpeg.stream()->seek(23, 0);
    EXPECT_EQ(checkMP4Stream(mp4.stream()), 1u);
    EXPECT_EQ(checkMP4Stream(jpeg.stream()), 0u);
    EXPECT_EQ(mp4.stream()->tell(), 17);
    EXPECT_EQ(jpeg.stream()->tell(), 23);
    EXPECT_EQ(checkMP4Stream(FixedBuffer(textBytes("abcdef")).stream()), 0u);
}

TEST_F(DetectTest, ReadOnlyFileCanBeCheckedOnlyForReading) {
    if (geteuid() == 0) GTEST_SKIP() << "file permissions do not bind root";
    TempFile file(buildContainer(fakeJpeg(kMediaSize), kRecords));
    ASSERT_EQ(chmod(file.c_str(), 0444), 0);
    EXPECT_EQ(checkTEVInFile(file.c_str()), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs", "File Open Error")) << dumpLog();
    _TEV_info_pack* pack = checkTEVWithReadPM(file.c_str());
    ASSERT_NE(pack, nullptr) << dumpLog();
    destroyTEVDATA(pack);
}

TEST_F(DetectTest, ErrorCheckTrustsTheTailOfOldVersionsOnly) {
    Bytes badName = buildContainer(fakeJpeg(kMediaSize), kRecords);
    badName[kMediaSize + 4] = 0;  // name length 0: the directory parses, the names do not
    FixedBuffer damaged(badName);
    EXPECT_EQ(checkTEVInStream(damaged.stream()), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getAllNameOfDataList err."));
    EXPECT_EQ(errorCheckTEVInStream(damaged.stream()), 1u);

    // A count the file cannot hold: only the wide-entry versions read the list.
    Bytes overCounted = buildContainer(fakeJpeg(kMediaSize), kRecords, {110});
    EXPECT_EQ(errorCheckTEVInBuffer(FixedBuffer(overCounted).handle()), 1u);
    const size_t countField = overCounted.size() - 8 - 36 + 8;  // after "TEVH" and the version
    overCounted[countField + 2] = 0x10;
    EXPECT_EQ(errorCheckTEVInBuffer(FixedBuffer(overCounted).handle()), 0u);
    EXPECT_EQ(errorCheckTEVInStream(FixedBuffer(fakeJpeg(64)).stream()), 0u);
}

int64_t dataStartOf(const Bytes& bytes) {
    FixedBuffer buffer(bytes);
    _TEV_info_pack* pack = checkTEVInStream(buffer.stream());
    if (pack == nullptr) return -1;
    const int64_t start = pack->info->data_start_position;
    destroyTEVDATA_Stream(pack);
    return start;
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
