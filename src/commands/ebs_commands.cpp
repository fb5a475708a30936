// The framed commands of the EBS functions: requests begin with "!", replies with "*" and without terminator.
#include "commands/decoderinfo.h"
#include "commands/reply.h"
#include "commands/sourceselection.h"
#include "commands/uart_command.h"
#include "commands/versionline.h"
#include "media/owned.h"
#include "media/pciesource.h"
#include "system/mydata.h"

#include <algorithm>
#include <cstdlib>
#include <QString>
#include <QtDebug>

namespace {

void replyAndLog(const std::string& text)
{
    reply(text);
    qDebug("%s", text.c_str());
}

/// Hexadecimal number at the start of the text, 0 without one.
int hexNumber(const std::string& text)
{
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 16));
}

void logCaps(const GstCaps* caps)
{
    if (!caps || !GST_IS_CAPS(caps))
        return;
    qDebug("%s", Owned<gchar>(gst_caps_to_string(caps)).get());
}

/// A picture dimension as the frame's four hexadecimal digits can carry it; an unknown one (-1) counts as 0.
unsigned frameField(int pixels)
{
    return static_cast<unsigned>(std::clamp(pixels, 0, 65535));
}

} // namespace

void Uart_ScancurEBS()
{
    qDebug("SCANcurPCIE\n");
    discardMeasurementAndSource();
    instance = new pciesource;
    instance->scanStream();
}

void Uart_PlayEBS(std::string arg)
{
    qDebug("PLayPCIE n°%s\n", arg.c_str());
    reply("*0C_d.SX"); // before anything is done: it acknowledges the frame, not the playing
    const int index = hexNumber(arg);
    data.ebsServiceIndex = static_cast<std::uint32_t>(index);
    const int position = index > 0 ? index - 1 : index; // 0 and 1 both name the first program
    if (!instance)
        instance = new pciesource;
    const int programNumber = instance->getProgramNumber(position);
    data.programNumber = static_cast<std::uint32_t>(programNumber);
    instance->play(programNumber);
}

void Uart_ServiceNameEBS(std::string arg)
{
    qDebug("ServiceNameEBS\n");
    reply("Service" + std::to_string(hexNumber(arg))); // a made name; the stream's own stands in the SDT
}

void Uart_StatusEBS()
{
    qDebug("STAtusEBS\n");
    if (!instance || !instance->hasStreamInformation()) {
        replyAndLog("*17_a.FL:02_NS:00$_DS:00");
        return;
    }
    const auto programs = static_cast<unsigned>(instance->getTotalNumberOfProgramsFound());
    const QString frame = QString::asprintf("*17_a.FL:02_NS:%02x$_DS:%02x", programs, data.ebsServiceIndex);
    replyAndLog(frame.toStdString());
}

void Uart_InfoEBS()
{
    qDebug("INFoEBS\n");
    unsigned video = 0;
    unsigned audio = 0;
    unsigned width = 0;
    unsigned height = 0;
    if (instance) {
        const GstCaps* videoCaps = instance->getVideoDecodedCaps();
        const GstCaps* audioCaps = instance->getAudioDecodedCaps();
        width = frameField(instance->getVideoDecodedWidth());
        height = frameField(instance->getVideoDecodedHeight());
        logCaps(videoCaps);
        video = videoCode(videoCaps);
        logCaps(audioCaps);
        audio = audioCode(audioCaps);
    }
    const QString frame =
        QString::asprintf("*32_e.DI:%04x_%04x_%04x_0000_%04x_0000_0000_0000_$", video, width, height, audio);
    replyAndLog(frame.toStdString());
}

void Uart_AudioLevelEBS()
{
    qDebug("AudioLevelEBS\n");
    reply("*07_o.$"); // acknowledged and not applied: the level is fixed at start-up
}

void Uart_VersionEBS()
{
    qDebug("VERsionEBS\n");
    reply(versionLine());
}
