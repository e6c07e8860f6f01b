#!/usr/bin/env python3
"""Keeps the floors of the house in order: a folder of src/ includes only itself
and what stands below it, by paths written from src/."""
import pathlib
import re
import sys

STANDS_ON = {
    "base": [],
    "storage": ["base"],
    "pvb": ["base", "storage"],
    "equations": ["base", "storage", "pvb"],
    "timeplate": ["base", "storage", "pvb", "equations"],
    "conditioner": ["base", "storage", "pvb", "equations", "timeplate"],
    "tools": ["base", "storage", "pvb", "equations"],
}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')
TEST_ONLY = "support/"


def faults(path, floor):
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        target = match[1]
        if path.name.endswith("_test.cc") and target.startswith(TEST_ONLY):
            continue
        folder = target.split("/")[0]
        if folder != floor and folder not in STANDS_ON[floor]:
            yield f"{path}:{number}: {floor} may not include \"{target}\""
        elif not (pathlib.Path("src") / target).is_file():
            yield f"{path}:{number}: \"{target}\" is no path from src/"


def main():
    found = []
    for path in sorted(pathlib.Path("src").rglob("*")):
        if path.suffix in (".h", ".cc"):
            floor = path.parts[1]
            if floor not in STANDS_ON:
                found.append(f"{path}: {floor} is no floor of the house")
            else:
                found.extend(faults(path, floor))
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
