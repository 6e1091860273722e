// The reader's frames as bytes: building, finding the body, taking a reply apart, the half-byte characters.

#include "pty_peer.h"

#include "qvreader/protocol.h"

#include <cstring>

using namespace qvtest;

namespace {

const RDZ73xx s_atLoad = stRDZ73xx;
const uint8_t s_ucEndCharAtLoad = gEndChar;

TEST(PacketAtLoad, TheStateIsZeroAndTheEndByteThree)
{
    EXPECT_EQ(s_atLoad.nType, 0U);
    EXPECT_EQ(s_atLoad.gStatus, 0U);
    EXPECT_EQ(s_ucEndCharAtLoad, 0x03);
}

// ---- building -----------------------------------------------------------------------------------------------------

struct FrameRow {
    uint8_t ucHead, ucEnd;
    const char *pszData;
    const char *pszFrame;
};

TEST(Packet, AFrameIsHeadLengthDataLrcAndEnd)
{
    const FrameRow rows[] = {
        {0x02, 0x03, "32 30 00 10", "02 30 30 30 34 33 32 33 30 30 30 31 30 31 32 03"},
        {0x02, 0x03, "AB", "02 30 30 30 31 3A 3B 3A 3B 03"},
        {0x02, 0x03, "00", "02 30 30 30 31 30 30 30 30 03"},
        {0x02, 0x03, "FF FE", "02 30 30 30 32 3F 3F 3F 3E 30 31 03"},
        {0x01, 0x04, "11 01", "01 30 30 30 32 31 31 30 31 31 30 04"},
        {0x00, 0x00, "12 34", "00 30 30 30 32 31 32 33 34 32 36 00"},
        {0xFE, 0xFF, "C9 8D", "FE 30 30 30 32 3C 39 38 3D 34 34 FF"},
        {0x02, 0x03, "32 22 0B B8 10", "02 30 30 30 35 33 32 32 32 30 3B 3B 38 31 30 3B 33 03"},
    };
    for (const FrameRow &row : rows) {
        SCOPED_TRACE(row.pszData);
        Bytes data = bytes(row.pszData);
        Bytes out(2 * data.size() + 8 + 4, 0xC5);
        int32_t nLen =
            Str_RDZ_MakePacket(row.ucHead, row.ucEnd, data.data(), static_cast<uint32_t>(data.size()), out.data());
        EXPECT_EQ(nLen, static_cast<int32_t>(2 * data.size() + 8));
        EXPECT_EQ(hex(out), std::string(row.pszFrame) + " C5 C5 C5 C5");
    }
}

TEST(Packet, AFrameWithoutDataHasLengthAndLrcZero)
{
    const uint8_t uc = 0x77;
    Bytes out(12, 0xC5);
    EXPECT_EQ(Str_RDZ_MakePacket(0x02, 0x03, &uc, 0, out.data()), 8);
    EXPECT_EQ(hex(out), "02 30 30 30 30 30 30 03 C5 C5 C5 C5");
}

TEST(Packet, TheLengthHasTwoBytes)
{
    for (size_t n : {255U, 256U, 508U, 509U, 4660U}) {
        SCOPED_TRACE(n);
        Bytes data(n, 0x5A);
        data[0] = 0x01;
        Bytes out(2 * n + 8 + 1, 0xC5);
        EXPECT_EQ(Str_RDZ_MakePacket(0x02, 0x03, data.data(), static_cast<uint32_t>(n), out.data()),
                  static_cast<int32_t>(2 * n + 8));
        EXPECT_EQ(hex(std::span(out).first(2 * n + 8)), commandFrame(hex(data)));
        EXPECT_EQ(out.back(), 0xC5);
    }
}

TEST(Packet, ANullFrameIsRefused)
{
    uint8_t uc = 0xC5;
    Bytes out(12, 0xC5);
    EXPECT_EQ(Str_RDZ_MakePacket(2, 3, nullptr, 1, out.data()), -1);
    EXPECT_EQ(Str_RDZ_MakePacket(2, 3, &uc, 1, nullptr), -1);
    EXPECT_EQ(out, Bytes(12, 0xC5));
}

// ---- finding the body ---------------------------------------------------------------------------------------------

struct BodyRow {
    const char *pszPacket;
    int32_t nResult;
    const char *pszBody;
};

TEST(PacketBody, TheBytesBetweenTheFirstHeadAndTheFirstEndBehindItAreCopied)
{
    const BodyRow rows[] = {
        {"02 31 32 03", 2, "31 32"},
        {"02 31 03", 1, "31"},
        {"00 55 02 31 32 33 03", 3, "31 32 33"},
        {"03 03 02 31 32 03", 2, "31 32"},       // end bytes in front of the head
        {"02 31 32 03 33 34 03", 2, "31 32"},    // the first end ends it
        {"02 31 32 03 02 33 34 03", 2, "31 32"}, // what follows is ignored
        {"02 02 31 03", 2, "02 31"},             // the first head begins it
        {"02 31 03 FF", 1, "31"},
        {"31 32 03", -1, ""},    // no head
        {"02 31 32", -1, ""},    // no end
        {"02 03", -1, ""},       // starts at the last byte
        {"02 03 31 03", -1, ""}, // empty
        {"02", -1, ""},
        {"31 32 02", -1, ""}, // head last
        {"31 02 03", -1, ""},
        {"31 02 31", -1, ""},
        {"03 31 02 31", -1, ""},
    };
    for (const BodyRow &row : rows) {
        SCOPED_TRACE(row.pszPacket);
        Bytes packet = bytes(row.pszPacket);
        Bytes body(packet.size() + 2, 0xC5);
        EXPECT_EQ(Str_GetPacketBody(2, 3, packet.data(), static_cast<int32_t>(packet.size()), body.data()),
                  row.nResult);
        size_t nLen = row.nResult > 0 ? static_cast<size_t>(row.nResult) : 0;
        EXPECT_EQ(hex(std::span(body).first(nLen)), row.pszBody);
        EXPECT_EQ(body[nLen], 0xC5);
    }
}

TEST(PacketBody, OtherMarkersAreLookedForAsGiven)
{
    Bytes packet = bytes("02 31 01 41 42 03 04");
    Bytes body(8, 0xC5);
    EXPECT_EQ(Str_GetPacketBody(1, 4, packet.data(), 7, body.data()), 3);
    EXPECT_EQ(hex(body), "41 42 03 C5 C5 C5 C5 C5");
    // One byte for both: the second one ends the body.
    packet = bytes("07 41 07");
    EXPECT_EQ(Str_GetPacketBody(7, 7, packet.data(), 3, body.data()), 1);
}

TEST(PacketBody, OnlyTheGivenLengthIsSearched)
{
    Bytes packet = bytes("02 31 32 03");
    Bytes body(8, 0xC5);
    EXPECT_EQ(Str_GetPacketBody(2, 3, packet.data(), 3, body.data()), -1);
    EXPECT_EQ(Str_GetPacketBody(2, 3, packet.data(), 0, body.data()), -1);
    EXPECT_EQ(Str_GetPacketBody(2, 3, packet.data(), -1, body.data()), -1);
    EXPECT_EQ(Str_GetPacketBody(2, 3, packet.data(), INT32_MIN, body.data()), -1);
    EXPECT_EQ(body, Bytes(8, 0xC5));
}

TEST(PacketBody, NullIsRefused)
{
    Bytes packet = bytes("02 31 32 03");
    Bytes body(8, 0xC5);
    EXPECT_EQ(Str_GetPacketBody(2, 3, nullptr, 4, body.data()), -1);
    EXPECT_EQ(Str_GetPacketBody(2, 3, packet.data(), 4, nullptr), -1);
}

TEST(PacketBody, ALongBodyIsCopiedWhole)
{
    Bytes packet(3000, 0x31);
    packet.front() = 2;
    packet.back() = 3;
    Bytes body(3000, 0xC5);
    EXPECT_EQ(Str_GetPacketBody(2, 3, packet.data(), 3000, body.data()), 2998);
    EXPECT_EQ(body[2997], 0x31);
    EXPECT_EQ(body[2998], 0xC5);
}

// ---- replies ------------------------------------------------------------------------------------------------------

class Reply : public testing::Test {
  protected:
    void SetUp() override { stRDZ73xx = {0, 0x5555}; }
    void TearDown() override { logOff(); }
    int32_t parse(std::string_view sHex, uint8_t ucHead = 2, uint8_t ucEnd = 3)
    {
        Bytes packet = bytes(sHex);
        m_out.assign(600, 0xC5);
        m_nOut = 0xC5C5;
        return Str_RDZ_ParsePacket(ucHead, ucEnd, packet.data(), static_cast<uint32_t>(packet.size()), m_out.data(),
                                   &m_nOut);
    }
    std::string out() const { return hex(std::span(m_out).first(m_nOut)); }
    void expectRefused(std::string_view sHex, uint8_t ucHead = 2, uint8_t ucEnd = 3)
    {
        SCOPED_TRACE(sHex);
        stRDZ73xx.gStatus = 0x5555;
        EXPECT_EQ(parse(sHex, ucHead, ucEnd), -4);
        EXPECT_EQ(m_nOut, 0xC5C5U);
        EXPECT_EQ(m_out, Bytes(600, 0xC5));
        EXPECT_EQ(stRDZ73xx.gStatus, 0x5555U);
    }

