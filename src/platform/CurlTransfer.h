#pragma once
// One attempt of an HTTP request over a libcurl easy handle.
#include <memory>

#include "platform/CurlShare.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::curl {

struct TransferResult {
    HttpResponse response;
    // Whether some of the answer already went to the request's onBodyChunk; such a
    // request cannot be repeated without the receiver seeing the bytes twice.
    bool deliveredChunks = false;
};

// Never throws; every failure comes back in the response's error fields.
TransferResult transfer(const std::shared_ptr<Share>& share, const HttpRequest& request);

}  // namespace vxcloud::curl
