#pragma once
// What the host prints: aligned tables, JSON for scripts, messages on stderr.
#include <cstdint>
#include <string>
#include <vector>

#include "vxcloud/platform/Json.h"

namespace vxcloud::cli {

bool stdoutIsTerminal();
bool stdinIsTerminal();
// Columns of the terminal on stdout (80 when unknown).
int terminalWidth();

// The text with control characters escaped ("\n", "\t", "\x07", "\u009b") and bytes that
// are not UTF-8 as "\xff": a name from a person or a service never breaks a line, a table or
// the terminal's state.
std::string printable(const std::string& text);

// Printed characters of a UTF-8 text (code points; good enough for Latin names).
std::size_t displayWidth(const std::string& text);
// Cuts a text to `width` printed characters, ending in "…" when cut.
std::string fitWidth(const std::string& text, std::size_t width);

class Table {
public:
    explicit Table(std::vector<std::string> headers);
    // Control characters in the cells are shown escaped (printable).
    void add(std::vector<std::string> row);
    bool empty() const { return rows_.empty(); }
    // Columns padded to their widest cell; the last column is not padded.
    std::string render(const std::string& indent = "") const;

private:
    std::vector<std::string> headers_;
    std::vector<std::vector<std::string>> rows_;
};

// One line on stdout / a "vxcloud: ..." line on stderr.
void say(const std::string& line = {});
void warn(const std::string& message);
void printJson(const Json& value);
// One JSON value on one line (a stream of them is JSON lines).
void printJsonLine(const Json& value);

std::string humanBytes(std::int64_t bytes);
// A content hash or revision shortened for tables.
std::string shortVersion(const std::string& version);
std::string onOff(bool value);
// Local time "2024-05-01 14:03" of seconds since the epoch.
std::string localTime(std::int64_t seconds);
std::int64_t nowSeconds();

}  // namespace vxcloud::cli
