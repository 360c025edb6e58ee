// Unpacks arbitrary bytes as layered objects, directly and through the class registry. Nothing may crash
// or read out of bounds; an object that unpacks must pack and unpack again to the same values.

#include <ole/misc/strmable.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

class Shape : public StreamableClass<Shape, Streamable> {
public:
    static constexpr const char* kLayerName = "Shape";
    int pack(PStream& s) const {
        setRevision(2, 0);
        s.setLong(sides);
        DynamicIntegralStorage<unsigned short, unsigned int>(count).write(s);
        return STRM_OK;
    }
    int unpack(PStream& s) {
        sides = s.getLong();
        // Revision 1 had no count.
        if (majorRevision() >= 2) count = DynamicIntegralStorage<unsigned short, unsigned int>().read(s);
        return STRM_OK;
    }
    int32_t sides = 0;
    uint32_t count = 0;
};

class Circle : public StreamableClass<Circle, Shape> {
public:
    static constexpr const char* kLayerName = "Circle";
    int pack(PStream& s) const {
        s.setDouble(radius);
        s.writeBinary(label.c_str(), 0, false, false);
        return STRM_OK;
    }
    int unpack(PStream& s) {
        radius = s.getDouble();
        label = s.getString();
        return STRM_OK;
    }
    double radius = 0;
    LightweightString<char> label;
};

class Blob : public StreamableClass<Blob, Circle> {
public:
    static constexpr const char* kLayerName = "Blob";
    int pack(PStream& s) const {
        if (block) s.writeBinary(block->data(), uint32_t(block->size()), false, true);
        return STRM_OK;
    }
    int unpack(PStream& s) { return readChunkAsBinary(s, block); }
    Qv::Ptr<iMemHolder> block;
};

bool sameCircle(const Circle& a, const Circle& b) {
    return a.sides == b.sides && a.count == b.count &&
           std::memcmp(&a.radius, &b.radius, sizeof a.radius) == 0 && a.label == b.label;
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
