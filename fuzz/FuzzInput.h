#pragma once
// A fuzz input split the way every target here reads it: a few leading bytes choose what to
// do with it (which reader, which HTTP status), the rest is what a server or a file sent.
// An exhausted input reads as zero bytes, so every input is usable.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace vxcloud::fuzz {

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : text_(reinterpret_cast<const char*>(data), size) {}

    // The next byte, or 0 past the end.
    std::uint8_t byte() {
        if (text_.empty()) return 0;
        const auto value = static_cast<std::uint8_t>(text_.front());
        text_.remove_prefix(1);
        return value;
    }
    // Everything not taken yet.
    std::string_view rest() const { return text_; }

private:
    std::string_view text_;
};

}  // namespace vxcloud::fuzz

// A property every input must keep; a violation aborts, which libFuzzer records as a crash
// with the input that caused it.
#define FUZZ_CHECK(condition)                                                                \
    do {                                                                                     \
        if (!(condition)) {                                                                  \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                    \
        }                                                                                    \
    } while (0)
