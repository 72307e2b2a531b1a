"""A local stand-in for the vendor's update web service.

Serves, on 127.0.0.1 only, the answers the web-updater library asks for with the URLs the
program builds from its "WebServerUrl" template:

    /orrery/<language>/<country>/<os>/<package code>

For a version package code the body is the latest version (plain text); for a download package
code it is the package itself (in the demo a signed container, see demo.py). Every request is
recorded with its codes.
"""

import http.server
import threading
import urllib.parse


def make_package(files):
    """A package the stand-in library applies: each file's name and content."""
    lines = ["ORRERY-PACKAGE 1"]
    for name, content in files.items():
        lines.append("--- file: " + name)
        lines.extend(content.splitlines())
    return ("\r\n".join(lines) + "\r\n").encode("ascii")


def version_file(version):
    return ("<?xml version=\"1.0\"?>\r\n<Package>\r\n  <PackageVersion>" + version +
            "</PackageVersion>\r\n</Package>\r\n")


class UpdateService:
    """Serves one software and one catalog release; records the requests it receives."""

    def __init__(self, software_version, catalog_version, local_id="cvup", port=0, seal=None):
        """`seal` turns a package's text into the file served (the demo's: a signed container);
        by default the text is served as it is."""
        seal = seal or (lambda package: package)
        self.software_version = software_version
        self.catalog_version = catalog_version
        self.requests = []
        self._lock = threading.Lock()
        self.routes = {
            "ORRERY-VERSION": ("text/plain", software_version.encode("ascii")),
            "CATALOG-VERSION": ("text/plain", catalog_version.encode("ascii")),
            "ORRERY-PACKAGE": ("application/octet-stream", seal(make_package({
                local_id + "Prog.ver": version_file(software_version),
                "release-notes.txt": "Orrery " + software_version + "\r\n",
            }))),
            "CATALOG-PACKAGE": ("application/octet-stream", seal(make_package({
                "orData.ver": version_file(catalog_version),
                "catalog.xml": "<Catalog version=\"" + catalog_version + "\"/>\r\n",
            }))),
        }
        service = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                service._serve(self)

            def log_message(self, *args):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
        self.port = self._server.server_address[1]
        self._thread = threading.Thread(target=self._server.serve_forever, daemon=True)

    def _serve(self, handler):
        path = urllib.parse.urlsplit(handler.path).path
        parts = [urllib.parse.unquote(p) for p in path.split("/") if p]
        record = {"path": handler.path, "status": 404}
        if len(parts) == 5 and parts[0] == "orrery":
            record.update(language=parts[1], country=parts[2], os=parts[3], package=parts[4])
        route = self.routes.get(record.get("package"))
        if route is not None:
            record["status"] = 200
            handler.send_response(200)
            handler.send_header("Content-Type", route[0])
            handler.send_header("Content-Length", str(len(route[1])))
            handler.end_headers()
            handler.wfile.write(route[1])
        else:
            handler.send_error(404)
        with self._lock:
            self.requests.append(record)

    def start(self):
        self._thread.start()
        return self

    def stop(self):
        self._server.shutdown()
        self._server.server_close()

    def take_requests(self):
        with self._lock:
            taken, self.requests = self.requests, []
        return taken
