#include <ole/misc/StreamFile.h>

#include <ole/platform/OS.h>

#include <algorithm>
#include <string>

StreamFile::StreamFile() = default;

StreamFile::StreamFile(const void* data, std::size_t length) {
    assign(data, length);
}

StreamFile::~StreamFile() {
    flush();
}

bool StreamFile::open(const LightweightString<wchar_t>& path, OpenMode mode) {
    close();
    path_ = path;
    writable_ = mode != ReadOnly;
    if (mode == Create) {
        modified_ = true;  // an empty Create stream still replaces the file when saved
        return true;
    }
    std::string content;
    const Qv::FileStatus status = OS()->fileSystem()->readFile(path.c_str(), content, kMaxFileBytes);
    if (status == Qv::FileStatus::kMissing) return mode == Update;
    if (status != Qv::FileStatus::kOk) return false;
    reserve(content.size());
    if (!content.empty()) std::memcpy(store_.data(), content.data(), content.size());
    size_ = content.size();
    return true;
}

bool StreamFile::flush() {
    if (!isFileBacked() || !modified_) return true;
    if (!OS()->fileSystem()->writeAtomically(path_.c_str(), store_.data(), size_)) {
        failed_ = true;
        return false;
    }
    modified_ = false;
    return true;
}

bool StreamFile::close() {
    const bool saved = flush();
    size_ = 0;
    pos_ = 0;
    failed_ = false;
    path_ = LightweightString<wchar_t>();
    writable_ = true;
    modified_ = false;
    return saved;
}

void StreamFile::assign(const void* data, std::size_t length) {
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    size_ = 0;
    if (bytes && length) {
        reserve(length);
        std::memcpy(store_.data(), bytes, length);
        size_ = length;
    }
    pos_ = 0;
    failed_ = false;
    modified_ = true;
}

void StreamFile::reserve(std::size_t bytes) {
    if (bytes > store_.size()) store_.resize(bytes);
}

void StreamFile::clear() {
    size_ = 0;
    pos_ = 0;
    failed_ = false;
    modified_ = true;
}

bool StreamFile::writeSlow(const void* data, std::size_t length) {
    if (!writable_ || (!data && length)) {
        failed_ = true;
        return false;
    }
    if (length == 0) return true;
    // Grow the storage geometrically so that appending stays amortised constant.
    if (length > store_.size() - pos_) reserve(std::max(pos_ + length, 2 * store_.size()));
    std::memcpy(store_.data() + pos_, data, length);
    pos_ += length;
    if (pos_ > size_) size_ = pos_;
    modified_ = true;
    return true;
}

bool StreamFile::readPastEnd(void* buffer, std::size_t length) {
    if (buffer && length) std::memset(buffer, 0, length);
    pos_ = size_;
    failed_ = true;
    return false;
}

bool StreamFile::writeBinary(const void* data, uint32_t length, bool prefixLength, bool raw) {
    if (!data) {
        length = 0;
    } else if (length == 0) {
        const std::size_t measured = std::strlen(static_cast<const char*>(data));
        // A measured text goes out with its own terminator in one write.
        if (!prefixLength && !raw && measured < 0xFFFFFFFFu) return write(data, measured + 1);
        length = uint32_t(measured);
    }
    bool ok = true;
    if (prefixLength && !raw) ok = writeValue(length);
    if (length) ok = write(data, length) && ok;
    if (!prefixLength && !raw) ok = writeValue(uint8_t(0)) && ok;
    return ok;
}

std::size_t StreamFile::readBinary(void* buffer, std::size_t capacity, bool prefixLength, bool raw) {
    if (!buffer) capacity = 0;
    if (raw) return read(buffer, capacity) ? capacity : 0;
    if (prefixLength) {
        const uint32_t length = readValue<uint32_t>();
        if (failed_) return 0;
        if (length > remaining()) {
            readPastEnd(nullptr, 0);
            return 0;
        }
        const std::size_t kept = std::min<std::size_t>(length, capacity);
        read(buffer, kept);
        pos_ += length - kept;
        return kept;
    }
    std::size_t length = 0;
    const char* text = viewString(&length);
    char* out = static_cast<char*>(buffer);
    if (capacity == 0) return 0;
    const std::size_t kept = text ? std::min(length, capacity - 1) : 0;
    if (kept) std::memcpy(out, text, kept);
    out[kept] = 0;
    return kept;
}

const char* StreamFile::noString(std::size_t* length) {
    readPastEnd(nullptr, 0);
    if (length) *length = 0;
    return nullptr;
}

LightweightString<char> StreamFile::getString() {
    std::size_t length = 0;
    const char* text = viewString(&length);
    return text ? LightweightString<char>(text, unsigned(length)) : LightweightString<char>();
}
