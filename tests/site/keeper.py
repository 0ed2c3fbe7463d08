# SPDX-License-Identifier: MIT
"""The process behind KernelSite: it holds nginx, cgit and the proxy, and takes all of it away when its owner ends.

Started by tests/stage/site.py only, with the owner's process id as its argument. Its standard input is a pipe that the
owner keeps open; the first line of its standard output says where the site is, or why there is none.
"""

from __future__ import annotations

import asyncio
import contextlib
import ctypes
import json
import os
import re
import shutil
import signal
import ssl
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass, field
from email.utils import formatdate
from pathlib import Path
from typing import Any, Callable

import release_pages
from kernel_history import DAY, History, long_changelog
from release_pages import Release

WWW, APEX, CDN, GIT = HOSTS = ("www.kernel.org", "kernel.org", "cdn.kernel.org", "git.kernel.org")
CGIT = "/usr/lib/cgit/cgit.cgi"
TREES = {
    "pub/scm/linux/kernel/git/torvalds/linux.git": ("mainline.git", "Linux kernel source tree"),
    "pub/scm/linux/kernel/git/mainkeeper/linux.git": ("mainline.git", "Linux kernel source tree"),
    "pub/scm/linux/kernel/git/stable/linux.git": ("stable.git", "Linux kernel stable tree"),
}
START_DEADLINE = 20.0
# Who looks for the digits of a 304 in all that wget prints must find them in a 304 only, not by chance in the port,
# the folder or the page's length, all of which wget prints as well.
HIDDEN = "304"
TLS_HANDSHAKE = b"\x16"
REASONS = {
    200: "OK",
    301: "Moved Permanently",
    302: "Found",
    304: "Not Modified",
    403: "Forbidden",
    404: "Not Found",
    500: "Internal Server Error",
    502: "Bad Gateway",
    503: "Service Temporarily Unavailable",
}

# What each kind of misbehaviour can be told, with the values that hold if it is not.
KINDS: dict[str, dict[str, Any]] = {
    "status": {"code": 404},
    "redirect": {"to": f"https://{WWW}/", "code": 301},
    "silence": {},
    "trickle": {"interval": 0.5},
    "last-modified": {"text": "", "name": "Last-Modified"},
    "headers": {"headers": {}},
    "body": {"body": "", "status": 200, "content_type": "text/html"},
    "big": {"size": 20_000_000},
    "unreachable": {},
}
LIMITS: dict[str, Any] = {"method": "", "agent": "", "exact": False, "times": 0}

