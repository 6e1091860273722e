// The library cuts a text at the first character that its track does not have, and writes what stands before. The tool
// refuses such a text: a card with half a number is worse than none.
#include "stripe_texts.h"

#include "stripe_options.h"

#include <qvreader/msr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

namespace qvtool {

namespace {

constexpr size_t nMostInFrame = 504;   // characters of all tracks together, that a command holds
constexpr size_t nMostOverUsb = 314;   // the same in five reports of 64 bytes, which is what goes over USB
constexpr size_t nMostFileLine = 4096; // characters

struct TrackRow {
    size_t nIsoLength; // with both sentinels and the check character
    const char *pszCharacters;
    const char *pszSentinels; // that the reader writes by itself
};

constexpr std::array<TrackRow, nStripeTracks> trackTable{{
    {79, "blank to underscore of ASCII, no small letters", "%?"},
    {40, "0 to 9 : ; < = > ?", ";?"},
    {107, "0 to 9 : ; < = > ?", ";?"},
}};
constexpr size_t nIsoOverhead = 3;

Failure wrongText(const std::string &sText)
{
    return {Exit::usage, sText, std::nullopt};
}

std::string trackName(size_t n)
{
    return "track " + std::to_string(n + 1);
}

std::string characterText(char c)
{
    if (c >= 0x20 && c < 0x7F)
        return std::string("\"") + c + "\"";
    return "0x" + hexText(std::array<uint8_t, 1>{static_cast<uint8_t>(c)});
}

// ---- where the texts come from

struct CardFile {
    std::istream &in;
    std::string sName;
    StripeOptions &stripe;

