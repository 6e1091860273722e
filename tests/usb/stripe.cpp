// Stripe reads and writes over the system's libusb: reports of several sizes, zeros behind every reply.

#include "stripe_usb.h"

#include "qvreader/icreader.h"

#include <ctime>

using namespace qvtest;

namespace {

// Interrupt and bulk, reports shorter and longer than the commands.
std::vector<UsbDeviceOptions> readers()
{
    std::vector<UsbDeviceOptions> all;
    for (const unsigned nSize : {8U, 64U, 512U})
        for (const bool bBulk : {false, true})
            all.push_back(readerWith(nSize, bBulk));
    return all;
}

std::string nameOf(const UsbDeviceOptions &options)
{
    return "reports of " + std::to_string(options.reportSize) + (options.bulk ? ", bulk" : ", interrupt");
}

struct ReadRow {
    int32_t nMode;
    const char *pszCommand, *pszText; // text: between ESC "s" and "?" FS
    std::array<const char *, 3> tracks;
};
const std::vector<ReadRow> s_reads = {
    {1, "1B 72", "B6225^DEMO", {"B6225^DEMO", "untouched", "untouched"}},
    {2, "1B 5D", "6225=2912", {"untouched", "6225=2912", "untouched"}},
    {3, "1B 54 5D", "X996225", {"untouched", "untouched", "996225"}},
    {12, "1B 44 5D", "6225=2912AB6225^DEMO", {"B6225^DEMO", "6225=2912", "untouched"}},
    {23, "1B 42 5D", "6225=2912A996225", {"untouched", "6225=2912", "996225"}},
    {12, "1B 44 5D", "\177AB6225^DEMO", {"B6225^DEMO", "", "untouched"}},
    {23, "1B 42 5D", "6225=2912A\x7F", {"untouched", "6225=2912", ""}},
};

TEST_F(UsbStripe, OneAndTwoTracksAreReadFromEveryKindOfReader)
{
    for (const UsbDeviceOptions &options : readers())
        for (const ReadRow &row : s_reads) {
            SCOPED_TRACE(nameOf(options) + ", mode " + std::to_string(row.nMode));
            plugAndPlay(options, reading({{row.pszCommand, bareReply(row.pszText)}, {"1B 6A", "70"}}));
            EXPECT_EQ(read(row.nMode), 0);
            for (size_t i = 0; i < 3; ++i)
                EXPECT_EQ(track(i + 1), row.tracks[i]);
            expectPlayed();
        }
}

TEST_F(UsbStripe, AReplyMayFillItsReportsExactlyOrNeedSeveral)
{
    for (const UsbDeviceOptions &options : {readerWith(8), readerWith(64)})
        for (const size_t nLen : {options.reportSize - 5, options.reportSize - 4, options.reportSize - 3,
                                  2 * options.reportSize - 4, 79U, 300U, 508U}) {
            SCOPED_TRACE(nameOf(options) + ", " + std::to_string(nLen));
            const std::string sText(nLen, '7');
            plugAndPlay(options, reading({{"1B 5D", bareReply(sText)}, {"1B 6A", "70"}}));
            EXPECT_EQ(read(2), 0);
            EXPECT_EQ(track(2), sText);
            expectPlayed();
        }
}

TEST_F(UsbStripe, TwoFullTracksAreReadWhole)
{
    const std::string s2(40, '2'), s3(107, '3');
    plugAndPlay(reader(), reading({{"1B 42 5D", bareReply(s2 + "A" + s3)}, {"1B 6A", "70"}}));
    EXPECT_EQ(read(23), 0);
    EXPECT_EQ(track(2), s2);
    EXPECT_EQ(track(3), s3);
    expectPlayed();
}

TEST_F(UsbStripe, ReportsThatAreNotFilledUpDoNoHarm)
{
    plug({reader()});
    behave("in short 5");
    play(reader(), reading({{"1B 5D", bareReply("6225=2912")}, {"1B 6A", "70"}}));
    EXPECT_EQ(read(2), 0);
    EXPECT_EQ(track(2), "6225=2912");
    expectPlayed();
}

TEST_F(UsbStripe, AStatusOfFailureAndAReplyInAnotherFormAreTold)
{
    plugAndPlay(reader(), reading({{"1B 5D", bareReply("6225")}, {"1B 6A", "71"}}));
    EXPECT_EQ(read(2), -5);
    expectPlayed();
    plugAndPlay(reader(), reading({{"1B 5D", "36 3F 1C"}}));
    EXPECT_EQ(read(2), -4);
    expectPlayed();
    EXPECT_EQ(track(2), "untouched");
}

TEST_F(UsbStripe, EveryNameOfUsbAndEveryIdentityOfTheListWorks)
{
    for (const UsbId id : {UsbId{0x0403, 0xBCD5}, UsbId{0x2B46, 0xBE01}, UsbId{0x0403, 0xBCD7}, UsbId{0x2B46, 0xBC01},
                           UsbId{0x0403, 0xBC95}, UsbId{0x2B46, 0xBE11}}) {
        SCOPED_TRACE(qvsim::usbIdText(id));
        for (const char *pszPort : {"HID", "usb", "1001", "0"}) {
            plugAndPlay(reader(id), reading({{"1B 5D", bareReply("6225")}, {"1B 6A", "70"}}));
            EXPECT_EQ(read(2, 30, pszPort), 0);
            EXPECT_EQ(track(2), "6225");
            expectPlayed();
        }
    }
}

TEST_F(UsbStripe, OneAndTwoTracksAreWritten)
{
    const std::pair<int32_t, const char *> rows[] = {{1, "1B 77 42 31 1D 1B 5C"},
                                                     {2, "1B 74 32 32 1D 1B 5C"},
                                                     {3, "1B 74 41 33 33 33 1D 1B 5C"},
                                                     {12, "1B 77 32 32 41 42 31 1D 1B 5C"},
                                                     {23, "1B 74 32 32 41 33 33 33 1D 1B 5C"}};
    for (const UsbDeviceOptions &options : readers())
        for (const auto &[nMode, pszCommand] : rows) {
            SCOPED_TRACE(nameOf(options) + ", mode " + std::to_string(nMode));
            plugAndPlay(options, writing({{pszCommand}, {"1B 6A", "70"}}));
            EXPECT_EQ(write(nMode), 0);
            expectPlayed();
            plugAndPlay(options, writing({{pszCommand}, {"1B 6A", "71"}}));
            EXPECT_EQ(write(nMode), -6);
            expectPlayed();
        }
}

TEST_F(UsbStripe, AWriteOfMoreThanFiveReportsFails)
{
    std::string s1(320 - 5, 'A');
    plugAndPlay(reader(), writing({{"1B 77 " + hexOf(s1) + " 1D 1B 5C"}, {"1B 6A", "70"}}));
    EXPECT_EQ(MSG_QV_WriteData("HID", 9600, nullptr, 0, 0, 1, 30, s1.data(), nullptr, nullptr), 0);
    expectPlayed();
    s1 += 'A';
    plug({reader()});
    EXPECT_EQ(MSG_QV_WriteData("HID", 9600, nullptr, 0, 0, 1, 1, s1.data(), nullptr, nullptr), -1);
    expectClosed();
}

TEST_F(UsbStripe, ZerosAreNotStrippedAfterwardsUntilAnIcOpen)
{
    plugAndPlay(reader(), reading({{"1B 5D", bareReply("6225")}, {"1B 6A", "70"}}));
    EXPECT_EQ(read(2), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0);
    ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 1);
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
}

