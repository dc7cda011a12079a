package com.valtremo.android.media;

/**
 * Named data records kept in a container behind the media bytes of a JPEG,
 * HEIC or MP4 file, implemented by {@code libTEV.lumet.so}.
 *
 * <p>No method throws: failures come back as 0, {@code false} or
 * {@code null}, and the reason is written to the Android log (tags starting
 * with "JNI::", "TEV", "TEVJNI::" and the library's own). Lengths are byte
 * lengths and are taken as given; a length past the end of its string or
 * array is refused. Key names are stored as the UTF-8 bytes Java gives
 * (modified UTF-8). Option bit 0 asks that a record of the same name be
 * replaced. Descriptors stay open and belong to the caller; -1 is refused.
 */
public final class TEVJNI {
    static {
        System.loadLibrary("TEV.lumet");
    }

    private TEVJNI() {}

    /** Returns the container version, 107. */
    public static native int getNativeVersion();

    /** Returns true when the file ends with a container (also one followed by a Voxa block), false otherwise or when it cannot be read. */
    public static native boolean isTEVFile(String path);

    /** Returns true when the file behind the descriptor ends with a container, false otherwise or for descriptor -1. */
    public static native boolean isTEVfd(int fd);

    /** Copies every record (and the sounds) into dstPath; returns true on success, false on failure. Both files are opened for writing. */
    public static native boolean copyAllTEVData(String srcPath, String dstPath);

    /** Copies every record between two open descriptors; returns true on success, false on failure. */
    public static native boolean copyAllTEVDataFd(int srcFd, int dstFd);

    /** Copies the records of one data type into a file without container; returns true on success, false on refusal. */
    public static native boolean copyAllTEVDataType(String srcPath, String dstPath, int dataType);

    /** Copies the first record named keyName into a file without container; returns true on success, false on refusal. */
    public static native boolean copyAllTEVDataKeyName(String srcPath, String dstPath, String keyName);

    /** Stores a named sound in the image; returns 1 on success, 0 on failure. */
    public static native int saveAudioJPEG(String path, byte[] audio, int audioLength, String name, int nameLength);

    /** Removes every sound of the image; returns 1 on success, 0 on failure. */
    public static native int clearVoxaData(String path);

    /** Removes the named sound of the image; returns 1 on success, 0 on failure. */
    public static native int deleteVoxaData(String path, String name);

    /** Adds (or with option bit 0 replaces) a record; returns 1 on success, 0 on failure. */
    public static native int addTEVData(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, byte[] data, int dataLength, int dataType, int option);

    /** Adds a record by the fast path (reusing filler space); returns 1 on success, 0 on failure. */
    public static native int addFastTEVData(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, byte[] data, int dataLength, int dataType, int option);

    /** Adds a record by the fast path whose data is the whole file dataFilePath; returns 1 on success, 0 on failure. */
    public static native int addFastTEVDataFile(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, String dataFilePath, int dataType, int option);

    /** Adds a record whose data is the whole file dataFilePath; returns 1 on success, 0 on failure. */
    public static native int addTEVDataFile(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, String dataFilePath, int dataType, int option);

    /**
     * Adds count records, element i named keyNames[i] with the content of dataFilePaths[i]; returns 1 when
     * all were added, 0 when count is below 1 or at the first failure (the records before it stay added).
     */
    public static native int addTEVDataFiles(String path, String[] keyNames, int[] keyNameLengths,
            String[] dataFilePaths, int[] dataTypes, int option, int count);

    /** Deletes the named record; returns 1 on success, 0 on failure. */
    public static native int deleteTEVData(String path, String keyName, int keyNameLength);

    /** Deletes the named record through a descriptor; returns 1 on success, 0 on failure. */
    public static native int deleteTEVDataFd(int fd, String keyName, int keyNameLength);

    /** Deletes the named record by the fast path; returns 1 on success, 0 on failure. */
    public static native int fastDeleteTEVData(String path, String keyName);

    /** Removes the whole container; returns 1 on success, 0 on failure (also when there is none). */
    public static native int clearTEVData(String path);

    /** Removes the whole container through a descriptor; returns 1 on success, 0 on failure. */
    public static native int clearTEVDataFd(int fd);

    /** Removes the whole container by the fast path; returns 1 on success, 0 on failure. */
    public static native int fastClearTEVData(String path);

