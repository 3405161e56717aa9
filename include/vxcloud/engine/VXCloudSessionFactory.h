#pragma once
// Makes the session for an account: the maker the service's registry entry names, unless a
// test or host installs its own factory. VXCloudAccount::sessionForAccount, the engine and
// the authorisation manager all make their sessions here.
#include <functional>
#include <memory>

namespace vxcloud {

class VXCloudAccount;
class VXCloudSession;

// A new session for the account, or none (a null account, a service without a session in
// this build, the service's session declining the account: WebDAV for an account that is
// not a VXCloudWebDAVAccount). Never throws.
std::shared_ptr<VXCloudSession> initCloudSession(const std::shared_ptr<VXCloudAccount>& account);

// What initCloudSession makes when no override is set. An override may call it to adjust
// the built-in sessions (a host handing each one its progress receiver) instead of
// replacing them. Never throws.
std::shared_ptr<VXCloudSession> builtInCloudSession(const std::shared_ptr<VXCloudAccount>& account);

using CloudSessionFactory =
    std::function<std::shared_ptr<VXCloudSession>(const std::shared_ptr<VXCloudAccount>&)>;

// Replaces what initCloudSession makes, for tests and for hosts with their own sessions;
// an empty function restores the built-in choice. A factory that throws makes no session.
void setCloudSessionFactoryOverride(CloudSessionFactory factory);

// The function VXCloudAccount::sessionForAccount makes its sessions with: initCloudSession,
// which applies the override.
using SessionFactory = std::shared_ptr<VXCloudSession> (*)(const std::shared_ptr<VXCloudAccount>&);
SessionFactory sessionFactory() noexcept;

}  // namespace vxcloud
