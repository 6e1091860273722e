// The fillers: bytes of the C library's generator, seeded with the time and with each byte.

#include "codec_buffers.h"
#include "fake_clock.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

using namespace qvtest;

namespace {

class Fillers : public testing::Test {
  protected:
    FakeClock m_clock{1700000000};
};

using Filler = int32_t (*)(int32_t, uint8_t *);

constexpr Filler aFillers[] = {GetRandom, Str_GetRandom};

// The bytes of a call that begins at nNow; the generator stands as that call leaves it.
Bytes reference(time_t nNow, size_t nLen)
{
    Bytes data;
    srand(static_cast<unsigned>(nNow));
    for (size_t n = 0; n < nLen; ++n) {
        const unsigned nByte = static_cast<unsigned>(rand()) & 0xFFU;
        data.push_back(static_cast<uint8_t>(nByte));
        srand(static_cast<unsigned>(nNow) + static_cast<unsigned>(n) + nByte);
    }
    return data;
}

TEST_F(Fillers, AreGivenByTheGeneratorSeededWithTheTimeAndReseededByEachByte)
{
    for (time_t nNow : {time_t{0}, time_t{1}, time_t{1700000000}, time_t{4000000000}})
        for (size_t nLen : {size_t{1}, size_t{2}, size_t{8}, size_t{16}, size_t{1000}})
            for (Filler pfn : aFillers) {
                m_clock.set(nNow);
                Bytes out(nLen + 4, ucFree);
                EXPECT_EQ(pfn(static_cast<int32_t>(nLen), out.data()), 0);
                Bytes expected = reference(nNow, nLen);
                expected.insert(expected.end(), 4, ucFree);
                EXPECT_EQ(hex(out), hex(expected)) << nNow;
            }
}

TEST_F(Fillers, AreSeededWithTheTimeAtWhichTheCallBegan)
{
    for (Filler pfn : aFillers) {
        Bytes out(8);
        m_clock.script({1700000000, 1700000001, 1700000002, 1700000003, 1700000004});
        EXPECT_EQ(pfn(8, out.data()), 0);
        EXPECT_EQ(hex(out), hex(reference(1700000000, 8)));
    }
}

TEST_F(Fillers, ReseedTheGeneratorBehindTheLastByteToo)
{
    for (Filler pfn : aFillers)
        for (size_t nLen : {size_t{0}, size_t{1}, size_t{8}}) {
            Bytes out(8);
            srand(1);
            EXPECT_EQ(pfn(static_cast<int32_t>(nLen), out.data()), 0);
            const int nNext = rand();
            reference(1700000000, nLen);
            EXPECT_EQ(nNext, rand()) << nLen;
        }
}

TEST_F(Fillers, RepeatWithinASecondAndChangeWithIt)
{
    for (Filler pfn : aFillers) {
        Bytes a(16);
        Bytes b(16);
        EXPECT_EQ(pfn(16, a.data()), 0);
        EXPECT_EQ(pfn(16, b.data()), 0);
        EXPECT_EQ(a, b);
        m_clock.advance(1);
        EXPECT_EQ(pfn(16, b.data()), 0);
        EXPECT_NE(a, b);
    }
}

TEST_F(Fillers, OfNothingWriteNothingAndRefuseNull)
{
    for (Filler pfn : aFillers) {
        Bytes out(8, ucFree);
        for (int32_t n : {0, -1, INT_MIN})
            EXPECT_EQ(pfn(n, out.data() + 4), 0) << n;
        EXPECT_EQ(out, Bytes(8, ucFree));
        EXPECT_EQ(pfn(8, nullptr), -1);
    }
}

} // namespace
