// Lines of the driver library's log, whole and spoilt.
#include "model/log_reader.h"

#include <gtest/gtest.h>

#include <random>

namespace qvsim {
namespace {

constexpr char kTime[] = "11-21 14:21:33(305)  ";
constexpr char kCardOfSlot0[] = "name recorded in slot 0\natr 3B 00\n> 00 84 00 00 02\n< 11 22 90 00\n";

std::string dump(const std::string &title, const std::string &hex)
{
    return " " + std::string(kTime) + title + "  LEN=" + std::to_string(hex.size() / 2) + "   HEX: " + hex + "\r\n";
}

std::string send(const std::string &hex)
{
    return dump("【发送命令】 szSend\n", hex);
}

std::string text(const std::string &words)
{
    return "  " + std::string(kTime) + "INFO:    CommDev:  " + words + "\r\n";
}

const std::string kPowerOn = send("3222000000") + dump("ucBody", "000400003B003B");
const std::string kCommand = dump("接触卡0 C_APDU ", "0084000002");
const std::string kSend = send("3226000084000002");
const std::string kBody = dump("ucBody", "0006000011229000A3");
const std::string kResponse = dump("接触卡0 R_APDU ", "11229000");

class LogReaderTest : public testing::Test {
  protected:
    void read(const std::string &log)
    {
        reader.read(log);
        reader.endOfFile();
    }
    std::string card(SlotCode slot = 0)
    {
        const std::vector<SlotCode> slots = recorder.slots();
        return std::find(slots.begin(), slots.end(), slot) == slots.end() ? "none" : recorder.cardFile(slot);
    }

