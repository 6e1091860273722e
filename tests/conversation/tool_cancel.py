"""Signals: the running read is cancelled, the port closed properly, nothing left behind."""
import os
import shutil
import signal
import tempfile
import termios
import unittest

import bench
from bench import card

SIGNALS = ((signal.SIGINT, 130), (signal.SIGTERM, 143), (signal.SIGHUP, 129))


class Cancel(bench.ToolTest):
    def open_slave(self, path):
        """The line's settings, as another program sees them; odd ones, so that a difference shows."""
        slave = os.open(path, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, slave)
        settings = termios.tcgetattr(slave)
        settings[3] |= termios.IEXTEN
        settings[4] = settings[5] = termios.B2400
        termios.tcsetattr(slave, termios.TCSANOW, settings)
        return slave, termios.tcgetattr(slave)

    def waiting_tool(self, sim, *arguments):
        tool = self.start(*(arguments or ("--timeout", "60", "--json", "atr")), port=sim.path)
        tool.wait_for("waiting for ")
        return tool

    def test_a_signal_ends_the_wait_for_a_card(self):
        for number, code in SIGNALS:
            with self.subTest(signal=number):
                sim = self.simulator()
                slave, before = self.open_slave(sim.path)
                tool = self.waiting_tool(sim)
                self.assertNotEqual(termios.tcgetattr(slave), before)
                tool.signal(number)
                run = tool.finish()
                self.check_exit(run, code)
                self.assertEqual((run.json()["error"]["name"], run.json()["exitCode"]), ("cancelled", code))
                self.assertEqual(termios.tcgetattr(slave), before)
                self.assertTrue(tool.group_is_gone())

    def test_the_reader_stops_waiting_too(self):
        sim = self.simulator()
        tool = self.waiting_tool(sim)
        self.assertIsNotNone(sim.state("waits for a card in slot"))
        tool.signal(signal.SIGINT)
        self.check_exit(tool.finish(), 130)
        self.assertIsNone(sim.state("waits for a card in slot"))

    def test_a_signal_ends_the_wait_for_an_answer_and_the_card_is_powered_down(self):
        sim = self.simulator("--card-patience", "2000", "--card", "0=vpcd:0")
        self.virtual_card(sim, 0, {"00200000": "63C2"})
        tool = self.start("--timeout", "60", "apdu", "00200000", "00CA000000", port=sim.path)
        tool.wait_for("waiting for the answer to 00CA000000, up to 60 s (Ctrl-C cancels)")
        tool.signal(signal.SIGINT)
        run = tool.finish()
        self.check_exit(run, 130)
        self.assertIn("00200000 -> 63C2", run.out)
        bench.wait_until(lambda: sim.state("slot 0").startswith("unpowered"), "the card is powered down")

    def test_a_signal_ends_the_wait_of_each_command_that_needs_no_card(self):
        rows = (
            (("--timeout", "60", "detect"), "a card, up to 60 s"),
            (("--timeout", "60", "detect", "--kind", "3"), "a card of kind 3, up to 60 s"),
            (("present",), "a sign of life, up to 3 s"),
            (("--timeout", "60", "info"), "the answer to info, up to 60 s"),
            (("--timeout", "60", "led", "1"), "the answer to led, up to 60 s"),
            (("--timeout", "60", "beep", "1", "2"), "the answer to beep, up to 60 s"),
        )
        for arguments, what in rows:
            for number, code in SIGNALS:
                with self.subTest(arguments=arguments, signal=number):
                    port = self.silent_port()
                    slave, before = self.open_slave(port.path)
                    tool = self.start("--json", *arguments, port=port.path)
                    tool.wait_for("waiting for %s (Ctrl-C cancels)" % what)
                    tool.signal(number)
                    run = tool.finish()
                    self.check_exit(run, code)
                    self.assertEqual((run.json()["error"]["name"], run.json()["exitCode"]), ("cancelled", code))
                    self.assertEqual(termios.tcgetattr(slave), before)
                    self.assertTrue(tool.group_is_gone())

    def test_a_signal_ends_the_doctors_search(self):
        port = self.silent_port()
        slave, before = self.open_slave(port.path)
        tool = self.start("--trace", "--json", "doctor", port=port.path)
        tool.wait_for("sign of life")
        tool.signal(signal.SIGINT)
        run = tool.finish()
        self.check_exit(run, 130)
        self.assertEqual(run.json()["error"]["name"], "cancelled")
        self.assertEqual(termios.tcgetattr(slave), before)

    @unittest.skipUnless(os.geteuid() == 0, "a link in /dev takes root")
    def test_a_signal_ends_the_wait_for_the_json_answer(self):
        link = "/dev/COM%d" % (200000 + os.getpid())
        sim = self.simulator("--link", link)
        slave, before = self.open_slave(sim.path)
        folder = tempfile.mkdtemp(prefix="qvtool-")  # the JSON call makes a folder for logs beside the library
        self.addCleanup(shutil.rmtree, folder)
        shutil.copy(os.environ["QV_LIBRARY"], os.path.join(folder, "libqvreader.so.1"))
        sim.command("fault late 1500 every")
        tool = self.start("--timeout", "60", "--json", "info", port=link, environment={"LD_LIBRARY_PATH": folder})
        tool.wait_for("waiting for the JSON answer")
        tool.signal(signal.SIGINT)
        run = tool.finish()
        self.check_exit(run, 130)
        self.assertEqual((run.json()["serial"], run.json()["error"]["name"]), ("SIM00000001", "cancelled"))
        self.assertNotIn("answer", run.json())
        self.assertEqual(termios.tcgetattr(slave), before)

    def test_a_cancelled_detection_leaves_the_next_card_alone(self):
        sim = self.simulator()
        tool = self.waiting_tool(sim, "--timeout", "60", "detect")
        bench.wait_until(lambda: self.detects(sim), "the reader waits")
        tool.signal(signal.SIGINT)
        self.check_exit(tool.finish(), 130)
        self.assertFalse(self.detects(sim))
        sim.command("swipe 6225=2912 -")
        run = self.run_tool("--json", "detect", port=sim.path)
        self.check_exit(run, 0)
        self.assertEqual(run.json()["track2"], "6225=2912")

    def detects(self, sim):
        return any(line.startswith("waits for any card") for line in sim.command("state"))

    def test_the_reader_serves_the_next_run(self):
        sim = self.simulator()
        tool = self.waiting_tool(sim)
        tool.signal(signal.SIGINT)
        self.check_exit(tool.finish(), 130)
        sim.command("insert 0 " + card("purse"))
        self.check_exit(self.run_tool("atr", port=sim.path), 0)

    def test_a_second_signal_ends_it_at_once(self):
        port = self.silent_port()
        slave, before = self.open_slave(port.path)
        tool = self.start("--timeout", "60", "atr", port=port.path)
        tool.wait_for("waiting for a card")
        tool.signal(signal.SIGINT)
        tool.wait_for("cancelling; once more ends at once")  # the reader is silent: powering down takes its second
        tool.signal(signal.SIGINT)
        self.check_exit(tool.finish(), 130)
        self.assertEqual(termios.tcgetattr(slave), before)
        self.assertTrue(tool.group_is_gone())

    def test_a_hang_up_that_is_to_be_ignored_is_ignored(self):
        sim = self.simulator()
        old = signal.signal(signal.SIGHUP, signal.SIG_IGN)
        try:
            tool = self.waiting_tool(sim)
        finally:
            signal.signal(signal.SIGHUP, old)
        tool.signal(signal.SIGHUP)
        sim.command("insert 0 " + card("purse"))
        self.check_exit(tool.finish(), 0)


class CountDown(bench.ToolTest):
    def test_a_terminal_gets_a_count_down(self):
        sim = self.simulator()
        screen, terminal = os.openpty()
        self.addCleanup(os.close, screen)
        process = bench.subprocess.Popen([bench.TOOL, "--port", sim.path, "--timeout", "60", "atr"], stderr=terminal,
                                         stdout=terminal, stdin=bench.subprocess.DEVNULL, process_group=0)
        os.close(terminal)
        shown = b""
        while b"59 s left" not in shown:
            shown += os.read(screen, 4096)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(bench.PATIENCE), 130)
        self.assertIn(b"waiting for a card in slot 0, up to 60 s (Ctrl-C cancels)", shown)
        self.assertIn(b"60 s left", shown)


if __name__ == "__main__":
    bench.main()
