#pragma once

class Worker;

/// One row of the controller's command table.
struct CommandRow
{
    const char* word; ///< the command begins with this word
    bool (*condition)(const Worker& worker); ///< null: the row always holds
    /// `text` is the command in the burst's buffer: NUL-terminated, writable, followed by enough zero bytes
    /// that fixed offsets behind the word stay inside the buffer. May throw; the dispatcher logs what it
    /// throws.
    void (*handler)(Worker& worker, char* text);
};

/// Size of one DAB block, which is read from the start of a "dab" command whatever the command's length.
constexpr int dabBlockSize = 117;

/// 0 exactly when `text` begins with `word`, by case.
int COMPARE(const char* text, const char* word);

/// The first row, in the table's order, whose word begins `text` and whose condition holds; null when there
/// is none.
const CommandRow* findCommand(const char* text, const Worker& worker);
