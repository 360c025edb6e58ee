#include "Arguments.h"

#include <ole/misc/ProjectRate.h>
#include <ole/runtime/Strings.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <strings.h>

namespace oletool {

long long parseInteger(const std::string& text, const char* what, long long lo, long long hi) {
    std::size_t i = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
    bool digits = i < text.size();
    for (std::size_t j = i; j < text.size(); ++j) digits = digits && text[j] >= '0' && text[j] <= '9';
    if (!digits) throw InputError(std::string(what) + ": " + quote(text) + " is not a whole number");
    errno = 0;
    const long long n = std::strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE || n < lo || n > hi)
        throw InputError(std::string(what) + ": " + text + " is out of range (" + std::to_string(lo) +
                         " to " + std::to_string(hi) + ")");
    return n;
}

double parseReal(const std::string& text, const char* what) {
    // strtod alone would also take blanks, hexadecimal, "inf" and "nan".
    bool shape = !text.empty();
    for (char c : text)
        shape = shape && ((c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E');
    char* end = nullptr;
    const double d = shape ? std::strtod(text.c_str(), &end) : 0.0;
    if (!shape || end != text.c_str() + text.size() || !std::isfinite(d))
        throw InputError(std::string(what) + ": " + quote(text) + " is not a number");
    return d;
}

Qv::FrameRate parseRate(const std::string& text) {
    const Qv::FrameRate byName = Qv::getFrameRateFromPersistableString(text.c_str());
    if (byName != Qv::FRInvalid) return byName;
    // The library's display-string look-up reports a miss as an assertion on standard output, so the
    // tool compares the strings itself.
    for (int r = Qv::kFirstFrameRate; r <= Qv::kLastFrameRate; ++r) {
        const std::string display = str(Qv::getDisplayString(Qv::FrameRate(r)));
        const std::string suffix = " fps";
        if (display.size() <= suffix.size() ||
            display.compare(display.size() - suffix.size(), suffix.size(), suffix))
            continue;  // film rates have no number
        if (text == display || text == display.substr(0, display.size() - suffix.size()))
            return Qv::FrameRate(r);
    }
    throw InputError("unknown frame rate " + quote(text) + " (see 'ole rates')");
}

bool rateHasTicks(Qv::FrameRate rate) {
    return rate != Qv::FR12_5 && (Qv::isInFrameRateGroup(rate, Qv::FrameRateGroups::Normal) ||
                                  Qv::isInFrameRateGroup(rate, Qv::FrameRateGroups::LowAndHigh));
}

bool rateHasTrueFps(Qv::FrameRate rate) {
    return rate >= Qv::kFirstFrameRate && rate <= Qv::kLastFrameRate &&
           !Qv::isInFrameRateGroup(rate, Qv::FrameRateGroups::Film);
}

film_gauge parseGauge(const std::string& text) {
    for (int g = FILM_16MM; g < FILM_INVALID; ++g)
        if (::strcasecmp(text.c_str(), film_gauge_to_str(film_gauge(g))) == 0) return film_gauge(g);
    if (text == "16" || text == "35") return int_to_film_gauge(std::atoi(text.c_str()));
    const film_gauge byCode = edlstr_to_film_gauge(text.c_str());
    if (byCode != FILM_INVALID) return byCode;
    throw InputError("unknown film gauge " + quote(text) +
                     " (use 16mm, 35mm, \"16mm ink\", \"35mm 3-perf\" or F16, F35, F16R, F353)");
}

// A cookie text as the editor reads it; an error when it reads as the invalid cookie.
Cookie parseCookie(const std::string& text) {
    const Cookie c(text.c_str(), true);
    if (c.valid()) return c;
    if (text.size() != Cookie::kShortTextLength && text.size() != Cookie::kUUIDTextLength)
        throw InputError(quote(text) + " is not a cookie (a cookie text has 8 or 40 characters)");
    throw InputError(quote(text) + " is not a cookie");
}

// 17 to 24 hexadecimal digits: machine (8), time (8), then the count within the second (1..8).
IdStamp parseIdStamp(const std::string& text) {
    bool hex = text.size() >= 17 && text.size() <= 24;
    for (char c : text) hex = hex && std::isxdigit(static_cast<unsigned char>(c));
    if (!hex) throw InputError(quote(text) + " is not an IdStamp (17 to 24 hexadecimal digits)");
    const IdStamp stamp(text.c_str());
    if (!stamp.valid()) throw InputError(quote(text) + " is not an IdStamp (its time is zero)");
    return stamp;
}

std::string str(const LightweightString<char>& text) {
    return std::string(text.c_str(), text.size());
}

std::string str(const LightweightString<wchar_t>& text) {
    return str(toUTF8(text));
}

}  // namespace oletool
