// ENML as the service checks it: the checker's messages for the refusals clients meet, and
// over the wire, ENML_VALIDATION carrying the message while valid notes go through.
#include "evernote/Enml.h"
#include "sandbox/EvernoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using evernote::enmlProblem;

const std::string kProlog =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE en-note SYSTEM \"http://xml.evernote.com/pub/enml2.dtd\">\n";

std::string problemOf(const std::string& note) { return enmlProblem(kProlog + note).value_or("valid"); }

TEST(EvernoteEnml, AcceptsWhatTheDtdAllows) {
    EXPECT_EQ(problemOf("<en-note/>"), "valid");
    EXPECT_EQ(problemOf("<en-note style=\"x\"><div align=\"left\"><b>Bold</b> &amp; &nbsp;&#233;&#x263A;</div>"
                        "<table border=\"1\"><tr><td colspan=\"2\">c</td></tr></table><br/><hr/>"
                        "<en-todo checked=\"true\"/><en-crypt hint=\"h\">c2VjcmV0</en-crypt><!-- a comment -->"
                        "<en-media type=\"image/png\" hash=\"0cc175b9c0f1b6a831c399e269772661\" width=\"10\"/>"
                        "<![CDATA[ <raw> ]]></en-note>"),
              "valid");
    // The hash need not name a resource of the note: the service checks the markup only.
    EXPECT_EQ(problemOf("<en-note><en-media type=\"a/b\" hash=\"ffffffffffffffffffffffffffffffff\"/></en-note>"),
              "valid");
}

TEST(EvernoteEnml, RefusesInTheValidatorsWords) {
    const std::pair<std::string, std::string> cases[] = {
        {"<en-note><html/></en-note>", "Element type \"html\" must be declared."},
        {"<en-note><div id=\"a\">x</div></en-note>", "Attribute \"id\" must be declared for element type \"div\"."},
        {"<en-note><p class=\"c\"/></en-note>", "Attribute \"class\" must be declared for element type \"p\"."},
        {"<en-note><a onclick=\"x()\">y</a></en-note>",
         "Attribute \"onclick\" must be declared for element type \"a\"."},
        {"<en-note><script>x</script></en-note>", "Element type \"script\" must be declared."},
        {"<en-note><DIV/></en-note>", "Element type \"DIV\" must be declared."},
        {"<div/>", "Document root element \"div\", must match DOCTYPE root \"en-note\"."},
        {"<en-note><en-media hash=\"0cc175b9c0f1b6a831c399e269772661\"/></en-note>",
         "Attribute \"type\" is required and must be specified for element type \"en-media\"."},
        {"<en-note><en-media type=\"a/b\"/></en-note>",
         "Attribute \"hash\" is required and must be specified for element type \"en-media\"."},
        {"<en-note><en-media type=\"a/b\" hash=\"0CC175B9C0F1B6A831C399E269772661\"/></en-note>",
         "Attribute \"hash\" with value \"0CC175B9C0F1B6A831C399E269772661\" of element type \"en-media\" must be 32 "
         "lower-case hexadecimal digits."},
        {"<en-note><en-media type=\"a/b\" hash=\"0cc175b9c0f1b6a831c399e269772661\">x</en-media></en-note>",
         "The content of element type \"en-media\" must match \"EMPTY\"."},
        {"<en-note><br>text</br></en-note>", "The content of element type \"br\" must match \"EMPTY\"."},
        {"<en-note><en-todo checked=\"yes\"/></en-note>",
         "Attribute \"checked\" with value \"yes\" must have a value from the list \"true false\"."},
        {"<en-note><div><en-note/></div></en-note>",
         "The content of element type \"div\" must match \"" + evernote::anyContentModel() + "\"."},
        {"<en-note><div>unclosed</en-note>",
         "The element type \"div\" must be terminated by the matching end-tag \"</div>\"."},
        {"<en-note>open", "XML document structures must start and end within the same entity."},
        {"<en-note>\x08</en-note>",
         "An invalid XML character (Unicode: 0x8) was found in the element content of the document."},
        {"<en-note>&bogus;</en-note>", "The entity \"bogus\" was referenced, but not declared."},
        {"<en-note>a & b</en-note>", "The entity name must immediately follow the '&' in the entity reference."},
        {"<en-note><div title=a/></en-note>",
         "Open quote is expected for attribute \"title\" associated with an  element type  \"div\"."},
        {"<en-note><div style=\"a\" style=\"b\"/></en-note>",
         "Attribute \"style\" was already specified for element \"div\"."},
        {"<en-note/><en-note/>", "The markup in the document following the root element must be well-formed."},
        {"<en-note/>trailing", "Content is not allowed in trailing section."},
        {"<en-note>\xC3\x28</en-note>", "Invalid byte 2 of 2-byte UTF-8 sequence."},
    };
    for (const auto& [note, message] : cases) EXPECT_EQ(problemOf(note), message) << note;
}

