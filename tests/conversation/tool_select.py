"""Selecting an application, and the library's text for a card's status word."""
import bench
from bench import card

PSE = "315041592E5359532E4444463031"
NOT_FOUND = "6A82  (file or application not found)  \"ErrCode: 6A82: \u8be5\u6587\u4ef6\u672a\u627e\u5230\""


class Select(bench.ToolTest):
    def test_the_answer_is_shown_as_a_tree(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        run = self.run_tool("select", PSE, port=sim.path)
        self.check_exit(run, 0)
        self.assertEqual(run.out, "\n".join((
            "ATR 3B 68 00 00 51 56 53 49 4D 2D 44 43",
            "SELECT %s -> 9000  (success)  \"ErrCode: 9000: \u6210\u529f\u6267\u884c\"" % PSE,
            "6F [30] File Control Information (FCI) Template",
            "  84 [14] Dedicated File (DF) Name: %s \"1PAY.SYS.DDF01\"" % PSE,
            "  A5 [12] FCI Proprietary Template",
            "    88 [1] Short File Identifier (SFI): 01",
            "    5F2D [2] Language Preference: 7A68 \"zh\"",
            "    9F11 [1] Issuer Code Table Index: 01", "")))
        self.assertTrue(sim.state("slot 0").startswith("unpowered"))

    def test_a_refusal_is_told_with_the_library_s_text(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        run = self.run_tool("select", "A000000999", port=sim.path)
        self.check_exit(run, 1)
        self.assertEqual(run.out.splitlines()[1], "SELECT A000000999 -> " + NOT_FOUND)
        self.assertEqual(run.err, "")

    def test_json_holds_status_and_tree(self):
        sim = self.simulator("--card", "17=" + card("debit-credit"))
        run = self.run_tool("--json", "--slot", "psam1", "select", PSE, port=sim.path)
        self.check_exit(run, 0)
        told = run.json()
        self.assertEqual((told["command"], told["slot"], told["aid"], told["sw"], told["text"]),
                         ("select", 17, PSE, "9000", "ErrCode: 9000: \u6210\u529f\u6267\u884c"))
        self.assertEqual(told["items"][0]["items"][0]["text"], "1PAY.SYS.DDF01")

    def test_the_next_application_is_asked_for_with_its_own_p2(self):
        sim = self.simulator("--card", "0=vpcd:0")
        inserted = self.virtual_card(sim, 0, {"00A4040205A00000033300": "6A82"})
        run = self.run_tool("select", "A000000333", "--next", port=sim.path)
        self.check_exit(run, 1)
        self.assertEqual(run.out.splitlines()[1], "SELECT A000000333 (next) -> " + NOT_FOUND)
        self.assertIn(bytes.fromhex("00A4040205A00000033300"), inserted.asked)

    def test_a_malformed_answer_is_shown_as_far_as_it_goes(self):
        sim = self.simulator("--card", "0=vpcd:0")
        self.virtual_card(sim, 0, {"00A4040005A00000033300": "6F0A 8405A000000333 A5 9000"})
        run = self.run_tool("--json", "select", "A000000333", port=sim.path)
        self.check_exit(run, 1)
        told = run.json()
        self.assertEqual((told["sw"], told["malformed"]["offset"]), ("9000", 1))
        self.assertEqual(told["items"][0]["items"][0]["value"], "A000000333")
        self.assertIn("the card's answer is malformed at offset 1", run.err)

    def test_wrong_command_lines_are_refused(self):
        rows = ((("select",), "AID is required"), (("select", "A0000"), "1 to 16 bytes in hexadecimal"),
                (("select", "00" * 17), "1 to 16 bytes"), (("select", ""), "1 to 16 bytes"))
        for arguments, reason in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments, port="x")
                self.check_exit(run, 2)
                self.assertIn(reason, run.err)

    def test_no_card_ends_with_its_own_code(self):
        sim = self.simulator()
        run = self.run_tool("--timeout", "1", "--json", "select", PSE, port=sim.path)
        self.check_exit(run, 4)
        self.assertEqual(run.json()["error"]["readerStatus"], "1005")


class StatusTexts(bench.ToolTest):
    def test_a_command_that_is_not_done_has_the_library_s_text_behind_its_status(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        for locale in ("C", "POSIX", "C.utf8"):
            with self.subTest(locale=locale):
                run = self.run_tool("apdu", "00A4040005A000000999", port=sim.path, environment={"LC_ALL": locale})
                self.check_exit(run, 1)
                self.assertEqual(run.out.splitlines()[1], "00A4040005A000000999 -> " + NOT_FOUND)

    def test_json_has_the_text_of_every_answer(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        run = self.run_tool("--json", "apdu", "0084000008", "00A4040005A000000999", port=sim.path)
        self.assertEqual([x["text"] for x in run.json()["exchanges"]],
                         ["ErrCode: 9000: \u6210\u529f\u6267\u884c", "ErrCode: 6A82: \u8be5\u6587\u4ef6\u672a\u627e\u5230"])

    def test_a_status_that_the_library_does_not_know_is_told_as_such(self):
        sim = self.simulator("--card", "0=vpcd:0")
        self.virtual_card(sim, 0, {"0084000008": "1234"})
        run = self.run_tool("apdu", "0084000008", port=sim.path)
        self.check_exit(run, 1)
        self.assertEqual(run.out.splitlines()[1],
                         "0084000008 -> 1234  \"ErrCode: 1234: \u672a\u77e5\u9519\u8bef\u7801\uff01\"")


if __name__ == "__main__":
    bench.main()
