"""The tool and a reader on USB: real libusb, a device that the simulator emulates."""
import contextlib
import glob
import os
import queue
import re
import shutil
import signal
import subprocess
import tempfile
import threading

import bench
from bench import card

CARD = "0=" + card("debit-credit")
ATR = "ATR 3B 68 00 00 51 56 53 49 4D 2D 44 43\n"
CHALLENGE = "0084000008 -> 3A915CE7084DB2F6 " + bench.DONE + "\n"
IDENTITIES = ("0403:BCD5", "0403:BCD7", "0403:BC95", "2B46:BE11", "2B46:BE21", "2B46:BE01")
COMMANDS = (("atr",), ("apdu", "0084000008"), ("present",), ("info",), ("detect",), ("led", "1"), ("beep", "1", "2"))
NO_FRAME = "the reply is no valid frame (line noise, wrong speed, or another device)"
TIME_OUT = "no complete reply in time; is it a reader, and is it switched on?"


class UsbReader:
    """A simulator without a command: it tells the environment in which hosts find its device."""

    def __init__(self, *arguments):
        self.folder = tempfile.mkdtemp(prefix="qvsim-")
        self.socket = os.path.join(self.folder, "ctl")
        self.process = subprocess.Popen([bench.SIM, "--quiet", "--usb", "--control", self.socket, *arguments],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        lines = queue.Queue()
        self.thread = threading.Thread(target=lambda: [lines.put(line) for line in self.process.stdout], daemon=True)
        self.thread.start()
        words = lines.get(timeout=bench.PATIENCE).split()
        if words[0] != "ready":
            raise AssertionError("the simulator says %r" % words)
        self.environment = dict(word.split("=", 1) for word in words[1:])

    def command(self, text):
        run = subprocess.run([bench.SIM, "ctl", self.socket, *text.split()], stdout=subprocess.PIPE, text=True,
                             timeout=bench.PATIENCE)
        if run.returncode != 0:
            raise AssertionError("simulator: %s: %s" % (text, run.stdout))
        return run.stdout.splitlines()

    def state(self, key):
        for line in self.command("state"):
            if line.startswith(key + " "):
                return line[len(key) + 1:]
        return None

    def node(self, path):
        """Where a file of the emulated system really lies."""
        return self.environment["UMOCKDEV_DIR"] + path

    def close(self):
        self.process.terminate()
        try:
            self.process.wait(bench.PATIENCE)
        finally:
            if self.process.poll() is None:
                self.process.kill()
            self.thread.join()
            self.process.stdout.close()
            shutil.rmtree(self.folder)


class ToolUsb(bench.ToolTest):
    def reader(self, *arguments):
        sim = UsbReader(*arguments)
        self.addCleanup(sim.close)
        return sim

    def run_on(self, sim, *arguments, code=0, port="HID", **options):
        run = self.run_tool(*arguments, port=port, environment=sim.environment, **options)
        self.check_exit(run, code)
        return run

    def check_failed(self, sim, *arguments, code, text):
        told = self.run_on(sim, "--json", *arguments, code=code).json()
        self.assertIn(text, told["error"]["text"])
        return told

    @contextlib.contextmanager
    def without_rights(self):
        """Options for run_on: permissions count for this tool, which root's would not mind."""
        if os.geteuid() != 0:
            yield {}
            return
        folder = tempfile.mkdtemp(prefix="qvtool-", dir="/tmp")
        try:
            os.chmod(folder, 0o755)
            program = shutil.copy(bench.TOOL, folder)
            shutil.copy(os.environ["QV_LIBRARY"], os.path.join(folder, "libqvreader.so.1"))
            yield {"unprivileged": True, "program": program, "libraries": folder}
        finally:
            shutil.rmtree(folder)


class Conversations(ToolUsb):
    def test_each_command_reaches_the_reader(self):
        sim = self.reader("--card", CARD, "--device", "serial=BOX-17")
        self.assertEqual(self.run_on(sim, "apdu", "0084000008").out, ATR + CHALLENGE)
        self.assertEqual(self.run_on(sim, "present").out, "a reader answers over USB\n")
        self.assertEqual(self.run_on(sim, "detect").out, "kind            contact\n")
        self.assertEqual(self.run_on(sim, "led", "15").out, "done\n")
        self.assertEqual(self.run_on(sim, "beep", "300", "2").out, "done\n")
        self.run_on(sim, "reset")
        self.assertEqual((sim.state("led"), sim.state("buzzer")), ("0F, pair 00 00", "1, last 01 2C 02"))

    def test_info_shows_the_record_and_the_json_answer(self):
        sim = self.reader("--device", "serial=BOX-17")
        told = self.run_on(sim, "--json", "info").json()
        self.assertEqual(told["serial"], "BOX-17")
        self.assertEqual(bench.json.loads(told["answer"])["DeviceSN"], "BOX-17")
        self.assertEqual(told["device"], "/dev/bus/usb/001/002")
        self.assertNotIn("baud", told)
        self.assertEqual(sim.state("frames"), "2")  # one for each way of asking

    def test_each_identity_is_found(self):
        for identity in IDENTITIES:
            with self.subTest(identity=identity):
                sim = self.reader("--ids", identity, "--interfaces", "2", "--card", CARD)
                self.assertEqual(self.run_on(sim, "atr").out, ATR)

    def test_each_name_of_usb(self):
        sim = self.reader("--card", CARD)
        for name in ("HID", "USB", "1001"):
            with self.subTest(name=name):
                self.assertEqual(self.run_on(sim, "atr", port=name).out, ATR)

    def test_another_identity_is_found_when_it_is_named(self):
        sim = self.reader("--ids", "1234:ABCD", "--card", CARD)
        self.check_failed(sim, "atr", code=3, text="no reader is on USB (looked for 0403:BCD5, ")
        for port in ("HID", None):
            self.assertEqual(self.run_on(sim, "--usb-id", "1234:abcd", "atr", port=port).out, ATR)
        self.check_failed(sim, "--usb-id", "1234:ABCE", "atr", code=3, text="(looked for 1234:ABCE)")

    def test_the_trace_shows_commands_and_answers_without_their_padding(self):
        sim = self.reader("--card", CARD)
        shown = [re.sub(r"^\S+ ", "", line) for line in self.run_on(sim, "--trace", "led", "1").err.splitlines()]
        self.assertEqual(shown, [
            "> 01 30 30 30 33 31 31 31 31 30 31 30 31 04  [peripheral frame, LEDs 01]",
            "< 01 30 30 30 32 30 30 30 30 30 30 04  [peripheral frame, status 0000 (done), no body]"])
        long_command = "00A40400" + "78" + "41" * 120
        err = self.run_on(sim, "--trace", "apdu", long_command, code=1).err
        sent = [line for line in err.splitlines() if " > " in line and "APDU to slot 0: 00 A4 04 00 78 " in line]
        self.assertEqual(len(sent), 1, err)

    def test_a_command_that_does_not_fit_the_reports_is_refused_in_words(self):
        sim = self.reader("--card", CARD)
        self.run_on(sim, "apdu", "00A40400" + "94" + "41" * 148, code=1)
        self.check_failed(sim, "apdu", "00A40400" + "95" + "41" * 149, code=5, text="over USB it has at most 153 bytes")


class Failures(ToolUsb):
    def test_silence_is_no_answer_for_each_command(self):
        sim = self.reader("--card", CARD)
        sim.command("fault silence every")
        for arguments in COMMANDS:
            with self.subTest(command=arguments):
                told = self.check_failed(sim, "--timeout", "1", *arguments, code=5, text=TIME_OUT)
                self.assertEqual((told["error"]["name"], told["error"]["result"]), ("no-answer", -56))

    def test_what_is_spoilt_is_told_for_what_it_is(self):
        sim = self.reader("--card", CARD)
        for arguments in COMMANDS:
            for fault, text in (("badlrc", NO_FRAME), ("noend", TIME_OUT)):
                if (arguments, fault) == (("present",), "noend"):
                    continue  # half an answer
                with self.subTest(command=arguments, fault=fault):
                    sim.command("fault " + fault)
                    self.check_failed(sim, "--timeout", "1", *arguments, code=5, text=text)
            self.run_on(sim, *arguments)  # one reply was spoilt, the next is not

    def test_a_reader_that_is_pulled_out_is_told_as_such(self):
        sim = self.reader("--card", CARD)
        for arguments in (("atr",), ("info",), ("led", "1"), ("detect",)):
            with self.subTest(command=arguments):
                sim.command("fault hangup")
                self.check_failed(sim, "--timeout", "1", *arguments, code=5, text="is gone: was it unplugged?")
                self.check_failed(sim, *arguments, code=3, text="no reader is on USB")
                sim.command("plug")

    def test_a_reader_that_does_not_open(self):
        sim = self.reader("--usb-set", "claim busy")
        for arguments in COMMANDS:
            with self.subTest(command=arguments):
                self.check_failed(sim, *arguments, code=3, text="HID: the port could not be opened")

    def test_a_missing_permission_is_told_with_its_cure(self):
        sim = self.reader()
        os.chmod(sim.node("/dev/bus/usb/001/002"), 0)
        with self.without_rights() as options:
            options = dict(options)
            folder = options.pop("libraries", None)
            if folder:
                sim.environment["LD_LIBRARY_PATH"] = folder
            for arguments in COMMANDS:
                with self.subTest(command=arguments):
                    run = self.run_on(sim, *arguments, code=3, **options)
                    self.assertIn("no permission to open /dev/bus/usb/001/002 (2B46:BE11); ", run.err)
                    self.assertIn("70-qvreader.rules", run.err)
            out = self.run_on(sim, "doctor", code=3, **options).out
        self.assertRegex(out, r"(?m)^WRONG usb node no permission to open /dev/bus/usb/001/002  -> .*70-qvreader.rules")

    def test_a_second_tool_is_refused(self):
        sim = self.reader()
        first = self.start("--timeout", "60", "atr", port="HID", environment=sim.environment)
        first.wait_for("waiting for a card")
        self.check_failed(sim, "present", code=3, text="is busy: another qvreader is at work on it")
        sim.command("insert " + CARD.replace("=", " "))
        run = first.finish()
        self.check_exit(run, 0)
        self.assertEqual(run.out, ATR)

    def test_a_signal_ends_the_wait(self):
        sim = self.reader()
        tool = self.start("--timeout", "60", "atr", port="HID", environment=sim.environment)
        tool.wait_for("waiting for a card")
        tool.signal(signal.SIGINT)
        self.check_exit(tool.finish(), 130)
        self.assertIsNone(sim.state("waits for a card in slot"))

    def test_wrong_command_lines_are_refused(self):
        rows = (
            (("--port", "HID", "--baud", "9600", "atr"), "has no serial line"),
            (("--port", "USB", "--box", "A", "atr"), "has no serial line"),
            (("--usb-id", "0403:BCD5", "--raise", "atr"), "has no serial line"),
            (("--usb-id", "0403", "atr"), "\"0403\" is no identity"),
            (("--usb-id", "0403:", "atr"), "\"0403:\" is no identity"),
            (("--usb-id", "0403:BCD5A", "atr"), "\"0403:BCD5A\" is no identity"),
            (("--usb-id", "0403:xyz", "atr"), "\"0403:xyz\" is no identity"),
            (("--usb-id", "0403:BCD5", "--port", "/dev/null", "atr"), "goes with --port HID"),
        )
        for arguments, text in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments)
                self.check_exit(run, 2)
                self.assertIn(text, run.err)


