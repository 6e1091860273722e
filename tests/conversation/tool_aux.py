"""The tool on a thin-client terminal: its standard output is the line to the reader, which is plugged into an aux port
of the terminal."""
import os
import signal
import subprocess
import tempfile
import termios

import bench
from bench import card

FAMILIES = ("star", "gw", "gg", "wyse")
ATR = "ATR 3B 68 00 00 51 56 53 49 4D 2D 44 43\n"
CHALLENGE = "0084000008 -> 3A915CE7084DB2F6 " + bench.DONE + "\n"


class ToolAux(bench.ToolTest):
    def terminal(self, family, *arguments):
        sim = self.simulator("--terminal", family, *arguments)
        sim.family = family
        sim.line = os.open(sim.path, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, sim.line)
        sim.settings = termios.tcgetattr(sim.line)
        return sim

    def started(self, sim, *arguments, aux=None, stderr=subprocess.PIPE):
        command = [bench.TOOL, "--aux", aux or sim.family + ":1", *arguments]
        tool = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=sim.line, stderr=stderr, text=True)

        def end():
            if tool.poll() is None:
                tool.kill()
            tool.communicate()

        self.addCleanup(end)
        return tool

    def run_on(self, sim, *arguments, code=0, **options):
        """What stands on standard error in the end; the terminal is as it was, and its aux port off."""
        tool = self.started(sim, *arguments, **options)
        _, err = tool.communicate(timeout=60)
        self.assertEqual(tool.returncode, code, err)
        self.assertEqual(termios.tcgetattr(sim.line), sim.settings)
        return err

    def is_off(self, sim, shown=0):
        text = "%s, reader at aux port 1, off, %d bytes shown" % (sim.family, shown)
        bench.wait_until(lambda: sim.state("terminal") == text, "%s, not %s" % (text, sim.state("terminal")))

    def file_name(self):
        folder = tempfile.TemporaryDirectory(prefix="qvtool-")
        self.addCleanup(folder.cleanup)
        return os.path.join(folder.name, "results")

    def test_a_card_answers_through_every_family_and_nothing_is_printed_on_the_line(self):
        for family in FAMILIES:
            for prefix in ((), ("--aux-prefix",)):
                with self.subTest(family=family, prefix=prefix):
                    sim = self.terminal(family, "--card", "0=" + card("debit-credit"))
                    self.assertEqual(self.run_on(sim, *prefix, "apdu", "0084000008"), ATR + CHALLENGE)
                    self.is_off(sim)
                    self.assertEqual((sim.state("frames"), sim.state("garbage")), ("3", "0"))

    def test_results_go_to_a_file(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                sim = self.terminal(family, "--card", "0=" + card("debit-credit"))
                name = self.file_name()
                self.assertEqual(self.run_on(sim, "--output", name, "atr"), "")
                with open(name) as file:
                    self.assertEqual(file.read(), ATR)
                self.run_on(sim, "--output", name, "--json", "atr")
                with open(name) as file:
                    told = bench.json.load(file)
                self.assertEqual((told["port"], told["device"], told["exitCode"]),
                                 ("aux %s:1" % family, os.path.realpath(sim.path), 0))
                self.is_off(sim)

    def test_on_the_readers_own_terminal_all_is_told_when_the_port_is_off(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                sim = self.terminal(family, "--card", "0=" + card("debit-credit"))
                self.run_on(sim, "--timeout", "1", "atr", stderr=sim.line)
                self.is_off(sim, len(ATR))
                sim.command("remove 0")
                self.run_on(sim, "--timeout", "1", "atr", stderr=sim.line, code=4)
                bench.wait_until(lambda: ", off, " in sim.state("terminal"), "the port is off")
                self.assertEqual(sim.state("garbage"), "0")

    def test_each_command_reaches_the_reader(self):
        sim = self.terminal("gg", "--device", "serial=BOX-17", "--card", "0=" + card("purse"))
        rows = ((("present",), "a reader answers on aux gg:1 at 9600 bit/s\n"), (("info",), "serial number   BOX-17\n"),
                (("led", "1"), "done\n"), (("beep", "1", "2"), "done\n"), (("detect",), "kind            contact\n"),
                (("reset",), "sent; the reader gives no answer to it\n"), (("doctor",), "answers at 9600 bit/s\n"))
        for arguments, text in rows:
            with self.subTest(arguments=arguments):
                self.assertIn(text, self.run_on(sim, *arguments))
                self.is_off(sim)
        self.assertEqual((sim.state("led"), sim.state("buzzer")), ("01, pair 00 00", "1, last 00 01 02"))

    def test_a_terminal_of_another_family_gives_no_answer(self):
        sim = self.terminal("star")
        for arguments in (("atr",), ("present",), ("info",), ("led", "1"), ("detect",), ("doctor",)):
            limit = () if arguments == ("doctor",) else ("--timeout", "1")
            with self.subTest(arguments=arguments):
                err = self.run_on(sim, *limit, *arguments, aux="gg:1", code=5)
                self.assertIn("family", err)
        self.assertEqual(sim.state("frames"), "0")

    def test_the_port_and_the_speed_are_those_that_are_asked_for(self):
        sim = self.terminal("gg", "--aux-port", "3", "--baud", "19200")
        self.run_on(sim, "--baud", "19200", "present", aux="gg:3")
        self.assertEqual(sim.state("frames"), "1")
        self.run_on(sim, "--timeout", "1", "present", aux="gg:3", code=5)

    def test_a_signal_ends_the_wait_and_switches_the_port_off(self):
        sim = self.terminal("wyse")
        tool = self.started(sim, "--timeout", "60", "atr")
        self.assertEqual(tool.stderr.readline(),
                         "qvreader: waiting for a card in slot 0, up to 60 s (SIGTERM cancels)\n")
        tool.send_signal(signal.SIGTERM)
        tool.communicate(timeout=60)
        self.assertEqual(tool.returncode, 143)
        self.is_off(sim)
        self.assertEqual(termios.tcgetattr(sim.line), sim.settings)

    def test_a_second_signal_switches_the_port_off_too(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                sim = self.terminal(family, "--card", "0=" + card("debit-credit"))
                sim.command("fault silence every")
                tool = self.started(sim, "--timeout", "60", "atr")
                tool.stderr.readline()
                tool.send_signal(signal.SIGTERM)
                self.assertEqual(tool.stderr.readline(), "qvreader: cancelling; once more ends at once\n")
                tool.send_signal(signal.SIGTERM)
                tool.communicate(timeout=60)
                self.assertEqual(tool.returncode, 143)
                bench.wait_until(lambda: ", off, " in sim.state("terminal"), "the port is off")
                self.assertEqual(termios.tcgetattr(sim.line), sim.settings)

    def test_the_trace_tells_the_terminals_sequences(self):
        begin = "terminal: what follows is for the reader"
        end = "terminal: end of what is for the reader"
        command = "peripheral frame, LEDs 01"
        on = "terminal: aux port on"
        off = "terminal: aux port off"
        set_up = "terminal: aux port set-up"
        rows = {"star": ["terminal: aux port and speed", set_up, set_up, on, begin, command, end, end, off],
                "gw": [on, command, off],
                "gg": [on, begin, command, end, off],
                "wyse": ["terminal: aux port", on, command, off]}
        for family, expected in rows.items():
            with self.subTest(family=family):
                sim = self.terminal(family)
                told = [line.split("  [", 1)[1][:-1]
                        for line in self.run_on(sim, "--trace", "--aux-prefix", "led", "1").splitlines()
                        if " > " in line]
                self.assertEqual("; ".join(told).split("; "),
                                 ["terminal: keep the screen out of it", *expected, "terminal: release the screen"])

    def test_standard_output_that_is_no_terminal(self):
        run = self.run_tool("--aux", "star:1", "atr")
        self.check_exit(run, 3)
        self.assertEqual(run.out, "")
        self.assertIn("standard output is no terminal", run.err)

    def test_the_variable_for_the_port_gives_way(self):
        sim = self.terminal("gw", "--card", "0=" + card("debit-credit"))
        os.environ["QVREADER_PORT"] = "/dev/null"
        try:
            self.assertEqual(self.run_on(sim, "atr"), ATR)
        finally:
            del os.environ["QVREADER_PORT"]

    def test_wrong_command_lines_are_refused(self):
        rows = (
            (("--aux", "star", "atr"), "\"star\" is no aux port"),
            (("--aux", "star:5", "atr"), "\"star:5\" is no aux port"),
            (("--aux", "star:0", "atr"), "\"star:0\" is no aux port"),
            (("--aux", "vt100:1", "atr"), "\"vt100:1\" is no aux port"),
            (("--aux", "100:1", "atr"), "\"100:1\" is no aux port"),
            (("--aux", "gw:1", "--port", "x", "atr"), "leave out --port"),
            (("--aux", "gw:1", "--usb-id", "1:2", "atr"), "leave out --usb-id"),
            (("--aux", "gw:1", "--baud", "19200", "--raise", "atr"), "runs at --baud from the start"),
            (("--aux", "gw:1", "--box", "A", "atr"), "on a serial port only"),
            (("--aux-prefix", "--port", "x", "atr"), "goes with --aux"),
        )
        for arguments, text in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments)
                self.check_exit(run, 2)
                self.assertIn(text, run.err)


if __name__ == "__main__":
    bench.main()
