// The update receiver: any argument, image and CRC.
//
// Input: flags (1 byte), length of the argument (1), the argument, then the bytes on the line. Flag 1: the
// argument is the number of bytes there are, and the right CRC follows them. Flag 2: pauses behind line
// feeds. Flag 4: the right CRC with one bit changed.
#include "commands/uart_command.h"
#include "kit/crc.h"
#include "support/fakeline.h"
#include "support/fakemachine.h"
#include "support/input.h"
#include "support/quiet.h"
#include "tests/unit/support/virtualtime.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <QtGlobal>
#include <unistd.h>

namespace {

constexpr const char* packageFile = "/tmp/Tessary.deb";

void appendCrc(std::vector<std::uint8_t>& line, std::uint32_t crc)
{
    for (unsigned shift = 0; shift < 32; shift += 8)
        line.push_back(static_cast<std::uint8_t>(crc >> shift));
}

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string storedPackage()
{
    std::ifstream file(packageFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Only what the line brought, whole and with the right CRC, is installed, and only then the end is told.
void check(const std::string& image, bool sound, bool mustNotInstall)
{
    const auto& commands = fakemachine::shellCommands();
    FUZZ_REQUIRE(!commands.empty() && commands.front() == "nmcli networking off");
    const bool installed = std::any_of(commands.begin(), commands.end(),
        [](const std::string& command) { return command.find("dpkg -i") != std::string::npos; });
    FUZZ_REQUIRE(installed == endsWith(fakeline::written(), "update ok\n"));
    FUZZ_REQUIRE(fakeline::written().rfind("waiting update\n", 0) == 0);
    FUZZ_REQUIRE(!(sound && !installed));
    FUZZ_REQUIRE(!(mustNotInstall && installed));
    if (installed) {
        const std::string stored = storedPackage();
        FUZZ_REQUIRE(image.compare(0, stored.size(), stored) == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    startQuietly();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const virtualtime::Scope waitsPassAtOnce;
    Input input(bytes, size);
    const unsigned flags = input.byte();
    const std::vector<std::uint8_t> given = input.bytes(input.byte());
    std::vector<std::uint8_t> line = input.rest();
    const std::string image(line.begin(), line.end());
    std::string argument(given.begin(), given.end());
    const bool whole = (flags & 1U) != 0 && !image.empty();
    if (whole) {
        argument = std::to_string(image.size()) + "\n";
        const std::uint32_t crc = tessary::test::crc32Mpeg2(line);
        appendCrc(line, flags & 4U ? crc ^ 0x00010000U : crc);
    }
    fakemachine::set({});
    fakeline::load(std::move(line), flags & 2U ? fakeline::Pauses::BehindLines : fakeline::Pauses::None);
    unlink(packageFile);
    Uart_Update(argument);
    // A CRC with a pause in it comes in pieces, and counts with what was left of the one before.
    const bool inOnePiece = (flags & 2U) == 0;
    check(image, whole && inOnePiece && (flags & 4U) == 0, whole && inOnePiece && (flags & 4U) != 0);
    return 0;
}
