// The component over HTTPS with verification on: a Dropbox session against the sandbox
// serving TLS under its own throwaway authority, trusted through the service's CA file;
// trusting another authority, or only the system's, fails before anything reaches it.
#include <gtest/gtest.h>

#include "sessions/DropboxFixture.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {
namespace {

using Kind = SessionEvent::Kind;

sandbox::Sandbox::Options overTls() {
    sandbox::Sandbox::Options options;
    options.tls = true;
    return options;
}

class DropboxTlsFixture : public DropboxFixture {
public:
    DropboxTlsFixture() : DropboxFixture(overTls()) {}
};

class DropboxOverTls : public SessionTest<DropboxTlsFixture, VXCloudDropboxSession> {
protected:
    // A fresh session once the service trusts `caFile` for the sandbox's URLs.
    void trust(const std::string& caFile) {
        auto endpoints = VXCloudServiceConfig::endpoints(VXCloudService::dropbox);
        endpoints.caFile = caFile;
        VXCloudServiceConfig::setEndpoints(VXCloudService::dropbox, endpoints);
        ASSERT_TRUE(drive(fx_.makeDropboxSession()));
    }
};

TEST_F(DropboxOverTls, ListsAndUploadsWithTheSandboxsAuthorityAndFailsWithAnother) {
    ASSERT_EQ(fx_.sandbox().baseUrl().rfind("https://127.0.0.1:", 0), 0u) << fx_.sandbox().baseUrl();
    EXPECT_EQ(VXCloudServiceConfig::endpoints(VXCloudService::dropbox).caFile, fx_.sandbox().caFile());

    auto scans = fx_.makeFolder("Scans");
    fx_.makeFolder("Receipts", scans);
    auto listed = loadFolders(scans);
    ASSERT_EQ(listed.kind, Kind::didLoadFolders) << describe(listed);
    ASSERT_EQ(listed.files.size(), 1u);
    EXPECT_EQ(listed.files[0]->name, "Receipts");
    auto uploaded = upload(makeDocument("tls.pdf", "%PDF-1.4 over TLS"), scans, false);
    EXPECT_EQ(uploaded.kind, Kind::didUpload) << describe(uploaded);
    EXPECT_EQ(fx_.sandbox().fileContent("dropbox", "/Scans/tls.pdf"), "%PDF-1.4 over TLS");

    // Another sandbox's authority did not sign this certificate.
    sandbox::Sandbox other(overTls());
    std::string error;
    ASSERT_TRUE(other.start(0, "127.0.0.1", &error)) << error;
    ASSERT_NE(other.caFile(), fx_.sandbox().caFile());
    // (The Dropbox session reports every transport failure as file_upload today; the
    // refusal is the transport's TLS error.)
    fx_.sandbox().resetStats();
    trust(other.caFile());
    EXPECT_EQ(loadFolders(scans).kind, Kind::loadFoldersFailed);
    EXPECT_EQ(upload(makeDocument("refused.pdf", "%PDF"), scans, false).kind, Kind::uploadFailed);
    // Nor does any authority the system trusts.
    trust("");
    EXPECT_EQ(loadFolders(scans).kind, Kind::loadFoldersFailed);
    EXPECT_FALSE(fx_.sandbox().fileContent("dropbox", "/Scans/refused.pdf"));
    EXPECT_EQ(fx_.stats("*").requests, 0) << "no request got past the handshake";

    trust(fx_.sandbox().caFile());
    EXPECT_EQ(loadFolders(scans).kind, Kind::didLoadFolders);
}

}  // namespace
}  // namespace vxcloud::testing
