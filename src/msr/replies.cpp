// replies.cpp - bare replies of the head: where they end, whether they are whole, and the tracks in them.
//
//     one track     1B 73 | text | 3F 1C              track 3: one more byte before the text
//     two tracks    1B 73 | track 2 | 41 | other track | 3F 1C         an empty track is 7F
//     status        ... 70 (success) or ... 71 (failure)
//
// Everything is judged before the first NUL: USB pads its reports with zeros.

#include "tracks.h"

#include "bounded_text.h"
#include "log.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

namespace {

using namespace std::string_view_literals;

constexpr auto sReplyHead = "\x1Bs"sv;
constexpr auto sReplyTail = "?\x1C"sv;
constexpr char cSecondTrack = 'A';
constexpr char cEmptyTrack = 0x7F;
constexpr char cSuccess = 'p';
constexpr char cFailure = 'q';

std::span<char> bufferOf(char *pOut, uint32_t nSize) noexcept
{
    return pOut == nullptr ? std::span<char>{} : std::span<char>(pOut, nSize);
}

// One half of a reply; nothing where it stands for an empty track.
std::string_view notEmpty(std::string_view sHalf) noexcept
{
    return sHalf.starts_with(cEmptyTrack) ? std::string_view{} : sHalf;
}

} // namespace

int32_t MsgDataEndCondition(const uint8_t *buf, int32_t len) noexcept
{
    return qv::textBeforeNul(buf, len).ends_with(sReplyTail) ? 0 : -1;
}

int32_t MsgStatusEndCondition(const uint8_t *buf, int32_t len) noexcept
{
    const std::string_view sReply = qv::textBeforeNul(buf, len);
    return sReply.ends_with(cSuccess) || sReply.ends_with(cFailure) ? 0 : -1;
}

int32_t tFuncCheckTrackFormat(const uint8_t *reply, int32_t len) noexcept
{
    const std::string_view sReply = qv::textBeforeNul(reply, len);
    if (sReply.starts_with(sReplyHead) && sReply.find(sReplyTail) != std::string_view::npos)
        return 0;
    QV_LOG(qv::kLogBusiMsg, "磁条卡格式错误");
    return RET_PUB_PACKET_ERR;
}

int32_t tFuncCheckTrackStatusFormat(const uint8_t *reply, int32_t len) noexcept
{
    const std::string_view sReply = qv::textBeforeNul(reply, len);
    if (sReply.ends_with(cSuccess))
        return 0;
    return sReply.ends_with(cFailure) ? qv::nReadFault : static_cast<int32_t>(RET_PUB_PACKET_ERR);
}

int32_t SeperateByTrays(const char *reply, char *first, uint32_t firstSize, char *second, uint32_t secondSize) noexcept
{
    if (reply == nullptr)
        return RET_PUB_INVAL_PARAM;
    const std::string_view sReply(reply);
    const size_t nMiddle = sReply.find(cSecondTrack);
    std::string_view sFirst, sSecond;
    if (nMiddle != std::string_view::npos) {
        if (nMiddle > sReplyHead.size())
            sFirst = notEmpty(sReply.substr(sReplyHead.size(), nMiddle - sReplyHead.size()));
        sSecond = notEmpty(sReply.substr(nMiddle + 1));
        sSecond.remove_suffix(std::min(sSecond.size(), sReplyTail.size()));
    }
    qv::copyText(bufferOf(first, firstSize), sFirst);
    qv::copyText(bufferOf(second, secondSize), sSecond);
    return 0;
}

const char *SplitMsgData(const char *text, char *out, const char *separator) noexcept
{
    if (text == nullptr || separator == nullptr)
        return text;
    const char *pFound = std::strstr(text, separator);
    if (pFound == nullptr)
        return text;
    if (out != nullptr)
        std::copy(text, pFound, out);
    return pFound;
}
