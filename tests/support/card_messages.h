// card_messages.h - what the library tells of a card's status words: a second reading, in UTF-8.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace qvtest {

// The texts of the words that have one of their own.
inline const std::map<uint32_t, std::string> &cardMeanings()
{
    static const std::map<uint32_t, std::string> s_texts{
        {0x6200, "信息未提供"},
        {0x6281, "回送信息可能出错"},
        {0x6282, "文件长度小于Le"},
        {0x6283, "选中的文件无效"},
        {0x6284, "FCI格式与P2指定的不符"},
        {0x6300, "鉴别失败"},
        {0x6400, "状态标志位没有变"},
        {0x6581, "内存失败"},
        {0x6600, "接收通讯超时"},
        {0x6601, "接收字符奇偶错"},
        {0x6602, "校验和不对"},
        {0x6603, "当前DF文件无FCI"},
        {0x6604, "当前DF文件无SF或KF"},
        {0x6700, "长度错误"},
        {0x6882, "不支持安全报文"},
        {0x6900, "不能处理"},
        {0x6901, "命令不接受（无效状态）"},
        {0x6981, "命令与文件结构不相容，当前文件非所需文件"},
        {0x6982, "操作条件（AC）不满足，没有校验PIN"},
        {0x6983, "认证方法锁定，PIN被锁定"},
        {0x6984, "随机数无效，引用的数据无效"},
        {0x6985, "使用条件不满足"},
        {0x6986, "不满足命令执行条件（不允许的命令，INS有错）"},
        {0x6987, "MAC丢失"},
        {0x6988, "MAC不正确"},
        {0x698D, "保留"},
        {0x6A80, "数据域参数不正确"},
        {0x6A81, "功能不支持；创建不允许；目录无效；应用锁定"},
        {0x6A82, "该文件未找到"},
        {0x6A83, "该记录未找到"},
        {0x6A84, "文件预留空间不足"},
        {0x6A86, "P1或P2不正确"},
        {0x6A88, "引用数据未找到"},
        {0x6B00, "参数错误（偏移地址超出了EF）"},
        {0x6D00, "不支持的指令代码"},
        {0x6E00, "不支持的类：CLA有错"},
        {0x6F00, "数据无效"},
        {0x9000, "成功执行"},
        {0x9301, "资金不足"},
        {0x9302, "MAC无效"},
        {0x9303, "应用被永久锁定"},
        {0x9401, "交易资金不足"},
        {0x9402, "交易计数器达到最大值"},
        {0x9403, "密钥索引不支持"},
        {0x9406, "所需MAC不可用"},
        {0xAAAA, "读IC卡失败"},
    };
    return s_texts;
}

// At least one digit, upper case.
inline std::string hexDigits(uint32_t nCode)
{
    static constexpr char szDigits[] = "0123456789ABCDEF";
    std::string s;
    do {
        s.insert(s.begin(), szDigits[nCode & 15]);
        nCode >>= 4;
    } while (nCode != 0);
    return s;
}

// The whole message for a status word.
inline std::string cardMessage(uint32_t nCode)
{
    const std::string sDone = cardMeanings().at(0x9000);
    if (nCode >= 0x63C0 && nCode <= 0x63CF)
        return "ErrCode: 0x" + hexDigits(nCode) + ": " + sDone + " 还允许重试" + std::to_string(nCode - 0x63C0);
    if (nCode >> 8 == 0x6C)
        return "ErrCode: " + hexDigits(nCode) + ": " + sDone + " " + std::to_string(nCode & 0xFF);
    if (nCode >> 8 == 0x61)
        return "ErrCode: " + hexDigits(nCode) + ": " + sDone + " ";
    const auto found = cardMeanings().find(nCode);
    return "ErrCode: " + hexDigits(nCode) + ": " + (found == cardMeanings().end() ? "未知错误码！ " : found->second);
}

} // namespace qvtest
