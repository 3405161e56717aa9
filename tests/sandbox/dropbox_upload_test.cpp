// Dropbox uploads against the emulator: write modes, conflicts, content_hash, sessions.
#include "sandbox/WireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class DropboxUpload : public WireTest {};

TEST_F(DropboxUpload, ContentHashFollowsTheFourMebibyteBlockAlgorithm) {
    const struct {
        std::string path;
        std::string bytes;
        std::string hash;
    } vectors[] = {
        {"/empty.bin", "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"/hello.txt", "hello world", "bc62d4b80d9e36da29c16c5d4d9f11731f36052c72401a76c23c0fb5a9b74423"},
        {"/zeros.bin", std::string(4 * 1024 * 1024 + 1, '\0'),
         "14a4d47f23a30177885d9820122f17d2d3a55fe63f7f5c27b95f689e0b2accd6"},
    };
    for (const auto& v : vectors) {
        const auto res = upload("files/upload", {{"path", v.path}}, v.bytes);
        ASSERT_TRUE(res) << v.path;
        ASSERT_EQ(res->status, 200) << res->body;
        const json meta = parse(res);
        EXPECT_EQ(meta["content_hash"], v.hash) << v.path;
        EXPECT_EQ(meta["size"], v.bytes.size());
        EXPECT_FALSE(meta.contains(".tag")) << "upload answers a FileMetadata without a tag";
        // The declared hash of the request is checked too.
        const auto checked = upload("files/upload", {{"path", v.path + ".copy"}, {"content_hash", v.hash}}, v.bytes);
        EXPECT_EQ(checked->status, 200) << checked->body;
    }
    const auto mismatch = upload("files/upload", {{"path", "/x"}, {"content_hash", vectors[0].hash}}, "not empty");
    EXPECT_EQ(mismatch->status, 409);
    EXPECT_EQ(tagOf(parse(mismatch)["error"]), "content_hash_mismatch");
}

TEST_F(DropboxUpload, ModesConflictsAndRevisions) {
    const auto first = upload("files/upload", {{"path", "/Scans/Receipt.pdf"}, {"mode", "add"}}, "hello world");
    ASSERT_EQ(first->status, 200) << first->body;
    const json original = parse(first);
    EXPECT_EQ(original["path_display"], "/Scans/Receipt.pdf");
    EXPECT_EQ(original["path_lower"], "/scans/receipt.pdf");
    EXPECT_EQ(original["id"].get<std::string>().rfind("id:", 0), 0u);
    EXPECT_GE(original["rev"].get<std::string>().size(), 9u);

    // add + other content: the documented conflict shape, bytes kept in a session.
    const auto conflict = upload("files/upload", {{"path", "/scans/RECEIPT.pdf"}}, "other bytes!");
    ASSERT_EQ(conflict->status, 409);
    const json error = parse(conflict);
    EXPECT_EQ(error["error_summary"].get<std::string>().rfind("path/conflict/file/", 0), 0u) << error;
    EXPECT_EQ(error["error"][".tag"], "path");
    EXPECT_EQ(error["error"]["reason"], json({{".tag", "conflict"}, {"conflict", {{".tag", "file"}}}}));
    const std::string session = error["error"]["upload_session_id"];
    EXPECT_EQ(session.rfind("pid_upload_session:", 0), 0u);
    const auto rescued = upload("files/upload_session/finish",
                                {{"cursor", {{"session_id", session}, {"offset", 12}}},
                                 {"commit", {{"path", "/Scans/Receipt (other).pdf"}}}},
                                "");
    ASSERT_EQ(rescued->status, 200) << rescued->body;
    EXPECT_EQ(sandbox.fileContent("dropbox", "/Scans/Receipt (other).pdf"), "other bytes!");

    // Identical content is no write and no conflict, unless strict.
    const auto same = upload("files/upload", {{"path", "/Scans/Receipt.pdf"}}, "hello world");
    ASSERT_EQ(same->status, 200);
    EXPECT_EQ(parse(same)["rev"], original["rev"]);
    const auto strict = upload("files/upload", {{"path", "/Scans/Receipt.pdf"}, {"strict_conflict", true}}, "hello world");
    EXPECT_EQ(strict->status, 409);

    const auto renamed = upload("files/upload", {{"path", "/Scans/Receipt.pdf"}, {"autorename", true}}, "v2");
    ASSERT_EQ(renamed->status, 200);
    EXPECT_EQ(parse(renamed)["name"], "Receipt (1).pdf");

    const auto overwritten = upload("files/upload", {{"path", "/Scans/Receipt.pdf"}, {"mode", "overwrite"}}, "v3");
    ASSERT_EQ(overwritten->status, 200);
    const json v3 = parse(overwritten);
    EXPECT_NE(v3["rev"], original["rev"]);
    EXPECT_EQ(v3["id"], original["id"]);
    EXPECT_EQ(v3["size"], 2);

    const json stale = {{"path", "/Scans/Receipt.pdf"}, {"mode", {{".tag", "update"}, {"update", original["rev"]}}}};
    const auto refused = upload("files/upload", stale, "v4");
    EXPECT_EQ(refused->status, 409);
    const json current = {{"path", "/Scans/Receipt.pdf"}, {"mode", {{".tag", "update"}, {"update", v3["rev"]}}}};
    EXPECT_EQ(upload("files/upload", current, "v4")->status, 200);

    // The earlier revision stays downloadable by rev; the path gives the latest bytes.
    EXPECT_EQ(download("rev:" + original["rev"].get<std::string>())->body, "hello world");
    const auto latest = download("/SCANS/receipt.PDF");
    ASSERT_EQ(latest->status, 200);
    EXPECT_EQ(latest->body, "v4");
    const json result = json::parse(latest->get_header_value("Dropbox-API-Result"));
    EXPECT_EQ(result["path_display"], "/Scans/Receipt.pdf");

    // A folder or a file in the way.
    const auto onFolder = upload("files/upload", {{"path", "/Scans"}}, "x");
    EXPECT_EQ(parse(onFolder)["error"]["reason"]["conflict"][".tag"], "folder");
    const auto underFile = upload("files/upload", {{"path", "/Scans/Receipt.pdf/inner.txt"}}, "x");
    EXPECT_EQ(parse(underFile)["error"]["reason"]["conflict"][".tag"], "file_ancestor");
    const auto forbidden = upload("files/upload", {{"path", "/Scans/Thumbs.db"}}, "x");
    EXPECT_EQ(parse(forbidden)["error"]["reason"][".tag"], "disallowed_name");
}

TEST_F(DropboxUpload, QuotaFullIsInsufficientSpace) {
    ASSERT_TRUE(sandbox.fillQuota("dropbox"));
    const auto full = upload("files/upload", {{"path", "/big.bin"}}, "does not fit");
    ASSERT_EQ(full->status, 409);
    EXPECT_EQ(parse(full)["error"]["reason"][".tag"], "insufficient_space");
    ASSERT_TRUE(sandbox.setQuota("dropbox", -1));
    EXPECT_EQ(upload("files/upload", {{"path", "/big.bin"}}, "fits now")->status, 200);
    // The same, as a one-request fault.
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/files/upload", *FaultSpec::parse("quota-full")));
    EXPECT_EQ(parse(upload("files/upload", {{"path", "/more.bin"}}, "x"))["error"]["reason"][".tag"],
              "insufficient_space");
}

TEST_F(DropboxUpload, SessionsWithALoweredLimit) {
    std::string error;
    ASSERT_TRUE(sandbox.configure("dropbox", {{"max_upload_request_bytes", 1024}}, &error)) << error;
    std::string bytes;
    for (int i = 0; i < 3000; ++i) bytes += static_cast<char>('a' + i % 26);

    const auto tooLarge = upload("files/upload", {{"path", "/big.txt"}}, bytes);
    ASSERT_EQ(tooLarge->status, 409);
    EXPECT_EQ(tagOf(parse(tooLarge)["error"]), "payload_too_large");

    const auto start = upload("files/upload_session/start", {{"close", false}}, bytes.substr(0, 1000));
    ASSERT_EQ(start->status, 200) << start->body;
    const std::string id = parse(start)["session_id"];
    auto append = [&](std::int64_t offset, const std::string& chunk, const std::string& session = {}) {
        return upload("files/upload_session/append_v2",
                      {{"cursor", {{"session_id", session.empty() ? id : session}, {"offset", offset}}}, {"close", false}},
                      chunk);
    };
    const auto appended = append(1000, bytes.substr(1000, 1000));
    ASSERT_EQ(appended->status, 200);
    EXPECT_EQ(appended->body, "null");

    const json wrongOffset = parse(append(0, "zzz"));
    EXPECT_EQ(wrongOffset["error"], json({{".tag", "incorrect_offset"}, {"correct_offset", 2000}}));
    EXPECT_EQ(tagOf(parse(append(2000, std::string(1025, 'x')))["error"]), "payload_too_large");

    const json commit = {{"path", "/Big.txt"}, {"mode", "add"}};
    const auto finished = upload("files/upload_session/finish",
                                 {{"cursor", {{"session_id", id}, {"offset", 2000}}}, {"commit", commit}},
                                 bytes.substr(2000));
    ASSERT_EQ(finished->status, 200) << finished->body;
    EXPECT_EQ(parse(finished)["size"], 3000);
    EXPECT_EQ(sandbox.fileContent("dropbox", "/big.txt"), bytes);

    // The session is used up; the same bytes in one request hash the same.
    const json gone = parse(upload("files/upload_session/finish",
                                   {{"cursor", {{"session_id", id}, {"offset", 3000}}}, {"commit", commit}}, ""));
    EXPECT_EQ(gone["error"], json({{".tag", "lookup_failed"}, {"lookup_failed", {{".tag", "not_found"}}}}));
    ASSERT_TRUE(sandbox.configure("dropbox", {{"max_upload_request_bytes", 4096}}));
    EXPECT_EQ(parse(upload("files/upload", {{"path", "/copy.txt"}}, bytes))["content_hash"],
              parse(finished)["content_hash"]);

    // A conflict at finish keeps the bytes: finish again elsewhere with an empty body.
    const auto again = upload("files/upload_session/start", json::object(), bytes.substr(0, 10));
    const std::string second = parse(again)["session_id"];
    const json clash = parse(upload("files/upload_session/finish",
                                    {{"cursor", {{"session_id", second}, {"offset", 10}}}, {"commit", commit}},
                                    "0123456789"));
    EXPECT_EQ(clash["error"], json({{".tag", "path"}, {"path", {{".tag", "conflict"}, {"conflict", {{".tag", "file"}}}}}}))
        << clash;
    const auto retried = upload("files/upload_session/finish",
                                {{"cursor", {{"session_id", second}, {"offset", 20}}},
                                 {"commit", {{"path", "/other.txt"}}}},
                                "");
    ASSERT_EQ(retried->status, 200) << retried->body;
    EXPECT_EQ(sandbox.fileContent("dropbox", "/other.txt"), bytes.substr(0, 10) + "0123456789");

    // Sessions expire after seven days.
    const std::string old = parse(upload("files/upload_session/start", json::object(), "abc"))["session_id"];
    sandbox.advanceClock(8 * 24 * 3600);
    sandbox.expireAccessTokens("dropbox");
    const auto refreshed = client->Post("/dropbox/api/oauth2/token",
                                        "grant_type=refresh_token&client_id=app&refresh_token=" + account.refreshToken,
                                        "application/x-www-form-urlencoded");
    account.accessToken = parse(refreshed)["access_token"];
    EXPECT_EQ(tagOf(parse(append(3, "x", old))["error"]), "not_found");
}

}  // namespace
}  // namespace vxcloud::sandbox::test
