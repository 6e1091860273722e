"""An electronic purse card and a PSAM of the simulator: balance, load, purchase, log, and all that may go wrong."""
import os
import re

import bench

KEY = "4C4F41442D4B45593A64656D6F2D3031"
OTHER_KEY = "4C4F41442D4B45593A64656D6F2D3032"
TAC_KEY = "5441432D4B45592E3A64656D6F2D3034"
AID = "515650555253452E31"
SELECT = "00A4040009" + AID + "00"
# INITIALIZE FOR LOAD and the answer of a card with the key above, balance 50.00, counter 7, random number 11223344.
BEGIN_LOAD = "805000020B 01 00000064 000000000001 10"
LOAD_BEGUN = "00001388 0007 01 00 11223344 E13F6D5D 9000"
STATUS_BLOCKED = "ErrCode: 6983: \u8ba4\u8bc1\u65b9\u6cd5\u9501\u5b9a\uff0cPIN\u88ab\u9501\u5b9a"


class ByBeginning(dict):
    """Answers by what a command begins with."""

    def get(self, message):
        return next((answer for begin, answer in self.items() if message.startswith(begin)), None)


class PurseTest(bench.ToolTest):
    def cards(self):
        return self.simulator("--card", "0=purse:" + os.path.join(bench.CARDS, "demo.purse"),
                              "--card", "16=psam:" + os.path.join(bench.CARDS, "demo.psam"))

    def purse(self, sim, *arguments, code=0):
        run = self.run_tool("purse", *arguments, port=sim.path)
        self.check_exit(run, code)
        return run

    def balance(self, sim, *arguments):
        run = self.run_tool("--json", "purse", "balance", *arguments, port=sim.path)
        self.check_exit(run, 0)
        return run.json()["balance"]


class Money(PurseTest):
    def test_purse_and_deposit_have_their_own_balance(self):
        sim = self.cards()
        self.assertEqual(self.purse(sim, "balance").out, "purse balance   50.00\n")
        self.assertEqual(self.purse(sim, "balance", "--deposit").out, "deposit balance 1000.00\n")
        self.assertTrue(sim.state("slot 0").startswith("unpowered"))

    def test_a_load_raises_the_balance_and_its_receipt_is_checked(self):
        sim = self.cards()
        run = self.purse(sim, "load", "12.50", "--key", KEY, "--pin", "123456", "--tac-key", TAC_KEY)
        self.assertRegex(run.out, r"\Aold balance     50\.00\nloaded          12\.50\nTAC             [0-9A-F]{8}  "
                                  r"\(correct\)\nnew balance     62\.50\n\Z")
        self.assertEqual(run.err, "")
        self.assertEqual(self.balance(sim), "62.50")

    def test_the_deposit_is_loaded_as_well(self):
        sim = self.cards()
        run = self.purse(sim, "load", "0.01", "--deposit", "--key", KEY, "--pin", "123456", "--tac-key", TAC_KEY)
        self.assertIn("(correct)\nnew balance     1000.01\n", run.out)
        self.assertEqual(self.balance(sim), "50.00")

    def test_a_purchase_lowers_the_balance_and_the_psam_accepts_it(self):
        sim = self.cards()
        run = self.purse(sim, "buy", "2.50", "--tac-key", TAC_KEY)
        self.assertRegex(run.out, r"\Aold balance     50\.00\npaid            2\.50\nterminal        000000002026, "
                                  r"transaction 00000029\nTAC             [0-9A-F]{8}  \(correct\)\nMAC2            "
                                  r"accepted by the PSAM\nnew balance     47\.50\n\Z")
        for slot in (0, 16):
            self.assertTrue(sim.state("slot %d" % slot).startswith("unpowered"), "slot %d" % slot)
        self.assertIn("transaction 0000002A", self.purse(sim, "buy", "1", "--psam", "psam0").out)

    def test_a_deposit_pays_with_the_pin(self):
        sim = self.cards()
        self.assertIn("6982", self.purse(sim, "buy", "1", "--deposit", code=1).err)
        run = self.purse(sim, "buy", "1", "--deposit", "--pin", "123456", "--tac-key", TAC_KEY)
        self.assertIn("(correct)\nMAC2            accepted by the PSAM\nnew balance     999.00\n", run.out)

    def test_a_receipt_is_not_checked_without_its_key(self):
        sim = self.cards()
        run = self.purse(sim, "load", "1", "--key", KEY, "--pin", "123456")
        self.assertIn("(not checked)\n", run.out)

    def test_a_psam_application_may_be_selected_first(self):
        sim = self.cards()
        self.purse(sim, "buy", "1", "--psam-aid", "51565053414D2E31")
        run = self.purse(sim, "buy", "1", "--psam-aid", "A000000999", code=1)
        self.assertIn("PSAM: SELECT -> 6A82", run.err)

    def test_json_holds_every_step(self):
        sim = self.cards()
        run = self.run_tool("--json", "purse", "buy", "2.50", "--tac-key", TAC_KEY, port=sim.path)
        self.check_exit(run, 0)
        told = run.json()
        self.assertEqual([(step["name"], step["slot"], step["sw"]) for step in told["steps"]], [
            ("PSAM: READ BINARY", 16, "9000"), ("SELECT " + AID, 0, "9000"), ("READ BINARY", 0, "9000"),
            ("INITIALIZE FOR PURCHASE", 0, "9000"), ("PSAM: INIT SAM FOR PURCHASE", 16, "9000"),
            ("DEBIT FOR PURCHASE", 0, "9000"), ("PSAM: CREDIT SAM FOR PURCHASE", 16, "9000"), ("GET BALANCE", 0, "9000")])
        self.assertEqual([told[name] for name in ("action", "kind", "oldBalance", "amount", "newBalance", "terminal",
                                                  "transaction", "tacCheck", "exitCode")],
                         ["buy", "purse", "50.00", "2.50", "47.50", "000000002026", "00000029", "correct", 0])
        self.assertEqual(told["steps"][0]["text"], "ErrCode: 9000: \u6210\u529f\u6267\u884c")


