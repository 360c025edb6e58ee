#include <ole/misc/strmable.h>

#include <ole/platform/Assert.h>
#include <ole/platform/Threads.h>

#include <cstring>
#include <map>
#include <string>

using BaseTraits = StreamableTraits<Streamable, void>;

namespace {

bool succeeded(int result) {
    return result == STRM_OK || result == STRM_CONTINUE;
}

// A chunk header as read from the stream. The name points into the stream's cache.
struct ChunkHeader {
    const char* name;
    std::size_t nameLength;
    uint32_t major;
    uint32_t minor;
    uint32_t ownSize;
    uint32_t totalSize;
    std::size_t dataStart;

    std::size_t ownEnd() const { return dataStart + ownSize; }
    std::size_t end() const { return dataStart + totalSize; }
    bool named(const char* expected, std::size_t length) const {
        return length == nameLength && std::memcmp(expected, name, length) == 0;
    }
};

enum class HeaderStatus { Ok, EndOfFile, OversizedMajor, OversizedMinor, BadSizes };

// The fixed part of a current header after the name: two revision bytes and two 32-bit sizes.
constexpr std::size_t kFixedHeaderBytes = 10;
// The fixed part of a header as packing first writes it: revision 1.0 and sizes to be patched.
constexpr char kPlaceholder[kFixedHeaderBytes] = {1,          0,          char(0xFF), char(0xFF), char(0xFF),
                                                  char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF)};

// memcmp(a, b, n) == 0 for the short names of headers: a few word compares instead of a library call.
inline bool sameBytes(const void* a, const void* b, std::size_t n) {
    const char* x = static_cast<const char*>(a);
    const char* y = static_cast<const char*>(b);
    auto word = [](const char* p) {
        uint64_t w;
        std::memcpy(&w, p, sizeof w);
        return w;
    };
    auto half = [](const char* p) {
        uint32_t w;
        std::memcpy(&w, p, sizeof w);
        return w;
    };
    if (n >= 8) {  // whole words, the last one overlapping the one before
        for (std::size_t i = 0; i + 8 < n; i += 8) {
            if (word(x + i) != word(y + i)) return false;
        }
        return word(x + n - 8) == word(y + n - 8);
    }
    if (n >= 4) return half(x) == half(y) && half(x + n - 4) == half(y + n - 4);
    return std::memcmp(x, y, n) == 0;
}

// Steps over `text` (`length` characters and a 0 byte) when the stream holds it at its position. Names
// read back are nearly always the expected ones; this checks them without searching for the terminator.
inline bool takeText(StreamFile& f, const char* text, std::size_t length) {
    if (f.remaining() <= length || !sameBytes(f.data() + f.position(), text, length + 1)) return false;
    f.skip(length + 1);
    return true;
}

// Reads a header. When `expected` (a layer name of `expectedLength` characters) is there it is taken
// directly; any other name is read as it is, for the caller to report.
HeaderStatus readHeader(PStream& s, ChunkHeader& h, const char* expected = nullptr,
                        std::size_t expectedLength = 0) {
    StreamFile& f = *s.file();
    h.name = reinterpret_cast<const char*>(f.data()) + f.position();
    if (expected && takeText(f, expected, expectedLength)) {
        h.nameLength = expectedLength;
    } else {
        h.name = f.viewString(&h.nameLength);
        if (!h.name) return HeaderStatus::EndOfFile;
    }
    if (s.streamVersion() == PStream::kStrm10Version) {
        DynamicIntegralStorage<unsigned char, unsigned short> major;
        DynamicIntegralStorage<unsigned short, unsigned int> minor;
        h.major = major.read(s);
        h.minor = minor.read(s);
        if (f.failed()) return HeaderStatus::EndOfFile;
        if (h.major > 255) return HeaderStatus::OversizedMajor;
        if (h.minor > 255) return HeaderStatus::OversizedMinor;
        h.totalSize = f.readValue<uint32_t>();
        h.ownSize = f.readValue<uint32_t>();
    } else {
        if (!f.skip(kFixedHeaderBytes)) return HeaderStatus::EndOfFile;
        const uint8_t* fixed = f.data() + f.position() - kFixedHeaderBytes;  // read in place
        h.major = fixed[0];
        h.minor = fixed[1];
        std::memcpy(&h.ownSize, fixed + 2, sizeof h.ownSize);
        std::memcpy(&h.totalSize, fixed + 6, sizeof h.totalSize);
    }
    if (f.failed()) return HeaderStatus::EndOfFile;
    h.dataStart = f.position();
    if (h.ownSize > h.totalSize) return HeaderStatus::BadSizes;
    if (h.totalSize > f.remaining()) return HeaderStatus::EndOfFile;
    return HeaderStatus::Ok;
}

