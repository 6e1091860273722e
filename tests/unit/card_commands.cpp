// The commands by name: what each sends for its arguments, which of them hand the answer out, what they refuse.

#include "card_exchange.h"

#include <functional>
#include <vector>

using namespace qvtest;

namespace {

constexpr uint32_t nRefused = 0xFFFFFFFF;

struct Row {
    const char *pszWhat;
    std::string sCommand;
    bool bHandsOut;
    std::function<uint32_t(uint8_t *, uint32_t *)> call;
};

const Bytes s_data = bytes("A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF");
const char s_szData11[] = "A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB";
const std::string s_szData15 = std::string(s_szData11) + " AC AD AE AF";
const uint8_t *const s_p = s_data.data();
const Bytes s_long(300, 0x5A);

std::string longHex(size_t n)
{
    return hex(std::span(s_long).first(n));
}

class CardCommands : public CardExchange {
  protected:
    // Each row with every combination of outputs, with a refusal of the card and with a failed exchange.
    void play(const std::vector<Row> &rows)
    {
        for (const Row &row : rows) {
            SCOPED_TRACE(row.pszWhat);
            stCardCmdParam.nErrorCode = 0x1234;
            clearOutputs();
            EXPECT_EQ(row.call(m_response.data(), &m_nLen), 0x9000U);
            EXPECT_EQ(command(), row.sCommand);
            EXPECT_EQ(s_nRoom, 1024U);
            EXPECT_EQ(row.bHandsOut ? response() : "", row.bHandsOut ? "11 22 90 00" : "");
            EXPECT_NE(untouched(), row.bHandsOut);

            clearOutputs();
            EXPECT_EQ(row.call(nullptr, &m_nLen), 0x9000U);
            EXPECT_EQ(row.call(m_response.data(), nullptr), 0x9000U);
            EXPECT_EQ(row.call(nullptr, nullptr), 0x9000U);
            EXPECT_EQ(s_nCalls, 3);
            EXPECT_EQ(command(), row.sCommand);
            EXPECT_TRUE(untouched());

            s_answer = bytes("6A 82");
            EXPECT_EQ(row.call(m_response.data(), &m_nLen), 0x6A82U);
            EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
            EXPECT_EQ(row.bHandsOut ? response() : "", row.bHandsOut ? "6A 82" : "");

            clearOutputs();
            s_answer = bytes("11 22 90 00");
            s_nResult = -55;
            EXPECT_EQ(row.call(m_response.data(), &m_nLen), static_cast<uint32_t>(-55));
            EXPECT_TRUE(untouched());
            EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
            s_nResult = 0;
            command();
        }
    }
    // Nothing is sent, nothing written, the register stays.
    void refused(uint32_t nResult)
    {
        EXPECT_EQ(nResult, nRefused);
        EXPECT_EQ(command(), "none");
        EXPECT_TRUE(untouched());
        EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
    }
};

// ---- debit and credit ---------------------------------------------------------------------------------------------

TEST_F(CardCommands, SelectionSendsItsData)
{
    play({
        {"file", "00 A4 01 0C 02 A1 A2 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelectFile(1, 0x0C, s_p, 2, p, pn); }},
        {"file without data", "00 A4 00 00 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelectFile(0, 0, s_p, 0, p, pn); }},
        {"file, nothing given", "00 A4 FF FE 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelectFile(0xFF, 0xFE, nullptr, 0, p, pn); }},
        {"file, 255 bytes", "00 A4 04 00 FF " + longHex(255) + " 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelectFile(4, 0, s_long.data(), 255, p, pn); }},
        {"first of that name", "00 A4 04 00 05 A1 A2 A3 A4 A5 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(0, s_p, 5, p, pn); }},
        {"mode 1", "00 A4 04 00 01 A1 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(1, s_p, 1, p, pn); }},
        {"next of that name", "00 A4 04 02 05 A1 A2 A3 A4 A5 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(2, s_p, 5, p, pn); }},
        {"mode 3", "00 A4 04 00 01 A1 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(3, s_p, 1, p, pn); }},
        {"mode 258", "00 A4 04 00 01 A1 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(258, s_p, 1, p, pn); }},
        {"mode '2'", "00 A4 04 00 01 A1 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid('2', s_p, 1, p, pn); }},
        {"mode -2", "00 A4 04 00 01 A1 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(-2, s_p, 1, p, pn); }},
        {"no name", "00 A4 04 00 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(0, nullptr, 0, p, pn); }},
        {"a name of 255 bytes", "00 A4 04 00 FF " + longHex(255) + " 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocSelect_Aid(0, s_long.data(), 255, p, pn); }},
    });
}

TEST_F(CardCommands, ARecordOfADebitCardHasItsNumberFirst)
{
    play({
        {"SFI 0", "00 B2 05 00 00", true, [](auto *p, auto *pn) { return Cmd_Ic_PbocReadRecord(0, 5, p, pn); }},
        {"SFI 1", "00 B2 01 0C 00", true, [](auto *p, auto *pn) { return Cmd_Ic_PbocReadRecord(1, 1, p, pn); }},
        {"SFI 11", "00 B2 02 5C 00", true, [](auto *p, auto *pn) { return Cmd_Ic_PbocReadRecord(11, 2, p, pn); }},
        {"SFI 31", "00 B2 FF FC 00", true, [](auto *p, auto *pn) { return Cmd_Ic_PbocReadRecord(31, 255, p, pn); }},
        {"SFI 32", "00 B2 00 04 00", true, [](auto *p, auto *pn) { return Cmd_Ic_PbocReadRecord(32, 0, p, pn); }},
        {"SFI 255", "00 B2 01 FC 00", true, [](auto *p, auto *pn) { return Cmd_Ic_PbocReadRecord(255, 1, p, pn); }},
    });
}

TEST_F(CardCommands, AScriptGetsItsLengthByteFromItsLength)
{
    play({
        {"head only", "A1 A2 A3 A4 00", true, [](auto *p, auto *pn) { return Cmd_Ic_PbocWriteScript(s_p, 4, p, pn); }},
        {"one byte", "A1 A2 A3 A4 01 A5 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocWriteScript(s_p, 5, p, pn); }},
        {"eight bytes", "A1 A2 A3 A4 08 A5 A6 A7 A8 A9 AA AB AC 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocWriteScript(s_p, 12, p, pn); }},
        {"259", "5A 5A 5A 5A FF " + longHex(255) + " 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocWriteScript(s_long.data(), 259, p, pn); }},
    });
    stCardCmdParam.nErrorCode = 0x1234;
    clearOutputs();
    for (uint32_t n : {0U, 1U, 3U, 260U, 300U, 0x104U + 0x100U, 0xFFFFFFFFU, 0x80000004U})
        refused(Cmd_Ic_PbocWriteScript(s_long.data(), n, m_response.data(), &m_nLen));
    refused(Cmd_Ic_PbocWriteScript(nullptr, 5, m_response.data(), &m_nLen));
}

TEST_F(CardCommands, TheTransactionsCommandsSendTheirData)
{
    play({
        {"options", "80 A8 00 00 02 A1 A2 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGetProcessOptions(s_p, 2, p, pn); }},
        {"options, 255 bytes", "80 A8 00 00 FF " + longHex(255) + " 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGetProcessOptions(s_long.data(), 255, p, pn); }},
        {"options without data", "80 A8 00 00 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGetProcessOptions(nullptr, 0, p, pn); }},
        {"object", "80 CA 9F 17 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGetData(bytes("9F 17").data(), p, pn); }},
        {"authenticate", "00 88 00 00 04 A1 A2 A3 A4 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocInternalAuth(s_p, 4, p, pn); }},
        {"cryptogram 0", "80 AE 00 00 03 A1 A2 A3 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGenerateAC(0, s_p, 3, p, pn); }},
        {"cryptogram 1", "80 AE 80 00 03 A1 A2 A3 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGenerateAC(1, s_p, 3, p, pn); }},
        {"cryptogram 2", "80 AE 40 00 03 A1 A2 A3 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGenerateAC(2, s_p, 3, p, pn); }},
        {"cryptogram 3", "80 AE 00 00 03 A1 A2 A3 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGenerateAC(3, s_p, 3, p, pn); }},
        {"cryptogram '1'", "80 AE 00 00 03 A1 A2 A3 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGenerateAC('1', s_p, 3, p, pn); }},
        {"cryptogram 257", "80 AE 00 00 03 A1 A2 A3 00", true,
         [](auto *p, auto *pn) { return Cmd_Ic_PbocGenerateAC(257, s_p, 3, p, pn); }},
        {"issuer", "00 82 00 00 0A A1 A2 A3 A4 A5 A6 A7 A8 A9 AA 00", false,
         [](auto *, auto *) { return Cmd_Ic_PbocExternalAuthenticate(s_p, 10); }},
        {"plain PIN", "00 20 00 80 08 A1 A2 A3 A4 A5 A6 A7 A8 FF", false,
         [](auto *, auto *) { return Cmd_Ic_PbocPinVerify('0', s_p, 8); }},
        {"enciphered PIN", "00 20 00 88 08 A1 A2 A3 A4 A5 A6 A7 A8 FF", false,
         [](auto *, auto *) { return Cmd_Ic_PbocPinVerify('1', s_p, 8); }},
        {"PIN of kind 0", "00 20 00 88 01 A1 FF", false,
         [](auto *, auto *) { return Cmd_Ic_PbocPinVerify('\0', s_p, 1); }},
        {"no PIN", "00 20 00 80 FF", false, [](auto *, auto *) { return Cmd_Ic_PbocPinVerify('0', nullptr, 0); }},
    });
}

TEST_F(CardCommands, AChallengeIsHandedOutWithoutItsLength)
{
    for (int nLe : {8, 4, 0, 255}) {
        clearOutputs();
        EXPECT_EQ(Cmd_Ic_PbocGetChallenge(m_response.data(), static_cast<uint8_t>(nLe)), 0x9000U);
        EXPECT_EQ(command(), "00 84 00 00 " + hex(Bytes{static_cast<uint8_t>(nLe)}));
        m_nLen = 4;
        EXPECT_EQ(response(), "11 22 90 00");
    }
    clearOutputs();
    EXPECT_EQ(Cmd_Ic_PbocGetChallenge(nullptr, 8), 0x9000U);
    EXPECT_EQ(command(), "00 84 00 00 08");
    s_nResult = 3;
    EXPECT_EQ(Cmd_Ic_PbocGetChallenge(m_response.data(), 8), 3U);
    EXPECT_TRUE(untouched());
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
}

TEST_F(CardCommands, ADataFieldOfMoreThan255BytesIsRefused)
{
    for (uint32_t n : {256U, 257U, 0x105U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(n);
        const uint8_t *p = s_long.data();
        refused(Cmd_Ic_PbocSelect_Aid(0, p, n, m_response.data(), &m_nLen));
        refused(Cmd_Ic_PbocGetProcessOptions(p, n, m_response.data(), &m_nLen));
        refused(Cmd_Ic_PbocPinVerify('0', p, n));
        refused(Cmd_Ic_PbocInternalAuth(p, n, m_response.data(), &m_nLen));
        refused(Cmd_Ic_PbocGenerateAC(1, p, n, m_response.data(), &m_nLen));
        refused(Cmd_Ic_PbocExternalAuthenticate(p, n));
        refused(Cmd_Ic_EpEdUpdateBinary(1, 0, p, n));
    }
}

TEST_F(CardCommands, DataThatAreNotThereAreRefused)
{
    uint8_t *p = m_response.data();
    refused(Cmd_Ic_PbocSelectFile(0, 0, nullptr, 1, p, &m_nLen));
    refused(Cmd_Ic_PbocSelect_Aid(0, nullptr, 1, p, &m_nLen));
    refused(Cmd_Ic_PbocGetProcessOptions(nullptr, 1, p, &m_nLen));
    refused(Cmd_Ic_PbocPinVerify('0', nullptr, 8));
    refused(Cmd_Ic_PbocGetData(nullptr, p, &m_nLen));
    refused(Cmd_Ic_PbocInternalAuth(nullptr, 1, p, &m_nLen));
    refused(Cmd_Ic_PbocGenerateAC(1, nullptr, 1, p, &m_nLen));
    refused(Cmd_Ic_PbocExternalAuthenticate(nullptr, 1));
    refused(Cmd_Ic_EpEdInitializeForLoad(1, nullptr, p, &m_nLen));
    refused(Cmd_Ic_EpEdCreditForLoad(nullptr, p, &m_nLen));
    refused(Cmd_Ic_EpEdInitializeForUnLoad(1, nullptr, p, &m_nLen));
    refused(Cmd_Ic_EpEdDebitForUnLoad(nullptr, p, &m_nLen));
    refused(Cmd_Ic_EpEdInitializeForPurchase(1, nullptr));
    refused(Cmd_Ic_EpEdDebitForPurchaseOrCashWithdraw(nullptr));
    refused(Cmd_Ic_EpEdUpdateBinary(1, 0, nullptr, 1));
}

// ---- deposit and purse --------------------------------------------------------------------------------------------

TEST_F(CardCommands, ThePursesCommandsSendTheirData)
{
    const std::string sData(s_szData11);
    play({
        {"deposit's balance", "80 5C 00 01 04", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdGetBalance(1, p, pn); }},
        {"purse's balance", "80 5C 00 02 04", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdGetBalance(2, p, pn); }},
        {"load 1", "80 50 00 01 0B " + sData + " 10", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdInitializeForLoad(1, s_p, p, pn); }},
        {"load 2", "80 50 00 02 0B " + sData + " 10", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdInitializeForLoad(2, s_p, p, pn); }},
        {"credit", "80 52 00 00 0B " + sData + " 04", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdCreditForLoad(s_p, p, pn); }},
        {"unload 1", "80 50 05 01 0B " + sData + " 10", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdInitializeForUnLoad(1, s_p, p, pn); }},
        {"unload 2", "80 50 05 02 0B " + sData + " 10", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdInitializeForUnLoad(2, s_p, p, pn); }},
        {"debit for unload", "80 54 03 00 0B " + sData + " 04", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdDebitForUnLoad(s_p, p, pn); }},
        {"purchase 0", "80 50 01 00 0B " + sData + " 0F", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdInitializeForPurchase(0, s_p); }},
        {"purchase 2", "80 50 01 02 0B " + sData + " 0F", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdInitializeForPurchase(2, s_p); }},
        {"purchase 255", "80 50 01 FF 0B " + sData + " 0F", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdInitializeForPurchase(255, s_p); }},
        {"debit for purchase", "80 54 01 00 0F " + s_szData15 + " 08", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdDebitForPurchaseOrCashWithdraw(s_p); }},
    });
}

TEST_F(CardCommands, AKindOtherThan1And2IsRefused)
{
    for (int n : {0, 3, 4, 0x31, 0x81, 255}) {
        SCOPED_TRACE(n);
        const auto ucKind = static_cast<uint8_t>(n);
        refused(Cmd_Ic_EpEdGetBalance(ucKind, m_response.data(), &m_nLen));
        refused(Cmd_Ic_EpEdInitializeForLoad(ucKind, s_p, m_response.data(), &m_nLen));
        refused(Cmd_Ic_EpEdInitializeForUnLoad(ucKind, s_p, m_response.data(), &m_nLen));
    }
}

TEST_F(CardCommands, AFileOfAPurseStandsInP1)
{
    play({
        {"file 0", "00 B0 80 00 10", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdReadBinary(0, 0, 16, p, pn); }},
        {"file 21", "00 B0 95 08 1E", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdReadBinary(21, 8, 30, p, pn); }},
        {"file 31", "00 B0 9F FF FF", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdReadBinary(31, 255, 255, p, pn); }},
        {"file 32", "00 B0 80 00 01", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdReadBinary(32, 0, 1, p, pn); }},
        {"file 255", "00 B0 9F 01 01", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdReadBinary(255, 1, 1, p, pn); }},
        {"no Le", "00 B0 95 08", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdReadBinary(21, 8, 0, p, pn); }},
        {"record", "00 B2 98 01 17", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdRead(0x18, 1, 0x17, p, pn); }},
        {"record of file 0", "00 B2 80 0A 01", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdRead(0, 10, 1, p, pn); }},
        {"record of file 33", "00 B2 81 FF 01", true,
         [](auto *p, auto *pn) { return Cmd_Ic_EpEdRead(33, 255, 1, p, pn); }},
        {"record without Le", "00 B2 9F 02", true, [](auto *p, auto *pn) { return Cmd_Ic_EpEdRead(31, 2, 0, p, pn); }},
        {"update", "00 D6 95 08 02 A1 A2 00", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdUpdateBinary(21, 8, s_p, 2); }},
        {"update of file 0", "00 D6 80 00 01 A1 00", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdUpdateBinary(0, 0, s_p, 1); }},
        {"update of file 63", "00 D6 9F FF 01 A1 00", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdUpdateBinary(63, 255, s_p, 1); }},
        {"update without data", "00 D6 81 00 00", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdUpdateBinary(1, 0, nullptr, 0); }},
        {"update of 255 bytes", "00 D6 81 00 FF " + longHex(255) + " 00", false,
         [](auto *, auto *) { return Cmd_Ic_EpEdUpdateBinary(1, 0, s_long.data(), 255); }},
    });
}

} // namespace
