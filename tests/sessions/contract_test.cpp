// The session contract, run against every provider's session: one outcome per operation,
// the caller's record handed back with what the service returned, progress as increments,
// and the outcomes of the common cases. A provider's declared silences are checked, not
// skipped.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "sessions/ProviderFixture.h"
#include "sessions/SessionTestSupport.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"

namespace vxcloud::testing {
namespace {

class SessionContract : public ::testing::TestWithParam<ProviderCase>, public SessionDriver<> {
protected:
    void SetUp() override {
        fixture_ = GetParam().make();
        std::string error;
        ASSERT_TRUE(fixture_->setUp(error)) << error;
        ASSERT_TRUE(drive(fixture_->makeSession()));
    }
    void TearDown() override {
        session_.reset();
        if (fixture_) fixture_->tearDown();
    }

    std::shared_ptr<VXCloudFile> document(const std::string& name, const std::string& bytes) {
        return makeDocument(name, bytes);
    }
    std::optional<std::string> fingerprint(const std::string& bytes) {
        return VXCloudFileHasher::hash(ByteBuffer::copyOf(bytes), fixture_->account()->cloudService);
    }
    // The record the engine builds for a document it uploaded before.
    std::shared_ptr<VXCloudFile> storedDocument(const VXCloudFile& uploaded, const std::string& bytes) {
        const auto version = uploaded.version ? uploaded.version : uploaded.getVersionFromUploadStatus();
        return makeStoredDocument(*fixture_->account(), uploaded.getNameFromUploadStatus(), version, bytes,
                                  fingerprint(bytes));
    }

    // Runs one operation: exactly one outcome, or none at all where the provider declares
    // the operation silent.
    std::optional<SessionEvent> outcomeOf(Operation operation, const std::function<void()>& start) {
        if (!fixture_->expectsSilence(operation)) return outcome(start);
        delegate_->clear();
        start();
        EXPECT_FALSE(delegate_->waitForEvents(1, 1500ms)) << "declared silent, but called back";
        return std::nullopt;
    }

    // The record a successful upload handed back; nothing where uploads are silent.
    std::shared_ptr<VXCloudFile> uploaded(const std::shared_ptr<VXCloudFile>& file,
                                          const std::shared_ptr<VXCloudFile>& folder, bool overwrite) {
        auto event = outcomeOf(Operation::upload, [&] { session_->uploadWithCloudFile(file, folder, overwrite); });
        if (!event) return nullptr;
        EXPECT_EQ(event->kind, SessionEvent::Kind::didUpload) << describe(*event);
        return event->kind == SessionEvent::Kind::didUpload ? event->file : nullptr;
    }

    // Stores a document for a test of another operation and returns the engine's record
    // of it. Where uploads are silent by declaration the record is made up, so that the
    // operation under test is still run and its own silence checked.
    std::shared_ptr<VXCloudFile> storeDocument(const std::string& name, const std::string& bytes,
                                               const std::shared_ptr<VXCloudFile>& folder) {
        auto stored = uploaded(document(name, bytes), folder, false);
        if (stored) return storedDocument(*stored, bytes);
        if (fixture_->expectsSilence(Operation::upload)) {
            return makeStoredDocument(*fixture_->account(), name, std::nullopt, bytes, fingerprint(bytes));
        }
        ADD_FAILURE() << "could not store " << name;
        return nullptr;
    }

    std::unique_ptr<ProviderFixture> fixture_;
};

TEST_P(SessionContract, UploadReturnsTheCallersRecordWithNameVersionAndProgress) {
    auto folder = fixture_->makeFolder("Contract Uploads");
    const std::string bytes = documentBytes(300 * 1024, 1);
    auto file = document("Receipt 2024.pdf", bytes);

    auto event = outcomeOf(Operation::upload, [&] { session_->uploadWithCloudFile(file, folder, false); });
    if (!event) return;
    ASSERT_EQ(event->kind, SessionEvent::Kind::didUpload) << describe(*event);
    if (fixture_->storesEveryUploadAsNew()) {
        ASSERT_NE(event->file, nullptr);
        EXPECT_EQ(event->file->name, "Receipt 2024.pdf") << "the new document is named like the one sent";
    } else {
        EXPECT_EQ(event->file, file) << "the session must hand back the record it was given";
    }
    EXPECT_EQ(event->session, session_);
    EXPECT_EQ(file->name, "Receipt 2024.pdf");
    if (fixture_->offersVersion()) {
        EXPECT_EQ(file->version, fixture_->reportedVersion(bytes));
    }
    EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "Receipt 2024.pdf"), bytes));

    if (fixture_->reportsProgress()) {
        const auto progress = delegate_->progress();
        ASSERT_FALSE(progress.empty());
        for (const auto& [current, total] : progress) {
            EXPECT_GE(current, 0);
            EXPECT_EQ(total, static_cast<std::int64_t>(bytes.size()));
        }
        EXPECT_EQ(delegate_->progressSum(), static_cast<std::int64_t>(bytes.size()))
            << "progress reports are increments that add up to the size";
    } else {
        EXPECT_TRUE(delegate_->progress().empty());
    }
}

