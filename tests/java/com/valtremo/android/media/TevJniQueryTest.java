package com.valtremo.android.media;

import static com.valtremo.android.media.Media.container;
import static com.valtremo.android.media.Media.imageWithSoundAndContainer;
import static com.valtremo.android.media.Media.jpeg;
import static com.valtremo.android.media.Media.pattern;
import static com.valtremo.android.media.Media.readAt;
import static com.valtremo.android.media.Media.write;
import static com.valtremo.android.media.NativeTestSupport.assertLogged;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.valtremo.android.media.Media.Rec;
import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class TevJniQueryTest {
    @TempDir Path dir;

    private final byte[] media = jpeg(256);
    private final Rec plainRecord = new Rec(5, "alpha", null, pattern(40, 1));
    private final Rec withSub = new Rec(0, "beta", pattern(9, 2), pattern(33, 3));
    private final Rec highType = new Rec(0xFFFF, "gamma", null, pattern(17, 4));
    private final Rec sameType = new Rec(5, "delta", pattern(4, 5), pattern(8, 6));

    @BeforeEach
    void captureLog() {
        NativeTestSupport.startLogCapture();
    }

    @Test
    void pathAndDescriptorFormsAnswerFromTheDirectory() throws Exception {
        Path file = write(dir, "four.jpg", container(media, plainRecord, withSub, highType, sameType));
        String path = file.toString();
        String[] names = {"alpha", "beta", "gamma", "delta"};
        int[] types = {5, 0, 0xFFFF, 5};

        assertTrue(TEVJNI.isTEVFile(path));
        assertEquals(4, TEVJNI.getTEVDataCount(path));
        assertArrayEquals(names, TEVJNI.listKeyNames(path));
        assertEquals("gamma", TEVJNI.getTEVName(path, 2));
        assertArrayEquals(types, TEVJNI.listTEVDataTypes(path));
        assertEquals(0xFFFF, TEVJNI.getTEVDataType(path, "gamma"));
        assertArrayEquals(new String[] {"alpha", "delta"}, TEVJNI.listKeyNamesByDataType(path, 5));
        for (Rec r : new Rec[] {plainRecord, withSub, highType, sameType}) {
            long[] position = TEVJNI.getTEVDataPosition(path, r.name());
            assertArrayEquals(r.data(), readAt(file, position));
            assertTrue(position[0] + position[1] <= Files.size(file));
            if (r.sub() != null) assertArrayEquals(r.sub(), readAt(file, TEVJNI.getTEVSubDataPosition(path, r.name())));
        }

        int fd = NativeTestSupport.openFile(path, false);
        try {
            assertTrue(TEVJNI.isTEVfd(fd));
            assertEquals(4, TEVJNI.getTEVDataCountFd(fd));
            assertArrayEquals(names, TEVJNI.listKeyNamesFd(fd));
            assertArrayEquals(types, TEVJNI.listTEVDataTypesFd(fd));
            assertEquals(0, TEVJNI.getTEVDataTypeFd(fd, "beta"));
            assertArrayEquals(new String[] {"gamma"}, TEVJNI.listKeyNamesByDataTypeFd(fd, 0xFFFF));
            assertArrayEquals(TEVJNI.getTEVDataPosition(path, "delta"), TEVJNI.getTEVDataPositionFd(fd, "delta"));
            assertArrayEquals(TEVJNI.getTEVSubDataPosition(path, "beta"), TEVJNI.getTEVSubDataPositionFd(fd, "beta"));
        } finally {
            NativeTestSupport.closeFile(fd);
        }
    }

    @Test
    void absentNamesTypesAndContainers() throws Exception {
        String path = write(dir, "one.jpg", container(media, plainRecord)).toString();
        assertArrayEquals(new String[] {"alpha"}, TEVJNI.listKeyNames(path));
        assertEquals(-1, TEVJNI.getTEVDataType(path, "missing"));
        assertNull(TEVJNI.getTEVDataPosition(path, "missing"));
        assertNull(TEVJNI.getTEVSubDataPosition(path, "alpha"));
        assertNull(TEVJNI.listKeyNamesByDataType(path, 6));
        assertNull(TEVJNI.getTEVName(path, 1));
        assertNull(TEVJNI.getTEVName(path, -1));

        String plain = write(dir, "plain.jpg", media).toString();
        assertFalse(TEVJNI.isTEVFile(plain));
        assertEquals(0, TEVJNI.getTEVDataCount(plain));
        assertEquals(0, TEVJNI.getTEVDataType(plain, "alpha"));
        assertNull(TEVJNI.listKeyNames(plain));
        assertNull(TEVJNI.listTEVDataTypes(plain));
        assertNull(TEVJNI.getTEVDataPosition(plain, "alpha"));
    }

    @Test
    void containerFollowedByVoxaBlockCountsAsContainer() throws Exception {
        byte[] sound = pattern(64, 7);
        Path file = write(dir, "both.jpg", imageWithSoundAndContainer(media, sound, plainRecord));
        assertTrue(TEVJNI.isTEVFile(file.toString()));
        assertArrayEquals(plainRecord.data(), readAt(file, TEVJNI.getTEVDataPosition(file.toString(), "alpha")));
        int fd = NativeTestSupport.openFile(file.toString(), false);
        try {
            assertTrue(TEVJNI.isTEVfd(fd));
        } finally {
            NativeTestSupport.closeFile(fd);
        }
        assertFalse(TEVJNI.isTEVFile(write(dir, "sound.jpg", Media.imageWithSound(media, sound)).toString()));
    }

    @Test
    void namesReachJavaAsValidStrings() throws Exception {
        // A name given by Java comes back unchanged; Java hands over the emoji as two three-byte surrogates.
        Path photo = write(dir, "photo.jpg", media);
        String fromJava = "café \uD83D\uDCF7";
        int length = Media.bytes(fromJava).length + 2;
        byte[] d = pattern(5, 1);
        assertEquals(1, TEVJNI.addTEVData(photo.toString(), fromJava, length, null, 0, d, d.length, 1, 0));
        assertArrayEquals(new String[] {fromJava}, TEVJNI.listKeyNames(photo.toString()));

        // Names written elsewhere: four-byte UTF-8 becomes a surrogate pair, bytes that are not UTF-8 U+FFFD.
        Rec emoji = new Rec(1, "\uD83D\uDCF7", null, d);
        Rec broken = new Rec(1, "xyz", null, d);
        Rec latin1 = new Rec(1, "abc", null, d);
        byte[] bytes = container(media, emoji, broken, latin1);
        int brokenName = media.length + emoji.encode().length + 8;
        bytes[brokenName + 1] = (byte) 0xC3;  // a lead byte followed by 'z', not by a continuation byte
        bytes[brokenName + broken.encode().length] = (byte) 0xFF;
        Path odd = write(dir, "odd.jpg", bytes);
        String[] expected = {"\uD83D\uDCF7", "x\uFFFDz", "\uFFFDbc"};
        assertArrayEquals(expected, TEVJNI.listKeyNames(odd.toString()));
        assertEquals(expected[1], TEVJNI.getTEVName(odd.toString(), 1));
        assertArrayEquals(expected, TEVJNI.listKeyNamesByDataType(odd.toString(), 1));
    }

    @Test
    void descriptorMinusOneAndNullArguments() {
        NativeTestSupport.startLogCapture();
        assertFalse(TEVJNI.isTEVfd(-1));
        assertLogged("JNI::isTEVFd", "fd error");
        assertEquals(0, TEVJNI.getTEVDataCountFd(-1));
        assertLogged("JNI::getTEVDataCountFd", "fd error");
        assertEquals(0, TEVJNI.getTEVDataTypeFd(-1, "a"));
        assertLogged("JNI::getTEVDataTypeFd", "fd error");
        assertNull(TEVJNI.listKeyNamesFd(-1));
        assertLogged("JNI::listKeyNames", "fd error");
        assertNull(TEVJNI.listTEVDataTypesFd(-1));
        assertLogged("JNI::listTEVDataTypesFd", "fd error");
        assertNull(TEVJNI.listKeyNamesByDataTypeFd(-1, 1));
        assertLogged("JNI::listKeyNamesByDataTypeFd", "fd error");

        // The key name is converted before the descriptor is looked at.
        NativeTestSupport.startLogCapture();
        assertNull(TEVJNI.getTEVDataPositionFd(-1, null));
        assertEquals(java.util.List.of("6|JNI::getTEVDataPositionFd|TEVnamePtr is null"), NativeTestSupport.log());
        assertNull(TEVJNI.getTEVSubDataPositionFd(-1, "a"));
        assertLogged("JNI::getTEVDataPositionFd", "fd error");

        assertNull(TEVJNI.getTEVDataPosition(null, "a"));
        assertLogged("JNI::getTEVDataPosition", "filenamePtr is null");
        assertNull(TEVJNI.getTEVDataPosition("x", null));
        assertLogged("JNI::getTEVDataPosition", "TEVnamePtr is null");
        assertNull(TEVJNI.listTEVDataTypes(null));
        assertLogged("JNI::listTEVDataTypes", "filenamePtr is null");

        assertEquals(0, TEVJNI.getTEVDataCount(null));
        assertNull(TEVJNI.getTEVName(null, 0));
        assertNull(TEVJNI.listKeyNamesByDataType(null, 0));
        assertEquals(107, TEVJNI.getNativeVersion());
    }
}
