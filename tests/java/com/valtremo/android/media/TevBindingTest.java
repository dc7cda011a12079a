package com.valtremo.android.media;

import static java.nio.file.Files.readAllBytes;
import static org.junit.jupiter.api.Assertions.*;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.valtremo.android.media.TevFile.Kind;
import com.valtremo.android.media.TevFile.Replace;
import java.io.*;
import java.lang.reflect.Field;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.*;
import java.util.function.IntUnaryOperator;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** The binding under -Xcheck:jni: TevFile's contract, then the natives it does not call, each shape once. */
class TevBindingTest {
    // A name of 2 + 3 + 6 bytes in modified UTF-8: String.length() says 5, UTF-8 says 9.
    private static final String NAME = "m\u00e9mo \uD83C\uDFA4";

    @TempDir Path dir;

    private final byte[] media = jpeg(400);
    private final byte[] data = pattern(90, 1);
    private final byte[] sub = pattern(7, 2);

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

    private Path write(String name, byte[] content) throws IOException {
        return Files.write(dir.resolve(name), content);
    }

    /** The bytes of a file at a position returned by the position methods. */
    static byte[] readAt(Path file, long[] at) throws IOException {
        return Arrays.copyOfRange(readAllBytes(file), (int) at[0], (int) (at[0] + at[1]));
    }

    /** The record's data and sub-information lie where the position methods say. */
    private static void assertRecord(Path file, String key, byte[] sub, byte[] data) throws Exception {
        assertArrayEquals(data, readAt(file, TEVJNI.getTEVDataPosition(file.toString(), key)));
        if (sub != null) assertArrayEquals(sub, readAt(file, TEVJNI.getTEVSubDataPosition(file.toString(), key)));
    }

    /** Adds a record through the binding, as another program would have. */
    private Path withRecord(Path file, String name, int type, byte[] subInfo) {
        int subLength = subInfo == null ? 0 : subInfo.length;
        assertEquals(1, TEVJNI.addTEVData(file.toString(), name, name.length(), subInfo, subLength, data, data.length, type, 0));
        return file;
    }

    /** The call's result on a read-write descriptor of the file, closed afterwards. */
    static int onFd(Path file, IntUnaryOperator call) throws Exception {
        try (RandomAccessFile f = new RandomAccessFile(file.toFile(), "rw")) {
            Field number = FileDescriptor.class.getDeclaredField("fd");
            number.setAccessible(true);
            return call.applyAsInt(number.getInt(f.getFD()));
        }
    }

    /** A file opened by path, or through a read-write descriptor whose position the test watches. */
    private final class Opened implements AutoCloseable {
        final TevFile tev;
        final RandomAccessFile raf;

        Opened(Path file, boolean descriptor) throws IOException {
            raf = descriptor ? new RandomAccessFile(file.toFile(), "rw") : null;
            if (raf != null) raf.seek(5);
            tev = descriptor ? new TevFile(raf.getFD()) : new TevFile(file.toFile());
        }

        @Override
        public void close() throws IOException {
            tev.close();
            if (raf == null) return;
            assertEquals(5, raf.getFilePointer(), "the descriptor's position moved");
            assertTrue(raf.getFD().valid());
            raf.close();
        }
    }

    @ParameterizedTest
    @CsvSource({"jpeg,false", "jpeg,true", "mp4,false", "mp4,true"})
    void recordsRoundTripByTheirJavaNames(String kind, boolean descriptor) throws Exception {
        byte[] media = kind.equals("jpeg") ? jpeg(300) : mp4(300);
        Path file = write("file." + kind, media);
        try (Opened f = new Opened(file, descriptor)) {
            TevFile tev = f.tev;
            assertEquals(Kind.PLAIN, tev.kind());
            assertEquals(List.of(), tev.records());
            assertEquals(List.of(), tev.sounds());

            tev.put("note", data);
            byte[] framed = new byte[data.length + 7];
            System.arraycopy(data, 0, framed, 3, data.length);
            tev.put(NAME, framed, 3, data.length, TevFile.USER_DEFINED_TYPE, sub, Replace.NO);
            assertEquals(Kind.CONTAINER, tev.kind());
            List<TevRecord> records = tev.records();
            for (TevRecord r : records) assertArrayEquals(data, readAt(file, new long[] {r.position(), r.length()}));
            assertEquals(List.of("note", 1, 0L, NAME, 0, 7L),
                    records.stream().flatMap(r -> Stream.of(r.name(), r.type(), r.subInfoLength())).toList());
            assertArrayEquals(data, tev.read(NAME));
            assertArrayEquals(sub, tev.subInfo(NAME));
            assertArrayEquals(new byte[0], tev.subInfo("note"));
            try (InputStream in = tev.open(NAME)) {
                assertEquals(data[0] & 0xFF, in.read());
                assertEquals(data.length - 1, in.available());
                assertArrayEquals(Arrays.copyOfRange(data, 1, data.length), in.readAllBytes());
                assertEquals(-1, in.read());
            }

            byte[] other = pattern(40, 3);
            assertThrows(IOException.class, () -> tev.put("note", other, 0, 40, 1, null, Replace.NO));
            tev.put("note", other, 0, 40, 9, null, Replace.YES);
            assertArrayEquals(other, tev.read("note"));
            assertTrue(tev.contains("note"));

            byte[] beforeRepair = readAllBytes(file);
            tev.repair();  // nothing pending: the file stays as it is
            assertArrayEquals(beforeRepair, readAllBytes(file));

            if (kind.equals("mp4")) assertThrows(IOException.class, () -> tev.putSound("s", data));
            tev.delete(NAME, "note");
            assertFalse(tev.contains(NAME));
            assertArrayEquals(media, readAllBytes(file));
        }
    }

