// Deleting records: what the seeded model in delete_model_test.cpp does not
// reach. The Voxa block's position mark around the sound record, and one
// table over every entry point: refusals with their log lines, names given
// by length, the whole-container deletes, the box an unboxed MP4 container
// gets, damaged directories; each case with the whole file afterwards, the
// result and every error line.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"
#include "tev/tev.hpp"

using namespace tevtest;

namespace {

std::vector<RecordSpec> without(std::vector<RecordSpec> records, size_t index) {
    records.erase(records.begin() + long(index));
    return records;
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
                      tev::VoxaStream voxa(_checkAudioInImageStream(info->Stream));
                      const uint32_t deleted = voxa ? DeleteATEVDataStream(info, c.index, voxa.get()) : 0;
                      mark = voxa ? voxa->position_mark : mark;
                      return deleted;
                  }), 1u) << dumpLog();
        EXPECT_EQ(mark, c.mark);
        EXPECT_EQ(file.read(), c.after);
    }
}

using Lines = std::vector<std::pair<std::string, std::string>>;
using Call = std::function<uint32_t(const char* path)>;
using IndexEdit = std::function<uint32_t(_TEV_info*)>;

Lines errorLines() {
    Lines lines;
    for (const LogLine& line : capturedLog()) {
        if (line.priority == 6) lines.emplace_back(line.tag, line.text);
    }
    return lines;
}

Call parsed(IndexEdit edit) {
    return [edit](const char* p) { return editParsed(p, edit); };
}
// `edit` on the parsed index with its stream swapped for `stream`.
Call onStream(TevStream* stream, IndexEdit edit) {
    return parsed([=](_TEV_info* i) {
        TevStream* own = i->Stream;
        i->Stream = stream;
        const uint32_t result = edit(i);
        i->Stream = own;
        return result;
    });
}
// `delete_` over the file opened for update; the FILE* must still be open afterwards.
Call overFp(std::function<uint32_t(FILE*)> delete_) {
    return [delete_](const char* p) {
        FILE* fp = std::fopen(p, "r+b");
        const uint32_t result = delete_(fp);
        return std::fseek(fp, 0, SEEK_END) == 0 && std::fclose(fp) == 0 ? result : 100;
    };
}

struct Case {
    const char* label;
    Call edit;
    uint32_t result;
    Lines log;
    std::optional<Bytes> before = std::nullopt;  // absent: the four-record container
    std::optional<Bytes> after = std::nullopt;   // absent: as before
};

class DeleteConformanceTest : public LogCaptureTest {
protected:
    const Bytes media = fakeJpeg(300);
    const Bytes mp4 = fakeMp4(400);
    const std::vector<RecordSpec> four = {record("a", 33, 0x0A), record("b", 51, 0x0B), record("c", 17, 0x0C),
                                          record("d", 64, 0x0D)};
    const Bytes original = buildContainer(media, four);
    TevStreamFile unusable{nullptr};

    void run(const std::vector<Case>& cases) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.label);
            const Bytes before = c.before.value_or(original);
            TempFile file(before);
            clearLog();
            EXPECT_EQ(c.edit(file.c_str()), c.result) << dumpLog();
            EXPECT_EQ(file.read(), c.after.value_or(before));
            EXPECT_EQ(errorLines(), c.log) << dumpLog();
        }
    }
};

