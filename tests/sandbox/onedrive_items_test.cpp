// The Graph emulator's items: addressing by id and path, children pages through nextLink,
// folders and PATCH with their name conflicts, downloads through pre-authenticated URLs,
// the hashes per drive type, and injected throttling in Graph's error shape.
#include "sandbox/OneDriveWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class OneDriveItems : public OneDriveWireTest {};

TEST_F(OneDriveItems, ItemsAreFoundByIdAndByPathCaseInsensitively) {
    const json drive = parse(client->Get("/onedrive/v1.0/me/drive", bearer()));
    EXPECT_EQ(drive["driveType"], "personal");
    EXPECT_EQ(drive["owner"]["user"]["id"], graph.userId);
    EXPECT_EQ(drive["owner"]["user"]["displayName"], graph.displayName);
    EXPECT_GT(drive["quota"]["remaining"].get<std::int64_t>(), 0);

    const json root = parse(get("/root"));
    EXPECT_TRUE(root.contains("root"));
    EXPECT_EQ(parse(get("/items/root"))["id"], root["id"]);
    sandbox.putFile("onedrive", "/Scans/Receipt.pdf", "%PDF-1");

    const json byPath = parse(get("/root:/scans/RECEIPT.pdf:"));
    EXPECT_EQ(byPath["name"], "Receipt.pdf");
    EXPECT_EQ(byPath["size"], 6);
    EXPECT_EQ(byPath["file"]["mimeType"], "application/pdf");
    EXPECT_EQ(byPath["parentReference"]["path"], "/drive/root:/Scans");
    EXPECT_EQ(byPath["parentReference"]["driveId"], drive["id"]);
    const std::string scans = byPath["parentReference"]["id"];
    EXPECT_EQ(parse(get("/items/" + scans + ":/Receipt.pdf"))["id"], byPath["id"]);
    EXPECT_EQ(parse(get("/root:/Scans"))["folder"]["childCount"], 1);
    EXPECT_EQ(parse(get("/root:/Scans"))["size"], 6);

    auto missing = get("/root:/Scans/nothing.pdf:");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404);
    EXPECT_EQ(codeOf(missing), "itemNotFound");
    const json inner = parse(missing)["error"]["innerError"];
    EXPECT_EQ(inner["request-id"], missing->get_header_value("request-id"));
    EXPECT_TRUE(inner.contains("date"));

    auto anonymous = client->Get(api("/root").c_str());
    ASSERT_TRUE(anonymous);
    EXPECT_EQ(anonymous->status, 401);
    EXPECT_EQ(codeOf(anonymous), "InvalidAuthenticationToken");
    EXPECT_NE(anonymous->get_header_value("WWW-Authenticate").find("Bearer"), std::string::npos);
}

TEST_F(OneDriveItems, ChildrenComeInPagesLinkedByNextLink) {
    ASSERT_TRUE(sandbox.configure("onedrive", {{"children_page_size", 2}}));
    for (int i = 0; i < 5; ++i) sandbox.putFile("onedrive", "/Docs/f" + std::to_string(i) + ".txt", "x");

    std::vector<std::string> names;
    std::string next = api("/root:/Docs:/children");
    int pages = 0;
    while (!next.empty() && pages < 10) {
        const json page = parse(client->Get(next.c_str(), bearer()));
        ++pages;
        EXPECT_LE(page["value"].size(), 2u);
        for (const auto& item : page["value"]) names.push_back(item["name"]);
        next = page.contains("@odata.nextLink") ? local(page["@odata.nextLink"]) : std::string();
    }
    EXPECT_EQ(pages, 3);
    EXPECT_EQ(names, (std::vector<std::string>{"f0.txt", "f1.txt", "f2.txt", "f3.txt", "f4.txt"}));

    const json selected = parse(get("/root:/Docs:/children?$top=1&$select=id,name"));
    ASSERT_EQ(selected["value"].size(), 1u);
    EXPECT_EQ(selected["value"][0].size(), 2u);
    EXPECT_NE(selected.value("@odata.nextLink", "").find("$top=1&$select=id%2Cname&$skiptoken="), std::string::npos);
    auto badToken = get("/root:/Docs:/children?$skiptoken=garbage");
    ASSERT_TRUE(badToken);
    EXPECT_EQ(badToken->status, 400);
}

