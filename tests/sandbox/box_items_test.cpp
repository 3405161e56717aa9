// The Box emulator's folders and files: listings paged by offset and by marker (limit clamped
// and echoed), mini and `fields` representations, names unique across files and folders
// ignoring case, renames, moves, deletes, 404s naming the missing folder or parent, and
// downloads by redirect to a URL that needs no token.
#include "sandbox/BoxWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class BoxItems : public BoxWireTest {};

TEST_F(BoxItems, ListingPagesByOffsetAndMarkerWithFoldersFirst) {
    for (const char* name : {"b.txt", "A.txt", "c.txt"}) ASSERT_EQ(uploadNew(name, name)->status, 201);
    const std::string zeta = folder("zeta"), alpha = folder("Alpha");

    const json first = parse(get("/folders/0/items?limit=2&offset=0"));
    EXPECT_EQ(first["total_count"], 5);
    EXPECT_EQ(first["limit"], 2);
    ASSERT_EQ(first["entries"].size(), 2u);
    EXPECT_EQ(first["entries"][0]["id"], alpha) << "folders first, then by name ignoring case";
    EXPECT_EQ(first["entries"][1]["id"], zeta);
    EXPECT_EQ(first["entries"][0], json({{"type", "folder"}, {"id", alpha}, {"sequence_id", first["entries"][0]["etag"]},
                                         {"etag", first["entries"][0]["etag"]}, {"name", "Alpha"}}));
    const json last = parse(get("/folders/0/items?limit=2&offset=4"));
    ASSERT_EQ(last["entries"].size(), 1u);
    EXPECT_EQ(last["entries"][0]["name"], "c.txt");
    const json file = last["entries"][0];
    EXPECT_EQ(file["sha1"], sha1Hex("c.txt")) << "a file's mini form carries its SHA-1 and version";
    EXPECT_EQ(file["file_version"]["sha1"], file["sha1"]);
    EXPECT_FALSE(file.contains("size"));

    EXPECT_EQ(parse(get("/folders/0/items"))["limit"], 100);
    EXPECT_EQ(parse(get("/folders/0/items?limit=5000"))["limit"], 1000) << "clamped, and the limit used is echoed";
    ASSERT_TRUE(sandbox.configure("box", {{"page_limit_max", 3}}));
    EXPECT_EQ(parse(get("/folders/0/items"))["limit"], 3);
    EXPECT_EQ(codeOf(get("/folders/0/items?limit=ten")), "invalid_limit");

    std::vector<std::string> walked;
    std::string path = "/folders/0/items?usemarker=true&limit=2";
    for (int pages = 0; pages < 5; ++pages) {
        const json page = parse(get(path));
        EXPECT_FALSE(page.contains("total_count"));
        for (const auto& entry : page["entries"]) walked.push_back(entry["name"]);
        if (page["next_marker"].is_null()) break;
        path = "/folders/0/items?usemarker=true&limit=2&marker=" + enc(page["next_marker"]);
    }
    EXPECT_EQ(walked, (std::vector<std::string>{"Alpha", "zeta", "A.txt", "b.txt", "c.txt"}));
    auto foreign = get("/folders/" + zeta + "/items?usemarker=true&marker=" +
                       enc(parse(get("/folders/0/items?usemarker=true&limit=1"))["next_marker"]));
    EXPECT_EQ(foreign->status, 400) << "a marker belongs to its folder's listing";

    const json picked = parse(get("/folders/0/items?fields=name,size,modified_at&offset=4&limit=1"))["entries"][0];
    EXPECT_EQ(picked.size(), 6u) << picked.dump();
    for (const char* key : {"type", "id", "etag", "name", "size", "modified_at"}) {
        EXPECT_TRUE(picked.contains(key)) << key;
    }
    EXPECT_EQ(picked["size"], 5);
}

