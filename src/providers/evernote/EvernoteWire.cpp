#include "EvernoteWire.h"

#include <openssl/evp.h>

namespace vxcloud::evernote {

namespace edam = ::evernote::edam;

namespace {

std::string md5Raw(const ByteBuffer& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest, &length, EVP_md5(), nullptr);
    return std::string(reinterpret_cast<const char*>(digest), length);
}

}  // namespace

Notebook notebookOf(const edam::Notebook& notebook) {
    return {notebook.__isset.guid ? notebook.guid : std::string(), notebook.__isset.name ? notebook.name : std::string(),
            notebook.__isset.defaultNotebook && notebook.defaultNotebook};
}

Note noteOf(const edam::Note& note) {
    Note out;
    out.guid = note.__isset.guid ? note.guid : std::string();
    out.title = note.__isset.title ? note.title : std::string();
    if (note.__isset.notebookGuid) out.notebookGuid = note.notebookGuid;
    if (note.__isset.resources) {
        for (const auto& resource : note.resources) {
            Resource view;
            if (resource.__isset.guid) view.guid = resource.guid;
            if (resource.__isset.data) {
                if (resource.data.__isset.bodyHash) view.bodyHash = resource.data.bodyHash;
                if (resource.data.__isset.body) view.data = ByteBuffer::copyOf(resource.data.body);
            }
            if (resource.__isset.mime) view.mime = resource.mime;
            if (resource.__isset.attributes && resource.attributes.__isset.fileName) {
                view.fileName = resource.attributes.fileName;
            }
            out.resources.push_back(std::move(view));
        }
    }
    return out;
}

User userOf(const edam::User& user) {
    return {user.__isset.id ? user.id : 0, user.__isset.username ? user.username : std::string(),
            user.__isset.email ? user.email : std::string(), user.__isset.name ? user.name : std::string()};
}

edam::Note edamNoteOf(const NoteDraft& draft) {
    edam::Note note;
    if (draft.guid) note.__set_guid(*draft.guid);
    note.__set_title(draft.title);
    if (draft.content) note.__set_content(*draft.content);
    if (draft.notebookGuid) note.__set_notebookGuid(*draft.notebookGuid);
    if (draft.attachment) {
        edam::Data data;
        data.__set_body(std::string(draft.attachment->view()));
        data.__set_size(static_cast<std::int32_t>(draft.attachment->size()));
        data.__set_bodyHash(md5Raw(*draft.attachment));
        edam::ResourceAttributes attributes;
        attributes.__set_fileName(draft.fileName);
        attributes.__set_attachment(true);
        edam::Resource resource;
        resource.__set_data(data);
        resource.__set_mime(draft.mime);
        resource.__set_attributes(attributes);
        note.__set_resources({resource});
    }
    return note;
}

}  // namespace vxcloud::evernote
