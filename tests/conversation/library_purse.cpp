// Loads, unloads and purchases through the library's calls: the test is the issuer's host, with its keys, and the
// terminal between the purse card in slot 0 and the PSAM in slot 16 (JR/T 0025.1-2005).
#include "conversation.h"

#include "qvreader/icapp.h"

#include <openssl/evp.h>

#include <memory>

using namespace qvtest;

namespace {

using Block = std::array<uint8_t, 8>;

// As the shipped files have them.
constexpr char szLoadKey[] = "4C 4F 41 44 2D 4B 45 59 3A 64 65 6D 6F 2D 30 31";
constexpr char szUnloadKey[] = "55 4E 4C 4F 41 44 2D 4B 3A 64 65 6D 6F 2D 30 32";
constexpr char szTacKey[] = "54 41 43 2D 4B 45 59 2E 3A 64 65 6D 6F 2D 30 34";
constexpr char szSerial[] = "62 00 00 00 10 00 00 03 ";
constexpr char szTerminal[] = "00 00 00 00 20 26 ";
constexpr char szDateTime[] = "20 26 03 01 09 30 15 ";

constexpr uint8_t ucDeposit = 1, ucPurse = 2;
constexpr uint8_t ucPublicFile = 0x15, ucHolderFile = 0x16, ucLogFile = 0x18;
constexpr int nPsamSlot = 16;

// ---- the issuer's cryptography

// One block, triple DES.
Block encipher(const Bytes &key16, const Block &block)
{
    Bytes key = key16;
    key.insert(key.end(), key16.begin(), key16.begin() + 8);
    Block out{};
    int nLen = 0;
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  EVP_CIPHER_CTX_free);
    EXPECT_EQ(EVP_EncryptInit_ex(context.get(), EVP_des_ede3_ecb(), nullptr, key.data(), nullptr), 1);
    EXPECT_EQ(EVP_EncryptUpdate(context.get(), out.data(), &nLen, block.data(), 8), 1);
    EXPECT_EQ(nLen, 8);
    return out;
}

Bytes twice(const Block &block)
{
    Bytes key(block.begin(), block.end());
    key.insert(key.end(), block.begin(), block.end());
    return key;
}

// Four bytes and a blank, as text.
std::string mac(const Block &key, const std::string &sData)
{
    Bytes data = bytes(sData);
    data.push_back(0x80);
    while (data.size() % 8 != 0)
        data.push_back(0);
    Block value{};
    for (size_t nAt = 0; nAt < data.size(); nAt += 8) {
        for (size_t i = 0; i < 8; ++i)
            value[i] = static_cast<uint8_t>(value[i] ^ data[nAt + i]);
        value = encipher(twice(key), value);
    }
    return hex(value.data(), 4) + " ";
}

Block sessionKey(const char *pszKey, const std::string &sInput)
{
    const Bytes input = bytes(sInput);
    Block block{};
    EXPECT_EQ(input.size(), block.size());
    std::copy_n(input.begin(), std::min(input.size(), block.size()), block.begin());
    return encipher(bytes(pszKey), block);
}

Block tacKey()
{
    const Bytes key = bytes(szTacKey);
    Block block{};
    for (size_t i = 0; i < 8; ++i)
        block[i] = static_cast<uint8_t>(key[i] ^ key[i + 8]);
    return block;
}

// ---- calls

struct Reply {
    uint32_t nStatus = 0;
    std::string sData; // "00 01 ", without the status

    std::string field(size_t nAt, size_t nLen) const { return sData.substr(3 * nAt, 3 * nLen); }
};

// The last two arguments are the answer and its length.
template <typename Fn, typename... Args> Reply call(Fn *pFn, Args... args)
{
    std::array<uint8_t, 1024> answer{};
    uint32_t nLen = 0;
    COMM_Rdz_ChageReadTimeOut(10);
    Reply reply;
    reply.nStatus = pFn(args..., answer.data(), &nLen);
    EXPECT_GE(nLen, 2U);
    EXPECT_EQ(hex(answer.data() + nLen - 2, 2),
              hex(Bytes{static_cast<uint8_t>(reply.nStatus >> 8), static_cast<uint8_t>(reply.nStatus & 0xFF)}));
    if (nLen > 2)
        reply.sData = hex(answer.data(), nLen - 2) + " ";
    return reply;
}

