// What vxcloud prints, against a vxcloud-sandbox process with two Dropbox and two Box
// accounts: a job that reached only some accounts says what happened on each (all of it under
// -q, which shows nothing else), names holding control characters never break a line, and
// --json gives scripts the progress as JSON lines.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliSandboxTest.h"

namespace vxcloud::testing::cli {
namespace {

class CliOutput : public CliSandboxTest {
protected:
    void SetUp() override {
        CliSandboxTest::SetUp();
        if (HasFatalFailure()) return;
        for (const char* service : {"dropbox", "box"}) {
            for (const auto& seeded : sandbox_.accounts(service)) {
                std::string error;
                ASSERT_TRUE(linkForUploads(home_, service, seeded["email"].get<std::string>(), "/Scans", error)) << error;
            }
        }
        ASSERT_EQ(home_.runJson({"accounts", "--json"})["accounts"].size(), 4u);
        ada_ = seededEmail("dropbox", 0);
        grace_ = seededEmail("dropbox", 1);
    }

    std::string ada_, grace_;
};

TEST_F(CliOutput, APartlyDoneUploadSaysWhatHappenedOnEachAccount) {
    sandbox_.admin("POST", "/dropbox/quota", json{{"full", true}, {"account", grace_}});
    writeFile(home_.file("a.pdf"), pdfWith("partly"));
    const RunResult r = home_.run({"upload", home_.file("a.pdf")});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.out, "a.pdf: done on 3 of 4 accounts")) << r.out;
    EXPECT_TRUE(contains(lineWith(r.out, "  Dropbox:" + grace_ + " "), "failed: the storage is full")) << r.out;
    EXPECT_TRUE(contains(r.out, "0 of 1 document done")) << r.out;

    // Quiet: no progress rows, so the summary names every account and what happened there.
    writeFile(home_.file("b.pdf"), pdfWith("quietly"));
    const RunResult quiet = home_.run({"upload", home_.file("b.pdf"), "-q"});
    EXPECT_EQ(quiet.status, 1);
    EXPECT_FALSE(contains(quiet.out, "Uploading")) << quiet.out;
    const std::string summary = quiet.out.substr(quiet.out.find("b.pdf: done on 3 of 4 accounts"));
    EXPECT_TRUE(contains(lineWith(summary, "  Dropbox:" + grace_ + " "), "failed: the storage is full")) << quiet.out;
    for (const std::string& label : {"Dropbox:" + ada_, "Box:" + ada_, "Box:" + grace_})
        EXPECT_TRUE(contains(lineWith(summary, "  " + label + " "), "uploaded as b.pdf")) << label << "\n" << quiet.out;
    // The error itself is still said.
    EXPECT_TRUE(contains(quiet.out, "You have reached the storage quota")) << quiet.out;

    // Quiet and all well: the count alone.
    sandbox_.admin("POST", "/dropbox/quota", json{{"bytes", nullptr}, {"account", grace_}});
    writeFile(home_.file("c.pdf"), pdfWith("all well"));
    const RunResult well = home_.run({"upload", home_.file("c.pdf"), "-q"});
    EXPECT_EQ(well.status, 0) << well.out << well.err;
    EXPECT_EQ(well.out, "1 of 1 document done.\n");
}

TEST_F(CliOutput, ControlCharactersInNamesAreShownEscaped) {
    // An account name with a line break and a bell.
    ASSERT_EQ(home_.run({"settings", "1", "--name", "Ada\nLovelace\x07"}).status, 0);
    const RunResult listed = home_.run({"accounts"});
    EXPECT_TRUE(contains(listed.out, "Ada\\nLovelace\\x07")) << listed.out;
    EXPECT_FALSE(contains(listed.out, "\x07"));
    EXPECT_TRUE(contains(lineWith(listed.out, "Ada\\nLovelace"), "/Scans")) << "one line for the account:\n" << listed.out;
    EXPECT_TRUE(contains(home_.run({"settings", "1"}).out, "Ada\\nLovelace\\x07"));

    // A copy stored at the service under a name with a line break, found by its content:
    // the progress row and the status table show the name escaped, on one line each.
    const std::string pdf = pdfWith("odd name");
    int status = 0;
    sandbox_.admin("POST", "/dropbox/files", json{{"path", "/Scans/odd\nname.pdf"}, {"content", pdf}, {"account", ada_}},
                   &status);
    ASSERT_EQ(status, 200);
    writeFile(home_.file("b.pdf"), pdf);
    const RunResult uploaded = home_.run({"upload", home_.file("b.pdf"), "--account", "Dropbox:" + ada_});
    ASSERT_EQ(uploaded.status, 0) << uploaded.out << uploaded.err;
    EXPECT_TRUE(contains(lineWith(uploaded.out, "Dropbox:" + ada_), "already there as odd\\nname.pdf")) << uploaded.out;
    const RunResult shown = home_.run({"status", home_.file("b.pdf")});
    EXPECT_TRUE(contains(lineWith(shown.out, "Dropbox:" + ada_), "odd\\nname.pdf")) << shown.out;
}

TEST_F(CliOutput, JsonShowsProgressAsEventsEndingWithTheResult) {
    const std::string pdf = pdfWith("events") + std::string(300000, ' ');
    writeFile(home_.file("e.pdf"), pdf + "%%EOF\n");
    const RunResult r = home_.run({"upload", home_.file("e.pdf"), "--json"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    std::vector<json> events;
    std::size_t start = 0;
    while (start < r.out.size()) {
        const auto end = r.out.find('\n', start);
        const json line = json::parse(r.out.substr(start, end - start), nullptr, false);
        ASSERT_FALSE(line.is_discarded()) << "not a JSON line: " << r.out.substr(start, end - start);
        events.push_back(line);
        start = end == std::string::npos ? r.out.size() : end + 1;
    }
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.front()["event"], "start");
    EXPECT_EQ(events.front()["action"], "upload");
    EXPECT_EQ(events.front()["document"], "e.pdf");
    EXPECT_EQ(events.front()["accounts"].size(), 4u);
    const json& result = events.back();
    EXPECT_EQ(result["event"], "result");
    EXPECT_TRUE(result.value("ok", false)) << result.dump(2);
    EXPECT_EQ(result["documents"][0]["accounts"].size(), 4u);

    // Each account: bytes up to the whole document, all sent, then its outcome, in that order.
    for (const auto& label : events.front()["accounts"]) {
        std::vector<std::string> seen;
        std::int64_t lastSent = 0;
        for (const auto& e : events) {
            if (e.value("account", "") != label) continue;
            seen.push_back(e["event"]);
            if (e["event"] == "progress") {
                EXPECT_GE(e["sent"].get<std::int64_t>(), lastSent);
                lastSent = e["sent"];
                EXPECT_EQ(e["total"], static_cast<std::int64_t>(pdf.size() + 6));
            }
            if (e["event"] == "finished") {
                EXPECT_EQ(e["outcome"], "done") << e.dump();
            }
        }
        EXPECT_EQ(lastSent, static_cast<std::int64_t>(pdf.size() + 6)) << label;
        ASSERT_GE(seen.size(), 3u) << label;
        EXPECT_EQ(seen.front(), "progress") << label;
        EXPECT_EQ(seen[seen.size() - 2], "sent") << label;
        EXPECT_EQ(seen.back(), "finished") << label;
    }
}

}  // namespace
}  // namespace vxcloud::testing::cli
