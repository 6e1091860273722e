// track_table.cpp - which characters a track can hold, and how they are recorded (ISO 7811: 6 or 4 bits and odd
// parity).

#include "device.h"
#include "log.h"

using qv::kLogBusiMsg;

// Track 1 leaves out "]" (0x5D): "^" and "_" stand one place early, and the last pair is empty.
const uint8_t ucTableTrack1[128] = {
    0x20, 0x40, 0x21, 0x01, 0x22, 0x02, 0x23, 0x43, 0x24, 0x04, 0x25, 0x45, 0x26, 0x46, 0x27, 0x07, //
    0x28, 0x08, 0x29, 0x49, 0x2A, 0x4A, 0x2B, 0x0B, 0x2C, 0x4C, 0x2D, 0x0D, 0x2E, 0x0E, 0x2F, 0x4F, //
    0x30, 0x10, 0x31, 0x51, 0x32, 0x52, 0x33, 0x13, 0x34, 0x54, 0x35, 0x15, 0x36, 0x16, 0x37, 0x57, //
    0x38, 0x58, 0x39, 0x19, 0x3A, 0x1A, 0x3B, 0x5B, 0x3C, 0x1C, 0x3D, 0x5D, 0x3E, 0x5E, 0x3F, 0x1F, //
    0x40, 0x20, 0x41, 0x61, 0x42, 0x62, 0x43, 0x23, 0x44, 0x64, 0x45, 0x25, 0x46, 0x26, 0x47, 0x67, //
    0x48, 0x68, 0x49, 0x29, 0x4A, 0x2A, 0x4B, 0x6B, 0x4C, 0x2C, 0x4D, 0x6D, 0x4E, 0x6E, 0x4F, 0x2F, //
    0x50, 0x70, 0x51, 0x31, 0x52, 0x32, 0x53, 0x73, 0x54, 0x34, 0x55, 0x75, 0x56, 0x76, 0x57, 0x37, //
    0x58, 0x38, 0x59, 0x79, 0x5A, 0x7A, 0x5B, 0x3B, 0x5C, 0x7C, 0x5E, 0x3E, 0x5F, 0x7F, 0x00, 0x00,
};

const uint8_t ucTableTrack23[32] = {
    0x30, 0x10, 0x31, 0x01, 0x32, 0x02, 0x33, 0x13, 0x34, 0x04, 0x35, 0x15, 0x36, 0x16, 0x37, 0x07, //
    0x38, 0x08, 0x39, 0x19, 0x3A, 0x1A, 0x3B, 0x0B, 0x3C, 0x1C, 0x3D, 0x0D, 0x3E, 0x0E, 0x3F, 0x1F,
};

namespace {

struct Table {
    const uint8_t *pPairs;
    int32_t nPairs;  // a power of two
    uint8_t ucFirst; // character of the first pair

    uint8_t character(int32_t i) const noexcept { return pPairs[2 * i]; }
    uint8_t code(int32_t i) const noexcept { return pPairs[2 * i + 1]; }
};

constexpr Table tableOf(int32_t nTrack) noexcept
{
    return nTrack == 1 ? Table{ucTableTrack1, 64, 0x20} : Table{ucTableTrack23, 16, 0x30};
}

constexpr int32_t nDecode = 1;
constexpr int32_t nEncode = 0;

} // namespace

int32_t LookupTrackTable(int32_t direction, int32_t track, uint8_t value, uint8_t *out) noexcept
{
    if (out == nullptr)
        return RET_PUB_FAIL;
    const Table table = tableOf(track);
    if (direction == nDecode) {
        const int32_t i = value & (table.nPairs - 1); // the code without its parity bit
        if (table.code(i) != value)
            return RET_PUB_FAIL;
        *out = table.character(i);
        return 0;
    }
    const int32_t i = value - table.ucFirst;
    if (i < 0 || i >= table.nPairs)
        return RET_PUB_FAIL;
    *out = table.code(i);
    return 0;
}

int32_t JudgeTrack(int32_t track, char *text) noexcept
{
    if (text == nullptr)
        return RET_PUB_INVAL_PARAM;
    for (char *pAt = text; *pAt != '\0'; ++pAt) {
        uint8_t ucCode = 0;
        if (LookupTrackTable(nEncode, track, static_cast<uint8_t>(*pAt), &ucCode) == 0)
            continue;
        QV_LOG(kLogBusiMsg, "szTrackData %c format error\n", *pAt);
        if (pAt == text)
            return RET_PUB_INVAL_PARAM;
        *pAt = '\0';
        break;
    }
    return 0;
}

int32_t CheckTrackData(char *text1, char *text2, char *text3) noexcept
{
    int32_t nTrack = 1;
    for (char *pszText : {text1, text2, text3}) {
        if (pszText != nullptr && JudgeTrack(nTrack, pszText) != 0) {
            QV_LOG(kLogBusiMsg, "输入数据有误");
            return RET_PUB_INVAL_PARAM;
        }
        ++nTrack;
    }
    return 0;
}
