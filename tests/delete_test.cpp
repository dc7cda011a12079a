// Deleting records through the index-level operations: the whole container,
// one record by index (with and without a Voxa block behind the directory)
// and several records by index. Files are built byte by byte and the results
// compared with containers built the same way without the deleted records.
#include <gtest/gtest.h>

#include <vector>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "tev/tev.h"

namespace tevtest {
namespace {

struct BufferPackDestroyer {
    void operator()(_TEV_info_pack* pack) const { destroyTEVDATA_Buffer(pack); }
};
using BufferPack = std::unique_ptr<_TEV_info_pack, BufferPackDestroyer>;

struct HandleDestroyer {
    void operator()(TevBufferHandle* handle) const { destroyTEVBuffer(handle); }
};
using Handle = std::unique_ptr<TevBufferHandle, HandleDestroyer>;

ContainerOptions boxed() {
    ContainerOptions options;
    options.mp4Box = true;
    return options;
}

std::vector<RecordSpec> without(std::vector<RecordSpec> records, size_t index) {
    records.erase(records.begin() + static_cast<long>(index));
    return records;
}

class DeleteTest : public LogCaptureTest {
protected:
    const Bytes media = fakeJpeg(300);
    std::vector<RecordSpec> three = {record("first", 40, 0xA1), record("middle", 70, 0xB2),
                                     record("last", 25, 0xC3)};

    void SetUp() override {
        LogCaptureTest::SetUp();
        three[0].sub = Bytes{1, 2, 3, 4, 5};
    }

    uint32_t deleteIndex(const TempFile& file, uint32_t index) {
        FilePack pack(checkTEVInFile(file.c_str()));
        EXPECT_NE(pack, nullptr) << dumpLog();
        return pack ? DeleteATEVDataStream(pack->info, index, nullptr) : 0;
    }
};

TEST_F(DeleteTest, DeletingTheOnlyRecordCutsBackToTheMedia) {
    TempFile file(buildContainer(media, {three[1]}));
    EXPECT_EQ(deleteIndex(file, 0), 1u) << dumpLog();
    EXPECT_EQ(file.read(), media);
}

TEST_F(DeleteTest, DeletingTheOnlyRecordRemovesTheBoxHeader) {
    const Bytes mp4 = fakeMp4(500);
    TempFile file(buildContainer(mp4, {three[1]}, boxed()));
    EXPECT_EQ(deleteIndex(file, 0), 1u) << dumpLog();
    EXPECT_EQ(file.read(), mp4);
}

TEST_F(DeleteTest, DeletingTheMiddleRecordShortensOnlyTheOffsetsBeforeIt) {
    TempFile file(buildContainer(media, three));
    const std::vector<DirectoryEntry> before = directoryAtEnd(file.read());
    ASSERT_EQ(deleteIndex(file, 1), 1u) << dumpLog();
    const Bytes after = file.read();
    EXPECT_EQ(after, buildContainer(media, without(three, 1)));
    const std::vector<DirectoryEntry> entries = directoryAtEnd(after);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].offset, before[0].offset - recordLength(three[1]));
    EXPECT_EQ(entries[1].offset, before[2].offset);
}

TEST_F(DeleteTest, DeletingTheFirstOrLastRecordKeepsTheOthersWhole) {
    for (uint32_t index : {0u, 2u}) {
        SCOPED_TRACE(index);
        TempFile file(buildContainer(media, three));
        ASSERT_EQ(deleteIndex(file, index), 1u) << dumpLog();
        EXPECT_EQ(file.read(), buildContainer(media, without(three, index)));
    }
}

TEST_F(DeleteTest, KeptRecordsReadBackThroughTheQueries) {
    TempFile file(buildContainer(media, three));
    ASSERT_EQ(deleteIndex(file, 1), 1u) << dumpLog();
    FilePack pack(checkTEVWithReadPM(file.c_str()));
    ASSERT_NE(pack, nullptr) << dumpLog();
    ASSERT_EQ(GetTevCount(pack.get()), 2u);
    _TEV_data_unit* first = extractTEVDataFromFilebyName(pack.get(), "first", 5);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Bytes(first->sub_info, first->sub_info + first->sub_info_length), *three[0].sub);
    EXPECT_EQ(Bytes(first->data, first->data + first->data_length), three[0].data);
    destroyTEVDATA_UNIT(first);
    EXPECT_EQ(extractTEVDataFromFilebyName(pack.get(), "middle", 6), nullptr);
}

TEST_F(DeleteTest, IndexEqualToTheCountIsRefused) {
    const Bytes original = buildContainer(media, three);
    TempFile file(original);
    EXPECT_EQ(deleteIndex(file, 3), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteATEVDataStream",
                            "if index < 0 || index >= TEV_info->meta_count"))
        << dumpLog();
    EXPECT_EQ(DeleteATEVDataStream(nullptr, 0, nullptr), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteATEVDataStream", "TEV_info is null"));
    EXPECT_EQ(file.read(), original);
}

