import com.valtremo.android.media.TevFile;
import com.valtremo.android.media.TevRecord;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;

/**
 * Adds a record and a sound to a JPEG, lists them, reads them back and
 * deletes them again, leaving the file as it was.
 * Usage: java -Djava.library.path=DIR -cp TEV.jar:. QuickStart photo.jpg
 */
public final class QuickStart {
    // "mémo 🎤": names are any Java string without U+0000, up to 1024 bytes.
    private static final String NAME = "m\u00e9mo \uD83C\uDFA4";

    public static void main(String[] args) throws IOException {
        byte[] note = "taken on the ridge at dawn".getBytes(StandardCharsets.UTF_8);
        byte[] sound = new byte[] {0x23, 0x21, 0x41, 0x4D, 0x52, 0x0A, 0x3C, 0x00};

        try (TevFile photo = new TevFile(args[0])) {
            photo.put(NAME, note);           // adds, or replaces a record of that name
            photo.putSound("voice", sound);
            for (TevRecord r : photo.records()) {
                System.out.println(r.name() + ": type " + r.type() + ", " + r.length() + " bytes at " + r.position());
            }
            System.out.println("sounds: " + photo.sounds());

            byte[] back = photo.read(NAME);
            System.out.println(new String(back, StandardCharsets.UTF_8));
            if (!Arrays.equals(back, note) || !Arrays.equals(photo.read("voice"), sound)) {
                throw new IOException("read back other bytes");
            }

            photo.deleteSound("voice");
            photo.delete(NAME);
            System.out.println("records after delete: " + photo.records().size());
        }
    }
}
