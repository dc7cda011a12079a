package com.valtremo.android.media;

import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;
import java.util.List;

/** Test-only natives: Android log capture and plain descriptors. */
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

    static List<String> log() {
        return Arrays.asList(capturedLog());
    }

    /** Asserts an error-priority line with exactly this tag and text. */
    static void assertLogged(String tag, String text) {
        String line = "6|" + tag + "|" + text;
        assertTrue(log().contains(line), () -> "expected " + line + " in " + log());
    }

    static void assertNothingLogged() {
        assertTrue(log().isEmpty(), () -> "unexpected log lines " + log());
    }
}
