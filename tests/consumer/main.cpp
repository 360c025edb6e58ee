// Uses an installed ole: every public header (through ole.h) must compile under the one <ole/...> root and
// the exported symbols must link and work. Exits 0 and prints "ole consumer: ok" when they do.

#include <ole/ole.h>

#include <cstdio>

int main() {
    LightweightString<char> name("consumer");
    LightweightString<char> copy = name;
    const bool shared = name.refCount() == 2 && copy.c_str() == name.c_str();
    copy += " check";
    const bool copiedOnWrite = name == "consumer" && copy == "consumer check" && name.refCount() == 1;

    Qv::Ptr<iObject> object(new iObject);
    Qv::Ptr<iObject> other = object;
    const bool counted = object.refCount() == 2;
    other.reset();

    const bool ok = shared && copiedOnWrite && counted && object.refCount() == 1;
    std::printf("ole consumer: %s (\"%s\", \"%s\")\n", ok ? "ok" : "FAILED", name.c_str(), copy.c_str());
    return ok ? 0 : 1;
}
