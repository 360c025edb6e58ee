// The ole command-line tool. For now it shows that the library loads and that its core types share
// their storage; the commands come later.

#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>

#include <cstdio>
#include <cstring>

namespace {

void usage(std::FILE* out) { std::fprintf(out, "usage: ole [--help]\n"); }

void showSharing() {
    LightweightString<char> name("timeline");
    LightweightString<char> copy = name;
    std::printf("string \"%s\": %d holders\n", name.c_str(), name.refCount());
    copy.push_back('s');
    std::printf("after a change to one copy: \"%s\" %d holder, \"%s\" %d holder\n", name.c_str(),
                name.refCount(), copy.c_str(), copy.refCount());

    Qv::Ptr<iObject> object(new iObject);
    Qv::Ptr<iObject> other = object;
    std::printf("shared object: %d holders\n", object.refCount());
    other.reset();
    std::printf("after one release: %d holder\n", object.refCount());
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            usage(stdout);
            showSharing();
            return 0;
        }
        std::fprintf(stderr, "ole: unknown argument '%s'\n", argv[i]);
        usage(stderr);
        return 2;
    }
    showSharing();
    return 0;
}
