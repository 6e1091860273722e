// The command bytes of the IC side, one table.

#include "pty_peer.h"

#include "qvreader/protocol.h"

#include <gtest/gtest.h>

#include <functional>

using namespace qvtest;

namespace {

using Build = std::function<int32_t(uint8_t *, uint32_t *)>;

struct Row {
    const char *pszName;
    Build build;
    const char *pszBytes;
};

// Power-up.
Build on(int32_t nSlot, uint32_t nTimeOut)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_RDZPowerOnCmd(nSlot, nTimeOut, p, n); };
}
Build off(int32_t nSlot)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_RDZPowerOffCmd(nSlot, p, n); };
}
Build apdu(int32_t nSlot)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_RDZAPDUCmd(nSlot, p, n); };
}
Build status(int32_t nSlot, int32_t nValue)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_CheckCardStatus(nSlot, p, n, nValue); };
}
Build module(int32_t nTimeOut)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_MulModuleStatus(nTimeOut, p, n); };
}
Build moduleCom(uint8_t ucKind, uint32_t nTimeOut)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_MulModuleComStatus(ucKind, nTimeOut, p, n); };
}
Build led(uint8_t ucState)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_SetLEDStatus(ucState, p, n); };
}
Build ledEx(uint8_t a, uint8_t b)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_SetLEDStatusEx(a, b, p, n); };
}
Build beep(int32_t d, uint8_t nCount)
{
    return [=](uint8_t *p, uint32_t *n) { return INSTR_Ic_SetBeepStatus(d, nCount, p, n); };
}
const Build s_reset = [](uint8_t *p, uint32_t *n) { return Instr_IcMudle_Reset(p, n); };

const int32_t s_invalidSlots[] = {-1, 32, 33, 100, 254, 256, 255 + 256, 65535, INT32_MIN, INT32_MAX};

TEST(IcCommands, EveryRowOfTheTableGivesItsBytes)
{
    const Row rows[] = {
        {"power on 0", on(0, 0), "32 22 00 00 00"},
        {"power on 0, 3 s", on(0, 3000), "32 22 0B B8 00"},
        {"power on 15", on(15, 0x0102), "32 22 01 02 0F"},
        {"power on PSAM 1", on(16, 0x0BB8), "32 22 0B B8 10"},
        {"power on 31", on(31, 65535), "32 22 FF FF 1F"},
        {"power on, long time-out", on(2, 0x12345678), "32 22 56 78 02"},
        {"power on antenna", on(255, 0), "32 24 00 00"},
        {"power on antenna, 5 s", on(255, 5000), "32 24 13 88"},
        {"power on antenna, long time-out", on(255, 0x0001FFFE), "32 24 FF FE"},
        {"power off 0", off(0), "32 23 00"},
        {"power off 15", off(15), "32 23 0F"},
        {"power off 16", off(16), "32 23 10"},
        {"power off 31", off(31), "32 23 1F"},
        {"power off antenna", off(255), "32 25 00 00"},
        {"APDU 0", apdu(0), "32 26 00"},
        {"APDU 31", apdu(31), "32 26 1F"},
        {"APDU antenna", apdu(255), "32 26 FF"},
        {"status 0", status(0, 0x1234), "32 21 00"},
        {"status 1", status(1, 0), "32 21 01"},
        {"status 31", status(31, -1), "32 21 1F"},
        {"status antenna", status(255, 0), "32 24 00 00"},
        {"status antenna with value", status(255, 0x1234), "32 24 12 34"},
        {"status antenna with a long value", status(255, -2), "32 24 FF FE"},
        {"module status", module(8), "32 30 00 08"},
        {"module status, two bytes", module(0x0102), "32 30 01 02"},
        {"module status, long", module(0x12345678), "32 30 56 78"},
        {"module status, negative", module(-1), "32 30 FF FF"},
        {"com status", moduleCom(5, 8), "32 32 00 08 05"},
        {"com status, two bytes", moduleCom(0xFF, 0xABCD), "32 32 AB CD FF"},
        {"LED", led(0), "11 11 00"},
        {"LED, all", led(0xFF), "11 11 FF"},
        {"LED ex", ledEx(1, 2), "11 14 01 02"},
        {"LED ex, all", ledEx(0xFE, 0x80), "11 14 FE 80"},
        {"buzzer", beep(500, 2), "80 15 01 F4 02"},
        {"buzzer, long", beep(0x12345678, 255), "80 15 56 78 FF"},
        {"module reset", s_reset, "1B 30"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszName);
        Bytes out(16, 0xC5);
        uint32_t nLen = 0xC5C5;
        EXPECT_EQ(row.build(out.data(), &nLen), 0);
        Bytes expected = bytes(row.pszBytes);
        EXPECT_EQ(nLen, expected.size());
        expected.resize(16, 0xC5);
        EXPECT_EQ(hex(out), hex(expected));
    }
}

