"""How the tool fails: wrong command lines, ports that do not open, readers that do not answer."""
import contextlib
import fcntl
import os
import shutil
import tempfile
import termios

import bench
from bench import card

IS_ROOT = os.geteuid() == 0


class CommandLine(bench.ToolTest):
    def test_wrong_command_lines_are_refused(self):
        rows = (
            ((), "no command was given; the commands are atr, apdu, present"),
            (("frobnicate",), "there is no command \"frobnicate\"; the commands are atr"),
            (("--port", "x", "--slot", "1", "detect"), "asks the reader, not a slot"),
            (("--port", "x", "led"), "qvreader led --help"),
            (("--port", "x", "led", "1", "2", "3"), "not expected: 3"),
            (("--port", "x", "led", "0x100"), "\"0x100\" is no number from 0 to 255"),
            (("--port", "x", "beep", "5"), "N is required"),
            (("--port", "x", "doctor", "--raise"), "--raise: doctor tries each speed as it is"),
            (("--port", "x", "doctor", "--timeout", "5"), "--timeout: doctor has a time limit of its own"),
            (("--port", "x", "doctor", "--slot", "0"), "--slot: doctor looks at no slot"),
            (("atr",), "--port"),
            (("--port", "x", "--slot", "32", "atr"), "32 is no slot"),
            (("--port", "x", "--slot", "psam16", "atr"), "psam16 is no slot"),
            (("--port", "x", "--slot", "", "atr"), "is no slot"),
            (("--port", "x", "--baud", "600", "atr"), "no reader runs at 600"),
            (("--port", "x", "--timeout", "0", "atr"), "0 not in range"),
            (("--port", "x", "--timeout", "121", "atr"), "121 not in range"),
            (("--port", "x", "--box", "D", "atr"), "--box"),
            (("--port", "x", "--box", "A", "--baud", "19200", "atr"), "stays at 9600"),
            (("--port", "x", "--raise", "--baud", "57600", "atr"), "raised to"),
            (("--port", "x", "apdu"), "HEX is required"),
            (("--port", "x", "apdu", "00A4"), "at least 4 bytes"),
            (("--port", "x", "apdu", "00A404000"), "half a byte"),
            (("--port", "x", "apdu", "00A4040G"), "not hexadecimal"),
            (("--port", "x", "apdu", "00" * 506), "at most 505 bytes"),
            (("--port", "x", "atr", "--nonsense"), "not expected"),
        )
        for arguments, reason in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments)
                self.check_exit(run, 2)
                self.assertIn(reason, run.err)
                self.assertEqual(run.out, "")

    def test_a_wrong_command_line_is_json_where_json_is_wanted(self):
        run = self.run_tool("--json", "--port", "x", "apdu", "00")
        self.check_exit(run, 2)
        self.assertEqual((run.json()["error"]["name"], run.json()["exitCode"]), ("usage", 2))

    def test_help_names_every_exit_code_and_shows_examples(self):
        run = self.run_tool("--help")
        self.check_exit(run, 0)
        self.assertIn("Examples:", run.out)
        for code in (0, 1, 2, 3, 4, 5, 6, 7, 130):
            self.assertRegex(run.out, r"(?m)^ +%d  \S" % code)

    def test_help_of_each_command_shows_an_example_and_where_the_options_are(self):
        commands = ("atr", "apdu", "present", "info", "detect", "led", "beep", "reset", "stripe", "select",
                    "purse", "tlv", "explain", "log", "doctor")
        for command in commands:
            with self.subTest(command=command):
                run = self.run_tool(command, "--help")
                self.check_exit(run, 0)
                self.assertRegex(run.out, r"(?m)^  qvreader .*\b%s\b" % command)
                self.assertIn("qvreader --help shows the options", run.out)

    def test_version(self):
        run = self.run_tool("--version")
        self.check_exit(run, 0)
        self.assertRegex(run.out, r"^qvreader \d+\.\d+\.\d+\n$")


