// The delete entry points over paths, descriptors, FILE*, streams and packs:
// by name, several names, everything, and the "fast" forms, including the
// MP4 box that must fit the container afterwards.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "tev/tev.h"

namespace tevtest {
namespace {

ContainerOptions boxed() {
    ContainerOptions options;
    options.mp4Box = true;
    return options;
}

class DeleteEntryPointTest : public LogCaptureTest {
protected:
    const Bytes jpeg = fakeJpeg(256);
    const Bytes mp4 = fakeMp4(640);
    const std::vector<RecordSpec> three = {record("alpha", 20, 0x61), record("beta", 45, 0x62),
                                           record("gamma", 31, 0x63)};
    const std::vector<RecordSpec> alphaGamma = {three[0], three[2]};
};

TEST_F(DeleteEntryPointTest, DeletingByPathRemovesTheNamedRecord) {
    TempFile file(buildContainer(jpeg, three));
    // Names come as bytes and a length, without a terminating zero.
    const char name[] = {'b', 'e', 't', 'a', 'X'};
    EXPECT_EQ(deleteTEVDataFromFile(file.c_str(), name, 4), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(jpeg, alphaGamma));
}

TEST_F(DeleteEntryPointTest, AnAbsentNameChangesNothing) {
    const Bytes original = buildContainer(jpeg, three);
    TempFile file(original);
    EXPECT_EQ(deleteTEVDataFromFile(file.c_str(), "delta", 5), 0u);
    EXPECT_EQ(deleteTEVDataFromFile(file.c_str(), "betamax", 7), 0u);
    EXPECT_EQ(file.read(), original);
}

TEST_F(DeleteEntryPointTest, ABoxedContainerKeepsABoxThatFitsIt) {
    TempFile file(buildContainer(mp4, three, boxed()));
    EXPECT_EQ(deleteTEVDataFromFile(file.c_str(), "beta", 4), 1u) << dumpLog();
    const Bytes after = file.read();
    EXPECT_EQ(after, buildContainer(mp4, alphaGamma, boxed()));
    EXPECT_EQ(readU32be(after, mp4.size()), after.size() - mp4.size());
}

TEST_F(DeleteEntryPointTest, AnUnboxedContainerInAnMP4GetsABox) {
    TempFile file(buildContainer(mp4, three));
    EXPECT_EQ(deleteTEVDataFromFile(file.c_str(), "alpha", 5), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(mp4, {three[1], three[2]}, boxed()));
}

TEST_F(DeleteEntryPointTest, DeletingTheLastRecordByNameLeavesTheMedia) {
    TempFile file(buildContainer(mp4, {three[1]}, boxed()));
    EXPECT_EQ(deleteTEVDataFromFile(file.c_str(), "beta", 4), 1u) << dumpLog();
    EXPECT_EQ(file.read(), mp4);
}

TEST_F(DeleteEntryPointTest, ThePackIsReplacedByAFreshParse) {
    TempFile file(buildContainer(jpeg, three));
    _TEV_info_pack* pack = checkTEVInFile(file.c_str());
    ASSERT_NE(pack, nullptr);
    ASSERT_EQ(deleteTEVDataFromFilebyName(&pack, "alpha", 5), 1u) << dumpLog();
    ASSERT_NE(pack, nullptr);
    EXPECT_EQ(GetTevCount(pack), 2u);
    _TEV_data_unit* gamma = extractTEVDataFromFilebyName(pack, "gamma", 5);
    ASSERT_NE(gamma, nullptr);
    EXPECT_EQ(Bytes(gamma->data, gamma->data + gamma->data_length), three[2].data);
    destroyTEVDATA_UNIT(gamma);
    // Two more deletes empty the container; the pack goes and the file is closed.
    EXPECT_EQ(deleteTEVDataFromFilebyName(&pack, "beta", 4), 1u);
    EXPECT_EQ(deleteTEVDataFromFilebyName(&pack, "gamma", 5), 1u);
    EXPECT_EQ(pack, nullptr);
    EXPECT_EQ(file.read(), jpeg);
}

TEST_F(DeleteEntryPointTest, DeleteAndDestroyReleasesThePack) {
    TempFile file(buildContainer(jpeg, three));
    EXPECT_EQ(deleteTEVDataAndDestroy(checkTEVInFile(file.c_str()), "gamma", 5), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(jpeg, {three[0], three[1]}));
    EXPECT_EQ(deleteTEVDataAndDestroy(nullptr, "gamma", 5), 0u);
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::deleteTEVDataAndDestroy", "TEVDATA is null"));
}

TEST_F(DeleteEntryPointTest, ByNameOnAStreamKeepsTheVoxaBlockInStep) {
    const RecordSpec sound = record("EchoFrame_000", 48, 0x5E, 256);
    const std::vector<RecordSpec> records = {three[0], sound};
    const uint32_t start = static_cast<uint32_t>(jpeg.size()) + recordLength(three[0]) + 8 + 13;
    TempFile file(concat(buildContainer(jpeg, records), voxaBlock(107, start, start + 48)));
    FilePack owner(checkTEVInFile(file.c_str()));
    ASSERT_NE(owner, nullptr) << dumpLog();
    TevStream* stream = owner->info->Stream;
    _TEV_info_pack* pack = owner.release();
    EXPECT_EQ(deleteTEVDataFromStreambyName(stream, pack, "alpha", 5), 1u) << dumpLog();
    owner.reset(pack);
    const uint32_t moved = start - recordLength(three[0]);
    EXPECT_EQ(file.read(), concat(buildContainer(jpeg, {sound}), voxaBlock(107, moved, moved + 48)));
}

TEST_F(DeleteEntryPointTest, SeveralNamesLeaveAReadableContainer) {
    TempFile file(buildContainer(mp4, three, boxed()));
    const char* names[] = {"alpha", "missing", "gamma"};
    const uint32_t lengths[] = {5, 7, 5};
    EXPECT_EQ(deleteTEVMultiDataFromFilebyName(file.c_str(), names, lengths, 3), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(mp4, {three[1]}, boxed()));

    const char* absent[] = {"missing"};
    const uint32_t absentLength[] = {7};
    EXPECT_EQ(deleteTEVMultiDataFromFilebyName(file.c_str(), absent, absentLength, 1), 0u);
    EXPECT_EQ(file.read(), buildContainer(mp4, {three[1]}, boxed()));
}

TEST_F(DeleteEntryPointTest, DeleteAllByPathAndDescriptorLeavesTheMedia) {
    TempFile byPath(buildContainer(mp4, three, boxed()));
    EXPECT_EQ(deleteAllDataFromFile(byPath.c_str()), 1u) << dumpLog();
    EXPECT_EQ(byPath.read(), mp4);

    TempFile byFd(buildContainer(jpeg, three));
    const int fd = open(byFd.c_str(), O_RDWR);
    ASSERT_GT(fd, 0);
    EXPECT_EQ(deleteAllDataFromFd(fd), 1u) << dumpLog();
    close(fd);
    EXPECT_EQ(byFd.read(), jpeg);
}

TEST_F(DeleteEntryPointTest, DeleteAllRefusesFilesWithoutAContainer) {
    TempFile plain(jpeg);
    EXPECT_EQ(deleteAllDataFromFile(plain.c_str()), 0u);
    EXPECT_EQ(plain.read(), jpeg);
    const Bytes bareVoxa = concat(concat(jpeg, Bytes(40, 0x5E)),
                                  voxaBlock(106, static_cast<uint32_t>(jpeg.size()),
                                            static_cast<uint32_t>(jpeg.size()) + 40));
    TempFile voxa(bareVoxa);
    EXPECT_EQ(deleteAllDataFromFile(voxa.c_str()), 0u);
    EXPECT_EQ(voxa.read(), bareVoxa);
    EXPECT_EQ(deleteAllDataFromFd(0), 0u);
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::deleteAllDataFromFd", "fd error!!"));
}

TEST_F(DeleteEntryPointTest, FastDeleteAllByPathAndFilePointer) {
    TempFile byPath(buildContainer(mp4, three, boxed()));
    EXPECT_EQ(deleteFastAllTEVData(byPath.c_str()), 1u) << dumpLog();
    EXPECT_EQ(byPath.read(), mp4);

    TempFile byFp(buildContainer(jpeg, three));
    FILE* fp = std::fopen(byFp.c_str(), "r+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(deleteFastAllTEVDataFP(fp), 1u) << dumpLog();
    // The caller's FILE* stays open and usable.
    EXPECT_EQ(std::fseek(fp, 0, SEEK_END), 0);
    EXPECT_EQ(std::ftell(fp), static_cast<long>(jpeg.size()));
    std::fclose(fp);
}

// Run under the sanitizer build these prove the stream is deleted exactly once.
TEST_F(DeleteEntryPointTest, FastDeleteAllDeletesTheStreamItIsGiven) {
    TempFile file(buildContainer(jpeg, three));
    FILE* fp = std::fopen(file.c_str(), "r+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(deleteFastAllTEVDataStream(new TevStreamFile(fp)), 1u) << dumpLog();
    EXPECT_EQ(file.read(), jpeg);
    // Without a container, and over an unusable stream, it is deleted as well.
    EXPECT_EQ(deleteFastAllTEVDataStream(new TevStreamFile(fp)), 0u);
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::deleteFastAllTEVDataStream", "TEVDATA is null"));
    EXPECT_EQ(deleteFastAllTEVDataStream(new TevStreamFile(nullptr)), 0u);
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::deleteFastAllTEVDataStream", "Pointer is null"));
    std::fclose(fp);
}

TEST_F(DeleteEntryPointTest, FastDeleteOneFixesTheBox) {
    TempFile file(buildContainer(mp4, three, boxed()));
    EXPECT_EQ(deleteFastATEVData(file.c_str(), "beta"), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(mp4, alphaGamma, boxed()));
    EXPECT_EQ(deleteFastATEVData(file.c_str(), "beta"), 0u);
    EXPECT_EQ(file.read(), buildContainer(mp4, alphaGamma, boxed()));
}

}  // namespace
}  // namespace tevtest
