package com.valtremo.android.media;

import java.io.Closeable;
import java.io.EOFException;
import java.io.File;
import java.io.FileDescriptor;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.lang.reflect.Field;
import java.lang.reflect.InvocationTargetException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.NoSuchElementException;
import java.util.Set;

/**
 * The records and sounds kept behind the media bytes of a JPEG, HEIC or MP4 file, opened on a path
 * or on a descriptor the caller keeps open.
 *
 * <p>Names are Java strings of 1 to 1024 bytes in modified UTF-8 (the encoding Java hands to native
 * code: a character outside the Basic Multilingual Plane counts 6 bytes) and must not contain U+0000.
 * Arguments are checked before the file is touched: a bad one throws {@link IllegalArgumentException};
 * a name that is not in the file throws {@link NoSuchElementException}; an edit or read the file
 * refuses throws {@link IOException} naming the operation (the library writes its reason to the
 * Android log); any call after {@link #close()} throws {@link IllegalStateException}. Lists are never
 * null. An object is not safe for use from several threads at once, and two objects (or processes)
 * must not edit the same file at the same time.
 *
 * <p>Opened on a {@link FileDescriptor}, the object never moves the descriptor's file position, and
 * it never closes the descriptor: that stays with the caller, who must keep it open until this
 * object is closed. The descriptor must be open for reading, and for writing to edit. The sound
 * edits and the copies have no descriptor form in the library; for them the file is opened again
 * through {@code /proc/self/fd/N}, which needs the process to be allowed to open the file itself.
 *
 * <p>The class loads {@code libTEV.lumet.so} on first use; when the library cannot be loaded the
 * constructors throw an {@link IOException} whose cause is the {@link UnsatisfiedLinkError}, and
 * {@link #isAvailable()} answers without throwing.
 */
public final class TevFile implements Closeable {
    /** What a file ends with, which decides how the library edits it. */
    public enum Kind {
        /** The media itself: no records and no sound. */
        PLAIN,
        /** A container of records. */
        CONTAINER,
        /** A Voxa block holding one sound, without container. */
        VOXA,
        /** A container followed by a Voxa block that points at its first sound. */
        CONTAINER_AND_VOXA
    }

    /** Whether {@code put} replaces a record of the same name. */
    public enum Replace {
        /** A record of the same name is replaced. */
        YES,
        /** A record of the same name makes {@code put} throw {@link IOException}. */
        NO
    }

    /** The longest name, in bytes of modified UTF-8. */
    public static final int MAX_NAME_BYTES = 1024;
    /** The data type {@link #put(String, byte[])} gives a record. */
    public static final int DEFAULT_TYPE = 1;
    /** The data type of user-defined data, which must carry sub-information. */
    public static final int USER_DEFINED_TYPE = 0;

    // Types the library keeps for itself: sound records, the list of sound names and the filler.
    private static final int SOUND_TYPE = 256;
    private static final int SOUND_LIST_TYPE = 2048;
    private static final int FILLER_TYPE = 32766;
    private static final int MAX_TYPE = 0xFFFF;
    // The name the library gives a sound held only by a Voxa block when it converts the file.
    private static final String BARE_SOUND_NAME = "EchoFrame_000";
    // The largest byte[] every Java runtime allocates.
    private static final int MAX_ARRAY = Integer.MAX_VALUE - 8;

    private static final Object loadLock = new Object();
    private static boolean loadTried;
    private static Throwable loadFailure;

    private final File file;            // null when opened on a descriptor
    private final int fd;               // -1 when opened on a path
    private final FileChannel fdChannel; // over the caller's descriptor; never closed (that would close it)
    private final Closeable fdHolder;   // what holds the descriptor number open, if the layer made it
    private boolean closed;

    /** Opens the file at {@code path}; it must exist and be readable (writable to edit). */
    public TevFile(String path) throws IOException {
        this(new File(requireArgument(path, "path")));
    }

    /** Opens {@code file}; it must exist and be readable (writable to edit). */
    public TevFile(File file) throws IOException {
        requireArgument(file, "file");
        requireLibrary();
        new FileInputStream(file).close();  // FileNotFoundException, with the reason, when it cannot be read
        this.file = file;
        this.fd = -1;
        this.fdChannel = null;
        this.fdHolder = null;
    }