class Ports(bench.ToolTest):
    def check_refused(self, reason, *command, **options):
        run = self.run_tool("--json", *(command or ("atr",)), **options)
        self.check_exit(run, 3)
        self.assertEqual(run.json()["error"]["name"], "port")
        self.assertRegex(run.json()["error"]["text"], reason)
        self.assertIn(run.json()["error"]["text"], run.err)

    @contextlib.contextmanager
    def foreign_tool(self):
        """The tool and its library where an unprivileged user reaches them."""
        folder = tempfile.mkdtemp(prefix="qvtool-")
        try:
            os.chmod(folder, 0o755)
            program = os.path.join(folder, "qvreader")
            shutil.copy(bench.TOOL, program)
            shutil.copy(os.environ["QV_LIBRARY"], os.path.join(folder, "libqvreader.so.1"))
            yield {"program": program, "unprivileged": IS_ROOT, "environment": {"LD_LIBRARY_PATH": folder}}
        finally:
            shutil.rmtree(folder)

    def test_a_port_that_is_not_there(self):
        self.check_refused("^/dev/no-such-port is not there", port="/dev/no-such-port")

    def test_a_bare_name_is_helped_on(self):
        self.check_refused("did you mean /dev/null", port="null")

    def test_a_directory(self):
        self.check_refused("is a directory", port="/dev")

    def test_a_device_that_is_no_tty(self):
        self.check_refused("is not a serial port", port="/dev/null")

    def test_a_file_is_no_tty(self):
        with tempfile.NamedTemporaryFile() as file:
            self.check_refused("is not a serial port", port=file.name)

    def test_a_name_that_is_no_text_still_gives_json(self):
        run = self.run_tool("--json", "atr", port=b"/dev/\xe9".decode("utf-8", "surrogateescape"))
        self.check_exit(run, 3)
        self.assertRegex(run.json()["error"]["text"], r"^/dev/\? is not there")

    def test_no_permission_names_the_group(self):
        port = self.silent_port()
        with self.foreign_tool() as options:
            if IS_ROOT:
                os.chown(port.path, 0, 20)
                os.chmod(port.path, 0o660)
                self.check_refused("no permission to open .*group dialout.*adduser", port=port.path, **options)
                os.chown(port.path, 0, 0)
                self.check_refused("no permission to open .*owner alone", port=port.path, **options)
            os.chmod(port.path, 0o000)
            self.check_refused("no permission to open .*owner alone", port=port.path, **options)

    def test_each_command_says_why_the_port_does_not_open(self):
        port = self.silent_port()
        os.chmod(port.path, 0o000)
        commands = (("present",), ("info",), ("detect",), ("led", "1"), ("beep", "1", "2"), ("reset",), ("doctor",))
        with self.foreign_tool() as options:
            for command in commands:
                with self.subTest(command=command):
                    self.check_refused("is not there", *command, port="/dev/no-such-port")
                    self.check_refused("no permission to open", *command, port=port.path, **options)

    def test_a_port_that_another_program_has_to_itself(self):
        port = self.silent_port()
        os.chmod(port.path, 0o666)
        fcntl.ioctl(port.slave, termios.TIOCEXCL)
        with self.foreign_tool() as options:
            self.check_refused("is busy: another program", port=port.path, **options)

    def test_a_port_where_another_qvreader_is_at_work(self):
        sim = self.simulator()
        first = self.start("atr", port=sim.path)
        bench.wait_until(lambda: sim.state("waits for a card in slot"), "the first one waits")
        self.check_refused("is busy: another qvreader", port=sim.path)
        sim.command("insert 0 " + card("purse"))
        self.check_exit(first.finish(), 0)


class Readers(bench.ToolTest):
    def test_silence(self):
        port = self.silent_port()
        run = self.run_tool("--timeout", "1", "--json", "atr", port=port.path)
        self.check_exit(run, 5)
        self.assertEqual((run.json()["error"]["name"], run.json()["error"]["result"]), ("no-answer", -56))
        self.assertIn("is the reader switched on, and does it run at 9600 bit/s?", run.err)

    def test_a_wrong_speed_gives_a_time_out_and_no_rubbish(self):
        sim = self.simulator("--baud", "115200", "--card", "0=" + card("purse"))
        run = self.run_tool("--timeout", "1", "--json", "atr", port=sim.path)
        self.check_exit(run, 5)
        self.assertEqual(run.json()["error"]["result"], -56)
        self.assertNotIn("atr", run.json())

    def test_a_line_that_hangs_up_is_told_as_such(self):
        port = self.silent_port()
        tool = self.start("--timeout", "2", "--json", "atr", port=port.path)
        tool.wait_for("waiting for a card")
        port.close()
        run = tool.finish()
        self.check_exit(run, 5)
        self.assertIn("hung up", run.json()["error"]["text"])

    def test_a_wrong_check_byte_is_no_answer(self):
        port = self.silent_port()
        tool = self.start("--trace", "--json", "atr", port=port.path)
        tool.wait_for("power on slot 0")
        os.write(port.master, bytes.fromhex("02 30303033 30303030 333B 3337 03"))
        run = tool.finish()
        self.check_exit(run, 5)
        self.assertEqual(run.json()["error"]["result"], -4)
        self.assertIn("LRC wrong", run.err)


class Settings(bench.ToolTest):
    def test_the_lines_settings_are_as_before(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        slave = os.open(sim.path, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, slave)
        settings = termios.tcgetattr(slave)
        settings[3] |= termios.ECHOE | termios.IEXTEN
        settings[4] = settings[5] = termios.B4800
        settings[6][termios.VTIME] = 7
        termios.tcsetattr(slave, termios.TCSANOW, settings)
        before = termios.tcgetattr(slave)
        for arguments in (("atr",), ("--slot", "5", "--timeout", "1", "atr"), ("--baud", "19200", "--raise", "atr")):
            with self.subTest(arguments=arguments):
                self.run_tool(*arguments, port=sim.path)
                self.assertEqual(termios.tcgetattr(slave), before)


if __name__ == "__main__":
    bench.main()
