// tessaryctl: the controller's side of the instrument as a command-line tool.
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/program.h"
#include "client/tessaryctl/terminal.h"

#include <csignal>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    using namespace tessary::ctl;
    useUtf8();
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words.front() == "__complete") { // for the shells' completion; not in --help
        words.erase(words.begin());
        for (const std::string& word : completionsOf(words))
            std::cout << word << '\n';
        return 0;
    }
    Session session;
    Context context(session);
    return runCommandLine(context, words);
}