TEST(EvernoteEnml, WantsTheDeclarationAndTheEnml2Doctype) {
    const std::string doctype = "<!DOCTYPE en-note SYSTEM \"http://xml.evernote.com/pub/enml2.dtd\">";
    EXPECT_EQ(enmlProblem(doctype + "<en-note/>").value_or("valid"),
              "The content must begin with the XML declaration <?xml version=\"1.0\" encoding=\"UTF-8\"?>.");
    EXPECT_EQ(enmlProblem("<?xml version=\"1.0\"?><en-note/>").value_or("valid"),
              "Document is invalid: no grammar found.");
    EXPECT_EQ(enmlProblem("<?xml version=\"1.0\"?><!DOCTYPE en-note SYSTEM \"http://xml.evernote.com/pub/enml.dtd\">"
                          "<en-note/>")
                  .value_or("valid"),
              "The DOCTYPE must be <!DOCTYPE en-note SYSTEM \"http://xml.evernote.com/pub/enml2.dtd\">.");
    EXPECT_EQ(enmlProblem("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + doctype + "<en-note/>").value_or("valid"),
              "Invalid encoding name \"ISO-8859-1\".");
    EXPECT_EQ(enmlProblem(" <?xml version=\"1.0\"?>" + doctype + "<en-note/>").value_or("valid"),
              "The processing instruction target matching \"[xX][mM][lL]\" is not allowed.");
    EXPECT_EQ(enmlProblem("<?xml version='1.0' encoding='utf-8' standalone='no'?>\r\n" + doctype + "\n<en-note/>\n")
                  .value_or("valid"),
              "valid");
}

class EvernoteEnmlWire : public EvernoteWireTest {};

TEST_F(EvernoteEnmlWire, CreateAndUpdateRefuseInvalidContentWithTheMessage) {
    edam::Note bad = note("Bad");
    bad.__set_content(enml("<div id=\"x\">hi</div>"));
    expectUserError([&] { create(bad); }, edam::EDAMErrorCode::ENML_VALIDATION,
                    "Attribute \"id\" must be declared for element type \"div\".");

    const edam::Note made = create(note("Good", {"bytes"}));
    edam::Note change;
    change.__set_guid(made.guid);
    change.__set_title("Good");
    change.__set_content("<html><body>hi</body></html>");
    expectUserError(
        [&] {
            edam::Note n;
            noteStore->updateNote(n, ada.accessToken, change);
        },
        edam::EDAMErrorCode::ENML_VALIDATION,
        "The content must begin with the XML declaration <?xml version=\"1.0\" encoding=\"UTF-8\"?>.");
    edam::Note read;
    noteStore->getNote(read, ada.accessToken, made.guid, true, false, false, false);
    EXPECT_EQ(read.content, note("Good", {"bytes"}).content) << "a refused update changes nothing";
}

}  // namespace
}  // namespace vxcloud::sandbox::test