    Bytes m_out;
    uint32_t m_nOut = 0;
};

// A frame of the decoded bytes M as they stand.
std::string ofDecoded(std::string_view sHex)
{
    Bytes m = bytes(sHex);
    Bytes out(2 * m.size() + 2);
    out.front() = 2;
    Str_RdzModeSplitData(m.data(), static_cast<int32_t>(m.size()), out.data() + 1);
    out.back() = 3;
    return hex(out);
}

TEST_F(Reply, AReplyIsStatusAndBody)
{
    EXPECT_EQ(parse("02 30 30 30 33 39 30 30 30 30 31 39 31 03"), 0);
    EXPECT_EQ(out(), "01");
    EXPECT_EQ(m_out[1], 0xC5);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x9000U);
}

TEST_F(Reply, AStatusOnlyReplyHasAnEmptyBody)
{
    EXPECT_EQ(parse("02 30 30 30 32 31 30 30 33 31 33 03"), 0);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(m_out, Bytes(600, 0xC5));
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1003U);
}

TEST_F(Reply, OnlyTheLowHalvesOfTheCharactersCount)
{
    // The same reply with other high halves.
    EXPECT_EQ(parse("02 40 50 F0 73 B9 A0 10 80 90 C1 D9 E1 03"), 0);
    EXPECT_EQ(out(), "01");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x9000U);
}

