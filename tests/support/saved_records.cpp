#include "support/saved_records.h"

#include "tev/tev.h"

namespace tevtest {

std::vector<RecordSpec> readRecords(const std::string& path) {
    std::vector<RecordSpec> records;
    _TEV_info_pack* pack = checkTEVWithReadPM(path.c_str());
    if (pack == nullptr) return records;
    for (unsigned int i = 0; i < GetTevCount(pack); ++i) {
        _TEV_data_unit* unit = extractTEVDataFromFilebyIndex(pack, i);
        RecordSpec r;
        if (unit == nullptr) {
            r.name = "<unreadable>";
            records.push_back(r);
            continue;
        }
        r.type = uint16_t(unit->data_type);
        r.name = GetNameInList(pack, int(GetTevCount(pack)), int(i));
        if (unit->sub_info != nullptr) r.sub = Bytes(unit->sub_info, unit->sub_info + unit->sub_info_length);
        r.data.assign(unit->data, unit->data + unit->data_length);
        destroyTEVDATA_UNIT(unit);
        records.push_back(r);
    }
    destroyTEVDATA(pack);
    return records;
}

std::vector<std::string> describe(const std::vector<RecordSpec>& records) {
    std::vector<std::string> out;
    for (const RecordSpec& r : records) out.push_back(r.name + "=" + std::string(r.data.begin(), r.data.end()));
    return out;
}

}  // namespace tevtest
