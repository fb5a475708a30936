#pragma once

/// Version of the software, as the application object and the version commands give it: the project's in
/// CMakeLists.txt.
constexpr const char* softwareVersion = TESSARY_VERSION;
