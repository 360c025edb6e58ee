#include <ole/Qv/Command.h>

#include <ole/platform/Assert.h>

namespace QvDC {

void reportUninitialisedCommand() {
    Qv::reportFatalError("Attempted to use unitinitalized QvDecoupler::Command!");
}

}  // namespace QvDC
