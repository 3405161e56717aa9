#pragma once
// The stored notebooks and notes (NoteTree.h) in EDAM's structs, and EDAM's attribute
// structs in the stored JSON.
#include "Edam_types.h"
#include "evernote/NoteTree.h"

namespace vxcloud::sandbox::evernote {

namespace edam = ::evernote::edam;

edam::Notebook notebookForm(const Node& notebook);
// A note as replies carry it: metadata and resource metadata; the ENML with `withContent`,
// resource bodies when `bodies` is given.
edam::Note noteForm(const Node& note, bool withContent, const NoteBodies* bodies);
// Only the fields `wanted` asks for, and the GUID.
edam::NoteMetadata metadataForm(const Node& note, const edam::NotesMetadataResultSpec& wanted);

json noteAttributesJson(const edam::NoteAttributes& attributes);
json resourceAttributesJson(const edam::ResourceAttributes& attributes);

}  // namespace vxcloud::sandbox::evernote
