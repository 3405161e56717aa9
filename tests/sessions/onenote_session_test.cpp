// The OneNote session against the sandbox over HTTP, on Graph's notes base and on the older
// host's: notebooks and sections as folders, pages that carry the document, the page's exact
// form, the session's own codes, and the operations OneNote leaves unanswered.
#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <regex>

#include "sessions/OneNoteFixture.h"

namespace vxcloud::testing {
namespace {

using Kind = SessionEvent::Kind;
using namespace std::chrono_literals;

class LegacyBaseFixture : public OneNoteFixture {
public:
    LegacyBaseFixture() : OneNoteFixture(true) {}
};

template <typename Fixture>
class OneNoteSession : public SessionTest<Fixture, VXCloudOneNoteSession> {};

using Bases = ::testing::Types<OneNoteFixture, LegacyBaseFixture>;
TYPED_TEST_SUITE(OneNoteSession, Bases);

TYPED_TEST(OneNoteSession, NotebooksAndSectionsAreTheFolders) {
    auto& fx = this->fx_;
    // The top level lists notebooks, each marked a notebook.
    auto event = this->loadFolders(this->session_->rootFolder());
    ASSERT_EQ(event.kind, Kind::didLoadFolders) << describe(event);
    ASSERT_FALSE(event.files.empty());
    for (const auto& notebook : event.files) EXPECT_EQ(notebook->isOneNoteNotebook, true) << notebook->name;
    EXPECT_EQ(fx.requests("notebooks/list"), 1);

    // A folder made at the top level is a notebook; one made in a notebook is a section.
    event = this->upload(std::make_shared<VXCloudFile>("Receipts", true, false), this->session_->rootFolder(), false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    const auto notebook = event.file;
    ASSERT_TRUE(notebook->id);
    EXPECT_EQ(notebook->name, "Receipts");
    EXPECT_EQ(notebook->isOneNoteNotebook, true);
    event = this->upload(std::make_shared<VXCloudFile>("2024", true, false), notebook, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(event.file->name, "2024");
    EXPECT_EQ(event.file->isOneNoteNotebook, false);

    // Listing the notebook asks for its sections, none of them a notebook.
    fx.sandbox().resetStats();
    event = this->loadFolders(notebook);
    ASSERT_EQ(event.kind, Kind::didLoadFolders) << describe(event);
    ASSERT_EQ(event.files.size(), 1u);
    EXPECT_EQ(event.files[0]->name, "2024");
    EXPECT_EQ(event.files[0]->isOneNoteNotebook, false);
    EXPECT_EQ(fx.requests("sections/list"), 1);

    // The service refuses a second notebook of the name: the session's own code.
    event = this->upload(std::make_shared<VXCloudFile>("Receipts", true, false), this->session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));
}

TYPED_TEST(OneNoteSession, ADocumentBecomesAPageThatCarriesIt) {
    auto& fx = this->fx_;
    auto section = fx.makeFolder("Scans Here");
    ASSERT_TRUE(section->id);
    const std::string pdf = "%PDF-1.4\n" + documentBytes(50000, 3) + "\n%%EOF";
    auto document = makeDocument("Scan-1.pdf", pdf);
    document->fileIdentifier = Json("doc-9");
    auto event = this->upload(document, section, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(event.file->name, "Scan-1.pdf");
    EXPECT_TRUE(event.file->id);
    EXPECT_EQ(event.file->fileIdentifier.value(), Json("doc-9"));

    const Json page = fx.page("Scan-1.pdf");
    ASSERT_FALSE(page.is_null());
    const auto html = fx.pagePart(page, "Presentation");
    ASSERT_TRUE(html);
    EXPECT_TRUE(std::regex_search(*html, std::regex(R"(<title>Scan-1\.pdf</title>)")));
    EXPECT_NE(html->find(R"(data-attachment="Scan-1.pdf" data="name:Scan-1.pdf" type="application/pdf")"), std::string::npos) << *html;
    EXPECT_TRUE(sameBytes(fx.pagePart(page, "Scan-1.pdf"), pdf));
    bool typed = false;
    for (const Json& part : page["parts"]) typed |= part["name"] == "Scan-1.pdf" && part["contentType"] == "application/pdf";
    EXPECT_TRUE(typed) << page.dump();

    // No section id: refused before any request.
    fx.sandbox().resetStats();
    event = this->upload(makeDocument("lost.pdf", pdf), this->session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));
    EXPECT_EQ(fx.requests("pages/create"), 0);
}

TYPED_TEST(OneNoteSession, TheSessionsOwnCodesAndItsSilences) {
    auto& fx = this->fx_;
    auto section = fx.makeFolder("Odd Answers");
    // A page answer without an id, and a service refusal: both fileUpload, never the service's.
    this->fault("pages/create", "status=201;content-type=application/json;body=%7B%22title%22%3A%22x%22%7D");
    auto event = this->upload(makeDocument("x.pdf", "%PDF-x"), section, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));
    this->fault("pages/create", "status=507");
    event = this->upload(makeDocument("y.pdf", "%PDF-y"), section, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));