    /**
     * Opens the file behind a descriptor the caller keeps open, such as
     * {@code ParcelFileDescriptor.getFileDescriptor()} on Android. On other Java runtimes from
     * version 16 on, the layer needs {@code --add-opens java.base/java.io=ALL-UNNAMED} to read the
     * descriptor's number; without it this constructor throws {@link IOException}.
     */
    public TevFile(FileDescriptor descriptor) throws IOException {
        requireArgument(descriptor, "descriptor");
        if (!descriptor.valid()) throw new IllegalArgumentException("descriptor is not valid");
        requireLibrary();
        Object[] number = descriptorNumber(descriptor);
        this.file = null;
        this.fd = (Integer) number[0];
        this.fdHolder = (Closeable) number[1];
        this.fdChannel = new FileInputStream(descriptor).getChannel();
        try {
            fdChannel.position();
        } catch (IOException e) {
            close();
            throw new IOException("descriptor " + fd + " has no file position: " + e.getMessage(), e);
        }
    }

    /**
     * Finishes or undoes an edit of this file that a process killed part-way left behind, so
     * that the file holds all of its records as before that edit or all as after it. Every edit
     * and every listing through this class does this first on its own; call it to have it done
     * now. Throws {@link IOException} when the file cannot be made consistent (it does not open
     * for writing, a write fails).
     */
    public void repair() throws IOException {
        ensureOpen();
        int result = file != null ? recoverFile(file.getPath()) : recoverFd(fd);
        if (result != 1) throw new IOException("repair: the file could not be made consistent");
    }

    private static native int recoverFile(String path);

    private static native int recoverFd(int fd);

    /** True when {@code libTEV.lumet.so} is loaded or can be loaded; never throws. */
    public static boolean isAvailable() {
        return loadError() == null;
    }

    /** What the file ends with. */
    public Kind kind() throws IOException {
        ensureOpen();
        boolean records = either(TEVJNI::isTEVfd, TEVJNI::isTEVFile);
        boolean voxa = either(VoxaJNI::isVoxaFd, VoxaJNI::isVoxaFile) == 1;
        if (records) return voxa ? Kind.CONTAINER_AND_VOXA : Kind.CONTAINER;
        return voxa ? Kind.VOXA : Kind.PLAIN;
    }

    /** The records in the order of the file's directory (sounds and their list included); empty when there are none. */
    public List<TevRecord> records() throws IOException {
        ensureOpen();
        String[] names = either(TEVJNI::listKeyNamesFd, TEVJNI::listKeyNames);
        if (names == null || names.length == 0) return Collections.emptyList();
        int[] types = either(TEVJNI::listTEVDataTypesFd, TEVJNI::listTEVDataTypes);
        if (types == null || types.length != names.length) {
            throw new IOException("records of " + this + ": the file changed while it was read");
        }
        List<TevRecord> records = new ArrayList<>(names.length);
        Set<String> seen = new LinkedHashSet<>();
        for (int i = 0; i < names.length; i++) {
            long[] data = seen.add(names[i]) ? position(names[i], false) : null;
            long[] sub = data == null ? null : position(names[i], true);
            records.add(new TevRecord(names[i], types[i], sub == null ? 0 : sub[1], data == null ? -1 : data[0],
                    data == null ? -1 : data[1]));
        }
        return Collections.unmodifiableList(records);
    }

    /** True when a record of this name is in the file. */
    public boolean contains(String name) throws IOException {
        encodedLength(name);
        ensureOpen();
        return position(name, false) != null;
    }

    /** The record's data bytes. */
    public byte[] read(String name) throws IOException {
        long[] where = dataOrBareSound(name, "read");
        if (where[1] > MAX_ARRAY) {
            throw new IOException("read \"" + name + "\" of " + this + ": " + where[1]
                    + " bytes do not fit in an array; use open(name)");
        }
        return readAt(where[0], (int) where[1]);
    }

    /**
     * A stream over the record's data bytes, read where the record lay when this method was called.
     * Closing it leaves this object (and a descriptor it was opened on) open.
     */
    public InputStream open(String name) throws IOException {
        long[] where = dataOrBareSound(name, "open");
        FileChannel channel = isDescriptor() ? fdChannel : new FileInputStream(file).getChannel();
        return new RecordStream(channel, !isDescriptor(), where[0], where[1]);
    }

