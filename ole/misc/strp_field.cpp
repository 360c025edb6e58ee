#include <ole/misc/strp_field.h>

strp_field::~strp_field() = default;

LightweightString<char> strp_field::getPersistableString() const {
    return text_;
}

bool strp_field::setPersistableString(const LightweightString<char>& text) {
    text_ = text;
    return true;
}
