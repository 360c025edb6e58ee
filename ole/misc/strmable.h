#pragma once

/// @file
/// Object packing.
///
/// PStream writes and reads primitive values over a StreamFile (which it borrows, never owns), keeps an
/// error flag and gathers the messages of unpacking in a GrowString; the caller decides whether to show
/// them. Nothing here throws: bad or truncated data gives result 6, a message and the error flag.
///
/// Streamable is the base of every packable object. An object is written as a nest of chunks, one per class
/// of its hierarchy, base class first. Each chunk starts with a header
///     layer name (NUL-terminated) | major revision (1 byte) | minor revision (1 byte)
///     | own data size (u32) | total data size (u32)
/// followed by the layer's own data and then the chunks of the derived layers; the total size counts both.
/// A reader checks each layer's name, skips data it does not understand (with a warning) and fails when a
/// layer reads beyond its chunk.
///
/// Old streams ("Strm1.0", stream version 1) begin with the 8 bytes "Strm1.0\0" (PStream::readStreamMarker()
/// recognises and consumes them). In their headers the major revision is a
/// DynamicIntegralStorage<unsigned char, unsigned short>, the minor revision a
/// DynamicIntegralStorage<unsigned short, unsigned int>, and the two sizes come total first, then own.
/// Old streams are read, never written.
///
/// Making a class packable:
///
///     class Shape : public StreamableClass<Shape, Streamable> {
///     public:
///         static constexpr const char* kLayerName = "Shape";
///         int pack(PStream& s) const { setRevision(1, 1); s.setLong(sides); return STRM_OK; }
///         int unpack(PStream& s) { sides = s.getLong(); return STRM_OK; }  // majorRevision(): what was read
///         int32_t sides = 0;
///     };
///     class Circle : public StreamableClass<Circle, Shape> { ... kLayerName = "Circle"; pack; unpack ... };
///
///     circle.STRM_hierarchyPack(stream);      // writes Streamable, Shape, Circle chunks
///     circle.STRM_hierarchyUnpack(stream);    // reads them back, checking names and sizes
///
/// Every class must declare its own pack and unpack (a class without data returns STRM_OK from both).
/// Streamable must be a non-virtual base. Objects are not thread-safe: pack and unpack one object from one
/// thread at a time. The class registry (theSOManager()) is safe to use from any thread.
///
/// Primitives used by other families:
///     setUnsignedLong(n) / getUnsignedLong()           a 32-bit count
///     writeBinary(text, 0, false, false)               a NUL-terminated text
///     file()->getString()                              reads such a text back as a LightweightString<char>
///     file()->readBinary(buf, size, false, false)      reads it into a buffer
///     file()->skip(n)                                  skips bytes
///     setDouble(t) / getDouble()                       an 8-byte double

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>
#include <ole/misc/GrowString.h>
#include <ole/misc/MemHolder.h>
#include <ole/misc/StreamFile.h>
#include <ole/platform/Assert.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

/// Results of pack and unpack functions.
enum StrmResult : int {
    STRM_OK = 2,        ///< success
    STRM_CONTINUE = 3,  ///< success; the chain goes on as for STRM_OK
    STRM_FAILED = 6     ///< the error flag is set or a check failed (a message was appended)
};

/// Writes and reads primitive values over a borrowed StreamFile, gathering unpacking messages.
class OLE_API PStream {
public:
    enum : int {
        kStrm10Version = 1,  ///< old "Strm1.0" headers (read only)
        kCurrentVersion = 2
    };
    /// The marker at the start of an old stream, including its terminating 0 byte.
    static constexpr const char kStrm10Marker[] = "Strm1.0";
    static constexpr std::size_t kStrm10MarkerSize = sizeof kStrm10Marker;

    /// Borrows `file`, which must outlive the PStream. A null file gives a stream over an empty private
    /// memory stream with the error flag set.
    explicit PStream(StreamFile* file);
    /// A stream over its own empty memory stream.
    PStream();
    ~PStream();
    PStream(const PStream&) = delete;
    PStream& operator=(const PStream&) = delete;

    StreamFile* file() const noexcept { return file_; }
    GrowString& messages() noexcept { return messages_; }
    const GrowString& messages() const noexcept { return messages_; }

    /// 0 while the stream is good; non-zero once set, or once the file failed a read or write.
    int error() const noexcept { return error_ ? error_ : (file_->failed() ? 1 : 0); }
    void setError(int code = 1) noexcept { error_ = code ? code : 1; }
    void clearError() noexcept {
        error_ = 0;
        file_->clearFailure();
    }

