// messages.cpp - the engine's codes in the two sets that hosts see, and the messages of the first.
//
//     engine -> TY         Linux_QV_ functions; each TY code has a message in GBK
//     engine -> standard   MS_ functions

#include "device.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

struct CodeRow {
    int32_t nFrom;
    int32_t nTo;
};

template <size_t nRows>
constexpr int32_t lookUp(const std::array<CodeRow, nRows> &rows, int32_t nCode, int32_t nOther) noexcept
{
    for (const CodeRow &row : rows)
        if (row.nFrom == nCode)
            return row.nTo;
    return nOther;
}

constexpr int32_t nOtherTy = -100;
constexpr std::array<CodeRow, 12> s_engineToTy{{
    {0, 0},
    {-50, -1},
    {-55, -3},
    {-54, -2},
    {-4, -4},
    {-5, -5},
    {-6, -6},
    {-57, -7},
    {-56, -8},
    {-9, -10}, // no message of its own
    {-2, -9},
    {-100, nOtherTy},
}};

constexpr int32_t nOtherStandard = -99;
constexpr std::array<CodeRow, 7> s_engineToStandard{{
    {0, 0},
    {-1, -3},
    {-2, -10},
    {-3, -11},
    {-4, -6},
    {-7, -23},
    {-8, -2},
}};

struct MessageRow {
    int32_t nCode;
    char szText[128]; // GBK
};
constexpr std::array<MessageRow, 11> s_messages{{
    // 操作成功
    {0, "\xB2\xD9\xD7\xF7\xB3\xC9\xB9\xA6"},
    // 打开设备失败
    {-1, "\xB4\xF2\xBF\xAA\xC9\xE8\xB1\xB8\xCA\xA7\xB0\xDC"},
    // 接收数据失败----与设备通讯失败
    {-3,
     "\xBD\xD3\xCA\xD5\xCA\xFD\xBE\xDD\xCA\xA7\xB0\xDC----\xD3\xEB\xC9\xE8\xB1\xB8\xCD\xA8\xD1\xB6\xCA\xA7\xB0\xDC"},
    // 发送指令失败----与设备通讯失败
    {-2,
     "\xB7\xA2\xCB\xCD\xD6\xB8\xC1\xEE\xCA\xA7\xB0\xDC----\xD3\xEB\xC9\xE8\xB1\xB8\xCD\xA8\xD1\xB6\xCA\xA7\xB0\xDC"},
    // 接收到的报文格式错误
    {-4, "\xBD\xD3\xCA\xD5\xB5\xBD\xB5\xC4\xB1\xA8\xCE\xC4\xB8\xF1\xCA\xBD\xB4\xED\xCE\xF3"},
    // 读卡操作失败
    {-5, "\xB6\xC1\xBF\xA8\xB2\xD9\xD7\xF7\xCA\xA7\xB0\xDC"},
    // 写卡操作失败
    {-6, "\xD0\xB4\xBF\xA8\xB2\xD9\xD7\xF7\xCA\xA7\xB0\xDC"},
    // 用户取消
    {-7, "\xD3\xC3\xBB\xA7\xC8\xA1\xCF\xFB"},
    // 超时
    {-8, "\xB3\xAC\xCA\xB1"},
    // 参数异常
    {-9, "\xB2\xCE\xCA\xFD\xD2\xEC\xB3\xA3"},
    // 其他错误
    {-100, "\xC6\xE4\xCB\xFB\xB4\xED\xCE\xF3"},
}};
constexpr char szUnknown[] = "\xCE\xB4\xD6\xAA\xB4\xED\xCE\xF3"; // 未知错误

} // namespace

int32_t TY_Msg_ConvertErr(int32_t code) noexcept
{
    return code >= 1 ? code : lookUp(s_engineToTy, code, nOtherTy);
}

int32_t GetStandardErrorCode_MAG(int32_t code) noexcept
{
    return lookUp(s_engineToStandard, code, nOtherStandard);
}

int32_t TY_MsgGetErrMessage(int32_t code, char *message) noexcept
{
    if (message == nullptr)
        return RET_PUB_INVAL_PARAM;
    const auto row = std::find_if(s_messages.begin(), s_messages.end(), [=](const auto &r) { return r.nCode == code; });
    // The caller's buffer comes zeroed; a NUL goes behind the text of an unknown code only.
    if (row != s_messages.end())
        std::copy_n(row->szText, std::strlen(row->szText), message);
    else
        std::copy_n(szUnknown, sizeof szUnknown, message);
    return 0;
}

int32_t QV_MsgGetErrCodeMessage(int32_t code, char *message) noexcept
{
    return TY_MsgGetErrMessage(code, message);
}
