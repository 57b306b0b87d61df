"""A paddockd of a test's own, in a tree that is installed for it."""
import json
import os
import subprocess


class OwnDaemon:
    """Of the build `build`, in the new folder `tree`."""

    def __init__(self, cmake, build, tree, configuration, environment=None):
        """Installed, not started. `configuration` is all of the daemon's."""
        subprocess.run([cmake, "--install", build, "--prefix", "/usr"], check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       env=dict(os.environ, DESTDIR=tree))
        self.tree = tree
        self.environment = environment
        self.process = None
        with open(os.path.join(tree, "etc/paddock/paddockd.toml"), "w", encoding="utf-8") as file:
            file.write(configuration)

    def start(self):
        """Until it answers."""
        with open(os.path.join(self.tree, "log"), "ab") as log:
            self.process = subprocess.Popen(
                [os.path.join(self.tree, "usr/sbin/paddockd"), "--root", self.tree],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, env=self.environment)
        while self.run("status").returncode == 3:
            assert self.process.poll() is None, "paddockd does not start; its log: " + self.log()

    def stop(self):
        """Nothing when it does not run."""
        if self.process is None:
            return
        process, self.process = self.process, None
        process.terminate()
        status = process.wait(60)
        assert status == 0, "paddockd ended with %d; its log: %s" % (status, self.log())

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process = None

    def log(self):
        with open(os.path.join(self.tree, "log"), encoding="utf-8", errors="replace") as log:
            return log.read()

    def run(self, *words):
        """keelhouse with these words, as it ended."""
        return subprocess.run([os.path.join(self.tree, "usr/sbin/keelhouse"), *words],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, encoding="utf-8", check=False)

    def request(self, operation, request):
        """The sharing module's reply."""
        ended = self.run("request", "paddock_sharing", operation, json.dumps(request))
        assert ended.returncode == 0, "%s: %s" % (operation, ended.stderr)
        return json.loads(ended.stdout)

    def write(self, path, configuration):
        """Settings of a folder, with success."""
        reply = self.request("writeSettings", {"optionalArguments": {"path": path},
                                               "configuration": configuration})
        assert reply["writeStatus"] == 0, reply
