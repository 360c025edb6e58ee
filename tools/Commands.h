#pragma once

// The command groups of the ole tool. Each add* function adds its subcommands to the application; each
// subcommand runs from its CLI11 callback, prints its answer on standard output and reports bad input by
// throwing InputError (see Output.h). Options are kept in objects owned by the callbacks.

#include <CLI/CLI.hpp>

namespace oletool {

void addTimecodeCommands(CLI::App& app);  // timecode
void addFootageCommands(CLI::App& app);   // footage, pulldown
void addTableCommands(CLI::App& app);     // rates, formats
void addCookieCommands(CLI::App& app);    // cookie, idstamp
void addConfigCommands(CLI::App& app);    // config
void addPrefsCommands(CLI::App& app);     // prefs
void addCommandCommands(CLI::App& app);   // commands, macro

// The --json flag every query command offers.
inline CLI::Option* addJsonFlag(CLI::App* command, bool& json) {
    return command->add_flag("--json", json, "Print the answer as JSON");
}

}  // namespace oletool
