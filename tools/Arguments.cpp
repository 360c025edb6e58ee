#include "Arguments.h"

#include <ole/runtime/Strings.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

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
    const Parsed<Qv::FrameRate> rate = Qv::parseFrameRate(text.c_str());
    if (!rate) throw InputError("unknown frame rate " + quote(text) + " (see 'ole rates')");
    return rate.value;
}

const CLI::Validator NonEmpty([](std::string& value) { return value.empty() ? "the value is empty" : ""; },
                              "", "NonEmpty");

std::string str(const LightweightString<char>& text) {
    return std::string(text.c_str(), text.size());
}

std::string str(const LightweightString<wchar_t>& text) {
    return str(toUTF8(text));
}

}  // namespace oletool