    /** The record's sub-information, empty when it has none. */
    public byte[] subInfo(String name) throws IOException {
        encodedLength(name);
        ensureOpen();
        if (position(name, false) == null) throw absent("subInfo", name);
        long[] where = position(name, true);
        return where == null ? new byte[0] : readAt(where[0], (int) where[1]);
    }

    /** Adds the record, or replaces one of the same name, with type {@link #DEFAULT_TYPE} and no sub-information. */
    public void put(String name, byte[] data) throws IOException {
        requireArgument(data, "data");
        put(name, data, 0, data.length, DEFAULT_TYPE, null, Replace.YES);
    }

    /**
     * Adds the record with {@code length} bytes of {@code data} from {@code offset} on. The type is 0
     * to 65535 except the library's own 256, 2048 and 32766; type 0 ({@link #USER_DEFINED_TYPE})
     * needs sub-information, which other types may carry or not (null or empty: none).
     */
    public void put(String name, byte[] data, int offset, int length, int type, byte[] subInfo, Replace replace)
            throws IOException {
        int nameLength = encodedLength(name);
        requireArgument(data, "data");
        if (offset < 0 || length < 1 || length > data.length - offset) {
            throw new IllegalArgumentException("data: offset " + offset + " and length " + length
                    + " do not select 1 byte or more of " + data.length);
        }
        checkType(type, subInfo);
        requireArgument(replace, "replace");
        ensureOpen();
        if (replace == Replace.NO && position(name, false) != null) {
            throw new IOException("put \"" + name + "\" in " + this + ": a record of that name exists");
        }
        byte[] bytes = offset == 0 ? data : Arrays.copyOfRange(data, offset, offset + length);
        byte[] sub = subInfo == null || subInfo.length == 0 ? null : subInfo;
        int subLength = sub == null ? 0 : sub.length;
        int option = replace == Replace.YES ? 1 : 0;
        int result = either(n -> TEVJNI.addTEVDataFd(n, name, nameLength, sub, subLength, bytes, length, type, option),
                p -> TEVJNI.addTEVData(p, name, nameLength, sub, subLength, bytes, length, type, option));
        if (result != 1) throw refused("put \"" + name + "\"");
    }

    /** Deletes the named records; none is deleted when one of them is not in the file. */
    public void delete(String... names) throws IOException {
        requireArgument(names, "names");
        Set<String> unique = new LinkedHashSet<>();
        for (String name : names) {
            encodedLength(name);
            unique.add(name);
        }
        ensureOpen();
        for (String name : unique) {
            if (position(name, false) == null) throw absent("delete", name);
        }
        for (String name : unique) {
            int nameLength = encodedLength(name);
            int result = either(n -> TEVJNI.deleteTEVDataFd(n, name, nameLength),
                    p -> TEVJNI.deleteTEVData(p, name, nameLength));
            if (result != 1) throw refused("delete \"" + name + "\"");
        }
    }

    /**
     * Removes the container and every sound, leaving the media. A file without container keeps its
     * Voxa sound: {@link #clearSounds()} removes that.
     */
    public void clear() throws IOException {
        Kind kind = kind();
        if (kind == Kind.PLAIN || kind == Kind.VOXA) return;
        if (either(TEVJNI::clearTEVDataFd, TEVJNI::clearTEVData) != 1) throw refused("clear");
    }

    /**
     * The names of the sounds, in the order of the file's directory; empty when there are none. A
     * sound held only by a Voxa block, not as a record, is listed as "EchoFrame_000", the name the
     * library gives it on the first sound edit, and {@link #read} and {@link #open} serve it under that
     * name.
     */
    public List<String> sounds() throws IOException {
        ensureOpen();
        String[] names = either(n -> TEVJNI.listKeyNamesByDataTypeFd(n, SOUND_TYPE),
                p -> TEVJNI.listKeyNamesByDataType(p, SOUND_TYPE));
        if (names != null) return Collections.unmodifiableList(Arrays.asList(names));
        return bareSound(false) != null ? Collections.singletonList(BARE_SOUND_NAME) : Collections.<String>emptyList();
    }

