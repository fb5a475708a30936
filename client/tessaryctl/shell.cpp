// The interactive shell: line editing, history and completion by libedit.
#include "client/lineerror.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/program.h"
#include "client/tessaryctl/statefolder.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <filesystem>
#include <histedit.h>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace tessary::ctl {

namespace {

const char* promptText(EditLine* /*line*/)
{
    return "tessary> ";
}

std::filesystem::path historyFile()
{
    const auto folder = stateFolder();
    return folder.empty() ? folder : folder / "history";
}

/// Words as a shell parts them: blanks, quotes, backslash. False when a quote is left open.
bool splitWords(const std::string& line, std::vector<std::string>& words)
{
    std::string word;
    bool started = false;
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != '\0' && c == quote) {
            quote = '\0';
        } else if (quote != '\0') {
            word.push_back(c);
        } else if (c == '"' || c == '\'') {
            quote = c;
            started = true;
        } else if (c == ' ' || c == '\t' || c == '\n') {
            if (started)
                words.push_back(std::exchange(word, {}));
            started = false;
        } else {
            word.push_back(c);
            started = true;
        }
    }
    if (started)
        words.push_back(word);
    return quote == '\0';
}

std::string commonStart(const std::vector<std::string>& words)
{
    std::string start = words.front();
    for (const std::string& word : words) {
        const auto end = std::mismatch(start.begin(), start.end(), word.begin(), word.end()).first;
        start.erase(end, start.end());
    }
    return start;
}

/// What can stand in place of the last of `words`, which is unfinished, on the shell's port.
std::vector<std::string> shellCompletionsOf(const std::vector<std::string>& words, const std::string& port)
{
    std::vector<std::string> line = words;
    line.insert(line.begin(), {"--port", port});
    auto found = completionsOf(line);
    found.erase(std::remove(found.begin(), found.end(), "shell"), found.end());
    if (words.size() == 1) {
        for (const char* own : {"help", "exit"}) {
            if (std::string(own).rfind(words.back(), 0) == 0)
                found.emplace_back(own);
        }
    }
    return found;
}

/// Puts what all of `found` have in common in place of `typed`, behind a quotation mark when it has blanks
/// and there is none yet; false when that changes nothing.
bool insertCommonStart(
    EditLine* editor, const std::vector<std::string>& found, const std::string& typed, bool quoteIsOpen)
{
    const std::string common = commonStart(found);
    const bool quote = quoteIsOpen || common.find(' ') != std::string::npos;
    const bool whole = found.size() == 1;
    if (common == typed && quote == quoteIsOpen && !whole)
        return false;
    if (!typed.empty() || quoteIsOpen)
        ::el_deletestr(editor, static_cast<int>(typed.size() + (quoteIsOpen ? 1 : 0)));
    const std::string text = (quote ? "\"" : "") + common + (whole ? quote ? "\" " : " " : "");
    ::el_insertstr(editor, text.c_str());
    return true;
}

/// The Tab key.
unsigned char complete(EditLine* editor, int /*character*/)
{
    const LineInfo* info = ::el_line(editor);
    const std::string before(info->buffer, info->cursor);
    std::vector<std::string> words;
    const bool quoteIsOpen = !splitWords(before, words);
    if (!quoteIsOpen && (before.empty() || before.back() == ' '))
        words.emplace_back();
    const std::string* port = nullptr; // the line reader's
    ::el_get(editor, EL_CLIENTDATA, &port);
    const auto found = shellCompletionsOf(words, *port);
    if (found.empty())
        return CC_REFRESH_BEEP;
    if (insertCommonStart(editor, found, words.back(), quoteIsOpen))
        return CC_REFRESH;
    std::cout << '\n';
    for (const std::string& word : found)
        std::cout << word << "  ";
    std::cout << std::endl;
    return CC_REDISPLAY;
}

/// Ctrl-C at the prompt: an empty line instead of what was typed.
unsigned char cancel(EditLine* editor, int /*character*/)
{
    const LineInfo* info = ::el_line(editor);
    ::el_cursor(editor, static_cast<int>(info->lastchar - info->cursor));
    ::el_deletestr(editor, static_cast<int>(info->lastchar - info->buffer));
    ::el_insertstr(editor, "\n"); // as the Enter key
    std::cout << "^C\n" << std::flush;
    return CC_NEWLINE;
}

