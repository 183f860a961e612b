#include "ScopedEnv.h"
#include "Preferences.h"
#include "Text.h"

#include <QSettings>
#include <QStandardPaths>
#include <gtest/gtest.h>

using namespace brenvo;

namespace {

class PreferencesTest : public ::testing::Test {
protected:
    void SetUp() override {
        QSettings(QStringLiteral("Brenvo"), QStringLiteral("Brenvo")).clear();
        qunsetenv("BRENVO_DEMO");
    }
};

} // namespace

TEST_F(PreferencesTest, UnsetKeysReadAsTheirDefaults) {
    EXPECT_EQ(Preferences::undoSeconds(), 8.0);
    EXPECT_EQ(Preferences::warnBelowGB(), 0);
    EXPECT_TRUE(Preferences::lowSpaceWarnings());
    EXPECT_TRUE(Preferences::showInMenuBar());
    EXPECT_TRUE(Preferences::excludedFolders().isEmpty());
    EXPECT_EQ(Preferences::folderChart(), QStringLiteral("map"));
    EXPECT_FALSE(Preferences::hasSeenWelcome());

    Preferences::registerDefaults();
    QSettings raw(QStringLiteral("Brenvo"), QStringLiteral("Brenvo"));
    EXPECT_TRUE(raw.value(QStringLiteral("showInMenuBar")).toBool());
    EXPECT_TRUE(raw.value(QStringLiteral("lowSpaceWarnings")).toBool());
    // Registering never overrides the user's choice.
    Preferences::setShowInMenuBar(false);
    Preferences::registerDefaults();
    EXPECT_FALSE(Preferences::showInMenuBar());
}

TEST_F(PreferencesTest, UndoWindowIsNeverZeroAndIsFiveInDemonstrationMode) {
    Preferences::setUndoSeconds(0);
    EXPECT_EQ(Preferences::undoSeconds(), 8.0);
    Preferences::setUndoSeconds(-3);
    EXPECT_EQ(Preferences::undoSeconds(), 8.0);
    Preferences::setUndoSeconds(15);
    EXPECT_EQ(Preferences::undoSeconds(), 15.0);
    EXPECT_EQ(Preferences::storedUndoSeconds(), 15.0);
    test::ScopedEnv demo("BRENVO_DEMO", "1");
    EXPECT_EQ(Preferences::undoSeconds(), 5.0);
}

TEST_F(PreferencesTest, ExclusionMatchesTheFolderAndItsInsideOnly) {
    Preferences::setExcludedFolders({QStringLiteral("/home/u/Movies"), QStringLiteral("/srv/caf\u00e9")});
    EXPECT_TRUE(Preferences::isExcluded(std::string_view("/home/u/Movies")));
    EXPECT_TRUE(Preferences::isExcluded(std::string_view("/home/u/Movies/2019/clip.mov")));
    EXPECT_FALSE(Preferences::isExcluded(std::string_view("/home/u/Movies2")));
    EXPECT_FALSE(Preferences::isExcluded(std::string_view("/home/u")));
    EXPECT_TRUE(Preferences::isExcluded(std::string_view("/srv/caf\xc3\xa9/x")));
    EXPECT_TRUE(Preferences::isExcluded(QStringLiteral("/home/u/Movies/a")));

    // A folder whose name is not valid UTF-8 survives the round trip through the settings file.
    const std::string odd = "/data/r\xe9sum\xe9";
    Preferences::setExcludedFolders({toQString(odd)});
    QSettings(QStringLiteral("Brenvo"), QStringLiteral("Brenvo")).sync();
    EXPECT_TRUE(Preferences::isExcluded(std::string_view(odd + "/cv.pdf")));
    EXPECT_FALSE(Preferences::isExcluded(std::string_view("/data/r\xc3\xa9sum\xc3\xa9/cv.pdf")));

    Preferences::setExcludedFolders({});
    EXPECT_FALSE(Preferences::isExcluded(std::string_view(odd)));
    EXPECT_TRUE(Preferences::excludedFolders().isEmpty());
}

TEST_F(PreferencesTest, SettingsLiveInTheUsersConfigFolder) {
    Preferences::setFolderChart(QStringLiteral("rings"));
    QSettings raw(QStringLiteral("Brenvo"), QStringLiteral("Brenvo"));
    EXPECT_TRUE(raw.fileName().startsWith(qEnvironmentVariable("XDG_CONFIG_HOME"))) << raw.fileName().toStdString();
    EXPECT_EQ(Preferences::folderChart(), QStringLiteral("rings"));
}

TEST(Text, BytesThatAreNotUtf8SurviveAQStringRoundTrip) {
    for (std::string bytes : {std::string("plain"), std::string("caf\xc3\xa9"), std::string("caf\xe9"),
                              std::string("\xff\xfe\x80"), std::string("\xed\xa0\x80"), std::string("\xf0\x9f\x93\x81 x")}) {
        EXPECT_EQ(toBytes(toQString(bytes)), bytes);
    }
    EXPECT_EQ(toQString("caf\xc3\xa9"), QStringLiteral("caf\u00e9"));
}
