// The Drive emulator's metadata routes: the q language with its escapes, fields selection,
// paging, duplicates and trash, updates of names and parents, downloads, about.get, and
// the documented error bodies.
#include <set>

#include "sandbox/GoogleWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using GoogleFiles = GoogleWireTest;

TEST_F(GoogleFiles, QueriesMatchParentsNamesTypesAndQuotedLiterals) {
    const std::string scans = createFolder("Scans")["id"];
    const std::string quoted = file("O'Brien's scan.pdf", "one", scans);
    const std::string slashed = file(R"(back\slash.pdf)", "two", scans);
    const std::string plain = file("plain.pdf", "three", scans);
    const std::string inner = createFolder("Inner", scans)["id"];
    file("plain.pdf", "elsewhere");  // same name, other folder

    const std::string in = "'" + scans + "' IN parents";  // keywords in any case, as clients send them
    EXPECT_EQ(ids(in + " and name = 'O\\'Brien\\'s scan.pdf' and trashed = false"), std::vector<std::string>{quoted});
    EXPECT_EQ(ids(in + R"( and name = 'back\\slash.pdf')"), std::vector<std::string>{slashed});
    EXPECT_EQ(ids(in + " and mimeType = '" + kFolderType + "'"), std::vector<std::string>{inner});
    EXPECT_EQ(ids(in + " and not mimeType = '" + kFolderType + "'").size(), 3u);
    EXPECT_EQ(ids(in + " and (name = 'plain.pdf' or name contains 'BRIEN')"),
              (std::vector<std::string>{quoted, plain}));
    EXPECT_EQ(ids("name = 'plain.pdf'").size(), 2u) << "without a parent term every folder counts";
    EXPECT_EQ(ids(in + " and name = 'PLAIN.pdf'"), std::vector<std::string>{plain}) << "names match in any case";
    EXPECT_EQ(ids(in + " and name != 'Plain.PDF' and not mimeType = '" + kFolderType + "'"),
              (std::vector<std::string>{quoted, slashed}));
    EXPECT_EQ(ids("'root' in parents and name = 'Scans'"), std::vector<std::string>{scans});

    // A name that looks like query syntax is only a name.
    EXPECT_TRUE(ids(in + R"( and name = 'x\' or name != \'y')").empty());

    for (const std::string bad : {"name = 'unclosed", "name = 'a' and", "name ~ 'a'", "'x' in owners",
                                  R"(name = 'bad\escape')", "trashed = 'false'", "(name = 'a'"}) {
        auto answer = list(bad);
        ASSERT_TRUE(answer) << bad;
        EXPECT_EQ(answer->status, 400) << bad;
        EXPECT_EQ(reasonOf(answer), "invalid") << bad;
        EXPECT_EQ(parse(answer)["error"]["errors"][0]["location"], "q") << bad;
    }
}

TEST_F(GoogleFiles, FieldsSelectWhatIsAnsweredAndPagingStopsWithoutTheToken) {
    const std::string folder = createFolder("Paged")["id"];
    std::set<std::string> made;
    for (int i = 0; i < 5; ++i) made.insert(file("f" + std::to_string(i) + ".pdf", "x" + std::to_string(i), folder));
    const std::string q = "'" + folder + "' in parents";

    const json selected = parse(list(q, "files(id, name)"));
    ASSERT_EQ(selected["files"].size(), 5u);
    EXPECT_EQ(selected["files"][0].size(), 2u) << selected.dump();
    EXPECT_FALSE(selected.contains("kind"));

    const json defaults = parse(list(q));
    EXPECT_EQ(defaults["kind"], "drive#fileList");
    EXPECT_EQ(defaults["files"][0]["kind"], "drive#file");
    EXPECT_EQ(defaults["files"][0]["mimeType"], "application/pdf");
    EXPECT_FALSE(defaults["files"][0].contains("md5Checksum"));

    // Pages of two; a selection without nextPageToken silently ends after the first page.
    const json first = parse(list(q, "files(id)", "&pageSize=2"));
    EXPECT_EQ(first["files"].size(), 2u);
    EXPECT_FALSE(first.contains("nextPageToken"));
    std::set<std::string> seen;
    std::string token;
    for (int page = 0; page < 10; ++page) {
        const json answer =
            parse(list(q, "nextPageToken,files(id)", "&pageSize=2" + (token.empty() ? "" : "&pageToken=" + enc(token))));
        for (const auto& f : answer["files"]) seen.insert(f["id"].get<std::string>());
        if (!answer.contains("nextPageToken")) break;
        token = answer["nextPageToken"];
    }
    EXPECT_EQ(seen, made);

    auto badField = list(q, "files(id,colour)");
    ASSERT_TRUE(badField);
    EXPECT_EQ(badField->status, 400);
    EXPECT_EQ(reasonOf(badField), "invalidParameter");
    auto badSize = list(q, {}, "&pageSize=0");
    ASSERT_TRUE(badSize);
    EXPECT_EQ(badSize->status, 400);
    auto badToken = list(q, {}, "&pageToken=nonsense");
    ASSERT_TRUE(badToken);
    EXPECT_EQ(badToken->status, 400);
}

