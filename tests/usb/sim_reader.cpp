#include "sim_reader.h"

#include "harness.h"
#include "model/script_card.h"

#include <chrono>
#include <stdexcept>

namespace qvtest {

namespace {

constexpr unsigned nBaud = 9600; // USB has none
constexpr std::chrono::milliseconds kCardPatience{2500};

qvsim::TimePoint now()
{
    return std::chrono::steady_clock::now();
}

std::string fileOf(std::string_view sCard, std::string_view sEnding)
{
    return std::string(QV_CARDS) + "/" + std::string(sCard) + std::string(sEnding);
}

// Zeros behind the last byte fill a report up.
qvsim::BytesView withoutPadding(qvsim::BytesView bytes)
{
    while (!bytes.empty() && bytes.back() == 0)
        bytes = bytes.first(bytes.size() - 1);
    return bytes;
}

} // namespace

SimReader::SimReader(std::vector<qvsim::UsbDeviceOptions> devices) : m_reader(nBaud, kCardPatience, m_trace)
{
    m_usb = std::make_unique<qvsim::UsbEmulation>(std::move(devices), qvsim::UsbHost::thisProcess,
                                                  [this](const qvsim::UsbReceived &received) { take(received); });
    const std::scoped_lock lock(m_guard);
    m_line = m_usb.get();
}

SimReader::~SimReader()
{
    m_usb.reset();
}

void SimReader::insert(qvsim::SlotCode slot, std::string_view sCard)
{
    const std::string sFile = fileOf(sCard, ".card");
    qvsim::CardScriptResult script = qvsim::parseCardScript(readFile(sFile), sFile);
    if (const std::string *pWrong = std::get_if<std::string>(&script))
        throw std::runtime_error(*pWrong);
    auto card = std::make_unique<qvsim::ScriptCard>(std::get<qvsim::CardScript>(std::move(script)), sFile);
    const std::scoped_lock lock(m_guard);
    if (!m_reader.insert(slot, std::move(card), now()))
        throw std::runtime_error("the slot holds a card already");
}

void SimReader::offerStripe(std::string_view sCard)
{
    const std::string sFile = fileOf(sCard, ".stripe");
    qvsim::StripeCardResult card = qvsim::parseStripeCard(readFile(sFile), sFile);
    if (const std::string *pWrong = std::get_if<std::string>(&card))
        throw std::runtime_error(*pWrong);
    const std::scoped_lock lock(m_guard);
    m_reader.stripe().offer(std::get<qvsim::StripeCard>(std::move(card)), sFile);
}

std::string SimReader::stripeTrack(size_t nTrack)
{
    const std::scoped_lock lock(m_guard);
    return m_reader.stripe().card()->tracks.at(nTrack - 1).text;
}

void SimReader::setDevice(std::string_view sField, std::string_view sValue)
{
    const std::scoped_lock lock(m_guard);
    if (const auto wrong = qvsim::setDeviceField(m_reader.device(), sField, sValue))
        throw std::runtime_error(*wrong);
}

std::string SimReader::slot(qvsim::SlotCode slot)
{
    const std::string sHead = "slot " + std::to_string(slot) + " ";
    const std::scoped_lock lock(m_guard);
    for (const std::string &sLine : m_reader.describe(now()))
        if (sLine.starts_with(sHead))
            return sLine.substr(sHead.size());
    return {};
}

void SimReader::replug()
{
    m_usb->unplug();
    {
        const std::scoped_lock lock(m_guard);
        m_reader.losePower();
    }
    m_usb->plug();
}

void SimReader::take(const qvsim::UsbReceived &received)
{
    const std::scoped_lock lock(m_guard);
    m_reader.receive(withoutPadding(received.bytes), std::nullopt, now());
    m_reader.tick(now()); // the swipe of a magnetic card
    for (const qvsim::SentBytes &sent : m_reader.takeOutput())
        m_line->reply(sent.bytes, received.interface, received.device);
}

} // namespace qvtest
