#include "support/SandboxFixture.h"

#include "support/Waiting.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {

SandboxFixture::SandboxFixture(sandbox::Sandbox::Options options)
    : sandbox_(std::make_shared<sandbox::Sandbox>(options)) {}

SandboxFixture::~SandboxFixture() { SandboxFixture::tearDown(); }

bool SandboxFixture::setUp(std::string& error) {
    stores_ = std::make_shared<IsolatedStores>();
    if (stores_->folder().empty()) {
        error = "no temporary folder for the stores";
        return false;
    }
    return sandbox_->start(0, "127.0.0.1", &error);
}

bool SandboxFixture::joinSandboxOf(SandboxFixture& host, std::string& error) {
    if (!host.stores_ || !host.sandbox_->running()) {
        error = "the fixture to join is not set up";
        return false;
    }
    stores_ = host.stores_;
    sandbox_ = host.sandbox_;
    return true;
}

void SandboxFixture::tearDown() {
    if (!stores_) return;
    for (VXCloudService service : description().services()) VXCloudServiceConfig::reset(service);
    retireInBackground(std::move(sandbox_));
    stores_.reset();
}

sandbox::SandboxDescription SandboxFixture::description() const {
    return {sandbox_->baseUrl(), sandbox_->describe()};
}

bool SandboxFixture::pointAt(VXCloudService service) const { return sandbox::pointAtSandbox(description(), service); }

std::unique_ptr<httplib::Client> SandboxFixture::wireClient() const {
    auto client = std::make_unique<httplib::Client>(sandbox_->baseUrl());
    if (const std::string ca = sandbox_->caFile(); !ca.empty()) {
        client->set_ca_cert_path(ca.c_str());
        client->enable_server_certificate_verification(true);
    }
    client->set_connection_timeout(10, 0);
    client->set_read_timeout(20, 0);
    client->set_write_timeout(20, 0);
    return client;
}

sandbox::RouteStats SandboxFixture::routeStats(const std::string& routeKey) const {
    return sandbox_->stats(routeKey);
}

bool SandboxFixture::queueFault(const std::string& routeKey, const std::string& instruction, int times) {
    const auto parsed = sandbox::FaultSpec::parse(instruction);
    return parsed && sandbox_->enqueueFault(routeKey, *parsed, times);
}

}  // namespace vxcloud::testing