class Log(PurseTest):
    def test_a_card_that_has_done_nothing_has_an_empty_log(self):
        self.assertEqual(self.purse(self.cards(), "log").out, "the log is empty\n")

    def test_the_newest_record_comes_first(self):
        sim = self.cards()
        self.purse(sim, "load", "12.50", "--key", KEY, "--pin", "123456", "--terminal", "00 00 00 00 00 07")
        self.purse(sim, "buy", "2.50")
        lines = self.purse(sim, "log").out.splitlines()
        self.assertEqual(lines[0].split(), "no counter transaction amount overdraft terminal date time".split())
        rows = [re.sub(r" {2}20\d\d-\d\d-\d\d {2}\d\d:\d\d:\d\d$", "", line) for line in lines[1:]]
        self.assertEqual([row.split() for row in rows], [
            ["1", "4", "purse", "purchase", "2.50", "0.00", "000000002026"],
            ["2", "3", "purse", "load", "12.50", "0.00", "000000000007"]])

    def test_a_full_log_has_ten_records(self):
        sim = self.cards()
        for _ in range(11):
            self.purse(sim, "buy", "0.01")
        run = self.run_tool("--json", "purse", "log", port=sim.path)
        self.check_exit(run, 0)
        self.assertEqual([record["counter"] for record in run.json()["log"]], list(range(14, 4, -1)))


