// The Microsoft Graph client against a loopback server playing the upload host: an upload
// session whose fragment was stored although its answer failed goes on from where the
// session says, the pre-authenticated addresses never see the bearer token, and the
// simple upload names its conflict behaviour.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <nlohmann/json.hpp>

#include "../../src/providers/onedrive/GraphClient.h"
#include "support/IsolatedStores.h"
#include "support/LoopbackServer.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud {
namespace {

using nlohmann::json;

class GraphClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        auto& s = server_.server();
        s.Post(R"(/v1.0/me/drive/root:/([^:]+):/createUploadSession)", [this](const httplib::Request& req, httplib::Response& res) {
            sessionName_ = req.matches[1];
            res.set_content(json{{"uploadUrl", server_.url("/up/1")}}.dump(), "application/json");
        });
        s.Put("/up/1", [this](const httplib::Request& req, httplib::Response& res) { fragment(req, res); });
        s.Get("/up/1", [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex_);
            if (req.has_header("Authorization")) tokenSeenUpstream_ = true;
            res.set_content(json{{"nextExpectedRanges", {std::to_string(stored_.size()) + "-"}}}.dump(),
                            "application/json");
        });
        s.Put(R"(/v1.0/me/drive/items/F1:/([^:]+):/content)", [this](const httplib::Request& req, httplib::Response& res) {
            conflictBehavior_ = req.get_param_value("@microsoft.graph.conflictBehavior");
            res.status = 201;
            res.set_content(item(req.matches[1], req.body).dump(), "application/json");
        });
        s.Get(R"(/v1.0/me/drive/root:/settings.json:/content)", [this](const httplib::Request&, httplib::Response& res) {
            res.status = 302;
            res.set_header("Location", server_.url("/files/settings"));
        });
        s.Get("/files/settings", [this](const httplib::Request& req, httplib::Response& res) {
            if (req.has_header("Authorization")) tokenSeenUpstream_ = true;
            res.set_content("{\"uploadFolderId\":\"F1\"}", "application/octet-stream");
        });
        ASSERT_TRUE(server_.start());
        VXCloudOAuthToken token;
        token.accessToken = "graph-token";
        token.expiresAt = 4102444800;
        ASSERT_TRUE(VXCloudTokenStore::save(VXCloudService::oneDrive, "graph-test", token));
        onedrive::ClientOptions options;
        options.endpoints.apiBase = server_.url("/v1.0");
        options.limits.maxSingleRequestBytes = 1024;       // documents above go through a session
        options.limits.chunkBytes = onedrive::kFragmentUnit;  // 320 KiB fragments
        options.retry.baseDelay = std::chrono::milliseconds(1);
        client_ = std::make_unique<onedrive::GraphClient>(
            std::make_shared<oauth::TokenProvider>(VXCloudService::oneDrive, "graph-test"), options);
    }

    json item(const std::string& name, const std::string& bytes) {
        const std::string xor_ = VXCloudFileHasher::quickXorHash(ByteBuffer::copyOf(bytes));
        return json{{"id", "ID-" + name}, {"name", name}, {"size", bytes.size()},
                    {"file", {{"mimeType", "application/pdf"}, {"hashes", {{"quickXorHash", xor_}}}}},
                    {"parentReference", {{"id", "F1"}, {"path", "/drive/root:"}}}};
    }

    // Keeps fragments in order; the second is stored but answered with a server error, as a
    // service may do, so its repeat overlaps.
    void fragment(const httplib::Request& req, httplib::Response& res) {
        std::lock_guard lock(mutex_);
        if (req.has_header("Authorization")) tokenSeenUpstream_ = true;
        long long first = 0, last = 0, total = 0;
        if (std::sscanf(req.get_header_value("Content-Range").c_str(), "bytes %lld-%lld/%lld", &first, &last, &total) != 3 ||
            last - first + 1 != static_cast<long long>(req.body.size())) {
            res.status = 400;
            return;
        }
        if (first != static_cast<long long>(stored_.size())) {
            res.status = 416;
            res.set_content(R"({"error":{"code":"invalidRange","innererror":{"code":"fragmentOverlap"}}})", "application/json");
            return;
        }
        stored_ += req.body;
        if (++fragments_ == 2) {
            res.status = 500;
            res.set_content(R"({"error":{"code":"generalException"}})", "application/json");
            return;
        }
        if (static_cast<long long>(stored_.size()) == total) {
            res.status = 201;
            res.set_content(item(sessionName_, stored_).dump(), "application/json");
            return;
        }
        res.status = 202;
        res.set_content(json{{"nextExpectedRanges", {std::to_string(stored_.size()) + "-"}}}.dump(), "application/json");
    }

    testing::IsolatedStores stores_;
    test::LoopbackServer server_;
    std::unique_ptr<onedrive::GraphClient> client_;
    std::mutex mutex_;
    std::string stored_;
    std::string sessionName_;
    std::string conflictBehavior_;
    int fragments_ = 0;
    std::atomic<bool> tokenSeenUpstream_{false};
};

TEST_F(GraphClientTest, UploadSessionGoesOnWhereTheSessionSaysAndNeverSendsTheToken) {
    std::string bytes(3 * onedrive::kFragmentUnit + 12345, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 1000);
    std::vector<std::int64_t> progress;
    auto stored = client_->upload("root", "big scan.pdf", ByteBuffer::copyOf(bytes), onedrive::ConflictBehavior::fail,
                                  [&](std::int64_t done, std::int64_t) { progress.push_back(done); });
    ASSERT_TRUE(stored.ok()) << stored.error().message;
    EXPECT_EQ(sessionName_, "big scan.pdf");
    EXPECT_TRUE(stored_ == bytes) << "every byte once, in order";
    EXPECT_EQ(stored.value().id, "ID-big scan.pdf");
    EXPECT_EQ(stored.value().quickXorHash, VXCloudFileHasher::quickXorHash(ByteBuffer::copyOf(bytes)));
    EXPECT_FALSE(tokenSeenUpstream_);
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), static_cast<std::int64_t>(bytes.size()));
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
}

TEST_F(GraphClientTest, SimpleUploadNamesItsConflictBehaviourAndDownloadsFollowTheRedirectWithoutToken) {
    auto stored = client_->upload("F1", "small.pdf", ByteBuffer::copyOf(std::string_view("%PDF-small")),
                                  onedrive::ConflictBehavior::replace);
    ASSERT_TRUE(stored.ok()) << stored.error().message;
    EXPECT_EQ(conflictBehavior_, "replace");
    EXPECT_EQ(stored.value().parentId, "F1");
    EXPECT_TRUE(stored.value().isFile);

    auto settings = client_->downloadAtPath("settings.json");
    ASSERT_TRUE(settings.ok()) << settings.error().message;
    EXPECT_EQ(settings.value().toString(), "{\"uploadFolderId\":\"F1\"}");
    EXPECT_FALSE(tokenSeenUpstream_);
}

}  // namespace
}  // namespace vxcloud
