#include <ole/misc/QvDataCompression.h>

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <new>

namespace QvDataCompression {

const char* resultText(Result result) {
    switch (result) {
        case Ok:
            return "ok";
        case InvalidArgument:
            return "invalid argument";
        case CorruptData:
            return "corrupt data";
        case TruncatedData:
            return "truncated data";
        case TooLarge:
            return "uncompressed data too large";
        case OutOfMemory:
            return "out of memory";
    }
    return "unknown result";
}

Result zlibCompress(const void* data, std::size_t size, std::vector<uint8_t>& out, int level) {
    out.clear();
    if ((!data && size) || level < -1 || level > 9) return InvalidArgument;
    static const uint8_t kNothing = 0;
    try {
        uLongf length = compressBound(uLong(size));
        out.resize(length);
        const int rc = compress2(out.data(), &length, data ? static_cast<const Bytef*>(data) : &kNothing,
                                 uLong(size), level);
        if (rc != Z_OK) {
            out.clear();
            return rc == Z_MEM_ERROR ? OutOfMemory : InvalidArgument;
        }
        out.resize(length);
        return Ok;
    } catch (const std::bad_alloc&) {
        out.clear();
        out.shrink_to_fit();
        return OutOfMemory;
    }
}

namespace {

// Owns an inflate stream for the length of one call.
class Inflater {
public:
    Inflater() { ok_ = inflateInit(&stream_) == Z_OK; }
    ~Inflater() {
        if (ok_) inflateEnd(&stream_);
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    bool ok() const { return ok_; }
    z_stream& stream() { return stream_; }

private:
    z_stream stream_{};
    bool ok_;
};

constexpr std::size_t kMinimumGrowth = 64 * 1024;

Result inflateAll(const uint8_t* in, std::size_t inLeft, std::vector<uint8_t>& out, std::size_t limit,
                  std::size_t expectedSize) {
    Inflater inflater;
    if (!inflater.ok()) return OutOfMemory;
    z_stream& zs = inflater.stream();
    // The output may reach one byte past the limit: that byte is how an over-long stream shows itself.
    const std::size_t cap = limit == SIZE_MAX ? limit : limit + 1;
    std::size_t initial = expectedSize ? expectedSize + 1 : std::max(kMinimumGrowth, inLeft / 2 * 8);
    out.resize(std::min(cap, initial));
    std::size_t produced = 0;
    for (;;) {
        if (zs.avail_in == 0 && inLeft) {
            const std::size_t chunk = std::min<std::size_t>(inLeft, UINT_MAX);
            zs.next_in = const_cast<Bytef*>(in);
            zs.avail_in = uInt(chunk);
            in += chunk;
            inLeft -= chunk;
        }
        if (produced == out.size()) {
            if (out.size() >= cap) return TooLarge;
            out.resize(std::min(cap, std::max(out.size() * 2, kMinimumGrowth)));
        }
        zs.next_out = out.data() + produced;
        zs.avail_out = uInt(std::min<std::size_t>(out.size() - produced, UINT_MAX));
        const int rc = inflate(&zs, Z_NO_FLUSH);
        produced = std::size_t(zs.next_out - out.data());
        if (produced > limit) return TooLarge;
        if (rc == Z_STREAM_END) break;
        if (rc == Z_MEM_ERROR) return OutOfMemory;
        if (rc != Z_OK && rc != Z_BUF_ERROR) return CorruptData;  // Z_DATA_ERROR, Z_NEED_DICT
        if (zs.avail_in == 0 && inLeft == 0 && zs.avail_out != 0) return TruncatedData;
    }
    if (zs.avail_in != 0 || inLeft != 0) return CorruptData;  // bytes after the stream
    out.resize(produced);
    return Ok;
}

}  // namespace

Result zlibUncompress(const void* data, std::size_t size, std::vector<uint8_t>& out,
                      std::size_t maxUncompressedSize, std::size_t expectedSize) {
    out.clear();
    if (!data && size) return InvalidArgument;
    Result result;
    try {
        result = inflateAll(static_cast<const uint8_t*>(data), size, out, maxUncompressedSize, expectedSize);
    } catch (const std::bad_alloc&) {
        result = OutOfMemory;
    }
    if (result != Ok) {
        out.clear();
        out.shrink_to_fit();
    }
    return result;
}

}  // namespace QvDataCompression
