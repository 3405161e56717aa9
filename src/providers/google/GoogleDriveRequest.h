#pragma once
// One Drive request as the client's sources build it. Only the client includes this header.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "providers/google/GoogleDriveClient.h"

namespace vxcloud::drive {

struct GoogleDriveClient::Request {
    std::string what;           // "files.list", for messages
    std::string method = "GET";
    std::string url;
    std::string contentType;
    std::vector<std::pair<std::string, std::string>> headers;
    ByteBuffer body;
    bool idempotent = true;     // see HttpRequest::idempotent
    std::function<void(std::int64_t sent, std::int64_t total)> onSent;
    // Statuses other than 2xx that are answers rather than failures (308 of an upload).
    std::vector<int> alsoAccepted;
    // Attempts instead of the client's budget (1: the caller resumes by itself).
    std::optional<int> maxAttempts;

    bool acceptsStatus(int status) const {
        for (int accepted : alsoAccepted) {
            if (accepted == status) return true;
        }
        return false;
    }
};

// `url` with the parameters appended, percent-encoded.
std::string withQuery(std::string url, const std::vector<std::pair<std::string, std::string>>& params);

}  // namespace vxcloud::drive
