#pragma once

// Reading command-line values. Text typed by a person is read with the library's strict parsers, which
// accept exactly the documented shape and say why anything else was refused; the functions here turn a
// refusal into an InputError naming the option and the text, so a typing mistake never turns into a
// plausible-looking answer.

#include "Output.h"

#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Parsed.h>
#include <ole/misc/FrameRate.h>

#include <CLI/CLI.hpp>

#include <string>

namespace oletool {

// A whole decimal number with an optional sign and nothing else, within lo..hi.
long long parseInteger(const std::string& text, const char* what, long long lo, long long hi);
// A finite decimal number (strtod's syntax, nothing around it).
double parseReal(const std::string& text, const char* what);

// The accepted value, or InputError "what: 'text' <why it was refused>" ("'text' ..." without `what`).
template <class T>
T accepted(Parsed<T> parsed, const std::string& text, const char* what = nullptr) {
    if (!parsed)
        throw InputError((what ? std::string(what) + ": " : std::string()) + quote(text) + " " +
                         parsed.refusal);
    return std::move(parsed.value);
}

// A frame rate by persistable or display string (see Qv::parseFrameRate).
Qv::FrameRate parseRate(const std::string& text);

// Refuses an empty value as a usage error naming the option: an empty value is not a missing one.
extern const CLI::Validator NonEmpty;

// The library's narrow text as a std::string, and wide text as UTF-8.
std::string str(const LightweightString<char>& text);
std::string str(const LightweightString<wchar_t>& text);

}  // namespace oletool
