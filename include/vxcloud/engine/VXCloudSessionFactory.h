#pragma once
// Makes the session for an account: the one place that knows which session class serves
// which service. Also installs itself as VXCloudAccount::sessionForAccount's factory.
#include <functional>
#include <memory>

namespace vxcloud {

class VXCloudAccount;
class VXCloudSession;

// A new session for the account, or none (the service's session declines the account,
// WebDAV for an account that is not a VXCloudWebDAVAccount, a null account). Never throws.
std::shared_ptr<VXCloudSession> initCloudSession(const std::shared_ptr<VXCloudAccount>& account);

// What initCloudSession makes when no override is set. An override may call it to adjust
// the built-in sessions (a host handing each one its progress receiver) instead of
// replacing them. Never throws.
std::shared_ptr<VXCloudSession> builtInCloudSession(const std::shared_ptr<VXCloudAccount>& account);

using CloudSessionFactory =
    std::function<std::shared_ptr<VXCloudSession>(const std::shared_ptr<VXCloudAccount>&)>;

// Replaces what initCloudSession makes, for tests and for hosts with their own sessions;
// an empty function restores the built-in choice.
void setCloudSessionFactoryOverride(CloudSessionFactory factory);

// Makes VXCloudAccount::sessionForAccount use initCloudSession, which it does from the start;
// this restores it after another factory was installed.
void installCloudSessionFactory() noexcept;

}  // namespace vxcloud