TEST_F(Reply, BytesAroundTheFrameAreIgnored)
{
    EXPECT_EQ(parse("00 FF 03 02 30 30 30 33 39 30 30 30 30 31 39 31 03 02 99 03"), 0);
    EXPECT_EQ(out(), "01");
}

TEST_F(Reply, OtherMarkersWorkToo)
{
    EXPECT_EQ(parse(replyFrame(0x1234, "AA BB", 1, 4), 1, 4), 0);
    EXPECT_EQ(out(), "AA BB");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    expectRefused(replyFrame(0x1234, "AA BB", 1, 3), 1, 4);
    expectRefused(replyFrame(0x1234, "AA BB", 2, 4), 1, 4);
}

TEST_F(Reply, WhatIsNoFrameIsRefused)
{
    expectRefused("30 30 30 33 39 30 30 30 30 31 39 31 03");    // no head
    expectRefused("02 30 30 30 33 39 30 30 30 30 31 39 31");    // no end
    expectRefused("02 03");                                     // empty
    expectRefused("02 30 03");                                  // one character
    expectRefused("02 30 30 30 33 39 30 30 30 30 31 39 03");    // odd
    expectRefused("02 30 30 30 33 39 30 30 30 30 31 39 30 03"); // LRC
    expectRefused("02 30 30 30 33 39 30 30 30 30 31 38 31 03"); // LRC, high half
    expectRefused("02 30 30 30 33 39 30 30 30 30 30 39 31 03"); // body
    expectRefused("02 30 30 30 33 38 30 30 30 30 31 39 31 03"); // status
    expectRefused("03 02");
}

