#include "vxcloud/platform/ResourceBundle.h"

#include <dlfcn.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "vxcloud/platform/Log.h"

#ifndef VXCLOUD_BUNDLE_BUILD_DIR
#define VXCLOUD_BUNDLE_BUILD_DIR ""
#endif

namespace vxcloud {

// One gettext catalog: English text -> translation, for the entries that have one.
struct ResourceBundle::Catalog {
    std::unordered_map<std::string, std::string> strings;
};

namespace {

constexpr const char* kBundleName = "VXCloud.bundle";

bool isDirectory(const std::string& path) {
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isFile(const std::string& path) {
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// A name used as one path component: no separators, no way out of the folder.
bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

// --- PO parsing -------------------------------------------------------------------

// Parses the C-style string literal at the start of `text` (after optional blanks);
// false when there is none or it is not closed.
bool parseQuoted(std::string_view text, std::string& out) {
    std::size_t i = text.find_first_not_of(" \t");
    if (i == std::string_view::npos || text[i] != '"') return false;
    for (++i; i < text.size(); ++i) {
        char c = text[i];
        if (c == '"') return text.find_first_not_of(" \t\r", i + 1) == std::string_view::npos;
        if (c != '\\') {
            out += c;
            continue;
        }
        if (++i == text.size()) return false;
        switch (char e = text[i]) {
            case 'n': out += '\n'; break;
            case 't': out += '\t'; break;
            case 'r': out += '\r'; break;
            case 'a': out += '\a'; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case 'v': out += '\v'; break;
            case '0': case '1': case '2': case '3': case '4': case '5': case '6': case '7': {
                int value = 0;
                for (int n = 0; n < 3 && i < text.size() && text[i] >= '0' && text[i] <= '7'; ++n, ++i) {
                    value = value * 8 + (text[i] - '0');
                }
                --i;
                out += static_cast<char>(value);
                break;
            }
            default: out += e; break;  // \" \\ \' \? and anything unknown: the character
        }
    }
    return false;
}

class PoParser {
public:
    explicit PoParser(ResourceBundle::Catalog& catalog) : catalog_(catalog) {}

    void line(std::string_view text) {
        std::size_t start = text.find_first_not_of(" \t\r");
        if (start == std::string_view::npos) {
            finish();
            return;
        }
        text.remove_prefix(start);
        if (text[0] == '#') {
            if (section_ == Section::msgstr) finish();  // comments start the next entry
            if (text.starts_with("#,") && text.find("fuzzy") != std::string_view::npos) fuzzy_ = true;
            return;
        }
        if (text[0] == '"') {
            std::string* target = current();
            if (!target || !parseQuoted(text, *target)) broken_ = true;
            return;
        }
        std::size_t end = text.find_first_of(" \t\"");
        std::string_view keyword = text.substr(0, end);
        std::string_view rest = end == std::string_view::npos ? "" : text.substr(end);
        if (keyword == "msgctxt" || keyword == "msgid") {
            if (section_ == Section::msgstr) finish();
            if (hasId_) broken_ = true;  // a second msgid in one entry
            hasContext_ = hasContext_ || keyword == "msgctxt";
            section_ = keyword == "msgid" ? Section::msgid : Section::context;
            if (keyword == "msgid") hasId_ = true;
        } else if (keyword == "msgid_plural") {
            section_ = Section::plural;
        } else if (keyword == "msgstr" || keyword == "msgstr[0]") {
            section_ = Section::msgstr;
            hasStr_ = true;
        } else if (keyword.starts_with("msgstr[")) {
            section_ = Section::otherForm;
        } else {
            broken_ = true;
            return;
        }
        std::string* target = current();
        std::string ignored;
        if (!parseQuoted(rest, target ? *target : ignored)) broken_ = true;
    }

    // Ends the file; returns how many entries were unreadable.
    int end() {
        finish();
        return brokenEntries_;
    }

private:
    enum class Section { none, context, msgid, plural, msgstr, otherForm };

    std::string* current() {
        switch (section_) {
            case Section::msgid: return &id_;
            case Section::msgstr: return &str_;
            case Section::context: case Section::plural: case Section::otherForm: return &ignored_;
            case Section::none: return nullptr;
        }
        return nullptr;
    }

    void finish() {
        if (section_ == Section::none && !broken_) return;
        if (broken_ || (hasId_ != hasStr_)) {
            ++brokenEntries_;
        } else if (hasId_ && !fuzzy_ && !hasContext_ && !id_.empty() && !str_.empty()) {
            catalog_.strings.emplace(std::move(id_), std::move(str_));  // first entry wins
        }
        id_.clear();
        str_.clear();
        ignored_.clear();
        hasId_ = hasStr_ = hasContext_ = fuzzy_ = broken_ = false;
        section_ = Section::none;
    }

    ResourceBundle::Catalog& catalog_;
    Section section_ = Section::none;
    std::string id_, str_, ignored_;
    bool hasId_ = false, hasStr_ = false, hasContext_ = false, fuzzy_ = false, broken_ = false;
    int brokenEntries_ = 0;
};

std::shared_ptr<const ResourceBundle::Catalog> parseCatalog(const std::string& file) {
    auto catalog = std::make_shared<ResourceBundle::Catalog>();
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        if (isFile(file)) log::warning("resources", "cannot read the catalog " + file);
        return catalog;
    }
    PoParser parser(*catalog);
    bool first = true;
    for (std::string text; std::getline(in, text); first = false) {
        if (first && text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);  // UTF-8 byte order mark
        parser.line(text);
    }
    if (int broken = parser.end()) {
        log::warning("resources", "the catalog " + file + " has " + std::to_string(broken) +
                                      " unreadable entries; they are shown in English");
    }
    return catalog;
}

// Each catalog file is parsed once per process; a missing one is remembered as empty.
std::shared_ptr<const ResourceBundle::Catalog> catalogAt(const std::string& file) {
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<const ResourceBundle::Catalog>> cache;
    std::lock_guard lock(mutex);
    auto& slot = cache[file];
    if (!slot) slot = parseCatalog(file);
    return slot;
}

// --- languages --------------------------------------------------------------------

std::string localeFromEnvironment() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value && *value) return value;
    }
    return {};
}

