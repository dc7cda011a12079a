#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/tev.h"

namespace {

using tevtest::buildContainer;
using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::ContainerOptions;
using tevtest::fakeJpeg;
using tevtest::fakeMp4;
using tevtest::Medium;
using tevtest::RecordSpec;
using tevtest::TempFile;
using tevtest::textBytes;

const std::vector<RecordSpec> kTwoRecords = {
    {7, "alpha", std::nullopt, textBytes("first payload")},
    {0, "beta", textBytes("sub"), textBytes("second")},
};

Bytes twoRecordContainer() { return buildContainer(fakeJpeg(100), kTwoRecords); }

Bytes endingWith(size_t size, const std::string& tail) {
    return ByteBuilder().zeros(size - tail.size()).text(tail).take();
}

// A plain buffer stream over `bytes` (kept by the caller) for stream forms.
struct BufferStream {
    explicit BufferStream(Bytes& bytes) : handle(_kbsetbuffer(bytes.data(), int64_t(bytes.size()))) {
        btruncate(handle, int64_t(bytes.size()));
        stream = new TevStreamBuffer(handle);
    }
    ~BufferStream() {
        delete stream;
        _kbclose(handle);
    }
    TevBufferHandle* handle;
    TevStream* stream;
};

// --- signatures -------------------------------------------------------------

struct SignatureCase {
    const char* what;
    Bytes bytes;
    uint32_t expected;
};

std::vector<SignatureCase> signatureCases() {
    const Bytes sound(40, 0x33);
    const Bytes jpegWithSound = ByteBuilder().bytes(fakeJpeg(100)).bytes(sound).take();
    ContainerOptions voxaBehind;
    voxaBehind.voxaTrailer = true;
    voxaBehind.voxaStart = 100;
    voxaBehind.voxaEnd = 140;
    return {
        {"plain media", fakeJpeg(200), SIGNATURE_DETECTION_FAIL},
        {"five bytes", textBytes("TEVT!"), SIGNATURE_DETECTION_FAIL},
        {"garbage ending in the closing tag", endingWith(50, "TEVT"), SIGNATURE_TEV},
        {"container", twoRecordContainer(), SIGNATURE_TEV},
        {"33 bytes ending in the Voxa mark", endingWith(33, "VOXABS"), SIGNATURE_DETECTION_FAIL},
        {"Voxa block only",
         ByteBuilder().bytes(jpegWithSound).bytes(tevtest::voxaBlock(106, 100, 140)).take(), SIGNATURE_VOXA},
        {"container followed by a Voxa block", buildContainer(jpegWithSound, kTwoRecords, voxaBehind),
         SIGNATURE_VOXA_TEV},
    };
}

class SignatureOnMedium : public tevtest::LogCaptureTest, public ::testing::WithParamInterface<Medium> {};

TEST_P(SignatureOnMedium, ClassifiesTheFileByItsLastBytes) {
    for (const SignatureCase& c : signatureCases()) {
        EXPECT_EQ(tevtest::signatureOn(c.bytes, GetParam()), c.expected) << c.what;
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(AllMedia, SignatureOnMedium,
                         ::testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Buffer),
                         tevtest::mediumName);

class SignatureTest : public tevtest::LogCaptureTest {};

TEST_F(SignatureTest, RefusesMissingStreamsAndFiles) {
    EXPECT_EQ(getSignatureStream(nullptr), SIGNATURE_ERROR);
    EXPECT_TRUE(loggedError("TEVAPIs::getSignatureStream", "Stream is null\n"));
    EXPECT_EQ(getSignatureFP(nullptr), SIGNATURE_ERROR);
    EXPECT_TRUE(loggedError("TEVAPIs::getSignatureStream", "CheckError is false\n"));
    TempFile file;
    const std::string missing = file.path() + ".missing";
    EXPECT_EQ(getSignature(missing.c_str()), SIGNATURE_ERROR);
    EXPECT_TRUE(loggedError("TEV::getSignature", "File Open Error : " + missing)) << dumpLog();
}

TEST_F(SignatureTest, BadDescriptorGivesAPositiveNonSignatureResult) {
    const uint32_t result = getSignatureFd(0);
    EXPECT_GT(result, SIGNATURE_VOXA_TEV);
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::getSignatureFd", "fd error!!"));
}

TEST_F(SignatureTest, VoxaMarkWithTheContainerTagAtTheFirstByteIsASearchError) {
    // 34 bytes: the place where "TEVT" would stand is the file's first byte.
    EXPECT_EQ(tevtest::signatureOn(endingWith(34, "VOXABS"), Medium::Buffer), SIGNATURE_ERROR);
    EXPECT_TRUE(loggedError("TEV::getSignatureFP", "File Search Error"));
}

TEST_F(SignatureTest, IsTEVFileOnlyForFilesEndingWithAContainer) {
    TempFile container(twoRecordContainer());
    EXPECT_EQ(isTEVFile(container.c_str()), 1u);
    ContainerOptions voxaBehind;
    voxaBehind.voxaTrailer = true;
    voxaBehind.voxaStart = 10;
    voxaBehind.voxaEnd = 20;
    TempFile mixed(buildContainer(fakeJpeg(100), kTwoRecords, voxaBehind));
    EXPECT_EQ(isTEVFile(mixed.c_str()), 1u);
    TempFile voxaOnly(ByteBuilder().bytes(fakeJpeg(100)).bytes(tevtest::voxaBlock(106, 10, 20)).take());
    EXPECT_EQ(isTEVFile(voxaOnly.c_str()), 0u);
    TempFile plain(fakeJpeg(100));
    EXPECT_EQ(isTEVFile(plain.c_str()), 0u);
    EXPECT_EQ(isTEVFile(nullptr), 0u);
    EXPECT_EQ(isTEVFile(""), 0u);
}

// --- MP4 recognition ---------------------------------------------------------

class Mp4DetectTest : public tevtest::LogCaptureTest {};

TEST_F(Mp4DetectTest, RecognisesFtypAndKeepsThePosition) {
    Bytes mp4 = fakeMp4(64);
    Bytes jpeg = fakeJpeg(64);
    BufferStream onMp4(mp4);
    BufferStream onJpeg(jpeg);
    onMp4.stream->seek(17, 0);
    onJpeg.stream->seek(23, 0);
    EXPECT_EQ(checkMP4Stream(onMp4.stream), 1u);
    EXPECT_EQ(checkMP4Stream(onJpeg.stream), 0u);
    EXPECT_EQ(onMp4.stream->tell(), 17);
    EXPECT_EQ(onJpeg.stream->tell(), 23);
    EXPECT_EQ(checkMP4Buffer(onMp4.handle), 1u);
    EXPECT_EQ(checkMP4Buffer(onJpeg.handle), 0u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_F(Mp4DetectTest, WorksOnStdioFilesAndRefusesShortOnes) {
    TempFile mp4(fakeMp4(64));
    FILE* fp = fopen(mp4.c_str(), "rb");
    EXPECT_EQ(checkMP4Fp(fp), 1u);
    fclose(fp);
    Bytes tiny = textBytes("abcdef");
    BufferStream onTiny(tiny);
    EXPECT_EQ(checkMP4Stream(onTiny.stream), 0u);
    EXPECT_TRUE(loggedError("TEV::checkMP4Stream", "File Read Error"));
    EXPECT_EQ(checkMP4Stream(nullptr), 0u);
    EXPECT_TRUE(loggedError("TEVAPIs::checkMP4Stream", "Stream is null\n"));
}

// --- checks over every medium ---------------------------------------------

class CheckOnMedium : public tevtest::LogCaptureTest, public ::testing::WithParamInterface<Medium> {};

TEST_P(CheckOnMedium, ParsesAContainerIntoAPack) {
    const Bytes original = twoRecordContainer();
    tevtest::PackOnMedium held(original, GetParam());
    _TEV_info_pack* pack = held.pack();
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(pack->valid, 1u);
    ASSERT_EQ(pack->data_count, 2u);
    EXPECT_STREQ(pack->name_list[0], "alpha");
    EXPECT_STREQ(pack->name_list[1], "beta");
    EXPECT_EQ(pack->info->data_start_position, 100);
    EXPECT_EQ(pack->info->stream_size, int64_t(original.size()));
    EXPECT_EQ(held.contents(), original);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(CheckOnMedium, PlainMediaGivesNoPackAndNoLog) {
    tevtest::PackOnMedium held(fakeJpeg(300), GetParam());
    EXPECT_EQ(held.pack(), nullptr);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

TEST_P(CheckOnMedium, GarbageEndingInTheClosingTagGivesNoPack) {
    tevtest::PackOnMedium held(endingWith(200, "TEVT"), GetParam());
    EXPECT_EQ(held.pack(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(AllMedia, CheckOnMedium,
                         ::testing::Values(Medium::Path, Medium::FilePtr, Medium::Fd, Medium::Buffer,
                                           Medium::Handle),
                         tevtest::mediumName);

class CheckTest : public tevtest::LogCaptureTest {};

TEST_F(CheckTest, RefusesMissingArgumentsWithTheirOwnTexts) {
    EXPECT_EQ(checkTEVInFile(nullptr), nullptr);
    EXPECT_TRUE(loggedError("TEV::checkTEVInFile", "filename null"));
    EXPECT_EQ(checkTEVWithReadPM(nullptr), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVWithReadPM", "filename null"));
    EXPECT_EQ(checkTEVInFP(nullptr), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInFP", "fp is null!!"));
    EXPECT_EQ(checkTEVInFd(-3), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInFd", "fd error!!"));
    EXPECT_EQ(checkTEVWithReadPM_Fd(0), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVWithReadPM", "filename null"));
    EXPECT_EQ(checkTEVInHandle(nullptr), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInFd", "Stream->CheckError false!!"));
    EXPECT_EQ(checkTEVInBuffer(nullptr, 100), nullptr);
    EXPECT_EQ(checkTEVInStream(nullptr), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "Stream is null."));
    TevStreamBuffer unusable(nullptr);
    EXPECT_EQ(checkTEVInStreamAndUpdate(&unusable), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "Stream open error."));
}

TEST_F(CheckTest, ReadOnlyFileOpensOnlyForReading) {
    if (geteuid() == 0) GTEST_SKIP() << "file permissions do not apply to root";
    TempFile file(twoRecordContainer());
    ASSERT_EQ(chmod(file.c_str(), 0444), 0);
    EXPECT_EQ(checkTEVInFile(file.c_str()), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs", "File Open Error")) << dumpLog();
    _TEV_info_pack* pack = checkTEVWithReadPM(file.c_str());
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(pack->data_count, 2u);
    destroyTEVDATA(pack);
}

TEST_F(CheckTest, MissingFileIsAnOpenError) {
    TempFile file;
    const std::string missing = file.path() + ".missing";
    EXPECT_EQ(checkTEVWithReadPM(missing.c_str()), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVWithReadPM", "File Open Error"));
}

TEST_F(CheckTest, ReadOnlyDescriptorFormParsesLikeTheDescriptorForm) {
    TempFile file(twoRecordContainer());
    const int fd = open(file.c_str(), O_RDONLY);
    ASSERT_GT(fd, 0);
    _TEV_info_pack* pack = checkTEVWithReadPM_Fd(fd);
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(pack->data_count, 2u);
    destroyTEVDATA_FP(pack);
    // The descriptor is still the caller's, rewound to the start.
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 0);
    EXPECT_EQ(close(fd), 0);
}

// A record whose name length field is 0: the tail and the directory parse,
// the names do not.
Bytes containerWithDamagedName(uint32_t version) {
    ContainerOptions options;
    options.version = version;
    Bytes bytes = buildContainer(fakeJpeg(100), kTwoRecords, options);
    const size_t nameLengthField = 100 + 4;
    for (size_t i = 0; i < 4; ++i) bytes[nameLengthField + i] = 0;
    return bytes;
}

TEST_F(CheckTest, ErrorCheckAcceptsDamagedEntriesOfAnOldVersionDirectory) {
    Bytes damaged = containerWithDamagedName(107);
    BufferStream held(damaged);
    EXPECT_EQ(checkTEVInStream(held.stream), nullptr);
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getAllNameOfDataList err."))
        << dumpLog();
    EXPECT_EQ(errorCheckTEVInStream(held.stream), 1u);
    EXPECT_EQ(errorCheckTEVInBuffer(held.handle), 1u);
    TempFile file(damaged);
    FILE* fp = fopen(file.c_str(), "rb");
    EXPECT_EQ(errorCheckTEVInFp(fp), 1u);
    fclose(fp);
}

// A directory whose count field claims more entries than the file can hold:
// its tail parses, its entry list does not.
Bytes containerClaimingEntries(uint32_t version, uint32_t count) {
    ContainerOptions options;
    options.version = version;
    Bytes bytes = buildContainer(fakeJpeg(100), kTwoRecords, options);
    const size_t ktho = tevtest::readU32le(bytes, bytes.size() - 8);
    const size_t countField = bytes.size() - 8 - ktho + 8;
    for (size_t i = 0; i < 4; ++i) bytes[countField + i] = uint8_t(count >> (8 * i));
    return bytes;
}

TEST_F(CheckTest, ErrorCheckReadsTheEntriesOnlyForWideEntryVersions) {
    Bytes old = containerClaimingEntries(107, 100000);
    BufferStream onOld(old);
    EXPECT_EQ(errorCheckTEVInStream(onOld.stream), 1u);
    Bytes wide = containerClaimingEntries(110, 100000);
    BufferStream onWide(wide);
    EXPECT_EQ(errorCheckTEVInStream(onWide.stream), 0u);
    Bytes intact = containerClaimingEntries(110, 2);
    BufferStream onIntact(intact);
    EXPECT_EQ(errorCheckTEVInStream(onIntact.stream), 1u) << dumpLog();
}

TEST_F(CheckTest, ErrorCheckRefusesWhatIsNoContainer) {
    Bytes plain = fakeJpeg(100);
    BufferStream held(plain);
    EXPECT_EQ(errorCheckTEVInStream(held.stream), 0u);
    EXPECT_EQ(errorCheckTEVInStream(nullptr), 0u);
    EXPECT_EQ(errorCheckTEVInFp(nullptr), 0u);
    EXPECT_EQ(errorCheckTEVInBuffer(nullptr), 0u);
}

// --- a Voxa block behind the container ------------------------------------

constexpr uint32_t kMediaSize = 100;
constexpr uint32_t kSoundSize = 50;

Bytes mediaWithSound() {
    return ByteBuilder().bytes(fakeJpeg(kMediaSize)).bytes(Bytes(kSoundSize, 0x44)).take();
}

int64_t dataStartWithVoxa(const Bytes& media, const std::vector<RecordSpec>& records, uint32_t start, uint32_t end) {
    ContainerOptions options;
    options.voxaTrailer = true;
    options.voxaStart = start;
    options.voxaEnd = end;
    Bytes bytes = buildContainer(media, records, options);
    BufferStream held(bytes);
    EXPECT_EQ(getSignatureStream(held.stream), SIGNATURE_VOXA_TEV);
    _TEV_info_pack* pack = checkTEVInStream(held.stream);
    if (pack == nullptr) return -1;
    const int64_t dataStart = pack->info->data_start_position;
    destroyTEVDATA_Stream(pack);
    return dataStart;
}

TEST_F(CheckTest, UnreferencedVoxaSoundInFrontWidensTheAppendedRegion) {
    EXPECT_EQ(dataStartWithVoxa(mediaWithSound(), kTwoRecords, kMediaSize, kMediaSize + kSoundSize), kMediaSize)
        << dumpLog();
}

TEST_F(CheckTest, VoxaSoundHeldByARecordLeavesTheRegionAlone) {
    const std::vector<RecordSpec> echo = {{256, "EchoFrame_000", std::nullopt, Bytes(kSoundSize, 0x44)}};
    const uint32_t soundData = kMediaSize + 8 + 13;
    EXPECT_EQ(dataStartWithVoxa(fakeJpeg(kMediaSize), echo, soundData, soundData + kSoundSize), kMediaSize)
        << dumpLog();
}

TEST_F(CheckTest, VoxaTablePointingIntoTheContainerIsIgnored) {
    const int64_t containerStart = kMediaSize + kSoundSize;
    EXPECT_EQ(dataStartWithVoxa(mediaWithSound(), kTwoRecords, containerStart + 3, containerStart + 9),
              containerStart)
        << dumpLog();
}

}  // namespace
