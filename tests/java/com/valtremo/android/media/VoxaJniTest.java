package com.valtremo.android.media;

import static com.valtremo.android.media.Media.concat;
import static com.valtremo.android.media.Media.jpeg;
import static com.valtremo.android.media.Media.pattern;
import static com.valtremo.android.media.Media.read;
import static com.valtremo.android.media.Media.readAt;
import static com.valtremo.android.media.Media.voxaBlock;
import static com.valtremo.android.media.Media.write;
import static com.valtremo.android.media.NativeTestSupport.assertLogged;
import static com.valtremo.android.media.NativeTestSupport.assertNothingLogged;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import java.nio.file.Path;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class VoxaJniTest {
    @TempDir Path dir;

    private final byte[] media = jpeg(300);
    private final byte[] first = pattern(120, 1);
    private final byte[] second = pattern(80, 2);

    @BeforeEach
    void captureLog() {
        NativeTestSupport.startLogCapture();
    }

    @Test
    void soundTableIndexesTheSoundsOfTheFile() throws Exception {
        int s1 = media.length;
        int s2 = s1 + first.length;
        Path twoSounds = write(dir, "two.jpg",
                concat(media, first, second, voxaBlock(106, s1, s2, s2, s2 + second.length)));

        int[] table = VoxaJNI.ParseVoxaFile(twoSounds.toString());
        assertArrayEquals(new int[] {s1, s2, s2, s2 + second.length}, table);
        assertArrayEquals(first, readAt(twoSounds, new long[] {table[0], table[1] - table[0]}));
        assertArrayEquals(second, readAt(twoSounds, new long[] {table[2], table[3] - table[2]}));
        assertEquals(1, VoxaJNI.isVoxaFile(twoSounds.toString()));

        int fd = NativeTestSupport.openFile(twoSounds.toString(), false);
        try {
            assertArrayEquals(table, VoxaJNI.ParseVoxaFd(fd));
            assertEquals(1, VoxaJNI.isVoxaFd(fd));
        } finally {
            NativeTestSupport.closeFile(fd);
        }

        Path empty = write(dir, "empty.jpg", concat(media, Media.emptyVoxaBlock()));
        assertArrayEquals(new int[0], VoxaJNI.ParseVoxaFile(empty.toString()));

        Path plain = write(dir, "plain.jpg", media);
        assertNull(VoxaJNI.ParseVoxaFile(plain.toString()));
        assertEquals(0, VoxaJNI.isVoxaFile(plain.toString()));
        assertEquals(107, VoxaJNI.getNativeVersion());
    }

    @Test
    void soundIsAddedCopiedAndDeleted() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        assertEquals(0, VoxaJNI.isVoxaFile(photo.toString()));
        int added = VoxaJNI.AddSoundInVoxaFile(photo.toString(), first, first.length);
        assertEquals(read(photo).length, added);
        int[] table = VoxaJNI.ParseVoxaFile(photo.toString());
        assertArrayEquals(first, readAt(photo, new long[] {table[0], table[1] - table[0]}));

        Path other = write(dir, "other.jpg", media);
        assertEquals(1, VoxaJNI.copyAdioData(photo.toString(), other.toString()));
        assertArrayEquals(read(photo), read(other));

        assertEquals(1, VoxaJNI.DeleteVoxaFromFile(photo.toString()));
        assertArrayEquals(media, read(photo));

        int fd = NativeTestSupport.openFile(other.toString(), true);
        try {
            assertEquals(1, VoxaJNI.DeleteVoxaFromFd(fd));
        } finally {
            NativeTestSupport.closeFile(fd);
        }
        assertArrayEquals(media, read(other));
    }

    @Test
    void refusalsComeBackAsZeroOrNull() throws Exception {
        assertEquals(1, VoxaJNI.copyAdioData(dir.resolve("missing.jpg").toString(), dir.resolve("x").toString()));

        NativeTestSupport.startLogCapture();
        assertEquals(0, VoxaJNI.isVoxaFd(0));
        assertNothingLogged();

        assertEquals(0, VoxaJNI.isVoxaFd(-1));
        assertLogged("JNI::isVoxaFd", "fd error");
        assertNull(VoxaJNI.ParseVoxaFd(-1));
        assertLogged("JNI::ParseVoxaFd", "fd error");
        assertEquals(0, VoxaJNI.DeleteVoxaFromFd(-1));
        assertLogged("JNI::DeleteVoxaFromFd", "fd error");

        assertNull(VoxaJNI.ParseVoxaFile(null));
        assertLogged("LUMET", "input filename is NULL");
        assertEquals(0, VoxaJNI.isVoxaFile(null));
        assertEquals(1, VoxaJNI.copyAdioData(null, null));
        assertEquals(0, VoxaJNI.DeleteVoxaFromFile(null));
        Path photo = write(dir, "photo.jpg", media);
        assertEquals(0, VoxaJNI.AddSoundInVoxaFile(null, first, first.length));
        assertEquals(0, VoxaJNI.AddSoundInVoxaFile(photo.toString(), first, first.length + 1));
        assertArrayEquals(media, read(photo));
    }
}