NGINX_CONFIG = """\
daemon off;
master_process off;
pid "{folder}/nginx.pid";
error_log "{folder}/nginx-error.log" warn;
events {{ worker_connections 512; }}
http {{
    log_format record escape=json '{{"id": "$request_id", "time": $msec, "method": "$request_method", '
        '"host": "$host", "path": "$request_uri", "status": $status, '
        '"if_modified_since": "$http_if_modified_since", "agent": "$http_user_agent"}}';
    access_log off;
    client_body_temp_path "{folder}/temp/body";
    proxy_temp_path "{folder}/temp/proxy";
    fastcgi_temp_path "{folder}/temp/fastcgi";
    uwsgi_temp_path "{folder}/temp/uwsgi";
    scgi_temp_path "{folder}/temp/scgi";
    types {{ text/html html; application/json json; }}
    default_type text/plain;
    server_tokens off;
    etag off;
    if_modified_since exact;
    ssl_certificate "{folder}/site.pem";
    ssl_certificate_key "{folder}/site.key";
    proxy_http_version 1.1;
    proxy_buffering off;
    proxy_read_timeout 1h;
    proxy_redirect off;
    proxy_set_header Host $host;
    proxy_set_header Connection close;
    proxy_set_header X-Request-Id $request_id;
{servers}}}
"""
# Each request goes to the rules first, which mostly hand it back to @normal; the second server is what the rules
# themselves ask when they want the normal answer in order to change it.
SERVER = """\
    server {{
        listen "unix:{folder}/tls.sock" ssl{http2};
        server_name {host};
        access_log "{folder}/access.log" record;
        add_header X-Frame-Options DENY always;
        add_header X-Content-Type-Options nosniff always;
        add_header Strict-Transport-Security max-age=15768001 always;
        location / {{ proxy_pass "http://unix:{folder}/rules.sock"; }}
        location @normal {{ {normal} }}
    }}
    server {{
        listen "unix:{folder}/normal.sock";
        server_name {host};
        location / {{ {normal} }}
    }}
"""
STATIC = 'root "{folder}/www/{host}"; try_files $uri $uri/index.html =404;'
NORMAL = {
    WWW: STATIC,
    CDN: STATIC,
    APEX: f"return 301 https://{WWW}$request_uri;",
    GIT: f"""
            fastcgi_pass "unix:{{folder}}/fcgi.sock";
            fastcgi_param SCRIPT_FILENAME {CGIT};
            fastcgi_param CGIT_CONFIG "{{folder}}/cgitrc";
            fastcgi_param PATH_INFO $uri;
            fastcgi_param QUERY_STRING $args;
            fastcgi_param REQUEST_METHOD $request_method;
            fastcgi_param HTTP_HOST {GIT};
            fastcgi_param SERVER_NAME {GIT};
            fastcgi_param HTTPS on;
        """,
}


def die_with_parent() -> None:
    PR_SET_PDEATHSIG = 1
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def error_page(code: int) -> bytes:
    title = f"{code} {REASONS.get(code, 'Error')}"
    return (
        f"<html>\r\n<head><title>{title}</title></head>\r\n<body>\r\n<center><h1>{title}</h1></center>\r\n"
        "<hr><center>nginx</center>\r\n</body>\r\n</html>\r\n"
    ).encode()


@dataclass
class Rule:
    host: str
    prefix: str
    kind: str
    options: dict[str, Any]
    method: str
    agent: str
    exact: bool
    times: int

    @classmethod
    def make(cls, host: str, prefix: str, kind: str, options: dict[str, Any]) -> Rule:
        kind = str(kind).replace("_", "-")
        if kind.isdigit():
            kind, options = "status", {"code": int(kind), **options}
        if kind not in KINDS:
            raise ValueError(f"unknown kind {kind!r}, known are a status such as 404 and {', '.join(KINDS)}")
        if host not in HOSTS:
            raise ValueError(f"unknown host {host!r}, known are {', '.join(HOSTS)}")
        unknown = options.keys() - KINDS[kind].keys() - LIMITS.keys()
        if unknown:
            raise ValueError(f"{kind!r} takes no {', '.join(sorted(unknown))}")
        limits = {key: options.get(key, value) for key, value in LIMITS.items()}
        return cls(host, prefix, kind, {key: options.get(key, value) for key, value in KINDS[kind].items()}, **limits)

    def fits(self, request: Request) -> bool:
        return (
            self.host == request.host
            and (request.path == self.prefix if self.exact else request.path.startswith(self.prefix))
            and self.method in ("", request.method)
            and self.agent.lower() in request.headers.get("user-agent", "").lower()
        )


@dataclass
class Request:
    method: str
    path: str
    headers: dict[str, str]
    time: float = field(default_factory=time.time)

    @property
    def host(self) -> str:
        return self.headers.get("host", "").lower()

    def record(self) -> dict[str, Any]:
        return {
            "id": self.headers.get("x-request-id"),
            "time": self.time,
            "method": self.method,
            "host": self.host,
            "path": self.path,
            "status": None,
            "if_modified_since": self.headers.get("if-modified-since", ""),
            "agent": self.headers.get("user-agent", ""),
        }


