#include "Output.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace oletool {

Value& Value::add(Value v) {
    elements_.push_back(std::move(v));
    return *this;
}

Value& Value::set(const std::string& key, Value v) {
    for (Member& m : members_) {
        if (m.first == key) {
            m.second = std::move(v);
            return *this;
        }
    }
    members_.emplace_back(key, std::move(v));
    return *this;
}

const Value* Value::find(const std::string& key) const {
    for (const Member& m : members_)
        if (m.first == key) return &m.second;
    return nullptr;
}

std::string formatReal(double d) {
    if (!std::isfinite(d)) return "null";
    // Plain notation for ordinary magnitudes: %g only turns to it once the precision covers the digits
    // before the point, so "3.6e+03" is passed over for "3600".
    const bool plain = d == 0.0 || (std::fabs(d) >= 1e-4 && std::fabs(d) < 1e15);
    char buffer[40];
    for (int precision = 1; precision <= 17; ++precision) {
        std::snprintf(buffer, sizeof buffer, "%.*g", precision, d);
        if (std::strtod(buffer, nullptr) == d && (!plain || !std::strchr(buffer, 'e'))) break;
    }
    return buffer;
}

namespace {

// Length of the valid UTF-8 sequence at p (at most `left` bytes), or 0 when it is not one.
std::size_t utf8Length(const unsigned char* p, std::size_t left) {
    const unsigned char c = p[0];
    std::size_t n;
    std::uint32_t code;
    if (c < 0x80) return 1;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        code = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        code = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        code = c & 0x07;
    } else {
        return 0;
    }
    if (left < n) return 0;
    for (std::size_t i = 1; i < n; ++i) {
        if ((p[i] & 0xC0) != 0x80) return 0;
        code = (code << 6) | (p[i] & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not characters.
    if ((n == 3 && code < 0x800) || (n == 4 && (code < 0x10000 || code > 0x10FFFF))) return 0;
    if (code >= 0xD800 && code <= 0xDFFF) return 0;
    return n;
}

void appendJsonString(std::string& out, const std::string& text) {
    out += '"';
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t left = text.size();
    while (left) {
        const unsigned char c = *p;
        std::size_t n = 1;
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\u%04x", c);
                    out += escape;
                } else if ((n = utf8Length(p, left)) == 0) {
                    out += "\\ufffd";
                    n = 1;
                } else {
                    out.append(reinterpret_cast<const char*>(p), n);
                }
        }
        p += n;
        left -= n;
    }
    out += '"';
}

void appendJson(std::string& out, const Value& v, int depth) {
    const auto newline = [&out](int level) {
        out += '\n';
        out.append(std::size_t(level) * 2, ' ');
    };
    switch (v.kind()) {
        case Value::Kind::Null:
            out += "null";
            break;
        case Value::Kind::Bool:
            out += v.asBool() ? "true" : "false";
            break;
        case Value::Kind::Integer:
            out += std::to_string(v.asInteger());
            break;
        case Value::Kind::Real:
            out += formatReal(v.asReal());
            break;
        case Value::Kind::String:
            appendJsonString(out, v.asString());
            break;
        case Value::Kind::Array:
            if (v.elements().empty()) {
                out += "[]";
                break;
            }
            out += '[';
            for (std::size_t i = 0; i < v.elements().size(); ++i) {
                if (i) out += ',';
                newline(depth + 1);
                appendJson(out, v.elements()[i], depth + 1);
            }
            newline(depth);
            out += ']';
            break;
        case Value::Kind::Object:
            if (v.members().empty()) {
                out += "{}";
                break;
            }
            out += '{';
            for (std::size_t i = 0; i < v.members().size(); ++i) {
                if (i) out += ',';
                newline(depth + 1);
                appendJsonString(out, v.members()[i].first);
                out += ": ";
                appendJson(out, v.members()[i].second, depth + 1);
            }
            newline(depth);
            out += '}';
            break;
    }
}

