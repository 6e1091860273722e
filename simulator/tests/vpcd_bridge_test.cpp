// The bridge to virtual cards of other programs, with a card that the test plays.
#include "sim_process.h"

#include "system/io.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>

#include <poll.h>

namespace qvsim::test {
namespace {

// The card's end of the connection.
class Peer {
  public:
    explicit Peer(unsigned port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }

    // The next message, or "nothing" after the time.
    std::string next(int ms = 10'000)
    {
        const Bytes length = take(2, ms);
        if (length.size() < 2)
            return "nothing";
        return toHex(take((std::size_t{length[0]} << 8) | length[1], 10'000));
    }

    void answer(const char *hex)
    {
        const Bytes body = *fromHex(hex);
        Bytes message{static_cast<std::uint8_t>(body.size() >> 8), static_cast<std::uint8_t>(body.size())};
        message.insert(message.end(), body.begin(), body.end());
        write(message);
    }

    void write(BytesView bytes)
    {
        int error = 0;
        EXPECT_EQ(sendSome(socket_.get(), bytes, error), bytes.size());
    }

    void leave() { socket_.reset(); }

  private:
    Bytes take(std::size_t count, int ms)
    {
        Bytes bytes(count);
        std::size_t done = 0;
        pollfd polled{socket_.get(), POLLIN, 0};
        while (done < count && ::poll(&polled, 1, ms) == 1) {
            const ReadResult result = readSome(socket_.get(), std::span(bytes).subspan(done));
            if (result.kind != ReadResult::Kind::bytes)
                break;
            done += result.count;
        }
        bytes.resize(done);
        return bytes;
    }

    UniqueFd socket_;
};

class VpcdBridgeTest : public testing::Test {
  protected:
    void start(std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments{"--card", "0=vpcd:0", "--control", socket};
        arguments.insert(arguments.end(), more.begin(), more.end());
        sim = std::make_unique<SimProcess>(arguments);
        const std::string line = sim->readLine();
        ASSERT_TRUE(line.starts_with("vpcd 0 ")) << line;
        vpcdPort = *parseNumber(line.substr(7), 65535);
        port = std::make_unique<HostPort>(sim->waitReady(), 9600);
    }

    bool cardIs(const char *state)
    {
        return eventually([&] {
            return control(socket, {"state"}).find(std::string("slot 0 ") + state + " vpcd:") != std::string::npos;
        });
    }

    void send(const char *data) { port->write(encodeFrame(FrameKind::card, *fromHex(data))); }
    std::string reply()
    {
        const Bytes frame = port->readFrame();
        return frame.size() < 2 ? "silence" : toHex(decodeFrame(BytesView(frame).subspan(1, frame.size() - 2)).data);
    }

    void powerOn(Peer &peer)
    {
        send("32 22 00 00 00");
        EXPECT_EQ(peer.next(), "01");
        EXPECT_EQ(peer.next(), "04");
        peer.answer("3B 00");
        EXPECT_EQ(reply(), "00 00 3B 00");
    }

    TempDir dir;
    std::string socket = dir / "control";
    std::unique_ptr<SimProcess> sim;
    unsigned vpcdPort = 0;
    std::unique_ptr<HostPort> port;
};

TEST_F(VpcdBridgeTest, ACardIsPoweredAskedAndSwitchedOff)
{
    start();
    EXPECT_EQ(port->ask("32 22 00 00 00"), "10 05");
    Peer peer(vpcdPort);
    EXPECT_TRUE(cardIs("unpowered"));
    powerOn(peer);
    send("32 26 00 00 A4 00 0C 02 3F 00");
    EXPECT_EQ(peer.next(), "00 A4 00 0C 02 3F 00");
    peer.answer("90 00");
    EXPECT_EQ(reply(), "00 00 90 00");
    send("32 22 00 00 00"); // again: a reset
    EXPECT_EQ(peer.next(), "02");
    EXPECT_EQ(peer.next(), "04");
    peer.answer("3B 01 02");
    EXPECT_EQ(reply(), "00 00 3B 01 02");
    EXPECT_EQ(port->ask("32 23 00"), "00 00");
    EXPECT_EQ(peer.next(), "00");
    EXPECT_EQ(port->ask("32 21 00"), "10 03");
}

TEST_F(VpcdBridgeTest, AnswersMayComeInPieces)
{
    start();
    Peer peer(vpcdPort);
    EXPECT_TRUE(cardIs("unpowered"));
    powerOn(peer);
    send("32 26 00 00 84 00 00 02");
    peer.next();
    for (const Bytes bytes = *fromHex("00 04 11 22 90 00"); const std::uint8_t b : bytes)
        peer.write(BytesView(&b, 1));
    EXPECT_EQ(reply(), "00 00 11 22 90 00");
}

TEST_F(VpcdBridgeTest, ACardThatLeavesIsPulledOutAndMayComeAgain)
{
    start();
    for (int i = 0; i < 3; ++i) {
        Peer peer(vpcdPort);
        EXPECT_TRUE(cardIs("unpowered"));
        powerOn(peer);
        peer.leave();
        EXPECT_TRUE(cardIs("empty"));
        EXPECT_EQ(port->ask("32 26 00 00 84 00 00 08"), "10 05");
    }
}

TEST_F(VpcdBridgeTest, ACardThatLeavesInsteadOfAnsweringIsMissedAtOnce)
{
    start({"--card-patience", "60000"});
    Peer peer(vpcdPort);
    EXPECT_TRUE(cardIs("unpowered"));
    powerOn(peer);
    send("32 26 00 00 84 00 00 08");
    peer.next();
    peer.leave();
    EXPECT_EQ(reply(), "10 05");
}

TEST_F(VpcdBridgeTest, ACardThatConnectsEndsTheWaitingForIt)
{
    start();
    send("32 22 75 30 00");
    Peer peer(vpcdPort);
    EXPECT_EQ(peer.next(), "01");
    EXPECT_EQ(peer.next(), "04");
    peer.answer("3B 00");
    EXPECT_EQ(reply(), "00 00 3B 00");
}

TEST_F(VpcdBridgeTest, ALateAnswerBelongsToNobody)
{
    start({"--card-patience", "100"});
    Peer peer(vpcdPort);
    EXPECT_TRUE(cardIs("unpowered"));
    send("32 22 00 00 00");
    EXPECT_EQ(reply(), "10 04") << "no ATR in time: mute";
    EXPECT_EQ(peer.next(), "01");
    EXPECT_EQ(peer.next(), "04");
    EXPECT_EQ(peer.next(), "00");
    peer.answer("3B EE");
    powerOn(peer);
    send("32 26 00 00 84 00 00 01");
    EXPECT_EQ(reply(), "10 06");
    peer.next();
    send("32 26 00 00 84 00 00 02");
    EXPECT_EQ(peer.next(), "00 84 00 00 02");
    peer.answer("01 90 00"); // of the first command
    peer.answer("02 90 00");
    EXPECT_EQ(reply(), "00 00 02 90 00");
}

TEST_F(VpcdBridgeTest, OddMessagesDoNoHarm)
{
    start();
    Peer peer(vpcdPort);
    EXPECT_TRUE(cardIs("unpowered"));
    peer.answer("DE AD"); // nobody asked
    powerOn(peer);
    send("32 26 00 04"); // no command APDU; as a message it would be a control byte
    EXPECT_EQ(reply(), "00 00 67 00");
    send("32 26 00 00 84 00 00 00");
    EXPECT_EQ(peer.next(), "00 84 00 00 00");
    peer.answer(""); // an empty answer is none
    EXPECT_EQ(reply(), "10 06");
    send("32 26 00 00 84 00 00 00");
    EXPECT_EQ(peer.next(), "00 84 00 00 00");
    Bytes large(2 + 65535, 0x5A);
    large[0] = 0xFF;
    large[1] = 0xFF;
    peer.write(large);
    EXPECT_EQ(reply(), "10 07");
}

TEST_F(VpcdBridgeTest, OneCardAtATimeTheNextWaits)
{
    start();
    Peer first(vpcdPort);
    EXPECT_TRUE(cardIs("unpowered"));
    Peer second(vpcdPort);
    powerOn(first);
    EXPECT_EQ(second.next(50), "nothing");
    first.leave();
    EXPECT_TRUE(cardIs("unpowered"));
    powerOn(second);
}

TEST_F(VpcdBridgeTest, ARemovedSlotStopsListening)
{
    start();
    Peer peer(vpcdPort);
    EXPECT_TRUE(cardIs("unpowered"));
    powerOn(peer);
    EXPECT_EQ(control(socket, {"remove", "0"}), "ok\n");
    EXPECT_EQ(peer.next(), "nothing") << "the connection has ended";
    const std::string again = control(socket, {"insert", "0", "vpcd:" + std::to_string(vpcdPort)});
    EXPECT_EQ(again, "vpcd 0 " + std::to_string(vpcdPort) + "\nok\n");
    const std::string taken = control(socket, {"insert", "1", "vpcd:" + std::to_string(vpcdPort)});
    EXPECT_EQ(taken, "!error: vpcd port " + std::to_string(vpcdPort) + ": Address already in use\n");
}

} // namespace
} // namespace qvsim::test
