#include <ole/Qv/QvLokiSingleton.h>

#include <map>
#include <mutex>
#include <string>

namespace Qv {

void* namedObject(const char* name, void* (*create)()) {
    static std::mutex lock;
    static auto* objects = new std::map<std::string, void*>();  // never destroyed, like its objects
    std::lock_guard<std::mutex> hold(lock);
    void*& object = (*objects)[name ? name : ""];
    if (!object) object = create();
    return object;
}

}  // namespace Qv
