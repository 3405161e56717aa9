#include "FolderPicker.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "Output.h"
#include "Prompts.h"
#include "SessionCalls.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"

namespace vxcloud::cli {

namespace {

std::string childPath(const std::string& parent, const VXCloudFile& child) {
    if (child.path && !child.path->empty()) return *child.path;
    return (parent == "/" ? std::string() : parent) + "/" + child.name;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::vector<std::string> splitPath(const std::string& path) {
    std::vector<std::string> parts;
    std::string part;
    for (char c : path) {
        if (c == '/') {
            if (!part.empty()) parts.push_back(part);
            part.clear();
        } else {
            part += c;
        }
    }
    if (!part.empty()) parts.push_back(part);
    return parts;
}

std::string failureText(const SessionOutcome& outcome) {
    if (!outcome.answered) return "the service did not answer in time";
    if (outcome.error) return errorText(outcome.error->errorCode);
    return VXCloudString::GENERIC_ERROR();
}

VXCloudFileList childrenOf(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& folder,
                           const std::string& displayPath) {
    const SessionOutcome listed = loadFolders(session, folder);
    if (!listed.ok()) throw CliError(VXCloudString::LOAD_FOLDERS_ERROR() + " (" + displayPath + "): " + failureText(listed));
    VXCloudFileList folders = listed.folders;
    std::sort(folders.begin(), folders.end(), [](const auto& a, const auto& b) { return lower(a->name) < lower(b->name); });
    return folders;
}

bool isOneNote(const std::shared_ptr<VXCloudSession>& session) {
    return session->cloudAccount() && session->cloudAccount()->cloudService == VXCloudService::oneNote;
}

// The child called `name` (exactly, else the one that matches ignoring case), or null.
std::shared_ptr<VXCloudFile> childNamed(const VXCloudFileList& children, const std::string& name) {
    for (const auto& child : children)
        if (child->name == name) return child;
    std::shared_ptr<VXCloudFile> loose;
    for (const auto& child : children) {
        if (lower(child->name) != lower(name)) continue;
        if (loose) return nullptr;
        loose = child;
    }
    return loose;
}

// Opens the folders of `path` one by one from the top, as a person would, so [b] goes back up
// through each; stops where a folder is no longer there, and says so.
void openPath(const std::shared_ptr<VXCloudSession>& session, VXCloudStack<FolderInfo>& trail, const std::string& path) {
    for (const auto& name : splitPath(path)) {
        const FolderInfo& here = *trail.top();
        const auto child = childNamed(here.children, name);
        if (!child) {
            say(printable(path) + " is not there any more; starting at " + printable(here.displayPath) + ".");
            return;
        }
        const std::string childDisplay = childPath(here.displayPath, *child);
        try {
            trail.push(FolderInfo{child, childDisplay, childrenOf(session, child, childDisplay)});
        } catch (const CliError& e) {
            say(e.what());
            return;
        }
    }
    if (trail.count() > 1) say("Opened at the current choice; [b] goes up a level.");
}

}  // namespace

Json PickedFolder::uploadFolderInfo() const {
    return Json{{VXCloudFile::kUploadFolderIdKey, folder->id.value_or("")},
                {VXCloudFile::kUploadFolderNameKey, folder->name},
                {VXCloudFile::kUploadFolderPathKey, folder->path.value_or(displayPath)}};
}

std::optional<std::string> sendTargetProblem(const VXCloudAccount& account, const PickedFolder& folder) {
    if (account.cloudService != VXCloudService::oneNote || !folder.folder) return std::nullopt;
    // A stored choice does not say whether it is a notebook; the service will, if it is one.
    if (folder.folder->isRootFolder || folder.folder->isOneNoteNotebook.value_or(false)) {
        return "OneNote keeps pages in sections, and " + folder.displayPath + " is not one: give NOTEBOOK/SECTION";
    }
    return std::nullopt;
}

std::optional<std::string> folderNameProblem(const std::string& name) {
    if (name.empty()) return std::string("a folder needs a name");
    if (name.find('/') != std::string::npos) return "a folder name cannot contain \"/\": " + name;
    if (name == "." || name == "..") return "\"" + name + "\" cannot name a folder";
    if (std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isspace(c); }))
        return std::string("a folder name cannot be only spaces");
    return std::nullopt;
}

