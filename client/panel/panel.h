#pragma once

#include "client/panel/desk.h"
#include "client/panel/display.h"
#include "client/panel/history.h"
#include "client/panel/hub.h"
#include "client/panel/instrumentlogs.h"
#include "client/panel/jobs.h"
#include "client/panel/linelog.h"
#include "client/panel/metrics.h"
#include "client/panel/options.h"
#include "client/panel/ticker.h"
#include "client/panel/webserver.h"
#include "client/panel/worker.h"

#include <memory>
#include <string>

namespace tessary::panel {

/// The front panel as a whole; works from construction to destruction.
class Panel
{
public:
    /// Throws Failure when it can not begin. An instrument that is not there is shown, not thrown.
    explicit Panel(const Options& options);
    ~Panel();
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    /// "127.0.0.1:8080".
    std::string address() const;

private:
    void setUpVirtualInstrument(const Options& options);
    void tick();

    std::string m_address;
    Hub m_hub;
    Jobs m_jobs;
    History m_history;
    LineLog m_lineLog;
    Metrics m_metrics;
    std::string m_uploads;
    // Of a virtual instrument.
    std::unique_ptr<Desk> m_desk;
    std::unique_ptr<Display> m_display;
    std::unique_ptr<InstrumentLogs> m_logs;

    std::unique_ptr<Worker> m_worker;
    std::unique_ptr<WebServer> m_server;
    std::unique_ptr<Ticker> m_ticker;
};

} // namespace tessary::panel
