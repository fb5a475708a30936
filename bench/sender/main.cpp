#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <sys/prctl.h>
#include <unistd.h>

#include "capture_datagrams.h"
#include "capture_flow.h"
#include "capture_reader.h"
#include "datagram_socket.h"
#include "frame_socket.h"
#include "options.h"
#include "send_loop.h"
#include "stream_datagrams.h"
#include "ts_file.h"

namespace {

using namespace tessary::sender;

enum ExitStatus { Sent = 0, SendingFailed = 1, WrongArguments = 2, FileUnusable = 3 };

volatile std::sig_atomic_t stopSignal = 0;

void onStopSignal(int number)
{
    stopSignal = number;
}

void catchStopSignals()
{
    struct sigaction action
    {
    };
    action.sa_handler = onStopSignal;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

/// Tells when to stop; looks for the stop file at most every 100 ms.
class StopRequest
{
public:
    explicit StopRequest(std::string file)
        : m_file(std::move(file))
    {
    }

    bool operator()()
    {
        if (stopSignal != 0)
            return true;
        const auto now = std::chrono::steady_clock::now();
        if (m_file.empty() || now < m_nextLook)
            return false;
        m_nextLook = now + std::chrono::milliseconds(100);
        return ::access(m_file.c_str(), F_OK) == 0;
    }

private:
    std::string m_file;
    std::chrono::steady_clock::time_point m_nextLook{};
};

std::unique_ptr<Outlet> outletOf(const Options& options)
{
    const Target target = targetOf(options);
    if (options.keepVlan)
        return std::make_unique<FrameSocket>(target);
    return std::make_unique<DatagramSocket>(target);
}

int sendAll(const Options& options, DatagramSource& source)
{
    const auto outlet = outletOf(options);
    catchStopSignals();
    // Without this the kernel may wake a sleeper 50 us late to save power: a whole datagram's time at 200
    // Mbit/s.
    ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    SendLoop loop(options, source, *outlet, StopRequest(options.stopFile));
    const Report report = loop.run();
    if (options.json)
        std::printf("%s\n", report.json().c_str());
    else
        std::fputs(report.text().c_str(), stdout);
    return Sent;
}

int sendFile(const Options& options)
{
    const TsFile file(options.file);
    if (file.bytesLeftOver() != 0)
        std::fprintf(stderr, "tessary-send: %s: %zu bytes of an incomplete last packet are not sent\n",
            options.file.c_str(), file.bytesLeftOver());
    StreamDatagrams source(options, file);
    return sendAll(options, source);
}

int sendCapture(const Options& options)
{
    const CaptureFlow flow = chooseFlow(options.file, findFlows(options.file), options.flow);
    if (flow.rtp != options.rtp)
        throw UsageError(options.file + ": the datagrams to " + flow.name() + " are "
            + (flow.rtp ? "RTP; write rtp://" : "without RTP; write udp://") + "HOST:PORT");
    CaptureDatagrams source(options.file, flow, options.passes, options.keepVlan);
    return sendAll(options, source);
}

int fail(int status, const std::exception& error)
{
    std::fprintf(stderr, "tessary-send: %s\n", error.what());
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = parseOptions(argc, argv);
        if (options.help) {
            std::fputs(helpText().c_str(), stdout);
            return Sent;
        }
        const bool isCapture = CaptureReader::isCapture(options.file);
        checkForCapture(options, isCapture);
        return isCapture ? sendCapture(options) : sendFile(options);
    } catch (const UsageError& error) {
        return fail(WrongArguments, error);
    } catch (const StreamError& error) {
        return fail(FileUnusable, error);
    } catch (const std::exception& error) {
        return fail(SendingFailed, error);
    }
}