TEST_F(UsbStripe, WithoutAReaderTheOpenFails)
{
    plug({});
    EXPECT_EQ(read(2), -50);
    EXPECT_EQ(write(2), -50);
    EXPECT_EQ(track(2), "untouched");
}

// ---- all three tracks: zeros behind a frame hide its end ------------------------------------------------------------

TEST_F(UsbStripe, AllTracksEndByTimeOutWithSuccessAndEmptyTracks)
{
    const std::string sBody = replyFrame(0, hexOf("B1|22|333|"), 0x01, 0x04);
    plugAndPlay(reader(), reading({{frame("20 01 7C"), done()}, {frame("20 02"), sBody}}, 1));
    const time_t nStart = time(nullptr);
    EXPECT_EQ(read(123, 1), 0);
    EXPECT_GE(time(nullptr) - nStart, 4); // more than 2 seconds for the separator, more than 1 for the card
    for (size_t i = 1; i <= 3; ++i)
        EXPECT_EQ(track(i), "");
    expectPlayed();
}

TEST_F(UsbStripe, AWriteOfAllTracksEndsByTimeOutWithSuccessWhateverTheReaderSays)
{
    plugAndPlay(reader(), writing({{frame("20 03 " + hexOf("B1|22|333")), replyFrame(0x4001, "", 0x01, 0x04)}}, 1));
    const time_t nStart = time(nullptr);
    EXPECT_EQ(write(123, 1), 0);
    EXPECT_GE(time(nullptr) - nStart, 2);
    expectPlayed();
}

} // namespace
