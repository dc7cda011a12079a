#!/usr/bin/env python3
"""Prints the library's Android log lines as Markdown tables, one per family.

Reads every logLine call under src/ and the tables of entry-point texts
(constexpr ...Texts objects), resolves tags held in file-level constants, and
groups the (tag, text) pairs by the family of the source file. The output is
the log catalogue of docs/api.md; run it again after changing a message:

    scripts/log-catalogue.py [SOURCE_DIR] > /tmp/catalogue.md
"""
import pathlib
import re
import sys

STRING = r'"(?:[^"\\]|\\.)*"'

# First match wins; the key is the path below src/.
FAMILIES = [
    (r"stream/", "Streams, buffer handles and system wrappers"),
    (r"util/", "Diagnostics and checksums"),
    (r"container/(detect|check)", "Detection and checks"),
    (r"container/query", "Queries"),
    (r"container/mp4", "MP4 box"),
    (r"container/", "Parsing, index and layout"),
    (r"editor/add_", "Adding records"),
    (r"editor/(save_|buffer_io|capacity)", "Saving (the save family and its buffers)"),
    (r"editor/delete_", "Deleting records"),
    (r"editor/copy", "Copying records"),
    (r"editor/cover", "Replacing the media in place"),
    (r"editor/", "Editing, other"),
    (r"voxa/", "Voxa and sounds"),
    (r"jni/", "Java binding"),
]


def family_of(relative):
    for pattern, name in FAMILIES:
        if re.match(pattern, relative):
            return name
    return "Other"


def literal_text(chunk):
    """Concatenated string literals of a C++ expression, escapes kept."""
    return "".join(s[1:-1] for s in re.findall(STRING, chunk))


def call_arguments(source, start):
    """The text between the parentheses of the call opening at `start`."""
    depth, i = 0, start
    while i < len(source):
        c = source[i]
        if c == '"':
            i = re.match(STRING, source[i:]).end() + i
            continue
        if c == "(":
            depth += 1
        elif c == ")":
            depth -= 1
            if depth == 0:
                return source[start + 1:i]
        i += 1
    return ""


def split_top_level(arguments):
    parts, depth, current, i = [], 0, "", 0
    while i < len(arguments):
        c = arguments[i]
        if c == '"':
            end = re.match(STRING, arguments[i:]).end()
            current += arguments[i:i + end]
            i += end
            continue
        if c in "([{":
            depth += 1
        elif c in ")]}":
            depth -= 1
        if c == "," and depth == 0:
            parts.append(current.strip())
            current = ""
        else:
            current += c
        i += 1
    parts.append(current.strip())
    return parts


def entries_of(path, relative):
    source = path.read_text()
    constants = dict(
        re.findall(r"constexpr\s+(?:const\s+)?char\s*(?:\*\s*)?(?:const\s+)?(\w+)(?:\[\])?\s*=\s*(" + STRING + ")",
                   source))
    found = []
    for match in re.finditer(r"\blogLine\s*\(", source):
        args = split_top_level(call_arguments(source, match.end() - 1))
        if len(args) < 3:
            continue
        tag_expr, text_expr = args[1], args[2]
        if tag_expr.startswith('"'):
            tag = literal_text(tag_expr)
        elif tag_expr in constants:
            tag = constants[tag_expr][1:-1]
        else:
            tag = None  # handed in by the caller
        if text_expr.startswith('"') and literal_text(text_expr) != "%s":
            text = literal_text(text_expr)
        elif text_expr in constants:
            text = constants[text_expr][1:-1]
        else:
            continue  # texts from a table, listed below
        found.append((tag, text))
    # Tables of texts per entry point: the first string is the tag.
    for table in re.finditer(r"constexpr\s+\w+Texts\s+\w+\s*=\s*\{(.*?)\};", source, re.S):
        strings = [s[1:-1] for s in re.findall(STRING, table.group(1))]
        found.extend((strings[0], text) for text in strings[1:])
    return [(family_of(relative), tag, text) for tag, text in found]


def cell(value):
    return "`" + value.replace("|", "\\|") + "`"


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".") / "src"
    rows = set()
    for path in sorted(root.rglob("*.cpp")):
        rows.update(entries_of(path, str(path.relative_to(root))))
    order = [name for _, name in FAMILIES] + ["Other"]
    for family in order:
        entries = sorted((t or "", x) for f, t, x in rows if f == family)
        if not entries:
            continue
        print(f"#### {family}\n")
        print("| tag | text |\n|---|---|")
        for tag, text in entries:
            print(f"| {cell(tag) if tag else '(the calling entry point’s tag)'} | {cell(text)} |")
        print()


if __name__ == "__main__":
    main()
