// Provider answers: every reader of a JSON body a cloud service sends back, then what the
// library does next with what it read (the file records, the session-level error
// classifiers, a token's stored form).
//
// One target for all providers, its first byte picking the reader: they all read JSON text,
// so they share one dictionary and one seed corpus in which each provider's shapes can mutate
// into another's (a Box item inside a Graph page, a Dropbox union inside a Google error), and
// the instrumented library is linked once instead of once per provider.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "../src/providers/box/BoxWire.h"
#include "../src/providers/dropbox/DropboxWire.h"
#include "../src/providers/google/GoogleDriveClient.h"
#include "../src/providers/onedrive/GraphWire.h"
#include "../src/providers/onenote/OneNoteWire.h"
#include "FuzzInput.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Log.h"

using namespace vxcloud;
using nlohmann::json;
using vxcloud::fuzz::FuzzInput;

namespace {

// The statuses the classifiers tell apart, and Box's own client codes.
constexpr int kStatuses[] = {200, 400, 401, 403, 404, 405, 409, 412, 413, 423, 429, 500, 502, 503, 507, 997, 20003};

json parsed(std::string_view body) { return json::parse(body.begin(), body.end(), nullptr, false); }

// Every service's classifier over one error: each reads only its own fields, so all of them
// must cope with whatever the others' builders left set.
void classifyEverywhere(const ProviderError& error) {
    for (VXCloudService service : allCloudServices) {
        const auto classified = VXCloudError::initWithError(error, service);
        FUZZ_CHECK(classified != nullptr);
        FUZZ_CHECK(VXCloudError::fromString(classified->getErrorCode()) == classified->errorCode);
    }
    VXCloudError::getErrorReason(error);
    VXCloudError::handleRouteUploadError(error);
    VXCloudError::handleRouteRelocationError(error);
}

void googleError(int status, std::string_view body) { classifyEverywhere(ProviderError::fromGoogleResponse(status, body)); }
void oneDriveError(int status, std::string_view body) { classifyEverywhere(ProviderError::fromOneDriveResponse(status, body)); }
void boxError(int status, std::string_view body) { classifyEverywhere(ProviderError::fromBoxResponse(status, body)); }
void dropboxUploadError(int status, std::string_view body) {
    classifyEverywhere(ProviderError::fromDropboxUploadResponse(status, body));
}
void dropboxRelocationError(int status, std::string_view body) {
    classifyEverywhere(ProviderError::fromDropboxRelocationResponse(status, body));
}

void driveFile(std::string_view body) {
    const json value = parsed(body);
    // A single file, or a files.list page.
    if (auto file = drive::parseFile(value)) VXCloudFile::initWithFile(*file);
    if (value.is_object()) {
        const auto files = value.find("files");
        if (files != value.end() && files->is_array()) {
            for (const json& entry : *files) {
                if (auto file = drive::parseFile(entry)) VXCloudFile::initWithFile(*file);
            }
        }
    }
}

void dropboxMetadata(std::uint8_t implicit, std::string_view body) {
    const json value = parsed(body);
    // Routes whose result is a leaf type send no ".tag": upload and download (file),
    // create_folder (folder).
    std::optional<dropbox::Metadata::Tag> implicitTag;
    if (implicit % 3 == 1) implicitTag = dropbox::Metadata::Tag::file;
    if (implicit % 3 == 2) implicitTag = dropbox::Metadata::Tag::folder;
    dropbox::Metadata metadata;
    if (dropbox::parseMetadata(value, implicitTag, metadata) == dropbox::ParseStatus::ok) {
        VXCloudFile::initWithMetadata(metadata);
    }
    // A listing's entries, and the same body read as a route error's tags.
    if (value.is_object()) {
        const auto entries = value.find("entries");
        if (entries != value.end() && entries->is_array()) {
            for (const json& entry : *entries) {
                dropbox::Metadata m;
                if (dropbox::parseMetadata(entry, std::nullopt, m) == dropbox::ParseStatus::ok) VXCloudFile::initWithMetadata(m);
            }
        }
    }
    const std::string tags = dropbox::routeTags(value);
    const std::string innermost = dropbox::innermostTag(value);
    FUZZ_CHECK(tags.size() >= innermost.size());
}

void dropboxBatch(std::string_view body) {
    const json value = parsed(body);
    dropbox::RelocationBatchEntry entry;
    dropbox::parseBatchEntry(value, entry);
    // A finished batch's "entries".
    if (value.is_object()) {
        const auto entries = value.find("entries");
        if (entries != value.end() && entries->is_array()) {
            for (const json& each : *entries) {
                dropbox::RelocationBatchEntry e;
                if (dropbox::parseBatchEntry(each, e) && e.success) VXCloudFile::initWithMetadata(*e.success);
                if (e.failure) VXCloudError::handleRouteRelocationError(*e.failure);
            }
        }
    }
}

void graphAnswer(std::string_view body) {
    const json value = parsed(body);
    if (auto item = onedrive::parseItem(value)) VXCloudFile::initWithOneDriveItem(*item);
    if (auto page = onedrive::parsePage(value)) {
        for (const auto& item : page->items) VXCloudFile::initWithOneDriveItem(item);
    }
    onedrive::parseDrive(value);
}

void boxAnswer(std::string_view body) {
    const json value = parsed(body);
    if (auto item = box::parseItem(value)) VXCloudFile::initWithBoxItem(*item);
    if (auto page = box::parseItemsPage(value)) {
        for (const auto& item : page->entries) VXCloudFile::initWithBoxItem(item);
    }
    if (auto uploaded = box::parseUploadedFile(value)) VXCloudFile::initWithBoxItem(*uploaded);
    box::parseUser(value);
    box::parseUploadSession(value);
    // A part read back from what the commit sends is the same part.
    if (auto part = box::parsePart(value)) {
        const auto again = box::parsePart(box::partJson(*part));
        FUZZ_CHECK(again && again->partId == part->partId && again->offset == part->offset &&
                   again->size == part->size && again->sha1 == part->sha1);
    }
    box::parsePartsPage(value);
}

void oneNoteAnswer(std::uint8_t notebooks, std::string_view body) {
    onenote::parseFolderList(body, notebooks & 1);
    onenote::parseCreatedFolder(body, notebooks & 1);
    onenote::parseCreatedPage(body);
}

// Tokens: what the token endpoint answered, kept in its stored form and read back later.
void tokenAnswer(std::uint8_t withPrevious, std::string_view body) {
    constexpr std::int64_t kNow = 1'700'000'000;
    VXCloudOAuthToken previous;
    previous.accessToken = "previous";
    previous.refreshToken = "kept";
    previous.scope = "files";
    auto token = VXCloudOAuthToken::fromTokenResponse(body, kNow, (withPrevious & 1) ? &previous : nullptr);
    if (!token) return;
    token->expiresWithin(kNow, 300);
    const auto stored = VXCloudOAuthToken::fromStoredText(token->toStoredText());
    FUZZ_CHECK(stored && *stored == *token);
}

void storedToken(std::string_view text) {
    auto token = VXCloudOAuthToken::fromStoredText(text);
    if (!token) return;
    token->expiresWithin(1'700'000'000, 300);
    const auto again = VXCloudOAuthToken::fromStoredText(token->toStoredText());
    FUZZ_CHECK(again && *again == *token);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log::setLevel(log::Level::off);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t reader = input.byte();
    const std::uint8_t option = input.byte();
    const int status = kStatuses[option % std::size(kStatuses)];
    const std::string_view body = input.rest();
    switch (reader % 13) {
        case 0: googleError(status, body); break;
        case 1: oneDriveError(status, body); break;
        case 2: boxError(status, body); break;
        case 3: dropboxUploadError(status, body); break;
        case 4: dropboxRelocationError(status, body); break;
        case 5: driveFile(body); break;
        case 6: dropboxMetadata(option, body); break;
        case 7: dropboxBatch(body); break;
        case 8: graphAnswer(body); break;
        case 9: boxAnswer(body); break;
        case 10: oneNoteAnswer(option, body); break;
        case 11: tokenAnswer(option, body); break;
        case 12: storedToken(body); break;
    }
    return 0;
}