TEST_F(GoogleFiles, DuplicatesTrashAndChecksumsAsDriveKeepsThem) {
    const std::string folder = createFolder("Dupes")["id"];
    const std::string a = file("same.pdf", "hello world", folder);
    const std::string b = file("same.pdf", "other bytes", folder);
    ASSERT_NE(a, b);

    const json meta = parse(get("/drive/v3/files/" + a + "?fields=md5Checksum,size,parents,trashed,kind"));
    EXPECT_EQ(meta["md5Checksum"], "5eb63bbbe01eeed093cb22bb8f5acdc3");
    EXPECT_EQ(meta["size"], "11") << "int64 values are strings";
    EXPECT_EQ(meta["parents"], json::array({folder}));
    EXPECT_EQ(meta["trashed"], false);

    auto trashed = client->Patch(("/google/drive/v3/files/" + a).c_str(), bearer(), R"({"trashed": true})",
                                 "application/json");
    ASSERT_TRUE(trashed);
    EXPECT_EQ(trashed->status, 200);
    const std::string q = "'" + folder + "' in parents and name = 'same.pdf'";
    EXPECT_EQ(ids(q + " and trashed = false"), std::vector<std::string>{b});
    EXPECT_EQ(ids(q + " and trashed = true"), std::vector<std::string>{a});
    EXPECT_EQ(ids(q).size(), 2u) << "trashed files are found unless the query says otherwise";

    // A file below a trashed folder is trashed too.
    const std::string inner = file("inner.pdf", "x", folder);
    client->Patch(("/google/drive/v3/files/" + folder).c_str(), bearer(), R"({"trashed": true})", "application/json");
    EXPECT_EQ(parse(get("/drive/v3/files/" + inner + "?fields=trashed"))["trashed"], true);
}

TEST_F(GoogleFiles, UpdatesRenameAndMoveWithOneParent) {
    const std::string from = createFolder("From")["id"];
    const std::string to = createFolder("To")["id"];
    const std::string id = file("doc.pdf", "content", from);

    auto renamed = client->Patch(("/google/drive/v3/files/" + id + "?fields=name,md5Checksum").c_str(), bearer(),
                                 R"({"name": "renamed.pdf"})", "application/json");
    ASSERT_TRUE(renamed);
    EXPECT_EQ(parse(renamed), (json{{"name", "renamed.pdf"}, {"md5Checksum", "9a0364b9e99bb480dd25e1f0284c8555"}}));

    auto moved = client->Patch(("/google/drive/v3/files/" + id + "?addParents=" + to + "&removeParents=" + from +
                                "&fields=id,parents").c_str(),
                               bearer(), "{}", "application/json");
    ASSERT_TRUE(moved);
    EXPECT_EQ(parse(moved)["parents"], json::array({to}));

    auto twoParents = client->Patch(("/google/drive/v3/files/" + id + "?addParents=" + from).c_str(), bearer(), "{}",
                                    "application/json");
    ASSERT_TRUE(twoParents);
    EXPECT_EQ(twoParents->status, 403);
    EXPECT_EQ(reasonOf(twoParents), "cannotAddParent");

    for (const std::string body : {R"({"parents": ["x"]})", R"({"md5Checksum": "00"})", R"({"id": "y"})"}) {
        auto refused = client->Patch(("/google/drive/v3/files/" + id).c_str(), bearer(), body, "application/json");
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->status, 403) << body;
        EXPECT_EQ(reasonOf(refused), "fieldNotWritable") << body;
    }

    auto cycle = client->Patch(("/google/drive/v3/files/" + from + "?addParents=" + from + "&removeParents=root")
                                   .c_str(),
                               bearer(), "{}", "application/json");
    ASSERT_TRUE(cycle);
    EXPECT_EQ(cycle->status, 400);

    auto missing = client->Patch("/google/drive/v3/files/1nothing", bearer(), "{}", "application/json");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404);
    const json error = parse(missing)["error"];
    EXPECT_EQ(error["code"], 404);
    EXPECT_EQ(error["message"], "File not found: 1nothing.");
    EXPECT_EQ(error["errors"][0], (json{{"domain", "global"},
                                         {"reason", "notFound"},
                                         {"message", "File not found: 1nothing."},
                                         {"location", "fileId"},
                                         {"locationType", "parameter"}}));
}

