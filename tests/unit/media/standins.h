#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Plain GStreamer elements under the factory names of the instrument's platform elements, known in this
/// process only. They have the properties that the daemon sets or reads and nothing of the hardware.
///
/// - kmssink: takes any picture ("display-ratio"); alsasink: takes any sound;
/// - pciesink: writes what it gets to fpgaFile();
/// - pciesrc: a source; "do-timestamp" starts as true, so that setting it to false can be seen;
/// - t2mi: passes data on ("pid", "plpid", read-only "frame" holding what setT2miFrame() gave);
/// - aiurdemux: exists, so that it can be refused.
namespace standins {

/// Registers all of them. After gst_init().
void add();

/// Where pciesink elements made from now on write; "/dev/null" at first.
void setFpgaFile(const std::string& path);

/// What every t2mi element's "frame" holds from now on.
void setT2miFrame(const std::vector<std::uint8_t>& frame);
/// "frame" holds nothing at all, as at first.
void forgetT2miFrame();

} // namespace standins
