// Evernote's OAuth 1.0a (RFC 5849): temporary credentials and the token exchange on
// /evernote/oauth (GET or POST, parameters in the Authorization header, the query or a form
// body, signed with HMAC-SHA1 or PLAINTEXT), and the browser page /evernote/OAuth.action,
// decided like the framework's OAuth 2 page. Refusals are OAuth problem reports in a form
// body (oauth_problem=...): 400 for a malformed request, 401 for a refused one.
#include <cstdlib>
#include <mutex>

#include "evernote/AuthTokens.h"
#include "evernote/EvernoteModule.h"
#include "framework/SignInPage.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {

namespace {

using Problem = std::optional<OAuthProblem>;
using Protocol = std::map<std::string, std::string>;

constexpr const char* kTemporaryKey = "evernote/oauth/temporary";
constexpr const char* kTokenKey = "evernote/oauth/token";
// Temporary credentials are good this long; timestamps this far from the sandbox clock.
constexpr std::int64_t kTemporaryLifetime = 600;
constexpr std::int64_t kTimestampWindow = 300;

OAuthProblem problem(int status, std::string name, std::vector<std::pair<std::string, std::string>> details = {}) {
    return {status, std::move(name), std::move(details)};
}

void answer(Response& response, const OAuthProblem& p) {
    std::string body = "oauth_problem=" + urlEncode(p.problem);
    for (const auto& [name, value] : p.details) body += "&" + name + "=" + urlEncode(value);
    response.text(p.status, body, "application/x-www-form-urlencoded");
}

std::string queryOf(const Request& request) {
    const auto mark = request.target.find('?');
    return mark == std::string::npos ? std::string() : request.target.substr(mark + 1);
}

bool isForm(const Request& request) {
    return request.method == "POST" && request.mediaType() == "application/x-www-form-urlencoded";
}

// The parameters of the Authorization header and the query (what is known before the body).
OAuthParameters headerAndQuery(const Request& request) {
    OAuthParameters out;
    if (const auto header = request.header("Authorization")) {
        if (auto parsed = parseOAuthHeader(*header)) out = std::move(*parsed);
    }
    for (auto& parameter : parseFormParameters(queryOf(request))) out.push_back(std::move(parameter));
    return out;
}

bool names(const OAuthParameters& parameters, std::string_view name) {
    for (const auto& [n, v] : parameters) {
        if (n == name) return true;
    }
    return false;
}

// Every parameter of a request, and its protocol parameters once each.
Problem gather(const Request& request, OAuthParameters& all, Protocol& protocol) {
    if (const auto header = request.header("Authorization")) {
        const bool oauth = header->size() >= 6 && asciiLower(header->substr(0, 6)) == "oauth ";
        if (oauth && !parseOAuthHeader(*header)) {
            return problem(400, "parameter_rejected", {{"oauth_parameters_rejected", "Authorization"}});
        }
    }
    all = headerAndQuery(request);
    if (isForm(request)) {
        for (auto& parameter : parseFormParameters(request.body.view())) all.push_back(std::move(parameter));
    }
    for (const auto& [name, value] : all) {
        if (name.rfind("oauth_", 0) != 0) continue;
        if (!protocol.emplace(name, value).second) {
            return problem(400, "parameter_rejected", {{"oauth_parameters_rejected", name}});
        }
    }
    return std::nullopt;
}

// What every signed request needs before its signature is looked at.
Problem checkShape(const Protocol& protocol, std::vector<std::string> required) {
    const auto version = protocol.find("oauth_version");
    if (version != protocol.end() && version->second != "1.0") {
        return problem(400, "version_rejected", {{"oauth_acceptable_versions", "1.0-1.0"}});
    }
    const auto method = protocol.find("oauth_signature_method");
    required.insert(required.begin(), {"oauth_consumer_key", "oauth_signature_method", "oauth_signature"});
    // PLAINTEXT requests may leave out the timestamp and nonce.
    if (method == protocol.end() || method->second != "PLAINTEXT") {
        required.push_back("oauth_timestamp");
        required.push_back("oauth_nonce");
    }
    std::string absent;
    for (const auto& name : required) {
        if (!protocol.count(name) || protocol.at(name).empty()) absent += (absent.empty() ? "" : "&") + name;
    }
    if (!absent.empty()) return problem(400, "parameter_absent", {{"oauth_parameters_absent", absent}});
    if (method->second != "HMAC-SHA1" && method->second != "PLAINTEXT") {
        return problem(400, "signature_method_rejected",
                       {{"oauth_acceptable_signature_methods", "HMAC-SHA1&PLAINTEXT"}});
    }
    return std::nullopt;
}

bool isAbsoluteHttpUrl(const std::string& url) { return url.rfind("http://", 0) == 0 || url.rfind("https://", 0) == 0; }

}  // namespace

