#include <nlohmann/json.hpp>

#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudError.h"

namespace vxcloud {

VXCloudAuthResult VXCloudAuthResult::success(std::shared_ptr<VXCloudAccount> account) {
    VXCloudAuthResult result;
    result.kind_ = Kind::success;
    result.account_ = std::move(account);
    return result;
}

VXCloudAuthResult VXCloudAuthResult::error(std::shared_ptr<VXCloudError> error, std::string message) {
    VXCloudAuthResult result;
    result.kind_ = Kind::error;
    result.error_ = error ? std::move(error) : std::make_shared<VXCloudError>(ErrorCode::fileUpload);
    result.message_ = std::move(message);
    return result;
}

VXCloudAuthResult VXCloudAuthResult::cancel() { return VXCloudAuthResult(); }

Json VXCloudAuthResult::authResultToDict() const {
    switch (kind_) {
        case Kind::success: {
            Json dict = {{kStatusKey, "success"}};
            if (account_) dict[kAccountKey] = account_->toDict();
            return dict;
        }
        case Kind::error: return Json{{kStatusKey, "error"}};
        case Kind::cancel: break;
    }
    return Json{{kStatusKey, "canceled"}};
}

}  // namespace vxcloud