TEST_F(DeleteTest, RecordsThatDoNotTileTheContainerAreRefused) {
    Bytes damaged = buildContainer(media, three);
    const size_t lengthAt = directoryFieldAt(damaged, 1, 2);
    putU32le(damaged, lengthAt, readU32le(damaged, lengthAt) + 4);
    TempFile file(damaged);
    EXPECT_EQ(deleteIndex(file, 2), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteATEVDataStream", "TEV directory is damaged")) << dumpLog();
    EXPECT_EQ(file.read(), damaged);
}

TEST_F(DeleteTest, AnIndexOfAFileChangedSinceIsRefused) {
    TempFile file(buildContainer(media, three));
    FilePack pack(checkTEVInFile(file.c_str()));
    ASSERT_NE(pack, nullptr);
    std::vector<RecordSpec> grown = three;
    grown.push_back(record("added", 9, 0x0D));
    const Bytes changed = buildContainer(media, grown);
    file.write(changed);
    EXPECT_EQ(DeleteATEVDataStream(pack->info, 1, nullptr), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteATEVDataStream", "TEV_info does not match the stream"))
        << dumpLog();
    EXPECT_EQ(file.read(), changed);
}

TEST_F(DeleteTest, DeletingFromAMemoryBufferShortensItsWriteSize) {
    Bytes bytes = buildContainer(media, three);
    Handle handle(initTEVUsedBuffer(bytes.data(), static_cast<int64_t>(bytes.size()),
                                    static_cast<int64_t>(bytes.size())));
    ASSERT_NE(handle, nullptr);
    BufferPack pack(checkTEVInHandle(handle.get()));
    ASSERT_NE(pack, nullptr) << dumpLog();
    ASSERT_EQ(DeleteATEVDataStream(pack->info, 1, nullptr), 1u) << dumpLog();
    const Bytes expected = buildContainer(media, without(three, 1));
    ASSERT_EQ(getTEVWriteSize(handle.get()), static_cast<int64_t>(expected.size()));
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(expected.size())), expected);
}

// A container whose second record holds the Voxa sound, followed by a Voxa
// block that points at that record's data.
class DeleteWithVoxaTest : public LogCaptureTest {
protected:
    const Bytes media = fakeJpeg(200);
    const std::vector<RecordSpec> records = {
        record("note", 30, 0x11), record("EchoFrame_000", 64, 0x5E, 256),
        record("EchoFrame_Meta_Info", 29, 0x00, 2048), record("tail", 12, 0x22)};

    uint32_t soundStart() const {
        return static_cast<uint32_t>(media.size()) + recordLength(records[0]) + 8 + 13;
    }
    uint32_t soundEnd() const { return soundStart() + 64; }
    Bytes original() const {
        return concat(buildContainer(media, records), voxaBlock(107, soundStart(), soundEnd()));
    }

    // Deletes `index` with the file's Voxa descriptor; returns the mark it got.
    uint32_t deleteWithVoxa(const TempFile& file, uint32_t index) {
        FilePack pack(checkTEVInFile(file.c_str()));
        if (!pack) ADD_FAILURE() << dumpLog();
        _voxa_info_struct* voxa = pack ? _checkAudioInImageStream(pack->info->Stream) : nullptr;
        if (voxa == nullptr) {
            ADD_FAILURE() << "no Voxa descriptor\n" << dumpLog();
            return 0xFFFFFFFF;
        }
        EXPECT_EQ(DeleteATEVDataStream(pack->info, index, voxa), 1u) << dumpLog();
        const uint32_t mark = voxa->position_mark;
        DestroyVoxaStream(voxa);
        return mark;
    }
};

TEST_F(DeleteWithVoxaTest, ARecordBeforeTheSoundMovesTheSoundForward) {
    TempFile file(original());
    EXPECT_EQ(deleteWithVoxa(file, 0), 1u);
    const uint32_t removed = recordLength(records[0]);
    EXPECT_EQ(file.read(), concat(buildContainer(media, without(records, 0)),
                                  voxaBlock(107, soundStart() - removed, soundEnd() - removed)));
}

TEST_F(DeleteWithVoxaTest, ARecordAfterTheSoundKeepsTheSoundOffsets) {
    TempFile file(original());
    EXPECT_EQ(deleteWithVoxa(file, 3), 0u);
    EXPECT_EQ(file.read(), concat(buildContainer(media, without(records, 3)),
                                  voxaBlock(107, soundStart(), soundEnd())));
}

TEST_F(DeleteWithVoxaTest, DeletingTheSoundRecordDropsTheVoxaBlock) {
    TempFile file(original());
    EXPECT_EQ(deleteWithVoxa(file, 1), 2u);
    EXPECT_EQ(file.read(), buildContainer(media, without(records, 1)));
}

class DeleteAllTest : public DeleteTest {};

TEST_F(DeleteAllTest, EveryFormCutsBackToTheMediaAndTheBox) {
    const Bytes mp4 = fakeMp4(400);
    using DeleteAll = uint32_t (*)(_TEV_info*);
    for (DeleteAll deleteAll : {&DeleteAllTEVDataStream, &DeleteAllDataStream, &FastDeleteAllData,
                                &FastDeleteAllTEVData}) {
        TempFile file(buildContainer(mp4, three, boxed()));
        FilePack pack(checkTEVInFile(file.c_str()));
        ASSERT_NE(pack, nullptr) << dumpLog();
        EXPECT_EQ(deleteAll(pack->info), 1u) << dumpLog();
        EXPECT_EQ(file.read(), mp4);
    }
}