TEST_F(OneDriveItems, FoldersAndPatchFollowTheConflictRules) {
    const std::string scans = folder("Scans")["id"];
    auto again = client->Post(api("/root/children").c_str(), bearer(),
                              json{{"name", "scans"}, {"folder", json::object()}}.dump(), "application/json");
    ASSERT_TRUE(again);
    EXPECT_EQ(again->status, 409) << "the default for a new folder is fail";
    EXPECT_EQ(codeOf(again), "nameAlreadyExists");
    const json renamed = parse(client->Post(
        api("/root/children").c_str(), bearer(),
        json{{"name", "Scans"}, {"folder", json::object()}, {"@microsoft.graph.conflictBehavior", "rename"}}.dump(),
        "application/json"));
    EXPECT_EQ(renamed["name"], "Scans 1");
    auto reserved = client->Post(api("/root/children").c_str(), bearer(),
                                 json{{"name", "a|b"}, {"folder", json::object()}}.dump(), "application/json");
    ASSERT_TRUE(reserved);
    EXPECT_EQ(reserved->status, 400);

    const json file = parse(put("root", "a.pdf", "AAA"));
    const std::string id = file["id"];
    auto patch = [&](const json& body, const std::string& ifMatch = {}) {
        httplib::Headers headers = bearer();
        if (!ifMatch.empty()) headers.emplace("If-Match", ifMatch);
        return client->Patch(api("/items/" + id).c_str(), headers, body.dump(), "application/json");
    };
    auto moved = patch({{"parentReference", {{"id", scans}}}, {"name", "b.pdf"}}, file["eTag"]);
    ASSERT_TRUE(moved);
    ASSERT_EQ(moved->status, 200) << moved->body;
    EXPECT_EQ(parse(moved)["parentReference"]["path"], "/drive/root:/Scans");
    EXPECT_EQ(parse(moved)["name"], "b.pdf");
    auto stale = patch({{"name", "c.pdf"}}, file["eTag"]);
    ASSERT_TRUE(stale);
    EXPECT_EQ(stale->status, 412);
    EXPECT_EQ(codeOf(stale), "resourceModified");

    put(scans, "other.pdf", "B");
    auto clash = patch({{"name", "OTHER.pdf"}});
    ASSERT_TRUE(clash);
    EXPECT_EQ(clash->status, 409);
    EXPECT_EQ(codeOf(clash), "nameAlreadyExists");
    EXPECT_EQ(parse(patch({{"name", "B.PDF"}}))["name"], "B.PDF") << "a change of case is no clash";
    auto intoItself = client->Patch(api("/items/" + scans).c_str(), bearer(),
                                    json{{"parentReference", {{"id", scans}}}}.dump(), "application/json");
    ASSERT_TRUE(intoItself);
    EXPECT_EQ(intoItself->status, 400);
    auto byPath = patch({{"parentReference", {{"path", "/drive/root:"}}}});
    ASSERT_TRUE(byPath);
    EXPECT_EQ(parse(byPath)["parentReference"]["path"], "/drive/root:");
    EXPECT_EQ(sandbox.stats("onedrive/items/update").requests, 6);

    auto removed = client->Delete(api("/items/" + id).c_str(), bearer());
    ASSERT_TRUE(removed);
    EXPECT_EQ(removed->status, 204);
    EXPECT_EQ(get("/items/" + id)->status, 404);
}

TEST_F(OneDriveItems, ContentRedirectsToAnAddressThatNeedsNoToken) {
    sandbox.putFile("onedrive", "/Scans/a.pdf", "0123456789");
    auto redirect = get("/root:/Scans/a.pdf:/content");
    ASSERT_TRUE(redirect);
    ASSERT_EQ(redirect->status, 302);
    const std::string location = redirect->get_header_value("Location");
    ASSERT_EQ(location.rfind(sandbox.baseUrl(), 0), 0u) << location;

    auto plain = client->Get(local(location).c_str());
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->status, 200);
    EXPECT_EQ(plain->body, "0123456789");
    auto ranged = client->Get(local(location).c_str(), {{"Range", "bytes=2-4"}});
    ASSERT_TRUE(ranged);
    EXPECT_EQ(ranged->status, 206);
    EXPECT_EQ(ranged->body, "234");
    auto withToken = client->Get(local(location).c_str(), bearer());
    ASSERT_TRUE(withToken);
    EXPECT_EQ(withToken->status, 401) << "a bearer token does not belong on a pre-authenticated URL";

    const json item = parse(get("/root:/Scans/a.pdf:"));
    EXPECT_EQ(client->Get(local(item["@microsoft.graph.downloadUrl"]).c_str())->body, "0123456789");
    httplib::Headers conditional = bearer();
    conditional.emplace("If-None-Match", item["cTag"].get<std::string>());
    EXPECT_EQ(client->Get(api("/root:/Scans/a.pdf:/content").c_str(), conditional)->status, 304);

    ASSERT_TRUE(sandbox.configure("onedrive", {{"download_redirect", false}}));
    auto direct = get("/items/" + item["id"].get<std::string>() + "/content");
    ASSERT_TRUE(direct);
    EXPECT_EQ(direct->status, 200);
    EXPECT_EQ(direct->body, "0123456789");
    EXPECT_EQ(get("/root:/Scans:/content")->status, 400) << "a folder has no content";
}

