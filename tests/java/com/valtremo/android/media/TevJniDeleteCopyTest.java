package com.valtremo.android.media;

import static com.valtremo.android.media.Media.container;
import static com.valtremo.android.media.Media.jpeg;
import static com.valtremo.android.media.Media.pattern;
import static com.valtremo.android.media.Media.read;
import static com.valtremo.android.media.Media.readAt;
import static com.valtremo.android.media.Media.write;
import static com.valtremo.android.media.NativeTestSupport.assertLogged;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.valtremo.android.media.Media.Rec;
import java.nio.file.Path;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class TevJniDeleteCopyTest {
    @TempDir Path dir;

    private final byte[] media = jpeg(320);
    private final Rec a = new Rec(4, "a", null, pattern(30, 1));
    private final Rec b = new Rec(5, "bb", pattern(6, 2), pattern(44, 3));
    private final Rec c = new Rec(4, "ccc", null, pattern(21, 4));

    @BeforeEach
    void captureLog() {
        NativeTestSupport.startLogCapture();
    }

    private Path threeRecords(String name) throws Exception {
        return write(dir, name, container(media, a, b, c));
    }

    @Test
    void deletesKeepTheOtherRecordsAndClearsLeaveTheMedia() throws Exception {
        Path byPath = threeRecords("path.jpg");
        assertEquals(1, TEVJNI.deleteTEVData(byPath.toString(), "bb", 2));
        assertArrayEquals(new String[] {"a", "ccc"}, TEVJNI.listKeyNames(byPath.toString()));
        assertArrayEquals(c.data(), readAt(byPath, TEVJNI.getTEVDataPosition(byPath.toString(), "ccc")));
        assertEquals(0, TEVJNI.deleteTEVData(byPath.toString(), "bb", 2));

        Path fast = threeRecords("fast.jpg");
        assertEquals(1, TEVJNI.fastDeleteTEVData(fast.toString(), "a"));
        assertArrayEquals(new String[] {"bb", "ccc"}, TEVJNI.listKeyNames(fast.toString()));
        assertArrayEquals(b.sub(), readAt(fast, TEVJNI.getTEVSubDataPosition(fast.toString(), "bb")));

        Path byFd = threeRecords("fd.jpg");
        int fd = NativeTestSupport.openFile(byFd.toString(), true);
        try {
            assertEquals(1, TEVJNI.deleteTEVDataFd(fd, "ccc", 3));
            assertEquals(1, TEVJNI.deleteTEVDataFd(fd, "a", 1));
            assertEquals(1, TEVJNI.deleteTEVDataFd(fd, "bb", 2));
        } finally {
            NativeTestSupport.closeFile(fd);
        }
        assertArrayEquals(media, read(byFd));

        // Clears cut the file back to the media.
        assertEquals(1, TEVJNI.clearTEVData(byPath.toString()));
        assertArrayEquals(media, read(byPath));
        assertEquals(0, TEVJNI.clearTEVData(byPath.toString()));
        assertEquals(1, TEVJNI.fastClearTEVData(fast.toString()));
        assertArrayEquals(media, read(fast));
        Path clearFd = threeRecords("clearfd.jpg");
        fd = NativeTestSupport.openFile(clearFd.toString(), true);
        try {
            assertEquals(1, TEVJNI.clearTEVDataFd(fd));
        } finally {
            NativeTestSupport.closeFile(fd);
        }
        assertArrayEquals(media, read(clearFd));
    }

    @Test
    void deleteRefusalsAreLoggedUnderTheMethodsTag() throws Exception {
        Path plain = write(dir, "plain.jpg", media);
        assertEquals(0, TEVJNI.deleteTEVData(plain.toString(), "a", 1));
        assertLogged("JNI::deleteTEVData", "TEV_data is null");
        assertEquals(0, TEVJNI.deleteTEVData(null, "a", 1));
        assertLogged("JNI::deleteTEVData", "filenamePtr is null");
        assertEquals(0, TEVJNI.deleteTEVData(plain.toString(), null, 1));
        assertLogged("JNI::deleteTEVData", "TEVnamePtr is null");

        assertEquals(0, TEVJNI.deleteTEVDataFd(-1, "a", 1));
        assertLogged("JNI::deleteTEVDataFd", "fd error");
        assertEquals(0, TEVJNI.deleteTEVDataFd(7, null, 1));
        assertLogged("JNI::deleteTEVDataFd", "TEVnamePtr is null");
        int fd = NativeTestSupport.openFile(plain.toString(), true);
        try {
            assertEquals(0, TEVJNI.deleteTEVDataFd(fd, "a", 1));
            assertLogged("JNI::deleteTEVDataFd", "TEV_data is null");
        } finally {
            NativeTestSupport.closeFile(fd);
        }
        assertEquals(0, TEVJNI.clearTEVDataFd(-1));
        assertLogged("JNI::clearTEVDataFd", "fd error");

        Path three = threeRecords("three.jpg");
        assertEquals(0, TEVJNI.deleteTEVData(three.toString(), "a", 2));
        assertEquals(0, TEVJNI.fastDeleteTEVData(three.toString(), null));
        assertEquals(0, TEVJNI.fastClearTEVData(null));
        assertEquals(3, TEVJNI.getTEVDataCount(three.toString()));
    }

    @Test
    void copiesBringTheRecordsIntoAnotherFile() throws Exception {
        Path src = threeRecords("src.jpg");
        byte[] otherMedia = jpeg(150);

        Path all = write(dir, "all.jpg", otherMedia);
        assertTrue(TEVJNI.copyAllTEVData(src.toString(), all.toString()));
        assertArrayEquals(new String[] {"a", "bb", "ccc"}, TEVJNI.listKeyNames(all.toString()));
        assertArrayEquals(b.data(), readAt(all, TEVJNI.getTEVDataPosition(all.toString(), "bb")));

        Path allFd = write(dir, "allfd.jpg", otherMedia);
        int srcFd = NativeTestSupport.openFile(src.toString(), true);
        int dstFd = NativeTestSupport.openFile(allFd.toString(), true);
        try {
            assertTrue(TEVJNI.copyAllTEVDataFd(srcFd, dstFd));
        } finally {
            NativeTestSupport.closeFile(srcFd);
            NativeTestSupport.closeFile(dstFd);
        }
        assertArrayEquals(read(all), read(allFd));

        Path byType = write(dir, "type.jpg", otherMedia);
        assertTrue(TEVJNI.copyAllTEVDataType(src.toString(), byType.toString(), 4));
        assertArrayEquals(new String[] {"a", "ccc"}, TEVJNI.listKeyNames(byType.toString()));

        Path byName = write(dir, "name.jpg", otherMedia);
        assertTrue(TEVJNI.copyAllTEVDataKeyName(src.toString(), byName.toString(), "ccc"));
        assertArrayEquals(c.data(), readAt(byName, TEVJNI.getTEVDataPosition(byName.toString(), "ccc")));

        Path plain = write(dir, "plain.jpg", media);
        assertFalse(TEVJNI.copyAllTEVData(plain.toString(), all.toString()));
        assertLogged("TEV TEVJNI", "copyAllTEVData error.");
        assertFalse(TEVJNI.copyAllTEVDataFd(-1, 5));
        assertLogged("TEV TEVJNI", "copyAllTEVDataFd error.");
        assertFalse(TEVJNI.copyAllTEVData(null, null));
        assertFalse(TEVJNI.copyAllTEVDataType(null, null, 4));
        assertFalse(TEVJNI.copyAllTEVDataKeyName(src.toString(), plain.toString(), null));
        assertArrayEquals(media, read(plain));
    }
}
