// Byte streams and the thin system layer beneath them.
//
// Every reader and writer of the library works on a TevStream. File and
// descriptor streams are unbuffered (read/write/lseek64 on the descriptor);
// buffer streams work on a fixed-capacity memory handle that never grows.
// writeInt16/writeInt32 store little-endian, writeInt32_endian big-endian;
// readInt16/readInt32 store the bytes in host order (little-endian on the
// target). Streams never close what they stand on; destroyPointer does.
// Guide: docs/api.md.
#ifndef TEV_STREAM_H
#define TEV_STREAM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "tev/export.h"
#include "tev/types.h"

// Memory buffer handle: the object behind TevStreamBuffer and the buffer
// forms of the save API. Made by _kbopen (owns its data) or _kbsetbuffer
// (wraps the caller's memory); released with _kbclose / destroyTEVBuffer.
struct TevBufferHandle {
    unsigned char* data;
    int64_t capacity;    // fixed size of the data area
    int64_t write_size;  // high-water mark of bytes written; reads stop here
    int64_t position;
    int32_t owns_data;   // 1 when _kbopen allocated the data area
};

// Stream types returned by GetStreamType.
enum : uint32_t {
    TEV_STREAM_FILE = 1,
    TEV_STREAM_BUFFER = 2,
    TEV_STREAM_FD = 3,
};

// The byte stream every reader and writer works on; made through one of the
// three subclasses below and released with delete (after destroyPointer when
// the stream should also close or free what it stands on).
class TEV_API TevStream {
public:
    virtual ~TevStream();
    virtual int64_t read(void* buffer, int64_t size) = 0;
    virtual int64_t readInt16(int16_t* out) = 0;
    virtual int64_t readInt32(uint32_t* out) = 0;
    virtual int64_t write(const void* buffer, int64_t size) = 0;
    virtual int64_t writeInt16(int16_t value) = 0;          // little-endian
    virtual int64_t writeInt32_endian(uint32_t value) = 0;  // big-endian
    virtual int64_t writeInt32(uint32_t value) = 0;         // little-endian
    virtual int64_t tell() = 0;
    // whence: SEEK_SET (0) from the start, SEEK_CUR (1) from the current
    // position, SEEK_END (2) from the end. Returns the new position or -1.
    virtual int64_t seek(int64_t offset, uint32_t whence) = 0;
    virtual int64_t truncate(int64_t length) = 0;  // 0 on success
    // Size of the data. File and descriptor streams probe the end of file and
    // return 0 (logging "getWriteSize Error") when either seek gives 0 or
    // less, which includes a stream standing at position 0.
    virtual int64_t getWriteSize() = 0;
    virtual int64_t getAllocSize() = 0;
    virtual int destroyPointer() = 0;  // releases what the stream stands on
    virtual bool CheckError() = 0;     // true when the stream is usable

    uint32_t GetStreamType() const { return mStreamType; }

    // Copies the first `size` bytes of src to dst's current position.
    // 1 on success, 0 on a refused argument, -1 on a short read or write.
    // src is rewound to 0 afterwards.
    static int Copy(TevStream* dst, TevStream* src, int64_t size);

    // Container format writers; they write at the current position.
    int64_t writeTEV_KTSS();                     // "TEVH"
    int64_t writeTEV_KVER();                     // 107, LE
    int64_t writeTEV_KCnt(uint32_t count);       // LE
    uint32_t writeTEV_KDR(_TEV_data_info* entry);  // meta type, start offset, length; 1
    int64_t writeTEV_KTHO(uint32_t count);       // 12 + 12 * count, LE
    int64_t writeTEV_KTS();                      // "TEVT"
    int64_t writeTEV_MP4S();                     // "tevd"
    int64_t writeTEV_TOTALSIZE(uint32_t size);   // big-endian
    // Record tag header: meta type, name length, [sub-info length], name,
    // sub-info. 1, or 0 after logging a failed write.
    uint32_t writeDataTagInfo(uint32_t type, uint32_t has_sub, const void* name,
                              uint32_t name_len, const void* sub, uint32_t sub_len);
    // One "Invalid_Data" filler record of exactly `size` (>= 20) bytes.
    void writeDummyTEVData(uint32_t size);
    // A filler record plus a one-entry directory filling `size` bytes.
    void writeDummyTEVDataHeader(uint32_t size, uint32_t has_sub);
    // A directory over `entries`; stores count + 2 in its count field.
    int64_t writeTEVHeader(_TEV_data_info** entries, uint32_t count);

