#pragma once
// The Evernote session's insides: the Evernote client, the move limit and the private steps
// behind the public VXCloudEvernoteSession, which initWithCloudAccount makes as this class.
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "../providers/evernote/EvernoteClient.h"
#include "ConcurrentMoves.h"
#include "StoredCopyDecision.h"
#include "vxcloud/sessions/VXCloudEvernoteSession.h"

namespace vxcloud::evernote_session {

inline constexpr const char* kCategory = "evernote";
inline constexpr const char* kMoveQueueLabel = "com.VXCloud.EvernoteMoveQueue";
inline constexpr std::ptrdiff_t kConcurrentMoves = 4;

class EvernoteSession final : public VXCloudEvernoteSession {
public:
    EvernoteSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<evernote::EvernoteClient> client);

    std::shared_ptr<VXCloudFile> rootFolder() const override;
    void isAuthorizedWithCompletion(std::function<void(bool)> completion) override;
    void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) override;
    void loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) override;
    void uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> inParentFolder,
                             bool overwriteExistingFile) override;
    void renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                             std::shared_ptr<VXCloudFile> inParentFolder, bool overwriteExistingFile,
                             CreatePDFBlock createPDFBlock) override;
    void moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                            std::shared_ptr<VXCloudFile> toFolder) override;
    void downloadSettingsFileWithCompletionHandler(
        std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) override;

    // The note that holds `file`: its title and one attachment with the document's bytes,
    // MIME type and name, and the ENML that shows it (the MD5 of the bytes in en-media).
    static evernote::NoteDraft noteFor(const VXCloudFile& file, const std::string& title,
                                       const std::optional<std::string>& notebookGuid);

private:
    std::shared_ptr<EvernoteSession> self();
    void runInBackground(std::function<void()> ifItThrows, std::function<void()> block);

    // Looks for the document's note: in the folder's notebook (the settings note in every
    // notebook), by the MD5 of its attachment, then by its title (the last of several).
    sessions::StoredCopyLookup findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& folder,
                                        bool checkFileVersion);
    // Stores the document as a new note in the notebook (none: the default notebook).
    void _upload(const std::shared_ptr<VXCloudFile>& cloudFile, const std::optional<std::string>& notebookGuid,
                 const std::string& title);
    // Rewrites the found note in place with the document.
    void _update(const std::shared_ptr<VXCloudFile>& cloudFile, const VXCloudFile& note, bool failuresAreFileUpload);
    void createNotebook(const std::shared_ptr<VXCloudFile>& cloudFile);
    // Reports a stored note or notebook as the upload's outcome.
    void finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile, const providers::CallResult<evernote::Item>& stored,
                      bool failuresAreFileUpload = false);

    std::shared_ptr<evernote::EvernoteClient> client_;
    std::counting_semaphore<> moveSemaphore_{kConcurrentMoves};
};

std::shared_ptr<VXCloudError> mappedError(const ProviderError& error);
evernote::Item itemOf(const evernote::Note& note);
evernote::Item itemOf(const evernote::Notebook& notebook);

}  // namespace vxcloud::evernote_session
