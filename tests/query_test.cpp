// Queries on a checked container (positions, extraction, types, names) through the C API and
// tev.hpp, whose owners must each release with the destroy function matching how the object was
// made (a wrong pairing leaks, double-closes or frees a caller's memory: the sanitizers report it).
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "support/log_capture.h"
#include "support/medium.h"
#include "support/sound_files.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

constexpr unsigned int kNoIndex = 0xFFFFFFFFu;
using Region = std::pair<int64_t, int64_t>;  // position, length

// The position a query handed out, released; (-1, -1) for none.
Region regionOf(TevOffsetInfo* raw) {
    const tev::Offset offset(raw);
    return offset ? Region(offset->position, offset->length) : Region(-1, -1);
}

// Records at 64 (alpha, 23 bytes), 87 (beta, 32), 119 (gamma, 13) and 132 (delta, 19).
const std::vector<RecordSpec> kRecords = {
    {7, "alpha", std::nullopt, textBytes("0123456789")},
    {0, "beta", textBytes("SUBINFO"), textBytes("payload-b")},
    {7, "gamma", std::nullopt, {}},
    {9, "delta", textBytes("x"), textBytes("d")},
};

// The queries work on the pack whatever medium it came from; a file is the common case.
class QueryTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        ASSERT_NE(pack(), nullptr);
    }
    PackOnMedium held_{buildContainer(fakeJpeg(64), kRecords), Medium::Path};
    _TEV_info_pack* pack() const { return held_.pack(); }
};

// Every position query, by name and by index, under both of its names and through tev.hpp: a record
// without the part asked for, or no such record, gives none.
TEST_F(QueryTest, PositionsPointAtDataAndSubInformation) {
    const Region kNone{-1, -1};
    const struct { const char* name; unsigned int index; Region data, sub; } kCases[] = {
        {"alpha", 0, {77, 10}, kNone}, {"beta", 1, {110, 9}, {103, 7}}, {"gamma", 2, kNone, kNone},
        {"delta", 3, {150, 1}, {149, 1}}, {"omega", 4, kNone, kNone}, {"", kNoIndex, kNone, kNone}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ((std::vector<Region>{regionOf(getTEVInFileByName(pack(), c.name)),
                                       regionOf(getTEVInStreamByName(pack(), c.name)),
                                       regionOf(getTEVInFileByIndex(pack(), c.index)),
                                       regionOf(getTEVInStreamByIndex(pack(), c.index)),
                                       regionOf(tev::dataPosition(pack(), c.name).release())}),
                  std::vector<Region>(5, c.data));
        EXPECT_EQ((std::vector<Region>{regionOf(getTEVSubInfoInFileByName(pack(), c.name)),
                                       regionOf(getTEVSubInfoInStreamByName(pack(), c.name)),
                                       regionOf(getTEVSubInfoInFileByIndex(pack(), c.index)),
                                       regionOf(getTEVSubInfoInStreamByIndex(pack(), c.index)),
                                       regionOf(tev::subInfoPosition(pack(), c.name).release())}),
                  std::vector<Region>(5, c.sub));
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

// By name and by index, through tev.hpp's owner and views: a record without sub-information has
// none, not an empty copy; missing data or an absent record gives nothing.
TEST_F(QueryTest, ExtractCopiesTheRecordPartsOrGivesNothing) {
    for (const unsigned int index : {0u, 1u, 3u}) {
        const RecordSpec& r = kRecords[index];
        for (const tev::Record& unit : {tev::extract(pack(), r.name.c_str()), tev::extract(pack(), index)}) {
            ASSERT_TRUE(unit) << r.name << dumpLog();
            const tev::ByteView data = tev::dataOf(*unit), sub = tev::subInfoOf(*unit);
            EXPECT_EQ(Bytes(data.begin(), data.end()), r.data);
            EXPECT_EQ(Bytes(sub.begin(), sub.end()), r.sub.value_or(Bytes()));
            EXPECT_EQ(unit->sub_info != nullptr, r.sub.has_value());
            EXPECT_EQ(unit->data_type, r.type);
        }
    }
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "gamma", 5), nullptr);  // empty data
    EXPECT_FALSE(tev::extract(pack(), "omega"));
    EXPECT_FALSE(tev::extract(pack(), static_cast<const char*>(nullptr)));
    EXPECT_EQ(extractTEVDataFromFilebyName(pack(), "alpha", 0), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(pack(), 4), nullptr);
    EXPECT_EQ(extractTEVDataFromFilebyIndex(pack(), kNoIndex), nullptr);
    EXPECT_EQ(getTEVDataType(pack(), "omega"), kNoIndex);
}