    // Voxa block writers (little-endian); they write at the current position.
    int64_t WriteSoundHeader();                          // "VOXA", 106; the "VOXA" write's result
    int64_t WriteSoundCount(uint32_t count);
    int64_t WriteSoundData(uint32_t start, uint32_t end);  // the end write's result
    int64_t WriteSoundDataBuffer(uint32_t* table, uint32_t count);  // 2 * count values; 0
    int64_t WriteSoundTailer(uint32_t count);            // 8 * count + 12, "VOXABS"
    // A whole one-sound block of version 107. 1, or 0 at the first failed write.
    uint32_t writeVoxaHeader(uint32_t start, uint32_t end);

protected:
    explicit TevStream(uint32_t streamType) : mStreamType(streamType) {}
    uint32_t mStreamType;
};

// A stream over a descriptor the caller opened and keeps (below 1 is unusable).
class TEV_API TevStreamFD : public TevStream {
public:
    explicit TevStreamFD(int fd);
    ~TevStreamFD() override;  // rewinds the descriptor to 0; never closes it
    int64_t read(void* buffer, int64_t size) override;
    int64_t readInt16(int16_t* out) override;
    int64_t readInt32(uint32_t* out) override;
    int64_t write(const void* buffer, int64_t size) override;
    int64_t writeInt16(int16_t value) override;
    int64_t writeInt32_endian(uint32_t value) override;
    int64_t writeInt32(uint32_t value) override;
    int64_t tell() override;
    int64_t seek(int64_t offset, uint32_t whence) override;
    int64_t truncate(int64_t length) override;
    int64_t getWriteSize() override;
    int64_t getAllocSize() override;
    int destroyPointer() override;
    bool CheckError() override;
    int descriptor() const { return mFd; }  // the descriptor it stands on

private:
    int mFd;
};

// A stream over a FILE* the caller opened; I/O goes to its descriptor.
class TEV_API TevStreamFile : public TevStream {
public:
    explicit TevStreamFile(FILE* fp);
    ~TevStreamFile() override;  // deletes the inner descriptor stream; never closes fp
    int64_t read(void* buffer, int64_t size) override;
    int64_t readInt16(int16_t* out) override;
    int64_t readInt32(uint32_t* out) override;
    int64_t write(const void* buffer, int64_t size) override;
    int64_t writeInt16(int16_t value) override;
    int64_t writeInt32_endian(uint32_t value) override;
    int64_t writeInt32(uint32_t value) override;
    int64_t tell() override;
    int64_t seek(int64_t offset, uint32_t whence) override;
    int64_t truncate(int64_t length) override;
    int64_t getWriteSize() override;
    int64_t getAllocSize() override;
    int destroyPointer() override;  // closes the FILE*; returns the fclose result
    bool CheckError() override;
    int descriptor() const { return mFp != nullptr ? fileno(mFp) : -1; }  // -1 once closed

private:
    TevStreamFD* mStreamFd;
    FILE* mFp;
};

// A stream over a memory buffer handle, which it never grows.
class TEV_API TevStreamBuffer : public TevStream {
public:
    explicit TevStreamBuffer(TevBufferHandle* handle);
    ~TevStreamBuffer() override;  // the handle survives
    int64_t read(void* buffer, int64_t size) override;
    int64_t readInt16(int16_t* out) override;
    int64_t readInt32(uint32_t* out) override;
    int64_t write(const void* buffer, int64_t size) override;
    int64_t writeInt16(int16_t value) override;
    int64_t writeInt32_endian(uint32_t value) override;
    int64_t writeInt32(uint32_t value) override;
    int64_t tell() override;
    int64_t seek(int64_t offset, uint32_t whence) override;
    int64_t truncate(int64_t length) override;
    int64_t getWriteSize() override;
    int64_t getAllocSize() override;
    int destroyPointer() override;  // destroyTEVBuffer(handle)
    bool CheckError() override;

private:
    TevBufferHandle* mHandle;
};

