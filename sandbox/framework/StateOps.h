#pragma once
// Direct access to a provider's stored state for tests and people, by path, independent of
// the provider's API (no auth, no faults, no counters). Results are the provider's own
// metadata JSON; null and `error` on failure.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::sandbox {

class ProviderModule;

namespace state {

// Creates missing parent folders; an existing file at `path` gets a new revision.
nlohmann::json putFile(ProviderModule& module, const std::string& account, const std::string& path,
                       ByteBuffer bytes, std::string& error);
nlohmann::json putFolder(ProviderModule& module, const std::string& account, const std::string& path,
                         std::string& error);
// The file must exist.
nlohmann::json changeFile(ProviderModule& module, const std::string& account, const std::string& path,
                          ByteBuffer bytes, std::string& error);
bool remove(ProviderModule& module, const std::string& account, const std::string& path, std::string& error);
std::optional<ByteBuffer> content(ProviderModule& module, const std::string& account, const std::string& path);
nlohmann::json metadata(ProviderModule& module, const std::string& account, const std::string& path);
nlohmann::json list(ProviderModule& module, const std::string& account);
// bytes < 0: no quota; `full`: exactly what is used now.
bool setQuota(ProviderModule& module, const std::string& account, std::int64_t bytes, bool full);

}  // namespace state
}  // namespace vxcloud::sandbox
