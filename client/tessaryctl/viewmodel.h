#pragma once

#include "client/measurement.h"
#include "client/periodwatch.h"
#include "client/presentation.h"
#include "client/psi/tables.h"
#include "client/streamtables.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tessary::ctl {

/// What a key means to the full-screen view.
enum class ViewKey {
    Up,
    Down,
    PageUp,
    PageDown,
    First,
    Last,
    Open,
    Close,
    Toggle, ///< open what is closed, close what is open
    Scan,
    Play,
    Measure,
    Record,
    Help,
    Yes,
    Quit,
    Other,
};

/// What the person wants of the instrument.
struct ViewOrder
{
    enum class Kind { Scan, Play, StartMeasuring, StopMeasuring, StartRecording, StopRecording };

    Kind kind = Kind::Scan;
    int program = 0; ///< of Play
};

/// A line of the stream's tree: a service, a PID of it, or a descriptor.
struct ViewLine
{
    int depth = 0; ///< 0 service, 1 PID, 2 descriptor
    std::string text;
    int program = 0;
    int pid = -1; ///< from depth 1 on
    bool openable = false;
    bool open = false;
    bool played = false; ///< the program that plays
};

/// What the full-screen view knows, and what its keys do to it. No terminal, no instrument, no clock.
class ViewModel
{
public:
    // What has come of the instrument.
    std::string server; ///< URL; empty when not known
    std::string port;
    std::string player; ///< its status, empty without a source
    int playing = 0; ///< program, 0: none
    std::optional<client::Presentation> presentation;
    bool measuring = false;
    bool linkDown = false;
    bool unanswered = false; ///< the instrument has not answered when it was asked last
    client::PeriodWatch::State state = client::PeriodWatch::State::Absent;
    client::Measurement figures;
    client::PeriodWatch::Total total;
    client::InterArrivalStatistics arrivals;
    bool recording = false;
    std::uint64_t recordingSize = 0; ///< bytes

    std::string busy; ///< what the instrument is asked for, empty: nothing
    std::string message; ///< for the person
    bool messageIsError = false;
    bool quit = false;
    bool help = false;

    void setServices(const client::ServiceTable& table);
    void setNetwork(const client::NetworkTable& table);
    void setProgram(const client::ProgramMap& program);
    /// Another stream is looked at: nothing is known of it.
    void forgetStream();
    /// The figures as read last; the bit rates' course grows by one when a period has ended.
    void setMeasurement(client::PeriodWatch::State state, const client::Measurement& figures,
        const client::PeriodWatch::Total& total);
    void say(const std::string& text);
    void sayError(const std::string& text);

    /// What is to be done for it.
    std::optional<ViewOrder> press(ViewKey key);

    /// Of the open part of the tree.
    std::vector<ViewLine> lines() const;
    std::size_t cursor() const { return m_cursor; } ///< index into lines()
    /// Lines that a page holds, as drawn last.
    void setPage(std::size_t lines) { m_page = lines; }

    std::string streamText() const; ///< "transport stream 1, network Demo"
    const std::deque<double>& rates() const { return m_rates; } ///< bit/s, one a period, newest last
    const client::ServiceDescription::Service* serviceOf(int program) const;

private:
    void moveTo(std::ptrdiff_t line);
    void openLine(bool open);
    std::optional<ViewOrder> order(ViewOrder order);
    std::optional<ViewOrder> play();
    bool browse(ViewKey key);
    std::optional<ViewOrder> toggleMeasuring();
    std::optional<ViewOrder> toggleRecording();
    void addPids(std::vector<ViewLine>& lines, int program) const;

    std::optional<client::ServiceTable> m_services;
    std::optional<client::NetworkTable> m_network;
    std::map<int, client::ProgramMap> m_programs;
    std::set<std::pair<int, int>> m_open; ///< program and PID; PID -1 is the program itself
    std::size_t m_cursor = 0;
    std::size_t m_page = 10;
    std::deque<double> m_rates;
    long m_periods = 0; ///< as many have their bit rate in m_rates
    bool m_asksToOverwrite = false;
};

} // namespace tessary::ctl
