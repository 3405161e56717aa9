#pragma once
// Constants shared by the Google Drive session's source files: the field selections it
// asks Drive for, and its log category.
namespace vxcloud::google_session {

inline constexpr const char* kCategory = "google";
// Lookups of stored documents (by name, folder contents).
inline constexpr const char* kLookupFields = "files(id, name, md5Checksum)";
// The settings document: the newest of several counts.
inline constexpr const char* kSettingsLookupFields = "files(id, name, md5Checksum, modifiedTime)";
inline constexpr const char* kCreateFields = "id, name, md5Checksum";
// Content updates and renames.
inline constexpr const char* kUpdateFields = "name, md5Checksum";
inline constexpr const char* kMoveFields = "id, parents";

}  // namespace vxcloud::google_session
