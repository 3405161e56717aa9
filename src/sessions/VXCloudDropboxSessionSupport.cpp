#include "sessions/VXCloudDropboxSessionSupport.h"

namespace vxcloud::dropbox_session {

ErrorCode errorCodeFromCallError(const ProviderError& error, RouteErrors routeErrors) {
    using Kind = dropbox::CallErrorKind;
    switch (dropbox::callErrorKind(error)) {
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
        case RouteErrors::upload: return VXCloudError::handleRouteUploadError(error);
        case RouteErrors::relocation: return VXCloudError::handleRouteRelocationError(error);
        case RouteErrors::createFolder:
            // Something already at the path is a clash the user can resolve; the rest is not.
            return error.dropboxWriteError && error.dropboxWriteError->tag == DropboxWriteError::Tag::conflict
                       ? ErrorCode::fileConflict
                       : ErrorCode::fileUpload;
    }
    return ErrorCode::fileUpload;
}

std::string listingPath(const std::string& folderPrefix) {
    if (folderPrefix.size() > 1 && folderPrefix.back() == '/') {
        return folderPrefix.substr(0, folderPrefix.size() - 1);
    }
    return folderPrefix == "/" ? std::string() : folderPrefix;
}

bool isStorableName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

}  // namespace vxcloud::dropbox_session
