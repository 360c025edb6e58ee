// Feeds arbitrary bytes to the configb readers: the text form (as a string and as the lines of a file,
// block after block), every getter on every entry read, and the binary form. A record read from text must
// write itself back to text that reads into the same entries, and likewise through a PStream.

#include <ole/misc/configb.h>
#include <ole/misc/strmable.h>

#include <cstddef>
#include <cstdint>

namespace {

bool sameEntries(const configb& a, const configb& b) {
    if (a.size() != b.size()) return false;
    auto j = b.entries().begin();
    for (const auto& [name, entry] : a.entries()) {
        if (name != j->first || entry != j->second) return false;
        ++j;
    }
    return true;
}

void readEveryValue(const configb& c) {
    char buffer[16];
    for (const auto& entry : c.entries()) {
        const LightweightString<char>& name = entry.first;
        int i = 0;
        unsigned u = 0;
        double d = 0;
        bool b = false;
        LightweightString<char> text;
        Cookie cookie;
        IdStamp stamp(0, 0, 0);
        strp_field field;
        ConfigEntryT whole;
        c.in(name, i);
        c.in(name, u);
        c.in(name, d);
        c.in(name, b);
        c.in(name, buffer, int(sizeof buffer));
        c.in(name, text);
        c.in(name, cookie);
        c.in(name, stamp);
        c.in(name, field);
        c.in(name, whole);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const LightweightString<char> text(reinterpret_cast<const char*>(data), unsigned(size));

    configb fromText;
    if (fromText.fromString(text)) {
        readEveryValue(fromText);
        configb again;
        if (!again.fromString(fromText.asString()) || !sameEntries(fromText, again)) __builtin_trap();

        PStream stream;
        fromText.pack(stream);
        stream.seek(0);
        const configb unpacked(stream);
        if (!sameEntries(fromText, unpacked)) __builtin_trap();
    }

    TextFile file;
    file.setText(text);
    configb blocks;
    blocks.set_end_str("End");
    for (unsigned line = 0; line < file.size();)
        if (!blocks.buildFrom(file, line)) ++line;
    readEveryValue(blocks);

    StreamFile bytes(data, size);
    PStream raw(&bytes);
    const configb fromBytes(raw);
    readEveryValue(fromBytes);
    return 0;
}
