"""Blocks of shell commands: run where they say so, otherwise held to the commands that there are."""

import functools
import json
import re
import shlex
import shutil

import data_blocks
from workplace import Endpoint, indented, write_bundle

# Commands of a reader's machine that a machine of CI may be without.
ELSEWHERE = {"adb", "apt", "apt-get", "brew", "clickhouse", "clickhouse-client", "clickhouse-server",
             "cmake", "ctest", "curl", "docker", "dpkg", "dpkg-buildpackage", "dpkg-deb", "doxygen",
             "fastboot", "g++", "gcc", "clang++-14", "git", "jq", "journalctl", "ninja", "pkg-config",
             "qemu-aarch64-static", "qemu-arm-static", "mmdebstrap", "su", "sudo", "systemctl", "tmux",
             "wget", "xdg-open", "aarch64-linux-gnu-g++", "arm-linux-gnueabihf-g++"}
BUILT_IN = {"cd", "export", "set", "source", ".", "exit", "trap", "wait", "kill", "read", "eval", "exec",
            "if", "then", "else", "fi", "for", "do", "done", "while", "case", "esac", "[", "test", "echo",
            "printf", "{", "}", "!", "local", "return", "unset", "ulimit", "umask", "shift", "command"}
PREFIXES = {"sudo", "env", "exec", "time", "nohup", "setsid", "if", "then", "else", "do", "while", "!",
            "{", "command"}
# Programs and scripts of the tree and its build: what is named there has to be there.
OURS = ("bench/", "build/examples/", "build/tools/", "cmake/", "docs/", "examples/", "tools/")
SEPARATORS = {"|", "||", "&&", ";", "&", ";;", "|&", "(", ")", "<(", "\n"}
OUTPUT_GAP = "..."


def commands(block):
    """(line, text) of each command; in a console block those after the prompt."""
    number = 0
    while number < len(block.lines):
        start, text = number, block.lines[number]
        number += 1
        if block.language == "console":
            if not text.startswith(("$ ", "# ")):
                continue
            text = text[2:]
        while text.endswith("\\") and number < len(block.lines):
            text = text[:-1] + " " + block.lines[number].removeprefix("> ")
            number += 1
        heredoc = re.search(r"<<-?\s*['\"]?(\w+)", text)
        while heredoc and number < len(block.lines):
            line = block.lines[number].strip()
            number += 1
            if line == heredoc[1]:
                break
        yield block.line + 1 + start, text


def simple_commands(text):
    """The words of each simple command of a line. Placeholders such as DIR count as words."""
    lexer = shlex.shlex(text, posix=True, punctuation_chars=True)
    lexer.commenters, lexer.whitespace_split = "#", True
    words = []
    for word in lexer:
        if word in SEPARATORS:
            if words:
                yield words
            words = []
        else:
            words.append(word)
    if words:
        yield words


@functools.cache
def help_of(work, *words):
    return work.run([work.program, *words, "--help"], work.scratch).stdout


@functools.cache
def dev_help(work):
    return work.run([work.root / "dev", "help"], work.scratch).stdout


def fault_of_program(words, work):
    """What `vantamo WORDS` asks for that the program does not offer."""
    known, path = help_of(work), []
    while len(words) > len(path) and words[len(path)].isalpha() and re.search(
            rf"^  {words[len(path)]}\s", known, re.M):
        path.append(words[len(path)])
        known = help_of(work, *path)
    rest = words[len(path):]
    if rest and re.search(r"^Subcommands:", known, re.M) and re.match(r"[a-z]", rest[0]):
        return f"{' '.join(['vantamo', *path])} has no {rest[0]}"
    for word in rest:
        option = word.split("=")[0]
        if re.fullmatch(r"--?[a-z][\w-]*", option) and not re.search(
                rf"(?<![\w-]){re.escape(option)}(?![\w-])", known):
            return f"vantamo {' '.join(path)} has no {option}"
    return None


def fault_of_cmake(words, work):
    for word in words:
        if match := re.match(r"-D(VANTAMO_\w+)", word):
            if not data_blocks.is_build_option(match[1], work.root):
                return f"there is no option {match[1]}"
    if "--preset" in words:
        presets = json.loads((work.root / "CMakePresets.json").read_text(encoding="utf-8"))
        name = words[words.index("--preset") + 1]
        if name not in {preset["name"] for preset in presets["configurePresets"]}:
            return f"there is no preset {name}"
    return None


def fault_of(words, work):
    while words and (words[0] in PREFIXES or re.match(r"\w+=", words[0])):
        words = words[1:]
    if not words or words[0] in BUILT_IN or words[0].isupper():  # a placeholder
        return None
    name, arguments = words[0], words[1:]
    if name == "./dev":
        known = not arguments or re.search(rf"^  {re.escape(arguments[0])}\s", dev_help(work), re.M)
        known = known or arguments[0] == "help"
        return None if known else f"./dev has no {arguments[0]}"
    if re.fullmatch(r"(?:(?:[\w./-]+/)?build/)?vantamo", name):
        return fault_of_program(arguments, work)
    if name in ("cmake", "ctest"):
        return fault_of_cmake(arguments, work)
    if "/" in name:
        path = name.removeprefix("./")
        there = (work.root / path).exists() or (
            path.startswith("build/") and (work.build / path[6:]).exists())
        return f"there is no {name}" if path.startswith(OURS) and not there else None
    return None if name in ELSEWHERE or shutil.which(name) else f"there is no command {name}"


def check(block, work):
    faults = []
    for line, text in commands(block):
        try:
            for words in simple_commands(text):
                if fault := fault_of(words, work):
                    faults.append(block.fault(fault, line))
        except ValueError as error:
            faults.append(block.fault(f"no shell command: {error}", line))
    if not faults and "run" in block.words:
        faults = run(block, work)
    return faults


def run(block, work):
    """Runs a block in a folder of its own. What a console block shows must come, in this order."""
    folder = work.folder()
    script = block.text
    if block.language == "console":
        script = "".join(text + "\n" for _, text in commands(block))
    (folder / "script.sh").write_text(script, encoding="utf-8")
    with Endpoint() as endpoint:
        write_bundle(folder / "bundle", "VTMod", json.dumps({"PostMessageUrl": endpoint.url}))
        done = work.run(["bash", "-euo", "pipefail", "script.sh"], folder,
                        environment={"ENDPOINT": endpoint.url})
    expected_status = next((int(word.split()[1]) for word in block.words if word.startswith("exit ")), 0)
    if done.returncode != expected_status:
        return [block.fault(f"it ends with {done.returncode}:" + indented(done.stdout))]
    if block.language == "console":
        output = [line for line in block.lines if not line.startswith(("$ ", "# ", "> "))]
        if missing := first_missing(output, done.stdout):
            return [block.fault(f"it does not show: {missing}" + indented(done.stdout))]
    return []


def first_missing(expected, output):
    """The first of the expected lines that does not come; `...` in a line stands for anything."""
    lines = iter(output.splitlines())
    for text in expected:
        if text.strip() in ("", OUTPUT_GAP):
            continue
        pattern = ".*".join(re.escape(part.strip()) for part in text.split(OUTPUT_GAP))
        if not any(re.search(pattern, line) for line in lines):
            return text
    return None