TEST_P(SessionContract, SameNamedDocumentIsReplacedOnlyWhenOverwriting) {
    auto folder = fixture_->makeFolder("Contract Clash");
    const std::string first = documentBytes(2048, 2);
    ASSERT_NE(storeDocument("clash.pdf", first, folder), nullptr);

    const std::string second = documentBytes(4096, 3);
    auto refused = document("clash.pdf", second);
    if (fixture_->keepsSameNamedDocuments()) refused->localVersion = fingerprint(second);
    auto event = outcomeOf(Operation::upload, [&] { session_->uploadWithCloudFile(refused, folder, false); });
    if (event && fixture_->storesEveryUploadAsNew()) {
        // Nothing clashes: the second is a document of its own beside the first.
        EXPECT_EQ(event->kind, SessionEvent::Kind::didUpload) << describe(*event);
        EXPECT_EQ(fixture_->documentsNamed("clash.pdf"), 2u);
        return;
    }
    if (event) {
        ASSERT_EQ(event->kind, SessionEvent::Kind::uploadFailed) << describe(*event);
        EXPECT_EQ(event->file, refused) << "a failure also hands back the caller's record";
        EXPECT_EQ(event->code(), fixture_->conflictCode());
        EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "clash.pdf"), first));
    } else {
        return;
    }

    auto replacing = document("clash.pdf", second);
    if (fixture_->keepsSameNamedDocuments()) replacing->localVersion = fingerprint(second);
    auto stored = uploaded(replacing, folder, true);
    if (!stored) return;
    EXPECT_EQ(stored, replacing);
    EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "clash.pdf"), second));
}

TEST_P(SessionContract, UnchangedDocumentUploadedBeforeSucceedsAgain) {
    auto folder = fixture_->makeFolder("Contract Again");
    const std::string bytes = documentBytes(8192, 4);
    auto again = storeDocument("again.pdf", bytes, folder);
    ASSERT_NE(again, nullptr);
    auto stored = uploaded(again, folder, false);
    if (!stored) return;
    if (fixture_->storesEveryUploadAsNew()) {
        EXPECT_EQ(fixture_->documentsNamed("again.pdf"), 2u) << "sent again, stored again";
        return;
    }
    EXPECT_EQ(stored, again);
    EXPECT_EQ(again->name, "again.pdf");
    if (fixture_->offersVersion()) {
        EXPECT_EQ(again->version, fixture_->reportedVersion(bytes));
    }
    EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "again.pdf"), bytes));
}

TEST_P(SessionContract, RemoteChangeIsAConflictUnlessOverwriting) {
    auto folder = fixture_->makeFolder("Contract Changed");
    const std::string original = documentBytes(4096, 5);
    auto first = storeDocument("changed.pdf", original, folder);
    ASSERT_NE(first, nullptr);
    // Where every upload is a new document there is no copy to change, and nothing to clash.
    if (fixture_->storesEveryUploadAsNew()) return;
    const bool silent = fixture_->expectsSilence(Operation::upload);
    if (!silent) {
        ASSERT_TRUE(fixture_->changeRemote(*folder, "changed.pdf", documentBytes(5000, 6)));
    }

    const std::string local = documentBytes(6000, 7);
    auto edited = storedDocument(*first, local);
    auto event = outcomeOf(Operation::upload, [&] { session_->uploadWithCloudFile(edited, folder, false); });
    if (event) {
        ASSERT_EQ(event->kind, SessionEvent::Kind::uploadFailed) << describe(*event);
        EXPECT_EQ(event->code(), ErrorCode::fileConflict);
        EXPECT_EQ(event->file, edited);
    }
    if (silent) return;

    auto forced = storedDocument(*first, local);
    if (!fixture_->overwritesChangedCopy()) {
        event = outcome([&] { session_->uploadWithCloudFile(forced, folder, true); });
        EXPECT_EQ(event->code(), fixture_->conflictCode()) << describe(*event);
        EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "changed.pdf"), documentBytes(5000, 6)));
        return;
    }
    if (!uploaded(forced, folder, true)) return;
    EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "changed.pdf"), local));
}

