// stripe_usb.h - stripe conversations with an emulated USB device: what must come, report by report, and what goes back.
#pragma once

#include "pty_peer.h"
#include "usb_devices.h"

#include "qvreader/msr.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

struct UsbStripeStep {
    std::string sCommand; // hexadecimal
    std::string sReply = {};
};
using UsbStripeScript = std::vector<UsbStripeStep>;

class UsbStripe : public UsbDevices {
  protected:
    void SetUp() override
    {
        UsbDevices::SetUp();
        g_MsgParam = {};
        g_nMsgHidNum = g_bMsgSetHidFlag = g_bOnlyUseSetHid = g_bMsgBaundFlag = 0;
    }

    static std::string hexOf(std::string_view sText) { return hex(sText.data(), sText.size()); }
    // A bare reply: ESC "s", the text, "?" FS.
    static std::string bareReply(std::string_view sText) { return "1B 73 " + hexOf(sText) + " 3F 1C"; }
    static std::string frame(std::string_view sData) { return commandFrame(sData, 0x01, 0x04); }
    static std::string done() { return replyFrame(0, "", 0x01, 0x04); }

    // No channel is selected over USB; the rest is as on a serial line.
    static UsbStripeScript reading(const UsbStripeScript &middle, uint32_t nSeconds = 30)
    {
        return whole(middle, nSeconds, {{"1B 30"}, {"1B 25 41"}, {"1B 30"}});
    }
    static UsbStripeScript writing(const UsbStripeScript &middle, uint32_t nSeconds = 30)
    {
        return whole(middle, nSeconds, {{"1B 30"}, {"1B 25 41"}});
    }

    void plugAndPlay(const UsbDeviceOptions &options, const UsbStripeScript &script)
    {
        plug({options});
        play(options, script);
    }
    // Each command arrives in reports that are filled up with zeros; the reply follows the last of them.
    void play(const UsbDeviceOptions &options, const UsbStripeScript &script)
    {
        usb().forgetCalls();
        m_expected.clear();
        std::vector<Bytes> answers;
        for (const UsbStripeStep &step : script) {
            Bytes command = bytes(step.sCommand);
            const size_t nReports = (command.size() + options.reportSize - 1) / options.reportSize;
            command = padded(command, nReports * options.reportSize);
            m_expected.insert(m_expected.end(), command.begin(), command.end());
            answers.resize(answers.size() + nReports);
            answers.back() = bytes(step.sReply);
        }
        usb().answerWith(answers);
    }
    // Every command came, in order, and nothing else; the reader is closed.
    void expectPlayed()
    {
        EXPECT_EQ(hex(receivedBytes()), hex(m_expected));
        EXPECT_EQ(usb().unusedAnswers(), 0U);
        expectClosed();
    }

    int32_t read(int32_t nMode, uint32_t nSeconds = 30, const char *pszPort = "HID")
    {
        for (auto &track : m_tracks)
            track.fill('#');
        return MSG_QV_ReadData(pszPort, 9600, "K", 0, 0, nMode, nSeconds, m_tracks[0].data(), 513, m_tracks[1].data(),
                               513, m_tracks[2].data(), 513);
    }
    std::string track(size_t n) const
    {
        const auto &room = m_tracks[n - 1];
        return room[0] == '#' ? "untouched" : room.data();
    }
    // Of the texts "B1", "22" and "333".
    static int32_t write(int32_t nMode, uint32_t nSeconds = 30)
    {
        char sz1[] = "B1", sz2[] = "22", sz3[] = "333";
        return MSG_QV_WriteData("HID", 9600, "K", 0, 0, nMode, nSeconds, sz1, sz2, sz3);
    }

    std::array<std::array<char, 513>, 3> m_tracks;

  private:
    static UsbStripeScript whole(const UsbStripeScript &middle, uint32_t nSeconds, const UsbStripeScript &tail)
    {
        UsbStripeScript script = {
            {"1B 30"}, {"1B 3D"}, {frame("20 04 " + hex(Bytes{static_cast<uint8_t>(nSeconds)})), done()}};
        script.insert(script.end(), middle.begin(), middle.end());
        script.insert(script.end(), tail.begin(), tail.end());
        return script;
    }

    Bytes m_expected;
};

} // namespace qvtest
