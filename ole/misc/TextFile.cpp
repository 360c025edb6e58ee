#include <ole/misc/TextFile.h>

#include <ole/platform/Assert.h>
#include <ole/platform/OS.h>

#include <string>

TextFile::TextFile(const LightweightString<wchar_t>& path) {
    load(path);
}

bool TextFile::load(const LightweightString<wchar_t>& path) {
    path_ = path;
    lines_.clear();
    std::string content;
    status_ = OS()->fileSystem()->readFile(path.c_str(), content);
    if (status_ != Qv::FileStatus::kOk) return false;
    setText(LightweightString<char>(content.c_str(), unsigned(content.size())));
    return true;
}

void TextFile::setText(const LightweightString<char>& text) {
    lines_.clear();
    const char* p = text.c_str();
    const char* const end = p + text.size();
    while (p < end) {
        const char* eol = p;
        while (eol < end && *eol != '\n') ++eol;
        const char* lineEnd = (eol > p && eol[-1] == '\r') ? eol - 1 : eol;
        lines_.emplace_back(p, unsigned(lineEnd - p));
        p = eol + 1;
    }
}

LightweightString<char> TextFile::text() const {
    std::string out;
    for (const Line& line : lines_) {
        out.append(line.c_str(), line.size());
        out += '\n';
    }
    return LightweightString<char>(out.c_str(), unsigned(out.size()));
}

bool TextFile::save(const LightweightString<wchar_t>& path) const {
    const LightweightString<char> content = text();
    return OS()->fileSystem()->writeAtomically(path.c_str(), content.c_str(), content.size());
}

bool TextFile::save() const {
    return save(path_);
}

void TextFile::insertLine(unsigned index, const Line& line) {
    lines_.insert(lines_.begin() + (index < lines_.size() ? index : lines_.size()), line);
}

void TextFile::removeLine(unsigned index) {
    if (index < lines_.size()) lines_.erase(lines_.begin() + index);
}

const TextFile::Line& TextFile::operator[](unsigned index) const {
    static const Line kEmpty;
    return index < lines_.size() ? lines_[index] : kEmpty;
}

TextFile::Line& TextFile::operator[](unsigned index) {
    if (QV_ASSERT_AT(index < lines_.size(), "ole/misc/TextFile", 67)) return lines_[index];
    static thread_local Line scratch;
    scratch = Line();
    return scratch;
}
