#include "client/tessaryctl/t2misurvey.h"

#include "client/tessaryctl/waiting.h"

#include <chrono>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

void add(T2miSurvey& survey, const T2miPacket& packet)
{
    if (!packet.crcCorrect) {
        ++survey.wrong;
        return;
    }
    ++survey.packets[packet.type];
    survey.streamIds.insert(packet.streamId);
    if (packet.basebandFrame.has_value())
        ++survey.frames[packet.basebandFrame->plpId];
    if (packet.signalling.has_value())
        survey.signalling = packet.signalling;
}

} // namespace

std::set<int> T2miSurvey::plps() const
{
    std::set<int> all;
    for (const auto& [plp, count] : frames)
        all.insert(plp);
    if (signalling.has_value()) {
        for (const auto& plp : signalling->plps)
            all.insert(plp.id);
    }
    return all;
}

T2miSurvey surveyT2mi(Controller& controller, double seconds, bool enough)
{
    constexpr std::chrono::milliseconds betweenSamples{20}; // a packet has some 2 to 50 ms
    const Deadline deadline(seconds);
    const WaitingFor shown("T2-MI packets");
    T2miSurvey survey;
    Bytes before;
    for (;;) {
        Bytes bytes = controller.t2miFrame();
        const auto packet = decodeT2miPacket(bytes);
        if (packet.has_value() && bytes != before)
            add(survey, *packet);
        before = std::move(bytes);
        if (deadline.isOver() || (enough && survey.signalling.has_value()))
            return survey;
        std::this_thread::sleep_for(betweenSamples);
    }
}

std::string textOf(const std::set<int>& plps)
{
    std::string text;
    for (const int plp : plps)
        text += (text.empty() ? "" : ", ") + std::to_string(plp);
    return text;
}

} // namespace tessary::ctl
