// The framework's test controls: queued faults (used once, counted), dropped connections,
// counters, the admin endpoint, and the in-process server's lifecycle.
#include <atomic>
#include <thread>
#include <vector>

#include "sandbox/WireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class SandboxFaults : public WireTest {};

TEST_F(SandboxFaults, QueuedFaultIsUsedOnceAndCounted) {
    const std::string route = "dropbox/files/get_metadata";
    ASSERT_FALSE(sandbox.putFile("dropbox", "/a.txt", "a").is_null());
    const auto queued = admin("/faults", {{"route", route}, {"status", 503}, {"retry_after", 1}});
    ASSERT_EQ(queued->status, 200) << queued->body;
    EXPECT_EQ(sandbox.stats(route).faultsPending, 1);

    const auto failed = rpc("files/get_metadata", {{"path", "/a.txt"}});
    ASSERT_EQ(failed->status, 503);
    EXPECT_EQ(failed->get_header_value("Retry-After"), "1");
    EXPECT_EQ(rpc("files/get_metadata", {{"path", "/a.txt"}})->status, 200);

    const RouteStats stats = sandbox.stats(route);
    EXPECT_EQ(stats.requests, 2);
    EXPECT_EQ(stats.faultsHit, 1);
    EXPECT_EQ(stats.faultsPending, 0);
    EXPECT_EQ(stats.statuses.at(503), 1);
    EXPECT_EQ(stats.statuses.at(200), 1);
    const json overHttp = parse(client->Get(("/admin/stats?route=" + route).c_str()));
    EXPECT_EQ(overHttp["faults_hit"], 1);

    // Provider-typed bodies, skip counts and provider-wide queues.
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/*", *FaultSpec::parse("status=429;retry-after=2;skip=1")));
    EXPECT_EQ(rpc("files/get_metadata", {{"path", "/a.txt"}})->status, 200) << "skipped";
    const auto limited = rpc("users/get_current_account", nullptr);
    ASSERT_EQ(limited->status, 429);
    EXPECT_EQ(limited->get_header_value("Retry-After"), "2");
    EXPECT_EQ(parse(limited)["error"], json({{"reason", {{".tag", "too_many_requests"}}}, {"retry_after", 2}}));
    EXPECT_EQ(sandbox.stats("dropbox/*").faultsHit, 2);

    client->set_default_headers({{"X-Sandbox-Fault", "status=409;error=too_many_write_operations"}});
    const auto busy = rpc("files/get_metadata", {{"path", "/a.txt"}});
    client->set_default_headers({{"X-Sandbox-Fault", "status=nine"}});
    const auto badHeader = rpc("files/get_metadata", {{"path", "/a.txt"}});
    client->set_default_headers({});
    EXPECT_EQ(busy->status, 409);
    EXPECT_EQ(parse(busy)["error"], json({{".tag", "too_many_write_operations"}}));
    EXPECT_EQ(badHeader->status, 400);

    std::string error;
    EXPECT_FALSE(sandbox.enqueueFault("dropbox/files/nope", *FaultSpec::parse("drop"), 1, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(FaultSpec::parse("status=503;bogus", &error));
    EXPECT_FALSE(FaultSpec::parse("skip=1", &error)) << "a fault that does nothing";
    EXPECT_EQ(admin("/faults", {{"route", route}, {"fault", "status=700"}})->status, 400);
}

TEST_F(SandboxFaults, DroppedConnectionsLoseTheRightBytes) {
    // Cut mid-upload: the request is never processed.
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/files/upload", *FaultSpec::parse("drop-after=100")));
    const auto cut = upload("files/upload", {{"path", "/cut.bin"}}, std::string(1000, 'x'));
    EXPECT_FALSE(cut) << "the client sees a transport failure";
    EXPECT_TRUE(sandbox.metadata("dropbox", "/cut.bin").is_null());
    EXPECT_EQ(sandbox.stats("dropbox/files/upload").bytesReceived, 100);
    EXPECT_EQ(sandbox.stats("dropbox/files/upload").faultsHit, 1);

    // Cut mid-answer: the write happened, the client cannot know.
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/files/upload", *FaultSpec::parse("drop-response-after=5")));
    EXPECT_FALSE(upload("files/upload", {{"path", "/written.bin"}}, "abc"));
    EXPECT_FALSE(sandbox.metadata("dropbox", "/written.bin").is_null());

    // A download cut after some bytes of the body; the next one is whole.
    const std::string content(100000, 'd');
    ASSERT_FALSE(sandbox.putFile("dropbox", "/big.bin", content).is_null());
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/files/download", *FaultSpec::parse("drop-after=1000")));
    EXPECT_FALSE(download("/big.bin"));
    const auto whole = download("/big.bin");
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->body, content);
    const auto partial = download("/big.bin", {{"Range", "bytes=10-19"}});
    EXPECT_EQ(partial->status, 206);
    EXPECT_EQ(partial->body, content.substr(10, 10));

    // Dropped before answering.
    ASSERT_TRUE(sandbox.enqueueFault("dropbox/users/get_current_account", *FaultSpec::parse("drop")));
    EXPECT_FALSE(rpc("users/get_current_account", nullptr));
    EXPECT_EQ(rpc("users/get_current_account", nullptr)->status, 200);
}

TEST_F(SandboxFaults, AdminEndpointManagesState) {
    const auto put = admin("/dropbox/files", {{"path", "/Admin/Note.txt"}, {"content", "first"}});
    ASSERT_EQ(put->status, 200) << put->body;
    const json before = parse(put);
    const auto changed = admin("/dropbox/files/change", {{"path", "/admin/note.txt"}, {"content_base64", "c2Vjb25k"}});
    ASSERT_EQ(changed->status, 200) << changed->body;
    EXPECT_NE(parse(changed)["rev"], before["rev"]) << "a change elsewhere is a new revision";
    EXPECT_EQ(download("/Admin/Note.txt")->body, "second");

    const json state = parse(client->Get("/admin/dropbox/state"));
    ASSERT_EQ(state["items"].size(), 2u);
    EXPECT_EQ(state["items"][1]["path_display"], "/Admin/Note.txt");
    EXPECT_EQ(client->Get("/admin/dropbox/content?path=/admin/note.txt")->body, "second");
    EXPECT_EQ(admin("/dropbox/config", {{"list_folder_page_size", "many"}})->status, 400);
    EXPECT_EQ(parse(admin("/dropbox/config", {{"list_folder_page_size", 7}}))["list_folder_page_size"], 7);
    EXPECT_EQ(client->Get("/admin/nosuch/state")->status, 404);

    const json described = parse(client->Get("/admin"));
    EXPECT_EQ(described["providers"]["dropbox"]["content"], sandbox.baseUrl() + "/dropbox/content");
    EXPECT_EQ(described["accounts"][0]["access_token"], account.accessToken);
    const json line = json::parse(sandbox.readyLine());
    EXPECT_EQ(line["admin"], sandbox.adminUrl());
}

TEST(SandboxLifecycle, LoopbackOnlyAndRestartable) {
    Sandbox sandbox;
    std::string error;
    EXPECT_FALSE(sandbox.start(0, "0.0.0.0", &error));
    EXPECT_NE(error.find("loopback"), std::string::npos);
    ASSERT_TRUE(sandbox.start(0, "127.0.0.1", &error)) << error;
    Sandbox second;
    EXPECT_FALSE(second.start(sandbox.port(), "127.0.0.1", &error)) << "the port is taken";
    sandbox.stop();
    EXPECT_FALSE(sandbox.running());
}

class SandboxConcurrency : public WireTest {};

TEST_F(SandboxConcurrency, InFlightRequestsAreTracked) {
    const int workers = 6;
    std::vector<std::thread> threads;
    std::atomic<int> ok{0};
    for (int i = 0; i < workers; ++i) {
        threads.emplace_back([&, i] {
            auto c = newClient();
            const httplib::Headers headers = {{"Authorization", "Bearer " + account.accessToken},
                                              {"X-Sandbox-Fault", "delay=800"},
                                              {"Dropbox-API-Arg", json{{"path", "/p" + std::to_string(i)}}.dump()}};
            const auto res = c->Post("/dropbox/content/2/files/upload", headers, "data", "application/octet-stream");
            if (res && res->status == 200) ++ok;
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(ok.load(), workers);
    const RouteStats stats = sandbox.stats("dropbox/files/upload");
    EXPECT_EQ(stats.requests, workers);
    EXPECT_EQ(stats.inFlight, 0);
    EXPECT_GE(stats.maxInFlight, 2) << "the delayed requests overlapped";
    EXPECT_LE(stats.maxInFlight, workers);
    EXPECT_EQ(sandbox.listState("dropbox")["items"].size(), static_cast<std::size_t>(workers));
}

}  // namespace
}  // namespace vxcloud::sandbox::test
