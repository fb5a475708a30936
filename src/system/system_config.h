#pragma once

#include "system/mydata.h"

#include <cstdint>
#include <string>

class QString;

/// Small operations on the module's operating system: mixer, staged kernel, console text, FPGA, interface
/// queries. Shell commands block the caller; failures are logged at most. Main thread only, except
/// special_debug().
class system_config
{
public:
    system_config();
    ~system_config();

    /// Sets the mixer levels "PCM" and "Headphone"; returns the wait status of the second command.
    int SetAlsaVolume();

    /// Copies a kernel staged in "/home/ondrak/Tessary/kernel/" over the root file system and issues a
    /// reboot. Returns 0 when nothing is staged, else the wait status of "reboot"; the caller carries on
    /// until the system stops the process.
    int UpdateBootPartition();

    /// Writes `length` bytes of `buffer` to the console UART "/dev/ttymxc0", which is opened and closed for
    /// each message. Any thread: no state is kept, messages of two threads only interleave. Returns the
    /// result of the close.
    int special_debug(const char* buffer, int length);

    /// Everything that a shell command line writes to its standard output; empty when it can not be started.
    std::string Ping(std::string command);

    /// Loads the bitstream over SPI unless the FPGA is configured already. True when it is configured
    /// afterwards.
    bool programFpga();
    /// Makes the kernel enumerate the FPGA's PCIe function afresh; returns the status of the last shell
    /// command.
    int pcieRescan();
    /// Build time-stamp found in the bitstream file with the configured flag, or a text that says why there
    /// is none.
    QString GetFpgaVersion();

    /// Static address of the settings record, on the interface that it names.
    void SetupInterfaceIP(MyData* d);
    /// DHCP on the interface that the settings record names.
    void SetDHCPOn(MyData* d);

    /// IPv4 address of the wired interface in dotted form and "\n"; an interface without one gives what the
    /// request held.
    void GetIpAddress(std::string* out);
    /// Netmask of the wired interface in dotted form and "\n".
    void GetIpNetmask(std::string* out);
    /// True when the wired interface is up and has a link. (The name's spelling is the interface's own.)
    bool ethernetConneted();

private:
    std::uint8_t m_fpgaConfigured; ///< 1 when the FPGA was seen configured at start-up
};

extern system_config systconf;
