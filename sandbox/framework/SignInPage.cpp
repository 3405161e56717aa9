#include "framework/SignInPage.h"

#include "framework/ProviderModule.h"
#include "framework/Text.h"

namespace vxcloud::sandbox {

std::string immediateDecision(const Request& request, const ProviderContext& context) {
    std::string decision = request.queryParam("sandbox_decision").value_or("");
    if (decision.empty() && request.queryParam("sandbox_auto_approve").value_or("") == "1") decision = "approve";
    if (decision.empty() && context.autoApprove.load()) decision = "approve";
    return decision == "approve" || decision == "deny" ? decision : std::string();
}

std::string signInPage(const std::string& providerTitle, const std::vector<AccountInfo>& accounts,
                       const std::string& client, const std::string& scope, const std::string& requestId,
                       const std::string& decisionUrl) {
    std::string page = "<!doctype html><html><head><meta charset=\"utf-8\"><title>" + htmlEscape(providerTitle) +
                       " sandbox: authorize</title></head><body>\n";
    page += "<h1>" + htmlEscape(providerTitle) + " sandbox</h1>\n";
    page += "<p>The app <b id=\"client\">" + htmlEscape(client) + "</b> asks for access";
    if (!scope.empty()) page += " (<span id=\"scope\">" + htmlEscape(scope) + "</span>)";
    page += ".</p>\n<p id=\"request\" data-request=\"" + htmlEscape(requestId) + "\">Sign in as:</p>\n<ul>\n";
    for (const auto& account : accounts) {
        page += "<li><a class=\"approve\" href=\"" +
                htmlEscape(decisionUrl + "&approve=1&account=" + urlEncode(account.id)) + "\">" +
                htmlEscape(account.displayName()) + " &lt;" + htmlEscape(account.email) + "&gt;</a></li>\n";
    }
    page += "</ul>\n<p><a class=\"deny\" href=\"" + htmlEscape(decisionUrl + "&approve=0") +
            "\">Deny</a></p>\n</body></html>\n";
    return page;
}

std::map<std::string, std::string> decisionParams(const Request& request) {
    std::map<std::string, std::string> params;
    for (const auto& [k, v] : request.query) params[k] = v;
    if (request.method == "POST" && request.mediaType() == "application/x-www-form-urlencoded") {
        for (const auto& [k, v] : parseForm(request.body.view())) params[k] = v;
    }
    return params;
}

void signInErrorPage(Response& response, const std::string& providerTitle, int status, const std::string& message) {
    response.html(status, "<!doctype html><html><head><title>" + htmlEscape(providerTitle) +
                              " sandbox</title></head><body><h1>Authorization error</h1><p id=\"error\">" +
                              htmlEscape(message) + "</p></body></html>\n");
}

}  // namespace vxcloud::sandbox
