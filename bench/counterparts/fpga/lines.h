#pragma once

#include <map>
#include <string>

/// The two GPIO lines to the FPGA as the kernel shows them: exported before use, with a direction and a
/// value. Results are those of the file operations: 0 or a count, or a negative error number. No locking.
class Lines
{
public:
    static constexpr int done = 14; ///< input: the FPGA is configured
    static constexpr int program = 101; ///< output: low clears the FPGA

    int exportLine(const std::string& number);
    int unexportLine(const std::string& number);
    bool isExported(int line) const { return m_outputs.count(line) != 0; }
    int setDirection(int line, const std::string& direction);
    bool isOutput(int line) const;

private:
    static int parse(const std::string& number);

    std::map<int, bool> m_outputs; ///< the exported lines, and which of them are outputs
};
