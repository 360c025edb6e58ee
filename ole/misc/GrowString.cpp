#include <ole/misc/GrowString.h>

#include <cstdio>
#include <cstring>

GrowString& GrowString::append(const char* text) {
    if (text) text_ += text;
    return *this;
}

GrowString& GrowString::append(const char* text, std::size_t length) {
    if (text) text_.append(text, length);
    return *this;
}

GrowString& GrowString::append(char c) {
    text_ += c;
    return *this;
}

GrowString& GrowString::appendf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vappendf(format, args);
    va_end(args);
    return *this;
}

GrowString& GrowString::vappendf(const char* format, va_list args) {
    if (!format) return *this;
    // Most messages fit a small stack buffer; longer ones are formatted a second time at their size.
    char small[256];
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(small, sizeof small, format, args);
    if (n >= 0 && std::size_t(n) < sizeof small) {
        text_.append(small, std::size_t(n));
    } else if (n > 0) {
        const std::size_t old = text_.size();
        text_.resize(old + std::size_t(n) + 1);
        std::vsnprintf(&text_[old], std::size_t(n) + 1, format, again);
        text_.resize(old + std::size_t(n));
    }
    va_end(again);
    return *this;
}
