#pragma once

// Whole-file reading and writing for the tool's commands, with errors that name the file. Only regular
// files up to 16 MiB are read (a device or FIFO is refused without reading it). Writes go through the
// platform's atomic replace (temporary file, sync, rename), which keeps the file's owner, group and mode,
// so a file is either the old one or the new one, never half written. A command that reads, changes and
// writes back a file holds the file's lock (lockFile) from before the read to after the write.

#include <ole/platform/OS.h>

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

// The exclusive lock of the file at `path`, for a read-change-write of it; blocks until it is free.
Qv::FileLock lockFile(const std::string& path);

// Fails with InputError when the registry-style settings file of the user configuration exists but could
// not be read: the store then refuses every change, and what it shows would be empty, not the file.
void checkSettingsFile();

}  // namespace oletool