    /** Returns {position from the start of the file, length} of the record's data, or null when absent. */
    public static native long[] getTEVDataPosition(String path, String keyName);

    /** Returns {position, length} of the record's data through a descriptor, or null when absent. */
    public static native long[] getTEVDataPositionFd(int fd, String keyName);

    /** Returns {position, length} of the record's sub-information, or null when absent or empty. */
    public static native long[] getTEVSubDataPosition(String path, String keyName);

    /** Returns {position, length} of the record's sub-information through a descriptor, or null. */
    public static native long[] getTEVSubDataPositionFd(int fd, String keyName);

    /** Returns the number of records, 0 when there is no container. */
    public static native int getTEVDataCount(String path);

    /** Returns the number of records through a descriptor, 0 when there is no container. */
    public static native int getTEVDataCountFd(int fd);

    /** Returns the name of record index (0 to count-1), or null when there is no container. */
    public static native String getTEVName(String path, int index);

    /** Returns the record's data type, -1 when the name is absent, 0 when there is no container. */
    public static native int getTEVDataType(String path, String keyName);

    /** Returns the record's data type through a descriptor, -1 when absent, 0 without container. */
    public static native int getTEVDataTypeFd(int fd, String keyName);

    /** Returns the record names in directory order, or null when there is no container. */
    public static native String[] listKeyNames(String path);

    /** Returns the record names in directory order through a descriptor, or null. */
    public static native String[] listKeyNamesFd(int fd);

    /** Returns each record's data type in directory order, or null when there is no record. */
    public static native int[] listTEVDataTypes(String path);

    /** Returns each record's data type through a descriptor, or null when there is no record. */
    public static native int[] listTEVDataTypesFd(int fd);

    /** Returns the names of the records of dataType in directory order, or null when none has it. */
    public static native String[] listKeyNamesByDataType(String path, int dataType);

    /** Returns the names of the records of dataType through a descriptor, or null when none has it. */
    public static native String[] listKeyNamesByDataTypeFd(int fd, int dataType);

    /** Adds a record to an MP4 file, keeping its "tevd" box; returns 1 on success, 0 on failure. */
    public static native int addTEVDataToMP4(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, byte[] data, int dataLength, int dataType, int option);

    /** Adds a record from a data file to an MP4 file; returns 1 on success, 0 on failure. */
    public static native int addTEVDataFileToMP4(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, String dataFilePath, int dataType, int option);

    /** Adds a record in the tag form; returns 1 on success, 0 on failure. */
    public static native int addTEVDataAddTag(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, byte[] data, int dataLength, int dataType, int option);

    /** Adds a record from a data file in the tag form; returns 1 on success, 0 on failure. */
    public static native int addTEVDataFileAddTag(String path, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, String dataFilePath, int dataType, int option);

    /**
     * Returns the array size to allocate before addTEVDataBufferAddTag: the four lengths plus
     * 24 per record plus 28 (-1 when the sum does not fit).
     */
    public static native long getTEVBufferAllocSize(long mediaLength, int recordCount, long keyNameLength,
            long subInfoLength, long dataLength);

    /**
     * Adds a record to the media held in buffer from offset on (usedLength bytes used, capacity bytes
     * available); the container is written into the array. Returns the new used length on success, 0 on
     * failure (the array then holds what was written, if anything).
     */
    public static native long addTEVDataBufferAddTag(byte[] buffer, long capacity, long usedLength, long offset,
            String keyName, int keyNameLength, byte[] subInfo, int subInfoLength, byte[] data, int dataLength,
            int dataType, int option);

    /** Adds a record through a descriptor (MP4 handled too); returns 1 on success, 0 on failure. */
    public static native int addTEVDataFdAddTag(int fd, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, byte[] data, int dataLength, int dataType, int option);

    /** Adds a record through a descriptor (MP4 handled too); returns 1 on success, 0 on failure. */
    public static native int addTEVDataFdToMP4(int fd, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, byte[] data, int dataLength, int dataType, int option);

    /** Adds a record through a descriptor (MP4 handled too); returns 1 on success, 0 on failure. */
    public static native int addTEVDataFd(int fd, String keyName, int keyNameLength, byte[] subInfo,
            int subInfoLength, byte[] data, int dataLength, int dataType, int option);
}
