// Evernote's OAuth 1.0a on the sandbox: temporary credentials, the browser page and the
// token exchange, signed as RFC 5849 says (the requests here are signed by the test's own
// signer), with OAuth problem reports for what is refused; and the sandbox's signing pieces
// against the RFC's worked example.
#include <openssl/hmac.h>

#include <algorithm>
#include <ctime>

#include "evernote/OAuth1.h"
#include "sandbox/EvernoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using Params = std::vector<std::pair<std::string, std::string>>;

TEST(EvernoteOAuth1, ReproducesTheRfcExamples) {
    // RFC 5849 3.4.1.1: parameters from the header, the query and the form body.
    const auto header = evernote::parseOAuthHeader(
        "OAuth realm=\"Example\", oauth_consumer_key=\"9djdj82h48djs9d2\", oauth_token=\"kkk9d7dh3k39sjv7\", "
        "oauth_signature_method=\"HMAC-SHA1\", oauth_timestamp=\"137131201\", oauth_nonce=\"7d8f3e4a\", "
        "oauth_signature=\"bYT5CMsGcbgUdFHObYMEfcx6bsw%3D\"");
    ASSERT_TRUE(header);
    evernote::OAuthParameters all = *header;
    for (auto& p : evernote::parseFormParameters("b5=%3D%253D&a3=a&c%40=&a2=r%20b")) all.push_back(p);
    for (auto& p : evernote::parseFormParameters("c2&a3=2+q")) all.push_back(p);
    EXPECT_EQ(
        evernote::signatureBaseString("POST", evernote::baseStringUri("http", "Example.com:80", "/request"), all),
        "POST&http%3A%2F%2Fexample.com%2Frequest&a2%3Dr%2520b%26a3%3D2%2520q%26a3%3Da%26b5%3D%253D%25253D%26c%2540%3D"
        "%26c2%3D%26oauth_consumer_key%3D9djdj82h48djs9d2%26oauth_nonce%3D7d8f3e4a%26oauth_signature_method%3DHMAC-SHA1"
        "%26oauth_timestamp%3D137131201%26oauth_token%3Dkkk9d7dh3k39sjv7");

    // RFC 5849 1.2: the signed request for the protected resource.
    const Params photos = {{"file", "vacation.jpg"},
                           {"size", "original"},
                           {"oauth_consumer_key", "dpf43f3p2l4k3l03"},
                           {"oauth_token", "nnch734d00sl2jdk"},
                           {"oauth_signature_method", "HMAC-SHA1"},
                           {"oauth_timestamp", "137131202"},
                           {"oauth_nonce", "chapoH"}};
    const std::string base =
        evernote::signatureBaseString("GET", evernote::baseStringUri("http", "photos.example.net", "/photos"), photos);
    EXPECT_EQ(evernote::hmacSha1Signature(base, "kd94hf93k423kf44", "pfkkdhi9sl3r4s00"),
              "MdpQcU8iPSUjWoN/UDMsK2sui9I=");
    EXPECT_EQ(evernote::plaintextSignature("kd94hf93k423kf44", "pfkkdhi9sl3r4s00"),
              "kd94hf93k423kf44&pfkkdhi9sl3r4s00");
    EXPECT_EQ(evernote::baseStringUri("HTTPS", "Host.Example:443", "/a"), "https://host.example/a");
}

class EvernoteOAuth : public EvernoteWireTest {
protected:
    std::string url() const { return sandbox.baseUrl() + "/evernote/oauth"; }

    static std::string enc(const std::string& text) { return HttpClient::urlEncode(text); }