TEST_F(Reply, AnEmptyPacketIsRefused)
{
    uint8_t uc = 2;
    EXPECT_EQ(Str_RDZ_ParsePacket(2, 3, &uc, 0, &uc, &m_nOut), -4);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x5555U);
}

TEST_F(Reply, NullIsRefused)
{
    Bytes packet = bytes("02 30 30 30 33 39 30 30 30 30 31 39 31 03");
    uint32_t nLen = static_cast<uint32_t>(packet.size());
    m_out.assign(600, 0xC5);
    EXPECT_EQ(Str_RDZ_ParsePacket(2, 3, nullptr, nLen, m_out.data(), &m_nOut), -4);
    EXPECT_EQ(Str_RDZ_ParsePacket(2, 3, packet.data(), nLen, nullptr, &m_nOut), -4);
    EXPECT_EQ(Str_RDZ_ParsePacket(2, 3, packet.data(), nLen, m_out.data(), nullptr), -4);
    EXPECT_EQ(m_out, Bytes(600, 0xC5));
}

TEST_F(Reply, FewerThanFourDecodedBytesAreRefused)
{
    expectRefused(ofDecoded("00"));
    expectRefused(ofDecoded("00 02"));
    expectRefused(ofDecoded("00 02 00"));
    expectRefused(ofDecoded("00 01 00"));
}

TEST_F(Reply, FourDecodedBytesAreEnoughWhenTheyCheckOut)
{
    // The LRC is placed by what came: M[2] alone is checked by M[3], which also is the low byte of the status.
    EXPECT_EQ(parse(ofDecoded("00 02 5A 5A")), 0);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x5A5AU);
    expectRefused(ofDecoded("00 02 5A 5B"));
    expectRefused(ofDecoded("00 03 5A 5A"));
    expectRefused(ofDecoded("00 01 5A 5A"));
}

TEST_F(Reply, ADeclaredLengthThatIsNotThereIsRefused)
{
    // Seven decoded bytes: length, status 9000, body 11 22, LRC A3.
    expectRefused(ofDecoded("00 00 90 00 11 22 A3"));
    expectRefused(ofDecoded("00 01 90 00 11 22 A3"));
    expectRefused(ofDecoded("00 06 90 00 11 22 A3"));
    expectRefused(ofDecoded("FF FF 90 00 11 22 A3"));
    expectRefused(ofDecoded("FF FE 90 00 11 22 A3"));
    expectRefused(ofDecoded("01 04 90 00 11 22 A3"));
    expectRefused(ofDecoded("80 00 90 00 11 22 A3"));
}

TEST_F(Reply, EveryOtherDeclaredLengthIsTrusted)
{
    EXPECT_EQ(parse(ofDecoded("00 02 90 00 11 22 A3")), 0);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(parse(ofDecoded("00 03 90 00 11 22 A3")), 0);
    EXPECT_EQ(out(), "11");
    EXPECT_EQ(parse(ofDecoded("00 04 90 00 11 22 A3")), 0);
    EXPECT_EQ(out(), "11 22");
    // One more than the body: the LRC byte goes along.
    EXPECT_EQ(parse(ofDecoded("00 05 90 00 11 22 A3")), 0);
    EXPECT_EQ(out(), "11 22 A3");
    EXPECT_EQ(m_out[3], 0xC5);
}

