#include "Demo.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <nlohmann/json.hpp>

#include "AccountLinker.h"
#include "Accounts.h"
#include "CliError.h"
#include "Commands.h"
#include "DocumentJobs.h"
#include "FolderPicker.h"
#include "ManualUpload.h"
#include "Output.h"
#include "Progress.h"
#include "Prompts.h"
#include "SamplePdf.h"
#include "StatusTable.h"
#include "UploadFolder.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"

#ifdef VXCLOUD_HAVE_SANDBOX
#include "vxcloud_sandbox/Sandbox.h"
#endif

namespace vxcloud::cli {

#ifndef VXCLOUD_HAVE_SANDBOX

int runDemo(const CommonOptions&, bool) { throw CliError("this build has no sandbox, which the demo runs on"); }

#else

namespace {

constexpr const char* kDocumentName = "Demo Scan.pdf";
constexpr const char* kRenamed = "Demo Scan (renamed).pdf";
constexpr const char* kUploadFolder = "/Scans";
constexpr const char* kArchiveFolder = "/Archive";
// Where accounts that take documents only on request (OneNote) get theirs: notebook/section.
constexpr const char* kSection = "/Scans/Inbox";

// The demo's own XDG home, so it never touches the person's accounts and records.
class PrivateHome {
public:
    explicit PrivateHome(bool keep) : keep_(keep) {
        std::string pattern = (std::filesystem::temp_directory_path() / "vxcloud-demo-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw CliError("cannot create a temporary folder for the demo");
        path_ = pattern;
        ::setenv("XDG_CONFIG_HOME", (path_ + "/config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (path_ + "/data").c_str(), 1);
        // Tokens go to the private home's file, never to the person's keyring.
        ::setenv("VXCLOUD_SECURE_STORE", "file", 1);
        ::unsetenv("VXCLOUD_SANDBOX");
    }
    ~PrivateHome() {
        if (keep_) return;
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }

private:
    bool keep_;
    std::string path_;
};

struct SummaryRow {
    std::string step, account, outcome, storedAs, version, sent;
};

std::string text(const Json& object, const char* key) {
    if (!object.is_object()) return {};
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

void heading(int number, const std::string& title) {
    say();
    say(std::to_string(number) + ". " + title);
}

// Requests the sandbox has seen on its upload routes, over every provider.
std::int64_t uploadRequests(const sandbox::Sandbox& sandbox) {
    std::int64_t count = 0;
    for (const auto& stats : sandbox.allStats())
        if (stats.route.find("upload") != std::string::npos && stats.route.find('*') == std::string::npos)
            count += stats.requests;
    return count;
}

class Demo {
public:
    Demo(const CommonOptions& common, sandbox::Sandbox& sandbox)
        : sandbox_(sandbox),
          context_(makeOptions(common, sandbox)),
          prompter_(false),
          board_(boardFor(false, false, common.verbosity)),
          mover_(context_, prompter_, board_) {}

    int run(const std::string& home) {
        linkAccounts();
        chooseFolders();
        const std::string document = writeDocument(home);
        bool ok = true;
        ok &= step(3, "Upload", "Upload \"" + std::string(kDocumentName) + "\" (" + humanBytes(documentSize_) +
                                    ", generated) to every account with automatic upload on",
                   [&](DocumentJobs& jobs) { return jobs.upload({document}); }, AccountOutcome::Kind::done);
        ok &= sendByHandToEach(document);
        showRecords(document);

        const std::int64_t before = uploadRequests(sandbox_);
        ok &= step(4, "Upload again", "Upload it again: the content is already there, so nothing is sent",
                   [&](DocumentJobs& jobs) { return jobs.upload({document}); }, AccountOutcome::Kind::unchanged);
        say("  The sandbox received " + std::to_string(uploadRequests(sandbox_) - before) +
            " upload requests for this step.");

        changeRemoteCopies();
        ok &= step(5, "Conflict", "", [&](DocumentJobs& jobs) { return jobs.upload({document}); },
                   AccountOutcome::Kind::failed);
        say("  The demo answers: " + VXCloudString::OVERWRITE());
        ok &= step(0, VXCloudString::OVERWRITE(), "", [&](DocumentJobs& jobs) { return jobs.upload({document}); },
                   AccountOutcome::Kind::done, /*overwrite=*/true);
        leftAlone_.clear();

        ok &= step(6, "Rename", "Rename it everywhere to \"" + std::string(kRenamed) + "\"",
                   [&](DocumentJobs& jobs) { return jobs.rename(document, kRenamed); }, AccountOutcome::Kind::done);

        ok &= moveToArchive();
        showRecords(document);
        say();
        say(ok ? "Every step went as expected. To use vxcloud with your own accounts: vxcloud link --help"
               : "Some steps did not go as expected; see above.");
        summary();
        return ok ? kExitOk : kExitFailed;
    }

private:
    static HostOptions makeOptions(const CommonOptions& common, sandbox::Sandbox& sandbox) {
        CommonOptions own = common;
        own.sandboxUrl.clear();
        HostOptions options = hostOptions(own, false);
        options.sandbox = SandboxConnection{sandbox.baseUrl(), sandbox.describe()};
        return options;
    }

    void linkAccounts() {
        heading(1, VXCloudString::LINK_ACCOUNT() + ": every provider the sandbox emulates");
        for (const auto service : context_.sandbox()->services()) {
            const bool single = serviceDescriptor(service).singleAccount;
            const std::string provider = *context_.sandbox()->providerName(service);
            for (const auto& seeded : sandbox_.accounts(provider)) {
                try {
                    LinkRequest request;
                    request.service = service;
                    request.as = seeded.email;
                    request.quiet = true;
                    const LinkResult linked = linkAccount(context_, prompter_, request);
                    say("  Linked " + accountLabel(*linked.account));
                    (autoUploadRefusal(*linked.account) ? byHand_ : accounts_).push_back(linked.account);
                } catch (const CliError& e) {
                    say("  " + displayName(service) + ": not linked: " + e.what());
                }
                if (single) break;
            }
        }
        if (accounts_.empty()) throw CliError("the demo could not link any sandbox account that uploads automatically");
    }

    void chooseFolders() {
        heading(2, "Choose each account's upload folder and turn on automatic upload");
        for (auto& account : accounts_) {
            const auto session = initCloudSession(account);
            const PickedFolder folder = resolveFolderPath(session, kUploadFolder, /*create=*/true);
            const FolderChange change = chooseUploadFolder(account, session, folder.uploadFolderInfo(), false);
            changeAutoUpload(*account, true);
            say("  " + accountLabel(*account) + ": " + folder.displayPath +
                (change.settingsWritten ? " (settings file written)" : " (settings file not written: " +
                                                                           change.settingsProblem + ")"));
        }
        for (auto& account : byHand_) {
            const auto session = initCloudSession(account);
            sections_[account->key()] = resolveFolderPath(session, kSection, /*create=*/true);
            chooseUploadFolder(account, session, sections_[account->key()].uploadFolderInfo(), false);
            say("  " + accountLabel(*account) + ": section " + std::string(kSection) + "; " +
                displayName(account->cloudService) + " takes documents only on request, never automatically");
        }
    }

    // Accounts that never upload automatically get the document by request, as a new page.
    bool sendByHandToEach(const std::string& document) {
        bool ok = true;
        for (const auto& account : byHand_) {
            say("  " + accountLabel(*account) + ": sent on request to " + std::string(kSection) + " as a new page");
            const auto sends = sendByHand({document}, account, sections_[account->key()], board_, std::chrono::seconds(60));
            for (const auto& send : sends) {
                ok = ok && send.ok;
                rows_.push_back({"Send to a section", accountLabel(*account), send.ok ? "new page" : send.note, "-", "-",
                                 send.ok ? humanBytes(send.bytesSent) : "-"});
            }
        }
        return ok;
    }

    std::string writeDocument(const std::string& home) {
        const std::string path = home + "/" + kDocumentName;
        const std::string pdf = samplePdf({"VXCloud demo scan", "A page the demo generated at " + localTime(nowSeconds()),
                                           "It travels to every linked sandbox account."});
        std::ofstream(path, std::ios::binary) << pdf;
        documentSize_ = static_cast<std::int64_t>(pdf.size());
        return path;
    }

    using Job = std::function<JobReport(DocumentJobs&)>;

    // Runs one step and checks that every account answered as the step expects.
    bool step(int number, const std::string& name, const std::string& title, const Job& job,
              AccountOutcome::Kind expected, bool overwrite = false) {
        if (number > 0 && !title.empty()) heading(number, title);
        JobOptions options;
        options.overwrite = overwrite;
        // The demo answers the questions itself; advice to run again would mislead.
        options.hints = false;
        DocumentJobs jobs(context_, prompter_, board_, options);
        const JobReport report = job(jobs);
        return record(name, report, expected);
    }

    bool record(const std::string& name, const JobReport& report, AccountOutcome::Kind expected) {
        bool asExpected = !report.documents.empty();
        for (const auto& document : report.documents) {
            if (!document.problem.empty()) asExpected = false;
            for (const auto& account : document.accounts) {
                if (account.kind == AccountOutcome::Kind::skipped) continue;
                // A copy nobody changed is found unchanged.
                const auto wanted = leftAlone_.count(account.label) ? AccountOutcome::Kind::unchanged : expected;
                asExpected = asExpected && account.kind == wanted;
                std::string outcome = account.kind == AccountOutcome::Kind::failed ? account.note : account.word();
                if (report.action == "rename" && account.kind == AccountOutcome::Kind::done) outcome = "renamed";
                rows_.push_back({name, account.label, outcome, text(account.record, uploadstatus::kDocumentId),
                                 shortVersion(text(account.record, uploadstatus::kVersion)),
                                 report.action == "upload" && account.kind != AccountOutcome::Kind::failed
                                     ? humanBytes(account.bytesSent)
                                     : "-"});
            }
        }
        return asExpected;
    }

    void changeRemoteCopies() {
        heading(5, "Someone changes the copy on the service from another device; the next upload finds a conflict");
        const std::string changed = samplePdf({"VXCloud demo scan", "Edited on another device."});
        for (const auto& account : accounts_) {
            // Where overwriting cannot replace a changed copy, the conflict would have no end.
            if (!serviceDescriptor(account->cloudService).overwritesChangedCopy) {
                say("  " + accountLabel(*account) + ": left alone (" + displayName(account->cloudService) +
                    " keeps a copy changed elsewhere even when overwriting)");
                leftAlone_.insert(accountLabel(*account));
                continue;
            }
            const auto provider = context_.sandbox()->providerName(account->cloudService);
            const std::string path = std::string(kUploadFolder) + "/" + kDocumentName;
            std::string error;
            // The sandbox knows every account by its id; a Microsoft account's shown name is no e-mail.
            if (sandbox_.changeFile(*provider, path, changed, account->userId, &error).is_null()) {
                say("  " + accountLabel(*account) + ": the copy could not be changed: " + error);
            } else {
                say("  " + accountLabel(*account) + ": " + path + " changed in the sandbox");
            }
        }
    }

    bool moveToArchive() {
        heading(7, "Move it: the upload folder becomes " + std::string(kArchiveFolder) +
                       " and the documents in the old folder move along");
        bool ok = true;
        for (auto& account : accounts_) {
            const auto session = initCloudSession(account);
            const PickedFolder folder = resolveFolderPath(session, kArchiveFolder, /*create=*/true);
            chooseUploadFolder(account, session, folder.uploadFolderInfo(), /*moveFiles=*/true);
            const Json& report = mover_.lastReport();
            if (report.is_null()) {
                ok = false;
                continue;
            }
            for (const auto& document : report.value("documents", Json::array())) {
                for (const auto& outcome : document.value("accounts", Json::array())) {
                    const bool moved = outcome.value("outcome", "") == "done";
                    ok = ok && moved;
                    rows_.push_back({"Move", outcome.value("account", ""), moved ? "moved" : outcome.value("note", ""),
                                     text(outcome["record"], uploadstatus::kDocumentId),
                                     shortVersion(text(outcome["record"], uploadstatus::kVersion)), "-"});
                }
            }
            const auto provider = context_.sandbox()->providerName(account->cloudService);
            const std::string moved = std::string(kArchiveFolder) + "/" + kRenamed;
            if (sandbox_.fileContent(*provider, moved, account->userId)) {
                say("  " + accountLabel(*account) + ": the sandbox now holds " + moved);
            } else {
                ok = false;
                say("  " + accountLabel(*account) + ": " + moved + " is not in the sandbox");
            }
        }
        return ok;
    }

    void showRecords(const std::string& document) {
        const auto row = context_.records().documentByPath(absolutePath(document));
        if (!row) return;
        say("  The host's records of \"" + row->name + "\" (vxcloud status):");
        std::cout << statusTable(context_.records(), *row, linkedAccounts());
    }

    void summary() {
        heading(8, "Summary: what each step did, against the sandbox at " + sandbox_.baseUrl());
        Table table({"Step", "Account", "Outcome", "Stored as", "Version", "Sent"});
        for (const auto& row : rows_) table.add({row.step, row.account, row.outcome, row.storedAs, row.version, row.sent});
        std::cout << table.render("  ");
    }

    sandbox::Sandbox& sandbox_;
    HostContext context_;
    Prompter prompter_;
    std::shared_ptr<ProgressBoard> board_;
    FolderChangeMover mover_;
    AccountList accounts_;
    // Accounts that take documents only on request, and the section each gets them in.
    AccountList byHand_;
    std::map<std::string, PickedFolder> sections_;
    // Accounts whose copy the conflict steps leave alone.
    std::set<std::string> leftAlone_;
    std::vector<SummaryRow> rows_;
    std::int64_t documentSize_ = 0;
};

}  // namespace

int runDemo(const CommonOptions& common, bool keepHome) {
    const PrivateHome home(keepHome);
    say("VXCloud demo: the providers are emulated by a sandbox inside this process; nothing leaves this machine.");
    say("A private home keeps the demo's accounts and records: " + home.path() +
        (keepHome ? " (kept)" : " (removed at the end)"));

    sandbox::Sandbox::Options options;
    options.autoApprove = true;
    // Over HTTPS, as the services are: the component trusts the sandbox's own authority
    // for its URLs and verifies every connection.
    options.tls = true;
    sandbox::Sandbox sandbox(options);
    std::string error;
    if (!sandbox.start(0, "127.0.0.1", &error)) throw CliError("the sandbox could not start: " + error);
    int status = kExitFailed;
    {
        Demo demo(common, sandbox);
        status = demo.run(home.path());
    }
    sandbox.stop();
    return status;
}

#endif

}  // namespace vxcloud::cli
