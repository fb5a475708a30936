#include "link/serialport.h"

#include "support/privatemachine.h"
#include "support/thisprocess.h"
#include "support/ttyfixture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

namespace {

termios settingsOf(const std::string& device)
{
    termios settings{};
    const int fd = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(tcgetattr(fd, &settings), 0);
    close(fd);
    return settings;
}

/// Terminals of this process that a program started by it would have as well, beside its standard streams.
int inheritableTerminals()
{
    int count = 0;
    for (int fd = 3; fd < 256; ++fd)
        count += isatty(fd) && (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0 ? 1 : 0;
    return count;
}

} // namespace

// The fixture connects `uart` to a pty at "/dev/ttymxc1"; the test holds the controller's end.
class OpenSerialPort : public ControllerLine
{
};

TEST_F(OpenSerialPort, IsNotInheritedByProgramsThatAreStarted)
{
    EXPECT_EQ(inheritableTerminals(), 0);
}

TEST_F(OpenSerialPort, ReadWithNothingPendingReturnsZeroAtOnceEvenForALargeLength)
{
    static char buffer[1 << 20];
    EXPECT_EQ(uart.SerialPortRead(buffer, sizeof buffer), 0);
}

TEST_F(OpenSerialPort, ReadOfLengthZeroWhileBytesArePendingReturnsZeroAndKeepsThem)
{
    controller().write("abc");
    char buffer[8] = {};
    EXPECT_EQ(uart.SerialPortRead(buffer, 0), 0);
    EXPECT_EQ(uart.IsInputBytesPending(), 3);
    EXPECT_EQ(uart.SerialPortRead(buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "abc");
}

TEST_F(OpenSerialPort, BytesPassBothWaysUntranslated)
{
    std::string all;
    for (int value = 0; value < 256; ++value)
        all += static_cast<char>(value);
    EXPECT_EQ(uart.SerialPortWrite(all.data(), 256), 256);
    EXPECT_EQ(controller().read(256), all);

    controller().write(all);
    char buffer[256];
    ASSERT_EQ(uart.IsInputBytesPending(), 256);
    ASSERT_EQ(uart.SerialPortRead(buffer, sizeof buffer), 256);
    EXPECT_EQ(std::string(buffer, sizeof buffer), all);
}

TEST_F(OpenSerialPort, LineSettingsAreExactlyThoseOfTheController)
{
    const termios settings = settingsOf("/dev/ttymxc1");
    EXPECT_EQ(settings.c_iflag, tcflag_t(IGNBRK | IGNPAR));
    EXPECT_EQ(settings.c_oflag, tcflag_t(0));
    EXPECT_EQ(settings.c_cflag, tcflag_t(B115200 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(settings.c_lflag, tcflag_t(0));
    EXPECT_EQ(cfgetispeed(&settings), speed_t(B115200));
    EXPECT_EQ(cfgetospeed(&settings), speed_t(B115200));
}

TEST_F(OpenSerialPort, ControlCharactersStayAsTheDeviceHadThem)
{
    PseudoLine other("/dev/ttymxc1"); // takes the name over: the next connect opens this one
    termios before{};
    ASSERT_EQ(tcgetattr(other.descriptor(), &before), 0);
    before.c_cc[VMIN] = 7;
    before.c_cc[VTIME] = 9;
    ASSERT_EQ(tcsetattr(other.descriptor(), TCSANOW, &before), 0);
    SerialPort port;
    ASSERT_GE(port.SerialPortConnect(), 0);
    const termios after = settingsOf("/dev/ttymxc1");
    EXPECT_EQ(after.c_cc[VMIN], 7);
    EXPECT_EQ(after.c_cc[VTIME], 9);
}

TEST_F(OpenSerialPort, ConnectDiscardsWhatWasPending)
{
    PseudoLine other("/dev/ttymxc1");
    other.write("left over");
    SerialPort port;
    ASSERT_GE(port.SerialPortConnect(), 0);
    EXPECT_EQ(port.IsInputBytesPending(), 0);
}

TEST_F(OpenSerialPort, DisconnectLogsAndClosesAndTheDestructorDoesSoWhenStillOpen)
{
    LogCapture log;
    const auto openBefore = openDescriptors();
    {
        SerialPort port;
        ASSERT_GE(port.SerialPortConnect(), 0);
    }
    EXPECT_EQ(openDescriptors(), openBefore);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"UART Port has been CLOSED "});
    log.forget();
    {
        SerialPort port;
        ASSERT_GE(port.SerialPortConnect(), 0);
        port.SerialPortDisconnect();
        EXPECT_EQ(openDescriptors(), openBefore);
        EXPECT_EQ(port.SerialPortWrite("x", 1), 0);
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>{"UART Port has been CLOSED "});
}

TEST_F(OpenSerialPort, AControllerThatHangsUpLeavesNegativeOrZeroReadsOnly)
{
    SerialPort port;
    char buffer[8];
    {
        PseudoLine other("/dev/ttymxc1");
        ASSERT_GE(port.SerialPortConnect(), 0);
    }
    EXPECT_LE(port.SerialPortRead(buffer, sizeof buffer), 0);
    EXPECT_LE(port.SerialPortWrite("x", 1), 0);
}

TEST(ClosedSerialPort, WriteReturnsZeroAndSendsNothing)
{
    SerialPort port;
    EXPECT_EQ(port.SerialPortWrite("HELLO", 5), 0);
}

TEST(ClosedSerialPort, ReadsNothingAndReportsNothingPending)
{
    SerialPort port;
    char buffer[4];
    EXPECT_EQ(port.IsInputBytesPending(), 0);
    EXPECT_EQ(port.SerialPortRead(buffer, sizeof buffer), 0);
}

TEST(ClosedSerialPort, DestructorOfANeverOpenedPortDoesNotLogTheClosing)
{
    LogCapture log;
    {
        SerialPort port;
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST(ClosedSerialPort, AnAbsentDeviceIsLoggedAndLeavesThePortClosed)
{
    const std::string reason = privatemachine::enter();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    LogCapture log;
    SerialPort port;
    EXPECT_EQ(port.SerialPortConnect(), -1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"open_port: Unable to open uart port "});
    EXPECT_EQ(port.SerialPortWrite("x", 1), 0);
}

TEST(ClosedSerialPort, ADeviceThatIsNoTerminalStaysOpenAndIsLogged)
{
    const std::string reason = privatemachine::enter();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    ASSERT_EQ(symlink("/dev/null", "/dev/ttymxc1"), 0);
    LogCapture log;
    SerialPort port;
    EXPECT_GE(port.SerialPortConnect(), 0);
    const std::vector<std::string> expected{"Can't get UART settings !", "Can't set UART speed !"};
    EXPECT_EQ(log.lines(), expected);
}