TEST(IcCommands, EverySlotFrom0To31IsWrittenAsItsCode)
{
    for (int32_t nSlot = 0; nSlot < 32; ++nSlot) {
        uint8_t out[16];
        uint32_t nLen = 0;
        EXPECT_EQ(INSTR_Ic_RDZPowerOnCmd(nSlot, 1, out, &nLen), 0);
        EXPECT_EQ(nLen, 5U);
        EXPECT_EQ(out[4], nSlot);
        EXPECT_EQ(INSTR_Ic_RDZPowerOffCmd(nSlot, out, &nLen), 0);
        EXPECT_EQ(nLen, 3U);
        EXPECT_EQ(out[2], nSlot);
        EXPECT_EQ(INSTR_Ic_RDZAPDUCmd(nSlot, out, &nLen), 0);
        EXPECT_EQ(nLen, 3U);
        EXPECT_EQ(out[2], nSlot);
        EXPECT_EQ(INSTR_Ic_CheckCardStatus(nSlot, out, &nLen, 9), 0);
        EXPECT_EQ(nLen, 3U);
        EXPECT_EQ(out[2], nSlot);
    }
}

TEST(IcCommands, AnInvalidSlotIsRefusedAndNothingWritten)
{
    for (int32_t nSlot : s_invalidSlots) {
        SCOPED_TRACE(nSlot);
        Bytes out(16, 0xC5);
        uint32_t nLen = 0xC5C5;
        EXPECT_EQ(on(nSlot, 5)(out.data(), &nLen), -1);
        EXPECT_EQ(off(nSlot)(out.data(), &nLen), -1);
        EXPECT_EQ(status(nSlot, 5)(out.data(), &nLen), -2);
        EXPECT_EQ(out, Bytes(16, 0xC5));
        EXPECT_EQ(nLen, 0xC5C5U);
    }
}

TEST(IcCommands, AnApduOfAnInvalidSlotHasNoSlotByte)
{
    for (int32_t nSlot : s_invalidSlots) {
        SCOPED_TRACE(nSlot);
        Bytes out(8, 0xC5);
        uint32_t nLen = 0;
        EXPECT_EQ(apdu(nSlot)(out.data(), &nLen), 0);
        EXPECT_EQ(nLen, 2U);
        EXPECT_EQ(hex(out), "32 26 C5 C5 C5 C5 C5 C5");
    }
}

TEST(IcCommands, NullIsRefused)
{
    const std::pair<Build, int32_t> builders[] = {
        {on(0, 0), -1},        {off(0), -1}, {apdu(0), -1},     {status(0, 0), -2}, {module(1), -1},
        {moduleCom(1, 1), -1}, {led(1), -1}, {ledEx(1, 1), -1}, {beep(1, 1), -1},   {s_reset, -1}};
    for (const auto &[build, nRefusal] : builders) {
        Bytes out(16, 0xC5);
        uint32_t nLen = 0xC5C5;
        EXPECT_EQ(build(nullptr, &nLen), nRefusal);
        EXPECT_EQ(build(out.data(), nullptr), nRefusal);
        EXPECT_EQ(out, Bytes(16, 0xC5));
        EXPECT_EQ(nLen, 0xC5C5U);
    }
}

