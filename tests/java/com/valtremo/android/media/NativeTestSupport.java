package com.valtremo.android.media;

import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;

/** Test-only natives (Android log capture, plain descriptors) and stand-in media. */
final class NativeTestSupport {
    static {
        System.loadLibrary("tev_jvm_test_support");
    }

    private NativeTestSupport() {}

    /** Installs the capturing logger and forgets earlier lines. */
    static native void startLogCapture();

    /** Lines since startLogCapture, as "priority|tag|text". */
    static native String[] capturedLog();

    /** A descriptor of the file, opened read-write or read-only; -1 on failure. */
    static native int openFile(String path, boolean writable);

    static native int closeFile(int fd);

    interface FdCall<T> {
        T run(int fd) throws Exception;
    }

    /** The call's result on a read-write descriptor of the file, closed afterwards. */
    static <T> T onFd(Path file, FdCall<T> call) throws Exception {
        int fd = openFile(file.toString(), true);
        try {
            return call.run(fd);
        } finally {
            closeFile(fd);
        }
    }

    /** Asserts an error-priority line with exactly this tag and text among the lines since the last capture. */
    static void assertLogged(String tag, String text) {
        List<String> log = Arrays.asList(capturedLog());
        assertTrue(log.contains("6|" + tag + "|" + text), () -> "expected " + tag + "|" + text + " in " + log);
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
    static byte[] readAt(Path file, long[] positionAndLength) throws IOException {
        try (RandomAccessFile f = new RandomAccessFile(file.toFile(), "r")) {
            byte[] b = new byte[(int) positionAndLength[1]];
            f.seek(positionAndLength[0]);
            f.readFully(b);
            return b;
        }
    }
}