TEST_P(SessionContract, RenameGivesTheStoredDocumentItsNewName) {
    auto folder = fixture_->makeFolder("Contract Rename");
    const std::string bytes = documentBytes(4096, 8);
    auto stored = storeDocument("before.pdf", bytes, folder);
    ASSERT_NE(stored, nullptr);
    auto event = outcomeOf(Operation::rename, [&] {
        session_->renameWithCloudFile(stored, "after.pdf", folder, false, [] { return std::nullopt; });
    });
    if (!event) return;
    ASSERT_EQ(event->kind, SessionEvent::Kind::didRename) << describe(*event);
    EXPECT_EQ(event->file, stored);
    EXPECT_EQ(stored->name, "after.pdf");
    EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "after.pdf"), bytes));
    EXPECT_EQ(fixture_->remoteContent(*folder, "before.pdf"), std::nullopt);
}

TEST_P(SessionContract, NamesThatCannotBeSentAreRefusedOnceAndNothingIsStored) {
    auto folder = fixture_->makeFolder("Contract Names");
    const std::string bytes = documentBytes(1024, 12);
    // Invalid UTF-8: a stray continuation byte, a truncated sequence, an overlong "/", NUL.
    for (const std::string& bad : {std::string("scan\xff.pdf"), std::string("scan\xe2\x82.pdf"),
                                  std::string("a\xc0\xaf" "b.pdf"), std::string("nul\0.pdf", 8)}) {
        auto event = outcomeOf(Operation::upload, [&] { session_->uploadWithCloudFile(document(bad, bytes), folder, false); });
        if (event) {
            EXPECT_TRUE(failedWith(*event, SessionEvent::Kind::uploadFailed, ErrorCode::fileUpload));
        }
    }
    auto stored = storeDocument("good.pdf", bytes, folder);
    ASSERT_NE(stored, nullptr);
    auto event = outcomeOf(Operation::rename, [&] {
        session_->renameWithCloudFile(stored, "bad\xff.pdf", folder, false, [] { return std::nullopt; });
    });
    if (event) {
        EXPECT_TRUE(failedWith(*event, SessionEvent::Kind::renameFailed, ErrorCode::fileUpload));
    }
    if (!fixture_->expectsSilence(Operation::upload)) {
        EXPECT_TRUE(sameBytes(fixture_->remoteContent(*folder, "good.pdf"), bytes)) << "the document kept its name";
    }
}

TEST_P(SessionContract, MoveReportsEveryFileOnce) {
    auto from = fixture_->makeFolder("Contract From");
    auto to = fixture_->makeFolder("Contract To");
    const std::string a = documentBytes(1024, 9);
    const std::string b = documentBytes(2048, 10);
    VXCloudFileList files = {storeDocument("a.pdf", a, from), storeDocument("b.pdf", b, from)};
    ASSERT_TRUE(files[0] && files[1]);
    auto event = outcomeOf(Operation::move, [&] { session_->moveWithCloudFiles(files, from, to); });
    if (!event) return;
    ASSERT_EQ(event->kind, SessionEvent::Kind::didMove);
    std::set<VXCloudFile*> reported;
    for (const auto& f : event->files) reported.insert(f.get());
    for (const auto& f : event->notMoved) reported.insert(f.get());
    EXPECT_EQ(reported, (std::set<VXCloudFile*>{files[0].get(), files[1].get()}));
    EXPECT_EQ(event->files.size(), 2u) << "both files were movable";
    EXPECT_TRUE(sameBytes(fixture_->remoteContent(*to, "a.pdf"), a));
    EXPECT_TRUE(sameBytes(fixture_->remoteContent(*to, "b.pdf"), b));
    EXPECT_EQ(fixture_->remoteContent(*from, "a.pdf"), std::nullopt);
}