class SeveralReaders(ToolUsb):
    TWINS = ("--ids", "2B46:BE11", "--ids", "2B46:BE11")
    STRANGERS = ("--ids", "0403:BCD5", "--ids", "2B46:BE11")
    NODES = ("/dev/bus/usb/001/002", "/dev/bus/usb/001/003")

    def used_nodes(self, sim):
        """Nodes of the devices whose kernel driver has been taken off: the library has claimed them."""
        folder = sim.node("/sys/devices/pci0000:00/1-%d/1-%d:1.0")
        return [node for port, node in enumerate(self.NODES, 1)
                if not glob.glob(os.path.join(folder % (port, port), "0003:*"))]

    def let_a_program_hold(self, sim, port):
        os.symlink("../../../../../bus/usb/drivers/usbfs",
                   sim.node("/sys/devices/pci0000:00/1-%d/1-%d:1.0/driver" % (port, port)))

    def test_the_device_that_was_really_opened_is_told(self):
        for arguments in (("atr",), ("present",), ("info",), ("led", "1"), ("doctor",)):
            with self.subTest(command=arguments):
                sim = self.reader(*self.TWINS, "--card", CARD)
                told = self.run_on(sim, "--json", *arguments).json()
                self.assertEqual([told["device"]], self.used_nodes(sim))

    def test_a_missing_node_of_one_twin_hinders_only_where_the_library_takes_that_one(self):
        sim = self.reader(*self.TWINS, "--card", CARD)
        opened = self.run_on(sim, "--json", "atr").json()["device"]
        for missing in self.NODES:
            with self.subTest(missing=missing):
                os.rename(sim.node(missing), sim.node(missing) + ".away")
                if missing == opened:
                    self.check_failed(sim, "atr", code=3, text="%s (2B46:BE11) is not there; plug" % missing)
                else:
                    self.assertEqual(self.run_on(sim, "--json", "atr").json()["device"], opened)
                    sim.command("fault silence every")
                    told = self.run_on(sim, "--json", "--timeout", "1", "atr", code=5).json()
                    self.assertIn(TIME_OUT, told["error"]["text"])  # and not: it is gone
                    sim.command("fault off")
                os.rename(sim.node(missing) + ".away", sim.node(missing))

    def test_a_busy_twin_keeps_the_tool_off_both(self):
        for port in (1, 2):
            with self.subTest(port=port):
                sim = self.reader(*self.TWINS, "--card", CARD)
                self.let_a_program_hold(sim, port)
                for arguments in COMMANDS:
                    self.check_failed(sim, *arguments, code=3, text="%s (2B46:BE11) is busy: " % self.NODES[port - 1])
                self.assertEqual(self.used_nodes(sim), [])

    def test_a_tool_at_work_keeps_a_second_one_off_both_twins(self):
        sim = self.reader(*self.TWINS)
        first = self.start("--timeout", "60", "atr", port="HID", environment=sim.environment)
        first.wait_for("waiting for a card")
        self.check_failed(sim, "present", code=3, text="is busy: another qvreader is at work on it")
        first.signal(signal.SIGINT)
        self.check_exit(first.finish(), 130)

    def test_an_unusable_reader_is_passed_over_for_one_of_another_identity(self):
        for place in (0, 1):
            with self.subTest(missing=self.NODES[place]):
                sim = self.reader(*self.STRANGERS, "--card", CARD)
                os.unlink(sim.node(self.NODES[place]))
                for arguments in (("atr",), ("present",), ("info",)):
                    told = self.run_on(sim, "--json", *arguments).json()
                    self.assertEqual(told["device"], self.NODES[1 - place])
                os.unlink(sim.node(self.NODES[1 - place]))
                self.check_failed(sim, "atr", code=3, text="/dev/bus/usb/001/002 (0403:BCD5) is not there")

    def test_a_busy_reader_is_left_alone_for_one_of_another_identity(self):
        for place in (0, 1):
            with self.subTest(busy=self.NODES[place]):
                sim = self.reader(*self.STRANGERS, "--card", CARD)
                self.let_a_program_hold(sim, place + 1)
                for arguments in (("atr",), ("present",), ("info",)):
                    self.assertEqual(self.run_on(sim, "--json", *arguments).json()["device"], self.NODES[1 - place])
                self.assertEqual(self.used_nodes(sim), [self.NODES[1 - place]])

    def test_a_tool_at_work_leaves_readers_of_other_identities_to_others(self):
        sim = self.reader(*self.STRANGERS)
        first = self.start("--timeout", "60", "atr", port="HID", environment=sim.environment)
        first.wait_for("waiting for a card")
        self.assertEqual(self.used_nodes(sim), [self.NODES[0]])
        self.check_failed(sim, "--usb-id", "0403:BCD5", "led", "1", code=3, text="is busy: another qvreader is at work")
        for arguments in ((), ("--usb-id", "2B46:BE11")):
            told = self.run_on(sim, "--json", *arguments, "led", "1").json()
            self.assertEqual(told["device"], self.NODES[1])
        first.signal(signal.SIGINT)
        self.check_exit(first.finish(), 130)