    int streamVersion() const noexcept { return version_; }
    void setStreamVersion(int version) noexcept { version_ = version; }
    /// At an old stream's marker: consumes it, selects version 1 and returns true. Otherwise leaves the
    /// position alone, selects the current version and returns false.
    bool readStreamMarker();

    std::size_t position() const noexcept { return file_->position(); }
    bool seek(std::size_t position) { return file_->seek(position); }
    bool atEnd() const noexcept { return file_->atEnd(); }

    /// Primitive writers: little-endian, natural width, no alignment.
    void setCookedChar(unsigned char v) { file_->writeValue(v); }
    void setShort(int16_t v) { file_->writeValue(v); }
    void setUnsignedShort(uint16_t v) { file_->writeValue(v); }
    void setLong(int32_t v) { file_->writeValue(v); }
    void setUnsignedLong(uint32_t v) { file_->writeValue(v); }
    void setInt64(int64_t v) { file_->writeValue(v); }
    void setUnsignedInt64(uint64_t v) { file_->writeValue(v); }
    void setFloat(float v) { file_->writeValue(v); }
    void setDouble(double v) { file_->writeValue(v); }

    /// Primitive readers: past the end they give 0 and the error flag is set.
    unsigned char getCookedChar() { return file_->readValue<unsigned char>(); }
    int16_t getShort() { return file_->readValue<int16_t>(); }
    uint16_t getUnsignedShort() { return file_->readValue<uint16_t>(); }
    int32_t getLong() { return file_->readValue<int32_t>(); }
    uint32_t getUnsignedLong() { return file_->readValue<uint32_t>(); }
    int64_t getInt64() { return file_->readValue<int64_t>(); }
    uint64_t getUnsignedInt64() { return file_->readValue<uint64_t>(); }
    float getFloat() { return file_->readValue<float>(); }
    double getDouble() { return file_->readValue<double>(); }

    /// See StreamFile::writeBinary / readBinary / getString.
    void writeBinary(const void* data, uint32_t length, bool prefixLength, bool raw) {
        file_->writeBinary(data, length, prefixLength, raw);
    }
    std::size_t readBinary(void* buffer, std::size_t capacity, bool prefixLength, bool raw) {
        return file_->readBinary(buffer, capacity, prefixLength, raw);
    }
    LightweightString<char> getString() { return file_->getString(); }
    bool getString(LightweightString<char>& text) { return file_->getString(text); }

private:
    StreamFile* file_;
    std::unique_ptr<StreamFile> own_;
    GrowString messages_;
    int error_ = 0;
    int version_ = kCurrentVersion;
};

/// A variable-width unsigned number: a value below the escape (the largest Small) is one Small; any other
/// value is the escape followed by the value as a Large. Reading past the end gives 0 with the error flag.
template <class Small, class Large>
class DynamicIntegralStorage {
    static_assert(std::is_unsigned_v<Small> && std::is_unsigned_v<Large> && sizeof(Small) < sizeof(Large),
                  "a small and a larger unsigned type");

public:
    static constexpr Small kEscape = std::numeric_limits<Small>::max();

    DynamicIntegralStorage(Large value = 0) noexcept : value_(value) {}
    Large value() const noexcept { return value_; }
    operator Large() const noexcept { return value_; }

    std::size_t packedSize() const noexcept {
        return value_ < kEscape ? sizeof(Small) : sizeof(Small) + sizeof(Large);
    }
    void write(PStream& s) const {
        if (value_ < kEscape) {
            s.file()->writeValue(Small(value_));
        } else {
            s.file()->writeValue(kEscape);
            s.file()->writeValue(value_);
        }
    }
    Large read(PStream& s) {
        const Small small = s.file()->template readValue<Small>();
        value_ = small == kEscape ? s.file()->template readValue<Large>() : Large(small);
        return value_;
    }

private:
    Large value_;
};

class Streamable;

/// One layer of a packable class: its name (and its length, so that headers are written and checked
/// without measuring it again) and its own pack and unpack.
struct StreamableLayer {
    const char* name;
    std::size_t nameLength;
    int (*pack)(const Streamable&, PStream&);
    int (*unpack)(Streamable&, PStream&);
};

/// The layers of one object, base class first, and the names below the base joined with "." (what the
/// base layer packs, e.g. "Shape.Circle"). Hierarchies deeper than kMaxLayers are a programming error (an
/// assertion line; the extra layers are left out).
class OLE_API StreamableLayerList {
public:
    static constexpr unsigned kMaxLayers = 16;

