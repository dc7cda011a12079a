// The common path in one program: attach two records to an image, list them,
// read one in place and one as a copy, replace, delete one, delete all.
// Usage: quickstart IMAGE   (IMAGE is edited and ends byte-identical)
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tev/tev.hpp"

namespace {

int fail(const char* what) {
    std::fprintf(stderr, "quickstart: %s failed\n", what);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: quickstart IMAGE\n");
        return 2;
    }
    const char* image = argv[1];

    // 1. Attach records. Argument order of the save family: name, sub-info,
    //    data, type, update flag. Type 0 needs sub-information; use your own
    //    types (1..65535, except the reserved 256, 2048 and 32766).
    std::vector<unsigned char> voice(200 * 1024, 0x5a);
    if (!saveTEVDataToFile(image, "voice", 5, nullptr, 0, voice.data(),
                           static_cast<uint32_t>(voice.size()), 7, 0))
        return fail("saving voice");
    const unsigned char sub[] = {1, 2, 3, 4};
    const unsigned char note[] = "hello";
    if (!saveTEVDataToFile(image, "note", 4, sub, sizeof sub, note, 5, 0, 0))
        return fail("saving note");
    // The same with typed arguments (tev.hpp): they cannot trade places.
    if (!tev::saveToFile(image, "label", tev::ByteView("cat"), tev::DataType{9}))
        return fail("saving label");

    {
        // 2. Parse the container (read-only). destroyTEVDATA closes it;
        //    tev::Pack calls it for us.
        tev::Pack pack(checkTEVWithReadPM(image));
        if (!pack) return fail("parsing");
        const unsigned int count = GetTevCount(pack.get());
        for (unsigned int i = 0; i < count; ++i)
            std::printf("record %u: %s\n", i, GetNameInList(pack.get(), count, i));  // borrowed

        // 3. Where the data lies, to read it yourself. DestroyOffsetInfo.
        tev::Offset where(getTEVInFileByName(pack.get(), "voice"));
        if (!where || where->length != static_cast<int64_t>(voice.size()))
            return fail("locating voice");
        std::vector<unsigned char> read(static_cast<size_t>(where->length));
        const int fd = open(image, O_RDONLY);
        const ssize_t got = pread(fd, read.data(), read.size(), where->position);
        close(fd);
        if (got != where->length || read != voice) return fail("reading voice in place");

        // 4. A copy of a whole record. destroyTEVDATA_UNIT.
        tev::Record unit(extractTEVDataFromFilebyName(pack.get(), "note", 4));
        if (!unit) return fail("extracting note");
        const tev::ByteView data = tev::dataOf(*unit);
        const tev::ByteView info = tev::subInfoOf(*unit);
        if (data.text() != "hello" || info.size() != sizeof sub || unit->data_type != 0)
            return fail("checking note");
    }  // the pack is closed here, before the file changes

    // 5. Replace: bit 0 of the last argument. Without it an existing name
    //    is kept and the call returns 0.
    const unsigned char shorter[] = "bye";
    if (saveTEVDataToFile(image, "note", 4, sub, sizeof sub, shorter, 3, 0, 0))
        return fail("refusing a duplicate");
    if (!saveTEVDataToFile(image, "note", 4, sub, sizeof sub, shorter, 3, 0, 1))
        return fail("replacing note");

    // 6. Delete one record by name, then everything: the file is back to
    //    its media bytes.
    if (!deleteTEVDataFromFile(image, "voice", 5)) return fail("deleting voice");
    if (!deleteAllDataFromFile(image)) return fail("deleting all");
    if (tev::signatureOf(image) != tev::Signature::Plain) return fail("checking the media");
    std::printf("done\n");
    return 0;
}
