#pragma once

#include <mutex>
#include <set>

/// When the tables of a scan were there. Any thread.
class SectionClock
{
public:
    /// Starts the clock; `programs` PMTs are waited for.
    void begin(unsigned programs);

    void pat();
    void sdt();
    void pmt(unsigned programNumber);
    void endOfStream();

    /// PAT, SDT and all PMTs have come. (The SDT is that of the stream's own transport stream.)
    bool complete() const;
    bool ended() const;
    /// One line of JSON: milliseconds since begin(), -1 for what has not come.
    void print() const;

private:
    void note(double& field);

    mutable std::mutex m_mutex;
    std::set<unsigned> m_numbers;
    unsigned m_programs = 0;
    double m_begin = 0;
    double m_cpuBegin = 0;
    double m_pat = -1;
    double m_sdt = -1;
    double m_pmts = -1;
    double m_end = -1;
};
