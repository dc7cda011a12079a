// Helpers for tests that edit containers: files to edit (open behind a
// stream, or parsed), calls of the save family with a RecordSpec, and a
// runner for tables of edits checked by result, log and whole file.
#ifndef TEV_TESTS_SUPPORT_EDIT_H
#define TEV_TESTS_SUPPORT_EDIT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/bytes.h"
#include "support/files.h"
#include "support/log_capture.h"
#include "support/records.h"
#include "tev/tev.h"
#include "tev/tev.hpp"

namespace tevtest {

// The sub-information of `r` as the add and save functions take it.
inline const unsigned char* subOf(const RecordSpec& r) { return r.sub ? r.sub->data() : nullptr; }
inline uint32_t subLengthOf(const RecordSpec& r) { return r.sub ? uint32_t(r.sub->size()) : 0; }

inline ContainerOptions boxed() { return {107, true}; }

// Parses the container of the file at `path`, opened for update, and returns
// what `edit` returns for its index (0 when nothing parses). The file is
// closed again before this returns, so its bytes can be read afterwards.
template <typename Edit>
uint32_t editParsed(const std::string& path, Edit edit) {
    tev::Pack pack(checkTEVInFile(path.c_str()));
    EXPECT_NE(pack, nullptr) << "no container in " << path;
    return pack ? edit(pack->info) : 0;
}

// Calls a save function of the family's common shape (name, name length,
// sub-information, its length, data, its length, type, update) with `r`.
// A byte that is not part of the name follows it, so that a save which
// reads the name up to a terminator instead of its length shows.
template <typename Save>
uint32_t saveSpec(Save save, const RecordSpec& r, uint32_t update) {
    const std::string name = r.name + "#";
    return save(name.c_str(), uint32_t(r.name.size()), subOf(r), subLengthOf(r), r.data.data(),
                uint32_t(r.data.size()), uint32_t(r.type), update);
}

// `call` on the file at `path` opened for update, closed again afterwards.
template <typename Call>
uint32_t onFp(const char* path, Call call) {
    FILE* fp = std::fopen(path, "r+b");
    if (fp == nullptr) {
        ADD_FAILURE() << "cannot open " << path;
        return 0;
    }
    const uint32_t result = call(fp);
    std::fclose(fp);
    return result;
}

// `edit` on a memory buffer holding the file's bytes and `spare` more, then written back over the file.
inline uint32_t onBuffer(const char* path, size_t spare, const std::function<uint32_t(TevBufferHandle*)>& edit) {
    Bytes memory = concat(readFile(path), Bytes(spare, 0));
    tev::Buffer handle(initTEVUsedBuffer(memory.data(), int64_t(memory.size()), int64_t(memory.size() - spare)));
    const uint32_t result = edit(handle.get());
    memory.resize(size_t(getTEVWriteSize(handle.get())));
    writeFile(path, memory);
    return result;
}

// Tag and text of every captured ERROR line, in order.
using ErrorLines = std::vector<std::pair<std::string, std::string>>;
inline ErrorLines errorLines() {
    ErrorLines lines;
    for (const LogLine& line : capturedLog()) {
        if (line.priority == ANDROID_LOG_ERROR) lines.emplace_back(line.tag, line.text);
    }
    return lines;
}

// One edit of a file laid out byte by byte: the call on its path, its
// result, the whole file afterwards and every error line it logs.
struct FileEdit {
    std::string label;
    Bytes before;
    std::function<uint32_t(const char* path)> edit;
    uint32_t result;
    std::optional<Bytes> after;  // absent: the file stays as it was
    ErrorLines log = {};
};

// Runs each case on a fresh temporary file holding its `before` bytes.
inline void runFileEdits(const std::vector<FileEdit>& cases) {
    for (const FileEdit& c : cases) {
        SCOPED_TRACE(c.label);
        TempFile file(c.before);
        clearLog();
        EXPECT_EQ(c.edit(file.c_str()), c.result);
        EXPECT_EQ(file.read(), c.after.value_or(c.before));
        EXPECT_EQ(errorLines(), c.log);
    }
}

// `edit` run on the parsed container of the file at the path.
inline std::function<uint32_t(const char*)> onParsed(std::function<uint32_t(_TEV_info*)> edit) {
    return [edit](const char* path) { return editParsed(path, edit); };
}

// `edit` on the parsed index with its stream swapped for `stream`; the index gets its own back.
inline std::function<uint32_t(const char*)> onStream(TevStream* stream, std::function<uint32_t(_TEV_info*)> edit) {
    return onParsed([=](_TEV_info* i) {
        TevStream* own = std::exchange(i->Stream, stream);
        const uint32_t result = edit(i);
        i->Stream = own;
        return result;
    });
}

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_EDIT_H
