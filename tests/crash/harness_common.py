"""What the two crash harnesses share: an independent reader of the
container, the starting files, one edit run at every write point in every
fault mode with the fault shim preloaded, and the table of results."""
import os
import shutil
import struct
import subprocess
import sys


def arguments(doc):
    """BINARY SHIM MEDIA_DIR [--table FILE] [FLAG...]: the three paths made
    absolute, the table's file (None without one) and the flags."""
    if len(sys.argv) < 4:
        print(doc)
        sys.exit(2)
    rest = sys.argv[4:]
    return [os.path.abspath(a) for a in sys.argv[1:4]], rest[rest.index("--table") + 1] if "--table" in rest else None, rest


def u32(buf, at):
    return struct.unpack_from("<I", buf, at)[0]


def read_container(buf, media_len):
    """Returns (status, records): status 'none' (no container), 'damaged',
    or 'ok' with records [(name, type, sub, data)]. Written for the
    harnesses alone, so a fault in the library's reader cannot hide one in
    its writer."""
    size = len(buf)
    tail = 8
    if size >= 10 and buf[-6:] == b"VOXABS":
        tail = u32(buf, size - 10) + 18
        if size < tail + 4 or buf[size - tail + 4:size - tail + 8] != b"TEVT":
            return "none", []
    if size < tail or buf[size - tail + 4:size - tail + 8] != b"TEVT":
        return ("none" if tail == 8 and b"TEVT" not in buf[-64:] else "damaged"), []
    ktho = u32(buf, size - tail)
    head = size - tail - ktho
    count = u32(buf, head + 8) if ktho >= 13 and head >= media_len else 0
    if count == 0 or buf[head:head + 4] != b"TEVH" or ktho != 12 + 12 * count:
        return "damaged", []
    records = []
    for i in range(count):
        meta, offset, length = struct.unpack_from("<III", buf, head + 12 + 12 * i)
        start = head - offset
        if offset == 0 or start < media_len or start + length > head or length < 9:
            return "damaged", []
        name_len = u32(buf, start + 4)
        has_sub = meta & 0x8000
        header = 12 if has_sub else 8
        sub_len = u32(buf, start + 8) if has_sub else 0
        if not 1 <= name_len <= 1024 or header + name_len + sub_len > length or (has_sub and sub_len == 0):
            return "damaged", []
        at = start + header
        records.append((buf[at:at + name_len], meta >> 16, buf[at + name_len:at + name_len + sub_len],
                        buf[at + name_len + sub_len:start + length]))
    return "ok", records


def run(binary, args, env=None):
    """The exit status, negative for a signal, None when the run hung."""
    try:
        return subprocess.run([binary] + args, env=env, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=60).returncode
    except subprocess.TimeoutExpired:
        return None


def slurp(path):
    with open(path, "rb") as f:
        return f.read()


def blob(work, name, size, seed):
    path = os.path.join(work, name)
    with open(path, "wb") as f:
        f.write(bytes((i * 131 + seed * 7 + (i >> 8)) & 0xFF for i in range(size)))
    return path


def bind(args, path):
    return [path if a == "FILE" else a for a in args]


def prepared(binary, media_dir, work, kind, steps):
    """A copy of the sample of KIND edited by STEPS (FILE standing for the
    copy), and the sample's length."""
    src = os.path.join(media_dir, "sample." + kind)
    path = os.path.join(work, f"start-{len(os.listdir(work))}.{kind}")
    shutil.copyfile(src, path)
    for step in steps:
        if run(binary, bind(step, path)) != 0:
            raise RuntimeError(f"preparing {path}: {step} failed")
    return path, os.path.getsize(src)


class Row:
    """One edit, ARGS, run on fresh copies of START with the fault shim
    preloaded, and its line of the table: a count per field, the broken rules."""

    def __init__(self, label, fields, binary, shim, work, start, args):
        self.label, self.counts, self.failures = label, dict.fromkeys(fields, 0), []
        self.binary, self.shim, self.start, self.args = binary, shim, start, args
        self.target = os.path.join(work, "edited" + os.path.splitext(start)[1])
        self.count_file = os.path.join(work, "count")

    def fail(self, field, what):
        if field:
            self.counts[field] += 1
        self.failures.append(what)

    def attempt(self, **env):
        for leftover in (self.target + ".tev-undo", self.target + ".tev-undo.tmp"):
            if os.path.exists(leftover):
                os.unlink(leftover)
        shutil.copyfile(self.start, self.target)
        env = dict(os.environ, LD_PRELOAD=self.shim, TEV_FAULT_PATH=self.target, **env)
        return run(self.binary, bind(self.args, self.target), env)

    def clean(self):
        """The uninterrupted edit, counting its write points; the edited
        bytes (left at the target), None when it failed."""
        if self.attempt(TEV_FAULT_AT="0", TEV_FAULT_COUNT_OUT=self.count_file) != 0:
            self.fail(None, self.label + ": the uninterrupted edit failed")
            return None
        self.counts["points"] = int(slurp(self.count_file))
        return slurp(self.target)

    def faults(self, modes, judge):
        """One run per write point k and mode; judge(what, mode, rc) looks
        at the file left at the target."""
        for k in range(1, self.counts["points"] + 1):
            for mode in modes:
                self.counts["runs"] += 1
                rc = self.attempt(TEV_FAULT_AT=str(k), TEV_FAULT_MODE=mode)
                judge(f"{self.label} {mode}@{k}", mode, rc)


def report(rows, fields, table, extra=(), failures=()):
    """Prints the table of ROWS (and writes it to TABLE) and the first broken
    rules; returns how many rules were broken."""
    lines = ["| edit | " + " | ".join(fields) + " |", "|" + "---|" * (len(fields) + 1)]
    for row in rows:
        lines.append(f"| {row.label} | " + " | ".join(str(row.counts[f]) for f in fields) + " |")
    lines.append("| all | " + " | ".join(str(sum(r.counts[f] for r in rows)) for f in fields) + " |")
    lines += list(extra)
    print("\n".join(lines))
    if table:
        with open(table, "w") as f:
            f.write("\n".join(lines) + "\n")
    failures = [what for row in rows for what in row.failures] + list(failures)
    for what in failures[:40]:
        print("FAIL", what)
    print(f"{sum(r.counts['runs'] for r in rows)} runs, {len(failures)} broken rules")
    return len(failures)
