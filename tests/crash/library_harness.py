#!/usr/bin/env python3
"""Crash harness, library mode: the entry points an app reaches through the
Java binding, called directly by lib_driver on a JPEG with three records
(300 KB, 5 KB, 700 KB), a boxed MP4 with the same records and a photo with
two sounds. Each edit runs once without faults, then once per write point k
and fault (the process killed before its k-th write or truncate of the file,
or that call failing with ENOSPC or EIO). The file left is judged with the
container reader of crash_harness.py three times:

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
from crash_harness import read_container  # noqa: E402

MODES = ["kill", "enospc", "eio"]


def run(driver, args, env=None):
    try:
        return subprocess.run([driver] + args, env=env, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=60).returncode
    except subprocess.TimeoutExpired:
        return None


def records_of(path, media_len):
    with open(path, "rb") as f:
        buf = f.read()
    status, records, _ = read_container(buf, media_len)
    return buf, status, sorted(records)


def classify(status, records, old, new):
    """A file without a container holds no records; a damaged one none
    that can be read."""
    if status == "damaged":
        return "none"
    if records in (old, new):
        return "old/new"
    return "missing" if records else "none"


class Row:
    FIELDS = ["points", "runs", "killed: old/new", "killed: missing", "killed: none",
              "next: old/new", "next: missing", "next: none", "wrong bytes", "media", "false ok",
              "recover: old/new"]

    def __init__(self, label):
        self.label = label
        self.counts = {f: 0 for f in self.FIELDS}
        self.failures = []


def run_edit(driver, shim, work, label, start, media_len, args, before_only, new_media=None):
    """`new_media`: the media a replacement of the media puts in front of the
    records; the file then holds the old or the new media, whole."""
    row = Row(label)
    target = os.path.join(work, "edited" + os.path.splitext(start)[1])
    count_file = os.path.join(work, "count")
    argv = [target if a == "FILE" else a for a in args]
    shutil.copyfile(start, target)
    env = dict(os.environ, LD_PRELOAD=shim, TEV_FAULT_PATH=target, TEV_FAULT_AT="0",
               TEV_FAULT_COUNT_OUT=count_file)
    if run(driver, argv, env) != 0:
        row.failures.append(label + ": the uninterrupted edit failed")
        return row
    before_buf, _, old = records_of(start, media_len)
    media = before_buf[:media_len]
    medias = [media] + ([new_media] if new_media is not None else [])

    def look(path):
        """The file read behind whichever allowed media it starts with, the
        old/new reading preferred; the old media's length when none."""
        seen = None
        for m in medias:
            buf, status, records = records_of(path, len(m))
            if buf[:len(m)] == m:
                if classify(status, records, old, new_seen[0]) == "old/new":
                    return buf, status, records, True
                seen = seen or (buf, status, records, True)
        if seen:
            return seen
        buf, status, records = records_of(path, media_len)
        return buf, status, records, False

    new_seen = [old]
    _, _, new, _ = look(target)
    new_seen[0] = new
    with open(count_file) as f:
        row.counts["points"] = int(f.read())
    known = {}
    for rec in old + new:
        known.setdefault(rec[0], []).append(rec)

    for k in range(1, row.counts["points"] + 1):
        for mode in (["kill"] if before_only else MODES):
            what = f"{label} {mode}@{k}"
            shutil.copyfile(start, target)
            env = dict(os.environ, LD_PRELOAD=shim, TEV_FAULT_PATH=target, TEV_FAULT_AT=str(k),
                       TEV_FAULT_MODE=mode)
            rc = run(driver, argv, env)
            row.counts["runs"] += 1
            if mode == "kill":
                _, status, records, _ = look(target)
                row.counts["killed: " + classify(status, records, old, new)] += 1
            if before_only:
                continue
            if rc is None or (rc < 0 and mode != "kill"):
                row.failures.append(what + f": the driver died ({rc})")
            run(driver, ["read", target])
            buf, status, records, media_kept = look(target)
            state = classify(status, records, old, new)
            row.counts["next: " + state] += 1
            if state != "old/new":
                row.failures.append(what + f": after the next call the records are {state}")
            if any(r not in known.get(r[0], []) for r in records):
                row.counts["wrong bytes"] += 1
                row.failures.append(what + ": an entry holds wrong bytes")
            if not media_kept:
                row.counts["media"] += 1
                row.failures.append(what + ": the media changed")
            # deleteFastAllTEVData answers 1 whatever its single cut does, as
            # documented; a failed cut leaves the old records and that answer.
            cut_answer_ignored = label.startswith("deleteFastAllTEVData") and mode != "kill"
            if rc == 0 and records != new and not cut_answer_ignored:
                row.counts["false ok"] += 1
                row.failures.append(what + ": success reported without the new records")
            run(driver, ["recover", target])
            _, status, records, _ = look(target)
            if classify(status, records, old, new) == "old/new":
                row.counts["recover: old/new"] += 1
            else:
                row.failures.append(what + ": not old or new after recoverTEVFile")
    return row


