#pragma once

// Test helpers shared by every test binary.

#include <functional>
#include <string>
#include <vector>

namespace oletest {

// The temporary directory that $QUORVANE_HOME points at for this test binary.
const std::string& testHome();

// Makes a fresh empty directory below testHome() and returns its path.
std::string makeTempDir(const std::string& prefix);

// Reads a whole file; "" when it cannot be read.
std::string readFile(const std::string& path);
bool writeFile(const std::string& path, const std::string& content);

// The names of the entries of a directory, sorted, without "." and ".."; nothing when it cannot be read.
std::vector<std::string> listDirectory(const std::string& dir);

// Runs body(0) .. body(count - 1) at once, each in a forked child process; true when every body returned
// true. For checks that processes sharing a file lose nothing.
bool inChildProcesses(int count, const std::function<bool(int)>& body);

// Collects everything logged through Log/LogBoth while it lives.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    const std::string& text() const;
    bool contains(const std::string& piece) const { return text().find(piece) != std::string::npos; }

private:
    struct Impl;
    Impl* impl_;
};

}  // namespace oletest
