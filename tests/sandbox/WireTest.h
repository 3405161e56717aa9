#pragma once
// Tests of the sandbox's wire formats: the shared sandbox fixture, a plain HTTP client, and
// helpers that speak Dropbox's three endpoint styles, so the tests read like the wire format.
#include <gtest/gtest.h>
#include <httplib.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "support/SandboxFixture.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::sandbox::test {

using nlohmann::json;

class WireTest : public testing::SandboxTest<> {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (HasFatalFailure()) return;
        account = sandbox.account("dropbox");
        ASSERT_FALSE(account.accessToken.empty());
        client = newClient();
    }

    std::unique_ptr<httplib::Client> newClient() const { return fx_.wireClient(); }

    httplib::Headers auth(const std::string& token = {}) const {
        return {{"Authorization", "Bearer " + (token.empty() ? account.accessToken : token)}};
    }

    httplib::Result rpc(const std::string& route, const json& arg, const std::string& token = {}) {
        return client->Post(("/dropbox/api/2/" + route).c_str(), auth(token), arg.dump(), "application/json");
    }

    httplib::Result upload(const std::string& route, const json& arg, const std::string& body,
                           httplib::Headers extra = {}) {
        httplib::Headers headers = auth();
        headers.emplace("Dropbox-API-Arg", arg.dump(-1, ' ', true));
        headers.insert(extra.begin(), extra.end());
        return client->Post(("/dropbox/content/2/" + route).c_str(), headers, body, "application/octet-stream");
    }

    httplib::Result download(const std::string& path, httplib::Headers extra = {}) {
        httplib::Headers headers = auth();
        headers.emplace("Dropbox-API-Arg", json{{"path", path}}.dump(-1, ' ', true));
        headers.insert(extra.begin(), extra.end());
        return client->Post("/dropbox/content/2/files/download", headers, "", "");
    }

    // The admin API, as a test in another process would use it.
    httplib::Result admin(const std::string& path, const json& body) {
        return client->Post(("/admin" + path).c_str(), body.dump(), "application/json");
    }

    static json parse(const httplib::Result& result) {
        if (!result) return json();
        return json::parse(result->body, nullptr, false);
    }

    static std::string tagOf(const json& value) {
        return value.is_object() && value.contains(".tag") ? value[".tag"].get<std::string>() : std::string();
    }

    Sandbox& sandbox = fx_.sandbox();
    SandboxAccount account;
    std::unique_ptr<httplib::Client> client;
};

}  // namespace vxcloud::sandbox::test
