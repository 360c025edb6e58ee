#pragma once

/// @file
/// Parsed<T>: the answer of a strict parser. The library's ordinary parsers are lenient on purpose (text
/// written by the editor itself is read whatever it holds, and unparsable text gives the invalid value);
/// the strict ones read text typed by a person, accept exactly the documented shape and say why anything
/// else was refused.
///
/// `refusal` is empty when the text was accepted. Otherwise `value` is the type's invalid value and
/// `refusal` is a short English clause written to follow the quoted text in a message, e.g.
/// "'00:60:00.00' has more than 59 minutes". A plain value; safe to copy between threads.

#include <string>
#include <utility>

/// A value read strictly from text, or why the text was refused.
template <class T>
struct [[nodiscard]] Parsed {
    T value{};
    std::string refusal;

    bool ok() const noexcept { return refusal.empty(); }
    explicit operator bool() const noexcept { return ok(); }

    static Parsed accept(T v) { return Parsed{std::move(v), std::string()}; }
    static Parsed refuse(std::string why, T invalid = T{}) {
        return Parsed{std::move(invalid), std::move(why)};
    }
};
