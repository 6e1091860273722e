// serial.cpp - the serial port: whole buffers out, one reply in.
//
// Owns the descriptor g_AuxFd (-2: none). The tty returns from a read after 0.1 s without input, so that the read loop
// looks at its time-out and at the cancel flag ten times a second; a cancel from another thread only sets that flag.

#include "clock.h"
#include "log.h"
#include "qvreader/transport.h"
#include "read_flags.h"
#include "serial_port.h"
#include "tty_settings.h"
#include "unique_fd.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

using qv::closePort;
using qv::kLogCommDev;
using qv::nNoPort;
using qv::portFd;
using qv::setPortFd;

int32_t g_AuxFd = nNoPort;

namespace {

constexpr int32_t nLongWait = 1000;         // seconds, for a time-out below 1
constexpr useconds_t nSettleMicros = 1000;  // between opening a tty and flushing it
constexpr int64_t nIdlePassMillis = 100;    // what an idle read pass lasts
constexpr int64_t nSingleShotMillis = 1000; // ReadUnBlock, WriteUnBlock

qv::ReadFlags s_read; // s_bLinuxComIsReading, s_bCancelLinuxComRead

// Opened without further flags: the tty may become the controlling terminal.
int openTty(const char *pszName) noexcept
{
    if (pszName == nullptr)
        return -1;
    int nFd = -1;
    do {
        nFd = ::open(pszName, O_RDWR);
    } while (nFd < 0 && errno == EINTR);
    if (nFd >= 0)
        fcntl(nFd, F_SETFD, FD_CLOEXEC);
    return nFd;
}

// The bytes, one line each; nothing at all while the switch is off.
void logBytes(const uint8_t *pData, size_t nLen, bool bTwoDigits) noexcept
{
    if (!qv::logIsOn())
        return;
    for (size_t i = 0; i < nLen; ++i) {
        if (bTwoDigits)
            QV_LOG(kLogCommDev, "%02x", pData[i]);
        else
            QV_LOG(kLogCommDev, "%x", pData[i]);
    }
}

// The read loop of COMM_Com_ReadLinux.
class SerialRead {
  public:
    SerialRead(uint8_t *pBuf, size_t nMax, int32_t nTimeOut, EndConditionFn pfnEnd) noexcept
        : m_pBuf(pBuf), m_nMax(nMax), m_nTimeOut(nTimeOut), m_pfnEnd(pfnEnd), m_nStart(qv::wallSeconds())
    {
    }

    int32_t run() noexcept
    {
        for (;;) {
            const int64_t nPassStart = qv::steadyMillis();
            bool bNothing = false;
            if (!receive(bNothing))
                return RET_PUB_READ_FAIL;
            if (m_nCount == m_nMax)
                return static_cast<int32_t>(m_nMax);
            if (m_pfnEnd != nullptr && m_pfnEnd(m_pBuf, static_cast<int32_t>(m_nCount)) == 0)
                return static_cast<int32_t>(m_nCount);
            const int64_t nElapsed = qv::wallSeconds() - m_nStart;
            if (nElapsed > m_nTimeOut) {
                QV_LOG(kLogCommDev, "RET_PUB_TIMEOUT : [stEndTime - stStartTime ]  %d", static_cast<int>(nElapsed));
                return RET_PUB_TIMEOUT;
            }
            if (s_read.isCancelled())
                return RET_PUB_CANCEL;
            // A line that has hung up gives nothing at once, again and again: keep the pace of an idle line.
            if (bNothing)
                qv::pauseMillis(nIdlePassMillis - (qv::steadyMillis() - nPassStart));
        }
    }

    size_t count() const noexcept { return m_nCount; }

  private:
    // One read pass. False: the port failed.
    bool receive(bool &bNothing) noexcept
    {
        const auto nWanted = static_cast<int32_t>(std::min<size_t>(m_nMax - m_nCount, INT32_MAX));
        const int32_t nRead = ReadBlock(portFd(), m_pBuf + m_nCount, nWanted);
        if (nRead < 0 && errno == EINTR)
            return true; // a signal: the line was not idle, only interrupted
        if (nRead < 0) {
            QV_LOG(kLogCommDev, "[ReadBlock] Start  nTempLen = %d", nRead);
            return false;
        }
        if (nRead == 0) {
            bNothing = true;
            dropLeadingZero();
            QV_LOG(kLogCommDev, "get empty data");
        }
        DPrintDataHexToFile("szRecvBuf", m_pBuf, static_cast<int32_t>(m_nCount));
        m_nCount += static_cast<size_t>(nRead);
        return true;
    }

