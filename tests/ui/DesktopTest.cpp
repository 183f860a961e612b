#include "Desktop.h"
#include "EventLoop.h"
#include "TempTree.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <fstream>
#include <gtest/gtest.h>

using namespace brenvo;
using brenvo::test::TempTree;
using brenvo::test::waitFor;

namespace {

// Records the URLs the program would have opened, for as long as it lives.
struct OpenedUrls {
    std::vector<QByteArray> urls;
    UrlOpener previous;
    OpenedUrls() {
        previous = setUrlOpener([this](const QUrl& url) {
            urls.push_back(url.toEncoded());
            return true;
        });
    }
    ~OpenedUrls() { setUrlOpener(std::move(previous)); }
};

QByteArray urlOf(const std::string& path) { return QByteArray("file://") + QByteArray::fromStdString(path); }

// A file manager on a bus of the test's own: it answers every call and keeps it.
struct FakeFileManager : QDBusVirtualObject {
    std::vector<QDBusMessage> calls;
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        calls.push_back(message);
        connection.send(message.createReply());
        return true;
    }
};

} // namespace

TEST(Desktop, WithoutASessionBusTheFoldersOpenWithTheirBytesIntact) {
    TempTree tree;
    tree.file("caf\xe9/a.txt", 10);
    tree.file("caf\xe9/b.txt", 10);
    tree.file("other dir/c", 10);
    QTemporaryDir runtime; // where the bus of a logged-in user would be found
    const QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS"), runtimeDir = qgetenv("XDG_RUNTIME_DIR");
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    const bool connected = QDBusConnection::sessionBus().isConnected();
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
    qputenv("XDG_RUNTIME_DIR", runtimeDir);
    if (connected) GTEST_SKIP() << "this process reached a session bus before the test";

    OpenedUrls opened;
    showInFolder({tree.path("caf\xe9/a.txt"), tree.path("caf\xe9/b.txt"), tree.path("other dir/c")});
    ASSERT_TRUE(waitFor([&] { return opened.urls.size() == 2; }));
    EXPECT_EQ(opened.urls[0], urlOf(tree.root()) + "/caf%E9/");
    EXPECT_EQ(opened.urls[1], urlOf(tree.root()) + "/other%20dir/");

    openItem(tree.path("caf\xe9/a.txt"));
    ASSERT_EQ(opened.urls.size(), 3u);
    EXPECT_EQ(opened.urls[2], urlOf(tree.root()) + "/caf%E9/a.txt");
}

TEST(Desktop, TheFileManagerIsAskedOnceForAllItemsAndItsAbsenceOpensTheFolder) {
    const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
    if (daemon.isEmpty()) GTEST_SKIP() << "dbus-daemon is not installed";
    TempTree tree;
    tree.file("caf\xe9/a.txt", 10);
    tree.file("caf\xe9/b.txt", 10);
    // A bus of its own, without activation, so no real file manager is started.
    tree.folder("bus");
    std::ofstream(tree.path("bus.conf"))
        << "<busconfig><type>session</type><listen>unix:dir=" << tree.path("bus") << "</listen><auth>EXTERNAL</auth>"
        << "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
        << "<allow own=\"*\"/></policy></busconfig>";
    QProcess bus;
    bus.start(daemon, {QStringLiteral("--nofork"), QStringLiteral("--print-address"),
                       QStringLiteral("--config-file=") + QString::fromStdString(tree.path("bus.conf"))});
    ASSERT_TRUE(bus.waitForStarted());
    ASSERT_TRUE(waitFor([&] { return bus.canReadLine(); })) << bus.readAllStandardError().toStdString();
    const QString address = QString::fromUtf8(bus.readLine()).trimmed();
    {
        QDBusConnection server = QDBusConnection::connectToBus(address, QStringLiteral("file-manager"));
        QDBusConnection client = QDBusConnection::connectToBus(address, QStringLiteral("brenvo"));
        ASSERT_TRUE(server.isConnected() && client.isConnected());
        FakeFileManager manager;
        ASSERT_TRUE(server.registerService(QStringLiteral("org.freedesktop.FileManager1")));
        ASSERT_TRUE(server.registerVirtualObject(QStringLiteral("/org/freedesktop/FileManager1"), &manager));

        OpenedUrls opened;
        showInFolder({tree.path("caf\xe9/a.txt"), tree.path("caf\xe9/b.txt")}, client);
        ASSERT_TRUE(waitFor([&] { return !manager.calls.empty(); }));
        const QDBusMessage& call = manager.calls.front();
        EXPECT_EQ(call.interface(), QStringLiteral("org.freedesktop.FileManager1"));
        EXPECT_EQ(call.member(), QStringLiteral("ShowItems"));
        EXPECT_EQ(call.signature(), QStringLiteral("ass"));
        ASSERT_EQ(call.arguments().size(), 2);
        const QString folder = QString::fromLatin1(urlOf(tree.root()) + "/caf%E9/");
        EXPECT_EQ(call.arguments()[0].toStringList(), (QStringList{folder + QStringLiteral("a.txt"), folder + QStringLiteral("b.txt")}));

        // Without a file manager on the bus, the call fails and the folder opens instead.
        server.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
        ASSERT_TRUE(server.unregisterService(QStringLiteral("org.freedesktop.FileManager1")));
        showInFolder({tree.path("caf\xe9/a.txt")}, client);
        ASSERT_TRUE(waitFor([&] { return !opened.urls.empty(); }));
        EXPECT_EQ(opened.urls, std::vector<QByteArray>{folder.toLatin1()});
        EXPECT_EQ(manager.calls.size(), 1u);
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("file-manager"));
    QDBusConnection::disconnectFromBus(QStringLiteral("brenvo"));
    bus.kill();
    bus.waitForFinished();
}