TEST_F(DeleteConformanceTest, IndexLevelDeletesAndTheirRefusals) {
    const size_t oldHead = original.size() - 20 - 12 * four.size();
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
    const Bytes voxaKept = concat(buildContainer(media, {four[0], four[1], four[2]}),
                                  ByteBuilder().text("VOXA").u32le(107).u32le(0).u32le(soundAt).u32le(soundAt + 51)
                                      .u32le(20).text("VOXABS").take());
    ContainerOptions voxaTrailer;
    voxaTrailer.voxaTrailer = true;
    voxaTrailer.voxaStart = uint32_t(media.size()) + 9;
    voxaTrailer.voxaEnd = voxaTrailer.voxaStart + 33;
    const auto multi = [](std::vector<uint32_t> indices) {
        return [indices](_TEV_info* i) { return DeleteMultiTEVData(i, indices.data(), uint32_t(indices.size())); };
    };
    const auto one = [](uint32_t index) { return [index](_TEV_info* i) { return DeleteATEVDataStream(i, index, nullptr); }; };
    const auto emptied = [](IndexEdit edit) { return parsed([edit](_TEV_info* i) { i->stream_size = 0; return edit(i); }); };
    std::vector<Case> cases = {
        {"IndexEqualToTheCount", parsed(one(4)), 0, {{"TEV::DeleteATEVDataStream", "if index < 0 || index >= TEV_info->meta_count"}}},
        {"NoIndex", [](const char*) { return DeleteATEVDataStream(nullptr, 0, nullptr); }, 0, {{"TEV::DeleteATEVDataStream", "TEV_info is null"}}},
        {"DamagedDirectoryIsNotMoved", parsed(one(3)), 0, {{"TEV::DeleteATEVDataStream", "TEV directory is damaged"}}, damaged},
        {"MultiOverADamagedDirectory", parsed(multi({1})), 0, {{"TEV::DeleteMultiTEVData", "TEV directory is damaged"}}, damaged},
        {"DeleteAllCutsWhereTheIndexSays", parsed([](_TEV_info* i) { i->data_start_position -= 50; return DeleteAllTEVDataStream(i); }), 1, {}, std::nullopt, Bytes(original.begin(), original.begin() + 250)},
        {"MultiWithNoMatchWritesTheContainerAgain", parsed(multi({4, 7})), 1, {}, std::nullopt, concat(original, Bytes(oldHead - media.size(), 0))},
        {"MultiWithAllLeavesAnEmptyDirectory", parsed(multi({0, 1, 2, 3})), 1, {}, std::nullopt, allGone},
        {"DescriptorListingNoSoundKeepsItsBlock", parsed([](_TEV_info* i) {
             tev::VoxaStream voxa(_checkAudioInImageStream(i->Stream));
             if (!voxa) return 0u;
             voxa->sound_count = 0;
             return DeleteATEVDataStream(i, 3, voxa.get());
         }), 1, {}, withVoxa, voxaKept},
        {"DeleteAllTakesTheVoxaBlock", parsed(&DeleteAllTEVDataStream), 1, {}, buildContainer(media, four, voxaTrailer), media},
        // The index read from the file gives the cut, made in a buffer holding the same bytes.
        {"AllOnABuffer", [](const char* p) {
             Bytes memory = readFile(p);
             tev::Buffer handle(initTEVUsedBuffer(memory.data(), int64_t(memory.size()), int64_t(memory.size())));
             const uint32_t result = editParsed(p, [&](_TEV_info* i) { return DeleteAllTEVDataBuffer(handle.get(), i); });
             memory.resize(size_t(getTEVWriteSize(handle.get())));
             writeFile(p, memory);
             return result;
         }, 1, {}, std::nullopt, media},
        {"AllOnNoBuffer", parsed([](_TEV_info* i) { return DeleteAllTEVDataBuffer(nullptr, i); }), 0, {{"TEV::DeleteAllTEVDataBuffer", "Buffer is null"}}},
    };
    // Every form of deleting the whole container cuts a boxed MP4 back to its media.
    for (IndexEdit all : {&DeleteAllTEVDataStream, &DeleteAllDataStream, &FastDeleteAllData, &FastDeleteAllTEVData}) {
        cases.push_back({"AllFormsOnABoxedMp4", parsed(all), 1, {}, buildContainer(mp4, four, boxed()), mp4});
    }
    // The stream and size checks of the index-level deletes.
    const struct {
        IndexEdit edit;
        const char* tag;
        bool checksSize;
    } checked[] = {{one(0), "TEV::DeleteATEVDataStream", true}, {multi({0}), "TEV::DeleteMultiTEVData", true},
                   {&DeleteAllTEVDataStream, "TEV::DeleteAllTEVDataBuffer", true}, {&DeleteAllDataStream, "TEV::DeleteAllData", false}};
    for (const auto& c : checked) {
        cases.push_back({"NullStream", onStream(nullptr, c.edit), 0, {{c.tag, "Stream is null"}}});
        cases.push_back({"UnusableStream", onStream(&unusable, c.edit), 0, {{c.tag, "Pointer is null"}}});
        if (c.checksSize) cases.push_back({"EmptyStream", emptied(c.edit), 0, {{c.tag, "file size is <= 0"}}});
    }
    run(cases);
}

