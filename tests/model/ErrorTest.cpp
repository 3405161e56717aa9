#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <type_traits>

#include "vxcloud/model/VXCloudError.h"

namespace vxcloud {
namespace {

using nlohmann::json;
using E = ErrorCode;

TEST(CloudError, StringFormsInDeclaredOrder) {
    static_assert(!std::is_default_constructible_v<VXCloudError>);
    const char* words[] = {"authentication",        "connection",     "file_conflict",
                           "file_upload",           "monthly_quota_reached", "missing_folder",
                           "rename_failed",         "storage_quota_reached"};
    for (std::size_t i = 0; i < std::size(words); ++i) {
        const E code = VXCloudError::allErrorCodes[i];
        EXPECT_EQ(static_cast<std::size_t>(code), i);
        EXPECT_EQ(VXCloudError(code).getErrorCode(), words[i]);
        EXPECT_EQ(VXCloudError::fromString(words[i]), code);
    }
    for (const char* word : {"", "File_Upload", "fileUpload", "file_upload ", "unknown"})
        EXPECT_EQ(VXCloudError::fromString(word), std::nullopt) << word;
}

// Builds a provider error for one classifier row.
ProviderError status(int code) {
    ProviderError e;
    e.httpStatus = code;
    return e;
}
ProviderError googleReason(const char* reason) {
    ProviderError e = status(403);
    e.googleReason = reason;
    return e;
}
ProviderError oauth(const char* error) {
    ProviderError e = status(400);
    e.oauthError = error;
    return e;
}
ProviderError oneDriveCode(const char* code) {
    ProviderError e = status(500);  // the code wins over the status
    e.oneDriveCode = code;
    return e;
}
ProviderError boxBody(int code, json body) {
    ProviderError e = status(code);
    e.boxErrorBody = std::move(body);
    return e;
}
ProviderError evernote(int code, std::optional<std::string> parameter = std::nullopt) {
    return ProviderError::fromEvernote(code, std::move(parameter));
}

struct Row {
    const char* name;
    ProviderError error;
    E expected;
};

void expectRows(const std::vector<Row>& rows, E (*classify)(const ProviderError&)) {
    for (const Row& row : rows) EXPECT_EQ(classify(row.error), row.expected) << row.name;
}

TEST(CloudErrorClassifiers, GoogleDrive) {
    expectRows(
        {
            {"fieldNotWritable", googleReason("fieldNotWritable"), E::fileUpload},
            {"notFound", googleReason("notFound"), E::fileUpload},
            {"badRequest", googleReason("badRequest"), E::fileUpload},
            {"invalidSharingRequest", googleReason("invalidSharingRequest"), E::fileUpload},
            {"userRateLimitExceeded", googleReason("userRateLimitExceeded"), E::fileUpload},
            {"authError", googleReason("authError"), E::authentication},
            {"appNotAuthorizedToFile", googleReason("appNotAuthorizedToFile"), E::authentication},
            {"insufficientFilePermissions", googleReason("insufficientFilePermissions"),
             E::authentication},
            {"domainPolicy", googleReason("domainPolicy"), E::authentication},
            {"dailyLimitExceeded", googleReason("dailyLimitExceeded"), E::storageQuotaReached},
            {"rateLimitExceeded", googleReason("rateLimitExceeded"), E::storageQuotaReached},
            {"sharingRateLimitExceeded", googleReason("sharingRateLimitExceeded"),
             E::storageQuotaReached},
            {"backendError", googleReason("backendError"), E::connection},
            {"storageQuotaExceeded (unlisted)", googleReason("storageQuotaExceeded"), E::fileUpload},
            {"reason case matters", googleReason("BackendError"), E::fileUpload},
            {"oauth invalid_grant", oauth("invalid_grant"), E::authentication},
            {"oauth other", oauth("invalid_client"), E::fileUpload},
            {"no reason 400", status(400), E::fileUpload},
            {"no reason 499", status(499), E::fileUpload},
            {"no reason 500", status(500), E::connection},
            {"no reason 503", status(503), E::connection},
            {"no reason 599", status(599), E::connection},
            {"no reason 302", status(302), E::fileUpload},
            {"no reason 600", status(600), E::fileUpload},
            {"no status at all", ProviderError::transportFailure(TransportErrorKind::timedOut, "t"),
             E::fileUpload},
        },
        &VXCloudError::errorCodeFromGoogleDriveError);

    // The structured reason wins over an OAuth error in the same value.
    ProviderError both = googleReason("backendError");
    both.oauthError = "invalid_grant";
    EXPECT_EQ(VXCloudError::getErrorReason(both), "backendError");
    EXPECT_EQ(VXCloudError::getErrorReason(oauth("invalid_grant")), "invalid_grant");
    EXPECT_EQ(VXCloudError::getErrorReason(status(500)), std::nullopt);
}

TEST(CloudErrorClassifiers, OneDrive) {
    using namespace onedrive;
    expectRows(
        {
            {"accessDenied", oneDriveCode("accessDenied"), E::authentication},
            {"notAllowed", oneDriveCode("notAllowed"), E::authentication},
            {"unauthenticated", oneDriveCode("unauthenticated"), E::authentication},
            {"resyncRequired", oneDriveCode("resyncRequired"), E::authentication},
            {"itemNotFound", oneDriveCode("itemNotFound"), E::missingFolder},
            {"nameAlreadyExists", oneDriveCode("nameAlreadyExists"), E::renameFailed},
            {"resourceModified", oneDriveCode("resourceModified"), E::fileConflict},
            {"quotaLimitReached", oneDriveCode("quotaLimitReached"), E::storageQuotaReached},
            {"other code", oneDriveCode("generalException"), E::fileUpload},
            {"401", status(401), E::authentication},
            {"403", status(403), E::authentication},
            {"404", status(404), E::missingFolder},
            {"409", status(409), E::renameFailed},
            {"413", status(413), E::storageQuotaReached},
            {"500", status(500), E::connection},
            {"501", status(501), E::connection},
            {"503", status(503), E::connection},
            {"507", status(507), E::storageQuotaReached},
            {"402", status(402), E::fileUpload},
            {"405", status(405), E::fileUpload},
            {"406", status(406), E::fileUpload},
            {"407", status(407), E::fileUpload},
            {"408", status(408), E::fileUpload},
            {"410", status(410), E::fileUpload},
            {"411", status(411), E::fileUpload},
            {"412", status(412), E::fileUpload},
            {"502", status(502), E::fileUpload},
            {"504", status(504), E::fileUpload},
        },
        &VXCloudError::errorCodeFromOneDriveError);
    EXPECT_EQ(ODQuotaLimitReacherError, "quotaLimitReached");
}

TEST(CloudErrorClassifiers, Box) {
    const json folderMissing = {{"context_info", {{"errors", {{{"name", "folder"}}}}}}};
    const json fileMissing = {{"context_info", {{"errors", {{{"name", "file"}}}}}}};
    expectRows(
        {
            {"no body 20001", status(20001), E::authentication},
            {"no body 20005", status(20005), E::authentication},
            {"no body 20006", status(20006), E::fileUpload},
            {"no body 401", status(401), E::fileUpload},
            {"body not a dictionary", boxBody(401, json::array()), E::fileUpload},
            {"401", boxBody(401, json::object()), E::authentication},
            {"403", boxBody(403, json::object()), E::authentication},
            {"402", boxBody(402, json::object()), E::fileUpload},
            {"405", boxBody(405, json::object()), E::fileUpload},
            {"406", boxBody(406, json::object()), E::fileUpload},
            {"407", boxBody(407, json::object()), E::fileUpload},
            {"408", boxBody(408, json::object()), E::fileUpload},
            {"404 folder", boxBody(404, folderMissing), E::missingFolder},
            {"404 file", boxBody(404, fileMissing), E::fileUpload},
            {"404 no context", boxBody(404, json::object()), E::fileUpload},
            {"404 empty errors", boxBody(404, {{"context_info", {{"errors", json::array()}}}}),
             E::fileUpload},
            {"404 name not a string", boxBody(404, {{"context_info", {{"errors", {{{"name", 1}}}}}}}),
             E::fileUpload},
            {"409 name in use", boxBody(409, {{"code", "item_name_in_use"}}), E::renameFailed},
            {"409 other code", boxBody(409, {{"code", "conflict"}}), E::fileConflict},
            {"409 no code", boxBody(409, json::object()), E::fileConflict},
            {"507", boxBody(507, json::object()), E::storageQuotaReached},
            {"997", boxBody(997, json::object()), E::authentication},
            {"500", boxBody(500, json::object()), E::fileUpload},
        },
        &VXCloudError::errorCodeFromBoxError);
}

TEST(CloudErrorClassifiers, Evernote) {
    expectRows(
        {
            {"3 PERMISSION_DENIED", evernote(3), E::authentication},
            {"8 INVALID_AUTH", evernote(8), E::authentication},
            {"9 AUTH_EXPIRED", evernote(9), E::authentication},
            {"20 BUSINESS_SECURITY_LOGIN_REQUIRED", evernote(20), E::authentication},
            {"24 USER_NOT_ASSOCIATED", evernote(24), E::authentication},
            {"25 USER_NOT_REGISTERED", evernote(25), E::authentication},
            {"26 USER_ALREADY_ASSOCIATED", evernote(26), E::authentication},
            {"27 ACCOUNT_CLEAR", evernote(27), E::authentication},
            {"4 INTERNAL_ERROR, Notebook.guid", evernote(4, "Notebook.guid"), E::missingFolder},
            {"4 other parameter", evernote(4, "Note.title"), E::connection},
            {"4 no parameter", evernote(4), E::connection},
            {"4 parameter case matters", evernote(4, "notebook.guid"), E::connection},
            {"6 LIMIT_REACHED", evernote(6), E::storageQuotaReached},
            {"19 RATE_LIMIT_REACHED", evernote(19), E::storageQuotaReached},
            {"21 DEVICE_LIMIT_REACHED", evernote(21), E::storageQuotaReached},
            {"7 QUOTA_REACHED", evernote(7), E::monthlyQuotaReached},
            {"10 DATA_CONFLICT", evernote(10), E::fileConflict},
            {"1 UNKNOWN", evernote(1), E::fileUpload},
            {"2 BAD_DATA_FORMAT", evernote(2), E::fileUpload},
            {"5 DATA_REQUIRED", evernote(5), E::fileUpload},
            {"11 ENML_VALIDATION", evernote(11), E::fileUpload},
            {"28 SSO_AUTHENTICATION_REQUIRED", evernote(28), E::fileUpload},
            {"no code", status(500), E::fileUpload},
        },
        &VXCloudError::errorCodeFromEvernoteError);
}

ProviderError dropboxUpload(const char* body) {
    return ProviderError::fromDropboxUploadResponse(409, body);
}
ProviderError dropboxMove(const char* body) {
    return ProviderError::fromDropboxRelocationResponse(409, body);
}

TEST(CloudErrorClassifiers, DropboxUpload) {
    auto path = [](const std::string& reason) {
        return dropboxUpload(
            (R"({"error_summary":"path/..","error":{".tag":"path","reason":)" + reason +
             R"(,"upload_session_id":"pid"}})")
                .c_str());
    };
    expectRows(
        {
            {"malformed_path", path(R"({".tag":"malformed_path"})"), E::fileUpload},
            {"conflict file", path(R"({".tag":"conflict","conflict":{".tag":"file"}})"),
             E::fileConflict},
            {"conflict folder", path(R"({".tag":"conflict","conflict":{".tag":"folder"}})"),
             E::fileConflict},
            {"conflict file_ancestor",
             path(R"({".tag":"conflict","conflict":{".tag":"file_ancestor"}})"), E::fileConflict},
            {"no_write_permission", path(R"({".tag":"no_write_permission"})"), E::authentication},
            {"insufficient_space", path(R"({".tag":"insufficient_space"})"), E::storageQuotaReached},
            {"disallowed_name", path(R"({".tag":"disallowed_name"})"), E::fileUpload},
            {"team_folder", path(R"({".tag":"team_folder"})"), E::fileUpload},
            {"operation_suppressed", path(R"({".tag":"operation_suppressed"})"), E::fileUpload},
            {"too_many_write_operations", path(R"({".tag":"too_many_write_operations"})"),
             E::fileUpload},
            {"other", path(R"({".tag":"other"})"), E::fileUpload},
            {"finish nests under path",
             dropboxUpload(R"({"error":{".tag":"path","path":{".tag":"insufficient_space"}}})"),
             E::storageQuotaReached},
            {"not a path failure", dropboxUpload(R"({"error":{".tag":"payload_too_large"}})"),
             E::fileUpload},
            {"unknown tag", dropboxUpload(R"({"error":{".tag":"brand_new"}})"), E::fileUpload},
            {"not 409", ProviderError::fromDropboxUploadResponse(
                            500, R"({"error":{".tag":"path","reason":{".tag":"insufficient_space"}}})"),
             E::fileUpload},
            {"plain text body", ProviderError::fromDropboxUploadResponse(409, "oops"), E::fileUpload},
            {"no route error", status(409), E::fileUpload},
        },
        [](const ProviderError& e) { return VXCloudError::handleRouteUploadError(e); });
}

TEST(CloudErrorClassifiers, DropboxRelocation) {
    auto write = [](const char* side, const std::string& error) {
        return dropboxMove((std::string(R"({"error":{".tag":")") + side + R"(",")" + side +
                            R"(":)" + error + "}}")
                               .c_str());
    };
    std::vector<Row> rows = {
        {"from_lookup", dropboxMove(R"({"error":{".tag":"from_lookup","from_lookup":{".tag":"not_found"}}})"),
         E::fileUpload},
        {"insufficient_quota", dropboxMove(R"({"error":{".tag":"insufficient_quota"}})"),
         E::storageQuotaReached},
        {"internal_error", dropboxMove(R"({"error":{".tag":"internal_error"}})"), E::connection},
        {"cant_move_folder_into_itself",
         dropboxMove(R"({"error":{".tag":"cant_move_folder_into_itself"}})"), E::fileUpload},
        {"too_many_files", dropboxMove(R"({"error":{".tag":"too_many_files"}})"), E::fileUpload},
        {"unknown tag", dropboxMove(R"({"error":{".tag":"brand_new"}})"), E::fileUpload},
        {"no route error", status(409), E::fileUpload},
    };
    for (const char* side : {"from_write", "to"}) {
        rows.push_back({"conflict file", write(side, R"({".tag":"conflict","conflict":{".tag":"file"}})"),
                        E::renameFailed});
        rows.push_back({"conflict folder",
                        write(side, R"({".tag":"conflict","conflict":{".tag":"folder"}})"),
                        E::fileConflict});
        rows.push_back({"conflict file_ancestor",
                        write(side, R"({".tag":"conflict","conflict":{".tag":"file_ancestor"}})"),
                        E::fileConflict});
        rows.push_back({"conflict other", write(side, R"({".tag":"conflict","conflict":{".tag":"other"}})"),
                        E::fileConflict});
        rows.push_back({"no_write_permission", write(side, R"({".tag":"no_write_permission"})"),
                        E::authentication});
        rows.push_back({"insufficient_space", write(side, R"({".tag":"insufficient_space"})"),
                        E::storageQuotaReached});
        rows.push_back({"malformed_path", write(side, R"({".tag":"malformed_path","malformed_path":"x"})"),
                        E::fileUpload});
        rows.push_back({"team_folder", write(side, R"({".tag":"team_folder"})"), E::fileUpload});
    }
    expectRows(rows, [](const ProviderError& e) { return VXCloudError::handleRouteRelocationError(e); });

