#!/usr/bin/env python3
"""Crash harness, library mode: the entry points an app reaches through the
Java binding, called directly by lib_driver on a JPEG with three records
(300 KB, 5 KB, 700 KB), a boxed MP4 with the same records and a photo with
two sounds; each edit run as in crash_harness.py, killed before the k-th
write or truncate of the file, or that call failing with ENOSPC or EIO. The
file left is judged three times:

  killed   as the fault left it (kills only): the records are the old or
           the new ones, some are missing, or none reads
  next     after the library's next call (checkTEVInFile)
  recover  after recoverTEVFile

A run breaks a rule when, after the next call, the records are not exactly
the old or the new ones, an entry holds wrong bytes, the media changed, or
the edit reported success with anything but the new records. Then the
same-file case: threads and processes adding records to one photo at once.

Usage: library_harness.py DRIVER SHIM MEDIA_DIR [--table FILE] [--before]
--before judges only the killed state and breaks no rule (for a library
without the journal). Exit status 0 when no run breaks a rule.
"""
import os
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from harness_common import Row, arguments, blob, prepared, read_container, report, run, slurp  # noqa: E402

MODES = ["kill", "enospc", "eio"]
FIELDS = ["points", "runs", "killed: old/new", "killed: missing", "killed: none",
          "next: old/new", "next: missing", "next: none", "wrong bytes", "media", "false ok",
          "recover: old/new"]


def classify(status, records, old, new):
    """No container holds no records, a damaged one none that can be read."""
    if status == "damaged":
        return "none"
    if records in (old, new):
        return "old/new"
    return "missing" if records else "none"


def run_edit(driver, shim, work, label, start, media_len, args, new_media, before_only):
    """NEW_MEDIA: what a replacement of the media puts in front of the records."""
    row = Row(label, FIELDS, driver, shim, work, start, args)
    before = slurp(start)
    old = sorted(read_container(before, media_len)[1])
    medias = [before[:media_len]] + ([new_media] if new_media is not None else [])
    new = old

    def look():
        """(status, sorted records, whether the media is an allowed one): the
        target read behind whichever allowed media it starts with, an old/new
        reading preferred; behind the old media's length when none is."""
        buf = slurp(row.target)
        seen = [(s, sorted(r), True) for s, r in (read_container(buf, len(m)) for m in medias if buf[:len(m)] == m)]
        seen.sort(key=lambda reading: classify(reading[0], reading[1], old, new) != "old/new")
        status, records = read_container(buf, media_len)
        return seen[0] if seen else (status, sorted(records), False)

    if row.clean() is None:
        return row
    new = look()[1]
    known = set(old + new)  # each entry must hold one of these records

    def judge(what, mode, rc):
        if mode == "kill":
            status, records, _ = look()
            row.counts["killed: " + classify(status, records, old, new)] += 1
        if before_only:
            return
        if rc is None or (rc < 0 and mode != "kill"):
            row.fail(None, what + f": the driver died ({rc})")
        run(driver, ["read", row.target])
        status, records, media_kept = look()
        state = classify(status, records, old, new)
        row.counts["next: " + state] += 1
        if state != "old/new":
            row.fail(None, what + f": after the next call the records are {state}")
        if any(r not in known for r in records):
            row.fail("wrong bytes", what + ": an entry holds wrong bytes")
        if not media_kept:
            row.fail("media", what + ": the media changed")
        # deleteFastAllTEVData answers 1 whatever its single cut does, as
        # documented; a failed cut leaves the old records and that answer.
        cut_answer_ignored = label.startswith("deleteFastAllTEVData") and mode != "kill"
        if rc == 0 and records != new and not cut_answer_ignored:
            row.fail("false ok", what + ": success reported without the new records")
        run(driver, ["recover", row.target])
        if classify(*look()[:2], old, new) == "old/new":
            row.counts["recover: old/new"] += 1
        else:
            row.fail(None, what + ": not old or new after recoverTEVFile")

    row.faults(["kill"] if before_only else MODES, judge)
    return row


