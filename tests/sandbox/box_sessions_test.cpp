// The Box emulator's chunked uploads: a session end to end, a part stored behind a 500 and
// found again by listing the parts, immutable parts, ranges that do not fit, digests of
// parts and of the whole file, 202 before the commit is done, size rules, expiry.
#include "sandbox/BoxWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

constexpr std::size_t kPart = 4096;

std::string bytesOf(std::size_t size) {
    std::string out(size, '\0');
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<char>(i * 31 + i / 977);
    return out;
}

class BoxSessions : public BoxWireTest {
protected:
    void SetUp() override {
        BoxWireTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(sandbox.configure("box", {{"chunked_min_bytes", 5000}, {"part_size", kPart}}));
    }
    httplib::Result create(const json& body, const std::string& fileId = {}) {
        const std::string path = fileId.empty() ? "/files/upload_sessions" : "/files/" + fileId + "/upload_sessions";
        return client->Post(up(path).c_str(), bearer(), body.dump(), "application/json");
    }
    // A session's endpoints as paths on the sandbox.
    json endpoints(const httplib::Result& created) {
        json out = parse(created)["session_endpoints"];
        for (auto& [role, url] : out.items()) url = local(url);
        return out;
    }
    httplib::Result part(const json& session, const std::string& bytes, std::size_t first, std::size_t length,
                         const std::string& digestOf = {}) {
        const std::string chunk = bytes.substr(first, length);
        return client->Put(session["upload_part"].get<std::string>().c_str(),
                           {{"Authorization", "Bearer " + box.accessToken},
                            {"Digest", digest(digestOf.empty() ? chunk : digestOf)},
                            {"Content-Range", "bytes " + std::to_string(first) + "-" +
                                                  std::to_string(first + length - 1) + "/" +
                                                  std::to_string(bytes.size())}},
                           chunk, "application/octet-stream");
    }
    httplib::Result commit(const json& session, const json& parts, const std::string& whole) {
        return client->Post(session["commit"].get<std::string>().c_str(),
                            {{"Authorization", "Bearer " + box.accessToken}, {"Digest", digest(whole)}},
                            json{{"parts", parts}}.dump(), "application/json");
    }
};

TEST_F(BoxSessions, UploadInPartsAndCommit) {
    const std::string bytes = bytesOf(2 * kPart + 1000);
    auto created = create({{"folder_id", "0"}, {"file_size", bytes.size()}, {"file_name", "big.bin"}});
    ASSERT_EQ(created->status, 201) << created->body;
    EXPECT_EQ(parse(created)["part_size"], kPart);
    EXPECT_EQ(parse(created)["total_parts"], 3);
    const json session = endpoints(created);
    EXPECT_EQ(session["upload_part"], up("/files/upload_sessions/" + parse(created)["id"].get<std::string>()));

    json parts = json::array();
    auto zero = part(session, bytes, 0, kPart);
    ASSERT_EQ(zero->status, 200) << zero->body;
    EXPECT_EQ(parse(zero)["part"]["sha1"], sha1Hex(bytes.substr(0, kPart)));
    parts.push_back(parse(zero)["part"]);

    // The part is kept although the answer is a 500: a client finds it by listing the parts.
    ASSERT_TRUE(sandbox.enqueueFault("box/sessions/part", *FaultSpec::parse("status=500;processed")));
    EXPECT_EQ(part(session, bytes, kPart, kPart)->status, 500);
    const json listed = parse(client->Get(session["list_parts"].get<std::string>().c_str(), bearer()));
    ASSERT_EQ(listed["total_count"], 2);
    EXPECT_EQ(listed["entries"][1]["offset"], kPart);
    parts.push_back(listed["entries"][1]);
    auto again = part(session, bytes, kPart, kPart);
    EXPECT_EQ(again->status, 409) << "parts are immutable";
    EXPECT_EQ(codeOf(again), "range_overlaps_existing_part");

    EXPECT_EQ(part(session, bytes, 2 * kPart, 1000, "not these bytes")->status, 400);
    EXPECT_EQ(codeOf(part(session, bytes, 2 * kPart, 1000, "not these bytes")), "bad_digest");
    EXPECT_EQ(part(session, bytes, 100, kPart)->status, 416) << "offsets are multiples of part_size";
    EXPECT_EQ(part(session, bytes, 2 * kPart, 999)->status, 416) << "only the last part is short, and it ends the file";
    auto last = part(session, bytes, 2 * kPart, 1000);
    ASSERT_EQ(last->status, 200);
    parts.push_back(parse(last)["part"]);

    auto wrongFile = commit(session, parts, bytes + "x");
    EXPECT_EQ(wrongFile->status, 400);
    EXPECT_EQ(codeOf(wrongFile), "bad_digest");
    EXPECT_EQ(commit(session, json::array({parts[0], parts[2]}), bytes)->status, 400) << "a part is missing";
    json altered = parts;
    altered[1]["sha1"] = sha1Hex("other");
    EXPECT_EQ(commit(session, altered, bytes)->status, 400);

    ASSERT_TRUE(sandbox.configure("box", {{"commit_accepted_first", 1}}));
    auto accepted = commit(session, parts, bytes);
    ASSERT_EQ(accepted->status, 202);
    EXPECT_EQ(accepted->get_header_value("Retry-After"), "1");
    auto done = commit(session, parts, bytes);
    ASSERT_EQ(done->status, 201) << done->body;
    EXPECT_EQ(uploaded(done)["sha1"], sha1Hex(bytes));
    EXPECT_EQ(sandbox.fileContent("box", "/big.bin"), bytes);
    EXPECT_EQ(client->Get(session["status"].get<std::string>().c_str(), bearer())->status, 404) << "committed: gone";
}