std::string balance(uint8_t ucKind)
{
    const Reply reply = call(Cmd_Ic_EpEdGetBalance, ucKind);
    EXPECT_EQ(reply.nStatus, 0x9000U);
    return reply.sData;
}

uint32_t verifyPin(const char *pszPin = "12 34 56")
{
    const Bytes pin = bytes(pszPin);
    COMM_Rdz_ChageReadTimeOut(10);
    return Cmd_Ic_PbocPinVerify('0', pin.data(), static_cast<uint32_t>(pin.size()));
}

// INITIALIZE FOR PURCHASE with its answer, which the library's own call drops.
Reply beginPurchase(const std::string &sAmount, uint8_t ucKind = ucPurse)
{
    const Bytes data = bytes("01 " + sAmount + szTerminal);
    return call(Cmd_Ic_PbocSendAPDU, uint8_t{0x80}, uint8_t{0x50}, uint8_t{0x01}, ucKind,
                static_cast<uint8_t>(data.size()), data.data(), uint8_t{1}, uint8_t{0x0F});
}

// What the PSAM answers without its status; the current slot is the purse card's again behind it.
std::string askPsam(const std::string &sCommand)
{
    COMM_Icc_CardReaderSetCardSlot(nPsamSlot);
    const Answer answer = send(sCommand);
    COMM_Icc_CardReaderSetCardSlot(0);
    EXPECT_EQ(answer.nResult, 0);
    EXPECT_TRUE(answer.sHex.ends_with("90 00")) << sCommand << " gave " << answer.sHex;
    return answer.sHex.substr(0, answer.sHex.size() - 5);
}

class LibraryPurse : public testing::Test {
  protected:
    void start(const std::string &sPurse = QV_CARDS "/demo.purse")
    {
        m_sim.emplace(std::vector<std::string>{"--card", "0=purse:" + sPurse});
        m_sim->command("insert 16 psam:" QV_CARDS "/demo.psam");
        m_reader.emplace(*m_sim);
        ASSERT_EQ(m_reader->result(), 0);
        ASSERT_EQ(powerOn(0).nResult, 0);
        ASSERT_EQ(powerOn(nPsamSlot).nResult, 0);
        COMM_Icc_CardReaderSetCardSlot(0);
    }

    std::optional<SimBench> m_sim;
    std::optional<OpenReader> m_reader;
};

// ---- tests

TEST_F(LibraryPurse, BalancesAndFilesAreRead)
{
    start();
    EXPECT_EQ(balance(ucDeposit), "00 01 86 A0 ");
    EXPECT_EQ(balance(ucPurse), "00 00 13 88 ");
    const Reply whole = call(Cmd_Ic_EpEdReadBinary, ucPublicFile, uint8_t{0}, uint8_t{0});
    EXPECT_EQ(whole.nStatus, 0x9000U);
    EXPECT_EQ(whole.sData.size(), 30U * 3);
    EXPECT_EQ(call(Cmd_Ic_EpEdReadBinary, ucPublicFile, uint8_t{12}, uint8_t{8}).sData, szSerial);
    EXPECT_EQ(askPsam("00 B0 96 00 06"), szTerminal);
}

TEST_F(LibraryPurse, TheCardHolderIsWrittenBehindThePin)
{
    start();
    const Bytes name = bytes("51 56");
    EXPECT_EQ(Cmd_Ic_EpEdUpdateBinary(ucHolderFile, 2, name.data(), 2), 0x6982U);
    EXPECT_EQ(verifyPin(), 0x9000U);
    EXPECT_EQ(Cmd_Ic_EpEdUpdateBinary(ucHolderFile, 2, name.data(), 2), 0x9000U);
    EXPECT_EQ(call(Cmd_Ic_EpEdReadBinary, ucHolderFile, uint8_t{1}, uint8_t{4}).sData, "00 51 56 00 ");
}

