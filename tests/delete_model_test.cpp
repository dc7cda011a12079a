// Deletes and replaces on random containers (files, descriptors, buffers, boxes, sub-information,
// records larger than the move buffer) byte for byte against a model of what the delete paths give:
// media untouched, kept records under a version-107 directory, a version-107 Voxa block behind it
// while the sound survives, and the stream cut where each entry point cuts it.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <set>

#include "support/edit.h"
#include "support/medium.h"

using namespace tevtest;

namespace {

// One random container and everything the model needs to know about it.
struct Container {
    Bytes media;
    std::vector<RecordSpec> records;
    bool boxed = false;
    int soundRecord = -1;  // record whose data the Voxa block points at; -1: no block
    Bytes bytes;

    size_t firstRecord() const { return media.size() + (boxed ? 8 : 0); }  // behind the box header
    size_t recordStart(size_t index) const {
        size_t at = firstRecord();
        for (size_t i = 0; i < index; ++i) at += recordLength(records[i]);
        return at;
    }
    size_t dataStart(size_t index) const { return recordStart(index) + recordLength(records[index]) - records[index].data.size(); }
    uint32_t soundStart() const { return uint32_t(dataStart(size_t(soundRecord))); }
    uint32_t soundEnd() const { return soundStart() + uint32_t(records[size_t(soundRecord)].data.size()); }
};

Container randomContainer(std::mt19937& rng, bool allowBig) {
    auto pick = [&](uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng); };
    Container c;
    c.boxed = pick(0, 2) == 0;
    c.media = c.boxed ? fakeMp4(pick(40, 400)) : fakeJpeg(pick(40, 400));
    const uint32_t count = pick(1, 9);
    for (uint32_t i = 0; i < count; ++i) {
        RecordSpec r;
        r.name = "r" + std::to_string(i) + std::string(pick(0, 20), char('a' + i));
        r.type = std::array<uint16_t, 4>{0, 1, 5, 777}[pick(0, 3)];
        if (r.type == 0 || pick(0, 3) == 0) r.sub = pattern(pick(1, 60));
        // A few records larger than the buffer that moves records in place.
        const size_t size = allowBig && pick(0, 5) == 0 ? pick(1 << 20, 5 << 19) : pick(0, 700);
        r.data = pattern(size);
        std::rotate(r.data.begin(), r.data.begin() + (size ? i % size : 0), r.data.end());
        c.records.push_back(r);
    }
    c.bytes = buildContainer(c.media, c.records, {std::array<uint32_t, 3>{105, 106, 107}[pick(0, 2)], c.boxed});
    if (!c.boxed && pick(0, 1) == 0) {
        c.soundRecord = int(pick(0, count - 1));
        c.bytes = concat(c.bytes, voxaBlock(107, c.soundStart(), c.soundEnd()));
    }
    return c;
}

// The records written back after the removed ones went: what lies in front
// of the first record, then the kept records and a version-107 directory
// (box size as `boxSize` says), then `tail`.
enum class BoxSize { kStale, kFitted };

Bytes modelContainer(const Container& c, const std::set<size_t>& removed, BoxSize boxSize, const Bytes& tail) {
    std::vector<RecordSpec> kept;
    for (size_t i = 0; i < c.records.size(); ++i) {
        if (removed.count(i) == 0) kept.push_back(c.records[i]);
    }
    Bytes out = concat(buildContainer(c.media, kept, {107, c.boxed}), tail);
    if (c.boxed && boxSize == BoxSize::kStale) {
        std::copy_n(c.bytes.begin() + long(c.media.size()), 4, out.begin() + long(c.media.size()));
    }
    return out;
}

// The Voxa block behind the new directory: unchanged when the sound lies in
// front of every removed record, moved with the sound otherwise, and gone
// with the sound's own record.
Bytes modelVoxaTail(const Container& c, size_t removedIndex) {
    if (c.soundRecord < 0 || removedIndex == size_t(c.soundRecord)) return {};
    const uint32_t shift = removedIndex < size_t(c.soundRecord) ? recordLength(c.records[removedIndex]) : 0;
    return voxaBlock(107, c.soundStart() - shift, c.soundEnd() - shift);
}

// The whole file after a delete of one record by name.
Bytes modelDeleteByName(const Container& c, size_t index) {
    if (c.records.size() == 1) return c.media;
    return modelContainer(c, {index}, BoxSize::kFitted, modelVoxaTail(c, index));
}

// The whole stream after DeleteMultiTEVData: the rebuilt container from the first record on (with
// none removed the same container, with all an empty directory), cut at the old directory's position
// plus the rebuilt length (grown with zeros past the old end).
Bytes modelDeleteMulti(const Container& c, const std::set<size_t>& removed) {
    const Bytes rebuilt = modelContainer(c, removed, BoxSize::kStale, {});
    const size_t first = c.firstRecord();
    const size_t rebuiltLength = rebuilt.size() - first;
    const size_t oldDirectory = c.recordStart(c.records.size());
    Bytes out = c.bytes;
    out.resize(std::max(out.size(), first + rebuiltLength));
    std::copy(rebuilt.begin() + long(first), rebuilt.end(), out.begin() + long(first));
    out.resize(oldDirectory + rebuiltLength, 0);
    return out;
}

