// aux_terminal.h - a terminal on standard output, and what the library does to it, call by call.
//
// A test program that links aux_terminal.cpp reports on a copy of its standard output, so that descriptor 1 is free to
// be a terminal. It also sees every write and every change of settings on the library's port.
#pragma once

#include "pty_peer.h"

#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <termios.h>
#include <vector>

namespace qvtest {

// The families' sequences, in hexadecimal.
inline constexpr char szStarOpen9600[] =
    "1B 21 30 3B 30 3B 30 3B 30 59 1B 5B 2F 35 34 6C 1B 5B 2F 35 33 68 1B 5B 2F 35 30 68";
inline constexpr char szStarPrefix[] = "1B 5B 2F 35 31 68";
inline constexpr char szStarSuffix[] = "1B 5B 2F 35 31 6C";
inline constexpr char szStarClose[] = "1B 5B 2F 35 31 6C 1B 5B 2F 35 30 6C";
inline constexpr char szGwOpen[] = "1B 5B 30 3E";
inline constexpr char szGwClose[] = "1B 5B 3C";
inline constexpr char szGgOpen9600[] = "1B 5B 2F 31 3B 31 3B 38 3B 33 3B 31 3B 30 4D";
inline constexpr char szGgPrefix[] = "1B 5B 2F 7C";
inline constexpr char szGgSuffix[] = "7C";
inline constexpr char szGgClose[] = "1B 5B 2F 4D";
inline constexpr char szWyseOpen[] = "1B 21 34 35 3B 31 6D 1B 21 62";
inline constexpr char szWyseClose[] = "1B 21 50";
inline constexpr char szKeepScreen[] = "1B 5B 32 68";
inline constexpr char szReleaseScreen[] = "1B 5B 32 6C";

// What a terminal type means: every type beyond the four known ones is a Star.
struct FamilyRow {
    uint32_t nTermType;
    uint32_t nTypeAfterClose;
    const char *pszOpen; // port 1, 9600
    const char *pszPrefix;
    const char *pszSuffix;
    const char *pszClose;
};
inline constexpr FamilyRow familyRows[] = {
    {1, 1, szStarOpen9600, szStarPrefix, szStarSuffix, szStarClose},
    {2, 2, szGwOpen, "", "", szGwClose},
    {3, 3, szGgOpen9600, szGgPrefix, szGgSuffix, szGgClose},
    {5, 5, szWyseOpen, "", "", szWyseClose},
    {0, 1, szStarOpen9600, szStarPrefix, szStarSuffix, szStarClose},
    {4, 1, szStarOpen9600, szStarPrefix, szStarSuffix, szStarClose},
    {6, 1, szStarOpen9600, szStarPrefix, szStarSuffix, szStarClose},
    {7, 1, szStarOpen9600, szStarPrefix, szStarSuffix, szStarClose},
    {99, 1, szStarOpen9600, szStarPrefix, szStarSuffix, szStarClose},
    {UINT32_MAX, 1, szStarOpen9600, szStarPrefix, szStarSuffix, szStarClose},
};

// The calls on the library's port since the last clearCalls(): "write 1B 5B 3C", "TCGETA", "TCSETAF".
std::vector<std::string> calls();
// The bytes of its writes alone, one entry a call.
std::vector<std::string> writes();
void clearCalls();

// The write calls to come on the library's port: at most so many bytes are taken, or it fails with minus an errno.
void scriptWrites(std::vector<int> rows);
// The request (TCGETA, TCSETAF) that the library's port refuses; 0: none.
void refuse(unsigned long nRequest);
// What ttyname() says; null: the truth.
void nameTerminal(const char *pszName);

// Puts descriptor 1 onto a file or terminal / back onto the program's own output.
void setStandardOutput(const char *pszPath);
void restoreStandardOutput();

class AuxTerminal : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Opens with the terminal of the test as standard output; the calls so far are forgotten.
    void open(uint32_t nTermType = 1, uint32_t bAuxPrefix = 0);
    termios settings() const;
    // A terminal as a login shell leaves it.
    termios cook();
    // Success when the settings are those of `before`.
    testing::AssertionResult restored(const termios &before) const;

    PtyPeer &peer() { return *m_peer; }

  private:
    int m_nDescriptors = 0;
    int m_nSecond = -1; // another view of the terminal
    std::optional<PtyPeer> m_peer;
};

} // namespace qvtest
