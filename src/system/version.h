#pragma once

/// Version of the software, as the application object and the version commands give it: that of the
/// packages.
constexpr const char* softwareVersion = TESSARY_VERSION;
