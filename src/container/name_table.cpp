// The packs' name tables: one open-addressing hash table per registered
// pack, in a list guarded by one mutex. A process holds few packs at a time,
// so the list stays short; the table turns each of the many look-ups of a
// pack with thousands of records into a hash and a comparison or two.
#include "container/name_table.h"

#include <cstring>
#include <mutex>

#include "container/owned.h"
#include "tev/stream.h"

namespace {

constexpr uint32_t kNotFound = 0xFFFFFFFFu;
// Below this many names a scan is as quick as hashing.
constexpr uint32_t kNameTableMinimum = 16;

struct PackNames {
    const _TEV_info_pack* pack;
    PackNames* next;
    char** names;          // the name list the slots were made from; null until made
    uint32_t count;        // its length
    uint32_t slotMask;     // slot count - 1; the slot count is a power of two
    uint32_t* slots;       // entry index + 1, or 0 for an empty slot; _kmalloc'ed
};

std::mutex gTablesMutex;
PackNames* gTables = nullptr;

uint32_t hashName(const char* name) {
    uint32_t hash = 2166136261u;
    for (const unsigned char* c = reinterpret_cast<const unsigned char*>(name); *c != 0; ++c) {
        hash = (hash ^ *c) * 16777619u;
    }
    return hash;
}

PackNames** findLink(const _TEV_info_pack* pack) {
    PackNames** link = &gTables;
    while (*link != nullptr && (*link)->pack != pack) link = &(*link)->next;
    return link;
}

void dropSlots(PackNames& table) {
    _kfree(table.slots);
    table.slots = nullptr;
    table.names = nullptr;
    table.count = 0;
}

// Fills the table from the pack's current list. A repeated name keeps its
// first entry, which is what the scan in directory order answers.
bool makeSlots(PackNames& table, const _TEV_info_pack& pack) {
    dropSlots(table);
    if (pack.name_list == nullptr || pack.data_count < kNameTableMinimum) return false;
    for (uint32_t i = 0; i < pack.data_count; ++i) {
        if (pack.name_list[i] == nullptr) return false;
    }
    uint32_t slotCount = kNameTableMinimum;
    while (slotCount < pack.data_count * uint64_t{2}) slotCount *= 2;
    tev::KUnique<uint32_t> slots(static_cast<uint32_t*>(_kcalloc(slotCount, sizeof(uint32_t))));
    if (!slots) return false;
    const uint32_t mask = slotCount - 1;
    for (uint32_t i = 0; i < pack.data_count; ++i) {
        uint32_t slot = hashName(pack.name_list[i]) & mask;
        bool seen = false;
        for (; slots.get()[slot] != 0 && !seen; slot = (slot + 1) & mask) {
            seen = std::strcmp(pack.name_list[slots.get()[slot] - 1], pack.name_list[i]) == 0;
        }
        if (!seen) slots.get()[slot] = i + 1;
    }
    table.names = pack.name_list;
    table.count = pack.data_count;
    table.slotMask = mask;
    table.slots = slots.release();
    return true;
}

uint32_t findName(const PackNames& table, const char* name) {
    for (uint32_t slot = hashName(name) & table.slotMask; table.slots[slot] != 0;
         slot = (slot + 1) & table.slotMask) {
        const uint32_t index = table.slots[slot] - 1;
        if (std::strcmp(table.names[index], name) == 0) return index;
    }
    return kNotFound;
}

}  // namespace

void tev::registerPackNames(const _TEV_info_pack* pack) {
    if (pack == nullptr) return;
    auto* table = static_cast<PackNames*>(_kmalloc(sizeof(PackNames)));
    if (table == nullptr) return;  // the pack is scanned instead
    table->pack = pack;
    std::lock_guard<std::mutex> lock(gTablesMutex);
    table->next = gTables;
    gTables = table;
}

void tev::forgetPackNames(const _TEV_info_pack* pack) {
    if (pack == nullptr) return;
    std::lock_guard<std::mutex> lock(gTablesMutex);
    PackNames** link = findLink(pack);
    PackNames* table = *link;
    if (table == nullptr) return;
    *link = table->next;
    dropSlots(*table);
    _kfree(table);
}

bool tev::lookUpPackName(const _TEV_info_pack& pack, const char* name, uint32_t* index) {
    std::lock_guard<std::mutex> lock(gTablesMutex);
    PackNames* table = *findLink(&pack);
    if (table == nullptr) return false;
    // A list replaced or resized since the table was made is hashed again.
    const bool current = table->slots != nullptr && table->names == pack.name_list && table->count == pack.data_count;
    if (!current && !makeSlots(*table, pack)) return false;
    *index = findName(*table, name);
    return true;
}
