#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace oletool {

Value number(double d) {
    // Exact below 2^53: the whole value converts back without loss.
    if (std::isfinite(d) && d == std::trunc(d) && std::fabs(d) < 9007199254740992.0) return (long long)d;
    return d;
}

namespace {

std::string label(std::string key) {
    std::replace(key.begin(), key.end(), '_', ' ');
    return key;
}

bool isTable(const Value& v) {
    return v.is_array() && !v.empty() && v.front().is_object();
}

std::string line(const std::string& text) {
    return text + "\n";
}

void renderTable(std::string& out, const Value& rows, const std::string& indent) {
    std::vector<std::string> columns;
    for (const auto& column : rows.front().items()) columns.push_back(column.key());
    std::vector<std::size_t> widths;
    for (const std::string& column : columns) widths.push_back(label(column).size());
    std::vector<std::vector<std::string>> cells;
    for (const Value& row : rows) {
        cells.emplace_back();
        for (std::size_t c = 0; c < columns.size(); ++c) {
            const auto cell = row.find(columns[c]);
            cells.back().push_back(cell != row.end() ? oneLine(toText(*cell)) : "-");
            widths[c] = std::max(widths[c], cells.back().back().size());
        }
    }
    const auto renderRow = [&](const std::vector<std::string>& row) {
        std::string text = indent;
        for (std::size_t c = 0; c < row.size(); ++c) {
            text += row[c];
            if (c + 1 < row.size()) text.append(widths[c] - row[c].size() + 2, ' ');
        }
        out += line(text);
    };
    std::vector<std::string> heading;
    for (const std::string& column : columns) heading.push_back(label(column));
    renderRow(heading);
    for (const auto& row : cells) renderRow(row);
}

void renderObject(std::string& out, const Value& v, const std::string& indent) {
    std::size_t width = 0;
    for (const auto& m : v.items())
        if (!m.value().is_object() && !isTable(m.value())) width = std::max(width, label(m.key()).size());
    for (const auto& m : v.items()) {
        const std::string name = label(m.key());
        if (m.value().is_object()) {
            out += line(indent + name + ":");
            renderObject(out, m.value(), indent + "  ");
        } else if (isTable(m.value())) {
            out += line(indent + name + ":");
            renderTable(out, m.value(), indent + "  ");
        } else {
            out += line(indent + name + std::string(width - name.size(), ' ') + "  " +
                        oneLine(toText(m.value())));
        }
    }
}

}  // namespace

std::string toText(const Value& v) {
    switch (v.type()) {
        case Value::value_t::null:
            return "-";
        case Value::value_t::boolean:
            return v.get<bool>() ? "yes" : "no";
        case Value::value_t::string:
            return v.get_ref<const std::string&>();
        case Value::value_t::number_float: {
            // The writer's shortest round-trip text, without the ".0" it gives whole values.
            std::string text = v.dump();
            if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) text.resize(text.size() - 2);
            return text;
        }
        case Value::value_t::array: {
            std::string text;
            for (const Value& e : v) {
                if (!text.empty()) text += ", ";
                text += toText(e);
            }
            return text.empty() ? "-" : text;
        }
        default:
            return v.dump(-1, ' ', false, Value::error_handler_t::replace);
    }
}

std::string render(const Value& v) {
    std::string out;
    if (v.is_object()) {
        renderObject(out, v, "");
    } else if (isTable(v)) {
        renderTable(out, v, "");
    } else if (v.is_array()) {
        for (const Value& e : v) out += line(toText(e));
    } else {
        out += line(toText(v));
    }
    return out;
}

namespace {
bool stdoutClosed = false;
}  // namespace

void guardStandardOutput() {
    if (::fcntl(STDOUT_FILENO, F_GETFD) != -1) return;
    stdoutClosed = true;
    const int fd = ::open("/dev/null", O_WRONLY);
    if (fd >= 0 && fd != STDOUT_FILENO) {
        ::dup2(fd, STDOUT_FILENO);
        ::close(fd);
    }
}

bool standardOutputOpen() {
    return !stdoutClosed;
}

void writeOut(const std::string& text) {
    if (stdoutClosed && !text.empty())
        throw InputError(std::string("cannot write to standard output: ") + std::strerror(EBADF));
    errno = 0;
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (std::fflush(stdout) != 0 || !written || std::ferror(stdout)) {
        const int error = errno;
        throw InputError(std::string("cannot write to standard output: ") +
                         (error ? std::strerror(error) : "write failed"));
    }
}

void print(const Value& v, bool json) {
    writeOut(json ? v.dump(2, ' ', false, Value::error_handler_t::replace) + "\n" : render(v));
}

void print(const Value& v, bool json, const std::string& text) {
    if (json) return print(v, true);
    writeOut(text);
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
