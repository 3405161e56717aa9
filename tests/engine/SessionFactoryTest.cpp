// Status record builders, the session factory and the WebDAV session's stubs.
#include <gtest/gtest.h>

#include "EngineTestSupport.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/sessions/VXCloudWebDAVSession.h"

namespace vxcloud::enginetest {
namespace {

TEST(UploadStatusTest, RecordBuildersUseTheStoredWords) {
    const VXCloudAccount acc("u1", "me@example.com", VXCloudService::oneNote);
    EXPECT_EQ(configureUploadStatusDict(acc), Json::parse(R"(
        {"accountId": "me@example.com", "accountType": "one_note", "needsRenameUpdate": false})"));

    const std::pair<ErrorCode, const char*> words[] = {
        {ErrorCode::authentication, "authentication"},
        {ErrorCode::connection, "connection"},
        {ErrorCode::fileConflict, "file_conflict"},
        {ErrorCode::fileUpload, "file_upload"},
        {ErrorCode::monthlyQuotaReached, "monthly_quota_reached"},
        {ErrorCode::missingFolder, "missing_folder"},
        {ErrorCode::renameFailed, "rename_failed"},
        {ErrorCode::storageQuotaReached, "storage_quota_reached"},
    };
    for (const auto& [code, word] : words) {
        const Json record = getErrorStatus(acc, VXCloudError(code));
        EXPECT_EQ(record, (Json{{"accountId", "me@example.com"}, {"accountType", "one_note"},
                                {"needsRenameUpdate", code == ErrorCode::renameFailed},
                                {"error", word}, {"status", "error"}, {"needsUpdate", true}}))
            << word;
    }
}

TEST(SessionFactoryTest, WebDAVSessionsOnlyForWebDAVAccounts) {
    setCloudSessionFactoryOverride(nullptr);
    const auto webdav = std::make_shared<VXCloudWebDAVAccount>("me", "https://dav.example.com", "443");
    const auto session = initCloudSession(webdav);
    ASSERT_NE(std::dynamic_pointer_cast<VXCloudWebDAVSession>(session), nullptr);
    EXPECT_EQ(session->cloudAccount(), webdav);

    // A plain account that merely says WebDAV gets no session, nor does no account.
    const auto pretender = std::make_shared<VXCloudAccount>("u", "me", VXCloudService::webDAV);
    EXPECT_EQ(initCloudSession(pretender), nullptr);
    EXPECT_EQ(VXCloudWebDAVSession::initWithCloudAccount(pretender), nullptr);
    EXPECT_EQ(initCloudSession(nullptr), nullptr);
}

TEST(SessionFactoryTest, OverrideReplacesTheChoiceAndReachesSessionForAccount) {
    auto script = std::make_shared<Script>();
    setCloudSessionFactoryOverride([script](const std::shared_ptr<VXCloudAccount>& a) {
        return std::make_shared<ScriptedSession>(a, script);
    });
    VXCloudTaskManager::sharedInstance();  // installs the factory behind sessionForAccount
    const auto acc = account("a@example.com", VXCloudService::evernote);
    const auto viaAccount = acc->sessionForAccount();
    ASSERT_NE(std::dynamic_pointer_cast<ScriptedSession>(viaAccount), nullptr);
    EXPECT_EQ(viaAccount->cloudAccount(), acc);
    EXPECT_NE(acc->sessionForAccount(), viaAccount);  // a new one every time

    // A factory that throws makes no session rather than an exception.
    setCloudSessionFactoryOverride([](const std::shared_ptr<VXCloudAccount>&)
                                       -> std::shared_ptr<VXCloudSession> {
        throw std::runtime_error("boom");
    });
    EXPECT_EQ(initCloudSession(acc), nullptr);
    setCloudSessionFactoryOverride(nullptr);
}

TEST(WebDAVSessionTest, AnswersOnlyTheAuthorisationQuestion) {
    const auto webdav = std::make_shared<VXCloudWebDAVAccount>("me", "https://dav.example.com", "443");
    const auto session = VXCloudWebDAVSession::initWithCloudAccount(webdav);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->cloudSessionDelegate(), nullptr);
    EXPECT_EQ(session->cloudSessionProgressDelegate(), nullptr);

    const auto root = session->rootFolder();
    EXPECT_EQ(root->name, "WebDAV");
    EXPECT_TRUE(root->isFolder);
    EXPECT_TRUE(root->isRootFolder);
    EXPECT_FALSE(root->id);
    EXPECT_FALSE(root->path);

    std::optional<bool> authorised;
    session->isAuthorizedWithCompletion([&](bool yes) { authorised = yes; });
    EXPECT_EQ(authorised, true);  // before returning

    // Nothing else ever answers: no completion, no delegate call.
    const auto delegates = std::make_shared<CountingDelegate>();
    session->setCloudSessionDelegate(delegates);
    session->setCloudSessionProgressDelegate(delegates);
    int completions = 0;
    session->removeAuthorizationWithCompletion(
        [&](std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>) { ++completions; });
    session->downloadSettingsFileWithCompletionHandler(
        [&](std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>) { ++completions; });
    int renamesAsked = 0;
    const auto file = std::make_shared<VXCloudFile>("a.pdf", false, false);
    session->loadFoldersInFolder(nullptr);
    session->uploadWithCloudFile(file, root, true);
    session->renameWithCloudFile(file, "b.pdf", root, true, [&]() -> std::optional<std::string> {
        ++renamesAsked;
        return std::nullopt;
    });
    session->moveWithCloudFiles({file}, root, root);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(completions, 0);
    EXPECT_EQ(renamesAsked, 0);
    EXPECT_EQ(delegates->calls.load(), 0);
}

}  // namespace
}  // namespace vxcloud::enginetest