std::optional<OAuthProblem> EvernoteModule::checkSignature(const Request& request, const OAuthParameters& parameters,
                                                           const Protocol& protocol, const std::string& tokenSecret) {
    const std::int64_t now = context_.clock.nowSeconds();
    const auto timestamp = protocol.find("oauth_timestamp");
    if (timestamp != protocol.end()) {
        const std::string& t = timestamp->second;
        const bool digits = !t.empty() && t.size() < 12 && t.find_first_not_of("0123456789") == std::string::npos;
        if (!digits || std::llabs(std::stoll(digits ? t : "0") - now) > kTimestampWindow) {
            return problem(401, "timestamp_refused",
                           {{"oauth_acceptable_timestamps",
                             std::to_string(now - kTimestampWindow) + "-" + std::to_string(now + kTimestampWindow)}});
        }
    }
    const std::string consumerSecret = currentSettings().consumerSecret;
    const bool hmac = protocol.at("oauth_signature_method") == "HMAC-SHA1";
    const std::string scheme = context_.baseUrl().rfind("https://", 0) == 0 ? "https" : "http";
    const std::string baseString =
        signatureBaseString(request.method, baseStringUri(scheme, request.headerOr("Host"), request.path), parameters);
    const std::string expected = hmac ? hmacSha1Signature(baseString, consumerSecret, tokenSecret)
                                      : plaintextSignature(consumerSecret, tokenSecret);
    if (protocol.at("oauth_signature") != expected) {
        std::vector<std::pair<std::string, std::string>> details;
        if (hmac) details.emplace_back("oauth_signature_base_string", baseString);
        return problem(401, "signature_invalid", details);
    }
    const auto nonce = protocol.find("oauth_nonce");
    if (nonce != protocol.end()) {
        const auto token = protocol.find("oauth_token");
        const std::string key = protocol.at("oauth_consumer_key") + "&" +
                                (token == protocol.end() ? "" : token->second) + "&" +
                                (timestamp == protocol.end() ? "" : timestamp->second) + "&" + nonce->second;
        if (!nonces_.firstUse(key, now, 2 * kTimestampWindow)) return problem(401, "nonce_used");
    }
    return std::nullopt;
}

void EvernoteModule::registerOAuthRoutes(Router& router) {
    // One URL for both steps: a request naming a token is the exchange.
    RouteKeyOf step = [](const Request& request, std::string_view body, bool complete) -> std::optional<std::string> {
        const OAuthParameters known = headerAndQuery(request);
        if (names(known, "oauth_token") || names(known, "oauth_verifier")) return kTokenKey;
        if (names(known, "oauth_callback")) return kTemporaryKey;
        if (!complete) return std::nullopt;
        if (isForm(request)) {
            const OAuthParameters form = parseFormParameters(body);
            if (names(form, "oauth_token") || names(form, "oauth_verifier")) return kTokenKey;
        }
        return kTemporaryKey;
    };
    for (const char* method : {"GET", "POST"}) {
        router.addKeyed(method, Router::escape("/evernote/oauth"), {kTemporaryKey, kTokenKey}, step,
                        [this](Request& request, Response& response) {
                            if (request.routeKey == kTokenKey) return tokenExchange(request, response);
                            temporaryCredentials(request, response);
                        });
    }
    router.exact("GET", "/evernote/OAuth.action", "evernote/oauth/authorize",
                 [this](Request& request, Response& response) { authorizePage(request, response); });
    for (const char* method : {"GET", "POST"}) {
        router.exact(method, "/evernote/OAuth.action/decision", "evernote/oauth/authorize/decision",
                     [this](Request& request, Response& response) { decision(request, response); });
    }
}

void EvernoteModule::temporaryCredentials(Request& request, Response& response) {
    OAuthParameters all;
    Protocol protocol;
    if (auto p = gather(request, all, protocol)) return answer(response, *p);
    if (auto p = checkShape(protocol, {"oauth_callback"})) return answer(response, *p);
    const std::string callback = protocol["oauth_callback"];
    if (callback != "oob" && !isAbsoluteHttpUrl(callback)) {
        return answer(response, problem(400, "parameter_rejected", {{"oauth_parameters_rejected", "oauth_callback"}}));
    }
    std::lock_guard lock(oauthMutex_);
    if (auto p = checkSignature(request, all, protocol, "")) return answer(response, *p);
    TemporaryCredentials credentials;
    credentials.consumerKey = protocol["oauth_consumer_key"];
    credentials.callback = callback;
    // Shaped like the service's: the app, when, and random hex.
    const std::string token = credentials.consumerKey + "." + randomHex(11) + "." + randomHex(32);
    AuthorizationRequest pending;
    pending.clientId = credentials.consumerKey;
    pending.redirectUri = callback == "oob" ? std::string() : callback;
    pending.state = token;  // the admin API's list of sign-ins names them by temporary token
    pending.wantsRefreshToken = false;
    credentials.requestId = tokens().addAuthorizationRequest(pending);
    temporary_.insert(token, credentials, kTemporaryLifetime);
    // The service gives an empty token secret.
    response.text(200, "oauth_token=" + urlEncode(token) + "&oauth_token_secret=&oauth_callback_confirmed=true",
                  "application/x-www-form-urlencoded");
}

