// BER-TLV items of one level: nested look-ups, counting, and arrays of them.

#include "codec_buffers.h"
#include "sanitized.h"
#include "tlv_block.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/resource.h>

using namespace qvtest;
using namespace std::string_literals;

namespace {

constexpr uint32_t nUnset = 77;

using Texts = std::vector<std::string>;

// ---- inside templates --------------------------------------------------------------------------------------------------

constexpr char szFci[] = "00 6F 12 84 02 A0 00 FF A5 0B 50 01 56 BF 0C 05 9F 4D 02 0B 0A 5A 01 77";

TEST(TlvNested, LooksTheTagUpInTheTemplatesOfThePath)
{
    struct {
        const char *pszTag;
        const char *pszPath;
        const char *pszBuf;
        const char *pszValue;
    } const aRows[] = {
        {"\x5A", nullptr, szFci, "77"},
        {"\x5A", "", szFci, "77"},
        {"\x84", "\x6F", szFci, "A0 00"},
        {"\x50", "\x6F\xA5", szFci, "56"},
        {"\xBF\x0C", "\x6F\xA5", szFci, "9F 4D 02 0B 0A"},
        {"\xA5", "\x6F", szFci, "50 01 56 BF 0C 05 9F 4D 02 0B 0A"},
        {"\x5A", "\x70", "70 81 04 5A 02 12 34", "12 34"},
        {"\x5A", "\x70", "70 82 00 04 5A 02 12 34", "12 34"},
        {"\x5A", "\x70", "70 02 5A 00", ""},
        {"\x5A", "\x50", "50 03 5A 01 AA", "AA"}, // any tag makes a path
        {"\x5A", "\x70\x70\x70", "70 07 70 05 70 03 5A 01 AA", "AA"},
        {"\x5A", "\x70", "70 03 5A 01 AA 5F 20 80", "AA"}, // in front of a malformed item
    };
    for (const auto &row : aRows) {
        const Block buf(row.pszBuf);
        Out out(32);
        uint32_t nLen = nUnset;
        EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt(row.pszTag, row.pszPath, buf.data(), buf.size(), out.bytes(), &nLen), 0)
            << row.pszBuf;
        ASSERT_EQ(nLen, bytes(row.pszValue).size()) << row.pszBuf;
        EXPECT_EQ(out.first(nLen), row.pszValue) << row.pszBuf;
    }
}

TEST(TlvNested, FailsWhereAStepFailsOrARangeIsEmpty)
{
    struct {
        const char *pszTag;
        const char *pszPath;
        const char *pszBuf;
    } const aRows[] = {
        {"\x9F\x4D", "\x6F\xA5", szFci}, // one level deeper
        {"\x5A", "\x6F", szFci},         // beside the template
        {"\x84", nullptr, szFci},
        {"\x84", "\x70", szFci},
        {"\x50", "\xA5", szFci},
        {"\x50", "\xA5\x6F", szFci},
        {"\x50", "\x6F\xA5\xA5", szFci},
        {"\x4D", "\x9F", "9F 26 03 4D 01 AA"}, // tags of a path have one byte
        {"\x5A", "\x70", "70 00 5A 01 AA"},    // an empty range
        {"\x5A", "\x70", "70 81 00 5A 01 AA"}, //
        {"\x5A", "\x70\x71", "70 00 71 03 5A 01 AA"},
        {"\x5A", "\x70\x71", "70 81 00 71 03 5A 01 AA"},
        {"\x5A", "\x70", "70 02 00 FF 5A 01 AA"},
        {"\x5A", "\x70", "70 03 50 01 BB 70 03 5A 01 AA"}, // the first template alone
        {"\x5A", "\x70", "70 02 5A 01 AA"},                // cut off by the template's end
        {"\x5A", "\x70", "70 05 5F 20 80 5A 00"},
        {"\x5A", "\x70", "5F 20 80 70 03 5A 01 AA"},
        {"\x5A", "\x70", "70 04 5A 01 AA"},
    };
    for (const auto &row : aRows) {
        const Block buf(row.pszBuf);
        Out out(32);
        uint32_t nLen = nUnset;
        EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt(row.pszTag, row.pszPath, buf.data(), buf.size(), out.bytes(), &nLen), -1)
            << row.pszBuf;
        EXPECT_TRUE(out.untouched()) << row.pszBuf;
        EXPECT_EQ(nLen, nUnset) << row.pszBuf;
    }
    const Block buf("70 03 5A 01 AA");
    Out out(8);
    uint32_t nLen = nUnset;
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt(nullptr, "\x70", buf.data(), 5, out.bytes(), &nLen), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt("\x5A", "\x70", nullptr, 5, out.bytes(), &nLen), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt("\x5A", "\x70", buf.data(), 0, out.bytes(), &nLen), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt("\x5A", "\x70", buf.data(), -1, out.bytes(), &nLen), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt("\x5A", "\x70", buf.data(), 5, nullptr, &nLen), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTagandTmplt("\x5A", "\x70", buf.data(), 5, out.bytes(), nullptr), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nLen, nUnset);
}

