// Deleting records: what the seeded model in delete_model_test.cpp does not
// reach. The refused index, the Voxa block's position mark around the sound
// record, every form of deleting the whole container, and the entry points
// over paths, descriptors, FILE*, streams and packs with the MP4 box that
// must fit the container afterwards.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"

using namespace tevtest;

namespace {

std::vector<RecordSpec> without(std::vector<RecordSpec> records, size_t index) {
    records.erase(records.begin() + long(index));
    return records;
}

class DeleteTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        three[0].sub = Bytes{1, 2, 3, 4, 5};
    }

    uint32_t deleteIndex(const TempFile& file, uint32_t index) {
        return editParsed(file.path(), [&](_TEV_info* info) { return DeleteATEVDataStream(info, index, nullptr); });
    }

    const Bytes media = fakeJpeg(300);
    std::vector<RecordSpec> three = {record("first", 40, 0xA1), record("middle", 70, 0xB2), record("last", 25, 0xC3)};
};

TEST_F(DeleteTest, IndexEqualToTheCountIsRefused) {
    const Bytes original = buildContainer(media, three);
    TempFile file(original);
    EXPECT_EQ(deleteIndex(file, 3), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteATEVDataStream", "if index < 0 || index >= TEV_info->meta_count")) << dumpLog();
    EXPECT_EQ(file.read(), original);
}

// A container whose second record holds the Voxa sound, followed by a Voxa
// block that points at that record's data.
class DeleteWithVoxaTest : public LogCaptureTest {
protected:
    const Bytes media = fakeJpeg(200);
    const std::vector<RecordSpec> records = {record("note", 30, 0x11), record("EchoFrame_000", 64, 0x5E, 256),
                                             record("EchoFrame_Meta_Info", 29, 0x00, 2048), record("tail", 12, 0x22)};
    const uint32_t start = uint32_t(media.size()) + recordLength(records[0]) + 8 + 13;
    const uint32_t end = start + 64;
};

TEST_F(DeleteWithVoxaTest, TheVoxaBlockFollowsTheSoundOrGoesWithIt) {
    const uint32_t moved = recordLength(records[0]);
    const struct {
        uint32_t index;
        uint32_t mark;  // 1 before the sound record, 2 the sound record itself, 0 after it
        Bytes after;
    } cases[] = {
        {0, 1, concat(buildContainer(media, without(records, 0)), voxaBlock(107, start - moved, end - moved))},
        {1, 2, buildContainer(media, without(records, 1))},
        {3, 0, concat(buildContainer(media, without(records, 3)), voxaBlock(107, start, end))},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.index);
        TempFile file(concat(buildContainer(media, records), voxaBlock(107, start, end)));
        uint32_t mark = 0xFFFFFFFF;
        EXPECT_EQ(editParsed(file.path(), [&](_TEV_info* info) {
                      _voxa_info_struct* voxa = _checkAudioInImageStream(info->Stream);
                      if (voxa == nullptr) return 0u;
                      const uint32_t deleted = DeleteATEVDataStream(info, c.index, voxa);
                      mark = voxa->position_mark;
                      DestroyVoxaStream(voxa);
                      return deleted;
                  }), 1u) << dumpLog();
        EXPECT_EQ(mark, c.mark);
        EXPECT_EQ(file.read(), c.after);
    }
}

class DeleteAllTest : public DeleteTest {};

TEST_F(DeleteAllTest, EveryFormCutsBackToTheMediaWithTheBoxAndAnyVoxaBlock) {
    const Bytes mp4 = fakeMp4(400);
    for (auto deleteAll : {&DeleteAllTEVDataStream, &DeleteAllDataStream, &FastDeleteAllData, &FastDeleteAllTEVData}) {
        TempFile file(buildContainer(mp4, three, boxed()));
        EXPECT_EQ(editParsed(file.path(), deleteAll), 1u) << dumpLog();
        EXPECT_EQ(file.read(), mp4);
    }
    ContainerOptions withVoxa;
    withVoxa.voxaTrailer = true;
    withVoxa.voxaStart = uint32_t(media.size()) + 8 + 5 + 4 + 5;
    withVoxa.voxaEnd = withVoxa.voxaStart + 40;
    TempFile file(buildContainer(media, three, withVoxa));
    EXPECT_EQ(editParsed(file.path(), &DeleteAllTEVDataStream), 1u) << dumpLog();
    EXPECT_EQ(file.read(), media);
}

// --- The entry points.
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

// --- Each case against the documented behaviour: the whole file afterwards,
// the result and every log line, from files built byte by byte.
using Lines = std::vector<std::pair<std::string, std::string>>;

Lines errorLines() {
    Lines lines;
    for (const LogLine& line : capturedLog()) {
        if (line.priority == 6) lines.emplace_back(line.tag, line.text);
    }
    return lines;
}

