#pragma once

// Sample packable classes shared by the stream tests, benchmark and fuzz target: a three-layer hierarchy
// Streamable -> Shape -> Circle, a sibling Square, and Blob, whose layer is kept as uninterpreted bytes.

#include <ole/misc/strmable.h>

#include <cstdint>

namespace oletest {

class Shape : public StreamableClass<Shape, Streamable> {
public:
    static constexpr const char* kLayerName = "Shape";
    int pack(PStream& s) const { return setRevision(1, 1), s.setLong(sides), STRM_OK; }
    int unpack(PStream& s) {
        seenMajor = majorRevision(), seenMinor = minorRevision(), sides = s.getLong();
        return STRM_OK;
    }
    int32_t sides = 0;
    int seenMajor = 0, seenMinor = 0;  // the revision the last unpack read
};

class Circle : public StreamableClass<Circle, Shape> {
public:
    static constexpr const char* kLayerName = "Circle";
    int pack(PStream& s) const {
        setRevision(3, 2), s.setDouble(radius), s.writeBinary(label.c_str(), 0, false, false);
        return STRM_OK;
    }
    int unpack(PStream& s) { return radius = s.getDouble(), s.getString(label), STRM_OK; }
    double radius = 0;
    LightweightString<char> label;
};

class Square : public StreamableClass<Square, Shape> {
public:
    static constexpr const char* kLayerName = "Square";
    int pack(PStream& s) const { return s.setFloat(side), STRM_OK; }
    int unpack(PStream& s) { return side = s.getFloat(), STRM_OK; }
    float side = 0;
};

class Blob : public StreamableClass<Blob, Streamable> {
public:
    static constexpr const char* kLayerName = "Blob";
    int pack(PStream& s) const {
        if (block) s.writeBinary(block->data(), uint32_t(block->size()), false, true);
        return STRM_OK;
    }
    int unpack(PStream& s) { return readChunkAsBinary(s, block); }
    Qv::Ptr<iMemHolder> block;
};

}  // namespace oletest
