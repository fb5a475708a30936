#pragma once

#include "client/controller.h"

#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// What the instrument keeps to itself, concluded from the commands that this tool gave on the port: its
/// stream server and its source. Kept in a file between two runs. Another controller, or a restart whose
/// greeting nobody read, makes it wrong; a greeting that is read tells that the instrument is as after its
/// start.
class InstrumentMemory : public client::CommandWatcher
{
public:
    enum class Source { Unknown, None, Ip, Fpga, Recording };

    struct Server
    {
        std::string url; ///< as serverUrl() writes it
        std::string time; ///< ISO 8601: when this tool set it, or noticed the start that did
        bool groupLeft = false; ///< the instrument was told to leave its group since
    };

    explicit InstrumentMemory(std::string port);

    void carriedOut(std::string_view command, bool surely) override;
    void greeted() override;

    /// Nothing when this tool has not set one.
    const std::optional<Server>& server() const { return m_server; }
    /// The instrument has been told to leave this multicast group.
    void leftGroup(const std::string& group);
    Source source() const { return m_source; }
    /// Names of the services that were seen last, for completion.
    const std::vector<std::string>& services() const { return m_services; }
    void setServices(std::vector<std::string> names);
    /// How many greetings this process has read.
    int startsSeen() const { return m_startsSeen; }

private:
    void load();
    void save() const;
    void setServer(std::string_view argument);
    void setSource(std::string_view command, bool surely);

    std::string m_port;
    std::optional<Server> m_server;
    Source m_source = Source::Unknown;
    std::vector<std::string> m_services;
    int m_startsSeen = 0;
};

} // namespace tessary::ctl
