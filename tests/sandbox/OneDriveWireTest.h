#pragma once
// The sandbox's Microsoft Graph emulator spoken to in plain HTTP, so the tests read like the
// wire format: items by id and path, uploads, upload URLs, Graph's error body.
#include <string>

#include "sandbox/WireTest.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::sandbox::test {

class OneDriveWireTest : public WireTest {
protected:
    void SetUp() override {
        WireTest::SetUp();
        if (HasFatalFailure()) return;
        graph = sandbox.account("onedrive");
        ASSERT_FALSE(graph.accessToken.empty());
    }

    static std::string enc(const std::string& text) { return HttpClient::urlEncode(text); }
    static std::string api(const std::string& path) { return "/onedrive/v1.0/me/drive" + path; }

    httplib::Headers bearer(const std::string& token = {}) const {
        return {{"Authorization", "Bearer " + (token.empty() ? graph.accessToken : token)}};
    }
    httplib::Result get(const std::string& path) { return client->Get(api(path).c_str(), bearer()); }
    // A simple upload into a folder by id ("root" for the top), with a conflict behaviour.
    httplib::Result put(const std::string& parent, const std::string& name, const std::string& bytes,
                        const std::string& conflict = {}) {
        std::string path = (parent == "root" ? api("/root:/") : api("/items/" + parent + ":/")) + enc(name) + ":/content";
        if (!conflict.empty()) path += "?@microsoft.graph.conflictBehavior=" + conflict;
        return client->Put(path.c_str(), bearer(), bytes, "application/octet-stream");
    }
    json folder(const std::string& name, const std::string& parent = "root") {
        const std::string path = parent == "root" ? api("/root/children") : api("/items/" + parent + "/children");
        return parse(client->Post(path.c_str(), bearer(), json{{"name", name}, {"folder", json::object()}}.dump(),
                                  "application/json"));
    }
    // The path and query of an absolute sandbox URL.
    std::string local(const std::string& url) const { return url.substr(sandbox.baseUrl().size()); }

    // error.code of a Graph error answer, and its innerError's code.
    static std::string codeOf(const httplib::Result& result) {
        const json body = parse(result);
        return body.is_object() && body.contains("error") ? body["error"].value("code", "") : std::string();
    }
    static std::string innerCodeOf(const httplib::Result& result) {
        const json body = parse(result);
        if (!body.is_object() || !body.contains("error")) return {};
        return body["error"].value("innerError", json::object()).value("code", "");
    }

    SandboxAccount graph;
};

}  // namespace vxcloud::sandbox::test
