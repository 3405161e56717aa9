// Evernote's notebooks on the sandbox: the seeded default, names unique ignoring case, the
// refusals of getNotebook and createNotebook, and the per-account limit.
#include "sandbox/EvernoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using E = edam::EDAMErrorCode;

class EvernoteNotebooks : public EvernoteWireTest {};

TEST_F(EvernoteNotebooks, EachAccountStartsWithItsDefaultNotebook) {
    std::vector<edam::Notebook> notebooks;
    noteStore->listNotebooks(notebooks, ada.accessToken);
    ASSERT_EQ(notebooks.size(), 1u);
    EXPECT_EQ(notebooks[0].name, "Ada's Notebook");
    EXPECT_TRUE(notebooks[0].defaultNotebook);
    EXPECT_EQ(noteStore.transport->contentType, "application/x-thrift");

    edam::Notebook byDefault, byGuid;
    noteStore->getDefaultNotebook(byDefault, ada.accessToken);
    noteStore->getNotebook(byGuid, ada.accessToken, notebooks[0].guid);
    EXPECT_EQ(byDefault.guid, notebooks[0].guid);
    EXPECT_EQ(byGuid, notebooks[0]);
    EXPECT_EQ(sandbox.metadata("evernote", "/Ada's Notebook")["id"], notebooks[0].guid);

    auto graceStore = noteStoreOver("s2");
    edam::Notebook graces;
    graceStore->getDefaultNotebook(graces, grace.accessToken);
    EXPECT_EQ(graces.name, "Grace's Notebook");
    // Another account's notebook is not found by GUID: it is not the caller's.
    expectUserError(
        [&] {
            edam::Notebook n;
            noteStore->getNotebook(n, ada.accessToken, graces.guid);
        },
        E::PERMISSION_DENIED, "Notebook");
}

TEST_F(EvernoteNotebooks, CreateKeepsNamesUniqueIgnoringCaseAndMovesTheDefault) {
    edam::Notebook wanted, made;
    wanted.__set_name("Scans 2024");
    noteStore->createNotebook(made, ada.accessToken, wanted);
    EXPECT_EQ(made.guid.size(), 36u);
    EXPECT_EQ(made.name, "Scans 2024");
    EXPECT_FALSE(made.defaultNotebook);
    EXPECT_GT(made.updateSequenceNum, 0);
    EXPECT_EQ(made.serviceCreated % 1000, 0) << "whole seconds";

    edam::Notebook clash;
    clash.__set_name("SCANS 2024");
    expectUserError(
        [&] {
            edam::Notebook n;
            noteStore->createNotebook(n, ada.accessToken, clash);
        },
        E::DATA_CONFLICT, "Notebook.name");

    edam::Notebook preferred;
    preferred.__set_name("Inbox");
    preferred.__set_defaultNotebook(true);
    noteStore->createNotebook(made, ada.accessToken, preferred);
    edam::Notebook byDefault;
    noteStore->getDefaultNotebook(byDefault, ada.accessToken);
    EXPECT_EQ(byDefault.guid, made.guid);
    std::vector<edam::Notebook> all;
    noteStore->listNotebooks(all, ada.accessToken);
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const edam::Notebook& n) { return n.defaultNotebook; }), 1);
}

TEST_F(EvernoteNotebooks, RefusalsNameTheField) {
    auto create = [&](const edam::Notebook& n) {
        return [this, n] {
            edam::Notebook made;
            noteStore->createNotebook(made, ada.accessToken, n);
        };
    };
    expectUserError(create(edam::Notebook()), E::DATA_REQUIRED, "Notebook");
    for (const std::string& name :
         std::vector<std::string>{"", " leading", "trailing ", "tab\tinside", std::string(101, 'n')}) {
        edam::Notebook n;
        n.__set_name(name);
        expectUserError(create(n), E::BAD_DATA_FORMAT, "Notebook.name");
    }
    edam::Notebook stacked;
    stacked.__set_name("Ok");
    stacked.__set_stack(" ");
    expectUserError(create(stacked), E::BAD_DATA_FORMAT, "Notebook.stack");

    expectUserError(
        [&] {
            edam::Notebook n;
            noteStore->getNotebook(n, ada.accessToken, "not-a-guid");
        },
        E::BAD_DATA_FORMAT, "Notebook.guid");
    try {
        edam::Notebook n;
        noteStore->getNotebook(n, ada.accessToken, "00000000-0000-0000-0000-000000000000");
        FAIL() << "an unknown notebook was found";
    } catch (const edam::EDAMNotFoundException& e) {
        EXPECT_EQ(e.identifier, "Notebook.guid");
        EXPECT_EQ(e.key, "00000000-0000-0000-0000-000000000000");
    }

    ASSERT_TRUE(sandbox.configure("evernote", {{"notebooks_max", 2}}));
    edam::Notebook second;
    second.__set_name("Second");
    create(second)();
    second.__set_name("Third");
    expectUserError(create(second), E::LIMIT_REACHED, "Notebook");
}

}  // namespace
}  // namespace vxcloud::sandbox::test
