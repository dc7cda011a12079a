package com.valtremo.android.media;

import static com.valtremo.android.media.TestFiles.*;
import static java.nio.file.Files.readAllBytes;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The native methods TevFile does not call, each with its argument and result shapes on a real VM
 * under -Xcheck:jni. TevFileTest drives the others.
 */
class TevJniTest {
    @TempDir Path dir;

    private final byte[] media = jpeg(400);
    private final byte[] sub = pattern(12, 5);
    private final byte[] data = pattern(200, 9);

    /** The record's data and sub-information lie where the position methods say. */
    private static void assertRecord(Path file, String key, byte[] sub, byte[] data) throws Exception {
        assertArrayEquals(data, readAt(file, TEVJNI.getTEVDataPosition(file.toString(), key)));
        if (sub != null) assertArrayEquals(sub, readAt(file, TEVJNI.getTEVSubDataPosition(file.toString(), key)));
    }

    private void add(Path file, String name, int type) {
        assertEquals(1, TEVJNI.addTEVData(file.toString(), name, name.length(), null, 0, data, data.length, type, 0));
    }

    @Test
    void countsNamesAndTypes() throws Exception {
        Path file = write(dir, "two.jpg", media);
        add(file, "alpha", 5);
        add(file, "gamma", 0xFFFF);
        String path = file.toString();
        assertEquals(107, TEVJNI.getNativeVersion());
        assertEquals(107, VoxaJNI.getNativeVersion());
        assertEquals(2, TEVJNI.getTEVDataCount(path));
        assertEquals("gamma", TEVJNI.getTEVName(path, 1));
        assertNull(TEVJNI.getTEVName(path, 2));
        assertNull(TEVJNI.getTEVName(path, -1));
        assertEquals(0xFFFF, TEVJNI.getTEVDataType(path, "gamma"));
        assertEquals(-1, TEVJNI.getTEVDataType(path, "missing"));
        assertEquals(2, (int) onFd(file, TEVJNI::getTEVDataCountFd));
        assertEquals(5, (int) onFd(file, fd -> TEVJNI.getTEVDataTypeFd(fd, "alpha")));

        String plain = write(dir, "plain.jpg", media).toString();
        assertEquals(0, TEVJNI.getTEVDataType(plain, "alpha"));
        assertNull(TEVJNI.listTEVDataTypes(plain));
        assertNull(TEVJNI.listKeyNamesByDataType(path, 6));

        // Names stored as UTF-8 by another program: four-byte UTF-8 becomes a surrogate pair, bytes
        // that are not UTF-8 U+FFFD.
        String[][] stored = {{"wxyz", "\u00F0\u009F\u0093\u00B7"}, {"pqr", "p\u00C3r"}, {"abc", "\u00FFbc"}};
        for (String[] name : stored) add(file, name[0], 1);
        String bytes = new String(readAllBytes(file), StandardCharsets.ISO_8859_1);
        for (String[] name : stored) bytes = bytes.replace(name[0], name[1]);
        Files.write(file, bytes.getBytes(StandardCharsets.ISO_8859_1));
        String[] expected = {"alpha", "gamma", "\uD83D\uDCF7", "p\uFFFDr", "\uFFFDbc"};
        assertArrayEquals(expected, TEVJNI.listKeyNames(path));
        assertEquals(expected[3], TEVJNI.getTEVName(path, 3));
        assertArrayEquals(Arrays.copyOfRange(expected, 2, 5), TEVJNI.listKeyNamesByDataType(path, 1));
    }

    @Test
    void addFormsAndFastEdits() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        String path = photo.toString();
        String dataFile = write(dir, "data.bin", data).toString();
        // The key name length is the caller's: a shorter one stores a prefix of the name.
        assertEquals(1, TEVJNI.addFastTEVData(path, "fast-long", 4, sub, sub.length, data, 100, 8, 0));
        assertEquals(1, TEVJNI.addTEVDataFile(path, "file", 4, null, 0, dataFile, 9, 0));
        assertEquals(1, TEVJNI.addFastTEVDataFile(path, "ffile", 5, sub, sub.length, dataFile, 9, 0));
        assertEquals(1, TEVJNI.addTEVDataAddTag(path, "tag", 3, null, 0, data, data.length, 3, 0));
        assertEquals(1, TEVJNI.addTEVDataFileAddTag(path, "ftag", 4, sub, sub.length, dataFile, 3, 0));
        assertEquals(1, (int) onFd(photo, fd -> TEVJNI.addTEVDataFdAddTag(fd, "fdtag", 5, null, 0, data, 10, 2, 0)));
        assertRecord(photo, "fast", sub, Arrays.copyOf(data, 100));
        assertRecord(photo, "file", null, data);
        assertRecord(photo, "ffile", sub, data);
        assertRecord(photo, "tag", null, data);
        assertRecord(photo, "ftag", sub, data);
        assertRecord(photo, "fdtag", null, Arrays.copyOf(data, 10));

