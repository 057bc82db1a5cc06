"""A release service that reads what it gets, keeps nothing and accepts everything.

Prints its port, then serves until it is ended.
"""

import http.server

CHUNK = 1 << 20


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    rbufsize = CHUNK

    def answer(self):
        left = int(self.headers.get("Content-Length", 0))
        while left > 0:
            left -= len(self.rfile.read(min(left, CHUNK)))
        self.send_response(202)
        self.send_header("Content-Length", "0")
        self.end_headers()

    do_GET = do_PUT = do_POST = answer

    def log_message(self, *arguments):
        pass


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_address[1], flush=True)
server.serve_forever()