    // A listing whose body is not JSON lists nothing, successfully.
    this->fault("notebooks/list", "status=200;content-type=text/html;body=%3Chtml%3E");
    event = this->loadFolders(this->session_->rootFolder());
    ASSERT_EQ(event.kind, Kind::didLoadFolders) << describe(event);
    EXPECT_TRUE(event.files.empty());

    // Settings upload, rename and move: no request, no answer. The settings download
    // answers at once with nothing.
    fx.sandbox().resetStats();
    this->delegate_->clear();
    this->session_->uploadWithCloudFile(makeDocument(".quillosettings", "{}"), section, false);
    this->session_->renameWithCloudFile(makeDocument("a.pdf", "x"), "b.pdf", section, false,
                                        [] { return std::optional<std::string>("/nonexistent"); });
    this->session_->moveWithCloudFiles({makeDocument("a.pdf", "x")}, section, section);
    EXPECT_FALSE(this->delegate_->waitForEvents(1, 1s));
    EXPECT_EQ(fx.stats("*").requests, 0);
    auto [folder, error] = this->settings();
    EXPECT_EQ(folder, nullptr);
    EXPECT_EQ(error, nullptr);
}

TEST(OneNotePage, TheTemplateNamesTheDocumentThreeTimesWithItsTypeAndTime) {
    const std::string html = VXCloudOneNoteSession::pageHtml("Scan-1.pdf", "application/pdf", 0);
    const std::regex form(
        R"(<html><head><title>Scan-1\.pdf</title><meta name="created" content="\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4}" /></head>)"
        R"(<body><object data-attachment="Scan-1\.pdf" data="name:Scan-1\.pdf" type="application/pdf" /></body></html>)");
    EXPECT_TRUE(std::regex_match(html, form)) << html;

    // Characters that would end the title or an attribute early are escaped; the part name
    // is one a quoted form name can carry, and the reference names it exactly.
    const std::string odd = VXCloudOneNoteSession::pageHtml("Tom & \"Jerry\" <1>.pdf", "application/pdf", 0);
    EXPECT_NE(odd.find("<title>Tom &amp; &quot;Jerry&quot; &lt;1&gt;.pdf</title>"), std::string::npos) << odd;
    EXPECT_NE(odd.find(R"(data-attachment="Tom &amp; &quot;Jerry&quot; &lt;1&gt;.pdf" data="name:Tom &amp; _Jerry_ &lt;1&gt;.pdf")"),
              std::string::npos)
        << odd;
    EXPECT_EQ(VXCloudOneNoteSession::attachmentPartName("a\"b\\c\nd.pdf"), "a_b_c_d.pdf");
    EXPECT_EQ(VXCloudOneNoteSession::attachmentPartName("Scan-1.pdf"), "Scan-1.pdf");
}

}  // namespace
}  // namespace vxcloud::testing
