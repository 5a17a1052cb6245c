"""What the checks read of a Markdown page: its code blocks, headings and links."""

import dataclasses
import pathlib
import re

FENCE = re.compile(r"^(\s*)(`{3,}|~{3,})\s*(.*?)\s*$")
NOTE = re.compile(r"<!--\s*(block|file|given|tested):\s*(.*?)\s*-->", re.S)
PATH = re.compile(r"<!--\s*([\w.-]+(?:/[\w.-]+)+)\s*-->")  # short for file: PATH
LINK = re.compile(r"!?\[(?:[^\]\[]|\[[^\]]*\])*\]\(\s*<?([^)\s>]+)>?[^)]*\)")
HEADING = re.compile(r"^(#{1,6})\s+(.*?)\s*#*\s*$")


@dataclasses.dataclass
class Fault:
    page: str
    line: int
    text: str

    def __str__(self):
        return f"{self.page}:{self.line}: {self.text}"


@dataclasses.dataclass
class Block:
    page: str  # relative to the top of the tree
    line: int  # of the fence
    language: str
    lines: list
    notes: dict  # what the comments right before it say, by their first word

    @property
    def text(self):
        return "".join(line + "\n" for line in self.lines)

    @property
    def words(self):
        """The comma-separated words of `<!-- block: ... -->`."""
        return {word.strip() for word in self.notes.get("block", "").split(",") if word.strip()}

    def fault(self, text, line=None):
        return Fault(self.page, self.line if line is None else line, text)


def pages(root):
    """The pages of the tree that are for readers."""
    found = [root / "README.md", root / "CHANGELOG.md"]
    for folder in ("docs", "examples", "packaging", "tools"):
        found += sorted((root / folder).rglob("*.md"))
    return [page for page in found if page.is_file()]


def blocks(path, root):
    """The fenced blocks of a page, and a fault for each that does not end."""
    page, found, faults = str(path.relative_to(root)), [], []
    lines = path.read_text(encoding="utf-8").split("\n")
    number, before = 0, []
    while number < len(lines):
        opening = FENCE.match(lines[number])
        if not opening:
            # Comments belong to the block that follows them with nothing but blank lines between.
            before.append(lines[number])
            number += 1
            continue
        indent, fence, language = opening.groups()
        end = number + 1
        while end < len(lines) and lines[end].strip() != fence:
            end += 1
        body = [line.removeprefix(indent) for line in lines[number + 1 : end]]
        block = Block(page, number + 1, language, body, notes_at_end(before))
        found.append(block)
        if end == len(lines):
            faults.append(block.fault("the block does not end"))
        number, before = end + 1, []
    return found, faults


def notes_at_end(lines):
    notes, text = {}, "\n".join(lines).rstrip()
    while text.endswith("-->"):
        start = text.rfind("<!--")
        if match := NOTE.fullmatch(text[start:]):
            notes[match.group(1)] = match.group(2)
        elif match := PATH.fullmatch(text[start:]):
            notes["file"] = match.group(1)
        else:
            break
        text = text[:start].rstrip()
    return notes


def prose(path):
    """The lines of a page, those of code blocks and comments blank."""
    fence, hidden, result = None, False, []
    for line in path.read_text(encoding="utf-8").split("\n"):
        match = FENCE.match(line)
        if fence is None and match:
            fence = match.group(2)
            line = ""
        elif fence is not None:
            fence = None if line.strip() == fence else fence
            line = ""
        elif line.lstrip().startswith("<!--") or hidden:
            hidden = "-->" not in line
            line = ""
        result.append(line)
    return result


def anchors(path):
    """What `#...` may name on a page: its headings as they are turned into anchors."""
    seen, names = {}, set()
    for line in prose(path):
        match = HEADING.match(line)
        if not match:
            continue
        title = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", match.group(2))
        name = re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
        count = seen.get(name, 0)
        seen[name] = count + 1
        names.add(f"{name}-{count}" if count else name)
    return names


def links(path):
    """(line, target) of each link that is not inside code."""
    for number, line in enumerate(prose(path), 1):
        for target in LINK.findall(re.sub(r"`[^`]*`", lambda code: "`" * len(code[0]), line)):
            yield number, target


def root_of_tree():
    return pathlib.Path(__file__).resolve().parents[2]
