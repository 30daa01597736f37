# SPDX-License-Identifier: Apache-2.0
"""The API on simulated cameras: api_test.py NYXUS-SIM NYXUS-STUDIO OPENAPI. Standard library only."""
import base64, http.client, json, os, re, signal, socket, struct, subprocess, sys, tempfile, time

SIM, STUDIO, OPENAPI = sys.argv[1:4]
described = json.load(open(OPENAPI))["paths"]


def check(truth, what):
    if not truth:
        raise SystemExit("api_test: " + what)


def fits(schema, value, where):
    """As far as the description goes: types, required members, items."""
    kinds = {"object": dict, "array": list, "string": str, "boolean": bool, "integer": int, "number": (int, float)}
    if "type" in schema:
        check(isinstance(value, kinds[schema["type"]]), f"{where} is no {schema['type']}: {value!r}")
    for name in schema.get("required", []):
        check(name in value, f"{where} lacks {name}: {value!r}")
    for name, inner in schema.get("properties", {}).items():
        if isinstance(value, dict) and name in value:
            fits(inner, value[name], f"{where}.{name}")
    for item in value if "items" in schema else []:
        fits(schema["items"], item, where + "[]")


def schema_of(method, path, status):
    for pattern, methods in described.items():
        if re.fullmatch(re.sub(r"\{\w+\}", "[^/]+", pattern), path) and method.lower() in methods:
            answer = methods[method.lower()]["responses"].get(str(status), {})
            return answer.get("content", {}).get("application/json", {}).get("schema", {})
    raise SystemExit(f"api_test: {method} {path} is not described")


class Client:
    def __init__(self, url):
        self.host, self.opening = re.fullmatch(r"http://([^/]+)(/.*)", url).groups()
        status, headers, _ = self.raw("GET", self.opening)
        check(status == 303, "the code opens nothing")
        self.cookie = headers["Set-Cookie"].split(";")[0]

    def raw(self, method, path, body=None, headers={}):
        connection = http.client.HTTPConnection(self.host, timeout=60)
        connection.request(method, path, body, headers)
        answer = connection.getresponse()
        return answer.status, answer.headers, answer.read()

    def ask(self, method, path, value=None, expect=200):
        body = value if isinstance(value, (bytes, type(None))) else json.dumps(value)
        headers = {"Cookie": self.cookie, "X-Nyxus-Studio": "1"}
        status, answered, text = self.raw(method, path, body, headers)
        check(status == expect, f"{method} {path}: {status}, not {expect}: {text[:300]!r}")
        if answered["Content-Type"] != "application/json":
            return text
        answer = json.loads(text)
        fits(schema_of(method, path.split("?")[0], status), answer, path)
        return answer


class Events:
    """A WebSocket, as plain as it can be."""

    def __init__(self, client):
        host, port = client.host.split(":")
        self.socket = socket.create_connection((host, int(port)), 60)
        self.socket.sendall((f"GET /api/events HTTP/1.1\r\nHost: {client.host}\r\nOrigin: http://{client.host}\r\n"
                             f"Cookie: {client.cookie}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                             "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: "
                             + base64.b64encode(os.urandom(16)).decode() + "\r\n\r\n").encode())
        self.stream = self.socket.makefile("rb")
        check(b" 101 " in self.stream.readline(), "no WebSocket")
        while self.stream.readline() != b"\r\n":
            pass

    def say(self, value):
        text = json.dumps(value).encode()
        size = bytes([0x80 | len(text)]) if len(text) < 126 else b"\xfe" + struct.pack(">H", len(text))
        self.socket.sendall(b"\x81" + size + bytes(4) + text)

    def next(self):
        kind, size = self.stream.read(2)
        size = {126: lambda: struct.unpack(">H", self.stream.read(2))[0],
                127: lambda: struct.unpack(">Q", self.stream.read(8))[0]}.get(size, lambda: size)()
        data = self.stream.read(size)
        check(kind in (0x81, 0x82, 0x89), f"the server ends the stream: {kind:#x} {data[:40]!r}")
        return json.loads(data) if kind == 0x81 else data if kind == 0x82 else {"event": "ping"}

    def until(self, wanted):
        while True:
            message = self.next()
            if wanted(message):
                return message