// ---- counting and unpacking --------------------------------------------------------------------------------------------

struct ItemsRow {
    const char *pszBuf;
    Texts items; // tag, value; "null" for a null value
};

const ItemsRow aItems[] = {
    {"5A 02 12 34", {"5A=12 34"}},
    {"", {}},
    {"00 FF FF 00", {}},
    {"5A 00", {"5A=null"}},
    {"5A 81 00 50 00", {"5A=", "50=null"}},
    {"5A 00 50 01 AA 9F 26 02 12 34", {"5A=null", "50=AA", "9F 26=12 34"}},
    {"00 5A 01 AA FF 00 5A 01 BB 00", {"5A=AA", "5A=BB"}},
    {"70 04 5A 02 12 34 50 01 AA", {"70=5A 02 12 34", "50=AA"}},
    {"5A 81 01 AA 5A 82 00 01 BB 5A 83 00 00 01 CC", {"5A=AA", "5A=BB", "5A=CC"}},
    {"DF 81 01 AA", {"DF 81=AA"}},
};

const char *const aMalformed[] = {"5F 20 80 00",
                                  "5A 03 12 34",
                                  "5A",
                                  "9F",
                                  "9F 26",
                                  "5A 81",
                                  "5A 82 00",
                                  "5A 83 00 00",
                                  "5A 01 AA 50 02 BB",
                                  "5A 01 AA 00 50",
                                  "5A FF 00",
                                  "5A 84 00 00 00 01 AA",
                                  "70 05 5A 02 12 34"};

std::string shown(const TlvItem &item)
{
    return hex(item.pTag, static_cast<size_t>(item.nTagLen)) + "=" +
           (item.pValue == nullptr ? "null" : hex(item.pValue, item.nValueLen));
}

TEST(TlvArrays, CountIsTheNumberOfItemsOfTheLevel)
{
    for (const ItemsRow &row : aItems) {
        const Block buf(row.pszBuf);
        int32_t nCount = -7;
        EXPECT_EQ(Ex_TLV_Count(buf.data(), buf.size(), &nCount), 0) << row.pszBuf;
        EXPECT_EQ(nCount, static_cast<int32_t>(row.items.size())) << row.pszBuf;
    }
    for (const char *pszBuf : aMalformed) {
        const Block buf(pszBuf);
        int32_t nCount = -7;
        EXPECT_EQ(Ex_TLV_Count(buf.data(), buf.size(), &nCount), -1) << pszBuf;
        EXPECT_EQ(nCount, -7) << pszBuf;
    }
    const Block buf("5A 01 AA");
    int32_t nCount = -7;
    EXPECT_EQ(Ex_TLV_Count(nullptr, 3, &nCount), -1);
    EXPECT_EQ(Ex_TLV_Count(buf.data(), 3, nullptr), -1);
    EXPECT_EQ(nCount, -7);
    EXPECT_EQ(Ex_TLV_Count(buf.data(), -1, &nCount), 0);
    EXPECT_EQ(nCount, 0);
}

TEST(TlvArrays, UnpackGivesTheItemsAsAnArrayThatIsReleasedWithFree)
{
    for (const ItemsRow &row : aItems) {
        const Block buf(row.pszBuf);
        TlvItem *pItems = nullptr;
        int32_t nCount = -7;
        ASSERT_EQ(Tlv_Unpack_Data(&pItems, buf.data(), buf.size(), &nCount), 0) << row.pszBuf;
        ASSERT_EQ(nCount, static_cast<int32_t>(row.items.size())) << row.pszBuf;
        EXPECT_NE(pItems, nullptr) << row.pszBuf;
        for (size_t i = 0; i < row.items.size(); ++i) {
            EXPECT_EQ(shown(pItems[i]), row.items[i]) << row.pszBuf;
            EXPECT_GE(buf.offsetOf(pItems[i].pTag), 0) << "a copy";
            EXPECT_GE(buf.offsetOf(pItems[i].pValue), -1) << "a copy";
            EXPECT_TRUE(pItems[i].pValue != nullptr || pItems[i].nValueLen == 0) << row.pszBuf;
        }
        std::free(pItems);
    }
}