void EvernoteModule::authorizePage(Request& request, Response& response) {
    const std::string token = request.queryParam("oauth_token").value_or("");
    TemporaryCredentials credentials;
    {
        std::lock_guard lock(oauthMutex_);
        const TemporaryCredentials* found = temporary_.find(token);
        if (!found)
            return signInErrorPage(response, "Evernote", 400, "The temporary credentials are unknown or expired.");
        credentials = *found;
    }
    if (credentials.state != TemporaryCredentials::State::pending) {
        return signInErrorPage(response, "Evernote", 400, "This sign-in has already been decided.");
    }
    const std::string now = immediateDecision(request, context_);
    if (!now.empty())
        return decide(token, now == "approve", request.queryParam("sandbox_account").value_or(""), response);
    response.html(200, signInPage("Evernote", accounts(), credentials.consumerKey, "", credentials.requestId,
                                  "/evernote/OAuth.action/decision?request=" + urlEncode(credentials.requestId)));
}

void EvernoteModule::decision(Request& request, Response& response) {
    auto params = decisionParams(request);
    const auto pending = tokens().authorizationRequest(params["request"]);
    if (!pending) return signInErrorPage(response, "Evernote", 400, "unknown or already decided authorization request");
    const std::string approve = params["approve"];
    if (approve != "1" && approve != "0" && approve != "true" && approve != "false") {
        return signInErrorPage(response, "Evernote", 400, "approve must be 1 or 0");
    }
    decide(pending->state, approve == "1" || approve == "true", params["account"], response);
}

void EvernoteModule::decide(const std::string& token, bool approve, const std::string& account, Response& response) {
    const auto chosen = findAccount(account);
    std::lock_guard lock(oauthMutex_);
    TemporaryCredentials* credentials = temporary_.find(token);
    if (!credentials || credentials->state != TemporaryCredentials::State::pending) {
        return signInErrorPage(response, "Evernote", 400, "unknown or already decided authorization request");
    }
    if (approve && !chosen) return signInErrorPage(response, "Evernote", 400, "no such account: " + account);
    tokens().deny(credentials->requestId);  // decided: off the admin API's list of waiting sign-ins
    std::map<std::string, std::string> params = {{"oauth_token", token}};
    if (approve) {
        credentials->state = TemporaryCredentials::State::approved;
        credentials->accountId = chosen->id;
        credentials->verifier = randomHex(32);
        params["oauth_verifier"] = credentials->verifier;
    } else {
        credentials->state = TemporaryCredentials::State::denied;
    }
    // Without a verifier the callback tells the app the person said no.
    if (credentials->callback == "oob") {
        return response.html(200, approve ? "<!doctype html><html><body><p>Enter this code into the app:</p><p><code "
                                            "id=\"verifier\">" +
                                                credentials->verifier + "</code></p></body></html>\n"
                                          : "<!doctype html><html><body><p>Access was denied.</p></body></html>\n");
    }
    response.redirect(appendQuery(credentials->callback, params));
}

void EvernoteModule::tokenExchange(Request& request, Response& response) {
    OAuthParameters all;
    Protocol protocol;
    if (auto p = gather(request, all, protocol)) return answer(response, *p);
    if (auto p = checkShape(protocol, {"oauth_token", "oauth_verifier"})) return answer(response, *p);
    const std::string token = protocol["oauth_token"];
    std::string accountId, consumerKey;
    {
        std::lock_guard lock(oauthMutex_);
        TemporaryCredentials* credentials = temporary_.find(token);
        if (!credentials)
            return answer(response, problem(401, temporary_.expired(token) ? "token_expired" : "token_rejected"));
        if (credentials->consumerKey != protocol["oauth_consumer_key"]) {
            return answer(response, problem(401, "token_rejected"));
        }
        if (auto p = checkSignature(request, all, protocol, credentials->secret)) return answer(response, *p);
        switch (credentials->state) {
            case TemporaryCredentials::State::used: return answer(response, problem(401, "token_used"));
            case TemporaryCredentials::State::pending: return answer(response, problem(401, "permission_unknown"));
            case TemporaryCredentials::State::denied: return answer(response, problem(401, "permission_denied"));
            case TemporaryCredentials::State::approved: break;
        }
        if (protocol["oauth_verifier"] != credentials->verifier)
            return answer(response, problem(401, "verifier_invalid"));
        credentials->state = TemporaryCredentials::State::used;
        accountId = credentials->accountId;
        consumerKey = credentials->consumerKey;
    }
    const IssuedTokens issued = tokens().issue(accountId, "", false, consumerKey);
    const std::string shard = shardOf(accountId);
    const auto parsed = parseAuthToken(issued.accessToken, tokenSecret_);
    response.text(200,
                  "oauth_token=" + urlEncode(issued.accessToken) + "&oauth_token_secret=&edam_shard=" + shard +
                      "&edam_userId=" + accountId + "&edam_expires=" + std::to_string(parsed.token.expiresMs) +
                      "&edam_noteStoreUrl=" + urlEncode(noteStoreUrl(shard)) +
                      "&edam_webApiUrlPrefix=" + urlEncode(webApiUrlPrefix(shard)),
                  "application/x-www-form-urlencoded");
}

}  // namespace vxcloud::sandbox::evernote
