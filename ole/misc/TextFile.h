#pragma once

/// @file
/// TextFile: a text file held as a vector of lines, read and written whole. Lines are stored without their
/// line ends; reading accepts "\n" and "\r\n", writing uses "\n" after every line. save() replaces the file
/// atomically (temporary file + rename), so a crash never leaves it torn. A file that cannot be read loads
/// as no lines and load() says false, with the reason in loadStatus(): only regular files up to
/// Qv::FileSystem::kReadLimit are read (a device, FIFO or directory is refused without reading it).

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/platform/OS.h>

#include <vector>

/// A text file held as a vector of lines.
class OLE_API TextFile {
public:
    using Line = LightweightString<char>;

    TextFile() = default;
    /// Reads the file at once (see load()).
    explicit TextFile(const LightweightString<wchar_t>& path);

    bool load(const LightweightString<wchar_t>& path);
    /// How the last load() went: kOk, kMissing, kNotRegular, kTooLarge or kUnreadable.
    Qv::FileStatus loadStatus() const { return status_; }
    /// Splits a text at newline characters into lines (a final line end adds no empty line).
    void setText(const LightweightString<char>& text);
    bool save(const LightweightString<wchar_t>& path) const;
    /// Saves to the path this file was loaded from.
    bool save() const;

    void appendLine(const Line& line) { lines_.push_back(line); }
    void insertLine(unsigned index, const Line& line);
    void removeLine(unsigned index);
    void clear() { lines_.clear(); }

    unsigned size() const { return unsigned(lines_.size()); }
    bool empty() const { return lines_.empty(); }
    /// A line past the end reads as "".
    const Line& operator[](unsigned index) const;
    /// A line past the end prints the assertion line and gives a scratch line, emptied on each such call,
    /// that belongs to no file: writing to it changes nothing.
    Line& operator[](unsigned index);
    const std::vector<Line>& lines() const { return lines_; }
    /// The lines joined, each followed by "\n".
    LightweightString<char> text() const;
    const LightweightString<wchar_t>& path() const { return path_; }

private:
    std::vector<Line> lines_;
    LightweightString<wchar_t> path_;
    Qv::FileStatus status_ = Qv::FileStatus::kMissing;
};