    /**
     * Stores a sound under the name, replacing a sound of that name. Sounds are kept in images only:
     * an MP4 or HEIC file (one that opens with an "ftyp" box) throws {@link IOException}.
     */
    public void putSound(String name, byte[] sound) throws IOException {
        int nameLength = encodedLength(name);
        requireArgument(sound, "sound");
        if (sound.length == 0) throw new IllegalArgumentException("sound is empty");
        ensureOpen();
        if (isBoxedMedia()) {
            throw new IOException("putSound \"" + name + "\" in " + this + ": MP4 and HEIC files cannot carry sound");
        }
        if (TEVJNI.saveAudioJPEG(pathForm(), sound, sound.length, name, nameLength) != 1) {
            throw refused("putSound \"" + name + "\"");
        }
    }

    /** Deletes the named sound and its name in the list of sounds. */
    public void deleteSound(String name) throws IOException {
        encodedLength(name);
        if (!sounds().contains(name)) throw absent("deleteSound", name);
        if (TEVJNI.deleteVoxaData(pathForm(), name) != 1) throw refused("deleteSound \"" + name + "\"");
    }

    /** Deletes every sound; the other records stay. */
    public void clearSounds() throws IOException {
        if (sounds().isEmpty()) return;
        if (TEVJNI.clearVoxaData(pathForm()) != 1) throw refused("clearSounds");
    }

    /**
     * Copies every record and sound into {@code target}, behind the records it already has. Both
     * files must be open for writing. A file without records copies nothing. As in every copy below,
     * the records arrive without their sub-information, so a record of type 0 cannot be copied.
     */
    public void copyTo(TevFile target) throws IOException {
        checkTarget(target);
        if (kind() == Kind.PLAIN) return;
        boolean copied;
        if (isDescriptor() && target.isDescriptor()) {
            long targetPosition = target.fdChannel.position();
            int targetFd = target.fd;
            try {
                copied = keepingPosition(n -> TEVJNI.copyAllTEVDataFd(n, targetFd));
            } finally {
                target.fdChannel.position(targetPosition);
            }
        } else {
            copied = TEVJNI.copyAllTEVData(pathForm(), target.pathForm());
        }
        if (!copied) throw refused("copyTo " + target);
    }

    /** Copies the named record into {@code target}, which must hold no records yet. */
    public void copyRecordTo(TevFile target, String name) throws IOException {
        encodedLength(name);
        checkTarget(target);
        if (position(name, false) == null) throw absent("copyRecordTo", name);
        requireNoRecords(target, "copyRecordTo");
        if (!TEVJNI.copyAllTEVDataKeyName(pathForm(), target.pathForm(), name)) {
            throw refused("copyRecordTo " + target + " of \"" + name + "\"");
        }
    }

    /** Copies the records of one data type into {@code target}, which must hold no records yet. */
    public void copyTypeTo(TevFile target, int type) throws IOException {
        if (type < 0 || type > MAX_TYPE) throw new IllegalArgumentException("type " + type + " is not 0 to 65535");
        checkTarget(target);
        requireNoRecords(target, "copyTypeTo");
        if (!TEVJNI.copyAllTEVDataType(pathForm(), target.pathForm(), type)) {
            throw refused("copyTypeTo " + target + " of type " + type);
        }
    }

    /** Ends the use of this object; a descriptor it was opened on stays open. Closing twice does nothing. */
    @Override
    public void close() throws IOException {
        if (closed) return;
        closed = true;
        if (fdHolder != null) fdHolder.close();
    }

    @Override
    public String toString() {
        return isDescriptor() ? "descriptor " + fd : file.getPath();
    }

    // --- names, types and arguments

    /** The name's length in modified UTF-8, after checking it. */
    static int encodedLength(String name) {
        if (name == null || name.isEmpty()) throw new IllegalArgumentException("name is null or empty");
        int bytes = 0;
        for (int i = 0; i < name.length(); i++) {
            char c = name.charAt(i);
            if (c == 0) throw new IllegalArgumentException("name contains U+0000");
            bytes += c < 0x80 ? 1 : c < 0x800 ? 2 : 3;  // a surrogate pair counts 3 + 3
        }
        if (bytes > MAX_NAME_BYTES) {
            throw new IllegalArgumentException("name is " + bytes + " bytes in modified UTF-8, more than "
                    + MAX_NAME_BYTES);
        }
        return bytes;
    }

    private static void checkType(int type, byte[] subInfo) {
        if (type < 0 || type > MAX_TYPE) throw new IllegalArgumentException("type " + type + " is not 0 to 65535");
        if (type == SOUND_TYPE || type == SOUND_LIST_TYPE || type == FILLER_TYPE) {
            throw new IllegalArgumentException("type " + type + " is kept by the library (use putSound for sounds)");
        }
        if (type == USER_DEFINED_TYPE && (subInfo == null || subInfo.length == 0)) {
            throw new IllegalArgumentException("type 0 needs sub-information");
        }
    }

