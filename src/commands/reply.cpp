#include "commands/reply.h"

#include "link/serialport.h"

void replyByteByByte(const std::string& text)
{
    // The UART's buffer takes 4095 bytes without waiting and loses what is beyond: a long reply lets it empty
    // in between, and first of all, because the reply to the command before may still be in it.
    constexpr std::size_t drainedBytes = 2048;
    constexpr std::size_t shortReply = 256; // table sections are longer; what is shorter need not wait
    const bool isLong = text.size() > shortReply;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isLong && i % drainedBytes == 0)
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
