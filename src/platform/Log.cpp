#include "vxcloud/platform/Log.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <regex>

namespace vxcloud::log {
namespace {

std::atomic<Level> g_level{Level::warning};
std::mutex g_sinkMutex;
Sink g_sink;  // guarded by g_sinkMutex

const char* levelName(Level level) {
    switch (level) {
        case Level::debug: return "debug";
        case Level::info: return "info";
        case Level::warning: return "warning";
        case Level::error: return "error";
        case Level::off: break;
    }
    return "";
}

}  // namespace

void setLevel(Level level) { g_level.store(level); }
Level level() { return g_level.load(); }
bool enabled(Level l) { return l != Level::off && l >= g_level.load(); }

void setSink(Sink sink) {
    std::lock_guard lock(g_sinkMutex);
    g_sink = std::move(sink);
}

void write(Level l, std::string_view category, std::string_view message) {
    if (!enabled(l)) return;
    std::lock_guard lock(g_sinkMutex);
    if (g_sink) {
        g_sink(l, category, message);
        return;
    }
    std::fprintf(stderr, "vxcloud %s [%.*s] %.*s\n", levelName(l), int(category.size()),
                 category.data(), int(message.size()), message.data());
}

std::string redact(std::string_view text) {
    // Each pattern keeps the name and replaces the value: headers, query/form fields,
    // and JSON members that carry credentials.
    static const std::regex patterns[] = {
        std::regex(R"re((Bearer|OAuth|Basic)\s+[^\s",]+)re", std::regex::icase),
        std::regex(
            R"re((\b(?:access_token|refresh_token|id_token|code|code_verifier|client_secret|password|oauth_token|oauth_token_secret|oauth_verifier|oauth_signature|token)=)[^&\s"]+)re",
            std::regex::icase),
        std::regex(
            R"re(("(?:access_token|refresh_token|id_token|code_verifier|client_secret|password|oauth_token_secret)"\s*:\s*")[^"]*")re",
            std::regex::icase),
    };
    std::string out(text);
    out = std::regex_replace(out, patterns[0], "$1 [redacted]");
    out = std::regex_replace(out, patterns[1], "$1[redacted]");
    out = std::regex_replace(out, patterns[2], "$1[redacted]\"");
    return out;
}

}  // namespace vxcloud::log
