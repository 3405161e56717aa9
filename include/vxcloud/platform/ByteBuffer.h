#pragma once
// One immutable, shared byte buffer: a document sent to six accounts is held once,
// in memory or as a read-only mapping of its file, and never copied per request.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vxcloud {

class ByteBuffer {
public:
    ByteBuffer() noexcept;  // empty

    static ByteBuffer copyOf(std::string_view bytes);
    static ByteBuffer copyOf(std::span<const std::uint8_t> bytes);
    static ByteBuffer adopt(std::vector<std::uint8_t>&& bytes);
    static ByteBuffer adopt(std::string&& bytes);
    // Maps the file read-only (an empty file gives an empty buffer). On failure returns
    // nothing and, when `error` is given, a readable reason ("No such file or directory").
    static std::optional<ByteBuffer> mapFile(const std::string& path, std::string* error = nullptr);

    const std::uint8_t* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::span<const std::uint8_t> span() const noexcept { return {data_, size_}; }
    std::string_view view() const noexcept {
        return {reinterpret_cast<const char*>(data_), size_};
    }
    std::string toString() const { return std::string(view()); }
    // A view of part of the buffer that shares (and keeps alive) the same storage.
    ByteBuffer slice(std::size_t offset, std::size_t length) const;
    // Whether the bytes come from a file mapping rather than heap memory.
    bool isMapped() const noexcept;
    // Copies `length` bytes from `offset` of this buffer into `out`. For a mapped buffer
    // they are read from the file, which costs less than faulting the mapping's pages in
    // when every byte is read once in order (hashing). False when the range is outside the
    // buffer or the read fails.
    bool copyOut(std::size_t offset, std::size_t length, std::uint8_t* out) const;

    friend bool operator==(const ByteBuffer& a, const ByteBuffer& b) noexcept {
        return a.view() == b.view();
    }

    struct Storage;

private:
    std::shared_ptr<const Storage> storage_;
    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace vxcloud
