// Sends a transport stream as datagrams at high rates: ready frames through a packet socket, many to a system
// call.
#include "streamframes.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <getopt.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto tick = std::chrono::microseconds(500);
constexpr auto longestLag = std::chrono::milliseconds(2);
constexpr unsigned longestCall = 256;

struct Options
{
    FrameOptions frames;
    std::string interface = "uplink";
    double rate = 10000; ///< datagrams per second
    unsigned long count = 20000; ///< datagrams
};

struct Sent
{
    unsigned long datagrams = 0;
    unsigned longestBurst = 0; ///< datagrams at once after a late wake-up
    double seconds = 0;
};

const char* const usage = R"(usage: frame-sender [options]

Sends a transport stream without continuity errors as UDP datagrams at an even rate, through a packet socket: the network
needs no route, and the receiver's MAC address is given. Prints what was sent as one line of JSON.

  --interface NAME   (default uplink)
  --rate N           datagrams per second (default 10000)
  --count N          datagrams in all (default 20000)
  --address A        destination (default 239.0.0.1)
  --mac M            destination's MAC address (default 01:00:5e:00:00:01)
  --port P           (default 1234)
  --packets N        TS packets in a datagram (default 7)
)";

std::array<unsigned char, 6> parseMac(const char* text)
{
    std::array<unsigned char, 6> mac{};
    if (std::sscanf(
            text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5])
        != 6)
        throw std::invalid_argument(std::string(text) + " is no MAC address");
    return mac;
}

void takeOption(Options& options, int letter, const char* value)
{
    switch (letter) {
    case 'i':
        options.interface = value;
        break;
    case 'r':
        options.rate = std::stod(value);
        break;
    case 'c':
        options.count = std::stoul(value);
        break;
    case 'a':
        options.frames.destination = value;
        break;
    case 'm':
        options.frames.destinationMac = parseMac(value);
        break;
    case 'p':
        options.frames.port = static_cast<std::uint16_t>(std::stoul(value));
        break;
    case 'n':
        options.frames.packets = static_cast<unsigned>(std::stoul(value));
        break;
    default:
        std::fputs(usage, letter == 'h' ? stdout : stderr);
        std::exit(letter == 'h' ? 0 : 2);
    }
}

Options parse(int argc, char** argv)
{
    static const option known[] = {{"interface", required_argument, nullptr, 'i'},
        {"rate", required_argument, nullptr, 'r'}, {"count", required_argument, nullptr, 'c'},
        {"address", required_argument, nullptr, 'a'}, {"mac", required_argument, nullptr, 'm'},
        {"port", required_argument, nullptr, 'p'}, {"packets", required_argument, nullptr, 'n'},
        {"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
    Options options;
    for (int letter = 0; (letter = getopt_long(argc, argv, "", known, nullptr)) != -1;)
        takeOption(options, letter, optarg);
    return options;
}

int openInterface(const std::string& name)
{
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
    if (fd < 0 || to.sll_ifindex == 0 || bind(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0)
        throw std::runtime_error("can not send on " + name + ": " + std::strerror(errno));
    return fd;
}

class Sender
{
public:
    explicit Sender(const Options& options)
        : m_options(options)
        , m_frames(streamFrames(options.frames))
        , m_fd(openInterface(options.interface))
    {
        for (std::vector<unsigned char>& frame : m_frames)
            m_bytes.push_back({frame.data(), frame.size()});
    }
    ~Sender() { close(m_fd); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    /// Every tick, what is due by then. A late wake-up is caught up at once up to `longestLag`; the rest of
    /// the delay moves the schedule on: a burst that the stream never had would be the sender's fault, not
    /// the receiver's.
    Sent run()
    {
        Sent sent;
        const Clock::time_point begin = Clock::now();
        Clock::time_point schedule = begin;
        for (Clock::time_point wake = begin; sent.datagrams < m_options.count;
             std::this_thread::sleep_until(wake)) {
            if (const auto lag = Clock::now() - wake; lag > longestLag) {
                schedule += lag - longestLag;
                wake += lag - longestLag;
            }
            const std::chrono::duration<double> passed = Clock::now() - schedule;
            const auto due = static_cast<unsigned long>(passed.count() * m_options.rate) + 1;
            const unsigned long now = std::min(due, m_options.count);
            const auto burst = static_cast<unsigned>(now > sent.datagrams ? now - sent.datagrams : 0);
            for (unsigned done = 0; done < burst;)
                done += send(sent.datagrams + done, std::min(burst - done, longestCall));
            sent.datagrams += burst;
            sent.longestBurst = std::max(sent.longestBurst, burst);
            wake += tick;
        }
        sent.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        return sent;
    }

private:
    unsigned send(unsigned long first, unsigned count)
    {
        mmsghdr messages[longestCall] = {};
        for (unsigned i = 0; i < count; ++i) {
            messages[i].msg_hdr.msg_iov = &m_bytes[(first + i) % frameCycle];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int sent = sendmmsg(m_fd, messages, count, 0);
        if (sent >= 0)
            return static_cast<unsigned>(sent);
        if (errno != ENOBUFS && errno != EAGAIN && errno != EINTR)
            throw std::runtime_error(std::string("sendmmsg: ") + std::strerror(errno));
        return 0; // the device's queue is full: the same ones again
    }

    const Options& m_options;
    std::vector<std::vector<unsigned char>> m_frames;
    std::vector<iovec> m_bytes;
    int m_fd;
};

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = parse(argc, argv);
        // It stands for a network, which sends when it has to; without the right to this it is an ordinary
        // program.
        const sched_param first{1};
        sched_setscheduler(0, SCHED_FIFO, &first);
        const Sent sent = Sender(options).run();
        std::printf("{\"datagrams\": %lu, \"seconds\": %.6f, \"longest_burst\": %u}\n", sent.datagrams,
            sent.seconds, sent.longestBurst);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "frame-sender: %s\n", error.what());
        return 1;
    }
}