    // Readers send a zero byte in front on some wake-ups.
    void dropLeadingZero() noexcept
    {
        if (m_nCount < 2 || m_pBuf[0] != 0x00)
            return;
        std::memmove(m_pBuf, m_pBuf + 1, --m_nCount);
    }

    uint8_t *m_pBuf;
    size_t m_nMax;
    int32_t m_nTimeOut;
    EndConditionFn m_pfnEnd;
    time_t m_nStart;
    size_t m_nCount = 0;
};

// Waits until fd is ready for events; one deadline, whatever signals come.
bool waitReady(int32_t fd, bool bWrite) noexcept
{
    const int64_t nEnd = qv::steadyMillis() + nSingleShotMillis;
    for (;;) {
        const int64_t nLeft = std::max<int64_t>(nEnd - qv::steadyMillis(), 0);
        int nReady = -1;
        if (fd < 0)
            return false;
        if (fd < FD_SETSIZE) {
            fd_set set;
            FD_ZERO(&set);
            FD_SET(fd, &set);
            timeval left{nLeft / 1000, nLeft % 1000 * 1000};
            nReady = select(fd + 1, bWrite ? nullptr : &set, bWrite ? &set : nullptr, nullptr, &left);
        } else {
            // A set has no place for this descriptor.
            pollfd one{fd, static_cast<short>(bWrite ? POLLOUT : POLLIN), 0};
            nReady = poll(&one, 1, static_cast<int>(nLeft));
        }
        if (nReady < 0 && errno == EINTR)
            continue;
        return nReady > 0;
    }
}

} // namespace

namespace qv {

int32_t portFd() noexcept
{
    return std::atomic_ref<int32_t>(g_AuxFd).load(std::memory_order_relaxed);
}

void setPortFd(int32_t nFd) noexcept
{
    std::atomic_ref<int32_t>(g_AuxFd).store(nFd, std::memory_order_relaxed);
}

void closePort() noexcept
{
    UniqueFd owner(portFd());
    setPortFd(nNoPort);
}

} // namespace qv

int32_t COMM_Com_OpenLinux(const char *szTtyName, uint32_t nBaud) noexcept
{
    QV_LOG(kLogCommDev, "[%s ] Start ", __func__);
    QV_LOG(kLogCommDev, " szTtyName = %s nBaud = %d  ", szTtyName == nullptr ? "" : szTtyName, static_cast<int>(nBaud));
    setPortFd(openTty(szTtyName));
    const int nError = errno;
    QV_LOG(kLogCommDev, "[ open g_AuxFd = %d ] Start  ", portFd());
    if (portFd() < 0) {
        setPortFd(nNoPort);
        QV_LOG(kLogCommDev, "open failed: %s", szTtyName == nullptr ? "no name" : std::strerror(nError));
        return RET_PUB_OPEN_FAIL;
    }
    usleep(nSettleMicros);
    for (int nQueue : {TCIFLUSH, TCOFLUSH, TCIOFLUSH})
        tcflush(portFd(), nQueue);
    QV_LOG(kLogCommDev, "open linux com success!\r\n");
    QV_LOG(kLogCommDev, "open linux com success!\r\n");
    if (SetTerm(portFd(), nBaud) != 0) {
        QV_LOG(kLogCommDev, "terminal settings refused: %s", std::strerror(errno));
        closePort();
        return RET_PUB_FAIL;
    }
    QV_LOG(kLogCommDev, "set linux com success!\r\n");
    return 0;
}

int32_t WriteBlock(int32_t fd, const uint8_t *buf, int32_t len) noexcept
{
    if (buf == nullptr || len < 0)
        return RET_PUB_FAIL;
    QV_LOG(kLogCommDev, "WriteBlock  fd = %d ", fd);
    const auto nWritten = static_cast<int32_t>(::write(fd, buf, static_cast<size_t>(len)));
    QV_LOG(kLogCommDev, "WriteBlock  End ");
    return nWritten;
}

int32_t ReadBlock(int32_t fd, uint8_t *buf, int32_t len) noexcept
{
    if (buf == nullptr || len < 0)
        return RET_PUB_FAIL;
    return static_cast<int32_t>(::read(fd, buf, static_cast<size_t>(len)));
}

