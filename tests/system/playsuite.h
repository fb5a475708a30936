#pragma once

#include "demo/judge.h"
#include "systemsuite.h"

#include <string>

namespace tessary::test {

/// What a program of a made stream shows and sounds.
struct Program
{
    int number;
    observe::Rgb colour; ///< of the picture; not looked at without picture
    double hertz; ///< of the tone; not looked at without sound
};

/// Suites that look at the display and listen to the loudspeaker.
class PlaySuite : public SystemSuite
{
protected:
    /// Fails when the stream was not made.
    static void needMadeStream(const QString& name);

    static RunningStream sendMade(
        const QString& name, const std::string& protocol, const std::string& address);
    /// Selects port 5030 of the instrument's own address and scans it.
    static void selectUdp();
    /// Puts a made stream on the memory card, the first `packets` of it when that is given, scans it and
    /// waits for the scan's end.
    static void selectRecording(const QString& name, qint64 packets = 0);

    static qint64 bytesOfSound();

    /// Pictures of the program come, one after another.
    static void expectPictures(const Program& program);
    /// Its tone comes, and goes on.
    static void expectTone(const Program& program);
    static void expectProgram(const Program& program);
    /// Neither a new picture nor more sound for a second.
    static void expectStandStill();
    static void expectNoPicture();
    static void expectNoSound();
};

} // namespace tessary::test
