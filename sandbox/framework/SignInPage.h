#pragma once
// The browser side of every sandbox sign-in, OAuth 2's (OAuthEndpoints) and Evernote's
// OAuth 1.0a alike: the page listing the accounts with approve and deny links, the
// parameters and settings that decide at once, and the decision request's parameters.
#include <map>
#include <string>
#include <vector>

#include "framework/Http.h"

namespace vxcloud::sandbox {

struct AccountInfo;
struct ProviderContext;

// "approve" or "deny" when the request is to be decided without a person
// (sandbox_decision=approve|deny, sandbox_auto_approve=1, or the server-wide auto-approve);
// empty when the page is to be shown.
std::string immediateDecision(const Request& request, const ProviderContext& context);

// The page: `client` asks for access (`scope`, when not empty); one approve link per account,
// `decisionUrl` + "&approve=1&account=<id>", and a deny link, `decisionUrl` + "&approve=0".
std::string signInPage(const std::string& providerTitle, const std::vector<AccountInfo>& accounts,
                       const std::string& client, const std::string& scope, const std::string& requestId,
                       const std::string& decisionUrl);

// A decision request's parameters: its query, and for POST its form body.
std::map<std::string, std::string> decisionParams(const Request& request);

// The small page a refused or failed sign-in step shows.
void signInErrorPage(Response& response, const std::string& providerTitle, int status, const std::string& message);

}  // namespace vxcloud::sandbox
