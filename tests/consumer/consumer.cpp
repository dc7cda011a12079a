// Attaches a record to a small file and reads it back through the installed
// headers and library.
#include <tev/tev.hpp>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    FILE* fp = std::fopen(argv[1], "wb");
    if (fp == nullptr) return 1;
    const unsigned char media[] = {0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 0, 0, 0xFF, 0xD9};
    std::fwrite(media, 1, sizeof media, fp);
    std::fclose(fp);

    if (!tev::saveToFile(argv[1], "key", tev::ByteView("installed"), tev::DataType{1})) return 1;
    tev::Pack pack = tev::openForReading(argv[1]);
    if (!pack) return 1;
    tev::Record unit = tev::extract(pack.get(), "key");
    if (!unit || tev::dataOf(*unit).text() != "installed") return 1;
    std::printf("consumer: %s\n", std::string(tev::dataOf(*unit).text()).c_str());
    return 0;
}
