"""A server of signatures on loopback."""

import http.server
import threading


class Mirror:
    """A mirror of signatures. `files` has the content of each file; one that is a function of the request gives
    the answer itself."""

    def __init__(self):
        self.files = {}
        self.requests = []
        server = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                name = self.path.lstrip("/")
                server.requests.append((name, self.headers["Range"]))
                content = server.files.get(name)
                if callable(content):
                    content(self)
                elif content is None:
                    self.send_error(404)
                else:
                    server.answer(self, content)

            def log_message(self, *_):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        self.address = f"http://127.0.0.1:{self._server.server_port}"
        threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.01}, daemon=True).start()

    @staticmethod
    def answer(request, content, length=None):
        """Gives `content`, or the part of it that was asked for; announces `length` bytes."""
        wanted = request.headers["Range"]
        if wanted:
            first, last = (int(number) for number in wanted.removeprefix("bytes=").split("-"))
            content = content[first:last + 1]
        request.send_response(206 if wanted else 200)
        request.send_header("Content-Length", str(len(content) if length is None or wanted else length))
        request.end_headers()
        request.wfile.write(content)

    def serve(self, **files):
        for name, file in files.items():
            self.files[f"{name}.cvd"] = file if callable(file) or isinstance(file, bytes) else file.read_bytes()

    def close(self):
        self._server.shutdown()
        self._server.server_close()
