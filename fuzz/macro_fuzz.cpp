// Macro files, step texts and key names on arbitrary bytes: reading must never crash, a macro written out
// must read back with the same name, description and steps, a step with a count must survive its own text
// form, and a key name must print back to itself.

#include <ole/misc/CommandMacroManager.h>
#include <ole/misc/KeyMap.h>
#include <ole/misc/TextFile.h>
#include <ole/runtime/Strings.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const LightweightString<char> text(bytes.c_str());  // the strings stop at the first NUL

    TextFile file;
    file.setText(text);
    CommandMacro macro;
    macro.readLines(file);
    CommandMacro again;
    again.readLines(macro.asTextFile());
    if (!(again.name() == macro.name()) || !(again.description() == macro.description())) std::abort();
    // Steps with an empty text at the front of the list leave no trace in the written line.
    unsigned leadingEmpty = 0;
    while (leadingEmpty < macro.numCommands() && macro.command(leadingEmpty).asText().empty()) ++leadingEmpty;
    if (again.numCommands() != macro.numCommands() - leadingEmpty) std::abort();

    const MacroElement step(fromUTF8(text));
    if (step.repeatCount() != 1) {
        const MacroElement back(step.asText());
        if (!(back.name() == step.name()) || back.repeatCount() != step.repeatCount()) std::abort();
    }

    // Key names, as bindings are written beside macros: whatever reads as a key prints back to itself.
    const int key = keyCodeFromName(text.c_str());
    if (key != KeyCode::kNoKey && keyCodeFromName(keyCodeName(key).c_str()) != key) std::abort();
    return 0;
}