TEST_F(OneDriveItems, HashesFollowTheDriveTypeAndTheQuickXorVectors) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", "AAAAAAAAAAAAAAAAAAAAAAAAAAA="},
        {"J", "SgAAAAAAAAAAAAAAAQAAAAAAAAA="},
        {"\xb5\xb4", "taAFAAAAAAAAAAAAAgAAAAAAAAA="},
        {"quick_xor_hash_text_of_some_sort", "x26n1MWtON/m0nET1m1ygSm5BPs="},
        {"abc", "YRDDGAAAAAAAAAAAAwAAAAAAAAA="},
        {"Hello, World!", "SCgDG9jwBhaA4ApvnQMbyBACAAA="},
        {"The quick brown fox jumps over the lazy dog", "bMSlbysmxJL6S75XwfMcQZOpcr4="},
    };
    int n = 0;
    for (const auto& [bytes, digest] : vectors) {
        const json item = sandbox.putFile("onedrive", "/v/" + std::to_string(n++), bytes);
        EXPECT_EQ(item["file"]["hashes"]["quickXorHash"], digest) << bytes;
        EXPECT_FALSE(item["file"]["hashes"].contains("sha1Hash")) << "no SHA-1 unless asked for";
    }

    ASSERT_TRUE(sandbox.configure("onedrive", {{"sha1_personal", true}}));
    const json before = parse(get("/root:/v/4:"));
    EXPECT_EQ(before["file"]["hashes"]["sha1Hash"], "A9993E364706816ABA3E25717850C26C9CD0D89D");
    ASSERT_TRUE(sandbox.configure("onedrive", {{"drive_type", "business"}}));
    const json business = parse(get("/root:/v/4:"));
    EXPECT_FALSE(business["file"]["hashes"].contains("sha1Hash"));
    EXPECT_EQ(business["parentReference"]["driveType"], "business");
    EXPECT_EQ(parse(client->Get("/onedrive/v1.0/me/drive", bearer()))["id"].get<std::string>().rfind("b!", 0), 0u);
    ASSERT_TRUE(sandbox.configure("onedrive", {{"sha1_business", true}}));
    EXPECT_TRUE(parse(get("/root:/v/4:"))["file"]["hashes"].contains("sha1Hash"));
    std::string error;
    EXPECT_FALSE(sandbox.configure("onedrive", {{"drive_type", "shared"}}, &error));

    const json changed = sandbox.changeFile("onedrive", "/v/4", "abd");
    EXPECT_NE(changed["eTag"], business["eTag"]);
    EXPECT_NE(changed["cTag"], business["cTag"]);
    EXPECT_NE(changed["file"]["hashes"]["quickXorHash"], business["file"]["hashes"]["quickXorHash"]);
    EXPECT_EQ(changed["id"], business["id"]);
}

TEST_F(OneDriveItems, ThrottlingFaultsSpeakGraph) {
    ASSERT_TRUE(sandbox.enqueueFault("onedrive/items/children", *FaultSpec::parse("status=429;retry-after=7")));
    auto throttled = get("/root/children");
    ASSERT_TRUE(throttled);
    EXPECT_EQ(throttled->status, 429);
    EXPECT_EQ(throttled->get_header_value("Retry-After"), "7");
    EXPECT_EQ(codeOf(throttled), "activityLimitReached");
    EXPECT_EQ(innerCodeOf(throttled), "throttledRequest");

    // Some hosts spell the header in lower case; it is sent as written.
    ASSERT_TRUE(sandbox.enqueueFault("onedrive/*", *FaultSpec::parse("status=503;header=retry-after:3")));
    auto unavailable = get("/root");
    ASSERT_TRUE(unavailable);
    EXPECT_EQ(unavailable->status, 503);
    EXPECT_EQ(unavailable->get_header_value("retry-after"), "3");
    EXPECT_EQ(codeOf(unavailable), "serviceNotAvailable");
    EXPECT_EQ(FaultSpec::parse("status=503;header=retry-after:3")->toString(), "status=503;header=retry-after%3A3");

    ASSERT_TRUE(sandbox.enqueueFault("onedrive/items/upload", *FaultSpec::parse("quota-full")));
    auto full = put("root", "a.pdf", "abc");
    ASSERT_TRUE(full);
    EXPECT_EQ(full->status, 507);
    EXPECT_EQ(codeOf(full), "quotaLimitReached");
    EXPECT_EQ(sandbox.stats("onedrive/*").faultsHit, 3);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
