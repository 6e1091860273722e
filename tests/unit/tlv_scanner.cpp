// The BER-TLV search that enters templates: with a length, and over buffers that end by themselves.

#include "codec_buffers.h"
#include "tlv_block.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace qvtest;

namespace {

constexpr int32_t nUnset = 77;

// Where the tag is found; -1: nowhere.
long find(const char *pszTag, const Block &buf, int32_t nBufLen)
{
    const Block tag(pszTag);
    const uint8_t *pFound = quorvan_find_tag(tag.data(), tag.size(), buf.data(), nBufLen);
    return buf.offsetOf(pFound);
}

struct FindRow {
    const char *pszTag;
    const char *pszBuf;
    long nAt;
};

// ---- quorvan_find_tag with a length --------------------------------------------------------------------------------

TEST(TlvScanner, FindsATagOfAnyLengthByAllOfItsBytes)
{
    const FindRow aRows[] = {
        {"5A", "5A 02 12 34", 0},
        {"5A", "50 01 AA 5A 02 12 34", 3},
        {"5A", "50 00 5A 02 12 34", 2},
        {"5A", "5A 01 AA 5A 01 BB", 0}, // the first of two
        {"5B", "5A 02 12 34", -1},
        {"9F 26", "9F 26 01 AA", 0},
        {"9F 26", "9F 27 01 80 9F 26 01 AA", 4},
        {"5F 20", "9F 20 01 80 5F 20 01 AA", 4},
        {"9F 26", "9F 26", 0}, // what stands behind the tag does not count
        {"5A", "5A", 0},
        {"5A", "5A 05 12", 0},
        {"DF 81 01", "DF 81 01 01 AA", 0},
        {"DF 81 01", "DF 81 02 01 AA DF 81 01 01 BB", 5},
        {"DF 81 80 01", "DF 81 80 01 01 AA", 0},
        {"5A", "DF 81 80 01 01 AA 5A 01 BB", 6},
        {"9F 7F", "9F 7F 01 AA", 0}, // 7F ends a tag
        {"1F 00", "1F 00 01 AA", 0}, // and so does 00
        {"9F", "9F 26 01 AA", -1},   // only a part
        {"26", "9F 26 01 AA", -1},
        {"9F 26 01", "9F 26 01 AA", -1},
        {"DF 81", "DF 81 01 01 AA", -1},
        {"1E", "1E 01 AA", 0}, // four of the five bits
        {"1E", "0F 01 AA 1E 01 BB", 3},
    };
    for (const FindRow &row : aRows) {
        const Block buf(row.pszBuf);
        EXPECT_EQ(find(row.pszTag, buf, buf.size()), row.nAt) << row.pszTag << " in " << row.pszBuf;
    }
}

TEST(TlvScanner, EntersConstructedTagsAndStepsOverThePrimitiveOnes)
{
    const FindRow aRows[] = {
        {"5A", "70 04 5A 02 12 34", 2},
        {"70", "70 04 5A 02 12 34", 0},
        {"70", "70 00", 0},
        {"5A", "70 00 5A 01 AA", 2},
        {"5A", "70 03 50 01 AA 5A 01 BB", 5},    // behind the template
        {"5A", "70 81 03 5A 01 AA", 3},          // length forms of a template
        {"5A", "70 82 00 03 5A 01 AA", 4},       //
        {"5A", "70 83 5A 01 AA", 2},             // 83 is no form: one byte
        {"5A", "70 80 5A 01 AA", 2},             //
        {"5A", "70 7F 5A 01 AA", 2},             // more than there is
        {"5A", "20 03 5A 01 AA", 2},             // the bit alone makes a template
        {"5A", "50 03 5A 01 AA", -1},            // inside a value
        {"5A", "50 03 5A 01 AA 5A 01 BB", 5},    //
        {"5A", "5F 20 03 5A 01 AA", -1},         // the bit of the second byte does not count
        {"5A", "9F 26 03 5A 01 AA 5A 01 BB", 6}, //
        {"4F", "BF 0C 05 61 03 4F 01 AA", 5},    // a template with a tag of two bytes
        {"BF 0C", "6F 09 84 01 A0 A5 04 BF 0C 01 01", 7},
        {"9F 4D", "6F 12 84 02 A0 00 A5 0C 50 01 56 BF 0C 05 9F 4D 02 0B 0A", 14},
        {"5A", "7F 49 03 5A 01 AA", 3},
    };
    for (const FindRow &row : aRows) {
        const Block buf(row.pszBuf);
        EXPECT_EQ(find(row.pszTag, buf, buf.size()), row.nAt) << row.pszTag << " in " << row.pszBuf;
    }
}

TEST(TlvScanner, StepsOverAValueByTheOneByteThe81AndThe82Form)
{
    struct {
        const char *pszHead;
        size_t nBody;
    } const aRows[] = {
        {"50 7F", 0x7F},
        {"50 81 00", 0},
        {"50 81 01", 1},
        {"50 81 80", 0x80},
        {"50 81 FF", 0xFF},
        {"50 82 00 00", 0},
        {"50 82 00 01", 1},
        {"50 82 01 00", 0x100},
        {"50 82 01 02", 0x102},
        {"50 80", 0x80},
        {"50 83", 0x83},
        {"50 84", 0x84},
        {"50 FE", 0xFE},
        {"50 FF", 0xFF},
        {"50 82 FF FF", 0xFFFF},
        {"50 82 80 00", 0x8000},
        {"9F 26 81 80", 0x80},
        {"50 20", 0x20},
        {"DF 81 01 82 01 00", 0x100},
    };
    for (const auto &row : aRows) {
        const Block buf(withBody(row.pszHead, row.nBody, "5A 01 AA"));
        EXPECT_EQ(find("5A", buf, buf.size()), buf.size() - 3) << row.pszHead;
    }
}

TEST(TlvScanner, WithALengthFFEndsTheSearchAnd00IsATag)
{
    const FindRow aRows[] = {
        {"5A", "FF 5A 01 AA", -1},
        {"5A", "50 01 AA FF 5A 01 BB", -1},
        {"FF", "FF 01 AA", -1},
        {"5A", "50 01 FF 5A 01 BB", 3},     // as a value
        {"5A", "70 04 FF 5A 01 BB", -1},    // inside a template
        {"DF FF 01", "DF FF 01 01 AA", -1}, // inside a tag
        {"DF 81 FF 01", "DF 81 FF 01 01 AA", -1},
        {"5A", "DF 81 FF 01 5A 01 AA", -1},
        {"9F FF", "9F FF 01 AA", -1},
        {"5A", "9F FF 5A 01 AA", -1},
        {"00", "00 01 AA", 0},
        {"5A", "00 01 AA 5A 01 BB", 3},
        {"5A", "00 00 5A 01 BB", 2},
        {"5A", "50 00 00 01 AA 5A 01 BB", 5},
    };
    for (const FindRow &row : aRows) {
        const Block buf(row.pszBuf);
        EXPECT_EQ(find(row.pszTag, buf, buf.size()), row.nAt) << row.pszTag << " in " << row.pszBuf;
    }
}

TEST(TlvScanner, NothingBehindTheLengthIsReadOrFound)
{
    const char *const aCut[] = {"9F",       "DF 81",       "DF 81 80", "50",       "50 81",    "50 82",
                                "50 82 01", "50 82 FF FF", "50 05 AA", "70",       "70 81",    "70 82",
                                "70 82 01", "50 81 FF AA", "9F 27",    "9F 27 81", "50 01 AA", "70 00"};
    for (const char *pszBuf : aCut) {
        const Block buf(pszBuf);
        EXPECT_EQ(find("5A", buf, buf.size()), -1) << pszBuf;
        EXPECT_EQ(find("9F 26", buf, buf.size()), -1) << pszBuf;
    }
    const Block cutTag("DF 81 80");
    EXPECT_EQ(find("DF 81 80", cutTag, 3), -1) << "the tag goes on";
    const Block one("9F");
    EXPECT_EQ(find("9F", one, 1), -1);

    // Every prefix of a buffer finds the tags that it still holds.
    const Bytes whole = bytes("6F 18 84 02 A0 00 A5 12 50 01 56 BF 0C 0B 9F 4D 02 0B 0A DF 81 01 81 01 07 5A");
    struct {
        const char *pszTag;
        long nAt;
        size_t nTag;
    } const aTags[] = {{"6F", 0, 1},     {"84", 2, 1},     {"A5", 6, 1},        {"50", 8, 1},
                       {"BF 0C", 11, 2}, {"9F 4D", 14, 2}, {"DF 81 01", 19, 3}, {"5A", 25, 1}};
    for (size_t n = 1; n <= whole.size(); ++n) {
        const Block buf(Bytes(whole.begin(), whole.begin() + static_cast<long>(n)));
        for (const auto &tag : aTags)
            EXPECT_EQ(find(tag.pszTag, buf, buf.size()), n >= static_cast<size_t>(tag.nAt) + tag.nTag ? tag.nAt : -1)
                << tag.pszTag << " in " << n;
    }
    const Block longer("50 01 AA 5A 01 BB");
    EXPECT_EQ(find("5A", longer, 3), -1) << "it stands behind the length";
    EXPECT_EQ(find("5A", longer, 4), 3);
}

// ---- quorvan_find_tag without a length -------------------------------------------------------------------------------

TEST(TlvScanner, WithoutALengthATagHasTwoBytesAtMostAnd00OrFFEndsTheSearch)
{
    const FindRow aRows[] = {
        {"5A", "5A 01 AA 00", 0},
        {"5A", "50 01 AA 5A 01 BB 00", 3},
        {"9F 26", "50 01 AA 9F 26 01 BB FF", 3},
        {"5A", "70 04 5A 02 12 34 00", 2},
        {"5A", "00 5A 01 AA 00", -1},
        {"5A", "FF 5A 01 AA 00", -1},
        {"5A", "50 01 AA 00", -1},       // nothing behind the 00 can be read
        {"5A", "50 01 AA FF", -1},       // nor behind the FF
        {"5A", "00", -1},                //
        {"00", "00 01 AA", -1},          //
        {"FF", "FF 01 AA", -1},          //
        {"5A", "70 00 00 5A 01 AA", -1}, // inside a template
        {"5A", "50 03 00 FF 00 5A 01 AA 00", 5},
        {"DF 81", "DF 81 01 AA 00", 0},
        {"DF 81 01", "DF 81 01 AA 00", -1},
        {"5A", "DF 81 01 AA 5A 01 BB 00", 4},
        {"9F FF", "9F FF 01 AA 00", 0}, // any second byte
        {"9F 00", "9F 00 01 AA 00", 0},
        {"5A", "9F FF 01 AA 5A 01 BB 00", 4},
        {"5A", "50 81 01 AA 5A 01 BB 00", 4},
        {"5A", "50 82 00 01 AA 5A 01 BB 00", 5},
        {"5A", "70 81 03 5A 01 AA 00", 3},
        {"5A", "70 82 00 03 5A 01 AA 00", 4},
        {"5A", "BF 0C 03 5A 01 AA 00", 3},
    };
    for (const FindRow &row : aRows) {
        const Block buf(row.pszBuf);
        EXPECT_EQ(find(row.pszTag, buf, 0), row.nAt) << row.pszTag << " in " << row.pszBuf;
    }
    const Block plain83(withBody("50 83", 0x83, "5A 01 AA"));
    EXPECT_EQ(find("5A", plain83, 0), 2 + 0x83);
}

TEST(TlvScanner, FindTagRefusesNullNegativeLengthsAndATagOfNoBytes)
{
    const Block buf("5A 01 AA 00"), tag("5A");
    EXPECT_EQ(quorvan_find_tag(nullptr, 1, buf.data(), 4), nullptr);
    EXPECT_EQ(quorvan_find_tag(tag.data(), 1, nullptr, 4), nullptr);
    EXPECT_EQ(quorvan_find_tag(tag.data(), 1, nullptr, 0), nullptr);
    for (int32_t n : {-1, INT_MIN})
        EXPECT_EQ(quorvan_find_tag(tag.data(), 1, buf.data(), n), nullptr) << n;
    for (int32_t n : {0, -1, INT_MIN}) {
        EXPECT_EQ(quorvan_find_tag(tag.data(), n, buf.data(), 4), nullptr) << n;
        EXPECT_EQ(quorvan_find_tag(tag.data(), n, buf.data(), 0), nullptr) << n;
    }
}

// ---- quorvan_get_tag_value -----------------------------------------------------------------------------------------------

struct Value {
    int32_t nRet;
    int32_t nLen;
    std::string sOut;
    bool operator==(const Value &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Value &value)
{
    return out << value.nRet << ", " << value.nLen << ": " << value.sOut;
}

const Value absent{-1, nUnset, ""};

Value found(const std::string &sHex)
{
    return {0, static_cast<int32_t>(bytes(sHex).size()), sHex};
}

Value value(const char *pszTag, const Block &buf, int32_t nBufLen)
{
    const Block tag(pszTag);
    Out out(70000);
    int32_t nLen = nUnset;
    const int32_t nRet = quorvan_get_tag_value(tag.data(), tag.size(), buf.data(), nBufLen, out.bytes(), &nLen);
    return {nRet, nLen, out.first(nRet == 0 ? static_cast<size_t>(nLen) : 0)};
}

TEST(TlvScanner, ValueIsCopiedByItsLength)
{
    struct {
        const char *pszTag;
        const char *pszBuf;
        const char *pszValue;
    } const aRows[] = {
        {"5A", "5A 02 12 34", "12 34"},
        {"5A", "5A 00", ""},
        {"5A", "70 04 5A 02 12 34", "12 34"},
        {"70", "70 04 5A 02 12 34", "5A 02 12 34"},
        {"5A", "5A 01 AA 5A 01 BB", "AA"},
        {"9F 26", "9F 26 02 12 34", "12 34"},
        {"DF 81 01", "DF 81 01 02 AB CD", "AB CD"},
        {"5A", "5A 82 00 02 12 34", "12 34"},
        {"5A", "5A 82 00 00", ""},
        {"9F 26", "70 06 9F 26 82 00 01 77", "77"},
    };
    for (const auto &row : aRows) {
        const Block buf(row.pszBuf);
        EXPECT_EQ(value(row.pszTag, buf, buf.size()), found(row.pszValue)) << row.pszTag << " in " << row.pszBuf;
    }
    const Block unbounded("50 01 AA 5A 02 12 34 00");
    EXPECT_EQ(value("5A", unbounded, 0), found("12 34"));
}

TEST(TlvScanner, ValueLengthIsTheFirstByteExceptAfter81And82)
{
    struct {
        const char *pszHead;
        size_t nBody;
    } const aRows[] = {{"5A 7F", 0x7F},        {"5A 80", 0x80},        {"5A 83", 0x83},
                       {"5A 84", 0x84},        {"5A FE", 0xFE},        {"5A FF", 0xFF},
                       {"5A 82 01 00", 0x100}, {"5A 82 01 02", 0x102}, {"5A 82 FF FF", 0xFFFF}};
    for (const auto &row : aRows) {
        const Block buf(withBody(row.pszHead, row.nBody));
        EXPECT_EQ(value("5A", buf, buf.size()), found(bodyHex(row.nBody))) << row.pszHead;
        EXPECT_EQ(value("5A", buf, 0), found(bodyHex(row.nBody))) << row.pszHead;
    }
}

TEST(TlvScanner, ValueAfter81HasTheLengthInTheSecondByteOfTheBuffer)
{
    struct {
        const char *pszTag;
        const char *pszBuf;
        const char *pszValue;
    } const aRows[] = {
        {"5A", "70 05 5A 81 02 12 34 56 78 9A", "12 34 56 78 9A"}, // its own length says 2
        {"5A", "70 03 5A 81 02 12 34 56 00", "12 34 56"},
        {"5A", "70 01 5A 81 02 12 34 00", "12"},
        {"5A", "70 00 5A 81 02 12 34 00", ""},
        {"5A", "70 02 5A 81 FF 12 34 00", "12 34"}, // even when that one is cut off
        {"9F 26", "50 02 AA BB 9F 26 81 01 12 34 00", "12 34"},
        {"9F 02", "9F 02 81 06 12 34 00", "12 34"}, // here the tag's own
    };
    for (const auto &row : aRows) {
        const Block buf(row.pszBuf);
        EXPECT_EQ(value(row.pszTag, buf, buf.size()), found(row.pszValue)) << row.pszBuf;
        EXPECT_EQ(value(row.pszTag, buf, 0), found(row.pszValue)) << row.pszBuf;
    }
    const Block atFront(withBody("5A 81 02", 0x81));
    EXPECT_EQ(value("5A", atFront, atFront.size()), found(bodyHex(0x81))) << "here the 81 itself";
}

TEST(TlvScanner, ValueThatIsAbsentOrCutOffLeavesTheOutputs)
{
    const char *const aRows[] = {"5B 01 AA",
                                 "5A",
                                 "5A 01",
                                 "5A 03 12 34",
                                 "5A 81",
                                 "5A 82",
                                 "5A 82 00",
                                 "5A 82 00 03 12 34",
                                 "70 03 5A 81 02 12 34",
                                 "5A 81 01 AA",
                                 "70 02 5A",
                                 "5A FF",
                                 "5A 82 FF FF AA",
                                 "70 01 5A 81",
                                 "FF 5A 01 AA"};
    for (const char *pszBuf : aRows) {
        const Block buf(pszBuf);
        EXPECT_EQ(value("5A", buf, buf.size()), absent) << pszBuf;
    }
    const Block unbounded("50 01 AA 00");
    EXPECT_EQ(value("5A", unbounded, 0), absent);
}

TEST(TlvScanner, ValueRefusesNullAndNegativeLengths)
{
    const Block buf("5A 01 AA 00"), tag("5A");
    Out out(8);
    int32_t nLen = nUnset;
    EXPECT_EQ(quorvan_get_tag_value(nullptr, 1, buf.data(), 4, out.bytes(), &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value(tag.data(), 1, nullptr, 4, out.bytes(), &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value(tag.data(), 1, nullptr, 0, out.bytes(), &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value(tag.data(), 1, buf.data(), 4, nullptr, &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value(tag.data(), 1, buf.data(), 4, out.bytes(), nullptr), -1);
    EXPECT_EQ(quorvan_get_tag_value(tag.data(), 1, buf.data(), -1, out.bytes(), &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value(tag.data(), 0, buf.data(), 4, out.bytes(), &nLen), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nLen, nUnset);
}

} // namespace
