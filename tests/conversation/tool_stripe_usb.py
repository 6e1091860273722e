"""stripe over USB: real libusb, a device that the simulator emulates."""
import os
import signal
import subprocess

import bench
from tool_stripe import MASKED, TRACKS, StripeTest, lines
from tool_usb import ToolUsb, UsbReader

STRIPE_IDENTITIES = ("0403:BCD5", "2B46:BE01", "0403:BCD7", "2B46:BC01", "0403:BC95", "2B46:BE11")


class StripeUsb(StripeTest):
    def usb_head(self, *arguments):
        sim = UsbReader("--stripe", self.card(), *arguments)
        self.addCleanup(sim.close)
        return sim

    def run_on(self, sim, *arguments, code=0, port="HID", **options):
        run = self.run_tool("stripe", *arguments, port=port, environment=sim.environment, **options)
        self.check_exit(run, code)
        return run

    def test_one_command_line_does_it_all(self):
        run = subprocess.run([bench.SIM, "--quiet", "--usb", "--stripe", self.card(), "--", bench.TOOL, "--port", "HID", "stripe",
                              "read"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual((run.returncode, run.stdout), (0, lines(MASKED, "23")))

    def test_one_and_two_tracks_are_read(self):
        sim = self.usb_head()
        self.assertEqual(self.run_on(sim, "read").out, lines(MASKED, "23"))
        for tracks in ("1", "2", "3", "12", "23"):
            with self.subTest(tracks=tracks):
                self.assertEqual(self.run_on(sim, "read", "--show", "--tracks", tracks).out, lines(TRACKS, tracks))

    def test_one_and_two_tracks_are_written_and_read_back(self):
        sim = self.usb_head()
        rows = (("1",), ("2",), ("3",), ("1", "2"), ("2", "3"))
        for number, tracks in enumerate(rows):
            with self.subTest(tracks=tracks):
                texts = {"1": "B%d/TEST" % number, "2": "12%d=" % number + "3" * 30, "3": "4%d" % number + "5" * 90}
                options = [word for track in tracks for word in ("--track" + track, texts[track])]
                told = self.run_on(sim, "--json", "write", "--verify", *options).json()
                self.assertEqual((told["written"], told["verified"]), (True, True))
                self.assertNotIn("baud", told)

    def test_every_length_of_a_command_is_understood(self):
        sim = self.usb_head()
        for length in (*range(55, 65), 104):  # with ESC "tA" and its end: around a whole report
            with self.subTest(length=length):
                run = self.run_on(sim, "--trace", "--json", "write", "--verify", "--show", "--track3", "7" * length)
                self.assertEqual((run.json()["verified"], run.json()["tracks"][0]["length"]), (True, length))
                self.assertIn("[write track 3 \"%s\"]" % ("7" * length), run.err)
                self.assertIn("[how did it go?]", run.err)

    def test_the_names_of_usb_count_as_the_stripe_side_takes_them(self):
        sim = self.usb_head()
        for port in ("HID", "hid", "USB", "uSb", "1001", "0"):
            with self.subTest(port=port):
                told = self.run_on(sim, "--json", "read", port=port).json()
                self.assertEqual((told["port"], told["device"]), (port, "/dev/bus/usb/001/002"))

    def test_each_identity_of_the_stripe_side_is_found(self):
        for identity in STRIPE_IDENTITIES:
            with self.subTest(identity=identity):
                sim = self.usb_head("--ids", identity)
                self.assertEqual(self.run_on(sim, "read").out, lines(MASKED, "23"))

    def test_an_identity_of_the_other_side_alone_is_not_found_unless_it_is_named(self):
        sim = self.usb_head("--ids", "2B46:BE21")
        told = self.run_on(sim, "--json", "read", code=3).json()
        self.assertIn("no reader is on USB (looked for " + ", ".join(STRIPE_IDENTITIES), told["error"]["text"])
        self.assertEqual(self.run_on(sim, "read", "--usb-id", "2B46:BE21", port=None).out, lines(MASKED, "23"))

    def test_the_trace_tells_each_command_for_itself(self):
        run = self.run_on(self.usb_head(), "--trace", "read", "--tracks", "2")
        told = [line.split("[", 1)[1] for line in run.err.splitlines() if line.endswith("]")]
        self.assertEqual(told, [
            "head reset]", "format ISO]", "stripe frame, wait 30 s for a card]", "stripe frame, status 0000 (done)]",
            "read track 2]", "track 2 \"%s\"]" % MASKED[2], "how did it go?]", "it succeeded]",
            "head reset]", "channel A]", "head reset]"])

    def test_no_card_a_fault_and_silence_are_told_apart(self):
        sim = self.usb_head()
        rows = (("stripe none", 4, "no card came in 1 s"), ("stripe fault read", 6, "nothing could be read from it"),
                ("stripe fault garbled", 5, "the reply is cut short"), ("stripe fault silent", 5, "is it a reader"))
        for command, code, text in rows:
            with self.subTest(command=command):
                sim.command(command)
                error = self.run_on(sim, "--json", "read", "--timeout", "1", code=code).json()["error"]
                self.assertIn(text, error["text"])
                sim.command("stripe " + self.card())

    def test_a_signal_ends_the_wait(self):
        sim = self.usb_head()
        sim.command("stripe none")
        tool = self.start("--timeout", "60", "stripe", "read", port="HID", environment=sim.environment)
        tool.wait_for("swipe the card")
        tool.signal(signal.SIGINT)
        self.check_exit(tool.finish(), 130)

    def test_a_reader_that_is_pulled_out_is_told_as_such(self):
        sim = self.usb_head()
        sim.command("stripe none")
        tool = self.start("--timeout", "4", "--json", "stripe", "read", port="HID", environment=sim.environment)
        tool.wait_for("swipe the card")
        sim.command("unplug")
        run = tool.finish()
        self.check_exit(run, 5)
        self.assertIn("is gone: was it unplugged?", run.json()["error"]["text"])
        self.run_on(sim, "read", code=3)

    def test_a_missing_permission_is_told_with_its_cure(self):
        sim = self.usb_head()
        os.chmod(sim.node("/dev/bus/usb/001/002"), 0)
        with ToolUsb.without_rights(self) as options:
            folder = options.pop("libraries", None)
            if folder:
                sim.environment["LD_LIBRARY_PATH"] = folder
            run = self.run_on(sim, "read", code=3, **options)
        self.assertIn("no permission to open /dev/bus/usb/001/002 (2B46:BE11); ", run.err)
        self.assertIn("70-qvreader.rules", run.err)

    def test_the_doctor_tells_which_side_knows_a_reader(self):
        for identity, text in (("2B46:BC01", "--port HID, stripe only"), ("2B46:BE21", "--port HID, all commands but stripe"),
                               ("2B46:BE11", "--port HID")):
            with self.subTest(identity=identity):
                sim = self.usb_head("--ids", identity)
                run = self.run_tool("--json", "doctor", port="/dev/no-such-port", environment=sim.environment)
                self.check_exit(run, 3)
                check = next(check for check in run.json()["checks"] if check["name"] == "usb")
                self.assertIn(identity, check["text"])
                self.assertTrue(check["text"].endswith("; " + text), check)

    def test_a_reader_that_is_busy_or_without_its_node(self):
        sim = self.usb_head()
        first = self.start("--timeout", "60", "atr", port="HID", environment=sim.environment)
        first.wait_for("waiting for a card")
        told = self.run_on(sim, "--json", "read", code=3).json()
        self.assertIn("is busy: another qvreader is at work on it", told["error"]["text"])
        first.signal(signal.SIGINT)
        self.check_exit(first.finish(), 130)
        os.unlink(sim.node("/dev/bus/usb/001/002"))
        told = self.run_on(sim, "--json", "read", code=3).json()
        self.assertIn("/dev/bus/usb/001/002 (2B46:BE11) is not there", told["error"]["text"])


if __name__ == "__main__":
    bench.main()