TEST(TlvArrays, UnpackOfAMalformedBufferGivesANullArray)
{
    const Block good("5A 01 AA");
    TlvItem other{};
    int32_t nCount = -7;
    for (const char *pszBuf : aMalformed) {
        const Block buf(pszBuf);
        TlvItem *pItems = &other;
        EXPECT_EQ(Tlv_Unpack_Data(&pItems, buf.data(), buf.size(), &nCount), -1) << pszBuf;
        EXPECT_EQ(pItems, nullptr) << pszBuf;
        EXPECT_EQ(nCount, -7) << pszBuf;
    }
    TlvItem *pItems = &other;
    EXPECT_EQ(Tlv_Unpack_Data(&pItems, nullptr, 3, &nCount), -1);
    EXPECT_EQ(pItems, nullptr);
    pItems = &other;
    EXPECT_EQ(Tlv_Unpack_Data(&pItems, good.data(), 3, nullptr), -1);
    EXPECT_EQ(pItems, nullptr);
    EXPECT_EQ(Tlv_Unpack_Data(nullptr, good.data(), 3, &nCount), -1);
    EXPECT_EQ(nCount, -7);
}

TEST(TlvArrays, UnpackLogsTheCountAndItsResult)
{
    const Block good("5A 01 AA 50 00"), cut("5A 01 AA 5F 20 80"), bad("5F 20 80");
    TlvItem *pItems = nullptr;
    int32_t nCount = 0;
    logOn();
    EXPECT_EQ(Tlv_Unpack_Data(&pItems, good.data(), good.size(), &nCount), 0);
    std::free(pItems);
    EXPECT_NE(rawLog().find("  INFO:    AppIc    Tlv_Unpack_Data nCount 2  nRet 0\n \r\n"), std::string::npos)
        << rawLog();
    logOn();
    EXPECT_EQ(Tlv_Unpack_Data(&pItems, cut.data(), cut.size(), &nCount), -1);
    EXPECT_NE(rawLog().find("  INFO:    AppIc    Tlv_Unpack_Data nCount 0  nRet -1\n \r\n"), std::string::npos)
        << rawLog();

    // Nothing else does, whatever fails.
    logOn();
    uint8_t aOut[8];
    uint32_t nLen = 0;
    int32_t nLength = 0;
    EXPECT_EQ(Ex_TLV_Count(bad.data(), bad.size(), &nCount), -1);
    EXPECT_EQ(Ex_TLV_GetDataByTag("\x5A", bad.data(), bad.size(), aOut, &nLen), -1);
    EXPECT_EQ(Tlv_Pack_Data(aOut, "", aOut, 1, &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value(aOut, 1, bad.data(), bad.size(), aOut, &nLength), -1);
    EXPECT_EQ(logTexts(), Texts{});
    logOff();
}

TEST(TlvArrays, UnpackWithoutMemoryFails)
{
    if constexpr (bSanitized)
        GTEST_SKIP() << "a sanitizer's allocator needs more room than it may then take";
    Bytes data(4'000'000);
    for (size_t i = 0; i < data.size(); i += 2)
        data[i] = 0x5A;
    long nPages = 0;
    std::ifstream("/proc/self/statm") >> nPages;
    ASSERT_GT(nPages, 0);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    rlimit tight = before;
    tight.rlim_cur = static_cast<rlim_t>(nPages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (16U << 20);
    TlvItem other{}, *pItems = &other;
    int32_t nCount = -7;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    const int32_t nRet = Tlv_Unpack_Data(&pItems, data.data(), static_cast<int32_t>(data.size()), &nCount);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(nRet, -1);
    EXPECT_EQ(pItems, nullptr);
    EXPECT_EQ(nCount, -7);
}

// ---- looking a tag up in an array ------------------------------------------------------------------------------------------

class TlvArray : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(Tlv_Unpack_Data(&m_pItems, m_buf.data(), m_buf.size(), &m_nCount), 0); }
    void TearDown() override { std::free(m_pItems); }

    const Block m_buf{"5A 02 12 34 9F 26 01 AA 57 00 5A 01 BB 82 81 00 9F 27 01 CC 5A 00"};
    TlvItem *m_pItems = nullptr;
    int32_t m_nCount = 0;
};

