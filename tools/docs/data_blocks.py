"""Blocks of JSON, Python, SQL and CMake."""

import json
import re

from workplace import indented, write_bundle


def settings_tables(root):
    """The settings that docs/settings.md lists, by the module whose bundle holds them."""
    tables, module = {}, None
    for line in (root / "docs/settings.md").read_text(encoding="utf-8").splitlines():
        if line.startswith("#"):
            match = re.search(r"`(\w+)\.bundle`", line)
            module = match[1] if match else None
        elif module and (match := re.match(r"\| `(\w+)` \|", line)):
            tables.setdefault(module, set()).add(match[1])
    return tables


def check_json(block, work):
    try:
        value = json.loads(block.text)
    except ValueError as error:
        return [block.fault(f"no JSON: {error}")]
    if not isinstance(value, dict) or not value:
        return []
    for module, names in settings_tables(work.root).items():
        if set(value) & names:
            if unknown := set(value) - names:
                return [block.fault(f"{module} has no setting {', '.join(sorted(unknown))}")]
            return check_settings(block, module, work)
    return []


def check_settings(block, module, work):
    """Loads them as an application does; the library complains in its debug log."""
    folder = work.folder()
    write_bundle(folder / "bundle", module, block.text)
    script = folder / "script.jsonl"
    script.write_text('{"call":"startup"}\n', encoding="utf-8")
    done = work.run([work.program, "replay", "--bundle", "bundle", "--drain", "0", script], folder,
                    environment={"VANTAMO_DEBUG": "1"})
    complaints = [line for line in done.stdout.splitlines() if re.match(r"\S*settings\.json|Setting ", line)]
    if done.returncode not in (0, 3) or '"result":true' not in done.stdout:
        complaints.append(f"vantamo replay ends with {done.returncode}" + indented(done.stdout))
    return [block.fault(text) for text in complaints]


def check_jsonl(block, work):
    values = []
    for number, line in enumerate(block.lines, block.line + 1):
        if line.strip() and not line.startswith("#"):
            try:
                values.append(json.loads(line))
            except ValueError as error:
                return [block.fault(f"no JSON: {error}", number)]
    # Lines with "result" are answers; a tagging plan says so, or has lines that are no calls.
    is_script = all(isinstance(value, dict) and "call" in value and "result" not in value for value in values)
    if not is_script or "plan" in block.words:
        return []
    folder = work.folder()
    (folder / "script.jsonl").write_text(block.text, encoding="utf-8")
    (folder / "bundle").mkdir()
    done = work.run([work.program, "replay", "--bundle", "bundle", "--drain", "0", "script.jsonl"], folder)
    return [] if done.returncode in (0, 3) else [block.fault("vantamo replay:" + indented(done.stdout))]


def check_python(block, work):
    try:
        compile(block.text, block.page, "exec")
    except SyntaxError as error:
        return [block.fault(f"no Python: {error.msg}", block.line + (error.lineno or 0))]
    if "run" not in block.words:
        return []
    folder = work.folder()
    (folder / "block.py").write_text(block.text, encoding="utf-8")
    done = work.run(["python3", "block.py"], folder)
    return [] if done.returncode == 0 else [block.fault("it fails:" + indented(done.stdout))]


def check_tested(block, work):
    """A block that is tried elsewhere names the test that does it."""
    name = block.notes.get("tested")
    if name is None:
        return [block.fault(f"a block of {block.language} must name its test: <!-- tested: NAME -->")]
    sources = [path for pattern in ("tests/**/*", "tools/**/*.py", "CMakeLists.txt")
               for path in work.root.glob(pattern) if path.is_file()]
    words = re.split(r"[.:\s]+", name)
    if any(all(word in path.read_text(errors="replace") for word in words) for path in sources):
        return []
    return [block.fault(f"no test is named {name}")]


def check_cmake(block, work):
    folder = work.folder()
    text = block.text
    for word in re.findall(r"\bVANTAMO_[A-Z_]+\b", text):
        if not is_build_option(word, work.root):
            return [block.fault(f"there is no option {word}")]
    arguments = ["-DCMAKE_CXX_COMPILER=" + work.compilers["cpp"][0]]
    if "find_package(Vantamo" in text:
        prefix = folder / "prefix"
        done = work.run(["cmake", "--install", work.build, "--prefix", prefix], folder)
        if done.returncode != 0:
            return [block.fault("cmake --install fails:" + indented(done.stdout))]
        arguments.append(f"-DCMAKE_PREFIX_PATH={prefix}")
    if "project(" not in text:
        app = "" if re.search(r"add_executable\(\s*app\b", text) else "add_executable(app main.cpp)\n"
        text = "cmake_minimum_required(VERSION 3.25)\nproject(app LANGUAGES C CXX)\n" + app + text
    for name in re.findall(r"\b[\w/]+\.(?:cpp|c)\b", text):
        (folder / name).write_text("int main() {}\n", encoding="utf-8")
    write_bundle(folder, "VTMod", "{}")
    (folder / "CMakeLists.txt").write_text(text, encoding="utf-8")
    done = work.run(["cmake", "-G", "Ninja", "-S", ".", "-B", "out", *arguments], folder)
    return [] if done.returncode == 0 else [block.fault("cmake fails:" + indented(done.stdout))]


def is_build_option(name, root):
    files = [root / "CMakeLists.txt", *(root / "cmake").rglob("*")]
    return any(path.is_file() and re.search(rf"\b{name}\b", path.read_text(errors="replace")) for path in files)
