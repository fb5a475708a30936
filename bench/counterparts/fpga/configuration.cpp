#include "configuration.h"

namespace {

constexpr std::uint32_t synchronisationWord = 0xAA995566;

enum Register : unsigned { crcRegister = 0, commandRegister = 4, userAccessRegister = 13 };
enum Command : std::uint32_t { startCommand = 5, resetCrcCommand = 7, desynchroniseCommand = 13 };

/// CRC-32C over the bytes of a value, most significant first, continued with the register's address.
std::uint32_t continueCrc(std::uint32_t crc, unsigned address, std::uint32_t value)
{
    const unsigned bytes[] = {value >> 24, value >> 16 & 0xFF, value >> 8 & 0xFF, value & 0xFF, address};
    for (const unsigned byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 1 ? crc >> 1 ^ 0x82F63B78 : crc >> 1;
    }
    return crc;
}

} // namespace

void Configuration::setProgramLine(bool high)
{
    m_programLine = high;
    if (!high)
        clear();
}

void Configuration::clear()
{
    const bool line = m_programLine;
    *this = Configuration();
    m_programLine = line;
}

void Configuration::receive(const unsigned char* bytes, std::size_t size)
{
    if (!m_programLine)
        return;
    m_receivedBytes += size;
    for (std::size_t i = 0; i < size; ++i) {
        m_shift = m_shift << 8 | bytes[i];
        if (!m_synchronised) {
            m_synchronised = m_shift == synchronisationWord;
            m_bytesOfWord = 0;
        } else if (++m_bytesOfWord == 4) {
            m_bytesOfWord = 0;
            takeWord(m_shift);
        }
    }
}

void Configuration::takeWord(std::uint32_t word)
{
    if (m_wordsLeft == 0) {
        takeHeader(word);
        return;
    }
    --m_wordsLeft;
    writeRegister(m_register, word);
}

void Configuration::takeHeader(std::uint32_t header)
{
    const unsigned type = header >> 29;
    const bool isWrite = (header >> 27 & 3) == 2;
    if (type == 1) {
        m_register = header >> 13 & 0x1F;
        m_wordsLeft = isWrite ? header & 0x7FF : 0;
    } else if (type == 2) { // a long packet to the register of the header before
        m_wordsLeft = isWrite ? header & 0x7FFFFFF : 0;
    }
}

void Configuration::writeRegister(unsigned address, std::uint32_t value)
{
    if (address == crcRegister) {
        m_failed = m_failed || value != m_crc;
        return;
    }
    m_crc = continueCrc(m_crc, address, value);
    if (address == userAccessRegister)
        m_userAccess = value;
    if (address == commandRegister)
        command(value);
}

void Configuration::command(std::uint32_t code)
{
    if (code == resetCrcCommand)
        m_crc = 0;
    if (code == startCommand)
        m_started = !m_failed;
    if (code == desynchroniseCommand) {
        m_synchronised = false;
        m_done = m_started;
    }
}