TEST_F(Reply, AThousandAndTwentyFourCharactersAreAcceptedAndNoMore)
{
    // 512 decoded bytes: a body of 507.
    Bytes body(507);
    for (size_t i = 0; i < body.size(); ++i)
        body[i] = static_cast<uint8_t>(i + 3);
    EXPECT_EQ(parse(replyFrame(0x9000, hex(body))), 0);
    EXPECT_EQ(m_nOut, 507U);
    EXPECT_EQ(out(), hex(body));
    EXPECT_EQ(m_out[507], 0xC5);

    body.push_back(0x01);
    expectRefused(replyFrame(0x9000, hex(body)));
    body.resize(1000);
    expectRefused(replyFrame(0x9000, hex(body)));
    body.resize(2000);
    expectRefused(replyFrame(0x9000, hex(body)));
}

TEST_F(Reply, AnOddThousandAndTwentyFiveCharactersAreRefused)
{
    Bytes packet(1027, 0x30);
    packet.front() = 2;
    packet.back() = 3;
    expectRefused(hex(packet));
}

TEST_F(Reply, AParseIsLogged)
{
    logOn();
    EXPECT_EQ(parse("02 30 30 30 33 39 30 30 30 30 31 39 31 03"), 0);
    EXPECT_TRUE(logged({"[Str_RDZ_ParsePacket] Start nPacketLen = 14 ", " cHead = 02 cEnd = 03  ", "nBodyLen = 12 ",
                        "ucBody  LEN=6   HEX: 000390000191", "[COMM_Rdz_SetRecStatus] Start ", "status = 9000 "}));
    EXPECT_NE(rawLog().find("INFO:    Comm:    nBodyLen = 12 \r\n"), std::string::npos);
    logOn();
    EXPECT_EQ(parse("30 31"), -4);
    EXPECT_TRUE(logged({"[Str_RDZ_ParsePacket] Start nPacketLen = 2 ", " cHead = 02 cEnd = 03  ", "nBodyLen = -1 "}));
}

TEST(Packet, AFrameReadsBackAsItWasWritten)
{
    for (size_t n = 2; n <= 508; n += 11) {
        Bytes data(n);
        for (size_t i = 0; i < n; ++i)
            data[i] = static_cast<uint8_t>(i * 37 + n);
        Bytes frame(2 * n + 8);
        Str_RDZ_MakePacket(2, 3, data.data(), static_cast<uint32_t>(n), frame.data());
        Bytes out(600, 0xC5);
        uint32_t nOut = 0;
        ASSERT_EQ(Str_RDZ_ParsePacket(2, 3, frame.data(), static_cast<uint32_t>(frame.size()), out.data(), &nOut), 0);
        ASSERT_EQ(nOut, n - 2);
        EXPECT_EQ(hex(std::span(out).first(nOut)), hex(std::span(data).subspan(2)));
        EXPECT_EQ(COMM_Rdz_GetRecStatus(), static_cast<uint32_t>(data[0] << 8 | data[1]));
    }
}

// ---- half-byte characters -----------------------------------------------------------------------------------------

TEST(HalfBytes, EachByteBecomesTwoCharacters)
{
    for (unsigned u = 0; u < 256; ++u) {
        uint8_t in = static_cast<uint8_t>(u);
        uint8_t out[3] = {0xC5, 0xC5, 0xC5};
        Str_RdzModeSplitData(&in, 1, out);
        EXPECT_EQ(out[0], 0x30 + u / 16);
        EXPECT_EQ(out[1], 0x30 + u % 16);
        EXPECT_EQ(out[2], 0xC5);
        uint8_t back[2] = {0xC5, 0xC5};
        Str_RdzModeMergeData(out, 2, back);
        EXPECT_EQ(back[0], u);
        EXPECT_EQ(back[1], 0xC5);
    }
    const uint8_t in[] = {0xAB};
    uint8_t out[2];
    Str_RdzModeSplitData(in, 1, out);
    EXPECT_EQ(std::memcmp(out, ":;", 2), 0);
}

