#include "client/controller.h"
#include "client/lineerror.h"
#include "ptypair.h"
#include "sectionbuilder.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

using namespace tessary::client;
using namespace tessary::test;
using std::chrono::milliseconds;

namespace {

/// The far end of the line: hands each command (without line feed) to a function and sends what that returns.
class FarEnd
{
public:
    using Answer = std::function<std::string(const std::string&)>;

    explicit FarEnd(Answer answer)
        : m_answer(std::move(answer))
        , m_thread([this] { run(); })
    {
    }
    ~FarEnd()
    {
        m_stop = true;
        m_thread.join();
    }
    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;

    PtyPair pty;

private:
    void run()
    {
        std::string received;
        while (!m_stop) {
            received += pty.receive(10);
            for (auto end = received.find('\n'); end != std::string::npos; end = received.find('\n')) {
                pty.send(m_answer(received.substr(0, end)));
                received.erase(0, end + 1);
            }
        }
    }

    Answer m_answer;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

Patience quick()
{
    return {milliseconds(20000), milliseconds(100), milliseconds(1000)};
}

TEST(StreamServer, WritesTheFieldsThatItsProtocolHas)
{
    using Protocol = StreamServer::Protocol;
    EXPECT_EQ((StreamServer{Protocol::Udp, "239.0.0.1", 1234, 0, 0}.text()), "UDP 239.0.0.1 1234");
    EXPECT_EQ((StreamServer{Protocol::Rtp, "10.0.0.5", 5004, 64, 1}.text()), "RTP 10.0.0.5 5004");
    EXPECT_EQ((StreamServer{Protocol::UdpT2mi, "239.0.0.1", 1234, 4096, 1}.text()),
        "UDP_T2MI 239.0.0.1 1234 4096 1");
    EXPECT_EQ((StreamServer{Protocol::RtpT2mi, "239.0.0.2", 5000, 4096, 0}.text()),
        "RTP_T2MI 239.0.0.2 5000 4096 0");
}

TEST(Controller, WaitsForTheGreetingAndSkipsWhatCameBefore)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    Controller controller(line, quick());
    pty.send("left over\nhalf HELLO !\r\nSV: next\n");
    controller.waitForGreeting(milliseconds(20000));
    EXPECT_EQ(line.readLine(milliseconds(20000)), "SV: next\n");
}

TEST(Controller, SaysThatNoGreetingCame)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    Controller controller(line, quick());
    pty.send("something else\n");
    EXPECT_THROW(controller.waitForGreeting(milliseconds(50)), LineError);
}

TEST(Controller, AsksForTheVersion)
{
    FarEnd far(
        [](const std::string& command) { return command == "version?" ? "SV: mx8 1.4 FPGA: x\n" : "?"; });
    SerialLine line(far.pty.path());
    EXPECT_EQ(Controller(line, quick()).version(), "SV: mx8 1.4 FPGA: x");
}

TEST(Controller, ReadsTablesByTheirShape)
{
    const Bytes pmt = makeSection(0x02, 2, {0xE1, 0x00, 0xF0, 0x00});
    const Bytes sdt = makeSection(0x42, 1, Bytes(3 + 700, 0x11));
    FarEnd far([&](const std::string& command) {
        if (command == "getpmt?")
            return std::string(pmt.begin(), pmt.end());
        if (command == "streaminfo?")
            return "<SDT>" + std::string(sdt.begin(), sdt.end());
        if (command == "version?")
            return std::string("SV: mx8 1.4 FPGA: x\n"); // what tells a silent daemon from a dead one
        return std::string(command == "videostatus?" ? "running" : "");
    });
    SerialLine line(far.pty.path());
    Controller controller(line, quick());
    EXPECT_EQ(controller.programMap(), pmt);
    EXPECT_EQ(controller.streamInfo(), sdt);
    EXPECT_EQ(controller.playerStatus(), "running");
    EXPECT_TRUE(controller.networkInformation().empty());
    EXPECT_TRUE(controller.t2miFrame().empty());
}

TEST(Controller, ASilentCommandIsFollowedByAQuestionUntilItIsAnswered)
{
    // The daemon drops a question that lies in one burst with the command before it; the second one must be
    // asked.
    std::vector<std::string> commands; // the far end's own until it has ended
    {
        FarEnd far([&](const std::string& command) {
            commands.push_back(command);
            return std::string(commands.size() >= 3 ? "SV: mx8 1.4 FPGA: x\n" : "");
        });
        SerialLine line(far.pty.path());
        Controller(line, quick()).setServer({StreamServer::Protocol::Udp, "239.0.0.1", 1234, 0, 0});
    }
    ASSERT_GE(commands.size(), 3U); // more where the answer takes its time
    EXPECT_EQ(commands[0], "server=UDP 239.0.0.1 1234");
    for (std::size_t i = 1; i < commands.size(); ++i)
        EXPECT_EQ(commands[i], "version?");
}

} // namespace
