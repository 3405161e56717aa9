#pragma once
// The part of a provider's fixture that every emulated provider shares, on the sandbox
// fixture every sandbox test builds on: the component's endpoints for the service pointed
// at the sandbox, the sandbox's first account of the provider linked (tokens stored,
// account saved) as a sign-in would leave it, and the sandbox's counters and faults for the
// provider's routes. A provider's fixture adds how it reaches stored documents and its
// declared exceptions to the contract.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "sessions/ProviderFixture.h"
#include "sessions/SessionTestSupport.h"
#include "support/SandboxFixture.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::testing {

struct SandboxProvider {
    VXCloudService service = VXCloudService::dropbox;
    std::string name;      // the sandbox's name for it, the first part of its routes: "dropbox"
    std::string clientId;  // the app credentials the component is set up with
    std::string scope;     // what granted tokens carry; empty when the service names none
};

class SandboxProviderFixture : public ProviderFixture, public SandboxFixture {
public:
    bool setUp(std::string& error) override;
    // Joins `host`'s sandbox and stores instead of starting its own, so that accounts of
    // two providers can be used side by side.
    bool setUpBeside(SandboxProviderFixture& host, std::string& error);
    void tearDown() override { SandboxFixture::tearDown(); }

    std::shared_ptr<VXCloudAccount> account() override { return account_; }
    // Asks the sandbox's own view of the account's tree (of another of its accounts).
    std::size_t documentsNamed(const std::string& name) override { return documentsNamedFor(name, sandboxAccount_.userId); }
    std::size_t documentsNamedFor(const std::string& name, const std::string& userId);
    const sandbox::SandboxAccount& sandboxAccount() const { return sandboxAccount_; }
    const SandboxProvider& provider() const { return provider_; }

    // Stores the account's tokens and the account itself (auto-upload on, any network,
    // upload folder "Scans" at "/Scans"), as linking it would.
    std::shared_ptr<VXCloudAccount> linkAccount(const sandbox::SandboxAccount& account, std::string& error);

    // What the sandbox has seen on one of the provider's routes ("files/upload").
    sandbox::RouteStats stats(const std::string& route) const { return routeStats(provider_.name + "/" + route); }
    std::int64_t requests(const std::string& route) const { return stats(route).requests; }
    std::int64_t bytesReceived(const std::string& route) const { return stats(route).bytesReceived; }
    // Queues a fault in the sandbox's text form on a route ("files/update", "oauth2/token").
    bool fault(const std::string& route, const std::string& instruction, int times = 1) {
        return queueFault(provider_.name + "/" + route, instruction, times);
    }

protected:
    explicit SandboxProviderFixture(SandboxProvider provider, sandbox::Sandbox::Options options = {});

    // The provider's own preparation, once the sandbox runs and before the account is linked.
    virtual bool prepare(std::string& /*error*/) { return true; }
    // Adds what the service's client needs beside the token (Evernote's NoteStore address).
    virtual void completeToken(VXCloudOAuthToken& /*token*/, const sandbox::SandboxAccount& /*account*/) {}
    // The app's secret, for services whose token endpoint wants one.
    virtual std::optional<std::string> clientSecret() const { return std::nullopt; }
    // Where the component looks for the account's tokens.
    virtual std::string storageName(const VXCloudAccount& account) const { return account.userId; }
    // The id of the account's upload folder "/Scans", made at the sandbox where the service
    // needs it to exist; empty, with the reason, when it cannot be had.
    virtual std::string uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) = 0;

private:
    bool linkFirstAccount(std::string& error);

    SandboxProvider provider_;
    sandbox::SandboxAccount sandboxAccount_;
    std::shared_ptr<VXCloudAccount> account_;
};

// A test of one provider's session: the fixture set up and a session of it driven, with
// the steps the provider's own tests share.
template <typename Fixture, typename Session>
class SessionTest : public SandboxTest<Fixture>, public SessionDriver<Session> {
protected:
    void SetUp() override {
        SandboxTest<Fixture>::SetUp();
        if (::testing::Test::HasFatalFailure()) return;
        ASSERT_TRUE(this->drive(std::dynamic_pointer_cast<Session>(this->fx_.makeSession())));
    }

    // The service's fingerprint of the bytes, as the engine records it.
    std::string fingerprint(const std::string& bytes) const {
        return VXCloudFileHasher::hash(ByteBuffer::copyOf(bytes), this->fx_.provider().service).value_or("");
    }
    // Uploads a new document; the record the engine would send for it next time.
    std::shared_ptr<VXCloudFile> stored(const std::string& name, const std::string& bytes,
                                        const std::shared_ptr<VXCloudFile>& parent) {
        auto event = this->upload(makeDocument(name, bytes), parent, false);
        EXPECT_EQ(event.kind, SessionEvent::Kind::didUpload) << describe(event);
        return makeStoredDocument(*this->fx_.account(), name, fingerprint(bytes), bytes, fingerprint(bytes));
    }
    void fault(const std::string& route, const std::string& instruction, int times = 1) {
        ASSERT_TRUE(this->fx_.fault(route, instruction, times)) << route << ": " << instruction;
    }
};

}  // namespace vxcloud::testing
