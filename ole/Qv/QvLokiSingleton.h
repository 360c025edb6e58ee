#pragma once

/// @file
/// The process-wide registry of named objects. Each object is made on first use by whoever asks for its
/// name first and is shared by every later caller in the process, whichever shared object they live in:
/// templates instantiated in several libraries still meet in one object per name. Objects are never
/// destroyed, so they may be used from static destructors and from threads that outlive main().
///
/// Thread-safe: two threads asking for a new name at once get the same object, made once.

#include <ole/platform/export.h>

#include <typeinfo>

namespace Qv {

/// The object registered under `name`, made by `create()` if there is none yet.
OLE_API void* namedObject(const char* name, void* (*create)());

}  // namespace Qv

/// The one T of the process, registered under T's mangled type name and made with `new T()`.
template <class T>
class QvLokiSingleton {
public:
    static T& instance() {
        static T* const object =
            static_cast<T*>(Qv::namedObject(typeid(T).name(), [] { return static_cast<void*>(new T()); }));
        return *object;
    }
};
