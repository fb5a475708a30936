#pragma once

#include <string>

/// What a program wrote, each text up to its first NUL byte.
struct ProgramTexts
{
    std::string output;
    std::string errors;
};

/// Runs a program with its arguments, no shell between, and waits for its end without time limit; blanks
/// separate words, double quotes keep them together. Empty texts when the line names no program, or one that
/// can not be started. Main thread only.
ProgramTexts runProgram(const std::string& commandLine);