// The common case of readHeader, kept small enough to inline: a whole, consistent current-format header
// named `layer`. Anything else leaves the stream as it was and returns false for readHeader to handle.
inline bool readExpectedHeader(PStream& s, const StreamableLayer& layer, ChunkHeader& h) {
    StreamFile& f = *s.file();
    const std::size_t nameBytes = layer.nameLength + 1;
    const std::size_t headerBytes = nameBytes + kFixedHeaderBytes;
    const uint8_t* at = f.data() + f.position();
    if (s.streamVersion() != PStream::kCurrentVersion || f.failed() || f.remaining() < headerBytes ||
        !sameBytes(at, layer.name, nameBytes)) {
        return false;
    }
    h.name = reinterpret_cast<const char*>(at);
    h.nameLength = layer.nameLength;
    h.major = at[nameBytes];
    h.minor = at[nameBytes + 1];
    std::memcpy(&h.ownSize, at + nameBytes + 2, sizeof h.ownSize);
    std::memcpy(&h.totalSize, at + nameBytes + 6, sizeof h.totalSize);
    h.dataStart = f.position() + headerBytes;
    if (h.ownSize > h.totalSize || h.totalSize > f.size() - h.dataStart) return false;
    f.skip(headerBytes);
    return true;
}

// "Streamable.Shape" for index 1 of Streamable, Shape, Circle.
void appendLayerPath(GrowString& out, const StreamableLayerList& layers, unsigned index) {
    for (unsigned i = 0; i <= index && i < layers.size(); ++i) {
        if (i) out.append('.');
        out.append(layers[i].name, layers[i].nameLength);
    }
}

// Joins the layer names [first, last) with ".".
LightweightString<char> joinLayers(const StreamableLayerList& layers, unsigned first, unsigned last) {
    LightweightString<char> name;
    for (unsigned i = first; i < last; ++i) {
        if (i > first) name += ".";
        name.append(layers[i].name, unsigned(layers[i].nameLength));
    }
    return name;
}

int fail(PStream& s) {
    s.setError();
    return STRM_FAILED;
}

int failEndOfFile(PStream& s, const Streamable& object, const char* layer) {
    s.messages().append("Unexpected end-of-file while unpacking ").append(object.shortLayerName());
    s.messages().append(", layer ").append(layer);
    return fail(s);
}

// After a layer's reading, when it did not stop exactly at `end`: a run off the end of the file or beyond
// `end` fails; stopping short of `end` warns and skips the rest, so that data written by a newer revision
// is passed over.
[[gnu::noinline]] bool reportChunkEnd(PStream& s, const Streamable& object, const char* layer,
                                      const ChunkHeader& h, std::size_t end, uint32_t size) {
    StreamFile& f = *s.file();
    if (s.error()) {
        if (f.failed()) failEndOfFile(s, object, layer);
        return false;
    }
    const std::size_t at = f.position();
    if (at > end) {
        s.messages().appendf(
            "Error: Unpacker read beyond end of chunk while unpacking object %s, layer %s v%d.%d, %d bytes "
            "overread.\n",
            object.shortLayerName(), layer, int(h.major), int(h.minor), int(at - end));
        fail(s);
        return false;
    }
    if (at < end) {
        s.messages().appendf(
            "Warning: Not all object data was read while unpacking object %s, layer %s v%d.%d, %d/%d bytes "
            "unread.\n",
            object.shortLayerName(), layer, int(h.major), int(h.minor), int(end - at), int(size));
        f.seek(end);
    }
    return true;
}

inline bool checkChunkEnd(PStream& s, const Streamable& object, const char* layer, const ChunkHeader& h,
                          std::size_t end, uint32_t size) {
    return (s.position() == end && !s.error()) || reportChunkEnd(s, object, layer, h, end, size);
}

