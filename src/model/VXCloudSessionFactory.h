#pragma once
// How VXCloudAccount::sessionForAccount makes its session: initCloudSession unless a test
// or host installs another factory.
#include <memory>

namespace vxcloud {

class VXCloudAccount;
class VXCloudSession;

using SessionFactory = std::shared_ptr<VXCloudSession> (*)(const std::shared_ptr<VXCloudAccount>&);

// Installs the factory (null restores the default, initCloudSession).
void setSessionFactory(SessionFactory factory) noexcept;
SessionFactory sessionFactory() noexcept;

}  // namespace vxcloud
