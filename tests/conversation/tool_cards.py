"""What the tool shows of cards: every kind of slot, follow-ups, cards that come and go."""
import bench
from bench import card

ATR = {
    "debit-credit": "3B680000515653494D2D4443",
    "follow-up": "3B680000515653494D2D4655",
    "purse": "3B680000515653494D2D4550",
}


def spaced(text):
    return " ".join(text[i:i + 2] for i in range(0, len(text), 2))


class Slots(bench.ToolTest):
    def test_every_kind_of_slot_reaches_the_card_in_it(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"), "--card", "15=" + card("purse"),
                             "--card", "16=" + card("purse"), "--card", "17=" + card("follow-up"),
                             "--card", "255=" + card("debit-credit"))
        rows = (("0", 0, "debit-credit"), ("15", 15, "purse"), ("16", 16, "purse"), ("psam0", 16, "purse"),
                ("psam1", 17, "follow-up"), ("contactless", 255, "debit-credit"), ("255", 255, "debit-credit"))
        for text, code, name in rows:
            with self.subTest(slot=text):
                run = self.run_tool("--slot", text, "--json", "atr", port=sim.path)
                self.check_exit(run, 0)
                self.assertEqual((run.json()["slot"], run.json()["atr"]), (code, ATR[name]))
                self.assertIn(" unpowered ", sim.state("slot %d" % code).join("  "))

    def test_atr_prints_the_answer_to_reset(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        run = self.run_tool("atr", port=sim.path)
        self.check_exit(run, 0)
        self.assertEqual(run.out, "ATR %s\n" % spaced(ATR["debit-credit"]))
        self.assertEqual(run.err, "")

    def test_decode_takes_the_answer_apart(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        lines = self.run_tool("atr", "--decode", port=sim.path).out.splitlines()
        self.assertEqual([line.split()[0] for line in lines], ["ATR", "TS", "T0", "TB1", "TC1", "historical"])
        self.assertIn("direct convention", lines[1])
        self.assertIn("\"QVSIM-DC\"", lines[5])

    def test_the_port_may_come_from_the_environment(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        run = self.run_tool("atr", environment={"QVREADER_PORT": sim.path})
        self.check_exit(run, 0)

    def test_a_link_leads_to_the_port(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        link = sim.folder + "/reader"
        bench.os.symlink(sim.path, link)
        run = self.run_tool("--json", "atr", port=link)
        self.check_exit(run, 0)
        self.assertEqual((run.json()["port"], run.json()["device"]), (link, sim.path))


class Commands(bench.ToolTest):
    def apdu(self, sim, *commands, code=0):
        run = self.run_tool("apdu", *commands, port=sim.path)
        self.check_exit(run, code)
        lines = run.out.splitlines()
        self.assertTrue(lines[0].startswith("ATR "), run)
        return lines[1:]

    def test_a_line_shows_command_data_and_status(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        lines = self.apdu(sim, "00 A4 04 00 0E 315041592E5359532E4444463031", "00:b2:01:0c:00", "00 84 00 00 08")
        self.assertEqual(lines, [
            "00A404000E315041592E5359532E4444463031 -> "
            "6F1E840E315041592E5359532E4444463031A50C8801015F2D027A689F110101 " + bench.DONE,
            "00B2010C00 -> 701961174F08A00000033301010150085156204445424954870101 " + bench.DONE,
            "0084000008 -> 3A915CE7084DB2F6 " + bench.DONE,
        ])

    def test_follow_ups_bring_the_data(self):
        sim = self.simulator("--card", "0=" + card("follow-up"))
        self.assertEqual(self.apdu(sim, "00A40400023F00"), [
            "00A40400023F00 -> 4142434445464748494A4B4C4D4E4F505152535455565758595A " + bench.DONE])
        self.assertEqual(self.apdu(sim, "00A408000000"), ["00A408000000 -> 4445414354495641544544 " + bench.DONE])
        self.assertEqual(self.apdu(sim, "00B2010C00"), ["00B2010C00 -> 000102030405060708090A0B0C0D0E0F " + bench.DONE])

    def test_a_second_61_is_handed_on_and_counts_as_success(self):
        sim = self.simulator("--card", "0=" + card("follow-up"))
        self.assertEqual(self.apdu(sim, "00A40000023F00"), [
            "00A40000023F00 -> 6105  (more data waits)  \"ErrCode: 6105: \u6210\u529f\u6267\u884c\""])

    def test_the_purse_keeps_its_order_within_one_run(self):
        sim = self.simulator("--card", "0=" + card("purse"))
        lines = self.apdu(sim, "00A4040009515650555253452E31", "805001020B" + "00" * 11, "805401000F" + "00" * 15,
                          "805C000204")
        self.assertEqual([line.endswith(" " + bench.DONE) for line in lines], [True] * 4)
        self.assertEqual(lines[3], "805C000204 -> 00000FA0 " + bench.DONE)

    def test_the_last_status_word_decides_the_exit_code(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        lines = self.apdu(sim, "00A4040005A000000999", code=1)
        self.assertEqual(lines, [
            "00A4040005A000000999 -> 6A82  (file or application not found)  "
            "\"ErrCode: 6A82: \u8be5\u6587\u4ef6\u672a\u627e\u5230\""])
        self.apdu(sim, "00A4040005A000000999", "0084000008", code=0)

    def test_the_card_is_powered_down_at_the_end(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        self.apdu(sim, "00A4040005A000000999", code=1)
        self.assertTrue(sim.state("slot 0").startswith("unpowered"))

    def test_json_holds_what_was_exchanged(self):
        sim = self.simulator("--card", "0=" + card("debit-credit"))
        run = self.run_tool("--json", "apdu", "0084000008", "00A4040005A000000999", port=sim.path)
        self.check_exit(run, 1)
        told = run.json()
        exchanges = told["exchanges"]
        self.assertEqual([(x["command"], x["data"], x["sw"]) for x in exchanges],
                         [("0084000008", "3A915CE7084DB2F6", "9000"), ("00A4040005A000000999", "", "6A82")])
        for exchange in exchanges:
            self.assertTrue(0 <= exchange["milliseconds"] < 10_000)
        self.assertEqual(told["exitCode"], 1)
        self.assertNotIn("error", told)


class CardsThatComeAndGo(bench.ToolTest):
    def test_a_card_that_comes_later_is_waited_for(self):
        for slot in ("0", "17", "255"):
            with self.subTest(slot=slot):
                sim = self.simulator()
                tool = self.start("--slot", slot, "atr", port=sim.path)
                bench.wait_until(lambda: sim.state("waits for a card in slot"), "the reader waits")
                tool.wait_for("qvreader: waiting for a card ")
                sim.command("insert %s %s" % (slot, card("purse")))
                run = tool.finish()
                self.check_exit(run, 0)
                self.assertEqual(run.out, "ATR %s\n" % spaced(ATR["purse"]))

    def test_the_remark_says_where_and_how_long(self):
        sim = self.simulator()
        run = self.run_tool("--timeout", "1", "--slot", "psam3", "atr", port=sim.path)
        self.check_exit(run, 4)
        self.assertIn("qvreader: waiting for a card in PSAM 3, up to 1 s (Ctrl-C cancels)\n", run.err)
        self.assertNotIn("left", run.err, "no count-down where nobody looks")

    def test_no_card_is_told_as_such(self):
        sim = self.simulator()
        for slot, status in (("0", "1005"), ("contactless", "3001")):
            with self.subTest(slot=slot):
                run = self.run_tool("--timeout", "1", "--slot", slot, "--json", "atr", port=sim.path)
                self.check_exit(run, 4)
                self.assertEqual((run.json()["error"]["name"], run.json()["error"]["readerStatus"]), ("no-card", status))

    def test_a_mute_card_is_told_as_such(self):
        sim = self.simulator("--card", "0=" + card("mute"))
        run = self.run_tool("--json", "atr", port=sim.path)
        self.check_exit(run, 6)
        self.assertEqual(run.json()["error"]["readerStatus"], "1004")
        self.assertIn("the reader reports 1004", run.err)

    def test_a_card_pulled_on_the_way_ends_the_conversation(self):
        sim = self.simulator("--card-patience", "60000", "--card", "0=vpcd:0")
        inserted = self.virtual_card(sim, 0, {"0084000008": "01020304050607089000"})
        tool = self.start("--timeout", "30", "--json", "apdu", "0084000008", "00CA000000", "0084000008", port=sim.path)
        bench.wait_until(lambda: bytes.fromhex("00CA000000") in inserted.asked, "the card is at work")
        inserted.pull_out()
        run = tool.finish()
        self.check_exit(run, 4)
        told = run.json()
        self.assertEqual([x["command"] for x in told["exchanges"]], ["0084000008"])
        self.assertEqual(told["error"]["readerStatus"], "1005")

    def test_a_card_that_stops_answering_is_told_as_such(self):
        sim = self.simulator("--card-patience", "200", "--card", "0=" + card("follow-up"))
        run = self.run_tool("--json", "apdu", "00C0000009", port=sim.path)
        self.check_exit(run, 6)
        self.assertEqual(run.json()["error"]["readerStatus"], "1006")


if __name__ == "__main__":
    bench.main()
