#pragma once
// The sandbox's Box emulator spoken to in plain HTTP, so the tests read like the wire format:
// the API and upload hosts, multipart uploads, Digest headers, Box's error body.
#include <openssl/evp.h>

#include <string>

#include "sandbox/WireTest.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::sandbox::test {

class BoxWireTest : public WireTest {
protected:
    void SetUp() override {
        WireTest::SetUp();
        if (HasFatalFailure()) return;
        box = sandbox.account("box");
        ASSERT_FALSE(box.accessToken.empty());
    }

    static std::string enc(const std::string& text) { return HttpClient::urlEncode(text); }
    static std::string api(const std::string& path) { return "/box/2.0" + path; }
    static std::string up(const std::string& path) { return "/box/upload/api/2.0" + path; }

    httplib::Headers bearer(const std::string& token = {}) const {
        return {{"Authorization", "Bearer " + (token.empty() ? box.accessToken : token)}};
    }
    httplib::Result get(const std::string& path) { return client->Get(api(path).c_str(), bearer()); }
    httplib::Result putJson(const std::string& path, const json& body, httplib::Headers headers = {}) {
        headers.merge(bearer());
        return client->Put(api(path).c_str(), headers, body.dump(), "application/json");
    }
    // A folder made through the API; its id.
    std::string folder(const std::string& name, const std::string& parent = "0") {
        const json made = parse(client->Post(api("/folders").c_str(), bearer(),
                                             json{{"name", name}, {"parent", {{"id", parent}}}}.dump(),
                                             "application/json"));
        return made.value("id", "");
    }

    // A multipart/form-data upload body: the attributes and the file, in that order unless
    // `fileFirst`.
    static std::string form(const json& attributes, const std::string& bytes, bool fileFirst = false) {
        const std::string attributesPart = "--XyZ\r\nContent-Disposition: form-data; name=\"attributes\"\r\n\r\n" +
                                           attributes.dump() + "\r\n";
        const std::string filePart =
            "--XyZ\r\nContent-Disposition: form-data; name=\"file\"; filename=\"upload.bin\"\r\n"
            "Content-Type: application/octet-stream\r\n\r\n" + bytes + "\r\n";
        return (fileFirst ? filePart + attributesPart : attributesPart + filePart) + "--XyZ--\r\n";
    }
    httplib::Result uploadNew(const std::string& name, const std::string& bytes, const std::string& parent = "0",
                              httplib::Headers headers = {}) {
        headers.merge(bearer());
        return client->Post(up("/files/content").c_str(), headers,
                            form({{"name", name}, {"parent", {{"id", parent}}}}, bytes),
                            "multipart/form-data; boundary=XyZ");
    }
    httplib::Result uploadVersion(const std::string& id, const std::string& bytes, const json& attributes = {},
                                  httplib::Headers headers = {}) {
        headers.merge(bearer());
        return client->Post(up("/files/" + id + "/content").c_str(), headers,
                            form(attributes.is_null() ? json::object() : attributes, bytes),
                            "multipart/form-data; boundary=XyZ");
    }
    // The file of an upload answer ({"total_count": 1, "entries": [file]}).
    static json uploaded(const httplib::Result& result) {
        const json body = parse(result);
        return body.is_object() && body.contains("entries") ? body["entries"][0] : json();
    }

    // Box's error body: code, and context_info.errors[0].name.
    static std::string codeOf(const httplib::Result& result) {
        const json body = parse(result);
        return body.is_object() ? body.value("code", "") : std::string();
    }
    static std::string erroneousParameter(const httplib::Result& result) {
        const json body = parse(result);
        if (!body.is_object() || !body.contains("context_info")) return {};
        return body["context_info"].value("errors", json::array()).at(0).value("name", "");
    }
    // The path and query of an absolute sandbox URL.
    std::string local(const std::string& url) const { return url.substr(sandbox.baseUrl().size()); }

    // Computed here with OpenSSL, apart from the sandbox's own hashing.
    static std::string sha1Raw(const std::string& bytes) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha1(), nullptr);
        return std::string(reinterpret_cast<const char*>(digest), length);
    }
    static std::string sha1Hex(const std::string& bytes) {
        static const char* digits = "0123456789abcdef";
        std::string out;
        for (const unsigned char c : sha1Raw(bytes)) out += {digits[c >> 4], digits[c & 15]};
        return out;
    }
    // "sha=<base64 SHA-1>", the Digest header of parts and commits.
    static std::string digest(const std::string& bytes) {
        const std::string raw = sha1Raw(bytes);
        unsigned char encoded[64] = {};
        EVP_EncodeBlock(encoded, reinterpret_cast<const unsigned char*>(raw.data()), static_cast<int>(raw.size()));
        return "sha=" + std::string(reinterpret_cast<const char*>(encoded));
    }

    SandboxAccount box;
};

}  // namespace vxcloud::sandbox::test
