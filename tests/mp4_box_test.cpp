// The "tevd" box around a container in MP4 files: the placeholder header, its update, the
// known-size header, wrapping an existing container, and the refusals of each form.
#include <gtest/gtest.h>

#include <functional>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/medium.h"
#include "tev/tev.hpp"

namespace {

using namespace tevtest;

Bytes boxHeader(uint32_t size) { return ByteBuilder().u32be(size).text("tevd").take(); }


// Runs `edit` on the index of the container in `file`, then closes the file; 2 when none parses.
uint32_t onIndex(const TempFile& file, uint32_t (*edit)(_TEV_info*)) {
    const tev::Pack pack(checkTEVInFile(file.c_str()));
    return pack ? edit(pack->info) : 2;
}

class Mp4BoxTest : public LogCaptureTest {};

TEST_F(Mp4BoxTest, HeadersGoAtTheEndAndTheUpdateCoversTheWholeBox) {
    FixedBuffer buffer(fakeMp4(100), 300);
    buffer.stream()->seek(0, 2);
    int64_t position = -5;
    ASSERT_EQ(writeMP4TagStream(buffer.stream(), &position), 1u);
    EXPECT_EQ(position, 100);
    EXPECT_EQ(buffer.contents(), ByteBuilder().bytes(fakeMp4(100)).bytes(boxHeader(0)).take());

    const Bytes container(77, 0x5C);
    buffer.stream()->write(container.data(), int64_t(container.size()));
    buffer.stream()->seek(10, 0);
    EXPECT_EQ(updateMP4TagStream(buffer.stream(), position), 1u);
    EXPECT_EQ(buffer.stream()->tell(), 10);
    EXPECT_EQ(readU32be(buffer.contents(), 100), 77u + 8u);
    EXPECT_TRUE(logLines().empty()) << dumpLog();

    // A header of known size goes to the end, wherever the stream stood.
    TempFile file(fakeMp4(100));
    FILE* fp = fopen(file.c_str(), "r+b");
    EXPECT_EQ(writeFirstMP4Tag(fp, 500), 1u);
    fclose(fp);
    EXPECT_EQ(file.read(), ByteBuilder().bytes(fakeMp4(100)).bytes(boxHeader(500)).take());
}

// Every refusal logs its own line last, leaves the bytes as they were and
// the stream where it stood (at its end, where a new box would go).
TEST_F(Mp4BoxTest, RefusalsWriteNothingAndLogTheirLine) {
    const Bytes content = ByteBuilder().bytes(fakeMp4(40)).bytes(boxHeader(0)).take();
    FixedBuffer full(content);  // no room to grow
    TempFile file(content);
    FILE* readOnly = fopen(file.c_str(), "rb");
    FILE* update = fopen(file.c_str(), "r+b");
    TevStreamFile unusable(nullptr);
    TevStream* stream = full.stream();
    auto index = [&](int64_t size, int64_t start, TevStream* on) {
        return _TEV_info{1, size, start, on, 32, 107, 1, 0, nullptr};
    };
    _TEV_info noStream = index(48, 40, nullptr), broken = index(48, 40, &unusable), invalid = index(48, 40, stream);
    invalid.valid = 0;
    int64_t at = 0;
    const char *const kUpdate = "TEVAPIs::updateMP4TagStream", *const kFp = "TEVAPIs::updateMP4TagFp";
    const char* const kWrap = "TEV::writeMP4Tag";
    const struct { std::function<uint32_t()> call; const char* tag; const char* text; } kCases[] = {
        {[&] { return writeMP4TagStream(stream, &at); }, "TEVAPIs::writeMP4TagStream", "file write error\n"},
        {[&] { return writeMP4TagHandle(full.handle(), &at); }, "TEVAPIs::writeMP4TagFp", "writeMP4TagStream error\n"},
        {[&] { return writeMP4TagFp(readOnly, &at); }, "TEVAPIs::writeMP4TagFp", "writeMP4TagStream error\n"},
        {[&] { return writeMP4TagStream(nullptr, &at); }, kUpdate, "Stream null\n"},
        {[&] { return writeMP4TagStream(&unusable, &at); }, kUpdate, "CheckError is false\n"},
        {[&] { return updateMP4TagStream(stream, 46); }, kUpdate, "file write error\n"},
        {[&] { return updateMP4TagStream(stream, -1); }, kUpdate, "file write error\n"},
        {[&] { return updateMP4TagHandle(full.handle(), 60); }, kFp, "updateMP4TagStream error\n"},
        {[&] { return updateMP4TagFp(update, 1000); }, kFp, "updateMP4TagStream error\n"},  // a file is never extended
        {[&] { return updateMP4TagStream(nullptr, 0); }, kUpdate, "Stream null\n"},
        {[&] { return updateMP4TagStream(&unusable, 0); }, kUpdate, "CheckError is false\n"},
        {[&] { return writeFirstMP4TagStream(stream, 8); }, "TEV::writeFirstMP4Tag", "File Write Error"},
        {[&] { return writeFirstMP4TagStream(nullptr, 8); }, kWrap, "src_tev_info->Stream is null"},
        {[&] { return writeFirstMP4Tag(nullptr, 8); }, kWrap, "src_tev_info->Stream CheckError is false"},
        {[&] { return updateMP4Tag(&noStream); }, "TEV::updateMP4Tag", "src_tev_info->Stream is null"},
        {[&] { return writeMP4Tag(&broken); }, kWrap, "src_tev_info->Stream CheckError is false"},
        {[&] { return updateMP4Tag(&invalid); }, "TEV::updateMP4Tag", "TEV validation failed"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.tag) + ": " + c.text);
        clearLog();
        ASSERT_EQ(stream->seek(0, 2), 48);
        EXPECT_EQ(c.call(), 0u);
        EXPECT_EQ(stream->tell(), 48);
        ASSERT_FALSE(logLines().empty());
        EXPECT_EQ(logLines().back().tag + ": " + logLines().back().text, std::string(c.tag) + ": " + c.text);
    }
    // Indexes whose appended region is empty, outside the stream or too big
    // for a box allocate nothing and write nothing.
    for (_TEV_info info : {index(int64_t(1) << 40, 0, stream), index(48, 48, stream), index(48, 46, stream),
                           index(48, -8, stream)}) {
        SCOPED_TRACE(std::to_string(info.stream_size) + " " + std::to_string(info.data_start_position));
        clearLog();
        EXPECT_EQ(writeMP4Tag(&info) + updateMP4Tag(&info), 0u);
        EXPECT_TRUE(loggedError(kWrap, "File Search Error") && loggedError("TEV::updateMP4Tag", "File Search Error"));
    }
    EXPECT_EQ(writeFirstMP4TagBuffer(full.handle(), 8), 1u);  // the buffer form ignores failures
    EXPECT_EQ(writeFirstMP4TagBuffer(nullptr, 8), 1u);
    EXPECT_EQ(fclose(readOnly) + fclose(update), 0);
    EXPECT_EQ(full.contents(), content);
    EXPECT_EQ(file.read(), content);
}

