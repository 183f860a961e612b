// brenvo-cli: the engine without a window, for terminals, scripts, benchmarks and tests.
#include "DeleteCommands.h"
#include "Explaining.h"
#include "Preferences.h"
#include "cache/ScanCache.h"
#include "cache/SnapshotJson.h"
#include "explain/Explainer.h"
#include "format/Formatters.h"
#include "json/JsonWriter.h"
#include "platform/Platform.h"
#include "scan/DiskScanner.h"
#include "scan/FileSystem.h"
#include "scan/SkippedFolders.h"
#include "util/Paths.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

using namespace brenvo;

namespace {

constexpr const char* kUsage =
    "usage: brenvo-cli scan PATH [--max-children N] [--progress] [--threads N] [--remember]\n"
    "       brenvo-cli explain PATH [--root ROOT]\n"
    "       brenvo-cli delete [--yes] [--undo-seconds N] PATH...\n"
    "       brenvo-cli finish-deleting [--yes]\n"
    "       brenvo-cli deleted\n"
    "\n"
    "  scan PATH           measure PATH and print its tree of sizes as JSON on standard output\n"
    "  --max-children N    keep at most N entries per folder, folding the smallest into one (default 250)\n"
    "  --progress          report progress on standard error while scanning\n"
    "  --threads N         walk with N threads (default: sixteen per core, 16 to 64)\n"
    "  --remember          scan as the application does: skip its skipped folders, compare with the\n"
    "                      remembered baseline (adding \"change\" and \"new\" to entries) and save the\n"
    "                      scan where the application finds it\n"
    "  explain PATH        say what PATH is and whether it may go, as JSON; ROOT (default: the folder\n"
    "                      holding PATH) is scanned to see it in its place\n"
    "  delete PATH...      delete each PATH for good, as the application does: protected items are left\n"
    "                      where they are, and nothing is touched until the undo window has passed\n"
    "                      (Ctrl+C undoes; SIGTERM deletes at once, as quitting the application does)\n"
    "  --yes               don't ask first (delete, finish-deleting)\n"
    "  --undo-seconds N    wait N seconds, fractions allowed, instead of the setting (default 8)\n"
    "  finish-deleting     offer to delete what a run closed early left undeleted; answering no keeps\n"
    "                      the items and forgets them\n"
    "  deleted             print the record of deleted items as JSON\n"
    "\n"
    "Exit status: 0 on success; 1 when delete or finish-deleting left something undeleted; 2 for a usage\n"
    "error or a failure to read or write.\n";

} // namespace

int brenvo::cli::usageError(const std::string& message) {
    std::fprintf(stderr, "brenvo-cli: %s\n%s", message.c_str(), kUsage);
    return 2;
}

namespace {

using cli::usageError;

int scanError(const std::string& path, const std::string& reason) {
    std::fprintf(stderr, "brenvo-cli: can't scan \u201c%s\u201d: %s\n", path.c_str(), reason.c_str());
    return 2;
}

struct ScanArguments {
    std::string path;
    int maxChildren = 250;
    unsigned threads = 0;
    bool progress = false;
    bool remember = false;
};

std::optional<int> parseScan(const std::vector<std::string>& args, ScanArguments& out) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--progress") {
            out.progress = true;
        } else if (arg == "--remember") {
            out.remember = true;
        } else if (arg == "--max-children" || arg == "--threads") {
            const long limit = arg == "--threads" ? 256 : 1'000'000;
            if (i + 1 >= args.size()) return usageError(arg + " needs a number");
            const std::string& text = args[++i];
            char* end = nullptr;
            long n = std::strtol(text.c_str(), &end, 10);
            if (text.empty() || *end != 0 || n < 1 || n > limit)
                return usageError(arg + " takes a whole number from 1 to " + std::to_string(limit) + ", not \u201c" +
                                  text + "\u201d");
            if (arg == "--threads")
                out.threads = static_cast<unsigned>(n);
            else
                out.maxChildren = static_cast<int>(n);
        } else if (arg == "--") {
            if (i + 2 != args.size() || !out.path.empty()) return usageError("scan takes one PATH");
            out.path = args[i + 1];
            break;
        } else if (arg.starts_with("--")) {
            return usageError("unknown option " + arg);
        } else if (out.path.empty()) {
            out.path = arg;
        } else {
            return usageError("scan takes one PATH");
        }
    }
    if (out.path.empty()) return usageError("scan needs a PATH");
    return std::nullopt;
}

// Ctrl-C and SIGTERM stop a scan cleanly: a thread waits for the signal and asks the walk to stop.
// SIGUSR1 is how the waiter is told to end when the scan is over.
class SignalStop {
public:
    SignalStop() {
        sigemptyset(&set_);
        for (int signal : {SIGINT, SIGTERM, SIGUSR1}) sigaddset(&set_, signal);
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
        waiter_ = std::thread([this] {
            int signal = 0;
            if (sigwait(&set_, &signal) == 0 && signal != SIGUSR1) source_.request_stop();
        });
    }
    ~SignalStop() {
        pthread_kill(waiter_.native_handle(), SIGUSR1);
        waiter_.join();
    }
    std::stop_token token() const { return source_.get_token(); }

private:
    sigset_t set_;
    std::stop_source source_;
    std::thread waiter_;
};

