#include <QtTest>

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <signal.h>

#include "configstore.h"

// A save interrupted by the process dying must leave the previous file whole.
class TestAtomicSave : public QObject {
    Q_OBJECT
private slots:
    void killedMidSaveLeavesAWholeFile();
};

void TestAtomicSave::killedMidSaveLeavesAWholeFile() {
    QTemporaryDir tmp;
    const QString base = tmp.path() + QStringLiteral("/Quelix");
    const int entries = 20000;
    for (int round = 0; round < 12; ++round) {
        QProcess child;
        child.start(QStringLiteral(SAVE_CHILD_PATH), {base, QString::number(entries)});
        QVERIFY(child.waitForStarted());
        // Once one save is through, kill at a random moment of the following ones.
        QVERIFY(child.waitForReadyRead(20000));
        QTest::qWait(int(QRandomGenerator::global()->bounded(1, 60)));
        ::kill(pid_t(child.processId()), SIGKILL);
        QVERIFY(child.waitForFinished(10000));

        ConfigStore store(base);
        store.setUser(1, 2);
        QVERIFY2(store.talkList().entries.size() == entries, "the talk list is not whole");
        const auto& list = store.talkList().entries;
        const quint64 saved = list.first().time;
        for (int i = 0; i < entries; i += 997) {
            QCOMPARE(list.at(i).time, saved);  // one save's content, not a mix of two
            QCOMPARE(list.at(i).text, QStringLiteral("version %1 entry %2").arg(saved).arg(i));
        }
    }
}

QTEST_GUILESS_MAIN(TestAtomicSave)
#include "tst_atomicsave.moc"