TEST_F(DeleteAllTest, AVoxaBlockBehindTheDirectoryGoesToo) {
    ContainerOptions withVoxa;
    withVoxa.voxaTrailer = true;
    withVoxa.voxaStart = static_cast<uint32_t>(media.size()) + 8 + 5 + 4 + 5;
    withVoxa.voxaEnd = withVoxa.voxaStart + 40;
    TempFile file(buildContainer(media, three, withVoxa));
    FilePack pack(checkTEVInFile(file.c_str()));
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(DeleteAllTEVDataStream(pack->info), 1u) << dumpLog();
    EXPECT_EQ(file.read(), media);
}

TEST_F(DeleteAllTest, TheBufferFormCutsTheCallersBuffer) {
    Bytes bytes = buildContainer(media, three);
    Handle handle(initTEVUsedBuffer(bytes.data(), static_cast<int64_t>(bytes.size()),
                                    static_cast<int64_t>(bytes.size())));
    BufferPack pack(checkTEVInHandle(handle.get()));
    ASSERT_NE(pack, nullptr) << dumpLog();
    EXPECT_EQ(DeleteAllTEVDataBuffer(handle.get(), pack->info), 1u) << dumpLog();
    EXPECT_EQ(getTEVWriteSize(handle.get()), static_cast<int64_t>(media.size()));
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(media.size())), media);
    EXPECT_EQ(DeleteAllTEVDataBuffer(nullptr, pack->info), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteAllTEVDataBuffer", "Buffer is null"));
}

TEST_F(DeleteAllTest, ADataStartTheRecordsDoNotLeadToIsRefused) {
    const Bytes original = buildContainer(media, three);
    TempFile file(original);
    FilePack pack(checkTEVInFile(file.c_str()));
    ASSERT_NE(pack, nullptr) << dumpLog();
    // A first offset pointing 50 bytes into the media would move the cut there.
    pack->info->meta_data[0]->start_offset += 50;
    pack->info->data_start_position -= 50;
    EXPECT_EQ(DeleteAllTEVDataStream(pack->info), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteAllTEVDataBuffer", "TEV directory is damaged"));
    EXPECT_EQ(DeleteAllDataStream(pack->info), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteAllData", "TEV directory is damaged"));
    EXPECT_EQ(file.read(), original);
}

class DeleteMultiTest : public DeleteTest {
protected:
    const std::vector<RecordSpec> four = {record("a", 33, 0x0A), record("b", 51, 0x0B),
                                          record("c", 17, 0x0C), record("d", 64, 0x0D)};

    uint32_t deleteIndices(const TempFile& file, const std::vector<uint32_t>& indices) {
        FilePack pack(checkTEVInFile(file.c_str()));
        EXPECT_NE(pack, nullptr) << dumpLog();
        return pack ? DeleteMultiTEVData(pack->info, indices.data(),
                                         static_cast<uint32_t>(indices.size()))
                    : 0;
    }
};

TEST_F(DeleteMultiTest, SeveralRecordsGoInOneRebuild) {
    const Bytes rebuilt = buildContainer({}, {four[0], four[2]});
    size_t oldHead = media.size();
    for (const RecordSpec& r : four) oldHead += recordLength(r);
    // Repeated and out-of-range indices change nothing.
    for (const std::vector<uint32_t>& indices : {std::vector<uint32_t>{1, 3},
                                                 std::vector<uint32_t>{3, 1, 3, 99}}) {
        TempFile file(buildContainer(media, four));
        ASSERT_EQ(deleteIndices(file, indices), 1u) << dumpLog();
        const Bytes after = file.read();
        ASSERT_GE(after.size(), media.size() + rebuilt.size());
        EXPECT_EQ(Bytes(after.begin(), after.begin() + static_cast<long>(media.size())), media);
        EXPECT_EQ(Bytes(after.begin() + static_cast<long>(media.size()),
                        after.begin() + static_cast<long>(media.size() + rebuilt.size())),
                  rebuilt);
        // The cut lies at the old "TEVH" position plus the new container's length.
        EXPECT_EQ(after.size(), oldHead + rebuilt.size());
    }
}

TEST_F(DeleteMultiTest, DeletingEveryRecordCutsBackToTheMedia) {
    TempFile file(buildContainer(media, four));
    EXPECT_EQ(deleteIndices(file, {0, 1, 2, 3}), 1u) << dumpLog();
    EXPECT_EQ(file.read(), media);
}

TEST_F(DeleteMultiTest, IndicesThatMatchNothingAreRefused) {
    const Bytes original = buildContainer(media, four);
    TempFile file(original);
    EXPECT_EQ(deleteIndices(file, {4, 7}), 0u);
    EXPECT_TRUE(loggedError("TEV::DeleteMultiTEVData", "no index matches a record")) << dumpLog();
    EXPECT_EQ(file.read(), original);
}

}  // namespace
}  // namespace tevtest
