#pragma once
// The record of a document, folder, notebook or section on any service, passed between
// the engine, the sessions and the screens.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud/platform/Json.h"

namespace vxcloud {

// Each provider's item view. Private to the library: only the provider constructors below
// name them.
namespace dropbox { struct Metadata; }
namespace drive { struct File; }
namespace onedrive { struct Item; }
namespace box { struct Item; }
namespace evernote { struct Item; }

class VXCloudFile {
public:
    // Keys of the upload-folder info dictionary (an account's uploadFolderInfo).
    static constexpr const char* kUploadFolderIdKey = "uploadFolderId";
    static constexpr const char* kUploadFolderNameKey = "uploadFolderName";
    static constexpr const char* kUploadFolderPathKey = "uploadFolderPath";

    // Every optional field starts empty.
    VXCloudFile(std::string name, bool isFolder, bool isRootFolder);
    VXCloudFile() = delete;
    virtual ~VXCloudFile();

    // The upload folder named by an upload-folder info dictionary: nothing when it is
    // absent or any of its three keys is missing or not a string.
    static std::shared_ptr<VXCloudFile> initWithUploadFolderInfo(const JsonBox& uploadFolderInfo);

    // The file record of a Dropbox item: name, id, display path, and for files the content
    // hash as version. A deleted entry stands for nothing stored and makes no record.
    static std::shared_ptr<VXCloudFile> initWithMetadata(const dropbox::Metadata& metadata);
    // The file record of a Drive file: a folder exactly when its MIME type is the Drive folder
    // type; the MD5 checksum is the version. A file in the trash makes no record.
    static std::shared_ptr<VXCloudFile> initWithFile(const drive::File& file);
    // The file record of a OneDrive item: a folder when it has a folder facet; for files the
    // reported SHA-1 as version, or the QuickXorHash on drives that report no SHA-1.
    static std::shared_ptr<VXCloudFile> initWithOneDriveItem(const onedrive::Item& item);
    // The file record of a Box item: a folder when it is one; for files the SHA-1 as
    // version; the parent folder's id in parentIds.
    static std::shared_ptr<VXCloudFile> initWithBoxItem(const box::Item& item);
    // The file record of an Evernote notebook (a folder) or note: for a note, the MD5 of its
    // first attachment as version, in lower-case hex; anything else makes no record.
    static std::shared_ptr<VXCloudFile> initWithEvernoteItem(const evernote::Item& item);

    // "documentId" of fileUploadStatus when it is a string, else name.
    std::string getNameFromUploadStatus() const;
    // "version" of fileUploadStatus when it is a string.
    std::optional<std::string> getVersionFromUploadStatus() const;

    std::string name;
    bool isFolder;
    bool isRootFolder;
    std::optional<std::string> id;
    std::optional<std::string> path;
    std::optional<std::string> mimeType;
    std::optional<bool> needsUpdate;
    std::optional<bool> needsRenameUpdate;
    std::optional<std::string> error;  // the error code's string form of the last failure
    std::optional<std::string> status;
    std::optional<std::string> version;       // remote content fingerprint
    std::optional<std::string> localVersion;  // local content fingerprint
    std::optional<std::vector<std::string>> parentIds;
    std::optional<std::string> parentPath;
    std::optional<ByteBuffer> fileData;
    JsonBox fileUploadStatus;  // this document's upload status record for one account
    std::shared_ptr<VXCloudFile> uploadFolder;
    JsonBox fileIdentifier;  // the host's own handle, passed through untouched
    std::optional<bool> isOneNoteNotebook;
    // After an upload: whether the document's bytes were sent (false: its content was found
    // stored already); empty when the session does not say.
    std::optional<bool> contentSent;
};

// The shared builder behind VXCloudFile::initWithUploadFolderInfo.
std::shared_ptr<VXCloudFile> initUploadFolderFromDictionary(const JsonBox& dictionary);

}  // namespace vxcloud