    // The test's own RFC 5849 signer: protocol parameters for `method` on /evernote/oauth.
    Params signedParams(const std::string& method, Params params, const std::string& secret = "vxcloud-sandbox-secret",
                        const std::string& tokenSecret = "", const std::string& signatureMethod = "HMAC-SHA1") {
        params.emplace_back("oauth_consumer_key", "vxcloud-app");
        params.emplace_back("oauth_signature_method", signatureMethod);
        params.emplace_back("oauth_timestamp", std::to_string(std::time(nullptr)));
        params.emplace_back("oauth_nonce", "n" + std::to_string(++nonce_));
        params.emplace_back("oauth_version", "1.0");
        Params encoded;
        for (const auto& [k, v] : params) encoded.emplace_back(enc(k), enc(v));
        std::sort(encoded.begin(), encoded.end());
        std::string normalized;
        for (const auto& [k, v] : encoded) normalized += (normalized.empty() ? "" : "&") + k + "=" + v;
        const std::string key = enc(secret) + "&" + enc(tokenSecret);
        if (signatureMethod == "PLAINTEXT") {
            params.emplace_back("oauth_signature", key);
            return params;
        }
        const std::string base = method + "&" + enc(url()) + "&" + enc(normalized);
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(base.data()),
             base.size(), digest, &length);
        unsigned char encodedDigest[64] = {};
        EVP_EncodeBlock(encodedDigest, digest, static_cast<int>(length));
        params.emplace_back("oauth_signature", reinterpret_cast<const char*>(encodedDigest));
        return params;
    }
    static std::string query(const Params& params) {
        std::string out;
        for (const auto& [k, v] : params) out += (out.empty() ? "" : "&") + enc(k) + "=" + enc(v);
        return out;
    }
    static std::string authorization(const Params& params) {
        std::string out = "OAuth realm=\"Evernote\"";
        for (const auto& [k, v] : params) out += ", " + k + "=\"" + enc(v) + "\"";
        return out;
    }
    static std::map<std::string, std::string> form(const std::string& body) {
        std::map<std::string, std::string> out;
        for (const auto& [k, v] : evernote::parseFormParameters(body)) out[k] = v;
        return out;
    }
    httplib::Result temporary(Params params) {
        return client->Get(("/evernote/oauth?" + query(signedParams("GET", std::move(params)))).c_str());
    }
    std::string temporaryToken() {
        const auto answer = temporary({{"oauth_callback", callback}});
        EXPECT_EQ(answer->status, 200) << answer->body;
        const auto fields = form(answer->body);
        EXPECT_EQ(fields.at("oauth_callback_confirmed"), "true");
        EXPECT_EQ(fields.at("oauth_token_secret"), "");
        return fields.at("oauth_token");
    }
    // The browser page decided at once; the callback's parameters.
    std::map<std::string, std::string> decide(const std::string& token, const std::string& decision) {
        const auto page =
            client->Get(("/evernote/OAuth.action?oauth_token=" + enc(token) + "&sandbox_decision=" + decision).c_str());
        EXPECT_EQ(page->status, 302) << page->body;
        const std::string location = page->get_header_value("Location");
        EXPECT_EQ(location.rfind(callback + "?", 0), 0u) << location;
        return form(location.substr(location.find('?') + 1));
    }
    // The exchange as a POST with the Authorization header.
    httplib::Result exchange(const std::string& token, const std::string& verifier) {
        const Params signedFields = signedParams("POST", {{"oauth_token", token}, {"oauth_verifier", verifier}});
        return client->Post("/evernote/oauth", {{"Authorization", authorization(signedFields)}}, "",
                            "application/x-www-form-urlencoded");
    }

    const std::string callback = "http://127.0.0.1:8400/evernote-callback";
    int nonce_ = 0;
};

TEST_F(EvernoteOAuth, ApprovedSignInGivesAWorkingAuthToken) {
    const std::string token = temporaryToken();
    const auto back = decide(token, "approve");
    EXPECT_EQ(back.at("oauth_token"), token);
    ASSERT_TRUE(back.count("oauth_verifier"));

    const auto answer = exchange(token, back.at("oauth_verifier"));
    ASSERT_EQ(answer->status, 200) << answer->body;
    EXPECT_EQ(answer->get_header_value("Content-Type"), "application/x-www-form-urlencoded");
    const auto fields = form(answer->body);
    const std::string authToken = fields.at("oauth_token");
    EXPECT_EQ(authToken.rfind("S=s1:U=", 0), 0u) << authToken;
    EXPECT_NE(authToken.find(":A=vxcloud-app:V=2:H="), std::string::npos);
    EXPECT_EQ(fields.at("oauth_token_secret"), "");
    EXPECT_EQ(fields.at("edam_shard"), "s1");
    EXPECT_EQ(fields.at("edam_userId"), ada.userId);
    EXPECT_EQ(fields.at("edam_noteStoreUrl"), sandbox.baseUrl() + "/evernote/shard/s1/notestore");
    EXPECT_EQ(fields.at("edam_webApiUrlPrefix"), sandbox.baseUrl() + "/evernote/shard/s1/");
    const auto lifetime = std::stoll(fields.at("edam_expires")) / 1000 - std::time(nullptr);
    EXPECT_GT(lifetime, 31536000 - 60);

    edam::User user;
    userStore->getUser(user, authToken);
    EXPECT_EQ(std::to_string(user.id), ada.userId);
    EXPECT_EQ(sandbox.stats("evernote/oauth/temporary").requests, 1);
    EXPECT_EQ(sandbox.stats("evernote/oauth/token").requests, 1);

    // Temporary credentials are good for one exchange.
    const auto again = exchange(token, back.at("oauth_verifier"));
    EXPECT_EQ(again->status, 401);
    EXPECT_EQ(form(again->body)["oauth_problem"], "token_used");
}

