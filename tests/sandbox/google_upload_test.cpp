// The Drive emulator's uploads: multipart/related bodies, the resumable protocol (session
// URIs, 256 KiB chunks, 308 with Range, status queries, expiry), content updates that keep
// the id, and the storage quota.
#include "sandbox/GoogleWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

constexpr std::size_t kUnit = 256 * 1024;

std::string bytesOf(std::size_t size, char seed) {
    std::string out(size, '\0');
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<char>(seed + i * 31 % 251);
    return out;
}

class GoogleUpload : public GoogleWireTest {
protected:
    // Starts a resumable upload; the session URI's path and query on the sandbox.
    std::string start(const json& metadata, std::int64_t length, const std::string& fileId = {}) {
        httplib::Headers headers = bearer();
        headers.emplace("X-Upload-Content-Type", "application/pdf");
        if (length >= 0) headers.emplace("X-Upload-Content-Length", std::to_string(length));
        const std::string path = "/google/upload/drive/v3/files" + (fileId.empty() ? "" : "/" + fileId) +
                                 "?uploadType=resumable&fields=id,name,md5Checksum,size";
        auto answer = fileId.empty() ? client->Post(path.c_str(), headers, metadata.dump(), "application/json")
                                     : client->Patch(path.c_str(), headers, metadata.dump(), "application/json");
        EXPECT_TRUE(answer);
        if (!answer) return {};
        EXPECT_EQ(answer->status, 200) << answer->body;
        const std::string location = answer->get_header_value("Location");
        const std::string base = sandbox.baseUrl();
        EXPECT_EQ(location.rfind(base, 0), 0u) << location;
        EXPECT_NE(location.find("upload_id="), std::string::npos);
        return location.substr(base.size());
    }

    httplib::Result put(const std::string& uri, const std::string& range, const std::string& body) {
        httplib::Headers headers;
        if (!range.empty()) headers.emplace("Content-Range", range);
        return client->Put(uri.c_str(), headers, body, "application/pdf");
    }

    static std::string range(std::size_t first, std::size_t length, const std::string& total) {
        return "bytes " + std::to_string(first) + "-" + std::to_string(first + length - 1) + "/" + total;
    }
};

TEST_F(GoogleUpload, MultipartBodyBecomesOneFile) {
    // The documented example, byte for byte.
    const std::string boundary = "sep_9f1c2e7a5b3d";
    const std::string folder = createFolder("Receipts")["id"];
    const json metadata = {{"name", "2024-05-01 Receipt.pdf"}, {"mimeType", "application/pdf"}, {"parents", {folder}}};
    auto answer = client->Post("/google/upload/drive/v3/files?uploadType=multipart&fields=id,name,md5Checksum,size,parents",
                               bearer(), multipartBody(metadata, "hello world", boundary),
                               "multipart/related; boundary=" + boundary);
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->status, 200) << answer->body;
    const json file = parse(answer);
    EXPECT_EQ(file["name"], "2024-05-01 Receipt.pdf");
    EXPECT_EQ(file["md5Checksum"], "5eb63bbbe01eeed093cb22bb8f5acdc3");
    EXPECT_EQ(file["size"], "11");
    EXPECT_EQ(file["parents"], json::array({folder}));
    EXPECT_EQ(file.size(), 5u);

    // The content part's type names the file's type when the metadata does not.
    const std::string typed = file.value("id", "");
    EXPECT_EQ(parse(get("/drive/v3/files/" + typed + "?fields=mimeType"))["mimeType"], "application/pdf");

    for (const std::string& broken : {std::string("no boundary at all"),
                                     "--" + boundary + "\r\nContent-Type: application/json\r\n\r\n{}\r\n--" + boundary + "--",
                                     "--" + boundary + "\r\nContent-Type: text/plain\r\n\r\nx\r\n--" + boundary +
                                         "\r\nContent-Type: text/plain\r\n\r\ny\r\n--" + boundary + "--"}) {
        auto refused = client->Post("/google/upload/drive/v3/files?uploadType=multipart", bearer(), broken,
                                    "multipart/related; boundary=" + boundary);
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->status, 400) << broken;
        EXPECT_EQ(reasonOf(refused), "badRequest");
    }
    auto noType = client->Post("/google/upload/drive/v3/files", bearer(), "x", "application/pdf");
    ASSERT_TRUE(noType);
    EXPECT_EQ(noType->status, 400);
}

