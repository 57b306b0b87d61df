"""The program publish_service, driven by a test."""
import subprocess
import threading
import time

from own_network import PATIENCE, eventually

TYPE = "_adisk._tcp"
PORT = 311
# Seconds. A call that waited for a bus or a daemon that hangs would take 25, the patience of D-Bus.
AT_ONCE = 5


class Publisher:
    """Services of one process, on a host."""

    def __init__(self, program, host, first_pause=100, longest_pause=500):
        self.process = host.start(program, str(first_pause), str(longest_pause), stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, encoding="utf-8", errors="surrogateescape")
        self.lines = []
        self.slowest = 0
        self._answers = 0
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def do(self, command, service, *fields):
        """Until the call has returned."""
        self._send([command, service, *map(str, fields)])

    def create(self, service, name="", service_type=TYPE, port=PORT, domain=""):
        self.do("create", service, port, service_type, name, domain)

    def set_txt(self, service, *texts):
        self.do("txt", service, *(text.encode("utf-8", "surrogateescape").hex() for text in texts))

    def publish(self, service, *texts, **more):
        self.create(service, **more)
        self.set_txt(service, *texts)
        self.do("publish", service)

    def end_services(self):
        self._send(["end"])

    def log(self):
        return [line[len("log "):] for line in self.lines if line.startswith("log ")]

    def told(self, service):
        """What its delegate was told."""
        return [line for line in self.lines
                if not line.startswith("log ") and line.split(" ")[1] == service]

    def wait_for_line(self, part):
        eventually(lambda: any(part in line for line in self.lines),
                   lambda: "a line with %r in %s" % (part, self.lines))

    def finish(self):
        """Its exit status, as it comes to its end by itself; sanitizers report in it."""
        self.process.stdin.close()
        status = self.process.wait(PATIENCE)
        self._reader.join()
        return status

    def kill(self):
        self.process.kill()
        self.process.wait()
        self._reader.join()
        self.process.stdin.close()

    def _send(self, fields):
        answers = self._answers
        self.process.stdin.write("\t".join(fields) + "\n")
        self.process.stdin.flush()
        deadline = time.monotonic() + PATIENCE
        while self._answers == answers:
            assert time.monotonic() < deadline, "%s does not return" % fields
            time.sleep(0.001)

    def _read(self):
        with self.process.stdout as output:
            for line in output:
                self._take(line.rstrip("\n"))

    def _take(self, line):
        if line.startswith("done "):
            self.slowest = max(self.slowest, int(line.split(" ")[1]) / 1e6)
            self._answers += 1
        else:
            self.lines.append(line)