def make_files(driver, media_dir, work):
    big, mid = blob(work, "a.bin", 300 << 10, 1), blob(work, "b.bin", 5 << 10, 2)
    large, small = blob(work, "c.bin", 700 << 10, 3), blob(work, "d.bin", 4000, 4)
    sound = blob(work, "s.bin", 20000, 5)
    three = [["save", "FILE", "rec_a", big], ["save", "FILE", "rec_b", mid], ["save", "FILE", "rec_c", large]]
    edits = []
    for kind in ("jpg", "mp4"):
        start, media_len = prepared(driver, media_dir, work, kind, three)
        plain, _ = prepared(driver, media_dir, work, kind, [])
        cases = [
            ("saveTEVDataToFile, new name", start, ["save", "FILE", "rec_d", small]),
            ("saveTEVDataToFd, new name", start, ["savefd", "FILE", "rec_d", small]),
            ("deleteTEVDataFromFile, first record", start, ["delete", "FILE", "rec_a"]),
            ("deleteTEVDataFromFile, middle record", start, ["delete", "FILE", "rec_b"]),
            ("delete by descriptor, last record", start, ["deletefd", "FILE", "rec_c"]),
            ("saveTEVDataToFile, replace (update 1)", start, ["save", "FILE", "rec_a", small, "1"]),
            ("deleteTEVMultiDataFromFilebyName, first and last", start, ["deletemulti", "FILE", "rec_a", "rec_c"]),
            ("deleteAllDataFromFile", start, ["clear", "FILE"]),
            ("deleteAllDataFromFd", start, ["clearfd", "FILE"]),
            ("deleteFastAllTEVData", start, ["fastclear", "FILE"]),
            ("copyTEVData into a plain file", plain, ["copy", start, "FILE"]),
            ("copyTEVDataFd into a plain file", plain, ["copyfd", start, "FILE"]),
        ]
        if kind == "jpg":
            sounded, _ = prepared(driver, media_dir, work, kind,
                                  [["sound", "FILE", "memo1", sound], ["sound", "FILE", "memo2", sound]])
            cases += [
                ("saveVoxaToImageFile, third sound", sounded, ["sound", "FILE", "memo3", sound]),
                ("deleteVoxaFromImageFile", sounded, ["sounddel", "FILE", "memo1"]),
                ("deleteAllVoxaFromImageFile", sounded, ["soundclear", "FILE"]),
            ]
        edits += [(f"{label} ({kind})", path, media_len, args, None) for label, path, args in cases]
        # The media in front replaced, longer and shorter than before.
        sample = slurp(os.path.join(media_dir, "sample." + kind))
        for how, bytes_ in (("longer", sample + bytes(3000)), ("shorter", sample[:-3000])):
            path = os.path.join(work, f"cover-{how}.{kind}")
            with open(path, "wb") as f:
                f.write(bytes_)
            edits.append((f"FastChangeCoverData, {how} media ({kind})", start, media_len,
                          ["cover", "FILE", path], bytes_))
    return edits


def main():
    (driver, shim, media_dir), table, flags = arguments(__doc__)
    before_only = "--before" in flags
    crowd_lines, crowd_failures = [], []
    with tempfile.TemporaryDirectory(prefix="tev-libcrash-") as work:
        files = os.path.join(work, "files")
        os.mkdir(files)
        rows = [run_edit(driver, shim, work, *edit, before_only) for edit in make_files(driver, media_dir, files)]
        for rounds in range(0 if before_only else 4):
            for threads, procs in ((2, 1), (1, 2)):
                photo = os.path.join(files, "crowd.jpg")
                shutil.copyfile(os.path.join(media_dir, "sample.jpg"), photo)
                out = subprocess.run([driver, "crowd", photo, str(threads), str(procs), "40"],
                                     capture_output=True, text=True, timeout=300)
                line = f"- round {rounds + 1}, {threads} threads x {procs} processes: {out.stdout.strip()}"
                crowd_lines.append(line)
                if out.returncode != 0:
                    crowd_failures.append("same-file case: " + line)
    broken = report(rows, FIELDS[:5] if before_only else FIELDS, table, [""] + crowd_lines, crowd_failures)
    return 1 if broken and not before_only else 0


if __name__ == "__main__":
    sys.exit(main())
