#include "vxcloud/model/VXCloudFile.h"

#include <nlohmann/json.hpp>

namespace vxcloud {
namespace {

std::optional<std::string> stringValue(const JsonBox& dictionary, const char* key) {
    if (!dictionary || !dictionary->is_object()) return std::nullopt;
    auto it = dictionary->find(key);
    if (it != dictionary->end() && it->is_string()) return it->get<std::string>();
    return std::nullopt;
}

}  // namespace

VXCloudFile::VXCloudFile(std::string name, bool isFolder, bool isRootFolder)
    : name(std::move(name)), isFolder(isFolder), isRootFolder(isRootFolder) {}

VXCloudFile::~VXCloudFile() = default;

std::shared_ptr<VXCloudFile> initUploadFolderFromDictionary(const JsonBox& dictionary) {
    try {
        auto id = stringValue(dictionary, VXCloudFile::kUploadFolderIdKey);
        auto name = stringValue(dictionary, VXCloudFile::kUploadFolderNameKey);
        auto path = stringValue(dictionary, VXCloudFile::kUploadFolderPathKey);
        if (!id || !name || !path) return nullptr;
        auto folder = std::make_shared<VXCloudFile>(std::move(*name), true, false);
        folder->id = std::move(id);
        folder->path = std::move(path);
        return folder;
    } catch (...) {
        return nullptr;
    }
}

std::shared_ptr<VXCloudFile> VXCloudFile::initWithUploadFolderInfo(const JsonBox& uploadFolderInfo) {
    return initUploadFolderFromDictionary(uploadFolderInfo);
}

std::string VXCloudFile::getNameFromUploadStatus() const {
    return stringValue(fileUploadStatus, "documentId").value_or(name);
}

std::optional<std::string> VXCloudFile::getVersionFromUploadStatus() const {
    return stringValue(fileUploadStatus, "version");
}

}  // namespace vxcloud
