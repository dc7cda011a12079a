// Record types shared by the whole library: the parsed container index, its
// entries, extracted records, position pairs and the parsed Voxa block.
// Every structure here is allocated zero-filled by the library (_kmalloc)
// and released with the destroy function named beside it.
// Guide: docs/api.md.
#ifndef TEV_TYPES_H
#define TEV_TYPES_H

#include <cstdint>

#include "tev/export.h"

class TevStream;

// Results of the library: 1 success, 0 failure.
#define LUMET_TEV_TRUE 1u
#define LUMET_TEV_FALSE 0u
#define LUMET_TEV_NULL nullptr

// What the last bytes of a file hold (getSignatureStream). 0 means error.
enum : uint32_t {
    SIGNATURE_ERROR = 0,
    SIGNATURE_DETECTION_FAIL = 1,  // plain media
    SIGNATURE_TEV = 2,             // ends with a container directory
    SIGNATURE_VOXA = 3,            // ends with a Voxa block only
    SIGNATURE_VOXA_TEV = 4,        // a container followed by a Voxa block
};

// Data types with a meaning inside the library; all others are the caller's.
enum : uint32_t {
    TEV_USER_DEFINED_DATA = 0,      // must carry sub-information
    TEV_ECHOFRAME_SOUND_DATA = 256,
    TEV_ECHOFRAME_META_DATA = 2048,
    TEV_INVALID_DATA = 32766,       // the "Invalid_Data" filler record
};

// One directory entry. Released with _destroyTEVData.
struct _TEV_data_info {
    uint32_t start_offset;     // distance from the record's first byte to "TEVH"; never 0
    uint32_t length;           // whole record length, tag header included
    uint32_t meta_type;        // type << 16 | 0x8000 when the record has sub-information
    uint32_t has_sub_info;     // 1 when bit 0x8000 of meta_type is set
    uint32_t sub_info_length;  // read together with the name; 0 until then
    char* name;                // owned, NUL-terminated; null until read
    uint32_t name_length;      // 0 until the name is read
};

// One parsed container. Released with DestroyTEV, which never touches Stream.
struct _TEV_info {
    uint32_t valid;                // 1 for a parsed container
    int64_t stream_size;           // size of the stream at parse time
    int64_t data_start_position;   // first byte of the appended region ("tevd" box included)
    TevStream* Stream;             // borrowed
    uint32_t header_offset;        // from the first byte of "TEVH" to the end of the stream
    uint32_t version;
    uint32_t meta_count;
    uint32_t fill_cursor;          // next entry _addData fills; 0 outside getTEVList
    _TEV_data_info** meta_data;    // owned array of meta_count entries
};

// A parsed container with its name list, made by the checkTEVIn... family.
// Released by the destroyTEVDATA family.
struct _TEV_info_pack {
    uint32_t valid;          // kind marker: 1
    _TEV_info* info;         // owned
    uint32_t data_count;     // == info->meta_count
    char** name_list;        // owned array; the strings are the entries' names (borrowed)
    uint32_t unit_count;     // number of owned buffers in units
    void** units;            // each freed on destruction
};

// One extracted record. Released with destroyTEVDATA_UNIT.
struct _TEV_data_unit {
    unsigned char* sub_info;   // owned; null when the record has none
    uint32_t sub_info_length;
    unsigned char* data;       // owned
    uint32_t data_length;
    uint32_t data_type;        // upper 16 bits of the meta type
};

// A position (from the start of the file) and a length.
// Released with DestroyOffsetInfo or destroyTEVOFFSET.
struct TevOffsetInfo {
    int64_t position;
    int64_t length;
};

// One parsed Voxa block. Released with the DestroyVoxa... function that
// matches how it was made.
struct _voxa_info_struct {
    uint32_t is_valid;       // 1 once both marks were found
    uint32_t file_size;      // stream length when parsed
    uint32_t header_length;  // the header length field (12 + 8 * N)
    uint32_t version;
    uint32_t sound_count;    // set by ParseVoxaSound
    uint32_t header_size;    // 22 + 8 * N, set by ParseVoxaSound
    TevStream* stream;       // the parsed stream, kept open for later reads
    uint32_t* sound_table;   // 2 * N values: start, end (exclusive) of each sound
    uint32_t position_mark;  // where an edited record lies relative to the old
                             // Voxa record: 1 before it, 2 is it, 0 otherwise
};

// The first sound of a Voxa block. Released with _destroyVOXAOFFSET.
struct VoxaSoundOffset {
    uint32_t offset;
    uint32_t length;
};

#endif  // TEV_TYPES_H
