#pragma once

#include "client/panel/history.h"
#include "client/panel/hub.h"
#include "client/panel/jobs.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/measurementlog.h"
#include "client/tessaryctl/measurementpoll.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessary::panel {

/// What is asked of the instrument between the jobs, told under "instrument", "stream", "recorder", "measurement" and
/// "arrivals". Used from one thread; passes on the exceptions of the line.
class InstrumentWatch
{
public:
    /// Both and the session are borrowed. `virtualOne`: it is a virtual instrument.
    InstrumentWatch(Hub& hub, History& history, ctl::Session& session, std::string port, bool virtualOne);

    /// Asks what is due.
    void poll();
    /// How long until something is due, at most.
    std::chrono::milliseconds pause() const;

    void measure(bool on);
    bool measuring() const { return m_measuring; }
    void setRecording(bool recording);
    /// Something else has used the session, or the line is another one: no controller of before is there.
    void forgetController() { m_controller = nullptr; }
    /// The next poll asks for everything.
    void askAnew() { m_known = false; }
    /// The port is opened anew; a greeting that is read then tells of another start.
    void lineClosed()
    {
        m_known = false;
        m_starts = 0;
    }
    /// Nothing was answered.
    void lost(const ctl::Failure& failure);
    /// The stream server may be another one.
    void serverChanged();
    void tellInstrument();

    client::Controller& controller();

private:
    Json ask(const std::vector<std::string>& words);
    void lookAround();
    void noticeStarts();
    void askInterface();
    void pollMeasurement();
    void pollPlayer();
    void startLog();
    void endLog(const std::string& reason);
    void tellArrivals(const ctl::MeasurementPoll::News& news);
    void tellRecorder();
    void noteRecordingSize(std::uint64_t bytes);

    Hub& m_hub;
    History& m_history;
    ctl::Session& m_session;
    std::string m_port;
    ctl::Context m_context;
    client::Controller* m_controller = nullptr;
    Json m_instrument;
    bool m_known = false; ///< has been asked for what seldom changes
    int m_starts = 0; ///< of the daemon that have been noticed
    bool m_measuring = false;
    bool m_recording = false;
    std::optional<std::uint64_t> m_recordingBytes; ///< as it was asked for last
    int m_stillSizes = 0; ///< answers since it began, or last grew
    std::chrono::steady_clock::time_point m_interfaceDue{};
    std::chrono::steady_clock::time_point m_playerDue{};
    ctl::MeasurementPoll m_measurement;
    std::unique_ptr<ctl::MeasurementLog> m_log;
};

/// Notes under "marks" what was changed and when, for the plots.
void addMark(Hub& hub, const std::string& text);

} // namespace tessary::panel
