// OneNote as a person meets it in vxcloud: linked beside the other accounts, never given
// automatic uploads, and sent a document only on request, to a section, as a new page.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "cli/CliHarness.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::testing::cli {
namespace {

// The pages the sandbox holds for the account, by title, with their attachments' types.
std::vector<json> pages(const SandboxProcess& sandbox, const std::string& account) {
    const json state = sandbox.admin("GET", "/onenote/state?account=" + HttpClient::urlEncode(account));
    std::vector<json> out;
    std::function<void(const json&)> walk = [&](const json& node) {
        if (node.is_object() && node.value("kind", "") == "page") out.push_back(node);
        if (node.is_object() || node.is_array()) {
            for (const auto& child : node) walk(child);
        }
    };
    walk(state);
    return out;
}

TEST(CliOneNote, NeverAutomaticAndSentToASectionOnRequest) {
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    CliHome home;
    home.setEnv("VXCLOUD_SANDBOX", sandbox.baseUrl());
    const std::string email = sandbox.accounts("onenote").front()["email"].get<std::string>();
    const RunResult linked = home.run({"link", "onenote", "--as", email});
    ASSERT_EQ(linked.status, 0) << linked.out << linked.err;
    const std::string account = "OneNote:Ada Lovelace";
    ASSERT_TRUE(contains(linked.out, account)) << linked.out;

    // Automatic upload is refused, and the refusal says what to do instead.
    const RunResult on = home.run({"settings", account, "--auto-upload", "on"});
    EXPECT_EQ(on.status, 1);
    EXPECT_TRUE(contains(on.err, "OneNote does not support automatic uploads. Please use OneDrive instead.")) << on.err;
    EXPECT_TRUE(contains(on.err, "--section")) << on.err;

    const std::string pdf = home.file("Scan \"1\".pdf");
    const std::string bytes = pdfWith("a scanned page");
    writeFile(pdf, bytes);

    // Without a section and without a terminal there is nothing to send to; a notebook is
    // not a section; -a and --to do not go together.
    EXPECT_EQ(home.run({"upload", pdf, "--to", account, "--no-input"}).status, 2);
    const RunResult notebook = home.run({"upload", pdf, "--to", account, "--section", "Scans", "--create"});
    EXPECT_EQ(notebook.status, 2) << notebook.out << notebook.err;
    EXPECT_TRUE(contains(notebook.err, "sections")) << notebook.err;
    EXPECT_EQ(home.run({"folder", account, "Scans"}).status, 2) << "a notebook is no default section either";
    EXPECT_EQ(home.run({"upload", pdf, "--to", account, "-a", account, "--section", "Scans/Inbox"}).status, 2);
    EXPECT_TRUE(pages(sandbox, email).empty());

    // Sent to a section it creates: a page titled with the document's name carrying its bytes.
    int status = -1;
    const json sent = home.runJson({"upload", pdf, "--to", account, "--section", "Scans/Inbox", "--create", "--json"}, &status);
    ASSERT_EQ(status, 0) << sent.dump();
    EXPECT_EQ(sent.value("folder", ""), "/Scans/Inbox");
    ASSERT_EQ(sent["documents"].size(), 1u);
    EXPECT_TRUE(sent["documents"][0].value("ok", false));
    EXPECT_EQ(sent["documents"][0].value("bytesSent", std::size_t{0}), bytes.size());
    auto stored = pages(sandbox, email);
    ASSERT_EQ(stored.size(), 1u) << sandbox.admin("GET", "/onenote/state?account=" + email).dump();
    EXPECT_EQ(stored[0].value("title", ""), "Scan \"1\".pdf");

    // Every request is a new page; plain uploads never reach OneNote, and leave no record.
    EXPECT_EQ(home.run({"upload", pdf, "--to", account, "--section", "Scans/Inbox"}).status, 0);
    EXPECT_EQ(pages(sandbox, email).size(), 2u);
    const RunResult plain = home.run({"upload", pdf, "-a", account});
    EXPECT_TRUE(contains(plain.out + plain.err, "OneNote does not support automatic uploads")) << plain.out << plain.err;
    EXPECT_EQ(pages(sandbox, email).size(), 2u);

    // A default section chosen once serves every later send.
    const RunResult chosen = home.run({"folder", account, "Scans/Inbox"});
    EXPECT_EQ(chosen.status, 0) << chosen.err;
    EXPECT_EQ(chosen.err, "") << "no settings file is missed where none is kept";
    EXPECT_EQ(home.run({"upload", pdf, "--to", account, "--no-input"}).status, 0);
    EXPECT_EQ(pages(sandbox, email).size(), 3u);
    if (std::filesystem::exists(home.recordsPath())) {
        EXPECT_TRUE(readRecords(home.recordsPath()).empty());
    }
}

}  // namespace
}  // namespace vxcloud::testing::cli
