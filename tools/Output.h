#pragma once

// Output of the ole tool. A command builds its answer once as a Value (JSON: null, booleans, numbers,
// strings, arrays and objects whose members keep the order they were added in) and prints it once, either
// as JSON, for scripts, or as aligned text, for people. Errors travel as exceptions to main, which prints
// them as one "ole: ..." line on standard error and chooses the exit status.
//
// Strings are UTF-8; bytes that are not valid UTF-8 are written to JSON as U+FFFD so that the output is
// always valid JSON. Output that does not reach standard output is an error (InputError). Nothing here
// is thread-safe; the tool runs on one thread.

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>

namespace oletool {

using Value = nlohmann::ordered_json;

// Bad input: a value that does not parse, a file that cannot be read, a failed check, output that could
// not be written. Exit status 1.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A failure whose lines are already on standard error (a check of several texts): exit status 1.
struct AlreadyReported {};

// A number that prints as it reads: whole values without a fraction ("25", not "25.0").
Value number(double d);

// Text for people: a scalar as it reads ("yes"/"no" for booleans, "-" for null, the shortest decimal text
// that reads back as a real number); arrays of scalars joined with ", ".
std::string toText(const Value& v);

// The answer as text: an object prints one "label  value" line per member (underscores in keys read as
// blanks, nested objects indented); an array of objects prints as a table with one column per member of
// its first element; an array of scalars one per line.
std::string render(const Value& v);

// Prints the answer once on standard output: JSON when `json` is set, else `text` when one is given, else
// render(v). InputError when the output does not reach standard output.
void print(const Value& v, bool json);
void print(const Value& v, bool json, const std::string& text);
// Writes text as it is on standard output and flushes it; InputError when it does not get there.
void writeOut(const std::string& text);
// Called first thing: a closed standard output is taken by /dev/null, so that no file the tool opens
// gets its descriptor and receives the answer, and any later write to it counts as failed.
void guardStandardOutput();
// False when standard output was closed at start-up.
bool standardOutputOpen();

// `text` with line breaks and tabs written as \n, \r and \t, so that it keeps to its line of text output.
std::string oneLine(std::string text);

// `text` in single quotes for error messages, with line breaks and other control characters escaped so
// that the message stays on one line.
std::string quote(const std::string& text);

}  // namespace oletool
