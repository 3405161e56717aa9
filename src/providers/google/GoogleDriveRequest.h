#pragma once
// One Drive request as the client's sources build it. Only the client includes this header.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "providers/google/GoogleDriveClient.h"

namespace vxcloud::drive {

// The shared request with Drive's one convenience: the body's content type.
struct GoogleDriveClient::Request : providers::ApiRequest {
    std::string contentType;
};

// `url` with the parameters appended, percent-encoded.
std::string withQuery(std::string url, const std::vector<std::pair<std::string, std::string>>& params);

}  // namespace vxcloud::drive
