// The ole command-line tool: converts and checks the things the library knows (timecode, footage and
// pulldown, frame rates and output formats, cookies and IdStamps, configb files and the editor
// preferences) for people and scripts, without writing C++.

#include "Commands.h"
#include "Output.h"

#include <cstdio>
#include <exception>

#ifndef OLE_TOOL_VERSION
#define OLE_TOOL_VERSION "unknown"
#endif

int main(int argc, char** argv) {
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
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);  // --help, --version
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "ole: %s\nRun 'ole --help' for usage.\n", e.what());
        return 2;
    } catch (const oletool::AlreadyReported&) {
        return 1;
    } catch (const oletool::InputError& e) {
        std::fflush(stdout);
        std::fprintf(stderr, "ole: %s\n", e.what());
        return 1;
    } catch (const std::exception& e) {
        std::fflush(stdout);
        std::fprintf(stderr, "ole: %s\n", e.what());
        return 1;
    }
    return 0;
}
