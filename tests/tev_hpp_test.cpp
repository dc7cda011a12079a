// The C++ layer: each owner releases with the destroy function that matches
// how its object was made (a wrong pairing leaks, double-closes or frees a
// caller's memory, which the sanitizer build reports), the views and the
// typed save put every argument in its place.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/files.h"
#include "tev/tev.hpp"

namespace {

using tevtest::Bytes;
using tevtest::RecordSpec;
using tevtest::TempFile;

Bytes sampleFile() {
    return tevtest::buildContainer(
        tevtest::fakeJpeg(64), {RecordSpec{5, "a", tevtest::textBytes("sub"), tevtest::textBytes("first")},
                                RecordSpec{7, "b", std::nullopt, tevtest::textBytes("second")},
                                RecordSpec{5, "c", std::nullopt, tevtest::textBytes("third")}});
}

TEST(TevHpp, PackOwnersLeaveBorrowedTargetsOpen) {
    const TempFile file(sampleFile());
    {
        FILE* fp = std::fopen(file.c_str(), "rb");
        ASSERT_NE(fp, nullptr);
        tev::PackFP pack(checkTEVInFP(fp));
        ASSERT_TRUE(pack);
        pack.reset();
        EXPECT_EQ(std::fseek(fp, 0, SEEK_END), 0);  // still open after the pack went
        EXPECT_EQ(std::fclose(fp), 0);
    }
    {
        const int fd = open(file.c_str(), O_RDONLY);
        ASSERT_GE(fd, 1);
        tev::PackFP pack(checkTEVInFd(fd));
        ASSERT_TRUE(pack);
        pack.reset();
        EXPECT_EQ(close(fd), 0);
    }
    {
        Bytes bytes = file.read();
        tev::Buffer handle(initTEVUsedBuffer(bytes.data(), static_cast<int64_t>(bytes.size()),
                                             static_cast<int64_t>(bytes.size())));
        ASSERT_TRUE(handle);
        tev::PackBuffer pack(checkTEVInHandle(handle.get()));
        ASSERT_TRUE(pack);
        pack.reset();
        EXPECT_EQ(getTEVWriteSize(handle.get()), static_cast<int64_t>(bytes.size()));
    }
    {
        FILE* fp = std::fopen(file.c_str(), "rb");
        ASSERT_NE(fp, nullptr);
        TevStreamFile stream(fp);
        tev::PackStream pack(checkTEVInStream(&stream));
        ASSERT_TRUE(pack);
        pack.reset();
        EXPECT_TRUE(stream.CheckError());
        EXPECT_EQ(stream.destroyPointer(), 0);
    }
    tev::Pack pack = tev::openForReading(file.c_str());
    ASSERT_TRUE(pack);
    EXPECT_EQ(GetTevCount(pack.get()), 3u);
    EXPECT_FALSE(tev::openForReading(TempFile(tevtest::fakeJpeg(64)).c_str()));
}

TEST(TevHpp, RecordViewsAndPositions) {
    const TempFile file(sampleFile());
    tev::Pack pack = tev::openForReading(file.c_str());
    ASSERT_TRUE(pack);

    tev::Record withSub = tev::extract(pack.get(), "a");
    ASSERT_TRUE(withSub);
    EXPECT_EQ(tev::dataOf(*withSub).text(), "first");
    EXPECT_EQ(tev::subInfoOf(*withSub).text(), "sub");

    tev::Record plain = tev::extract(pack.get(), 1u);
    ASSERT_TRUE(plain);
    EXPECT_EQ(tev::dataOf(*plain).text(), "second");
    EXPECT_TRUE(tev::subInfoOf(*plain).empty());
    EXPECT_EQ(tev::subInfoOf(*plain).begin(), tev::subInfoOf(*plain).end());
    EXPECT_FALSE(tev::extract(pack.get(), "missing"));
    EXPECT_FALSE(tev::extract(pack.get(), static_cast<const char*>(nullptr)));

    tev::Offset data = tev::dataPosition(pack.get(), "c");
    ASSERT_TRUE(data);
    const Bytes bytes = file.read();
    EXPECT_EQ(tevtest::readText(bytes, static_cast<size_t>(data->position),
                                static_cast<size_t>(data->length)),
              "third");
    tev::Offset sub = tev::subInfoPosition(pack.get(), "a");
    ASSERT_TRUE(sub);
    EXPECT_EQ(tevtest::readText(bytes, static_cast<size_t>(sub->position), 3), "sub");
    EXPECT_FALSE(tev::subInfoPosition(pack.get(), "b"));
}

TEST(TevHpp, NameListOwnsEveryNameAndMoves) {
    const TempFile file(sampleFile());
    tev::Pack pack = tev::openForReading(file.c_str());
    ASSERT_TRUE(pack);

    tev::NameList fives = tev::namesOfType(pack.get(), tev::DataType{5});
    ASSERT_EQ(fives.size(), 2u);
    std::vector<std::string> names(fives.begin(), fives.end());
    EXPECT_EQ(names, (std::vector<std::string>{"a", "c"}));

    tev::NameList moved = std::move(fives);
    EXPECT_TRUE(fives.empty());
    EXPECT_STREQ(moved[1], "c");
    moved = tev::namesOfType(pack.get(), tev::DataType{7});  // the old list is released
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_STREQ(moved[0], "b");
    EXPECT_TRUE(tev::namesOfType(pack.get(), tev::DataType{9}).empty());
}

TEST(TevHpp, SignatureValues) {
    const struct {
        uint32_t raw;
        tev::Signature expected;
    } cases[] = {{0, tev::Signature::Error},     {1, tev::Signature::Plain},
                 {2, tev::Signature::Container}, {3, tev::Signature::Voxa},
                 {4, tev::Signature::ContainerThenVoxa}, {5, tev::Signature::Error},
                 {0xFFFFFFFF, tev::Signature::Error}};
    for (const auto& c : cases) EXPECT_EQ(tev::toSignature(c.raw), c.expected) << c.raw;

    const TempFile container(sampleFile());
    const TempFile plain(tevtest::fakeJpeg(64));
    EXPECT_EQ(tev::signatureOf(container.c_str()), tev::Signature::Container);
    EXPECT_EQ(tev::signatureOf(plain.c_str()), tev::Signature::Plain);
    EXPECT_TRUE(tev::hasContainer(tev::Signature::ContainerThenVoxa));
    EXPECT_FALSE(tev::hasContainer(tev::Signature::Voxa));
}

TEST(TevHpp, TypedSavePutsEachArgumentInPlace) {
    const TempFile file(tevtest::fakeJpeg(64));
    ASSERT_TRUE(tev::saveToFile(file.c_str(), "key", tev::ByteView("payload"), tev::DataType{300},
                                tev::ByteView("meta")));
    EXPECT_FALSE(tev::saveToFile(file.c_str(), "key", tev::ByteView("other"), tev::DataType{300}));
    {
        tev::Pack pack = tev::openForReading(file.c_str());
        tev::Record unit = tev::extract(pack.get(), "key");
        ASSERT_TRUE(unit);
        EXPECT_EQ(unit->data_type, 300u);
        EXPECT_EQ(tev::dataOf(*unit).text(), "payload");
        EXPECT_EQ(tev::subInfoOf(*unit).text(), "meta");
    }
    ASSERT_TRUE(tev::saveToFile(file.c_str(), "key", tev::ByteView("other"), tev::DataType{301}, {},
                                tev::OnExisting::Replace));
    tev::Pack pack = tev::openForReading(file.c_str());
    tev::Record unit = tev::extract(pack.get(), "key");
    ASSERT_TRUE(unit);
    EXPECT_EQ(unit->data_type, 301u);
    EXPECT_EQ(tev::dataOf(*unit).text(), "other");
    EXPECT_TRUE(tev::subInfoOf(*unit).empty());
    // A type-0 record needs sub-information; the library refuses it without.
    EXPECT_FALSE(tev::saveToFile(file.c_str(), "bare", tev::ByteView("x"), tev::DataType{0}));
}

TEST(TevHpp, VoxaAndByteOwners) {
    const Bytes media = tevtest::fakeJpeg(40);
    Bytes bytes = media;
    const Bytes sound = tevtest::textBytes("sound!");
    bytes.insert(bytes.end(), sound.begin(), sound.end());
    const Bytes block = tevtest::voxaBlock(106, 40, 46);
    bytes.insert(bytes.end(), block.begin(), block.end());
    const TempFile file(bytes);

    tev::Voxa voxa(_checkAudioInImageFile(file.c_str()));
    ASSERT_TRUE(voxa);
    tev::KBytes copy(_getAudioStreamBuffer(voxa.get()));
    ASSERT_TRUE(copy);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(copy.get()), 6), "sound!");
    tev::VoxaOffset first(_getAudioInImageFile(voxa.get()));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->offset, 40u);

    uint32_t size = 0;
    tev::CBytes whole(GetAudioInVoxa(file.c_str(), &size));
    ASSERT_TRUE(whole);
    EXPECT_EQ(size, 6u);

    FILE* fp = std::fopen(file.c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    tev::VoxaFP fromFp(_checkAudioInImageFP(fp));
    ASSERT_TRUE(fromFp);
    fromFp.reset();
    EXPECT_EQ(std::fclose(fp), 0);

    tev::KString version(getTEVVersion());
    EXPECT_STREQ(version.get(), "107");
}

}  // namespace
