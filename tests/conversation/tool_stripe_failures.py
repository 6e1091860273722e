"""How stripe fails: wrong command lines, ports that do not open, heads that answer oddly or not at all."""
import contextlib
import os
import re
import select
import shutil
import signal
import tempfile
import threading
import tty

import bench
from tool_device import frame
from tool_stripe import IS_ROOT, SETS, StripeTest

SETTINGS = {b"\x01.*\x32\x30\x30\x34.*\x04": "0000", b"\x01.*\x32\x30\x30\x31.*\x04": "0000"}  # read time, separator
READ_TIME, SEPARATOR = SETTINGS
READ_ALL = b"\x01.*\x32\x30\x30\x32.*\x04"
WRITE_ALL = b"\x01.*\x32\x30\x30\x33.*\x04"
READ_2 = re.escape(b"\x1b]")
STATUS = re.escape(b"\x1bj")


class OddHead:
    """A stripe head on a pseudo-terminal that answers as told. Answers by what is asked (a pattern): bytes, or as text
    the status word and body of a frame in hexadecimal; either in a pair with the seconds by which it comes late."""

    def __init__(self, answers):
        self.answers = {re.compile(b"(?s)^" + asked): answer for asked, answer in answers.items()}
        self.master, self.slave = os.openpty()
        self.path = os.ttyname(self.slave)
        tty.setraw(self.slave)
        self.wake, self.stop = os.pipe()
        self.timers = []
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    def _serve(self):
        pending = b""
        while self.wake not in select.select([self.master, self.wake], [], [])[0]:
            pending += os.read(self.master, 1024)
            while pending:
                pending = self._take(pending)
                if pending is None:
                    pending = b""
                    break

    def _take(self, pending):
        for asked, answer in self.answers.items():
            found = asked.match(pending)
            if found:
                late, answer = answer if isinstance(answer, tuple) else (0, answer)
                answer = answer if isinstance(answer, bytes) else frame(1, 4, bytes.fromhex(answer))
                if late:
                    timer = threading.Timer(late, os.write, (self.master, answer))
                    self.timers.append(timer)
                    timer.start()
                else:
                    os.write(self.master, answer)
                return pending[found.end():]
        following = min((at for at in (pending.find(b"\x1b", 1), pending.find(b"\x01", 1)) if at > 0), default=0)
        return pending[following:] if following else None

    def close(self):
        os.write(self.stop, b"x")
        self.thread.join()
        for timer in self.timers:
            timer.join()
        for fd in (self.master, self.slave, self.wake, self.stop):
            os.close(fd)


class OddHeads(StripeTest):
    def check(self, answers, *arguments, code, name, text, result, settings=True):
        head = OddHead({**(SETTINGS if settings else {}), **answers})
        self.addCleanup(head.close)
        run = self.run_tool("--json", "--timeout", "1", "stripe", *arguments, port=head.path)
        self.check_exit(run, code)
        error = run.json()["error"]
        self.assertIn(text, error["text"])
        self.assertEqual((error["name"], error.get("result")), (name, result))
        return run

    def test_a_track_without_an_answer_how_it_went(self):
        self.check({READ_2: b"\x1bs12?\x1c"}, "read", "--tracks", "2", code=5, name="no-answer", result=-4,
                   text="a track came, but the reader does not answer how it went")

    def test_a_write_without_an_answer_how_it_went(self):
        self.check({}, "write", "--track2", "1", code=5, name="no-answer", result=-4,
                   text="the reader does not say whether it has written the card; read it before it is used")

    def test_a_reply_that_has_its_end_but_not_its_begin(self):
        self.check({READ_2: b"12?\x1c"}, "read", "--tracks", "2", code=5, name="no-answer", result=-4,
                   text="the reply is cut short or is none of a stripe head")

    def test_a_separator_that_is_refused_or_not_answered(self):
        self.check({SEPARATOR: "F001"}, "read", code=6, name="reader-error", result=-55,
                   text="the reader does not accept a separator, it reports F001; read one or two tracks")
        self.check({READ_TIME: "0000"}, "read", code=5, name="no-answer", result=-55, settings=False,
                   text="the reader does not answer the setting of a separator; read one or two tracks")

    def test_another_status_of_a_framed_read_is_told_with_and_without_a_body(self):
        self.check({READ_ALL: "1006"}, "read", code=6, name="reader-error", result=0, text="the reader reports 1006")
        self.check({READ_ALL: "1006 31 7C 32"}, "read", code=6, name="reader-error", result=3, text="the reader reports 1006")

    def test_another_status_of_a_framed_write_is_told(self):
        self.check({WRITE_ALL: "F001"}, "write", "--track1", "B", "--track2", "1", "--track3", "1", code=6,
                   name="reader-error", result=-100, text="write: the reader reports F001")

    def test_a_framed_read_of_empty_tracks_finds_nothing(self):
        self.check({READ_ALL: "0000 7C 7C 7C"}, "read", code=1, name="card-error", result=0,
                   text="nothing is recorded on tracks 1, 2 and 3")

    def test_a_late_answer_to_the_read_time_makes_three_tracks_doubtful(self):
        head = OddHead({READ_TIME: (4.5, "0000"), SEPARATOR: "0000", WRITE_ALL: b"", READ_ALL: b""})
        self.addCleanup(head.close)
        run = self.run_tool("stripe", "write", "--track1", "B", "--track2", "1", "--track3", "1", port=head.path)
        self.check_exit(run, 0)
        self.assertIn("note: the reader did not answer the setting of the read time within 2 s", run.err)
        self.assertIn("read the card before it is used", run.err)
        run = self.run_tool("stripe", "read", port=head.path)
        self.check_exit(run, 1)
        self.assertIn("a late answer counts as that to the reading: read one or two tracks", run.err)

    def test_a_head_that_does_not_know_the_read_time_is_served_all_the_same(self):
        head = OddHead({READ_2: b"\x1bs12?\x1c", STATUS: b"p"})
        self.addCleanup(head.close)
        run = self.run_tool("stripe", "read", "--tracks", "2", "--show", port=head.path)
        self.check_exit(run, 0)
        self.assertEqual(run.out, "track 2         12\n")
        self.assertNotIn("note", run.err)