TEST_F(GoogleUpload, ResumableChunksAreWholeUnitsUntilTheLast) {
    const std::string content = bytesOf(2 * kUnit + 1000, 'a');
    const std::string total = std::to_string(content.size());
    const std::string uri = start({{"name", "big.pdf"}}, static_cast<std::int64_t>(content.size()));

    auto uneven = put(uri, range(0, 1000, total), content.substr(0, 1000));
    ASSERT_TRUE(uneven);
    EXPECT_EQ(uneven->status, 400) << "a chunk before the last must be a multiple of 256 KiB";

    auto first = put(uri, range(0, kUnit, total), content.substr(0, kUnit));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 308);
    EXPECT_EQ(first->get_header_value("Range"), "bytes=0-" + std::to_string(kUnit - 1));

    auto gap = put(uri, range(2 * kUnit, 1000, total), content.substr(2 * kUnit));
    ASSERT_TRUE(gap);
    EXPECT_EQ(gap->status, 400) << "a chunk may not leave a gap";

    auto status = put(uri, "bytes */" + total, "");
    ASSERT_TRUE(status);
    EXPECT_EQ(status->status, 308);
    EXPECT_EQ(status->get_header_value("Range"), "bytes=0-" + std::to_string(kUnit - 1));

    // Bytes the session has are not stored twice when a chunk is sent again.
    auto again = put(uri, range(0, 2 * kUnit, total), content.substr(0, 2 * kUnit));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->status, 308);
    auto last = put(uri, range(2 * kUnit, 1000, total), content.substr(2 * kUnit));
    ASSERT_TRUE(last);
    ASSERT_EQ(last->status, 200) << last->body;
    const json file = parse(last);
    EXPECT_EQ(file["size"], total);
    EXPECT_EQ(get("/drive/v3/files/" + file["id"].get<std::string>() + "?alt=media")->body, content);

    // Once complete, the session answers with the file.
    auto done = put(uri, "bytes */" + total, "");
    ASSERT_TRUE(done);
    EXPECT_EQ(done->status, 200);
    EXPECT_EQ(parse(done)["id"], file["id"]);
}

TEST_F(GoogleUpload, ServerMayKeepFewerBytesThanSent) {
    ASSERT_TRUE(sandbox.configure("google", json{{"resumable_keep_max_bytes", kUnit}}));
    const std::string content = bytesOf(3 * kUnit + 10, 'k');
    const std::string total = std::to_string(content.size());
    const std::string uri = start({{"name", "short.pdf"}}, -1);

    auto sent = put(uri, range(0, 3 * kUnit, "*"), content.substr(0, 3 * kUnit));
    ASSERT_TRUE(sent);
    EXPECT_EQ(sent->status, 308);
    EXPECT_EQ(sent->get_header_value("Range"), "bytes=0-" + std::to_string(kUnit - 1)) << "only one unit kept";
    std::size_t offset = kUnit;
    for (int i = 0; i < 10 && offset < content.size(); ++i) {
        const std::size_t length = content.size() - offset;
        auto next = put(uri, range(offset, length, total), content.substr(offset));
        ASSERT_TRUE(next);
        if (next->status == 200) {
            offset = content.size();
            break;
        }
        ASSERT_EQ(next->status, 308);
        offset = std::stoul(next->get_header_value("Range").substr(8)) + 1;
    }
    EXPECT_EQ(offset, content.size());
}

TEST_F(GoogleUpload, UnknownAndExpiredSessionsAreGone) {
    auto unknown = put("/google/upload/drive/v3/files?uploadType=resumable&upload_id=nope", "bytes */10", "");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->status, 404);

    const std::string uri = start({{"name", "late.pdf"}}, 10);
    sandbox.advanceClock(8 * 24 * 3600);
    auto late = put(uri, "", "0123456789");
    ASSERT_TRUE(late);
    EXPECT_EQ(late->status, 404);
}

TEST_F(GoogleUpload, NewContentKeepsTheIdAndMakesARevision) {
    const std::string id = file("kept.pdf", "first");
    const json before = parse(get("/drive/v3/files/" + id + "?fields=headRevisionId,md5Checksum"));

    const std::string boundary = "b0undary";
    auto multipart = client->Patch(("/google/upload/drive/v3/files/" + id + "?uploadType=multipart&fields=id,name,md5Checksum").c_str(),
                                   bearer(), multipartBody({{"name", "kept.pdf"}}, "second", boundary),
                                   "multipart/related; boundary=" + boundary);
    ASSERT_TRUE(multipart);
    ASSERT_EQ(multipart->status, 200) << multipart->body;
    EXPECT_EQ(parse(multipart)["id"], id);
    const json after = parse(get("/drive/v3/files/" + id + "?fields=headRevisionId,md5Checksum"));
    EXPECT_NE(after["headRevisionId"], before["headRevisionId"]);
    EXPECT_NE(after["md5Checksum"], before["md5Checksum"]);

    // Resumable updates too, and a session may be given the whole content at once.
    const std::string uri = start(json::object(), 5, id);
    auto whole = put(uri, "", "third");
    ASSERT_TRUE(whole);
    ASSERT_EQ(whole->status, 200) << whole->body;
    EXPECT_EQ(parse(whole)["id"], id);
    EXPECT_EQ(get("/drive/v3/files/" + id + "?alt=media")->body, "third");
}

TEST_F(GoogleUpload, FullStorageRefusesNewBytes) {
    ASSERT_TRUE(sandbox.fillQuota("google"));
    auto refused = uploadMultipart({{"name", "no-room.pdf"}}, "some bytes");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 403);
    EXPECT_EQ(reasonOf(refused), "storageQuotaExceeded");
    EXPECT_TRUE(ids("name = 'no-room.pdf'").empty()) << "nothing half-made is left";
    // An empty folder takes no room.
    EXPECT_TRUE(createFolder("Still fine").contains("id"));
}

}  // namespace
}  // namespace vxcloud::sandbox::test
