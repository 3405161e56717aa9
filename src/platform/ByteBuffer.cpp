#include "vxcloud/platform/ByteBuffer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vxcloud {

// Owns the bytes: heap memory or a read-only file mapping.
struct ByteBuffer::Storage {
    std::vector<std::uint8_t> heap;
    std::string text;
    void* map = nullptr;
    std::size_t mapSize = 0;
    int fd = -1;  // the mapped file, kept open for reads that bypass the mapping

    Storage() = default;
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;
    ~Storage() {
        if (map) ::munmap(map, mapSize);
        if (fd >= 0) ::close(fd);
    }
};

ByteBuffer::ByteBuffer() noexcept = default;

ByteBuffer ByteBuffer::copyOf(std::string_view bytes) { return adopt(std::string(bytes)); }

ByteBuffer ByteBuffer::copyOf(std::span<const std::uint8_t> bytes) {
    return adopt(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

ByteBuffer ByteBuffer::adopt(std::vector<std::uint8_t>&& bytes) {
    auto storage = std::make_shared<Storage>();
    storage->heap = std::move(bytes);
    ByteBuffer b;
    b.data_ = storage->heap.data();
    b.size_ = storage->heap.size();
    b.storage_ = std::move(storage);
    return b;
}

ByteBuffer ByteBuffer::adopt(std::string&& bytes) {
    auto storage = std::make_shared<Storage>();
    storage->text = std::move(bytes);
    ByteBuffer b;
    b.data_ = reinterpret_cast<const std::uint8_t*>(storage->text.data());
    b.size_ = storage->text.size();
    b.storage_ = std::move(storage);
    return b;
}

std::optional<ByteBuffer> ByteBuffer::mapFile(const std::string& path, std::string* error) {
    auto fail = [&](int err) -> std::optional<ByteBuffer> {
        if (error) *error = std::strerror(err);
        return std::nullopt;
    };
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return fail(errno);
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        int err = errno;
        ::close(fd);
        return fail(err);
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        return fail(S_ISDIR(st.st_mode) ? EISDIR : EINVAL);
    }
    if (st.st_size == 0) {
        ::close(fd);
        return ByteBuffer();
    }
    const auto size = static_cast<std::size_t>(st.st_size);
    void* map = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    int err = errno;
    if (map == MAP_FAILED) {
        ::close(fd);
        return fail(err);
    }
    ::madvise(map, size, MADV_SEQUENTIAL);
    auto storage = std::make_shared<Storage>();
    storage->map = map;
    storage->mapSize = size;
    storage->fd = fd;
    ByteBuffer b;
    b.data_ = static_cast<const std::uint8_t*>(map);
    b.size_ = size;
    b.storage_ = std::move(storage);
    return b;
}

ByteBuffer ByteBuffer::slice(std::size_t offset, std::size_t length) const {
    ByteBuffer b;
    if (offset >= size_) return b;
    b.storage_ = storage_;
    b.data_ = data_ + offset;
    b.size_ = std::min(length, size_ - offset);
    return b;
}

bool ByteBuffer::isMapped() const noexcept { return storage_ && storage_->map != nullptr; }

bool ByteBuffer::copyOut(std::size_t offset, std::size_t length, std::uint8_t* out) const {
    if (offset > size_ || length > size_ - offset) return false;
    if (!isMapped() || storage_->fd < 0) {
        if (length > 0) std::memcpy(out, data_ + offset, length);
        return true;
    }
    auto fileOffset = static_cast<off_t>(data_ - static_cast<const std::uint8_t*>(storage_->map) + offset);
    while (length > 0) {
        const ssize_t got = ::pread(storage_->fd, out, length, fileOffset);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;  // an error, or the file shrank under the mapping
        out += got;
        length -= static_cast<std::size_t>(got);
        fileOffset += got;
    }
    return true;
}

}  // namespace vxcloud
