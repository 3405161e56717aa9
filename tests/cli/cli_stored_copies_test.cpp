// What vxcloud says and does about copies it stored before, on a Box account of a
// vxcloud-sandbox process: "unchanged" only when the sandbox received nothing, a document
// edited here replaces its copy while a copy edited elsewhere is a conflict, and a document
// moved to another folder is updated there instead of being stored again.
#include <gtest/gtest.h>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

long long uploadsSeen(const SandboxProcess& sandbox) {
    return sandbox.requests("box/upload/new") + sandbox.requests("box/upload/version") +
           sandbox.requests("box/sessions/create");
}

TEST(CliStoredCopies, OutcomesAreTheTruthAndEditsGoWhereTheCopyIs) {
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    CliHome home;
    home.setEnv("VXCLOUD_SANDBOX", sandbox.baseUrl());
    ASSERT_EQ(home.run({"link", "box"}).status, 0);
    ASSERT_EQ(home.run({"folder", "1", "/Scans", "--create"}).status, 0);
    ASSERT_EQ(home.run({"settings", "1", "--auto-upload", "on"}).status, 0);
    const std::string doc = home.file("a.pdf");
    writeFile(doc, pdfWith("first"));
    const RunResult first = home.run({"upload", doc});
    ASSERT_EQ(first.status, 0) << first.out << first.err;

    // Unchanged: said so, and the sandbox received no upload.
    long long before = uploadsSeen(sandbox);
    const RunResult again = home.run({"upload", doc});
    EXPECT_EQ(again.status, 0) << again.out << again.err;
    EXPECT_TRUE(contains(again.out, "unchanged, nothing sent")) << again.out;
    EXPECT_EQ(uploadsSeen(sandbox), before);

    // Edited here: the copy still holds the recorded version, so it is replaced.
    writeFile(doc, pdfWith("edited here"));
    const RunResult edited = home.run({"upload", doc});
    EXPECT_EQ(edited.status, 0) << edited.out << edited.err;
    EXPECT_FALSE(contains(edited.out, "unchanged")) << edited.out;
    EXPECT_EQ(sandbox.content("box", "/Scans/a.pdf"), pdfWith("edited here"));
    EXPECT_GT(uploadsSeen(sandbox), before);

    // Edited elsewhere too: that copy is not overwritten without asking.
    sandbox.admin("POST", "/box/files/change", json{{"path", "/Scans/a.pdf"}, {"content", pdfWith("edited there")}});
    writeFile(doc, pdfWith("edited here again"));
    const RunResult clash = home.run({"upload", doc, "--no-input"});
    EXPECT_NE(clash.status, 0) << clash.out << clash.err;
    EXPECT_EQ(sandbox.content("box", "/Scans/a.pdf"), pdfWith("edited there"));
    ASSERT_EQ(home.run({"upload", doc, "--overwrite"}).status, 0);

    // Moved to /Archive: the next upload of an edit updates it there, and /Scans stays empty.
    const RunResult moved = home.run({"move", doc, "--account", "1", "--to", "/Archive", "--create"});
    ASSERT_EQ(moved.status, 0) << moved.out << moved.err;
    writeFile(doc, pdfWith("edited after the move"));
    const RunResult afterMove = home.run({"upload", doc});
    EXPECT_EQ(afterMove.status, 0) << afterMove.out << afterMove.err;
    EXPECT_EQ(sandbox.content("box", "/Archive/a.pdf"), pdfWith("edited after the move"));
    EXPECT_EQ(sandbox.content("box", "/Scans/a.pdf"), std::nullopt);
    before = uploadsSeen(sandbox);
    const RunResult unchangedThere = home.run({"upload", doc});
    EXPECT_TRUE(contains(unchangedThere.out, "unchanged, nothing sent")) << unchangedThere.out;
    EXPECT_EQ(uploadsSeen(sandbox), before);
    EXPECT_EQ(sandbox.content("box", "/Scans/a.pdf"), std::nullopt);
}

}  // namespace
}  // namespace vxcloud::testing::cli
