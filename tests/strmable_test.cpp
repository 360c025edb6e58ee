#include "support/SampleShapes.h"
#include "support/StdoutCapture.h"

#include <ole/misc/strmable.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

using namespace oletest;

namespace {

// Reads Circle's layer as another revision would: `extra` reads more (fewer when negative) than written.
class CircleReader : public StreamableClass<CircleReader, Shape> {
public:
    explicit CircleReader(int e = 0) : extra(e) {}
    static constexpr const char* kLayerName = "Circle";
    int pack(PStream&) const { return STRM_OK; }
    int unpack(PStream& s) {
        radius = s.getDouble();
        if (extra >= 0) s.getString();
        if (extra > 0) s.getInt64();
        return STRM_OK;
    }
    int extra = 0;
    double radius = 0;
};

Circle makeCircle() {
    Circle c;
    c.sides = 1, c.radius = 2.5, c.label = "wheel";
    return c;
}

std::string bytesOf(const StreamFile& f) {
    return std::string(reinterpret_cast<const char*>(f.data()), f.size());
}

std::string packed(const Streamable& object) {
    StreamFile f;
    PStream s(&f);
    EXPECT_EQ(object.STRM_hierarchyPack(s), STRM_OK);
    return bytesOf(f);
}
using Result = std::pair<int, std::string>;
Result unpack(Streamable& object, const std::string& bytes) {
    StreamFile f(bytes.data(), bytes.size());
    PStream s(&f);
    const int rc = object.STRM_hierarchyUnpack(s);
    return {rc, s.messages().c_str()};
}

template <class T>
std::string le(T value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

TEST(DynamicIntegralStorage, SmallValuesTakeTheSmallWidthOthersTheEscape) {
    StreamFile f;
    PStream s(&f);
    DynamicIntegralStorage<unsigned char, unsigned short> narrow(254), narrow2(255);
    DynamicIntegralStorage<unsigned short, unsigned int> wide(65534), wide2(70000);
    narrow.write(s), narrow2.write(s), wide.write(s), wide2.write(s);
    EXPECT_EQ(bytesOf(f), std::string("\xFE\xFF\xFF\x00\xFE\xFF\xFF\xFF\x70\x11\x01\x00", 12));
    f.seek(0);
    EXPECT_EQ((std::vector<unsigned>{narrow.read(s), narrow.read(s), wide.read(s), wide.read(s)}),
              (std::vector<unsigned>{254, 255, 65534, 70000}));

    StreamFile cut("\xFF\x01", 2);  // the escape and half a word
    PStream t(&cut);
    EXPECT_TRUE(narrow.read(t) == 0u && t.error() != 0);
}

TEST(Streamable, ThreeLayersPackAsNestedChunksAndUnpackBack) {
    const std::string bytes = packed(makeCircle());
    // One chunk per layer, base first: name, revision, own data size, size of everything after the header.
    const std::string expected = std::string("Streamable\0\2\0", 13) + le<uint32_t>(13) + le<uint32_t>(64) +
                                 std::string("Shape.Circle\0", 13) + std::string("Shape\0\1\1", 8) +
                                 le<uint32_t>(4) + le<uint32_t>(35) + le<int32_t>(1) +
                                 std::string("Circle\0\3\2", 9) + le<uint32_t>(14) + le<uint32_t>(14) +
                                 le(2.5) + std::string("wheel\0", 6);
    EXPECT_EQ(bytes, expected);

    StreamFile f(bytes.data(), bytes.size());
    PStream s(&f);
    Circle copy;
    EXPECT_TRUE(copy.STRM_hierarchyUnpack(s) == STRM_OK && f.atEnd() && s.messages().empty());
    EXPECT_EQ(std::make_tuple(copy.sides, copy.radius, copy.seenMajor, copy.seenMinor, copy.label),
              std::make_tuple(1, 2.5, 1, 1, LightweightString<char>("wheel")));

    EXPECT_EQ(std::string(copy.hierarchyName().c_str()) + " " + copy.hierarchyName(false, true).c_str() +
                  " " + copy.hierarchyName(true, false).c_str() + " " + copy.layerName(),
              "Streamable.Shape.Circle Shape.Circle Streamable.Shape Circle");
}

TEST(Streamable, UnderReadWarnsAndSkipsOverReadFails) {
    StreamFile f;
    PStream s(&f);
    Square after;
    after.side = 4;
    ASSERT_TRUE(makeCircle().STRM_hierarchyPack(s) == STRM_OK && after.STRM_hierarchyPack(s) == STRM_OK);

    f.seek(0);
    CircleReader less(-1), more(1);
    EXPECT_TRUE(less.STRM_hierarchyUnpack(s) == STRM_OK && less.radius == 2.5);
    EXPECT_STREQ(s.messages().c_str(),
                 "Warning: Not all object data was read while unpacking object Circle, layer Circle v3.2, "
                 "6/14 bytes unread.\n");
    after.side = 0;
    EXPECT_TRUE(after.STRM_hierarchyUnpack(s) == STRM_OK && after.side == 4.0f);  // skipped to the next one

    f.seek(0), s.messages().clear();
    EXPECT_TRUE(more.STRM_hierarchyUnpack(s) == STRM_FAILED && s.error() != 0);
    EXPECT_STREQ(s.messages().c_str(),
                 "Error: Unpacker read beyond end of chunk while unpacking object Circle, layer Circle v3.2, "
                 "8 bytes overread.\n");

    s.messages().clear();
    EXPECT_EQ(after.STRM_hierarchyUnpack(s), STRM_FAILED);
    EXPECT_STREQ(s.messages().c_str(), "Warning: Attempted to unpack from a stream with error flagged!\n");
}

TEST(Streamable, WrongClassesAndDamagedDataFailWithAMessage) {
    const std::string good = packed(makeCircle());
    std::string badRevision = good, badName = good, badLast = good, badHierarchy = good;
    badRevision[11] = 7;                              // a base layer of an unknown revision
    badName[good.find("Circle\0", 40, 7)] = 'K';      // a derived layer under another name
    badLast[good.find("Circle\0", 40, 7) + 5] = 'E';  // names differing in their last letter
    badHierarchy[good.find("Shape.Circle") + 11] = 'E';
    Square square;
    Circle c;
    EXPECT_EQ(unpack(square, good),
              Result(STRM_FAILED, "Expected hierarchy Streamable.Shape.Square, got Streamable.Shape.Circle"));
    EXPECT_EQ(unpack(c, badRevision), Result(STRM_FAILED, "Unrecognized version for Streamable base"));
    EXPECT_EQ(
        unpack(c, badName),
        Result(STRM_FAILED, "Expected short name 'Circle' for layer Streamable.Shape.Circle, got Kircle"));
    EXPECT_EQ(unpack(c, badLast).second,
              "Expected short name 'Circle' for layer Streamable.Shape.Circle, got CirclE");
    EXPECT_EQ(unpack(c, badHierarchy).second,
              "Expected hierarchy Streamable.Shape.Circle, got Streamable.Shape.CirclE");
    for (std::size_t n = 0; n < good.size(); ++n) {  // every truncation fails cleanly with a message
        const Result got = unpack(c, good.substr(0, n));
        EXPECT_TRUE(got.first == STRM_FAILED && !got.second.empty()) << n;
    }
    EXPECT_EQ(unpack(c, good.substr(0, 40)).second,
              "Unexpected end-of-file while unpacking Circle, layer Streamable");
}

// Old streams: a marker, variable-width revisions and the total size before the own size.
TEST(Streamable, OldFormatStreamsAreRead) {
    StreamFile f;
    PStream w(&f);
    f.write(PStream::kStrm10Marker, PStream::kStrm10MarkerSize);
    auto header = [&](const char* name, unsigned major, unsigned minor, uint32_t own, uint32_t total) {
        w.writeBinary(name, 0, false, false);
        DynamicIntegralStorage<unsigned char, unsigned short>(static_cast<unsigned short>(major)).write(w);
        DynamicIntegralStorage<unsigned short, unsigned int>(minor).write(w);
        w.setUnsignedLong(total), w.setUnsignedLong(own);
    };
    const uint32_t circleChunk = 7 + 1 + 2 + 8 + 14, shapeChunk = 6 + 1 + 2 + 8 + 4 + circleChunk;
    header("Streamable", 1, 0, 0, shapeChunk), header("Shape", 1, 0, 4, 4 + circleChunk), w.setLong(9);
    header("Circle", 3, 2, 14, 14), w.setDouble(0.5);
    w.writeBinary("rim\0\0\0", 6, false, true);  // "rim" and two bytes more than the reader takes

    f.seek(0);
    PStream r(&f);
    EXPECT_TRUE(r.readStreamMarker() && r.streamVersion() == PStream::kStrm10Version);
    const StreamObjectInfo info = theSOManager().objectInfo(r);
    EXPECT_TRUE(info.valid && info.hierarchyName == "Shape.Circle" && info.className == "Circle" &&
                info.size == f.size() - PStream::kStrm10MarkerSize);
    PStream nothing;  // no header: no object and no size
    const StreamObjectInfo none = theSOManager().objectInfo(nothing);
    EXPECT_TRUE(!none.valid && none.size == 0u);

    Circle c;
    EXPECT_TRUE(c.STRM_hierarchyUnpack(r) == STRM_OK && c.label == "rim" && c.sides == 9 && c.radius == 0.5);
    EXPECT_NE(std::string(r.messages().c_str()).find("2/14 bytes unread"), std::string::npos);

    f.clear(), f.write(PStream::kStrm10Marker, PStream::kStrm10MarkerSize);
    header("Streamable", 300, 0, 0, 0);  // a revision that does not fit a byte
    f.seek(0);
    PStream o(&f);
    EXPECT_TRUE(o.readStreamMarker() && c.STRM_hierarchyUnpack(o) == STRM_FAILED);
    EXPECT_STREQ(o.messages().c_str(), " Strm1.0 Object has oversized major rev (Streamable). ");
}

TEST(StreamObjectManager, ReadsObjectsOfRegisteredClassesAndSkipsOthers) {
    StreamObjectManager& m = theSOManager();
    EXPECT_EQ(
        (std::vector<int>{m.registerClass<Circle>(), m.registerClass<Circle>(), m.registerClass<Square>()}),
        (std::vector<int>{1, 0, 1}));
    StreamClassRecord record;
    EXPECT_TRUE(m.lookup("Circle", record) == 0 && record.hierarchyName == "Shape.Circle");
    EXPECT_TRUE(m.lookup("Shape.Square", record) == 0 && record.className == "Square");
    EXPECT_EQ(m.lookup("Triangle", record) + m.lookup(nullptr, record), -2);

    StreamFile f;
    PStream s(&f);
    Square sq;
    sq.side = 3, makeCircle().STRM_hierarchyPack(s), Shape().STRM_hierarchyPack(s), sq.STRM_hierarchyPack(s);

    f.seek(0);  // the Shape in the middle is not registered
    Qv::Ptr<Streamable> first = m.readObject(s);
    ASSERT_TRUE(first && std::strcmp(first->shortLayerName(), "Circle") == 0);
    EXPECT_EQ(static_cast<Circle*>(first.get())->label, LightweightString<char>("wheel"));
    EXPECT_TRUE(m.readObject(s) == nullptr && s.error() == 0);
    Qv::Ptr<Streamable> third = m.readObject(s);
    EXPECT_TRUE(third && static_cast<Square*>(third.get())->side == 3.0f && f.atEnd());

    EXPECT_TRUE(
        m.readObject(s) == nullptr &&
        std::strstr(s.messages().c_str(), "StreamObjectManager::readObject(): Failed to read header!\n"));

    f.seek(0), s.clearError();
    Circle target;
    EXPECT_TRUE(m.readObjectAs(s, target) == STRM_OK && target.radius == 2.5);

    EXPECT_EQ((std::vector<int>{m.unregisterClass("Circle"), m.unregisterClass("Circle"),
                                m.lookup("Shape.Circle", record), m.unregisterClass("Square")}),
              (std::vector<int>{1, 0, -1, 1}));
}

TEST(Streamable, ChunkAsBinaryAssignAndTooManyLayers) {
    Blob out, in;
    out.block = Qv::Ptr<iMemHolder>(new MemHolder("\x01\x02\x03", 3));
    ASSERT_TRUE(unpack(in, packed(out)).first == STRM_OK && in.block != nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(in.block->data()), in.block->size()), "\x01\x02\x03");

    EXPECT_EQ(oletest::stdoutOf([&] { in.assign(out); }),
              "assertion failed assign is not supported by this class at ole/misc/strmable line 124\n");

    // A hierarchy deeper than the layer list holds: the extra layer is left out, with its assertion line.
    StreamableLayerList layers;
    const StreamableLayer layer{"L", 1, nullptr, nullptr};
    for (unsigned i = 0; i < StreamableLayerList::kMaxLayers; ++i) layers.push(layer);
    EXPECT_EQ(oletest::stdoutOf([&] { layers.push(layer); }),
              "assertion failed count_ < kMaxLayers at ole/misc/strmable line 175\n");
    EXPECT_EQ(layers.size(), StreamableLayerList::kMaxLayers);
}
