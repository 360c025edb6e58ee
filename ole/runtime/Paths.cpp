#include <ole/runtime/Paths.h>

#include <ole/platform/OS.h>

#include <algorithm>

namespace {

LightweightString<wchar_t> special(int which) {
    wchar_t buffer[4096];
    if (!OS()->specialDirectory(which, buffer, sizeof buffer / sizeof buffer[0]))
        return LightweightString<wchar_t>();
    return LightweightString<wchar_t>(buffer);
}

const wchar_t kProduct[] = L"Quorvane";

}  // namespace

LightweightString<wchar_t> joinPath(const LightweightString<wchar_t>& dir,
                                    const LightweightString<wchar_t>& name) {
    if (dir.empty()) return name;
    const wchar_t separator = Qv::FileSystem::separator();
    if (dir[dir.size() - 1] == separator) return dir + name;
    const wchar_t sep[2] = {separator, 0};
    return dir + sep + name;
}

LightweightString<wchar_t> directoryOf(const LightweightString<wchar_t>& path) {
    unsigned last = LightweightString<wchar_t>::npos;
    for (unsigned i = path.find(Qv::FileSystem::separator()); i != LightweightString<wchar_t>::npos;
         i = path.find(Qv::FileSystem::separator(), i + 1))
        last = i;
    if (last == LightweightString<wchar_t>::npos) return LightweightString<wchar_t>();
    return last == 0 ? path.substr(0, 1) : path.substr(0, last);
}

LightweightString<wchar_t> getUserDataDirectory() {
    return joinPath(special(Qv::kUserDataBase), kProduct);
}

LightweightString<wchar_t> getPreferencesDirectory() {
    return joinPath(special(Qv::kConfigBase), kProduct);
}

LightweightString<wchar_t> getProjectsBaseDirectory() {
    return joinPath(getUserDataDirectory(), L"Projects");
}

// Linux has one local projects directory: the counter file lives beside the projects it numbers.
LightweightString<wchar_t> getDefaultLocalProjectsDir() {
    return getProjectsBaseDirectory();
}

LightweightString<wchar_t> getMachineSettingsDirectory() {
    return joinPath(special(Qv::kMachineSettingsBase), kProduct);
}

std::vector<LightweightString<wchar_t>> getDirListing(const LightweightString<wchar_t>& dir,
                                                      const LightweightString<wchar_t>& pattern) {
    std::vector<LightweightString<wchar_t>> names;
    for (const std::wstring& name : OS()->fileSystem()->listDirectory(dir.c_str(), pattern.c_str()))
        names.emplace_back(name.c_str(), unsigned(name.size()));
    std::sort(names.begin(), names.end());
    return names;
}

LightweightString<wchar_t> getEditFilenameExt(bool withDot) {
    return withDot ? L".qvp" : L"qvp";
}
