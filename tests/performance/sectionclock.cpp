#include "sectionclock.h"

#include "probe.h"

#include <cstdio>

void SectionClock::begin(unsigned programs)
{
    const CpuTime cpu = cpuTime();
    m_cpuBegin = cpu.user + cpu.system;
    m_programs = programs;
    m_begin = nowMs();
}

/// The first time counts.
void SectionClock::note(double& field)
{
    if (field < 0)
        field = nowMs() - m_begin;
}

void SectionClock::pat()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    note(m_pat);
}

void SectionClock::sdt()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    note(m_sdt);
}

void SectionClock::pmt(unsigned programNumber)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_numbers.insert(programNumber);
    if (m_numbers.size() == m_programs)
        note(m_pmts);
}

void SectionClock::endOfStream()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    note(m_end);
}

bool SectionClock::complete() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pat >= 0 && m_sdt >= 0 && m_pmts >= 0;
}

bool SectionClock::ended() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_end >= 0;
}

void SectionClock::print() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const CpuTime cpu = cpuTime();
    std::printf("{\"pat_ms\": %.3f, \"sdt_ms\": %.3f, \"pmts_ms\": %.3f, \"pmts\": %zu, \"end_ms\": %.3f, "
                "\"cpu\": %.6f}\n",
        m_pat, m_sdt, m_pmts, m_numbers.size(), m_end, cpu.user + cpu.system - m_cpuBegin);
}
