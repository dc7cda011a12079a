#include "support/files.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tevtest {

TempFile::TempFile(const Bytes& content, const std::string& name) {
    dir_ = (std::filesystem::temp_directory_path() / "tevtest-XXXXXX").string();
    if (mkdtemp(dir_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = dir_ + "/" + name;
    writeFile(path_, content);
}

TempFile::~TempFile() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

Bytes TempFile::read() const { return readFile(path_); }

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const Bytes& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) throw std::runtime_error("cannot write " + path);
    out.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
}

std::string sourcePath(const std::string& relative) {
    const char* root = std::getenv("TEV_SOURCE_DIR");
    return std::string(root ? root : ".") + "/" + relative;
}

}  // namespace tevtest