// --- stdio files (I/O goes through the descriptor under the FILE*) ---
TEV_API FILE* _kfopen(const char* path, const char* mode);  // fopen, errno cleared first
TEV_API int _kfclose(FILE* fp);                             // fclose
// Bytes read (read(2) on the descriptor); 0 for a null buffer.
TEV_API int64_t _kfread(void* buffer, int64_t size, FILE* fp);
TEV_API int64_t _kfreadInt16(int16_t* out, FILE* fp);  // 2 bytes, host order; what read(2) returned
TEV_API int64_t _kfreadInt32(uint32_t* out, FILE* fp);  // 4 bytes, host order; what read(2) returned
// `size` when all was written, -1 (logged) when short, 0 for a null buffer.
TEV_API int64_t _kfwrite(const void* buffer, int64_t size, FILE* fp);
TEV_API int64_t _kfwriteInt16(int16_t value, FILE* fp);          // little-endian; write(2)'s result
TEV_API int64_t _kfwriteInt32(uint32_t value, FILE* fp);         // little-endian; write(2)'s result
TEV_API int64_t _kfwriteInt32_endian(uint32_t value, FILE* fp);  // big-endian; write(2)'s result
TEV_API int64_t _kftell(FILE* fp);                               // ftell
// lseek64 on the descriptor: the new position, or -1 (logged).
TEV_API int64_t _kfseek(FILE* fp, int64_t offset, int whence);
TEV_API int _kremove(const char* path);                          // remove
TEV_API int _krename(const char* oldPath, const char* newPath);  // rename
// Copies `size` bytes from src's position to dst's in 64 KiB pieces; 1 when
// it ran (short writes are logged, not stopped), 0 when refused.
TEV_API int _kfilecopy(FILE* dst, FILE* src, int64_t size);

// --- memory buffer handles (fixed capacity; reads stop at the write size) ---
// A new handle owning `size` zeroed bytes; release with _kbclose. Null on failure.
TEV_API TevBufferHandle* _kbopen(int64_t size);
// A new handle over the caller's memory, which it never frees; write size 0. Null for null memory.
TEV_API TevBufferHandle* _kbsetbuffer(void* memory, int64_t size);
// Frees the handle, and its data when it owns it.
TEV_API void _kbclose(TevBufferHandle* handle);
// `size` after copying out and advancing, or 0 when it would pass the write size.
TEV_API int64_t _kbread(void* dst, int64_t size, TevBufferHandle* handle);
TEV_API int64_t _kbreadInt16(int16_t* out, TevBufferHandle* handle);   // host order; 2, or 0
TEV_API int64_t _kbreadInt32(uint32_t* out, TevBufferHandle* handle);  // host order; 4, or 0
// `size` after copying in and advancing (raising the write size), or 0 when
// it would pass the capacity; nothing changes on failure.
TEV_API int64_t _kbwrite(const void* src, int64_t size, TevBufferHandle* handle);
TEV_API int64_t _kbwriteInt16(int16_t value, TevBufferHandle* handle);           // little-endian; 2, or 0
TEV_API int64_t _kbwriteInt32(uint32_t value, TevBufferHandle* handle);          // little-endian; 4, or 0
TEV_API int64_t _kbwriteInt32_endian(uint32_t value, TevBufferHandle* handle);  // big-endian; 4, or 0
TEV_API int64_t _kbtell(TevBufferHandle* handle);  // the position; 0 for a null handle
// The new position, or -1; a position past the write size is refused.
TEV_API int64_t _kbseek(TevBufferHandle* handle, int64_t offset, int whence);
// Zeroes from `length` to the capacity and makes `length` the write size; 0, or -1
// when `length` is outside 0..capacity (the change is made before that test).
TEV_API int btruncate(TevBufferHandle* handle, int64_t length);
TEV_API void* kbgetBuffer(TevBufferHandle* handle);        // the data, borrowed; or null
TEV_API int64_t kbgetBufferSize(TevBufferHandle* handle);  // the capacity, or -1
TEV_API int64_t kbgetWriteSize(TevBufferHandle* handle);   // the write size, or -1

