// Where an edit parses the stream again without reading the records' names
// (the delete's check of the index it was handed, the sizing of the "tevd"
// box after an append), the results and log lines must be those of the full
// parse: the names are skipped only where they are known to be readable.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/edit.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "tev/tev.h"

namespace tevtest {
namespace {

class FreshIndexTest : public LogCaptureTest {};

TEST_F(FreshIndexTest, DeleteWithAnIndexWithoutNamesStillNeedsEveryNameReadable) {
    // The handed-in index never read the names, so the delete's own parse
    // must, and a name it cannot read refuses the delete as before.
    const std::vector<RecordSpec> three = {record("first", 40, 0xA1), record("middle", 70, 0xB2),
                                           record("last", 25, 0xC3)};
    Bytes damaged = buildContainer(fakeJpeg(300), three);
    const size_t lastNameLengthAt = 300 + recordLength(three[0]) + recordLength(three[1]) + 4;
    putU32le(damaged, lastNameLengthAt, 2000);
    EditableFile file(damaged);
    IndexPtr index(ParseTEV(file.stream(), SIGNATURE_TEV));
    ASSERT_NE(index, nullptr);
    ASSERT_EQ(getTEVList(index.get()), 1u) << dumpLog();
    EXPECT_EQ(DeleteATEVDataStream(index.get(), 0, nullptr), 0u);
    EXPECT_TRUE(loggedError("TEVInternal::_getNameOfData", "name length is wrong : 2000byte")) << dumpLog();
    // The parse's own lines are all: the delete adds none of its own.
    ASSERT_FALSE(logLines().empty());
    EXPECT_EQ(logLines().back().text, "getAllNameOfDataList err.") << dumpLog();
    EXPECT_EQ(file.bytes(), damaged);

    // With every name readable the same index deletes.
    EditableFile sound(buildContainer(fakeJpeg(300), three));
    IndexPtr soundIndex(ParseTEV(sound.stream(), SIGNATURE_TEV));
    ASSERT_NE(soundIndex, nullptr);
    ASSERT_EQ(getTEVList(soundIndex.get()), 1u);
    EXPECT_EQ(DeleteATEVDataStream(soundIndex.get(), 0, nullptr), 1u) << dumpLog();
    EXPECT_EQ(sound.bytes(), buildContainer(fakeJpeg(300), {three[1], three[2]}));
}

TEST_F(FreshIndexTest, BoxAfterAnAppendIsSizedOnlyWhenTheNewDirectoryParses) {
    // Eight 10-byte records behind an 8-byte MP4 make the smallest file whose
    // directory the parser accepts (it wants 24 bytes per entry in the
    // file); a ninth leaves the file too small for its own directory, so
    // the parse after the append fails and the box keeps its old size.
    const Bytes media = fakeMp4(8);
    std::vector<RecordSpec> records;
    for (char name = 'a'; name < 'i'; ++name) records.push_back(record(std::string(1, name), 1, uint8_t(name)));
    const Bytes before = buildContainer(media, records, {107, true});
    TempFile file(before);
    const RecordSpec ninth = record("i", 1, 'i');
    EXPECT_EQ(saveSpec([&](auto... args) { return saveTEVDataToFile(file.c_str(), args...); }, ninth, 0), 1u)
        << dumpLog();
    records.push_back(ninth);
    Bytes expected = buildContainer(media, records, {107, true});
    std::copy_n(before.begin() + long(media.size()), 4, expected.begin() + long(media.size()));  // box size
    EXPECT_EQ(file.read(), expected);
    EXPECT_TRUE(loggedError("TEV::getTEVList", "header is bigger then file -> that's not true!!")) << dumpLog();
    EXPECT_TRUE(loggedError("TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getTEVList err."));
    EXPECT_TRUE(loggedError("TEVEncoderAPIs::saveTEVDataToStream", "updateMP4Tag TEVdata is NULL."));
}

}  // namespace
}  // namespace tevtest
