// The Graph emulator's uploads: the simple PUT with its conflict behaviours and size limit,
// and upload sessions: fragments in 320 KiB units, a fragment kept in part and the upload
// resumed from nextExpectedRanges, 416 on overlap, no bearer token at the upload URL,
// expiry on the sandbox clock, and cancelling.
#include "sandbox/OneDriveWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

constexpr std::size_t kUnit = 320 * 1024;

std::string bytesOf(std::size_t size) {
    std::string out(size, '\0');
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<char>(i * 31 + i / 977);
    return out;
}

class OneDriveUpload : public OneDriveWireTest {
protected:
    // Creates a session for root:/name; its upload URL's path on the sandbox.
    std::string session(const std::string& name, const json& item = json::object()) {
        auto answer = client->Post(api("/root:/" + enc(name) + ":/createUploadSession").c_str(), bearer(),
                                   json{{"item", item}}.dump(), "application/json");
        EXPECT_TRUE(answer);
        if (!answer || answer->status != 200) return {};
        const json body = parse(answer);
        EXPECT_EQ(body["nextExpectedRanges"], json::array({"0-"}));
        EXPECT_TRUE(body.contains("expirationDateTime"));
        return local(body["uploadUrl"]);
    }
    httplib::Result fragment(const std::string& url, const std::string& bytes, std::size_t first, std::size_t length,
                             httplib::Headers headers = {}) {
        headers.emplace("Content-Range", "bytes " + std::to_string(first) + "-" + std::to_string(first + length - 1) +
                                             "/" + std::to_string(bytes.size()));
        return client->Put(url.c_str(), headers, bytes.substr(first, length), "application/octet-stream");
    }
};

TEST_F(OneDriveUpload, SimplePutFollowsItsConflictBehaviour) {
    auto created = put("root", "a.pdf", "one");
    ASSERT_TRUE(created);
    EXPECT_EQ(created->status, 201);
    const std::string id = parse(created)["id"];

    auto replaced = put("root", "A.PDF", "two");  // replace is the default
    ASSERT_TRUE(replaced);
    EXPECT_EQ(replaced->status, 200);
    EXPECT_EQ(parse(replaced)["id"], id);
    EXPECT_EQ(sandbox.fileContent("onedrive", "/a.pdf"), "two");

    auto refused = put("root", "a.pdf", "three", "fail");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 409);
    EXPECT_EQ(codeOf(refused), "nameAlreadyExists");
    EXPECT_EQ(parse(put("root", "a.pdf", "four", "rename"))["name"], "a 1.pdf");
    EXPECT_EQ(parse(put("root", "a.pdf", "five", "rename"))["name"], "a 2.pdf");

    auto byId = client->Put(api("/items/" + id + "/content").c_str(), bearer(), "six", "application/octet-stream");
    ASSERT_TRUE(byId);
    EXPECT_EQ(byId->status, 200);
    EXPECT_EQ(sandbox.fileContent("onedrive", "/a.pdf"), "six");

    auto noParent = put("root", "missing/x.pdf", "x");
    ASSERT_TRUE(noParent);
    EXPECT_EQ(noParent->status, 404);
    // SharePoint may keep other bytes than it was sent; the answer tells what it kept.
    ASSERT_TRUE(sandbox.configure("onedrive", {{"drive_type", "business"}, {"business_alters_uploads", true}}));
    const json altered = parse(put("root", "b.pdf", "%PDF-1"));
    EXPECT_GT(altered["size"].get<int>(), 6);
    EXPECT_EQ(altered["size"], sandbox.fileContent("onedrive", "/b.pdf")->size());
    EXPECT_EQ(altered["file"]["hashes"]["quickXorHash"], sandbox.metadata("onedrive", "/b.pdf")["file"]["hashes"]["quickXorHash"]);

    ASSERT_TRUE(sandbox.configure("onedrive", {{"simple_upload_max_bytes", 4}}));
    auto large = put("root", "large.pdf", "12345");
    ASSERT_TRUE(large);
    EXPECT_EQ(large->status, 413);
    EXPECT_FALSE(sandbox.fileContent("onedrive", "/large.pdf"));
}