TEST_F(BoxItems, RootFilesAndTheUserLookAsBoxShowsThem) {
    const json root = parse(get("/folders/0"));
    EXPECT_EQ(root["name"], "All Files");
    EXPECT_TRUE(root["parent"].is_null());
    EXPECT_TRUE(root["etag"].is_null());
    EXPECT_EQ(root["path_collection"]["total_count"], 0);

    const std::string scans = folder("Scans");
    const json file = uploaded(uploadNew("a.pdf", "abc", scans));
    const json full = parse(get("/files/" + file["id"].get<std::string>()));
    EXPECT_EQ(full["sha1"], "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(full["size"], 3);
    EXPECT_EQ(full["parent"]["id"], scans);
    EXPECT_EQ(full["path_collection"]["entries"][0]["name"], "All Files");
    EXPECT_EQ(full["path_collection"]["entries"][1]["id"], scans);
    EXPECT_EQ(full["item_status"], "active");
    const std::string modified = full["content_modified_at"];
    EXPECT_EQ(modified.substr(modified.size() - 6), "-08:00") << "times carry an offset, not Z";
    for (const std::string decimal : {full["id"], full["file_version"]["id"], full["etag"]}) {
        EXPECT_FALSE(decimal.empty());
        EXPECT_EQ(decimal.find_first_not_of("0123456789"), std::string::npos) << decimal;
    }
    EXPECT_EQ(sandbox.metadata("box", "/Scans/a.pdf"), full) << "the admin API renders the same JSON";
    EXPECT_EQ(client->Get(api("/files/" + file["id"].get<std::string>()).c_str(),
                          {{"Authorization", "Bearer " + box.accessToken}, {"If-None-Match", full["etag"]}})
                  ->status,
              304);

    const json me = parse(get("/users/me"));
    EXPECT_EQ(me["type"], "user");
    EXPECT_EQ(me["name"], "Ada Lovelace");
    EXPECT_EQ(me["login"], "ada@example.com");
    EXPECT_EQ(me["id"], box.userId);
    EXPECT_EQ(me["space_used"], 3);
}

TEST_F(BoxItems, NamesAreUniqueAcrossFilesAndFoldersIgnoringCase) {
    const std::string reports = folder("Reports");
    auto again = client->Post(api("/folders").c_str(), bearer(),
                              json{{"name", "REPORTS"}, {"parent", {{"id", "0"}}}}.dump(), "application/json");
    ASSERT_EQ(again->status, 409);
    EXPECT_EQ(codeOf(again), "item_name_in_use");
    EXPECT_EQ(parse(again)["context_info"]["conflicts"][0]["id"], reports) << "reuse the existing folder's id";

    auto asFile = uploadNew("reports", "x");
    ASSERT_EQ(asFile->status, 409);
    EXPECT_EQ(parse(asFile)["context_info"]["conflicts"]["type"], "folder");

    for (const std::string bad : {"a/b", "a\\b", " lead", "trail ", ".", "..", "tab\there", ""}) {
        auto refused = uploadNew(bad, "x");
        EXPECT_EQ(refused->status, 400) << bad;
        EXPECT_EQ(codeOf(refused), "item_name_invalid") << bad;
    }
    EXPECT_EQ(codeOf(uploadNew(std::string(256, 'n'), "x")), "item_name_too_long");
    EXPECT_EQ(uploadNew(std::string(255, 'n'), "x")->status, 201);
}

TEST_F(BoxItems, RenameMoveAndDeleteWithTheirRefusals) {
    const std::string docs = folder("Docs"), inner = folder("Inner", docs);
    const json file = uploaded(uploadNew("a.txt", "one"));
    const std::string id = file["id"];
    ASSERT_EQ(uploadNew("taken.txt", "two", docs)->status, 201);

    auto stale = putJson("/files/" + id, {{"name", "b.txt"}}, {{"If-Match", "stale"}});
    EXPECT_EQ(stale->status, 412);
    EXPECT_EQ(codeOf(stale), "precondition_failed");
    const json renamed = parse(putJson("/files/" + id, {{"name", "b.txt"}}, {{"If-Match", file["etag"]}}));
    EXPECT_EQ(renamed["name"], "b.txt");
    EXPECT_NE(renamed["etag"], file["etag"]);
    auto clash = putJson("/files/" + id, {{"name", "TAKEN.txt"}, {"parent", {{"id", docs}}}});
    EXPECT_EQ(clash->status, 409);
    EXPECT_EQ(codeOf(clash), "item_name_in_use");
    const json moved = parse(putJson("/files/" + id, {{"parent", {{"id", docs}}}}));
    EXPECT_EQ(moved["parent"]["id"], docs);
    EXPECT_EQ(sandbox.fileContent("box", "/Docs/b.txt"), "one");

    auto noParent = putJson("/files/" + id, {{"parent", {{"id", "123"}}}});
    EXPECT_EQ(noParent->status, 404);
    EXPECT_EQ(erroneousParameter(noParent), "parent");
    auto missing = get("/folders/123/items");
    ASSERT_EQ(missing->status, 404);
    EXPECT_EQ(parse(missing)["context_info"]["errors"][0],
              json({{"reason", "invalid_parameter"},
                    {"name", "folder"},
                    {"message", "Invalid value 'd_123'. 'folder' with value 'd_123' not found"}}));
    auto uploadNoParent = uploadNew("x.txt", "x", "123");
    EXPECT_EQ(uploadNoParent->status, 404);
    EXPECT_EQ(erroneousParameter(uploadNoParent), "parent");

    EXPECT_EQ(putJson("/folders/" + docs, {{"parent", {{"id", inner}}}})->status, 400) << "not into itself";
    auto notEmpty = client->Delete(api("/folders/" + docs).c_str(), bearer());
    EXPECT_EQ(notEmpty->status, 400);
    EXPECT_EQ(codeOf(notEmpty), "folder_not_empty");
    EXPECT_EQ(client->Delete(api("/files/" + id).c_str(), bearer())->status, 204);
    EXPECT_EQ(erroneousParameter(get("/files/" + id)), "file");
    EXPECT_EQ(client->Delete(api("/folders/" + docs + "?recursive=true").c_str(), bearer())->status, 204);
    EXPECT_EQ(parse(get("/folders/0/items"))["total_count"], 0);
}

TEST_F(BoxItems, DownloadRedirectsToAUrlThatNeedsNoToken) {
    const std::string id = uploaded(uploadNew("a.bin", "0123456789"))["id"];
    const std::string first = parse(get("/files/" + id))["file_version"]["id"];
    ASSERT_EQ(uploadVersion(id, "abcdefghij")->status, 200);

    auto redirect = get("/files/" + id + "/content");
    ASSERT_EQ(redirect->status, 302);
    const std::string location = local(redirect->get_header_value("Location"));
    EXPECT_EQ(location.rfind("/box/dl/", 0), 0u);
    auto bytes = client->Get(location.c_str());
    ASSERT_EQ(bytes->status, 200);
    EXPECT_EQ(bytes->body, "abcdefghij");
    auto range = client->Get(location.c_str(), {{"Range", "bytes=2-4"}});
    EXPECT_EQ(range->status, 206);
    EXPECT_EQ(range->body, "cde");

    auto older = get("/files/" + id + "/content?version=" + first);
    EXPECT_EQ(client->Get(local(older->get_header_value("Location")).c_str())->body, "0123456789");
    EXPECT_EQ(client->Get("/box/dl/unknown")->status, 404);

    ASSERT_TRUE(sandbox.configure("box", {{"download_redirect", false}}));
    auto direct = get("/files/" + id + "/content");
    EXPECT_EQ(direct->status, 200);
    EXPECT_EQ(direct->body, "abcdefghij");
}

}  // namespace
}  // namespace vxcloud::sandbox::test
