"""A card that nobody here wrote: the virtual ISO 7816 card of the package vsmartcard-vpicc."""
import os
import subprocess
import unittest

import bench

LAUNCHER = os.path.join(bench.CARDS, "foreign", "vicc-launcher")


@unittest.skipUnless(os.path.exists("/usr/bin/vicc"), "package vsmartcard-vpicc is not installed")
class ForeignCard(bench.ToolTest):
    def test_a_whole_conversation(self):
        sim = self.simulator("--card", "0=vpcd:0")
        port = sim.told[0].split()[2]
        with open(os.path.join(sim.folder, "vicc.log"), "wb") as log:
            vicc = subprocess.Popen(
                [LAUNCHER, "--type", "iso7816", "--hostname", "127.0.0.1", "--port", port],
                stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)

        def end():
            vicc.kill()
            vicc.wait()

        self.addCleanup(end)
        tool = self.start("--timeout", "60", "--json", "apdu", "00A4000C023F00", "0084000008", "00B0000000",
                          port=sim.path)
        run = tool.finish()
        self.check_exit(run, 1)
        told = run.json()
        self.assertEqual(told["atr"], "3B951381018073FF01000B")
        self.assertEqual([(x["sw"], len(x["data"]) // 2) for x in told["exchanges"]],
                         [("9000", 0), ("9000", 8), ("6986", 0)])
        end()
        bench.wait_until(lambda: "no card has connected" in sim.state("slot 0"), "the card counts as pulled")
        self.check_exit(self.run_tool("--timeout", "1", "atr", port=sim.path), 4)


if __name__ == "__main__":
    bench.main()
