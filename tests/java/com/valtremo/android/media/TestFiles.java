package com.valtremo.android.media;

import java.io.FileDescriptor;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.lang.reflect.Field;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;

/** Stand-in media, files and their descriptors. */
final class TestFiles {
    private TestFiles() {}

    interface FdCall<T> {
        T run(int fd) throws Exception;
    }

    /** The call's result on a read-write descriptor of the file, closed afterwards. */
    static <T> T onFd(Path file, FdCall<T> call) throws Exception {
        try (RandomAccessFile f = new RandomAccessFile(file.toFile(), "rw")) {
            Field number = FileDescriptor.class.getDeclaredField("fd");
            number.setAccessible(true);
            return call.run(number.getInt(f.getFD()));
        }
    }

    /** FF D8, filler, FF D9: what the library needs of a JPEG. */
    static byte[] jpeg(int size) {
        byte[] b = new byte[size];
        Arrays.fill(b, (byte) 0x5A);
        b[0] = b[size - 2] = (byte) 0xFF;
        b[1] = (byte) 0xD8;
        b[size - 1] = (byte) 0xD9;
        return b;
    }

    /** A 24-byte box of type "ftyp", then filler. */
    static byte[] mp4(int size) {
        byte[] b = new byte[size];
        Arrays.fill(b, (byte) 0x11);
        System.arraycopy(new byte[] {0, 0, 0, 24, 'f', 't', 'y', 'p', 'i', 's', 'o', 'm'}, 0, b, 0, 12);
        return b;
    }

    /** Bytes that do not repeat with a short period, so a misplaced piece shows. */
    static byte[] pattern(int size, int seed) {
        byte[] b = new byte[size];
        for (int i = 0; i < size; i++) b[i] = (byte) (i * 7 + seed + i / 251);
        return b;
    }

    static Path write(Path dir, String name, byte[] content) throws IOException {
        return Files.write(dir.resolve(name), content);
    }

    /** The bytes of a file at a position returned by the position methods. */
    static byte[] readAt(Path file, long[] at) throws IOException {
        return Arrays.copyOfRange(Files.readAllBytes(file), (int) at[0], (int) (at[0] + at[1]));
    }
}
