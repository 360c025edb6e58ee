// Links against the platform floor alone (no core templates, no families) and uses each of its services,
// so a dependency on anything above it fails the link.

#include <ole/platform/Assert.h>
#include <ole/platform/CompletionPort.h>
#include <ole/platform/OS.h>
#include <ole/platform/Threads.h>
#include <ole/platform/UUID.h>

#include <cstdio>

int main() {
    void* block = OS()->allocator()->allocate(16);
    OS()->allocator()->free(block);
    const bool clock = OS()->clock()->now() > 0;
    const bool cpus = OS()->threads()->processorCount() >= 1;
    const bool listing = !OS()->fileSystem()->listDirectory(L"/", L"*").empty();
    Qv::CompletionPort port;
    Qv::Completion completion;
    const bool completes = port.post(1, 2, 3) && port.wait(completion, 10000) && completion.key == 3;
    const bool ok = clock && cpus && listing && completes;
    std::printf("platform alone: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
