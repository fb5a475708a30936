// The least that answers on the controller's line as the daemon does: greet, look every 5 ms, answer what
// ends with a line feed. It stands in the virtual instrument in the daemon's place and shows what line and
// poll cost by themselves.
#include <fcntl.h>
#include <QCoreApplication>
#include <QTimer>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int pollIntervalMs = 5;
const std::string greeting = "HELLO !\r\n";
const std::string answer = "SV: mx8 1.4 FPGA: bitfile not found\n";

int openLine()
{
    const int line = open("/dev/ttymxc1", O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios settings{};
    settings.c_cflag = B115200 | CS8 | CREAD | CLOCAL;
    settings.c_iflag = IGNBRK | IGNPAR;
    tcsetattr(line, TCSANOW, &settings);
    return line;
}

void say(int line, const std::string& text)
{
    if (write(line, text.data(), text.size()) < 0)
        QCoreApplication::exit(1);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int line = openLine();
    say(line, greeting);
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, [line, &timer] {
        char bytes[640];
        const ssize_t count = read(line, bytes, sizeof bytes);
        if (count > 0 && bytes[count - 1] == '\n')
            say(line, answer);
        timer.start(pollIntervalMs);
    });
    timer.start(pollIntervalMs);
    return QCoreApplication::exec();
}