int packBaseLayer(const Streamable& object, PStream& s) {
    return object.Streamable::pack(s);
}
int unpackBaseLayer(Streamable& object, PStream& s) {
    return object.Streamable::unpack(s);
}

}  // namespace

// --- PStream --------------------------------------------------------------------------------------------

PStream::PStream(StreamFile* file) : file_(file) {
    if (!file_) {
        own_.reset(new StreamFile);
        file_ = own_.get();
        error_ = 1;
    }
}

PStream::PStream() : file_(nullptr), own_(new StreamFile) {
    file_ = own_.get();
}

PStream::~PStream() = default;

bool PStream::readStreamMarker() {
    if (file_->remaining() >= kStrm10MarkerSize &&
        std::memcmp(file_->data() + file_->position(), kStrm10Marker, kStrm10MarkerSize) == 0) {
        file_->skip(kStrm10MarkerSize);
        version_ = kStrm10Version;
        return true;
    }
    version_ = kCurrentVersion;
    return false;
}

// --- layers ---------------------------------------------------------------------------------------------

void StreamableLayerList::push(const StreamableLayer& layer) {
    if (!QV_ASSERT_AT(count_ < kMaxLayers, "ole/misc/strmable", 175)) return;
    if (count_ > 1) belowRoot_.push_back('.');
    if (count_ > 0) belowRoot_.append(layer.name, unsigned(layer.nameLength));
    headers_[count_]
        .assign(layer.name, layer.nameLength + 1)
        .append(kPlaceholder, kPlaceholder + sizeof kPlaceholder);
    layers_[count_++] = layer;
}

void BaseTraits::collectLayers(StreamableLayerList& layers) {
    layers.push(StreamableLayer{Streamable::kLayerName, std::strlen(Streamable::kLayerName), &packBaseLayer,
                                &unpackBaseLayer});
}

namespace {

// Reads the header of layers[index] the general way and reports what is wrong with it: STRM_OK when it is
// fine after all (an old-format header), else the failure.
int readLayerHeader(Streamable& object, PStream& s, const StreamableLayerList& layers, unsigned index,
                    ChunkHeader& h) {
    const char* layer = layers[index].name;
    const std::size_t layerLength = layers[index].nameLength;
    if (s.file()->atEnd()) return failEndOfFile(s, object, layer);

    switch (readHeader(s, h, layer, layerLength)) {
        case HeaderStatus::Ok:
            break;
        case HeaderStatus::EndOfFile:
            return failEndOfFile(s, object, layer);
        case HeaderStatus::OversizedMajor:
        case HeaderStatus::OversizedMinor: {
            const bool major = h.major > 255;
            s.messages().append(major ? " Strm1.0 Object has oversized major rev ("
                                      : " Strm1.0 Object has oversized minor rev (");
            s.messages().append(h.name, h.nameLength).append("). ");
            return fail(s);
        }
        case HeaderStatus::BadSizes:
            s.messages().appendf(
                "Error: Inconsistent chunk sizes while unpacking object %s, layer %s, %u/%u bytes.\n",
                object.shortLayerName(), layer, unsigned(h.ownSize), unsigned(h.totalSize));
            return fail(s);
    }
    if (!h.named(layer, layerLength)) {
        s.messages().append("Expected short name '").append(layer).append("' for layer ");
        appendLayerPath(s.messages(), layers, index);
        s.messages().append(", got ").append(h.name, h.nameLength);
        return fail(s);
    }
    return STRM_OK;
}

// The object was packed without the derived layer `index` that this class expects.
int failMissingLayer(PStream& s, const StreamableLayerList& layers, unsigned index) {
    s.messages().append("Expected short name '").append(layers[index].name).append("' for layer ");
    appendLayerPath(s.messages(), layers, index);
    s.messages().append(", got ");
    return fail(s);
}

}  // namespace