class DeleteConformanceTest : public LogCaptureTest {
protected:
    const Bytes media = fakeJpeg(300);
    const std::vector<RecordSpec> four = {record("a", 33, 0x0A), record("b", 51, 0x0B), record("c", 17, 0x0C),
                                          record("d", 64, 0x0D)};
    size_t recordsLength() const {
        size_t sum = 0;
        for (const RecordSpec& r : four) sum += recordLength(r);
        return sum;
    }
};

TEST_F(DeleteConformanceTest, EachCaseGivesItsBytesResultAndLogLines) {
    const Bytes original = buildContainer(media, four);
    const size_t oldHead = media.size() + recordsLength();
    // Records that do not tile the container: the second entry's length is 4 too long.
    Bytes damaged = original;
    putU32le(damaged, oldHead + 12 + 12 + 8, recordLength(four[1]) + 4);
    // All four gone: a directory without entries over the first record, the
    // cut at the old "TEVH" plus its 20 bytes.
    Bytes allGone(original.begin(), original.begin() + long(oldHead + 20));
    const Bytes emptyDirectory = ByteBuilder().text("TEVH").u32le(107).u32le(0).u32le(12).text("TEVT").take();
    std::copy(emptyDirectory.begin(), emptyDirectory.end(), allGone.begin() + long(media.size()));
    // A Voxa block after the container whose descriptor is made to list no
    // sound: the block written back keeps the count 0 and the positions.
    const uint32_t soundAt = uint32_t(media.size()) + recordLength(four[0]) + 8 + 1;
    const Bytes withVoxa = concat(original, voxaBlock(107, soundAt, soundAt + 51));
    const auto deleteMulti = [](std::vector<uint32_t> indices) {
        return [indices](const char* path) {
            return editParsed(path, [&](_TEV_info* info) {
                return DeleteMultiTEVData(info, indices.data(), uint32_t(indices.size()));
            });
        };
    };
    const struct {
        const char* label;
        Bytes before;
        std::function<uint32_t(const char*)> edit;
        uint32_t result;
        Bytes after;
        Lines log;
    } cases[] = {
        {"DamagedDirectoryIsNotMoved", damaged,
         [](const char* p) { return editParsed(p, [](_TEV_info* i) { return DeleteATEVDataStream(i, 3, nullptr); }); },
         0, damaged, {{"TEV::DeleteATEVDataStream", "TEV directory is damaged"}}},
        {"DeleteAllCutsWhereTheIndexSays", original,
         [](const char* p) {
             return editParsed(p, [](_TEV_info* i) {
                 i->data_start_position -= 50;
                 return DeleteAllTEVDataStream(i);
             });
         },
         1, Bytes(original.begin(), original.begin() + 250), {}},
        {"MultiWithNoMatchWritesTheContainerAgain", original, deleteMulti({4, 7}), 1,
         concat(original, Bytes(recordsLength(), 0)), {}},
        {"MultiWithAllLeavesAnEmptyDirectory", original, deleteMulti({0, 1, 2, 3}), 1, allGone, {}},
        {"DescriptorListingNoSoundKeepsItsBlock", withVoxa,
         [](const char* p) {
             return editParsed(p, [](_TEV_info* i) {
                 _voxa_info_struct* voxa = _checkAudioInImageStream(i->Stream);
                 if (voxa == nullptr) return 0u;
                 voxa->sound_count = 0;
                 const uint32_t deleted = DeleteATEVDataStream(i, 3, voxa);
                 DestroyVoxaStream(voxa);
                 return deleted;
             });
         },
         1, concat(buildContainer(media, {four[0], four[1], four[2]}), ByteBuilder().text("VOXA").u32le(107).u32le(0)
                                                                          .u32le(soundAt).u32le(soundAt + 51).u32le(20)
                                                                          .text("VOXABS").take()),
         {}},
        {"NullNameIsReportedByTheLookUp", original,
         [](const char* p) {
             _TEV_info_pack* pack = checkTEVInFile(p);
             TevStream* stream = pack->info->Stream;
             const uint32_t result = deleteTEVDataFromStreambyName(stream, pack, nullptr, 3) +
                                     deleteFastATEVData(p, nullptr);
             destroyTEVDATA(pack);
             return result;
         },
         0, original, {{"TEVAPIs::_getIndexOfName", "name null"}, {"TEVAPIs::_getIndexOfName", "name null"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        TempFile file(c.before);
        clearLog();
        EXPECT_EQ(c.edit(file.c_str()), c.result) << dumpLog();
        EXPECT_EQ(file.read(), c.after);
        EXPECT_EQ(errorLines(), c.log) << dumpLog();
    }
}

}  // namespace
