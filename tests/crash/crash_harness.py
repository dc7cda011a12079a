#!/usr/bin/env python3
"""Crash and fault harness for the edits of the `tev` tool.

Every edit runs once without faults (the "new" file) and then once per write
point and fault mode with the fault shim preloaded: the process is killed
before the k-th write-family call on the edited file or halfway through it,
or that call fails with ENOSPC or EIO, or writes half its bytes. The file
left behind is read by the container reader below, written for this harness
alone, and judged:

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
A file left by a killed library edit ends in the library's journal and
reads as one without a container until the next call; library_harness.py
checks what that next call sees.

Usage: crash_harness.py TEV SHIM MEDIA_DIR [--table FILE]
Exit status 0 when no run breaks a rule.
"""
import os
import shutil
import struct
import subprocess
import sys
import tempfile

MODES = ["kill", "killhalf", "enospc", "eio", "short"]


# --- an independent reader of the container ----------------------------------

def u32(buf, at):
    return struct.unpack_from("<I", buf, at)[0]


def read_container(buf, media_len):
    """Returns (status, records, box_ok): status 'none' (no container),
    'damaged', or 'ok' with records [(name, type, sub, data)]."""
    size = len(buf)
    tail = 8
    if size >= 10 and buf[-6:] == b"VOXABS":
        tail = u32(buf, size - 10) + 18
        if size < tail + 4 or buf[size - tail + 4:size - tail + 8] != b"TEVT":
            return "none", [], True
    if size < tail or buf[size - tail + 4:size - tail + 8] != b"TEVT":
        return ("none" if tail == 8 and b"TEVT" not in buf[-64:] else "damaged"), [], True
    ktho = u32(buf, size - tail)
    head = size - tail - ktho
    if ktho < 13 or head < media_len or buf[head:head + 4] != b"TEVH":
        return "damaged", [], True
    count = u32(buf, head + 8)
    if count == 0 or ktho != 12 + 12 * count:
        return "damaged", [], True
    records = []
    first = None
    for i in range(count):
        meta, offset, length = struct.unpack_from("<III", buf, head + 12 + 12 * i)
        start = head - offset
        if offset == 0 or start < media_len or start + length > head or length < 9:
            return "damaged", [], True
        first = start if first is None else first
        name_len = u32(buf, start + 4)
        has_sub = meta & 0x8000
        header = 12 if has_sub else 8
        if not 1 <= name_len <= 1024:
            return "damaged", [], True
        sub_len = u32(buf, start + 8) if has_sub else 0
        if header + name_len + sub_len > length or (has_sub and sub_len == 0):
            return "damaged", [], True
        name = buf[start + header:start + header + name_len]
        sub = buf[start + header + name_len:start + header + name_len + sub_len]
        data = buf[start + header + name_len + sub_len:start + length]
        records.append((name, meta >> 16, sub, data))
    box_ok = True
    if first is not None and first >= 8 and buf[first - 4:first] == b"tevd":
        box_ok = struct.unpack_from(">I", buf, first - 8)[0] == size - (first - 8)
    return "ok", records, box_ok


# --- runs ---------------------------------------------------------------------

class Edit:
    def __init__(self, label, start, args, extra_files=()):
        self.label = label      # row name
        self.start = start      # starting file (path)
        self.args = args        # tev arguments, FILE standing for the edited file
        self.extra = extra_files


def tev_run(tev, args, env=None, timeout=30):
    return subprocess.run([tev] + args, env=env, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, timeout=timeout)


def fresh_copy(src, target):
    """The starting file at `target`, with no undo file of an earlier run."""
    for leftover in (target + ".tev-undo", target + ".tev-undo.tmp"):
        if os.path.exists(leftover):
            os.unlink(leftover)
    shutil.copyfile(src, target)


def edit_args(edit, path):
    return [path if a == "FILE" else a for a in edit.args]


class Row:
    FIELDS = ["points", "runs", "media", "old/new", "readable", "unreadable", "repaired",
              "silent", "false ok", "crash/hang", "lost"]

    def __init__(self, label):
        self.label = label
        self.counts = {f: 0 for f in self.FIELDS}
        self.failures = []

    def fail(self, field, what):
        self.counts[field] += 1
        self.failures.append(what)


def judge(row, what, before, after, media, result, rc, killed, tev):
    """Judges the file `result` left by one run (or a run's exit status)."""
    with open(result, "rb") as f:
        buf = f.read()
    row.counts["runs"] += 1
    if buf[:len(media)] != media:
        row.fail("media", what + ": media bytes changed")
        return
    if rc is None:
        row.fail("crash/hang", what + ": hung")
        return
    if rc < 0 and not killed:
        row.fail("crash/hang", what + f": died of signal {-rc}")
        return
    row.counts["media"] += 1
    if rc == 0 and buf != after:
        row.fail("false ok", what + ": exit 0 but the file is not the edited one")
        return
    if buf in (before, after):
        row.counts["old/new"] += 1
        return
    old = read_container(before, len(media))[1]
    new = read_container(after, len(media))[1]
    known = {}
    for rec in old + new:
        known.setdefault(rec[0], []).append(rec)
    status, records, _ = read_container(buf, len(media))
    if status == "ok":
        wrong = [r for r in records if r not in known.get(r[0], [])]
        if wrong:
            row.fail("silent", what + f": entry {wrong[0][0]!r} holds the wrong bytes")
            return
        row.counts["readable"] += 1
    else:
        row.counts["unreadable"] += 1
    tev_run(tev, ["repair", result])
    with open(result, "rb") as f:
        repaired = f.read()
    if repaired in (before, after):
        row.counts["repaired"] += 1
    else:
        row.fail("lost", what + ": tev repair did not restore the old or the new file")


