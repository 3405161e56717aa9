#pragma once
// Using a running sandbox in place of the real services, from a program (the vxcloud CLI,
// its demo) or a test: the sandbox's description, pointing the component's services at
// it, and answering its sign-in page as a person would. Needs only the component, not the
// sandbox itself, so a host can use a sandbox that runs elsewhere.
//
// A provider module needs nothing here: every role its ready line names ("api",
// "content", "authorize", "token", anything else as an extra endpoint) is taken over.
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudService.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::sandbox {

// The service a sandbox provider name stands for ("dropbox", "google", "google_drive", ...).
std::optional<VXCloudService> serviceForSandboxProvider(const std::string& name);

// What a sandbox says about itself (its ready line, or GET /admin).
struct SandboxDescription {
    std::string baseUrl;  // "http://127.0.0.1:PORT" or "https://..."
    Json description;     // {"providers": {...}, "accounts": [...], "ca_file"?: ...}

    // The PEM file to trust when the sandbox serves HTTPS; empty otherwise.
    std::string caFile() const;
    // The services the sandbox emulates, in service order.
    std::vector<VXCloudService> services() const;
    // The sandbox's provider name for a service ("dropbox"), or nothing.
    std::optional<std::string> providerName(VXCloudService service) const;
    // The service's endpoints at the sandbox, trusting its CA file; nothing when it does
    // not emulate the service.
    std::optional<VXCloudServiceEndpoints> endpoints(VXCloudService service) const;
    // The provider's first seeded account, or the one with that e-mail / user id.
    std::optional<Json> seededAccount(VXCloudService service, const std::string& wanted = {}) const;
};

// "127.0.0.1:53682", "http://127.0.0.1:53682/", ".../admin" all become "http://127.0.0.1:53682".
std::string normaliseSandboxUrl(const std::string& url);

// Asks the sandbox at `url` for its description (trusting `caFile` over HTTPS). Nothing,
// and why, when it does not answer or does not look like a sandbox.
std::optional<SandboxDescription> fetchSandboxDescription(const std::string& url, const std::string& caFile,
                                                          std::string& error);

// Points the service's endpoints at the sandbox; false when the sandbox does not emulate it.
bool pointAtSandbox(const SandboxDescription& sandbox, VXCloudService service);
// Points every service the sandbox emulates at it; those services.
std::vector<VXCloudService> pointAtSandbox(const SandboxDescription& sandbox);

// Plays the person on the sandbox's sign-in page: approves (as `account`, an e-mail or user
// id; empty: the first) or denies the authorize URL, following the redirect back to the
// app when `follow`, else answering the sandbox's own 302.
struct SignInDecision {
    bool approve = true;
    std::string account;
    bool follow = true;
    std::chrono::milliseconds idleTimeout{20000};
};
HttpResponse answerSignInPage(const std::string& authorizeUrl, const SignInDecision& decision = {});

}  // namespace vxcloud::sandbox