    void push(const StreamableLayer& layer);
    unsigned size() const noexcept { return count_; }
    const StreamableLayer& operator[](unsigned i) const noexcept { return layers_[i]; }
    const LightweightString<char>& belowRoot() const noexcept { return belowRoot_; }
    /// What packing writes first for layer i: its name, the terminator and the fixed part with its
    /// placeholders, in one run.
    const std::string& header(unsigned i) const noexcept { return headers_[i]; }

private:
    StreamableLayer layers_[kMaxLayers];
    std::string headers_[kMaxLayers];
    unsigned count_ = 0;
    LightweightString<char> belowRoot_;
};

/// Where the chunk of the layer being packed or unpacked lies in the stream.
class OLE_API StreamableChunkSizeHolder {
public:
    std::size_t chunkDataStart() const noexcept { return dataStart_; }
    uint32_t chunkOwnSize() const noexcept { return ownSize_; }
    uint32_t chunkTotalSize() const noexcept { return totalSize_; }
    std::size_t chunkOwnEnd() const noexcept { return dataStart_ + ownSize_; }

protected:
    void setChunk(std::size_t dataStart, uint32_t ownSize, uint32_t totalSize) const noexcept {
        dataStart_ = dataStart;
        ownSize_ = ownSize;
        totalSize_ = totalSize;
    }

private:
    mutable std::size_t dataStart_ = 0;
    mutable uint32_t ownSize_ = 0;
    mutable uint32_t totalSize_ = 0;
};

template <class T, class Base>
struct StreamableTraits;

/// The base of every packable object: packs and unpacks itself as a nest of chunks, one per layer.
class OLE_API Streamable : public StreamableChunkSizeHolder, public virtual iObject {
public:
    using STRM_Base = void;
    static constexpr const char* kLayerName = "Streamable";

    Streamable() = default;
    Streamable(const Streamable&) = default;
    Streamable& operator=(const Streamable&) = default;
    ~Streamable() override;

    // --- names ---------------------------------------------------------------------------------------
    /// The layer name of the object's own (most derived) class.
    virtual const char* shortLayerName() const;
    /// The layer being packed or unpacked; outside packing, the object's own layer.
    const char* layerName() const;
    /// The layer names joined with ".", from "Streamable" (when includeRoot) down to the object's own
    /// class (included when includeSelf), e.g. "Streamable.Shape.Circle".
    LightweightString<char> hierarchyName(bool includeRoot = true, bool includeSelf = true) const;
    /// The same, ending at the layer being packed or unpacked.
    LightweightString<char> subHierarchyName(bool includeRoot = true, bool includeSelf = true) const;
    void STRM_L_Streamable_buildHierarchyName(LightweightString<char>& name, bool includeRoot,
                                              bool includeSelf) const;

    // --- revision of the layer being packed or unpacked ----------------------------------------------
    unsigned char majorRevision() const noexcept { return revMajor_; }
    unsigned char minorRevision() const noexcept { return revMinor_; }
    /// Called by a layer's pack to record the revision its header carries (the default is 1.0).
    void setRevision(unsigned char major, unsigned char minor) const noexcept {
        revMajor_ = major;
        revMinor_ = minor;
    }

    // --- the base layer's own data: the revision 2.0 and the hierarchy name below "Streamable" ---------
    int pack(PStream& s) const;
    int unpack(PStream& s);

    // --- whole objects -------------------------------------------------------------------------------
    int STRM_hierarchyPack(PStream& s) const;
    int STRM_hierarchyUnpack(PStream& s);
    /// Inside a layer's unpack: reads the rest of that layer's own data as uninterpreted bytes.
    int readChunkAsBinary(PStream& s, Qv::Ptr<iMemHolder>& block);

    /// Copies another object's values; the base class cannot (an assertion line), packable classes that
    /// support it override this.
    virtual void assign(const Streamable& other);

    /// The layers of the object's class, base first; supplied by StreamableClass, built once per class.
    virtual const StreamableLayerList& STRM_layers() const;
    /// A new default object of the same class (null when the class has no default constructor).
    virtual Streamable* STRM_makeNew() const;

private:
    friend struct StreamableTraits<Streamable, void>;

    /// The layers being packed or unpacked, else the object's own.
    const StreamableLayerList& layersInUse() const { return activeLayers_ ? *activeLayers_ : STRM_layers(); }

    mutable unsigned char revMajor_ = 1;
    mutable unsigned char revMinor_ = 0;
    mutable const StreamableLayerList* activeLayers_ = nullptr;
    mutable unsigned activeLayer_ = 0;
};

