// The commands a person meets before any service is involved: help, the accounts list,
// the WebDAV form, account settings, the hasher, and what linking needs first.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

TEST(CliHelp, EveryCommandExplainsItselfAndItsOptions) {
    CliHome home;
    const RunResult top = home.run({"--help"});
    ASSERT_EQ(top.status, 0) << top.err;
    // Each command's --help succeeds and lists the options the command takes.
    const std::map<std::vector<std::string>, std::vector<std::string>> commands = {
        {{"accounts"}, {"--json", "--check"}},
        {{"link"}, {"--sandbox", "--as", "--no-browser", "--paste", "-v"}},
        {{"unlink"}, {"account", "--sandbox", "--yes"}},
        {{"settings"}, {"--name", "--auto-upload", "--wifi-only"}},
        {{"webdav", "add"}, {"--username", "--url", "--port", "--label"}},
        {{"folder"}, {"--create", "--move-files", "--list"}},
        {{"upload"}, {"--account", "--overwrite", "--retries", "--json", "--no-input"}},
        {{"rename"}, {"name", "--overwrite"}},
        {{"move"}, {"--to", "--from", "--account"}},
        {{"status"}, {"--json"}},
        {{"hash"}, {"--service"}},
        {{"sandbox-connect"}, {"--disconnect"}},
        {{"demo"}, {"--keep"}},
    };
    for (const auto& [words, options] : commands) {
        EXPECT_TRUE(contains(top.out, words.front())) << words.front() << " is missing from the overview";
        std::vector<std::string> args = words;
        args.push_back("--help");
        const RunResult help = home.run(args);
        EXPECT_EQ(help.status, 0) << words.front();
        for (const auto& option : options) EXPECT_TRUE(contains(help.out, option)) << words.front() << ": " << option;
    }
    // A bare `vxcloud` shows the overview, as a usage error.
    const RunResult bare = home.run({});
    EXPECT_EQ(bare.status, 2);
    EXPECT_TRUE(contains(bare.out, "vxcloud demo")) << bare.out;
    // WebDAV accounts are not signed in to, and link's help says where they come from.
    EXPECT_TRUE(contains(home.run({"link", "--help"}).out, "vxcloud webdav add"));
    // A wrong command line is a usage error with the reason.
    const RunResult wrong = home.run({"upload"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_TRUE(contains(wrong.err, "files")) << wrong.err;
}

TEST(CliAccounts, WebDAVAccountsAreKeptButNeverUploadAutomatically) {
    CliHome home;
    RunResult empty = home.run({"accounts"});
    ASSERT_EQ(empty.status, 0) << empty.err;
    EXPECT_TRUE(contains(empty.out, "No account is linked")) << empty.out;

    // The form refuses what it cannot use, with the reason, and stores nothing.
    RunResult badUrl = home.run({"webdav", "add", "--username", "ann", "--url", "ftp://files.example.com"});
    EXPECT_EQ(badUrl.status, 2);
    EXPECT_TRUE(contains(badUrl.err, "https://")) << badUrl.err;
    RunResult badPort = home.run({"webdav", "add", "--username", "ann", "--url", "https://dav.example.com",
                                  "--port", "70000"});
    EXPECT_EQ(badPort.status, 2);
    EXPECT_TRUE(contains(badPort.err, "port")) << badPort.err;

    RunResult added = home.run({"webdav", "add", "--username", "ann \"the\" user", "--url", "https://dav.example.com/dav",
                                "--label", "Office NAS"});
    ASSERT_EQ(added.status, 0) << added.err;
    const json listed = home.runJson({"accounts", "--json"});
    ASSERT_EQ(listed["accounts"].size(), 1u);
    const json& account = listed["accounts"][0];
    EXPECT_EQ(account["service"], "web_dav");
    EXPECT_EQ(account["email"], "ann \"the\" user");
    EXPECT_EQ(account["port"], "443");  // from the https URL
    EXPECT_EQ(account["label"], "Office NAS");
    EXPECT_FALSE(account["shouldAutoUpload"].get<bool>());
    EXPECT_TRUE(account.contains("autoUploadUnavailable"));

    // Automatic upload cannot be switched on for it, and the reason is given.
    const RunResult refused = home.run({"settings", "1", "--auto-upload", "on"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(contains(refused.err, "WebDAV")) << refused.err;
    EXPECT_FALSE(home.runJson({"accounts", "--json"})["accounts"][0]["shouldAutoUpload"].get<bool>());

    // Other settings do change, and survive into the listing.
    const RunResult renamed = home.run({"settings", "Office NAS", "--name", "Basement NAS", "--wifi-only", "off"});
    ASSERT_EQ(renamed.status, 0) << renamed.err;
    EXPECT_TRUE(contains(renamed.out, "Only auto-upload on Wi-Fi: off")) << renamed.out;
    const json after = home.runJson({"accounts", "--json"})["accounts"][0];
    EXPECT_EQ(after["displayName"], "Basement NAS");
    EXPECT_FALSE(after["onlyWifiUpload"].get<bool>());

    const RunResult text = home.run({"accounts"});
    EXPECT_TRUE(contains(text.out, "Basement NAS")) << text.out;
    EXPECT_TRUE(contains(text.out, "cannot upload automatically")) << text.out;

    // An account reference that matches nothing lists what there is.
    const RunResult unknown = home.run({"settings", "nobody@example.com"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(contains(unknown.err, "Basement NAS") || contains(unknown.err, "ann")) << unknown.err;
}

TEST(CliAccounts, WebDAVFormAsksForWhatIsMissingOnATerminal) {
    CliHome home;
    PtySession form(home, {"webdav", "add", "--label", "Home server"});
    ASSERT_TRUE(form.expect("Username:")) << form.output();
    form.sendLine("nas-user");
    ASSERT_TRUE(form.expect("URL (https://...):")) << form.output();
    form.sendLine("http://nas.local/webdav");
    ASSERT_TRUE(form.expect("Port [80]:")) << form.output();
    form.sendLine("");
    ASSERT_TRUE(form.expect("Added ")) << form.output();
    EXPECT_EQ(form.wait(), 0) << form.output();
    const json account = home.runJson({"accounts", "--json"})["accounts"][0];
    EXPECT_EQ(account["email"], "nas-user");
    EXPECT_EQ(account["url"], "http://nas.local/webdav");
    EXPECT_EQ(account["port"], "80");
    EXPECT_EQ(account["label"], "Home server");

    // Without a terminal the missing fields are an error, not a question.
    const RunResult piped = home.run({"webdav", "add", "--url", "https://dav.example.com"});
    EXPECT_EQ(piped.status, 2);
    EXPECT_TRUE(contains(piped.err, "username")) << piped.err;
}

TEST(CliHash, PrintsEachServicesDigest) {
    CliHome home;
    writeFile(home.file("abc.txt"), "abc");
    writeFile(home.file("empty"), "");
    const auto digest = [&](const std::string& service, const std::string& file) {
        const RunResult r = home.run({"hash", "--service", service, home.file(file)});
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out.substr(0, r.out.find(' '));
    };
    EXPECT_EQ(digest("google_drive", "abc.txt"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(digest("box", "abc.txt"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    // OneDrive's local version: both digests a drive may report.
    EXPECT_EQ(digest("one_drive", "empty"),
              "sha1Hash:da39a3ee5e6b4b0d3255bfef95601890afd80709;quickXorHash:AAAAAAAAAAAAAAAAAAAAAAAAAAA=");
    // One 4 MiB block: SHA-256 over the block's SHA-256.
    EXPECT_EQ(digest("dropbox", "abc.txt"), "4f8b42c22dd3729b519ba6f68d2da7cc5b2d606d05daed5ad5128cc03e6c6358");
    EXPECT_EQ(digest("web_dav", "abc.txt"), "-");

    // A file that cannot be read is wrong input; the others are hashed all the same.
    const RunResult missing = home.run({"hash", "--service", "dropbox", home.file("abc.txt"), home.file("nope")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_TRUE(contains(missing.err, "nope")) << missing.err;
    EXPECT_TRUE(contains(missing.out, "4f8b42c2")) << "the readable file is still hashed";
    const RunResult badService = home.run({"hash", "--service", "ftp", home.file("abc.txt")});
    EXPECT_EQ(badService.status, 2);
    EXPECT_TRUE(contains(badService.err, "google_drive")) << badService.err;
}

TEST(CliLink, SaysWhichCredentialsAreMissingAndWhereTheyGo) {
    CliHome home;
    const RunResult dropbox = home.run({"link", "dropbox"});
    EXPECT_EQ(dropbox.status, 2);
    EXPECT_TRUE(contains(dropbox.err, "app key")) << dropbox.err;
    EXPECT_TRUE(contains(dropbox.err, home.path() + "/config/vxcloud/credentials.json")) << dropbox.err;
    EXPECT_TRUE(contains(dropbox.err, "VXCLOUD_DROPBOX_APP_KEY")) << dropbox.err;

    // Dropbox redirects only to a registered address, and Google's token endpoint wants the
    // Desktop app's secret: a value given in the file is no longer asked for, the rest is.
    std::filesystem::create_directories(home.path() + "/config/vxcloud");
    writeFile(home.path() + "/config/vxcloud/credentials.json",
              R"({"dropbox": {"app_key": "key"}, "google_drive": {"client_id": "abc"}})");
    const RunResult redirect = home.run({"link", "dropbox"});
    EXPECT_EQ(redirect.status, 2);
    EXPECT_TRUE(contains(redirect.err, "redirect URL")) << redirect.err;
    EXPECT_FALSE(contains(redirect.err, "app key")) << redirect.err;
    EXPECT_TRUE(contains(redirect.err, "App Console")) << redirect.err;
    EXPECT_TRUE(contains(redirect.err, "VXCLOUD_DROPBOX_REDIRECT_URL")) << redirect.err;
    const RunResult google = home.run({"link", "google_drive"});
    EXPECT_EQ(google.status, 2);
    EXPECT_TRUE(contains(google.err, "client secret")) << google.err;
    EXPECT_FALSE(contains(google.err, "client id and")) << google.err;
    EXPECT_TRUE(contains(google.err, "VXCLOUD_GOOGLE_CLIENT_SECRET")) << google.err;

    // A service without a sign-in in this version says so instead of asking for credentials.
    // WebDAV accounts are added with their form, not signed in to.
    const RunResult webdav = home.run({"link", "webdav"});
    EXPECT_NE(webdav.status, 0);
    EXPECT_FALSE(contains(webdav.err, "credentials.json")) << webdav.err;
    // Box's sign-in wants the app's client id and secret.
    const RunResult box = home.run({"link", "box"});
    EXPECT_EQ(box.status, 2);
    EXPECT_TRUE(contains(box.err, "client secret")) << box.err;

    // A damaged credentials file is reported, not fatal for commands that need none.
    writeFile(home.path() + "/config/vxcloud/credentials.json", "{not json");
    const RunResult listed = home.run({"accounts"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_TRUE(contains(listed.err, "credentials.json is not a JSON object")) << listed.err;

    const RunResult unknown = home.run({"link", "myspace"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(contains(unknown.err, "dropbox")) << unknown.err;
}

TEST(CliState, DamagedStateFilesAreReportedNotFatal) {
    CliHome home;
    std::filesystem::create_directories(home.path() + "/config/vxcloud");
    std::filesystem::create_directories(home.path() + "/data/vxcloud");
    writeFile(home.preferencesPath(), "{\"vxcloudaccounts\": ");
    const RunResult listed = home.run({"accounts"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_TRUE(contains(listed.err, "moved to " + home.preferencesPath() + ".corrupt-")) << listed.err;
    EXPECT_TRUE(contains(listed.out, "No account is linked")) << listed.out;

    writeFile(home.recordsPath(), std::string(200, 'x'));
    const RunResult status = home.run({"status"});
    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(contains(status.err, home.recordsPath())) << status.err;
    EXPECT_TRUE(contains(status.err, "Move the file aside")) << status.err;
    EXPECT_EQ(readFile(home.recordsPath()), std::string(200, 'x')) << "the damaged file is left for the person";
}

TEST(CliSandbox, ConnectingAndDisconnectingSaysWhatStaysLinked) {
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    CliHome home;
    const RunResult connected = home.run({"sandbox-connect", sandbox.baseUrl()});
    ASSERT_EQ(connected.status, 0) << connected.out << connected.err;
    const std::string email = sandbox.accounts("dropbox").front()["email"].get<std::string>();
    const RunResult linked = home.run({"link", "dropbox", "--as", email});
    ASSERT_EQ(linked.status, 0) << linked.out << linked.err;

    const RunResult disconnected = home.run({"sandbox-connect", "--disconnect"});
    EXPECT_EQ(disconnected.status, 0);
    EXPECT_TRUE(contains(disconnected.out, "Dropbox:" + email)) << disconnected.out;
    EXPECT_TRUE(contains(disconnected.out, "vxcloud unlink ACCOUNT")) << disconnected.out;
    const RunResult again = home.run({"sandbox-connect", "--disconnect"});
    EXPECT_TRUE(contains(again.out, "No sandbox was connected.")) << again.out;
    EXPECT_FALSE(contains(again.out, "Still linked")) << again.out;
}

// vxcloud-sandbox --tls serves HTTPS with an authority of its own: the CLI reaches it only
// when it trusts that authority, and then signs in and uploads over verified connections.
TEST(CliSandbox, ASandboxServingHttpsIsUsedThroughItsCaFile) {
    SandboxProcess sandbox({"--tls"});
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    EXPECT_EQ(sandbox.baseUrl().rfind("https://127.0.0.1:", 0), 0u) << sandbox.baseUrl();
    ASSERT_FALSE(sandbox.caFile().empty()) << sandbox.description().dump();
    EXPECT_NE(readFile(sandbox.caFile()).find("BEGIN CERTIFICATE"), std::string::npos);

    CliHome home;
    const RunResult untrusted = home.run({"sandbox-connect", sandbox.baseUrl()});
    EXPECT_EQ(untrusted.status, 1);
    EXPECT_TRUE(contains(untrusted.err, "cannot reach the sandbox at " + sandbox.baseUrl())) << untrusted.err;

    const RunResult connected = home.run({"sandbox-connect", sandbox.baseUrl(), "--ca-file", sandbox.caFile()});
    ASSERT_EQ(connected.status, 0) << connected.out << connected.err;
    const std::string email = sandbox.accounts("dropbox").front()["email"].get<std::string>();
    const RunResult linked = home.run({"link", "dropbox", "--as", email});
    ASSERT_EQ(linked.status, 0) << linked.out << linked.err;
    const std::string pdf = pdfWith("over TLS");
    writeFile(home.file("tls.pdf"), pdf);
    const RunResult folder = home.run({"folder", email, "/Scans", "--create"});
    ASSERT_EQ(folder.status, 0) << folder.out << folder.err;
    const RunResult on = home.run({"settings", "1", "--auto-upload", "on"});
    ASSERT_EQ(on.status, 0) << on.out << on.err;
    const RunResult uploaded = home.run({"upload", home.file("tls.pdf")});
    EXPECT_EQ(uploaded.status, 0) << uploaded.out << uploaded.err;
    EXPECT_EQ(sandbox.content("dropbox", "/Scans/tls.pdf", email), pdf);
}

// The sandbox's sign-in page refuses an account it does not have, as the service would; the
// sign-in cannot finish then, and the command says so instead of waiting for it.
TEST(CliSandbox, AnUnknownSandboxAccountIsRefusedAtOnce) {
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    CliHome home;
    const RunResult r = home.run({"link", "dropbox", "--as", "nobody@example.com", "--sandbox", sandbox.baseUrl()});
    EXPECT_EQ(r.status, 2) << r.out << r.err;
    EXPECT_TRUE(contains(r.err, "no such account: nobody@example.com")) << r.err;
    EXPECT_TRUE(contains(r.err, sandbox.accounts("dropbox").front()["email"].get<std::string>())) << r.err;
    EXPECT_TRUE(home.runJson({"accounts", "--json"})["accounts"].empty());
}

TEST(CliSandbox, AnUnreachableSandboxIsNamedInTheError) {
    CliHome home;
    const RunResult r = home.run({"link", "dropbox", "--sandbox", "http://127.0.0.1:9"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, "cannot reach the sandbox at http://127.0.0.1:9")) << r.err;
}

}  // namespace
}  // namespace vxcloud::testing::cli
