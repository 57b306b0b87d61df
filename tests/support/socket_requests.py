"""Requests to a daemon's administration socket."""
import contextlib
import http.client
import json
import socket


class SocketRequests:
    """One connection, kept, with the daemon that listens at `path`."""

    def __init__(self, path, seconds):
        """`seconds`: how long an answer may take."""
        self.path = path
        self.seconds = seconds
        self.connection = None

    def post(self, plugin, operation, request):
        """The HTTP status and the reply."""
        return self.send("POST", "/v1/%s/%s" % (plugin, operation), json.dumps(request))

    def get(self, target):
        return self.send("GET", target, None)

    def send(self, method, target, body):
        if self.connection is None:
            self.connection = http.client.HTTPConnection("paddock")
            self.connection.sock = socket.socket(socket.AF_UNIX)
            self.connection.sock.settimeout(self.seconds)
            self.connection.sock.connect(self.path)
        try:
            self.connection.request(method, target, body)
            response = self.connection.getresponse()
            text = response.read()
        except (OSError, http.client.HTTPException):
            self.close()
            raise
        if response.will_close:
            self.close()
        return response.status, json.loads(text)

    def close(self):
        with contextlib.suppress(AttributeError):
            self.connection.close()
        self.connection = None
