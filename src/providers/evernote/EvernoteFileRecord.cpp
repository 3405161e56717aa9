#include <cstdio>

#include "providers/evernote/EvernoteItem.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

std::shared_ptr<VXCloudFile> VXCloudFile::initWithEvernoteItem(const evernote::Item& item) {
    try {
        switch (item.kind) {
            case evernote::Item::Kind::notebook: {
                auto file = std::make_shared<VXCloudFile>(item.notebook.name, true, false);
                file->id = item.notebook.guid;
                return file;
            }
            case evernote::Item::Kind::note: {
                auto file = std::make_shared<VXCloudFile>(item.note.title, false, false);
                file->id = item.note.guid;
                // The version is the first attachment's MD5, two lower-case hex digits a byte.
                if (!item.note.resources.empty()) {
                    std::string version;
                    for (const char byte : item.note.resources.front().bodyHash) {
                        char digits[3];
                        std::snprintf(digits, sizeof digits, "%02hhx", static_cast<unsigned char>(byte));
                        version += digits;
                    }
                    file->version = std::move(version);
                }
                return file;
            }
            case evernote::Item::Kind::other: return nullptr;
        }
        return nullptr;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace vxcloud
