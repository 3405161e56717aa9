#pragma once
// Evernote's Cloud API under /evernote, standing for https://www.evernote.com:
//   /evernote/edam/user                   UserStore (Thrift binary protocol over POST)
//   /evernote/shard/<shard>/notestore     a user's NoteStore (shard s1 for the first account, s2, ...)
//   /evernote/oauth                       OAuth 1.0a temporary credentials and token exchange
//   /evernote/OAuth.action                the browser page approving a sign-in
// Every Thrift method has its own route key (evernote/notestore/createNote, ...), named
// from the call in the body. Notebooks are the top folders of an account's tree and notes
// the items in them (NoteTree.h). Thrift stays out of this header: the handlers, in their
// own files, include it.
#include <cstdint>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>

#include "evernote/NoteTree.h"
#include "evernote/OAuth1.h"
#include "framework/ExpiringSessions.h"
#include "framework/ProviderModule.h"

namespace vxcloud::sandbox::evernote {

struct Settings {
    int findMaxNotes = 250;               // the most notes one find call answers
    std::int64_t noteSizeMax = 26214400;  // content and resources of one note
    std::int64_t resourceSizeMax = 26214400;
    std::int64_t monthlyUploadLimit = 62914560;             // new bytes per account and calendar month
    std::string consumerSecret = "vxcloud-sandbox-secret";  // of every consumer key
    std::int64_t tokenLifetime = 31536000;                  // seconds an auth token works
    int notebooksMax = 250;
};

// Who an authentication token speaks for.
struct EdamCaller {
    int errorCode = 0;  // the EDAMErrorCode refusing the token ("authenticationToken"); 0: it works
    AccountInfo account;
    std::string shard;
};

// An OAuth 1.0a sign-in between its temporary credentials and the token exchange.
struct TemporaryCredentials {
    std::string consumerKey;
    std::string secret;
    std::string callback;
    std::string requestId;  // the token authority's pending request, for the admin API
    enum class State { pending, approved, denied, used } state = State::pending;
    std::string verifier;
    std::string accountId;
};

class EvernoteModule : public ProviderModule {
public:
    explicit EvernoteModule(ProviderContext& context);

    void registerRoutes(Router& router) override;
    std::map<std::string, std::string> endpoints(const std::string& baseUrl) const override;
    std::optional<std::string> refuseFault(const std::string& route, const FaultSpec& fault) const override;
    void faultResponse(const FaultSpec& fault, const Request& request, Response& response) const override;
    std::optional<std::string> requestToken(const Request& request) const override;
    bool accessTokensRefresh() const override { return false; }
    nlohmann::json renderNode(Tree& tree, const Node& node) const override;
    void adminChanged(Tree& tree, Node& node, AdminChange change) override;
    std::optional<std::string> refuseAdminPath(const std::vector<std::string>& parts, bool folder) const override;
    std::map<std::string, std::string> accountDetails(const AccountInfo& account,
                                                      const std::string& baseUrl) const override;
    // The bound settings; token_lifetime also goes to the token authority.
    bool configure(const nlohmann::json& settings, std::string& error) override;

    Settings currentSettings() const;
    EdamCaller authenticate(const std::string& token) const;
    std::string shardOf(const std::string& accountId) const;
    std::string usernameOf(const std::string& accountId) const;
    // The account that owns a notebook or note GUID other than `exceptAccount`, if any.
    std::optional<std::string> ownerOf(const std::string& guid, const std::string& exceptAccount);
    // URLs on the running sandbox.
    std::string userStoreUrl() const;
    std::string noteStoreUrl(const std::string& shard) const;
    std::string webApiUrlPrefix(const std::string& shard) const;
    std::int64_t nowMs() const;
    // Guarded by the store lock.
    NoteBodies& bodies() { return bodies_; }

private:
    void registerEdamRoutes(Router& router);   // EvernoteRoutes.cpp
    void registerOAuthRoutes(Router& router);  // EvernoteOAuth.cpp
    void temporaryCredentials(Request& request, Response& response);
    void authorizePage(Request& request, Response& response);
    void decision(Request& request, Response& response);
    void decide(const std::string& temporaryToken, bool approve, const std::string& account, Response& response);
    void tokenExchange(Request& request, Response& response);
    // Why a signed request is refused (OAuth's problem text and status), or nothing: the
    // signature with `tokenSecret`, the timestamp and the nonce. oauthMutex_ held.
    std::optional<OAuthProblem> checkSignature(const Request& request, const OAuthParameters& parameters,
                                               const std::map<std::string, std::string>& protocol,
                                               const std::string& tokenSecret);

    Settings settings_;
    std::string tokenSecret_;  // keys the hash of the auth tokens this sandbox issues
    std::map<std::string, std::pair<std::string, std::string>> people_;  // account id -> shard, username
    mutable std::mutex peopleMutex_;
    NoteBodies bodies_;
    std::mutex oauthMutex_;  // guards the two below
    ExpiringSessions<TemporaryCredentials> temporary_{context_.clock};
    NonceLedger nonces_;
};

}  // namespace vxcloud::sandbox::evernote
