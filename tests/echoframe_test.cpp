// Sounds kept as container records: conversion of a bare sound, named sound
// saves on images of every signature, and the container's own save and
// delete paths keeping the "EchoFrame_Meta_Info" list and the Voxa block in
// step. Files are built byte by byte and read back with the reader below,
// which does not use the library's parser.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "support/sound_files.h"
#include "tev/tev.h"

namespace {

using namespace tevtest;

constexpr uint32_t kMediaSize = 300;

struct Record {
    std::string name;
    uint32_t type;
    Bytes data;
    uint32_t dataStart;  // absolute
};

// What the tail of an image says, read from the end: the directory's
// records and, when a one-sound Voxa block follows it, that block.
struct Tail {
    std::vector<Record> records;
    bool block = false;
    uint32_t blockVersion = 0, soundStart = 0, soundEnd = 0;

    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (const Record& r : records) out.push_back(r.name);
        return out;
    }
    const Record* find(const std::string& name) const {
        for (const Record& r : records) {
            if (r.name == name) return &r;
        }
        return nullptr;
    }
    std::vector<std::string> soundList() const {
        const Record* meta = find("EchoFrame_Meta_Info");
        std::vector<std::string> out;
        if (meta == nullptr) return out;
        const uint32_t count = readU32le(meta->data, 8);
        size_t at = 12 + 4 * size_t{count};
        for (uint32_t i = 0; i < count; ++i) {
            const uint32_t length = readU32le(meta->data, 12 + 4 * i);
            out.push_back(readText(meta->data, at, length));
            at += length;
        }
        return out;
    }
};

Tail readTail(const Bytes& file) {
    Tail tail;
    size_t end = file.size();
    if (readText(file, end - 6, 6) == "VOXABS") {
        tail.block = true;
        const size_t h = end - 30;
        EXPECT_EQ(readText(file, h, 4), "VOXA");
        tail.blockVersion = readU32le(file, h + 4);
        EXPECT_EQ(readU32le(file, h + 8), 1u);
        tail.soundStart = readU32le(file, h + 12);
        tail.soundEnd = readU32le(file, h + 16);
        end = h;
    }
    if (end < 8 || readText(file, end - 4, 4) != "TEVT") return tail;
    // KTHO is the distance from "TEVH" to KTHO itself.
    const size_t head = end - 8 - readU32le(file, end - 8);
    EXPECT_EQ(readText(file, head, 4), "TEVH");
    const uint32_t count = readU32le(file, head + 8);
    for (uint32_t i = 0; i < count; ++i) {
        const size_t entry = head + 12 + 12 * size_t{i};
        const uint32_t metaType = readU32le(file, entry);
        const size_t start = head - readU32le(file, entry + 4);
        const uint32_t nameLength = readU32le(file, start + 4);
        const size_t dataAt = start + 8 + nameLength;
        const size_t length = readU32le(file, entry + 8);
        Record r{readText(file, start + 8, nameLength), metaType >> 16,
                 Bytes(file.begin() + dataAt, file.begin() + start + length), uint32_t(dataAt)};
        tail.records.push_back(r);
    }
    return tail;
}

Bytes media() { return fakeJpeg(kMediaSize); }

class EchoFrameTest : public LogCaptureTest {};

TEST_F(EchoFrameTest, ConvertingABareSoundLaysOutTheRecordsAndBlock) {
    const Bytes sound = pattern(64);
    TempFile file(imageWithBareSound(media(), sound));
    FILE* fp = std::fopen(file.c_str(), "r+b");
    TevStreamFile stream(fp);
    _voxa_info_struct* voxa = checkVoxaInStream(&stream);
    ASSERT_NE(voxa, nullptr);
    EXPECT_EQ(convertVoxaToEchoFrame(&voxa), 1u);
    DestroyVoxaStream(voxa);
    std::fclose(fp);

    const Bytes after = file.read();
    const Bytes meta = metaPayload({"EchoFrame_000"});
    ASSERT_EQ(meta.size(), 29u);
    Bytes expected = media();
    expected = concat(expected, encodeRecord({256, "EchoFrame_000", std::nullopt, sound}));
    expected = concat(expected, encodeRecord({2048, "EchoFrame_Meta_Info", std::nullopt, meta}));
    const uint32_t soundLength = 8 + 13 + 64, metaLength = 8 + 19 + 29;
    expected = concat(expected, ByteBuilder()
                                    .text("TEVH").u32le(107).u32le(2)
                                    .u32le(256u << 16).u32le(soundLength + metaLength).u32le(soundLength)
                                    .u32le(2048u << 16).u32le(metaLength).u32le(metaLength)
                                    .u32le(36).text("TEVT")
                                    .take());
    expected = concat(expected, voxaBlock(107, kMediaSize + 21, kMediaSize + 21 + 64));
    EXPECT_EQ(after, expected);
}

