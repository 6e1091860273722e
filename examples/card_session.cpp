// card_session.cpp - the conversation of card_session.c, in C++17: the port is closed and the card powered down however
// the conversation ends.
//
//     card_session_cpp PORT
#include <qvreader/qvreader.h>

#include <array>
#include <cstdio>
#include <iconv.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int32_t nSpeed = 9600;
constexpr int32_t nCardSeconds = 20;
constexpr int32_t nAnswerSeconds = 10;
constexpr uint32_t nDone = 0x9000, nNoRecord = 0x6A83;
using Response = std::array<uint8_t, 1024>; // the least that every exchange wants

struct Answer {
    uint32_t nStatus;
    Bytes data; // without the status word
};

std::runtime_error failure(const std::string &sWhat, int32_t nResult)
{
    return std::runtime_error(sWhat + ", result " + std::to_string(nResult));
}

// An open reader with a powered card. The library has one reader a process: make one of these at a time.
class CardSession {
  public:
    explicit CardSession(const char *pszPort) : m_sPort(pszPort)
    {
        if (const int32_t nResult = QV_APP_OpenPort(pszPort, nullptr, nSpeed); nResult != 0)
            throw failure(m_sPort + " does not open", nResult);
    }
    ~CardSession()
    {
        renewTime();
        Dev_Rdz_Ic_PowerOff();
        QV_APP_ClosePort(m_sPort.c_str(), nullptr, nSpeed);
    }
    CardSession(const CardSession &) = delete;
    CardSession &operator=(const CardSession &) = delete;

    Answer select(const Bytes &aid)
    {
        return command([&](uint8_t *pOut, uint32_t *pnOut) {
            return Cmd_Ic_PbocSelect_Aid(0, aid.data(), static_cast<uint32_t>(aid.size()), pOut, pnOut);
        });
    }
    Answer readRecord(uint8_t ucFile, uint8_t ucRecord)
    {
        return command(
            [&](uint8_t *pOut, uint32_t *pnOut) { return Cmd_Ic_PbocReadRecord(ucFile, ucRecord, pOut, pnOut); });
    }
    // Any other command, as bytes.
    Answer send(const Bytes &apdu)
    {
        renewTime();
        Response response{};
        uint32_t nLen = 0;
        const int32_t nResult =
            QV_APP_SendCommandOnly("1", static_cast<uint32_t>(apdu.size()), apdu.data(), &nLen, response.data());
        if (nResult != 0)
            throw failure("no answer", nResult);
        return answer(response, nLen);
    }

  private:
    // Reads share a budget.
    static void renewTime() { COMM_Rdz_ChageReadTimeOut(nAnswerSeconds); }

    static Answer answer(const Response &response, uint32_t nLen)
    {
        if (nLen < 2)
            throw std::runtime_error("an answer without a status word");
        const uint32_t nStatus = static_cast<uint32_t>(response[nLen - 2] << 8 | response[nLen - 1]);
        return {nStatus, Bytes(response.begin(), response.begin() + nLen - 2)};
    }

    // A builder gives the card's status word, or the reader's failure, and then it tells no length.
    template <typename Builder> static Answer command(Builder builder)
    {
        renewTime();
        Response response{};
        uint32_t nLen = 0;
        const uint32_t nResult = builder(response.data(), &nLen);
        if (nLen == 0)
            throw failure("no answer", static_cast<int32_t>(nResult));
        return answer(response, nLen);
    }

    std::string m_sPort;
};

// The session call opens the reader, powers the card up, and closes again; the card stays powered.
std::string powerUp(const char *pszPort)
{
    std::array<char, 1025> atr{};
    uint32_t nLen = 0;
    QV_APP_SetPowerOnTimeout(nCardSeconds);
    if (const int32_t nResult = QV_APP_PowerOn(pszPort, nullptr, nSpeed, "1", &nLen, atr.data()); nResult != 0)
        throw failure("no answer to reset", nResult);
    return std::string(atr.data(), nLen);
}

// What a status word means; the library keeps it in GBK.
std::string meaning(uint32_t nStatus)
{
    const auto close = [](void *p) { iconv_close(static_cast<iconv_t>(p)); };
    const iconv_t converter = iconv_open("UTF-8", "GBK");
    if (converter == reinterpret_cast<iconv_t>(-1))
        return "?";
    const std::unique_ptr<void, decltype(close)> owner(converter, close);
    std::string sGbk = ICC_CardCmdShowErrMsg(nStatus);
    std::string sUtf8(2 * sGbk.size(), '\0');
    char *pIn = sGbk.data(), *pOut = sUtf8.data();
    size_t nIn = sGbk.size(), nOut = sUtf8.size();
    iconv(converter, &pIn, &nIn, &pOut, &nOut);
    sUtf8.resize(sUtf8.size() - nOut);
    return sUtf8;
}

// The value of a tag, inside templates too.
Bytes value(const Bytes &tag, const Bytes &data)
{
    Bytes out(data.size() + 1); // no value is longer than what holds it
    int32_t nLen = 0;
    if (data.empty() || quorvan_get_tag_value(tag.data(), static_cast<int32_t>(tag.size()), data.data(),
                                              static_cast<int32_t>(data.size()), out.data(), &nLen) != 0)
        throw std::runtime_error("an object is missing in the card's answer");
    out.resize(static_cast<size_t>(nLen));
    return out;
}

std::string text(const Bytes &bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

bool converse(const char *pszPort)
{
    CardSession card(pszPort);
    const Answer selected = card.select({0xA0, 0x00, 0x00, 0x03, 0x33, 0x01, 0x01, 0x01});
    std::printf("select: %s\n", meaning(selected.nStatus).c_str());
    if (selected.nStatus != nDone)
        return false;
    std::printf("label: %s\n", text(value({0x50}, selected.data)).c_str());
    std::printf("languages: %s\n", text(value({0x5F, 0x2D}, selected.data)).c_str());
    const Bytes log = value({0x9F, 0x4D}, selected.data);
    std::printf("log: file %d, %d records\n", log.at(0), log.at(1));

    std::printf("challenge: ");
    for (const uint8_t uc : card.send({0x00, 0x84, 0x00, 0x00, 0x08}).data)
        std::printf("%02X", uc);
    std::printf("\n");

    const Answer record = card.readRecord(2, 3);
    std::printf("record 3: %s\n", meaning(record.nStatus).c_str());
    return record.nStatus == nNoRecord;
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    if (nArgs != 2) {
        std::fprintf(stderr, "usage: card_session_cpp PORT\n");
        return 2;
    }
    try {
        std::printf("ATR: %s\n", powerUp(ppArgs[1]).c_str());
        return converse(ppArgs[1]) ? 0 : 1;
    } catch (const std::exception &error) {
        std::printf("%s\n", error.what());
        return 1;
    }
}
