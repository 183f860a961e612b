// The deletion commands drive the application's own engine: the same undo window, the same two files in the
// state folder and the same protection rule, so the terminal and the window never disagree about what went.
#include "DeleteCommands.h"

#include "DeletionLog.h"
#include "SignalBridge.h"
#include "Explaining.h"
#include "removal/BlockReason.h"
#include "removal/DeleteWords.h"
#include "format/Formatters.h"
#include "json/JsonWriter.h"
#include "platform/Platform.h"
#include "scan/DiskScanner.h"
#include "tree/FileNode.h"
#include "util/Date.h"
#include "util/Files.h"
#include "util/Paths.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace brenvo::cli {

namespace {

using Target = DeletionLog::Target;


void say(const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }

std::string replaced(std::string text, std::string_view key, const std::string& value) {
    if (auto at = text.find(key); at != std::string::npos) text.replace(at, key.size(), value);
    return text;
}

// The engine's timers and its hand-offs from the removal thread need an event loop; Qt gets no arguments.
struct EventLoop {
    int argc = 1;
    char name[11] = "brenvo-cli";
    char* argv[2] = {name, nullptr};
    QCoreApplication app{argc, argv};
};

// Asked on standard error; read from standard input whether or not it is a terminal, so scripts can answer.
bool confirmed() {
    std::fputs("Delete? [y/N] ", stderr);
    std::fflush(stderr);
    char line[256];
    const bool answered = std::fgets(line, sizeof line, stdin) != nullptr;
    std::string answer;
    for (char c : std::string_view(answered ? line : ""))
        if (!std::isspace(static_cast<unsigned char>(c))) answer += c;
    if (!answered || !::isatty(STDIN_FILENO)) say(answer); // the terminal didn't echo it: shown, so logs read on
    std::transform(answer.begin(), answer.end(), answer.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return answer == "y" || answer == "yes";
}

// The confirmation's sentence, quoting the seconds this run really waits.
// Prints what went and what didn't; the status is 0 only when every item asked for went.
int report(const std::vector<Target>& targets, const std::set<std::string>& deleted,
           const std::vector<std::string>& failures, bool leftOut) {
    for (const std::string& failure : failures) say(failure);
    int64_t freed = 0;
    for (const Target& t : targets)
        if (deleted.contains(t.path)) freed += t.size;
    say(deleted.empty() ? "Nothing was deleted." : "Freed " + format::bytes(freed));
    return failures.empty() && deleted.size() == targets.size() && !leftOut ? 0 : 1;
}

std::optional<double> parseSeconds(const std::string& text) {
    double value = 0;
    auto parsed = std::from_chars(text.data(), text.data() + text.size(), value); // never the locale's comma
    if (text.empty() || parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || !std::isfinite(value) ||
        value <= 0 || value > 86400)
        return std::nullopt;
    return value;
}

// A link named on the command line is the item, as for rm: only the folders leading to it are resolved.
std::string resolve(const std::string& given, bool isLink) {
    if (!isLink) return DiskScanner::realPath(given);
    const std::string folder = parentPath(given);
    return joinPath(DiskScanner::realPath(folder.empty() ? "." : folder), lastPathComponent(given));
}

struct Candidate {
    std::string given, path;
    bool isLink = false, isFolder = false;
    int64_t linkSize = 0;
    std::optional<std::string> blocked;
};

} // namespace

int deleteCommand(const std::vector<std::string>& args) {
    bool yes = false;
    std::optional<double> window;
    std::vector<std::string> paths;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--yes") {
            yes = true;
        } else if (arg == "--undo-seconds") {
            if (i + 1 >= args.size()) return usageError("--undo-seconds needs a number");
            window = parseSeconds(args[++i]);
            if (!window)
                return usageError("--undo-seconds takes a number of seconds above 0, at most 86400, not " +
                                  format::quoted(args[i]));
        } else if (arg == "--") {
            paths.insert(paths.end(), args.begin() + static_cast<long>(i) + 1, args.end());
            break;
        } else if (arg.starts_with("--")) {
            return usageError("unknown option " + arg);
        } else {
            paths.push_back(arg);
        }
    }
    if (paths.empty()) return usageError("delete needs a PATH");

    EventLoop loop;
    // The application's deletion log and its rule, which judges each path on its own as no folder is scanned.
    DeletionLog log;
    if (log.isShared()) {
        say(DeletionLog::kSharedMessage);
        return 1;
    }

    bool leftOut = false;
    std::vector<Candidate> candidates;
    for (const std::string& given : paths) {
        struct stat st;
        if (::lstat(given.c_str(), &st) != 0) {
            std::fprintf(stderr, "brenvo-cli: %s: %s\n", format::quoted(given).c_str(), std::strerror(errno));
            leftOut = true;
            continue;
        }
        Candidate c{given, resolve(given, S_ISLNK(st.st_mode)), S_ISLNK(st.st_mode), false, 0, {}};
        if (c.isLink) {
            c.linkSize = static_cast<int64_t>(st.st_blocks) * 512;
        } else {
            struct stat real;
            c.isFolder = ::stat(c.path.c_str(), &real) == 0 && S_ISDIR(real.st_mode);
        }
        if (std::none_of(candidates.begin(), candidates.end(), [&](const Candidate& o) { return o.path == c.path; }))
            candidates.push_back(std::move(c));
    }
    const ExplainContext context = systemExplainContext(AppCatalog::load(platform::profile()));
    for (Candidate& c : candidates) c.blocked = collectBlockReason(c.path, c.isFolder, nullptr, context);

    std::vector<Target> targets;
    bool sizeUnknown = false; // something inside couldn't be read
    for (const Candidate& c : candidates) {
        // An item inside another that goes anyway goes with it, whatever it is on its own.
        if (std::any_of(candidates.begin(), candidates.end(),
                        [&](const Candidate& o) { return !o.blocked && isBelow(c.path, o.path); }))
            continue;
        const std::string name(lastPathComponent(c.path));
        if (c.blocked) {
            say(format::quoted(name) + " is left where it is: " + *c.blocked);
            leftOut = true;
            continue;
        }
        Target target{c.path, name, c.linkSize, false, {}};
        if (!c.isLink) {
            try {
                NodeRef node = DiskScanner(250).scan(c.path);
                target.size = node->size();
                sizeUnknown |= node->couldNotRead();
                target.isDirectory = node->kind() != FileNode::Kind::file;
            } catch (const std::exception& error) {
                std::fprintf(stderr, "brenvo-cli: can't measure %s: %s\n", format::quoted(c.given).c_str(), error.what());
                leftOut = true;
                continue;
            }
        }
        targets.push_back(std::move(target));
    }
    if (targets.empty()) {
        say("Nothing was deleted.");
        return 1;
    }

    if (!yes) {
        std::optional<int64_t> total = 0;
        for (const Target& t : targets) *total += t.size;
        if (sizeUnknown) total.reset();
        say(DeleteWords::question(static_cast<int64_t>(targets.size()), targets[0].name));
        say(DeleteWords::promise(total, window.value_or(DeletionLog::windowSeconds())));
        if (!confirmed()) {
            say("Nothing was deleted.");
            return 1;
        }
    }

    bool ended = false;
    int status = 0;
    auto end = [&](int code) {
        if (ended) return;
        ended = true;
        status = code;
        QCoreApplication::exit(code);
    };
    // As the application quits: the window closes and whatever is planned goes now, on this thread.
    auto quit = [&] {
        log.commitBeforeQuitting();
        std::set<std::string> deleted;
        std::vector<std::string> failures;
        for (const Target& t : targets) {
            if (!itemExists(t.path))
                deleted.insert(t.path);
            else
                failures.push_back(format::quoted(t.name) + ": couldn't be deleted, so it's still there.");
        }
        end(report(targets, deleted, failures, leftOut));
    };
    bool warned = false;
    SignalBridge interrupts({SIGINT, SIGTERM, SIGHUP}, [&](int signal) {
        if (ended) return;
        if (signal != SIGINT) {
            quit();
        } else if (log.pending()) {
            log.undoPending();
        } else if (!std::exchange(warned, true)) {
            say("It's too late to undo: the items are being deleted.");
        }
    });
    interrupts.listen();

    QTimer countdown;
    auto tick = [&] {
        const auto& plan = log.pending();
        if (!plan || ended) {
            countdown.stop();
            return;
        }
        // Whole seconds left, rounded up; a tick that comes a little late still shows the second it belongs to.
        const double left = plan->deadline.seconds - Date::now().seconds;
        const long shown = std::max(1L, std::lround(std::ceil(left - 0.05)));
        std::fprintf(stderr, "Deleting in %ld s \u2014 press Ctrl+C to undo\n", shown);
    };
    QObject::connect(&countdown, &QTimer::timeout, tick);

    log.schedule(
        targets, window.value_or(DeletionLog::windowSeconds()), nullptr,
        [&] {
            say("Nothing was deleted.");
            end(1);
        },
        [&](const std::set<std::string>& deleted, const std::vector<std::string>& failures) {
            end(report(targets, deleted, failures, leftOut));
        });
    tick();
    countdown.start(1000);
    QCoreApplication::exec();
    return status;
}