int32_t QV_SendDataToTransPort(const void *data, int32_t len) noexcept
{
    if (portFd() == nNoPort || data == nullptr || len <= 0)
        return RET_PUB_INVAL_PARAM;
    const auto *pData = static_cast<const uint8_t *>(data);
    int32_t nSent = 0;
    while (nSent < len) {
        const int32_t nWritten = WriteBlock(portFd(), pData + nSent, len - nSent);
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten <= 0) {
            QV_LOG(kLogCommDev, "write failed after %d of %d bytes", nSent, len);
            break;
        }
        nSent += nWritten;
    }
    return nSent;
}

int32_t COMM_Com_WriteLinux(const uint8_t *pInData, int32_t nLen) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    QV_LOG(kLogCommDev, " g_AuxFd = %d ", portFd());
    QV_LOG(kLogCommDev, " pInData = %.*s ", std::max(nLen, 0),
           pInData == nullptr ? "" : reinterpret_cast<const char *>(pInData));
    QV_LOG(kLogCommDev, " nLen = %d ", nLen);
    if (pInData == nullptr || nLen <= 0)
        return RET_PUB_INVAL_PARAM;
    QV_LOG(kLogCommDev, "COMM_Com_WriteLinux nLen = %d ", nLen);
    logBytes(pInData, static_cast<size_t>(nLen), true);
    return QV_SendDataToTransPort(pInData, nLen);
}

int32_t COMM_Com_ReadLinux(uint8_t *buf, uint32_t nMaxLen, int32_t nTimeOut, EndConditionFn end) noexcept
{
    QV_LOG(kLogCommDev, "[%s ] Start  ", __func__);
    QV_LOG(kLogCommDev, " g_AuxFd = %d nTimeOut = %d nMaxLen = %d ", portFd(), nTimeOut, static_cast<int>(nMaxLen));
    if (nTimeOut < 1) {
        QV_LOG(kLogCommDev, " Param err");
        nTimeOut = nLongWait;
    }
    if (portFd() == nNoPort || buf == nullptr) {
        QV_LOG(kLogCommDev, "[RET_PUB_INVAL_PARAM]  ");
        return RET_PUB_INVAL_PARAM;
    }
    s_read.start();
    SerialRead read(buf, nMaxLen, nTimeOut, end);
    const int32_t nRetVal = read.run();
    logBytes(buf, read.count(), false);
    QV_LOG(kLogCommDev, "[%s ] End nRetVal = %d ", __func__, nRetVal);
    s_read.end();
    return nRetVal;
}

int32_t COMM_Com_CancelLinuxRead(void) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    // 0 is asked for here, not "no port": without a port there is no read to cancel, and that is no failure.
    if (portFd() == 0)
        return RET_PUB_CANCEL;
    s_read.cancel();
    return 0;
}

int32_t ResetAux(void) noexcept
{
    if (portFd() == nNoPort)
        return RET_PUB_INVAL_PARAM;
    return qv::restoreTty(portFd());
}

int32_t COMM_Com_CloseLinux(void) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    QV_LOG(kLogCommDev, "[g_AuxFd = %d ] Start  ", portFd());
    if (portFd() == nNoPort)
        return 0;
    ResetAux();
    closePort();
    QV_LOG(kLogCommDev, "[1 g_AuxFd = %d ] Start  ", portFd());
    return 0;
}

int32_t ReadUnBlock(int32_t fd, uint8_t *buf, int32_t len) noexcept
{
    QV_LOG(kLogCommDev, "ReadUnblock\n");
    return waitReady(fd, false) ? ReadBlock(fd, buf, len) : 0;
}

int32_t WriteUnBlock(int32_t fd, const uint8_t *buf, int32_t len) noexcept
{
    QV_LOG(kLogCommDev, "WriteUnblock\n");
    if (buf == nullptr || len < 0)
        return RET_PUB_FAIL;
    if (waitReady(fd, true))
        return static_cast<int32_t>(::write(fd, buf, static_cast<size_t>(len)));
    tcflush(fd, TCOFLUSH);
    return 0;
}

int32_t ClearReceiveBuffer(void) noexcept
{
    return portFd() == nNoPort ? RET_PUB_INVAL_PARAM : tcflush(portFd(), TCIFLUSH);
}

char *ClearInvisibleCharInStr(char *str) noexcept
{
    return Str_strsTrim(str);
}
