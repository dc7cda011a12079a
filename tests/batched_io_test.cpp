// The readers and writers that move several fields with one system call:
// the directory entries read in batches, a record's length fields read
// together, and the directory written in one piece. Whatever the batch,
// results, bytes and log lines must be those of field-by-field I/O, also
// when a stream ends inside what a batch asked for.
#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/medium.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/editor.h"
#include "tev/stream.h"
#include "tev/tev.hpp"

namespace {

using tevtest::ByteBuilder;
using tevtest::Bytes;
using tevtest::Medium;
using tevtest::RecordSpec;
using tevtest::StreamOver;

using InfoPtr = tev::Index;

std::string recordName(uint32_t index) {
    char name[16];
    std::snprintf(name, sizeof name, "r%05u", index);
    return name;
}

class BatchedReadTest : public tevtest::LogCaptureTest, public ::testing::WithParamInterface<Medium> {
protected:
    // The stream over `content`, with the directory located: it stands on
    // the count field, where getTEVList reads.
    InfoPtr locate(const Bytes& content) {
        stream_ = std::make_unique<StreamOver>(GetParam(), content);
        return InfoPtr(ParseTEV(stream_->get(), SIGNATURE_TEV));
    }
    TevStream& stream() { return *stream_->get(); }

    std::unique_ptr<StreamOver> stream_;
};

// Two records behind 100 bytes of media: alpha at 100 (20 bytes), beta at
// 120 (19 bytes); "TEVH" at 139, the count at 147, the entries at 151 and
// 163, KTHO at 175.
Bytes twoRecordFile() {
    return tevtest::buildContainer(tevtest::fakeJpeg(100),
                                   {RecordSpec{1, "alpha", std::nullopt, tevtest::textBytes("1234567")},
                                    RecordSpec{2, "beta", std::nullopt, tevtest::textBytes("1234567")}});
}
constexpr size_t kCountAt = 147;
constexpr size_t kSecondEntryAt = 163;

TEST_P(BatchedReadTest, DirectoryCutShortFailsAtTheSameEntryAsFieldReads) {
    // The stream ends inside the second entry after the directory was
    // located: the entries in front of the cut are still taken one by one,
    // so the first entry's refusal is what is reported.
    Bytes file = twoRecordFile();
    ASSERT_EQ(tevtest::readU32le(file, kCountAt), 2u);
    tevtest::putU32le(file, kCountAt + 8, 0);  // first entry's start offset
    InfoPtr info = locate(file);
    ASSERT_TRUE(info) << dumpLog();
    ASSERT_EQ(stream().truncate(kSecondEntryAt + 6), 0);
    EXPECT_EQ(getTEVList(info.get()), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_addData", "_addData  start_offset <= 0 !!")) << dumpLog();
    EXPECT_TRUE(loggedError("TEV::getTEVList", "_addData return is LUMET_TEV_FALSE!!")) << dumpLog();
    EXPECT_EQ(info->meta_data, nullptr);

    // With a sound first entry the cut entry keeps what its reads stored: a
    // file hands over the start offset's low half (so the list is read), a
    // memory buffer nothing (the offset stays 0 and is refused).
    tevtest::clearLog();
    info = locate(twoRecordFile());
    ASSERT_TRUE(info);
    ASSERT_EQ(stream().truncate(kSecondEntryAt + 6), 0);
    const bool onFile = GetParam() == Medium::FilePtr;
    EXPECT_EQ(getTEVList(info.get()), onFile ? 1u : 0u) << dumpLog();
    if (onFile) {
        EXPECT_EQ(info->meta_data[1]->start_offset, 19u);
        EXPECT_EQ(info->meta_data[1]->length, 0u);
    } else {
        EXPECT_TRUE(loggedError("TEVInternal::_addData", "_addData  start_offset <= 0 !!")) << dumpLog();
    }
}

TEST_P(BatchedReadTest, LengthFieldsCutShortFailOnTheFieldThatIsMissing) {
    // beta carries sub-information: its name length lies at 104, its
    // sub-information length at 108.
    const Bytes file = tevtest::buildContainer(
        tevtest::fakeJpeg(100), {RecordSpec{0, "beta", tevtest::textBytes("SUBINFO"), tevtest::textBytes("xy")}});
    for (const auto& [cut, text] : {std::pair<int64_t, std::string>{108, "sub data read size <= 0"},
                                    {106, "name length is wrong : 0byte"}}) {
        InfoPtr info = locate(file);
        ASSERT_TRUE(info);
        ASSERT_EQ(getTEVList(info.get()), 1u) << dumpLog();
        tevtest::clearLog();
        ASSERT_EQ(stream().truncate(cut), 0);
        EXPECT_EQ(_getNameOfData(info.get(), 0), 0u);
        ASSERT_EQ(logLines().size(), 1u) << dumpLog();
        EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", text)) << cut << "\n" << dumpLog();
    }
}

TEST_P(BatchedReadTest, DirectoryLargerThanOneBatchReadsEveryEntryAndName) {
    constexpr uint32_t kRecords = 9000;  // more entries than one read takes
    std::vector<RecordSpec> records;
    for (uint32_t i = 0; i < kRecords; ++i) {
        records.push_back(RecordSpec{uint16_t(i % 7 + 1), recordName(i), std::nullopt, {uint8_t(i)}});
    }
    InfoPtr info = locate(tevtest::buildContainer(tevtest::fakeJpeg(16), records));
    ASSERT_TRUE(info);
    ASSERT_EQ(getTEVList(info.get()), 1u) << dumpLog();
    ASSERT_EQ(getAllNameOfDataList(info.get()), 1u) << dumpLog();
    ASSERT_EQ(info->meta_count, kRecords);
    constexpr uint32_t kRecordLength = 8 + 6 + 1;
    for (uint32_t i : {0u, 8191u, 8192u, kRecords - 1}) {
        const _TEV_data_info& entry = *info->meta_data[i];
        EXPECT_EQ(entry.meta_type, (i % 7 + 1) << 16) << i;
        EXPECT_EQ(entry.start_offset, (kRecords - i) * kRecordLength) << i;
        EXPECT_EQ(entry.length, kRecordLength) << i;
        EXPECT_EQ(entry.name, recordName(i)) << i;
        int64_t position = 0;
        int64_t length = 0;
        ASSERT_EQ(readDataOfIndexOffset(info.get(), i, &position, &length), 1u) << i;
        EXPECT_EQ(position, 16 + int64_t{i} * kRecordLength + 14) << i;
        EXPECT_EQ(length, 1) << i;
    }
    EXPECT_TRUE(logLines().empty()) << dumpLog();
}

// getAllNameOfDataList reads the names of neighbouring records in large
// windows; whatever the damage, its result, names and log lines must be
// those of reading the names one record at a time with _getNameOfData.
TEST_P(BatchedReadTest, WindowedNameReadsMatchRecordByRecordReads) {
    constexpr uint32_t kRecords = 6000;  // several windows
    std::vector<RecordSpec> records;
    for (uint32_t i = 0; i < kRecords; ++i) {
        RecordSpec r{uint16_t(i % 3), recordName(i) + std::string(i % 40, 'n'), std::nullopt, Bytes(i % 90, uint8_t(i))};
        if (r.type == 0) r.sub = Bytes(i % 5 + 1, 0x5B);
        records.push_back(r);
    }
    const Bytes file = tevtest::buildContainer(tevtest::fakeJpeg(64), records);
    // Where record k's name-length field lies, and its name.
    auto fieldsAt = [&](uint32_t k) {
        size_t at = 64;
        for (uint32_t i = 0; i < k; ++i) at += tevtest::recordLength(records[i]);
        return at + 4;
    };
    const uint32_t k = 4321;
    const size_t nameAt = fieldsAt(k) + (records[k].sub ? 8 : 4);
    const struct {
        const char* label;
        size_t patchAt;  // 0: none
        uint32_t value;
        int64_t cutAt;   // 0: none; the stream is cut after the directory was read
    } cases[] = {
        {"Whole", 0, 0, 0},
        {"NameLengthZero", fieldsAt(k), 0, 0},
        {"NameLengthTooLong", fieldsAt(k), 1025, 0},
        {"SubLengthZero", fieldsAt(k + 2) + 4, 0, 0},  // record k + 2 has sub-information
        {"CutInsideAName", 0, 0, int64_t(nameAt + 3)},
        {"CutInsideLengthFields", 0, 0, int64_t(fieldsAt(k) + 2)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Bytes damaged = file;
        if (c.patchAt != 0) tevtest::putU32le(damaged, c.patchAt, c.value);
        auto namesOf = [&](bool windowed, std::vector<tevtest::LogLine>* log, std::vector<std::string>* names) {
            InfoPtr info = locate(damaged);
            EXPECT_TRUE(info);
            EXPECT_EQ(getTEVList(info.get()), 1u);
            if (c.cutAt != 0) {
                EXPECT_EQ(stream().truncate(c.cutAt), 0);
            }
            tevtest::clearLog();
            uint32_t result = 1;
            if (windowed) {
                result = getAllNameOfDataList(info.get());
            } else {
                for (uint32_t i = 0; i < info->meta_count && result == 1; ++i) {
                    result = _getNameOfData(info.get(), i);
                    if (result == 0) {
                        __android_log_print(6, "TEV::getAllNameOfDataList", "%dth data has no name!", int(i));
                    }
                }
            }
            *log = logLines();
            for (uint32_t i = 0; i < info->meta_count; ++i) {
                names->push_back(info->meta_data[i]->name ? info->meta_data[i]->name : "(none)");
            }
            return result;
        };
        std::vector<tevtest::LogLine> windowedLog, oneByOneLog;
        std::vector<std::string> windowedNames, oneByOneNames;
        EXPECT_EQ(namesOf(true, &windowedLog, &windowedNames), namesOf(false, &oneByOneLog, &oneByOneNames));
        ASSERT_EQ(windowedLog.size(), oneByOneLog.size()) << dumpLog();
        for (size_t i = 0; i < windowedLog.size(); ++i) {
            EXPECT_EQ(windowedLog[i].tag, oneByOneLog[i].tag);
            EXPECT_EQ(windowedLog[i].text, oneByOneLog[i].text);
        }
        EXPECT_EQ(windowedNames, oneByOneNames);
        EXPECT_EQ(c.patchAt == 0 && c.cutAt == 0, windowedLog.empty());
    }
}

// A memory buffer of exactly `capacity` bytes holding `content`.
class ExactBuffer {
public:
    ExactBuffer(const Bytes& content, size_t capacity) : memory_(content) {
        memory_.resize(capacity);
        handle_ = _kbsetbuffer(memory_.data(), int64_t(capacity));
        btruncate(handle_, int64_t(content.size()));
        stream_ = std::make_unique<TevStreamBuffer>(handle_);
    }
    ~ExactBuffer() {
        stream_.reset();
        _kbclose(handle_);
    }
    TevStream* stream() { return stream_.get(); }
    Bytes contents() const { return Bytes(memory_.begin(), memory_.begin() + kbgetWriteSize(handle_)); }

private:
    Bytes memory_;
    TevBufferHandle* handle_;
    std::unique_ptr<TevStreamBuffer> stream_;
};

Bytes prefix(const Bytes& bytes, size_t size) { return Bytes(bytes.begin(), bytes.begin() + long(size)); }

Bytes joined(const Bytes& front, const Bytes& back) {
    return ByteBuilder().bytes(front).bytes(back).take();
}

// A first record: 100 bytes of media, "abcd" of type 5 with 10 data bytes
// (22 bytes at 100), and the 32 bytes of its directory.
const RecordSpec kPhoto{5, "abcd", std::nullopt, Bytes(10, 0xA1)};
const Bytes kMedia = tevtest::fakeJpeg(100);
const Bytes kPhotoDirectory =
    ByteBuilder().text("TEVH").u32le(107).u32le(1).u32le(0x00050000).u32le(22).u32le(22).u32le(24).text("TEVT").take();

uint32_t addPhoto(TevStream* stream) {
    return AddTEVDataInFirstTimeStream(stream, kPhoto.name.data(), uint32_t(kPhoto.name.size()), kPhoto.type,
                                       nullptr, 0, kPhoto.data.data(), uint32_t(kPhoto.data.size()));
}

const char* const kFirstTag = "TEVEncoder::AddTEVDataInFirstTimeStream";

class BatchedWriteTest : public tevtest::LogCaptureTest {};

TEST_F(BatchedWriteTest, DirectoryCutByAFullBufferLeavesTheFieldsThatFit) {
    // Room for part of the directory: it is written field by field as far as
    // the fields fit whole, and the first field that does not fit names the
    // step (the entry's writer never fails, so a cut entry shows as KTHO).
    const Bytes container = joined(kMedia, tevtest::encodeRecord(kPhoto));
    const std::pair<size_t, std::string> cuts[] = {
        {0, "Stream writeTEV_KTSS error\n"}, {3, "Stream writeTEV_KTSS error\n"},
        {4, "Stream writeTEV_KVER error\n"}, {9, "Stream writeTEV_KCnt error\n"},
        {12, "Stream writeTEV_KTHO error\n"}, {17, "Stream writeTEV_KTHO error\n"},
        {26, "Stream writeTEV_KTHO error\n"}, {31, "Stream writeTEV_KTS error\n"}};
    for (const auto& [room, step] : cuts) {
        tevtest::clearLog();
        ExactBuffer buffer(kMedia, container.size() + room);
        EXPECT_EQ(addPhoto(buffer.stream()), 0u) << room;
        EXPECT_EQ(buffer.contents(), joined(container, prefix(kPhotoDirectory, room / 4 * 4))) << room;
        ASSERT_EQ(logLines().size(), 1u) << room << "\n" << dumpLog();
        EXPECT_TRUE(loggedError(kFirstTag, step)) << room << "\n" << dumpLog();
    }
    ExactBuffer roomy(kMedia, container.size() + kPhotoDirectory.size());
    EXPECT_EQ(addPhoto(roomy.stream()), 1u);
    EXPECT_EQ(roomy.contents(), joined(container, kPhotoDirectory));
}

TEST_F(BatchedWriteTest, HeaderMethodCutByAFullBufferStopsAtTheFirstFieldThatDoesNotFit) {
    _TEV_data_info first{};
    first.meta_type = 0x00010000u;
    first.start_offset = 40;
    first.length = 20;
    _TEV_data_info* entries[] = {&first};
    ExactBuffer buffer({}, 22);
    EXPECT_EQ(buffer.stream()->writeTEVHeader(entries, 1), 0);
    EXPECT_EQ(buffer.contents(),
              ByteBuilder().text("TEVH").u32le(107).u32le(3).u32le(0x00010000u).u32le(40).take());
}

// Lowers the file size limit of the process for its lifetime, so that writes
// past it stop short instead of raising SIGXFSZ.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t limit) {
        getrlimit(RLIMIT_FSIZE, &saved_);
        oldHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        rlimit lowered = saved_;
        lowered.rlim_cur = limit;
        setrlimit(RLIMIT_FSIZE, &lowered);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &saved_);
        std::signal(SIGXFSZ, oldHandler_);
    }

private:
    rlimit saved_{};
    void (*oldHandler_)(int);
};

