#include "app/commandtable.h"

#include "app/worker.h"
#include "commands/uart_command.h"
#include "system/network.h"

#include <cstring>
#include <string>

namespace {

/// Row of a handler without argument, whatever it returns.
template <auto handler> void call(Worker&, char*)
{
    handler();
}

/// Row of a handler that takes the text from `offset` up to the next NUL byte, line end included.
template <auto handler, int offset> void callWithText(Worker&, char* text)
{
    handler(std::string(text + offset));
}

/// Row of a framed command "!.._._.X:" with two index characters. The NUL goes into the burst's buffer, over
/// the line end: this is meant, the split resumes behind it.
template <void (*handler)(std::string)> void callWithIndex(Worker&, char* text)
{
    text[11] = '\0';
    handler(std::string(text + 9));
}

/// The link watch renews the multicast membership, also of a server whose address is stored when its T2-MI
/// fields turn out to be no numbers.
void setServerAndRequestJoin(Worker&, char* text)
{
    const struct JoinRequest
    {
        ~JoinRequest() { net.joinRequested.store(true, std::memory_order_release); }
    } onEveryWayOut;
    Uart_SetServer(std::string(text + 7));
}

bool dabStarted(const Worker& worker)
{
    return worker.dabStarted();
}

bool dabStopped(const Worker& worker)
{
    return !worker.dabStarted();
}

// The order is the order of matching. A word that is the beginning of another must come after it.
const CommandRow commandTable[] = {
    {"interface?", nullptr, call<Uart_GetInterface>},
    {"interface=", nullptr, callWithText<Uart_SetInterface, 10>},
    {"server?", nullptr, call<Uart_GetServer>},
    {"server=", nullptr, setServerAndRequestJoin},
    {"scancur", nullptr, call<Uart_Scancur>},
    {"streaminfo?", nullptr, call<Uart_StreamInfo>},
    {"videostatus?", nullptr, call<Uart_GstreamerStatus>},
    {"getnit?", nullptr, call<Uart_GetNIT>},
    {"getpmt?", nullptr, call<Uart_GetPMT>},
    {"play=", nullptr, callWithText<Uart_Play, 5>},
    {"getiat?", nullptr, call<Uart_GetIAT>},
    {"getethernetmes?", nullptr, call<Uart_GetEthernetMeasurement>},
    {"ping", nullptr, callWithText<Uart_Ping, 0>},
    {"version?", nullptr, call<Uart_Version>},
    {"update", nullptr, callWithText<Uart_Update, 7>},
    {"sendts", nullptr, call<Uart_SendTS>},
    {"t2miframe?", nullptr, call<Uart_GetT2MIFrame>},
    {"ipstatus?", nullptr, call<Uart_IpStatus>},
    {"!07_S_&", nullptr, call<Uart_ScancurEBS>},
    {"!0C_D_IX:", nullptr, callWithIndex<Uart_PlayEBS>},
    {"!0C_L_IX:", nullptr, callWithIndex<Uart_ServiceNameEBS>},
    {"!07_A_&", nullptr, call<Uart_StatusEBS>},
    {"!07_E_&", nullptr, call<Uart_InfoEBS>},
    {"!16_O_AX:", nullptr, call<Uart_AudioLevelEBS>},
    {"!07_V_&", nullptr, call<Uart_VersionEBS>},
    {"PVR_record", nullptr, call<Uart_PVR_Record>},
    {"PVR_stop", nullptr, call<Uart_PVR_Stop>},
    {"PVR_scan", nullptr, call<Uart_PVR_Scan>},
    {"PVR_reclist", nullptr, call<Uart_PVR_Reclist>},
    {"PVR_export", nullptr, call<Uart_PVR_Export>},
    {"START_DAB", dabStopped, [](Worker& worker, char*) { worker.startDAB(); }},
    {"STOP_DAB", dabStarted, [](Worker& worker, char*) { worker.stopDAB(); }},
    {"dab", dabStarted, [](Worker& worker, char* text) { worker.forwardDAB(text); }},
    {"command:", nullptr, callWithText<Uart_ConsoleCommand, 8>},
};

} // namespace

int COMPARE(const char* text, const char* word)
{
    return std::strncmp(text, word, std::strlen(word));
}

const CommandRow* findCommand(const char* text, const Worker& worker)
{
    for (const CommandRow& row : commandTable) {
        if (COMPARE(text, row.word) == 0 && (!row.condition || row.condition(worker)))
            return &row;
    }
    return nullptr;
}
