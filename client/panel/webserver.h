#pragma once

#include "client/panel/commandline.h"
#include "client/panel/desk.h"
#include "client/panel/display.h"
#include "client/panel/gate.h"
#include "client/panel/history.h"
#include "client/panel/hub.h"
#include "client/panel/jobs.h"
#include "client/panel/metrics.h"
#include "client/panel/requestlimits.h"
#include "client/panel/worker.h"

#include <memory>
#include <string>

namespace tessary::panel {

struct WebSettings
{
    std::string address = "127.0.0.1";
    int port = 8080; ///< 0: any that is free
    std::string page; ///< folder of the page's files
    std::string description; ///< file of the API's description
    std::string dygraphs; ///< folder of dygraphs' files
    std::string uploads; ///< folder for packages; empty: none are taken
    Allowed allowed;
    GateSettings gate;
    RequestLimits limits;
};

/// The page, its API and the metrics over HTTP.
class WebServer
{
public:
    struct Parts
    {
        Hub& hub;
        Jobs& jobs;
        Worker& worker;
        History& history;
        Metrics& metrics;
        Desk* desk; ///< null with a real instrument, as the next
        Display* display;
        std::string sound; ///< file of it
    };

    /// Listens; `parts` are borrowed. Throws Failure when it can not.
    WebServer(const Parts& parts, WebSettings settings);
    /// Ends what is being sent.
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    int port() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace tessary::panel
