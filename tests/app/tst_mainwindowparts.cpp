// The main window's rules that need no screen: the path of a shake and what closing does.
#include <QtTest>

#include <QTemporaryDir>

#include "closepolicy.h"
#include "configstore.h"
#include "shakepath.h"

class TestMainWindowParts : public QObject {
    Q_OBJECT
private slots:
    void shakeCirclesFadesAndComesBack();
    void closingQuitsOnlyWhenChosenAndAsksOnce();
};

void TestMainWindowParts::shakeCirclesFadesAndComesBack() {
    const QPoint origin(200, 150);
    for (int amplitude : {10, 1}) {
        ShakePath shake(20, amplitude);
        QCOMPARE(shake.remaining(), 20);
        QVERIFY(!shake.isRunning());
        shake.start(origin);
        QList<QPoint> offsets;
        while (shake.isRunning() && offsets.size() < 100) offsets << shake.next() - origin;
        // Twenty steps away, then one back home.
        QCOMPARE(offsets.size(), 21);
        QCOMPARE(offsets.last(), QPoint());
        QCOMPARE(shake.remaining(), 20);
        // Every step is off the spot (even the smallest swing moves), along one axis, never
        // wider than the one before; any four in a row go to the four sides.
        QCOMPARE(offsets.first().manhattanLength(), amplitude);
        QSet<QPair<int, int>> sides;
        for (int i = 0; i < 20; ++i) {
            const QPoint o = offsets.at(i);
            QVERIFY2(o.manhattanLength() >= 1, qPrintable(QString::number(i)));
            QVERIFY(o.x() == 0 || o.y() == 0);
            if (i > 0) QVERIFY(o.manhattanLength() <= offsets.at(i - 1).manhattanLength());
            if (i >= 3) {
                sides.clear();
                for (int j = i - 3; j <= i; ++j)
                    sides.insert(
                        {qBound(-1, offsets.at(j).x(), 1), qBound(-1, offsets.at(j).y(), 1)});
                QCOMPARE(sides.size(), 4);
            }
        }
    }
    // A second shake starts from wherever the window is then.
    ShakePath shake(4, 8);
    shake.start(origin);
    while (shake.isRunning()) shake.next();
    shake.start(QPoint(10, 10));
    QVERIFY(shake.next() != QPoint(10, 10));
    while (shake.isRunning()) shake.next();
    shake.start(QPoint(10, 10));
    QPoint last;
    while (shake.isRunning()) last = shake.next();
    QCOMPARE(last, QPoint(10, 10));
}

void TestMainWindowParts::closingQuitsOnlyWhenChosenAndAsksOnce() {
    QTemporaryDir dir;
    ConfigStore store(dir.path() + QStringLiteral("/Quelix"));
    store.init();
    ClosePolicy policy(store);
    int asked = 0;
    bool answer = false;
    policy.setQuestion([&] {
        ++asked;
        return answer;
    });

    // Not chosen: the client stays, in the tray when there is one to come back from.
    store.settings().setCloseQuit(false);
    QCOMPARE(policy.close(), ClosePolicy::Minimize);
    policy.setTrayAvailable(true);
    QCOMPARE(policy.close(), ClosePolicy::HideToTray);
    QCOMPARE(asked, 0);

    // Chosen: asked the first time; "no" keeps the client in the tray, saved.
    store.settings().setCloseQuit(true);
    QVERIFY(store.settings().save());
    QCOMPARE(policy.close(), ClosePolicy::HideToTray);
    QCOMPARE(asked, 1);
    quelix::settings_t saved;
    saved.setPath(store.filePath(ConfigStore::GlobalSettings));
    QVERIFY(saved.load());
    QVERIFY(!saved.closeQuit());

    // Chosen again later: never asked twice, even by a policy made after a restart.
    store.settings().setCloseQuit(true);
    QCOMPARE(policy.close(), ClosePolicy::Quit);
    ClosePolicy restarted(store);
    restarted.setQuestion([&] {
        ++asked;
        return false;
    });
    QCOMPARE(restarted.close(), ClosePolicy::Quit);
    QCOMPARE(asked, 1);

    // A first "yes" quits.
    QTemporaryDir other;
    ConfigStore fresh(other.path() + QStringLiteral("/Quelix"));
    fresh.init();
    fresh.settings().setCloseQuit(true);
    ClosePolicy first(fresh);
    answer = true;
    first.setQuestion([&] {
        ++asked;
        return answer;
    });
    QCOMPARE(first.close(), ClosePolicy::Quit);
    QCOMPARE(asked, 2);
    QVERIFY(fresh.settings().closeQuit());
}

QTEST_GUILESS_MAIN(TestMainWindowParts)
#include "tst_mainwindowparts.moc"
