#include "support/edit_fixtures.h"

namespace tevtest {

EditableFile::EditableFile(const Bytes& content)
    : file_(content), fp_(std::fopen(file_.c_str(), "r+b")), stream_(new TevStreamFile(fp_)) {}

EditableFile::~EditableFile() {
    stream_.reset();
    if (fp_ != nullptr) std::fclose(fp_);
}

IndexPtr parseIndex(TevStream* stream, uint32_t signature) {
    IndexPtr info(ParseTEV(stream, signature));
    if (!info || getTEVList(info.get()) != 1 || getAllNameOfDataList(info.get()) != 1)
        return nullptr;
    return info;
}

std::vector<std::string> namesOf(const _TEV_info& info) {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < info.meta_count; ++i) {
        const _TEV_data_info* entry = info.meta_data[i];
        names.emplace_back(entry->name, entry->name_length);
    }
    return names;
}

}  // namespace tevtest
