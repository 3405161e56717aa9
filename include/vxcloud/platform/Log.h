#pragma once
// Minimal logging: quiet by default; the host raises the level (vxcloud -v) or
// installs its own sink. Never pass tokens or secrets to it.
#include <functional>
#include <string>
#include <string_view>

namespace vxcloud::log {

enum class Level { debug = 0, info = 1, warning = 2, error = 3, off = 4 };

using Sink = std::function<void(Level, std::string_view category, std::string_view message)>;

void setLevel(Level level);
Level level();
// Replaces the sink (default: stderr). Pass nullptr to restore the default.
void setSink(Sink sink);
bool enabled(Level level);
void write(Level level, std::string_view category, std::string_view message);

inline void debug(std::string_view c, std::string_view m) { write(Level::debug, c, m); }
inline void info(std::string_view c, std::string_view m) { write(Level::info, c, m); }
inline void warning(std::string_view c, std::string_view m) { write(Level::warning, c, m); }
inline void error(std::string_view c, std::string_view m) { write(Level::error, c, m); }

// Replaces bearer tokens, access/refresh tokens, codes and secrets in a text
// (headers, URLs, form bodies, JSON) with "[redacted]".
std::string redact(std::string_view text);

}  // namespace vxcloud::log