    @Test
    void misuseThrowsBeforeTheFileIsTouched() throws Exception {
        Path file = withRecord(write("photo.jpg", jpeg(200)), "kept", 1, null);
        byte[] before = readAllBytes(file);
        String longest = "\uD83C\uDFA4".repeat(170) + "abcd";  // 170 * 6 + 4 = 1024 bytes
        TevFile tev = new TevFile(file.toString());
        Map<String, Executable> illegal = Map.ofEntries(
                Map.entry("null name", () -> tev.put(null, data)),
                Map.entry("empty name", () -> tev.read("")),
                Map.entry("U+0000", () -> tev.put("a\u0000b", data)),
                Map.entry("1025 bytes", () -> tev.put(longest + "e", data)),
                Map.entry("type -1", () -> tev.put("k", data, 0, 1, -1, null, Replace.YES)),
                Map.entry("type 65536", () -> tev.put("k", data, 0, 1, 65536, null, Replace.YES)),
                Map.entry("sound type", () -> tev.put("k", data, 0, 1, 256, null, Replace.YES)),
                Map.entry("type 0 without sub", () -> tev.put("k", data, 0, 1, 0, new byte[0], Replace.YES)),
                Map.entry("null data", () -> tev.put("k", null)),
                Map.entry("no data", () -> tev.put("k", new byte[0])),
                Map.entry("past the array", () -> tev.put("k", data, 80, 11, 1, null, Replace.YES)),
                Map.entry("null replace", () -> tev.put("k", data, 0, 1, 1, null, null)),
                Map.entry("null names", () -> tev.delete((String[]) null)),
                Map.entry("copy to itself", () -> tev.copyTo(tev)),
                Map.entry("empty sound", () -> tev.putSound("s", new byte[0])));
        illegal.forEach((what, call) -> assertThrows(IllegalArgumentException.class, call, what));
        assertThrows(NoSuchElementException.class, () -> tev.read("absent"));
        assertThrows(NoSuchElementException.class, () -> tev.open("absent"));
        assertThrows(NoSuchElementException.class, () -> tev.delete("kept", "absent"));
        assertThrows(NoSuchElementException.class, () -> tev.deleteSound("kept"));
        assertArrayEquals(before, readAllBytes(file));

        tev.put(longest, data);
        assertEquals(longest, tev.records().get(1).name());
        tev.close();
        tev.close();
        assertThrows(IllegalStateException.class, () -> tev.records());
        assertThrows(IllegalStateException.class, tev::repair);
        assertThrows(FileNotFoundException.class, () -> new TevFile(dir.resolve("missing.jpg").toFile()));
    }

    @ParameterizedTest
    @ValueSource(ints = {1, 2, 3, 4})
    void soundsOnEveryKindOfImage(int signature) throws Exception {
        byte[] media = jpeg(280), old = pattern(60, 4);
        Path file = write("image.jpg", media);
        if (signature >= 3) assertEquals(media.length + old.length + 30, VoxaJNI.AddSoundInVoxaFile(file.toString(), old, old.length));
        if (signature % 2 == 0) withRecord(file, "kept", 9, null);
        try (Opened f = new Opened(file, signature >= 3)) {
            TevFile tev = f.tev;
            assertEquals(Kind.values()[signature - 1], tev.kind());
            List<String> expected = new ArrayList<>(signature >= 3 ? List.of("EchoFrame_000") : List.of());
            assertEquals(expected, tev.sounds());

            byte[] memo = pattern(150, 5);
            tev.putSound(NAME, memo);
            expected.add(NAME);
            assertEquals(expected, tev.sounds());
            assertArrayEquals(memo, tev.read(NAME));
            if (signature % 2 == 0) assertArrayEquals(data, tev.read("kept"));
            if (signature >= 3) assertArrayEquals(old, tev.read("EchoFrame_000"));

            tev.deleteSound(NAME);
            expected.remove(NAME);
            assertEquals(expected, tev.sounds());
            tev.putSound(NAME, memo);
            if (signature == 1) {
                tev.clearSounds();
                assertArrayEquals(media, readAllBytes(file));
            }
            tev.clear();  // the container and its sounds
            assertArrayEquals(media, readAllBytes(file));
            assertEquals(List.of(), tev.sounds());
        }
    }

