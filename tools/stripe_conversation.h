// stripe_conversation.h - what goes on while the library reads or writes a card.
//
// A stripe call opens the reader, sets it up, waits for the card and closes the reader, all in one; its result alone does
// not tell a reader that is silent from a card that does not come. What passes on the line does.
#pragma once

#include "line_tap.h"
#include "stripe_words.h"
#include "watch.h"

#include <chrono>
#include <functional>
#include <string>

namespace qvtool {

class StripeConversation final : private LineListener {
  public:
    // Listens until the object ends. opened: called when the library has the reader open. sPrompt: what the user is told
    // when the reader begins to wait for the card, for up to nSeconds.
    StripeConversation(Watch &watch, std::function<void()> opened, std::string sPrompt, std::chrono::seconds nSeconds);
    ~StripeConversation();
    StripeConversation(const StripeConversation &) = delete;
    StripeConversation &operator=(const StripeConversation &) = delete;

    bool wasOpened() const { return m_bOpened; }
    // The command that reads or writes the card has gone out.
    bool askedForCard() const { return m_bAsked; }
    // Something came in answer to the settings / to the command for the card / to the question how it went.
    bool settingsAnswered() const { return m_bSettings; }
    bool cardAnswered() const { return !m_card.empty(); }
    bool statusAnswered() const { return m_bStatus; }
    // A setting that is to be answered was not, before the library went on: a late answer then counts as the next one.
    bool settingGivenUp() const { return m_bSettingGivenUp; }
    // That question has gone out: the library was content with the answer before it.
    bool askedHowItWent() const { return m_bStatusAsked; }
    // The answer to the command for the card.
    BytesView cardReply() const { return m_card; }
    // From that command to the last bytes that came.
    std::chrono::milliseconds cardTime() const;

  private:
    void sent(BytesView data) override;
    void received(BytesView data) override;
    void failed(const char *pszCall, const char *pszError) override;

    Watch &m_watch;
    std::function<void()> m_opened;
    std::string m_sPrompt;
    std::chrono::seconds m_nSeconds;
    bool m_bOpened = false;
    bool m_bAsked = false;
    bool m_bSettings = false;
    bool m_bSettingOpen = false;
    bool m_bSettingGivenUp = false;
    bool m_bStatusAsked = false;
    bool m_bStatus = false;
    StripeStep m_step = StripeStep::setting;
    Bytes m_card;
    Clock::time_point m_begin;
    Clock::time_point m_last;
};

} // namespace qvtool
