"""Looks at a page in Chromium without a window: what its reader sees, and what the browser does for it."""

import contextlib
import dataclasses
import functools
import html.parser
import http.server
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import threading

import pytest

import ostrelscan

CONSOLE = re.compile(r":CONSOLE[:(]")


@dataclasses.dataclass
class Seen:
    dom: str  # as it stands when the page is loaded
    console: list  # lines that the page left on the console
    asked: list  # paths that the page's own server was asked for
    elsewhere: list  # addresses outside of that server that the browser was sent to by the page

    @functools.cached_property
    def page(self):
        parser = _Page()
        parser.feed(self.dom)
        return parser


class _Page(html.parser.HTMLParser):
    """The title, and the rows of each table by its id, without the headings."""

    def __init__(self):
        super().__init__()
        self.title, self.tables, self.text = "", {}, ""
        self._open = []
        self._rows = None

    def handle_starttag(self, tag, attrs):
        self._open.append(tag)
        if tag == "table":
            self._rows = self.tables.setdefault(dict(attrs)["id"], [])
        elif tag == "tr" and "tbody" in self._open:
            self._rows.append([])
        elif tag == "td":
            self._rows[-1].append("")

    def handle_endtag(self, tag):
        while self._open and self._open.pop() != tag:
            pass

    def handle_data(self, data):
        self.text += data
        if self._open and self._open[-1] == "td":
            self._rows[-1][-1] += data
        elif "svg" not in self._open and self._open and self._open[-1] == "title":
            self.title += data


def browser():
    """The command of the browser. Where it is not installed the test is skipped."""
    found = shutil.which("chromium")
    if found is None:
        pytest.skip("chromium is not installed")
    if ostrelscan.sanitized():
        pytest.skip("a page is looked at once, without a sanitizer")
    return [found, "--headless", "--disable-gpu", "--disable-dev-shm-usage",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--no-first-run", "--no-proxy-server",
            *(["--no-sandbox"] if os.geteuid() == 0 else [])]


def _chromium(options, address):
    with tempfile.TemporaryDirectory() as profile:
        done = subprocess.run([*browser(), f"--user-data-dir={profile}", *options, address],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=300, check=False, env={**os.environ, "HOME": profile})
    assert done.returncode == 0, done.stderr
    return done


@contextlib.contextmanager
def _served(path):
    """Serves one page; yields its address and the list of what is asked for."""
    asked = []

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            asked.append(self.path)
            self.send_response(200 if self.path == "/page.html" else 404)
            self.send_header("Content-Type", "text/html")
            self.end_headers()
            self.wfile.write(pathlib.Path(path).read_bytes() if self.path == "/page.html" else b"")

        def log_message(self, *_):
            pass

    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server:
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        try:
            yield f"http://127.0.0.1:{server.server_port}", asked
        finally:
            server.shutdown()
            thread.join()


def _addresses(log):
    """Every address in a log of the browser's network stack that a page was the reason for."""
    found = set()
    for event in json.loads(pathlib.Path(log).read_text(encoding="utf-8"))["events"]:
        parameters = event.get("params", {})
        if "url" in parameters and "initiator" in parameters:
            found.add((parameters["url"], parameters["initiator"]))
    return found


def look_at(path):
    """Loads a page as a browser does that got it from somewhere."""
    with tempfile.TemporaryDirectory() as folder, _served(path) as (server, asked):
        log = os.path.join(folder, "net.json")
        done = _chromium(["--dump-dom", "--enable-logging=stderr", "--v=0", f"--log-net-log={log}"],
                         f"{server}/page.html")
        requests = _addresses(log)
    # What somebody typed has no page behind it, and neither has what the browser asks for itself.
    elsewhere = sorted(url for url, initiator in requests
                       if initiator != "not an origin" and not url.startswith(server))
    return Seen(done.stdout, [line for line in done.stderr.splitlines() if CONSOLE.search(line)],
                asked, elsewhere)


def picture_of(path, target, *, width=1100, height=1400):
    """Draws a page into a PNG file."""
    _chromium([f"--screenshot={target}", f"--window-size={width},{height}", "--hide-scrollbars"],
              pathlib.Path(path).resolve().as_uri())
