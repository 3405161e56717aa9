#pragma once
// How VXCloudAccount::sessionForAccount reaches the session classes without the model
// depending on them: the sessions install their factory once at start-up.
#include <memory>

namespace vxcloud {

class VXCloudAccount;
class VXCloudSession;

using SessionFactory = std::shared_ptr<VXCloudSession> (*)(const std::shared_ptr<VXCloudAccount>&);

// Installs the factory (null restores the default, which makes no session).
void setSessionFactory(SessionFactory factory) noexcept;
SessionFactory sessionFactory() noexcept;

}  // namespace vxcloud
