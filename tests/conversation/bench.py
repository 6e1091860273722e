"""bench.py - the simulated reader and the command-line tool, as the tool's tests use them.

The programs under test come in the environment: QV_TOOL, QV_SIM, QV_CARDS (the folder of card files).
"""
import contextlib
import json
import os
import queue
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import tty
import unittest

TOOL = os.environ["QV_TOOL"]
SIM = os.environ["QV_SIM"]
CARDS = os.environ["QV_CARDS"]
NOBODY = 65534
DONE = "9000  (success)  \"ErrCode: 9000: \u6210\u529f\u6267\u884c\""  # of a card, as the tool shows it
PATIENCE = 20  # seconds, for everything that happens at once on an idle machine


def wait_until(check, what):
    """Waits for something that can be observed."""
    end = time.monotonic() + PATIENCE
    while not check():
        if time.monotonic() > end:
            raise AssertionError("did not happen in %d s: %s" % (PATIENCE, what))
        time.sleep(0.01)


def card(name):
    return "script:" + os.path.join(CARDS, name + ".card")


class Simulator:
    """A running simulator. Its commands go through standard input, a line each."""

    def __init__(self, *arguments):
        self.folder = tempfile.mkdtemp(prefix="qvsim-")
        self.trace_path = os.path.join(self.folder, "trace")
        self.process = subprocess.Popen(
            [SIM, "--quiet", "--trace", self.trace_path, *arguments],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()
        self.told = []  # lines in front of "ready"
        while True:
            line = self._line()
            if line.startswith("ready "):
                self.path = line.split()[1]
                return
            self.told.append(line)

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))
        self.lines.put(None)

    def _line(self):
        line = self.lines.get(timeout=PATIENCE)
        if line is None:
            raise AssertionError("the simulator has ended: %s" % self.process.wait())
        return line

    def command(self, text):
        """Sends one command; the lines of its answer. An error is a failed test."""
        self.process.stdin.write(text + "\n")
        self.process.stdin.flush()
        told = []
        while True:
            line = self._line()
            if line == "ok":
                return told
            if line.startswith("error: "):
                raise AssertionError("simulator: %s: %s" % (text, line))
            told.append(line)

    def state(self, key):
        """What stands behind KEY in the simulator's state, None: no such line."""
        for line in self.command("state"):
            if line.startswith(key + " "):
                return line[len(key) + 1:]
        return None

    def trace(self):
        with open(self.trace_path) as file:
            return file.read().splitlines()

    def close(self):
        self.process.stdin.close()
        self.process.terminate()
        try:
            self.process.wait(PATIENCE)
        finally:
            if self.process.poll() is None:
                self.process.kill()
            self.reader.join()
            self.process.stdout.close()
            shutil.rmtree(self.folder)


class VirtualCard:
    """A card of the test's own: connects to the simulator's port and answers as told; other commands get no answer."""

    ATR = bytes.fromhex("3B 00")

    def __init__(self, port, answers):
        self.answers = {bytes.fromhex(command): bytes.fromhex(answer) for command, answer in answers.items()}
        self.asked = []
        self.line = socket.create_connection(("127.0.0.1", port), timeout=PATIENCE)
        self.line.settimeout(None)
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def _receive(self, count):
        data = b""
        while len(data) < count:
            piece = self.line.recv(count - len(data))
            if not piece:
                raise EOFError
            data += piece
        return data

    def _serve(self):
        with contextlib.suppress(EOFError, OSError):
            while True:
                message = self._receive(int.from_bytes(self._receive(2), "big"))
                self.asked.append(message)
                if len(message) > 1:
                    answer = self.answers.get(message)
                else:
                    answer = self.ATR if message == b"\x04" else None
                if answer is not None:
                    self.line.sendall(len(answer).to_bytes(2, "big") + answer)

    def pull_out(self):
        with contextlib.suppress(OSError):
            self.line.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.line.close()


class SilentPort:
    """A pseudo-terminal with nobody at its other end."""

    def __init__(self):
        self.master, self.slave = os.openpty()
        self.path = os.ttyname(self.slave)
        tty.setraw(self.slave)

    def close(self):
        for fd in (self.master, self.slave):
            with contextlib.suppress(OSError):
                os.close(fd)


class Run:
    """What a finished tool has left."""

    def __init__(self, code, out, err):
        self.code = code
        self.out = out
        self.err = err

    def json(self):
        return json.loads(self.out)

    def __repr__(self):
        return "exit %d\n--- stdout\n%s--- stderr\n%s" % (self.code, self.out, self.err)


class Tool:
    """A tool at work, in a process group of its own."""

    def __init__(self, *arguments, port=None, unprivileged=False, program=TOOL, environment=None):
        command = [program, *(["--port", port] if port else []), *arguments]
        variables = {key: text for key, text in os.environ.items() if key != "QVREADER_PORT"}
        variables.update(environment or {})
        drop = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if unprivileged else {}
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True, errors="replace", process_group=0, env=variables, **drop)
        self.out = []
        self.err = []
        self.threads = [threading.Thread(target=self._collect, args=pair, daemon=True)
                        for pair in ((self.process.stdout, self.out), (self.process.stderr, self.err))]
        for thread in self.threads:
            thread.start()

    @staticmethod
    def _collect(stream, lines):
        for line in stream:
            lines.append(line)

    def wait_for(self, text):
        """Until TEXT stands on standard error."""
        wait_until(lambda: text in "".join(self.err) or self.process.poll() is not None, "\"%s\" on stderr" % text)
        if text not in "".join(self.err):
            raise AssertionError("\"%s\" was not said\n%r" % (text, self.finish()))

    def signal(self, number):
        self.process.send_signal(number)

    def finish(self):
        try:
            code = self.process.wait(60)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise AssertionError("the tool hangs: %s%s" % ("".join(self.out), "".join(self.err))) from None
        for thread in self.threads:
            thread.join()
        self.process.stdout.close()
        self.process.stderr.close()
        return Run(code, "".join(self.out), "".join(self.err))

    def group_is_gone(self):
        try:
            os.killpg(self.process.pid, 0)
        except ProcessLookupError:
            return True
        return False


class ToolTest(unittest.TestCase):
    maxDiff = None

    def simulator(self, *arguments):
        sim = Simulator(*arguments)
        self.addCleanup(sim.close)
        return sim

    def virtual_card(self, sim, slot, answers):
        """Put into a simulator that was started with --card SLOT=vpcd:0."""
        port = next(int(line.split()[2]) for line in sim.told if line.startswith("vpcd %d " % slot))
        inserted = VirtualCard(port, answers)
        self.addCleanup(inserted.pull_out)
        wait_until(lambda: "no card has connected" not in sim.state("slot %d" % slot), "the card is in")
        return inserted

    def silent_port(self):
        port = SilentPort()
        self.addCleanup(port.close)
        return port

    def start(self, *arguments, **options):
        tool = Tool(*arguments, **options)

        def end():
            if tool.process.poll() is None:
                tool.process.kill()
                tool.finish()

        self.addCleanup(end)
        return tool

    def run_tool(self, *arguments, **options):
        return self.start(*arguments, **options).finish()

    def check_exit(self, run, code):
        self.assertEqual(run.code, code, run)


def keep_signals_usual():
    """A test driver that is started in the background may ignore what the tests send."""
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGHUP, signal.SIG_DFL)


def main():
    keep_signals_usual()
    unittest.main(module="__main__", verbosity=2)
