// The secure store as one owner-only JSON file:
//
//   {"version": 1, "items": [{"class": "oauth-token", "type": 1, "account": "a@b.c",
//                             "service": "", "data": "<base64>"}, ...]}
//
// Items keep their insertion order. The secret is base64 so that any bytes survive the
// JSON text; it is encoding, not protection: the protection is the file's mode 0600 in
// a folder this creates with mode 0700. Entries this version cannot read are skipped
// by lookups and kept in the file.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/AtomicFile.h"
#include "platform/SecureStoreBackends.h"

namespace vxcloud::detail {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Encode(const std::string& bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        unsigned v = (static_cast<unsigned char>(bytes[i]) << 16) |
                     (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                     static_cast<unsigned char>(bytes[i + 2]);
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += kAlphabet[(v >> 6) & 63];
        out += kAlphabet[v & 63];
    }
    if (std::size_t rest = bytes.size() - i) {
        unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
        if (rest == 2) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::optional<std::string> base64Decode(const std::string& text) {
    static const std::array<int, 256> values = [] {
        std::array<int, 256> table{};
        table.fill(-1);
        for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = i;
        return table;
    }();
    if (text.size() % 4 != 0) return std::nullopt;
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        int pad = 0;
        unsigned v = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            char c = text[i + j];
            int value = 0;
            if (c == '=' && last && j >= 2) {
                ++pad;
            } else {
                if (pad > 0) return std::nullopt;  // data after padding
                value = values[static_cast<unsigned char>(c)];
                if (value < 0) return std::nullopt;
            }
            v = (v << 6) | static_cast<unsigned>(value);
        }
        out += static_cast<char>((v >> 16) & 0xff);
        if (pad < 2) out += static_cast<char>((v >> 8) & 0xff);
        if (pad < 1) out += static_cast<char>(v & 0xff);
    }
    return out;
}

Json toJson(const SecureItem& item) {
    Json entry = {{"class", item.key.itemClass},
                  {"type", item.key.type},
                  {"account", item.key.account},
                  {"service", item.key.service}};
    if (item.data) entry["data"] = base64Encode(*item.data);
    return entry;
}

std::optional<SecureItemKey> keyOf(const Json& entry) {
    if (!entry.is_object()) return std::nullopt;
    auto text = [&](const char* name) -> const std::string* {
        auto it = entry.find(name);
        return it != entry.end() && it->is_string() ? it->get_ptr<const std::string*>() : nullptr;
    };
    const std::string* itemClass = text("class");
    const std::string* account = text("account");
    const std::string* service = text("service");
    auto type = entry.find("type");
    if (!itemClass || !account || !service || type == entry.end() ||
        !type->is_number_integer()) {
        return std::nullopt;
    }
    auto typeValue = type->get<long long>();
    if (typeValue < INT_MIN || typeValue > INT_MAX) return std::nullopt;
    return SecureItemKey{*itemClass, static_cast<int>(typeValue), *account, *service};
}

// The item an entry holds; nothing for entries this version cannot read.
std::optional<SecureItem> itemOf(const Json& entry) {
    auto key = keyOf(entry);
    if (!key) return std::nullopt;
    SecureItem item{std::move(*key), std::nullopt};
    auto data = entry.find("data");
    if (data != entry.end()) {
        if (!data->is_string()) return std::nullopt;
        item.data = base64Decode(data->get<std::string>());
        if (!item.data) return std::nullopt;
    }
    return item;
}

Json& itemsOf(Json& document) {
    document["version"] = 1;
    Json& items = document["items"];
    if (!items.is_array()) items = Json::array();
    return items;
}

class FileSecureStore final : public SecureStore {
public:
    // Beside the file, so stores in different places never share locks.
    std::string lockFolder() const override { return file_.path() + ".locks"; }

    explicit FileSecureStore(std::string path)
        : file_(std::move(path),
                {.logCategory = "secure-store",
                 .description = "secure store file",
                 .fileMode = 0600,
                 .folderMode = 0700,
                 .isValid = [](const Json& doc) {
                     auto items = doc.find("items");
                     return items == doc.end() || items->is_array();
                 }}) {
        // A file left readable by others (copied in, restored from a backup) is closed
        // now rather than at the next write.
        struct stat st{};
        const std::string& p = file_.path();
        if (::stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::geteuid() &&
            (st.st_mode & 077) != 0) {
            ::chmod(p.c_str(), st.st_mode & 0700);
        }
    }

    SecureStatus add(const SecureItem& item) override {
        SecureStatus status = SecureStatus::success;
        bool written = file_.update([&](Json& document) {
            Json& items = itemsOf(document);
            for (const Json& entry : items) {
                if (keyOf(entry) == item.key) {
                    status = SecureStatus::duplicateItem;
                    return false;
                }
            }
            items.push_back(toJson(item));
            return true;
        });
        return written ? status : SecureStatus::failure;
    }

    SecureStatus put(const SecureItem& item) override {
        bool written = file_.update([&](Json& document) {
            Json& items = itemsOf(document);
            for (Json& entry : items) {
                if (keyOf(entry) == item.key) {
                    entry = toJson(item);
                    return true;
                }
            }
            items.push_back(toJson(item));
            return true;
        });
        return written ? SecureStatus::success : SecureStatus::failure;
    }

    std::vector<SecureItem> find(const SecureQuery& query) const override {
        std::vector<SecureItem> found;
        std::optional<Json> document = file_.read();
        if (!document) return found;
        auto items = document->find("items");
        if (items == document->end() || !items->is_array()) return found;
        for (const Json& entry : *items) {
            auto item = itemOf(entry);
            if (!item || !queryMatches(query, item->key)) continue;
            found.push_back(std::move(*item));
            if (query.limit != 0 && found.size() >= query.limit) break;
        }
        return found;
    }

    SecureStatus remove(const SecureItemKey& key) override {
        SecureStatus status = SecureStatus::itemNotFound;
        bool written = file_.update([&](Json& document) {
            auto items = document.find("items");
            if (items == document.end() || !items->is_array()) return false;
            for (auto it = items->begin(); it != items->end();) {
                if (keyOf(*it) == key) {
                    it = items->erase(it);
                    status = SecureStatus::success;
                } else {
                    ++it;
                }
            }
            return status == SecureStatus::success;
        });
        return written ? status : SecureStatus::failure;
    }

private:
    AtomicJsonFile file_;
};

}  // namespace

std::shared_ptr<SecureStore> makeFileSecureStore(std::string path) {
    return std::make_shared<FileSecureStore>(std::move(path));
}

}  // namespace vxcloud::detail
