"""Blocks of C and C++: fragments are compiled, whole programs are linked and run as well."""

import concurrent.futures
import json
import re

from workplace import Endpoint, indented, write_bundle

STANDARD = {"cpp": "-std=c++20", "c": "-std=c11"}
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
# What a fragment leaves to the reader: what it makes is used further on.
UNUSED = ["-Wno-unused", "-Wno-unused-result"]
PRELUDE = {
    "cpp": ["chrono", "cstdio", "cstdlib", "filesystem", "fstream", "functional", "iostream",
            "memory", "mutex", "optional", "string", "string_view", "thread", "vector",
            "gmock/gmock.h", "gtest/gtest.h"],
    "c": ["stdio.h", "stdlib.h", "string.h"],
}
INCLUDE = re.compile(r"^\s*#\s*include\b.*$")
DECLARATION = re.compile(r"^(class|struct|enum|namespace|template|using namespace|extern|inline|static|"
                         r"TEST|TEST_F|TEST_P)\b")
FUNCTION = re.compile(r"^(?!(?:if|for|while|switch|else|do|return|catch)\b)"
                      r"[\w:<>,&*\s~]+\([^;={]*\)[\w\s]*\{")


def is_program(block):
    return bool(re.search(r"\bint\s+main\s*\(", block.text)) or "program" in block.words


def is_of_file_scope(block):
    if "file scope" in block.words:
        return True
    if "in a function" in block.words:
        return False
    return any(DECLARATION.match(line) or FUNCTION.match(line) for line in block.lines)


def headers(work, language):
    names = sorted(path.name for path in (work.root / "include/vantamo").glob("*.h"))
    if language == "c":
        names = [name for name in names if name == "vantamo_c.h"]
    return [f"#include <{name}>" for name in PRELUDE[language]] + [
        f"#include <vantamo/{name}>" for name in names]


def fragments_unit(work, fragments, language):
    """One source of all fragments of a language, its lines those of the pages."""
    includes = [line for block in fragments for line in block.lines if INCLUDE.match(line)]
    lines = headers(work, language) + sorted(set(includes))
    for number, block in enumerate(fragments):
        body = ["" if INCLUDE.match(line) else line for line in block.lines]
        place = f'#line {block.line + 1} "{block.page}"'
        given = block.notes.get("given", "").splitlines()
        if language == "cpp":
            lines += [f"namespace block_{number} {{", *given]
        else:
            lines += given
        if is_of_file_scope(block):
            lines += [place, *body]
        else:
            lines += [f"void block_{number}_body(void) {{", place, *body, "}"]
        lines += ["}"] if language == "cpp" else []
    return "".join(line + "\n" for line in lines)


def check_fragments(fragments, language, work):
    folder = work.folder()
    source = folder / f"fragments.{language}"
    source.write_text(fragments_unit(work, fragments, language), encoding="utf-8")
    done = work.run([*work.compilers[language], STANDARD[language], *WARNINGS, *UNUSED,
                     "-fsyntax-only", "-isystem", "/usr/include/gtest", "-I", work.root / "include",
                     source], folder)
    if done.returncode == 0:
        return []
    pages = {block.page for block in fragments}
    faults = []
    for match in re.finditer(r"^(.+?):(\d+):(?:\d+:)? (?:fatal )?error: (.*)$", done.stdout, re.M):
        block = next((block for block in fragments if match[1] == block.page), fragments[0])
        if match[1] in pages:
            faults.append(block.fault(match[3], int(match[2])))
    return faults or [fragments[0].fault("the fragments do not compile:" + indented(done.stdout))]


def core_of(block):
    for name in ("own core", "recording core", "default core"):
        if name in block.words:
            return name.replace(" ", "_")
    if "NQCore::sharedInstance() {" in block.text:
        return "own_core"
    return "recording_core" if "recording_core.h" in block.text else "default_core"


def check_program(block, work):
    folder = work.folder()
    source, program = folder / f"program.{block.language}", folder / "program"
    source.write_text(f'#line {block.line + 1} "{block.page}"\n{block.text}', encoding="utf-8")
    object_file = folder / "program.o"
    done = work.run([*work.compilers[block.language], STANDARD[block.language], *WARNINGS, "-c", source,
                     "-I", work.root / "include", "-o", object_file], folder)
    if done.returncode == 0:
        library = f"docs_{core_of(block)}"
        tests = ["-lgmock", "-lgtest_main", "-lgtest"] if "<gtest/" in block.text or \
            "<gmock/" in block.text else []
        done = work.run([*work.compilers["cpp"], object_file, f"-L{work.build}/tests/docs", f"-l{library}",
                         f"-Wl,-rpath,{work.build}/tests/docs", *tests, "-pthread", "-o", program], folder)
    if done.returncode != 0:
        return [block.fault("the program does not compile:" + indented(done.stdout))]
    return [] if "compiled only" in block.words else run_program(block, program, folder, work)


def run_program(block, program, folder, work):
    if "with endpoint" not in block.words:
        done = work.run([program], folder)
        return [] if done.returncode == 0 else [
            block.fault(f"the program ends with {done.returncode}:" + indented(done.stdout))]
    with Endpoint() as endpoint:
        write_bundle(folder, "VTMod", json.dumps({"PostMessageUrl": endpoint.url, "AppName": "Docs"}))
        done = work.run([program], folder)
        arrived = len(endpoint.bodies)
    if done.returncode != 0:
        return [block.fault(f"the program ends with {done.returncode}:" + indented(done.stdout))]
    for word in block.words:
        if match := re.fullmatch(r"(\d+) tags?", word):
            if arrived != int(match[1]):
                return [block.fault(f"{arrived} tags have arrived, not {match[1]}")]
    return []


def check(blocks, work):
    faults = []
    programs = [block for block in blocks if is_program(block)]
    fragments = [block for block in blocks if not is_program(block)]
    for language in STANDARD:
        if chosen := [block for block in fragments if block.language == language]:
            faults += check_fragments(chosen, language, work)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        for found in pool.map(lambda block: check_program(block, work), programs):
            faults += found
    return faults
