#include "fixtures.h"

#include <cstdio>
#include <map>
#include <memory>

#include "tev/tev.h"

namespace tevbench {

namespace {

// Twelve-byte names: "record_00000" ... and one that no record has.
constexpr const char* kNewRecordName = "appended_rec";

struct PackDeleter {
    void operator()(_TEV_info_pack* pack) const { destroyTEVDATA(pack); }
};
using PackPtr = std::unique_ptr<_TEV_info_pack, PackDeleter>;

struct BufferDeleter {
    void operator()(TevBufferHandle* handle) const { destroyTEVBuffer(handle); }
};
using BufferPtr = std::unique_ptr<TevBufferHandle, BufferDeleter>;

struct OffsetDeleter {
    void operator()(TevOffsetInfo* offset) const { DestroyOffsetInfo(offset); }
};
using OffsetPtr = std::unique_ptr<TevOffsetInfo, OffsetDeleter>;

// Bytes that do not compress or repeat, the same on every run.
std::vector<unsigned char> makePayload(int64_t size) {
    std::vector<unsigned char> bytes(static_cast<size_t>(size));
    uint64_t state = 0x9E3779B97F4A7C15ull;
    for (unsigned char& byte : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<unsigned char>(state);
    }
    return bytes;
}

std::string fixtureFileName(const Scenario& scenario) {
    char name[128];
    std::snprintf(name, sizeof name, "%s-%lld-%u.%s", scenario.mediaLabel.c_str(),
                  static_cast<long long>(scenario.recordSize), scenario.records,
                  scenario.mediaLabel == "mp4" ? "mp4" : "jpg");
    return name;
}

}  // namespace

std::string recordName(uint32_t index) {
    char name[32];
    std::snprintf(name, sizeof name, "record_%05u", index);
    return name;
}

// The records are saved into a memory buffer holding the media (the same
// central save as for files, without a system call per directory entry
// read, which makes thousands of saves take seconds rather than minutes),
// and the buffer is then written out as the fixture file.
bool Fixture::build(const Scenario& scenario, const std::string& path) {
    scenario_ = scenario;
    path_ = path;
    payload_ = makePayload(scenario.recordSize);
    targetName_ = recordName(scenario.records / 2);
    newName_ = kNewRecordName;
    const int64_t mediaSize = fileSize(scenario.mediaPath);
    const int64_t records = scenario.records;
    const int64_t capacity = getTEVBufferAllocSize(mediaSize, static_cast<int32_t>(records),
                                                   records * scenario.recordSize, 0,
                                                   records * static_cast<int64_t>(newName_.size()));
    std::vector<unsigned char> memory(static_cast<size_t>(capacity));
    if (mediaSize <= 0 || !readFileStart(scenario.mediaPath, memory.data(), mediaSize)) return false;
    BufferPtr buffer(initTEVUsedBuffer(memory.data(), capacity, mediaSize));
    if (!buffer) return false;
    for (uint32_t i = 0; i < scenario.records; ++i) {
        const std::string name = recordName(i);
        if (saveTEVDataToBuffer(buffer.get(), name.c_str(), static_cast<uint32_t>(name.size()), nullptr, 0,
                                payload_.data(), static_cast<uint32_t>(payload_.size()), kRecordType,
                                0) != LUMET_TEV_TRUE) {
            std::fprintf(stderr, "fixture %s: saving %s failed\n", path.c_str(), name.c_str());
            return false;
        }
    }
    if (WriteHandle_FilePath(path.c_str(), buffer.get()) != getTEVWriteSize(buffer.get())) return false;
    return readLayout();
}

bool Fixture::readLayout() {
    PackPtr pack(checkTEVWithReadPM(path_.c_str()));
    if (!pack || pack->data_count != scenario_.records) {
        std::fprintf(stderr, "fixture %s: the container does not parse back\n", path_.c_str());
        return false;
    }
    const _TEV_info& info = *pack->info;
    layout_.fileSize = info.stream_size;
    layout_.dataStart = info.data_start_position;
    layout_.directory = info.stream_size - static_cast<int64_t>(info.header_offset);
    layout_.recordHeads.clear();
    for (uint32_t i = 0; i < info.meta_count; ++i) {
        OffsetPtr data(getTEVInFileByIndex(pack.get(), i));
        if (!data) return false;
        const int64_t start = layout_.directory - static_cast<int64_t>(info.meta_data[i]->start_offset);
        layout_.recordHeads.push_back({start, data->position - start});
        if (i == scenario_.records / 2) layout_.targetData = {data->position, data->length};
    }
    return layout_.targetData.length == scenario_.recordSize;
}

const Fixture* fixtureFor(const Scenario& scenario, const std::string& workDir) {
    static std::map<std::string, std::unique_ptr<Fixture>> built;
    const std::string path = workDir + "/" + fixtureFileName(scenario);
    auto found = built.find(path);
    if (found == built.end()) {
        auto fixture = std::make_unique<Fixture>();
        if (!fixture->build(scenario, path)) fixture.reset();
        found = built.emplace(path, std::move(fixture)).first;
    }
    return found->second.get();
}

}  // namespace tevbench