int BaseTraits::packHeaderAndObject(const Streamable& object, PStream& s, const StreamableLayerList& layers,
                                    unsigned index) {
    StreamFile& f = *s.file();
    const StreamableLayer& layer = layers[index];

    // Header with placeholders; the real revision and sizes are known only after the nested layers.
    object.setRevision(1, 0);
    const std::string& header = layers.header(index);
    f.write(header.data(), header.size());
    const std::size_t dataStart = f.position();
    const std::size_t patchAt = dataStart - kFixedHeaderBytes;

    object.activeLayers_ = &layers;
    object.activeLayer_ = index;
    object.setChunk(dataStart, 0, 0);
    int result = layer.pack(object, s);
    if (!succeeded(result)) return result;
    uint8_t fixed[kFixedHeaderBytes] = {object.majorRevision(), object.minorRevision()};
    const std::size_t ownEnd = f.position();

    if (index + 1 < layers.size()) {
        result = packHeaderAndObject(object, s, layers, index + 1);
        if (!succeeded(result)) return result;
    }

    const std::size_t end = f.position();
    if (ownEnd < dataStart || end < ownEnd || end - dataStart > 0xFFFFFFFFu) return fail(s);
    const uint32_t sizes[2] = {uint32_t(ownEnd - dataStart), uint32_t(end - dataStart)};
    std::memcpy(fixed + 2, sizes, sizeof sizes);
    f.overwrite(patchAt, fixed, sizeof fixed);
    return s.error() ? STRM_FAILED : STRM_OK;
}

int BaseTraits::unpackHeaderAndObject(Streamable& object, PStream& s, const StreamableLayerList& layers,
                                      unsigned index) {
    StreamFile& f = *s.file();
    const char* layer = layers[index].name;
    ChunkHeader h;
    if (!readExpectedHeader(s, layers[index], h)) {
        const int result = readLayerHeader(object, s, layers, index, h);
        if (result != STRM_OK) return result;
    }

    object.setRevision(static_cast<unsigned char>(h.major), static_cast<unsigned char>(h.minor));
    object.setChunk(h.dataStart, h.ownSize, h.totalSize);
    object.activeLayers_ = &layers;
    object.activeLayer_ = index;
    int result = layers[index].unpack(object, s);
    if (!succeeded(result)) return result;
    // The layer's own data must end where the next layer's header starts.
    if (!checkChunkEnd(s, object, layer, h, h.ownEnd(), h.ownSize)) return STRM_FAILED;

    if (index + 1 < layers.size()) {
        if (f.position() >= h.end()) return failMissingLayer(s, layers, index + 1);
        result = unpackHeaderAndObject(object, s, layers, index + 1);
        if (!succeeded(result)) return result;
    }
    // Whatever follows the known layers (layers of a newer derived class) is skipped with the warning.
    if (!checkChunkEnd(s, object, layer, h, h.end(), h.totalSize)) return STRM_FAILED;
    return STRM_OK;
}

// --- Streamable -----------------------------------------------------------------------------------------

Streamable::~Streamable() = default;

const char* Streamable::shortLayerName() const {
    return kLayerName;
}

const char* Streamable::layerName() const {
    return activeLayers_ ? (*activeLayers_)[activeLayer_].name : shortLayerName();
}

void Streamable::STRM_L_Streamable_buildHierarchyName(LightweightString<char>& name, bool includeRoot,
                                                      bool includeSelf) const {
    const StreamableLayerList& layers = STRM_layers();
    const unsigned count = layers.size();
    name = joinLayers(layers, includeRoot ? 0 : 1, includeSelf ? count : count - 1);
}

LightweightString<char> Streamable::hierarchyName(bool includeRoot, bool includeSelf) const {
    LightweightString<char> name;
    STRM_L_Streamable_buildHierarchyName(name, includeRoot, includeSelf);
    return name;
}

LightweightString<char> Streamable::subHierarchyName(bool includeRoot, bool includeSelf) const {
    if (!activeLayers_) return hierarchyName(includeRoot, includeSelf);
    return joinLayers(*activeLayers_, includeRoot ? 0 : 1, includeSelf ? activeLayer_ + 1 : activeLayer_);
}

int Streamable::pack(PStream& s) const {
    setRevision(2, 0);
    // The hierarchy below the root as a NUL-terminated text, e.g. "Shape.Circle".
    const LightweightString<char>& hierarchy = layersInUse().belowRoot();
    s.file()->write(hierarchy.c_str(), hierarchy.size() + 1);
    return s.error() ? STRM_FAILED : STRM_OK;
}

