#include "Files.h"

#include "Arguments.h"
#include "Output.h"

#include <ole/platform/OS.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace oletool {

std::string readWholeFile(const std::string& path) {
    std::string content;
    const Qv::FileStatus status = OS()->fileSystem()->readFile(fromUTF8(path.c_str()).c_str(), content);
    if (status == Qv::FileStatus::kOk) return content;
    if (status == Qv::FileStatus::kUnreadable || status == Qv::FileStatus::kMissing)
        throw InputError("cannot read " + quote(path) + ": " + std::strerror(errno));
    if (status == Qv::FileStatus::kNotRegular &&
        OS()->fileSystem()->isDirectory(fromUTF8(path.c_str()).c_str()))
        throw InputError("cannot read " + quote(path) + ": " + std::strerror(EISDIR));
    throw InputError("cannot read " + quote(path) + ": it " + Qv::FileSystem::describe(status));
}

InputError writeError(const std::string& path) {
    const int error = errno;
    return InputError("cannot write " + quote(path) + ": " +
                      (error ? std::strerror(error) : "the write failed"));
}

void writeWholeFile(const std::string& path, const std::string& content) {
    errno = 0;
    const Qv::FileStatus status =
        OS()->fileSystem()->replaceFile(fromUTF8(path.c_str()).c_str(), content.data(), content.size());
    if (status == Qv::FileStatus::kWriteFailed) throw writeError(path);
    if (status != Qv::FileStatus::kOk)
        throw InputError("cannot write " + quote(path) + ": it " + Qv::FileSystem::describe(status) +
                         "; the file is left as it was");
}

Qv::FileLock lockFile(const std::string& path) {
    return OS()->fileSystem()->lock(fromUTF8(path.c_str()).c_str());
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

void checkSettingsFile() {
    const LightweightString<char> error = UserConfig().readError();
    if (!error.empty())
        throw InputError("cannot use the user configuration " + quote(str(UserConfig().path())) + ": it " +
                         str(error) + "; it is left as it is");
}

}  // namespace oletool
