#pragma once
// Small pieces shared by the Dropbox session's source files.
#include <memory>
#include <string>

#include "providers/dropbox/DropboxClient.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud::dropbox_session {

// Which route-error classifier a failed call goes through.
enum class RouteErrors { upload, relocation, createFolder };

// Call errors by kind: server trouble and unexpected statuses are `connection`; bad input,
// rate limiting and client-side failures `fileUpload`; auth and access `authentication`;
// route errors by the route's classifier.
ErrorCode errorCodeFromCallError(const ProviderError& error, RouteErrors routeErrors);

// Dropbox lists its top folder as "" and refuses "/"; other folders have no trailing "/".
std::string listingPath(const std::string& folderPrefix);

// Whether a document or folder name can be the last element of a Dropbox path. A "/" in it
// would address a sub-folder (which Dropbox creates on the way) instead of the name itself.
bool isStorableName(const std::string& name);

// Shared with the other sessions.
using sessions::adoptServiceFields;
using sessions::equalsIgnoringCase;
using sessions::hasUploadStatus;
using sessions::makeError;

}  // namespace vxcloud::dropbox_session
