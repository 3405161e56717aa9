#pragma once
// Small pieces shared by the Dropbox session's source files.
#include <memory>
#include <string>

#include "providers/dropbox/DropboxClient.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud::dropbox_session {

// Which route-error classifier a failed call goes through.
enum class RouteErrors { upload, relocation, createFolder };

// Call errors by kind: server trouble and unexpected statuses are `connection`; bad input,
// rate limiting and client-side failures `fileUpload`; auth and access `authentication`;
// route errors by the route's classifier.
ErrorCode errorCodeFromCallError(const dropbox::CallError& error, RouteErrors routeErrors);

std::shared_ptr<VXCloudError> makeError(ErrorCode code);

// Writes what the service returned (name, id, path, version) into the caller's record, so
// the record handed back is the one passed in.
void adoptServiceFields(VXCloudFile& file, const VXCloudFile& fromService);

// Dropbox lists its top folder as "" and refuses "/"; other folders have no trailing "/".
std::string listingPath(const std::string& folderPrefix);

bool hasUploadStatus(const VXCloudFile& file);

bool equalsIgnoringCase(const std::string& a, const std::string& b);

}  // namespace vxcloud::dropbox_session
