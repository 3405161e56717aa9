#include "vxcloud/platform/SecureStore.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "StoreTestSupport.h"

namespace vxcloud {
namespace {

using testutil::TempFolder;

SecureItem item(std::string itemClass, int type, std::string account,
                std::optional<std::string> data = std::nullopt, std::string service = {}) {
    return {{std::move(itemClass), type, std::move(account), std::move(service)}, std::move(data)};
}

// Query builder (designated initialisers would leave members unnamed, which -Wextra flags).
struct Query : SecureQuery {
    Query withType(int t) { type = t; return *this; }
    Query withAccount(std::string a) { account = std::move(a); return *this; }
    Query withService(std::string s) { service = std::move(s); return *this; }
    Query limitedTo(std::size_t n) { limit = n; return *this; }
};
Query byClass(std::string itemClass) {
    Query q;
    q.itemClass = std::move(itemClass);
    return q;
}

std::vector<std::string> accounts(const std::vector<SecureItem>& items) {
    std::vector<std::string> out;
    for (const auto& i : items) out.push_back(i.key.account + "/" + std::to_string(i.key.type));
    return out;
}

std::vector<std::string> sorted(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    return names;
}

// What every backend promises; order aside, which only the file backend keeps.
void checkContract(SecureStore& store) {
    // Keychain-style records without data: one per (class, type, account).
    EXPECT_EQ(store.add(item("internet-password", 1, "b@x")), SecureStatus::success);
    EXPECT_EQ(store.add(item("internet-password", 1, "b@x")), SecureStatus::duplicateItem);
    EXPECT_EQ(static_cast<int>(SecureStatus::duplicateItem), -25299);
    EXPECT_EQ(store.add(item("internet-password", 1, "a@x")), SecureStatus::success);
    EXPECT_EQ(store.add(item("internet-password", 4, "b@x")), SecureStatus::success);

    // Tokens with data; the service distinguishes otherwise equal identities.
    const std::string binary("tok\0en\xff\n\"", 9);
    EXPECT_EQ(store.add(item("oauth-token", 1, "b@x", binary, "refresh")), SecureStatus::success);
    EXPECT_EQ(store.add(item("oauth-token", 1, "b@x", "", "access")), SecureStatus::success);
    EXPECT_EQ(store.add(item("oauth-token", 1, "b@x", "other", "refresh")),
              SecureStatus::duplicateItem);
    EXPECT_EQ(store.secret({"oauth-token", 1, "b@x", "refresh"}), binary);  // left untouched
    EXPECT_EQ(store.secret({"oauth-token", 1, "b@x", "access"}), "");        // empty, not absent
    EXPECT_EQ(store.secret({"internet-password", 1, "b@x", ""}), std::nullopt);

    // Filters and limit.
    EXPECT_EQ(sorted(accounts(store.find(byClass("internet-password")))),
              (std::vector<std::string>{"a@x/1", "b@x/1", "b@x/4"}));
    EXPECT_EQ(sorted(accounts(store.find(byClass("internet-password").withType(1)))),
              (std::vector<std::string>{"a@x/1", "b@x/1"}));
    EXPECT_EQ(store.find(byClass("internet-password").withType(1).limitedTo(1)).size(), 1u);
    EXPECT_EQ(sorted(accounts(store.find(byClass("internet-password").withAccount("b@x")))),
              (std::vector<std::string>{"b@x/1", "b@x/4"}));
    EXPECT_EQ(store.find(byClass("internet-password").withType(2)).size(), 0u);
    auto refresh = store.find(byClass("oauth-token").withService("refresh"));
    ASSERT_EQ(refresh.size(), 1u);
    EXPECT_EQ(refresh[0].data, binary);

    // put replaces the data (also to none and back) or adds the item.
    EXPECT_EQ(store.put(item("oauth-token", 1, "b@x", "rotated", "refresh")), SecureStatus::success);
    EXPECT_EQ(store.secret({"oauth-token", 1, "b@x", "refresh"}), "rotated");
    EXPECT_EQ(store.put(item("oauth-token", 1, "b@x", std::nullopt, "access")), SecureStatus::success);
    EXPECT_EQ(store.secret({"oauth-token", 1, "b@x", "access"}), std::nullopt);
    EXPECT_EQ(store.put(item("oauth-token", 2, "c@x", "new", "refresh")), SecureStatus::success);
    EXPECT_EQ(store.find(byClass("oauth-token")).size(), 3u);

    EXPECT_EQ(store.remove({"internet-password", 1, "b@x", ""}), SecureStatus::success);
    EXPECT_EQ(store.remove({"internet-password", 1, "b@x", ""}), SecureStatus::itemNotFound);
    EXPECT_EQ(sorted(accounts(store.find(byClass("internet-password")))),
              (std::vector<std::string>{"a@x/1", "b@x/4"}));
}

TEST(SecureStoreFile, AddPutFindRemove) {
    TempFolder tmp;
    auto store = SecureStore::openFile(tmp / "secure-store.json");
    ASSERT_TRUE(store);
    checkContract(*store);

    // Insertion order, also after put replaced an item in place.
    EXPECT_EQ(accounts(store->find(byClass("internet-password"))),
              (std::vector<std::string>{"a@x/1", "b@x/4"}));
    auto tokens = store->find(byClass("oauth-token"));
    ASSERT_EQ(tokens.size(), 3u);
    EXPECT_EQ(tokens[0].data, "rotated");
    EXPECT_EQ(tokens[2].key.account, "c@x");
    EXPECT_EQ(accounts(store->find(byClass("oauth-token").limitedTo(2))),
              (std::vector<std::string>{"b@x/1", "b@x/1"}));

    // A second store on the same file sees everything (nothing is cached).
    auto again = SecureStore::openFile(tmp / "secure-store.json");
    EXPECT_EQ(again->secret({"oauth-token", 1, "b@x", "refresh"}), "rotated");
    EXPECT_EQ(tmp.names(), (std::vector<std::string>{"secure-store.json", "secure-store.json.lock"}));
}

TEST(SecureStoreFile, FileIsOwnerOnlyAndUnreadableEntriesAreKept) {
    TempFolder tmp;
    const std::string path = tmp / "data/vxcloud/secure-store.json";
    auto store = SecureStore::openFile(path);
    ASSERT_EQ(store->put(item("oauth-token", 0, "a@x", "secret")), SecureStatus::success);
    EXPECT_EQ(testutil::permissions(path), 0600u);
    EXPECT_EQ(testutil::permissions(tmp / "data/vxcloud"), 0700u);
    EXPECT_EQ(testutil::permissions(path + ".lock"), 0600u);

    // A file that others can read (restored from a backup, say) is closed on open;
    // entries this version cannot read are skipped but survive changes.
    testutil::writeWholeFile(tmp / "old.json", R"({"version": 1, "items": [
        {"class": "oauth-token", "type": "x", "account": "bad"},
        {"class": "oauth-token", "type": 3, "account": "a@x", "service": "", "data": "c2VjcmV0"},
        {"class": "oauth-token", "type": 3, "account": "b@x", "service": "", "data": "not base64!"}
    ]})");
    ::chmod((tmp / "old.json").c_str(), 0644);
    auto old = SecureStore::openFile(tmp / "old.json");
    EXPECT_EQ(testutil::permissions(tmp / "old.json"), 0600u);
    EXPECT_EQ(accounts(old->find(byClass("oauth-token"))), (std::vector<std::string>{"a@x/3"}));
    EXPECT_EQ(old->secret({"oauth-token", 3, "a@x", ""}), "secret");
    EXPECT_EQ(old->add(item("oauth-token", 3, "c@x", "x")), SecureStatus::success);
    const std::string text = testutil::readWholeFile(tmp / "old.json");
    EXPECT_NE(text.find("\"bad\""), std::string::npos);
    EXPECT_NE(text.find("not base64!"), std::string::npos);

