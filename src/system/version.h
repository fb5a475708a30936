#pragma once

/// Version of the software, as the application object and the version commands give it.
constexpr const char* softwareVersion = "1.4";
