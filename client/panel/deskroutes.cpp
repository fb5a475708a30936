#include "client/panel/deskroutes.h"

#include "client/panel/answers.h"
#include "client/panel/sound.h"

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace tessary::panel {

using httplib::Request;
using httplib::Response;

namespace {

constexpr const char* boundary = "picture";

/// Waits for another picture than the one of this number; nothing when none comes for a while.
Display::Picture nextPicture(Display& display, std::uint64_t before, const std::atomic<bool>& ends)
{
    constexpr std::chrono::milliseconds step{20};
    constexpr int steps = 100;
    Display::Picture picture = display.now();
    for (int i = 0; i < steps && picture.number == before && !ends; ++i) {
        std::this_thread::sleep_for(step);
        picture = display.now();
    }
    return picture;
}

bool sendPicture(httplib::DataSink& sink, const std::string& jpeg)
{
    const std::string head = std::string("--") + boundary
        + "\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size()) + "\r\n\r\n";
    return sink.write(head.data(), head.size()) && sink.write(jpeg.data(), jpeg.size())
        && sink.write("\r\n", 2);
}

void sendDisplay(Response& response, Display& display, const std::atomic<bool>& ends)
{
    const auto shown = std::make_shared<std::uint64_t>(0);
    response.set_chunked_content_provider(std::string("multipart/x-mixed-replace; boundary=") + boundary,
        [&display, &ends, shown](std::size_t, httplib::DataSink& sink) {
            if (ends) {
                sink.done();
                return true;
            }
            const auto picture = nextPicture(display, *shown, ends);
            *shown = picture.number;
            return picture.jpeg == nullptr || sendPicture(sink, *picture.jpeg);
        });
}

void sendSound(Response& response, const std::filesystem::path& file, const std::atomic<bool>& ends)
{
    const auto sound = std::make_shared<Sound>(file);
    if (!sound->format().has_value())
        return refuse(
            response, {404, "the instrument has not played any sound yet", "play a program with sound"});
    response.set_header("X-Rate", std::to_string(sound->format()->rate));
    response.set_header("X-Channels", std::to_string(sound->format()->channels));
    response.set_chunked_content_provider(
        "application/octet-stream", [sound, &ends](std::size_t, httplib::DataSink& sink) {
            const auto samples = ends ? std::nullopt : sound->next(std::chrono::milliseconds(200));
            if (!samples.has_value()) {
                sink.done();
                return true;
            }
            return samples->empty() ? sink.is_writable() : sink.write(samples->data(), samples->size());
        });
}

/// Of what the instrument was told to play last; null where that is not known.
Json codecsOf(const Json& play)
{
    const Json presentation = play.is_object() ? play.value("presentation", Json()) : Json();
    Json codecs = Json::object();
    for (const char* key : {"video", "audio"})
        codecs[key] = presentation.is_object() ? presentation.value(key, Json()) : Json();
    return codecs;
}

/// Takes JSON; answers with the desk as it is then.
void addSwitch(httplib::Server& server, const char* path, Desk& desk, void (Desk::*turn)(const Json&))
{
    server.Post(path, [&desk, turn](const Request& request, Response& response) {
        (desk.*turn)(Json::parse(request.body));
        answer(response, desk.state());
    });
}

} // namespace

void addDeskRoutes(httplib::Server& server, Desk& desk)
{
    server.Get("/api/desk", [&desk](const Request&, Response& response) { answer(response, desk.state()); });
    server.Post("/api/desk/senders", [&desk](const Request& request, Response& response) {
        answer(response, desk.startSender(Json::parse(request.body)));
    });
    server.Delete(R"(/api/desk/senders/(\d{1,9}))", [&desk](const Request& request, Response& response) {
        if (desk.endSender(std::stoi(request.matches[1])))
            return answer(response, desk.state());
        refuse(response, {404, "there is no such sender", ""});
    });
    addSwitch(server, "/api/desk/link", desk, &Desk::setLink);
    addSwitch(server, "/api/desk/daemon", desk, &Desk::steerDaemon);
    addSwitch(server, "/api/desk/knobs", desk, &Desk::setKnobs);
    addSwitch(server, "/api/desk/behave", desk, &Desk::setBehaviour);
    addSwitch(server, "/api/desk/dab", desk, &Desk::setDab);
}

void addDisplayRoutes(httplib::Server& server, const Shown& shown)
{
    server.Get("/api/display",
        [shown](const Request&, Response& response) { sendDisplay(response, shown.display, shown.ends); });
    server.Get("/api/display.json", [shown](const Request&, Response& response) {
        Json report = shown.display.report();
        report.update(codecsOf(shown.hub.valueOf("play")));
        answer(response, report);
    });
}

void addSoundRoute(httplib::Server& server, const std::filesystem::path& file, const std::atomic<bool>& ends)
{
    server.Get(
        "/api/sound", [file, &ends](const Request&, Response& response) { sendSound(response, file, ends); });
}

void addRealInstrumentRoutes(httplib::Server& server)
{
    const auto refusal = [](const Request&, Response& response) {
        refuse(response,
            {404, "this is a real instrument: its picture is on its display, and it has no desk",
                "a virtual one has: bench/instrument run"});
    };
    server.Get(R"(/api/(display|display\.json|sound|desk))", refusal);
    server.Post(R"(/api/desk/[a-z]{1,20})", refusal);
}

} // namespace tessary::panel