def make_files(driver, media_dir, work):
    def blob(name, size, seed):
        path = os.path.join(work, name)
        with open(path, "wb") as f:
            f.write(bytes((i * 131 + seed * 7 + (i >> 8)) & 0xFF for i in range(size)))
        return path

    big, mid, large = blob("a.bin", 300 << 10, 1), blob("b.bin", 5 << 10, 2), blob("c.bin", 700 << 10, 3)
    small, sound = blob("d.bin", 4000, 4), blob("s.bin", 20000, 5)

    def prepared(kind, steps):
        src = os.path.join(media_dir, "sample." + kind)
        path = os.path.join(work, f"start-{len(os.listdir(work))}.{kind}")
        shutil.copyfile(src, path)
        for step in steps:
            if run(driver, [path if a == "FILE" else a for a in step]) != 0:
                raise RuntimeError(f"preparing {path}: {step} failed")
        return path, os.path.getsize(src)

    three = [["save", "FILE", "rec_a", big], ["save", "FILE", "rec_b", mid], ["save", "FILE", "rec_c", large]]
    edits = []
    for kind in ("jpg", "mp4"):
        start, media_len = prepared(kind, three)
        plain, _ = prepared(kind, [])
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
            sounded, _ = prepared(kind, [["sound", "FILE", "memo1", sound], ["sound", "FILE", "memo2", sound]])
            cases += [
                ("saveVoxaToImageFile, third sound", sounded, ["sound", "FILE", "memo3", sound]),
                ("deleteVoxaFromImageFile", sounded, ["sounddel", "FILE", "memo1"]),
                ("deleteAllVoxaFromImageFile", sounded, ["soundclear", "FILE"]),
            ]
        edits += [(f"{label} ({kind})", path, media_len, args, None) for label, path, args in cases]
        # The media in front replaced, longer and shorter than before.
        with open(os.path.join(media_dir, "sample." + kind), "rb") as f:
            sample = f.read()
        for how, bytes_ in (("longer", sample + bytes(3000)), ("shorter", sample[:-3000])):
            path = os.path.join(work, f"cover-{how}.{kind}")
            with open(path, "wb") as f:
                f.write(bytes_)
            edits.append((f"FastChangeCoverData, {how} media ({kind})", start, media_len,
                          ["cover", "FILE", path], bytes_))
    return edits


def main():
    if len(sys.argv) < 4:
        print(__doc__)
        return 2
    driver, shim, media_dir = (os.path.abspath(a) for a in sys.argv[1:4])
    rest = sys.argv[4:]
    table = rest[rest.index("--table") + 1] if "--table" in rest else None
    before_only = "--before" in rest
    with tempfile.TemporaryDirectory(prefix="tev-libcrash-") as work:
        files = os.path.join(work, "files")
        os.mkdir(files)
        rows = [run_edit(driver, shim, work, label, start, media_len, args, before_only, new_media)
                for label, start, media_len, args, new_media in make_files(driver, media_dir, files)]
        crowd_lines = []
        failures = [what for row in rows for what in row.failures]
        if not before_only:
            for rounds in range(4):
                for threads, procs in ((2, 1), (1, 2)):
                    photo = os.path.join(files, "crowd.jpg")
                    shutil.copyfile(os.path.join(media_dir, "sample.jpg"), photo)
                    out = subprocess.run([driver, "crowd", photo, str(threads), str(procs), "40"],
                                         capture_output=True, text=True, timeout=300)
                    line = f"- round {rounds + 1}, {threads} threads x {procs} processes: {out.stdout.strip()}"
                    crowd_lines.append(line)
                    if out.returncode != 0:
                        failures.append("same-file case: " + line)

    fields = Row.FIELDS[:5] if before_only else Row.FIELDS
    lines = ["| edit | " + " | ".join(fields) + " |", "|" + "---|" * (len(fields) + 1)]
    totals = {f: 0 for f in fields}
    for row in rows:
        lines.append(f"| {row.label} | " + " | ".join(str(row.counts[f]) for f in fields) + " |")
        for f in fields:
            totals[f] += row.counts[f]
    lines.append("| all | " + " | ".join(str(totals[f]) for f in fields) + " |")
    lines += [""] + crowd_lines
    print("\n".join(lines))
    if table:
        with open(table, "w") as f:
            f.write("\n".join(lines) + "\n")
    for what in failures[:40]:
        print("FAIL", what)
    print(f"{totals['runs']} runs, {len(failures)} broken rules")
    return 1 if failures and not before_only else 0


if __name__ == "__main__":
    sys.exit(main())
