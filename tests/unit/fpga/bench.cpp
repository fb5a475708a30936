#include "bench.h"

#include "support/eventually.h"
#include "support/testfiles.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Nothing of a test is below /tmp, where builds may lie.
const std::string mountPoint = "/home/fpga";
const std::string notesFolder = "/home/notes";

std::string privateMachine()
{
    std::string reason = privatemachine::enter();
    for (const char* folder : {"/home", "/sys"}) {
        if (reason.empty())
            reason = privatemachine::coverWithEmpty(folder);
    }
    if (reason.empty() && close(open("/dev/fuse", O_RDWR)) != 0)
        reason = "this kernel has no FUSE, which the FPGA's files need";
    return reason;
}

pid_t startCounterpart()
{
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    const int nothing = open("/dev/null", O_WRONLY);
    dup2(nothing, STDOUT_FILENO);
    execl(TESSARY_FPGA, TESSARY_FPGA, mountPoint.c_str(), notesFolder.c_str(), nullptr);
    _exit(127);
}

void show(const std::string& source, const std::string& target, bool isFolder)
{
    if (isFolder)
        std::filesystem::create_directories(target);
    else
        writeFile(target, "");
    ASSERT_EQ(mount((mountPoint + source).c_str(), target.c_str(), nullptr, MS_BIND, nullptr), 0) << target;
}

} // namespace

void FpgaBench::SetUp()
{
    const std::string reason = privateMachine();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    for (const std::string& folder : {mountPoint, notesFolder, std::string("/home/ondrak/Tessary")})
        std::filesystem::create_directories(folder);
    m_counterpart = startCounterpart();
    ASSERT_TRUE(eventually([] { return std::filesystem::exists(mountPoint + "/spidev0.0"); }))
        << "the FPGA's counterpart did not start";
    show("/gpio", "/sys/class/gpio", true);
    show("/pci", "/sys/bus/pci", true);
    show("/spidev0.0", "/dev/spidev0.0", false);
}

void FpgaBench::TearDown()
{
    if (m_counterpart == -1)
        return;
    for (const char* target : {"/dev/spidev0.0", "/sys/bus/pci", "/sys/class/gpio"})
        umount2(target, MNT_DETACH);
    kill(m_counterpart, SIGTERM);
    waitpid(m_counterpart, nullptr, 0);
    umount2(mountPoint.c_str(), MNT_DETACH);
    unlink("/dev/spidev0.0");
}

void FpgaBench::makeBitfile(const std::string& options)
{
    const std::string command =
        std::string(TESSARY_MAKE_BITFILE) + " --frame-words 20000 " + options + " " + bitfilePath;
    ASSERT_EQ(std::system(command.c_str()), 0);
}

void FpgaBench::setKnob(const std::string& knob)
{
    const int fd = open((mountPoint + "/knobs").c_str(), O_WRONLY);
    ASSERT_EQ(write(fd, knob.data(), knob.size()), static_cast<ssize_t>(knob.size()));
    close(fd);
}

std::vector<std::string> FpgaBench::notes(const std::string& what)
{
    const std::string kind = "\"what\": \"" + what + "\", ";
    std::vector<std::string> found;
    std::ifstream file(notesFolder + "/fpga.log");
    for (std::string line; std::getline(file, line);) {
        const std::size_t at = line.find(kind);
        if (at != std::string::npos)
            found.push_back(line.substr(at + kind.size(), line.size() - at - kind.size() - 1));
    }
    return found;
}

std::string FpgaBench::receivedBitstream()
{
    return readFile(notesFolder + "/bitstream.bin");
}