TEST(HalfBytes, NothingHappensForNullOrBadLengths)
{
    const uint8_t in[4] = {0x31, 0x32, 0x33, 0x34};
    Bytes out(8, 0xC5);
    Str_RdzModeSplitData(nullptr, 2, out.data());
    Str_RdzModeSplitData(in, 2, nullptr);
    Str_RdzModeSplitData(in, 0, out.data());
    Str_RdzModeSplitData(in, -1, out.data());
    Str_RdzModeSplitData(in, INT32_MIN, out.data());
    Str_RdzModeMergeData(nullptr, 2, out.data());
    Str_RdzModeMergeData(in, 2, nullptr);
    Str_RdzModeMergeData(in, 1, out.data());
    Str_RdzModeMergeData(in, 3, out.data());
    Str_RdzModeMergeData(in, 0, out.data());
    Str_RdzModeMergeData(in, -2, out.data());
    Str_RdzModeMergeData(in, INT32_MIN, out.data());
    EXPECT_EQ(out, Bytes(8, 0xC5));
}

// ---- end condition and status word --------------------------------------------------------------------------------

TEST(EndCharacter, TheEndConditionLooksAtTheLastByte)
{
    const uint8_t buf[] = {0x03, 0x04, 0x05};
    gEndChar = 0x03;
    EXPECT_EQ(ChangeEndCondition(buf, 1), 0);
    EXPECT_EQ(ChangeEndCondition(buf, 2), -1);
    EXPECT_EQ(ChangeEndCondition(buf, 3), -1);
    EXPECT_EQ(ChangeEndChar(0x05), 0);
    EXPECT_EQ(gEndChar, 0x05);
    EXPECT_EQ(ChangeEndCondition(buf, 3), 0);
    EXPECT_EQ(ChangeEndCondition(buf, 1), -1);
    EXPECT_EQ(ChangeEndChar(0xFF), 0);
    EXPECT_EQ(gEndChar, 0xFF);
    gEndChar = 0x03;
}

TEST(EndCharacter, TheEndConditionNeverLooksBeforeTheBuffer)
{
    const uint8_t buf[] = {0x03, 0x03, 0x03};
    gEndChar = 0x03;
    EXPECT_EQ(ChangeEndCondition(buf + 1, 0), -1);
    EXPECT_EQ(ChangeEndCondition(buf + 2, -1), -1);
    EXPECT_EQ(ChangeEndCondition(nullptr, 0), -1);
}

TEST(StatusWord, ItIsSetReadAndReset)
{
    stRDZ73xx = {7, 1};
    EXPECT_EQ(COMM_Rdz_SetRecStatus(0x9000), 0x9000U);
    EXPECT_EQ(COMM_Rdz_GetRecStatus(), 0x9000U);
    EXPECT_EQ(COMM_Rdz_SetRecStatus(0xFFFFFFFFU), 0xFFFFFFFFU);
    EXPECT_EQ(stRDZ73xx.gStatus, 0xFFFFFFFFU);
    EXPECT_EQ(COMM_Rdz_ReSetStatus(), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(stRDZ73xx.nType, 7U);
    stRDZ73xx = {};
}

TEST(StatusWord, ItsCallsAreLogged)
{
    logOn();
    COMM_Rdz_SetRecStatus(0x1003);
    COMM_Rdz_GetRecStatus();
    COMM_Rdz_ReSetStatus();
    EXPECT_TRUE(logged({"[COMM_Rdz_SetRecStatus] Start ", "status = 1003 ",
                        "[COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1003", "[COMM_Rdz_ReSetStatus]Start "}));
    logOff();
}

} // namespace