    @Test
    void copiesBetweenFilesOpenedEitherWay() throws Exception {
        byte[] media = jpeg(200);
        Path source = withRecord(withRecord(write("source.jpg", media), "a", 4, null), "bb", 5, sub);
        Path all = write("all.jpg", media), byType = write("type.jpg", media), byName = write("name.jpg", media);
        try (Opened src = new Opened(source, true); Opened dst = new Opened(all, true);
                TevFile type = new TevFile(byType.toString()); Opened name = new Opened(byName, true)) {
            src.tev.copyTo(dst.tev);
            src.tev.copyTypeTo(type, 5);
            src.tev.copyRecordTo(name.tev, "a");
            assertThrows(IOException.class, () -> src.tev.copyRecordTo(name.tev, "bb"));
            assertThrows(IOException.class, () -> src.tev.copyTypeTo(type, 4));
            assertThrows(NoSuchElementException.class, () -> src.tev.copyRecordTo(type, "absent"));

            assertEquals(List.of("a", "bb"), dst.tev.records().stream().map(TevRecord::name).toList());
            assertArrayEquals(data, dst.tev.read("bb"));
            assertArrayEquals(new byte[0], dst.tev.subInfo("bb"));  // copies leave sub-information behind
            assertEquals(List.of("bb"), type.records().stream().map(TevRecord::name).toList());
            assertEquals(List.of("a"), name.tev.records().stream().map(TevRecord::name).toList());
            dst.tev.clear();
        }
        assertArrayEquals(media, readAllBytes(all));
    }

    /** Run by the test java_TevBindingTest_unloadable in a JVM whose library path has no libTEV.lumet.so. */
    @Test
    void unloadableLibraryIsAnIOExceptionOnOpen() throws Exception {
        assumeTrue(Boolean.getBoolean("tev.test.unloadable"));
        assertFalse(TevFile.isAvailable());
        Path file = write("photo.jpg", jpeg(100));
        IOException e = assertThrows(IOException.class, () -> new TevFile(file.toString()));
        assertTrue(e.getCause() instanceof UnsatisfiedLinkError, e::toString);
        try (RandomAccessFile raf = new RandomAccessFile(file.toFile(), "r")) {
            assertThrows(IOException.class, () -> new TevFile(raf.getFD()));
        }
    }

