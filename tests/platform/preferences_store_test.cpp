#include "vxcloud/platform/PreferencesStore.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "StoreTestSupport.h"

namespace vxcloud {
namespace {

using testutil::TempFolder;

// Adds `count` entries "<prefix><i>" to the object under "accounts", one update each,
// the way the account store saves accounts.
bool addEntries(PreferencesStore& store, const std::string& prefix, int count) {
    for (int i = 0; i < count; ++i) {
        bool ok = store.update("accounts", [&](JsonBox& entry) {
            if (!entry || !entry->is_object()) entry = Json::object();
            (*entry)[prefix + std::to_string(i)] = {{"n", i}};
        });
        if (!ok) return false;
    }
    return true;
}

std::size_t entryCount(const PreferencesStore& store) {
    JsonBox accounts = store.get("accounts");
    return accounts && accounts->is_object() ? accounts->size() : 0;
}

TEST(PreferencesStore, ValuesPersistAcrossInstancesAndFilesAreReplacedWhole) {
    TempFolder tmp;
    const std::string path = tmp / "config/vxcloud/preferences.json";  // folder is missing
    PreferencesStore store(path);
    EXPECT_FALSE(store.get("missing").has_value());
    EXPECT_EQ(store.snapshot(), Json::object());
    store.remove("missing");  // nothing to change: nothing written
    EXPECT_FALSE(std::filesystem::exists(path));

    store.set("name", "Quillo \"Pro\"/2");
    store.set("nested", {{"a", {{"b", true}}}, {"n", 7}});
    PreferencesStore other(path);
    EXPECT_EQ(other.get("name").value(), "Quillo \"Pro\"/2");
    EXPECT_EQ(other.get("nested").value()["a"]["b"], true);
    EXPECT_EQ(other.snapshot().size(), 2u);

    // An edit from another instance is seen at once: nothing is cached.
    other.set("name", "changed");
    EXPECT_EQ(store.get("name").value(), "changed");

    EXPECT_TRUE(store.update("nested", [](JsonBox& v) { (*v)["n"] = 8; }));
    EXPECT_EQ(other.get("nested").value()["n"], 8);
    EXPECT_TRUE(store.update("nested", [](JsonBox& v) { v.reset(); }));
    EXPECT_FALSE(other.get("nested").has_value());
    store.remove("name");
    EXPECT_EQ(other.snapshot(), Json::object());

    EXPECT_EQ(testutil::permissions(path), 0600u);
    // Only the document and its lock file remain: no temporary files.
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(tmp / "config/vxcloud")) {
        names.push_back(e.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"preferences.json", "preferences.json.lock"}));
}

TEST(PreferencesStore, CorruptFileIsMovedAsideReportedOnceAndStoreStartsEmpty) {
    for (const std::string& original : {std::string("{\"accounts\": {\"a\": 1"),
                                       std::string("[1, 2, 3]"), std::string("\xff\xfe garbage")}) {
        SCOPED_TRACE(original);
        TempFolder tmp;
        const std::string path = tmp / "preferences.json";
        testutil::writeWholeFile(path, original);
        testutil::WarningCollector warnings;

        PreferencesStore store(path);
        EXPECT_FALSE(store.get("accounts").has_value());
        EXPECT_EQ(store.snapshot(), Json::object());
        EXPECT_FALSE(store.get("accounts").has_value());
        ASSERT_EQ(warnings.messages().size(), 1u);

        auto report = store.takeCorruptionReport();
        ASSERT_TRUE(report.has_value());
        EXPECT_NE(report->find(path + ".corrupt-"), std::string::npos) << *report;
        EXPECT_FALSE(store.takeCorruptionReport().has_value());

        std::vector<std::string> aside;
        for (const std::string& name : tmp.names()) {
            if (name.starts_with("preferences.json.corrupt-")) aside.push_back(name);
        }
        ASSERT_EQ(aside.size(), 1u);
        EXPECT_EQ(testutil::readWholeFile(tmp / aside[0]), original);

        EXPECT_TRUE(store.update("accounts", [](JsonBox& v) { v = Json{{"b", 2}}; }));
        EXPECT_EQ(store.get("accounts").value(), (Json{{"b", 2}}));
        EXPECT_EQ(warnings.messages().size(), 1u);
    }
}

TEST(PreferencesStore, SecondCorruptionKeepsTheFirstAside) {
    TempFolder tmp;
    const std::string path = tmp / "preferences.json";
    testutil::WarningCollector warnings;
    PreferencesStore store(path);
    testutil::writeWholeFile(path, "first {");
    store.set("k", 1);
    testutil::writeWholeFile(path, "second {");
    store.set("k", 2);
    EXPECT_EQ(store.get("k").value(), 2);
    EXPECT_EQ(warnings.messages().size(), 2u);

    std::vector<std::string> contents;
    for (const std::string& name : tmp.names()) {
        if (name.find(".corrupt-") != std::string::npos) contents.push_back(testutil::readWholeFile(tmp / name));
    }
    std::sort(contents.begin(), contents.end());
    EXPECT_EQ(contents, (std::vector<std::string>{"first {", "second {"}));
    // The first report is the one kept for the host.
    EXPECT_NE(store.takeCorruptionReport().value().find("corrupt-"), std::string::npos);
    EXPECT_FALSE(store.takeCorruptionReport().has_value());
}

