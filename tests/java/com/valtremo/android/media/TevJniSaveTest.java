package com.valtremo.android.media;

import static com.valtremo.android.media.Media.bytes;
import static com.valtremo.android.media.Media.jpeg;
import static com.valtremo.android.media.Media.mp4;
import static com.valtremo.android.media.Media.pattern;
import static com.valtremo.android.media.Media.prefix;
import static com.valtremo.android.media.Media.read;
import static com.valtremo.android.media.Media.readAt;
import static com.valtremo.android.media.Media.write;
import static com.valtremo.android.media.NativeTestSupport.assertLogged;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class TevJniSaveTest {
    @TempDir Path dir;

    private final byte[] media = jpeg(400);
    private final byte[] sub = pattern(12, 5);
    private final byte[] data = pattern(200, 9);

    @BeforeEach
    void captureLog() {
        NativeTestSupport.startLogCapture();
    }

    /** The record's data and sub-information lie where the position methods say, behind untouched media. */
    private static void assertRecord(Path file, byte[] media, String key, byte[] sub, byte[] data) throws Exception {
        String path = file.toString();
        assertArrayEquals(media, prefix(read(file), media.length));
        assertArrayEquals(data, readAt(file, TEVJNI.getTEVDataPosition(path, key)));
        if (sub != null) assertArrayEquals(sub, readAt(file, TEVJNI.getTEVSubDataPosition(path, key)));
    }

    @Test
    void pathFormsAddAndReplace() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        String path = photo.toString();
        assertEquals(1, TEVJNI.addTEVData(path, "first", 5, sub, sub.length, data, data.length, 7, 0));
        assertRecord(photo, media, "first", sub, data);

        byte[] other = pattern(50, 3);
        assertEquals(0, TEVJNI.addTEVData(path, "first", 5, null, 0, other, other.length, 7, 0));
        assertEquals(1, TEVJNI.addTEVData(path, "first", 5, null, 0, other, other.length, 7, 1));
        assertRecord(photo, media, "first", null, other);

        // The key name length is the caller's: a shorter one stores a prefix of the name.
        assertEquals(1, TEVJNI.addFastTEVData(path, "second-long", 6, sub, sub.length, data, 100, 8, 0));
        assertRecord(photo, media, "second", sub, Arrays.copyOf(data, 100));

        Path dataFile = write(dir, "data.bin", data);
        assertEquals(1, TEVJNI.addTEVDataFile(path, "third", 5, null, 0, dataFile.toString(), 9, 0));
        assertEquals(1, TEVJNI.addFastTEVDataFile(path, "fourth", 6, sub, sub.length, dataFile.toString(), 9, 0));
        assertRecord(photo, media, "third", null, data);
        assertRecord(photo, media, "fourth", sub, data);
        assertArrayEquals(new String[] {"first", "second", "third", "fourth"}, TEVJNI.listKeyNames(path));

        assertEquals(0, TEVJNI.addFastTEVDataFile(path, "x", 1, null, 0, dir.resolve("none").toString(), 9, 0));
        assertLogged("TEVJNI::addFastTEVDataFile", "data_fp NULL\n");
        Path empty = write(dir, "empty.bin", new byte[0]);
        assertEquals(0, TEVJNI.addFastTEVDataFile(path, "x", 1, null, 0, empty.toString(), 9, 0));
        assertLogged("TEVJNI::addFastTEVDataFile", "data_len<= 0\n");
    }

    @Test
    void lengthsPastTheirJavaValueAreRefused() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        String path = photo.toString();
        assertEquals(0, TEVJNI.addTEVData(path, "key", 4, null, 0, data, data.length, 7, 0));
        assertEquals(0, TEVJNI.addTEVData(path, "key", 3, sub, sub.length + 1, data, data.length, 7, 0));
        assertEquals(0, TEVJNI.addTEVData(path, "key", 3, null, 0, data, data.length + 1, 7, 0));
        assertEquals(0, TEVJNI.addTEVData(path, "key", 3, null, 0, data, -1, 7, 0));
        assertLogged("JNI::addTEVData", "length beyond the end of its Java argument");
        assertArrayEquals(media, read(photo));
    }

    @Test
    void nullArgumentsReachTheLibraryAsNullPointers() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        String path = photo.toString();
        String dataFile = write(dir, "data.bin", data).toString();
        int n = data.length;
        // One null of each kind: path, key, data array, data file path, String[].
        assertEquals(0, TEVJNI.addTEVData(null, "k", 1, null, 0, data, n, 7, 0));
        assertEquals(0, TEVJNI.addTEVDataAddTag(path, null, 1, null, 0, data, n, 7, 0));
        assertEquals(0, TEVJNI.addFastTEVData(path, "k", 1, null, 0, null, n, 7, 0));
        assertEquals(0, TEVJNI.addTEVDataFileToMP4(path, "k", 1, null, 0, null, 7, 0));
        assertEquals(0, TEVJNI.addFastTEVDataFile(path, "k", 1, null, 0, null, 7, 0));
        assertLogged("TEVJNI::addFastTEVDataFile", "data_fp NULL\n");
        assertEquals(0, TEVJNI.addTEVDataFiles(path, null, null, null, null, 0, 1));
        assertEquals(0, TEVJNI.addTEVDataFiles(null, new String[] {"k"}, new int[] {1}, new String[] {dataFile},
                new int[] {7}, 0, 1));
        // User-defined data (type 0) needs sub-information; other types store none when it is null.
        assertEquals(0, TEVJNI.addTEVData(path, "k", 1, null, 4, data, n, 0, 0));
        assertArrayEquals(media, read(photo));
        assertEquals(1, TEVJNI.addTEVData(path, "k", 1, null, 4, data, n, 7, 0));
        assertRecord(photo, media, "k", null, data);
        assertEquals(null, TEVJNI.getTEVSubDataPosition(path, "k"));
    }

    @Test
    void mp4AndTagFormsOpenTheFileThemselves() throws Exception {
        byte[] movie = mp4(500);
        Path video = write(dir, "video.mp4", movie);
        Path dataFile = write(dir, "data.bin", data);
        assertEquals(1, TEVJNI.addTEVDataToMP4(video.toString(), "a", 1, sub, sub.length, data, data.length, 3, 0));
        assertEquals(1, TEVJNI.addTEVDataFileToMP4(video.toString(), "b", 1, null, 0, dataFile.toString(), 3, 0));
        assertRecord(video, movie, "a", sub, data);
        assertRecord(video, movie, "b", null, data);
        assertEquals("tevd", new String(Arrays.copyOfRange(read(video), movie.length + 4, movie.length + 8)));

        Path photo = write(dir, "photo.jpg", media);
        assertEquals(1, TEVJNI.addTEVDataAddTag(photo.toString(), "c", 1, null, 0, data, data.length, 3, 0));
        assertEquals(1, TEVJNI.addTEVDataFileAddTag(photo.toString(), "d", 1, sub, sub.length, dataFile.toString(), 3, 0));
        assertRecord(photo, media, "c", null, data);
        assertRecord(photo, media, "d", sub, data);

        String missing = dir.resolve("missing.jpg").toString();
        assertEquals(0, TEVJNI.addTEVDataFileAddTag(missing, "a", 1, null, 0, dataFile.toString(), 3, 0));
    }

    @Test
    void descriptorFormsAddThroughTheCallersDescriptor() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        Path video = write(dir, "video.mp4", mp4(300));
        int fd = NativeTestSupport.openFile(photo.toString(), true);
        int videoFd = NativeTestSupport.openFile(video.toString(), true);
        try {
            assertEquals(1, TEVJNI.addTEVDataFd(fd, "a", 1, sub, sub.length, data, data.length, 2, 0));
            assertEquals(1, TEVJNI.addTEVDataFdAddTag(fd, "b", 1, null, 0, data, 10, 2, 0));
            assertEquals(1, TEVJNI.addTEVDataFdToMP4(videoFd, "c", 1, null, 0, data, data.length, 2, 0));
            // The descriptor stays open and usable.
            assertEquals(2, TEVJNI.getTEVDataCountFd(fd));
        } finally {
            NativeTestSupport.closeFile(fd);
            NativeTestSupport.closeFile(videoFd);
        }
        assertRecord(photo, media, "a", sub, data);
        assertRecord(photo, media, "b", null, Arrays.copyOf(data, 10));
        assertRecord(video, mp4(300), "c", null, data);

        String[] tags = {"JNI::addTEVDataFd", "JNI::addTEVDataFdAddTag", "JNI::addTEVDataFdToMP4"};
        for (String tag : tags) {
            NativeTestSupport.startLogCapture();
            assertEquals(0, addThroughFd(tag, -1, "k", data));
            assertLogged(tag, "fd error");
            assertEquals(0, addThroughFd(tag, 99, null, data));
            assertLogged(tag, "TEVname is null.");
            NativeTestSupport.startLogCapture();
            assertEquals(0, addThroughFd(tag, 99, "k", null));
            assertLogged(tag, "TEVname is null.");
        }
    }

    private static int addThroughFd(String tag, int fd, String key, byte[] data) {
        int length = data == null ? 0 : data.length;
        switch (tag) {
            case "JNI::addTEVDataFd": return TEVJNI.addTEVDataFd(fd, key, 1, null, 0, data, length, 2, 0);
            case "JNI::addTEVDataFdAddTag": return TEVJNI.addTEVDataFdAddTag(fd, key, 1, null, 0, data, length, 2, 0);
            default: return TEVJNI.addTEVDataFdToMP4(fd, key, 1, null, 0, data, length, 2, 0);
        }
    }

    @Test
    void bufferFormWritesTheContainerIntoTheJavaArray() throws Exception {
        assertEquals(1066, TEVJNI.getTEVBufferAllocSize(1000, 1, 4, 0, 10));
        // 24 per record is computed in 32 bits: 24 * 0x08000000 is 0xC0000000, read as -0x40000000.
        assertEquals(2_000_000_000L - 0x40000000L + 28, TEVJNI.getTEVBufferAllocSize(2_000_000_000L, 0x08000000, 0, 0, 0));
        // Plain arithmetic: a sum past 64 bits wraps as Java's own long addition would.
        assertEquals(Long.MAX_VALUE + 10 + 28, TEVJNI.getTEVBufferAllocSize(Long.MAX_VALUE, 0, 4, 0, 6));

        // The same record added by path gives the bytes the buffer must hold.
        Path photo = write(dir, "photo.jpg", media);
        assertEquals(1, TEVJNI.addTEVData(photo.toString(), "memo", 4, sub, sub.length, data, data.length, 7, 0));
        byte[] expected = read(photo);

        int offset = 16;
        long capacity = TEVJNI.getTEVBufferAllocSize(media.length, 1, 4, sub.length, data.length);
        byte[] buffer = new byte[offset + (int) capacity];
        System.arraycopy(media, 0, buffer, offset, media.length);
        long used = TEVJNI.addTEVDataBufferAddTag(buffer, capacity, media.length, offset, "memo", 4, sub, sub.length,
                data, data.length, 7, 0);
        assertEquals(expected.length, used);
        assertArrayEquals(expected, Arrays.copyOfRange(buffer, offset, offset + (int) used));
        assertTrue(Arrays.equals(new byte[offset], Arrays.copyOf(buffer, offset)));

        byte[] before = buffer.clone();
        assertEquals(0, TEVJNI.addTEVDataBufferAddTag(buffer, 100, 101, offset, "k", 1, null, 0, data, 10, 7, 0));
        assertEquals(0, TEVJNI.addTEVDataBufferAddTag(buffer, buffer.length, 10, 1, "k", 1, null, 0, data, 10, 7, 0));
        assertArrayEquals(before, buffer);

        assertEquals(0, TEVJNI.addTEVDataBufferAddTag(null, 10, 0, 0, "k", 1, null, 0, data, 10, 7, 0));
        assertLogged("TEVJNI::addTEVDataBufferAddTag ", "Buffer is LUMET_TEV_NULL \n");
        assertEquals(0, TEVJNI.addTEVDataBufferAddTag(buffer, 10, 0, 0, null, 1, null, 0, data, 10, 7, 0));
        assertLogged("TEVJNI::addTEVDataBufferAddTag", " TEVname is LUMET_TEV_NULL\n");
        assertEquals(0, TEVJNI.addTEVDataBufferAddTag(buffer, 10, 0, 0, "k", 1, null, 0, null, 10, 7, 0));
        assertLogged("TEVJNI::addTEVDataBufferAddTag", "data is LUMET_TEV_NULL\n");
        assertArrayEquals(before, buffer);
    }

    @Test
    void manyDataFilesInOneCall() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        String path = photo.toString();
        int count = 2000;
        String[] names = new String[count];
        int[] lengths = new int[count];
        String[] files = new String[count];
        int[] types = new int[count];
        Path shared = write(dir, "shared.bin", data);
        for (int i = 0; i < count; i++) {
            names[i] = "rec" + i;
            lengths[i] = names[i].length();
            files[i] = shared.toString();
            types[i] = i % 3 + 1;
        }
        assertEquals(0, TEVJNI.addTEVDataFiles(path, names, lengths, files, types, 0, 0));
        assertArrayEquals(media, read(photo));

        assertEquals(1, TEVJNI.addTEVDataFiles(path, names, lengths, files, types, 0, count));
        assertEquals(count, TEVJNI.getTEVDataCount(path));
        assertArrayEquals(names, TEVJNI.listKeyNames(path));
        assertRecord(photo, media, "rec1999", null, data);
        assertEquals(2, TEVJNI.getTEVDataType(path, "rec1999"));
    }

    @Test
    void dataFilesStopAtTheFirstFailure() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        String path = photo.toString();
        Path one = write(dir, "one.bin", bytes("one"));
        String missing = dir.resolve("missing.bin").toString();
        String[] names = {"a", "b", "c", "d"};
        int[] lengths = {1, 1, 1, 1};
        int[] types = {1, 1, 1, 1};
        String[] files = {one.toString(), one.toString(), missing, one.toString()};
        assertEquals(0, TEVJNI.addTEVDataFiles(path, names, lengths, files, types, 0, 4));
        assertArrayEquals(new String[] {"a", "b"}, TEVJNI.listKeyNames(path));

        // A null element, or a count past the arrays, ends the loop in the same way.
        Files.write(photo, media);
        assertEquals(0, TEVJNI.addTEVDataFiles(path, new String[] {"a", null}, lengths,
                new String[] {one.toString(), one.toString()}, types, 0, 2));
        assertArrayEquals(new String[] {"a"}, TEVJNI.listKeyNames(path));
        assertEquals(0, TEVJNI.addTEVDataFiles(path, new String[] {"b"}, lengths, new String[] {one.toString()},
                types, 0, 2));
        assertArrayEquals(new String[] {"a", "b"}, TEVJNI.listKeyNames(path));
    }
}
