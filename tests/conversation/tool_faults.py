"""A line that spoils what comes over it, and what the tool says about it: each fault of the simulated reader, against
each command that asks the reader for something."""
import os
import select

import bench
from bench import card

COMMANDS = (("present",), ("info",), ("led", "1"), ("beep", "1", "2"), ("detect",))
NO_FRAME = "the reply is no valid frame (line noise, wrong speed, or another device)"
TIME_OUT = "no complete reply in time; is the reader switched on, and does it run at 9600 bit/s?"

# What the tool cannot cure: the message behind the command's name.
BAD = (
    ("badlrc", NO_FRAME, -4),
    ("length 300", NO_FRAME, -4),
    ("noend", TIME_OUT, -56),
    ("silence", TIME_OUT, -56),
)
HARMLESS = ("garbage 414200", "repeat", "split 2", "delay 2", "leadingzero 100", "late 700")


class Faults(bench.ToolTest):
    def run_json(self, sim, arguments, code):
        run = self.run_tool("--json", "--timeout", "2", *arguments, port=sim.path)
        self.check_exit(run, code)
        return run.json(), run

    def test_what_cannot_be_cured_is_told_for_what_it_is(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        for arguments in COMMANDS:
            for fault, text, result in BAD:
                if (arguments, fault) == (("present",), "noend"):
                    continue  # half an answer
                with self.subTest(command=arguments, fault=fault):
                    sim.command("fault " + fault)
                    told, run = self.run_json(sim, arguments, 5)
                    self.assertEqual((told["error"]["name"], told["error"]["result"]), ("no-answer", result))
                    self.assertTrue(told["error"]["text"].endswith(": " + text), run)
                    self.assertIn(told["error"]["text"], run.err)
            self.run_json(sim, arguments, 0)  # one reply was spoilt, the next is not

    def test_half_a_sign_of_life_is_no_frame(self):
        sim = self.simulator()
        sim.command("fault noend")
        told, _ = self.run_json(sim, ("present",), 5)
        self.assertEqual((told["present"], told["error"]["text"]), (False, "sign of life: " + NO_FRAME))

    def test_what_is_harmless_does_no_harm(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        for arguments in COMMANDS:
            for fault in HARMLESS:
                with self.subTest(command=arguments, fault=fault):
                    sim.command("fault " + fault)
                    self.run_json(sim, arguments, 0)
        self.assertEqual(sim.state("led"), "01, pair 00 00")
        self.assertEqual(sim.state("buzzer"), "%d, last 00 01 02" % len(HARMLESS))

    def test_a_line_that_hangs_up_is_told_as_such(self):
        for arguments in COMMANDS:
            with self.subTest(command=arguments):
                sim = self.simulator("--card", "0=" + card("purse"))
                sim.command("fault hangup")
                told, _ = self.run_json(sim, arguments, 5)
                self.assertEqual(told["error"]["name"], "no-answer")
                self.assertIn("the line has hung up: was the reader unplugged?", told["error"]["text"])

    def test_every_fault_there_is_has_been_tried(self):
        sim = self.simulator()
        known = {line.split()[0] for line in sim.command("faults")}
        self.assertEqual(known, {fault.split()[0] for fault in (*HARMLESS, *(row[0] for row in BAD), "hangup")})

    def test_a_late_answer_is_not_taken_for_the_next_one(self):
        sim = self.simulator("--device", "serial=BOX-17")
        sim.command("fault late 2500")
        self.check_exit(self.run_tool("--timeout", "1", "led", "1", port=sim.path), 5)
        line = os.open(sim.path, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, line)
        bench.wait_until(lambda: select.select([line], [], [], 0)[0], "the late answer has come")
        run = self.run_tool("info", port=sim.path)
        self.check_exit(run, 0)
        self.assertRegex(run.out, r"(?m)^serial number +BOX-17$")


if __name__ == "__main__":
    bench.main()
