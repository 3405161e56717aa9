// OneNote page creation: multipart bodies parsed strictly, every part stored byte for byte
// with its content type, and the service's codes for what it refuses.
#include "sandbox/OneNoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class OneNotePages : public OneNoteWireTest {
protected:
    void SetUp() override {
        OneNoteWireTest::SetUp();
        if (HasFatalFailure()) return;
        sectionId = section("Receipts", "2024");
        ASSERT_FALSE(sectionId.empty());
    }
    static std::string html(const std::string& body) {
        return "<!DOCTYPE html><html><head><title>Receipt &amp; Co</title></head><body>" + body + "</body></html>";
    }
    std::size_t pageCount() {
        std::size_t pages = 0;
        const json state = parse(client->Get("/admin/onenote/state"));
        for (const json& item : state["items"]) pages += item["kind"] == "page";
        return pages;
    }
    std::string sectionId;
};

TEST_F(OneNotePages, MultipartPageKeepsEachPartByteForByte) {
    // Every byte value, CRLFs and the boundary not at a line start: the parser must not trim
    // or split them.
    std::string pdf = "%PDF-1.4\r\n(--PartBoundary7d41)\r\n\r\n";
    for (int i = 0; i < 256; ++i) pdf += static_cast<char>(i);
    pdf += "\r\n%%EOF\r\n";
    const std::string presentation =
        html("<img src=\"name:page1\" alt=\"p1\"/><object data-attachment=\"Receipt.pdf\" data=\"name:pdf1\" "
             "type=\"application/pdf\"/>");
    auto made = postPage(sectionId, multipart({formPart("Presentation", "text/html; charset=utf-8", presentation),
                                               formPart("page1", "image/jpeg", "\xff\xd8jpeg\xff\xd9"),
                                               formPart("pdf1", "application/pdf", pdf)}));
    ASSERT_TRUE(made);
    ASSERT_EQ(made->status, 201) << made->body;
    const json page = parse(made);
    const std::string id = page["id"];
    EXPECT_EQ(page["title"], "Receipt & Co");
    EXPECT_EQ(made->get_header_value("Location"), page["self"]);
    EXPECT_EQ(page["contentUrl"], sandbox.endpoint("onenote", "api") + "/pages/" + id + "/content");
    EXPECT_EQ(page["links"]["oneNoteClientUrl"]["href"].get<std::string>().rfind("onenote:", 0), 0u);
    EXPECT_TRUE(page.contains("createdDateTime"));

    const std::string folder = "/Receipts/2024/" + id + "/";
    EXPECT_EQ(sandbox.fileContent("onenote", folder + "pdf1"), pdf);
    EXPECT_EQ(sandbox.fileContent("onenote", folder + "Presentation"), presentation);
    const json state = parse(client->Get("/admin/onenote/state"));
    json stored;
    for (const json& item : state["items"]) {
        if (item["kind"] == "page") stored = item;
    }
    ASSERT_EQ(stored["parts"].size(), 3u) << state.dump();
    EXPECT_EQ(stored["parts"][2]["name"], "pdf1");
    EXPECT_EQ(stored["parts"][2]["contentType"], "application/pdf");
    EXPECT_EQ(stored["parts"][2]["size"], pdf.size());
    EXPECT_EQ(stored["parts"][1]["contentType"], "image/jpeg");

    // A plain HTML page on the older root answers its own time fields.
    auto simple = postPage(sectionId, html("<p>hello</p>"), "text/html", kLegacy);
    ASSERT_EQ(simple->status, 201) << simple->body;
    EXPECT_TRUE(parse(simple).contains("createdTime"));
    EXPECT_EQ(parse(get("sections/" + sectionId + "/pages"))["value"].size(), 2u);
}

TEST_F(OneNotePages, RefusalsCarryTheDocumentedCodesAndStoreNothing) {
    const auto presentation = formPart("Presentation", "text/html", html("<img src=\"name:img\"/>"));
    const auto image = formPart("img", "image/png", "png");
    const std::pair<std::string, std::string> cases[] = {
        {"20001", multipart({image})},
        {"20002", multipart({presentation, presentation, image})},
        {"20003", multipart({formPart("Presentation", "text/plain", "hi"), image})},
        {"20100", multipart({presentation, formPart("other", "image/png", "png")})},
        {"20009", multipart({presentation, image, image})},
        {"20012", multipart({presentation, image, {"Content-Disposition: form-data; name=\"x\"", "x"}})},
        {"20010", multipart({presentation, image, {"Content-Type: image/png", "x"}})},
        {"20015", multipart({presentation, image, formPart("a", "image/png", "a"), formPart("b", "image/png", "b"),
                             formPart("c", "image/png", "c"), formPart("d", "image/png", "d"),
                             formPart("e", "image/png", "e")})},
    };
    for (const auto& [code, body] : cases) {
        auto refused = postPage(sectionId, body);
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->status, 400) << code;
        EXPECT_EQ(codeOf(refused), code) << refused->body;
    }
    // Bare LF line ends are not multipart to the service.
    std::string lf = multipart({presentation, image});
    for (std::size_t at = lf.find("\r\n"); at != std::string::npos; at = lf.find("\r\n", at)) lf.erase(at, 1);
    EXPECT_EQ(codeOf(postPage(sectionId, lf)), "20011");
    EXPECT_EQ(codeOf(postPage(sectionId, multipart({presentation, image}), "multipart/form-data")), "20011")
        << "no boundary";
    EXPECT_EQ(codeOf(postPage(sectionId, html("<img src=\"name:img\"/>"), "text/html")), "20110");
    EXPECT_EQ(codeOf(postPage(sectionId, "{}", "application/json")), "20131");

    ASSERT_TRUE(sandbox.configure("onenote", {{"max_part_bytes", 1024}}));
    auto large = postPage(sectionId, multipart({presentation, formPart("img", "image/png", std::string(2000, 'p'))}));
    EXPECT_EQ(large->status, 413);
    EXPECT_EQ(codeOf(large), "20014");
    auto missing = postPage("1-missing", multipart({presentation, image}));
    EXPECT_EQ(missing->status, 404);
    EXPECT_EQ(codeOf(missing), "20102");
    EXPECT_EQ(pageCount(), 0u);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
