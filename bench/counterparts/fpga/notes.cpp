#include "notes.h"

#include <ctime>
#include <stdexcept>

Notes::Notes(const std::string& folder)
    : m_folder(folder)
    , m_log(folder + "/fpga.log", std::ios::trunc)
{
    beginBitstream();
    beginExport();
    if (!m_log || !m_bitstream || !m_export)
        throw std::runtime_error(folder + " can not be written; give a folder that exists");
}

void Notes::note(const std::string& what, const std::string& fields)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const std::int64_t t = static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
    m_log << "{\"t\": " << t << ", \"what\": \"" << what << "\"" << (fields.empty() ? "" : ", ") << fields
          << "}\n";
    m_log.flush();
}

void Notes::begin(std::ofstream& file, const char* name)
{
    file.close();
    file.clear();
    file.open(m_folder + "/" + name, std::ios::binary | std::ios::trunc);
}

void Notes::add(std::ofstream& file, const char* bytes, std::size_t size)
{
    file.write(bytes, static_cast<std::streamsize>(size));
    file.flush(); // a test reads it while the program runs
}
