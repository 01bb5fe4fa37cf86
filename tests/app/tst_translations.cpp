// The Chinese catalogues compiled into the program: the standard dialogs Qt builds (message
// boxes, file dialogs) and our widgets come out in Chinese.
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QtTest>

#include "resources.h"
#include "translations.h"

class TestTranslations : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void standardDialogsSpeakChinese();
    void ourWidgetsSpeakChinese();
};

namespace {
bool hasChinese(const QString& text) {
    for (const QChar c : text)
        if (c.unicode() >= 0x4E00 && c.unicode() <= 0x9FFF) return true;
    return false;
}
}  // namespace

void TestTranslations::initTestCase() { quelixInitResources(); }

void TestTranslations::standardDialogsSpeakChinese() {
    const Translations translations(qApp);
    QVERIFY(translations.qtLoaded());

    QMessageBox box(QMessageBox::Question, QStringLiteral("提示"), QStringLiteral("？"),
                    QMessageBox::Yes | QMessageBox::No | QMessageBox::Ok | QMessageBox::Cancel);
    QVERIFY(box.button(QMessageBox::Yes)->text().startsWith(QStringLiteral("是")));
    QVERIFY(box.button(QMessageBox::No)->text().startsWith(QStringLiteral("否")));
    QVERIFY(box.button(QMessageBox::Ok)->text().startsWith(QStringLiteral("确定")));
    QVERIFY(box.button(QMessageBox::Cancel)->text().startsWith(QStringLiteral("取消")));

    // Qt's own file dialog (the one used where the desktop offers none): its buttons and
    // labels.
    QFileDialog dialog(nullptr, QStringLiteral("打开文件"), QDir::tempPath());
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    const QDialogButtonBox* buttons = dialog.findChild<QDialogButtonBox*>();
    QVERIFY(buttons);
    QVERIFY(buttons->button(QDialogButtonBox::Cancel));
    QVERIFY(buttons->button(QDialogButtonBox::Cancel)->text().startsWith(QStringLiteral("取消")));
    int labels = 0;
    for (const QLabel* label : dialog.findChildren<QLabel*>()) {
        if (label->text().isEmpty()) continue;
        QVERIFY2(hasChinese(label->text()), qPrintable(label->text()));
        ++labels;
    }
    QVERIFY(labels >= 2);  // where to look, the file's name, its type
}

void TestTranslations::ourWidgetsSpeakChinese() {
    const Translations translations(qApp);
    QCOMPARE(QCoreApplication::translate("FunctionListView", "Not signed in"),
             QStringLiteral("未登录"));
    QCOMPARE(QCoreApplication::translate("WinStyleButtons", "Close"), QStringLiteral("关闭"));
    QCOMPARE(QCoreApplication::translate("WindowChrome", "Organization"),
             QStringLiteral("组织架构"));
    QCOMPARE(QCoreApplication::translate("MainWindow", "Exit"), QStringLiteral("退出"));
}

QTEST_MAIN(TestTranslations)
#include "tst_translations.moc"
