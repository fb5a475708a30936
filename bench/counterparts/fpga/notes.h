#pragma once

#include <cstdint>
#include <fstream>
#include <string>

/// What happened at the FPGA, as JSON lines {"t": CLOCK_MONOTONIC in ns, "what": ..., ...}, and the bytes
/// that went in. One folder; its files are begun afresh with the program. No locking.
class Notes
{
public:
    /// Throws std::runtime_error when the folder can not be written.
    explicit Notes(const std::string& folder);

    /// `fields` is the inside of a JSON object, such as "\"value\": 1"; may be empty.
    void note(const std::string& what, const std::string& fields);

    /// Begins "bitstream.bin" or "export.bin" afresh.
    void beginBitstream() { begin(m_bitstream, "bitstream.bin"); }
    void beginExport() { begin(m_export, "export.bin"); }
    void addToBitstream(const char* bytes, std::size_t size) { add(m_bitstream, bytes, size); }
    void addToExport(const char* bytes, std::size_t size) { add(m_export, bytes, size); }

private:
    void begin(std::ofstream& file, const char* name);
    static void add(std::ofstream& file, const char* bytes, std::size_t size);

    std::string m_folder;
    std::ofstream m_log;
    std::ofstream m_bitstream;
    std::ofstream m_export;
};
