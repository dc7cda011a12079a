package com.valtremo.android.media;

import static com.valtremo.android.media.TestFiles.*;
import static java.nio.file.Files.readAllBytes;
import static org.junit.jupiter.api.Assertions.*;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.valtremo.android.media.TevFile.Kind;
import com.valtremo.android.media.TevFile.Replace;
import java.io.*;
import java.nio.file.Path;
import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** TevFile's contract: names in modified UTF-8, exceptions, descriptors left where they were, repair. */
class TevFileTest {
    // A name of 2 + 3 + 6 bytes in modified UTF-8: String.length() says 5, UTF-8 says 9.
    private static final String NAME = "m\u00e9mo \uD83C\uDFA4";

    @TempDir Path dir;

    private final byte[] data = pattern(90, 1);
    private final byte[] sub = pattern(7, 2);

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
            if (raf != null) {
                assertEquals(5, raf.getFilePointer(), "the descriptor's position moved");
                assertTrue(raf.getFD().valid());
                raf.close();
            }
        }
    }

    /** Adds a record through the binding, as another program would have. */
    private Path withRecord(Path file, String name, int type, byte[] subInfo) {
        int subLength = subInfo == null ? 0 : subInfo.length;
        assertEquals(1, TEVJNI.addTEVData(file.toString(), name, name.length(), subInfo, subLength, data, data.length, type, 0));
        return file;
    }

    @ParameterizedTest
    @CsvSource({"jpeg,false", "jpeg,true", "mp4,false", "mp4,true"})
    void recordsRoundTripByTheirJavaNames(String kind, boolean descriptor) throws Exception {
        byte[] media = kind.equals("jpeg") ? jpeg(300) : mp4(300);
        Path file = write(dir, "file." + kind, media);
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
            assertEquals(2, records.size());
            for (TevRecord r : records) assertArrayEquals(data, readAt(file, new long[] {r.position(), r.length()}));
            assertEquals(List.of("note", NAME), List.of(records.get(0).name(), records.get(1).name()));
            assertEquals(List.of(1, 0), List.of(records.get(0).type(), records.get(1).type()));
            assertEquals(List.of(0L, 7L), List.of(records.get(0).subInfoLength(), records.get(1).subInfoLength()));
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

            tev.delete(NAME, "note");
            assertFalse(tev.contains(NAME));
            assertArrayEquals(media, readAllBytes(file));
        }
    }

    @Test
    void misuseThrowsBeforeTheFileIsTouched() throws Exception {
        Path file = withRecord(write(dir, "photo.jpg", jpeg(200)), "kept", 1, null);
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
        assertThrows(IllegalStateException.class, () -> tev.read("kept"));
        assertThrows(IllegalStateException.class, tev::repair);
        assertThrows(FileNotFoundException.class, () -> new TevFile(dir.resolve("missing.jpg").toFile()));
    }

    @ParameterizedTest
    @ValueSource(ints = {1, 2, 3, 4})
    void soundsOnEveryKindOfImage(int signature) throws Exception {
        byte[] media = jpeg(280);
        byte[] old = pattern(60, 4);
        Path file = write(dir, "image.jpg", media);
        if (signature >= 3) assertEquals(media.length + old.length + 30, VoxaJNI.AddSoundInVoxaFile(file.toString(), old, old.length));
        if (signature % 2 == 0) withRecord(file, "kept", 9, null);
        try (Opened f = new Opened(file, signature >= 3)) {
            TevFile tev = f.tev;
            assertEquals(Kind.values()[signature - 1], tev.kind());
            List<String> expected = new ArrayList<>(signature >= 3 ? List.of("EchoFrame_000") : List.of());
            assertEquals(expected, tev.sounds());
            if (signature >= 3) assertArrayEquals(old, tev.read("EchoFrame_000"));

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
        try (TevFile tev = new TevFile(write(dir, "movie.mp4", mp4(200)).toString())) {
            assertThrows(IOException.class, () -> tev.putSound("s", data));
        }
    }

    @Test
    void copiesBetweenFilesOpenedEitherWay() throws Exception {
        byte[] media = jpeg(200);
        Path source = withRecord(withRecord(write(dir, "source.jpg", media), "a", 4, null), "bb", 5, sub);
        Path all = write(dir, "all.jpg", media);
        Path byType = write(dir, "type.jpg", media);
        Path byName = write(dir, "name.jpg", media);
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

    /** Run by the test java_TevFileTest_unloadable in a JVM whose library path has no libTEV.lumet.so. */
    @Test
    void unloadableLibraryIsAnIOExceptionOnOpen() throws Exception {
        assumeTrue(Boolean.getBoolean("tev.test.unloadable"));
        assertFalse(TevFile.isAvailable());
        Path file = write(dir, "photo.jpg", jpeg(100));
        IOException e = assertThrows(IOException.class, () -> new TevFile(file.toString()));
        assertTrue(e.getCause() instanceof UnsatisfiedLinkError, e::toString);
        try (RandomAccessFile raf = new RandomAccessFile(file.toFile(), "r")) {
            assertThrows(IOException.class, () -> new TevFile(raf.getFD()));
        }
    }
}
