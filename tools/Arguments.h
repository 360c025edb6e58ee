#pragma once

// Strict reading of command-line values. The library's own parsers are lenient on purpose (unparsable
// timecode reads as 0.0, an unknown rate as FRInvalid, a bad cookie as the invalid cookie), which suits
// data read back from the editor's own files but not text typed by a person. Every function here accepts
// exactly the documented shape and throws InputError with a message naming the option and the text
// otherwise, so a typing mistake never turns into a plausible-looking answer.

#include "Output.h"

#include <ole/misc/Cookie.h>
#include <ole/misc/FrameRate.h>
#include <ole/misc/IdStamp.h>
#include <ole/misc/filmgauge.h>
#include <ole/Qv/LightweightString.h>

#include <string>

namespace oletool {

// A whole decimal number with an optional sign and nothing else, within lo..hi.
long long parseInteger(const std::string& text, const char* what, long long lo, long long hi);
// A finite decimal number (strtod's syntax, nothing around it).
double parseReal(const std::string& text, const char* what);

// A frame rate by its persistable string ("30M"), its display string ("29.97 fps") or the display number
// alone ("29.97"). Persistable strings are tried first; among display strings the lowest rate wins, as in
// the library.
Qv::FrameRate parseRate(const std::string& text);
// The facts of a rate that the library can give without complaint: a rate has "ticks" when it counts
// whole frames per second of its own (not decimated, not film, not 12.5 fps).
bool rateHasTicks(Qv::FrameRate rate);
// A true frame rate exists for every valid rate except the four film rates.
bool rateHasTrueFps(Qv::FrameRate rate);

// A film gauge by display string ("35mm", "35mm 3-perf"), EDL code ("F35", either case) or width ("16").
film_gauge parseGauge(const std::string& text);

// A cookie text (8 or 40 characters) that the library reads as a valid cookie; lenient where the library
// is (a lower-case type letter reads as upper case). Whether it is well-formed is Cookie::isValid's call.
Cookie parseCookie(const std::string& text);
// An IdStamp text: 17 to 24 hexadecimal digits (machine, time, count) with a non-zero time.
IdStamp parseIdStamp(const std::string& text);

// The library's narrow text as a std::string, and wide text as UTF-8.
std::string str(const LightweightString<char>& text);
std::string str(const LightweightString<wchar_t>& text);

}  // namespace oletool