TEST(PreferencesStore, UnwritableLocationFailsCleanly) {
    TempFolder tmp;
    testutil::writeWholeFile(tmp / "not-a-folder", "x");
    testutil::WarningCollector warnings;

    PreferencesStore blocked(tmp / "not-a-folder/preferences.json");
    EXPECT_FALSE(blocked.update("k", [](JsonBox& v) { v = 1; }));
    EXPECT_FALSE(blocked.get("k").has_value());
    EXPECT_EQ(warnings.messages().size(), 1u);
    EXPECT_EQ(testutil::readWholeFile(tmp / "not-a-folder"), "x");

    // A document that exists but cannot be read is not mistaken for an empty one.
    std::filesystem::create_directory(tmp / "folder.json");
    PreferencesStore unreadable(tmp / "folder.json");
    EXPECT_FALSE(unreadable.update("k", [](JsonBox& v) { v = 1; }));
    EXPECT_TRUE(std::filesystem::is_directory(tmp / "folder.json"));

    // A change that throws leaves the document as it was.
    PreferencesStore store(tmp / "preferences.json");
    store.set("k", "kept");
    EXPECT_FALSE(store.update("k", [](JsonBox& v) {
        v = "half";
        throw std::runtime_error("host bug");
    }));
    EXPECT_EQ(store.get("k").value(), "kept");
}

TEST(PreferencesStore, StandardStoreLocation) {
    TempFolder tmp;
    {
        testutil::ScopedEnv config("XDG_CONFIG_HOME", tmp / "cfg");
        EXPECT_EQ(PreferencesStore::defaultPath(), tmp / "cfg/vxcloud/preferences.json");
    }
    {
        testutil::ScopedEnv config("XDG_CONFIG_HOME", std::nullopt);
        testutil::ScopedEnv home("HOME", tmp / "home");
        EXPECT_EQ(PreferencesStore::defaultPath(), tmp / "home/.config/vxcloud/preferences.json");
        testutil::ScopedEnv relative("XDG_CONFIG_HOME", "relative/dir");  // ignored
        EXPECT_EQ(PreferencesStore::defaultPath(), tmp / "home/.config/vxcloud/preferences.json");
    }

    PreferencesStore::setStandardPath(tmp / "standard.json");
    auto standard = PreferencesStore::standard();
    EXPECT_EQ(standard->path(), tmp / "standard.json");
    EXPECT_EQ(PreferencesStore::standard(), standard);
    PreferencesStore::setStandardPath(tmp / "other.json");
    EXPECT_EQ(PreferencesStore::standard()->path(), tmp / "other.json");
}

TEST(PreferencesStoreMultiProcess, TwoProcessesAddingConcurrentlyLoseNothing) {
    TempFolder tmp(testutil::memoryBackedBase());
    const std::string path = tmp / "preferences.json";
    int go[2];
    ASSERT_EQ(::pipe(go), 0);

    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(go[1]);
        char start = 0;
        bool ok = ::read(go[0], &start, 1) == 1;
        PreferencesStore store(path);
        ok = ok && addEntries(store, "child-", 500);
        ::_exit(ok ? 0 : 1);
    }
    ::close(go[0]);
    PreferencesStore store(path);
    ASSERT_EQ(::write(go[1], "g", 1), 1);
    ::close(go[1]);
    const bool parentOk = addEntries(store, "parent-", 500);

    int status = 0;
    pid_t done = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while ((done = ::waitpid(child, &status, WNOHANG)) == 0 &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (done == 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        FAIL() << "the child process did not finish";
    }
    EXPECT_TRUE(parentOk);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(entryCount(store), 1000u);
    EXPECT_EQ(tmp.names(), (std::vector<std::string>{"preferences.json", "preferences.json.lock"}));
}

TEST(PreferencesStoreConcurrency, ThreadsOnTwoInstancesLoseNothingAndReadersNeverSeeATornFile) {
    TempFolder tmp(testutil::memoryBackedBase());
    const std::string path = tmp / "preferences.json";
    PreferencesStore first(path);
    PreferencesStore second(path);  // separate lock file handles: the flock must serialise them
    first.set("accounts", Json::object());

    std::atomic<bool> writing{true};
    std::atomic<int> readerProblems{0};
    std::thread reader([&] {
        std::size_t last = 0;
        while (writing.load()) {
            JsonBox accounts = second.get("accounts");
            std::size_t now = accounts && accounts->is_object() ? accounts->size() : 0;
            if (!accounts || now < last) ++readerProblems;
            last = now;
        }
    });
    std::vector<std::thread> writers;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([&, t] {
            PreferencesStore& store = t % 2 ? second : first;
            if (!addEntries(store, "t" + std::to_string(t) + "-", 50)) ++failures;
        });
    }
    for (auto& w : writers) w.join();
    writing = false;
    reader.join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(readerProblems.load(), 0);
    EXPECT_EQ(entryCount(first), 200u);
}

}  // namespace
}  // namespace vxcloud
