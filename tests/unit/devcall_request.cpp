// The JSON call's request: what it may hold, what is refused and in which order, what is opened and set.
//
// Every /dev/COM name leads to the pseudo-terminal of the test.

#include "devcall.h"

#include <filesystem>

using namespace qvtest;

namespace {

class DeviceRequest : public DeviceCall {
  protected:
    void SetUp() override
    {
        DeviceCall::SetUp();
        g_bIcBaundFlag = 77;
        g_nPowerOnTimeout = 7777;
    }
    void TearDown() override
    {
        g_nPowerOnTimeout = 0;
        DeviceCall::TearDown();
    }
    int32_t call(const char *pszRequest) { return callWith(pszRequest, &m_nReserved); }
    int32_t call(const std::string &sRequest) { return call(sRequest.c_str()); }
    // The reader answers the next question with an empty record.
    void answer() { m_peer->expect(pszQuestion).reply(replyFrame(0, hex(Bytes(86)), 0x01, 0x04)); }
    // Refused before anything was opened or set.
    void expectNothingDone()
    {
        EXPECT_TRUE(untouched());
        EXPECT_TRUE(s_opened.empty());
        EXPECT_EQ(g_sParam.stParam.nType, 0U);
        EXPECT_EQ(g_nPowerOnTimeout, 7777U);
        EXPECT_EQ(g_bIcBaundFlag, 77);
        EXPECT_EQ(stBackUpParam.pfnEndCondition, nullptr);
    }