    const auto parsed = dropboxMove(R"({"error":{".tag":"from_lookup","from_lookup":{".tag":"not_found"}}})");
    ASSERT_TRUE(parsed.dropboxRelocationError);
    EXPECT_EQ(parsed.dropboxRelocationError->tag, DropboxRelocationError::Tag::fromLookup);
    EXPECT_EQ(parsed.dropboxRelocationError->lookup, "not_found");
}

TEST(CloudError, InitWithErrorDispatchesByService) {
    const ProviderError authLike = [] {
        ProviderError e = status(401);
        e.googleReason = "authError";
        e.oneDriveCode = "accessDenied";
        e.boxErrorBody = json::object();
        e.evernoteCode = 3;
        e.dropboxUploadError = DropboxUploadError{DropboxUploadError::Tag::path,
                                                  DropboxWriteError::fromTags("no_write_permission")};
        return e;
    }();
    for (VXCloudService service : {VXCloudService::googleDrive, VXCloudService::oneDrive,
                                   VXCloudService::box, VXCloudService::evernote})
        EXPECT_EQ(VXCloudError::initWithError(authLike, service)->errorCode, E::authentication)
            << accountType(service);
    // Dropbox, OneNote and WebDAV errors are never classified here.
    for (VXCloudService service : {VXCloudService::dropbox, VXCloudService::oneNote,
                                   VXCloudService::webDAV})
        EXPECT_EQ(VXCloudError::initWithError(authLike, service)->errorCode, E::fileUpload)
            << accountType(service);
}

