// UserStore: the version check, the user, and where the user's NoteStore is.
#include "evernote/EdamHandlers.h"

namespace vxcloud::sandbox::evernote {
namespace {

// EDAM 1.28, the newest public version; clients from 1.20 on still work with it.
constexpr int16_t kMajor = 1, kOldestMinor = 20;
// When the seeded people joined, as the service would report it.
constexpr std::int64_t kJoined = 1262304000000;

}  // namespace

EdamCaller UserStoreHandler::caller(const std::string& token) const {
    const EdamCaller who = module_.authenticate(token);
    if (who.errorCode) failUser(static_cast<Code>(who.errorCode), "authenticationToken");
    return who;
}

bool UserStoreHandler::checkVersion(const std::string&, int16_t major, int16_t minor) {
    return major == kMajor && minor >= kOldestMinor;
}

void UserStoreHandler::getUser(edam::User& out, const std::string& token) {
    const EdamCaller who = caller(token);
    out.__set_id(static_cast<edam::UserID>(std::stol(who.account.id)));
    out.__set_username(module_.usernameOf(who.account.id));
    // No e-mail: apps signed in with OAuth do not see it.
    out.__set_name(who.account.displayName());
    out.__set_timezone("Europe/London");
    out.__set_privilege(edam::PrivilegeLevel::NORMAL);
    out.__set_serviceLevel(edam::ServiceLevel::BASIC);
    out.__set_created(kJoined);
    out.__set_updated(kJoined);
    out.__set_active(true);
    out.__set_shardId(who.shard);
}

void UserStoreHandler::getUserUrls(edam::UserUrls& out, const std::string& token) {
    const EdamCaller who = caller(token);
    out.__set_noteStoreUrl(module_.noteStoreUrl(who.shard));
    out.__set_webApiUrlPrefix(module_.webApiUrlPrefix(who.shard));
    out.__set_userStoreUrl(module_.userStoreUrl());
    out.__set_utilityUrl(module_.webApiUrlPrefix(who.shard) + "utility");
}

void UserStoreHandler::getNoteStoreUrl(std::string& out, const std::string& token) {
    out = module_.noteStoreUrl(caller(token).shard);
}

}  // namespace vxcloud::sandbox::evernote