    int m_nReserved = 0;
};

// ---- function code ------------------------------------------------------------------------------------------------

TEST_F(DeviceRequest, AnotherFunctionIsRefused)
{
    for (const char *pszRequest :
         {R"({"FunctionCode":"0002"})", R"({"FunctionCode":"0002","RequestPort":"1"})", R"({"FunctionCode":""})",
          R"({"FunctionCode":"000"})", R"({"FunctionCode":"1"})", R"({"FunctionCode":" 0001"})",
          R"({"FunctionCode":"00001"})", R"({"FunctionCode":1,"RequestPort":"1"})", R"({"FunctionCode":null})",
          R"({"FunctionCode":["0001"]})", R"({"RequestPort":"1"})", R"({})", R"([])", R"("0001")"}) {
        SCOPED_TRACE(pszRequest);
        EXPECT_EQ(call(pszRequest), -1);
        expectNothingDone();
    }
}

TEST_F(DeviceRequest, OnlyFourCharactersOfTheFunctionCodeCount)
{
    for (const char *pszCode : {"0001", "00015", "0001xyz", "0001 "}) {
        SCOPED_TRACE(pszCode);
        answer();
        EXPECT_EQ(call(std::string(R"({"FunctionCode":")") + pszCode + R"(","RequestPort":"3"})"), 0);
    }
}

TEST_F(DeviceRequest, WhatIsNoJsonIsRefused)
{
    for (const char *pszRequest : {"", " ", "0001", "{", R"({"FunctionCode":"0001")", R"({"FunctionCode":"0001)",
                                   R"(FunctionCode=0001)", R"({'FunctionCode':'0001'})"}) {
        SCOPED_TRACE(pszRequest);
        EXPECT_EQ(call(pszRequest), -1);
        expectNothingDone();
    }
    EXPECT_EQ(call(static_cast<const char *>(nullptr)), -1);
    expectNothingDone();
}

// ---- arguments ----------------------------------------------------------------------------------------------------

TEST_F(DeviceRequest, NullArgumentsAreRefused)
{
    const char *pszGood = R"({"FunctionCode":"0001","RequestPort":"3"})";
    EXPECT_EQ(DEV_CommCall(pszGood, nullptr, m_out.data(), &m_nOut), -100);
    EXPECT_EQ(DEV_CommCall(pszGood, &m_nReserved, m_out.data(), nullptr), -100);
    EXPECT_EQ(DEV_CommCall(pszGood, &m_nReserved, nullptr, &m_nOut), -100);
    EXPECT_EQ(DEV_CommCall(pszGood, nullptr, nullptr, nullptr), -100);
    expectNothingDone();
}

TEST_F(DeviceRequest, TheFunctionCodeIsLookedAtFirst)
{
    for (const char *pszRequest :
         {static_cast<const char *>(nullptr), "{", R"({"FunctionCode":"0002"})",
          R"({"FunctionCode":"0002","RequestPort":"-1"})", R"({"FunctionCode":"0002","RequestTimeOut":"-1"})"}) {
        SCOPED_TRACE(pszRequest == nullptr ? "null" : pszRequest);
        EXPECT_EQ(DEV_CommCall(pszRequest, nullptr, m_out.data(), &m_nOut), -1);
        EXPECT_EQ(DEV_CommCall(pszRequest, &m_nReserved, m_out.data(), nullptr), -1);
        EXPECT_EQ(DEV_CommCall(pszRequest, &m_nReserved, nullptr, &m_nOut), -1);
        EXPECT_EQ(DEV_CommCall(pszRequest, nullptr, nullptr, nullptr), -1);
        EXPECT_EQ(call(pszRequest), -1);
        expectNothingDone();
    }
}

TEST_F(DeviceRequest, ANegativePortOrTimeOutIsRefused)
{
    for (const char *pszMembers :
         {R"("RequestPort":"-1")", R"("RequestPort":" -1")", R"("RequestPort":"-7COM")", R"("RequestTimeOut":"-1")",
          R"("RequestPort":"3","RequestTimeOut":"-30")", R"("RequestPort":"0","RequestTimeOut":"-2x")",
          R"("RequestPort":"-3","RequestTimeOut":"5")"}) {
        SCOPED_TRACE(pszMembers);
        EXPECT_EQ(call(std::string(R"({"FunctionCode":"0001",)") + pszMembers + "}"), -100);
        expectNothingDone();
    }
}

TEST_F(DeviceRequest, NoOtherNegativeNumberIsRefused)
{
    for (const char *pszMember :
         {R"("RequestBaudRate":"-1")", R"("RequestBaudRate":"-9600")", R"("RequestIP":"-1")", R"("Unknown":"-1")"}) {
        SCOPED_TRACE(pszMember);
        s_opened.clear();
        answer();
        EXPECT_EQ(call(std::string(R"({"FunctionCode":"0001","RequestPort":"4",)") + pszMember + "}"), 0);
        EXPECT_EQ(s_opened, std::vector<std::string>{"/dev/COM4"});
    }
}

// ---- port ---------------------------------------------------------------------------------------------------------

TEST_F(DeviceRequest, ThePortTextStandsBehindTheNameOfTheDevice)
{
    struct Row {
        const char *pszMember;
        const char *pszPath;
    };
    const Row rows[] = {{R"("RequestPort":"3")", "/dev/COM3"},       {R"("RequestPort":"00")", "/dev/COM00"},
                        {R"("RequestPort":"9701")", "/dev/COM9701"}, {R"("RequestPort":" 0")", "/dev/COM 0"},
                        {R"("RequestPort":"0 ")", "/dev/COM0 "},     {R"("RequestPort":"x-1")", "/dev/COMx-1"},
                        {R"("RequestPort":"HID")", "/dev/COMHID"},   {R"("RequestPort":"")", "/dev/COM"},
                        {R"("RequestPort":0)", "/dev/COM"},          {R"("RequestPort":-1)", "/dev/COM"},
                        {R"("RequestPort":3)", "/dev/COM"},          {R"("RequestPort":null)", "/dev/COM"},
                        {R"("RequestPort":["0"])", "/dev/COM"},      {R"("Unknown":"0")", "/dev/COM"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszMember);
        s_opened.clear();
        answer();
        EXPECT_EQ(call(std::string(R"({"FunctionCode":"0001",)") + row.pszMember + "}"), 0);
        EXPECT_EQ(s_opened, std::vector<std::string>{row.pszPath});
        EXPECT_STREQ(g_sParam.stParam.szTermPath, row.pszPath);
        EXPECT_EQ(g_sParam.stParam.nType, 1U);
        EXPECT_EQ(g_sParam.stParam.nTermType, 1U);
        EXPECT_EQ(g_sParam.stParam.nBaud, 0U);
        EXPECT_EQ(g_sParam.stParam.nTimeOut, 3);
        EXPECT_EQ(g_useBpBox, 0);
        EXPECT_EQ(g_AuxFd, -2);
    }
}

TEST_F(DeviceRequest, PortZeroIsUsb)
{
    EXPECT_EQ(call(R"({"FunctionCode":"0001","RequestPort":"0"})"), -1); // no such reader here
    EXPECT_EQ(g_sParam.stParam.nType, 7U);
    EXPECT_EQ(g_sParam.stParam.nTermType, 1U);
    EXPECT_EQ(g_nPowerOnTimeout, 0U);
    EXPECT_EQ(g_bIcBaundFlag, 0);
    EXPECT_TRUE(s_opened.empty());
    EXPECT_TRUE(untouched());
}

TEST_F(DeviceRequest, AFailedOpenWritesNothing)
{
    s_sDevice.clear();
    EXPECT_EQ(call(R"({"FunctionCode":"0001","RequestPort":"9799","RequestTimeOut":"5"})"), -1);
    EXPECT_EQ(s_opened, std::vector<std::string>{"/dev/COM9799"});
    EXPECT_TRUE(untouched());
    EXPECT_EQ(stBackUpParam.pfnEndCondition, nullptr);
    // Set before the open.
    EXPECT_EQ(g_nPowerOnTimeout, 5U);
    EXPECT_EQ(g_bIcBaundFlag, 0);
}

TEST_F(DeviceRequest, OverlongValuesAreBounded)
{
    for (size_t nLen : {255U, 256U, 300U, 5000U}) {
        SCOPED_TRACE(nLen);
        const std::string sLong(nLen, 'x');
        s_opened.clear();
        s_sDevice.clear();
        EXPECT_EQ(call(R"({"FunctionCode":"0001","RequestPort":")" + sLong + "\"}"), -1);
        ASSERT_EQ(s_opened.size(), 1U);
        EXPECT_TRUE(s_opened[0].starts_with("/dev/COMxxxxxxxx"));
        EXPECT_LE(s_opened[0].size(), 256U);
        EXPECT_TRUE(untouched());
        // As long as they may be elsewhere.
        s_sDevice = m_peer->path();
        answer();
        EXPECT_EQ(call(R"({"FunctionCode":"0001)" + sLong + R"(","RequestPort":"3","RequestIP":")" + sLong +
                       R"(","RequestBaudRate":"9600)" + sLong + R"(","RequestTimeOut":"12)" + sLong + "\"}"),
                  0);
        EXPECT_EQ(g_sParam.stParam.nBaud, 9600U);
        EXPECT_EQ(g_nPowerOnTimeout, 12U);
    }
}

