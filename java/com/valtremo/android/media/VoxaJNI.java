package com.valtremo.android.media;

/**
 * The Voxa block: sounds appended to an image and described at the very end
 * of the file, implemented by {@code libTEV.lumet.so}.
 *
 * <p>No method throws: failures come back as 0 or {@code null} and the
 * reason is written to the Android log. Descriptors stay open and belong to
 * the caller; -1 is refused.
 */
public final class VoxaJNI {
    static {
        System.loadLibrary("TEV.lumet");
    }

    private VoxaJNI() {}

    /** Returns the container version, 107 (the same as TEVJNI.getNativeVersion). */
    public static native int getNativeVersion();

    /** Returns 1 when the file ends with a Voxa block, 0 otherwise. */
    public static native int isVoxaFile(String path);

    /** Returns 1 when the file behind the descriptor ends with a Voxa block, 0 otherwise or for -1. */
    public static native int isVoxaFd(int fd);

    /** Copies the first sound of srcPath into dstPath; always returns 1, whatever the copy did. */
    public static native int copyAdioData(String srcPath, String dstPath);

    /**
     * Returns the sound table, start then end position (from the start of the file) of each sound; empty
     * for a block without sounds, null when there is no readable block. Positions from 2 GiB on are negative.
     */
    public static native int[] ParseVoxaFile(String path);

    /** Returns the sound table through a descriptor, as ParseVoxaFile; null for -1. */
    public static native int[] ParseVoxaFd(int fd);

    /**
     * Appends the sound to the file's Voxa block (replacing an earlier one); returns the new file length on
     * success, 0 or -1 on failure.
     */
    public static native int AddSoundInVoxaFile(String path, byte[] sound, int soundLength);

    /** Removes the sound and its block; returns 1 on success, 0 on failure. */
    public static native int DeleteVoxaFromFile(String path);

    /** Removes the sound and its block through a descriptor; returns 1 on success, 0 on failure. */
    public static native int DeleteVoxaFromFd(int fd);
}