TEST_F(LibraryPurse, ALoadIsAgreedBetweenCardAndIssuer)
{
    start();
    const std::string sAmount = "00 00 27 10 ", sType = "02 ";
    EXPECT_EQ(verifyPin(), 0x9000U);
    const Reply begun = call(Cmd_Ic_EpEdInitializeForLoad, ucPurse, bytes("01 " + sAmount + szTerminal).data());
    ASSERT_EQ(begun.nStatus, 0x9000U);
    EXPECT_EQ(begun.field(0, 8), "00 00 13 88 00 03 01 00 ");
    const Block session = sessionKey(szLoadKey, begun.field(8, 4) + begun.field(4, 2) + "80 00");
    EXPECT_EQ(begun.field(12, 4), mac(session, "00 00 13 88" + sAmount + sType + szTerminal)); // MAC1

    const std::string sAgreed = sAmount + sType + szTerminal + szDateTime;
    const Reply done = call(Cmd_Ic_EpEdCreditForLoad, bytes(szDateTime + mac(session, sAgreed)).data());
    ASSERT_EQ(done.nStatus, 0x9000U);
    EXPECT_EQ(done.sData, mac(tacKey(), "00 00 3A 98 00 03" + sAgreed)); // TAC
    EXPECT_EQ(balance(ucPurse), "00 00 3A 98 ");
    EXPECT_EQ(balance(ucDeposit), "00 01 86 A0 ");
}

TEST_F(LibraryPurse, AnUnloadIsAgreedBetweenCardAndIssuer)
{
    start();
    const std::string sAmount = "00 00 75 30 ", sType = "03 ";
    EXPECT_EQ(verifyPin(), 0x9000U);
    const Reply begun = call(Cmd_Ic_EpEdInitializeForUnLoad, ucDeposit, bytes("01 " + sAmount + szTerminal).data());
    ASSERT_EQ(begun.nStatus, 0x9000U);
    EXPECT_EQ(begun.field(0, 8), "00 01 86 A0 00 07 01 00 ");
    const Block session = sessionKey(szUnloadKey, begun.field(8, 4) + begun.field(4, 2) + "80 00");
    EXPECT_EQ(begun.field(12, 4), mac(session, "00 01 86 A0" + sAmount + sType + szTerminal)); // MAC1

    const std::string sAgreed = sAmount + sType + szTerminal + szDateTime;
    const Reply done = call(Cmd_Ic_EpEdDebitForUnLoad, bytes(szDateTime + mac(session, sAgreed)).data());
    ASSERT_EQ(done.nStatus, 0x9000U);
    EXPECT_EQ(done.sData, mac(session, "00 01 11 70 00 07" + sAgreed)); // MAC3
    EXPECT_EQ(balance(ucDeposit), "00 01 11 70 ");
}

TEST_F(LibraryPurse, PurchasesGoBetweenCardAndPsam)
{
    start();
    const std::string sAmount = "00 00 04 D2 ", sType = "06 ";
    for (const std::string sCounter : {"00 04 ", "00 05 "}) {
        const Reply begun = beginPurchase(sAmount);
        ASSERT_EQ(begun.nStatus, 0x9000U);
        EXPECT_EQ(begun.field(4, 7), sCounter + "00 00 00 01 00 ");
        const std::string sSam = askPsam("80 70 00 00 1C" + begun.field(11, 4) + sCounter + sAmount + sType +
                                         szDateTime + "01 00" + szSerial + "08");
        ASSERT_EQ(sSam.size(), 8U * 3);
        const Bytes data = bytes(sSam.substr(0, 12) + szDateTime + sSam.substr(12));
        const Reply done = call(Cmd_Ic_PbocSendAPDU, uint8_t{0x80}, uint8_t{0x54}, uint8_t{0x01}, uint8_t{0x00},
                                static_cast<uint8_t>(data.size()), data.data(), uint8_t{1}, uint8_t{0x08});
        ASSERT_EQ(done.nStatus, 0x9000U);
        EXPECT_EQ(done.field(0, 4), mac(tacKey(), sAmount + sType + szTerminal + sSam.substr(0, 12) + szDateTime));
        EXPECT_EQ(askPsam("80 72 00 00 04" + done.field(4, 4)), ""); // MAC2 suits the PSAM
    }
    EXPECT_EQ(balance(ucPurse), "00 00 09 E4 ");
    EXPECT_TRUE(m_sim->state("slot 16")->ends_with("transaction 43"));
}

