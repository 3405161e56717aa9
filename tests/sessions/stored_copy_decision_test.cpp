// The "already stored?" table every session's upload follows, driven by scripted hooks that
// write down which step the decision took: the per-service steps themselves are tested
// against the sandbox.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "../../src/sessions/StoredCopyDecision.h"

namespace vxcloud::testing {
namespace {

using namespace sessions;

std::shared_ptr<VXCloudFile> copyNamed(const std::string& name, const std::string& id, const std::string& version) {
    auto copy = std::make_shared<VXCloudFile>(name, false, false);
    copy->id = id;
    copy->version = version;
    return copy;
}

// A document the engine sends: its bytes, and when stored before, the upload status.
std::shared_ptr<VXCloudFile> document(const std::string& name, const std::string& bytes, bool storedBefore,
                                      std::optional<std::string> localVersion = std::nullopt) {
    auto file = std::make_shared<VXCloudFile>(name, false, false);
    file->fileData = ByteBuffer::copyOf(bytes);
    if (storedBefore) file->fileUploadStatus = Json{{"documentId", name}, {"version", "v-old"}};
    file->localVersion = std::move(localVersion);
    return file;
}

// Answers the lookup with `answer` and writes down every step taken, in order.
struct Script {
    StoredCopyLookup answer;
    std::vector<std::string> steps;

