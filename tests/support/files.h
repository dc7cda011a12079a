// Temporary files for tests and small helpers to read and write them whole.
#ifndef TEV_TESTS_SUPPORT_FILES_H
#define TEV_TESTS_SUPPORT_FILES_H

#include <cstdint>
#include <string>
#include <vector>

namespace tevtest {

using Bytes = std::vector<uint8_t>;

// A file in a fresh temporary directory, removed with it.
class TempFile {
public:
    explicit TempFile(const Bytes& content = {}, const std::string& name = "file.bin");
    ~TempFile();
    TempFile(const TempFile&) = delete;

    const std::string& path() const { return path_; }
    const char* c_str() const { return path_.c_str(); }
    Bytes read() const;

private:
    std::string dir_;
    std::string path_;
};

Bytes readFile(const std::string& path);
void writeFile(const std::string& path, const Bytes& content);
// A path inside the source tree (from TEV_SOURCE_DIR, set by CTest).
std::string sourcePath(const std::string& relative);

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_FILES_H
