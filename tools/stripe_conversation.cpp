#include "stripe_conversation.h"

namespace qvtool {

StripeConversation::StripeConversation(Watch &watch, std::function<void()> opened, std::string sPrompt,
                                       std::chrono::seconds nSeconds)
    : m_watch(watch), m_opened(std::move(opened)), m_sPrompt(std::move(sPrompt)), m_nSeconds(nSeconds)
{
    listenToLine(*this);
}

StripeConversation::~StripeConversation()
{
    stopListening(*this);
}

std::chrono::milliseconds StripeConversation::cardTime() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(m_last - m_begin);
}

void StripeConversation::sent(BytesView data)
{
    if (!m_bOpened)
        m_opened();
    m_bOpened = true;
    const StripeCommand command = stripeCommand(data, true);
    m_step = command.step;
    m_bSettingGivenUp |= m_bSettingOpen;
    m_bSettingOpen = m_step == StripeStep::setting && command.bFramed;
    m_bStatusAsked |= m_step == StripeStep::status;
    if (m_step != StripeStep::card)
        return;
    m_bAsked = true;
    m_begin = m_last = Clock::now();
    m_watch.prompt(m_sPrompt, m_begin + m_nSeconds);
}

void StripeConversation::received(BytesView data)
{
    m_last = Clock::now();
    m_bSettingOpen = false;
    if (m_step == StripeStep::setting)
        m_bSettings = true;
    else
        m_watch.endPrompt();
    if (m_step == StripeStep::card)
        m_card.insert(m_card.end(), data.begin(), data.end());
    m_bStatus |= m_step == StripeStep::status;
}

void StripeConversation::failed(const char *, const char *) {}

} // namespace qvtool
