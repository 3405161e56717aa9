#include "Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <nlohmann/json.hpp>

namespace vxcloud::cli {

bool stdoutIsTerminal() { return ::isatty(STDOUT_FILENO) == 1; }
bool stdinIsTerminal() { return ::isatty(STDIN_FILENO) == 1; }

int terminalWidth() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 20) return size.ws_col;
    return 80;
}

namespace {

std::string hexEscape(const char* prefix, unsigned value, int digits) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%s%0*x", prefix, digits, value);
    return buffer;
}

std::string controlEscape(unsigned char c) {
    switch (c) {
        case '\n': return "\\n";
        case '\r': return "\\r";
        case '\t': return "\\t";
        default: return hexEscape("\\x", c, 2);
    }
}

// The length of the UTF-8 sequence starting at `i`, or 0 when it is not one.
std::size_t sequenceLength(const std::string& text, std::size_t i) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(i);
    std::size_t length = 0;
    if (lead < 0x80) {
        length = 1;
    } else if (lead >= 0xC2 && lead < 0xE0) {
        length = 2;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
    }
    if (length == 0 || i + length > text.size()) return 0;
    for (std::size_t k = 1; k < length; ++k)
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    return length;
}

}  // namespace

std::string printable(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        const std::size_t length = sequenceLength(text, i);
        if (length == 0) {
            out += hexEscape("\\x", c, 2);
            ++i;
        } else if (c < 0x20 || c == 0x7F) {
            out += controlEscape(c);
            ++i;
        } else if (c == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
            // U+0080 to U+009F are controls too; some terminals act on them.
            out += hexEscape("\\u", static_cast<unsigned char>(text[i + 1]), 4);
            i += 2;
        } else {
            out.append(text, i, length);
            i += length;
        }
    }
    return out;
}

std::size_t displayWidth(const std::string& text) {
    std::size_t width = 0;
    for (unsigned char c : text)
        if ((c & 0xC0) != 0x80) ++width;
    return width;
}

std::string fitWidth(const std::string& text, std::size_t width) {
    if (displayWidth(text) <= width) return text;
    if (width == 0) return {};
    std::string out;
    std::size_t shown = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if ((c & 0xC0) != 0x80) {
            if (shown + 1 == width) break;
            ++shown;
        }
        out += text[i];
    }
    return out + "…";
}

Table::Table(std::vector<std::string> headers) : headers_(std::move(headers)) {}

void Table::add(std::vector<std::string> row) {
    row.resize(headers_.size());
    // One line per row, whatever the cells hold.
    for (auto& cell : row) cell = printable(cell);
    rows_.push_back(std::move(row));
}

std::string Table::render(const std::string& indent) const {
    std::vector<std::size_t> widths(headers_.size(), 0);
    auto measure = [&](const std::vector<std::string>& row) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
    };
    measure(headers_);
    for (const auto& row : rows_) measure(row);
    auto line = [&](const std::vector<std::string>& row) {
        std::string out = indent;
        for (std::size_t i = 0; i < row.size(); ++i) {
            out += row[i];
            if (i + 1 < row.size()) out += std::string(widths[i] - displayWidth(row[i]) + 2, ' ');
        }
        while (!out.empty() && out.back() == ' ') out.pop_back();
        return out + "\n";
    };
    std::string out = line(headers_);
    for (const auto& row : rows_) out += line(row);
    return out;
}

void say(const std::string& line) {
    std::cout << line << '\n' << std::flush;
}

void warn(const std::string& message) {
    std::cout << std::flush;
    std::cerr << "vxcloud: " << message << '\n' << std::flush;
}

void printJson(const Json& value) {
    std::cout << value.dump(2, ' ', false, Json::error_handler_t::replace) << '\n' << std::flush;
}

void printJsonLine(const Json& value) {
    std::cout << value.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n' << std::flush;
}

std::string humanBytes(std::int64_t bytes) {
    char buffer[32];
    if (bytes < 1024) {
        std::snprintf(buffer, sizeof buffer, "%lld B", static_cast<long long>(bytes));
    } else if (bytes < 1024 * 1024) {
        std::snprintf(buffer, sizeof buffer, "%.1f KiB", static_cast<double>(bytes) / 1024.0);
    } else {
        std::snprintf(buffer, sizeof buffer, "%.1f MiB", static_cast<double>(bytes) / (1024.0 * 1024.0));
    }
    return buffer;
}

std::string shortVersion(const std::string& version) {
    return version.size() > 12 ? version.substr(0, 12) : version;
}

std::string onOff(bool value) { return value ? "on" : "off"; }

std::string localTime(std::int64_t seconds) {
    const std::time_t t = static_cast<std::time_t>(seconds);
    std::tm local{};
    if (!::localtime_r(&t, &local)) return {};
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M", &local);
    return buffer;
}

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace vxcloud::cli
