// Dropbox listing, folders, moves (single and batch), deletes and metadata lookups.
#include <set>

#include "sandbox/WireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class DropboxFiles : public WireTest {};

TEST_F(DropboxFiles, ListFolderPagesWithCursors) {
    ASSERT_TRUE(sandbox.configure("dropbox", {{"list_folder_page_size", 3}}));
    for (int i = 0; i < 8; ++i) {
        ASSERT_FALSE(sandbox.putFile("dropbox", "/Inbox/file" + std::to_string(i) + ".pdf", "x").is_null());
    }
    const auto first = rpc("files/list_folder", {{"path", "/inbox"}});
    ASSERT_EQ(first->status, 200) << first->body;
    json page = parse(first);
    ASSERT_EQ(page["entries"].size(), 3u);
    EXPECT_TRUE(page["has_more"].get<bool>());
    EXPECT_EQ(page["entries"][0][".tag"], "file");

    std::set<std::string> names;
    const std::string secondCursor = page["cursor"];
    for (int guard = 0; guard < 10; ++guard) {
        for (const auto& entry : page["entries"]) names.insert(entry["name"].get<std::string>());
        if (!page["has_more"].get<bool>()) break;
        page = parse(rpc("files/list_folder/continue", {{"cursor", page["cursor"]}}));
    }
    EXPECT_EQ(names.size(), 8u);
    // A cursor is a position: repeating a call repeats its page.
    EXPECT_EQ(parse(rpc("files/list_folder/continue", {{"cursor", secondCursor}}))["entries"],
              parse(rpc("files/list_folder/continue", {{"cursor", secondCursor}}))["entries"]);
    // The final cursor reports later changes.
    ASSERT_FALSE(sandbox.putFile("dropbox", "/Inbox/late.pdf", "y").is_null());
    const json changes = parse(rpc("files/list_folder/continue", {{"cursor", page["cursor"]}}));
    ASSERT_EQ(changes["entries"].size(), 1u) << changes;
    EXPECT_EQ(changes["entries"][0]["name"], "late.pdf");

    EXPECT_EQ(parse(rpc("files/list_folder", {{"path", "/inbox"}, {"limit", 2}}))["entries"].size(), 2u);
    const json recursive = parse(rpc("files/list_folder", {{"path", ""}, {"recursive", true}, {"limit", 2000}}));
    EXPECT_EQ(recursive["entries"][0]["path_display"], "/Inbox");

    EXPECT_EQ(parse(rpc("files/list_folder", {{"path", "/nowhere"}}))["error"],
              json({{".tag", "path"}, {"path", {{".tag", "not_found"}}}}));
    EXPECT_EQ(parse(rpc("files/list_folder", {{"path", "/Inbox/file1.pdf"}}))["error"]["path"][".tag"], "not_folder");
    EXPECT_EQ(rpc("files/list_folder", {{"path", "/"}})->status, 400);
    EXPECT_EQ(rpc("files/list_folder", {{"path", ""}, {"limit", 0}})->status, 400);
    EXPECT_EQ(tagOf(parse(rpc("files/list_folder/continue", {{"cursor", "bogus"}}))["error"]), "reset");
}

