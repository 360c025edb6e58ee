#pragma once

// Output of the ole tool. A command builds its answer once as a Value (JSON's null, booleans, numbers,
// strings, arrays and objects with their members in insertion order) and prints it either as JSON, for
// scripts, or as aligned text, for people. Errors travel as exceptions to main, which prints them as one
// "ole: ..." line on standard error and chooses the exit status.
//
// Strings are UTF-8; bytes that are not valid UTF-8 are written to JSON as U+FFFD so that the output is
// always valid JSON. Nothing here is thread-safe; the tool runs on one thread.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace oletool {

// Bad input: a value that does not parse, a file that cannot be read, a failed check. Exit status 1.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A failure whose lines are already on standard error (a check of several texts): exit status 1.
struct AlreadyReported {};

class Value {
public:
    enum class Kind { Null, Bool, Integer, Real, String, Array, Object };
    using Member = std::pair<std::string, Value>;

    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool b) : kind_(Kind::Bool), integer_(b) {}
    Value(int i) : kind_(Kind::Integer), integer_(i) {}
    Value(unsigned i) : kind_(Kind::Integer), integer_(i) {}
    Value(long i) : kind_(Kind::Integer), integer_(i) {}
    Value(long long i) : kind_(Kind::Integer), integer_(i) {}
    Value(unsigned long i) : kind_(Kind::Integer), integer_(static_cast<long long>(i)) {}
    Value(double d) : kind_(Kind::Real), real_(d) {}
    Value(const char* s) : kind_(Kind::String), text_(s ? s : "") {}
    Value(std::string s) : kind_(Kind::String), text_(std::move(s)) {}

    static Value array() { return Value(Kind::Array); }
    static Value object() { return Value(Kind::Object); }

    Kind kind() const { return kind_; }
    bool asBool() const { return integer_ != 0; }
    long long asInteger() const { return integer_; }
    double asReal() const { return real_; }
    const std::string& asString() const { return text_; }
    const std::vector<Value>& elements() const { return elements_; }
    const std::vector<Member>& members() const { return members_; }

    // Appends to an array.
    Value& add(Value v);
    // Adds (or replaces) an object member, keeping the order in which members were first added.
    Value& set(const std::string& key, Value v);
    // The member, or null when there is none.
    const Value* find(const std::string& key) const;

private:
    explicit Value(Kind kind) : kind_(kind) {}

    Kind kind_ = Kind::Null;
    long long integer_ = 0;
    double real_ = 0.0;
    std::string text_;
    std::vector<Value> elements_;
    std::vector<Member> members_;
};

// The shortest decimal text that reads back as exactly `d` ("0.1", "60.06006006006006", "1e+20").
std::string formatReal(double d);
// JSON text, indented by two spaces per level, without a final line end.
std::string toJson(const Value& v);
// `text` as a JSON string literal, quotes included.
std::string jsonString(const std::string& text);

// Text for people: a scalar as it reads ("yes"/"no" for booleans, "-" for null); arrays of scalars
// joined with ", ".
std::string toText(const Value& v);

// Prints `v` to standard output: JSON when `json` is set, otherwise as text. An object prints one
// "label  value" line per member (underscores in keys read as blanks, nested objects indented); an array
// of objects prints as a table with one column per member of its first element.
void print(const Value& v, bool json);

// `text` with line breaks and tabs written as \n, \r and \t, so that it keeps to its line of text output.
std::string oneLine(std::string text);

// `text` in single quotes for error messages, with line breaks and other control characters escaped so
// that the message stays on one line.
std::string quote(const std::string& text);

}  // namespace oletool