    private static <T> T requireArgument(T value, String what) {
        if (value == null) throw new IllegalArgumentException(what + " is null");
        return value;
    }

    private void checkTarget(TevFile target) {
        requireArgument(target, "target");
        if (target == this) throw new IllegalArgumentException("target is this file");
        ensureOpen();
        target.ensureOpen();
    }

    // The library's copies by name and by type copy nothing into a file with a container, and say so
    // only by leaving it unchanged.
    private void requireNoRecords(TevFile target, String operation) throws IOException {
        Kind kind = target.kind();
        if (kind == Kind.CONTAINER || kind == Kind.CONTAINER_AND_VOXA) {
            throw new IOException(operation + " " + target + ": the target holds records already");
        }
    }

    private void ensureOpen() {
        if (closed) throw new IllegalStateException(this + " is closed");
    }

    private NoSuchElementException absent(String operation, String name) {
        return new NoSuchElementException(operation + ": no record \"" + name + "\" in " + this);
    }

    private IOException refused(String operation) {
        return new IOException(operation + " in " + this + " failed (the reason is in the Android log)");
    }

    // --- the library

    private static Throwable loadError() {
        synchronized (loadLock) {
            if (!loadTried) {
                loadTried = true;
                try {
                    TEVJNI.getNativeVersion();
                    VoxaJNI.getNativeVersion();
                } catch (LinkageError e) {
                    loadFailure = e;
                }
            }
            return loadFailure;
        }
    }

    private static void requireLibrary() throws IOException {
        Throwable failure = loadError();
        if (failure != null) {
            throw new IOException("libTEV.lumet.so could not be loaded: " + failure.getMessage(), failure);
        }
    }

    // --- descriptors

    private boolean isDescriptor() {
        return file == null;
    }

    /** A descriptor method of the library, called with the descriptor's number. */
    private interface Call<T> {
        T run(int fd);
    }

    /** A path method of the library. */
    private interface PathCall<T> {
        T run(String path);
    }

    /** The descriptor form (keeping the caller's position) or the path form of a library method. */
    private <T> T either(Call<T> byDescriptor, PathCall<T> byPath) throws IOException {
        return isDescriptor() ? keepingPosition(byDescriptor) : byPath.run(file.getPath());
    }

    /** Runs a descriptor method and puts the file position back where the caller had it. */
    private <T> T keepingPosition(Call<T> call) throws IOException {
        long position = fdChannel.position();
        try {
            return call.run(fd);
        } finally {
            fdChannel.position(position);
        }
    }

    /** The path the library's path-only methods open: the file's own, or the descriptor's through /proc. */
    private String pathForm() {
        return isDescriptor() ? "/proc/self/fd/" + fd : file.getPath();
    }

    /**
     * The descriptor's number and what must be closed with this object. Android gives it through the
     * public ParcelFileDescriptor.dup, whose duplicate shares the caller's open file and position;
     * other runtimes keep it in a private field.
     */
    private static Object[] descriptorNumber(FileDescriptor descriptor) throws IOException {
        Class<?> parcelClass;
        try {
            parcelClass = Class.forName("android.os.ParcelFileDescriptor");
        } catch (ClassNotFoundException e) {
            parcelClass = null;
        }
        try {
            if (parcelClass != null) {
                Object duplicate = parcelClass.getMethod("dup", FileDescriptor.class).invoke(null, descriptor);
                return new Object[] {parcelClass.getMethod("getFd").invoke(duplicate), duplicate};
            }
            Field number = FileDescriptor.class.getDeclaredField("fd");
            number.setAccessible(true);
            return new Object[] {number.getInt(descriptor), null};
        } catch (InvocationTargetException e) {
            throw new IOException("descriptor: " + e.getCause(), e.getCause());
        } catch (ReflectiveOperationException | RuntimeException e) {
            throw new IOException("descriptor: this Java runtime does not give the descriptor's number (from Java 16"
                    + " on, run with --add-opens java.base/java.io=ALL-UNNAMED), or open the file by path", e);
        }
    }

    // --- positions and reading

