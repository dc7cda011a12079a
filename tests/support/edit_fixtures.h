// Files and indexes for tests that edit containers: a temporary file open
// for update behind a TevStreamFile, and the library's own parse of it.
#ifndef TEV_TESTS_SUPPORT_EDIT_FIXTURES_H
#define TEV_TESTS_SUPPORT_EDIT_FIXTURES_H

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/files.h"
#include "tev/container.h"
#include "tev/stream.h"

namespace tevtest {

// A temporary file holding `content`, opened "r+b" for the lifetime of the
// object, with a file stream over it.
class EditableFile {
public:
    explicit EditableFile(const Bytes& content);
    ~EditableFile();
    EditableFile(const EditableFile&) = delete;
    EditableFile& operator=(const EditableFile&) = delete;

    TevStream* stream() { return stream_.get(); }
    FILE* fp() { return fp_; }
    const char* path() const { return file_.c_str(); }
    Bytes bytes() const { return file_.read(); }

private:
    TempFile file_;
    FILE* fp_;
    std::unique_ptr<TevStreamFile> stream_;
};

struct IndexDeleter {
    void operator()(_TEV_info* info) const { DestroyTEV(info); }
};
using IndexPtr = std::unique_ptr<_TEV_info, IndexDeleter>;

// ParseTEV, getTEVList and getAllNameOfDataList; null when any fails.
IndexPtr parseIndex(TevStream* stream, uint32_t signature);
// The record names of a parsed index, in directory order.
std::vector<std::string> namesOf(const _TEV_info& info);

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_EDIT_FIXTURES_H
