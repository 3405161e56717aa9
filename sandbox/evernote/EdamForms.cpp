#include "evernote/EdamForms.h"

#include "evernote/NoteRules.h"
#include "framework/Hashes.h"

namespace vxcloud::sandbox::evernote {
namespace {

std::string rawFromHex(const std::string& hex) {
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return out;
}

edam::NoteAttributes noteAttributesForm(const json& stored) {
    edam::NoteAttributes out;
    if (stored.contains("subjectDate")) out.__set_subjectDate(stored["subjectDate"].get<std::int64_t>());
    if (stored.contains("author")) out.__set_author(stored["author"].get<std::string>());
    if (stored.contains("source")) out.__set_source(stored["source"].get<std::string>());
    if (stored.contains("sourceURL")) out.__set_sourceURL(stored["sourceURL"].get<std::string>());
    if (stored.contains("sourceApplication"))
        out.__set_sourceApplication(stored["sourceApplication"].get<std::string>());
    if (stored.contains("contentClass")) out.__set_contentClass(stored["contentClass"].get<std::string>());
    return out;
}

edam::ResourceAttributes resourceAttributesForm(const json& stored) {
    edam::ResourceAttributes out;
    if (stored.contains("sourceURL")) out.__set_sourceURL(stored["sourceURL"].get<std::string>());
    if (stored.contains("timestamp")) out.__set_timestamp(stored["timestamp"].get<std::int64_t>());
    if (stored.contains("latitude")) out.__set_latitude(stored["latitude"].get<double>());
    if (stored.contains("longitude")) out.__set_longitude(stored["longitude"].get<double>());
    if (stored.contains("altitude")) out.__set_altitude(stored["altitude"].get<double>());
    if (stored.contains("cameraMake")) out.__set_cameraMake(stored["cameraMake"].get<std::string>());
    if (stored.contains("cameraModel")) out.__set_cameraModel(stored["cameraModel"].get<std::string>());
    if (stored.contains("clientWillIndex")) out.__set_clientWillIndex(stored["clientWillIndex"].get<bool>());
    if (stored.contains("recoType")) out.__set_recoType(stored["recoType"].get<std::string>());
    if (stored.contains("fileName")) out.__set_fileName(stored["fileName"].get<std::string>());
    if (stored.contains("attachment")) out.__set_attachment(stored["attachment"].get<bool>());
    return out;
}

edam::Resource resourceForm(const json& stored, const std::string& noteGuid, const NoteBodies* bodies) {
    edam::Resource out;
    const std::string guid = stored.value("guid", "");
    out.__set_guid(guid);
    out.__set_noteGuid(noteGuid);
    edam::Data data;
    data.__set_bodyHash(rawFromHex(stored.value("hash", "")));
    data.__set_size(stored.value("size", 0));
    if (bodies) {
        const auto body = bodies->find(guid);
        data.__set_body(body == bodies->end() ? std::string() : body->second.toString());
    }
    out.__set_data(data);
    out.__set_mime(stored.value("mime", ""));
    if (stored.contains("width")) out.__set_width(stored["width"].get<std::int16_t>());
    if (stored.contains("height")) out.__set_height(stored["height"].get<std::int16_t>());
    out.__set_active(true);
    out.__set_updateSequenceNum(stored.value("usn", 0));
    const json attributes = stored.value("attributes", json::object());
    if (!attributes.empty()) out.__set_attributes(resourceAttributesForm(attributes));
    return out;
}

// The largest resource of a note, or null.
const json* largestResource(const json& resources) {
    const json* largest = nullptr;
    for (const auto& resource : resources) {
        if (!largest || resource.value("size", 0) > largest->value("size", 0)) largest = &resource;
    }
    return largest;
}

}  // namespace

edam::Notebook notebookForm(const Node& notebook) {
    const json& a = notebook.attributes;
    edam::Notebook out;
    out.__set_guid(notebook.id);
    out.__set_name(notebook.name);
    out.__set_updateSequenceNum(a.value("usn", 0));
    out.__set_defaultNotebook(a.value("default", false));
    out.__set_serviceCreated(a.value("created", std::int64_t{0}));
    out.__set_serviceUpdated(a.value("updated", std::int64_t{0}));
    if (a.contains("stack")) out.__set_stack(a["stack"].get<std::string>());
    return out;
}

edam::Note noteForm(const Node& note, bool withContent, const NoteBodies* bodies) {
    const json& a = note.attributes;
    const std::string content = a.value("content", std::string());
    edam::Note out;
    out.__set_guid(note.id);
    out.__set_title(note.name);
    if (withContent) out.__set_content(content);
    out.__set_contentHash(md5Raw(content));
    out.__set_contentLength(static_cast<std::int32_t>(characterCount(content)));
    out.__set_created(a.value("created", std::int64_t{0}));
    out.__set_updated(a.value("updated", std::int64_t{0}));
    if (a.contains("deleted")) out.__set_deleted(a["deleted"].get<std::int64_t>());
    out.__set_active(a.value("active", true));
    out.__set_updateSequenceNum(a.value("usn", 0));
    out.__set_notebookGuid(note.parentId);
    const json resources = a.value("resources", json::array());
    if (!resources.empty()) {
        std::vector<edam::Resource> forms;
        for (const auto& resource : resources) forms.push_back(resourceForm(resource, note.id, bodies));
        out.__set_resources(forms);
    }
    out.__set_attributes(noteAttributesForm(a.value("attributes", json::object())));
    if (a.contains("tagNames") && !a["tagNames"].empty())
        out.__set_tagNames(a["tagNames"].get<std::vector<std::string>>());
    return out;
}

edam::NoteMetadata metadataForm(const Node& note, const edam::NotesMetadataResultSpec& wanted) {
    const json& a = note.attributes;
    edam::NoteMetadata out;
    out.__set_guid(note.id);
    if (wanted.includeTitle) out.__set_title(note.name);
    if (wanted.includeContentLength) {
        out.__set_contentLength(static_cast<std::int32_t>(characterCount(a.value("content", std::string()))));
    }
    if (wanted.includeCreated) out.__set_created(a.value("created", std::int64_t{0}));
    if (wanted.includeUpdated) out.__set_updated(a.value("updated", std::int64_t{0}));
    if (wanted.includeDeleted && a.contains("deleted")) out.__set_deleted(a["deleted"].get<std::int64_t>());
    if (wanted.includeUpdateSequenceNum) out.__set_updateSequenceNum(a.value("usn", 0));
    if (wanted.includeNotebookGuid) out.__set_notebookGuid(note.parentId);
    if (wanted.includeAttributes) out.__set_attributes(noteAttributesForm(a.value("attributes", json::object())));
    const json resources = a.value("resources", json::array());
    if (const json* largest = largestResource(resources)) {
        if (wanted.includeLargestResourceMime) out.__set_largestResourceMime(largest->value("mime", ""));
        if (wanted.includeLargestResourceSize) out.__set_largestResourceSize(largest->value("size", 0));
    }
    return out;
}

json noteAttributesJson(const edam::NoteAttributes& attributes) {
    json out = json::object();
    if (attributes.__isset.subjectDate) out["subjectDate"] = attributes.subjectDate;
    if (attributes.__isset.author) out["author"] = attributes.author;
    if (attributes.__isset.source) out["source"] = attributes.source;
    if (attributes.__isset.sourceURL) out["sourceURL"] = attributes.sourceURL;
    if (attributes.__isset.sourceApplication) out["sourceApplication"] = attributes.sourceApplication;
    if (attributes.__isset.contentClass) out["contentClass"] = attributes.contentClass;
    return out;
}

json resourceAttributesJson(const edam::ResourceAttributes& attributes) {
    json out = json::object();
    if (attributes.__isset.sourceURL) out["sourceURL"] = attributes.sourceURL;
    if (attributes.__isset.timestamp) out["timestamp"] = attributes.timestamp;
    if (attributes.__isset.latitude) out["latitude"] = attributes.latitude;
    if (attributes.__isset.longitude) out["longitude"] = attributes.longitude;
    if (attributes.__isset.altitude) out["altitude"] = attributes.altitude;
    if (attributes.__isset.cameraMake) out["cameraMake"] = attributes.cameraMake;
    if (attributes.__isset.cameraModel) out["cameraModel"] = attributes.cameraModel;
    if (attributes.__isset.clientWillIndex) out["clientWillIndex"] = attributes.clientWillIndex;
    if (attributes.__isset.recoType) out["recoType"] = attributes.recoType;
    if (attributes.__isset.fileName) out["fileName"] = attributes.fileName;
    if (attributes.__isset.attachment) out["attachment"] = attributes.attachment;
    return out;
}

}  // namespace vxcloud::sandbox::evernote
