#pragma once

#include "explain/AppCatalog.h"
#include "explain/AppSystem.h"
#include "platform/Profile.h"
#include "tree/FileNode.h"
#include "util/Date.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace brenvo {

enum class Category { folder, video, image, audio, archive, installer, document, app, library, other, aggregate };

// What an item is, what could be done about it, and how safe deleting it is.
struct Explanation {
    enum class Safety { ok, reviewFirst, protected_ }; // `protected` is a C++ keyword
    std::string summary;
    std::optional<std::string> suggestion;
    Safety safety = Safety::ok;
    std::optional<std::string> safetyNote;

    bool operator==(const Explanation&) const = default;
};

const char* safetyName(Explanation::Safety safety); // "ok", "reviewFirst", "protected"
const char* categoryName(Category category);         // "folder", "video", …

// The two questions about a file only the file system can answer.
namespace FileFacts {
enum class CloudState { downloaded, cloudOnly, syncing };
// The file's length, which may be more than the space it takes here.
std::optional<int64_t> fullSize(const std::string& path);
} // namespace FileFacts

// Everything the explanations read besides the node: the profile in force and the system's answers, given
// as values and functions so the rules are tested without a Mac or a desktop.
struct ExplainContext {
    const Profile* profile = nullptr;
    std::shared_ptr<const AppCatalog> catalog;
    const AppSystem* apps = nullptr; // none: no application is installed or running
    std::vector<std::string> commandFolders;
    // iCloud's state of a file; nothing where there is no iCloud.
    std::function<std::optional<FileFacts::CloudState>(const std::string& path)> cloudState;
    // The system's name for a kind of file by extension ("PNG image"); nothing when it has none.
    std::function<std::optional<std::string>(const std::string& extension)> typeDescription;
    // Whether this account may delete the item; the system's rule by default.
    std::function<bool(const std::string& path)> isDeletable;
    Date now = Date::now();
    bool demo = false;
};

// The program's voice: for any node, in plain words, what it is and whether it may go. The rules are
// ordered; the first that fits decides.
namespace Explainer {

Category category(const FileNode& node, const Profile& profile);
// The same for an item known by its kind and name only, as a folded entry is.
Category category(FileNode::Kind kind, std::string_view name, const Profile& profile);
std::string kindLabel(const FileNode& node, const ExplainContext& context);
Explanation explain(const FileNode& node, const FileNode* scanRoot, const ExplainContext& context);

// The parts the rules are made of, open for the screens that quote them.
std::string largestNote(const FileNode& node);
std::optional<std::string> openedNote(std::optional<Date> date, Date now);
std::optional<std::string> ageNote(std::optional<Date> date, Date now);
// Whole calendar years from `then` to `now`.
int wholeYears(Date then, Date now);
// The lower-cased extension after the last dot; none for ".bashrc" or "name.".
std::string pathExtension(std::string_view name);

} // namespace Explainer

// Whether this account may remove the item at `path`: it exists, its folder is writable and searchable,
// and in a folder with the sticky bit the account owns the item or the folder.
bool isDeletableFile(const std::string& path);

} // namespace brenvo
