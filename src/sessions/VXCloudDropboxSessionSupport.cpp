#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "sessions/VXCloudDropboxSessionSupport.h"

namespace vxcloud::dropbox_session {

ErrorCode errorCodeFromCallError(const dropbox::CallError& error, RouteErrors routeErrors) {
    using Kind = dropbox::CallErrorKind;
    switch (error.kind) {
        case Kind::internalServer:
        case Kind::http: return ErrorCode::connection;
        case Kind::badInput:
        case Kind::rateLimit:
        case Kind::client: return ErrorCode::fileUpload;
        case Kind::auth:
        case Kind::access: return ErrorCode::authentication;
        case Kind::route: break;
    }
    switch (routeErrors) {
        case RouteErrors::upload: return VXCloudError::handleRouteUploadError(error.error);
        case RouteErrors::relocation: return VXCloudError::handleRouteRelocationError(error.error);
        case RouteErrors::createFolder:
            // Something already at the path is a clash the user can resolve; the rest is not.
            return error.writeError && error.writeError->tag == DropboxWriteError::Tag::conflict
                       ? ErrorCode::fileConflict
                       : ErrorCode::fileUpload;
    }
    return ErrorCode::fileUpload;
}

std::shared_ptr<VXCloudError> makeError(ErrorCode code) { return std::make_shared<VXCloudError>(code); }

void adoptServiceFields(VXCloudFile& file, const VXCloudFile& fromService) {
    file.name = fromService.name;
    file.id = fromService.id;
    file.path = fromService.path;
    file.version = fromService.version;
}

std::string listingPath(const std::string& folderPrefix) {
    if (folderPrefix.size() > 1 && folderPrefix.back() == '/') {
        return folderPrefix.substr(0, folderPrefix.size() - 1);
    }
    return folderPrefix == "/" ? std::string() : folderPrefix;
}

bool hasUploadStatus(const VXCloudFile& file) {
    const JsonBox& status = file.fileUploadStatus;
    if (!status.has_value() || status->is_null()) return false;
    return !((status->is_object() || status->is_array()) && status->empty());
}

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

}  // namespace vxcloud::dropbox_session
