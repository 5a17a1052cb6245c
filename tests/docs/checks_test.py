"""A page of faults: each must be found in its line, and what is right beside it must not.

usage: checks_test.py BUILD COMPILER
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Language and comments of a block, its text, and what is found in which of its lines (0: the fence).
BLOCKS = [
    ("", "", "anything", (0, "names no language")),
    ("cobol", "", "DISPLAY 1", (0, "a block of cobol")),
    ("text", "", "anything", None),
    ("cpp", "", 'Vantamo::firePageView({.pageId = "p"});', None),
    ("cpp", "", "int x = 1;\nVantamo::fireNothing();", (2, "fireNothing")),
    ("cpp", "<!-- given: int theAnswer(); -->", "int x = theAnswer();", None),
    ("cpp", "", 'class Unfinished {\n  Vantamoo x;\n};', (2, "Vantamoo")),
    ("cpp", "", "int main() { return 3; }", (0, "ends with 3")),
    ("cpp", "<!-- block: compiled only -->", "int main() { return 3; }", None),
    ("cpp", "<!-- block: with endpoint, 1 tag -->", "int main() {}", (0, "0 tags have arrived, not 1")),
    ("c", "", "int x = 1;\nx = 2", (2, "expected")),
    ("json", "", '{"PostMessageUrl": "http://127.0.0.1:9/x", "AppName": "A"}', None),
    ("json", "", '{"PostMessageUrl": 7}', (0, "must be a string")),
    ("json", "", '{"AppName": "A", "ClientID": "1"}', (0, "no setting ClientID")),
    ("json", "", '{"RetryCapSeconds": -1}', (0, "RetryCapSeconds")),
    ("json", "", "{'a': 1}", (0, "no JSON")),
    ("jsonl", "", '{"a": 1}\n{"a": }', (2, "no JSON")),
    ("jsonl", "", '{"call":"firePageView","page":"p"}', (0, "unknown member")),
    ("python", "", "x = 1\nif x\n    pass", (2, "no Python")),
    ("sql", "", "SELECT 1", (0, "must name its test")),
    ("sql", "<!-- tested: " + "No" + "Such -->", "SELECT 1", (0, "no test is named")),
    ("sql", "<!-- tested: DocsTest.FaultsAreFound -->", "SELECT 1", None),
    ("cmake", "", "set(VANTAMO_NOTHING ON)", (0, "no option VANTAMO_NOTHING")),
    ("cmake", "", "target_link_libraries(app PRIVATE\n  Vantamo::missing)", (0, "cmake fails")),
    ("sh", "", "./dev test   # all of them", None),
    ("sh", "", "./dev test\n./dev nothing", (2, "./dev has no nothing")),
    ("sh", "", "build/vantamo doctor --application APP --bundle DIR", None),
    ("sh", "", "build/vantamo doctor --bundel DIR", (1, "has no --bundel")),
    ("sh", "", "echo x | build/vantamo queue lost DIR", (1, "vantamo queue has no lost")),
    ("sh", "", "cmake --preset missing", (1, "no preset missing")),
    ("sh", "", "cmake -S . -B b \\\n  -DVANTAMO_NOTHING=ON", (1, "no option VANTAMO_NOTHING")),
    ("sh", "", "build/tools/vantamo_nothing", (1, "there is no build/tools/vantamo_nothing")),
    ("sh", "", "no-such-command x", (1, "no command no-such-command")),
    ("sh", "<!-- block: run -->", "false", (0, "it ends with 1")),
    ("sh", "<!-- block: run, exit 1 -->", "false", None),
    ("console", "<!-- block: run -->", "$ echo one two\none ...", None),
    ("console", "<!-- block: run -->", "$ echo one\ntwo", (0, "does not show: two")),
    ("cpp", "<!-- file: examples/host.cpp -->", "int main(int argc, char** argv) {\n...\n}", None),
    ("cpp", "<!-- file: examples/host.cpp -->", "int main(int argc, char** argv) {\nint gone;", (2, "int gone;")),
    ("cpp", "<!-- file: examples/gone.cpp -->", "", (0, "no file examples/gone.cpp")),
]

LINKS = [
    ("[here](settings.md#environment)", None),
    ("`[code](gone.md)` [out](https://tags.example/gone)", None),
    ("[here](gone.md)", "gone.md: there is no such file"),
    ("[here](settings.md#gone)", "settings.md#gone: the page has no such heading"),
]


def tree(folder):
    """The tree with one page of the test's own, docs/page.md."""
    (folder / "docs").mkdir()
    shutil.copy(ROOT / "docs/settings.md", folder / "docs")
    for entry in ROOT.iterdir():
        if entry.name not in ("docs", "README.md", "CHANGELOG.md"):
            (folder / entry.name).symlink_to(entry)
    return folder / "docs/page.md"


def found_by(command):
    done = subprocess.run([sys.executable, *map(str, command)], text=True, stdout=subprocess.PIPE)
    found = {}
    for match in re.finditer(r"^docs/page\.md:(\d+): (.*(?:\n    .*)*)", done.stdout, re.M):
        found.setdefault(int(match[1]), match[2])
    if (done.returncode != 0) != bool(found):
        sys.exit(f"exit status {done.returncode} with {len(found)} faults:\n{done.stdout}")
    return found


def compare(expected, found):
    wrong = [f"line {line}: not found: {text}" for line, text in expected.items() if text not in found.get(line, "")]
    wrong += [f"line {line}: found without a fault: {text}" for line, text in found.items() if line not in expected]
    return wrong


def main():
    build, compiler = sys.argv[1:]
    with tempfile.TemporaryDirectory() as scratch:
        page, lines, expected = tree(pathlib.Path(scratch)), ["# A page"], {}
        for language, comment, text, fault in BLOCKS:
            lines += ["", comment, f"```{language}"]
            if fault:
                expected[len(lines) + fault[0]] = fault[1]
            lines += [*text.split("\n"), "```"]
        lines += ["", "```text"]
        expected[len(lines)] = "does not end"
        page.write_text("\n".join(lines))
        checks = ROOT / "tools/docs"
        wrong = compare(expected, found_by([checks / "check_blocks.py", "--root", scratch, "--build", build,
                                            "--compiler", compiler, page]))
        page.write_text("\n".join(text for text, _ in LINKS))
        expected = {line: fault for line, (_, fault) in enumerate(LINKS, 1) if fault}
        wrong += compare(expected, found_by([checks / "check_links.py", scratch]))
    print("\n".join(wrong) or f"{len(BLOCKS)} blocks and {len(LINKS)} links: as expected")
    sys.exit(bool(wrong))


if __name__ == "__main__":
    main()
