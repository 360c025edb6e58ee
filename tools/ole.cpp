// The ole command-line tool: converts and checks the things the library knows (timecode, footage and
// pulldown, frame rates and output formats, cookies and IdStamps, configb files and the editor
// preferences) for people and scripts, without writing C++.

#include "Commands.h"
#include "Output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>

#ifndef OLE_TOOL_VERSION
#define OLE_TOOL_VERSION "unknown"
#endif

namespace {

// CLI11 reports a word that names no command as a missing one ("A subcommand is required"); this names it.
// Walks the command words before the first option, down the groups that take a subcommand.
void checkCommandWords(const CLI::App& app, int argc, char** argv) {
    const CLI::App* level = &app;
    std::string path;
    for (int i = 1; i < argc && argv[i][0] != '-' && !level->get_subcommands({}).empty(); ++i) {
        const CLI::App* next = nullptr;
        for (const CLI::App* sub : level->get_subcommands({}))
            if (sub->check_name(argv[i])) next = sub;
        if (!next)
            throw CLI::ParseError("unknown command '" + path + argv[i] + "'", CLI::ExitCodes::ExtrasError);
        level = next;
        path += next->get_name() + " ";
    }
}

// Everything the tool prints goes through standard output's buffer; an answer that did not all reach its
// destination is a failure. `printed`: the answer was written outside writeOut (help and version).
int checkOutput(int status, bool printed) {
    errno = 0;
    if (std::cout.flush() && std::fflush(stdout) == 0 && !std::ferror(stdout) &&
        (oletool::standardOutputOpen() || !printed))
        return status;
    const int error = oletool::standardOutputOpen() ? errno : EBADF;
    std::fprintf(stderr, "ole: cannot write to standard output: %s\n", std::strerror(error ? error : EIO));
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    oletool::guardStandardOutput();
    CLI::App app{
        "Converts and checks timecode, footage, frame rates, output formats, cookies, IdStamps, "
        "configb files and editor preferences; lists commands and plays command macros.",
        "ole"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "ole " OLE_TOOL_VERSION);

    oletool::addTimecodeCommands(app);
    oletool::addFootageCommands(app);
    oletool::addTableCommands(app);
    oletool::addCookieCommands(app);
    oletool::addConfigCommands(app);
    oletool::addPrefsCommands(app);
    oletool::addCommandCommands(app);

    // Set last, so that the subcommands do not inherit it.
    app.footer(
        "Run 'ole COMMAND --help' for the options of a command.\n"
        "Query commands take --json for output meant for scripts.\n"
        "\n"
        "Exit status: 0 success; 1 bad input (a value, file or cookie that does not parse) or a failed "
        "check; 2 usage error (unknown command or option, missing argument).");

    try {
        checkCommandWords(app, argc, argv);
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return checkOutput(app.exit(e), true);  // --help, --version
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "ole: %s\nRun 'ole --help' for usage.\n", e.what());
        return 2;
    } catch (const oletool::AlreadyReported&) {
        return 1;
    } catch (const std::exception& e) {
        std::fflush(stdout);
        std::fprintf(stderr, "ole: %s\n", e.what());
        return 1;
    }
    return checkOutput(0, false);
}