class Failures(StripeTest):
    def test_no_card_is_told_as_such(self):
        sim = self.simulator()
        for tracks in SETS:
            with self.subTest(tracks=tracks):
                told = self.check_failed(sim, "read", "--timeout", "1", "--tracks", tracks, code=4, name="no-card",
                                         text="read: no card came in 1 s", result=-56)
                self.assertNotIn("tracks", told)
                self.assertGreaterEqual(told["milliseconds"], 1000)

    def test_each_fault_has_its_sentence(self):
        bare, framed = "23", "123"
        rows = (
            ("nodata", bare, 6, "reader-error", "nothing could be read from it", -5),
            ("nodata", framed, 1, "card-error", "nothing is recorded on the card", -9),
            ("read", bare, 6, "reader-error", "nothing could be read from it", -5),
            ("read", framed, 6, "reader-error", "nothing could be read from it", -5),
            ("garbled", bare, 5, "no-answer", "the reply is cut short or is none of a stripe head", -56),
            ("status", bare, 5, "no-answer", "its answer is neither yes nor no", -4),
        )
        sim = self.head()
        for fault, tracks, code, name, text, result in rows:
            with self.subTest(fault=fault, tracks=tracks):
                sim.command("stripe fault %s once" % fault)
                self.check_failed(sim, "read", "--timeout", "1", "--tracks", tracks, code=code, name=name, text=text,
                                  result=result)
                self.stripe(sim, "read", "--tracks", "2")  # and the next one goes well

    def test_a_silent_head_is_no_answer(self):
        sim = self.head()
        sim.command("stripe fault silent")
        for tracks in ("2", "123"):
            with self.subTest(tracks=tracks):
                run = self.stripe(sim, "--json", "read", "--timeout", "1", "--tracks", tracks, code=5)
                self.assertIn("not even an answer to its settings; is the reader switched on, and does it run at 9600",
                              run.json()["error"]["text"])

    def test_nobody_at_the_other_end_is_no_answer(self):
        port = self.silent_port()
        for arguments in (("read", "--tracks", "2"), ("read",), ("write", "--track2", "1")):
            with self.subTest(arguments=arguments):
                run = self.run_tool("--json", "--timeout", "1", "stripe", *arguments, port=port.path)
                self.check_exit(run, 5)
                self.assertIn("not even an answer to its settings", run.json()["error"]["text"])

    def test_a_line_that_hangs_up_is_told_as_such(self):
        port = self.silent_port()
        tool = self.start("--timeout", "4", "--json", "stripe", "read", "--tracks", "2", port=port.path)
        tool.wait_for("swipe the card")
        port.close()
        run = tool.finish()
        self.check_exit(run, 5)
        self.assertIn("hung up", run.json()["error"]["text"])

    def test_a_card_without_these_tracks_is_told_as_such(self):
        sim = self.head(tracks={2: "123"})
        self.check_failed(sim, "read", "--tracks", "1", code=6, name="reader-error", text="nothing could be read from it")
        told = self.stripe(sim, "--json", "read", "--tracks", "12").json()
        self.assertEqual([(track["track"], track["length"]) for track in told["tracks"]], [(1, 0), (2, 3)])
        self.assertEqual(self.stripe(sim, "read", "--tracks", "12").out, "track 1         (empty)\ntrack 2         ***\n")

    def test_wrong_command_lines_are_refused_before_the_port_is_looked_at(self):
        port = ("--port", "/dev/no-such-port")
        rows = (
            ((), "stripe what? Its commands are read and write"),
            (("swipe",), "stripe what?"),
            (("read", "--timeout", "0"), "0 not in range"),
            (("read", "--timeout", "121"), "121 not in range"),
            (("read", "--tracks", "13"), "one swipe reads tracks 1, 2, 3, 12, 23 or 123, not 13"),
            (("read", "--tracks", "21"), "not 21"),
            (("read", "--format", "EBM"), "there is no format EBM"),
            (("read", "--channel", "D"), "--channel"),
            (("read", "--box", "A"), "--box: the stripe side selects a channel instead"),
            (("read", "--raise"), "--raise: the stripe side raises no line"),
            (("read", "--slot", "0"), "--slot: a stripe is in no slot"),
            (("read", "--verify"), "not expected"),
            (("write", "--tracks", "2"), "not expected"),
        )
        for arguments, text in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*port, "stripe", *arguments)
                self.check_exit(run, 2)
                self.assertIn(text, run.err)
        others = (
            (("stripe", "read"), "--port PATH"),
            (("--aux", "star:1", "stripe", "read"), "--aux: the stripe side of the library serves no aux port"),
            (("--port", "HID", "stripe", "read", "--tracks", "123"), "use --tracks 23 (or 12), then --tracks 1 (or 3)"),
            (("--port", "usb", "stripe", "read", "--channel", "A"), "over USB no channel is selected"),
            (("--port", "HID", "stripe", "write", "--track1", "B" * 315), "a command of the reader holds 314 over USB"),
            (("--port", "COM9", "stripe", "write", "--track1", "B" * 505), "a command of the reader holds 504\n"),
            (("--port", "HID", "--baud", "9600", "stripe", "read"), "has no serial line"),
            (("--port", "COM3", "--baud", "19200", "stripe", "read"), "as /dev/ttyS2 takes every speed"),
        )
        for arguments, text in others:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments)
                self.check_exit(run, 2)
                self.assertIn(text, run.err)

    def test_a_port_that_is_not_there(self):
        for port, text in (("/dev/no-such-port", "/dev/no-such-port is not there"), ("COM99999", "/dev/ttyS99998 is not there"),
                           ("/dev/null", "is not a serial port"), ("HIDxy", "HIDxy is not there")):
            with self.subTest(port=port):
                run = self.run_tool("--json", "stripe", "read", port=port)
                self.check_exit(run, 3)
                self.assertEqual(run.json()["error"]["name"], "port")
                self.assertIn(text, run.json()["error"]["text"])

    def test_a_port_without_permission_and_a_busy_one(self):
        port = self.silent_port()
        os.chmod(port.path, 0)
        with self.foreign_tool() as options:
            run = self.run_tool("--json", "stripe", "read", port=port.path, **options)
        self.check_exit(run, 3)
        self.assertIn("no permission to open", run.json()["error"]["text"])
        sim = self.simulator()
        first = self.start("--timeout", "60", "stripe", "read", port=sim.path)
        first.wait_for("swipe the card")
        run = self.run_tool("--json", "stripe", "read", port=sim.path)
        self.check_exit(run, 3)
        self.assertIn("is busy: another qvreader", run.json()["error"]["text"])
        first.signal(signal.SIGINT)
        self.check_exit(first.finish(), 130)

    @contextlib.contextmanager
    def foreign_tool(self):
        """The tool and its library where an unprivileged user reaches them."""
        folder = tempfile.mkdtemp(prefix="qvtool-")
        try:
            os.chmod(folder, 0o755)
            program = shutil.copy(bench.TOOL, folder)
            shutil.copy(os.environ["QV_LIBRARY"], os.path.join(folder, "libqvreader.so.1"))
            yield {"program": program, "unprivileged": IS_ROOT, "environment": {"LD_LIBRARY_PATH": folder}}
        finally:
            shutil.rmtree(folder)

    def test_help_tells_the_options_and_shows_an_example(self):
        for command, option in (("read", "--tracks"), ("write", "--verify")):
            run = self.run_tool("stripe", command, "--help")
            self.check_exit(run, 0)
            self.assertIn(option, run.out)
            self.assertRegex(run.out, r"(?m)^  qvreader --port \S+ stripe %s" % command)


if __name__ == "__main__":
    bench.main()
