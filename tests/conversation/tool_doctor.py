"""What the doctor finds."""
import os
import subprocess
import sys

import bench
from tool_device import PtyReader


class Doctor(bench.ToolTest):
    def examined(self, code, port, *arguments):
        run = self.run_tool("--json", "doctor", *arguments, port=port)
        self.check_exit(run, code)
        self.told = run.json()
        return {check["name"]: check for check in self.told["checks"]}

    def reader(self, **options):
        reader = PtyReader({"3111": "0000"}, **options)
        self.addCleanup(reader.close)
        return reader

    def test_all_is_well(self):
        checks = self.examined(0, self.reader().path)
        self.assertEqual({name for name, check in checks.items() if check["state"] == "WRONG"}, set())
        self.assertEqual(os.path.realpath(checks["library"]["text"]), os.path.realpath(os.environ["QV_LIBRARY"]))
        self.assertEqual(self.told["baud"], 9600)
        self.assertIn("answers at 9600", checks["reader"]["text"])

    def test_a_reader_at_another_speed_is_found(self):
        checks = self.examined(5, self.reader(baud=38400).path)
        self.assertEqual(self.told["baud"], 38400)
        self.assertIn("--baud 38400", checks["reader"]["advice"])
        self.examined(0, self.reader(baud=38400).path, "--baud", "38400")

    def test_silence_is_told_in_bounded_time(self):
        checks = self.examined(5, self.silent_port().path)
        self.assertEqual(checks["reader"]["text"], "no answer at any speed")

    def test_ports_that_cannot_be_used(self):
        for port, text in (("/dev/no-such-port", "is not there"), ("/dev/null", "is not a serial port"),
                           (None, "no port was named")):
            with self.subTest(port=port):
                checks = self.examined(3, port)
                self.assertIn(text, checks["port"]["text"])
                self.assertNotEqual(checks["port"]["advice"], "")

    def test_the_simulated_reader_holds_its_port_by_right(self):
        sim = self.simulator()
        checks = self.examined(0, sim.path)
        self.assertRegex(checks["far end"]["text"], r"^qvreader-sim \(process %d\)" % sim.process.pid)
        self.assertEqual(checks["held by"]["state"], "ok")

    def test_rubbish_and_silence_are_told_apart(self):
        sim = self.simulator()
        sim.command("fault badlrc every")
        check = self.examined(5, sim.path)["reader"]
        self.assertEqual(check["text"], "no answer at any speed, but bytes that are no valid frame at 9600 bit/s")
        self.assertIn("damaged cable?", check["advice"])
        sim.command("fault off")
        self.assertEqual(self.examined(0, sim.path)["reader"]["text"], "answers at 9600 bit/s")

    def test_a_line_that_hangs_up_is_told_as_such(self):
        sim = self.simulator()
        sim.command("fault hangup")
        self.assertEqual(self.examined(5, sim.path)["reader"]["text"], "the line has hung up")

    def test_who_holds_the_port_is_named(self):
        reader = self.reader()
        with open(reader.path, "rb", buffering=0) as port:
            other = subprocess.Popen([sys.executable, "-c", "input()"], stdin=subprocess.PIPE, pass_fds=(port.fileno(),))
        try:
            run = self.run_tool("doctor", port=reader.path)
        finally:
            other.communicate(b"\n")
        self.check_exit(run, 0)
        self.assertIn("(process %d)" % other.pid, run.out)


if __name__ == "__main__":
    bench.main()
