// The delete entry points over paths, descriptors, FILE*, streams and packs:
// by name, several names, everything, and the "fast" forms, including the
// MP4 box that must fit the container afterwards.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"

using namespace tevtest;

namespace {

class DeleteEntryPointTest : public LogCaptureTest {
protected:
    const Bytes jpeg = fakeJpeg(256);
    const Bytes mp4 = fakeMp4(640);
    const RecordSpec alpha = record("alpha", 20, 0x61);
    const RecordSpec beta = record("beta", 45, 0x62);
    const RecordSpec gamma = record("gamma", 31, 0x63);
    const std::vector<RecordSpec> three = {alpha, beta, gamma};
};

TEST_F(DeleteEntryPointTest, PathFormsLeaveTheRightRecordsAndBox) {
    const char* names[] = {"alpha", "missing", "gamma"};
    const uint32_t lengths[] = {5, 7, 5};
    const RecordSpec sound = record("EchoFrame_000", 48, 0x5E, 256);
    const uint32_t soundAt = uint32_t(jpeg.size()) + recordLength(alpha) + 8 + 13;
    const uint32_t movedAt = soundAt - recordLength(alpha);
    const struct {
        const char* label;
        Bytes before;
        std::function<uint32_t(const char*)> remove;
        uint32_t result;
        Bytes after;
    } cases[] = {
        // Names come as bytes and a length, without a terminating zero.
        {"ByName", buildContainer(jpeg, three), [](const char* p) { return deleteTEVDataFromFile(p, "betaX", 4); }, 1, buildContainer(jpeg, {alpha, gamma})},
        {"AbsentName", buildContainer(jpeg, three), [](const char* p) { return deleteTEVDataFromFile(p, "betamax", 7); }, 0, buildContainer(jpeg, three)},
        {"BoxedKeepsAFittingBox", buildContainer(mp4, three, boxed()), [](const char* p) { return deleteTEVDataFromFile(p, "beta", 4); }, 1, buildContainer(mp4, {alpha, gamma}, boxed())},
        {"UnboxedInMp4GetsABox", buildContainer(mp4, three), [](const char* p) { return deleteTEVDataFromFile(p, "alpha", 5); }, 1, buildContainer(mp4, {beta, gamma}, boxed())},
        {"LastRecordLeavesTheMedia", buildContainer(mp4, {beta}, boxed()), [](const char* p) { return deleteTEVDataFromFile(p, "beta", 4); }, 1, mp4},
        {"VoxaBlockMovesWithTheSound", concat(buildContainer(jpeg, {alpha, sound}), voxaBlock(107, soundAt, soundAt + 48)),
         [](const char* p) { return deleteTEVDataFromFile(p, "alpha", 5); }, 1, concat(buildContainer(jpeg, {sound}), voxaBlock(107, movedAt, movedAt + 48))},
        {"FastOneFixesTheBox", buildContainer(mp4, three, boxed()), [](const char* p) { return deleteFastATEVData(p, "beta"); }, 1, buildContainer(mp4, {alpha, gamma}, boxed())},
        {"SeveralNames", buildContainer(mp4, three, boxed()), [&](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 1, buildContainer(mp4, {beta}, boxed())},
        {"SeveralNamesNoneThere", buildContainer(jpeg, {beta}), [&](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 0, buildContainer(jpeg, {beta})},
        {"All", buildContainer(mp4, three, boxed()), [](const char* p) { return deleteAllDataFromFile(p); }, 1, mp4},
        {"AllOnPlainMedia", jpeg, [](const char* p) { return deleteAllDataFromFile(p); }, 0, jpeg},
        {"FastAll", buildContainer(mp4, three, boxed()), [](const char* p) { return deleteFastAllTEVData(p); }, 1, mp4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        TempFile file(c.before);
        EXPECT_EQ(c.remove(file.c_str()), c.result) << dumpLog();
        EXPECT_EQ(file.read(), c.after);
    }
}

TEST_F(DeleteEntryPointTest, ThePackIsReplacedByAFreshParseAndGoesWithTheLastRecord) {
    TempFile file(buildContainer(jpeg, three));
    _TEV_info_pack* pack = checkTEVInFile(file.c_str());
    ASSERT_NE(pack, nullptr);
    ASSERT_EQ(deleteTEVDataFromFilebyName(&pack, "alpha", 5), 1u) << dumpLog();
    ASSERT_NE(pack, nullptr);
    EXPECT_EQ(GetTevCount(pack), 2u);
    EXPECT_EQ(deleteTEVDataFromFilebyName(&pack, "beta", 4), 1u);
    EXPECT_EQ(deleteTEVDataFromFilebyName(&pack, "gamma", 5), 1u);
    EXPECT_EQ(pack, nullptr);
    EXPECT_EQ(file.read(), jpeg);
}

TEST_F(DeleteEntryPointTest, DescriptorAndFilePointerFormsLeaveThemOpen) {
    TempFile byFd(buildContainer(jpeg, three));
    const int fd = open(byFd.c_str(), O_RDWR);
    EXPECT_EQ(deleteAllDataFromFd(fd), 1u) << dumpLog();
    EXPECT_EQ(lseek(fd, 0, SEEK_END), off_t(jpeg.size()));
    close(fd);

    TempFile byFp(buildContainer(jpeg, three));
    FILE* fp = std::fopen(byFp.c_str(), "r+b");
    EXPECT_EQ(deleteFastAllTEVDataFP(fp), 1u) << dumpLog();
    EXPECT_EQ(std::fseek(fp, 0, SEEK_END), 0);
    EXPECT_EQ(std::ftell(fp), long(jpeg.size()));
    std::fclose(fp);
}

// Under the sanitizer build this proves the stream is deleted exactly once on every path.
TEST_F(DeleteEntryPointTest, FastDeleteAllDeletesTheStreamItIsGiven) {
    TempFile file(buildContainer(jpeg, three));
    FILE* fp = std::fopen(file.c_str(), "r+b");
    EXPECT_EQ(deleteFastAllTEVDataStream(new TevStreamFile(fp)), 1u) << dumpLog();
    EXPECT_EQ(file.read(), jpeg);
    EXPECT_EQ(deleteFastAllTEVDataStream(new TevStreamFile(fp)), 0u);
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::deleteFastAllTEVDataStream", "TEVDATA is null"));
    EXPECT_EQ(deleteFastAllTEVDataStream(new TevStreamFile(nullptr)), 0u);
    std::fclose(fp);
}

}  // namespace