/// Line editing on a terminal, plain lines otherwise, so that a script can be piped in.
class LineReader
{
public:
    /// `port`, for completion, must outlive it.
    explicit LineReader(const std::string& port)
        : m_interactive(::isatty(STDIN_FILENO) == 1)
    {
        if (!m_interactive)
            return;
        m_editor = ::el_init("tessaryctl", stdin, stdout, stderr);
        m_history = ::history_init();
        HistEvent event{};
        ::history(m_history, &event, H_SETSIZE, 1000);
        ::history(m_history, &event, H_SETUNIQUE, 1);
        m_file = historyFile();
        if (!m_file.empty())
            ::history(m_history, &event, H_LOAD, m_file.c_str());
        ::el_set(m_editor, EL_CLIENTDATA, &port);
        ::el_set(m_editor, EL_PROMPT, &promptText);
        ::el_set(m_editor, EL_EDITOR, "emacs");
        ::el_set(m_editor, EL_SIGNAL, 1);
        ::el_set(m_editor, EL_HIST, &::history, m_history);
        ::el_set(m_editor, EL_ADDFN, "tessary-complete", "complete a word", &complete);
        ::el_set(m_editor, EL_BIND, "^I", "tessary-complete", nullptr);
        // Ctrl-C is a key here, so that it ends neither the editor nor the shell.
        ::el_set(m_editor, EL_SETTY, "-d", "-isig", nullptr);
        ::el_set(m_editor, EL_ADDFN, "tessary-cancel", "leave the line", &cancel);
        ::el_set(m_editor, EL_BIND, "^C", "tessary-cancel", nullptr);
        ::el_set(m_editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
        ::el_source(m_editor, nullptr);
    }
    ~LineReader()
    {
        if (!m_interactive)
            return;
        HistEvent event{};
        std::error_code ignored;
        std::filesystem::create_directories(m_file.parent_path(), ignored);
        if (!m_file.empty())
            ::history(m_history, &event, H_SAVE, m_file.c_str());
        ::history_end(m_history);
        ::el_end(m_editor);
    }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool interactive() const { return m_interactive; }

    bool read(std::string& line)
    {
        if (!m_interactive)
            return static_cast<bool>(std::getline(std::cin, line));
        int count = 0;
        const char* text = ::el_gets(m_editor, &count);
        if (text == nullptr || count <= 0)
            return false;
        line.assign(text, static_cast<std::size_t>(count));
        if (line.find_first_not_of(" \t\n") != std::string::npos) {
            HistEvent event{};
            ::history(m_history, &event, H_ENTER, line.c_str());
        }
        return true;
    }

private:
    bool m_interactive;
    EditLine* m_editor = nullptr;
    History* m_history = nullptr;
    std::filesystem::path m_file;
};

/// Ctrl-C ends a command that is typed in; a script in a pipe ends with it as any program does.
int runInterruptibly(Context& context, const std::vector<std::string>& words, bool interactive)
{
    if (!interactive)
        return runCommandLine(context, words);
    const InterruptGuard guard(1, "\n");
    return runCommandLine(context, words);
}

/// Runs one line; the session stays open for the next one. Shared options given to the shell hold for its
/// commands.
int runLine(Context& shell, Session& session, const std::vector<std::string>& words, bool interactive)
{
    if (words.front() == "shell") {
        std::cerr << "this is the shell already\n";
        return static_cast<int>(ExitCode::Usage);
    }
    Context context(session);
    context.options = shell.options;
    const std::vector<std::string> line =
        words.front() == "help" ? std::vector<std::string>{"--help"} : words;
    const int status = runInterruptibly(context, line, interactive);
    if (status == static_cast<int>(ExitCode::HungUp))
        session.close(); // the next command opens the port anew
    return status;
}

} // namespace

int runShell(Context& context)
{
    Session session;
    const std::string port = context.options.port.empty() ? defaultPort() : context.options.port;
    LineReader reader(port);
    if (reader.interactive())
        std::cout << "Port " << port << ". Tab completes, help lists the commands, exit ends.\n";
    std::string line;
    int status = 0;
    while (reader.read(line)) {
        std::vector<std::string> words;
        if (!splitWords(line, words)) {
            std::cerr << "a quotation mark is missing\n";
            status = static_cast<int>(ExitCode::Usage);
            continue;
        }
        if (words.empty() || words.front().front() == '#')
            continue;
        if (words.front() == "exit" || words.front() == "quit")
            break;
        status = runLine(context, session, words, reader.interactive());
        if (InterruptGuard::endsProgram())
            return status;
        if (status != 0 && !reader.interactive())
            return status; // a script ends at its first error
    }
    if (reader.interactive())
        std::cout << std::endl;
    return reader.interactive() ? 0 : status;
}

} // namespace tessary::ctl