    /** {position, length} of a record's data or sub-information, null when absent (or without sub-information). */
    private long[] position(String name, boolean subInfo) throws IOException {
        if (subInfo) return either(n -> TEVJNI.getTEVSubDataPositionFd(n, name), p -> TEVJNI.getTEVSubDataPosition(p, name));
        return either(n -> TEVJNI.getTEVDataPositionFd(n, name), p -> TEVJNI.getTEVDataPosition(p, name));
    }

    /**
     * {position, length} of the sound a Voxa block points at when no sound is kept as a record, or
     * null. {@code checkRecords}: whether the sound records still have to be looked for.
     */
    private long[] bareSound(boolean checkRecords) throws IOException {
        Kind kind = kind();
        if (kind != Kind.VOXA && kind != Kind.CONTAINER_AND_VOXA) return null;
        if (checkRecords && either(n -> TEVJNI.listKeyNamesByDataTypeFd(n, SOUND_TYPE),
                p -> TEVJNI.listKeyNamesByDataType(p, SOUND_TYPE)) != null) {
            return null;
        }
        int[] table = either(VoxaJNI::ParseVoxaFd, VoxaJNI::ParseVoxaFile);
        if (table == null || table.length < 2) return null;
        long start = table[0] & 0xFFFFFFFFL;  // the table's positions are unsigned 32-bit values
        long end = table[1] & 0xFFFFFFFFL;
        return end > start ? new long[] {start, end - start} : null;
    }

    private long[] dataOrBareSound(String name, String operation) throws IOException {
        encodedLength(name);
        ensureOpen();
        long[] where = position(name, false);
        if (where == null && name.equals(BARE_SOUND_NAME)) where = bareSound(true);
        if (where == null) throw absent(operation, name);
        return where;
    }

    /** True when the file opens with an "ftyp" box, as MP4 and HEIC files do. */
    private boolean isBoxedMedia() throws IOException {
        byte[] head = new byte[8];
        try {
            head = readAt(0, head.length);
        } catch (EOFException e) {
            return false;
        }
        return head[4] == 'f' && head[5] == 't' && head[6] == 'y' && head[7] == 'p';
    }

    private byte[] readAt(long position, int length) throws IOException {
        byte[] bytes = new byte[length];
        if (isDescriptor()) {
            readFully(fdChannel, position, bytes);
        } else {
            try (FileChannel channel = new FileInputStream(file).getChannel()) {
                readFully(channel, position, bytes);
            }
        }
        return bytes;
    }

    /** Positional reads only: the channel's own position, shared with a caller's descriptor, never moves. */
    private static void readFully(FileChannel channel, long position, byte[] into) throws IOException {
        int done = 0;
        while (done < into.length) {
            int n = channel.read(ByteBuffer.wrap(into, done, into.length - done), position + done);
            if (n < 0) throw new EOFException("the file ends inside a record");
            done += n;
        }
    }

    /** The bytes [position, position + length) of a channel, read positionally. */
    private static final class RecordStream extends InputStream {
        private final FileChannel channel;
        private final boolean ownsChannel;
        private long position;
        private final long end;
        private boolean closed;

        RecordStream(FileChannel channel, boolean ownsChannel, long position, long length) {
            this.channel = channel;
            this.ownsChannel = ownsChannel;
            this.position = position;
            this.end = position + length;
        }

        @Override
        public int read() throws IOException {
            byte[] one = new byte[1];
            return read(one, 0, 1) < 0 ? -1 : one[0] & 0xFF;
        }

        @Override
        public int read(byte[] b, int off, int len) throws IOException {
            if (off < 0 || len < 0 || len > b.length - off) throw new IndexOutOfBoundsException();
            if (closed) throw new IOException("stream closed");
            if (len == 0) return 0;
            if (position >= end) return -1;
            int n = channel.read(ByteBuffer.wrap(b, off, (int) Math.min(len, end - position)), position);
            if (n < 0) throw new EOFException("the file ends inside a record");
            position += n;
            return n;
        }

        @Override
        public long skip(long n) {
            long skipped = Math.max(0, Math.min(n, end - position));
            position += skipped;
            return skipped;
        }

        @Override
        public int available() {
            return (int) Math.min(Integer.MAX_VALUE, end - position);
        }

        @Override
        public void close() throws IOException {
            if (closed) return;
            closed = true;
            if (ownsChannel) channel.close();
        }
    }
}
