// Dropbox corners a client meets in real life: resuming a session after a cut, concurrent
// sessions, ids as paths, accented names, conflicted copies, code expiry.
#include "sandbox/WireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class DropboxEdges : public WireTest {
protected:
    httplib::Result append(const std::string& session, std::int64_t offset, const std::string& bytes, bool close = false) {
        return upload("files/upload_session/append_v2",
                      {{"cursor", {{"session_id", session}, {"offset", offset}}}, {"close", close}}, bytes);
    }
};

TEST_F(DropboxEdges, SessionResumesAfterACutAtTheLastAcknowledgedOffset) {
    const std::string session = parse(upload("files/upload_session/start", {{"close", false}}, "0123456789"))["session_id"];
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/files/upload_session/append_v2", *FaultSpec::parse("drop-after=3")));
    EXPECT_FALSE(append(session, 10, "abcdefghij")) << "cut mid-chunk";
    // Nothing of the cut chunk was kept: the same offset works again.
    ASSERT_EQ(append(session, 10, "abcdefghij")->status, 200);
    const auto done = upload("files/upload_session/finish",
                             {{"cursor", {{"session_id", session}, {"offset", 20}}}, {"commit", {{"path", "/r.txt"}}}}, "");
    ASSERT_EQ(done->status, 200) << done->body;
    EXPECT_EQ(sandbox.fileContent("dropbox", "/r.txt"), "0123456789abcdefghij");

    // A cut answer after a processed append: the retry learns the real offset.
    const std::string second = parse(upload("files/upload_session/start", {{"close", false}}, "xy"))["session_id"];
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/files/upload_session/append_v2", *FaultSpec::parse("drop-response-after=0")));
    EXPECT_FALSE(append(second, 2, "zz"));
    EXPECT_EQ(parse(append(second, 2, "zz"))["error"], json({{".tag", "incorrect_offset"}, {"correct_offset", 4}}));
}

TEST_F(DropboxEdges, ConcurrentSessionsAssembleChunksByOffset) {
    ASSERT_TRUE(sandbox.configure("dropbox", {{"concurrent_chunk_multiple", 4}}));
    const auto start = upload("files/upload_session/start", {{"session_type", "concurrent"}}, "");
    ASSERT_EQ(start->status, 200) << start->body;
    const std::string id = parse(start)["session_id"];
    EXPECT_EQ(tagOf(parse(upload("files/upload_session/start", {{"session_type", "concurrent"}}, "data"))["error"]),
              "concurrent_session_data_not_allowed");
    EXPECT_EQ(tagOf(parse(append(id, 2, "abcd"))["error"]), "concurrent_session_invalid_offset");
    EXPECT_EQ(tagOf(parse(append(id, 0, "abc"))["error"]), "concurrent_session_invalid_data_size");
    // Chunks may come in any order; closing comes last and needs no gaps.
    ASSERT_EQ(append(id, 4, "efgh")->status, 200);
    ASSERT_EQ(append(id, 0, "abcd")->status, 200);
    const json finish = {{"cursor", {{"session_id", id}, {"offset", 10}}}, {"commit", {{"path", "/c.txt"}}}};
    EXPECT_EQ(tagOf(parse(upload("files/upload_session/finish", finish, ""))["error"]), "concurrent_session_not_closed");
    ASSERT_EQ(append(id, 8, "ij", true)->status, 200);
    EXPECT_EQ(tagOf(parse(append(id, 12, "kl"))["error"]), "closed");
    ASSERT_EQ(upload("files/upload_session/finish", finish, "")->status, 200);
    EXPECT_EQ(sandbox.fileContent("dropbox", "/c.txt"), "abcdefghij");
}

TEST_F(DropboxEdges, IdsAccentsAndConflictedCopies) {
    const json folder = parse(rpc("files/create_folder_v2", {{"path", "/R\xc3\xa9sum\xc3\xa9s"}}))["metadata"];
    // An id with a relative path below it, and case-insensitive accented names.
    const std::string inside = folder["id"].get<std::string>() + "/cv.pdf";
    const json cv = parse(upload("files/upload", {{"path", inside}}, "v1"));
    EXPECT_EQ(cv["path_display"], "/R\xc3\xa9sum\xc3\xa9s/cv.pdf");
    EXPECT_EQ(cv["path_lower"], "/r\xc3\xa9sum\xc3\xa9s/cv.pdf");
    EXPECT_EQ(parse(rpc("files/get_metadata", {{"path", "/R\xc3\x89SUM\xc3\x89S/CV.PDF"}}))["id"], cv["id"]);

    const auto byId = upload("files/upload", {{"path", cv["id"]}, {"mode", "overwrite"}}, "v2");
    EXPECT_EQ(parse(byId)["id"], cv["id"]);
    const json stale = {{"path", cv["path_display"]},
                        {"mode", {{".tag", "update"}, {"update", cv["rev"]}}},
                        {"autorename", true}};
    EXPECT_EQ(parse(upload("files/upload", stale, "v3"))["name"], "cv (conflicted copy).pdf");
    EXPECT_EQ(parse(upload("files/upload", {{"path", "/Missing/x"}, {"mode", {{".tag", "update"}, {"update", "0123456789"}}},
                                            {"strict_conflict", true}},
                           "x"))["error"]["reason"]["conflict"][".tag"],
              "file");
    EXPECT_EQ(parse(upload("files/upload", {{"path", "/a//b.txt"}}, "x"))["error"]["reason"][".tag"], "malformed_path");
}

TEST_F(DropboxEdges, TokenEndpointRefusesWhatItShould) {
    auto token = [&](const std::string& form, const std::string& type = "application/x-www-form-urlencoded") {
        return client->Post("/dropbox/api/oauth2/token", form, type.c_str());
    };
    EXPECT_EQ(parse(token("grant_type=password&client_id=app"))["error"], "unsupported_grant_type");
    EXPECT_EQ(parse(token(R"({"grant_type": "refresh_token"})", "application/json"))["error"], "invalid_request");
    // Codes expire.
    const auto redirect = client->Get("/dropbox/oauth2/authorize?client_id=app&response_type=code"
                                      "&redirect_uri=http://127.0.0.1:9/&sandbox_auto_approve=1");
    ASSERT_EQ(redirect->status, 302);
    const std::string location = redirect->get_header_value("Location");
    std::string code = location.substr(location.find("code=") + 5);
    code = code.substr(0, code.find('&'));
    sandbox.advanceClock(601);
    const auto late = token("grant_type=authorization_code&client_id=app&redirect_uri=http%3A%2F%2F127.0.0.1%3A9%2F&code=" + code);
    EXPECT_EQ(parse(late)["error"], "invalid_grant") << late->body;
}

}  // namespace
}  // namespace vxcloud::sandbox::test