TEST_F(BatchedWriteTest, DirectoryCutByAFileThatStopsGrowingLeavesTheFieldByFieldBytes) {
    // The file takes the directory only up to 2 bytes into the entry's start
    // offset: the one write of the whole directory stops there, the stream
    // goes back and the fields are written again one by one, so the file
    // keeps exactly the bytes and the failing step of field-by-field writes
    // (a field cut inside counts as written, as a short write returns the
    // bytes that went out). The system layer reports the short write of the
    // whole directory on its own line first.
    const Bytes container = joined(kMedia, tevtest::encodeRecord(kPhoto));
    tevtest::EditableFile file(kMedia);
    uint32_t added = 1;
    {
        const FileSizeLimit limit(container.size() + 18);
        added = addPhoto(file.stream());
    }
    EXPECT_EQ(added, 0u);
    EXPECT_EQ(file.bytes(), joined(container, prefix(kPhotoDirectory, 18)));
    ASSERT_EQ(logLines().size(), 2u) << dumpLog();
    EXPECT_TRUE(loggedError("TEVSystemFile::_kfwrite", "write ret != write size_of_byte  ==> fail(18 != 32)"))
        << dumpLog();
    EXPECT_TRUE(loggedError(kFirstTag, "Stream writeTEV_KTHO error\n")) << dumpLog();
}

INSTANTIATE_TEST_SUITE_P(Media, BatchedReadTest, ::testing::Values(Medium::Buffer, Medium::FilePtr),
                         [](const auto& info) { return tevtest::mediumName(info.param); });

}  // namespace