    CardRecorder recorder;
    LogReader reader{recorder};
};

TEST_F(LogReaderTest, AnExchangeIsReadOnceThoughItStandsThereTwice)
{
    read(kPowerOn + kCommand + kSend + kBody + kResponse);
    EXPECT_EQ(card(), kCardOfSlot0);
    EXPECT_EQ(recorder.exchanges(0), 1U);
    EXPECT_EQ(recorder.unanswered(), 0U);
    EXPECT_EQ(reader.dumps(), 6U);
    EXPECT_EQ(reader.cutOffDumps(), 0U);
}

TEST_F(LogReaderTest, EitherAccountOfAnExchangeIsEnough)
{
    for (const std::string &exchange : {kSend + kBody, kCommand + kResponse, kCommand + kBody, kSend + kResponse}) {
        CardRecorder own;
        LogReader(own).read(kPowerOn + exchange);
        EXPECT_EQ(own.cardFile(0), kCardOfSlot0) << exchange;
    }
}

TEST_F(LogReaderTest, PiecesAndLineEndsOfAnyKindMakeNoDifference)
{
    std::string log = kPowerOn + kCommand + kSend + kBody + kResponse;
    log.pop_back(); // the last line end
    for (const char byte : log)
        reader.read(std::string_view(&byte, 1));
    reader.endOfFile();
    EXPECT_EQ(card(), kCardOfSlot0);
    std::string unixLog;
    for (const char byte : log)
        if (byte != '\r')
            unixLog += byte;
    CardRecorder own;
    LogReader other(own);
    other.read(unixLog);
    other.endOfFile();
    EXPECT_EQ(own.cardFile(0), kCardOfSlot0);
}

TEST_F(LogReaderTest, LinesOfOtherThreadsStandInBetween)
{
    const std::string other = text("[COMM_Rdz_Cancel] Start ") + text("hid LEN=2 of 3") + "\r\n\r\n" +
                              dump("hid write", "0102") + dump("PACKGET READ", "0203") + dump("szCmd", "00A4");
    std::string log = other;
    for (const std::string &piece : {kPowerOn, kCommand, kSend, kBody, kResponse})
        log += piece + other;
    log.insert(log.find("szSend\n") + 7, text("between title and dump"));
    read(log);
    EXPECT_EQ(card(), kCardOfSlot0);
    EXPECT_EQ(reader.dumps(), 6U);
}

TEST_F(LogReaderTest, ALogMayBeCutAnywhere)
{
    const std::string log = kPowerOn + kCommand + kSend + kBody + kResponse;
    for (std::size_t at = 0; at <= log.size(); ++at) {
        CardRecorder own;
        LogReader two(own); // the day has changed: two files
        two.read(log.substr(0, at));
        two.endOfFile();
        two.read(log.substr(at));
        two.endOfFile();
        ASSERT_EQ(own.slots().size(), 1U) << at;
        const std::string file = own.cardFile(0);
        EXPECT_NE(file.find("> 00 84 00 00 02\n< 11 22 90 00\n"), std::string::npos) << at << "\n" << file;
    }
}

TEST_F(LogReaderTest, ADumpThatIsCutOffIsLeftOutAndCounted)
{
    const auto cut = [](const std::string &whole) { return whole.substr(0, whole.size() - 4) + "\r\n"; };
    read(kPowerOn + cut(kCommand) + kSend + cut(kBody) + kResponse);
    EXPECT_EQ(card(), kCardOfSlot0) << "the other account is whole";
    EXPECT_EQ(reader.cutOffDumps(), 2U);
    // Neither account of the command is whole: its answer must not go to the command in front.
    read(kCommand + kSend + cut(kCommand) + cut(kSend) + dump("ucBody", "000400006A82E8") +
         dump("接触卡0 R_APDU ", "6A82"));
    EXPECT_EQ(card(), kCardOfSlot0);
    EXPECT_EQ(recorder.unanswered(), 1U);
    EXPECT_EQ(reader.cutOffDumps(), 4U);
    read(" " + std::string(kTime) + "【发送命令】 szSend\n" + kCommand); // nothing behind the title
    EXPECT_EQ(reader.cutOffDumps(), 5U);
    read(" " + std::string(kTime) + "ucBody\r\n");
    EXPECT_EQ(reader.cutOffDumps(), 6U);
}

TEST_F(LogReaderTest, AFrameThatTheLibraryRefusedIsNoAnswer)
{
    for (const char *body : {"0006000011229000A4", "0001000011229000A3", "0009000011229000A3", "000600", ""}) {
        read(kPowerOn + kCommand + kSend + dump("ucBody", body));
        EXPECT_EQ(recorder.exchanges(0), 0U) << body;
    }
    read(kPowerOn + kSend + dump("ucBody", "0004000011229000A3"));
    EXPECT_NE(card().find("< 11 22\n"), std::string::npos) << "the declared length counts where it is the smaller one";
}

TEST_F(LogReaderTest, TitlesTellTheSlotWhereNoFrameDoes)
{
    const struct {
        const char *title;
        SlotCode slot;
    } rows[] = {{"接触卡15 C_APDU ", 15}, {"PSAM卡0 C_APDU ", 16}, {"PSAM卡15 C_APDU ", 31}, {"非接卡 C_APDU ", 255}};
    for (const auto &row : rows) {
        read(dump(row.title, "0084000002") + dump("R_APDU ", "9000"));
        EXPECT_NE(card(row.slot).find("> 00 84 00 00 02\n< 90 00\n"), std::string::npos) << row.title;
    }
    for (const char *title : {"未知卡 C_APDU ", "PSAM卡16 C_APDU ", "接触卡 C_APDU ", "C_APDU "})
        read(dump(title, "0084000002") + dump("R_APDU ", "9000"));
    EXPECT_EQ(recorder.slots(), (std::vector<SlotCode>{15, 16, 31, 255}));
    read(dump("未知卡 C_APDU ", "0084000002") + kSend + kBody);
    EXPECT_NE(card(0).find("< 11 22 90 00\n"), std::string::npos) << "the frame tells it";
}

TEST_F(LogReaderTest, ALineThatIsTooLongIsLeftOutAndCounted)
{
    read(kPowerOn + std::string(LogReader::kMostLine + 1, 'A') + "\n" + kCommand + std::string(200'000, '0') +
         dump("ucBody", "0006") + kSend + kBody);
    EXPECT_EQ(reader.tooLongLines(), 2U);
    EXPECT_EQ(card(), kCardOfSlot0);
}

TEST_F(LogReaderTest, GarbageIsNoCard)
{
    std::mt19937 random(11);
    const std::string words[] = {"szSend\n", "ucBody", "C_APDU", "R_APDU", "  LEN=", "2",  "   HEX: ",        "9000",
                                 "LEN=-1",   "\n",     "\r\n",   "接触卡", "\xFF",   "00", "LEN=99999999999", " "};
    std::string log;
    for (int i = 0; i < 200'000; ++i) {
        log += words[random() % std::size(words)];
        if (random() % 7 == 0)
            log += static_cast<char>(random());
    }
    read(log);
    EXPECT_GT(reader.cutOffDumps(), 0U);
    for (const SlotCode slot : recorder.slots())
        EXPECT_TRUE(isSlot(slot));
    EXPECT_EQ(card(7), "none") << "no number stands behind the word";
}

} // namespace
} // namespace qvsim
