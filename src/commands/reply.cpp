#include "commands/reply.h"

#include "link/serialport.h"

void replyByteByByte(const std::string& text)
{
    // The UART's buffer takes 4095 bytes without waiting and loses what is beyond: a long reply lets it empty
    // in between.
    constexpr std::size_t drainedBytes = 2048;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i > 0 && i % drainedBytes == 0)
            uart.DrainOutput();
        uart.SerialPortWrite(&text[i], 1);
    }
}

void replyByteByByte(const std::vector<std::uint8_t>& bytes)
{
    replyByteByByte(std::string(bytes.begin(), bytes.end()));
}

int reply(const std::string& text)
{
    return uart.SerialPortWrite(text.data(), static_cast<int>(text.size()));
}
