#include "link/serialport.h"

#include <fcntl.h>
#include <QtDebug>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

SerialPort::SerialPort()
    : m_fd(-1)
{
}

SerialPort::~SerialPort()
{
    if (m_fd != -1)
        SerialPortDisconnect();
}

int SerialPort::SerialPortConnect()
{
    m_fd = open("/dev/ttymxc1", O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (m_fd == -1) {
        qDebug("open_port: Unable to open uart port ");
        return -1;
    }
    // Programs that the daemon starts, the multicast routing daemon for good, have no business on the
    // controller's line.
    fcntl(m_fd, F_SETFD, FD_CLOEXEC);
    termios settings{};
    if (tcgetattr(m_fd, &settings) == -1)
        qDebug("Can't get UART settings !");
    // Assigned whole: nothing that another program left on the device survives, except the control
    // characters.
    settings.c_iflag = IGNBRK | IGNPAR;
    settings.c_oflag = 0;
    settings.c_cflag = B115200 | CS8 | CREAD | CLOCAL;
    settings.c_lflag = 0;
    cfsetispeed(&settings, B115200);
    cfsetospeed(&settings, B115200);
    tcflush(m_fd, TCIOFLUSH);
    if (tcsetattr(m_fd, TCSANOW, &settings) == -1)
        qDebug("Can't set UART speed !");
    return m_fd;
}

void SerialPort::SerialPortDisconnect()
{
    close(m_fd);
    m_fd = -1;
    qDebug("UART Port has been CLOSED ");
}

int SerialPort::SerialPortWrite(const char* buffer, int length)
{
    if (m_fd == -1)
        return 0;
    return static_cast<int>(write(m_fd, buffer, static_cast<size_t>(length)));
}

int SerialPort::IsInputBytesPending()
{
    int pending = 0;
    if (m_fd != -1)
        ioctl(m_fd, FIONREAD, &pending);
    return pending;
}

int SerialPort::SerialPortRead(char* buffer, int length)
{
    if (m_fd == -1 || IsInputBytesPending() < 1)
        return 0;
    return static_cast<int>(read(m_fd, buffer, static_cast<size_t>(length)));
}

void SerialPort::DrainOutput()
{
    tcdrain(m_fd);
}
