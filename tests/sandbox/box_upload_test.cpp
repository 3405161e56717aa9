// The Box emulator's direct uploads: attributes before the file, Content-MD5 as a hex SHA-1,
// the size limit, name clashes answered with the item in the way (object or array), new
// versions that keep the id and honour If-Match, the preflight check, and a full account.
#include "sandbox/BoxWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class BoxUpload : public BoxWireTest {};

TEST_F(BoxUpload, NewFileFollowsBoxsRulesForTheBody) {
    auto late = client->Post(up("/files/content").c_str(), bearer(),
                             form({{"name", "a.txt"}, {"parent", {{"id", "0"}}}}, "bytes", true),
                             "multipart/form-data; boundary=XyZ");
    ASSERT_EQ(late->status, 400);
    EXPECT_EQ(codeOf(late), "metadata_after_file_contents");

    auto wrongDigest = uploadNew("a.txt", "bytes", "0", {{"Content-MD5", sha1Hex("other")}});
    ASSERT_EQ(wrongDigest->status, 400);
    EXPECT_EQ(codeOf(wrongDigest), "bad_digest");
    EXPECT_FALSE(sandbox.fileContent("box", "/a.txt"));

    std::string upper = sha1Hex("bytes");
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    auto created = uploadNew("a.txt", "bytes", "0", {{"Content-MD5", upper}});
    ASSERT_EQ(created->status, 201) << created->body;
    const json answer = parse(created);
    EXPECT_EQ(answer["total_count"], 1);
    const json file = answer["entries"][0];
    EXPECT_EQ(file["sha1"], sha1Hex("bytes"));
    EXPECT_EQ(file["size"], 5);
    EXPECT_EQ(file["parent"]["id"], "0");
    EXPECT_FALSE(created->get_header_value("box-request-id").empty());

    auto clash = uploadNew("A.TXT", "other");
    ASSERT_EQ(clash->status, 409);
    EXPECT_EQ(codeOf(clash), "item_name_in_use");
    const json conflict = parse(clash)["context_info"]["conflicts"];
    ASSERT_TRUE(conflict.is_object()) << "the object form by default";
    EXPECT_EQ(conflict["id"], file["id"]);
    EXPECT_EQ(conflict["sha1"], sha1Hex("bytes")) << "enough to tell 'already uploaded' from 'changed'";
    ASSERT_TRUE(sandbox.configure("box", {{"conflicts_as_array", true}}));
    EXPECT_EQ(parse(uploadNew("a.txt", "other"))["context_info"]["conflicts"][0]["id"], file["id"]);

    ASSERT_TRUE(sandbox.configure("box", {{"direct_upload_max_bytes", 4}}));
    auto large = uploadNew("large.bin", "12345");
    EXPECT_EQ(large->status, 413);
    EXPECT_EQ(codeOf(large), "request_entity_too_large");
    EXPECT_EQ(uploadNew("small.bin", "1234")->status, 201);
    EXPECT_FALSE(sandbox.fileContent("box", "/large.bin"));
}

TEST_F(BoxUpload, NewVersionKeepsTheIdAndHonoursIfMatch) {
    const json first = uploaded(uploadNew("report.pdf", "v1"));
    const std::string id = first["id"];

    auto stale = uploadVersion(id, "v2", {}, {{"If-Match", "stale"}});
    ASSERT_EQ(stale->status, 412);
    EXPECT_EQ(codeOf(stale), "precondition_failed");
    EXPECT_EQ(sandbox.fileContent("box", "/report.pdf"), "v1");

    auto next = uploadVersion(id, "v2", {{"content_modified_at", "2024-05-01T10:00:00+02:00"}},
                              {{"If-Match", first["etag"]}});
    ASSERT_EQ(next->status, 200) << next->body;
    const json second = uploaded(next);
    EXPECT_EQ(second["id"], id);
    EXPECT_NE(second["file_version"]["id"], first["file_version"]["id"]);
    EXPECT_NE(second["etag"], first["etag"]);
    EXPECT_EQ(second["sha1"], sha1Hex("v2"));
    EXPECT_EQ(second["content_modified_at"], "2024-05-01T00:00:00-08:00");
    EXPECT_EQ(sandbox.fileContent("box", "/report.pdf"), "v2");

    // Changed elsewhere: another version, seen on the next GET.
    ASSERT_FALSE(sandbox.changeFile("box", "/report.pdf", "v3").is_null());
    const json third = parse(get("/files/" + id));
    EXPECT_NE(third["file_version"]["id"], second["file_version"]["id"]);
    EXPECT_EQ(third["sha1"], sha1Hex("v3"));
    EXPECT_EQ(uploadVersion(id, "v4", {}, {{"If-Match", second["etag"]}})->status, 412);

    ASSERT_EQ(uploadNew("other.pdf", "o")->status, 201);
    auto renameClash = uploadVersion(id, "v4", {{"name", "Other.pdf"}});
    EXPECT_EQ(renameClash->status, 409);
    EXPECT_EQ(erroneousParameter(uploadVersion("123", "x")), "file");
}

TEST_F(BoxUpload, PreflightAndAFullAccount) {
    auto preflight = [&](const json& body) {
        httplib::Request request;
        request.method = "OPTIONS";
        request.path = api("/files/content");
        request.headers = bearer();
        request.set_header("Content-Type", "application/json");
        request.body = body.dump();
        return client->send(request);
    };
    auto fine = preflight({{"name", "a.pdf"}, {"parent", {{"id", "0"}}}, {"size", 10}});
    ASSERT_EQ(fine->status, 200) << fine->body;
    EXPECT_EQ(local(parse(fine)["upload_url"]), up("/files/content"));
    ASSERT_EQ(uploadNew("a.pdf", "x")->status, 201);
    EXPECT_EQ(codeOf(preflight({{"name", "a.pdf"}, {"parent", {{"id", "0"}}}})), "item_name_in_use");

    ASSERT_EQ(admin("/box/quota", {{"bytes", 100}})->status, 200);
    auto tooBig = preflight({{"name", "b.pdf"}, {"parent", {{"id", "0"}}}, {"size", 200}});
    EXPECT_EQ(tooBig->status, 403);
    EXPECT_EQ(codeOf(tooBig), "storage_limit_exceeded");

    ASSERT_EQ(admin("/box/quota", {{"full", true}})->status, 200);
    auto full = uploadNew("b.pdf", "more");
    EXPECT_EQ(full->status, 403);
    EXPECT_EQ(codeOf(full), "storage_limit_exceeded");
    ASSERT_EQ(admin("/box/quota", {{"bytes", nullptr}})->status, 200);
    ASSERT_TRUE(sandbox.enqueueFault("box/upload/new", *FaultSpec::parse("quota-full")));
    EXPECT_EQ(codeOf(uploadNew("c.pdf", "more")), "storage_limit_exceeded");
    EXPECT_EQ(uploadNew("c.pdf", "more")->status, 201);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