TEST_F(DeleteConformanceTest, EntryPointsAndTheirRefusals) {
    const RecordSpec alpha = record("alpha", 20, 0x61), beta = record("beta", 45, 0x62), gamma = record("gamma", 31, 0x63);
    const Bytes three = buildContainer(media, {alpha, beta, gamma});
    const Bytes boxedThree = buildContainer(mp4, {alpha, beta, gamma}, boxed());
    static const char* names[] = {"alpha", "missing", "gamma"};
    static const uint32_t lengths[] = {5, 7, 5};
    const auto missing = [](const char* p) { return std::string(p) + ".missing/none"; };
    const std::vector<Case> cases = {
        // Names come as bytes and a length, without a terminating zero.
        {"ByName", [](const char* p) { return deleteTEVDataFromFile(p, "betaX", 4); }, 1, {}, three, buildContainer(media, {alpha, gamma})},
        {"AbsentName", [](const char* p) { return deleteTEVDataFromFile(p, "betamax", 7); }, 0, {}, three},
        {"UnboxedInMp4GetsABox", [](const char* p) { return deleteTEVDataFromFile(p, "alpha", 5); }, 1, {}, buildContainer(mp4, {alpha, beta, gamma}), buildContainer(mp4, {beta, gamma}, boxed())},
        {"ByNameOnPlainMedia", [](const char* p) { return deleteTEVDataFromFile(p, "a", 1); }, 0, {{"TEVEncoderAPIs::deleteTEVDataFromFile", "TEVDATA is null"}}, media},
        {"ByNameWithoutPack", [](const char*) { return deleteTEVDataFromFilebyName(nullptr, "a", 1) + deleteTEVDataAndDestroy(nullptr, "a", 1); }, 0,
         {{"TEVEncoderAPIs::deleteTEVDataFromFilebyName", "TEVDATA is null"}, {"TEVEncoderAPIs::deleteTEVDataAndDestroy", "TEVDATA is null"}}},
        {"NullNameIsReportedByTheLookUp", [](const char* p) {
             tev::Pack pack(checkTEVInFile(p));
             TevStream* stream = pack->info->Stream;
             _TEV_info_pack* raw = pack.get();
             return deleteTEVDataFromStreambyName(stream, raw, nullptr, 3) + deleteFastATEVData(p, nullptr);
         }, 0, {{"TEVAPIs::_getIndexOfName", "name null"}, {"TEVAPIs::_getIndexOfName", "name null"}}},
        {"FastOneFixesTheBox", [](const char* p) { return deleteFastATEVData(p, "beta"); }, 1, {}, boxedThree, buildContainer(mp4, {alpha, gamma}, boxed())},
        {"FastOneRefusals", [&](const char* p) { return deleteFastATEVData(nullptr, "a") + deleteFastATEVData(missing(p).c_str(), "a") + deleteFastATEVDataStream(nullptr, "a") + deleteFastATEVDataStream(&unusable, "a"); }, 0,
         {{"TEVEncoderAPIs::deleteFastATEVData", "filename is null"}, {"TEVEncoderAPIs::deleteFastATEVData", "File Open Error"},
          {"TEVEncoderAPIs::deleteFastATEVDataStream", "Stream NULL !!"}, {"TEVEncoderAPIs::deleteFastATEVDataStream", "Stream CheckError is false"}}},
        {"FastOneOnPlainMedia", [](const char* p) { return deleteFastATEVData(p, "a"); }, 0, {{"TEVEncoderAPIs::deleteFastATEVDataStream", "TEVDATA is null"}}, media},
        {"SeveralNames", [](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 1, {}, boxedThree, buildContainer(mp4, {beta}, boxed())},
        {"SeveralNamesNoneThere", [](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 0, {}, buildContainer(media, {beta})},
        {"SeveralNamesRefusals", [](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, nullptr, 3) + deleteTEVMultiDataFromFilebyName(p, names, lengths, 0); }, 0,
         {{"TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName", "name list is null"}, {"TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName", "name list is null"}}},
        {"SeveralNamesOnPlainMedia", [](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 0, {{"TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName", "TEVDATA is null"}}, media},
        {"All", [](const char* p) { return deleteAllDataFromFile(p); }, 1, {}, boxedThree, mp4},
        {"AllOnPlainMedia", [](const char* p) { return deleteAllDataFromFile(p); }, 0, {}, media},
        {"AllRefusals", [&](const char* p) { return deleteAllDataFromFile(nullptr) + deleteAllDataFromFile(missing(p).c_str()) + deleteAllDataFromFd(0) + deleteAllDataFromStream(nullptr) + deleteAllDataFromStream(&unusable); }, 0,
         {{"TEVEncoderAPIs::deleteAllDataFromFile", "filename is null"}, {"TEVEncoderAPIs::deleteAllDataFromFile", "File Open Error"}, {"TEVEncoderAPIs::deleteAllDataFromFd", "fd error!!"},
          {"TEVEncoderAPIs::deleteAllDataFromStream", "Stream NULL !!"}, {"TEVEncoderAPIs::deleteAllDataFromStream", "Stream CheckError is false"}}},
        // The descriptor stays open: closing it afterwards succeeds.
        {"AllOverADescriptor", [](const char* p) { const int fd = open(p, O_RDWR); const uint32_t r = deleteAllDataFromFd(fd); return close(fd) == 0 ? r : 100; }, 1, {}, three, media},
        {"FastAll", [](const char* p) { return deleteFastAllTEVData(p); }, 1, {}, boxedThree, mp4},
        {"FastAllOverAFilePointer", overFp(&deleteFastAllTEVDataFP), 1, {}, three, media},
        // The stream handed in is deleted on every path (the sanitizer build shows a leak or a double delete).
        {"FastAllOverAStream", overFp([](FILE* fp) { return deleteFastAllTEVDataStream(new TevStreamFile(fp)); }), 1, {}, three, media},
        {"FastAllOverAStreamOnPlainMedia", overFp([](FILE* fp) { return deleteFastAllTEVDataStream(new TevStreamFile(fp)); }), 0, {{"TEVEncoderAPIs::deleteFastAllTEVDataStream", "TEVDATA is null"}}, media},
        {"FastAllRefusals", [&](const char* p) { return deleteFastAllTEVData(nullptr) + deleteFastAllTEVData(missing(p).c_str()) + deleteFastAllTEVDataFP(nullptr) + deleteFastAllTEVDataStream(nullptr) + deleteFastAllTEVDataStream(new TevStreamFile(nullptr)); }, 0,
         {{"TEVEncoderAPIs::deleteFastAllTEVData", "filename is null"}, {"TEVEncoderAPIs::deleteFastAllTEVData", "File Open Error"}, {"TEVEncoderAPIs::deleteFastAllTEVDataFP", "fp is null"},
          {"TEVEncoderAPIs::deleteFastAllTEVDataStream", "Stream is null"}, {"TEVEncoderAPIs::deleteFastAllTEVDataStream", "Pointer is null"}}},
        {"RecoverRefusals", [&](const char* p) { return recoverTEVFd(0) + recoverTEVFile(nullptr) + recoverTEVFile(missing(p).c_str()); }, 0,
         {{"TEVJournal::recoverTEVFd", "fd error"}, {"TEVJournal::recoverTEVFile", "filename is null"}, {"TEVJournal::recoverTEVFile", "File Open Error"}}},
    };
    run(cases);
}

TEST_F(DeleteConformanceTest, ThePackIsReplacedByAFreshParseAndGoesWithTheLastRecord) {
    TempFile file(buildContainer(media, {record("alpha", 20, 0x61), record("beta", 4, 0x62)}));
    _TEV_info_pack* pack = checkTEVInFile(file.c_str());
    ASSERT_NE(pack, nullptr);
    ASSERT_EQ(deleteTEVDataFromFilebyName(&pack, "alpha", 5), 1u) << dumpLog();
    ASSERT_NE(pack, nullptr);
    EXPECT_EQ(GetTevCount(pack), 1u);
    EXPECT_EQ(deleteTEVDataFromFilebyName(&pack, "beta", 4), 1u);
    EXPECT_EQ(pack, nullptr);
    EXPECT_EQ(file.read(), media);
}

}  // namespace
