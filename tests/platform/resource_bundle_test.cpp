#include "vxcloud/platform/ResourceBundle.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "StoreTestSupport.h"

namespace vxcloud {
namespace {

using testutil::TempFolder;

constexpr const char* kGermanCatalog = "\xEF\xBB\xBF"
    R"po(# German strings.
msgid ""
msgstr ""
"Content-Type: text/plain; charset=UTF-8\n"
"Language: de\n"

#. Button to stop current task.
msgid "Cancel"
msgstr "Abbrechen"

#. Long text split over lines, as msgmerge writes it.
msgid ""
"An error has occurred while uploading your file. "
"Retry the upload?"
msgstr ""
"Beim Hochladen ist ein Fehler aufgetreten. "
"Erneut hochladen?"

msgid "Say \"hi\"\tback\\slash\nnext"
msgstr "Sag \"hallo\"\tR\\ck\nweiter"

#. Not translated yet.
msgid "Upload"
msgstr ""

#, fuzzy
msgid "Retry"
msgstr "Wiederholen?"

msgctxt "menu"
msgid "Back"
msgstr "Zurück (Menü)"
msgid "Back"
msgstr "Zurück"

msgid "Broken entry
msgstr "Kaputt"

msgid "Add"
msgstr "Hinzufügen"
#~ msgid "Obsolete"
#~ msgstr "Veraltet"
)po";

class ResourceBundleTest : public ::testing::Test {
protected:
    void SetUp() override {
        testutil::writeWholeFile(tmp / "VXCloud.bundle/de.lproj/Localizable.po", kGermanCatalog);
        testutil::writeWholeFile(tmp / "VXCloud.bundle/fr_CA.lproj/Localizable.po",
                                 "msgid \"Cancel\"\nmsgstr \"Annuler (CA)\"\n");
        testutil::writeWholeFile(tmp / "VXCloud.bundle/Localizable.pot",
                                 "msgid \"Cancel\"\nmsgstr \"\"\n");
        testutil::writeWholeFile(tmp / "VXCloud.bundle/images/dropbox.svg", "<svg/>");
        testutil::writeWholeFile(tmp / "VXCloud.bundle/images/box.png", "png");
        testutil::writeWholeFile(tmp / "VXCloud.bundle/images/box.pdf", "pdf");
    }
    std::string bundlePath() const { return tmp / "VXCloud.bundle"; }

    TempFolder tmp;
};

TEST_F(ResourceBundleTest, TranslationsFromPoCatalog) {
    testutil::WarningCollector warnings;
    ResourceBundle german(bundlePath(), "de_DE.UTF-8");  // de_DE is missing, de is used
    EXPECT_EQ(german.localizedString("Cancel"), "Abbrechen");
    EXPECT_EQ(german.localizedString(
                  "An error has occurred while uploading your file. Retry the upload?"),
              "Beim Hochladen ist ein Fehler aufgetreten. Erneut hochladen?");
    EXPECT_EQ(german.localizedString("Say \"hi\"\tback\\slash\nnext"),
              "Sag \"hallo\"\tR\\ck\nweiter");
    EXPECT_EQ(german.localizedString("Back"), "Zurück");  // the entry without context
    EXPECT_EQ(german.localizedString("Add"), "Hinzufügen");
    // Untranslated, fuzzy, broken, obsolete and missing entries show the English text.
    for (const char* english : {"Upload", "Retry", "Broken entry", "Obsolete", "Not in catalog", ""}) {
        EXPECT_EQ(german.localizedString(english), english);
    }
    EXPECT_EQ(german.localizedString("Cancel", "Other"), "Cancel");
    EXPECT_EQ(german.localizedString("Cancel", "../de.lproj/Localizable"), "Cancel");
    // The broken entry is reported once, when the catalog is parsed.
    EXPECT_EQ(warnings.messages().size(), 1u);
    EXPECT_EQ(german.localizedString("Broken entry"), "Broken entry");
    EXPECT_EQ(warnings.messages().size(), 1u);

    EXPECT_EQ(ResourceBundle(bundlePath(), "fr_CA").localizedString("Cancel"), "Annuler (CA)");
    EXPECT_EQ(ResourceBundle(bundlePath(), "fr_FR.UTF-8").localizedString("Cancel"), "Cancel");
    EXPECT_EQ(ResourceBundle(bundlePath(), "C").localizedString("Cancel"), "Cancel");
    EXPECT_EQ(ResourceBundle(tmp / "missing.bundle", "de").localizedString("Cancel"), "Cancel");
}

TEST_F(ResourceBundleTest, LanguageFromEnvironment) {
    testutil::WarningCollector warnings;  // the catalog's broken entry, checked above
    testutil::ScopedEnv all("LC_ALL", std::nullopt);
    testutil::ScopedEnv messages("LC_MESSAGES", "de_AT.UTF-8@euro");
    testutil::ScopedEnv lang("LANG", "fr_CA.UTF-8");
    EXPECT_EQ(ResourceBundle(bundlePath()).localizedString("Cancel"), "Abbrechen");
    {
        testutil::ScopedEnv forced("LC_ALL", "fr_CA");
        EXPECT_EQ(ResourceBundle(bundlePath()).localizedString("Cancel"), "Annuler (CA)");
    }
    testutil::ScopedEnv noMessages("LC_MESSAGES", "");
    EXPECT_EQ(ResourceBundle(bundlePath()).localizedString("Cancel"), "Annuler (CA)");
    testutil::ScopedEnv english("LANG", "en_US.UTF-8");
    EXPECT_EQ(ResourceBundle(bundlePath()).localizedString("Cancel"), "Cancel");
}

TEST_F(ResourceBundleTest, ImagesByName) {
    ResourceBundle bundle(bundlePath(), "de");
    EXPECT_EQ(bundle.imagePath("dropbox"), bundlePath() + "/images/dropbox.svg");
    EXPECT_EQ(bundle.imagePath("box"), bundlePath() + "/images/box.png");
    EXPECT_EQ(bundle.imagePath("onedrive"), std::nullopt);
    EXPECT_EQ(bundle.imagePath("../images/box"), std::nullopt);
    EXPECT_EQ(bundle.imagePath(""), std::nullopt);
}

TEST(ResourceBundleConcurrency, ComponentBundleIsLocatedOnce) {
    std::vector<const ResourceBundle*> seen(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&seen, i] { seen[i] = ResourceBundle::vxcloud(); });
    }
    for (auto& t : threads) t.join();
    for (const ResourceBundle* b : seen) EXPECT_EQ(b, seen[0]);
    EXPECT_EQ(ResourceBundle::locateCount(), 1);

    // The build copies the bundle beside the library, so it is found here.
    const ResourceBundle* bundle = ResourceBundle::vxcloud();
    ASSERT_NE(bundle, nullptr);
    EXPECT_TRUE(bundle->path().ends_with("/VXCloud.bundle")) << bundle->path();
    EXPECT_EQ(bundle->localizedString("A text no catalog has"), "A text no catalog has");
    EXPECT_EQ(ResourceBundle::locateCount(), 1);
}

}  // namespace
}  // namespace vxcloud
