"""--trace: the bytes shown are the bytes on the wire, and what is said about them is right."""
import re

import bench
from bench import card

LINE = re.compile(r"^\d\d:\d\d:\d\d\.\d{3} ([<>!]) ((?:[0-9A-F]{2} ?)+)  \[(.*)\]$")


class Trace(bench.ToolTest):
    def trace_of(self, run):
        rows = [LINE.match(line) for line in run.err.splitlines()]
        return [(row[1], row[2].strip(), row[3]) for row in rows if row]

    def simulators_bytes(self, sim):
        """(direction, bytes) as the other end of the line has seen them."""
        rows = (re.match(r"^\S+ \S+ (in|out) +((?:[0-9A-F]{2} ?)+)$", line) for line in sim.trace())
        return [("<" if row[1] == "out" else ">", row[2].strip()) for row in rows if row]

    def joined(self, rows):
        """Pieces of one direction put together: the line cuts them as it likes."""
        out = []
        for direction, data in rows:
            if out and out[-1][0] == direction:
                out[-1] = (direction, out[-1][1] + " " + data)
            else:
                out.append((direction, data))
        return out

    def test_what_is_shown_is_what_the_reader_saw(self):
        sim = self.simulator("--card", "0=" + card("follow-up"))
        run = self.run_tool("--trace", "apdu", "00A40400023F00", "00B2010C00", "00CA040000", port=sim.path)
        self.check_exit(run, 0)
        shown = self.joined((row[0], row[1]) for row in self.trace_of(run))
        self.assertEqual(shown, self.joined(self.simulators_bytes(sim)))
        self.assertEqual(len(shown), 2 * 7)  # power up, three commands, two follow-ups, power down

    def test_meanings(self):
        sim = self.simulator("--card", "17=" + card("purse"))
        run = self.run_tool("--trace", "--timeout", "3", "--slot", "psam1", "apdu", "0084000004", port=sim.path)
        self.check_exit(run, 0)
        self.assertEqual([row[2] for row in self.trace_of(run)], [
            "card frame, power on PSAM 1, waits 3000 ms",
            "card frame, status 0000 (done), body 12 bytes: 3B 68 00 00 51 56 53 49 4D 2D 45 50",
            "card frame, APDU to PSAM 1: 00 84 00 00 04 (GET CHALLENGE)",
            "card frame, status 0000 (done), body 6 bytes: B7 2E 61 0F 90 00",
            "card frame, power off PSAM 1",
            "card frame, status 0000 (done), no body",
        ])
        self.assertIn("line at 9600 bit/s", run.err)

    def test_a_status_without_body(self):
        sim = self.simulator()
        run = self.run_tool("--trace", "--timeout", "1", "--slot", "contactless", "atr", port=sim.path)
        self.check_exit(run, 4)
        rows = self.trace_of(run)
        self.assertEqual(rows[0][1:], ("02 30 30 30 34 33 32 32 34 30 33 3E 38 3F 3D 03",
                                       "card frame, power on the contactless antenna, waits 1000 ms"))
        self.assertEqual(rows[1][2], "card frame, status 3001 (no card on the antenna), no body")

    def test_switch_box(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        run = self.run_tool("--trace", "--box", "B", "atr", port=sim.path)
        self.check_exit(run, 0)
        rows = self.trace_of(run)
        sent = [row[1:] for row in rows if row[0] == ">"]
        self.assertEqual(" ".join(data for data, _ in sent[:-3]), "1B 25 42 1B 24 49 34")
        self.assertEqual("; ".join(meaning for _, meaning in sent[:-3]),
                         "switch box: select port B; switch box: line at 9600")
        self.assertEqual(sent[-1], ("1B 24 42", "switch box: release the port"))
        self.assertEqual(sim.state("box"), "none")

    def test_commands_without_a_card_are_told_in_words(self):
        sim = self.simulator("--device", "serial=BOX-17")
        sim.command("swipe 6225=2912 -")
        record = "model QVSIM, serial number BOX-17, produced 2026-03-01, firmware 1.00.00.00"
        rows = (
            (("present",), ["card frame, sign of life"], "card frame, status 0000 (done), no body"),
            (("led", "15"), ["peripheral frame, LEDs 0F"], "peripheral frame, status 0000 (done), no body"),
            (("led", "1", "2"), ["peripheral frame, LED pair 01 02"], "peripheral frame, status 0000 (done), no body"),
            (("beep", "300", "2"), ["peripheral frame, buzzer, D 300, N 2"],
             "peripheral frame, status 0000 (done), body 1 byte: 00"),
            (("info",), ["peripheral frame, device record"], "(%s)" % record),
            (("detect",), ["card frame, which card is there, waits 10 s"], "(magnetic card, text \"6225=2912|..\")"),
            (("detect", "--kind", "9"), ["card frame, which card of kind 9 is there, waits 10 s"],
             "card frame, status F003 (the reader knows no such kind of card), no body"),
            (("reset",), ["module reset"], None),
            (("--box", "A", "reset"), ["switch box: select port A", "switch box: line at 9600", "module reset",
                                       "switch box: release the port"], None),
        )
        for arguments, commands, reply in rows:
            with self.subTest(arguments=arguments):
                shown = self.trace_of(self.run_tool("--trace", *arguments, port=sim.path))
                told = "; ".join(row[2] for row in shown if row[0] == ">")
                self.assertEqual(told, "; ".join(commands))
                replies = [row[2] for row in shown if row[0] == "<"]
                self.assertEqual(len(replies), 0 if reply is None else 1)
                if reply is not None:
                    self.assertTrue(replies[0].endswith(reply), replies)

    def test_standard_output_stays_clean(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        run = self.run_tool("--trace", "--json", "apdu", "0084000004", port=sim.path)
        self.check_exit(run, 0)
        self.assertEqual(run.json()["exchanges"][0]["data"], "B72E610F")

    def test_what_is_no_frame_is_shown_as_such(self):
        port = self.silent_port()
        tool = self.start("--trace", "--timeout", "1", "atr", port=port.path)
        tool.wait_for("power on slot 0")
        bench.os.write(port.master, bytes.fromhex("41 42 43"))
        run = tool.finish()
        self.check_exit(run, 5)
        self.assertIn(("<", "41 42 43", "no frame"), self.trace_of(run))


if __name__ == "__main__":
    bench.main()
