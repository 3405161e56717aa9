#pragma once
// The one base of every test that runs against an embedded sandbox: isolated stores, a
// sandbox on an ephemeral loopback port (plain HTTP, or HTTPS with its own authority), the
// component's services pointed at it through the sandbox client, a wire-level client for
// tests that speak the providers' formats themselves, and the sandbox's counters and
// faults. Provider fixtures, the sign-in tests and the wire tests all build on it.
#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdint>
#include <memory>
#include <string>

#include "support/IsolatedStores.h"
#include "vxcloud/model/VXCloudService.h"
#include "vxcloud_sandbox/Sandbox.h"
#include "vxcloud_sandbox/SandboxClient.h"

namespace vxcloud::testing {

class SandboxFixture {
public:
    explicit SandboxFixture(sandbox::Sandbox::Options options = {});
    virtual ~SandboxFixture();
    SandboxFixture(const SandboxFixture&) = delete;
    SandboxFixture& operator=(const SandboxFixture&) = delete;

    // Starts the sandbox with fresh isolated stores. False, with the reason, when it cannot.
    virtual bool setUp(std::string& error);
    // Uses `host`'s sandbox and stores instead of its own, so that accounts of two
    // providers can be used side by side.
    bool joinSandboxOf(SandboxFixture& host, std::string& error);
    // Stops using the sandbox (it winds down in the background) and the stores, and puts
    // the services back to the real ones.
    virtual void tearDown();

    sandbox::Sandbox& sandbox() const { return *sandbox_; }
    const IsolatedStores& stores() const { return *stores_; }
    // What the running sandbox says about itself, as a program using it would read it.
    sandbox::SandboxDescription description() const;
    // Points the component's service at the sandbox (its CA file trusted, with TLS).
    bool pointAt(VXCloudService service) const;
    // A client for requests in the providers' own wire formats; over HTTPS it verifies
    // the sandbox's certificate against its authority.
    std::unique_ptr<httplib::Client> wireClient() const;

    // What the sandbox has seen on a route ("dropbox/files/upload", "google/*").
    sandbox::RouteStats routeStats(const std::string& routeKey) const;
    // Queues a fault in the sandbox's text form on a route.
    bool queueFault(const std::string& routeKey, const std::string& instruction, int times = 1);

private:
    std::shared_ptr<IsolatedStores> stores_;
    std::shared_ptr<sandbox::Sandbox> sandbox_;
};

// A test with a fixture set up: SandboxTest<> for the sandbox alone, SandboxTest<Fixture>
// for a provider's fixture.
template <typename Fixture = SandboxFixture>
class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(fx_.setUp(error)) << error;
    }

    Fixture fx_;
};

}  // namespace vxcloud::testing