// --- descriptors (descriptor 0 counts as invalid) ---
// Bytes read (read(2)); 0 for a descriptor below 1 or a null buffer.
TEV_API int64_t _kfdread(int fd, void* buffer, int64_t size);
TEV_API int64_t _kfdreadInt16(int fd, int16_t* out);   // host order; what read(2) returned, or 0
TEV_API int64_t _kfdreadInt32(int fd, uint32_t* out);  // host order; what read(2) returned, or 0
// `size` when all was written, -1 (logged) when short, 0 when refused.
TEV_API int64_t _kfdwrite(int fd, const void* buffer, int64_t size);
TEV_API int64_t _kfdwriteInt16(int fd, int16_t value);          // little-endian; write(2)'s result, or 0
TEV_API int64_t _kfdwriteInt32(int fd, uint32_t value);         // little-endian; write(2)'s result, or 0
TEV_API int64_t _kfdwriteInt32_endian(int fd, uint32_t value);  // big-endian; write(2)'s result, or 0
TEV_API int64_t _kfdtell(int fd);                               // the offset, or -1
TEV_API int64_t _kfdseek(int fd, int64_t offset, int whence);   // lseek64: the new offset, or -1
// _kfilecopy on descriptors; 0 also for a descriptor of 0.
TEV_API int _kfdcopy(int dst, int src, int64_t size);

// --- memory and strings ---
TEV_API void* _kmalloc(size_t size);                // zero-filled, for _kfree; null (logged) on failure
TEV_API void* _kcalloc(size_t count, size_t size);  // calloc, for _kfree; null (logged) on failure
TEV_API void _kfree(void* ptr);                     // free
TEV_API void* _kmemcpy(void* dst, const void* src, int64_t size);  // dst; null for null pointers or size < 1
// Index of the last '.', else of the last character; -1 for null or "".
TEV_API int getExtIndex(const char* str);
TEV_API size_t getStringLen(const char* str);             // strlen; 0 for null
TEV_API char* _kstrcpy(char* dst, const char* src);       // strcpy; null when either is null
TEV_API char* _kstrcat(char* dst, const char* src);       // strcat; null when either is null
TEV_API int _kstrcmp(const char* left, const char* right);  // strcmp; null sorts first

// --- buffer family used by the buffer forms of the save API ---
TEV_API TevBufferHandle* initTEVBuffer(int64_t size);  // owns its data
TEV_API TevBufferHandle* initTEVAllocatedBuffer(void* memory, int64_t size);  // caller's memory
// Caller's memory already holding `used` bytes; null when used > size or memory is null.
TEV_API TevBufferHandle* initTEVUsedBuffer(void* memory, int64_t size, int64_t used);
// Frees the handle, and its data only when the handle allocated it; null is ignored.
TEV_API void destroyTEVBuffer(TevBufferHandle* handle);
TEV_API void* getTEVBuffer(TevBufferHandle* handle);        // kbgetBuffer
TEV_API int64_t getTEVWriteSize(TevBufferHandle* handle);   // kbgetWriteSize
TEV_API int64_t getTEVBufferSize(TevBufferHandle* handle);  // kbgetBufferSize
// The capacity to reserve before saving into a buffer: used + 24 * record_count
// + name_len + sub_len + data_len + 28; -1 when the sum overflows.
TEV_API int64_t getTEVBufferAllocSize(int64_t used, int32_t record_count, int64_t name_len,
                                      int64_t sub_len, int64_t data_len);

#endif  // TEV_STREAM_H
