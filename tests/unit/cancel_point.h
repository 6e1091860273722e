// cancel_point.h - a call of the library that waits for its reader, and the second thread that cancels each wait.
//
// A row names the call and its conversation. An exchange without a reply is a wait: the reader keeps silent, and once the
// library is seen to read, the second thread cancels. The wall clock stands still meanwhile, so that nothing but a cancel
// can end a wait.
#pragma once

#include "fake_clock.h"
#include "pty_peer.h"

#include "qvreader/transport.h"

#include <gtest/gtest.h>

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace qvtest {

struct Exchange {
    std::string sCommand; // in hexadecimal; empty: the call reads without a command
    std::string sReply;   // empty: the call waits here until it is cancelled
    bool bAwaited = true; // false: the command has no reply, and the call goes on
};

enum class Port { OfTheTest, OfTheCall }; // who opens and closes it

struct CancelPoint {
    std::string sName;
    std::function<int32_t(const char *pszPort)> call;
    std::vector<Exchange> exchanges;
    int32_t nResult;
    Port port = Port::OfTheTest;
    std::function<void()> check = {}; // after the call, before the next exchange
    std::function<int32_t()> cancel = COMM_Dev_CancelRead;
};
std::ostream &operator<<(std::ostream &out, const CancelPoint &point);

// The second parameter: logging.
class CancelPoints : public testing::TestWithParam<std::tuple<CancelPoint, bool>> {
  protected:
    void SetUp() override;
    void TearDown() override;
    void run();

  private:
    void writeScript(const CancelPoint &point);
    void cancelEachWait(const CancelPoint &point);
    void exchangeOnce();
    void checkLog(const CancelPoint &point) const;

    int m_nDescriptors = 0;
    std::optional<FakeClock> m_clock;
    std::optional<PtyPeer> m_peer;
};

// The row's name, and whether it is logged.
struct CancelPointName {
    std::string operator()(const testing::TestParamInfo<CancelPoints::ParamType> &info) const
    {
        return std::get<0>(info.param).sName + (std::get<1>(info.param) ? "_Logged" : "");
    }
};

// The frames of a card command and of a reply to it.
std::string cardCommand(std::string_view sData);
std::string cardReply(std::string_view sBody, uint32_t nStatus = 0);

} // namespace qvtest

// One test a row, with logging off and with logging on.
#define QV_CANCEL_POINTS(suite, rows)                                                                                  \
    class suite : public qvtest::CancelPoints {};                                                                      \
    TEST_P(suite, EndsWithTheCancelAndTheNextExchangeWorks)                                                            \
    {                                                                                                                  \
        run();                                                                                                         \
    }                                                                                                                  \
    INSTANTIATE_TEST_SUITE_P(AWaitIn, suite, testing::Combine(testing::ValuesIn(rows), testing::Bool()),               \
                             qvtest::CancelPointName{})