    std::optional<Failure> read();
    std::optional<std::string> take(const std::string &sKey, const std::string &sValue);
};

// One line; what is wrong with it.
std::optional<std::string> CardFile::take(const std::string &sKey, const std::string &sValue)
{
    if (sKey == "name")
        return std::nullopt;
    if (sKey == "format") {
        const std::optional<int> nCode = stripeFormatCode(sValue);
        if (!nCode)
            return "there is no format \"" + sValue + "\"; write ISO, IBM, ISO-DK or IBM-DK";
        if (!stripe.bFormat)
            stripe.sFormat = stripeFormatName(*nCode);
        return std::nullopt;
    }
    for (size_t n = 0; n < nStripeTracks; ++n)
        if (sKey == "track" + std::to_string(n + 1)) {
            if (stripe.texts[n])
                return trackName(n) + " stands there twice";
            stripe.texts[n] = sValue;
            return std::nullopt;
        }
    return std::string("a line begins with track1, track2, track3, format, name or #");
}

std::optional<Failure> CardFile::read()
{
    size_t nLine = 0;
    for (std::string sLine; std::getline(in, sLine);) {
        ++nLine;
        if (!sLine.empty() && sLine.back() == '\r')
            sLine.pop_back();
        if (sLine.empty() || sLine[0] == '#')
            continue;
        const size_t nKeyEnd = std::min(sLine.find_first_of(" \t"), sLine.size());
        const size_t nValue = std::min(sLine.find_first_not_of(" \t", nKeyEnd), sLine.size());
        std::optional<std::string> sWrong = std::string("the line is too long");
        if (sLine.size() <= nMostFileLine)
            sWrong = take(sLine.substr(0, nKeyEnd), sLine.substr(nValue));
        if (sWrong)
            return wrongText(sName + ":" + std::to_string(nLine) + ": " + *sWrong);
    }
    if (in.bad())
        return Failure{Exit::system, sName + " cannot be read: " + std::strerror(errno), std::nullopt};
    return std::nullopt;
}

std::optional<Failure> readCardFile(StripeOptions &stripe)
{
    if (std::any_of(stripe.texts.begin(), stripe.texts.end(), [](const auto &text) { return text.has_value(); }))
        return wrongText("--card: the texts come from the file or from --track1 to --track3, not from both");
    if (stripe.sCardFile == "-")
        return CardFile{std::cin, "standard input", stripe}.read();
    std::ifstream in(stripe.sCardFile);
    if (!in)
        return Failure{Exit::system, stripe.sCardFile + " cannot be read: " + std::strerror(errno), std::nullopt};
    return CardFile{in, stripe.sCardFile, stripe}.read();
}

// ---- whether they can be written

bool isPossible(int nTrack, char c)
{
    constexpr int32_t nEncode = 0;
    uint8_t ucCode = 0;
    return LookupTrackTable(nEncode, nTrack, static_cast<uint8_t>(c), &ucCode) == 0;
}

std::optional<Failure> checkCharacters(size_t n, const std::string &sText)
{
    const int nTrack = static_cast<int>(n) + 1;
    const auto wrong = std::find_if_not(sText.begin(), sText.end(), [&](char c) { return isPossible(nTrack, c); });
    if (wrong == sText.end())
        return std::nullopt;
    const auto nBefore = static_cast<size_t>(wrong - sText.begin());
    return wrongText(trackName(n) + ": character " + std::to_string(nBefore + 1) + ", " + characterText(*wrong) +
                     ", is not possible there (possible are " + trackTable[n].pszCharacters + "); the library would " +
                     (nBefore == 0 ? "refuse the text" : "write only the " + std::to_string(nBefore) + " before it"));
}

// On the line this is the command that writes tracks 1 and 2.
bool looksLikeTwoTracks(const std::string &sTrack1)
{
    const size_t nLetter = sTrack1.find('A');
    return nLetter != sTrack1.npos && nLetter > 0 &&
           std::all_of(sTrack1.begin(), sTrack1.begin() + static_cast<long>(nLetter),
                       [](char c) { return c >= '0' && c <= '?'; });
}

std::optional<Failure> checkTogether(const Options &options)
{
    const TrackTexts &texts = options.stripe.texts;
    const int nTracks = tracksOf(texts);
    if (nTracks == 0)
        return wrongText("there is nothing to write: give --track1, --track2, --track3 or --card FILE");
    if (nTracks == 13)
        return wrongText(
            "one swipe writes tracks 1, 2, 3, 12, 23 or 123, not 1 and 3: write one after the other, or on a "
            "serial port give track 2 as an empty text");
    if (nTracks == 123 && options.channel() == Channel::usb)
        return wrongText(
            "over USB the library writes one or two tracks at a time: write tracks 2 and 3 (or 1 and 2) first, "
            "then the third with another swipe");
    size_t nAll = 0;
    for (size_t n = 0; n < nStripeTracks; ++n) {
        if (!texts[n])
            continue;
        nAll += texts[n]->size();
        if (texts[n]->empty() && nTracks != 123)
            return wrongText(trackName(n) + " is empty; a track can be left empty only where all three are written");
    }
    const bool bUsb = options.channel() == Channel::usb;
    const size_t nMost = bUsb ? nMostOverUsb : nMostInFrame;
    if (nAll > nMost)
        return wrongText("the texts have " + std::to_string(nAll) + " characters; a command of the reader holds " +
                         std::to_string(nMost) + (bUsb ? " over USB" : ""));
    if (nTracks == 1 && looksLikeTwoTracks(*texts[0]))
        return wrongText(
            "track 1 begins like a track 2 with an \"A\" behind it: the reader would take it for tracks 1 and 2; "
            "write track 2 together with it");
    return std::nullopt;
}

void warn(size_t n, const std::string &sText, std::vector<std::string> &warnings)
{
    const TrackRow &row = trackTable[n];
    if (sText.size() + nIsoOverhead > row.nIsoLength)
        warnings.push_back(trackName(n) + " has " + std::to_string(sText.size()) + " characters; ISO 7811 gives it " +
                           std::to_string(row.nIsoLength) + ", with both sentinels and the check character " +
                           std::to_string(row.nIsoLength - nIsoOverhead) + " for the text");
    if (const size_t nAt = sText.find_first_of(row.pszSentinels); nAt != sText.npos)
        warnings.push_back(trackName(n) + ": character " + std::to_string(nAt + 1) + ", " + characterText(sText[nAt]) +
                           ", is a sentinel, which the reader writes by itself: leave it out");
}

} // namespace

int tracksOf(const TrackTexts &texts)
{
    int nTracks = 0;
    for (size_t n = 0; n < nStripeTracks; ++n)
        if (texts[n])
            nTracks = 10 * nTracks + static_cast<int>(n) + 1;
    return nTracks;
}

std::optional<Failure> prepareTexts(Options &options, std::vector<std::string> &warnings)
{
    StripeOptions &stripe = options.stripe;
    if (!stripe.sCardFile.empty())
        if (std::optional<Failure> failure = readCardFile(stripe))
            return failure;
    for (size_t n = 0; n < nStripeTracks; ++n)
        if (stripe.texts[n]) {
            if (std::optional<Failure> failure = checkCharacters(n, *stripe.texts[n]))
                return failure;
            warn(n, *stripe.texts[n], warnings);
        }
    return checkTogether(options);
}

} // namespace qvtool
