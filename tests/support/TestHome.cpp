#include "support/TestHome.h"

#include <ole/runtime/Log.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace oletest {

static std::string makeDirFromTemplate(std::string pattern) {
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed for " + pattern);
    return pattern;
}

const std::string& testHome() {
    static const char* tmp = std::getenv("TMPDIR");
    static const std::string home =
        makeDirFromTemplate(std::string(tmp && *tmp ? tmp : "/tmp") + "/ole-test-XXXXXX");
    return home;
}

std::string makeTempDir(const std::string& prefix) {
    return makeDirFromTemplate(testHome() + "/" + prefix + "-XXXXXX");
}

std::string readFile(const std::string& path) {
    std::ostringstream out;
    return (out << std::ifstream(path, std::ios::binary).rdbuf(), out.str());
}

bool writeFile(const std::string& path, const std::string& content) {
    return bool(std::ofstream(path, std::ios::binary | std::ios::trunc) << content);
}

std::vector<std::string> listDirectory(const std::string& dir) {
    std::vector<std::string> names;
    std::error_code missing;  // a directory that cannot be read lists nothing
    for (const auto& entry : std::filesystem::directory_iterator(dir, missing))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

struct LogCapture::Impl : Qv::LogListener {
    std::string text;
    Qv::LogListener* previous = nullptr;
    void logged(const char* piece) override { text += piece; }
};

LogCapture::LogCapture() : impl_(new Impl) {
    impl_->previous = Qv::setLogListener(impl_);
}
LogCapture::~LogCapture() {
    Qv::setLogListener(impl_->previous);
    delete impl_;
}
const std::string& LogCapture::text() const {
    return impl_->text;
}

bool inChildProcesses(int count, const std::function<bool(int)>& body) {
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i)
        if (children.emplace_back(::fork()) == 0) ::_exit(body(i) ? 0 : 1);
    bool all = true;
    int status = -1;
    for (const pid_t pid : children) all = ::waitpid(pid, &status, 0) == pid && status == 0 && all;
    return all;
}

}  // namespace oletest