// With a card whose random number is known, the calls that drop the card's answers are enough to pay.
TEST_F(LibraryPurse, TheCallsThatDropAnswersPay)
{
    const std::string sCard = libraryDirectory() + "/known.purse";
    writeFile(sCard, readFile(QV_CARDS "/demo.purse") + "random C0 FF EE 42\n");
    start(sCard);
    EXPECT_EQ(Cmd_Ic_EpEdInitializeForPurchase(ucPurse, bytes(std::string("01 00 00 04 D2 ") + szTerminal).data()),
              0x9000U);
    const std::string sSam = askPsam(std::string("80 70 00 00 1C C0 FF EE 42 00 04 00 00 04 D2 06") + szDateTime +
                                     "01 00" + szSerial + "08");
    EXPECT_EQ(sSam, "00 00 00 29 FD ED 10 FF ");
    EXPECT_EQ(
        Cmd_Ic_EpEdDebitForPurchaseOrCashWithdraw(bytes(sSam.substr(0, 12) + szDateTime + sSam.substr(12)).data()),
        0x9000U);
    EXPECT_EQ(balance(ucPurse), "00 00 0E B6 ");
}

TEST_F(LibraryPurse, TheLogIsReadInBothPlacements)
{
    start();
    EXPECT_EQ(call(Cmd_Ic_EpEdRead, ucLogFile, uint8_t{1}, uint8_t{0x17}).nStatus, 0x6A83U);
    for (const std::string sCents : {"11 ", "22 "}) {
        const Reply begun = beginPurchase("00 00 00 " + sCents);
        const std::string sSam = askPsam("80 70 00 00 1C" + begun.field(11, 4) + begun.field(4, 2) + "00 00 00" +
                                         sCents + "06" + szDateTime + "01 00" + szSerial + "08");
        EXPECT_EQ(
            Cmd_Ic_EpEdDebitForPurchaseOrCashWithdraw(bytes(sSam.substr(0, 12) + szDateTime + sSam.substr(12)).data()),
            0x9000U);
    }
    const std::string sTail = std::string("06 ") + szTerminal + szDateTime;
    const std::string sNewest = "00 05 00 00 00 00 00 00 22 " + sTail, sOlder = "00 04 00 00 00 00 00 00 11 " + sTail;
    EXPECT_EQ(call(Cmd_Ic_EpEdRead, ucLogFile, uint8_t{1}, uint8_t{0x17}).sData, sNewest);
    EXPECT_EQ(call(Cmd_Ic_EpEdRead, ucLogFile, uint8_t{2}, uint8_t{0}).sData, sOlder);
    EXPECT_EQ(call(Cmd_Ic_PbocReadRecord, ucLogFile, uint8_t{1}).sData, sNewest);
    EXPECT_EQ(call(Cmd_Ic_PbocReadRecord, ucLogFile, uint8_t{2}).sData, sOlder);
    EXPECT_EQ(call(Cmd_Ic_PbocReadRecord, ucLogFile, uint8_t{3}).nStatus, 0x6A83U);
}

TEST_F(LibraryPurse, ARefusalIsToldInWords)
{
    start();
    EXPECT_EQ(beginPurchase("00 00 13 89 ").nStatus, 0x9401U);
    EXPECT_STREQ(ICC_CardCmdShowErrMsg(0x9401), "ErrCode: 9401: \xBD\xBB\xD2\xD7\xD7\xCA\xBD\xF0\xB2\xBB\xD7\xE3");
    EXPECT_STREQ(ICC_CardCmdShowLastErrMsg(), "ErrCode: 9401: \xBD\xBB\xD2\xD7\xD7\xCA\xBD\xF0\xB2\xBB\xD7\xE3");

    EXPECT_EQ(verifyPin("12 34 57"), 0x63C2U); // reads: done, two more tries
    EXPECT_STREQ(ICC_CardCmdShowLastErrMsg(), "ErrCode: 0x63C2: \xB3\xC9\xB9\xA6\xD6\xB4\xD0\xD0 "
                                              "\xBB\xB9\xD4\xCA\xD0\xED\xD6\xD8\xCA\xD4"
                                              "2");
    EXPECT_EQ(verifyPin(), 0x9000U);
    const Bytes load = bytes(std::string("01 00 00 27 10 ") + szTerminal);
    EXPECT_EQ(call(Cmd_Ic_EpEdInitializeForLoad, ucPurse, load.data()).nStatus, 0x9000U);
    EXPECT_EQ(call(Cmd_Ic_EpEdCreditForLoad, bytes(std::string(szDateTime) + "00 00 00 00").data()).nStatus, 0x9302U);
    EXPECT_STREQ(ICC_CardCmdShowLastErrMsg(), "ErrCode: 9302: MAC\xCE\xDE\xD0\xA7");
    EXPECT_EQ(balance(ucPurse), "00 00 13 88 ");
}

} // namespace
