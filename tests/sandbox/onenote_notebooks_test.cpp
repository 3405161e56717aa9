// OneNote notebooks and sections on both roots: Graph's displayName and the older API's name
// for the same stored containers, OData options on lists, and the service's name rules.
#include "sandbox/OneNoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class OneNoteNotebooks : public OneNoteWireTest {};

TEST_F(OneNoteNotebooks, BothRootsShowTheSameNotebooksUnderTheirOwnNames) {
    auto made = postJson("notebooks", {{"displayName", "Reports"}});
    ASSERT_TRUE(made);
    ASSERT_EQ(made->status, 201) << made->body;
    const json reports = parse(made);
    const std::string id = reports["id"];
    EXPECT_EQ(reports["displayName"], "Reports");
    EXPECT_FALSE(reports.contains("name"));
    EXPECT_EQ(made->get_header_value("Location"), reports["self"]);
    EXPECT_EQ(reports["self"], sandbox.endpoint("onenote", "api") + "/notebooks/" + id);
    EXPECT_TRUE(reports.contains("createdDateTime"));
    EXPECT_FALSE(reports["links"]["oneNoteWebUrl"]["href"].get<std::string>().empty());

    auto legacyMade = postJson("notebooks", {{"name", "Archive"}}, kLegacy);
    ASSERT_EQ(legacyMade->status, 201) << legacyMade->body;
    EXPECT_EQ(parse(legacyMade)["name"], "Archive");
    EXPECT_TRUE(parse(legacyMade).contains("createdTime"));

    const json legacyList = parse(get("notebooks", kLegacy));
    ASSERT_EQ(legacyList["value"].size(), 2u);
    EXPECT_EQ(legacyList["value"][0]["name"], "Archive") << "name ascending by default";
    EXPECT_FALSE(legacyList["value"][0].contains("displayName"));
    EXPECT_EQ(legacyList["value"][1]["id"], id);

    const json ordered = parse(get("notebooks?$orderby=displayName%20desc&$select=id,displayName"));
    ASSERT_EQ(ordered["value"].size(), 2u);
    EXPECT_EQ(ordered["value"][0], (json{{"id", id}, {"displayName", "Reports"}}));

    // Each root wants its own name property, and names are unique whatever their case.
    EXPECT_EQ(codeOf(postJson("notebooks", {{"name", "Other"}})), "20126");
    auto duplicate = postJson("notebooks", {{"displayName", "REPORTS"}});
    EXPECT_EQ(duplicate->status, 409);
    EXPECT_EQ(codeOf(duplicate), "20117");
    EXPECT_TRUE(parse(duplicate)["error"]["innerError"].contains("request-id"));
    auto legacyDuplicate = postJson("notebooks", {{"name", "reports"}}, kLegacy);
    EXPECT_EQ(legacyDuplicate->status, 409);
    EXPECT_EQ(parse(legacyDuplicate)["error"]["@api.url"], "http://aka.ms/onenote-errors#C20117");
    EXPECT_EQ(codeOf(postJson("notebooks", {{"displayName", "a:b"}})), "20115");
    EXPECT_EQ(codeOf(postJson("notebooks", {{"displayName", "   "}})), "20152");
    EXPECT_EQ(codeOf(postJson("notebooks", {{"displayName", std::string(129, 'n')}})), "20155");
    EXPECT_EQ(parse(get("notebooks"))["value"].size(), 2u) << "refused names made nothing";
}

TEST_F(OneNoteNotebooks, SectionsBelongToTheirNotebook) {
    const std::string notebook = parse(postJson("notebooks", {{"displayName", "Scans"}}))["id"];
    auto made = postJson("notebooks/" + notebook + "/sections", {{"displayName", "2024-05"}});
    ASSERT_EQ(made->status, 201) << made->body;
    const json section = parse(made);
    EXPECT_EQ(section["displayName"], "2024-05");
    EXPECT_EQ(section["parentNotebook"]["id"], notebook);
    EXPECT_EQ(section["pagesUrl"], sandbox.endpoint("onenote", "api") + "/sections/" + section["id"].get<std::string>() + "/pages");

    auto legacyMade = postJson("notebooks/" + notebook + "/sections/", {{"name", "2024-06"}}, kLegacy);
    ASSERT_EQ(legacyMade->status, 201) << legacyMade->body;
    const json listed = parse(get("notebooks/" + notebook + "/sections", kLegacy));
    ASSERT_EQ(listed["value"].size(), 2u);
    EXPECT_EQ(listed["value"][0]["name"], "2024-05");
    EXPECT_EQ(listed["value"][1]["parentNotebook"]["name"], "Scans");

    // Folders put in through the admin API are notebooks at the top and sections below.
    ASSERT_FALSE(sandbox.putFolder("onenote", "/Seeded/Inbox").is_null());
    const json expanded = parse(get("notebooks?$expand=sections"));
    ASSERT_EQ(expanded["value"].size(), 2u);
    EXPECT_EQ(expanded["value"][0]["sections"].size(), 2u);
    EXPECT_EQ(expanded["value"][1]["displayName"], "Seeded");
    EXPECT_EQ(expanded["value"][1]["sections"][0]["displayName"], "Inbox");

    EXPECT_EQ(codeOf(postJson("notebooks/" + notebook + "/sections", {{"displayName", "2024-05"}})), "20117");
    EXPECT_EQ(codeOf(postJson("notebooks/" + notebook + "/sections", {{"displayName", "a&b"}})), "20153");
    EXPECT_EQ(codeOf(postJson("notebooks/" + notebook + "/sections", {{"displayName", std::string(51, 's')}})), "20155");
    auto missing = postJson("notebooks/1-missing/sections", {{"displayName", "x"}});
    EXPECT_EQ(missing->status, 404);
    EXPECT_EQ(codeOf(missing), "20102");
    EXPECT_EQ(get("notebooks/" + section["id"].get<std::string>() + "/sections")->status, 404)
        << "a section's id is not a notebook's";
}

}  // namespace
}  // namespace vxcloud::sandbox::test
