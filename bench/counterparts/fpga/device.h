#pragma once

#include "configuration.h"
#include "knobs.h"
#include "lines.h"
#include "notes.h"
#include "streaminput.h"

#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

/// The whole FPGA behind its files: every operation is one file operation of the module and returns what that
/// returns, a count or a negative error number. Any thread.
class Device
{
public:
    explicit Device(const std::string& notesFolder);

    /// A file by its path below the mount point: exists now, and can it be written?
    bool exists(const std::string& path);
    bool isFolder(const std::string& path);
    /// Names of what a folder holds now.
    std::vector<std::string> entries(const std::string& folder);

    int open(const std::string& path);
    /// The text that a read of the whole file gives.
    std::string text(const std::string& path);
    int write(const std::string& path, const char* bytes, std::size_t size);
    /// One SPI transfer with the settings of the request; `bytes` is what the module clocked out.
    int transfer(const std::string& bytes, unsigned speedHz, unsigned bitsPerWord, unsigned delayUs,
        unsigned csChange, unsigned txLines, unsigned rxLines);
    bool streamWritable();

private:
    int writeLineFile(const std::string& path, const std::string& text);
    int writeLineValue(int line, const std::string& text);
    int writeStream(const char* bytes, std::size_t size);
    int writeKnobs(const std::string& text);

    std::mutex m_mutex;
    Notes m_notes;
    Lines m_lines;
    Configuration m_configuration;
    Knobs m_knobs;
    StreamInput m_stream;
    int m_transfers = 0; ///< since the program pulse
};