TEST_F(BoxSessions, SizeRulesVersionsExpiryAndAbort) {
    auto small = create({{"folder_id", "0"}, {"file_size", 4999}, {"file_name", "small.bin"}});
    EXPECT_EQ(small->status, 400);
    EXPECT_EQ(codeOf(small), "file_size_too_small");
    auto noFolder = create({{"folder_id", "123"}, {"file_size", 6000}, {"file_name", "a.bin"}});
    EXPECT_EQ(noFolder->status, 404);
    EXPECT_EQ(erroneousParameter(noFolder), "parent");

    // A new version through a session keeps the file's id.
    const std::string id = uploaded(uploadNew("doc.bin", "v1"))["id"];
    const std::string bytes = bytesOf(kPart + 2000);
    auto created = create({{"file_size", bytes.size()}}, id);
    ASSERT_EQ(created->status, 201) << created->body;
    const json session = endpoints(created);
    const json parts = {parse(part(session, bytes, 0, kPart))["part"], parse(part(session, bytes, kPart, 2000))["part"]};
    auto status = parse(client->Get(session["status"].get<std::string>().c_str(), bearer()));
    EXPECT_EQ(status["num_parts_processed"], 2);
    const json file = uploaded(commit(session, parts, bytes));
    EXPECT_EQ(file["id"], id);
    EXPECT_EQ(file["sha1"], sha1Hex(bytes));

    ASSERT_TRUE(sandbox.configure("box", {{"upload_session_lifetime", 600}}));
    auto stale = endpoints(create({{"folder_id", "0"}, {"file_size", 6000}, {"file_name", "late.bin"}}));
    sandbox.advanceClock(601);
    auto expired = client->Get(stale["status"].get<std::string>().c_str(), bearer());
    EXPECT_EQ(expired->status, 410);
    EXPECT_EQ(codeOf(expired), "session_expired");

    auto aborted = endpoints(create({{"folder_id", "0"}, {"file_size", 6000}, {"file_name", "gone.bin"}}));
    EXPECT_EQ(client->Delete(aborted["abort"].get<std::string>().c_str(), bearer())->status, 204);
    EXPECT_EQ(client->Get(aborted["status"].get<std::string>().c_str(), bearer())->status, 404);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
