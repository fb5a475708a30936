#pragma once

#include "client/controller.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/measurementpoll.h"
#include "client/tessaryctl/viewmodel.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tessary::ctl {

/// Talks with the instrument in a thread of its own, one question at a time, so that the screen need not
/// wait: carries out orders, and asks on its own for what changes.
class ViewWorker
{
public:
    /// What has come, for the model; run in the thread that calls takeNews().
    using News = std::function<void(ViewModel&)>;

    /// `context` is borrowed and used by the worker alone while it lives. `server`: to be set first.
    ViewWorker(Context& context, std::optional<client::StreamServer> server);
    /// Waits for the answer to the question that is open.
    ~ViewWorker();
    ViewWorker(const ViewWorker&) = delete;
    ViewWorker& operator=(const ViewWorker&) = delete;

    /// To be carried out next; one at a time.
    void give(const ViewOrder& order);
    std::vector<News> takeNews();

private:
    void run();
    /// Waits for an order, at most as long as it is until something is to be asked.
    std::optional<ViewOrder> awaitOrder();
    void post(News news);
    /// Does something that may fail; tells the person when it does.
    void attempt(const std::string& busy, const std::function<void(client::Controller&)>& what);
    void failed(const std::string& what);
    void answered();
    void connect();
    void carryOut(const ViewOrder& order);
    void lookAround(client::Controller& controller);
    void scan(client::Controller& controller);
    void awaitTables(client::Controller& controller);
    void collectPrograms(client::Controller& controller, const client::ServiceTable& services);
    void play(client::Controller& controller, int program);
    void poll(client::Controller& controller);
    void pollMeasurement(client::Controller& controller);
    void pollPlayer(client::Controller& controller);
    void setMeasuring(bool measuring);
    bool stopped() const { return m_stop; }

    Context& m_context;
    std::optional<client::StreamServer> m_server;
    client::Controller* m_controller = nullptr;

    // Of the worker's thread.
    bool m_measuring = false;
    bool m_recording = false;
    bool m_failed = false; ///< the instrument has not answered when it was asked last
    std::optional<client::ServiceTable> m_services;
    std::optional<client::ProgramMap> m_playing;
    MeasurementPoll m_measurement;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::optional<ViewOrder> m_order;
    std::vector<News> m_news;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace tessary::ctl
