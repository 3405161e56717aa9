// The manager's work with sessions: the start-up check of the stored accounts and the
// settings download. Sessions are kept in pendingSessions until they answer, since
// nothing else holds them.
#include <nlohmann/json.hpp>

#include "auth/AuthManagerState.h"
#include "sessions/SettingsDocument.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {
namespace {

// False when the call threw.
template <typename Call>
bool guarded(const char* what, Call&& call) {
    try {
        call();
        return true;
    } catch (const std::exception& e) {
        log::error("auth", std::string(what) + " threw: " + e.what());
    } catch (...) {
        log::error("auth", std::string(what) + " threw");
    }
    return false;
}

// Marks the stored account as needing a new sign-in, changing nothing else of it: the
// person may have renamed it, or chosen a folder, while its session was asked. An account
// unlinked meanwhile stays unlinked.
void markUnauthorized(const VXCloudAccount& account) {
    const auto marked = VXCloudUserDefaults::updateCloudAccount(account.key(), [](VXCloudAccount& stored) {
        stored.error = std::make_shared<VXCloudError>(ErrorCode::authentication);
    });
    if (!marked) {
        log::info("auth", "the start-up check could not mark a " + account.accountType() +
                              " account (unlinked meanwhile, or the preferences cannot be written)");
    }
}

// What the start-up check still waits for; touched only on the check's serial queue.
struct StartupCheck {
    std::size_t outstanding = 1;  // the walk over the accounts itself
    std::function<void()> completion;

    void oneDone() {
        if (--outstanding == 0 && completion) guarded("the start-up check's completion", completion);
    }
};

}  // namespace

void VXCloudAuthManager::postSetup(std::function<void()> completion) {
    auto self = shared_from_this();
    state_->postSetupQueue->async([self, completion = std::move(completion)]() mutable {
        State& state = *self->state_;
        auto check = std::make_shared<StartupCheck>();
        check->completion = std::move(completion);
        for (const auto& account : VXCloudUserDefaults::loadAllAccounts(false)) {
            auto session = initCloudSession(account);
            if (!session) {
                markUnauthorized(*account);
                continue;
            }
            ++check->outstanding;
            state.keep(session);
            const VXCloudSession* raw = session.get();
            std::weak_ptr<VXCloudAuthManager> weak = self;
            const bool asked = guarded("asking a session whether it is authorised", [&] {
                session->isAuthorizedWithCompletion([weak, raw, account, check](bool authorized) {
                    auto manager = weak.lock();
                    if (!manager) return;
                    // Back on the check's queue: one account is saved at a time.
                    manager->state_->postSetupQueue->async([manager, raw, account, check, authorized] {
                        if (!authorized) markUnauthorized(*account);
                        manager->state_->release(raw);
                        check->oneDone();
                    });
                });
            });
            if (!asked) {
                // It will not answer: count it as not authorised.
                markUnauthorized(*account);
                state.release(raw);
                check->oneDone();
            }
        }
        check->oneDone();
    });
}

void VXCloudAuthManager::downloadSettingsFile(
    std::shared_ptr<VXCloudAccount> cloudAccount,
    std::function<void(JsonBox settings, std::shared_ptr<VXCloudError> error)> completionHandler) {
    auto finish = [completionHandler](JsonBox settings, std::shared_ptr<VXCloudError> error) {
        if (completionHandler) {
            guarded("the settings completion", [&] { completionHandler(std::move(settings), std::move(error)); });
        }
    };
    auto session = initCloudSession(cloudAccount);
    if (!session) return finish({}, std::make_shared<VXCloudError>(ErrorCode::authentication));
    state_->keep(session);
    const VXCloudSession* raw = session.get();
    std::weak_ptr<VXCloudAuthManager> weak = weak_from_this();
    session->downloadSettingsFileWithCompletionHandler(
        [weak, raw, finish](std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudError> error) {
            // Let go of the session after it has returned from this callback.
            if (auto manager = weak.lock()) {
                DispatchQueue::global()->async([manager, raw] { manager->state_->release(raw); });
            }
            if (error) return finish({}, std::move(error));
            if (!file || !file->fileData) return finish({}, std::make_shared<VXCloudError>(ErrorCode::missingFolder));
            JsonBox settings = sessions::readSettingsDocument(file->fileData->view());
            if (!settings) return finish({}, std::make_shared<VXCloudError>(ErrorCode::missingFolder));
            finish(std::move(settings), nullptr);
        });
}

}  // namespace vxcloud