    // A document of the wrong shape is moved aside like any corrupt file.
    testutil::writeWholeFile(tmp / "shape.json", R"({"items": {"not": "a list"}})");
    testutil::WarningCollector warnings;
    auto shape = SecureStore::openFile(tmp / "shape.json");
    EXPECT_TRUE(shape->find(SecureQuery()).empty());
    EXPECT_EQ(shape->add(item("oauth-token", 1, "a@x")), SecureStatus::success);
    EXPECT_EQ(warnings.messages().size(), 1u);
    int aside = 0;
    for (const auto& name : tmp.names()) aside += name.starts_with("shape.json.corrupt-");
    EXPECT_EQ(aside, 1);
}

TEST(SecureStoreFile, UnwritableLocationReportsFailure) {
    TempFolder tmp;
    testutil::writeWholeFile(tmp / "file", "x");
    testutil::WarningCollector warnings;
    auto store = SecureStore::openFile(tmp / "file/secure-store.json");
    EXPECT_EQ(store->add(item("oauth-token", 1, "a@x", "s")), SecureStatus::failure);
    EXPECT_EQ(store->put(item("oauth-token", 1, "a@x", "s")), SecureStatus::failure);
    EXPECT_EQ(store->remove({"oauth-token", 1, "a@x", ""}), SecureStatus::failure);
    EXPECT_TRUE(store->find(SecureQuery()).empty());
    for (const auto& message : warnings.messages()) EXPECT_EQ(message.find("\"s\""), std::string::npos);
}