TEST_F(OneDriveUpload, SessionKeepsPartOfAFragmentAndResumesWhereItSays) {
    const std::string bytes = bytesOf(2 * kUnit + 1000);
    const std::string url = session("big scan.pdf", {{"@microsoft.graph.conflictBehavior", "rename"},
                                                     {"fileSize", bytes.size()}});
    ASSERT_FALSE(url.empty());
    ASSERT_TRUE(sandbox.configure("onedrive", {{"fragment_keep_max_bytes", 100000}}));

    auto withToken = fragment(url, bytes, 0, kUnit, bearer());
    ASSERT_TRUE(withToken);
    EXPECT_EQ(withToken->status, 401) << "the upload URL is pre-authenticated";
    auto partial = fragment(url, bytes, 0, kUnit);
    ASSERT_TRUE(partial);
    ASSERT_EQ(partial->status, 202) << partial->body;
    EXPECT_EQ(parse(partial)["nextExpectedRanges"], json::array({"100000-"}));

    auto overlap = fragment(url, bytes, 0, kUnit);
    ASSERT_TRUE(overlap);
    EXPECT_EQ(overlap->status, 416);
    EXPECT_EQ(codeOf(overlap), "invalidRange");
    EXPECT_EQ(innerCodeOf(overlap), "fragmentOverlap");
    EXPECT_EQ(fragment(url, bytes, 200000, kUnit)->status, 416) << "a gap is refused too";
    EXPECT_EQ(fragment(url, bytes, 100000, 1000)->status, 400) << "only the last fragment may be short";
    auto otherTotal = client->Put(url.c_str(), {{"Content-Range", "bytes 100000-100009/5000000"}}, bytes.substr(100000, 10),
                                  "application/octet-stream");
    ASSERT_TRUE(otherTotal);
    EXPECT_EQ(otherTotal->status, 400);

    const json status = parse(client->Get(url.c_str()));
    EXPECT_EQ(status["nextExpectedRanges"], json::array({"100000-"}));
    // Stored, but answered with a failure: the repeat overlaps and the status tells where to go on.
    ASSERT_TRUE(sandbox.configure("onedrive", {{"fragment_keep_max_bytes", 0}}));
    ASSERT_TRUE(sandbox.enqueueFault("onedrive/upload/fragment", *FaultSpec::parse("status=503;processed")));
    EXPECT_EQ(fragment(url, bytes, 100000, kUnit)->status, 503);
    EXPECT_EQ(fragment(url, bytes, 100000, kUnit)->status, 416);
    EXPECT_EQ(parse(client->Get(url.c_str()))["nextExpectedRanges"], json::array({std::to_string(100000 + kUnit) + "-"}));
    auto done = fragment(url, bytes, 100000 + kUnit, bytes.size() - 100000 - kUnit);
    ASSERT_TRUE(done);
    ASSERT_EQ(done->status, 201) << done->body;
    const json item = parse(done);
    EXPECT_EQ(item["name"], "big scan.pdf");
    EXPECT_EQ(item["size"], bytes.size());
    EXPECT_TRUE(sandbox.fileContent("onedrive", "/big scan.pdf") == bytes);
    EXPECT_EQ(item["file"]["hashes"]["quickXorHash"],
              sandbox.metadata("onedrive", "/big scan.pdf")["file"]["hashes"]["quickXorHash"]);
    EXPECT_EQ(client->Get(url.c_str())->status, 404) << "a finished session is gone";

    const auto stats = sandbox.stats("onedrive/upload/fragment");
    EXPECT_EQ(stats.statuses.at(401), 1);
    EXPECT_EQ(sandbox.stats("onedrive/upload/status").statuses.count(401), 0u);
}

TEST_F(OneDriveUpload, SessionsExpireUnlessUsedAndCanBeCancelled) {
    sandbox.putFile("onedrive", "/taken.pdf", "x");
    auto clash = client->Post(api("/root:/taken.pdf:/createUploadSession").c_str(), bearer(), "", "application/json");
    ASSERT_TRUE(clash);
    EXPECT_EQ(clash->status, 409) << "fail is the sessions' default";

    ASSERT_TRUE(sandbox.configure("onedrive", {{"upload_session_lifetime", 1000}}));
    const std::string bytes = bytesOf(kUnit + 10);
    const std::string used = session("used.pdf");
    const std::string idle = session("idle.pdf");
    sandbox.advanceClock(600);
    EXPECT_EQ(fragment(used, bytes, 0, kUnit)->status, 202);
    sandbox.advanceClock(600);
    EXPECT_EQ(fragment(used, bytes, kUnit, 10)->status, 201) << "each fragment extends the session";
    auto expired = fragment(idle, bytes, 0, kUnit);
    ASSERT_TRUE(expired);
    EXPECT_EQ(expired->status, 404);
    EXPECT_EQ(codeOf(expired), "itemNotFound");

    const std::string cancelled = session("cancelled.pdf");
    EXPECT_EQ(client->Delete(cancelled.c_str())->status, 204);
    EXPECT_EQ(client->Get(cancelled.c_str())->status, 404);
    EXPECT_FALSE(sandbox.fileContent("onedrive", "/cancelled.pdf"));

    ASSERT_TRUE(sandbox.setQuota("onedrive", 100));
    auto tooBig = client->Post(api("/root:/huge.pdf:/createUploadSession").c_str(), bearer(),
                               json{{"item", {{"fileSize", 1000}}}}.dump(), "application/json");
    ASSERT_TRUE(tooBig);
    EXPECT_EQ(tooBig->status, 507);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
