#pragma once

/// @file
/// The product's directory layout. Every directory follows the XDG base-directory conventions, or lies below
/// $QUORVANE_HOME when that variable is set (tests always set it). Paths are wide strings without a trailing
/// separator; the directories are not created here (FileSystem::createDirectory does that).
///
///     user data          <data home>/Quorvane            the log file, caches
///     preferences        <config home>/Quorvane          user.cfg, editor preferences, macros
///     projects base      <data home>/Quorvane/Projects   one directory per project
///     local projects     the same directory              cookie.num
///     machine settings   <state home>/Quorvane           global.cfg, machine.num
///
/// The environment is read at each call, so a test may point $QUORVANE_HOME elsewhere at any time.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>

#include <vector>

/// Where the log file and caches go.
OLE_API LightweightString<wchar_t> getUserDataDirectory();
/// Where user.cfg, the editor preferences and the macros go.
OLE_API LightweightString<wchar_t> getPreferencesDirectory();
/// The directory holding one directory per project.
OLE_API LightweightString<wchar_t> getProjectsBaseDirectory();
/// The directory of local projects, which holds cookie.num.
OLE_API LightweightString<wchar_t> getDefaultLocalProjectsDir();
/// Where global.cfg and machine.num go.
OLE_API LightweightString<wchar_t> getMachineSettingsDirectory();

/// `dir` and `name` joined with one separator.
OLE_API LightweightString<wchar_t> joinPath(const LightweightString<wchar_t>& dir,
                                            const LightweightString<wchar_t>& name);

/// The directory part of a path (everything before the last separator); "" when there is none.
OLE_API LightweightString<wchar_t> directoryOf(const LightweightString<wchar_t>& path);

/// The names (not paths) of the entries of `dir` that match the shell wildcard `pattern` ("*", "?" and
/// "[...]"), sorted; nothing when the directory cannot be read.
OLE_API std::vector<LightweightString<wchar_t>> getDirListing(const LightweightString<wchar_t>& dir,
                                                              const LightweightString<wchar_t>& pattern);

/// The extension of the editor's project files, ".qvp" with the dot or "qvp" without.
OLE_API LightweightString<wchar_t> getEditFilenameExt(bool withDot);
