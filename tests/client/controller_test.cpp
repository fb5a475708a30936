#include "client/controller.h"
#include "client/lineerror.h"
#include "farend.h"
#include "kit/sections.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <thread>

using namespace tessary::client;
using namespace tessary::test;
using std::chrono::milliseconds;

namespace {

Patience quick()
{
    return {milliseconds(20000), milliseconds(100), milliseconds(20000)};
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

using Commands = std::vector<std::string>;

/// Sets another server, scans it and reads its services, on a far end that takes `pause` over each command.
void scanAnotherStream(milliseconds pause)
{
    Commands commands; // the far end's own until it has ended
    {
        std::string services = "<SDT>former";
        FarEnd far([&](const std::string& command) {
            std::this_thread::sleep_for(pause);
            commands.push_back(command);
            if (command == "scancur")
                services = "<SDT>other";
            if (command == "version?")
                return std::string("SV: mx8 1.4 FPGA: x\n");
            return command == "streaminfo?" ? services : std::string();
        });
        SerialLine line(far.pty.path());
        Controller controller(line, quick());
        controller.setServer({StreamServer::Protocol::Udp, "239.0.0.1", 1234, 0, 0});
        controller.scan();
        const Bytes answer = controller.streamInfo();
        EXPECT_EQ(std::string(answer.begin(), answer.end()), "other");
    }
    EXPECT_EQ(commands, (Commands{"server=UDP 239.0.0.1 1234", "scancur", "streaminfo?"}));
}

TEST(Controller, ScansTheServerThatWasSetHoweverLongTheDaemonTakes)
{
    for (const int pause : {0, 30, 350, 710})
        scanAnotherStream(milliseconds(pause));
}

TEST(Controller, ACommandSurvivesWhatAnEarlierProgramLeftUnread)
{
    std::atomic<bool> hold{true};
    std::atomic<bool> begun{false};
    Commands commands;
    {
        FarEnd far([&](const std::string& command) {
            commands.push_back(command);
            begun = true;
            while (hold)
                std::this_thread::sleep_for(milliseconds(1));
            return std::string(command == "version?" ? "SV: mx8 1.4 FPGA: x\n" : "");
        });
        SerialLine line(far.pty.path());
        line.write("PVR_export\n");
        while (!begun)
            std::this_thread::sleep_for(milliseconds(1));
        line.write("version?\n"); // of a program that was ended before it was read
        std::thread release([&] {
            std::this_thread::sleep_for(milliseconds(200));
            hold = false;
        });
        Controller controller(line, quick());
        controller.scan();
        release.join();
    }
    EXPECT_EQ(commands, (Commands{"PVR_export", "version?", "scancur"}));
}

TEST(Controller, AnAnswerThatIsLateIsNotTakenForTheNextOne)
{
    std::atomic<bool> hold{true};
    FarEnd far([&](const std::string& command) {
        while (command == "interface?" && hold)
            std::this_thread::sleep_for(milliseconds(1));
        return std::string(
            command == "interface?" ? "192.168.1.20 255.255.255.0\n" : "SV: mx8 1.4 FPGA: x\n");
    });
    SerialLine line(far.pty.path());
    Patience patience = quick();
    patience.firstByte = milliseconds(50);
    Controller controller(line, patience);
    EXPECT_THROW(controller.interfaceAddress(), LineError);
    std::thread release([&] {
        std::this_thread::sleep_for(milliseconds(100));
        hold = false;
    });
    EXPECT_EQ(controller.settle(), "192.168.1.20 255.255.255.0\n");
    release.join();
    EXPECT_EQ(controller.ask(request::recordingSize), "SV: mx8 1.4 FPGA: x\n");
}

TEST(Controller, AnAnswerWithPausesIsReadToItsEnd)
{
    FarEnd far([&](const std::string&) {
        far.pty.send("64 bytes from 10.0.0.1\n");
        std::this_thread::sleep_for(milliseconds(500));
        return std::string("1 received\n");
    });
    SerialLine line(far.pty.path());
    EXPECT_EQ(Controller(line, quick()).ping("10.0.0.1"), "64 bytes from 10.0.0.1\n1 received\n");
}

TEST(Controller, AskedBeforeTheDaemonStartsItAsksAgainAfterTheGreeting)
{
    int asked = 0;
    const PtyPair pty;
    std::thread far([&] {
        while (pty.receive(1000).empty()) { }
        pty.send("\rHELLO !\r\n"); // what was sent before is lost: the port's buffers are emptied
        std::string burst;
        while (burst.empty() || burst.back() != '\n')
            burst += pty.receive(1000);
        ++asked;
        pty.send("Service" + std::to_string(std::stoi(burst.substr(11, 2), nullptr, 16)));
    });
    SerialLine line(pty.path());
    EXPECT_EQ(Controller(line, quick()).settle(), "");
    far.join();
    EXPECT_EQ(asked, 1);
}

TEST(Controller, ARestartDuringACommandIsSaid)
{
    FarEnd far(
        [](const std::string& command) { return std::string(command == "scancur" ? "HELLO !\r\n" : ""); });
    SerialLine line(far.pty.path());
    EXPECT_THROW(Controller(line, quick()).scan(), LineError);
}

class Noted : public CommandWatcher
{
public:
    void carriedOut(std::string_view command, bool surely) override
    {
        all.push_back(std::string(command) + (surely ? "" : "?"));
    }
    void greeted() override { all.emplace_back("greeting"); }

    Commands all;
};

TEST(Controller, AQueryDuringWhichTheDaemonRestartsIsAskedAgain)
{
    int asked = 0;
    FarEnd far([&](const std::string& command) {
        if (command == "version?")
            return std::string(++asked == 1 ? "HELLO !\r\n" : "SV: mx8 1.4 FPGA: x\n");
        return std::string(command == "streaminfo?" ? "HELLO !\r\n" : "");
    });
    SerialLine line(far.pty.path());
    Noted noted;
    Controller controller(line, quick(), &noted);
    EXPECT_EQ(controller.version(), "SV: mx8 1.4 FPGA: x");
    EXPECT_THROW(controller.streamInfo(), LineError) << "it restarts over and over";
    EXPECT_EQ(noted.all, (Commands{"greeting", "version?", "greeting", "greeting", "streaminfo??"}));
}

TEST(Controller, AGreetingThatLiesUnreadIsSeenAndInNobodysWay)
{
    FarEnd far([](const std::string& command) {
        return std::string(command == "version?" ? "SV: mx8 1.4 FPGA: x\n" : "");
    });
    SerialLine line(far.pty.path());
    Noted noted;
    Controller controller(line, quick(), &noted);
    far.pty.send("HELLO !\r\n");
    EXPECT_EQ(controller.version(), "SV: mx8 1.4 FPGA: x");
    controller.setServer({StreamServer::Protocol::Udp, "239.0.0.1", 1234, 0, 0});
    EXPECT_EQ(noted.all, (Commands{"greeting", "version?", "server=UDP 239.0.0.1 1234"}));
}

/// What the shell's own line at the end of `command` prints.
std::string statusText(const std::string& command, int status)
{
    const std::size_t tag = command.find("[%d:") + 4;
    return "[" + std::to_string(status) + ":" + command.substr(tag, command.find(']', tag) - tag) + "]";
}

TEST(Controller, ACommandsOutputAndStatusAreTold)
{
    Commands commands; // the far end's own until it has ended
    {
        FarEnd far([&](const std::string& command) {
            commands.push_back(command);
            return "one\n[7:dead]\nHELLO !\r\n two" + statusText(command, 3);
        });
        SerialLine line(far.pty.path());
        const CommandOutcome outcome = Controller(line, quick()).runCommandShown("echo 'a b'");
        EXPECT_EQ(outcome.output, "one\n[7:dead]\nHELLO !\r\n two");
        EXPECT_EQ(outcome.status, 3);
        EXPECT_THROW(Controller(line, quick()).runCommandShown("one\ntwo"), std::invalid_argument);
    }
    ASSERT_EQ(commands.size(), 1U);
    EXPECT_EQ(commands[0].find(R"(command:sh -c 'echo '\''a b'\''' </dev/null >/dev/ttymxc1 2>&1; )"), 0U)
        << commands[0];
}

TEST(Controller, ACommandsOutputThatLooksLikeAnEndIsNone)
{
    FarEnd far([&](const std::string& command) {
        for (int number = 100; number < 256; ++number) {
            far.pty.send("Service" + std::to_string(number));
            std::this_thread::sleep_for(milliseconds(3)); // a read of its own
        }
        return statusText(command, 0);
    });
    SerialLine line(far.pty.path());
    EXPECT_EQ(Controller(line, quick()).runCommandShown("cat").output.size(), 156U * 10);
}

TEST(Controller, ACommandLongerThanABurstIsRefused)
{
    FarEnd far([](const std::string&) { return std::string(); });
    SerialLine line(far.pty.path());
    Controller controller(line, quick());
    controller.runCommand(std::string(619, 'x')); // 640 with "command:" and the mark
    EXPECT_THROW(controller.runCommand(std::string(620, 'x')), std::invalid_argument);
}

/// What the far end of the next test answers: each command otherwise, with all kinds of ends, some with
/// nothing.
std::string answerOf(const std::string& command, unsigned number)
{
    const std::string digits = std::to_string(1000 + number % 9000);
    if (command == "PVR_reclist")
        return "reclist file:" + digits + " Bytes";
    if (command == "interface?")
        return "10.0.0.1 " + digits + "\n";
    if (command == "version?")
        return "SV: mx8 " + digits + " FPGA: x\n";
    if (command == "getethernetmes?")
        return std::string("\1\0\0\0", 4) + digits + std::string(20, '\0');
    if (command == "getiat?")
        return digits + ";" + digits + ";";
    if (command == "!07_E_&")
        return std::string(46, '*') + digits;
    if (command == "streaminfo?" || command == "getnit?")
        return number % 2 == 0 ? "" : "<SDT>" + digits;
    return {};
}

/// Keeps every processor busy while it lives.
class Load
{
public:
    Load()
    {
        for (unsigned i = 0; i < std::max(std::thread::hardware_concurrency(), 2U); ++i)
            m_threads.emplace_back([this] {
                while (!m_stop) { }
            });
    }
    ~Load()
    {
        m_stop = true;
        for (std::thread& thread : m_threads)
            thread.join();
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    std::atomic<bool> m_stop{false};
    std::vector<std::thread> m_threads;
};

TEST(Controller, TenThousandCommandsInAnyOrderUnderLoadAllArriveAndGetTheirOwnAnswers)
{
    // Up to 0.8 s late, in the scale of 1 to 200: before a command is carried out, and between it and its
    // mark's answer. Now and then longer than any of the far end's polls.
    constexpr unsigned count = 10000;
    Commands carriedOut;
    Commands sent;
    std::mt19937 random(11);
    {
        const Load load;
        FarEnd far(
            [&](const std::string& command) {
                carriedOut.push_back(command);
                return answerOf(command, static_cast<unsigned>(carriedOut.size()));
            },
            [noise = std::mt19937(12)]() mutable {
                std::this_thread::sleep_for(std::chrono::microseconds(noise() % 4000));
                if (noise() % 400 == 0)
                    std::this_thread::sleep_for(milliseconds(noise() % 60));
            });
        SerialLine line(far.pty.path());
        Controller controller(line, quick());
        const Request* const requests[] = {&request::setServer, &request::scan, &request::play,
            &request::streamInfo, &request::networkInformation, &request::recordingSize,
            &request::interfaceAddress, &request::version, &request::measurement, &request::interArrivalTimes,
            &request::ebsInfo, &request::command};
        while (sent.size() < count) {
            const Request& request = *requests[random() % std::size(requests)];
            const std::string_view word = request.word;
            const bool argument = word.back() == '=' || word.back() == ':';
            const std::string value = argument ? std::to_string(sent.size()) : "";
            sent.push_back(request.word + value);
            const auto number = static_cast<unsigned>(sent.size());
            ASSERT_EQ(controller.ask(request, value), answerOf(sent.back(), number)) << number;
        }
    }
    EXPECT_EQ(carriedOut, sent);
}

} // namespace
