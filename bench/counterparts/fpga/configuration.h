#pragma once

#include <cstddef>
#include <cstdint>

/// The configuration logic of the FPGA: takes the bytes of a bitstream and rises its done line when a
/// complete and correct one has gone in. It follows the packets of the bitstream, as the device does:
/// everything before the synchronisation word is skipped, register writes are checked by a CRC, and the
/// start-up command ends the configuration. No locking.
class Configuration
{
public:
    /// The program line, active low: while it is low the device forgets its configuration and takes nothing.
    void setProgramLine(bool high);
    void receive(const unsigned char* bytes, std::size_t size);

    bool done() const { return m_done; }
    /// As if the device had been configured before the module started, or had lost its configuration.
    void force(bool done) { m_done = done; }
    /// The word of the user-access register of the last configuration.
    std::uint32_t userAccess() const { return m_userAccess; }
    std::uint64_t receivedBytes() const { return m_receivedBytes; }

private:
    void clear();
    void takeWord(std::uint32_t word);
    void takeHeader(std::uint32_t header);
    void writeRegister(unsigned address, std::uint32_t value);
    void command(std::uint32_t code);

    bool m_programLine = true;
    bool m_done = false;
    bool m_synchronised = false;
    bool m_failed = false; ///< a CRC did not match: only the program line helps
    bool m_started = false;
    std::uint32_t m_shift = 0xFFFFFFFF; ///< the last four bytes
    unsigned m_bytesOfWord = 0;
    unsigned m_register = 0; ///< that the words of the current packet go to
    std::uint32_t m_wordsLeft = 0; ///< of the current packet
    std::uint32_t m_crc = 0;
    std::uint32_t m_userAccess = 0;
    std::uint64_t m_receivedBytes = 0; ///< since the program line was low
};
