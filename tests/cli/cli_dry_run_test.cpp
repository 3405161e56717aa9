// --dry-run on upload, rename and move, against a vxcloud-sandbox process with two Dropbox
// and two Box accounts: it says what would be sent where, per account, and leaves the
// services' stored items and the host's records exactly as they were.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliSandboxTest.h"

namespace vxcloud::testing::cli {
namespace {

class CliDryRun : public CliSandboxTest {
protected:
    void SetUp() override {
        CliSandboxTest::SetUp();
        if (HasFatalFailure()) return;
        for (const char* service : {"dropbox", "box"}) {
            for (const auto& seeded : sandbox_.accounts(service)) {
                const std::string email = seeded["email"].get<std::string>();
                std::string error;
                ASSERT_TRUE(linkForUploads(home_, service, email, "/Scans", error)) << error;
                labels_.push_back(std::string(service == std::string("dropbox") ? "Dropbox:" : "Box:") + email);
            }
        }
    }

    // Everything the services hold, every account's.
    json stored() const {
        json all = json::object();
        for (const char* provider : {"dropbox", "box"})
            for (const auto& seeded : sandbox_.accounts(provider))
                all[std::string(provider) + seeded["email"].get<std::string>()] =
                    sandbox_.admin("GET", std::string("/") + provider + "/state?account=" + seeded["email"].get<std::string>());
        return all;
    }

    std::vector<std::string> labels_;
};

TEST_F(CliDryRun, SaysWhatWouldHappenAndChangesNothing) {
    const std::string doc = home_.file("a.pdf");
    writeFile(doc, pdfWith("first"));
    const json before = stored();

    // A new document: it would go to every account's folder; not even the records are made.
    const RunResult first = home_.run({"upload", doc, "--dry-run"});
    EXPECT_EQ(first.status, 0) << first.out << first.err;
    for (const auto& label : labels_)
        EXPECT_TRUE(contains(lineWith(first.out, "  " + label + " "), "would be sent to /Scans as a.pdf")) << first.out;
    EXPECT_TRUE(contains(first.out, "Nothing was sent, changed or recorded")) << first.out;
    EXPECT_EQ(stored(), before);
    EXPECT_FALSE(std::filesystem::exists(home_.recordsPath()));

    // Stored, then edited here: it would replace the copies where they are.
    ASSERT_EQ(home_.run({"upload", doc}).status, 0);
    writeFile(doc, pdfWith("edited"));
    const json uploaded = stored();
    const auto records = readRecords(home_.recordsPath());
    const RunResult edited = home_.run({"upload", doc, "--dry-run", "-a", labels_[0]});
    EXPECT_EQ(edited.status, 0) << edited.out << edited.err;
    EXPECT_TRUE(contains(lineWith(edited.out, labels_[0]), "would replace the copy in /Scans")) << edited.out;
    EXPECT_FALSE(contains(edited.out, labels_[1])) << "only the account asked for";

    // Rename and move (the folder to create included) only say so.
    const RunResult renamed = home_.run({"rename", doc, "b.pdf", "--dry-run"});
    EXPECT_EQ(renamed.status, 0) << renamed.out << renamed.err;
    for (const auto& label : labels_)
        EXPECT_TRUE(contains(lineWith(renamed.out, "  " + label + " "), "would be renamed to b.pdf in /Scans")) << renamed.out;
    const RunResult moved = home_.run({"move", doc, "-a", labels_[2], "--to", "/Archive", "--create", "--dry-run"});
    EXPECT_EQ(moved.status, 0) << moved.out << moved.err;
    EXPECT_TRUE(contains(moved.out, "/Archive is not there yet; it would be created")) << moved.out;
    EXPECT_TRUE(contains(lineWith(moved.out, labels_[2]), "would move from /Scans to /Archive")) << moved.out;

    // Scripts get the plan as JSON.
    const json plan = home_.runJson({"upload", doc, "--dry-run", "--json"});
    EXPECT_TRUE(plan.value("dryRun", false)) << plan.dump(2);
    ASSERT_EQ(plan["documents"][0]["accounts"].size(), 4u) << plan.dump(2);
    EXPECT_EQ(plan["documents"][0]["accounts"][0]["outcome"], "planned");

    EXPECT_EQ(stored(), uploaded);
    const auto after = readRecords(home_.recordsPath());
    ASSERT_EQ(after.size(), records.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].name, records[i].name);
        EXPECT_EQ(after[i].record, records[i].record);
        EXPECT_EQ(after[i].folder, records[i].folder);
    }
}

}  // namespace
}  // namespace vxcloud::testing::cli