TEST_P(SessionContract, ListsTheSubfoldersOfAFolder) {
    auto parent = fixture_->makeParentFolder("Contract Parent");
    fixture_->makeFolder("Invoices", parent);
    fixture_->makeFolder("Letters", parent);
    if (fixture_->parentFoldersHoldDocuments()) {
        ASSERT_NE(storeDocument("not-a-folder.pdf", documentBytes(100, 11), parent), nullptr);
    }

    auto event = outcomeOf(Operation::loadFolders, [&] { session_->loadFoldersInFolder(parent); });
    if (!event) return;
    ASSERT_EQ(event->kind, SessionEvent::Kind::didLoadFolders) << describe(*event);
    EXPECT_EQ(event->parent, parent);
    std::set<std::string> names;
    for (const auto& folder : event->files) {
        EXPECT_TRUE(folder->isFolder);
        names.insert(folder->name);
    }
    if (fixture_->foldersAreOneLevel()) {
        EXPECT_TRUE(names.count("Invoices") && names.count("Letters")) << "every notebook is listed";
    } else {
        EXPECT_EQ(names, (std::set<std::string>{"Invoices", "Letters"}));
    }

    auto top = outcomeOf(Operation::loadFolders, [&] { session_->loadFoldersInFolder(session_->rootFolder()); });
    if (!top) return;
    ASSERT_EQ(top->kind, SessionEvent::Kind::didLoadFolders) << describe(*top);
    EXPECT_TRUE(std::any_of(top->files.begin(), top->files.end(),
                            [](const auto& f) { return f->name == "Contract Parent"; }));
}

TEST_P(SessionContract, SettingsDocumentIsDownloadedOnce) {
    auto folder = fixture_->makeFolder("Contract Scans");
    ASSERT_TRUE(fixture_->storeSettings(*folder));
    CompletionProbe<std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>> probe;
    session_->downloadSettingsFileWithCompletionHandler(probe.handler());
    if (fixture_->expectsSilence(Operation::downloadSettings)) {
        EXPECT_FALSE(probe.wait(1500ms));
        return;
    }
    ASSERT_TRUE(probe.wait());
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(probe.count(), 1u);
    auto [record, error] = probe.first();
    if (!serviceDescriptor(fixture_->account()->cloudService).keepsSettingsDocument) {
        // A service that keeps none answers at once with neither a document nor an error.
        EXPECT_EQ(record, nullptr);
        EXPECT_EQ(error, nullptr);
        return;
    }
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(error, nullptr) << error->getErrorCode();
    ASSERT_TRUE(record->fileData.has_value());
    const auto settings = nlohmann::json::parse(record->fileData->view(), nullptr, false);
    EXPECT_TRUE(settings.is_object());
}

TEST_P(SessionContract, SettingsDocumentStaysOneDocumentAcrossFolderChoices) {
    // Each folder choice writes the settings document the way the host does: a new record,
    // overwriting allowed. The account keeps one document, and it names the last choice.
    std::shared_ptr<VXCloudFile> chosen;
    for (const std::string name : {"Choice One", "Choice Two", "Choice Three"}) {
        chosen = fixture_->makeFolder(name);
        const Json settings = {{VXCloudFile::kUploadFolderIdKey, chosen->id.value_or("")},
                               {VXCloudFile::kUploadFolderNameKey, name},
                               {VXCloudFile::kUploadFolderPathKey, chosen->path.value_or("/" + name)}};
        auto written = document(".quillosettings", settings.dump());
        if (fixture_->expectsSilence(Operation::uploadSettings)) {
            EXPECT_FALSE(outcomeOf(Operation::uploadSettings, [&] { session_->uploadWithCloudFile(written, session_->rootFolder(), true); }));
            EXPECT_EQ(fixture_->documentsNamed(".quillosettings"), 0u);
            continue;
        }
        if (!uploaded(written, session_->rootFolder(), true)) return;
        EXPECT_EQ(fixture_->documentsNamed(".quillosettings"), 1u) << "after choosing " << name;
    }
    if (fixture_->expectsSilence(Operation::downloadSettings)) return;
    if (!serviceDescriptor(fixture_->account()->cloudService).keepsSettingsDocument) return;
    auto [record, error] = settings();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(error, nullptr) << error->getErrorCode();
    ASSERT_TRUE(record->fileData.has_value());
    const auto stored = nlohmann::json::parse(record->fileData->view(), nullptr, false);
    EXPECT_EQ(stored.value(VXCloudFile::kUploadFolderNameKey, ""), "Choice Three");
    EXPECT_EQ(stored.value(VXCloudFile::kUploadFolderIdKey, ""), chosen->id.value_or(""));
}

TEST_P(SessionContract, AuthorizationIsConfirmedOnce) {
    CompletionProbe<bool> probe;
    session_->isAuthorizedWithCompletion(probe.handler());
    ASSERT_TRUE(probe.wait());
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(probe.count(), 1u);
    EXPECT_TRUE(std::get<0>(probe.first()));
}

INSTANTIATE_TEST_SUITE_P(Providers, SessionContract, ::testing::ValuesIn(contractProviders()),
                         [](const ::testing::TestParamInfo<ProviderCase>& info) { return info.param.name; });

}  // namespace
}  // namespace vxcloud::testing
