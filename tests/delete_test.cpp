// Deleting records where the seeded model in delete_model_test.cpp does not
// reach: the Voxa block's position mark, refusals with their log lines, names
// given by length, whole-container deletes, the box an unboxed MP4 gets,
// damaged directories and names; each with result, error lines and file.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/edit.h"

using namespace tevtest;

namespace {

std::vector<RecordSpec> without(std::vector<RecordSpec> records, size_t index) {
    records.erase(records.begin() + long(index));
    return records;
}

class DeleteTest : public LogCaptureTest {
protected:
    const Bytes media = fakeJpeg(300);
    const Bytes mp4 = fakeMp4(400);
    const std::vector<RecordSpec> four = {record("a", 33, 0x0A), record("b", 51, 0x0B), record("c", 17, 0x0C), record("d", 64, 0x0D)};
    const Bytes original = buildContainer(media, four);
    TevStreamFile unusable{nullptr};
};

using IndexEdit = std::function<uint32_t(_TEV_info*)>;

// `delete_` over the file opened for update; the FILE* must still be open afterwards.
std::function<uint32_t(const char*)> overFp(std::function<uint32_t(FILE*)> delete_) {
    return [delete_](const char* p) {
        FILE* fp = std::fopen(p, "r+b");
        const uint32_t result = delete_(fp);
        return std::fseek(fp, 0, SEEK_END) == 0 && std::fclose(fp) == 0 ? result : 100;
    };
}

TEST_F(DeleteTest, IndexLevelDeletesAndTheirRefusals) {
    const size_t oldHead = original.size() - 20 - 12 * four.size();
    // Records that do not tile the container: the second entry's length is 4 too long.
    const Bytes damaged = patchedU32le(original, oldHead + 12 + 12 + 8, recordLength(four[1]) + 4);
    // A name length past the file, which an index parsed without the names never read.
    const Bytes badName = patchedU32le(original, media.size() + recordLength(four[0]) + recordLength(four[1]) + 4, 2000);
    // All four gone: an empty directory over the first record, the cut at the old "TEVH" plus 20 bytes.
    const Bytes allGone = ByteBuilder().bytes(media).text("TEVH").u32le(107).u32le(0).u32le(12).text("TEVT")
                              .bytes(Bytes(original.begin() + long(media.size()) + 20, original.begin() + long(oldHead + 20))).take();
    // A Voxa descriptor made to list no sound: the block written back keeps count 0 and its positions.
    const uint32_t soundAt = uint32_t(media.size()) + recordLength(four[0]) + 8 + 1;
    const Bytes voxaKept = concat(buildContainer(media, {four[0], four[1], four[2]}),
                                  ByteBuilder().text("VOXA").u32le(107).u32le(0).u32le(soundAt).u32le(soundAt + 51).u32le(20).text("VOXABS").take());
    const ContainerOptions voxaTrailer{107, false, true, uint32_t(media.size()) + 9, uint32_t(media.size()) + 9 + 33};
    const auto multi = [](std::vector<uint32_t> indices) {
        return [indices](_TEV_info* i) { return DeleteMultiTEVData(i, indices.data(), uint32_t(indices.size())); };
    };
    const auto one = [](uint32_t index) { return [index](_TEV_info* i) { return DeleteATEVDataStream(i, index, nullptr); }; };
    const auto emptied = [](IndexEdit edit) { return onParsed([edit](_TEV_info* i) { i->stream_size = 0; return edit(i); }); };
    // The index of a bare parse, without the names: the delete's own parse reads them.
    const auto withoutNames = [](const char* p) {
        return onFp(p, [](FILE* fp) {
            TevStreamFile stream(fp);
            tev::Index index(ParseTEV(&stream, SIGNATURE_TEV));
            return index && getTEVList(index.get()) == 1 ? DeleteATEVDataStream(index.get(), 0, nullptr) : 100u;
        });
    };
    // A Voxa block behind the container points at the second record's data; it follows the sound or
    // goes with it. The position mark says where the deleted record lay: 1 before the sound record,
    // 2 the sound record itself, 0 after it (the result is the delete's plus 10 times the mark).
    const std::vector<RecordSpec> records = {record("note", 30, 0x11), record("EchoFrame_000", 64, 0x5E, 256),
                                             record("EchoFrame_Meta_Info", 29, 0x00, 2048), record("tail", 12, 0x22)};
    const uint32_t start = uint32_t(media.size()) + recordLength(records[0]) + 8 + 13, end = start + 64, moved = recordLength(records[0]);
    const Bytes withSound = concat(buildContainer(media, records), voxaBlock(107, start, end));
    const auto marked = [](uint32_t index) {
        return onParsed([index](_TEV_info* i) {
            tev::VoxaStream voxa(_checkAudioInImageStream(i->Stream));
            return voxa ? DeleteATEVDataStream(i, index, voxa.get()) + 10 * voxa->position_mark : 100;
        });
    };
    std::vector<FileEdit> cases = {
        {"BeforeTheSoundTheBlockMoves", withSound, marked(0), 11, concat(buildContainer(media, without(records, 0)), voxaBlock(107, start - moved, end - moved))},
        {"TheSoundRecordTakesTheBlock", withSound, marked(1), 21, buildContainer(media, without(records, 1))},
        {"AfterTheSoundTheBlockStays", withSound, marked(3), 1, concat(buildContainer(media, without(records, 3)), voxaBlock(107, start, end))},
        {"IndexEqualToTheCount", original, onParsed(one(4)), 0, {}, {{"TEV::DeleteATEVDataStream", "if index < 0 || index >= TEV_info->meta_count"}}},
        {"NoIndex", original, [](const char*) { return DeleteATEVDataStream(nullptr, 0, nullptr); }, 0, {}, {{"TEV::DeleteATEVDataStream", "TEV_info is null"}}},
        {"DamagedDirectoryIsNotMoved", damaged, onParsed(one(3)), 0, {}, {{"TEV::DeleteATEVDataStream", "TEV directory is damaged"}}},
        {"MultiOverADamagedDirectory", damaged, onParsed(multi({1})), 0, {}, {{"TEV::DeleteMultiTEVData", "TEV directory is damaged"}}},
        // The lines of the delete's own parse are all: the delete adds none.
        {"IndexWithoutNamesStillNeedsEveryNameReadable", badName, withoutNames, 0, {},
         {{"TEVInternal::_getNameOfData", "name length is wrong : 2000byte"}, {"TEV::getAllNameOfDataList", "2th data has no name!"},
          {"TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getAllNameOfDataList err."}}},
        {"IndexWithoutNames", original, withoutNames, 1, buildContainer(media, without(four, 0))},
        {"DeleteAllCutsWhereTheIndexSays", original, onParsed([](_TEV_info* i) { i->data_start_position -= 50; return DeleteAllTEVDataStream(i); }), 1, Bytes(original.begin(), original.begin() + 250)},
        {"MultiWithNoMatchWritesTheContainerAgain", original, onParsed(multi({4, 7})), 1, concat(original, Bytes(oldHead - media.size(), 0))},
        {"MultiWithAllLeavesAnEmptyDirectory", original, onParsed(multi({0, 1, 2, 3})), 1, allGone},
        {"DescriptorListingNoSoundKeepsItsBlock", concat(original, voxaBlock(107, soundAt, soundAt + 51)), onParsed([](_TEV_info* i) {
             tev::VoxaStream voxa(_checkAudioInImageStream(i->Stream));
             if (!voxa) return 0u;
             voxa->sound_count = 0;
             return DeleteATEVDataStream(i, 3, voxa.get());
         }), 1, voxaKept},
        {"DeleteAllTakesTheVoxaBlock", buildContainer(media, four, voxaTrailer), onParsed(&DeleteAllTEVDataStream), 1, media},
        // The index read from the file gives the cut, made in a buffer holding the same bytes.
        {"AllOnABuffer", original, [](const char* p) {
             return onBuffer(p, 0, [&](TevBufferHandle* b) { return editParsed(p, [&](_TEV_info* i) { return DeleteAllTEVDataBuffer(b, i); }); });
         }, 1, media},
        {"AllOnNoBuffer", original, onParsed([](_TEV_info* i) { return DeleteAllTEVDataBuffer(nullptr, i); }), 0, {}, {{"TEV::DeleteAllTEVDataBuffer", "Buffer is null"}}},
    };
    // Every form of deleting the whole container cuts a boxed MP4 back to its media.
    for (IndexEdit all : {&DeleteAllTEVDataStream, &DeleteAllDataStream, &FastDeleteAllData, &FastDeleteAllTEVData}) {
        cases.push_back({"AllFormsOnABoxedMp4", buildContainer(mp4, four, boxed()), onParsed(all), 1, mp4});
    }
    // The stream and size checks of the index-level deletes.
    const struct { IndexEdit edit; const char* tag; bool checksSize; } checked[] = {
        {one(0), "TEV::DeleteATEVDataStream", true}, {multi({0}), "TEV::DeleteMultiTEVData", true},
        {&DeleteAllTEVDataStream, "TEV::DeleteAllTEVDataBuffer", true}, {&DeleteAllDataStream, "TEV::DeleteAllData", false}};
    for (const auto& c : checked) {
        cases.push_back({"NullStream", original, onStream(nullptr, c.edit), 0, {}, {{c.tag, "Stream is null"}}});
        cases.push_back({"UnusableStream", original, onStream(&unusable, c.edit), 0, {}, {{c.tag, "Pointer is null"}}});
        if (c.checksSize) cases.push_back({"EmptyStream", original, emptied(c.edit), 0, {}, {{c.tag, "file size is <= 0"}}});
    }
    runFileEdits(cases);
}

TEST_F(DeleteTest, EntryPointsAndTheirRefusals) {
    const RecordSpec alpha = record("alpha", 20, 0x61), beta = record("beta", 45, 0x62), gamma = record("gamma", 31, 0x63);
    const Bytes three = buildContainer(media, {alpha, beta, gamma});
    const Bytes boxedThree = buildContainer(mp4, {alpha, beta, gamma}, boxed());
    static const char* names[] = {"alpha", "missing", "gamma"};
    static const uint32_t lengths[] = {5, 7, 5};
    const auto missing = [](const char* p) { return std::string(p) + ".missing/none"; };
    runFileEdits({
        // Names come as bytes and a length, without a terminating zero.
        {"ByName", three, [](const char* p) { return deleteTEVDataFromFile(p, "betaX", 4); }, 1, buildContainer(media, {alpha, gamma})},
        {"AbsentName", three, [](const char* p) { return deleteTEVDataFromFile(p, "betamax", 7); }, 0, {}},
        {"UnboxedInMp4GetsABox", buildContainer(mp4, {alpha, beta, gamma}), [](const char* p) { return deleteTEVDataFromFile(p, "alpha", 5); }, 1, buildContainer(mp4, {beta, gamma}, boxed())},
        {"ByNameOnPlainMedia", media, [](const char* p) { return deleteTEVDataFromFile(p, "a", 1); }, 0, {}, {{"TEVEncoderAPIs::deleteTEVDataFromFile", "TEVDATA is null"}}},
        {"ByNameWithoutPack", media, [](const char*) { return deleteTEVDataFromFilebyName(nullptr, "a", 1) + deleteTEVDataAndDestroy(nullptr, "a", 1); }, 0, {},
         {{"TEVEncoderAPIs::deleteTEVDataFromFilebyName", "TEVDATA is null"}, {"TEVEncoderAPIs::deleteTEVDataAndDestroy", "TEVDATA is null"}}},
        {"NullNameIsReportedByTheLookUp", original, [](const char* p) {
             tev::Pack pack(checkTEVInFile(p));
             TevStream* stream = pack->info->Stream;
             _TEV_info_pack* raw = pack.get();
             return deleteTEVDataFromStreambyName(stream, raw, nullptr, 3) + deleteFastATEVData(p, nullptr);
         }, 0, {}, {{"TEVAPIs::_getIndexOfName", "name null"}, {"TEVAPIs::_getIndexOfName", "name null"}}},
        {"FastOneFixesTheBox", boxedThree, [](const char* p) { return deleteFastATEVData(p, "beta"); }, 1, buildContainer(mp4, {alpha, gamma}, boxed())},
        {"FastOneRefusals", media, [&](const char* p) { return deleteFastATEVData(nullptr, "a") + deleteFastATEVData(missing(p).c_str(), "a") + deleteFastATEVDataStream(nullptr, "a") + deleteFastATEVDataStream(&unusable, "a"); }, 0, {},
         {{"TEVEncoderAPIs::deleteFastATEVData", "filename is null"}, {"TEVEncoderAPIs::deleteFastATEVData", "File Open Error"},
          {"TEVEncoderAPIs::deleteFastATEVDataStream", "Stream NULL !!"}, {"TEVEncoderAPIs::deleteFastATEVDataStream", "Stream CheckError is false"}}},
        {"FastOneOnPlainMedia", media, [](const char* p) { return deleteFastATEVData(p, "a"); }, 0, {}, {{"TEVEncoderAPIs::deleteFastATEVDataStream", "TEVDATA is null"}}},
        {"SeveralNames", boxedThree, [](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 1, buildContainer(mp4, {beta}, boxed())},
        {"SeveralNamesNoneThere", buildContainer(media, {beta}), [](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 0, {}},
        {"SeveralNamesRefusals", media, [](const char* p) { return deleteTEVMultiDataFromFilebyName(p, names, nullptr, 3) + deleteTEVMultiDataFromFilebyName(p, names, lengths, 0) + deleteTEVMultiDataFromFilebyName(p, names, lengths, 3); }, 0, {},
         {{"TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName", "name list is null"}, {"TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName", "name list is null"}, {"TEVEncoderAPIs::deleteTEVMultiDataFromFilebyName", "TEVDATA is null"}}},
        {"All", boxedThree, [](const char* p) { return deleteAllDataFromFile(p); }, 1, mp4},
        {"AllOnPlainMedia", media, [](const char* p) { return deleteAllDataFromFile(p); }, 0, {}},
        {"AllRefusals", media, [&](const char* p) { return deleteAllDataFromFile(nullptr) + deleteAllDataFromFile(missing(p).c_str()) + deleteAllDataFromFd(0) + deleteAllDataFromStream(nullptr) + deleteAllDataFromStream(&unusable); }, 0, {},
         {{"TEVEncoderAPIs::deleteAllDataFromFile", "filename is null"}, {"TEVEncoderAPIs::deleteAllDataFromFile", "File Open Error"}, {"TEVEncoderAPIs::deleteAllDataFromFd", "fd error!!"},
          {"TEVEncoderAPIs::deleteAllDataFromStream", "Stream NULL !!"}, {"TEVEncoderAPIs::deleteAllDataFromStream", "Stream CheckError is false"}}},
        // The descriptor stays open: closing it afterwards succeeds.
        {"AllOverADescriptor", three, [](const char* p) { const int fd = open(p, O_RDWR); const uint32_t r = deleteAllDataFromFd(fd); return close(fd) == 0 ? r : 100; }, 1, media},
        {"FastAll", boxedThree, [](const char* p) { return deleteFastAllTEVData(p); }, 1, mp4},
        {"FastAllOverAFilePointer", three, overFp(&deleteFastAllTEVDataFP), 1, media},
        // The stream handed in is deleted on every path (the sanitizer build shows a leak or a double delete).
        {"FastAllOverAStream", three, overFp([](FILE* fp) { return deleteFastAllTEVDataStream(new TevStreamFile(fp)); }), 1, media},
        {"FastAllOverAStreamOnPlainMedia", media, overFp([](FILE* fp) { return deleteFastAllTEVDataStream(new TevStreamFile(fp)); }), 0, {}, {{"TEVEncoderAPIs::deleteFastAllTEVDataStream", "TEVDATA is null"}}},
        {"FastAllRefusals", media, [&](const char* p) { return deleteFastAllTEVData(nullptr) + deleteFastAllTEVData(missing(p).c_str()) + deleteFastAllTEVDataFP(nullptr) + deleteFastAllTEVDataStream(nullptr) + deleteFastAllTEVDataStream(new TevStreamFile(nullptr)); }, 0, {},
         {{"TEVEncoderAPIs::deleteFastAllTEVData", "filename is null"}, {"TEVEncoderAPIs::deleteFastAllTEVData", "File Open Error"}, {"TEVEncoderAPIs::deleteFastAllTEVDataFP", "fp is null"},
          {"TEVEncoderAPIs::deleteFastAllTEVDataStream", "Stream is null"}, {"TEVEncoderAPIs::deleteFastAllTEVDataStream", "Pointer is null"}}},
        {"RecoverRefusals", media, [&](const char* p) { return recoverTEVFd(0) + recoverTEVFile(nullptr) + recoverTEVFile(missing(p).c_str()); }, 0, {},
         {{"TEVJournal::recoverTEVFd", "fd error"}, {"TEVJournal::recoverTEVFile", "filename is null"}, {"TEVJournal::recoverTEVFile", "File Open Error"}}},
        // The pack is replaced by a fresh parse, and goes with the last record.
        {"ThePackFollowsTheDeletes", buildContainer(media, {alpha, beta}), [](const char* p) {
             _TEV_info_pack* pack = checkTEVInFile(p);
             const uint32_t first = deleteTEVDataFromFilebyName(&pack, "alpha", 5);
             const uint32_t count = pack != nullptr ? GetTevCount(pack) : 0;
             return first + 10 * count + deleteTEVDataFromFilebyName(&pack, "beta", 4) + (pack == nullptr ? 0 : 100);
         }, 12, media},
    });
}

}  // namespace