// A named sound saved into an image in each of its states; the list and
// the block always agree with the records.
TEST_F(EchoFrameTest, NamedSoundsOnEverySignature) {
    const Bytes first = pattern(40), second = Bytes(25, 0x5A), third = Bytes(9, 0x33);
    TempFile file(media());
    ASSERT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(first.data()), 40, "memo", 4), 1u);
    Tail t = readTail(file.read());
    EXPECT_EQ(t.names(), (std::vector<std::string>{"memo", "EchoFrame_Meta_Info"}));
    EXPECT_EQ(t.blockVersion, 107u);
    EXPECT_EQ(t.soundStart, t.find("memo")->dataStart);

    // A second name joins the list; the block keeps pointing at the first.
    ASSERT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(second.data()), 25, "note", 4), 1u);
    t = readTail(file.read());
    EXPECT_EQ(t.soundList(), (std::vector<std::string>{"memo", "note"}));
    EXPECT_EQ(t.find("note")->data, second);
    EXPECT_EQ(t.soundStart, t.find("memo")->dataStart);
    EXPECT_EQ(t.soundEnd - t.soundStart, 40u);

    // Replacing the sound the block points at: the new bytes take its place.
    ASSERT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(third.data()), 9, "memo", 4), 1u);
    t = readTail(file.read());
    EXPECT_EQ(t.soundList(), (std::vector<std::string>{"note", "memo"}));
    EXPECT_EQ(t.find("memo")->data, third);
    EXPECT_EQ(t.soundStart, t.find("memo")->dataStart);
    EXPECT_EQ(t.soundEnd - t.soundStart, 9u);

    // An ordinary record beside the sounds leaves the list alone.
    const unsigned char text[] = "caption";
    ASSERT_EQ(saveTEVDataToFile(file.c_str(), "cap", 3, nullptr, 0, text, 7, 5, 0), 1u);
    t = readTail(file.read());
    EXPECT_EQ(t.soundList(), (std::vector<std::string>{"note", "memo"}));
    EXPECT_EQ(t.soundStart, t.find("memo")->dataStart);
    const Bytes after = file.read();
    EXPECT_EQ(Bytes(after.begin(), after.begin() + kMediaSize), media());
}

TEST_F(EchoFrameTest, SavingIntoABareSoundKeepsItAsEchoFrame000) {
    const Bytes old = pattern(30), sound = Bytes(12, 7);
    TempFile file(imageWithBareSound(media(), old));
    ASSERT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(sound.data()), 12, "voice", 5), 1u);
    Tail t = readTail(file.read());
    EXPECT_EQ(t.soundList(), (std::vector<std::string>{"EchoFrame_000", "voice"}));
    EXPECT_EQ(t.find("EchoFrame_000")->data, old);
    EXPECT_EQ(t.find("voice")->data, sound);
    EXPECT_EQ(t.soundStart, t.find("EchoFrame_000")->dataStart);

    // The container's save converts the same way before adding its record.
    TempFile other(imageWithBareSound(media(), old));
    const unsigned char data[] = {1, 2, 3};
    ASSERT_EQ(saveTEVDataToFile(other.c_str(), "rec", 3, nullptr, 0, data, 3, 9, 0), 1u);
    t = readTail(other.read());
    EXPECT_EQ(t.names(), (std::vector<std::string>{"EchoFrame_000", "EchoFrame_Meta_Info", "rec"}));
    EXPECT_EQ(t.soundList(), (std::vector<std::string>{"EchoFrame_000"}));
    EXPECT_EQ(t.soundStart, t.find("EchoFrame_000")->dataStart);
}

