#!/usr/bin/env python3
"""What fetch promises: the body to the byte, the status, the size and the rate, and its exit codes.

   tests/examples/fetch_test.py PROGRAM
"""
import functools
import http.server
import os
import re
import socket
import subprocess
import sys
import tempfile
import threading

PROGRAM = sys.argv[1]
BODY = bytes(range(256)) * 8000


def this_host():
    """A name, or the address on a machine without /etc/hosts, which may not know the name."""
    try:
        socket.getaddrinfo("localhost", None, socket.AF_INET)
        return "localhost"
    except OSError:
        return "127.0.0.1"


class Chunks(http.server.BaseHTTPRequestHandler):
    """Replies that plain files do not make."""
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        if self.path == "/chunks?x=1":
            self.send_response(200)
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            for at in range(0, len(BODY), 70000):
                piece = BODY[at:at + 70000]
                self.wfile.write(b"%x\r\n%s\r\n" % (len(piece), piece))
            self.wfile.write(b"0\r\n\r\n")
        elif self.path == "/host":
            host = self.headers["host"].encode()
            self.send_response(200)
            self.send_header("Content-Length", len(host))
            self.end_headers()
            self.wfile.write(host)
        else:  # less than it announces, each time
            self.send_response(200)
            self.send_header("Content-Length", 100)
            self.end_headers()
            self.wfile.write(b"short")
            self.close_connection = True

    def log_message(self, *args):
        pass


class Files(http.server.SimpleHTTPRequestHandler):
    log_message = Chunks.log_message


def serve(handler):
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


def fetch(code, said, *args, body=b""):
    """Runs it; it ends with the code, says what the pattern has, and writes the body."""
    ended = subprocess.run([PROGRAM, *args], capture_output=True, timeout=60)
    heard = ended.stderr.decode()
    assert ended.returncode == code, (args, ended.returncode, heard)
    assert re.fullmatch(said, heard), (args, heard)
    assert ended.stdout == body, (args, len(ended.stdout))


with tempfile.TemporaryDirectory() as work:
    with open(f"{work}/file", "wb") as out:
        out.write(BODY)
    files, chunks = serve(functools.partial(Files, directory=work)), serve(Chunks)
    at_files, at_chunks = (f"http://127.0.0.1:{server.server_port}" for server in (files, chunks))
    told = r"status 200, %d bytes in \d+\.\d ms, \d+\.\d MB/s\n"
    fetch(0, told % len(BODY), f"{at_files}/file#part", body=BODY)
    fetch(0, told % len(BODY), f"{at_chunks}/chunks?x=1", f"{work}/got")
    with open(f"{work}/got", "rb") as got:
        assert got.read() == BODY
    host = f"{this_host()}:{chunks.server_port}"
    fetch(0, told % len(host), f"http://{host}/host", body=host.encode())
    fetch(1, r"status 404, (?s:.*)", f"{at_files}/missing", f"{work}/missing")
    fetch(1, told % 5 + "fetch: the reply was cut short\n", f"{at_chunks}/cut", f"{work}/cut")
    assert not os.path.exists(f"{work}/cut")
    fetch(1, told % len(BODY) + "fetch: .*: No such file or directory\n", f"{at_files}/file", f"{work}/none/got")
    files.server_close()
    files.shutdown()
    fetch(1, "fetch: no reply from 127.0.0.1 port .*\n", f"{at_files}/file")
    fetch(1, "fetch: no such host: .*\n", "http://no-such-host.invalid/")
    for refused in ("https://localhost/", "http://", "http://localhost:0/", "http://localhost:80x/"):
        fetch(2, "fetch http://.*\n", refused)
    chunks.shutdown()