std::string label(const std::string& key) {
    std::string text = key;
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

bool isTable(const Value& v) {
    return v.kind() == Value::Kind::Array && !v.elements().empty() &&
           v.elements().front().kind() == Value::Kind::Object;
}

void printTable(const Value& rows, const std::string& indent) {
    const auto& columns = rows.elements().front().members();
    std::vector<std::size_t> widths;
    for (const auto& column : columns) widths.push_back(label(column.first).size());
    std::vector<std::vector<std::string>> cells;
    for (const Value& row : rows.elements()) {
        cells.emplace_back();
        for (std::size_t c = 0; c < columns.size(); ++c) {
            const Value* cell = row.find(columns[c].first);
            cells.back().push_back(cell ? oneLine(toText(*cell)) : "-");
            widths[c] = std::max(widths[c], cells.back().back().size());
        }
    }
    const auto printRow = [&](const std::vector<std::string>& row) {
        std::string line = indent;
        for (std::size_t c = 0; c < row.size(); ++c) {
            line += row[c];
            if (c + 1 < row.size()) line.append(widths[c] - row[c].size() + 2, ' ');
        }
        std::printf("%s\n", line.c_str());
    };
    std::vector<std::string> heading;
    for (const auto& column : columns) heading.push_back(label(column.first));
    printRow(heading);
    for (const auto& row : cells) printRow(row);
}

void printObject(const Value& v, const std::string& indent) {
    std::size_t width = 0;
    for (const auto& m : v.members())
        if (m.second.kind() != Value::Kind::Object && !isTable(m.second))
            width = std::max(width, label(m.first).size());
    for (const auto& [key, value] : v.members()) {
        if (value.kind() == Value::Kind::Object) {
            std::printf("%s%s:\n", indent.c_str(), label(key).c_str());
            printObject(value, indent + "  ");
        } else if (isTable(value)) {
            std::printf("%s%s:\n", indent.c_str(), label(key).c_str());
            printTable(value, indent + "  ");
        } else {
            const std::string name = label(key);
            std::printf("%s%s%s  %s\n", indent.c_str(), name.c_str(),
                        std::string(width - name.size(), ' ').c_str(), oneLine(toText(value)).c_str());
        }
    }
}

}  // namespace

std::string jsonString(const std::string& text) {
    std::string out;
    appendJsonString(out, text);
    return out;
}

std::string toJson(const Value& v) {
    std::string out;
    appendJson(out, v, 0);
    return out;
}

std::string toText(const Value& v) {
    switch (v.kind()) {
        case Value::Kind::Null:
            return "-";
        case Value::Kind::Bool:
            return v.asBool() ? "yes" : "no";
        case Value::Kind::Integer:
            return std::to_string(v.asInteger());
        case Value::Kind::Real:
            return formatReal(v.asReal());
        case Value::Kind::String:
            return v.asString();
        case Value::Kind::Array: {
            std::string text;
            for (const Value& e : v.elements()) {
                if (!text.empty()) text += ", ";
                text += toText(e);
            }
            return text.empty() ? "-" : text;
        }
        case Value::Kind::Object:
            break;
    }
    return toJson(v);
}

void print(const Value& v, bool json) {
    if (json) {
        std::printf("%s\n", toJson(v).c_str());
    } else if (v.kind() == Value::Kind::Object) {
        printObject(v, "");
    } else if (isTable(v)) {
        printTable(v, "");
    } else if (v.kind() == Value::Kind::Array) {
        for (const Value& e : v.elements()) std::printf("%s\n", toText(e).c_str());
    } else {
        std::printf("%s\n", toText(v).c_str());
    }
}

std::string oneLine(std::string text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char* escape = text[i] == '\n'   ? "\\n"
                             : text[i] == '\r' ? "\\r"
                             : text[i] == '\t' ? "\\t"
                                               : nullptr;
        if (escape) text.replace(i++, 1, escape);
    }
    return text;
}

std::string quote(const std::string& text) {
    std::string out = "'";
    for (unsigned char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", c);
            out += escape;
        } else {
            out += char(c);
        }
    }
    return out + "'";
}

}  // namespace oletool