        assertEquals(1, TEVJNI.fastDeleteTEVData(path, "fast"));
        assertEquals(5, TEVJNI.getTEVDataCount(path));
        assertEquals(1, TEVJNI.fastClearTEVData(path));
        assertArrayEquals(media, readAllBytes(photo));

        byte[] movie = mp4(500);
        Path video = write(dir, "video.mp4", movie);
        assertEquals(1, TEVJNI.addTEVDataToMP4(video.toString(), "a", 1, sub, sub.length, data, data.length, 3, 0));
        assertEquals(1, TEVJNI.addTEVDataFileToMP4(video.toString(), "b", 1, null, 0, dataFile, 3, 0));
        assertEquals(1, (int) onFd(video, fd -> TEVJNI.addTEVDataFdToMP4(fd, "c", 1, null, 0, data, data.length, 2, 0)));
        assertRecord(video, "a", sub, data);
        assertRecord(video, "c", null, data);
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
        byte[] expected = readAllBytes(photo);

        int offset = 16;
        long capacity = TEVJNI.getTEVBufferAllocSize(media.length, 1, 4, sub.length, data.length);
        byte[] buffer = new byte[offset + (int) capacity];
        System.arraycopy(media, 0, buffer, offset, media.length);
        long used = TEVJNI.addTEVDataBufferAddTag(buffer, capacity, media.length, offset, "memo", 4, sub, sub.length,
                data, data.length, 7, 0);
        assertEquals(expected.length, used);
        assertArrayEquals(expected, Arrays.copyOfRange(buffer, offset, offset + (int) used));
        assertArrayEquals(new byte[offset], Arrays.copyOf(buffer, offset));
    }

    @Test
    void dataFilesAreAddedInOneCallUpToTheFirstFailure() throws Exception {
        Path photo = write(dir, "photo.jpg", media);
        String path = photo.toString();
        int count = 2000;  // far more local references than a VM gives a native method without asking
        String[] names = new String[count];
        int[] lengths = new int[count];
        int[] types = new int[count];
        String[] files = new String[count];
        Arrays.fill(types, 1);
        Arrays.fill(files, write(dir, "data.bin", data).toString());
        for (int i = 0; i < count; i++) lengths[i] = (names[i] = "rec" + i).length();
        assertEquals(0, TEVJNI.addTEVDataFiles(path, names, lengths, files, types, 0, 0));
        assertEquals(1, TEVJNI.addTEVDataFiles(path, names, lengths, files, types, 0, count));
        assertArrayEquals(names, TEVJNI.listKeyNames(path));
        assertRecord(photo, "rec1999", null, data);

        // A count past an array stops at its first missing element; the records before it stay.
        Files.write(photo, media);
        assertEquals(0, TEVJNI.addTEVDataFiles(path, Arrays.copyOf(names, 2), lengths, files, types, 0, 3));
        assertArrayEquals(Arrays.copyOf(names, 2), TEVJNI.listKeyNames(path));
    }

    @Test
    void voxaSoundIsAddedCopiedAndDeleted() throws Exception {
        byte[] sound = pattern(120, 1);
        Path photo = write(dir, "photo.jpg", media);
        int added = VoxaJNI.AddSoundInVoxaFile(photo.toString(), sound, sound.length);
        assertEquals(readAllBytes(photo).length, added);
        assertArrayEquals(new int[] {media.length, media.length + sound.length}, VoxaJNI.ParseVoxaFile(photo.toString()));

        Path other = write(dir, "other.jpg", media);
        assertEquals(1, VoxaJNI.copyAdioData(photo.toString(), other.toString()));
        assertArrayEquals(readAllBytes(photo), readAllBytes(other));
        assertEquals(1, VoxaJNI.copyAdioData(dir.resolve("missing.jpg").toString(), other.toString()));
        assertEquals(1, VoxaJNI.DeleteVoxaFromFile(photo.toString()));
        assertArrayEquals(media, readAllBytes(photo));
        assertEquals(1, (int) onFd(other, VoxaJNI::DeleteVoxaFromFd));
        assertArrayEquals(media, readAllBytes(other));
    }

    /** Refused shapes on a real VM (the stand-in VM's suite checks each refusal's line). */
    @Test
    void refusedArgumentsLeaveTheFileAlone() throws Exception {
        Path plain = write(dir, "plain.jpg", media);
        assertNull(TEVJNI.getTEVDataPositionFd(-1, null));
        assertNull(VoxaJNI.ParseVoxaFile(null));
        assertEquals(0, TEVJNI.deleteTEVData(plain.toString(), "a", 2));
        assertEquals(0, TEVJNI.addTEVData(plain.toString(), "k", 1, null, 0, data, data.length + 1, 7, 0));
        assertEquals(0, TEVJNI.addTEVDataBufferAddTag(new byte[64], 10, 0, 55, "k", 1, null, 0, data, 10, 7, 0));
        assertEquals(0, TEVJNI.addTEVDataFiles(plain.toString(), null, null, null, null, 0, 1));
        assertEquals(0, TEVJNI.saveAudioJPEG(plain.toString(), null, 10, "memo", 4));
        assertArrayEquals(media, readAllBytes(plain));
    }
}
