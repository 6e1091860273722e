// devcall_record.h - a device record as the reader sends it, the JSON answer to it, and a fixture whose call gets it.
#pragma once

#include "devcall.h"

#include <algorithm>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace qvtest {

// A request that is granted.
inline constexpr const char *pszRequest = R"({"FunctionCode":"0001","RequestPort":"9701","RequestBaudRate":"9600"})";

inline std::string padded(std::string sText, size_t nLen = 32)
{
    sText.resize(std::max(sText.size(), nLen), ' ');
    return sText;
}

struct Record {
    std::string sModel = padded("QV-100");
    std::string sSerial = padded("SN00012345");
    std::string sDate = "15 03 24 20"; // day, month, year low, year high
    std::string sVersion = "04 03 02 01";
    std::string sUnused = "DE AD BE EF";
    std::string sVersion2 = "08 07 06 05";
    std::string sMac = "01 23 45 67 89 AB";

    std::string body() const
    {
        return hex(textBytes(sModel)) + " " + hex(textBytes(sSerial)) + " " + sDate + " " + sVersion + " " + sUnused +
               " " + sVersion2 + " " + sMac;
    }
    // Its first nLen bytes only.
    std::string cutFrame(size_t nLen) const
    {
        const Bytes whole = bytes(body());
        return replyFrame(0, hex(std::span(whole).first(nLen)), 0x01, 0x04);
    }
    std::string frame() const { return replyFrame(0, body(), 0x01, 0x04); }
};

inline std::string answerText(std::string_view sVersion, std::string_view sDate, std::string_view sSerial,
                              std::string_view sModel)
{
    std::string s = R"({"ErrorCode":"0", "ErrorMessage":"success", "DeviceBrand":"QORV", "DllVersion":"1.0.0.4",)";
    s.append(R"("DeviceVersion":")").append(sVersion).append(R"(","ProductionDate":")").append(sDate);
    s.append(R"(","DeviceSN":")").append(sSerial).append(R"(","DeviceModel":")").append(sModel).append("\"}");
    return s;
}

class AnsweredCall : public DeviceCall {
  protected:
    int32_t call() { return callWith(pszRequest, ""); }
    // The answer's text; its length, its NUL and what stands behind it are looked at as well.
    std::string text() const
    {
        size_t nEnd = m_out.find('\0');
        if (nEnd == std::string::npos)
            return "(no NUL)";
        EXPECT_EQ(m_nOut, nEnd);
        EXPECT_EQ(m_out.find_first_not_of('#', nEnd + 1), std::string::npos);
        return m_out.substr(0, nEnd);
    }
    // One successful conversation with this reply.
    std::string answerTo(const std::string &sReply)
    {
        m_peer->expect(pszQuestion).reply(sReply);
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(stBackUpParam.pfnEndCondition, &DefaultEndCondition);
        m_peer->finish();
        return text();
    }
    std::string answerTo(const Record &record) { return answerTo(record.frame()); }
    // The call's lines went to the log of the day.
    static void takeLog() { writeFile(libraryDirectory() + "/test.log", readFile(pGetLogPath())); }
    static void freshLog()
    {
        logOn();
        std::filesystem::remove(pGetLogPath());
    }
};

} // namespace qvtest
