"""Where blocks are compiled and run: scratch folders, a local endpoint, programs with a time limit."""

import http.server
import os
import pathlib
import subprocess
import threading

TIME_LIMIT = 300  # seconds; a machine may be busy


class Endpoint:
    """A server on a free port of this machine that takes every tag."""

    def __init__(self):
        self.bodies = []
        endpoint = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                endpoint.bodies.append(self.rfile.read(int(self.headers["Content-Length"])))
                self.send_response(204)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}/collect"

    def __enter__(self):
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()


class Workplace:
    def __init__(self, root, build, scratch, compilers):
        self.root, self.build, self.scratch = root, build, scratch
        self.compilers = compilers  # language to command
        self._count = 0
        self._lock = threading.Lock()

    @property
    def program(self):
        """The command-line program `vantamo`."""
        return self.build / "vantamo"

    def folder(self):
        """A new folder, in which the paths that the pages name lead where they do in the tree."""
        with self._lock:
            self._count += 1
            folder = self.scratch / str(self._count)
        folder.mkdir(parents=True)
        for name, target in (("build", self.build), ("vantamo", self.root), ("dev", self.root / "dev"),
                             ("examples", self.root / "examples"), ("docs", self.root / "docs")):
            (folder / name).symlink_to(target)
        return folder

    def run(self, command, folder, **options):
        """The finished process, output and diagnostics as one text."""
        environment = {**os.environ, "HOME": str(folder), "XDG_CACHE_HOME": str(folder / "caches"),
                       "VANTAMO_DEBUG": "0", "PATH": f"{self.build}:{os.environ['PATH']}",
                       **options.pop("environment", {})}
        try:
            return subprocess.run([str(word) for word in command], cwd=folder, env=environment,
                                  text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, timeout=TIME_LIMIT, **options)
        except subprocess.TimeoutExpired as expired:
            output = (expired.stdout or b"").decode(errors="replace")
            return subprocess.CompletedProcess(command, 124, output + "\nthe time limit is over")


def write_bundle(folder, module, text):
    """Settings where a program in `folder` finds them."""
    bundle = pathlib.Path(folder) / f"{module}.bundle"
    bundle.mkdir(parents=True, exist_ok=True)
    (bundle / "settings.json").write_text(text, encoding="utf-8")


def indented(text):
    return "".join("\n    " + line for line in text.strip().splitlines()[-40:])
