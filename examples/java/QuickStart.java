import com.valtremo.android.media.TEVJNI;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;

/**
 * Adds a record to a JPEG, lists the records, reads the record back at the
 * position the library reports, and deletes it again, leaving the file as
 * it was. Usage: java -cp TEV.jar:. QuickStart photo.jpg
 */
public final class QuickStart {
    public static void main(String[] args) throws IOException {
        String photo = args[0];
        String key = "note";
        byte[] data = "taken on the ridge at dawn".getBytes(StandardCharsets.UTF_8);
        // Key lengths are counted in the bytes the binding receives: modified UTF-8.
        int keyLength = modifiedUtf8Length(key);

        // Type 1 is one of the caller's own types; option 1 replaces a record of the same name.
        if (TEVJNI.addTEVData(photo, key, keyLength, null, 0, data, data.length, 1, 1) != 1) {
            throw new IOException("could not add the record");
        }
        System.out.println("records: " + Arrays.toString(TEVJNI.listKeyNames(photo)));

        // The record's bytes lie at {position, length} in the file itself.
        long[] where = TEVJNI.getTEVDataPosition(photo, key);
        byte[] back = new byte[(int) where[1]];
        try (RandomAccessFile file = new RandomAccessFile(photo, "r")) {
            file.seek(where[0]);
            file.readFully(back);
        }
        System.out.println(key + " at " + where[0] + ": " + new String(back, StandardCharsets.UTF_8));
        if (!Arrays.equals(back, data)) throw new IOException("read back other bytes");

        if (TEVJNI.deleteTEVData(photo, key, keyLength) != 1) throw new IOException("could not delete");
        System.out.println("records after delete: " + TEVJNI.getTEVDataCount(photo));
    }

    /**
     * The length of s in modified UTF-8, the form the native side gets a
     * Java string in: one byte for U+0001 to U+007F, two for U+0000 and up
     * to U+07FF, three for every other char, so six for a character outside
     * the Basic Multilingual Plane (two surrogates), where standard UTF-8
     * ({@code getBytes(UTF_8)}) counts four.
     */
    static int modifiedUtf8Length(String s) {
        int length = 0;
        for (int i = 0; i < s.length(); i++) {
            char c = s.charAt(i);
            length += (c >= 0x0001 && c <= 0x007F) ? 1 : (c <= 0x07FF ? 2 : 3);
        }
        return length;
    }
}
