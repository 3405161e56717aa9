#include "support/Waiting.h"

#include <mutex>
#include <vector>

namespace vxcloud::testing {
namespace {

class Retirer {
public:
    ~Retirer() {
        std::lock_guard lock(mutex_);
        for (auto& thread : threads_) thread.join();
    }
    void retire(std::shared_ptr<void> object) {
        std::lock_guard lock(mutex_);
        threads_.emplace_back([object = std::move(object)]() mutable { object.reset(); });
    }

private:
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};

}  // namespace

void retireInBackground(std::shared_ptr<void> object) {
    static Retirer retirer;
    retirer.retire(std::move(object));
}

}  // namespace vxcloud::testing