    @Test
    void countsNamesAndTypes() throws Exception {
        Path file = withRecord(withRecord(write("two.jpg", media), "alpha", 5, null), "gamma", 0xFFFF, null);
        String path = file.toString();
        assertEquals(107, TEVJNI.getNativeVersion());
        assertEquals(107, VoxaJNI.getNativeVersion());
        assertEquals(2, TEVJNI.getTEVDataCount(path));
        assertEquals("gamma", TEVJNI.getTEVName(path, 1));
        assertNull(TEVJNI.getTEVName(path, 2));
        assertEquals(0xFFFF, TEVJNI.getTEVDataType(path, "gamma"));
        assertEquals(2, onFd(file, TEVJNI::getTEVDataCountFd));
        assertEquals(5, onFd(file, fd -> TEVJNI.getTEVDataTypeFd(fd, "alpha")));

        assertNull(TEVJNI.listTEVDataTypes(write("plain.jpg", media).toString()));
        assertNull(TEVJNI.listKeyNamesByDataType(path, 6));

        // Names stored as UTF-8 by another program: four-byte UTF-8 becomes a surrogate pair, bytes
        // that are not UTF-8 U+FFFD.
        String[][] stored = {{"wxyz", "\u00F0\u009F\u0093\u00B7"}, {"pqr", "p\u00C3r"}, {"abc", "\u00FFbc"}};
        for (String[] name : stored) withRecord(file, name[0], 1, null);
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
        Path photo = write("photo.jpg", media);
        String path = photo.toString();
        String dataFile = write("data.bin", data).toString();
        // The key name length is the caller's: a shorter one stores a prefix of the name.
        assertEquals(1, TEVJNI.addFastTEVData(path, "fast-long", 4, sub, sub.length, data, 60, 8, 0));
        assertEquals(1, TEVJNI.addTEVDataFile(path, "file", 4, null, 0, dataFile, 9, 0));
        assertEquals(1, TEVJNI.addFastTEVDataFile(path, "ffile", 5, sub, sub.length, dataFile, 9, 0));
        assertEquals(1, TEVJNI.addTEVDataAddTag(path, "tag", 3, null, 0, data, data.length, 3, 0));
        assertEquals(1, TEVJNI.addTEVDataFileAddTag(path, "ftag", 4, sub, sub.length, dataFile, 3, 0));
        assertEquals(1, onFd(photo, fd -> TEVJNI.addTEVDataFdAddTag(fd, "fdtag", 5, null, 0, data, 10, 2, 0)));
        assertRecord(photo, "fast", sub, Arrays.copyOf(data, 60));
        assertRecord(photo, "file", null, data);
        assertRecord(photo, "ffile", sub, data);
        assertRecord(photo, "tag", null, data);
        assertRecord(photo, "ftag", sub, data);
        assertRecord(photo, "fdtag", null, Arrays.copyOf(data, 10));

        assertEquals(1, TEVJNI.fastDeleteTEVData(path, "fast"));
        assertEquals(1, TEVJNI.fastClearTEVData(path));
        assertArrayEquals(media, readAllBytes(photo));

        Path video = write("video.mp4", mp4(500));
        assertEquals(1, TEVJNI.addTEVDataToMP4(video.toString(), "a", 1, sub, sub.length, data, data.length, 3, 0));
        assertEquals(1, TEVJNI.addTEVDataFileToMP4(video.toString(), "b", 1, null, 0, dataFile, 3, 0));
        assertEquals(1, onFd(video, fd -> TEVJNI.addTEVDataFdToMP4(fd, "c", 1, null, 0, data, data.length, 2, 0)));
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
        Path photo = write("photo.jpg", media);
        assertEquals(1, TEVJNI.addTEVData(photo.toString(), "memo", 4, sub, sub.length, data, data.length, 7, 0));
        byte[] expected = readAllBytes(photo);

        int offset = 16;
        long capacity = TEVJNI.getTEVBufferAllocSize(media.length, 1, 4, sub.length, data.length);
        byte[] buffer = new byte[offset + (int) capacity];
        System.arraycopy(media, 0, buffer, offset, media.length);
        long used = TEVJNI.addTEVDataBufferAddTag(buffer, capacity, media.length, offset, "memo", 4, sub, sub.length,
                data, data.length, 7, 0);
        assertArrayEquals(expected, Arrays.copyOfRange(buffer, offset, offset + (int) used));
        assertArrayEquals(new byte[offset], Arrays.copyOf(buffer, offset));
    }

    @Test
    void dataFilesAreAddedInOneCallUpToTheFirstFailure() throws Exception {
        Path photo = write("photo.jpg", media);
        String path = photo.toString();
        int count = 2000;  // far more local references than a VM gives a native method without asking
        String[] names = new String[count], files = new String[count];
        int[] lengths = new int[count], types = new int[count];
        Arrays.fill(types, 1);
        Arrays.fill(files, write("data.bin", data).toString());
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
    void voxaSoundIsAddedCopiedAndDeletedAndRefusalsLeaveTheFileAlone() throws Exception {
        byte[] sound = pattern(120, 1);
        Path photo = write("photo.jpg", media);
        assertEquals(media.length + 150, VoxaJNI.AddSoundInVoxaFile(photo.toString(), sound, 120));
        assertArrayEquals(new int[] {media.length, media.length + sound.length}, VoxaJNI.ParseVoxaFile(photo.toString()));

        Path other = write("other.jpg", media);
        assertEquals(1, VoxaJNI.copyAdioData(photo.toString(), other.toString()));
        assertArrayEquals(readAllBytes(photo), readAllBytes(other));
        assertEquals(1, VoxaJNI.DeleteVoxaFromFile(photo.toString()));
        assertArrayEquals(media, readAllBytes(photo));
        assertEquals(1, onFd(other, VoxaJNI::DeleteVoxaFromFd));
        assertArrayEquals(media, readAllBytes(other));

        // Refused shapes on a real VM (the stand-in VM's suite checks each refusal's line).
        assertNull(TEVJNI.getTEVDataPositionFd(-1, null));
        assertNull(VoxaJNI.ParseVoxaFile(null));
        assertEquals(0, TEVJNI.deleteTEVData(photo.toString(), "a", 2));
        assertEquals(0, TEVJNI.addTEVData(photo.toString(), "k", 1, null, 0, data, data.length + 1, 7, 0));
        assertEquals(0, TEVJNI.addTEVDataBufferAddTag(new byte[64], 10, 0, 55, "k", 1, null, 0, data, 10, 7, 0));
        assertEquals(0, TEVJNI.addTEVDataFiles(photo.toString(), null, null, null, null, 0, 1));
        assertEquals(0, TEVJNI.saveAudioJPEG(photo.toString(), null, 10, "memo", 4));
        assertArrayEquals(media, readAllBytes(photo));
    }
}