// "de_DE.UTF-8@euro" -> {"de_DE", "de"}; the C locale has no translations.
std::vector<std::string> languageCandidates(const std::string& locale) {
    std::string name = locale.substr(0, locale.find_first_of(".@"));
    if (name.empty() || name == "C" || name == "POSIX" || !isPlainName(name)) return {};
    std::vector<std::string> candidates{name};
    auto underscore = name.find('_');
    if (underscore != std::string::npos && underscore > 0) candidates.push_back(name.substr(0, underscore));
    return candidates;
}

// --- locating the bundle ----------------------------------------------------------

std::atomic<int> gLocateCount{0};
const char gAnchor = 0;  // an address inside whatever binary holds this code

std::string realPath(const std::string& path) {
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? std::string(resolved) : std::string();
}

// The shared object or executable this code was linked into.
std::string codeFile() {
    Dl_info info{};
    // For the main program dladdr answers argv[0], which may be relative or bare.
    if (::dladdr(&gAnchor, &info) != 0 && info.dli_fname && info.dli_fname[0] == '/') {
        std::string file = realPath(info.dli_fname);
        if (!file.empty()) return file;
    }
    return realPath("/proc/self/exe");
}

std::unique_ptr<ResourceBundle> locateBundle() {
    ++gLocateCount;
    std::vector<std::string> candidates;
    const std::string file = codeFile();
    if (!file.empty()) {
        std::filesystem::path dir = std::filesystem::path(file).parent_path();
        candidates.push_back((dir / kBundleName).string());
        candidates.push_back((dir / ".." / "share" / "vxcloud" / kBundleName).lexically_normal().string());
        // Multiarch library directories (lib/x86_64-linux-gnu) sit one level deeper.
        candidates.push_back((dir / ".." / ".." / "share" / "vxcloud" / kBundleName).lexically_normal().string());
    }
    if (*VXCLOUD_BUNDLE_BUILD_DIR) candidates.emplace_back(VXCLOUD_BUNDLE_BUILD_DIR);
    for (const std::string& candidate : candidates) {
        if (isDirectory(candidate)) {
            log::debug("resources", "resource bundle: " + candidate);
            return std::make_unique<ResourceBundle>(candidate);
        }
    }
    log::warning("resources", "no " + std::string(kBundleName) +
                                  " found beside the library; texts are shown in English");
    return nullptr;
}

}  // namespace

const ResourceBundle* ResourceBundle::vxcloud() {
    static const std::unique_ptr<ResourceBundle> bundle = locateBundle();
    return bundle.get();
}

int ResourceBundle::locateCount() { return gLocateCount.load(); }

ResourceBundle::ResourceBundle(std::string path, std::string language)
    : path_(std::move(path)),
      language_(language.empty() ? localeFromEnvironment() : std::move(language)) {}

const std::string& ResourceBundle::path() const { return path_; }

std::string ResourceBundle::localizedString(const std::string& key, const std::string& table) const {
    try {
        if (key.empty() || !isPlainName(table)) return key;
        for (const std::string& language : languageCandidates(language_)) {
            auto catalog = catalogAt(path_ + "/" + language + ".lproj/" + table + ".po");
            auto it = catalog->strings.find(key);
            if (it != catalog->strings.end()) return it->second;
        }
    } catch (const std::exception& e) {
        log::warning("resources", std::string("string lookup failed: ") + e.what());
    }
    return key;
}

std::optional<std::string> ResourceBundle::imagePath(const std::string& name) const {
    if (!isPlainName(name)) return std::nullopt;
    for (const char* extension : {".png", ".svg", ".pdf"}) {
        std::string file = path_ + "/images/" + name + extension;
        if (isFile(file)) return file;
    }
    return std::nullopt;
}

}  // namespace vxcloud
