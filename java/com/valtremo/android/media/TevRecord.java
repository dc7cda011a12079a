package com.valtremo.android.media;

/**
 * One record of a container as {@link TevFile#records()} lists it: its name, its data type, the
 * length of its sub-information and where its data bytes lie in the file.
 */
public final class TevRecord {
    private final String name;
    private final int type;
    private final long subInfoLength;
    private final long position;
    private final long length;

    TevRecord(String name, int type, long subInfoLength, long position, long length) {
        this.name = name;
        this.type = type;
        this.subInfoLength = subInfoLength;
        this.position = position;
        this.length = length;
    }

    /** The record's name. */
    public String name() {
        return name;
    }

    /** The record's data type, 0 to 65535. */
    public int type() {
        return type;
    }

    /** The length of the record's sub-information in bytes, 0 when it has none. */
    public long subInfoLength() {
        return subInfoLength;
    }

    /**
     * The position of the record's data counted from the start of the file, or -1 when the record
     * cannot be found by its name (a name stored by other software in bytes that Java shows
     * converted, or the second of two records of the same name).
     */
    public long position() {
        return position;
    }

    /** The length of the record's data in bytes, or -1 where {@link #position()} is -1. */
    public long length() {
        return length;
    }

    @Override
    public boolean equals(Object other) {
        if (!(other instanceof TevRecord)) return false;
        TevRecord r = (TevRecord) other;
        return name.equals(r.name) && type == r.type && subInfoLength == r.subInfoLength
                && position == r.position && length == r.length;
    }

    @Override
    public int hashCode() {
        // Long.hashCode(long) is spelt out: Android has it from API level 24 only.
        return ((name.hashCode() * 31 + type) * 31 + (int) (position ^ (position >>> 32))) * 31
                + (int) (length ^ (length >>> 32));
    }

    @Override
    public String toString() {
        return "TevRecord[" + name + ", type " + type + ", sub-information " + subInfoLength + ", data "
                + length + " bytes at " + position + "]";
    }
}