TEST(ProviderErrorBuilders, ParseDocumentedBodiesAndSurviveGarbage) {
    auto google = ProviderError::fromGoogleResponse(
        403, R"({"error":{"code":403,"message":"Rate Limit Exceeded","errors":[{"domain":"usageLimits","reason":"rateLimitExceeded"}]}})");
    EXPECT_EQ(google.httpStatus, 403);
    EXPECT_EQ(google.googleReason, "rateLimitExceeded");
    EXPECT_EQ(VXCloudError::errorCodeFromGoogleDriveError(google), E::storageQuotaReached);
    EXPECT_NE(google.message.find("Rate Limit Exceeded"), std::string::npos);

    auto token = ProviderError::fromGoogleResponse(
        400, R"({"error":"invalid_grant","error_description":"Token has been expired or revoked."})");
    EXPECT_EQ(token.oauthError, "invalid_grant");
    EXPECT_FALSE(token.googleReason);
    EXPECT_EQ(VXCloudError::errorCodeFromGoogleDriveError(token), E::authentication);

    auto emptyErrors = ProviderError::fromGoogleResponse(503, R"({"error":{"errors":[]}})");
    EXPECT_FALSE(emptyErrors.googleReason);
    EXPECT_EQ(VXCloudError::errorCodeFromGoogleDriveError(emptyErrors), E::connection);

    auto oneDrive = ProviderError::fromOneDriveResponse(
        409, R"({"error":{"code":"nameAlreadyExists","message":"Name already exists"}})");
    EXPECT_EQ(oneDrive.oneDriveCode, "nameAlreadyExists");
    EXPECT_EQ(VXCloudError::errorCodeFromOneDriveError(oneDrive), E::renameFailed);

    auto box = ProviderError::fromBoxResponse(
        409, R"({"type":"error","status":409,"code":"item_name_in_use","message":"Item with the same name already exists"})");
    ASSERT_TRUE(box.boxErrorBody);
    EXPECT_EQ(VXCloudError::errorCodeFromBoxError(box), E::renameFailed);

    // Garbage bodies: no service fields, no exception, a readable message.
    const std::string garbage = "<html>Bad Gateway</html>\x01\xff{";
    for (auto build : {&ProviderError::fromGoogleResponse, &ProviderError::fromOneDriveResponse,
                       &ProviderError::fromBoxResponse, &ProviderError::fromDropboxUploadResponse,
                       &ProviderError::fromDropboxRelocationResponse}) {
        const ProviderError e = build(502, garbage);
        EXPECT_EQ(e.httpStatus, 502);
        EXPECT_FALSE(e.googleReason || e.oauthError || e.oneDriveCode || e.boxErrorBody ||
                     e.dropboxUploadError || e.dropboxRelocationError);
        EXPECT_EQ(e.message.rfind("HTTP 502", 0), 0u) << e.message;
    }
    // Wrong-typed members are ignored rather than trusted.
    auto odd = ProviderError::fromGoogleResponse(400, R"({"error":{"errors":[{"reason":7}]}})");
    EXPECT_FALSE(odd.googleReason);
    auto oddBox = ProviderError::fromBoxResponse(409, R"({"code":["item_name_in_use"]})");
    EXPECT_EQ(VXCloudError::errorCodeFromBoxError(oddBox), E::fileConflict);
    // Long bodies are shortened in the message.
    EXPECT_LT(ProviderError::fromBoxResponse(500, std::string(100000, 'x')).message.size(), 400u);
}

}  // namespace
}  // namespace vxcloud
