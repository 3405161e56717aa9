#pragma once
// Between the generated EDAM types and the client's views. Only the Evernote client's sources
// include this (it pulls in the generated headers).
#include "Edam_types.h"
#include "EvernoteItem.h"

namespace vxcloud::evernote {

Notebook notebookOf(const ::evernote::edam::Notebook& notebook);
Note noteOf(const ::evernote::edam::Note& note);
User userOf(const ::evernote::edam::User& user);
// The EDAM note a draft sends: the title, and what the draft sets (content, notebook, the
// one resource with its data, MD5, MIME type and file name shown as an attachment).
::evernote::edam::Note edamNoteOf(const NoteDraft& draft);

}  // namespace vxcloud::evernote
