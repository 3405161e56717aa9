#pragma once
// The sandbox's Google Drive emulator spoken to in plain HTTP, so the tests read like the
// wire format: files.list with q and fields, multipart and resumable uploads, errors.
#include <string>

#include "sandbox/WireTest.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::sandbox::test {

inline constexpr const char* kFolderType = "application/vnd.google-apps.folder";

class GoogleWireTest : public WireTest {
protected:
    void SetUp() override {
        WireTest::SetUp();
        if (HasFatalFailure()) return;
        google = sandbox.account("google");
        ASSERT_FALSE(google.accessToken.empty());
    }

    static std::string enc(const std::string& text) { return HttpClient::urlEncode(text); }

    httplib::Headers bearer(const std::string& token = {}) const {
        return {{"Authorization", "Bearer " + (token.empty() ? google.accessToken : token)}};
    }

    httplib::Result get(const std::string& path, const std::string& token = {}) {
        return client->Get(("/google" + path).c_str(), bearer(token));
    }

    httplib::Result list(const std::string& q, const std::string& fields = {}, const std::string& extra = {}) {
        std::string path = "/drive/v3/files?q=" + enc(q);
        if (!fields.empty()) path += "&fields=" + enc(fields);
        return get(path + extra);
    }

    // The ids of what a query finds, in the answer's order.
    std::vector<std::string> ids(const std::string& q) {
        std::vector<std::string> out;
        const json answer = parse(list(q, "files(id)"));
        for (const auto& file : answer.value("files", json::array())) out.push_back(file["id"]);
        return out;
    }

    json createFolder(const std::string& name, const std::string& parent = "root") {
        const json body = {{"name", name}, {"mimeType", kFolderType}, {"parents", {parent}}};
        return parse(client->Post("/google/drive/v3/files?fields=id,name,parents", bearer(), body.dump(),
                                  "application/json"));
    }

    static std::string multipartBody(const json& metadata, const std::string& bytes, const std::string& boundary,
                                     const std::string& type = "application/pdf") {
        return "--" + boundary + "\r\nContent-Type: application/json; charset=UTF-8\r\n\r\n" + metadata.dump() +
               "\r\n--" + boundary + "\r\nContent-Type: " + type + "\r\n\r\n" + bytes + "\r\n--" + boundary + "--";
    }

    httplib::Result uploadMultipart(const json& metadata, const std::string& bytes,
                                    const std::string& fields = "id,name,md5Checksum,size,parents,mimeType") {
        const std::string boundary = "sep_9f1c2e7a5b3d";
        return client->Post(("/google/upload/drive/v3/files?uploadType=multipart&fields=" + enc(fields)).c_str(),
                            bearer(), multipartBody(metadata, bytes, boundary),
                            "multipart/related; boundary=" + boundary);
    }

    // A file's id after a multipart upload into `parent`.
    std::string file(const std::string& name, const std::string& bytes, const std::string& parent = "root") {
        const json made = parse(uploadMultipart({{"name", name}, {"parents", {parent}}}, bytes));
        return made.value("id", "");
    }

    // errors[0].reason of a Drive error answer.
    static std::string reasonOf(const httplib::Result& result) {
        const json body = parse(result);
        if (!body.is_object() || !body.contains("error") || !body["error"].is_object()) return {};
        const json& errors = body["error"].value("errors", json::array());
        return errors.empty() ? std::string() : errors[0].value("reason", "");
    }

    SandboxAccount google;
};

}  // namespace vxcloud::sandbox::test
