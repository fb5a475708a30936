#include "support/privatemachine.h"

#include "kit/usernamespace.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

bool entered = false;

std::string failure(const std::string& what)
{
    return what + ": " + std::strerror(errno) + " (run as root to have a private mount namespace)";
}

fs::path makeScratchFolder()
{
    char name[] = "/tmp/tessary-unit-XXXXXX";
    return mkdtemp(name);
}

std::string mountEmpty(const fs::path& on)
{
    return mount("tmpfs", on.c_str(), "tmpfs", 0, "mode=755") == 0
        ? ""
        : failure("mount a tmpfs on " + on.string());
}

struct Device
{
    const char* name;
    unsigned major, minor;
};

constexpr Device devices[] = {
    {"null", 1, 3}, {"zero", 1, 5}, {"urandom", 1, 9}, {"random", 1, 8}, {"fuse", 10, 229}};

/// The machine's own at that place, where none can be made; one that the machine has not is not missed.
bool show(const Device& device, const fs::path& node)
{
    const fs::path original = fs::path("/dev") / device.name;
    if (!fs::exists(original))
        return true;
    std::ofstream(node).flush();
    return mount(original.c_str(), node.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

bool isBelow(const std::string& path, const std::string& directory)
{
    return path.rfind(directory + "/", 0) == 0;
}

/// The tree that the tests are of, an open folder, at its place again, which has been covered.
std::string showTree(int tree)
{
    fs::create_directories(TESSARY_SOURCE_DIR);
    const std::string original = "/proc/self/fd/" + std::to_string(tree);
    return mount(original.c_str(), TESSARY_SOURCE_DIR, nullptr, MS_BIND | MS_REC, nullptr) == 0
        ? ""
        : failure("show the source tree");
}

/// A /dev with the few devices that any program needs, put together aside and then laid over the machine's.
std::string privateDevices()
{
    const fs::path aside = makeScratchFolder();
    std::string error = mountEmpty(aside);
    if (!error.empty())
        return error;
    for (const Device& device : devices) {
        const fs::path node = aside / device.name;
        if (mknod(node.c_str(), S_IFCHR | 0666, makedev(device.major, device.minor)) != 0
            && !show(device, node))
            error = failure("make " + node.string());
    }
    fs::create_directory(aside / "pts");
    fs::create_directory(aside / "shm");
    if (mount("devpts", (aside / "pts").c_str(), "devpts", 0, "newinstance,ptmxmode=0666,mode=0620") != 0)
        error = failure("mount pseudo-terminals");
    fs::create_symlink("pts/ptmx", aside / "ptmx");
    if (mount(aside.c_str(), "/dev", nullptr, MS_BIND | MS_REC, nullptr) != 0)
        error = failure("mount a private /dev");
    umount2(aside.c_str(), MNT_DETACH);
    fs::remove(aside);
    return error;
}

std::string quoted(const std::string& text)
{
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string searchPath()
{
    const char* path = std::getenv("PATH");
    return path ? path : "";
}

} // namespace

namespace privatemachine {

std::string enter()
{
    if (entered)
        return {};
    if (unshare(CLONE_NEWNS) != 0)
        return failure("unshare");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return failure("make mounts private");
    std::string error = privateDevices();
    entered = error.empty();
    return error;
}

std::string coverWithEmpty(const std::string& directory)
{
    if (!fs::exists(directory)) {
        std::string error = coverWithLayer(fs::path(directory).parent_path());
        if (!error.empty())
            return error;
        fs::create_directories(directory);
    }
    const int tree =
        isBelow(TESSARY_SOURCE_DIR, directory) ? open(TESSARY_SOURCE_DIR, O_PATH | O_CLOEXEC) : -1;
    std::string error = mountEmpty(directory);
    if (tree >= 0 && error.empty())
        error = showTree(tree);
    close(tree);
    return error;
}

std::string coverWithLayer(const std::string& directory)
{
    if (!fs::exists(directory)) { // the nearest folder that exists gets the layer, the rest is made in it
        std::string error = coverWithLayer(fs::path(directory).parent_path());
        if (error.empty())
            fs::create_directories(directory);
        return error;
    }
    const fs::path aside = makeScratchFolder();
    std::string error = mountEmpty(aside);
    if (!error.empty())
        return error;
    fs::create_directory(aside / "upper");
    fs::create_directory(aside / "work");
    const std::string options = "lowerdir=" + directory + ",upperdir=" + (aside / "upper").string()
        + ",workdir=" + (aside / "work").string() + (tessary::test::inUserNamespace() ? ",userxattr" : "");
    if (mount("overlay", directory.c_str(), "overlay", 0, options.c_str()) != 0)
        error = failure("mount a layer over " + directory);
    umount2(aside.c_str(), MNT_DETACH);
    std::error_code hidden; // where the layer lies over the folder itself
    fs::remove(aside, hidden);
    return error;
}

} // namespace privatemachine

RecordedPrograms::RecordedPrograms()
    : m_folder(makeScratchFolder())
    , m_oldPath(searchPath())
{
    setenv("PATH", m_folder.c_str(), 1);
}

RecordedPrograms::~RecordedPrograms()
{
    setenv("PATH", m_oldPath.c_str(), 1);
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

void RecordedPrograms::add(
    const std::string& name, const std::string& standardOutput, const std::string& standardError, int status)
{
    addScript(name,
        "printf '%s' " + quoted(standardOutput) + "\nprintf '%s' " + quoted(standardError) + " >&2\nexit "
            + std::to_string(status));
}

void RecordedPrograms::addScript(const std::string& name, const std::string& shellText)
{
    const fs::path file = fs::path(m_folder) / name;
    std::ofstream out(file);
    out << "#!/bin/sh\nline=" << name << "\nfor argument in \"$@\"; do line=\"$line|$argument\"; done\n"
        << "printf '%s\\n' \"$line\" >> " << quoted((fs::path(m_folder) / "calls.log").string()) << "\n"
        << shellText << "\n";
    out.close();
    fs::permissions(file, fs::perms::owner_all);
}

std::vector<std::string> RecordedPrograms::calls() const
{
    std::ifstream log(fs::path(m_folder) / "calls.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);)
        lines.push_back(line);
    return lines;
}

void RecordedPrograms::forget()
{
    fs::remove(fs::path(m_folder) / "calls.log");
}