/// The packing algorithm: layer by layer, each chunk nested in its base's.
template <>
struct OLE_API StreamableTraits<Streamable, void> {
    static void collectLayers(StreamableLayerList& layers);
    /// Packs layers[index] and, nested inside its chunk, the layers after it.
    static int packHeaderAndObject(const Streamable& object, PStream& s, const StreamableLayerList& layers,
                                   unsigned index);
    /// Unpacks layers[index] and the layers after it.
    static int unpackHeaderAndObject(Streamable& object, PStream& s, const StreamableLayerList& layers,
                                     unsigned index);
};

/// The layer glue of class T derived from Base.
template <class T, class Base>
struct StreamableTraits {
    static int packLayer(const Streamable& object, PStream& s) {
        return static_cast<const T&>(object).T::pack(s);
    }
    static int unpackLayer(Streamable& object, PStream& s) { return static_cast<T&>(object).T::unpack(s); }

    static void collectLayers(StreamableLayerList& layers) {
        static_assert(
            std::is_same_v<decltype(&T::pack), int (T::*)(PStream&) const> &&
                std::is_same_v<decltype(&T::unpack), int (T::*)(PStream&)>,
            "every packable class declares its own int pack(PStream&) const and int unpack(PStream&)");
        StreamableTraits<Base, typename Base::STRM_Base>::collectLayers(layers);
        layers.push(StreamableLayer{T::kLayerName, std::char_traits<char>::length(T::kLayerName), &packLayer,
                                    &unpackLayer});
    }
};

/// Base of packable class T, placed between T and its base class Base.
template <class T, class Base>
class StreamableClass : public Base {
public:
    using Base::Base;
    using STRM_Base = Base;

    const char* shortLayerName() const override { return T::kLayerName; }
    const StreamableLayerList& STRM_layers() const override {
        static const StreamableLayerList layers = [] {
            StreamableLayerList collected;
            StreamableTraits<T, Base>::collectLayers(collected);
            return collected;
        }();
        return layers;
    }
    Streamable* STRM_makeNew() const override {
        if constexpr (std::is_default_constructible_v<T>) {
            return new T();
        } else {
            return nullptr;
        }
    }
};

/// What the header chain of a packed object says, read without unpacking it.
struct OLE_API StreamObjectInfo {
    StreamObjectInfo() = default;
    /// Reads the header chain at the stream's position and restores the position.
    explicit StreamObjectInfo(PStream& s);

    bool valid = false;
    LightweightString<char> hierarchyName;  ///< below "Streamable", e.g. "Shape.Circle"
    LightweightString<char> className;      ///< the last layer, e.g. "Circle" ("Streamable" for a bare base)
    unsigned char majorRevision = 0;        ///< of the base layer
    unsigned char minorRevision = 0;
    std::size_t size = 0;  ///< bytes of the whole object, header included
};

/// A registered class: its name, its hierarchy below "Streamable" and a prototype that makes new objects.
struct StreamClassRecord {
    LightweightString<char> className;
    LightweightString<char> hierarchyName;
    Qv::Ptr<Streamable> prototype;
};

/// The registry of packable classes, so that objects can be read back without knowing their class first.
/// Safe to use from any thread.
class OLE_API StreamObjectManager {
public:
    StreamObjectManager();
    ~StreamObjectManager();
    StreamObjectManager(const StreamObjectManager&) = delete;
    StreamObjectManager& operator=(const StreamObjectManager&) = delete;

    /// Registers under the prototype's own layer name and hierarchy. 1 when added, 0 when the class name
    /// is taken (the first registration stays) or the prototype is null.
    int registerClass(const Qv::Ptr<Streamable>& prototype);
    int registerClass(const char* className, const char* hierarchyName, const Qv::Ptr<Streamable>& prototype);
    template <class T>
    int registerClass() {
        return registerClass(Qv::Ptr<Streamable>(new T()));
    }
    /// 1 when removed, 0 when not registered.
    int unregisterClass(const char* className);
    /// Finds a class by class name or by hierarchy name: 0 and the record, or -1.
    int lookup(const char* name, StreamClassRecord& record) const;

    /// Reads the next object, making it from its registered class; null on failure (with a message). An
    /// object of an unregistered class is skipped with a message and gives null without the error flag.
    Qv::Ptr<Streamable> readObject(PStream& s);
    /// Unpacks the next object into `object`, which must be of the packed class.
    int readObjectAs(PStream& s, Streamable& object);
    StreamObjectInfo objectInfo(PStream& s);

private:
    struct Registry;
    Registry* registry_;
};

/// The process-wide registry of packable classes; safe from any thread.
OLE_API StreamObjectManager& theSOManager();
