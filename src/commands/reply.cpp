#include "commands/reply.h"

#include "link/serialport.h"

void replyByteByByte(const std::string& text)
{
    for (const char c : text)
        uart.SerialPortWrite(&c, 1);
}

void replyByteByByte(const std::vector<std::uint8_t>& bytes)
{
    replyByteByByte(std::string(bytes.begin(), bytes.end()));
}

int reply(const std::string& text)
{
    return uart.SerialPortWrite(text.data(), static_cast<int>(text.size()));
}