// ---- the other members --------------------------------------------------------------------------------------------

TEST_F(DeviceRequest, TheBaudRateIsDecimalText)
{
    struct Row {
        const char *pszMember;
        uint32_t nBaud;
    };
    const Row rows[] = {{R"("RequestBaudRate":"9600")", 9600},
                        {R"("RequestBaudRate":"38400")", 38400},
                        {R"("RequestBaudRate":"115200 bps")", 115200},
                        {R"("RequestBaudRate":"fast")", 0},
                        {R"("RequestBaudRate":"")", 0},
                        {R"("RequestBaudRate":9600)", 0}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszMember);
        // With the raise flag on, the link would be opened at 9600 first.
        g_bIcBaundFlag = 1;
        s_opened.clear();
        answer();
        EXPECT_EQ(call(std::string(R"({"FunctionCode":"0001","RequestPort":"4",)") + row.pszMember + "}"), 0);
        EXPECT_EQ(g_sParam.stParam.nBaud, row.nBaud);
        EXPECT_EQ(s_opened.size(), 1U);
        EXPECT_EQ(g_bIcBaundFlag, 0);
        EXPECT_EQ(m_peer->wire().substr(0, 35), pszQuestion);
    }
}

TEST_F(DeviceRequest, ThePowerUpTimeOutIsDecimalText)
{
    const std::pair<const char *, uint32_t> rows[] = {
        {R"("RequestTimeOut":"30")", 30}, {R"("RequestTimeOut":" 5 s")", 5}, {R"("RequestTimeOut":"x")", 0},
        {R"("RequestTimeOut":"")", 0},    {R"("RequestTimeOut":30)", 0},     {R"("RequestTimeOut":-30)", 0},
        {R"("Unknown":"1")", 0}};
    for (auto [pszMember, nSeconds] : rows) {
        SCOPED_TRACE(pszMember);
        g_nPowerOnTimeout = 7777;
        answer();
        EXPECT_EQ(call(std::string(R"({"FunctionCode":"0001","RequestPort":"4",)") + pszMember + "}"), 0);
        EXPECT_EQ(g_nPowerOnTimeout, nSeconds);
    }
}

