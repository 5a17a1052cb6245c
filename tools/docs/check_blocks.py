#!/usr/bin/env python3
"""Compiles or runs every code block of the pages; docs/writing.md tells what a block may be.

usage: check_blocks.py --build DIR [--compiler C++] [--c-compiler C] [--flags FLAGS] [PAGE...]

Without pages: all of them. Exit status: 0 no fault, 1 faults, 2 a usage error.
"""

import argparse
import pathlib
import shlex
import sys
import tempfile

import compiled_blocks
import data_blocks
import markdown
import shell_blocks
from workplace import Workplace

COMPILED = {"cpp", "c"}
CHECKS = {
    "json": data_blocks.check_json,
    "jsonl": data_blocks.check_jsonl,
    "python": data_blocks.check_python,
    "cmake": data_blocks.check_cmake,
    "sh": shell_blocks.check,
    "bash": shell_blocks.check,
    "console": shell_blocks.check,
    "sql": data_blocks.check_tested,
    "text": lambda block, work: [],
}


def check_excerpt(block, root):
    """The lines of an excerpt stand in its file, in their order; `...` stands for what is left out."""
    name = block.notes["file"]
    if not (root / name).is_file():
        return [block.fault(f"there is no file {name}")]
    lines = iter([line.strip() for line in (root / name).read_text(encoding="utf-8").splitlines()])
    for number, line in enumerate(block.lines, block.line + 1):
        text = line.strip()
        if text in ("", "...", "// ...", "# ...") or text in lines:
            continue
        return [block.fault(f"{name} does not have this line, or not here: {text}", number)]
    return []


def check(blocks, work):
    faults, compiled = [], []
    for block in blocks:
        if "file" in block.notes:
            faults += check_excerpt(block, work.root)
        elif block.language in COMPILED:
            compiled.append(block)
        elif "tested" in block.notes:
            faults += data_blocks.check_tested(block, work)
        elif not block.language:
            faults.append(block.fault("the block names no language"))
        elif block.language not in CHECKS:
            faults.append(block.fault(f"nobody knows how to check a block of {block.language}"))
        else:
            faults += CHECKS[block.language](block, work)
    return faults + compiled_blocks.check(compiled, work)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=pathlib.Path, default=markdown.root_of_tree())
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--compiler", default="c++")
    parser.add_argument("--c-compiler", default="cc")
    parser.add_argument("--flags", default="", help="added to every compilation and link")
    parser.add_argument("pages", nargs="*", type=pathlib.Path)
    options = parser.parse_args()
    for needed in ("vantamo", "tests/docs"):
        if not (options.build / needed).exists():
            parser.error(f"{options.build / needed} is missing: build first (./dev build)")
    root, flags = options.root.resolve(), shlex.split(options.flags)
    pages = [page.resolve() for page in options.pages] or markdown.pages(root)
    blocks, faults = [], []
    for page in pages:
        found, broken = markdown.blocks(page, root)
        blocks += found
        faults += broken
    with tempfile.TemporaryDirectory(prefix="vantamo-docs-") as scratch:
        compilers = {"cpp": [options.compiler, *flags], "c": [options.c_compiler, *flags]}
        work = Workplace(root, options.build.resolve(), pathlib.Path(scratch), compilers)
        faults += check(blocks, work)
    for fault in sorted(faults, key=lambda fault: (fault.page, fault.line)):
        print(fault)
    print(f"{len(blocks)} blocks of {len(pages)} pages: {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
