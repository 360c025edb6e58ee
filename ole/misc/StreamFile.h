#pragma once

/// @file
/// StreamFile: a binary byte stream with one read/write position, the storage under PStream.
///
/// The whole content is cached in memory. A memory stream starts empty (or with a copy of given bytes) and
/// is never saved anywhere. A file-backed stream is opened on a path: ReadOnly and Update load the whole
/// file at open() (only a regular file of at most kMaxFileBytes: anything else fails the open, and a
/// device or FIFO is not read at all); Create starts empty. A modified file-backed stream is written back by
/// flush(), close() or the destructor, replacing the file atomically (temporary file, sync, rename), so a
/// crash never leaves a half-written stream file on disk. Packing seeks back to patch headers, so random
/// access over the cache is what makes the rest simple.
///
/// Values are little-endian (the processor's order), at their natural width, with no alignment.
///
/// Bad input: every read is bounds-checked. A read that wants more bytes than remain reads nothing, fills
/// its result with zeros (numbers read as 0, texts as ""), moves the position to the end and sets the
/// sticky failure flag (failed()). Writes to a ReadOnly stream, seeks beyond the end and failed saves also
/// set it. Nothing throws.
///
/// Thread safety: none; one stream belongs to one thread at a time. The stream owns its cache; views
/// returned by viewString() point into it and stay valid until the next write, assign() or clear().

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "stream values are stored in little-endian order");

/// A binary byte stream cached in memory, optionally backed by a file that is replaced atomically.
class OLE_API StreamFile {
public:
    /// The largest file open() loads.
    static constexpr std::size_t kMaxFileBytes = std::size_t(1) << 30;

    enum OpenMode {
        ReadOnly,  ///< load the file; writing fails
        Create,    ///< start empty; the file is created or replaced when saved
        Update     // load the file if it exists (else start empty); saved when modified
    };

    /// An empty, writable memory stream.
    StreamFile();
    /// A memory stream holding a copy of `length` bytes, positioned at the start.
    StreamFile(const void* data, std::size_t length);
    /// Saves a modified file-backed stream (see flush()).
    ~StreamFile();
    StreamFile(const StreamFile&) = delete;
    StreamFile& operator=(const StreamFile&) = delete;

    // --- files ---------------------------------------------------------------------------------------
    /// Binds the stream to `path` (closing any previous file first). False when a ReadOnly file cannot be
    /// read; the stream is then an empty ReadOnly stream with failed() clear.
    bool open(const LightweightString<wchar_t>& path, OpenMode mode);
    /// Writes a modified file-backed stream to its file; true when nothing needed saving or it saved.
    bool flush();
    /// flush(), then detaches from the file; the stream becomes an empty memory stream.
    bool close();
    bool isFileBacked() const noexcept { return !path_.empty(); }
    const LightweightString<wchar_t>& path() const noexcept { return path_; }

    // --- content -------------------------------------------------------------------------------------
    const uint8_t* data() const noexcept { return store_.data(); }
    std::size_t size() const noexcept { return size_; }
    /// Replaces the content with a copy of the bytes; position 0, failure cleared.
    void assign(const void* data, std::size_t length);
    /// Empties the stream; position 0, failure cleared.
    void clear();
    void reserve(std::size_t bytes);

    // --- position ------------------------------------------------------------------------------------
    std::size_t position() const noexcept { return pos_; }
    /// Any position from 0 to size() is valid; beyond that the seek fails and the position stays.
    bool seek(std::size_t position) noexcept {
        if (position > size_) {
            failed_ = true;
            return false;
        }
        pos_ = position;
        return true;
    }
    void seekToEnd() noexcept { pos_ = size_; }
    /// Moves forward; past the end it fails like a read.
    bool skip(std::size_t bytes) {
        if (bytes > remaining()) return readPastEnd(nullptr, 0);
        pos_ += bytes;
        return true;
    }
    bool atEnd() const noexcept { return pos_ >= size_; }
    std::size_t remaining() const noexcept { return size_ - pos_; }

    // --- failure -------------------------------------------------------------------------------------
    bool failed() const noexcept { return failed_; }
    void setFailed() noexcept { failed_ = true; }
    void clearFailure() noexcept { failed_ = false; }

