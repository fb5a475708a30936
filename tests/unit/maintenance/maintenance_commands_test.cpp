// The maintenance commands: ping (or what begins with it), versions, console commands.
#include "commands/uart_command.h"
#include "kit/handlertest.h"
#include "link/serialport.h"
#include "support/privatemachine.h"
#include "support/testfiles.h"
#include "system/system_config.h"

#include <cstdlib>
#include <cstring>

namespace {

class MaintenanceCommands : public HandlerTest
{
protected:
    void prepare() override
    {
        ASSERT_EQ(privatemachine::coverWithEmpty("/home"), "");
        programs.add("ping");
        log.forget();
    }

    RecordedPrograms programs;
    LogCapture log;
};

TEST_F(MaintenanceCommands, PingRepliesTheProgramsOutputByteForByte)
{
    // Longer than one read of the pipe, with an empty line, without a line end: nothing is added or lost.
    const std::string output =
        "PING 192.168.77.1 (192.168.77.1) 56(84) bytes of data.\n\n" + std::string(100, 'x') + "\nend";
    programs.add("ping", output);
    Uart_Ping("ping -c 1 192.168.77.1\n");
    EXPECT_EQ(reply(), output);
    EXPECT_EQ(programs.calls(), std::vector<std::string>{"ping|-c|1|192.168.77.1"});
    EXPECT_TRUE(log.contains("PINg\n"));
}

TEST_F(MaintenanceCommands, PingLeavesStandardErrorOut)
{
    programs.add("ping", "", "usage error\n", 2);
    testing::internal::CaptureStderr();
    Uart_Ping("ping\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "usage error\n");
    EXPECT_EQ(reply(), "");
}

TEST_F(MaintenanceCommands, PingRunsAnyCommandLineThatBeginsWithTheWord)
{
    Uart_Ping("ping -c 1 a; echo more\n");
    EXPECT_EQ(reply(), "more\n");
}

TEST_F(MaintenanceCommands, PingOfACommandThatPrintsNothingIsEmpty)
{
    EXPECT_EQ(systconf.Ping("exit 3"), "");
}

TEST_F(MaintenanceCommands, PingOfALongOutputIsComplete)
{
    programs.addScript("ping",
        "i=0; while [ $i -lt 400 ]; do echo \"64 bytes from 192.168.77.1: icmp_seq=$i\"; i=$((i+1)); done");
    const std::string output = systconf.Ping("ping -c 400 192.168.77.1");
    EXPECT_EQ(output.substr(0, 41), "64 bytes from 192.168.77.1: icmp_seq=0\n64");
    EXPECT_EQ(output.substr(output.size() - 13), "icmp_seq=399\n");
}

TEST_F(MaintenanceCommands, VersionIsOneLineWhateverTheFpgaSays)
{
    const int written = Uart_Version();
    EXPECT_EQ(reply(), "SV: mx8 " TESSARY_VERSION " FPGA: bitfile not found\n");
    EXPECT_EQ(written, 36);
    EXPECT_TRUE(log.contains("VERsion\n"));
}

TEST_F(MaintenanceCommands, VersionOnAClosedLineReportsNothingWritten)
{
    uart.SerialPortDisconnect();
    EXPECT_EQ(Uart_Version(), 0);
}

TEST_F(MaintenanceCommands, ConsoleCommandRunsWithTheCompositorsEnvironmentAndIsSilent)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    const int status = Uart_ConsoleCommand("echo $QT_QPA_PLATFORM $XDG_RUNTIME_DIR > /home/environment\n");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readFile("/home/environment"), "wayland /run/user/0\n");
    EXPECT_EQ(reply(), "");
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(MaintenanceCommands, ConsoleCommandsEnvironmentStaysForLaterChildren)
{
    Uart_ConsoleCommand("true");
    EXPECT_STREQ(getenv("QT_QPA_PLATFORM"), "wayland");
    EXPECT_STREQ(getenv("XDG_RUNTIME_DIR"), "/run/user/0");
    EXPECT_EQ(systconf.Ping("echo $XDG_RUNTIME_DIR"), "/run/user/0\n");
}

TEST_F(MaintenanceCommands, AnEnvironmentThatIsRightIsLeftAloneByALaterConsoleCommand)
{
    // Texts of the test's own: setting the variable again would put another text in their place.
    char platform[] = "QT_QPA_PLATFORM=wayland";
    char runtimeFolder[] = "XDG_RUNTIME_DIR=/run/user/0";
    putenv(platform);
    putenv(runtimeFolder);
    Uart_ConsoleCommand("true");
    EXPECT_EQ(getenv("QT_QPA_PLATFORM"), std::strchr(platform, '=') + 1);
    EXPECT_EQ(getenv("XDG_RUNTIME_DIR"), std::strchr(runtimeFolder, '=') + 1);
    unsetenv("QT_QPA_PLATFORM");
    unsetenv("XDG_RUNTIME_DIR");
}

TEST_F(MaintenanceCommands, ConsoleCommandReturnsTheWaitStatus)
{
    EXPECT_EQ(Uart_ConsoleCommand("exit 7\n"), 7 << 8);
}

TEST_F(MaintenanceCommands, ConsoleCommandIsLoggedWithItsText)
{
    Uart_ConsoleCommand("true\n");
    EXPECT_TRUE(log.contains("Console command : true\n \n")) << log.lines().front();
}

} // namespace
