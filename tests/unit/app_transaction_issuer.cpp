// The issuer's answer in a completion: what is written to the process record, and which data objects the kernel gets.

#include "app_transaction.h"

using namespace qvtest;

namespace {

using Issuer = CompletionTest;

// The record of the earlier steps with an issuer's answer.
Record answered(const Bytes &arpc)
{
    return Record(ucPattern)
        .u32(EMV_PROC_HAS_ONLINE, 1)
        .u32(EMV_PROC_ONLINE_RESULT, 0)
        .data(EMV_PROC_ISSUER_DATA, arpc)
        .u32(EMV_PROC_ISSUER_LEN, static_cast<int64_t>(arpc.size()))
        .data(EMV_PROC_ARC, {'0', '0'});
}

Record unanswered()
{
    return Record(ucPattern).u32(EMV_PROC_HAS_ONLINE, 1).u32(EMV_PROC_ONLINE_RESULT, -1);
}

std::string hexText(const Bytes &data)
{
    std::string s = hex(data);
    s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
    return s;
}

TEST_F(Issuer, WithoutAnAnswerTheOnlineResultIsMinusOneAndTheScriptResultIsStillRead)
{
    for (const char *psz : {"", static_cast<const char *>(nullptr)}) {
        beginSession();
        s_done = {};
        holds({0x20});
        s_pszArpc = psz;
        EXPECT_EQ(complete(), 0);
        EXPECT_EQ(takeCalls(), (Calls{szOpen, "EMV_Final(record)", "Pack_Data_Emv_Trance(1)",
                                      "Emv_GetData(DF31, cleared)", "Emv_QV_End(0)", "close()", "TY_ConvertErr(0)"}));
        EXPECT_EQ(seenAgainst(unanswered()), "");
        EXPECT_STREQ(s_done.szScript, "DF310520");
    }
}

TEST_F(Issuer, AnAnswerIsCopiedWholeAlsoWithoutTag91)
{
    for (const Bytes &arpc :
         {bytes("8A023030"), bytes("910411223344"), bytes("00"), bytes("FFFFFF"), Bytes(2048, 0x42)}) {
        beginSession();
        std::string sText = hexText(arpc);
        s_pszArpc = sText.c_str();
        EXPECT_EQ(complete(), 0);
        EXPECT_EQ(seenAgainst(answered(arpc)), "") << sText.substr(0, 20);
        EXPECT_TRUE(isBufferKept());
        EXPECT_EQ(icType(), 0xEE);
        s_pszArpc = "";
    }
}

TEST_F(Issuer, TheRecordHasTheResponseCodeButNotYetTheAnswerWhenObjectsAreStored)
{
    for (const char *pszArpc : {"8A023030", "910411223344"}) {
        beginSession();
        s_pszArpc = pszArpc;
        EXPECT_EQ(complete(), 0);
        EXPECT_EQ(Record(ucPattern).data(EMV_PROC_ARC, {'0', '0'}).differences(testKernel()->recordAtSave), "")
            << pszArpc;
    }
}

TEST_F(Issuer, LettersOfEitherCaseAreHexadecimal)
{
    s_pszArpc = "9101ef";
    EXPECT_EQ(complete(), 0);
    EXPECT_EQ(seenAgainst(answered(bytes("9101EF"))), "");
}

TEST_F(Issuer, AnOddLastCharacterIsDropped)
{
    s_pszArpc = "9101EEF";
    EXPECT_EQ(complete(), 0);
    EXPECT_EQ(seenAgainst(answered(bytes("9101EE"))), "");
    s_pszArpc = "9";
    fillShared();
    EXPECT_EQ(complete(), 0);
    EXPECT_EQ(seenAgainst(answered({})), "");
}

TEST_F(Issuer, AnAnswerOf2048BytesIsTheLongest)
{
    std::string sText(4096, 'E');
    for (size_t nLength : {4096U, 4097U}) {
        fillShared();
        sText.resize(nLength, 'F');
        s_pszArpc = sText.c_str();
        EXPECT_EQ(complete(), 0);
        EXPECT_EQ(seenAgainst(answered(Bytes(2048, 0xEE))), "") << nLength;
    }
    for (size_t nLength : {4098U, 10000U}) {
        beginSession();
        s_done = {};
        sText.assign(nLength, 'E');
        s_pszArpc = sText.c_str();
        EXPECT_EQ(complete(), -9002) << nLength;
        EXPECT_EQ(takeCalls(), Calls{"TY_ConvertErr(-2)"}) << nLength;
        EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
        EXPECT_STREQ(s_done.szScript, "untouched");
    }
    s_pszArpc = "";
}

// Where tag 91 stands, and what is stored; empty: nothing.
TEST_F(Issuer, OnlyAWellFormedTag91OfTheFirstLevelIsStored)
{
    struct {
        const char *pszArpc, *pszStored;
    } rows[] = {
        {"9101EE", "Emv_SaveData(91, EE, 1, 49)"},
        {"8A0230309102EEFF", "Emv_SaveData(91, EEFF, 2, 49)"},
        {"72059F180411229103ABCDEF", "Emv_SaveData(91, ABCDEF, 3, 49)"},
        {"7203860101910ACCCCCCCCCCCCCCCC0010", "Emv_SaveData(91, CCCCCCCCCCCCCCCC0010, 10, 49)"},
        {"00FF9101EE", "Emv_SaveData(91, EE, 1, 49)"},
        {"9F36020001"
         "9101EE",
         "Emv_SaveData(91, EE, 1, 49)"},
        {"9101EE9101AA", "Emv_SaveData(91, EE, 1, 49)"},
        {"918102EEFF", "Emv_SaveData(91, EEFF, 2, 49)"},
        {"9100", "Emv_SaveData(91, , 0, 49)"},
        {"71039101EE", ""},     // inside a template only
        {"8A0430309101EE", ""}, // inside another's value only
        {"9102EE", ""},         // cut off
        {"91", ""},             // no length
        {"9180EE", ""},         // a length form that there is not
        {"8A8030309101EE", ""}, // malformed before it
        {"9F9101EE", ""},       // 9F91 is another tag
        {"1234", ""},
    };
    for (const auto &row : rows) {
        beginSession();
        s_pszArpc = row.pszArpc;
        EXPECT_EQ(complete(), 0);
        Calls expected = {szOpen,
                          "Emv_SaveData(8A, 3030, 2, 49)",
                          "EMV_Final(record)",
                          "Pack_Data_Emv_Trance(1)",
                          "Emv_GetData(DF31, cleared)",
                          "Emv_QV_End(0)",
                          "close()",
                          "TY_ConvertErr(0)"};
        if (*row.pszStored != '\0')
            expected.insert(expected.begin() + 2, row.pszStored);
        EXPECT_EQ(takeCalls(), expected) << row.pszArpc;
        EXPECT_EQ(seenAgainst(answered(bytes(row.pszArpc))), "") << row.pszArpc;
    }
}

TEST_F(Issuer, TheLongestTag91IsStoredWhole)
{
    Bytes arpc = bytes("918207FC");
    arpc.resize(2048, 0x42);
    std::string sText = hexText(arpc);
    s_pszArpc = sText.c_str();
    EXPECT_EQ(complete(), 0);
    EXPECT_EQ(takeCalls().at(2), "Emv_SaveData(91, " + sText.substr(8) + ", 2044, 49)");
    s_pszArpc = "";
}

TEST_F(Issuer, OnlyTheFlagOneAsksForNoSecondCryptogram)
{
    for (uint32_t nFlag : {0U, 1U, 2U}) {
        for (const char *pszArpc : {"", "9101EE"}) {
            beginSession();
            QV_APP_SetNoGac2Flag(nFlag);
            s_pszArpc = pszArpc;
            EXPECT_EQ(complete(), 0);
            Record expected = *pszArpc == '\0' ? unanswered() : answered(bytes(pszArpc));
            if (nFlag == 1)
                expected.u32(EMV_PROC_NO_GAC2, 1);
            EXPECT_EQ(seenAgainst(expected), "") << nFlag << pszArpc;
        }
    }
}

TEST_F(Issuer, WithoutTransactionDataTheRecordIsLeft)
{
    pszEmvData = nullptr;
    QV_APP_SetNoGac2Flag(1);
    s_pszArpc = "9101EE";
    EXPECT_EQ(complete(), -9001);
    EXPECT_EQ(Record(ucPattern).differences(g_stProc), "");
}

} // namespace
