#include <ole/misc/time_def.h>

#include <ole/misc/strmable.h>

#include <ole/platform/Assert.h>

#include <cctype>
#include <cstdio>

// Every constructor starts from 25 fps non-drop before setting its own values.
time_def::time_def(double t, Qv::FrameRate r, bool drop) : time(0.0), rate(Qv::FR25), dropFrame(false) {
    set(t, r, drop);
}

time_def::time_def(const char* text, Qv::FrameRate r, bool drop)
    : time(0.0), rate(Qv::FR25), dropFrame(false) {
    set(string_to_tc(text, r, drop), r, drop);
}

time_def::time_def(double t, const TCInf& info) : time(0.0), rate(Qv::FR25), dropFrame(false) {
    set(t, info.rate, info.dropFrame);
}

time_def::time_def(const char* text, const TCInf& info) : time(0.0), rate(Qv::FR25), dropFrame(false) {
    set(string_to_tc(text, info), info.rate, info.dropFrame);
}

time_def::time_def(const char* text, label_t kind) : time(0.0), rate(Qv::FR25), dropFrame(false) {
    Qv::FrameRate labelRate = Qv::FR24;
    bool labelDrop = false;
    switch (kind) {
        case LABEL_EBU:
            labelRate = Qv::FR25;
            break;
        case LABEL_SMPTE:
            labelRate = Qv::FR30;
            break;
        case LABEL_SMPTE_DROP:
            labelRate = Qv::FR30, labelDrop = true;
            break;
        default:
            break;
    }
    set(text ? string_to_tc(text, labelRate, labelDrop) : 0.0, labelRate, labelDrop);
}

void time_def::set(double t, Qv::FrameRate r, bool drop) {
    time = t;
    rate = r;
    dropFrame = drop;
}

// The three text buffers are shared by all time_def objects.
static char punctuatedText[16];
static char labelText[16];
static char databaseText[400];  // "%lf" of the largest double runs to over 300 characters

char* time_def::get_punctuated_str() {
    punctuatedText[0] = '\0';
    tc_to_string(time, punctuatedText, kTcFull, rate, dropFrame);
    return punctuatedText;
}

char* time_def::get_label_str() {
    const char* punctuated = get_punctuated_str();
    char* out = labelText;
    for (int i = 0; i < 12 && punctuated[i]; ++i)
        if (!std::ispunct(static_cast<unsigned char>(punctuated[i]))) *out++ = punctuated[i];
    *out = '\0';
    return labelText;
}

char* time_def::get_database_str() {
    Qv::assertionFailed("false", "ole/misc/time_def", 135);
    std::snprintf(databaseText, sizeof databaseText, "%lf %d %d", time, int(rate), int(dropFrame));
    return databaseText;
}

data_field::~data_field() = default;

tc_field::~tc_field() = default;

bool tc_field::read(std::ifstream* in) {
    if (!in) return false;
    char line[256] = "";
    in->getline(line, sizeof line);
    std::sscanf(line, "%lf", &time);
    return true;
}

bool tc_field::write(std::ofstream* out) {
    if (!out) return false;
    char line[400];
    std::snprintf(line, sizeof line, "%.8lf\n", time);
    *out << line;
    out->flush();
    return true;
}

void tc_field::pack(PStream& stream) const {
    stream.setDouble(time);
}

void tc_field::unpack(PStream& stream, unsigned char) {
    // A stream that ends early leaves the time as it was (and the stream flagged).
    const std::size_t start = stream.position();
    const double t = stream.getDouble();
    if (stream.position() == start + sizeof t) time = t;
}
