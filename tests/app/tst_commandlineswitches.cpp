#include <QtTest>

#include "commandlineswitches.h"

class TestCommandLineSwitches : public QObject {
    Q_OBJECT
private slots:
    void parse_data();
    void parse();
    void parseRawArgv();
};

void TestCommandLineSwitches::parse_data() {
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("autoLogin");
    QTest::addColumn<bool>("kicked");

    QTest::newRow("no arguments") << QStringList{"Quelix"} << true << false;
    // The first argument is never taken as a switch, even a valid one.
    QTest::newRow("one argument only") << QStringList{"Quelix", "-Kicked"} << true << false;
    QTest::newRow("one argument, no auto login")
        << QStringList{"Quelix", "-NotAutoLogin-Log"} << true << false;
    QTest::newRow("kicked at index 2")
        << QStringList{"Quelix", "loader", "-Kicked"} << true << true;
    QTest::newRow("any letter case")
        << QStringList{"Quelix", "x", "-notautologin-LOG", "-KICKED"} << false << true;
    QTest::newRow("half of the joined switch")
        << QStringList{"Quelix", "x", "-NotAutoLogin"} << true << false;
    QTest::newRow("joined switch with a separator")
        << QStringList{"Quelix", "x", "-NotAutoLogin", "-Log"} << true << false;
    QTest::newRow("console is silent") << QStringList{"Quelix", "x", "-Console"} << true << false;
    // An unknown argument reaches the empty slot; the walk must go on to the next one.
    QTest::newRow("unknown then known")
        << QStringList{"Quelix", "x", "-Verbose", "", "-Kicked", "-NotAutoLogin-Log"} << false
        << true;
    QTest::newRow("table entry 0 is no switch")
        << QStringList{"Quelix", "x", "None"} << true << false;
}

void TestCommandLineSwitches::parse() {
    QFETCH(QStringList, args);
    QFETCH(bool, autoLogin);
    QFETCH(bool, kicked);
    const CommandLineSwitches::Flags flags = CommandLineSwitches::parse(args);
    QCOMPARE(flags.autoLogin, autoLogin);
    QCOMPARE(flags.kicked, kicked);
}

void TestCommandLineSwitches::parseRawArgv() {
    const char* argv[] = {"Quelix", "-Kicked", "-kicked", "-NOTAUTOLOGIN-log"};
    const CommandLineSwitches::Flags flags = CommandLineSwitches::parse(4, argv);
    QVERIFY(flags.kicked);
    QVERIFY(!flags.autoLogin);
}

QTEST_APPLESS_MAIN(TestCommandLineSwitches)
#include "tst_commandlineswitches.moc"