int Streamable::unpack(PStream& s) {
    if (majorRevision() == 1) return STRM_OK;  // old base layers carry no hierarchy name
    if (majorRevision() != 2) {
        s.messages().append("Unrecognized version for Streamable base");
        return fail(s);
    }
    const LightweightString<char>& expected = layersInUse().belowRoot();
    if (takeText(*s.file(), expected.c_str(), expected.size())) return STRM_OK;

    std::size_t length = 0;
    const char* got = s.file()->viewString(&length);
    if (!got) return STRM_OK;  // the chunk check reports the end of the file
    const std::string read(got, length);
    s.messages().appendf("Expected hierarchy Streamable.%s, got Streamable.%s", expected.c_str(),
                         read.c_str());
    return fail(s);
}

int Streamable::STRM_hierarchyPack(PStream& s) const {
    if (s.error()) return STRM_FAILED;
    if (s.streamVersion() != PStream::kCurrentVersion) {
        s.messages().append("Error: Objects are packed in the current stream format only.\n");
        return fail(s);
    }
    const int result = BaseTraits::packHeaderAndObject(*this, s, STRM_layers(), 0);
    activeLayers_ = nullptr;
    activeLayer_ = 0;
    return result;
}

int Streamable::STRM_hierarchyUnpack(PStream& s) {
    if (s.error()) {
        s.messages().append("Warning: Attempted to unpack from a stream with error flagged!\n");
        return STRM_FAILED;
    }
    const int result = BaseTraits::unpackHeaderAndObject(*this, s, STRM_layers(), 0);
    activeLayers_ = nullptr;
    activeLayer_ = 0;
    return result;
}

int Streamable::readChunkAsBinary(PStream& s, Qv::Ptr<iMemHolder>& block) {
    StreamFile& f = *s.file();
    const std::size_t at = f.position();
    const std::size_t end = chunkOwnEnd();
    const std::size_t n = end > at ? end - at : 0;
    if (n > f.remaining()) {
        block = Qv::Ptr<iMemHolder>(new MemHolder());
        f.skip(n);
        return STRM_FAILED;
    }
    block = Qv::Ptr<iMemHolder>(new MemHolder(f.data() + at, n));
    f.skip(n);
    return STRM_OK;
}

void Streamable::assign(const Streamable&) {
    Qv::assertionFailed("assign is not supported by this class", "ole/misc/strmable", 124);
}

const StreamableLayerList& Streamable::STRM_layers() const {
    static const StreamableLayerList layers = [] {
        StreamableLayerList collected;
        BaseTraits::collectLayers(collected);
        return collected;
    }();
    return layers;
}

Streamable* Streamable::STRM_makeNew() const {
    return new Streamable();
}

// --- object information ---------------------------------------------------------------------------------

StreamObjectInfo::StreamObjectInfo(PStream& s) {
    if (s.error()) return;
    StreamFile& f = *s.file();
    const std::size_t start = f.position();
    ChunkHeader h{};
    const std::size_t rootLength = std::strlen(Streamable::kLayerName);
    bool ok = readHeader(s, h, Streamable::kLayerName, rootLength) == HeaderStatus::Ok &&
              h.named(Streamable::kLayerName, rootLength) && (h.major == 1 || h.major == 2);
    if (ok) {
        majorRevision = static_cast<unsigned char>(h.major);
        minorRevision = static_cast<unsigned char>(h.minor);
        size = h.end() - start;
        if (h.major == 2) {
            std::size_t length = 0;
            const char* text = f.viewString(&length);
            ok = text && f.position() <= h.ownEnd();
            if (ok) hierarchyName = LightweightString<char>(text, unsigned(length));
        } else {
            // Old base layers do not name the hierarchy: follow the nested headers instead.
            std::size_t chunkEnd = h.end();
            f.seek(h.ownEnd());
            for (unsigned depth = 1; ok && f.position() < chunkEnd; ++depth) {
                ChunkHeader inner{};
                ok = depth < StreamableLayerList::kMaxLayers && readHeader(s, inner) == HeaderStatus::Ok &&
                     inner.end() <= chunkEnd;
                if (!ok) break;
                if (!hierarchyName.empty()) hierarchyName += ".";
                hierarchyName.append(inner.name, unsigned(inner.nameLength));
                chunkEnd = inner.end();
                f.seek(inner.ownEnd());
            }
        }
    }
    if (ok) {
        const char* dot = std::strrchr(hierarchyName.c_str(), '.');
        className = hierarchyName.empty() ? Streamable::kLayerName : dot ? dot + 1 : hierarchyName.c_str();
    }
    f.clearFailure();
    f.seek(start);
    valid = ok;
}

