#include "live/LiveChangePlan.h"

#include <algorithm>

namespace brenvo {

std::string normalizeEventPath(std::string path) {
    if (path.size() >= 2 && path.back() == '/') path.pop_back();
    return withoutDataVolumePrefix(std::move(path));
}

bool touches(const std::optional<std::set<std::string>>& changed, const std::string& path) {
    if (!changed) return true;
    const std::string wanted = normalizeEventPath(path);
    for (const std::string& c : *changed)
        if (isInside(c, wanted) || isBelow(wanted, c)) return true;
    return false;
}

namespace {

bool insideAny(const std::string& path, const std::vector<std::string>& folders) {
    return std::any_of(folders.begin(), folders.end(), [&](const std::string& f) { return isBelow(path, f); });
}

} // namespace

LiveChangePlan LiveChangePlan::make(const std::vector<std::string>& paths, const std::string& root,
                                    const std::vector<std::string>& ignoring,
                                    const std::function<bool(const std::string&)>& exists,
                                    const std::function<FileNode*(const std::string&)>& node) {
    LiveChangePlan plan;
    std::set<std::string> distinct(paths.begin(), paths.end());
    std::set<std::string> seenAdded;
    for (const std::string& path : distinct) {
        if (!isBelow(path, root)) continue;
        if (std::any_of(ignoring.begin(), ignoring.end(), [&](const std::string& i) { return isInside(path, i); }))
            continue;
        FileNode* known = node(path);
        const bool onDisk = exists(path);
        if (known) {
            if (onDisk) {
                if (known->parent()) plan.remeasure.push_back(path);
            } else {
                plan.removed.push_back(path);
            }
            continue;
        }
        if (!onDisk) continue; // came and went unseen
        // Something new: the deepest folder the tree knows is measured anew as a whole.
        std::string child = path;
        std::string ancestor = parentPath(path);
        while (!node(ancestor) && isBelow(ancestor, root)) {
            child = ancestor;
            ancestor = parentPath(ancestor);
        }
        FileNode* folder = node(ancestor);
        if (!folder) continue;
        if (folder->parent()) {
            plan.remeasure.push_back(ancestor);
        } else if (seenAdded.insert(child).second) {
            plan.added.push_back({child, ancestor});
        }
    }

    std::sort(plan.remeasure.begin(), plan.remeasure.end());
    plan.remeasure.erase(std::unique(plan.remeasure.begin(), plan.remeasure.end()), plan.remeasure.end());
    std::vector<std::string> outermost;
    for (const std::string& path : plan.remeasure)
        if (!insideAny(path, plan.remeasure)) outermost.push_back(path);
    plan.remeasure = std::move(outermost);
    std::erase_if(plan.removed, [&](const std::string& p) { return insideAny(p, plan.remeasure); });
    std::erase_if(plan.added, [&](const Added& a) { return insideAny(a.path, plan.remeasure); });
    return plan;
}

} // namespace brenvo
