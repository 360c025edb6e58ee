// A configb record: named values with a type tag, written to a file, edited and read back. Entry names
// are case-insensitive, and a value never silently changes the type of an existing entry.

#include <ole/misc/configb.h>
#include <ole/runtime/Strings.h>

#include <cstdio>
#include <cstdlib>

int main() {
    const char* dir = std::getenv("TMPDIR");
    const LightweightString<char> narrow = LightweightString<char>(dir ? dir : "/tmp") + "/ole-example.cfg";
    const LightweightString<wchar_t> path = fromUTF8(narrow);

    // Write: setters return 1 when the record changed.
    configb record;
    record.set("Height", 576);
    record.set("Title", "Evening news");
    record.set("Scale", 1.5);
    record.set("Interlaced", true);
    if (!record.dump(path)) {
        std::printf("cannot write %s\n", narrow.c_str());
        return 1;
    }
    std::printf("written:\n%s\n", record.asString().c_str());

    // Edit: read the file, change one value, add one, and write it back (atomically).
    configb edited(path);
    const int changed = edited.set("height", 480);          // same entry as "Height"
    const int refused = edited.set("Height", "tall") == 0;  // an int entry does not take text
    std::printf("height changed: %d, text refused: %s, dirty: %s\n", changed, refused ? "yes" : "no",
                edited.get_dirty() ? "yes" : "no");
    edited.dump(path);

    // Read back: getters return 0 when the entry exists and leave the output alone when it does not.
    const configb reread(path);
    int height = 0;
    double scale = 0;
    bool interlaced = false;
    LightweightString<char> title;
    int missing = -7;
    reread.in("Height", height);
    reread.in("Scale", scale);
    reread.in("Interlaced", interlaced);
    reread.in("Title", title);
    const int found = reread.in("Width", missing);
    std::printf("read back: Height %d, Scale %.2f, Interlaced %s, Title '%s', Width %s\n", height, scale,
                interlaced ? "true" : "false", title.c_str(), found == 0 ? "found" : "absent");
    std::remove(narrow.c_str());
    return height == 480 && scale == 1.5 && interlaced && found == -1 ? 0 : 1;
}