class DeleteModelTest : public LogCaptureTest {
protected:
    std::mt19937 rng{20261121};
    uint32_t pick(uint32_t lo, uint32_t hi) { return std::uniform_int_distribution<uint32_t>(lo, hi)(rng); }
    // `body` on `count` random containers, every tenth with records larger than the move buffer.
    template <typename Body>
    void rounds(int count, Body body) {
        for (int round = 0; round < count; ++round) {
            SCOPED_TRACE("round " + std::to_string(round));
            body(round, randomContainer(rng, round % 10 == 0));
        }
    }
};

TEST_F(DeleteModelTest, DeleteByNameMatchesTheModelOnFilesAndDescriptors) {
    rounds(120, [&](int round, const Container& c) {
        const size_t index = pick(0, uint32_t(c.records.size() - 1));
        const std::string& name = c.records[index].name;
        SCOPED_TRACE("delete " + name);
        TempFile file(c.bytes);
        clearLog();
        if (round % 2 == 0) {
            EXPECT_EQ(deleteTEVDataFromFile(file.c_str(), name.c_str(), uint32_t(name.size())), 1u);
        } else {
            const int fd = open(file.c_str(), O_RDWR);
            _TEV_info_pack* pack = checkTEVInFd(fd);
            // Both are references: the pack is replaced by a fresh parse, or gone with the last record.
            TevStream* stream = pack != nullptr ? pack->info->Stream : nullptr;
            EXPECT_EQ(deleteTEVDataFromStreambyName(stream, pack, name.c_str(), uint32_t(name.size())), 1u);
            if (pack != nullptr) destroyTEVDATA_FP(pack); else delete stream;
            close(fd);
        }
        EXPECT_TRUE(logLines().empty()) << dumpLog();
        EXPECT_TRUE(file.read() == modelDeleteByName(c, index));
    });
}

TEST_F(DeleteModelTest, DeleteByIndexLeavesTheBoxAndDropsTheVoxaBlock) {
    rounds(60, [&](int, const Container& c) {
        const size_t index = pick(0, uint32_t(c.records.size() - 1));
        FixedBuffer buffer(c.bytes);
        _TEV_info_pack* pack = checkTEVInHandle(buffer.handle());
        ASSERT_NE(pack, nullptr);
        clearLog();
        EXPECT_EQ(FastDeleteATEVData(pack->info, uint32_t(index), 0), 1u);
        destroyTEVDATA_Buffer(pack);
        EXPECT_TRUE(logLines().empty()) << dumpLog();
        EXPECT_TRUE(buffer.contents() == (c.records.size() == 1 ? c.media : modelContainer(c, {index}, BoxSize::kStale, {})));
    });
}

TEST_F(DeleteModelTest, DeleteMultiMatchesTheModelIncludingItsCut) {
    rounds(80, [&](int round, const Container& c) {
        std::vector<uint32_t> indices;
        std::set<size_t> removed;
        for (uint32_t n = pick(1, 4); n > 0; --n) {
            // Now and then an index past the end, which is ignored.
            indices.push_back(pick(0, uint32_t(c.records.size())));
            if (indices.back() < c.records.size()) removed.insert(indices.back());
        }
        const bool onBuffer = round % 3 == 0;
        TempFile file(c.bytes);
        FixedBuffer buffer(c.bytes);
        _TEV_info_pack* pack = onBuffer ? checkTEVInHandle(buffer.handle()) : checkTEVInFile(file.c_str());
        ASSERT_NE(pack, nullptr);
        clearLog();
        const uint32_t result = DeleteMultiTEVData(pack->info, indices.data(), uint32_t(indices.size()));
        onBuffer ? destroyTEVDATA_Buffer(pack) : destroyTEVDATA(pack);
        const Bytes after = onBuffer ? buffer.contents() : file.read();
        Bytes expected = modelDeleteMulti(c, removed);
        // A memory buffer cannot grow: a cut past its end is refused after
        // the rebuilt container was written over the start of it.
        const bool cutRefused = onBuffer && expected.size() > c.bytes.size();
        EXPECT_EQ(result, cutRefused ? 0u : 1u);
        const ErrorLines refused = {{"TEV::DeleteMultiTEVData", "truncate size is out of the stream"}};
        EXPECT_EQ(errorLines(), cutRefused ? refused : ErrorLines{});
        EXPECT_EQ(logLines().size(), errorLines().size()) << dumpLog();
        if (cutRefused) expected.resize(c.bytes.size());
        EXPECT_TRUE(after == expected);
    });
}

// A replace is a delete followed by an append; the append is checked
// against the library's own append on the model's delete.
TEST_F(DeleteModelTest, ReplaceIsTheModelDeleteFollowedByAnAppend) {
    rounds(40, [&](int, const Container& c) {
        const size_t index = pick(0, uint32_t(c.records.size() - 1));
        RecordSpec replacement = c.records[index];
        replacement.data = pattern(pick(0, 900));
        TempFile replaced(c.bytes);
        TempFile expected(modelDeleteByName(c, index));
        clearLog();
        auto save = [&](const TempFile& file) {
            return saveSpec([&](auto... args) { return saveTEVDataToFile(file.c_str(), args...); }, replacement, 1);
        };
        EXPECT_EQ(save(replaced), 1u);
        EXPECT_TRUE(logLines().empty()) << dumpLog();
        EXPECT_EQ(save(expected), 1u);
        EXPECT_TRUE(replaced.read() == expected.read());
    });
}

}  // namespace
