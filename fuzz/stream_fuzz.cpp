// Unpacks arbitrary bytes as layered objects, directly and through the class registry. Nothing may crash
// or read out of bounds; an object that unpacks must pack and unpack again to the same values.

#include "support/SampleShapes.h"

#include <ole/misc/strmable.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

using oletest::Blob;
using oletest::Circle;
using oletest::Shape;
using oletest::Square;

bool sameCircle(const Circle& a, const Circle& b) {
    return a.sides == b.sides && std::memcmp(&a.radius, &b.radius, sizeof a.radius) == 0 &&
           a.label == b.label;
}

// An object that unpacked must survive a round trip unchanged.
void checkRoundTrip(const Circle& read) {
    StreamFile f;
    PStream out(&f);
    if (read.STRM_hierarchyPack(out) != STRM_OK) __builtin_trap();
    f.seek(0);
    Circle again;
    if (again.STRM_hierarchyUnpack(out) != STRM_OK || !sameCircle(read, again) || !f.atEnd())
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool registered = [] {
        theSOManager().registerClass<Shape>();
        theSOManager().registerClass<Circle>();
        theSOManager().registerClass<Square>();
        theSOManager().registerClass<Blob>();
        return true;
    }();
    (void)registered;

    // As one object of a known class, in the stream version the bytes select.
    {
        StreamFile f(data, size);
        PStream s(&f);
        s.readStreamMarker();
        Circle c;
        if (c.STRM_hierarchyUnpack(s) == STRM_OK) checkRoundTrip(c);
        s.messages().clear();
        s.clearError();
        Blob b;
        b.STRM_hierarchyUnpack(s);
    }
    // As a sequence of objects of whatever registered class each header names.
    {
        StreamFile f(data, size);
        PStream s(&f);
        s.readStreamMarker();
        for (int i = 0; i < 64 && !s.error() && !s.atEnd(); ++i) {
            const std::size_t before = s.position();
            Qv::Ptr<Streamable> object = theSOManager().readObject(s);
            if (object == nullptr && !s.error() && s.position() == before) break;
        }
    }
    return 0;
}