TEST_F(TlvArray, GivesTheValueOfTheFirstItemOfThatTagAndItsPlace)
{
    struct {
        std::string sTag;
        const char *pszValue; // null: absent
        int32_t nIndex;
        int32_t nTimes;
    } const aRows[] = {
        {"\x5A", "12 34", 0, 3},
        {"\x9F\x26", "AA", 1, 1},
        {"\x57", "", 2, 1},
        {"\x82", "", 4, 1},
        {"\x9F\x27", "CC", 5, 1},
        {"\x9F", nullptr, -7, 0},
        {"\x50", nullptr, -7, 0},
        {"", nullptr, -7, 0},
        {"\x26", nullptr, -7, 0},
        {"\x5A\x02", nullptr, -7, 0},
        {"\x9F\x26\x01", nullptr, -7, 0},
    };
    for (const auto &row : aRows) {
        const Block tag(ended(row.sTag));
        for (auto *pfn : {Ex_TLV_GetDataFromTlv, TLV_GetDataFromTlv}) {
            Out out(8);
            uint32_t nLen = nUnset;
            int32_t nIndex = -7;
            EXPECT_EQ(pfn(m_pItems, m_nCount, tag.text(), out.bytes(), &nLen, &nIndex),
                      row.pszValue == nullptr ? -1 : 0)
                << row.sTag;
            EXPECT_EQ(out.first(row.pszValue == nullptr ? 0 : bytes(row.pszValue).size()),
                      row.pszValue == nullptr ? "" : row.pszValue)
                << row.sTag;
            EXPECT_EQ(nLen, row.pszValue == nullptr ? nUnset : bytes(row.pszValue).size()) << row.sTag;
            EXPECT_EQ(nIndex, row.nIndex) << row.sTag;
        }
        for (auto *pfn : {Ex_TLV_IsDuplicates, TLV_IsDuplicates})
            EXPECT_EQ(pfn(m_pItems, m_nCount, tag.text()), row.nTimes) << row.sTag;
    }
}

TEST_F(TlvArray, IsLookedAtAsFarAsTheCountSays)
{
    Out out(8);
    uint32_t nLen = nUnset;
    int32_t nIndex = -7;
    for (int32_t n : {5, 0, -1, INT_MIN}) {
        for (auto *pfn : {Ex_TLV_GetDataFromTlv, TLV_GetDataFromTlv})
            EXPECT_EQ(pfn(m_pItems, n, "\x9F\x27", out.bytes(), &nLen, &nIndex), -1) << n;
        for (auto *pfn : {Ex_TLV_IsDuplicates, TLV_IsDuplicates}) {
            EXPECT_EQ(pfn(m_pItems, n, "\x9F\x27"), 0) << n;
            EXPECT_EQ(pfn(m_pItems, n, "\x5A"), n == 5 ? 2 : 0) << n;
        }
    }
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nLen, nUnset);
    EXPECT_EQ(nIndex, -7);
}

TEST_F(TlvArray, RefusesNull)
{
    Out out(8);
    uint32_t nLen = nUnset;
    int32_t nIndex = -7;
    for (auto *pfn : {Ex_TLV_GetDataFromTlv, TLV_GetDataFromTlv}) {
        EXPECT_EQ(pfn(nullptr, 1, "\x5A", out.bytes(), &nLen, &nIndex), -1);
        EXPECT_EQ(pfn(nullptr, 0, "\x5A", out.bytes(), &nLen, &nIndex), -1);
        EXPECT_EQ(pfn(m_pItems, 1, nullptr, out.bytes(), &nLen, &nIndex), -1);
        EXPECT_EQ(pfn(m_pItems, 1, "\x5A", nullptr, &nLen, &nIndex), -1);
        EXPECT_EQ(pfn(m_pItems, 1, "\x5A", out.bytes(), nullptr, &nIndex), -1);
        EXPECT_EQ(pfn(m_pItems, 1, "\x5A", out.bytes(), &nLen, nullptr), -1);
    }
    for (auto *pfn : {Ex_TLV_IsDuplicates, TLV_IsDuplicates}) {
        EXPECT_EQ(pfn(nullptr, 1, "\x5A"), -1);
        EXPECT_EQ(pfn(nullptr, 0, "\x5A"), -1);
        EXPECT_EQ(pfn(m_pItems, 1, nullptr), -1);
    }
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nLen, nUnset);
    EXPECT_EQ(nIndex, -7);
}

} // namespace