TEST_F(DropboxFiles, FoldersMovesDeletesAndMetadata) {
    const auto made = rpc("files/create_folder_v2", {{"path", "/Scans/2024"}, {"autorename", false}});
    ASSERT_EQ(made->status, 200) << made->body;
    EXPECT_EQ(parse(made)["metadata"]["path_display"], "/Scans/2024");
    EXPECT_FALSE(parse(made)["metadata"].contains(".tag"));
    EXPECT_EQ(parse(rpc("files/create_folder_v2", {{"path", "/scans/2024"}}))["error"],
              json({{".tag", "path"}, {"path", {{".tag", "conflict"}, {"conflict", {{".tag", "folder"}}}}}}));

    ASSERT_FALSE(sandbox.putFile("dropbox", "/Scans/a.pdf", "A").is_null());
    ASSERT_FALSE(sandbox.putFile("dropbox", "/Scans/b.pdf", "B").is_null());
    const auto moved = rpc("files/move_v2", {{"from_path", "/Scans/a.pdf"}, {"to_path", "/Scans/2024/a.pdf"}});
    ASSERT_EQ(moved->status, 200) << moved->body;
    EXPECT_EQ(parse(moved)["metadata"][".tag"], "file");
    EXPECT_EQ(parse(moved)["metadata"]["path_display"], "/Scans/2024/a.pdf");
    EXPECT_EQ(parse(rpc("files/move_v2", {{"from_path", "/Scans/a.pdf"}, {"to_path", "/x.pdf"}}))["error"],
              json({{".tag", "from_lookup"}, {"from_lookup", {{".tag", "not_found"}}}}));
    ASSERT_FALSE(sandbox.putFile("dropbox", "/Scans/2024/b.pdf", "other").is_null());
    EXPECT_EQ(parse(rpc("files/move_v2", {{"from_path", "/Scans/b.pdf"}, {"to_path", "/Scans/2024/B.PDF"}}))["error"],
              json({{".tag", "to"}, {"to", {{".tag", "conflict"}, {"conflict", {{".tag", "file"}}}}}}));
    EXPECT_EQ(tagOf(parse(rpc("files/move_v2", {{"from_path", "/Scans"}, {"to_path", "/Scans/2024/in"}}))["error"]),
              "cant_move_folder_into_itself");

    const json meta = parse(rpc("files/get_metadata", {{"path", "/SCANS/2024/A.pdf"}}));
    EXPECT_EQ(meta[".tag"], "file");
    EXPECT_EQ(parse(rpc("files/get_metadata", {{"path", meta["id"]}}))["name"], "a.pdf");
    EXPECT_EQ(parse(rpc("files/get_metadata", {{"path", "/missing"}}))["error"],
              json({{".tag", "path"}, {"path", {{".tag", "not_found"}}}}));

    EXPECT_EQ(parse(rpc("files/delete_v2", {{"path", "/Scans/2024/a.pdf"}, {"parent_rev", "0123456789"}}))["error"]
                  [".tag"],
              "path_write");
    const auto deleted = rpc("files/delete_v2", {{"path", "/Scans/2024"}});
    ASSERT_EQ(deleted->status, 200);
    EXPECT_EQ(parse(deleted)["metadata"][".tag"], "folder");
    EXPECT_TRUE(sandbox.metadata("dropbox", "/Scans/2024/a.pdf").is_null());
    EXPECT_EQ(parse(rpc("files/delete_v2", {{"path", "/Scans/2024"}}))["error"]["path_lookup"][".tag"], "not_found");
}

TEST_F(DropboxFiles, MoveBatchStaysInProgressForTheConfiguredChecks) {
    ASSERT_TRUE(sandbox.configure("dropbox", {{"move_batch_in_progress_checks", 3}}));
    ASSERT_FALSE(sandbox.putFile("dropbox", "/Out/1.pdf", "1").is_null());
    ASSERT_FALSE(sandbox.putFile("dropbox", "/Out/2.pdf", "2").is_null());
    const json entries = json::array({{{"from_path", "/Out/1.pdf"}, {"to_path", "/Done/1.pdf"}},
                                      {{"from_path", "/Out/2.pdf"}, {"to_path", "/Done/2.pdf"}},
                                      {{"from_path", "/Out/none.pdf"}, {"to_path", "/Done/none.pdf"}}});
    const json launch = parse(rpc("files/move_batch_v2", {{"entries", entries}, {"autorename", false}}));
    ASSERT_EQ(launch[".tag"], "async_job_id") << launch;
    const json check = {{"async_job_id", launch["async_job_id"]}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(parse(rpc("files/move_batch/check_v2", check)), json({{".tag", "in_progress"}}));
        EXPECT_FALSE(sandbox.metadata("dropbox", "/Out/1.pdf").is_null()) << "nothing moves while in progress";
    }
    const json done = parse(rpc("files/move_batch/check_v2", check));
    ASSERT_EQ(done[".tag"], "complete") << done;
    ASSERT_EQ(done["entries"].size(), 3u);
    EXPECT_EQ(done["entries"][0][".tag"], "success");
    EXPECT_EQ(done["entries"][0]["success"]["path_display"], "/Done/1.pdf");
    EXPECT_EQ(done["entries"][2], json({{".tag", "failure"},
                                        {"failure",
                                         {{".tag", "relocation_error"},
                                          {"relocation_error",
                                           {{".tag", "from_lookup"}, {"from_lookup", {{".tag", "not_found"}}}}}}}}));
    EXPECT_EQ(sandbox.fileContent("dropbox", "/done/2.pdf"), "2");
    EXPECT_EQ(parse(rpc("files/move_batch/check_v2", check)), done) << "a finished job keeps its answer";
    EXPECT_EQ(tagOf(parse(rpc("files/move_batch/check_v2", {{"async_job_id", "dbjid:nope"}}))["error"]),
              "invalid_async_job_id");

    ASSERT_TRUE(sandbox.configure("dropbox", {{"move_batch_async", false}}));
    const json sync = parse(rpc("files/move_batch_v2", {{"entries", {{{"from_path", "/Done/1.pdf"}, {"to_path", "/1.pdf"}}}}}));
    EXPECT_EQ(sync[".tag"], "complete");
}

}  // namespace
}  // namespace vxcloud::sandbox::test