std::optional<PickedFolder> pickFolderInteractively(const std::shared_ptr<VXCloudSession>& session, Prompter& prompter,
                                                    const std::string& accountLabel, const std::string& purpose,
                                                    const std::optional<std::string>& startAt) {
    say("Choose the " + purpose + " for " + accountLabel);
    say(VXCloudString::LOADING() + "…");
    VXCloudStack<FolderInfo> trail;
    auto root = session->rootFolder();
    trail.push(FolderInfo{root, "/", childrenOf(session, root, "/")});
    const bool oneNote = isOneNote(session);
    if (startAt) openPath(session, trail, *startAt);

    for (int step = 0; step < 1000; ++step) {
        FolderInfo& here = *trail.top();
        say();
        say(displayName(session->cloudAccount()->cloudService) + "  " + printable(here.displayPath));
        if (oneNote) say(trail.count() == 1 ? VXCloudString::NOTEBOOKS() : VXCloudString::SECTIONS());
        if (here.children.empty()) say("   (no folders here)");
        for (std::size_t i = 0; i < here.children.size(); ++i)
            say("  " + std::to_string(i + 1) + "  " + printable(here.children[i]->name));
        const std::string newLabel =
            oneNote ? (trail.count() == 1 ? VXCloudString::NEW_NOTEBOOK() : VXCloudString::NEW_SECTION())
                    : VXCloudString::NEW_FOLDER();
        say("  [u] " + VXCloudString::SELECT_DEFAULT_FOLDER() + "   [n] " + newLabel + "   [b] " + VXCloudString::BACK() +
            "   [c] " + VXCloudString::CANCEL());
        const auto typed = prompter.ask("Open a folder by its number, or choose a letter");
        if (!typed) return std::nullopt;  // end of input: nothing chosen
        const std::string choice = lower(*typed);

        if (!choice.empty() && allDigits(choice) && choice.size() < 6) {
            const std::size_t index = std::stoul(choice);
            if (index < 1 || index > here.children.size()) {
                say("There is no folder number " + choice + " here.");
                continue;
            }
            auto child = here.children[index - 1];
            const std::string path = childPath(here.displayPath, *child);
            say(VXCloudString::LOADING() + "…");
            try {
                trail.push(FolderInfo{child, path, childrenOf(session, child, path)});
            } catch (const CliError& e) {
                say(e.what());
            }
        } else if (choice == "u" || choice == lower(VXCloudString::SELECT_DEFAULT_FOLDER())) {
            return PickedFolder{here.folder, here.displayPath};
        } else if (choice == "b" || choice == lower(VXCloudString::BACK())) {
            if (trail.count() > 1) {
                trail.pop();
            } else {
                say("This is the top folder.");
            }
        } else if (choice == "c" || choice == "q" || choice == lower(VXCloudString::CANCEL())) {
            return std::nullopt;
        } else if (choice == "n" || choice == lower(newLabel)) {
            const auto name = prompter.ask(newLabel, VXCloudString::NEW_COLLECTION_PLACEHOLDER());
            if (!name) return std::nullopt;
            if (auto problem = folderNameProblem(*name)) {
                say(VXCloudString::CREATE_FOLDER_ALERT() + ": " + *problem);
                continue;
            }
            const SessionOutcome made = createFolder(session, *name, here.folder);
            if (!made.ok() || !made.file) {
                say(VXCloudString::CREATE_FOLDER_ALERT() + ": " + failureText(made));
                continue;
            }
            say(VXCloudString::ADD() + ": " + made.file->name);
            try {
                here.children = childrenOf(session, here.folder, here.displayPath);
            } catch (const CliError& e) {
                say(e.what());
            }
        } else {
            say("Type a folder's number, or u, n, b or c.");
        }
    }
    return std::nullopt;
}

namespace {

// Walks "/A/B" down from the top folder; a missing step is created when `create`, else the
// walk ends with nothing when `missingIsNothing`, else with a CliError naming the step.
std::optional<PickedFolder> walkFolderPath(const std::shared_ptr<VXCloudSession>& session, const std::string& path,
                                           bool create, bool missingIsNothing) {
    PickedFolder current{session->rootFolder(), "/"};
    for (const auto& name : splitPath(path)) {
        if (auto problem = folderNameProblem(name)) throw CliError(*problem, kExitUsage);
        const VXCloudFileList children = childrenOf(session, current.folder, current.displayPath);
        std::shared_ptr<VXCloudFile> next = childNamed(children, name);
        if (!next && create) {
            const SessionOutcome made = createFolder(session, name, current.folder);
            if (!made.ok() || !made.file)
                throw CliError(VXCloudString::CREATE_FOLDER_ALERT() + " \"" + name + "\" in " + current.displayPath + ": " +
                               failureText(made));
            next = made.file;
        }
        if (!next && missingIsNothing) return std::nullopt;
        if (!next) {
            std::string names;
            for (const auto& child : children) names += (names.empty() ? "" : ", ") + child->name;
            throw CliError("there is no folder \"" + name + "\" in " + current.displayPath +
                               (names.empty() ? " (it has no folders)" : " (it has: " + names + ")") +
                               "; add --create to make it",
                           kExitFailed);
        }
        current = PickedFolder{next, childPath(current.displayPath, *next)};
    }
    return current;
}

}  // namespace

PickedFolder resolveFolderPath(const std::shared_ptr<VXCloudSession>& session, const std::string& path, bool create) {
    return *walkFolderPath(session, path, create, false);
}

std::optional<PickedFolder> findFolderPath(const std::shared_ptr<VXCloudSession>& session, const std::string& path) {
    return walkFolderPath(session, path, false, true);
}

VXCloudFileList listFolder(const std::shared_ptr<VXCloudSession>& session, const PickedFolder& folder) {
    return childrenOf(session, folder.folder, folder.displayPath);
}

}  // namespace vxcloud::cli