TEST_F(DeviceRequest, ThePowerUpTimeOutStaysWherePowerUpIsOff)
{
    g_stCallBackFunc.nPowerUp = 0;
    answer();
    EXPECT_EQ(call(R"({"FunctionCode":"0001","RequestPort":"4","RequestTimeOut":"30"})"), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 7777U);
    g_stCallBackFunc.nPowerUp = 1;
    // The other switches do not matter: it opens and closes all the same.
    g_stCallBackFunc = {0, 0, 1, 0, 0};
    answer();
    EXPECT_EQ(call(R"({"FunctionCode":"0001","RequestPort":"4","RequestTimeOut":"30"})"), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 30U);
    EXPECT_EQ(s_opened.size(), 2U);
    g_stCallBackFunc = {1, 1, 1, 1, 1};
}

TEST_F(DeviceRequest, TheAddressIsIgnored)
{
    for (const char *pszValue : {R"("10.0.0.1")", R"("-1")", R"("")", "-1", "null", "{}"}) {
        SCOPED_TRACE(pszValue);
        s_opened.clear();
        answer();
        EXPECT_EQ(call(std::string(R"({"FunctionCode":"0001","RequestPort":"4","RequestIP":)") + pszValue + "}"), 0);
        EXPECT_EQ(s_opened, std::vector<std::string>{"/dev/COM4"});
    }
}

TEST_F(DeviceRequest, WhatIsReservedIsNotReadOrWritten)
{
    answer();
    EXPECT_EQ(DEV_CommCall(R"({"FunctionCode":"0001","RequestPort":"4"})", reinterpret_cast<const void *>(1),
                           m_out.data(), &m_nOut),
              0);
}

// ---- log file -----------------------------------------------------------------------------------------------------

TEST_F(DeviceRequest, EveryCallChoosesTheLogFileOfTheDay)
{
    const std::string sLogs = libraryDirectory() + "/log/";
    std::filesystem::create_directories(sLogs);
    auto callChooses = [&](const char *pszRequest) {
        writeFile(sLogs + "QV_20000101.log", "old");
        QV_DPritLogSetFileName("/nowhere/at-all.log");
        DEV_CommCall(pszRequest, nullptr, nullptr, nullptr);
        EXPECT_STREQ(getLogFilePath(), pGetLogPath());
        EXPECT_EQ(std::string(getLogFilePath()).substr(0, sLogs.size() + 3), sLogs + "QV_");
        EXPECT_FALSE(std::filesystem::exists(sLogs + "QV_20000101.log"));
    };
    callChooses(nullptr);
    callChooses(R"({"FunctionCode":"0002"})");
    callChooses(R"({"FunctionCode":"0001"})");
    expectNothingDone();
}

TEST_F(DeviceRequest, ARefusedCallIsLoggedFromItsStart)
{
    logOn();
    std::filesystem::remove(pGetLogPath());
    EXPECT_EQ(call(R"({"FunctionCode":"0002"})"), -1);
    writeFile(libraryDirectory() + "/test.log", readFile(pGetLogPath()));
    EXPECT_TRUE(logged({"initDriver", "DEV_CommCall Start"}));
    EXPECT_EQ(rawLog().find("Dev_Rdz_Ic_OpenPort"), std::string::npos);
    EXPECT_EQ(rawLog().find("outJson = "), std::string::npos);
}

} // namespace