TEST_F(EvernoteOAuth, DeniedOrWronglyVerifiedSignInsGetNoToken) {
    const std::string denied = temporaryToken();
    const auto back = decide(denied, "deny");
    EXPECT_EQ(back.at("oauth_token"), denied);
    EXPECT_FALSE(back.count("oauth_verifier")) << "no verifier: the person said no";
    auto answer = exchange(denied, "guess");
    EXPECT_EQ(answer->status, 401);
    EXPECT_EQ(form(answer->body)["oauth_problem"], "permission_denied");

    const std::string approved = temporaryToken();
    decide(approved, "approve");
    answer = exchange(approved, "not-the-verifier");
    EXPECT_EQ(answer->status, 401);
    EXPECT_EQ(form(answer->body)["oauth_problem"], "verifier_invalid");

    answer = exchange("vxcloud-app.unknown.token", "v");
    EXPECT_EQ(answer->status, 401);
    EXPECT_EQ(form(answer->body)["oauth_problem"], "token_rejected");
}

TEST_F(EvernoteOAuth, SignaturesTimestampsAndNoncesAreChecked) {
    auto problem = [&](const httplib::Result& r) {
        return r ? form(r->body)["oauth_problem"] : std::string("no answer");
    };
    const auto wrongSecret = client->Get(
        ("/evernote/oauth?" + query(signedParams("GET", {{"oauth_callback", callback}}, "another-secret"))).c_str());
    EXPECT_EQ(wrongSecret->status, 401);
    EXPECT_EQ(problem(wrongSecret), "signature_invalid");
    EXPECT_NE(form(wrongSecret->body)["oauth_signature_base_string"].find("GET&http%3A%2F%2F127.0.0.1"),
              std::string::npos);

    // A signed request sent twice: the nonce was used.
    const Params once = signedParams("GET", {{"oauth_callback", callback}});
    EXPECT_EQ(client->Get(("/evernote/oauth?" + query(once)).c_str())->status, 200);
    const auto replay = client->Get(("/evernote/oauth?" + query(once)).c_str());
    EXPECT_EQ(replay->status, 401);
    EXPECT_EQ(problem(replay), "nonce_used");

    // Signed parameters changed on the way.
    Params tampered = signedParams("GET", {{"oauth_callback", callback}});
    tampered[0].second = "http://127.0.0.1:8400/elsewhere";
    EXPECT_EQ(problem(client->Get(("/evernote/oauth?" + query(tampered)).c_str())), "signature_invalid");

    Params stale = signedParams("GET", {{"oauth_callback", callback}});
    sandbox.advanceClock(3600);
    EXPECT_EQ(problem(client->Get(("/evernote/oauth?" + query(stale)).c_str())), "timestamp_refused");
    sandbox.advanceClock(-3600);

    const auto noCallback = client->Get(("/evernote/oauth?" + query(signedParams("GET", {}))).c_str());
    EXPECT_EQ(noCallback->status, 400);
    EXPECT_EQ(problem(noCallback), "parameter_absent");
    EXPECT_EQ(form(noCallback->body)["oauth_parameters_absent"], "oauth_callback");

    // PLAINTEXT in a form body is taken too; the consumer secret is the setting's.
    ASSERT_TRUE(sandbox.configure("evernote", {{"consumer_secret", "s3cret"}}));
    const auto plaintext = client->Post(
        "/evernote/oauth", query(signedParams("POST", {{"oauth_callback", "oob"}}, "s3cret", "", "PLAINTEXT")),
        "application/x-www-form-urlencoded");
    EXPECT_EQ(plaintext->status, 200) << plaintext->body;
}

TEST_F(EvernoteOAuth, ThePageListsTheAccountsAndItsLinksDecide) {
    const std::string token = temporaryToken();
    const auto waiting = sandbox.pendingAuthorizations("evernote");
    ASSERT_EQ(waiting.size(), 1u);
    EXPECT_EQ(waiting[0]["state"], token);
    EXPECT_EQ(waiting[0]["client_id"], "vxcloud-app");

    const auto page = client->Get(("/evernote/OAuth.action?oauth_token=" + enc(token)).c_str());
    ASSERT_EQ(page->status, 200);
    EXPECT_NE(page->body.find("grace@example.com"), std::string::npos);
    const std::string link = "/evernote/OAuth.action/decision?request=" + waiting[0]["request"].get<std::string>() +
                             "&approve=1&account=" + grace.userId;
    EXPECT_NE(page->body.find("&amp;account=" + grace.userId), std::string::npos);
    const auto decided = client->Get(link.c_str());
    ASSERT_EQ(decided->status, 302);
    const std::string location = decided->get_header_value("Location");
    const auto fields = form(exchange(token, form(location.substr(location.find('?') + 1))["oauth_verifier"])->body);
    EXPECT_EQ(fields.at("edam_shard"), "s2");
    EXPECT_EQ(fields.at("edam_userId"), grace.userId);
    EXPECT_TRUE(sandbox.pendingAuthorizations("evernote").empty());
    EXPECT_EQ(client->Get(link.c_str())->status, 400) << "decided once";
}

}  // namespace
}  // namespace vxcloud::sandbox::test