// Through an index, the update restores a damaged box size, and wrapping moves the container
// behind a header of its own length; where the stream cannot grow by the header, nothing changes.
TEST_F(Mp4BoxTest, IndexFormsRestoreTheSizeAndWrapTheContainer) {
    const Bytes good = buildContainer(fakeMp4(120), {{5, "clip", std::nullopt, Bytes(60, 0x42)}}, {107, true});
    Bytes damaged = good;
    std::fill(damaged.begin() + 120, damaged.begin() + 124, 0);
    TempFile boxed(damaged);
    EXPECT_EQ(onIndex(boxed, updateMP4Tag), 1u) << dumpLog();
    EXPECT_EQ(boxed.read(), good);
    // One record of 968 bytes and a one-entry directory of 32: 1000 bytes.
    const Bytes original = buildContainer(fakeMp4(200), {{5, "blob", std::nullopt, Bytes(956, 0x6B)}});
    ASSERT_EQ(original.size(), 1200u);
    TempFile file(original);
    EXPECT_EQ(onIndex(file, writeMP4Tag), 1u) << dumpLog();
    const Bytes moved(original.begin() + 200, original.end());
    EXPECT_EQ(file.read(), ByteBuilder().bytes(fakeMp4(200)).bytes(boxHeader(1000)).bytes(moved).take());

    FixedBuffer buffer(original, original.size() + 4);
    tev::PackBuffer pack(checkTEVInHandle(buffer.handle()));
    ASSERT_TRUE(pack) << dumpLog();
    EXPECT_EQ(writeMP4Tag(pack->info), 0u);
    EXPECT_EQ(buffer.contents(), original);
}

}  // namespace
