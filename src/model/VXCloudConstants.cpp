#include "vxcloud/model/VXCloudConstants.h"

#include <array>

#include "vxcloud/platform/ResourceBundle.h"

namespace vxcloud {

// name, English text (the catalog key), note for translators. The texts are the product's
// own wording: "Quillo" and "Quillo Pro" are both intended, and so is GENERIC_ERROR's
// missing full stop. The catalog template resources/VXCloud.bundle/Localizable.pot carries
// the same entries.
#define VXCLOUD_STRINGS(X) \
    X(BACK, "Back", \
      "Barbutton title, button allowing the user to go back in the navigation stack") \
    X(CANCEL, "Cancel", \
      "Button to stop current task.") \
    X(RETRY, "Retry", \
      "Button to retry current task.") \
    X(OVERWRITE, "Overwrite", \
      "Button to retry upload or rename, but overwrite remote if there is a conflict.") \
    X(AUTO_UPLOAD, "Auto Upload", \
      "Title for row to navigate to setup auto upload.") \
    X(UPLOAD, "Upload", \
      "Title for button to upload file.") \
    X(UPLOAD_ERROR, "Upload Error", \
      "Alert title indicating the upload was unsuccessful.") \
    X(LOADING, "Loading", \
      "text that pops up while a connection to a cloud storage provider loads") \
    X(LOADING_ACCOUNT, "Retrieving Account Information", \
      "text that pops up while we are connecting user's account to our app.") \
    X(CLOUD_SERVICES, "Cloud Services", \
      "Title of screen of all the cloud providers we support.") \
    X(LINK_ACCOUNT, "Link New Account", \
      "Button user presses to connect a new cloud account to our app.") \
    X(ACCOUNTS, "Accounts", \
      "Header title for account section.") \
    X(ACCOUNT_NAME, "Account Name", \
      "Header title for text field row where user can change their cloud account's name.") \
    X(SET_DEFAULT_UPLOAD_FOLDER, "Please set an automatic upload folder.", \
      "Error title for row indicating upload folder was not set.") \
    X(UPLOAD_SETTINGS, "Upload Settings", \
      "Header title for label row where user can change settings for auto-upload.") \
    X(UNLINK_ACCOUNT, "Unlink Account", \
      "Button user presses to remove an existing cloud account.") \
    X(ONLY_WIFI_UPLOAD, "Only auto-upload on Wi-Fi", \
      "Title for row where user can enable/disable cloud auto-upload depending on network reachability.") \
    X(NEW_FOLDER, "New Folder", \
      "Title for an alert user gets to enter name for their folder.") \
    X(NEW_NOTEBOOK, "New Notebook", \
      "Title for adding a new notebook collection.") \
    X(NEW_SECTION, "New Section", \
      "Title for adding a new section collection.") \
    X(NEW_COLLECTION_PLACEHOLDER, "Untitled", \
      "Placeholder value when user is presented with alert view for creating a new folder.") \
    X(SELECT_DEFAULT_FOLDER, "Upload Here", \
      "Button to select the folder where automatic uploads will go.") \
    X(ADD, "Add", \
      "Button user presses to create their folder.") \
    X(CREATE_FOLDER_ALERT, "Error Creating Folder", \
      "Title for alert user gets when we could not create their folder.") \
    X(AUTHORIZE_ACCOUNT, "Authenticate Account", \
      "Title for banner when the user's account needs to be reauthenticated.") \
    X(ACCOUNT_SETTINGS, "Account Settings", \
      "Button title to navigate user to their account settings.") \
    X(GENERIC_ERROR, "An error has occurred while connecting to the cloud service. Please check your internet connection and try again", \
      "Error message user sees if we could not connect to the cloud service.") \
    X(LOAD_FOLDERS_ERROR, "Error Loading Folders", \
      "Error message user sees when we could not load their folders.") \
    X(UNLINK_ACCOUNT_ERROR, "Error Unlinking Account", \
      "Error message user sees when we could not sign them out.") \
    X(SERVER_RESPONSE_ERROR, "Unable to communicate with the cloud service at this time. Please contact support.", \
      "Error message user sees when we get malformed data from the server.") \
    X(AUTHENTICATION_ERROR, "An authentication error has occurred with one of your accounts. Quillo needs permission to your cloud account once more.", \
      "Error message when the authentication process fails.") \
    X(ADD_ACCOUNT_ERROR, "Add Account Error", \
      "Error title when there was an error adding user's new account.") \
    X(NEW_ACCOUNT_CONNECTION_ERROR, "An error has occurred while retrieving your account. Please check your internet connection and try again.", \
      "Error message when there is an internet connection issue when adding a new account.") \
    X(DOCUMENT_UPLOAD_FAILED_CONNECTION, "An error has occurred while uploading your file. Please check your internet connection and try again.", \
      "Error message when there is an internet connection issue when uploading a file.") \
    X(DOCUMENT_UPLOAD_CONFLICT_ERROR, "This document was modified from a different device. Do you want to upload your changes?", \
      "Error message when the file changed in the remote. Ask user to overwrite.") \
    X(DOCUMENT_ERROR_FILE_UPLOAD, "An error has occurred while uploading your file. Retry the upload?", \
      "Error message when uploading file fails. Prompts user to retry.") \
    X(DOCUMENT_ERROR_FOLDER, "Quillo Pro was unable to find the upload folder for one of your accounts. Please go to your account settings to set a new folder.", \
      "Error message when we can not get the upload folder for a cloud service.") \
    X(DOCUMENT_RENAME_ERROR, "An error occurred renaming the remote copy of this file. A file with this name exists on that account. Overwrite the remote copy?", \
      "Error message when rename fails because a file with same name exists in remote.") \
    X(STORAGE_QUOTA_REACHED, "You have reached the storage quota for your cloud account. Upgrade your cloud account or free up storage space in order to upload.", \
      "Error message when the upload fails due to the max uploads being reached for the cloud service.") \
    X(MAX_ACCOUNTS_FOR_SERVICE_ERROR, "This cloud service only allows one account to be tied with Quillo. Adding a new account will remove the current account. Do you still want to continue?", \
      "Error message when the user tries to link an OneDrive or Evernote account.") \
    X(ONENOTE_AUTOUPLOAD_INFO, "OneNote does not support automatic uploads. Please use OneDrive instead.", \
      "Row title in accounts info page for OneNote.") \
    X(NOTEBOOKS, "Notebooks", \
      "Section header title for OneNote notebooks.") \
    X(SECTIONS, "Sections", \
      "Section header title for OneNote sections.")

namespace {

constexpr std::array kEntries = {
#define VXCLOUD_ENTRY(name, english, comment) VXCloudString::Entry{#name, english, comment},
    VXCLOUD_STRINGS(VXCLOUD_ENTRY)
#undef VXCLOUD_ENTRY
};

}  // namespace

std::span<const VXCloudString::Entry> VXCloudString::entries() { return kEntries; }

std::string VXCloudString::localized(std::string_view english) {
    const std::string key(english);
    const ResourceBundle* bundle = ResourceBundle::vxcloud();
    return bundle ? bundle->localizedString(key) : key;
}

#define VXCLOUD_DEFINE(name, english, comment) \
    std::string VXCloudString::name() { return localized(english); }
VXCLOUD_STRINGS(VXCLOUD_DEFINE)
#undef VXCLOUD_DEFINE

#undef VXCLOUD_STRINGS

}  // namespace vxcloud