TEST(SecureStoreFile, MovingItemsKeepsWhatTheTargetHasAndLosesNothingOnFailure) {
    TempFolder tmp;
    auto from = SecureStore::openFile(tmp / "from.json");
    auto to = SecureStore::openFile(tmp / "to.json");
    from->put(item("oauth-token", 1, "a@x", "old-a", "refresh"));
    from->put(item("oauth-token", 1, "b@x", "from-b", "refresh"));
    from->put(item("internet-password", 4, "c@x", "pw"));
    to->put(item("oauth-token", 1, "b@x", "to-b", "refresh"));

    // A target that cannot write keeps every item where it was.
    testutil::writeWholeFile(tmp / "blocked", "x");
    auto broken = SecureStore::openFile(tmp / "blocked/store.json");
    {
        testutil::WarningCollector quiet;
        EXPECT_EQ(SecureStore::moveItems(*from, *broken), 0u);
    }
    EXPECT_EQ(from->find(SecureQuery()).size(), 3u);

    EXPECT_EQ(SecureStore::moveItems(*from, *to), 2u);
    EXPECT_TRUE(from->find(SecureQuery()).empty());
    EXPECT_EQ(to->secret({"oauth-token", 1, "a@x", "refresh"}), "old-a");
    EXPECT_EQ(to->secret({"oauth-token", 1, "b@x", "refresh"}), "to-b");
    EXPECT_EQ(to->secret({"internet-password", 4, "c@x", ""}), "pw");
}

TEST(SecureStore, SharedStoreAndDefaultLocation) {
    TempFolder tmp;
    {
        testutil::ScopedEnv data("XDG_DATA_HOME", tmp / "share");
        EXPECT_EQ(SecureStore::defaultFilePath(), tmp / "share/vxcloud/secure-store.json");
    }
    {
        testutil::ScopedEnv data("XDG_DATA_HOME", std::nullopt);
        testutil::ScopedEnv home("HOME", tmp / "home");
        EXPECT_EQ(SecureStore::defaultFilePath(), tmp / "home/.local/share/vxcloud/secure-store.json");
    }
    auto store = SecureStore::openFile(tmp / "shared.json");
    SecureStore::setShared(store);
    EXPECT_EQ(SecureStore::shared(), store);
    SecureStore::setShared(nullptr);
}

// A helper program for the duration of a test, its output discarded.
class Daemon {
public:
    Daemon(std::vector<std::string> argv, const std::string& input = {}) {
        std::vector<char*> args;
        for (auto& a : argv) args.push_back(a.data());
        args.push_back(nullptr);
        int in[2];
        if (::pipe(in) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            int null = ::open("/dev/null", O_WRONLY);
            ::dup2(in[0], 0);
            ::dup2(null, 1);
            ::dup2(null, 2);
            ::close(in[1]);
            ::execv(args[0], args.data());
            ::_exit(127);
        }
        ::close(in[0]);
        if (!input.empty()) (void)!::write(in[1], input.data(), input.size());
        ::close(in[1]);
    }
    ~Daemon() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

private:
    pid_t pid_ = -1;
};

// A private message bus; `address` stays empty when dbus-daemon is missing.
struct PrivateBus {
    std::string address;
    std::unique_ptr<Daemon> daemon;