def run_edit(tev, shim, work, edit):
    row = Row(edit.label)
    with open(edit.start, "rb") as f:
        before = f.read()
    media = before[:edit.media_len]
    target = os.path.join(work, "edited" + os.path.splitext(edit.start)[1])

    fresh_copy(edit.start, target)
    count_file = os.path.join(work, "count")
    env = dict(os.environ, LD_PRELOAD=shim, TEV_FAULT_PATH=target, TEV_FAULT_AT="0",
               TEV_FAULT_COUNT_OUT=count_file)
    if tev_run(tev, edit_args(edit, target), env).returncode != 0:
        row.fail("false ok", edit.label + ": the uninterrupted edit failed")
        return row
    with open(target, "rb") as f:
        after = f.read()
    with open(count_file) as f:
        points = int(f.read())
    row.counts["points"] = points
    # Repair leaves a healthy file alone.
    tev_run(tev, ["repair", target])
    with open(target, "rb") as f:
        if f.read() != after:
            row.fail("lost", edit.label + ": tev repair changed a healthy file")

    for k in range(1, points + 1):
        for mode in MODES:
            fresh_copy(edit.start, target)
            env = dict(os.environ, LD_PRELOAD=shim, TEV_FAULT_PATH=target,
                       TEV_FAULT_AT=str(k), TEV_FAULT_MODE=mode)
            try:
                rc = tev_run(tev, edit_args(edit, target), env).returncode
            except subprocess.TimeoutExpired:
                rc = None
            judge(row, f"{edit.label} {mode}@{k}", before, after, media, target, rc,
                  mode.startswith("kill"), tev)
    return row


# --- starting files -------------------------------------------------------------

def make_files(tev, media_dir, work):
    def blob(name, size, seed):
        path = os.path.join(work, name)
        data = bytes((i * 131 + seed * 7 + (i >> 8)) & 0xFF for i in range(size))
        with open(path, "wb") as f:
            f.write(data)
        return path

    small = blob("small.bin", 300, 1)
    mid = blob("mid.bin", 5000, 2)
    large = blob("large.bin", 3 << 20, 3)
    sub = blob("sub.bin", 40, 4)
    sound = blob("sound.bin", 2000, 5)

    def prepared(kind, records):
        src = os.path.join(media_dir, "sample." + kind)
        path = os.path.join(work, f"start-{len(os.listdir(work))}.{kind}")
        shutil.copyfile(src, path)
        for args in records:
            subprocess.run([tev] + [path if a == "FILE" else a for a in args], check=True,
                           stdout=subprocess.DEVNULL)
        return path, os.path.getsize(src)

    three = [["add", "FILE", "rec_a", "--data-file", small],
             ["add", "FILE", "rec_b", "--data-file", mid, "--type", "7", "--sub-info-file", sub],
             ["add", "FILE", "rec_c", "--data-file", small, "--type", "3"]]
    edits = []
    for kind in ("jpg", "mp4"):
        start, media_len = prepared(kind, three)
        plain, _ = prepared(kind, [])
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
            sounded, _ = prepared(kind, three + [["sound", "add", "FILE", "memo", "--data-file", sound]])
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
        for label, path, args in cases:
            edit = Edit(f"{label} ({kind})", path, args)
            edit.media_len = media_len
            edits.append(edit)
    return edits


def bare_sound(media_dir, work, sound):
    """The sample JPEG with a sound behind it in the older layout: the
    sound's bytes, then "VOXA", version 107, one sound (start, end), header
    length 20 and "VOXABS"."""
    with open(os.path.join(media_dir, "sample.jpg"), "rb") as f:
        image = f.read()
    with open(sound, "rb") as f:
        audio = f.read()
    block = b"VOXA" + struct.pack("<IIIII", 107, 1, len(image), len(image) + len(audio), 20) + b"VOXABS"
    path = os.path.join(work, "bare.jpg")
    with open(path, "wb") as f:
        f.write(image + audio + block)
    return path


def main():
    if len(sys.argv) < 4:
        print(__doc__)
        return 2
    tev, shim, media_dir = (os.path.abspath(a) for a in sys.argv[1:4])
    table = sys.argv[5] if len(sys.argv) > 5 and sys.argv[4] == "--table" else None
    with tempfile.TemporaryDirectory(prefix="tev-crash-") as work:
        files = os.path.join(work, "files")
        os.mkdir(files)
        edits = make_files(tev, media_dir, files)
        rows = [run_edit(tev, shim, work, edit) for edit in edits]

    header = "| edit | " + " | ".join(Row.FIELDS) + " |"
    lines = [header, "|" + "---|" * (len(Row.FIELDS) + 1)]
    totals = {f: 0 for f in Row.FIELDS}
    for row in rows:
        lines.append(f"| {row.label} | " + " | ".join(str(row.counts[f]) for f in Row.FIELDS) + " |")
        for f in Row.FIELDS:
            totals[f] += row.counts[f]
    lines.append("| all | " + " | ".join(str(totals[f]) for f in Row.FIELDS) + " |")
    print("\n".join(lines))
    if table:
        with open(table, "w") as f:
            f.write("\n".join(lines) + "\n")
    failures = [what for row in rows for what in row.failures]
    for what in failures[:40]:
        print("FAIL", what)
    print(f"{totals['runs']} runs, {len(failures)} broken rules")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
