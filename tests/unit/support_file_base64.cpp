// The contents of a file as Base64 text: into a buffer of any size, and into one with a size.

#include "codec_buffers.h"
#include "support_files.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <unistd.h>

using namespace qvtest;

namespace {

const std::string g_sTen = "0123456789", g_sTenText = "MDEyMzQ1Njc4OQ==";
const std::string g_sNul(1, '\0');

TEST_F(Files, BecomeTextThatEndsInANul)
{
    const struct {
        const char *pszData, *pszText;
    } aCases[] = {
        {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"0123456789", g_sTenText.c_str()}};
    for (const auto &row : aCases) {
        Out text(64);
        EXPECT_EQ(GetBase64DataEx(made("data", row.pszData).c_str(), text.text()), 0);
        EXPECT_EQ(text.firstText(std::string(row.pszText).size() + 1), row.pszText + g_sNul);
    }
}

TEST_F(Files, OfManyBytesBecomeTheTextThatDecodesToThem)
{
    const Bytes data = randomBytes(100001, 5);
    const std::string sPath = made("data", {reinterpret_cast<const char *>(data.data()), data.size()});
    const uint32_t nText = (100001 + 2) / 3 * 4;
    Out text(nText + 1), sized(nText);
    EXPECT_EQ(GetBase64DataEx(sPath.c_str(), text.text()), 0);
    uint32_t nLen = nText;
    EXPECT_EQ(GetBase64FromFile(sPath.c_str(), sized.text(), &nLen), 0);
    EXPECT_EQ(nLen, nText);
    EXPECT_EQ(sized.firstText(nText) + g_sNul, text.firstText(nText + 1));
    Bytes back(data.size() + 3);
    EXPECT_EQ(Base64_DecData(text.text(), nText, back.data(), static_cast<uint32_t>(data.size())), 100001);
    back.resize(data.size());
    EXPECT_EQ(back, data);
}

TEST_F(Files, ThatGiveNoTextLeaveTheBufferAlone)
{
    Out text(16);
    EXPECT_EQ(GetBase64DataEx(made("empty", "").c_str(), text.text()), -1);
    EXPECT_EQ(GetBase64DataEx(path("absent").c_str(), text.text()), -2);
    EXPECT_EQ(GetBase64DataEx(nullptr, text.text()), -2);
    EXPECT_EQ(GetBase64DataEx(made("data", "x").c_str(), nullptr), -2);
    EXPECT_EQ(GetBase64DataEx(path("absent").c_str(), nullptr), -2);
    EXPECT_EQ(GetBase64DataEx(path("empty").c_str(), nullptr), -2);
    const std::string sSparse = made("sparse", "");
    for (const int64_t nSize : {int64_t{1610612734}, int64_t{5} << 30}) { // the text of the first has 2^31 characters
        ASSERT_EQ(truncate(sSparse.c_str(), nSize), 0);
        EXPECT_EQ(GetBase64DataEx(sSparse.c_str(), text.text()), -1);
    }
    EXPECT_TRUE(text.untouched());
}

TEST_F(Files, NeedRoomForTheTextOnly)
{
    const std::string sPath = made("ten", g_sTen);
    uint32_t nLen = 15;
    Out small(15);
    EXPECT_EQ(GetBase64FromFile(sPath.c_str(), small.text(), &nLen), -2);
    EXPECT_EQ(nLen, 16U);
    EXPECT_TRUE(small.untouched());
    Out full(16);
    EXPECT_EQ(GetBase64FromFile(sPath.c_str(), full.text(), &nLen), 0);
    EXPECT_EQ(nLen, 16U);
    EXPECT_EQ(full.firstText(16), g_sTenText) << "no room for a NUL, none written";
    nLen = 5000;
    EXPECT_EQ(GetBase64FromFile(sPath.c_str(), nullptr, &nLen), -2);
    EXPECT_EQ(nLen, 16U);
}

TEST_F(Files, ClearTheRestOfARoomierBuffer)
{
    Out text(40);
    uint32_t nLen = 24;
    EXPECT_EQ(GetBase64FromFile(made("ten", g_sTen).c_str(), text.text(), &nLen), 0);
    EXPECT_EQ(nLen, 16U);
    EXPECT_EQ(text.firstText(24), g_sTenText + std::string(8, '\0'));
}

TEST_F(Files, ThatAreEmptyClearTheBufferAndFail)
{
    Out text(16);
    uint32_t nLen = 8;
    EXPECT_EQ(GetBase64FromFile(made("empty", "").c_str(), text.text(), &nLen), -2);
    EXPECT_EQ(text.firstText(8), std::string(8, '\0'));
    EXPECT_EQ(nLen, 8U);
    EXPECT_EQ(GetBase64FromFile(path("empty").c_str(), nullptr, &nLen), -2);
    EXPECT_EQ(nLen, 0U);
}

// What the kernel tells of the processors has the size of a page, however short it is.
TEST_F(Files, ThatHoldLessThanTheirSizeBecomeTheirBytesAndZeros)
{
    const std::string sPath = "/sys/devices/system/cpu/online", sHeld = exists(sPath) ? readFile(sPath) : "";
    if (sHeld.empty() || get_file_size(sPath.c_str()) <= static_cast<int64_t>(sHeld.size()))
        GTEST_SKIP() << sPath << " is not there, or not longer than what it holds";
    const auto nSize = static_cast<size_t>(get_file_size(sPath.c_str()));
    const auto nText = static_cast<uint32_t>((nSize + 2) / 3 * 4);
    Bytes padded(sHeld.begin(), sHeld.end());
    padded.resize(nSize);
    std::string sExpected(nText, ' ');
    ASSERT_EQ(
        Base64_EncData(padded.data(), static_cast<uint32_t>(nSize), sExpected.data(), static_cast<int32_t>(nText)),
        static_cast<int32_t>(nText));
    Out text(nText + 1), sized(nText);
    EXPECT_EQ(GetBase64DataEx(sPath.c_str(), text.text()), 0);
    EXPECT_EQ(text.firstText(nText + 1), sExpected + g_sNul);
    uint32_t nLen = nText;
    EXPECT_EQ(GetBase64FromFile(sPath.c_str(), sized.text(), &nLen), 0);
    EXPECT_EQ(nLen, nText);
    EXPECT_EQ(sized.firstText(nText), sExpected);
}

TEST_F(Files, ThatAreAbsentLeaveTextAndLengthAlone)
{
    Out text(16);
    uint32_t nLen = 16;
    EXPECT_EQ(GetBase64FromFile(path("absent").c_str(), text.text(), &nLen), -1);
    EXPECT_EQ(GetBase64FromFile(nullptr, text.text(), &nLen), -1);
    EXPECT_EQ(nLen, 16U);
    EXPECT_EQ(GetBase64FromFile(made("ten", g_sTen).c_str(), text.text(), nullptr), -1);
    EXPECT_TRUE(text.untouched());
}

TEST_F(Files, ThatNeedMoreThanALengthCanTellSaySo)
{
    const std::string sPath = made("sparse", "");
    for (const int64_t nSize : {int64_t{5} << 30, int64_t{1} << 32, (int64_t{1} << 32) - 1}) {
        ASSERT_EQ(truncate(sPath.c_str(), nSize), 0);
        Out text(16);
        for (uint32_t nGiven : {16U, UINT32_MAX}) {
            uint32_t nLen = nGiven;
            EXPECT_EQ(GetBase64FromFile(sPath.c_str(), text.text(), &nLen), -2);
            EXPECT_EQ(nLen, UINT32_MAX);
        }
        EXPECT_TRUE(text.untouched());
    }
    ASSERT_EQ(truncate(sPath.c_str(), 3000000000), 0);
    uint32_t nLen = 16;
    EXPECT_EQ(GetBase64FromFile(sPath.c_str(), nullptr, &nLen), -2);
    EXPECT_EQ(nLen, 4000000000U);
}

} // namespace
