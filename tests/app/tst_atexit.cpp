#include <QtTest>

#include "base/at_exit.h"

// Start-up relies on the exit manager to tear the SDK down in a known order.
class TestAtExit : public QObject {
    Q_OBJECT
private slots:
    void runsNewestFirstAndShadows();
};

namespace {
void appendTag(void* param) { static_cast<QStringList*>(param)->append(QStringLiteral("param")); }
}  // namespace

void TestAtExit::runsNewestFirstAndShadows() {
    QStringList order;
    QVERIFY(!base::AtExitManager::RegisterTask([&] { order << "orphan"; }));
    {
        base::AtExitManager outer;
        base::AtExitManager::RegisterTask([&] { order << "outer"; });
        {
            base::AtExitManager inner;
            base::AtExitManager::RegisterTask([&] { order << "inner 1"; });
            base::AtExitManager::RegisterCallback(appendTag, &order);
            // A callback that registers another one while the manager is running.
            base::AtExitManager::RegisterTask([&] {
                order << "inner 2";
                base::AtExitManager::RegisterTask([&] { order << "late"; });
            });
        }
        QCOMPARE(order, QStringList({"inner 2", "late", "param", "inner 1"}));
        order.clear();
    }
    QCOMPARE(order, QStringList({"outer"}));
    QVERIFY(!base::AtExitManager::RegisterTask([] {}));
}

QTEST_APPLESS_MAIN(TestAtExit)
#include "tst_atexit.moc"
