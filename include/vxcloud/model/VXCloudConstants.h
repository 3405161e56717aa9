#pragma once
// Every user-visible text of the component, and the names of the notifications it and
// its screens post. Texts are looked up by their English form in the "Localizable"
// catalog of VXCloud.bundle and fall back to the English text.
#include <span>
#include <string>
#include <string_view>

namespace vxcloud {

inline constexpr const char VXCloudAuthNotification[] = "VXCloudAuthNotification";
inline constexpr const char VXCloudAccountUnlinkedNotification[] = "VXCloudAccountUnlinkedNotification";
inline constexpr const char VXCloudAutoUploadFlagChangedNotification[] =
    "VXCloudAutoUploadFlagChangedNotification";
inline constexpr const char VXCloudSelectedUploadFolderNotification[] =
    "VXCloudSelectedUploadFolderNotification";
inline constexpr const char VXCloudUploadStatusNotification[] = "VXCloudUploadStatusNotification";

class VXCloudString {
public:
    VXCloudString() = delete;

    static std::string BACK();
    static std::string CANCEL();
    static std::string RETRY();
    static std::string OVERWRITE();
    static std::string AUTO_UPLOAD();
    static std::string UPLOAD();
    static std::string UPLOAD_ERROR();
    static std::string LOADING();
    static std::string LOADING_ACCOUNT();
    static std::string CLOUD_SERVICES();
    static std::string LINK_ACCOUNT();
    static std::string ACCOUNTS();
    static std::string ACCOUNT_NAME();
    static std::string SET_DEFAULT_UPLOAD_FOLDER();
    static std::string UPLOAD_SETTINGS();
    static std::string UNLINK_ACCOUNT();
    static std::string ONLY_WIFI_UPLOAD();
    static std::string NEW_FOLDER();
    static std::string NEW_NOTEBOOK();
    static std::string NEW_SECTION();
    static std::string NEW_COLLECTION_PLACEHOLDER();
    static std::string SELECT_DEFAULT_FOLDER();
    static std::string ADD();
    static std::string CREATE_FOLDER_ALERT();
    static std::string AUTHORIZE_ACCOUNT();
    static std::string ACCOUNT_SETTINGS();
    static std::string GENERIC_ERROR();
    static std::string LOAD_FOLDERS_ERROR();
    static std::string UNLINK_ACCOUNT_ERROR();
    static std::string SERVER_RESPONSE_ERROR();
    static std::string AUTHENTICATION_ERROR();
    static std::string ADD_ACCOUNT_ERROR();
    static std::string NEW_ACCOUNT_CONNECTION_ERROR();
    static std::string DOCUMENT_UPLOAD_FAILED_CONNECTION();
    static std::string DOCUMENT_UPLOAD_CONFLICT_ERROR();
    static std::string DOCUMENT_ERROR_FILE_UPLOAD();
    static std::string DOCUMENT_ERROR_FOLDER();
    static std::string DOCUMENT_RENAME_ERROR();
    static std::string STORAGE_QUOTA_REACHED();
    static std::string MAX_ACCOUNTS_FOR_SERVICE_ERROR();
    static std::string ONENOTE_AUTOUPLOAD_INFO();
    static std::string NOTEBOOKS();
    static std::string SECTIONS();

    // The catalog's entries in declaration order: the key's name, its English text
    // (the lookup key) and the note for translators.
    struct Entry {
        std::string_view name;
        std::string_view english;
        std::string_view comment;
    };
    static std::span<const Entry> entries();

    // The localised form of an English text, or the text itself.
    static std::string localized(std::string_view english);
};

}  // namespace vxcloud