    StoredCopyHooks hooks() {
        StoredCopyHooks h;
        h.find = [this](bool checkFileVersion) {
            steps.push_back(checkFileVersion ? "find" : "find by name");
            return answer;
        };
        h.create = [this](bool mayWriteOver) { steps.push_back(mayWriteOver ? "create over" : "create"); };
        h.replace = [this](const std::shared_ptr<VXCloudFile>& copy) { steps.push_back("replace " + *copy->id); };
        h.progress = [this](std::int64_t current, std::int64_t total) {
            steps.push_back("progress " + std::to_string(current) + "/" + std::to_string(total));
        };
        h.uploaded = [this] { steps.push_back("uploaded"); };
        h.failed = [this](const std::shared_ptr<VXCloudError>& error) {
            steps.push_back("failed " + error->getErrorCode());
        };
        return h;
    }
    std::vector<std::string> run(const std::shared_ptr<VXCloudFile>& file, bool overwrite,
                                 const StoredCopyRules& rules = {}) {
        steps.clear();
        uploadDocument(*file, overwrite, hooks(), rules);
        return steps;
    }
};

using Steps = std::vector<std::string>;

TEST(StoredCopyDecision, NewDocumentsAreCreatedWithoutALookupAndCarryTheirContentType) {
    Script script;
    auto scan = document("scan.pdf", "%PDF-1.7", false);
    EXPECT_EQ(script.run(scan, false), Steps{"create"});
    EXPECT_EQ(scan->mimeType, "application/pdf");
    EXPECT_EQ(script.run(document("scan.pdf", "%PDF", false), true), Steps{"create over"});

    // A type the host gave is kept; without data there is nothing to go by.
    auto typed = document("notes.txt", "%PDF", false);
    typed->mimeType = "text/markdown";
    script.run(typed, false);
    EXPECT_EQ(typed->mimeType, "text/markdown");
    auto empty = std::make_shared<VXCloudFile>("empty.pdf", false, false);
    script.run(empty, false);
    EXPECT_FALSE(empty->mimeType.has_value());
}

TEST(StoredCopyDecision, DocumentsStoredBeforeFollowTheTable) {
    Script script;
    const auto conflict = std::make_shared<VXCloudError>(ErrorCode::fileConflict);

    // Changed elsewhere: replaced only when overwriting.
    script.answer = {copyNamed("a.pdf", "id-1", "v-remote"), conflict};
    EXPECT_EQ(script.run(document("a.pdf", "x", true, "v-local"), false), (Steps{"find", "failed file_conflict"}));
    EXPECT_EQ(script.run(document("a.pdf", "x", true, "v-local"), true), (Steps{"find", "replace id-1"}));

    // A lookup that failed fails the upload, overwrite or not.
    script.answer = {nullptr, std::make_shared<VXCloudError>(ErrorCode::connection)};
    EXPECT_EQ(script.run(document("a.pdf", "x", true), true), (Steps{"find", "failed connection"}));

    // Gone from the folder: created anew, never over a same-named one.
    script.answer = {};
    EXPECT_EQ(script.run(document("a.pdf", "x", true), true), (Steps{"find", "create"}));

    // The local fingerprint alone makes a document known, and the same content (in any letter
    // case) is reported done without sending: the caller's record gets the copy's fields.
    script.answer = {copyNamed("stored as.pdf", "id-2", "abc"), nullptr};
    auto same = document("a.pdf", "12345", false, "ABC");
    EXPECT_EQ(script.run(same, false), (Steps{"find", "progress 5/5", "uploaded"}));
    EXPECT_EQ(same->name, "stored as.pdf");
    EXPECT_EQ(same->id, "id-2");
    EXPECT_EQ(same->version, "abc");

    // Found by the recorded version, local content unknown: its content is replaced.
    auto unknown = document("a.pdf", "12345", true);
    EXPECT_EQ(script.run(unknown, false), (Steps{"find", "replace id-2"}));
    EXPECT_EQ(unknown->name, "a.pdf") << "nothing adopted before the replacement reports";
}

TEST(StoredCopyDecision, TheSettingsDocumentIsOneDocumentReplacedInPlace) {
    Script script;
    // Even when new it is looked for, by name only, and never a conflict.
    script.answer = {copyNamed(".quillosettings", "id-s", "v-other"), nullptr};
    EXPECT_EQ(script.run(document(".quillosettings", "{}", false), false), (Steps{"find by name", "replace id-s"}));
    EXPECT_EQ(script.run(document(".quillosettings", "{}", true, "v-mine"), false),
              (Steps{"find by name", "replace id-s"}));
    // The first one is created, and may be written over where the service addresses by name.
    script.answer = {};
    EXPECT_EQ(script.run(document(".quillosettings", "{}", false), false), (Steps{"find by name", "create over"}));

    // Another service's settings name is an ordinary document there.
    StoredCopyRules rules;
    rules.settingsName = "settings.json";
    EXPECT_EQ(script.run(document(".quillosettings", "{}", false), false, rules), Steps{"create"});
}

TEST(StoredCopyDecision, ServiceRulesChangeOnlyTheirRow) {
    Script script;
    script.answer = {copyNamed("a.pdf", "id-1", "v-remote"), std::make_shared<VXCloudError>(ErrorCode::fileConflict)};
    StoredCopyRules storeAnew;
    storeAnew.overwriteChangedCopy = StoredCopyRules::OnChangedCopy::storeAnew;
    EXPECT_EQ(script.run(document("a.pdf", "x", true, "v-local"), true, storeAnew), (Steps{"find", "create"}));

    script.answer = {copyNamed("a.pdf", "id-1", "v-remote"), nullptr};
    StoredCopyRules reportFirst;
    reportFirst.progressBeforeReplacing = true;
    EXPECT_EQ(script.run(document("a.pdf", "xyz", true), false, reportFirst),
              (Steps{"find", "progress 3/3", "replace id-1"}));

    // What "same content" means is the service's: here a copy of the same name counts.
    StoredCopyRules byName;
    byName.sameContent = [](const VXCloudFile& doc, const VXCloudFile& copy) { return doc.name == copy.name; };
    EXPECT_EQ(script.run(document("a.pdf", "xyz", true), false, byName), (Steps{"find", "progress 3/3", "uploaded"}));
}

TEST(StoredCopyDecision, PickTakesTheDigestFirstThenTheName) {
    const VXCloudFileList candidates = {copyNamed("a.pdf", "1", "d1"), nullptr, copyNamed("b.pdf", "2", "D2"),
                                        copyNamed("a.pdf", "3", "d3")};
    // A digest match wins over a same-named copy listed before it, in any letter case.
    auto byDigest = pickStoredCopy(candidates, std::string("d2"), "a.pdf", SameNamePick::first, true);
    ASSERT_NE(byDigest.copy, nullptr);
    EXPECT_EQ(byDigest.copy->id, "2");
    EXPECT_EQ(byDigest.error, nullptr);

    auto first = pickStoredCopy(candidates, std::string("none"), "a.pdf", SameNamePick::first, true);
    ASSERT_NE(first.copy, nullptr);
    EXPECT_EQ(first.copy->id, "1");
    ASSERT_NE(first.error, nullptr);
    EXPECT_EQ(first.error->errorCode, ErrorCode::fileConflict);

    auto last = pickStoredCopy(candidates, std::nullopt, "a.pdf", SameNamePick::last, false);
    ASSERT_NE(last.copy, nullptr);
    EXPECT_EQ(last.copy->id, "3");
    EXPECT_EQ(last.error, nullptr);

    // Names compare exactly; nothing of that name or digest is nothing found.
    auto none = pickStoredCopy(candidates, std::string("d9"), "A.pdf", SameNamePick::first, true);
    EXPECT_EQ(none.copy, nullptr);
    EXPECT_EQ(none.error, nullptr);

    auto recorded = document("a.pdf", "x", true);
    EXPECT_EQ(wantedDigest(*recorded), "v-old");
    recorded->localVersion = "v-local";
    EXPECT_EQ(wantedDigest(*recorded), "v-local");
}

}  // namespace
}  // namespace vxcloud::testing
