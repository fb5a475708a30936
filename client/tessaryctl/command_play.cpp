// A program on the instrument's display, and what is to be seen and heard of it: play.
#include "client/answererror.h"
#include "client/lineerror.h"
#include "client/presentation.h"
#include "client/psi/servicetext.h"
#include "client/streamqueries.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/streamreport.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <ostream>

namespace tessary::ctl {

using namespace client;

namespace {

/// What has come to light of a program that is played.
struct Played
{
    int number = 0;
    StreamReport report; ///< the services
    std::string status; ///< of the player
    std::optional<ProgramMap> program;
    std::optional<Presentation> presentation; ///< when there is a program

    const ServiceDescription::Service* service() const
    {
        return report.serviceOf(static_cast<std::uint16_t>(number));
    }
};

int programNumberOf(
    Controller& controller, const std::string& text, const std::optional<ServiceTable>& services)
{
    const bool digits = !text.empty()
        && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
    if (digits && text.size() <= 5 && std::stoi(text) <= 0xFFFF)
        return std::stoi(text);
    if (digits)
        throw Failure(
            ExitCode::Usage, "program numbers go up to 65535", "tessaryctl info lists the services");
    if (services.has_value()) {
        for (const auto& service : services->services.services) {
            if (sameName(service.name, text))
                return service.id;
        }
    }
    const bool silent = controller.playerStatus().empty();
    throw Failure(ExitCode::Nothing, "no service has the name \"" + text + "\"",
        silent ? "run tessaryctl scan first, or give the program's number"
               : "tessaryctl info lists the services");
}

std::optional<ProgramMap> awaitProgram(Controller& controller, const Deadline& deadline)
{
    const WaitingFor shown("the program");
    for (;;) {
        auto program = programNow(controller);
        if (program.has_value() || deadline.isOver())
            return program;
        sleepABit();
    }
}

/// Nothing when the instrument does not give it; the program plays all the same.
std::optional<EbsDecoderInfo> decoderInfoNow(Controller& controller)
{
    try {
        return controller.ebsDecoderInfo();
    } catch (const AnswerError&) {
        return std::nullopt;
    } catch (const LineError& error) {
        if (error.kind() != LineError::Kind::TimedOut)
            throw;
        return std::nullopt;
    }
}

/// Asks at least once, and on until all is known of the program that the instrument will tell.
std::optional<EbsDecoderInfo> awaitDecoders(
    Controller& controller, const ProgramMap& program, const Deadline& deadline)
{
    const WaitingFor shown("picture and sound");
    for (;;) {
        const auto told = decoderInfoNow(controller);
        if (!told.has_value() || !mayTellMore(program, *told) || deadline.isOver())
            return told;
        sleepABit();
    }
}

Json jsonOfPresentation(const Presentation& presentation)
{
    const auto codec = [](const Presentation::Part& part) {
        return part.state != Presentation::State::Absent ? Json(part.codec) : Json();
    };
    return {{"text", textOf(presentation)}, {"picture", wordOf(presentation.picture.state)},
        {"video", codec(presentation.picture)}, {"width", presentation.width},
        {"height", presentation.height}, {"sound", wordOf(presentation.sound.state)},
        {"audio", codec(presentation.sound)}, {"scrambled", wordOf(presentation.scrambling)}};
}

Json jsonOfPlayed(const Played& played)
{
    const auto* service = played.service();
    return {{"program", played.number}, {"name", service != nullptr ? Json(service->name) : Json()},
        {"status", played.status},
        {"presentation", played.presentation.has_value() ? jsonOfPresentation(*played.presentation) : Json()},
        {"map", played.program.has_value() ? jsonOf(*played.program) : Json()}};
}

void printPresentation(std::ostream& out, const Presentation& presentation)
{
    using State = Presentation::State;
    out << "  " << textOf(presentation) << '\n';
    if (presentation.picture.state == State::Decoded)
        out << "  picture  " << presentation.picture.codec << ", " << presentation.width << " × "
            << presentation.height << '\n';
    if (presentation.sound.state == State::Decoded)
        out << "  sound    " << presentation.sound.codec << '\n';
}

void print(std::ostream& out, const Played& played)
{
    out << played.status << ": program " << played.number;
    if (const auto* service = played.service())
        out << "  " << printable(service->name);
    out << '\n';
    printPresentation(out, *played.presentation);
    printProgram(out, *played.program, "  ");
}

Played playAndLook(Controller& controller, const std::string& text, double wait)
{
    Played played;
    played.report.services = servicesNow(controller);
    played.number = programNumberOf(controller, text, played.report.services);
    controller.play(played.number);
    const Deadline deadline(wait);
    played.program = awaitProgram(controller, deadline);
    played.status = controller.playerStatus();
    if (!played.program.has_value())
        return played;
    const auto told = awaitDecoders(controller, *played.program, deadline);
    played.presentation = presentationOf(*played.program, told, played.service());
    return played;
}

void play(Context& context, const std::string& text, double wait)
{
    const Played played = playAndLook(context.controller(), text, wait);
    if (!played.program.has_value()) {
        const bool linked = context.controller().interfaceAddress().has_value();
        throw Failure(linked ? ExitCode::Nothing : ExitCode::NoLink,
            "no program " + std::to_string(played.number) + " came in within " + fixed(wait, 0) + " s"
                + (linked ? "" : ", and the instrument's Ethernet is not connected"),
            linked
                ? "tessaryctl scan lists what is in the stream; tessaryctl measure tells whether it arrives"
                : "plug the cable in if the stream comes over IP; tessaryctl interface shows the state");
    }
    if (context.json())
        context.print(jsonOfPlayed(played));
    else
        print(context.out(), played);
}

} // namespace

void addPlay(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "play",
        "Show a program on the instrument's display, and tell what is to be seen and heard of it");
    auto program = std::make_shared<std::string>();
    auto wait = std::make_shared<double>(5);
    sub->add_option("program", *program, "program number, or a service's name")->required();
    sub->add_option("--wait", *wait, "seconds to wait for the program's PMT, picture and sound")
        ->check(between(0.0, 3600.0))
        ->capture_default_str();
    sub->callback([&context, program, wait] { play(context, *program, *wait); });
}

} // namespace tessary::ctl
