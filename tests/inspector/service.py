"""The development service as a process of its own, and a client of its protocol and admin interface."""

import http.client
import json
import socket
import subprocess
import tempfile
import urllib.parse


class Reply:
    def __init__(self, status, headers, body):
        self.status = status
        self.headers = {name.lower(): value for name, value in headers}
        self.body = body

    def json(self):
        return json.loads(self.body)


class Service:
    """A service with its admin interface on, in a folder that goes with it."""

    def __init__(self, program, *options):
        self.folder = tempfile.TemporaryDirectory()
        self.process = subprocess.Popen(
            [program, "--admin", "--quiet", "--port", "0", "--database", f"{self.folder.name}/profiles.sqlite",
             "--write-config", f"{self.folder.name}/config.json", *options],
            stdout=subprocess.PIPE, text=True)
        ready = "kestrin-profile-server ready on "
        line = next((each for each in self.process.stdout if each.startswith(ready)), None)
        if line is None:
            self.close()
            raise RuntimeError("the service did not start")
        self.url = line.removeprefix(ready).strip()
        self.default = World(self.url)

    def close(self):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()
        self.folder.cleanup()


class World:
    """One namespace of a service."""

    def __init__(self, url, secret=None):
        self.url = url
        self.path = urllib.parse.urlsplit(url).path
        self.host = urllib.parse.urlsplit(url).netloc
        self.admin_headers = {"Authorization": f"Bearer {secret}"} if secret else {}
        self.page = f"{url}/admin/"
        self.tokens = {}

    def send(self, method, target, headers=None, body=None):
        """Sends one request; body is JSON, or bytes as they are."""
        connection = http.client.HTTPConnection(self.host)
        sent = dict(headers or {})
        if body is not None and not isinstance(body, bytes):
            body = json.dumps(body).encode()
            sent.setdefault("Content-Type", "application/json")
        connection.request(method, self.path + target, body, sent)
        reply = connection.getresponse()
        result = Reply(reply.status, reply.getheaders(), reply.read())
        connection.close()
        return result

    def admin(self, method, path, body=None):
        """Asks the admin interface; returns the reply's JSON."""
        reply = self.send(method, f"/admin/v1/{path}", self.admin_headers, body)
        if reply.status >= 400:
            raise RuntimeError(f"{method} {path}: {reply.status} {reply.body!r}")
        return reply.json() if reply.body else None

    def household_secret(self):
        services = self.admin("GET", "client-configuration")["services"]
        return services["personalization-bind-anonymous"]["headers"]["X-Household-Secret"]

    def bind(self, profile="parent"):
        return self.send("POST", f"/v1/binds?profile={profile}&v=1",
                         {"X-Household-Secret": self.household_secret()}, {"profileId": profile})

    def headers(self, profile="parent"):
        if profile not in self.tokens:
            self.tokens[profile] = self.bind(profile).json()["token"]
        return {"Authorization": f"JWT {self.tokens[profile]}", "PXRO-PROFILE-ID": profile}

    def call(self, method, target, body=None, profile="parent", headers=None):
        """An operation of the protocol, by a profile that is bound first."""
        return self.send(method, f"/v1/{target}", {**self.headers(profile), **(headers or {})}, body)

    def create(self, username, **more):
        """Creates a profile; returns its identifier."""
        return self.call("POST", "profiles?profile=parent&v=1", {"username": username, **more}).json()["profileId"]

    def of(self, profile="parent"):
        """What a query that addresses a profile's list ends with."""
        return f"brand=kestrin&profile={profile}&v=1"

    def watch(self, video, progress, completed, profile="parent"):
        return self.call("PUT", f"history/video?video={video}&{self.of(profile)}",
                         {"progress": str(progress), "isCompleted": "true" if completed else "false", "type": "VIDEO"}, profile)

    def send_many(self, method, target, count):
        """Sends the same request many times over one connection, without a body and ahead of the replies."""
        request = f"{method} {self.path}{target} HTTP/1.1\r\nHost: {self.host}\r\n\r\n".encode()
        host, port = self.host.rsplit(":", 1)
        with socket.create_connection((host, int(port))) as connection, connection.makefile("rb") as replies:
            for begin in range(0, count, 100):
                portion = min(100, count - begin)
                connection.sendall(request * portion)
                for _ in range(portion):
                    self.skip_reply(replies)

    @staticmethod
    def skip_reply(replies):
        length = 0
        for line in iter(replies.readline, b"\r\n"):
            if line == b"":
                raise RuntimeError("the service has closed the connection")
            name, _, value = line.partition(b":")
            if name.lower() == b"content-length":
                length = int(value)
        replies.read(length)