class Refusals(PurseTest):
    def test_another_load_key_loads_nothing(self):
        sim = self.cards()
        run = self.purse(sim, "load", "1", "--key", OTHER_KEY, "--pin", "123456", code=8)
        self.assertIn("(MAC1) is not what --key makes of it", run.err)
        self.assertIn("Nothing was loaded", run.err)
        self.assertNotIn(OTHER_KEY, run.out + run.err)
        self.assertEqual(self.balance(sim), "50.00")

    def test_a_receipt_of_another_key_is_told_although_the_money_has_moved(self):
        sim = self.cards()
        run = self.purse(sim, "load", "1", "--key", KEY, "--pin", "123456", "--tac-key", OTHER_KEY, code=8)
        self.assertIn("(wrong)\n", run.out)
        self.assertIn("loaded, but the card's receipt (TAC)", run.err)
        run = self.purse(sim, "buy", "1", "--tac-key", OTHER_KEY, code=8)
        self.assertIn("MAC2            accepted by the PSAM\n", run.out)
        self.assertIn("paid, but the card's receipt (TAC)", run.err)
        self.assertEqual(self.balance(sim), "50.00")

    def test_the_card_s_refusal_is_told_with_the_library_s_text(self):
        sim = self.cards()
        run = self.purse(sim, "buy", "50.01", code=1)
        self.assertEqual(run.err, "qvreader: INITIALIZE FOR PURCHASE -> 9401  (not enough money)  "
                                  "\"ErrCode: 9401: \u4ea4\u6613\u8d44\u91d1\u4e0d\u8db3\"\n")
        run = self.purse(sim, "buy", "1", "--key-index", "2", code=1)
        self.assertIn("-> 9403  (no key of this index)", run.err)
        run = self.purse(sim, "load", "1", "--key", KEY, code=1)
        self.assertIn("INITIALIZE FOR LOAD -> 6982", run.err)

    def test_a_wrong_pin_counts_down_until_the_card_is_blocked(self):
        sim = self.cards()
        for left in ("2", "1", "0"):
            run = self.purse(sim, "load", "1", "--key", KEY, "--pin", "654321", code=1)
            self.assertIn("VERIFY -> 63C" + left, run.err)
        run = self.run_tool("--json", "purse", "load", "1", "--key", KEY, "--pin", "123456", port=sim.path)
        self.check_exit(run, 1)
        error = run.json()["error"]
        self.assertEqual((error["name"], error["message"]), ("card-error", STATUS_BLOCKED))

    def test_another_application_is_not_found(self):
        run = self.purse(self.cards(), "balance", "--aid", "A000000333", code=1)
        self.assertIn("SELECT A000000333 -> 6A82", run.err)

    def test_a_missing_psam_is_told_before_the_card_is_asked_for(self):
        sim = self.simulator()
        run = self.run_tool("--timeout", "1", "purse", "buy", "1", port=sim.path)
        self.check_exit(run, 4)
        self.assertIn("power-up in PSAM 0", run.err)
        self.assertIn("--psam says where it is", run.err)

    def test_wrong_command_lines_are_refused(self):
        rows = (
            (("purse",), "Its commands are balance, load, buy and log"),
            (("purse", "load", "1"), "--key is required"),
            (("purse", "load", "--key", KEY), "AMOUNT is required"),
            (("purse", "load", "0", "--key", KEY), "is no amount"),
            (("purse", "buy", "1.005"), "is no amount"),
            (("purse", "buy", "1,50"), "is no amount"),
            (("purse", "load", "1", "--key", KEY[2:]), "takes 16 bytes in hexadecimal"),
            (("purse", "load", "1", "--key", KEY, "--pin", "123"), "takes 4 to 12 digits"),
            (("purse", "load", "1", "--key", KEY, "--terminal", "01"), "takes 6 bytes"),
            (("purse", "buy", "1", "--psam", "0"), "is no PSAM slot"),
            (("purse", "buy", "1", "--psam", "255"), "is no PSAM slot"),
            (("--slot", "psam0", "purse", "buy", "1"), "the PSAM is in another slot"),
            (("purse", "buy", "1", "--key-index", "256"), "is no number from 0 to 255"),
            (("purse", "log", "--deposit"), "not expected"),
        )
        for arguments, reason in rows:
            with self.subTest(arguments=arguments):
                run = self.run_tool(*arguments, port="x")
                self.check_exit(run, 2)
                self.assertIn(reason, run.err)
                self.assertNotIn(KEY[2:], run.err)

    def test_help_of_each_action_shows_an_example(self):
        for action in ("balance", "load", "buy", "log"):
            with self.subTest(action=action):
                run = self.run_tool("purse", action, "--help")
                self.check_exit(run, 0)
                self.assertRegex(run.out, r"(?m)^  qvreader .*\bpurse %s\b" % action)


class Interruptions(PurseTest):
    def card_that_stops(self, answers, first, *arguments, slots=()):
        """A card of the test's own that is pulled out when it is asked what begins with FIRST."""
        sim = self.simulator("--card-patience", "60000", "--card", "0=vpcd:0", *slots)
        inserted = self.virtual_card(sim, 0, answers)
        tool = self.start("--timeout", "30", "--json", "purse", *arguments, port=sim.path)
        bench.wait_until(lambda: any(asked.hex().startswith(first) for asked in inserted.asked), "the card is at work")
        inserted.pull_out()
        return tool.finish()

    def check_doubt(self, run, command, done):
        self.check_exit(run, 4)
        error = run.json()["error"]
        self.assertEqual(error["readerStatus"], "1005")
        self.assertIn("command %s: " % command, error["text"])
        self.assertIn("; interrupted between its halves; the card may have %s or not: " % done, error["text"])

    def test_a_card_pulled_out_between_the_halves_of_a_load_leaves_a_doubt(self):
        run = self.card_that_stops({SELECT: "9000", BEGIN_LOAD: LOAD_BEGUN}, "8052", "load", "1", "--key", KEY)
        self.check_doubt(run, "CREDIT FOR LOAD", "been loaded")
        self.assertEqual(run.json()["oldBalance"], "50.00")
        self.assertNotIn("newBalance", run.json())

    def test_a_card_pulled_out_between_the_halves_of_a_purchase_leaves_a_doubt(self):
        answers = {SELECT: "9000", "00B095001E": "00" * 30 + "9000",
                   "805001020B 01 00000064 000000002026 0F": "00001388 0004 000000 01 00 11223344 9000"}
        run = self.card_that_stops(answers, "8054", "buy", "1",
                                   slots=("--card", "16=psam:" + os.path.join(bench.CARDS, "demo.psam")))
        self.check_doubt(run, "DEBIT FOR PURCHASE", "paid")

    def test_a_card_pulled_out_before_the_first_half_leaves_none(self):
        run = self.card_that_stops({SELECT: "9000"}, "8050", "load", "1", "--key", KEY)
        self.check_exit(run, 4)
        self.assertNotIn("halves", run.err)


