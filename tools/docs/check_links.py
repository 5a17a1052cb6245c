#!/usr/bin/env python3
"""Checks that every relative link and anchor of the pages leads somewhere.

usage: check_links.py [ROOT]
"""

import pathlib
import sys

import markdown


def faults_of(page, root):
    for line, target in markdown.links(page):
        if "://" in target or target.startswith("mailto:"):
            continue
        place, _, anchor = target.partition("#")
        path = (page.parent / place).resolve() if place else page
        name = str(page.relative_to(root))
        if not path.exists():
            yield markdown.Fault(name, line, f"{target}: there is no such file")
        elif root not in (path, *path.parents):
            yield markdown.Fault(name, line, f"{target}: leads out of the tree")
        elif anchor and path.suffix == ".md" and anchor not in markdown.anchors(path):
            yield markdown.Fault(name, line, f"{target}: the page has no such heading")


def main():
    root = pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else markdown.root_of_tree()
    pages = markdown.pages(root)
    faults = [fault for page in pages for fault in faults_of(page, root)]
    for fault in faults:
        print(fault)
    print(f"links of {len(pages)} pages: {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