class Doctor(ToolUsb):
    def examined(self, sim, *arguments, code=0, port="HID"):
        told = self.run_on(sim, "--json", "doctor", *arguments, code=code, port=port).json()
        return {check["name"]: check for check in told["checks"]}

    def test_all_is_well(self):
        checks = self.examined(self.reader("--ids", "0403:BCD7"))
        self.assertEqual([check for check in checks.values() if check["state"] == "WRONG"], [])
        self.assertRegex(checks["usb"]["text"], r"^0403:BCD7 \"QV reader\" is plugged in at 1-1 \(bus 1, device 2\)")
        self.assertEqual(checks["usb node"]["text"], "/dev/bus/usb/001/002 may be opened")
        self.assertEqual(checks["hid node"]["text"], "/dev/hidraw0 (interface 0) may be opened")
        self.assertEqual(checks["driver"]["state"], "ok")
        self.assertEqual(checks["held by"]["state"], "ok")
        self.assertEqual(checks["reader"]["text"], "answers over USB")

    def test_a_missing_node_is_told_as_missing(self):
        sim = self.reader()
        for node in ("/dev/bus/usb/001/002", "/dev/hidraw0"):
            os.unlink(sim.node(node))
        checks = self.examined(sim, code=3)
        self.assertEqual((checks["usb node"]["state"], checks["usb node"]["text"]),
                         ("WRONG", "/dev/bus/usb/001/002 is not there"))
        self.assertIn("plug the reader in anew", checks["usb node"]["advice"])
        self.assertIn("/dev/hidraw0 (interface 0) is not there", checks["hid node"]["text"])
        self.assertEqual(checks["port"]["text"], "/dev/bus/usb/001/002 (2B46:BE11) is not there")

    def test_readers_on_usb_are_listed_for_other_ports_as_well(self):
        sim = self.reader()
        checks = self.examined(sim, code=3, port="/dev/no-such-port")
        self.assertIn("2B46:BE11", checks["usb"]["text"])
        sim.command("unplug")
        checks = self.examined(sim, code=3, port="/dev/no-such-port")
        self.assertEqual((checks["usb"]["state"], checks["usb"]["text"]), ("ok", "no reader is on USB"))

    def test_no_reader(self):
        sim = self.reader("--ids", "1234:ABCD")
        check = self.examined(sim, code=3)["usb"]
        self.assertEqual(check["state"], "WRONG")
        self.assertIn("--usb-id", check["advice"])
        self.assertIn("1234:ABCD", self.examined(sim, "--usb-id", "1234:ABCD")["usb"]["text"])

    def test_a_driver_that_was_taken_off_is_noted(self):
        sim = self.reader("--card", CARD)
        self.run_on(sim, "atr")
        check = self.examined(sim)["driver"]
        self.assertEqual(check["state"], "note")
        self.assertIn("has no kernel driver", check["text"])

    def test_a_driver_is_named_and_an_interface_that_a_program_holds_too(self):
        sim = self.reader("--ids", "0403:BCD5", "--interfaces", "2")
        link = sim.node("/sys/devices/pci0000:00/1-1/1-1:1.1/driver")
        os.symlink("../../../../../bus/usb/drivers/usbhid", link)
        self.assertEqual(self.examined(sim, port="/dev/null", code=3)["driver"]["text"],
                         "interface 1, the reader's, has the kernel's usbhid; the library takes it off")
        os.unlink(link)
        os.symlink("../../../../../bus/usb/drivers/usbfs", link)
        checks = self.examined(sim, code=3)
        self.assertEqual((checks["driver"]["state"], checks["driver"]["text"]),
                         ("WRONG", "interface 1, the reader's, is held by a program"))
        self.check_failed(sim, "atr", code=3, text=" is busy: ")

    def test_who_has_the_node_open_is_named(self):
        sim = self.reader()
        with open(sim.node("/dev/bus/usb/001/002"), "rb", buffering=0):
            check = self.examined(sim)["held by"]
        self.assertEqual(check["state"], "note")
        self.assertIn("(process %d) has /dev/bus/usb/001/002 open" % os.getpid(), check["text"])

    def test_silence(self):
        sim = self.reader()
        sim.command("fault silence every")
        self.assertEqual(self.examined(sim, code=5)["reader"]["text"], "no answer over USB")


if __name__ == "__main__":
    bench.main()