class Answers(PurseTest):
    def by_beginning(self, answers, *slots):
        sim = self.simulator("--card", "0=vpcd:0", *slots)
        inserted = self.virtual_card(sim, 0, answers)
        inserted.answers = ByBeginning(inserted.answers)
        return sim

    def test_a_card_that_refuses_the_issuer_s_code_loads_nothing(self):
        sim = self.by_beginning({"00A404": "9000", "8050": LOAD_BEGUN, "8052": "9302"})
        run = self.purse(sim, "load", "1", "--key", KEY, code=1)
        self.assertIn("CREDIT FOR LOAD -> 9302  (wrong MAC); nothing was loaded  \"ErrCode: 9302: MAC", run.err)

    def test_a_second_half_that_is_neither_done_nor_refused_leaves_a_doubt(self):
        for answer in ("6581", "6300", "0102 9000"):
            with self.subTest(answer=answer):
                sim = self.by_beginning({"00A404": "9000", "8050": LOAD_BEGUN, "8052": answer})
                run = self.purse(sim, "load", "1", "--key", KEY, code=1)
                self.assertIn("the card may have been loaded or not", run.err)
                self.assertNotIn("nothing was loaded", run.err)

    def test_a_card_whose_code_the_psam_refuses_has_paid_all_the_same(self):
        sim = self.by_beginning({"00A404": "9000", "00B095": "00" * 30 + "9000", "8054": "00" * 8 + "9000",
                                 "8050": "00001388 0004 000000 01 00 11223344 9000"},
                                "--card", "16=psam:" + os.path.join(bench.CARDS, "demo.psam"))
        run = self.purse(sim, "buy", "1", code=1)
        self.assertIn("PSAM: CREDIT SAM FOR PURCHASE -> 9302  (wrong MAC); the card has paid, but the PSAM has not "
                      "accepted it: keep the TAC", run.err)
        self.assertIn("TAC             00000000  (not checked)\n", run.out)

    def test_an_answer_of_another_length_is_refused(self):
        rows = (("balance", {"805C000204": "0000009000"}, "GET BALANCE: the card answered with 3 bytes instead of 4"),
                ("load", {BEGIN_LOAD: "00001388 9000"},
                 "INITIALIZE FOR LOAD: the card answered with 4 bytes instead of 16"))
        for action, answers, reason in rows:
            with self.subTest(action=action):
                sim = self.simulator("--card", "0=vpcd:0")
                self.virtual_card(sim, 0, {SELECT: "9000", **answers})
                more = ("1", "--key", KEY) if action == "load" else ()
                run = self.purse(sim, action, *more, code=1)
                self.assertIn(reason, run.err)

    def test_a_log_record_that_was_never_written_is_left_out(self):
        sim = self.simulator("--card", "0=vpcd:0")
        record = "0003 000000 000004E2 02 000000000001 20261121 215005 9000"
        self.virtual_card(sim, 0, {SELECT: "9000", "00B2980117": record,
                                   **{"00B298%02X17" % n: "FF" * 23 + "9000" for n in range(2, 11)}})
        self.assertEqual(self.purse(sim, "log").out.splitlines()[1:], [
            " 1        3  purse load                12.50       0.00  000000000001  2026-11-21  21:50:05"])

    def test_a_trace_names_the_commands(self):
        run = self.run_tool("--trace", "purse", "balance", port=self.cards().path)
        self.check_exit(run, 0)
        self.assertIn("APDU to slot 0: 80 5C 00 02 04 (GET BALANCE)", run.err)


if __name__ == "__main__":
    bench.main()