def refuses_strangers(client):
    own = {"Cookie": client.cookie}
    for method, path, headers, status in [
        ("GET", "/", {}, 401),
        ("GET", client.opening, {}, 401),  # works once
        ("GET", "/api/studio", {}, 401),
        ("GET", "/api/studio", {**own, "Host": "evil.example"}, 403),
        ("GET", "/api/studio", {**own, "Origin": "http://evil.example"}, 403),
        ("POST", "/api/files", own, 403),  # a form could send that
    ]:
        got = client.raw(method, path, b"x" if method == "POST" else None, headers)[0]
        check(got == status, f"{method} {path} {headers}: {got}, not {status}")


def shows_and_sets(client, port):
    camera = f"/api/cameras/{port}"
    for path in ["", "/formats", "/features", "/rom/map"]:
        client.ask("GET", camera + path)
    check(len(client.ask("GET", camera + "/rom/bytes?offset=16&size=48")) == 48, "not 48 bytes")
    control = client.ask("GET", camera + "/controls")[0]
    name = f"{camera}/controls/{control['name']}"
    check(client.ask("PUT", name, {"value": control["minimum"]})["value"] == control["minimum"], "not set")
    client.ask("PUT", name, {"value": control["maximum"] + 1}, expect=400)
    client.ask("PUT", camera + "/features/mirror", {"on": True})
    check(client.ask("GET", camera + "/features")["mirror"] is True, "not mirrored")
    client.ask("PUT", camera + "/features/mirror", {"on": "x"}, expect=400)
    client.ask("POST", camera + "/registers/read", {"address": 32, "count": 4})
    client.ask("GET", "/api/cameras/9-9", expect=404)


def upgrades(client, port, image, events):
    file = client.ask("POST", "/api/files", image, expect=201)
    plan = client.ask("POST", "/api/plans", {"file": file["id"], "cameras": [port]}, expect=201)
    wanted = {"kind": "upgrade", "plan": plan["id"]}
    client.ask("POST", "/api/jobs", wanted, expect=409)  # nobody has confirmed it
    job = client.ask("POST", "/api/jobs", {**wanted, "confirmed": True}, expect=202)
    events.until(lambda e: isinstance(e, dict) and e.get("job", {}).get("state", "running") != "running")
    ended = client.ask("GET", "/api/jobs/" + job["id"])
    check(ended["state"] == "done" and ended["cameras"][port]["report"]["rom"] == "new", f"the upgrade: {ended}")
    check(len(client.ask("GET", "/api/backups")) == 1, "no backup was kept")


def main():
    if "STUDIO_TEST" not in os.environ:
        with tempfile.TemporaryDirectory() as folder:
            image = folder + "/image.bin"
            subprocess.run([SIM, "image", "--model", "rowan-spi", "--version", "0x0205", image], check=True)
            environment = {**os.environ, "STUDIO_TEST": image, "XDG_STATE_HOME": folder, "XDG_CONFIG_HOME": folder}
            command = [SIM, "run", "--camera", "rowan-spi", "--", sys.executable, *sys.argv]
            sys.exit(subprocess.run(command, env=environment).returncode)
    server = subprocess.Popen([STUDIO, "--no-browser"], stdout=subprocess.PIPE, text=True)
    try:
        client = Client(server.stdout.readline().strip())
        refuses_strangers(client)
        client.ask("GET", "/api/studio")
        events = Events(client)
        port = events.until(lambda e: e["event"] == "camera_came")["camera"]["port_path"]
        client.ask("GET", "/api/cameras")
        events.say({"watch": [{"camera": port, "format": "YUYV", "size": "640x480"}]})
        picture = events.until(lambda e: isinstance(e, bytes))
        check(picture[:4] == bytes(4) and picture[16:18] == b"\xff\xd8", f"no picture: {picture[:20]!r}")
        shows_and_sets(client, port)
        events.say({"watch": []})
        with open(os.environ["STUDIO_TEST"], "rb") as image:
            upgrades(client, port, image.read(), events)
        server.send_signal(signal.SIGTERM)
        check(server.wait(60) == 0, "the server did not end well")
    finally:
        if server.poll() is None:
            server.kill()


main()