int finishDeletingCommand(const std::vector<std::string>& args) {
    bool yes = false;
    for (const std::string& arg : args) {
        if (arg != "--yes")
            return usageError(arg.starts_with("-") ? "unknown option " + arg : "finish-deleting takes no PATH");
        yes = true;
    }
    EventLoop loop;
    DeletionLog log;
    if (log.isShared()) {
        say(DeletionLog::kSharedMessage);
        return 1;
    }
    const std::vector<Target> targets = log.unfinished();
    if (targets.empty()) {
        say("Nothing is waiting to be deleted.");
        return 0;
    }
    std::vector<std::string> names;
    int64_t total = 0;
    for (const Target& t : targets) {
        names.push_back(format::quoted(t.name));
        total += t.size;
    }
    std::string question = platform::profile().say(
        "Brenvo was closed before it finished deleting {names} ({size}). They're still on your Mac. Delete them "
        "now? This can't be undone.");
    say(replaced(replaced(question, "{names}", format::list(names)), "{size}", format::bytes(total)));
    if (!yes && !confirmed()) {
        // As the dialog's "Keep Them": the files stay, and nothing asks about them again.
        log.keepUnfinished();
        say("Kept them.");
        return 0;
    }

    std::optional<int> status;
    log.finishUnfinished([&](const std::set<std::string>& deleted, const std::vector<std::string>& failures) {
        status = report(targets, deleted, failures, false);
        QCoreApplication::exit(*status);
    });
    if (!status) QCoreApplication::exec(); // nothing left to remove reports at once, before any loop runs
    return status.value_or(1);
}

int deletedCommand(const std::vector<std::string>& args) {
    if (!args.empty()) return usageError("deleted takes no arguments");
    DeletionLog log;
    JsonWriter out(stdout, JsonWriter::Style::Pretty);
    DeletionLog::writeItems(out, log.items());
    const int error = out.finish() ? 0 : out.error(); // the pretty style ends with its own newline
    if (error == EPIPE) return 0; // the reader stopped reading: nothing to report
    if (error) {
        std::fprintf(stderr, "brenvo-cli: can't write the record: %s\n", std::strerror(error));
        return 2;
    }
    return 0;
}

} // namespace brenvo::cli
