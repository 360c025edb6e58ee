#include <ole/misc/Dirtiable.h>

Dirtiable::~Dirtiable() = default;

void Dirtiable::setDirty(bool dirty) {
    dirty_ = dirty;
}
