#pragma once
// Dropbox's sign-in: offline access (a refresh token) with PKCE and no secret; the tokens
// are stored under the account id, where the Dropbox client reads them, and the account
// is built from users/get_current_account.
#include <chrono>
#include <memory>

#include "auth/OAuth2Flow.h"
#include "vxcloud/auth/VXCloudAuthInfo.h"

namespace vxcloud::auth {

std::shared_ptr<OAuth2Flow> makeDropboxFlow(const VXCloudDropboxInfo& info, std::chrono::milliseconds timeLimit,
                                            OAuth2Flow::Completion completion);

}  // namespace vxcloud::auth
