#!/usr/bin/env python3
"""Crash and fault harness for the edits of the `tev` tool.

Every edit runs once without faults (the "new" file), then once per write
point and fault mode with the fault shim preloaded: killed before the k-th
write-family call on the edited file or halfway through it, or that call
failing with ENOSPC or EIO, or writing half its bytes. The file left is read
by the harnesses' own container reader (harness_common.py) and judged:

  media       the bytes in front of the container are the original ones
  old/new     the file is byte for byte the file before or after the edit
  readable    otherwise, its directory reads and every entry holds the right
              record (the one of that name before or after the edit)
  unreadable  otherwise: the container does not read (recognisably damaged)
  silent      an entry names bytes that are not that record's: never allowed
  false ok    the tool exited 0 but the file is not the edited one
  crash/hang  the tool died of anything but the harness's kill, or hung
  repaired    a file that is neither old nor new is brought back to one of
              them, byte for byte, by `tev repair`
  lost        `tev repair` could not do that
The library's entry points, without undo files, are library_harness.py's.

Usage: crash_harness.py TEV SHIM MEDIA_DIR [--table FILE]
Exit status 0 when no run breaks a rule.
"""
import os
import struct
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from harness_common import Row, arguments, blob, prepared, read_container, report, run, slurp  # noqa: E402

MODES = ["kill", "killhalf", "enospc", "eio", "short"]
FIELDS = ["points", "runs", "media", "old/new", "readable", "unreadable", "repaired",
          "silent", "false ok", "crash/hang", "lost"]


def run_edit(tev, shim, work, label, start, media_len, args):
    row = Row(label, FIELDS, tev, shim, work, start, args)
    before = slurp(start)
    media = before[:media_len]
    after = row.clean()
    if after is None:
        return row
    run(tev, ["repair", row.target])
    if slurp(row.target) != after:
        row.fail("lost", label + ": tev repair changed a healthy file")
    known = set(read_container(before, media_len)[1] + read_container(after, media_len)[1])

    def judge(what, mode, rc):
        buf = slurp(row.target)
        if buf[:media_len] != media:
            return row.fail("media", what + ": media bytes changed")
        if rc is None:
            return row.fail("crash/hang", what + ": hung")
        if rc < 0 and not mode.startswith("kill"):
            return row.fail("crash/hang", what + f": died of signal {-rc}")
        row.counts["media"] += 1
        if rc == 0 and buf != after:
            return row.fail("false ok", what + ": exit 0 but the file is not the edited one")
        if buf in (before, after):
            row.counts["old/new"] += 1
            return None
        status, records = read_container(buf, media_len)
        wrong = [r for r in records if r not in known]
        if wrong:
            return row.fail("silent", what + f": entry {wrong[0][0]!r} holds the wrong bytes")
        row.counts["readable" if status == "ok" else "unreadable"] += 1
        run(tev, ["repair", row.target])
        if slurp(row.target) in (before, after):
            row.counts["repaired"] += 1
        else:
            row.fail("lost", what + ": tev repair did not restore the old or the new file")

    row.faults(MODES, judge)
    return row


def make_files(tev, media_dir, work):
    small, mid = blob(work, "small.bin", 300, 1), blob(work, "mid.bin", 5000, 2)
    large, sub = blob(work, "large.bin", 3 << 20, 3), blob(work, "sub.bin", 40, 4)
    sound = blob(work, "sound.bin", 2000, 5)
    three = [["add", "FILE", "rec_a", "--data-file", small],
             ["add", "FILE", "rec_b", "--data-file", mid, "--type", "7", "--sub-info-file", sub],
             ["add", "FILE", "rec_c", "--data-file", small, "--type", "3"]]
    edits = []
    for kind in ("jpg", "mp4"):
        start, media_len = prepared(tev, media_dir, work, kind, three)
        plain, _ = prepared(tev, media_dir, work, kind, [])
        cases = [
            ("add small", start, ["add", "FILE", "rec_d", "--data-file", small]),
            ("add large", start, ["add", "FILE", "rec_d", "--data-file", large]),
            ("add first", plain, ["add", "FILE", "rec_a", "--data-file", small]),
            ("replace first", start, ["add", "FILE", "rec_a", "--data-file", mid, "--replace"]),
            ("replace middle", start, ["add", "FILE", "rec_b", "--data-file", small, "--replace"]),
            ("replace last", start, ["add", "FILE", "rec_c", "--data-file", mid, "--replace"]),
            ("delete first", start, ["delete", "FILE", "rec_a"]),
            ("delete middle", start, ["delete", "FILE", "rec_b"]),
            ("delete last", start, ["delete", "FILE", "rec_c"]),
            ("delete several", start, ["delete", "FILE", "rec_a", "rec_c"]),
            ("clear", start, ["clear", "FILE"]),
            ("copy into", plain, ["copy", start, "FILE"]),
        ]
        if kind == "jpg":
            sounded, _ = prepared(tev, media_dir, work, kind,
                                  three + [["sound", "add", "FILE", "memo", "--data-file", sound]])
            bare = bare_sound(media_dir, work, sound)
            cases += [
                ("sound add", start, ["sound", "add", "FILE", "memo", "--data-file", sound]),
                ("sound delete", sounded, ["sound", "delete", "FILE", "memo"]),
                ("sound clear", sounded, ["sound", "clear", "FILE"]),
                ("sound convert", bare, ["sound", "convert", "FILE"]),
                ("add to a bare sound", bare, ["add", "FILE", "rec_d", "--data-file", small]),
                ("copy by type", plain, ["copy", start, "FILE", "--type", "7"]),
                ("copy by name", plain, ["copy", start, "FILE", "--name", "rec_c"]),
                ("copy raw", plain, ["copy", start, "FILE", "--raw"]),
            ]
        edits += [(f"{label} ({kind})", path, media_len, args) for label, path, args in cases]
    return edits


def bare_sound(media_dir, work, sound):
    """The sample JPEG, a sound, "VOXA", version 107, one sound (start, end),
    header length 20 and "VOXABS": a sound in the older layout."""
    image, audio = slurp(os.path.join(media_dir, "sample.jpg")), slurp(sound)
    with open(os.path.join(work, "bare.jpg"), "wb") as f:
        f.write(image + audio + b"VOXA" + struct.pack("<5I", 107, 1, len(image), len(image) + len(audio), 20) + b"VOXABS")
    return f.name


def main():
    (tev, shim, media_dir), table, _ = arguments(__doc__)
    with tempfile.TemporaryDirectory(prefix="tev-crash-") as work:
        files = os.path.join(work, "files")
        os.mkdir(files)
        rows = [run_edit(tev, shim, work, *edit) for edit in make_files(tev, media_dir, files)]
    return 1 if report(rows, FIELDS, table) else 0


if __name__ == "__main__":
    sys.exit(main())
