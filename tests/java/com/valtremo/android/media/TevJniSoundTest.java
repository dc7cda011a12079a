package com.valtremo.android.media;

import static com.valtremo.android.media.Media.container;
import static com.valtremo.android.media.Media.imageWithSound;
import static com.valtremo.android.media.Media.imageWithSoundAndContainer;
import static com.valtremo.android.media.Media.jpeg;
import static com.valtremo.android.media.Media.pattern;
import static com.valtremo.android.media.Media.read;
import static com.valtremo.android.media.Media.readAt;
import static com.valtremo.android.media.Media.write;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.valtremo.android.media.Media.Rec;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The sound methods of TEVJNI on images of every signature: plain, container, Voxa block, both. */
class TevJniSoundTest {
    private static final int SOUND_TYPE = 256;

    @TempDir Path dir;

    private final byte[] media = jpeg(280);
    private final byte[] oldSound = pattern(90, 1);
    private final byte[] memo = pattern(150, 2);
    private final Rec record = new Rec(9, "keep", null, pattern(25, 3));

    private Path image(int signature) throws Exception {
        byte[] bytes = switch (signature) {
            case 1 -> media;
            case 2 -> container(media, record);
            case 3 -> imageWithSound(media, oldSound);
            default -> imageWithSoundAndContainer(media, oldSound, record);
        };
        return write(dir, "image" + signature + ".jpg", bytes);
    }

    private static List<String> sounds(Path file) {
        String[] names = TEVJNI.listKeyNamesByDataType(file.toString(), SOUND_TYPE);
        return names == null ? List.of() : Arrays.asList(names);
    }

    @ParameterizedTest
    @ValueSource(ints = {1, 2, 3, 4})
    void namedSoundsAreSavedListedAndDeleted(int signature) throws Exception {
        Path file = image(signature);
        String path = file.toString();
        List<String> before = new ArrayList<>(sounds(file));
        if (signature >= 3) before = new ArrayList<>(List.of("EchoFrame_000"));

        assertEquals(1, TEVJNI.saveAudioJPEG(path, memo, memo.length, "memo", 4));
        List<String> expected = new ArrayList<>(before);
        expected.add("memo");
        assertEquals(expected, sounds(file));
        assertArrayEquals(memo, readAt(file, TEVJNI.getTEVDataPosition(path, "memo")));
        assertTrue(TEVJNI.isTEVFile(path));
        if (signature == 2 || signature == 4) {
            assertArrayEquals(record.data(), readAt(file, TEVJNI.getTEVDataPosition(path, "keep")));
        }
        if (signature >= 3) {
            assertArrayEquals(oldSound, readAt(file, TEVJNI.getTEVDataPosition(path, "EchoFrame_000")));
        }

        assertEquals(1, TEVJNI.deleteVoxaData(path, "memo"));
        assertEquals(before, sounds(file));
        assertNull(TEVJNI.getTEVDataPosition(path, "memo"));

        assertEquals(1, TEVJNI.saveAudioJPEG(path, memo, memo.length, "memo", 4));
        assertEquals(1, TEVJNI.clearVoxaData(path));
        assertEquals(List.of(), sounds(file));
        if (signature == 1) assertArrayEquals(media, read(file));
    }

    @Test
    void refusedArgumentsLeaveTheImageAlone() throws Exception {
        Path file = image(1);
        String path = file.toString();
        assertEquals(0, TEVJNI.saveAudioJPEG(path, memo, memo.length + 1, "memo", 4));
        assertEquals(0, TEVJNI.saveAudioJPEG(path, memo, memo.length, "memo", 5));
        assertEquals(0, TEVJNI.saveAudioJPEG(path, null, 10, "memo", 4));
        assertEquals(0, TEVJNI.saveAudioJPEG(path, memo, memo.length, null, 4));
        assertEquals(0, TEVJNI.saveAudioJPEG(null, memo, memo.length, "memo", 4));
        assertEquals(0, TEVJNI.deleteVoxaData(path, null));
        assertEquals(0, TEVJNI.deleteVoxaData(null, "memo"));
        assertEquals(0, TEVJNI.clearVoxaData(null));
        assertArrayEquals(media, read(file));
    }
}
