#pragma once

#include <QObject>
#include <memory>

namespace brenvo {

class SignalBridge;

// What the application does around its windows: SIGTERM takes the same orderly path as Quit, and
// quitting carries a deletion still inside its undo window through first.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    explicit AppDelegate(QObject* parent = nullptr);
    ~AppDelegate() override;

    // Makes SIGTERM quit through the event loop, like the Quit command.
    void applicationDidFinishLaunching();
    // Runs once as the application quits, by any path.
    void applicationWillTerminate();
    // Closing the last window quits only when there is no tray item to keep the program reachable.
    static bool shouldTerminateAfterLastWindowClosed();

private:
    std::unique_ptr<SignalBridge> sigterm_;
};

} // namespace brenvo