// --- the class registry ---------------------------------------------------------------------------------

struct StreamObjectManager::Registry {
    mutable Qv::CriticalSection lock;
    std::map<std::string, StreamClassRecord> byClass;
    std::map<std::string, std::string> classByHierarchy;
};

StreamObjectManager::StreamObjectManager() : registry_(new Registry) {}

StreamObjectManager::~StreamObjectManager() {
    delete registry_;
}

int StreamObjectManager::registerClass(const Qv::Ptr<Streamable>& prototype) {
    if (!prototype) return 0;
    return registerClass(prototype->shortLayerName(), prototype->hierarchyName(false, true).c_str(),
                         prototype);
}

int StreamObjectManager::registerClass(const char* className, const char* hierarchyName,
                                       const Qv::Ptr<Streamable>& prototype) {
    if (!className || !*className || !hierarchyName || !prototype) return 0;
    Qv::CriticalSection::Lock hold(registry_->lock);
    if (registry_->byClass.count(className)) return 0;
    registry_->byClass[className] = StreamClassRecord{className, hierarchyName, prototype};
    registry_->classByHierarchy.emplace(hierarchyName, className);
    return 1;
}

int StreamObjectManager::unregisterClass(const char* className) {
    if (!className) return 0;
    Qv::CriticalSection::Lock hold(registry_->lock);
    auto found = registry_->byClass.find(className);
    if (found == registry_->byClass.end()) return 0;
    auto byHierarchy = registry_->classByHierarchy.find(found->second.hierarchyName.c_str());
    if (byHierarchy != registry_->classByHierarchy.end() && byHierarchy->second == className) {
        registry_->classByHierarchy.erase(byHierarchy);
    }
    registry_->byClass.erase(found);
    return 1;
}

int StreamObjectManager::lookup(const char* name, StreamClassRecord& record) const {
    if (!name) return -1;
    Qv::CriticalSection::Lock hold(registry_->lock);
    auto found = registry_->byClass.find(name);
    if (found == registry_->byClass.end()) {
        auto byHierarchy = registry_->classByHierarchy.find(name);
        if (byHierarchy == registry_->classByHierarchy.end()) return -1;
        found = registry_->byClass.find(byHierarchy->second);
        if (found == registry_->byClass.end()) return -1;
    }
    record = found->second;
    return 0;
}

StreamObjectInfo StreamObjectManager::objectInfo(PStream& s) {
    return StreamObjectInfo(s);
}

Qv::Ptr<Streamable> StreamObjectManager::readObject(PStream& s) {
    if (s.error()) {
        s.messages().append("Warning: Attempted to unpack from a stream with error flagged!\n");
        return Qv::Ptr<Streamable>();
    }
    const StreamObjectInfo info(s);
    if (!info.valid) {
        s.messages().append("StreamObjectManager::readObject(): Failed to read header!\n");
        s.setError();
        return Qv::Ptr<Streamable>();
    }
    StreamClassRecord record;
    const char* key = info.hierarchyName.empty() ? Streamable::kLayerName : info.hierarchyName.c_str();
    Streamable* made = lookup(key, record) == 0 ? record.prototype->STRM_makeNew() : nullptr;
    if (!made) {
        s.messages().appendf(
            "StreamObjectManager::readObject(): No class for Streamable.%s, object skipped.\n",
            info.hierarchyName.c_str());
        s.seek(s.position() + info.size);
        return Qv::Ptr<Streamable>();
    }
    Qv::Ptr<Streamable> object(made);
    const int result = object->STRM_hierarchyUnpack(s);
    return succeeded(result) ? object : Qv::Ptr<Streamable>();
}

int StreamObjectManager::readObjectAs(PStream& s, Streamable& object) {
    return object.STRM_hierarchyUnpack(s);
}

StreamObjectManager& theSOManager() {
    static StreamObjectManager manager;
    return manager;
}
