#include "device.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <sstream>

namespace {

const std::set<std::string> fixedFiles = {"/gpio/export", "/gpio/unexport", "/spidev0.0", "/xillybus_write_8",
    "/pci/devices/0000:01:00.0/remove", "/pci/devices/0000:00:00.0/remove", "/pci/rescan", "/knobs"};
const std::set<std::string> fixedFolders = {
    "/", "/gpio", "/pci", "/pci/devices", "/pci/devices/0000:01:00.0", "/pci/devices/0000:00:00.0"};

/// The line of "/gpio/gpio14" or of a file in it; -1 for other paths. `file` gets what follows the folder's
/// name.
int lineOf(const std::string& path, std::string& file)
{
    for (const int line : {Lines::done, Lines::program}) {
        const std::string folder = "/gpio/gpio" + std::to_string(line);
        if (path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0) {
            file = path.substr(folder.size());
            return line;
        }
    }
    return -1;
}

std::string withoutLineEnd(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

} // namespace

Device::Device(const std::string& notesFolder)
    : m_notes(notesFolder)
{
}

bool Device::isFolder(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string file;
    const int line = lineOf(path, file);
    return fixedFolders.count(path) || (line != -1 && file.empty() && m_lines.isExported(line));
}

bool Device::exists(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string file;
    const int line = lineOf(path, file);
    return fixedFiles.count(path) || ((file == "/direction" || file == "/value") && m_lines.isExported(line));
}

std::vector<std::string> Device::entries(const std::string& folder)
{
    const std::string beginning = folder == "/" ? folder : folder + "/";
    std::vector<std::string> candidates(fixedFiles.begin(), fixedFiles.end());
    candidates.insert(candidates.end(), fixedFolders.begin(), fixedFolders.end());
    for (const int line : {Lines::done, Lines::program}) {
        for (const char* file : {"", "/direction", "/value"})
            candidates.push_back("/gpio/gpio" + std::to_string(line) + file);
    }
    std::vector<std::string> names;
    for (const std::string& path : candidates) {
        const bool isBelow =
            path.size() > beginning.size() && path.compare(0, beginning.size(), beginning) == 0;
        const bool isDirectlyBelow = isBelow && path.find('/', beginning.size()) == std::string::npos;
        if (isDirectlyBelow && (exists(path) || isFolder(path)))
            names.push_back(path.substr(beginning.size()));
    }
    return names;
}

int Device::open(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (path == "/xillybus_write_8") {
        if (m_knobs.exportAbsent)
            return -ENODEV;
        m_notes.beginExport();
        m_notes.note("export begins", "");
    }
    return 0;
}

std::string Device::text(const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string file;
    const int line = lineOf(path, file);
    if (file == "/direction")
        return m_lines.isOutput(line) ? "out\n" : "in\n";
    if (file == "/value" && line == Lines::done)
        return m_configuration.done() && !m_knobs.doneStuckLow ? "1\n" : "0\n";
    if (path == "/knobs")
        return m_knobs.text();
    return "0\n";
}

int Device::write(const std::string& path, const char* bytes, std::size_t size)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (path == "/xillybus_write_8")
        return writeStream(bytes, size);
    const std::string written(bytes, size);
    int result = 0;
    if (path == "/knobs") {
        result = writeKnobs(written);
    } else if (path.compare(0, 5, "/pci/") == 0) {
        m_notes.note(
            "pci", "\"file\": \"" + path.substr(5) + "\", \"text\": \"" + withoutLineEnd(written) + "\"");
    } else {
        result = writeLineFile(path, written);
    }
    return result < 0 ? result : static_cast<int>(size);
}

int Device::writeLineFile(const std::string& path, const std::string& text)
{
    std::string file;
    const int line = lineOf(path, file);
    int result = -EACCES;
    if (path == "/gpio/export")
        result = m_lines.exportLine(text);
    else if (path == "/gpio/unexport")
        result = m_lines.unexportLine(text);
    else if (file == "/direction")
        result = m_lines.setDirection(line, text);
    else if (file == "/value")
        result = writeLineValue(line, text);
    m_notes.note("gpio",
        "\"file\": \"" + path.substr(6) + "\", \"text\": \"" + withoutLineEnd(text)
            + "\", \"result\": " + std::to_string(result));
    return result;
}

int Device::writeLineValue(int line, const std::string& text)
{
    if (!m_lines.isOutput(line))
        return -EPERM;
    const bool high = text[0] != '0';
    m_configuration.setProgramLine(high);
    if (!high) {
        m_transfers = 0;
        m_notes.beginBitstream();
    }
    return 0;
}

int Device::transfer(const std::string& bytes, unsigned speedHz, unsigned bitsPerWord, unsigned delayUs,
    unsigned csChange, unsigned txLines, unsigned rxLines)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_transfers;
    const bool fails = m_transfers == m_knobs.failingTransfer;
    const int result = fails ? -EIO : static_cast<int>(bytes.size());
    std::ostringstream fields;
    fields << "\"bytes\": " << bytes.size() << ", \"speed_hz\": " << speedHz
           << ", \"bits_per_word\": " << bitsPerWord << ", \"delay_us\": " << delayUs
           << ", \"cs_change\": " << csChange << ", \"tx_lines\": " << txLines
           << ", \"rx_lines\": " << rxLines << ", \"result\": " << result;
    m_notes.note("spi", fields.str());
    if (!fails) {
        m_notes.addToBitstream(bytes.data(), bytes.size());
        m_configuration.receive(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    }
    return result;
}

bool Device::streamWritable()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stream.writable(std::chrono::steady_clock::now());
}

int Device::writeStream(const char* bytes, std::size_t size)
{
    if (m_knobs.exportFails)
        return -EIO;
    const std::size_t taken = m_stream.take(size, std::chrono::steady_clock::now());
    if (taken == 0 && size > 0)
        return -EAGAIN;
    m_notes.addToExport(bytes, taken);
    m_notes.note("export", "\"bytes\": " + std::to_string(size) + ", \"taken\": " + std::to_string(taken));
    return static_cast<int>(taken);
}

int Device::writeKnobs(const std::string& text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!m_knobs.set(line))
            return -EINVAL;
    }
    if (m_knobs.configured != -1)
        m_configuration.force(m_knobs.configured == 1);
    m_knobs.configured = -1;
    m_stream.setRate(m_knobs.exportRate, std::chrono::steady_clock::now());
    return 0;
}
