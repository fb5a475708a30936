#include "commands/reply.h"
#include "commands/uart_command.h"
#include "measure/ethernetmeasurement.h"
#include "media/rtpsource.h"
#include "media/udpsource.h"
#include "system/mydata.h"
#include "system/text.h"

#include <algorithm>
#include <cstdlib>
#include <QtDebug>

namespace {

constexpr auto none = std::string::npos;
constexpr std::size_t t2miFrameBufferBytes = 100000;
constexpr std::size_t t2miChunkBytes = 4096;

bool isT2mi(protocol p)
{
    return p == protocolUdpT2mi || p == protocolRtpT2mi;
}

/// A new source of the server's stream; null for a protocol that does not exist.
gstsource* makeServerSource()
{
    T2MI_Config_Struct pair{
        static_cast<std::int32_t>(data.t2miPid), static_cast<std::int32_t>(data.t2miPlpId)};
    T2MI_Config_Struct* t2mi = isT2mi(data.serverProtocol) ? &pair : nullptr;
    switch (data.serverProtocol) {
    case protocolUdp:
    case protocolUdpT2mi:
        return new udpsource(data.serverAddress, data.serverPort, t2mi);
    case protocolRtp:
    case protocolRtpT2mi:
        return new rtpsource(data.serverAddress, data.serverPort, t2mi);
    }
    return nullptr;
}

/// The T2-MI names contain the plain ones and are looked for first.
protocol protocolNamedIn(const std::string& text, protocol otherwise)
{
    if (text.find("UDP_T2MI") != none)
        return protocolUdpT2mi;
    if (text.find("RTP_T2MI") != none)
        return protocolRtpT2mi;
    if (text.find("UDP") != none)
        return protocolUdp;
    if (text.find("RTP") != none)
        return protocolRtp;
    return otherwise;
}

std::string protocolWord(protocol p)
{
    switch (p) {
    case protocolUdp:
        return "UDP ";
    case protocolRtp:
        return "RTP ";
    case protocolUdpT2mi:
        return "UDP_T2MI ";
    case protocolRtpT2mi:
        return "RTP_T2MI ";
    }
    return "";
}

std::size_t nextBlank(const std::string& text, std::size_t blank)
{
    return blank == none ? none : text.find(' ', blank + 1);
}

void replyTable(const std::vector<std::uint8_t>* bytes)
{
    if (bytes && !bytes->empty())
        replyByteByByte(*bytes);
}

/// Size in bytes of the last T2-MI frame of the current source, 0 when the source carries none.
int readT2miFrame(unsigned char* buffer)
{
    if (data.serverProtocol == protocolUdpT2mi) {
        if (auto* source = dynamic_cast<udpsource*>(instance))
            return source->GetT2MIFrame(buffer);
    } else if (data.serverProtocol == protocolRtpT2mi) {
        if (auto* source = dynamic_cast<rtpsource*>(instance))
            return source->GetT2MIFrame(buffer);
    }
    return 0;
}

} // namespace

void Uart_GetServer()
{
    qDebug("GETserver\n");
    const std::string text =
        protocolWord(data.serverProtocol) + data.serverAddress + " " + data.serverPort + "\n";
    (void)text; // built and not sent: this command's silence is meant
}

void Uart_SetServer(std::string arg)
{
    qDebug("SETserver\n");
    const std::size_t newline = arg.find('\n');
    data.serverProtocol = protocolNamedIn(arg, data.serverProtocol);
    const std::size_t blank1 = arg.find(' ');
    const std::size_t blank2 = nextBlank(arg, blank1);
    const std::size_t blank3 = nextBlank(arg, blank2);
    const std::size_t blank4 = nextBlank(arg, blank3);
    const std::size_t portEnd = blank3 != none ? blank3 : newline;
    const std::size_t plpStart = blank3 != none ? blank4 : newline;

    if (blank1 != none && blank2 != none && blank1 != 0) {
        const bool ended = portEnd != none && portEnd > blank2;
        data.serverAddress = withoutLineEnds(arg.substr(blank1 + 1, blank2 - blank1 - 1));
        data.serverPort = withoutLineEnds(arg.substr(blank2 + 1, ended ? portEnd - blank2 - 1 : none));
    }
    const bool hasPair = portEnd != none && plpStart != none && portEnd != 0 && plpStart != 0;
    if (isT2mi(data.serverProtocol) && hasPair) {
        // Without PID and PLP id both texts begin behind the line feed, and the conversion throws.
        data.t2miPid = static_cast<std::uint32_t>(std::stoi(arg.substr(portEnd + 1)));
        data.t2miPlpId = static_cast<std::uint32_t>(std::stoi(arg.substr(plpStart + 1)));
    }
}

void Uart_Scancur()
{
    qDebug("SCANcur\n");
    ethMes->stop();
    delete instance;
    instance = nullptr;
    instance = makeServerSource();
    if (instance)
        instance->scanStream();
}

void Uart_Play(std::string arg)
{
    qDebug("PLay\n");
    data.programNumber = static_cast<std::uint32_t>(std::strtol(arg.c_str(), nullptr, 10));
    if (!instance)
        instance = makeServerSource();
    if (!instance)
        return;
    instance->stop();
    instance->play(static_cast<int>(data.programNumber));
}

void Uart_SendTS()
{
    qDebug("SENDts\n");
    if (!instance)
        instance = makeServerSource();
    if (!instance)
        return;
    instance->stop();
    instance->sendStream();
}

void Uart_GstreamerStatus()
{
    qDebug("VIDeostatus\n");
    if (!instance)
        return;
    std::string text;
    instance->status(&text);
    replyByteByByte(text);
}

void Uart_StreamInfo()
{
    qDebug("STReaminfos\n");
    if (instance)
        replyTable(instance->getStreamInformation());
}

void Uart_GetNIT()
{
    qDebug("GETnit\n");
    if (instance)
        replyTable(instance->getNIT());
}

void Uart_GetPMT()
{
    qDebug("GETpmt\n");
    if (instance)
        replyTable(instance->getPMT());
}

void Uart_GetT2MIFrame()
{
    qDebug("GetT2MIFrame\n");
    std::vector<unsigned char> buffer(t2miFrameBufferBytes);
    const auto size = static_cast<std::size_t>(readT2miFrame(buffer.data()));
    const char* frame = reinterpret_cast<const char*>(buffer.data());
    // A chunk fills the line: it is drained between two.
    for (std::size_t begin = 0; begin < size; begin += t2miChunkBytes)
        replyPart(frame + begin, std::min(t2miChunkBytes, size - begin));
}