TEST_F(EchoFrameTest, DeletesKeepTheListTrue) {
    const Bytes a = pattern(20), b = Bytes(10, 1), c = Bytes(11, 2);
    TempFile file(media());
    ASSERT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(a.data()), 20, "a", 1), 1u);
    ASSERT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(b.data()), 10, "b", 1), 1u);
    ASSERT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(c.data()), 11, "c", 1), 1u);
    EXPECT_EQ(deleteVoxaFromImageFile(file.c_str(), "nosuch"), 0u);
    ASSERT_EQ(deleteVoxaFromImageFile(file.c_str(), "b"), 1u);
    Tail t = readTail(file.read());
    EXPECT_EQ(t.soundList(), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(t.find("b"), nullptr);
    EXPECT_EQ(t.soundStart, t.find("a")->dataStart);

    _TEV_info_pack* pack = checkTEVWithReadPM(file.c_str());
    ASSERT_NE(pack, nullptr);
    EXPECT_EQ(getVoxaCntInFile(pack), 2u);
    char** names = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(getEchoFrameNameList(pack, &names, &count), 1u);
    ASSERT_EQ(count, 2u);
    EXPECT_STREQ(names[0], "a");
    EXPECT_STREQ(names[1], "c");
    for (uint32_t i = 0; i < count; ++i) _kfree(names[i]);
    _kfree(names);
    destroyTEVDATA(pack);

    ASSERT_EQ(deleteAllVoxaFromImageFile(file.c_str()), 1u);
    EXPECT_EQ(file.read(), media());
}

TEST_F(EchoFrameTest, ListsThatRunPastTheirPayloadAreRefused) {
    Bytes meta = metaPayload({"abc"});
    putU32le(meta, 12, 200);  // the name's length runs past the payload
    TempFile file(buildContainer(media(), {{256, "abc", std::nullopt, Bytes(5, 1)},
                                           {2048, "EchoFrame_Meta_Info", std::nullopt, meta}}));
    _TEV_info_pack* pack = checkTEVWithReadPM(file.c_str());
    ASSERT_NE(pack, nullptr);
    char** names = nullptr;
    uint32_t count = 7;
    EXPECT_EQ(getEchoFrameNameList(pack, &names, &count), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(names, nullptr);
    _TEV_data_unit* unit = extractTEVDataFromFilebyName(pack, "EchoFrame_Meta_Info", 19);
    EXPECT_EQ(isIdenticalNameInMetaInfo(unit, "abc"), 0u);
    destroyTEVDATA_UNIT(unit);
    destroyTEVDATA(pack);

    TempFile plain(buildContainer(media(), {record("x", 3, 1)}));
    pack = checkTEVWithReadPM(plain.c_str());
    EXPECT_EQ(getVoxaCntInFile(pack), 0xFFFFFFFFu);
    destroyTEVDATA(pack);
}

TEST_F(EchoFrameTest, RefusalsLeaveTheFileAlone) {
    const Bytes sound(8, 1);
    // A container followed by a block in an MP4 file.
    const Bytes mp4 = buildContainer(fakeMp4(kMediaSize), {record("x", 4, 2)},
                                     {107, false, true, kMediaSize + 9, kMediaSize + 13});
    TempFile file(mp4);
    EXPECT_EQ(saveVoxaToImageFile(file.c_str(), const_cast<uint8_t*>(sound.data()), 8, "s", 1), 0u);
    EXPECT_TRUE(loggedError("TEVVoxaAPIs::saveVoxaToImageStream", "SIGNATURE_VOXA_TEV is not use MP4 Format"))
        << dumpLog();
    EXPECT_EQ(file.read(), mp4);

    TempFile jpeg(media());
    EXPECT_EQ(saveVoxaToImageFile(jpeg.c_str(), const_cast<uint8_t*>(sound.data()), 0xFFF00001u, "s", 1), 0u);
    EXPECT_TRUE(loggedError("TEVVoxaAPIs::saveVoxaToImageFile", "Too big file to add"));
    EXPECT_EQ(saveVoxaToImageFile(jpeg.c_str(), const_cast<uint8_t*>(sound.data()), 8, nullptr, 0), 0u);
    EXPECT_TRUE(loggedError("TEVVoxaAPIs::saveVoxaToImageStream", "voxa name is null or voxa_name_len is 0"));
    EXPECT_EQ(jpeg.read(), media());
}

TEST_F(EchoFrameTest, CopiesTheSoundsIntoAPlainImage) {
    const Bytes a = pattern(33), b = Bytes(4, 9);
    TempFile src(media());
    saveVoxaToImageFile(src.c_str(), const_cast<uint8_t*>(a.data()), 33, "a", 1);
    saveVoxaToImageFile(src.c_str(), const_cast<uint8_t*>(b.data()), 4, "b", 1);
    TempFile dst(fakeJpeg(100));
    ASSERT_EQ(copyVoxaData(src.c_str(), dst.c_str()), 1u);
    const Tail t = readTail(dst.read());
    EXPECT_EQ(t.soundList(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(t.find("a")->data, a);
    EXPECT_EQ(t.find("b")->data, b);
    EXPECT_EQ(t.soundStart, t.find("a")->dataStart);
    EXPECT_EQ(readTail(src.read()).soundList(), (std::vector<std::string>{"a", "b"}));
}

}  // namespace
