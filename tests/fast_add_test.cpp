// Adding into the leading "Invalid_Data" filler record: exact fit, split,
// and the near misses that fall back to an ordinary append.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/edit_fixtures.h"
#include "support/log_capture.h"
#include "tev/container.h"
#include "tev/editor.h"

namespace {

using tevtest::Bytes;
using tevtest::EditableFile;
using tevtest::RecordSpec;

constexpr uint32_t kSignatureTev = 2;
constexpr uint32_t kSlot = 100;
constexpr uint32_t kFillerHeader = 20;  // tag header and "Invalid_Data"
constexpr uint32_t kReuse = 1;
constexpr uint32_t kNoReuse = 0;

RecordSpec filler(uint32_t size) {
    return {32766, "Invalid_Data", std::nullopt, Bytes(size - kFillerHeader, 0)};
}

const RecordSpec kPhoto{5, "abcd", std::nullopt, Bytes(10, 0xA1)};

// A record named "new!" of exactly `length` bytes.
RecordSpec newRecord(uint32_t length, std::optional<Bytes> sub = std::nullopt) {
    const uint32_t overhead = 8 + 4 + (sub ? 4 + uint32_t(sub->size()) : 0);
    return {7, "new!", sub, Bytes(length - overhead, 0xEE)};
}

void putU32le(Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = uint8_t(v >> (8 * i));
}

class FastAddTest : public tevtest::LogCaptureTest {
protected:
    Bytes original() const { return tevtest::buildContainer(media_, {filler(kSlot), kPhoto}); }

    // Parses the file and adds `r` into it; the add's result.
    uint32_t fastAdd(EditableFile& file, const RecordSpec& r, uint32_t reuse,
                     uint32_t signature = kSignatureTev) {
        tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), signature);
        EXPECT_TRUE(info) << dumpLog();
        if (!info) return 0;
        const unsigned char* sub = r.sub ? r.sub->data() : nullptr;
        const uint32_t subLength = r.sub ? uint32_t(r.sub->size()) : 0;
        return FastAddTEVData(info.get(), r.name.data(), uint32_t(r.name.size()), r.type, sub,
                              subLength, r.data.data(), uint32_t(r.data.size()), reuse);
    }

    std::vector<std::string> namesAfter(EditableFile& file) {
        tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
        return info ? tevtest::namesOf(*info) : std::vector<std::string>{};
    }

    Bytes media_ = tevtest::fakeJpeg(90);
};

TEST_F(FastAddTest, ReuseZeroIsAnOrdinaryAppend) {
    EditableFile file(original());
    const RecordSpec fits = newRecord(kSlot);
    ASSERT_EQ(fastAdd(file, fits, kNoReuse), 1u) << dumpLog();
    EXPECT_EQ(file.bytes(), tevtest::buildContainer(media_, {filler(kSlot), kPhoto, fits}));
}

TEST_F(FastAddTest, ExactFitReplacesTheFillerInPlace) {
    EditableFile file(original());
    const RecordSpec fits = newRecord(kSlot);
    ASSERT_EQ(fastAdd(file, fits, kReuse), 1u) << dumpLog();
    const Bytes out = file.bytes();
    EXPECT_EQ(out.size(), original().size());
    EXPECT_EQ(out, tevtest::buildContainer(media_, {fits, kPhoto}));
    EXPECT_EQ(namesAfter(file), (std::vector<std::string>{"new!", "abcd"}));
}

TEST_F(FastAddTest, SmallerRecordSplitsTheFillerAndEndsWhereItEnded) {
    for (uint32_t length : {kSlot - 21, kSlot - 60}) {
        SCOPED_TRACE(length);
        EditableFile file(original());
        const RecordSpec small = newRecord(length);
        ASSERT_EQ(fastAdd(file, small, kReuse), 1u) << dumpLog();
        EXPECT_EQ(file.bytes(),
                  tevtest::buildContainer(media_, {filler(kSlot - length), small, kPhoto}));
        EXPECT_EQ(namesAfter(file), (std::vector<std::string>{"Invalid_Data", "new!", "abcd"}));
    }
}

TEST_F(FastAddTest, SplitFillerEntryTakesTheNewRecordsSubInformationBit) {
    EditableFile file(original());
    const RecordSpec withSub = newRecord(60, Bytes{4, 5, 6});
    ASSERT_EQ(fastAdd(file, withSub, kReuse), 1u) << dumpLog();

    Bytes expected = tevtest::buildContainer(media_, {filler(kSlot - 60), withSub, kPhoto});
    const size_t fillerEntry = expected.size() - (20 + 12 * 3) + 12;
    putU32le(expected, fillerEntry, (32766u << 16) | 0x8000u);
    EXPECT_EQ(file.bytes(), expected);
}

TEST_F(FastAddTest, NearMissesAndLongerRecordsAreAppended) {
    for (uint32_t length : {kSlot - 20, kSlot - 1, kSlot + 1}) {
        SCOPED_TRACE(length);
        EditableFile file(original());
        const RecordSpec record = newRecord(length);
        ASSERT_EQ(fastAdd(file, record, kReuse), 1u) << dumpLog();
        EXPECT_EQ(file.bytes(), tevtest::buildContainer(media_, {filler(kSlot), kPhoto, record}));
    }
}

TEST_F(FastAddTest, LiveFirstRecordIsNeverOverwritten) {
    const Bytes before = tevtest::buildContainer(media_, {kPhoto, filler(kSlot)});
    EditableFile file(before);
    const RecordSpec sameSize = newRecord(tevtest::recordLength(kPhoto));
    ASSERT_EQ(fastAdd(file, sameSize, kReuse), 1u) << dumpLog();
    EXPECT_EQ(file.bytes(), tevtest::buildContainer(media_, {kPhoto, filler(kSlot), sameSize}));
}

TEST_F(FastAddTest, ContainerFollowedByAVoxaBlockIsRefused) {
    tevtest::ContainerOptions options;
    options.voxaTrailer = true;
    const Bytes before = tevtest::buildContainer(media_, {filler(kSlot), kPhoto}, options);
    EditableFile file(before);
    EXPECT_EQ(fastAdd(file, newRecord(50), kReuse, 4), 0u);
    EXPECT_EQ(file.bytes(), before);
}

TEST_F(FastAddTest, RefusesUserDataWithoutSubInformationAndMissingArguments) {
    EditableFile file(original());
    tevtest::IndexPtr info = tevtest::parseIndex(file.stream(), kSignatureTev);
    ASSERT_TRUE(info);
    const unsigned char data[] = {1, 2};
    EXPECT_EQ(FastAddTEVData(info.get(), "n", 1, 0, nullptr, 0, data, 2, kReuse), 0u);
    EXPECT_TRUE(loggedError("TEV::AddTEVDataInFirstTime",
                            "if Data type is UserData then must use DataSubInfo"));
    tevtest::clearLog();
    EXPECT_EQ(FastAddTEVData(info.get(), nullptr, 1, 3, nullptr, 0, data, 2, kReuse), 0u);
    EXPECT_EQ(FastAddTEVData(nullptr, "n", 1, 3, nullptr, 0, data, 2, kReuse), 0u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    info->Stream = nullptr;
    EXPECT_EQ(FastAddTEVData(info.get(), "n", 1, 3, nullptr, 0, data, 2, kReuse), 0u);
    EXPECT_TRUE(loggedError("TEV::FastAddTEVData", "Stream is null"));
    EXPECT_EQ(file.bytes(), original());
}

}  // namespace
