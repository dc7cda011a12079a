package com.valtremo.android.media;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * Test files laid out byte by byte, independently of the library's writers:
 * stand-in media, containers (records and directory, optionally followed by
 * a Voxa block), Voxa blocks and the sound list payload.
 */
final class Media {
    private Media() {}

    /** One record as it should lie on disk; sub is null for a record without sub-information. */
    record Rec(int type, String name, byte[] sub, byte[] data) {
        int metaType() {
            return (type << 16) | (sub != null ? 0x8000 : 0);
        }

        byte[] encode() {
            byte[] nameBytes = bytes(name);
            Le b = new Le().u32(metaType()).u32(nameBytes.length);
            if (sub != null) b.u32(sub.length);
            b.put(nameBytes);
            if (sub != null) b.put(sub);
            return b.put(data).done();
        }
    }

    /** A little-endian byte builder. */
    static final class Le {
        private final ByteArrayOutputStream out = new ByteArrayOutputStream();

        Le u32(int v) {
            out.writeBytes(ByteBuffer.allocate(4).order(ByteOrder.LITTLE_ENDIAN).putInt(v).array());
            return this;
        }

        Le put(byte[] b) {
            out.writeBytes(b);
            return this;
        }

        Le text(String s) {
            return put(bytes(s));
        }

        byte[] done() {
            return out.toByteArray();
        }
    }

    static byte[] bytes(String s) {
        return s.getBytes(StandardCharsets.UTF_8);
    }

    /** FF D8, filler, FF D9: what the library needs of a JPEG. */
    static byte[] jpeg(int size) {
        byte[] b = new byte[size];
        Arrays.fill(b, (byte) 0x5A);
        b[0] = (byte) 0xFF;
        b[1] = (byte) 0xD8;
        b[size - 2] = (byte) 0xFF;
        b[size - 1] = (byte) 0xD9;
        return b;
    }

    /** A box header whose type is "ftyp", then filler. */
    static byte[] mp4(int size) {
        byte[] b = new byte[size];
        Arrays.fill(b, (byte) 0x11);
        byte[] head = ByteBuffer.allocate(12).putInt(24).put(bytes("ftypisom")).array();
        System.arraycopy(head, 0, b, 0, head.length);
        return b;
    }

    /** Bytes that do not repeat with a short period, so a misplaced piece shows. */
    static byte[] pattern(int size, int seed) {
        byte[] b = new byte[size];
        for (int i = 0; i < size; i++) b[i] = (byte) (i * 7 + seed + i / 251);
        return b;
    }

    static byte[] concat(byte[]... parts) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        for (byte[] p : parts) out.writeBytes(p);
        return out.toByteArray();
    }

    /** Records back to back and their directory behind the media. */
    static byte[] container(byte[] media, Rec... records) {
        ByteArrayOutputStream body = new ByteArrayOutputStream();
        List<Integer> starts = new ArrayList<>();
        for (Rec r : records) {
            starts.add(body.size());
            body.writeBytes(r.encode());
        }
        int recordsEnd = body.size();
        Le dir = new Le().text("TEVH").u32(107).u32(records.length);
        for (int i = 0; i < records.length; i++) {
            dir.u32(records[i].metaType()).u32(recordsEnd - starts.get(i)).u32(records[i].encode().length);
        }
        dir.u32(12 + 12 * records.length).text("TEVT");
        return concat(media, body.toByteArray(), dir.done());
    }

    /** "VOXA", version, count, start/end pairs, header length, "VOXABS". */
    static byte[] voxaBlock(int version, int... table) {
        Le b = new Le().text("VOXA").u32(version).u32(table.length / 2);
        for (int v : table) b.u32(v);
        return b.u32(12 + 4 * table.length).text("VOXABS").done();
    }

    /** A block whose count is 0 while its length field still covers one table entry. */
    static byte[] emptyVoxaBlock() {
        return new Le().text("VOXA").u32(106).u32(0).u32(0).u32(0).u32(20).text("VOXABS").done();
    }

    /** Media, then the sound, then a one-sound block (signature 3). */
    static byte[] imageWithSound(byte[] media, byte[] sound) {
        return concat(media, sound, voxaBlock(106, media.length, media.length + sound.length));
    }

    /** Media, the sound, a container, then the block pointing at the sound (signature 4). */
    static byte[] imageWithSoundAndContainer(byte[] media, byte[] sound, Rec... records) {
        byte[] withContainer = container(concat(media, sound), records);
        return concat(withContainer, voxaBlock(106, media.length, media.length + sound.length));
    }

    static Path write(Path dir, String name, byte[] content) throws IOException {
        Path p = dir.resolve(name);
        Files.write(p, content);
        return p;
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

    static byte[] read(Path file) throws IOException {
        return Files.readAllBytes(file);
    }

    static byte[] prefix(byte[] b, int n) {
        return Arrays.copyOf(b, n);
    }
}
