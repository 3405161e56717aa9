#pragma once
// The sandbox's OneNote emulator spoken to in plain HTTP on both of its roots, with a
// multipart/form-data builder for page creation.
#include <string>
#include <utility>
#include <vector>

#include "sandbox/WireTest.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::sandbox::test {

class OneNoteWireTest : public WireTest {
protected:
    void SetUp() override {
        WireTest::SetUp();
        if (HasFatalFailure()) return;
        notes = sandbox.account("onenote");
        ASSERT_FALSE(notes.accessToken.empty());
    }

    static constexpr const char* kGraph = "/onenote/v1.0/me/onenote/";
    static constexpr const char* kLegacy = "/onenote/api/v1.0/me/notes/";

    httplib::Headers bearer(const std::string& token = {}) const {
        return {{"Authorization", "Bearer " + (token.empty() ? notes.accessToken : token)}};
    }
    httplib::Result get(const std::string& path, const char* root = kGraph) {
        return client->Get((root + path).c_str(), bearer());
    }
    httplib::Result postJson(const std::string& path, const json& body, const char* root = kGraph) {
        return client->Post((root + path).c_str(), bearer(), body.dump(), "application/json");
    }
    // A notebook with one section, made on the Graph root: the section's id.
    std::string section(const std::string& notebook, const std::string& name) {
        const json made = parse(postJson("notebooks", {{"displayName", notebook}}));
        return parse(postJson("notebooks/" + made["id"].get<std::string>() + "/sections", {{"displayName", name}}))["id"];
    }

    struct Part {
        std::string headers;  // "Content-Disposition: ...\r\nContent-Type: ..."
        std::string body;
    };
    static Part formPart(const std::string& name, const std::string& type, const std::string& body) {
        return {"Content-Disposition: form-data; name=\"" + name + "\"\r\nContent-Type: " + type, body};
    }
    static std::string multipart(const std::vector<Part>& parts, const std::string& boundary = kBoundary) {
        std::string out;
        for (const Part& part : parts) out += "--" + boundary + "\r\n" + part.headers + "\r\n\r\n" + part.body + "\r\n";
        return out + "--" + boundary + "--\r\n";
    }
    httplib::Result postPage(const std::string& sectionId, const std::string& body,
                             const std::string& type = std::string("multipart/form-data; boundary=") + kBoundary,
                             const char* root = kGraph) {
        return client->Post((std::string(root) + "sections/" + sectionId + "/pages").c_str(), bearer(), body, type.c_str());
    }

    static std::string codeOf(const httplib::Result& result) {
        const json body = parse(result);
        return body.is_object() && body.contains("error") ? body["error"].value("code", "") : std::string();
    }

    static constexpr const char* kBoundary = "PartBoundary7d41";
    SandboxAccount notes;
};

}  // namespace vxcloud::sandbox::test
