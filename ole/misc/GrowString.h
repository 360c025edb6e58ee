#pragma once

/// @file
/// GrowString: a growable narrow text buffer. Diagnostics are gathered in it: a PStream appends the
/// messages of a failed or partial unpack here, and printOn() functions of other families append their
/// descriptions. The buffer owns its text; c_str() is never null and stays valid until the next change.
/// Not thread-safe: one buffer belongs to one thread at a time. A null text appends nothing; a printf
/// format that cannot be formatted appends nothing.

#include <ole/platform/export.h>

#include <cstdarg>
#include <cstddef>
#include <string>

/// A growable narrow text buffer for diagnostics.
class OLE_API GrowString {
public:
    GrowString() = default;
    explicit GrowString(const char* text) { append(text); }

    GrowString& append(const char* text);
    GrowString& append(const char* text, std::size_t length);
    GrowString& append(char c);
    /// Formats as printf does and appends the result.
    GrowString& appendf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    GrowString& vappendf(const char* format, va_list args);

    GrowString& operator+=(const char* text) { return append(text); }

    const char* c_str() const noexcept { return text_.c_str(); }
    std::size_t length() const noexcept { return text_.size(); }
    bool empty() const noexcept { return text_.empty(); }
    void clear() noexcept { text_.clear(); }

private:
    std::string text_;
};
