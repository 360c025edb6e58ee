#include "Files.h"

#include "Output.h"

#include <ole/platform/OS.h>
#include <ole/runtime/Strings.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace oletool {

std::string readWholeFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) throw InputError("cannot read " + quote(path) + ": " + std::strerror(errno));
    std::string content;
    char buffer[65536];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0) content.append(buffer, n);
    const int error = std::ferror(file) ? errno : 0;
    std::fclose(file);
    if (error) throw InputError("cannot read " + quote(path) + ": " + std::strerror(error));
    return content;
}

InputError writeError(const std::string& path) {
    const int error = errno;
    return InputError("cannot write " + quote(path) + ": " +
                      (error ? std::strerror(error) : "the write failed"));
}

void writeWholeFile(const std::string& path, const std::string& content) {
    // The replacement is made with the platform's default mode; a file that was kept private stays so.
    struct stat before;
    const bool existed = ::stat(path.c_str(), &before) == 0;
    errno = 0;
    if (!OS()->fileSystem()->writeAtomically(fromUTF8(path.c_str()).c_str(), content.data(), content.size()))
        throw writeError(path);
    if (existed) ::chmod(path.c_str(), before.st_mode & 07777);
}

bool fileExists(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::size_t stop = end;
        if (stop > start && text[stop - 1] == '\r') --stop;
        lines.push_back(text.substr(start, stop - start));
        start = end + 1;
    }
    return lines;
}

void checkSettingsFile(const std::string& path) {
    if (!fileExists(path)) return;
    const std::vector<std::string> lines = splitLines(readWholeFile(path));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (line.empty() || line[0] == '#' || line[0] == ';' || (line[0] == '[' && line.back() == ']') ||
            line.find('=') != std::string::npos)
            continue;
        throw InputError(path + " line " + std::to_string(i + 1) + ": " + quote(line) +
                         " is not a setting (name=value); the file is left as it is");
    }
}

}  // namespace oletool
