#include "support/TestHome.h"

#include <ole/runtime/Log.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace oletest {

static std::string makeDirFromTemplate(std::string pattern) {
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) throw std::runtime_error("mkdtemp failed for " + pattern);
    return buffer.data();
}

const std::string& testHome() {
    static const std::string home = [] {
        const char* tmp = std::getenv("TMPDIR");
        return makeDirFromTemplate(std::string(tmp && *tmp ? tmp : "/tmp") + "/ole-test-XXXXXX");
    }();
    return home;
}

std::string makeTempDir(const std::string& prefix) {
    return makeDirFromTemplate(testHome() + "/" + prefix + "-XXXXXX");
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return bool(out);
}

std::vector<std::string> listDirectory(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(d);
    }
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
    for (int i = 0; i < count; ++i) {
        const pid_t pid = ::fork();
        if (pid == 0) ::_exit(body(i) ? 0 : 1);
        children.push_back(pid);
    }
    bool all = true;
    for (const pid_t pid : children) {
        int status = -1;
        all = ::waitpid(pid, &status, 0) == pid && status == 0 && all;
    }
    return all;
}

}  // namespace oletest
