// host.cpp - a C++17 host: the call that opens and closes by itself, and a conversation on an open port.
#include "check.h"

#include <qvreader/icreader.h>

#include <array>
#include <cjson/cJSON.h>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

const Bytes select = {0x00, 0xA4, 0x04, 0x00, 0x02, 0x3F, 0x00};

Bytes exchange(const Bytes &command)
{
    std::array<uint8_t, 1024> response{};
    uint32_t nLen = 0;
    COMM_Rdz_ChageReadTimeOut(5);
    CHECK(ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), response.data(), &nLen) == 0);
    return Bytes(response.begin(), response.begin() + nLen);
}

void conversation(const char *pszPort)
{
    CHECK(Dev_Rdz_Ic_OpenPort(pszPort, nullptr, 1, 0, 9600) == 0);
    std::array<uint8_t, 512> atr{};
    uint32_t nLen = 0;
    Dev_Rdz_SetPowerOnTime(3);
    CHECK(Dev_Rdz_IccPowerOnSlot(0, atr.data(), &nLen) == 0);
    CHECK(nLen == 12 && atr[0] == 0x3B);
    Dev_Rdz_Ic_SetSlot(0);
    Bytes response = exchange(select); // the card answers 61 1A, the data come with the follow-up
    CHECK(response.size() == 28 && response[0] == 0x41 && response[26] == 0x90);

    static IccCardCmd record;
    record = {};
    record.ins = 0xB2;
    record.p1 = 1;
    record.p2 = 0x0C;
    record.lePresent = 1;
    COMM_Rdz_ChageReadTimeOut(5);
    CHECK(ICC_CardCmd(&record) == 0);
    CHECK(record.responseLen == 18 && record.response[15] == 0x0F);
    uint32_t nRawLen = 0;
    std::memcpy(&nRawLen, reinterpret_cast<const char *>(&record) + 2056, sizeof nRawLen);
    CHECK(nRawLen == 18);
}

// The card stays powered while the port is closed and opened again.
void selfContainedCall(const char *pszPort)
{
    std::array<uint8_t, 1024> out{};
    uint32_t nLen = 0;
    CHECK(Dev_Rdz_Ic_SendCommand(pszPort, 1, nullptr, 9600, "1", static_cast<uint32_t>(select.size()), select.data(),
                                 &nLen, out.data()) == 0);
    CHECK(nLen == 28);
    CHECK(g_AuxFd == -2);
    CHECK(Dev_Rdz_Ic_SendCommand("/dev/no-such-port", 1, nullptr, 9600, "1", 4, select.data(), &nLen, out.data()) ==
          -51);
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    CHECK(nArgs == 2);
    conversation(ppArgs[1]);
    CHECK(Dev_Rdz_Ic_ClosePort() == 0);
    selfContainedCall(ppArgs[1]);
    cJSON *pRoot = cJSON_Parse("[1]");
    CHECK(cJSON_GetArraySize(pRoot) == 1);
    cJSON_Delete(pRoot);
    puts("done");
}
