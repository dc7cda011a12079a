// Adding into the leading "Invalid_Data" filler record: exact fit, split,
// and the near misses that fall back to an ordinary append.
#include <gtest/gtest.h>

#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"

using namespace tevtest;

namespace {

constexpr uint32_t kSlot = 100;
const RecordSpec kPhoto = record("abcd", 10, 0xA1, 5);

RecordSpec filler(uint32_t size) { return record("Invalid_Data", size - 20, 0, 32766); }

// A record named "new!" of exactly `length` bytes (12 of them tag header and name).
RecordSpec sized(uint32_t length) { return record("new!", length - 12, 0xEE, 7); }

class FastAddTest : public LogCaptureTest {
protected:
    uint32_t fastAdd(const TempFile& file, const RecordSpec& r, uint32_t reuse) {
        return editParsed(file.path(), [&](_TEV_info* info) {
            return FastAddTEVData(info, r.name.data(), uint32_t(r.name.size()), r.type, subOf(r),
                                  subLengthOf(r), r.data.data(), uint32_t(r.data.size()), reuse);
        });
    }

    const Bytes media = fakeJpeg(90);
};

TEST_F(FastAddTest, RecordLengthChoosesFitSplitOrAppend) {
    enum Layout { kInPlace, kSplit, kAppended };
    const struct {
        const char* label;
        uint32_t length;
        uint32_t reuse;
        Layout layout;
    } cases[] = {
        {"ReuseZero", kSlot, 0, kAppended},         {"ExactFit", kSlot, 1, kInPlace},
        {"LeftoverOf21", kSlot - 21, 1, kSplit},    {"LeftoverOf60", kSlot - 60, 1, kSplit},
        {"LeftoverOf20", kSlot - 20, 1, kAppended}, {"LeftoverOf1", kSlot - 1, 1, kAppended},
        {"Longer", kSlot + 1, 1, kAppended},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        TempFile file(buildContainer(media, {filler(kSlot), kPhoto}));
        const RecordSpec r = sized(c.length);
        ASSERT_EQ(fastAdd(file, r, c.reuse), 1u) << dumpLog();
        // A split leaves a smaller filler in front and the record ending where the old one ended.
        const std::vector<RecordSpec> after =
            c.layout == kInPlace ? std::vector<RecordSpec>{r, kPhoto}
            : c.layout == kSplit ? std::vector<RecordSpec>{filler(kSlot - c.length), r, kPhoto}
                                 : std::vector<RecordSpec>{filler(kSlot), kPhoto, r};
        EXPECT_EQ(file.read(), buildContainer(media, after));
    }
}

TEST_F(FastAddTest, SplitFillerEntryTakesTheNewRecordsSubInformationBit) {
    TempFile file(buildContainer(media, {filler(kSlot), kPhoto}));
    const RecordSpec withSub{7, "new!", Bytes{4, 5, 6}, Bytes(41, 0xEE)};  // 60 bytes
    ASSERT_EQ(fastAdd(file, withSub, 1), 1u) << dumpLog();
    Bytes expected = buildContainer(media, {filler(kSlot - 60), withSub, kPhoto});
    putU32le(expected, expected.size() - (20 + 12 * 3) + 12, (32766u << 16) | 0x8000u);
    EXPECT_EQ(file.read(), expected);
}

TEST_F(FastAddTest, ALiveFirstRecordIsNeverOverwritten) {
    TempFile file(buildContainer(media, {kPhoto, filler(kSlot)}));
    const RecordSpec sameSize = sized(recordLength(kPhoto));
    ASSERT_EQ(fastAdd(file, sameSize, 1), 1u) << dumpLog();
    EXPECT_EQ(file.read(), buildContainer(media, {kPhoto, filler(kSlot), sameSize}));
}

TEST_F(FastAddTest, AContainerFollowedByAVoxaBlockIsRefused) {
    ContainerOptions withVoxa;
    withVoxa.voxaTrailer = true;
    const Bytes before = buildContainer(media, {filler(kSlot), kPhoto}, withVoxa);
    TempFile file(before);
    EXPECT_EQ(fastAdd(file, sized(50), 1), 0u);
    EXPECT_EQ(file.read(), before);
}

}  // namespace
