#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// Small files of a test's private machine; folders above a new file are made.
inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/// The file's bytes; empty when there is none.
inline std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// An executable shell script. The shell finds its built-ins only, where the test has replaced PATH.
inline void writeScript(const std::string& path, const std::string& shellText)
{
    writeFile(path, "#!/bin/sh\n" + shellText + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}
