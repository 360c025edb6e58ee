#include <ole/Qv/Ptr.h>

namespace Qv {
InternalRefCount::~InternalRefCount() = default;
}  // namespace Qv

iObject::~iObject() = default;