// What the application does with a finished scan of a custom location: marks against the baseline, then
// the snapshot and summary, and the baseline itself when there is none or it is older than a week.
void remember(FileNode& root, const std::string& location, Date now) {
    const std::string folder = platform::scansFolder();
    ScanCache::remember(root, location, now, ScanCache::markChanges(root, location, folder), folder);
    ScanCache::waitForWrites();
}

// The folders the application doesn't enter: the Library and the folders excluded in Settings.
DiskScanner::Skipped applicationSkipped() {
    return skippedFolders(platform::profile(), Preferences::excludedPaths());
}

int scanCommand(const std::vector<std::string>& args) {
    ScanArguments options;
    if (auto failed = parseScan(args, options)) return *failed;

    SignalStop interrupts;
    ProgressReport report;
    if (options.progress) {
        report = [](const ScanProgress& p) {
            std::fprintf(stderr, "%s files, %s%s%s\n", format::count(p.files).c_str(), format::bytes(p.bytes).c_str(),
                         p.currentPath.empty() ? "" : " \u2014 ", p.currentPath.c_str());
        };
    }
    ScanEnvironment environment = platform::scanEnvironment();
    environment.threads = options.threads;
    const DiskScanner::Skipped skipped = options.remember ? applicationSkipped() : DiskScanner::Skipped{};
    DiskScanner scanner(options.maxChildren, skipped, report, std::move(environment));
    NodeRef root;
    try {
        root = scanner.scanInParallel(options.path, interrupts.token());
    } catch (const ScanError& error) {
        return scanError(options.path, error.what());
    } catch (const ScanCancelled& cancelled) {
        return scanError(options.path, cancelled.what());
    }

    const Date now = Date::now();
    if (options.remember) remember(*root, options.path, now);
    JsonWriter out(stdout);
    writeSnapshotJson(out, *root, now, options.remember);
    int error = out.finish() ? 0 : out.error();
    if (!error && (std::fputc('\n', stdout) == EOF || std::fflush(stdout) != 0)) error = errno;
    if (error == EPIPE) return 0; // the reader stopped reading, as `| head` does: nothing to report
    if (error) {
        std::fprintf(stderr, "brenvo-cli: can't write the result: %s\n", std::strerror(error));
        return 2;
    }
    return 0;
}

int explainCommand(const std::vector<std::string>& args) {
    std::string path, root;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--root") {
            if (i + 1 >= args.size()) return usageError("--root needs a folder");
            root = args[++i];
        } else if (args[i].starts_with("--")) {
            return usageError("unknown option " + args[i]);
        } else if (path.empty()) {
            path = args[i];
        } else {
            return usageError("explain takes one PATH");
        }
    }
    if (path.empty()) return usageError("explain needs a PATH");
    // Said at once, before any folder is scanned to see the item in its place.
    if (fs::EntryValues values; int error = fs::statPath(path, values)) {
        std::fprintf(stderr, "brenvo-cli: can't explain %s: %s\n", format::quoted(path).c_str(), std::strerror(error));
        return 2;
    }
    const std::string wanted = DiskScanner::realPath(path);
    if (root.empty()) root = std::string(wanted.substr(0, std::max<size_t>(wanted.rfind('/'), 1)));

    NodeRef tree;
    try {
        tree = DiskScanner(250, {}, {}, platform::scanEnvironment()).scanInParallel(root);
    } catch (const std::exception& error) {
        return scanError(root, error.what());
    }
    FileNode* node = tree->find(wanted);
    if (!node) {
        std::fprintf(stderr, "brenvo-cli: \u201c%s\u201d is not in the scan of \u201c%s\u201d\n", path.c_str(),
                     root.c_str());
        return 2;
    }
    const ExplainContext context = systemExplainContext(AppCatalog::load(platform::profile()));
    const Explanation e = Explainer::explain(*node, tree.get(), context);
    JsonWriter out(stdout, JsonWriter::Style::Pretty);
    out.beginObject();
    out.field("summary", e.summary);
    if (e.suggestion) out.field("suggestion", *e.suggestion);
    out.field("safety", safetyName(e.safety));
    if (e.safetyNote) out.field("safetyNote", *e.safetyNote);
    out.field("category", categoryName(Explainer::category(*node, platform::profile())));
    out.field("kindLabel", Explainer::kindLabel(*node, context));
    out.endObject();
    return out.finish() ? 0 : 2;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is a write error to report, not a silent death
    fs::raiseDescriptorLimit();
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        std::fputs(kUsage, args.empty() ? stderr : stdout);
        return args.empty() ? 2 : 0;
    }
    if (args[0] == "scan") return scanCommand({args.begin() + 1, args.end()});
    if (args[0] == "explain") return explainCommand({args.begin() + 1, args.end()});
    if (args[0] == "delete") return cli::deleteCommand({args.begin() + 1, args.end()});
    if (args[0] == "finish-deleting") return cli::finishDeletingCommand({args.begin() + 1, args.end()});
    if (args[0] == "deleted") return cli::deletedCommand({args.begin() + 1, args.end()});
    return usageError("unknown command \u201c" + args[0] + "\u201d");
}
