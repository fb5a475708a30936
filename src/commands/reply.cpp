#include "commands/reply.h"

#include "link/serialport.h"

#include <algorithm>

namespace {

/// What the UART's buffer takes without waiting.
constexpr std::size_t lineBytes = 4095;

/// Bytes written since the line was last known to be empty.
std::size_t undrained = 0;

/// Of a part longer than the UART's buffer, what it had no room for. As a rule the line has already sent some of
/// the part when the last byte comes, but not when the kernel is late. Returns the result of the write.
int writeRest(const char* bytes, std::size_t size)
{
    uart.DrainOutput();
    undrained = size;
    return uart.SerialPortWrite(bytes, static_cast<int>(size));
}

void replyByteByByte(const char* bytes, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        replyPart(bytes + i, 1);
}

} // namespace

int replyPart(const char* bytes, std::size_t size)
{
    if (undrained + size > lineBytes) {
        uart.DrainOutput();
        undrained = 0;
    }
    undrained += size;
    const int written = uart.SerialPortWrite(bytes, static_cast<int>(size));
    if (written <= 0 || static_cast<std::size_t>(written) == size)
        return written;
    const auto taken = static_cast<std::size_t>(written);
    return written + writeRest(bytes + taken, size - taken);
}

void replyByteByByte(const std::string& text)
{
    replyByteByByte(text.data(), text.size());
}

void replyByteByByte(const std::vector<std::uint8_t>& bytes)
{
    replyByteByByte(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

int reply(const std::string& text)
{
    int result = 0;
    for (std::size_t begin = 0; begin < text.size(); begin += lineBytes)
        result = replyPart(text.data() + begin, std::min(lineBytes, text.size() - begin));
    return result;
}