    // --- raw bytes -----------------------------------------------------------------------------------
    /// Writes at the position, overwriting and then extending; the position moves past the bytes.
    bool write(const void* data, std::size_t length) {
        // Fast path: the bytes fit the storage already allocated (overwriting or appending).
        if (length <= store_.size() - pos_ && writable_ && data && length) {
            Qv::StringBlocks::moveBytes(store_.data() + pos_, data, length);
            pos_ += length;
            if (pos_ > size_) size_ = pos_;
            modified_ = true;
            return true;
        }
        return writeSlow(data, length);
    }
    /// Writes over bytes already in the stream, leaving the position alone (packing patches its headers
    /// so). Fails like a write on a read-only stream, and when the bytes are not all within the content.
    bool overwrite(std::size_t at, const void* data, std::size_t length) {
        if (!writable_ || at > size_ || length > size_ - at) {
            failed_ = true;
            return false;
        }
        if (length) std::memcpy(store_.data() + at, data, length);
        modified_ = true;
        return true;
    }
    /// All or nothing (see the failure rules above).
    bool read(void* buffer, std::size_t length) {
        if (length <= size_ - pos_) {
            Qv::StringBlocks::moveBytes(buffer, store_.data() + pos_, length);
            pos_ += length;
            return true;
        }
        return readPastEnd(buffer, length);
    }

    /// Fixed-width numbers (integers, float, double).
    template <class T>
    bool writeValue(T value) {
        static_assert(std::is_arithmetic_v<T>, "only numbers are written by value");
        return write(&value, sizeof value);
    }
    template <class T>
    T readValue() {
        static_assert(std::is_arithmetic_v<T>, "only numbers are read by value");
        T value;
        read(&value, sizeof value);
        return value;
    }

    // --- runs of bytes and texts ---------------------------------------------------------------------
    /// Writes `length` bytes of `data`; a `length` of 0 means strlen(data) (null data writes no bytes).
    ///   neither flag:  the bytes, then one 0 byte (a NUL-terminated text)
    ///   prefixLength:  the length as an unsigned 32-bit word, then the bytes
    ///   raw:           the bytes alone (raw wins over prefixLength)
    bool writeBinary(const void* data, uint32_t length, bool prefixLength, bool raw);
    /// The mirror of writeBinary into `buffer` of `capacity` bytes; returns the bytes stored.
    ///   neither flag:  a NUL-terminated text; at most capacity-1 characters are kept (the rest is skipped)
    ///                  and the buffer is always NUL-terminated when capacity > 0
    ///   prefixLength:  a 32-bit length, then that many bytes; at most `capacity` are kept
    ///   raw:           exactly `capacity` bytes
    /// A run that does not fit in the rest of the stream fails (see the failure rules).
    std::size_t readBinary(void* buffer, std::size_t capacity, bool prefixLength, bool raw);
    /// Reads a NUL-terminated text (as written by writeBinary with neither flag). Without a terminator
    /// before the end it fails and returns "".
    LightweightString<char> getString();
    /// The same into `text`, reusing its block when it is unshared and large enough; false on failure.
    bool getString(LightweightString<char>& text) {
        std::size_t length = 0;
        const char* found = viewString(&length);
        text.assign(found, unsigned(length));
        return found != nullptr;
    }
    /// Like getString() without copying: a pointer to the text inside the cache (its length in *length
    /// when given), or null on failure.
    const char* viewString(std::size_t* length = nullptr) {
        const char* start = reinterpret_cast<const char*>(store_.data() + pos_);
        const char* nul = pos_ < size_ ? findNul(start, size_ - pos_) : nullptr;
        if (!nul) return noString(length);
        const std::size_t n = std::size_t(nul - start);
        pos_ += n + 1;
        if (length) *length = n;
        return start;
    }

private:
    /// The first NUL among the `n` bytes at `p`, or null. Stored texts are mostly short, so the next 16
    /// bytes are tested a word at a time before memchr, whose call costs more than such a text.
    static const char* findNul(const char* p, std::size_t n) noexcept {
        static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the lowest flagged byte comes first");
        if (n >= 16) {
            for (int word = 0; word < 2; ++word, p += 8, n -= 8) {
                uint64_t bytes;
                std::memcpy(&bytes, p, sizeof bytes);
                // Flags the first zero byte exactly; only bytes after it can be flagged wrongly.
                const uint64_t zero = (bytes - 0x0101010101010101u) & ~bytes & 0x8080808080808080u;
                if (zero) return p + (__builtin_ctzll(zero) >> 3);
            }
        }
        return static_cast<const char*>(std::memchr(p, 0, n));
    }
    bool writeSlow(const void* data, std::size_t length);
    bool readPastEnd(void* buffer, std::size_t length);
    /// viewString's failure: no terminator before the end.
    const char* noString(std::size_t* length);

    /// The content is store_[0, size_); the rest of store_ is room to grow into.
    std::vector<uint8_t> store_;
    std::size_t size_ = 0;
    std::size_t pos_ = 0;
    bool failed_ = false;
    bool writable_ = true;
    bool modified_ = false;
    LightweightString<wchar_t> path_;
};
