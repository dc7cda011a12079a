// Checksums exported for native clients: CRC-8/SMBUS (polynomial 0x07, no
// reflection, no final XOR) with a process-wide table, and reflected CRC-32.
// Guide: docs/api.md.
#ifndef TEV_CRC_H
#define TEV_CRC_H

#include "tev/export.h"

// Fills the process-wide CRC-8 table.
TEV_API void make_crc_table();
// Sets `state` to 0.
TEV_API void CRC8_InitChecksum(unsigned char& state);
// One byte into `state`. Needs the table: call make_crc_table (or
// CRC8_BlockChecksum) once first.
TEV_API void CRC8_Update(unsigned char& state, unsigned char byte);
// CRC8_Update over `length` bytes in order.
TEV_API void CRC8_UpdateChecksum(unsigned char& state, const void* data, int length);
// Leaves `state` as it is (CRC-8/SMBUS has no final XOR).
TEV_API void CRC8_FinishChecksum(unsigned char& state);
// Builds the table, then returns the CRC-8 of the bytes.
TEV_API unsigned char CRC8_BlockChecksum(const void* data, int length);

// The CRC-32 of the bytes.
TEV_API unsigned int getBufferCRC(unsigned char* data, long long length);
// Fills the caller's 256 entries for the given reflected polynomial.
TEV_API void makeCRCtable(unsigned int* table, unsigned int polynomial);
// Continues `crc` over the bytes; feed a previous result back to process in pieces.
TEV_API unsigned int calcCRC(const unsigned char* data, long long length, unsigned int crc,
                             unsigned int* table);

#endif  // TEV_CRC_H
