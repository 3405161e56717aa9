// The URL and form readers of sign-in: the redirect URI a configuration names, the redirect
// the browser ends on (or the person pastes), and form-encoded answers, with the encoders
// they must agree with.
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "../src/auth/RedirectUrl.h"
#include "FuzzInput.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Log.h"

using namespace vxcloud;
using namespace vxcloud::auth;

namespace {

void readUrl(std::string_view text) {
    const auto parts = parseUrl(text);
    if (!parts) return;
    FUZZ_CHECK(!parts->scheme.empty() && !parts->host.empty() && !parts->path.empty());
    FUZZ_CHECK(!parts->port || (*parts->port >= 0 && *parts->port <= 65535));
    isLoopbackHost(parts->host);
    parseQuery(parts->query);
}

// A value survives percent-encoding, and parameters survive a form body and a redirect.
void checkEncoders(std::string_view text) {
    FUZZ_CHECK(HttpClient::urlDecode(HttpClient::urlEncode(text)) == text);
    const auto params = parseQuery(text);
    std::vector<std::pair<std::string, std::string>> fields(params.begin(), params.end());
    FUZZ_CHECK(parseQuery(HttpClient::formEncode(fields)) == params);
    FUZZ_CHECK(redirectParameters(withQuery("http://127.0.0.1:53682/callback", fields)) == params);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log::setLevel(log::Level::off);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    readUrl(text);
    redirectParameters(text);
    checkEncoders(text);
    return 0;
}