// Names by type are owned copies in directory order; the list accessors borrow the pack's.
TEST_F(QueryTest, NamesByTypeAndListAccessorsRefuseWithTheirLog) {
    EXPECT_EQ(getTEVDataType(pack(), "alpha"), 7u);
    tev::NameList sevens = tev::namesOfType(pack(), tev::DataType{7});
    EXPECT_EQ(std::vector<std::string>(sevens.begin(), sevens.end()), (std::vector<std::string>{"alpha", "gamma"}));
    EXPECT_NE(sevens[0], pack()->name_list[0]);
    tev::NameList moved = std::move(sevens);
    EXPECT_TRUE(sevens.empty());
    EXPECT_STREQ(moved[1], "gamma");
    moved = tev::namesOfType(pack(), tev::DataType{9});  // the old list is released
    EXPECT_EQ(std::vector<std::string>(moved.begin(), moved.end()), std::vector<std::string>{"delta"});
    unsigned int count = 99;
    EXPECT_EQ(getNameListByDataType(pack(), 42, &count), nullptr);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(GetNameInList(pack(), 4, 3), pack()->name_list[3]);
    EXPECT_EQ(GetNameInList(pack(), 100, 50), nullptr);  // the caller's count, the pack's list
    EXPECT_EQ(GetTevCount(pack()), 4u);
    EXPECT_EQ(GetNameType(pack()), 1u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();
    const std::tuple<bool, const char*, const char*> kCases[] = {
        {GetNameInList(pack(), 3, 3) == nullptr, "GetNameInList", "Index < Count"},
        {GetNameInList(pack(), 4, -1) == nullptr, "GetNameInList", "Index < 0"},
        {GetNameInList(pack(), 0, 0) == nullptr, "GetNameInList", "Count is 0"},
        {GetNameInList(nullptr, 4, 0) == nullptr, "GetNameInList", "List is null"},
        {GetNameType(nullptr) == 0, "GetNameType", "List is null"},
        {GetTevCount(nullptr) == 0, "GetTevCount", "List is null"},
        {getNameListByDataType(nullptr, 7, &count) == nullptr, "getNameListByDataType", "TEV_data null!!!\n"},
    };
    ASSERT_EQ(logLines().size(), std::size(kCases)) << dumpLog();
    for (size_t i = 0; i < std::size(kCases); ++i) {
        const auto& [refused, tag, text] = kCases[i];
        EXPECT_TRUE(refused) << text;
        EXPECT_EQ(logLines()[i].tag + ": " + logLines()[i].text, std::string(tag) + ": " + text);
    }
}

// Each pack and sound owner with the check it belongs to: the borrowed FILE*, descriptor, handle
// or stream stays usable after the owner went. Signatures read as their values, else as an error.
TEST(TevHpp, OwnersLeaveBorrowedTargetsOpenAndSignaturesMap) {
    const TempFile file(buildContainer(fakeJpeg(64), kRecords));
    FILE* fp = std::fopen(file.c_str(), "rb");
    ASSERT_TRUE(tev::PackFP(checkTEVInFP(fp)));
    EXPECT_EQ(std::fseek(fp, 0, SEEK_END), 0);
    TevStreamFile stream(fp);
    ASSERT_TRUE(tev::PackStream(checkTEVInStream(&stream)));
    EXPECT_TRUE(stream.CheckError());
    EXPECT_EQ(stream.destroyPointer(), 0);  // closes fp
    const int fd = open(file.c_str(), O_RDONLY);
    ASSERT_TRUE(tev::PackFP(checkTEVInFd(fd)));
    EXPECT_EQ(close(fd), 0);
    Bytes bytes = file.read();
    tev::Buffer handle(initTEVUsedBuffer(bytes.data(), int64_t(bytes.size()), int64_t(bytes.size())));
    ASSERT_TRUE(tev::PackBuffer(checkTEVInHandle(handle.get())));
    EXPECT_EQ(getTEVWriteSize(handle.get()), int64_t(bytes.size()));
    EXPECT_TRUE(tev::openForReading(file.c_str()));
    EXPECT_FALSE(tev::openForReading(TempFile(fakeJpeg(64)).c_str()));
    EXPECT_EQ(tev::signatureOf(file.c_str()), tev::Signature::Container);
    EXPECT_EQ(tev::signatureOf(TempFile(fakeJpeg(64)).c_str()), tev::Signature::Plain);
    EXPECT_EQ(tev::toSignature(SIGNATURE_VOXA_TEV), tev::Signature::ContainerThenVoxa);
    EXPECT_EQ(tev::toSignature(SIGNATURE_VOXA_TEV + 1), tev::Signature::Error);
    EXPECT_TRUE(tev::hasContainer(tev::Signature::ContainerThenVoxa));
    EXPECT_FALSE(tev::hasContainer(tev::Signature::Voxa));
    const TempFile sound(imageWithBareSound(fakeJpeg(40), textBytes("sound!")));
    EXPECT_TRUE(tev::Voxa(_checkAudioInImageFile(sound.c_str())));
    fp = std::fopen(sound.c_str(), "rb");
    ASSERT_TRUE(tev::VoxaFP(_checkAudioInImageFP(fp)));
    EXPECT_EQ(std::fclose(fp), 0);
    EXPECT_STREQ(tev::KString(getTEVVersion()).get(), "107");
}

TEST(TevHpp, TypedSavePutsEachArgumentInPlace) {
    const TempFile file(fakeJpeg(64));
    using Saved = std::tuple<uint32_t, std::string, std::string>;  // type, data, sub-information
    auto saved = [&] {
        const tev::Record unit = tev::extract(tev::openForReading(file.c_str()).get(), "key");
        if (!unit) return Saved{};
        return Saved{unit->data_type, std::string(tev::dataOf(*unit).text()),
                     std::string(tev::subInfoOf(*unit).text())};
    };
    ASSERT_TRUE(tev::saveToFile(file.c_str(), "key", tev::ByteView("payload"), tev::DataType{300}, tev::ByteView("meta")));
    EXPECT_FALSE(tev::saveToFile(file.c_str(), "key", tev::ByteView("other"), tev::DataType{300}));
    EXPECT_EQ(saved(), Saved(300, "payload", "meta"));
    ASSERT_TRUE(tev::saveToFile(file.c_str(), "key", tev::ByteView("other"), tev::DataType{301}, {},
                                tev::OnExisting::Replace));
    EXPECT_EQ(saved(), Saved(301, "other", ""));
    // A type-0 record needs sub-information; the library refuses it without.
    EXPECT_FALSE(tev::saveToFile(file.c_str(), "bare", tev::ByteView("x"), tev::DataType{0}));
}

}  // namespace
