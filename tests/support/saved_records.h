// Reading a saved container back through the library's own reading API, and
// calling the save family with a RecordSpec.
#ifndef TEV_TESTS_SUPPORT_SAVED_RECORDS_H
#define TEV_TESTS_SUPPORT_SAVED_RECORDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace tevtest {

// The records of the container in the file at `path`, in directory order;
// empty when the file holds no container that parses.
std::vector<RecordSpec> readRecords(const std::string& path);

// "name=data" per record, for compact comparisons in tests.
std::vector<std::string> describe(const std::vector<RecordSpec>& records);

// Calls a save function of the family's common shape (name, name length,
// sub-information, its length, data, its length, type, update) with `r`.
template <typename Save>
uint32_t saveSpec(Save save, const RecordSpec& r, uint32_t update) {
    const unsigned char* sub = r.sub ? r.sub->data() : nullptr;
    const uint32_t subLength = r.sub ? uint32_t(r.sub->size()) : 0;
    return save(r.name.c_str(), uint32_t(r.name.size()), sub, subLength, r.data.data(),
                uint32_t(r.data.size()), uint32_t(r.type), update);
}

}  // namespace tevtest

#endif  // TEV_TESTS_SUPPORT_SAVED_RECORDS_H
