#pragma once

// Whole-file reading and writing for the tool's commands, with errors that name the file. Writes go
// through the platform's atomic replace (temporary file, sync, rename), so a file is either the old one
// or the new one, never half written.

#include "Output.h"

#include <string>
#include <vector>

namespace oletool {

// The bytes of the file; InputError naming the file and the reason when it cannot be read.
std::string readWholeFile(const std::string& path);
// Replaces the file's content atomically, keeping its permissions; InputError when it cannot be written.
void writeWholeFile(const std::string& path, const std::string& content);
bool fileExists(const std::string& path);
// "cannot write 'path': <the operating system's reason, from errno>".
InputError writeError(const std::string& path);

// The text split into lines without their line ends ("\n" or "\r\n").
std::vector<std::string> splitLines(const std::string& text);

// Checks that a registry-style settings file (the user configuration the preferences live in) holds
// only lines the store keeps: blank lines, "#" or ";" comments, "[Section]" headings and name=value
// lines. The store drops anything else when it saves, so a command that would change such a file
// refuses instead. A missing file is fine (it is created).
void checkSettingsFile(const std::string& path);

}  // namespace oletool