TEST_F(GoogleFiles, ContentDownloadsButFoldersDoNot) {
    const std::string id = file("bytes.pdf", "0123456789");
    auto whole = get("/drive/v3/files/" + id + "?alt=media");
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->status, 200);
    EXPECT_EQ(whole->body, "0123456789");
    EXPECT_EQ(whole->get_header_value("Content-Type"), "application/pdf");

    auto part = client->Get(("/google/drive/v3/files/" + id + "?alt=media").c_str(),
                            {{"Authorization", "Bearer " + google.accessToken}, {"Range", "bytes=2-4"}});
    ASSERT_TRUE(part);
    EXPECT_EQ(part->status, 206);
    EXPECT_EQ(part->body, "234");

    const std::string folder = createFolder("NotBytes")["id"];
    auto refused = get("/drive/v3/files/" + folder + "?alt=media");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 403);
    EXPECT_EQ(reasonOf(refused), "fileNotDownloadable");

    const json root = parse(get("/drive/v3/files/root?fields=id,name,mimeType"));
    EXPECT_NE(root["id"], "root") << "root is an alias of the top folder's real id";
    EXPECT_EQ(root["mimeType"], kFolderType);
}

TEST_F(GoogleFiles, AboutNeedsFieldsAndNamesTheUser) {
    auto bare = get("/drive/v3/about");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->status, 400);
    EXPECT_EQ(reasonOf(bare), "required");

    const json about = parse(get("/drive/v3/about?fields=user(emailAddress,displayName,permissionId,me)"));
    EXPECT_EQ(about["user"]["emailAddress"], google.email);
    EXPECT_EQ(about["user"]["displayName"], google.displayName);
    EXPECT_EQ(about["user"]["me"], true);
    EXPECT_FALSE(about["user"]["permissionId"].get<std::string>().empty());
    EXPECT_EQ(about.size(), 1u);

    const json quota = parse(get("/drive/v3/about?fields=storageQuota/limit"));
    EXPECT_TRUE(quota["storageQuota"]["limit"].is_string());
}

TEST_F(GoogleFiles, CredentialsAndInjectedFaultsAnswerInDrivesErrorShape) {
    auto anonymous = client->Get("/google/drive/v3/files");
    ASSERT_TRUE(anonymous);
    EXPECT_EQ(anonymous->status, 401);
    EXPECT_EQ(reasonOf(anonymous), "required");

    auto bogus = get("/drive/v3/files", "ya29.bogus");
    ASSERT_TRUE(bogus);
    EXPECT_EQ(bogus->status, 401);
    EXPECT_EQ(reasonOf(bogus), "authError");
    EXPECT_FALSE(bogus->get_header_value("WWW-Authenticate").empty());

    sandbox.expireAccessTokens("google", google.userId);
    auto expired = get("/drive/v3/files");
    ASSERT_TRUE(expired);
    EXPECT_EQ(reasonOf(expired), "authError");
}

TEST_F(GoogleFiles, InjectedReasonsCarryTheirDomainAndStatus) {
    struct Row {
        int status;
        std::string reason;
        std::string domain;
    };
    const Row rows[] = {{403, "userRateLimitExceeded", "usageLimits"}, {403, "rateLimitExceeded", "usageLimits"},
                        {403, "storageQuotaExceeded", "usageLimits"},  {403, "domainPolicy", "global"},
                        {500, "backendError", "global"},               {429, "rateLimitExceeded", "usageLimits"}};
    for (const auto& row : rows) {
        auto fault = FaultSpec::parse("status=" + std::to_string(row.status) + ";error=" + row.reason);
        ASSERT_TRUE(fault);
        ASSERT_TRUE(sandbox.enqueueFault("google/files/list", *fault));
        auto answer = list("trashed = false");
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, row.status);
        const json error = parse(answer)["error"];
        EXPECT_EQ(error["code"], row.status);
        EXPECT_EQ(error["errors"][0]["reason"], row.reason);
        EXPECT_EQ(error["errors"][0]["domain"], row.domain) << row.reason;
        EXPECT_TRUE(error["message"].is_string());
    }
    // The OAuth endpoints fail in OAuth's shape.
    ASSERT_TRUE(sandbox.enqueueFault("google/oauth2/token", *FaultSpec::parse("status=400;error=invalid_grant")));
    const json oauth = parse(client->Post("/google/token", "grant_type=refresh_token&refresh_token=x",
                                          "application/x-www-form-urlencoded"));
    EXPECT_EQ(oauth["error"], "invalid_grant");
}

}  // namespace
}  // namespace vxcloud::sandbox::test
