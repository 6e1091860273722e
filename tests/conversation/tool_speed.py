"""The line's speed: raised by the tool, kept by the reader."""
import bench
from bench import card


class Speed(bench.ToolTest):
    def raised(self, sim, *arguments):
        """A run that raises the line. A flush may overtake the sequence that switches the speed, and a pseudo-terminal
        then loses it (a real line has sent it by then): done again, as a user would."""
        for _ in range(5):
            run = self.run_tool("--raise", "--timeout", "1", *arguments, port=sim.path)
            if run.code != 5:
                break
        self.check_exit(run, 0)
        return run

    def test_the_line_is_raised(self):
        for baud in ("19200", "38400", "115200"):
            with self.subTest(baud=baud):
                sim = self.simulator("--card", "0=" + card("purse"))
                run = self.raised(sim, "--baud", baud, "--trace", "apdu", "0084000004")
                self.assertEqual(sim.state("baud"), baud)
                self.assertIn("line at 9600 bit/s", run.err)
                self.assertIn("line at %s bit/s" % baud, run.err)
                self.assertIn("[wake-up, 4 zero bytes]", run.err)
                self.assertIn("[line speed %s]" % baud, run.err)

    def test_a_raised_reader_is_met_again(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        self.raised(sim, "--baud", "115200", "atr")
        self.raised(sim, "--baud", "115200", "atr")
        self.check_exit(self.run_tool("--baud", "115200", "atr", port=sim.path), 0)

    def test_raising_to_9600_sends_nothing(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        self.check_exit(self.run_tool("--raise", "atr", port=sim.path), 0)
        self.assertEqual(sim.state("escapes"), "0")

    def test_every_speed_reaches_the_line(self):
        for baud in ("300", "1200", "2400", "4800", "19200", "38400", "57600", "115200", "230400"):
            with self.subTest(baud=baud):
                sim = self.simulator("--baud", baud, "--card", "0=" + card("purse"))
                self.check_exit(self.run_tool("--baud", baud, "atr", port=sim.path), 0)


if __name__ == "__main__":
    bench.main()
