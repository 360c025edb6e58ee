#include <ole/misc/IdStamp.h>

#include <ole/misc/Cookie.h>
#include <ole/misc/strmable.h>
#include <ole/runtime/Log.h>
#include <ole/platform/OS.h>
#include <ole/platform/Threads.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

// What stamp making remembers between stamps, under its own lock.
struct StampState {
    Qv::CriticalSection lock;
    int64_t lastSecond = 0;
    uint32_t lastTick = 0;
    uint32_t machine = 0;
};

StampState& stampState() {
    static StampState state;
    return state;
}

int64_t stampSecondNow() {
    return OS()->clock()->secondsSinceEpoch() - int64_t(IdStamp::kEpoch);
}

// strtol base 16 of at most `n` characters of `text`, truncated to 32 bits.
uint32_t hexField(const char* text, size_t n) {
    char field[9] = {};
    std::memcpy(field, text, n);
    return uint32_t(std::strtol(field, nullptr, 16));
}

}  // namespace

IdStamp::IdStamp() {
    StampState& state = stampState();
    Qv::CriticalSection::Lock hold(state.lock);
    int64_t now = stampSecondNow();
    for (;;) {
        if (now != state.lastSecond) {
            state.lastSecond = now;
            state.lastTick = 0;
            break;
        }
        const uint32_t next = (state.lastTick & 0x3FFFFFFFu) + 1;
        if (next != 0x40000000u) {
            state.lastTick = (state.lastTick & 0xFC000000u) | next;
            break;
        }
        // Every count of this second is used: the next stamp must come from a later second.
        OS()->threads()->sleep(1);
        now = stampSecondNow();
    }
    if (state.machine == 0) state.machine = uint32_t(Cookie::getLocalMachineNumber());
    machine_ = state.machine;
    time_ = uint32_t(now);
    tick_ = state.lastTick;
}

IdStamp::IdStamp(const char* text) noexcept : machine_(0), time_(0), tick_(0) {
    if (!text || !*text) return;
    const size_t length = std::strlen(text);
    machine_ = hexField(text, length < 8 ? length : 8);
    if (length <= 8) return;
    time_ = hexField(text + 8, length < 16 ? length - 8 : 8);
    if (length <= 16) return;
    tick_ = uint32_t(std::strtol(text + 16, nullptr, 16));
}

Parsed<IdStamp> IdStamp::parse(const char* text) {
    const IdStamp null(0, 0, 0);
    const size_t length = text ? std::strlen(text) : 0;
    bool hex = length >= 17 && length <= 24;
    for (size_t i = 0; hex && i < length; ++i) hex = std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    if (!hex) return Parsed<IdStamp>::refuse("is not an IdStamp (17 to 24 hexadecimal digits)", null);
    const IdStamp stamp(text);
    if (!stamp.valid()) return Parsed<IdStamp>::refuse("is not an IdStamp (its time is zero)", null);
    return Parsed<IdStamp>::accept(stamp);
}

unsigned IdStamp::writeText(char* out) const noexcept {
    if (!valid()) {
        out[0] = '\0';
        return 0;
    }
    // "%08X%08X%X", written directly: this runs for every stamp stored in configuration and streams.
    static const char kHex[] = "0123456789ABCDEF";
    for (int i = 0; i < 8; ++i) {
        out[i] = kHex[(machine_ >> (28 - 4 * i)) & 0xF];
        out[8 + i] = kHex[(time_ >> (28 - 4 * i)) & 0xF];
    }
    unsigned length = 16;
    int shift = 28;
    while (shift > 0 && (tick_ >> shift) == 0) shift -= 4;
    for (; shift >= 0; shift -= 4) out[length++] = kHex[(tick_ >> shift) & 0xF];
    out[length] = '\0';
    return length;
}

LightweightString<char> IdStamp::asString() const {
    char text[25];
    return LightweightString<char>(text, writeText(text));
}

void IdStamp::pack(PStream& stream) const {
    char text[25];
    writeText(text);
    stream.writeBinary(text, 0, false, false);
}

void IdStamp::unpack(PStream& stream, unsigned char version) {
    if (version == 'S') {
        stream.file()->skip(38);
        version = 1;
    }
    const char* text = stream.file()->viewString();
    *this = IdStamp(text ? text : "");
    if (version == 1 && tick_ > 0x3FFFFFFu)
        LogBoth("WARNING: Encountered Rev.1 IdStamp with out-of-range tickBits value.\n");
}
