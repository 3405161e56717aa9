#include "platform/AtomicFile.h"
#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "vxcloud/platform/Log.h"

namespace vxcloud::detail {
namespace {

std::string errnoText(int err) { return std::strerror(err); }

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }
    // Closes and reports the close error (which is where delayed write errors surface).
    int close() {
        int result = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = -1;
        return result;
    }

private:
    int fd_;
};

int openRetrying(const char* path, int flags, mode_t mode = 0) {
    int fd;
    do {
        fd = ::open(path, flags, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Identity of one version of the file, so one corrupt file is reported once.
struct FileId {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    long mtimeSec = 0;
    long mtimeNsec = 0;
    friend bool operator==(const FileId&, const FileId&) = default;
};

struct RawFile {
    bool exists = false;
    int error = 0;  // set when the file exists but could not be read
    std::string bytes;
    FileId id;
};

RawFile readRaw(const std::string& path) {
    RawFile raw;
    Fd fd(openRetrying(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        if (errno != ENOENT && errno != ENOTDIR) {
            raw.exists = true;
            raw.error = errno;
        }
        return raw;
    }
    raw.exists = true;
    struct stat st{};
    if (::fstat(fd.get(), &st) != 0) {
        raw.error = errno;
        return raw;
    }
    raw.id = {st.st_dev, st.st_ino, st.st_size, static_cast<long>(st.st_mtim.tv_sec),
              static_cast<long>(st.st_mtim.tv_nsec)};
    if (S_ISDIR(st.st_mode)) {
        raw.error = EISDIR;
        return raw;
    }
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            raw.error = errno;
            raw.bytes.clear();
            return raw;
        }
        if (n == 0) break;
        raw.bytes.append(buffer, static_cast<std::size_t>(n));
    }
    return raw;
}

bool onlyWhitespace(const std::string& text) {
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

std::string folderOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

// mkdir -p; only the last component gets `mode` (the others the usual 0777 & umask).
int makeFolders(const std::string& folder, mode_t mode) {
    struct stat st{};
    if (::stat(folder.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
    for (std::size_t pos = folder.find('/', 1); pos != std::string::npos;
         pos = folder.find('/', pos + 1)) {
        std::string part = folder.substr(0, pos);
        if (::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) return errno;
    }
    if (::mkdir(folder.c_str(), mode) != 0 && errno != EEXIST) return errno;
    if (::stat(folder.c_str(), &st) != 0) return errno;
    return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

std::string utcStamp() {
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&now, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &tm);
    return text;
}

// Renames `path` to "<path>.corrupt-<stamp>[-n]" without replacing an earlier one.
// Called with the writer lock held.
std::optional<std::string> moveAside(const std::string& path, int& error) {
    const std::string base = path + ".corrupt-" + utcStamp();
    for (int n = 1; n < 1000; ++n) {
        std::string candidate = n == 1 ? base : base + "-" + std::to_string(n);
        if (::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, candidate.c_str(), RENAME_NOREPLACE) ==
            0) {
            return candidate;
        }
        if (errno == EEXIST) continue;
        if (errno == EINVAL || errno == ENOSYS) {
            // File system without RENAME_NOREPLACE; we hold the lock, so check-then-rename
            // only races with programs that ignore it.
            struct stat st{};
            if (::lstat(candidate.c_str(), &st) == 0) continue;
            if (::rename(path.c_str(), candidate.c_str()) == 0) return candidate;
        }
        error = errno;
        return std::nullopt;
    }
    error = EEXIST;
    return std::nullopt;
}

bool writeAll(int fd, const std::string& text) {
    const char* data = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        ssize_t n = ::write(fd, data, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        left -= static_cast<std::size_t>(n);
    }
    return true;
}

// A symlinked document (dotfile managers) is replaced at its target, keeping the link.
std::string writeTarget(const std::string& path) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        char resolved[PATH_MAX];
        if (::realpath(path.c_str(), resolved)) return resolved;
    }
    return path;
}

// Empty string on success, else what went wrong.
std::string replaceAtomically(const std::string& path, const Json& document, mode_t mode) {
    std::string text;
    try {
        text = document.dump(2);
    } catch (const std::exception& e) {
        return std::string("cannot serialise the document: ") + e.what();
    }
    text += '\n';

    const std::string target = writeTarget(path);
    std::string temp = target + ".tmp-XXXXXX";
    Fd fd(::mkostemp(temp.data(), O_CLOEXEC));
    if (!fd.valid()) return "cannot create a temporary file beside it: " + errnoText(errno);
    auto fail = [&](const std::string& what) {
        int err = errno;
        fd.reset();
        ::unlink(temp.c_str());
        return what + ": " + errnoText(err);
    };
    if (::fchmod(fd.get(), mode) != 0) return fail("cannot set the file mode");
    if (!writeAll(fd.get(), text)) return fail("cannot write");
    if (::fsync(fd.get()) != 0) return fail("cannot flush to disk");
    if (fd.close() != 0) {
        int err = errno;
        ::unlink(temp.c_str());
        return "cannot write: " + errnoText(err);
    }
    if (::rename(temp.c_str(), target.c_str()) != 0) {
        int err = errno;
        ::unlink(temp.c_str());
        return "cannot replace the file: " + errnoText(err);
    }
    // Make the rename itself durable. The new document is in place either way.
    Fd folder(openRetrying(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.valid() && ::fsync(folder.get()) != 0 && errno != EINVAL) {
        log::warning("storage", "cannot flush folder of " + target + ": " + errnoText(errno));
    }
    return {};
}

}  // namespace

struct AtomicJsonFile::Impl {
    std::string path;
    AtomicJsonFileOptions options;

    std::mutex writeMutex;  // serialises this process's writers; the flock does the rest

    std::mutex stateMutex;
    std::optional<std::string> report;
    std::optional<FileId> reportedCorruptFile;
    std::string reportedReadProblem;

    std::optional<Json> parse(const std::string& bytes) const {
        if (onlyWhitespace(bytes)) return Json::object();
        try {
            Json doc = Json::parse(bytes, nullptr, /*allow_exceptions=*/false);
            if (doc.is_discarded() || !doc.is_object()) return std::nullopt;
            if (options.isValid && !options.isValid(doc)) return std::nullopt;
            return doc;
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }

    void readProblem(int error) {
        std::string message = "cannot read the " + options.description + " " + path + ": " +
                              errnoText(error);
        {
            std::lock_guard lock(stateMutex);
            if (message == reportedReadProblem) return;
            reportedReadProblem = message;
        }
        log::warning(options.logCategory, message);
    }

    void readFine() {
        std::lock_guard lock(stateMutex);
        reportedReadProblem.clear();
    }

    void corruption(const FileId& id, const std::string& message) {
        {
            std::lock_guard lock(stateMutex);
            if (reportedCorruptFile == id) return;
            reportedCorruptFile = id;
            if (!report) report = message;
        }
        log::warning(options.logCategory, message);
    }

    struct Loaded {
        std::optional<Json> document;  // nothing: unreadable
        bool corruptInPlace = false;   // corrupt and could not be moved aside
    };

    // Reads the document; a corrupt one is moved aside when `locked` (we hold the
    // writer locks, so it is still the file we judged corrupt).
    Loaded load(bool locked) {
        RawFile raw = readRaw(path);
        if (!raw.exists) return {Json::object(), false};
        if (raw.error != 0) {
            readProblem(raw.error);
            return {};
        }
        readFine();
        if (auto doc = parse(raw.bytes)) return {std::move(doc), false};

        const std::string what = "The " + options.description + " " + path +
                                 " is not valid JSON of the expected shape";
        if (!locked) {
            corruption(raw.id, what + "; it is left in place and ignored.");
            return {Json::object(), true};
        }
        int error = 0;
        if (auto aside = moveAside(path, error)) {
            corruption(raw.id, what + "; it was moved to " + *aside + " and the store starts empty.");
            return {Json::object(), false};
        }
        corruption(raw.id, what + " and cannot be moved aside (" + errnoText(error) +
                               "); it is left in place and ignored.");
        return {Json::object(), true};
    }

    std::string lockPath() const { return path + ".lock"; }
};

AtomicJsonFile::AtomicJsonFile(std::string path, AtomicJsonFileOptions options)
    : impl_(std::make_unique<Impl>()) {
    impl_->path = std::move(path);
    impl_->options = std::move(options);
}

AtomicJsonFile::~AtomicJsonFile() = default;

const std::string& AtomicJsonFile::path() const { return impl_->path; }

std::optional<Json> AtomicJsonFile::read() const {
    try {
        RawFile raw = readRaw(impl_->path);
        if (!raw.exists) return Json::object();
        if (raw.error != 0) {
            impl_->readProblem(raw.error);
            return std::nullopt;
        }
        if (auto doc = impl_->parse(raw.bytes)) {
            impl_->readFine();
            return doc;
        }
        // Settle the corrupt file under the writer locks, so that a writer that has
        // just replaced it is never undone.
        std::lock_guard guard(impl_->writeMutex);
        FileLock lock;
        bool locked = lock.acquire(impl_->lockPath(), impl_->options.fileMode) == 0;
        return impl_->load(locked).document;
    } catch (const std::exception& e) {
        log::warning(impl_->options.logCategory,
                     "cannot read the " + impl_->options.description + ": " + e.what());
        return std::nullopt;
    }
}

bool AtomicJsonFile::update(const std::function<bool(Json&)>& change) {
    Impl& d = *impl_;
    const std::string& category = d.options.logCategory;
    const std::string prefix = "cannot change the " + d.options.description + " " + d.path + ": ";
    try {
        std::lock_guard guard(d.writeMutex);
        if (int err = makeFolders(folderOf(d.path), d.options.folderMode)) {
            log::warning(category, prefix + "cannot create its folder: " + errnoText(err));
            return false;
        }
        FileLock lock;
        if (int err = lock.acquire(d.lockPath(), d.options.fileMode)) {
            log::warning(category, prefix + "cannot lock it: " + errnoText(err));
            return false;
        }
        Impl::Loaded loaded = d.load(true);
        if (!loaded.document || loaded.corruptInPlace) {
            log::warning(category, prefix + "the current content cannot be read");
            return false;
        }
        Json document = std::move(*loaded.document);
        bool changed = false;
        try {
            changed = change(document);
        } catch (const std::exception& e) {
            log::warning(category, prefix + "the change failed: " + e.what());
            return false;
        } catch (...) {
            log::warning(category, prefix + "the change failed");
            return false;
        }
        if (!changed) return true;
        std::string error = replaceAtomically(d.path, document, d.options.fileMode);
        if (!error.empty()) {
            log::warning(category, prefix + error);
            return false;
        }
        return true;
    } catch (const std::exception& e) {
        log::warning(category, prefix + e.what());
        return false;
    }
}

std::optional<std::string> AtomicJsonFile::takeCorruptionReport() {
    std::lock_guard lock(impl_->stateMutex);
    return std::exchange(impl_->report, std::nullopt);
}

}  // namespace vxcloud::detail