    explicit PrivateBus(const TempFolder& tmp) {
        if (::access("/usr/bin/dbus-daemon", X_OK) != 0) return;
        const std::string socket = tmp / "bus";
        testutil::writeWholeFile(tmp / "bus.conf",
                                 "<busconfig><type>session</type><listen>unix:path=" + socket +
                                     "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                     "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                                     "<allow own=\"*\"/></policy></busconfig>");
        daemon = std::make_unique<Daemon>(std::vector<std::string>{
            "/usr/bin/dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + tmp / "bus.conf"});
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!std::filesystem::exists(socket) && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (std::filesystem::exists(socket)) address = "unix:path=" + socket;
    }
};

TEST(SecureStore, NoSecretServiceAnswersNullWithoutHangingOrNoise) {
    TempFolder tmp;
    std::filesystem::create_directory(tmp / "runtime");
    testutil::ScopedEnv runtime("XDG_RUNTIME_DIR", tmp / "runtime");
    auto openTimed = [] {
        const auto start = std::chrono::steady_clock::now();
        auto store = SecureStore::openSecretService();
        return std::make_pair(store, std::chrono::steady_clock::now() - start);
    };
    PrivateBus privateBus(tmp);
    ::testing::internal::CaptureStderr();
    {
        testutil::ScopedEnv bus("DBUS_SESSION_BUS_ADDRESS", std::nullopt);  // as on CI
        auto [store, took] = openTimed();
        EXPECT_EQ(store, nullptr);
        EXPECT_LT(took, std::chrono::seconds(15));
    }
    {
        testutil::ScopedEnv bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + tmp / "no-such-bus");
        auto [store, took] = openTimed();
        EXPECT_EQ(store, nullptr);
        EXPECT_LT(took, std::chrono::seconds(15));
    }
    if (!privateBus.address.empty()) {
        testutil::ScopedEnv bus("DBUS_SESSION_BUS_ADDRESS", privateBus.address);
        auto [store, took] = openTimed();
        EXPECT_EQ(store, nullptr);
        EXPECT_LT(took, std::chrono::seconds(15));
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace vxcloud

namespace vxcloud {
namespace {

// The libsecret backend against a throw-away GNOME Keyring on a private bus; skipped
// where the keyring daemon is not installed (it is not a build dependency).
TEST(SecureStoreSecretService, ContractOnAPrivateKeyring) {
    const char* keyringDaemon = "/usr/bin/gnome-keyring-daemon";
    if (::access(keyringDaemon, X_OK) != 0 || ::access("/usr/bin/dbus-daemon", X_OK) != 0) {
        GTEST_SKIP() << "needs dbus-daemon and gnome-keyring-daemon";
    }
    TempFolder tmp;
    std::filesystem::create_directories(tmp / "home");
    std::filesystem::create_directories(tmp / "runtime");
    ::chmod((tmp / "runtime").c_str(), 0700);
    testutil::ScopedEnv home("HOME", tmp / "home");
    testutil::ScopedEnv data("XDG_DATA_HOME", tmp / "home/data");
    testutil::ScopedEnv config("XDG_CONFIG_HOME", tmp / "home/config");
    testutil::ScopedEnv runtime("XDG_RUNTIME_DIR", tmp / "runtime");
    PrivateBus bus(tmp);
    ASSERT_FALSE(bus.address.empty());
    testutil::ScopedEnv address("DBUS_SESSION_BUS_ADDRESS", bus.address);
    Daemon keyring({keyringDaemon, "--foreground", "--components=secrets", "--unlock"},
                   "test-password");

    std::shared_ptr<SecureStore> store;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!(store = SecureStore::openSecretService()) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ASSERT_NE(store, nullptr) << "the private keyring did not come up";
    checkContract(*store);

    // Secrets kept in the file while no keyring answered move into the keyring once one does.
    auto file = SecureStore::openFile(SecureStore::defaultFilePath());
    ASSERT_EQ(file->put(item("oauth-token", 7, "late@x", "from-the-file", "refresh")), SecureStatus::success);
    SecureStore::setShared(nullptr);
    auto shared = SecureStore::shared();
    SecureStore::setShared(nullptr);
    EXPECT_EQ(store->secret({"oauth-token", 7, "late@x", "refresh"}), "from-the-file");
    EXPECT_NE(shared, nullptr);
    EXPECT_TRUE(file->find(SecureQuery()).empty());
}

}  // namespace
}  // namespace vxcloud