async def read_head(reader: asyncio.StreamReader, first: bytes = b"") -> Request | None:
    try:
        head = (first + await reader.readuntil(b"\r\n\r\n")).decode("latin-1")
    except (asyncio.IncompleteReadError, asyncio.LimitOverrunError, ConnectionError):
        return None
    start, *lines = head.split("\r\n")
    words = start.split(" ")
    if len(words) != 3:
        return None
    headers = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in lines if line)}
    return Request(words[0], words[1], headers)


async def send(writer: asyncio.StreamWriter, code: int, headers: list[tuple[str, str]]) -> None:
    lines = [f"HTTP/1.1 {code} {REASONS.get(code, 'Unknown')}", *(f"{name}: {value}" for name, value in headers)]
    writer.write("\r\n".join([*lines, "Connection: close", "", ""]).encode())
    await writer.drain()


async def close(writer: asyncio.StreamWriter) -> None:
    with contextlib.suppress(ConnectionError):
        writer.close()
        await writer.wait_closed()


class Keeper:
    def __init__(self, folder: Path, http2: bool):
        self.folder = folder
        self.http2 = http2
        self.environment = {
            "PATH": os.environ["PATH"],
            "HOME": str(folder),
            "LC_ALL": "C.UTF-8",
            "TZ": "UTC",
            "GIT_CONFIG_NOSYSTEM": "1",
        }
        self.releases: list[Release] = []
        self.stamp = 0
        self.history = History(folder / "git", self.environment)
        self.rules: list[Rule] = []
        self.held: dict[int, Request] = {}
        self.connections: list[str] = []
        self.log_start = 0
        self.children: list[subprocess.Popen] = []
        self.tasks: set[asyncio.Task] = set()
        self.end = asyncio.Event()

    # Content

    def publish(self, new: list[Release], stamp: int) -> None:
        for release in new:
            if not release.is_next:
                self.history.add(release.channel, release.version, release.timestamp)
            self.place(release)
        self.history.flush()
        for release in new:
            if not release.is_candidate and not release.is_next:
                major = release.version.split(".")[0]
                self.write(
                    CDN,
                    f"pub/linux/kernel/v{major}.x/ChangeLog-{release.version}",
                    self.history.changelog(release.version),
                    release.timestamp,
                )
        self.stamp = stamp
        # The page comes last: whoever sees the new page finds all that it speaks of.
        self.write(WWW, "releases.json", release_pages.index(self.releases).encode(), stamp)
        page = release_pages.front_page(self.releases).encode()
        while HIDDEN in str(len(page)):
            page += b"\n"
        self.write(WWW, "index.html", page, stamp)

    def place(self, new: Release) -> None:
        """Puts a release where its row belongs: in the row of its series, or before all rows of its channel."""

        def series(release: Release) -> str:
            return ".".join(re.split(r"[.-]", release.version)[:2])

        rows = [row for row in self.releases if row.channel == new.channel]
        old = next((row for row in rows if new.channel == "mainline" or series(row) == series(new)), None)
        if old is not None:
            self.releases[self.releases.index(old)] = new
        elif rows:
            self.releases.insert(self.releases.index(rows[0]), new)
        else:
            self.releases.append(new)

    def write(self, host: str, name: str, content: bytes, stamp: int) -> None:
        path = self.folder / "www" / host / name
        path.parent.mkdir(parents=True, exist_ok=True)
        draft = path.with_name(path.name + ".new")
        draft.write_bytes(content)
        os.utime(draft, (stamp, stamp))
        draft.rename(path)

    def last_modified(self) -> str:
        rule = next((r for r in self.rules if r.kind == "last-modified" and r.host == WWW and r.prefix == "/"), None)
        return rule and rule.options["text"] or formatdate(self.stamp, usegmt=True)

    # Servers

    def make_certificates(self) -> None:
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "30"]
        # The address is for those that take the proxy itself for a TLS server.
        names = ",".join([*(f"DNS:{host}" for host in HOSTS), "IP:127.0.0.1"])
        for arguments in (
            [
                "-keyout",
                "ca.key",
                "-out",
                "ca.pem",
                "-subj",
                "/CN=Throw-away authority of a test",
                "-addext",
                "keyUsage=critical,keyCertSign",
            ],
            [
                "-keyout",
                "site.key",
                "-out",
                "site.pem",
                "-subj",
                f"/CN={WWW}",
                "-CA",
                "ca.pem",
                "-CAkey",
                "ca.key",
                "-addext",
                f"subjectAltName={names}",
                "-addext",
                "basicConstraints=critical,CA:FALSE",
            ],
        ):
            subprocess.run(
                ["openssl", "req", "-x509", *key, *arguments],
                cwd=self.folder,
                check=True,
                capture_output=True,
                env=self.environment,
            )
        (self.folder / "ca.key").unlink()

    def write_configuration(self) -> None:
        folder = str(self.folder)
        (self.folder / "temp").mkdir()
        servers = "".join(
            SERVER.format(
                folder=folder,
                host=host,
                http2=" http2" if self.http2 and host == HOSTS[0] else "",
                normal=normal.format(folder=folder, host=host),
            )
            for host, normal in NORMAL.items()
        )
        (self.folder / "nginx.conf").write_text(NGINX_CONFIG.format(folder=folder, servers=servers))
        cgit = ["virtual-root=/", "enable-index-owner=0"]
        for url, (name, description) in TREES.items():
            cgit += [
                f"repo.url={url}",
                f"repo.path={folder}/git/{name}",
                f"repo.desc={description}",
                f"repo.name={url.removeprefix('pub/scm/linux/')}",
            ]
        (self.folder / "cgitrc").write_text("\n".join(cgit) + "\n")
        for name, words in {
            "wgetrc": ("ca_certificate = {ca}", "hsts = off"),
            "wget2rc": ("ca_certificate = {ca}", "hsts = off", "ocsp = off", "hpkp = off"),
        }.items():
            (self.folder / name).write_text("\n".join(words).format(ca=f"{folder}/ca.pem") + "\n")

    def start_child(self, name: str, *command: str) -> None:
        if not Path(command[0]).exists():
            raise FileNotFoundError(f"{command[0]} is missing")
        with open(self.folder / f"{name}.out", "wb") as output:
            child = subprocess.Popen(
                command,
                cwd=self.folder,
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=output,
                env=self.environment,
                preexec_fn=die_with_parent,
            )
        self.children.append(child)

    async def wait_for_socket(self, name: str) -> None:
        deadline = time.monotonic() + START_DEADLINE
        while True:
            with contextlib.suppress(OSError):
                _, writer = await asyncio.open_unix_connection(self.folder / name)
                return await close(writer)
            if time.monotonic() > deadline or any(child.poll() is not None for child in self.children):
                said = "\n".join(
                    path.read_text(errors="replace").strip()
                    for path in (*self.folder.glob("*.out"), *self.folder.glob("*-error.log"))
                )
                raise RuntimeError(f"no server on {name}: {said}")
            await asyncio.sleep(0.01)

    async def start(self) -> dict[str, str]:
        if not Path(CGIT).exists():
            raise FileNotFoundError(f"{CGIT} is missing")
        certificates = asyncio.get_running_loop().run_in_executor(None, self.make_certificates)
        self.write_configuration()
        defaults = list(release_pages.DEFAULT_RELEASES)
        self.releases = defaults.copy()
        self.publish(defaults, max(release.timestamp for release in defaults) + 137)
        await certificates
        await asyncio.start_unix_server(self.guarded(self.answer), self.folder / "rules.sock")
        await asyncio.start_unix_server(self.guarded(self.control), self.folder / "control.sock")
        port = await self.start_proxy()
        self.start_child("fcgiwrap", "/usr/sbin/fcgiwrap", "-p", CGIT, "-s", f"unix:{self.folder}/fcgi.sock")
        self.start_child(
            "nginx",
            "/usr/sbin/nginx",
            "-e",
            f"{self.folder}/nginx-error.log",
            "-p",
            str(self.folder),
            "-c",
            f"{self.folder}/nginx.conf",
        )
        for name in ("fcgi.sock", "tls.sock", "normal.sock"):
            await self.wait_for_socket(name)
        address = f"http://127.0.0.1:{port}/"
        return {
            "https_proxy": address,
            # Plain http has no business here; the proxy refuses it, so that it cannot reach the real net.
            "http_proxy": address,
            "no_proxy": "",
            "NO_PROXY": "",
            "WGETRC": f"{self.folder}/wgetrc",
            "WGET2RC": f"{self.folder}/wget2rc",
            "CURL_CA_BUNDLE": f"{self.folder}/ca.pem",
            "KERNEL_SITE": f"{self.folder}/control.sock",
        }

    async def start_proxy(self) -> int:
        while True:
            proxy = await asyncio.start_server(self.guarded(self.proxy), "127.0.0.1", 0)
            port = proxy.sockets[0].getsockname()[1]
            if HIDDEN not in str(port):
                return port
            proxy.close()

    def guarded(self, serve: Callable) -> Callable:
        """A client that leaves early is no error, and no connection outlives its handler."""

        async def handler(reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
            # The loop itself holds its tasks only weakly.
            task = asyncio.current_task()
            self.tasks.add(task)
            task.add_done_callback(self.tasks.discard)
            try:
                await serve(reader, writer)
            except (ConnectionError, asyncio.CancelledError):
                pass
            finally:
                await close(writer)

        return handler

    # The proxy

    async def proxy(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        first = await reader.read(1)
        if first == TLS_HANDSHAKE:
            # wget2 before 2.0 never says CONNECT: it opens TLS with the proxy, and asks it for the whole address.
            self.connections.append("TLS")
            return await self.join(first, reader, writer)
        request = await read_head(reader, first)
        if request is None:
            return
        if whole := re.match(r"https://([^/:]+):443/", request.path):
            # wget2 2.2 says no CONNECT, either, and leaves the TLS to the proxy.
            self.connections.append(f"{whole[1]}:443")
            head = [f"{request.method} {request.path} HTTP/1.1", *(": ".join(each) for each in request.headers.items())]
            trust = ssl.create_default_context(cafile=self.folder / "ca.pem")
            return await self.join(
                "\r\n".join([*head, "", ""]).encode("latin-1"), reader, writer, ssl=trust, server_hostname=whole[1]
            )
        host, _, port = request.path.rpartition(":")
        self.connections.append(request.path)
        if request.method != "CONNECT" or port != "443":
            writer.write(b"HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n")
            return
        if any(rule.kind == "unreachable" and rule.host == host for rule in self.rules):
            writer.write(b"HTTP/1.1 502 Bad Gateway\r\nContent-Length: 0\r\n\r\n")
            return
        writer.write(b"HTTP/1.1 200 Connection established\r\n\r\n")
        await self.join(b"", reader, writer)

    async def join(self, first: bytes, reader: asyncio.StreamReader, writer: asyncio.StreamWriter, **tls: Any) -> None:
        site_reader, site_writer = await asyncio.open_unix_connection(self.folder / "tls.sock", **tls)
        site_writer.write(first)
        try:
            await asyncio.gather(self.pump(reader, site_writer), self.pump(site_reader, writer))
        finally:
            await close(site_writer)

    async def pump(self, source: asyncio.StreamReader, sink: asyncio.StreamWriter) -> None:
        with contextlib.suppress(OSError):
            while piece := await source.read(65536):
                sink.write(piece)
                await sink.drain()
        with contextlib.suppress(OSError):
            sink.write_eof()

    # The rules

    async def answer(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        request = await read_head(reader)
        if request is None:
            return
        rule = next((rule for rule in self.rules if rule.fits(request)), None)
        if rule is None or rule.kind == "unreachable":
            return await send(writer, 200, [("X-Accel-Redirect", "@normal")])
        if rule.times:
            if rule.times == 1:
                self.rules.remove(rule)
            rule.times -= 1
        self.held[id(request)] = request
        answer = asyncio.create_task(self.misbehave(rule, request, writer))
        gone = asyncio.create_task(reader.read())
        try:
            await asyncio.wait((answer, gone), return_when=asyncio.FIRST_COMPLETED)
        finally:
            del self.held[id(request)]
            answer.cancel()
            gone.cancel()
        if answer.done() and not answer.cancelled() and answer.exception():
            raise answer.exception()

    async def misbehave(self, rule: Rule, request: Request, writer: asyncio.StreamWriter) -> None:
        options = rule.options
        if rule.kind == "status":
            headers = [("Content-Type", "text/html")]
            await self.reply(request, writer, options["code"], headers, error_page(options["code"]))
        elif rule.kind == "redirect":
            headers = [("Content-Type", "text/html"), ("Location", options["to"])]
            await self.reply(request, writer, options["code"], headers, error_page(options["code"]))
        elif rule.kind == "silence":
            await asyncio.Event().wait()
        elif rule.kind == "body":
            headers = [("Content-Type", options["content_type"]), ("Last-Modified", self.last_modified())]
            await self.reply(request, writer, options["status"], headers, options["body"].encode())
        elif rule.kind == "big":
            await send(writer, 200, [("Content-Type", "text/plain"), ("Last-Modified", self.last_modified())])
            if request.method != "HEAD":
                version = request.path.rpartition("-")[2]
                for piece in long_changelog(version, int(options["size"])):
                    writer.write(piece)
                    await writer.drain()
        elif rule.kind == "trickle":
            code, headers, body = await self.normal(request)
            await send(writer, code, headers)
            for n in range(len(body)):
                writer.write(body[n : n + 1])
                await writer.drain()
                await asyncio.sleep(float(options["interval"]))
        elif rule.kind == "headers":
            code, headers, body = await self.normal(request)
            await self.reply(request, writer, code, [*headers, *options["headers"].items()], body)
        elif rule.kind == "last-modified":
            # The text need not be a date, so the comparison that nginx would make is made here.
            known = request.headers.pop("if-modified-since", None)
            code, headers, body = await self.normal(request)
            text = options["text"] or dict(headers).get("Last-Modified", "")
            if code == 200 and known == text:
                code, headers, body = 304, [], b""
            headers = [header for header in headers if header[0] != "Last-Modified"]
            await self.reply(request, writer, code, [*headers, (options["name"], text)], body)

    async def reply(
        self, request: Request, writer: asyncio.StreamWriter, code: int, headers: list[tuple[str, str]], body: bytes
    ) -> None:
        if code != 304 and not any(name.lower() == "content-length" for name, _ in headers):
            headers = [*headers, ("Content-Length", str(len(body)))]
        await send(writer, code, headers)
        if request.method != "HEAD":
            writer.write(body)
            await writer.drain()

    async def normal(self, request: Request) -> tuple[int, list[tuple[str, str]], bytes]:
        """The answer that nginx gives if nothing is asked of it."""
        reader, writer = await asyncio.open_unix_connection(self.folder / "normal.sock")
        try:
            kept = {name: value for name, value in request.headers.items() if name in ("host", "if-modified-since")}
            lines = [f"{request.method} {request.path} HTTP/1.0", *(f"{name}: {value}" for name, value in kept.items())]
            writer.write("\r\n".join([*lines, "", ""]).encode())
            head, _, body = (await reader.read()).partition(b"\r\n\r\n")
        finally:
            await close(writer)
        first, *lines = head.decode("latin-1").split("\r\n")
        headers = [tuple(line.split(": ", 1)) for line in lines]
        unwanted = ("server", "date", "connection")
        return int(first.split(" ")[1]), [h for h in headers if h[0].lower() not in unwanted], body

    # The control socket

    async def control(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        try:
            order = json.loads(await reader.readline())
            reply = {"result": await self.obey(**order)}
        except (ValueError, TypeError, subprocess.CalledProcessError) as problem:
            reply = {"error": str(problem)}
        writer.write(json.dumps(reply).encode() + b"\n")
        await writer.drain()

    async def obey(self, do: str, **order: Any) -> Any:
        if do == "publish":
            return self.publish_newer(**order)
        if do == "misbehave":
            self.rules.insert(0, Rule.make(**order))
        elif do == "behave":
            self.rules.clear()
        elif do == "requests":
            return await self.requests()
        elif do == "clear":
            await self.settle()
            self.log_start = self.log().stat().st_size
            self.connections.clear()
        elif do == "connections":
            return self.connections
        elif do == "last-modified":
            return self.last_modified()
        else:
            raise ValueError(f"unknown order {do!r}")
        return None

    def publish_newer(self, **versions: str) -> None:
        for channel, version in versions.items():
            if channel not in ("mainline", "stable", "longterm"):
                raise ValueError(f"unknown channel {channel!r}")
            if not re.fullmatch(r"\d+\.\d+(\.\d+|-rc\d+)?", version):
                raise ValueError(f"no version of the kernel: {version!r}")
            if channel != "mainline" and "-rc" in version:
                raise ValueError(f"a candidate is not {channel}: {version!r}")
        day = self.stamp + 2 * DAY
        self.publish([Release(channel, version, day) for channel, version in versions.items()], day + 137)

    def log(self) -> Path:
        return self.folder / "access.log"

    async def settle(self) -> None:
        """Once this request is answered, nginx has logged all that it answered before: it does one thing at a time."""
        await self.normal(Request("HEAD", "/", {"host": WWW}))

    async def requests(self) -> list[dict[str, Any]]:
        held = [request.record() for request in self.held.values()]
        await self.settle()
        with open(self.log(), "rb") as log:
            log.seek(self.log_start)
            done = [json.loads(line) for line in log.read().splitlines()]
        known = {record["id"] for record in done}
        return done + [record for record in held if record["id"] not in known]

    # Life

    def stop(self) -> None:
        for child in self.children:
            child.kill()
        for child in self.children:
            child.wait()


def watch(loop: asyncio.AbstractEventLoop, process: int, end: asyncio.Event) -> None:
    loop.add_reader(os.pidfd_open(process), end.set)


def make_folder(where: str | None) -> Path:
    while True:
        folder = Path(tempfile.mkdtemp(prefix="kernel-site-", dir=where))
        if HIDDEN not in folder.name:
            return folder
        folder.rmdir()


async def main(owner: int, http2: bool) -> None:
    # Socket paths have little room, and a test's own temporary folder may be deep.
    short = len(tempfile.gettempdir()) < 60
    folder = make_folder(None if short else "/tmp")
    keeper = None
    try:
        keeper = Keeper(folder, http2)
        loop = asyncio.get_running_loop()
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            loop.add_signal_handler(number, keeper.end.set)
        loop.add_reader(sys.stdin.fileno(), keeper.end.set)
        watch(loop, owner, keeper.end)
        try:
            said = {"folder": str(folder), "environment": await keeper.start()}
        except Exception as problem:
            said = {"error": f"{type(problem).__name__}: {problem}"}
            keeper.end.set()
        for child in keeper.children:
            watch(loop, child.pid, keeper.end)
        with contextlib.suppress(BrokenPipeError):
            print(json.dumps(said), flush=True)
        await keeper.end.wait()
    finally:
        if keeper is not None:
            keeper.stop()
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    os.umask(0o077)
    os.environ["PATH"] = "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"
    if os.getppid() == int(sys.argv[1]):
        asyncio.run(main(int(sys.argv[1]), "http2" in sys.argv[2:]))
