#pragma once

#include <string>

/// What the whole test process needs before its first test: a private /dev, GStreamer with its MPEG-TS
/// library initialised as the daemon does, its registry kept beside the build, the stand-ins, and an
/// application object.
namespace mediaenvironment {

/// Makes it part of the test program's set-up; before main(), as mediatest.cpp does. A second call does
/// nothing.
bool prepare();

/// Empty, or why there is no private /dev here (tests of the console then skip with it).
const std::string& noPrivateMachine();

/// Where GStreamer writes pipeline graphs.
std::string graphFolder();

} // namespace mediaenvironment