TEST(IcCommands, TheSpeedIsNamedByOneCharacter)
{
    const std::pair<uint32_t, const char *> rows[] = {
        {38400, "1B 25 49 32"}, {19200, "1B 25 49 33"},     {9600, "1B 25 49 34"}, {115200, "1B 25 49 31"},
        {4800, "1B 25 49 31"},  {57600, "1B 25 49 31"},     {0, "1B 25 49 31"},    {230400, "1B 25 49 31"},
        {9601, "1B 25 49 31"},  {UINT32_MAX, "1B 25 49 31"}};
    for (auto [nBaud, pszBytes] : rows) {
        for (uint32_t nFlag : {0U, 1U, 255U, UINT32_MAX}) {
            SCOPED_TRACE(nBaud);
            uint32_t escape[2] = {0xC5C5C5C5, 0xC5C5C5C5};
            uint8_t unused[8] = {0xC5, 0xC5, 0xC5, 0xC5, 0xC5, 0xC5, 0xC5, 0xC5};
            EXPECT_EQ(INSTR_Rdz_BpsDeviceCom(nFlag, nBaud, escape, unused), 4);
            EXPECT_EQ(hex(escape, sizeof escape), std::string(pszBytes) + " C5 C5 C5 C5");
            EXPECT_EQ(hex(unused), "C5 C5 C5 C5 C5 C5 C5 C5");
        }
    }
}

TEST(IcCommands, TheFourthArgumentOfTheSpeedMayBeNull)
{
    uint32_t nEscape = 0;
    EXPECT_EQ(INSTR_Rdz_BpsDeviceCom(0, 9600, &nEscape, nullptr), 4);
    EXPECT_EQ(hex(&nEscape, 4), "1B 25 49 34");
    uint8_t unused[4] = {};
    EXPECT_EQ(INSTR_Rdz_BpsDeviceCom(0, 9600, nullptr, unused), -1);
}

TEST(IcCommands, OnlyPowerOnAndApduAreLogged)
{
    uint8_t out[16];
    uint32_t nLen = 0;
    logOn();
    on(0, 0)(out, &nLen);
    EXPECT_TRUE(logged({"[INSTR_Ic_RDZPowerOnCmd] Start "}));
    EXPECT_FALSE(logged({" Card Slot Err"}));
    EXPECT_NE(rawLog().find("INFO:    CommDev:  [INSTR_Ic_RDZPowerOnCmd] Start \r\n"), std::string::npos);

    logOn();
    on(32, 0)(out, &nLen);
    EXPECT_TRUE(logged({"[INSTR_Ic_RDZPowerOnCmd] Start ", " Card Slot Err"}));
    EXPECT_NE(rawLog().find("INFO:    Instr:    Card Slot Err\r\n"), std::string::npos);

    logOn();
    apdu(0)(out, &nLen);
    EXPECT_NE(rawLog().find("INFO:    Instr:   "), std::string::npos);

    logOn();
    off(0)(out, &nLen);
    off(32)(out, &nLen);
    status(0, 0)(out, &nLen);
    module(1)(out, &nLen);
    moduleCom(1, 1)(out, &nLen);
    led(1)(out, &nLen);
    ledEx(1, 1)(out, &nLen);
    beep(1, 1)(out, &nLen);
    s_reset(out, &nLen);
    uint32_t nEscape = 0;
    INSTR_Rdz_BpsDeviceCom(0, 9600, &nEscape, nullptr);
    EXPECT_EQ(logTexts().size(), 0U) << rawLog();
    logOff();
}

} // namespace
