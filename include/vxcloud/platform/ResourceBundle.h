#pragma once
// The component's resource bundle "VXCloud.bundle": gettext-style string catalogs keyed
// by the English text, and images by name. Located once per process, beside the library
// (build tree or install prefix share/vxcloud).
#include <optional>
#include <string>

namespace vxcloud {

class ResourceBundle {
public:
    // The component's bundle, located on first use and kept; null when none was found
    // (lookups then answer the English text and no images).
    static const ResourceBundle* vxcloud();
    // How many times the bundle was located (1 after any use); for tests.
    static int locateCount();

    explicit ResourceBundle(std::string path, std::string language = {});
    const std::string& path() const;
    // The translation of `key` (the English text) in `table` for the user's language
    // (from LC_ALL / LC_MESSAGES / LANG); `key` itself when there is none.
    std::string localizedString(const std::string& key,
                                const std::string& table = "Localizable") const;
    // Path of the image file named `name` (any of .png, .svg, .pdf), or nothing.
    std::optional<std::string> imagePath(const std::string& name) const;

    struct Catalog;

private:
    std::string path_;
    std::string language_;
};

}  // namespace vxcloud
