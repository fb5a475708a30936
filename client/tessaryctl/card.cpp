#include "client/tessaryctl/card.h"

#include "client/streamqueries.h"

#include <sstream>

namespace tessary::ctl {

void beginRecording(client::Controller& controller, InstrumentMemory::Source source)
{
    using Source = InstrumentMemory::Source;
    const bool known = source == Source::Ip || source == Source::Fpga;
    if (known && controller.playerStatus() == "running" && !programNow(controller).has_value()) {
        if (source == Source::Ip)
            controller.scan();
        else
            controller.ebsScan();
    }
    controller.record();
}

bool recordingIsRead(client::Controller& controller)
{
    // A descriptor that is open for reading only has "lr-x" in its listing; the recorder's is "l-wx".
    return controller
               .runCommandShown(
                   "ls -l /proc/[0-9]*/fd 2>/dev/null | grep -q '^lr-.* /run/media/mmcblk1p1/record.ts$'")
               .status
        == 0;
}

std::optional<std::uint64_t> cardRoom(client::Controller& controller)
{
    std::istringstream told(controller.runCommandShown("stat -f -c '%a %S' /run/media/mmcblk1p1").output);
    std::uint64_t blocks = 0;
    std::uint64_t blockSize = 0;
    if (!(told >> blocks >> blockSize))
        return std::nullopt;
    return blocks * blockSize;
}

bool cardIsFull(client::Controller& controller)
{
    constexpr std::uint64_t block = 65536;
    return cardRoom(controller).value_or(block) < block;
}

} // namespace tessary::ctl
