"""BER-TLV data as a tree, from the command line and from standard input."""
import json
import os
import subprocess

import bench

RECORD = "70 19 61 17 4F 08 A000000333010101 50 08 5056204445424954 87 01 01"
TREE = """70 [25] READ RECORD Response Template
  61 [23] Application Template
    4F [8] Application Identifier (AID), card: A000000333010101
    50 [8] Application Label: 5056204445424954 "PV DEBIT"
    87 [1] Application Priority Indicator: 01
"""


class Tlv(bench.ToolTest):
    def from_input(self, data, *arguments):
        done = subprocess.run([bench.TOOL, *arguments, "tlv", "-"], input=data, capture_output=True, timeout=60)
        return bench.Run(done.returncode, done.stdout.decode(), done.stderr.decode())

    def test_a_tree_is_shown_without_a_reader(self):
        for pieces in ([RECORD], RECORD.split(), [RECORD.replace(" ", "").lower()]):
            with self.subTest(pieces=pieces):
                run = self.run_tool("tlv", *pieces)
                self.check_exit(run, 0)
                self.assertEqual((run.out, run.err), (TREE, ""))

    def test_standard_input_may_hold_blanks_and_lines(self):
        for data in (RECORD, RECORD.replace(" ", "\n"), RECORD.replace(" ", "\r\n\t") + "\n"):
            with self.subTest(data=data):
                run = self.from_input(data.encode())
                self.check_exit(run, 0)
                self.assertEqual((run.out, run.err), (TREE, ""))

    def test_json_holds_the_tree(self):
        run = self.run_tool("--json", "tlv", RECORD)
        self.check_exit(run, 0)
        top = run.json()["items"][0]
        self.assertEqual((top["offset"], top["tag"], top["length"]), (0, "70", 25))
        self.assertNotIn("value", top)
        label = top["items"][0]["items"][1]
        self.assertEqual(label, {"offset": 14, "tag": "50", "length": 8, "name": "Application Label",
                                 "value": "5056204445424954", "text": "PV DEBIT"})
        self.assertEqual(run.json()["exitCode"], 0)

    def test_malformed_data_are_told_with_their_place_behind_what_is_good(self):
        run = self.run_tool("tlv", "880101 5A0462")
        self.check_exit(run, 1)
        self.assertEqual(run.out, "88 [1] Short File Identifier (SFI): 01\n")
        self.assertEqual(run.err, "qvreader: malformed at offset 4: the length of 5A is 4, but 1 byte is left\n")
        run = self.run_tool("--json", "tlv", "880101 5A0462")
        self.check_exit(run, 1)
        told = run.json()
        self.assertEqual(told["malformed"]["offset"], 4)
        self.assertEqual([item["tag"] for item in told["items"]], ["88"])
        self.assertEqual(told["exitCode"], 1)

    def test_what_is_not_hexadecimal_is_refused(self):
        rows = ((("tlv",), "HEX is required"), (("tlv", "88010"), "half a byte is missing"),
                (("tlv", "88 01 0G"), "not hexadecimal"))
        for arguments, reason in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments)
                self.check_exit(run, 2)
                self.assertIn(reason, run.err)
                self.assertEqual(run.out, "")
        self.check_exit(self.from_input(b"\xff\xfe"), 2)

    def test_more_than_is_taken_is_refused(self):
        run = self.from_input(b"00" * 200000)
        self.check_exit(run, 2)
        self.assertIn("more than 262144 characters", run.err)

    def test_text_comes_in_the_character_set_of_the_locale(self):
        name = "5F2004D6D0B9FA"
        for locale in ("C", "C.utf8"):
            with self.subTest(locale=locale):
                run = self.run_tool("tlv", name, environment={"LC_ALL": locale})
                self.check_exit(run, 0)
                self.assertEqual(run.out, "5F20 [4] Cardholder Name: D6D0B9FA \"\u4e2d\u56fd\"\n")

    def test_no_port_is_asked_for(self):
        variables = {key: text for key, text in os.environ.items() if key != "QVREADER_PORT"}
        done = subprocess.run([bench.TOOL, "--json", "tlv", "8800"], capture_output=True, env=variables, timeout=60)
        self.assertEqual(done.returncode, 0)
        self.assertNotIn("port", json.loads(done.stdout))


if __name__ == "__main__":
    bench.main()
