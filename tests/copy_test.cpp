// Copying records and sounds between files, case by case: both files laid
// out byte by byte, and the whole of each afterwards, the result and every
// log line compared with what the copy is documented to give.
#include <gtest/gtest.h>

#include "support/edit.h"
#include "support/sound_files.h"

namespace {

using namespace tevtest;

const std::string kFirst = "EchoFrame_000";

Bytes jpeg() { return fakeJpeg(200); }
Bytes mp4() { return fakeMp4(200); }
Bytes sourceMedia() { return fakeJpeg(150); }

// "a" (type 3, with sub-information), "b" (type 4), "a2" (type 3).
const RecordSpec kA{3, "a", textBytes("sub"), Bytes(10, 1)};
const RecordSpec kB = record("b", 20, 2, 4);
const RecordSpec kA2 = record("a2", 5, 3, 3);
RecordSpec withoutSub(RecordSpec r) { return {r.type, r.name, std::nullopt, r.data}; }
Bytes source() { return buildContainer(sourceMedia(), {kA, kB, kA2}); }
// Everything behind the source's media.
Bytes containerOf(const Bytes& file) { return Bytes(file.begin() + long(sourceMedia().size()), file.end()); }
Bytes boxed(const Bytes& media, const std::vector<RecordSpec>& records) { return buildContainer(media, records, tevtest::boxed()); }
// A container followed by a one-sound block whose sound is records[0]'s data.
Bytes withSoundBlock(const std::vector<RecordSpec>& records) {
    const uint32_t start = uint32_t(sourceMedia().size()) + 8 + uint32_t(records[0].name.size());
    return buildContainer(sourceMedia(), records, {107, false, true, start, start + uint32_t(records[0].data.size())});
}
Bytes soundOnly(const Bytes& media, const Bytes& sound) {
    return imageWithRecordSound(media, {soundRecord(kFirst, sound), metaRecord({kFirst})}, 0);
}

using Call = std::function<uint32_t(TempFile& src, TempFile& dst)>;

// Runs `copy` over file streams on both paths; the streams are gone before
// the files are closed.
uint32_t overStreams(TempFile& src, TempFile& dst, const std::function<uint32_t(TevStream*, TevStream*)>& copy) {
    return onFp(src.c_str(), [&](FILE* s) {
        return onFp(dst.c_str(), [&](FILE* d) { TevStreamFile in(s), out(d); return copy(&in, &out); });
    });
}

Call all() { return [](TempFile& s, TempFile& d) { return copyTEVData(s.c_str(), d.c_str()); }; }
Call ofType(unsigned type) { return [type](TempFile& s, TempFile& d) { return copyTEVDataType(s.c_str(), d.c_str(), type); }; }
Call named(const char* key) { return [key](TempFile& s, TempFile& d) { return copyTEVDataKeyName(s.c_str(), d.c_str(), key); }; }
Call sounds() { return [](TempFile& s, TempFile& d) { return overStreams(s, d, copyVoxaDataStream); }; }
// The raw merge of the source's parsed container; `grow` is added to the
// first record's offset first, so that the copy would begin before the file,
// and `past` to the size the index holds, so that it would read past the end.
Call merge(uint32_t grow = 0, int64_t past = 0) {
    return [grow, past](TempFile& s, TempFile& d) {
        tev::Pack pack(checkTEVWithReadPM(s.c_str()));
        pack->info->meta_data[0]->start_offset += grow;
        pack->info->stream_size += past;
        return onFp(d.c_str(), [&](FILE* out) { return copyMergeTEVData(pack->info, out); });
    };
}

struct Case {
    std::string what;
    Bytes src, dst;
    Call call;
    uint32_t result;
    Bytes dstAfter;
    ErrorLines log;
    std::optional<Bytes> srcAfter = std::nullopt;  // unchanged when absent
};

class CopyFamily : public LogCaptureTest {};

TEST_F(CopyFamily, EachCaseGivesItsFileResultAndLog) {
    const Bytes s1 = pattern(48), s2 = pattern(33);
    const RecordSpec x = record("x", 9, 0x11), y = record("y", 4, 0x22);
    const RecordSpec user0{0, "z", textBytes("u"), Bytes(3, 7)};
    const ErrorLines::value_type noSignature{"TEVEncoderAPIs::copyTEVDataType", "SIGNATURE_DETECTION_FAIL\n"};
    const ErrorLines::value_type nullStream{"TEVAPIs::getSignatureStream", "Stream is null\n"};
    // The first of two directory entries, in front of "TEVT" and a 30-byte block, points far outside the file.
    const Bytes sound = withSoundBlock({soundRecord(kFirst, s1), x});
    const Bytes damagedSound = patchedU32le(sound, sound.size() - 30 - 8 - 12 * 2 + 4, 0x7FFFFFFF);
    const Bytes listed = imageWithRecordSound(
        sourceMedia(), {soundRecord(kFirst, s1), x, soundRecord("memo", s2), metaRecord({kFirst, "memo"})}, 0);

    const std::vector<Case> cases = {
        {"all records into a JPEG, sub-information left behind", source(), jpeg(), all(), 1, buildContainer(jpeg(), {withoutSub(kA), kB, kA2}), {}},
        {"all records into an MP4: one box reaching the end", source(), mp4(), all(), 1, boxed(mp4(), {withoutSub(kA), kB, kA2}), {}},
        {"into an MP4 with a container: added to it, one box", source(), boxed(mp4(), {x}), all(), 1, boxed(mp4(), {x, withoutSub(kA), kB, kA2}), {}},
        {"MP4: the answer is the box sizing, not the refused last save", buildContainer(sourceMedia(), {kA, user0}), mp4(), all(), 1,
         boxed(mp4(), {withoutSub(kA)}), {{"TEVEncoderAPIs::saveTEVDataToStream", "type & sub wrong !!"}}},
        {"JPEG: the refused last save is the answer", buildContainer(sourceMedia(), {kA, user0}), jpeg(), all(), 0,
         buildContainer(jpeg(), {withoutSub(kA)}), {{"TEVEncoderAPIs::saveTEVDataToStream", "type & sub wrong !!"}}},
        {"same names are replaced", source(), buildContainer(jpeg(), {record("b", 7, 9), x}), all(), 1, buildContainer(jpeg(), {x, withoutSub(kA), kB, kA2}), {}},
        {"a source without container", jpeg(), jpeg(), all(), 0, jpeg(), {noSignature}},
        {"a bare sound into a JPEG becomes its first sound record", imageWithBareSound(sourceMedia(), s1), jpeg(), all(), 1, soundOnly(jpeg(), s1), {}},
        {"a bare sound into an MP4", imageWithBareSound(sourceMedia(), s1), mp4(), all(), 0, mp4(), {}},
        {"listed sounds go through the sound save, the list is never copied", listed, jpeg(), all(), 1,
         // The record save behind the sound rewrites the block at version
         // 106; "memo" is appended to the list, which moves behind "x".
         imageWithRecordSound(jpeg(), {soundRecord(kFirst, s1), x, metaRecord({kFirst, "memo"}), soundRecord("memo", s2)}, 0, 106), {}},
        {"a container that does not parse still gives the first sound", damagedSound, jpeg(), all(), 1, soundOnly(jpeg(), s1),
         {{"TEVCommonAPIs::checkTEVInStreamVersionNotchecked", "getTEVList err."}}},
        {"by type into plain media", source(), jpeg(), ofType(3), 1, buildContainer(jpeg(), {withoutSub(kA), kA2}), {}},
        {"by type from a source with a sound block", withSoundBlock({x, y}), jpeg(), ofType(1), 1, buildContainer(jpeg(), {x, y}), {}},
        {"by type into a container: nothing", source(), buildContainer(jpeg(), {x}), ofType(3), 1, buildContainer(jpeg(), {x}), {}},
        {"by name: the first of two", buildContainer(sourceMedia(), {record("x", 4, 1), record("x", 6, 2)}), mp4(), named("x"), 1, boxed(mp4(), {record("x", 4, 1)}), {}},
        {"by name from a source with a sound block: nothing", withSoundBlock({x, y}), jpeg(), named("y"), 1, jpeg(), {}},
        {"by name from a null source into plain media", source(), jpeg(),
         [](TempFile& s, TempFile& d) { return overStreams(s, d, [](TevStream*, TevStream* dst) { return copyTEVDataKeyNameStream(nullptr, dst, "a"); }); }, 1, jpeg(), {nullStream, nullStream}},
        {"raw merge", source(), jpeg(), merge(), 1, concat(jpeg(), containerOf(source())), {}},
        {"raw merge onto an empty file", source(), Bytes{}, merge(), 0, Bytes{}, {{"TEVAPIs::mergeTEVData", "File Search Error 0\n"}}},
        {"raw merge from before the file's start", source(), jpeg(), merge(151), 0, jpeg(), {{"_klseek", "errno : 22"}, {"TEVAPIs", "copyMergeTEVData start\n"}}},
        {"sounds: listed sounds into plain media", listed, jpeg(), sounds(), 1, imageWithRecordSound(jpeg(), {soundRecord(kFirst, s1), soundRecord("memo", s2), metaRecord({kFirst, "memo"})}, 0), {}},
        {"sounds: a bare destination is converted before a plain source is refused", jpeg(), imageWithBareSound(fakeJpeg(30), s2), sounds(), 0, soundOnly(fakeJpeg(30), s2), {}},
        {"sounds: a source with a block but no list into a container", withSoundBlock({x}), buildContainer(jpeg(), {y}), sounds(), 1, buildContainer(jpeg(), {y}), {}},
        {"sounds: a bare source is converted and copied into a container", imageWithBareSound(sourceMedia(), s1), buildContainer(jpeg(), {x}), sounds(), 1,
         imageWithRecordSound(jpeg(), {x, soundRecord(kFirst, s1), metaRecord({kFirst})}, 1), {}, soundOnly(sourceMedia(), s1)},
        {"a stream copy from no source", source(), jpeg(), [](TempFile& s, TempFile& d) { return overStreams(s, d, [](TevStream*, TevStream* dst) { return copyTEVDataStream(nullptr, dst); }); },
         0, jpeg(), {{"TEVEncoderAPIs::copyTEVDataStream", "Stream is null\n"}}},
        {"the merge by path is the copy", source(), jpeg(), [](TempFile& s, TempFile& d) { return mergeTEVData(s.c_str(), d.c_str()); }, 1, buildContainer(jpeg(), {withoutSub(kA), kB, kA2}), {}},
        {"raw merge from past the file's end", source(), jpeg(), merge(0, 10000), 0, jpeg(), {{"TEVAPIs::mergeTEVData", "File Read Error"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempFile src(c.src), dst(c.dst);
        clearLog();
        EXPECT_EQ(c.call(src, dst), c.result);
        EXPECT_EQ(dst.read(), c.dstAfter);
        EXPECT_EQ(src.read(), c.srcAfter.value_or(c.src));
        EXPECT_EQ(errorLines(), c.log);
        EXPECT_EQ(logLines().size(), c.log.size()) << dumpLog();  // and nothing below error
    }
    EXPECT_EQ(copyTEVDataFd(0, 5) + copyTEVData(nullptr, "x"), 0u);
}

}  // namespace
