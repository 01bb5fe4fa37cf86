// The tray's alerts, its card and menu, the settings page kept in step with the menu, and
// what closing the main window does.
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QtTest>

#include "autostart.h"
#include "chatlistitemwidget.h"
#include "configstore.h"
#include "conversationcontentinputedit.h"
#include "faketraybackend.h"
#include "listwidget.h"
#include "mainwindow.h"
#include "messagelabel.h"
#include "prompts.h"
#include "resources.h"
#include "screenmetrics.h"
#include "settingdialog.h"
#include "settingutility.h"
#include "shellservices.h"
#include "shellstate.h"
#include "systemtrayicon.h"
#include "textitemedit.h"
#include "textmsgitem.h"
#include "traymenu.h"
#include "uifont.h"
#include "unreadmsgscard.h"
#include "view.h"

class TestTray : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void blinkingFollowsUnreadConversations();
    void soundAndShiningCombinations();
    void cardFollowsThePointer();
    void cardClickAndIconClickOpenTheConversation();
    void togglesStayInStepBothWays();
    void downloadFolderShownIsTheOneUsed();
    void fontSizeReachesTheTextAndTheSystemsComesBack();
    void delegateAlertsReachTheTray();
    void closeFollowsCloseQuit();

private:
    struct Rig {
        SystemTrayIcon* tray;
        FakeTrayBackend* backend;
        int sounds = 0;
        SystemTrayIcon::Alerts alerts{true, true, true};
    };
    void rig(Rig& r);
};

void TestTray::initTestCase() {
    quelixInitResources();
    ScreenMetrics::instance().init(QGuiApplication::primaryScreen());
    ConfigStore::instance().init();
    ConfigStore::instance().setUser(11, 22);
}

void TestTray::rig(Rig& r) {
    r.backend = new FakeTrayBackend;
    r.tray = new SystemTrayIcon(r.backend, this);
    r.tray->setAlertSource([&r] { return r.alerts; });
    r.tray->setSoundPlayer([&r] { ++r.sounds; });
    r.tray->setOnline(true);
}

void TestTray::blinkingFollowsUnreadConversations() {
    Rig r;
    rig(r);
    SystemTrayIcon* tray = r.tray;
    QVERIFY(!tray->isBlinking());
    tray->newMessage("7", "Li Lei", "hello", QString(), 1);
    QVERIFY(tray->isBlinking());
    QCOMPARE(tray->blinkInterval(), 400);
    tray->iconChanged();
    QCOMPARE(tray->appliedPicture(), 1);
    tray->iconChanged();
    QCOMPARE(tray->appliedPicture(), 0);

    // A second conversation; reading the first keeps the blinking for the second.
    tray->newMessage("8", "Han Meimei", "hi", QString(), 2);
    QCOMPARE(tray->card()->conversationCount(), 2);
    tray->unreadChanged(2, [](const QString& id) { return id == "8" ? 2 : 0; });
    QCOMPARE(tray->card()->conversationCount(), 1);
    tray->iconChanged();
    QVERIFY(tray->isBlinking());

    // The last one read: the next tick stops and leaves the normal picture.
    tray->iconChanged();  // leaves phase 1 if it was there
    tray->unreadChanged(0, {});
    QCOMPARE(tray->card()->conversationCount(), 0);
    tray->iconChanged();
    QVERIFY(!tray->isBlinking());
    QCOMPARE(tray->appliedPicture(), 0);
    QCOMPARE(tray->blinkPhase(), 0);

    // The real timer runs on its own and stops by itself.
    tray->newMessage("7", "Li Lei", "again", QString(), 1);
    const int before = r.backend->iconSets;
    QTRY_VERIFY_WITH_TIMEOUT(r.backend->iconSets >= before + 2, 2000);
    tray->unreadChanged(0, {});
    QTRY_VERIFY_WITH_TIMEOUT(!tray->isBlinking(), 2000);
    delete tray;
}

void TestTray::soundAndShiningCombinations() {
    const struct {
        bool sound, shining, popup;
    } cases[] = {
        {true, true, true}, {false, true, true}, {true, false, false}, {false, false, true}};
    for (const auto& c : cases) {
        Rig r;
        rig(r);
        r.alerts = {c.popup, c.shining, c.sound};
        r.tray->newMessage("7", "Li Lei", "hello", QString(), 1);
        const QByteArray what = QByteArray("sound ") + (c.sound ? "on" : "off") + ", shining " +
                                (c.shining ? "on" : "off");
        QVERIFY2(r.sounds == (c.sound ? 1 : 0), what);
        QVERIFY2(r.tray->isBlinking() == c.shining, what);
        QVERIFY2(r.tray->popup()->isVisible() == c.popup, what);
        // Whatever the alerts, the card knows who wrote.
        QCOMPARE(r.tray->card()->conversationCount(), 1);
        QCOMPARE(r.tray->card()->entries().first().summary, QString("hello"));
        // A later count with no text keeps the summary shown before.
        r.tray->newMessage("7", "Li Lei", QString(), QString(), 2);
        QCOMPARE(r.tray->card()->entries().first().summary, QString("hello"));
        QCOMPARE(r.tray->card()->totalCount(), 2);
        QCOMPARE(r.sounds, c.sound ? 2 : 0);
        delete r.tray;
    }
}

void TestTray::cardFollowsThePointer() {
    Rig r;
    rig(r);
    UnreadMsgsCard* card = r.tray->card();
    QPoint pointer = r.backend->area.center();
    card->setPointerSource([&pointer] { return pointer; });

    // Hovering an idle icon shows nothing.
    emit r.backend->hoveredSignal(pointer);
    QVERIFY(!card->isVisible());

    r.tray->newMessage("7", "Li Lei", "hello", QString(), 1);
    emit r.backend->hoveredSignal(pointer);
    QVERIFY(card->isVisible());
    QVERIFY(card->isWatchingPointer());

    // From the icon onto the card: still open, and still watching.
    pointer = card->frameGeometry().center();
    card->leaveTrayIconSlot();
    QVERIFY(card->isVisible());
    QVERIFY(card->isWatchingPointer());
    // Off both: the next check hides it (by the real 200 ms timer).
    pointer = QPoint(5, 5);
    QTRY_VERIFY_WITH_TIMEOUT(!card->isVisible(), 1000);
    QVERIFY(!card->isWatchingPointer());
    delete r.tray;
}

void TestTray::cardClickAndIconClickOpenTheConversation() {
    Rig r;
    rig(r);
    QSignalSpy open(r.tray, &SystemTrayIcon::openConversationRequested);
    QSignalSpy show(r.tray, &SystemTrayIcon::showWindowRequested);
    emit r.backend->leftClickedSignal();
    QCOMPARE(show.count(), 1);
    r.tray->newMessage("7", "Li Lei", "hello", QString(), 1);
    r.tray->newMessage("8", "Han Meimei", "hi", QString(), 1);
    emit r.backend->leftClickedSignal();
    QCOMPARE(open.count(), 1);
    QCOMPARE(open.last().first().toString(), QString("8"));  // the newest
    emit r.tray->card()->unreadItemClicked("7", "Li Lei");
    QCOMPARE(open.last().first().toString(), QString("7"));
    emit r.tray->popup()->msgTipClicked("8");
    QCOMPARE(open.count(), 3);

    // Where the tray cannot tell hovering, the first click shows the card instead.
    r.backend->hover = false;
    r.tray->card()->hide();
    emit r.backend->leftClickedSignal();
    QVERIFY(r.tray->card()->isVisible());
    QCOMPARE(open.count(), 3);
    delete r.tray;
}

void TestTray::togglesStayInStepBothWays() {
    ConfigStore& store = ConfigStore::instance();
    store.userConfig() = quelix::userconfig_t();
    store.userConfig().setPath(store.filePath(ConfigStore::UserSettings));
    MainWindow window(store);
    MainViewDelegate::setInstance(&window);
    auto* backend = new FakeTrayBackend;
    ShellServices shell(&window, store, backend);
    window.loginSuccess("7");
    SettingDialog* settings = shell.settings();
    QVERIFY(settings);
    QCOMPARE(window.pages()->widget(MainViewDelegate::SettingPage), settings);
    TrayMenu* menu = shell.tray()->menu();
    QVERIFY(menu->toggleAction(TrayMenu::SoundToggle)->isEnabled());
    QVERIFY(menu->isAlertEnabled(TrayMenu::SoundToggle));

    // Settings side to the menu, through the delegate's tray-toggle operation.
    settings->utility()->sounding->setChecked(false);
    QVERIFY(!menu->isAlertEnabled(TrayMenu::SoundToggle));
    QVERIFY(!store.userConfig().sound);
    settings->utility()->shining->click();
    QVERIFY(!menu->isAlertEnabled(TrayMenu::ShiningToggle));

    // Menu side to the settings page; stored at once in the user's file.
    menu->toggleAction(TrayMenu::PopupToggle)->trigger();
    QVERIFY(!settings->utility()->popup->isChecked());
    menu->toggleAction(TrayMenu::SoundToggle)->trigger();
    QVERIFY(settings->utility()->sounding->isChecked());
    quelix::userconfig_t saved;
    saved.setPath(store.filePath(ConfigStore::UserSettings));
    QVERIFY(saved.load());
    QVERIFY(!saved.popup);
    QVERIFY(!saved.trayShining);
    QVERIFY(saved.sound);

    // The other handlers store at once too.
    settings->OnClickedDispose(true);
    settings->OnClickedReply(false);
    QVERIFY(saved.load());
    QVERIFY(saved.dispose);
    QVERIFY(!saved.reply);

    // Auto sign-in needs a remembered password; without one it is refused, with one kept.
    QStringList told;
    settings->setNotifier([&told](const QString& t) { told << t; });
    store.loginList().logins = {{"lilei", QString()}};
    settings->utility()->autoLogin->setChecked(true);
    QVERIFY(!settings->utility()->autoLogin->isChecked());
    QCOMPARE(told.size(), 1);
    store.loginList().logins = {{"lilei", "sealed"}};
    settings->utility()->autoLogin->setChecked(true);
    QCOMPARE(store.loginList().autoLogin, QString("lilei"));

    // Starting with the system writes the desktop's autostart entry, and removes it.
    settings->setProgram("/opt/quelix dir/Quelix");
    settings->utility()->startWithSystem->setChecked(true);
    QFile entry(AutoStart::entryPath());
    QVERIFY(entry.open(QIODevice::ReadOnly));
    QVERIFY(entry.readAll().contains("Exec=\"/opt/quelix dir/Quelix\" autostart"));
    entry.close();
    settings->utility()->startWithSystem->setChecked(false);
    QVERIFY(!QFileInfo::exists(AutoStart::entryPath()));

    // The font size applies at once, is kept beside the close question's answer, and a
    // value nobody offered is ignored.
    ShellState::setValue(store, "CloseAsked", "true");
    settings->utility()->fontSize->setCurrentIndex(settings->utility()->fontSize->findData(16));
    QCOMPARE(QApplication::font().pixelSize(), 16);
    QCOMPARE(ShellState::fontSize(store), 16);
    QCOMPARE(ShellState::value(store, "CloseAsked"), QString("true"));
    ShellState::setValue(store, "FontSize", "300");
    QCOMPARE(ShellState::fontSize(store), 0);
    settings->utility()->fontSize->setCurrentIndex(0);
    MainViewDelegate::setInstance(nullptr);
}

// Received files, the settings page and the save dialogs name one download folder.
void TestTray::downloadFolderShownIsTheOneUsed() {
    using qx_output::Prompts;
    ConfigStore& store = ConfigStore::instance();
    MainWindow window(store);
    ShellServices shell(&window, store, new FakeTrayBackend);
    window.loginSuccess("7");
    SettingDialog* settings = shell.settings();
    QLabel* shown = settings->utility()->downloadDir;
    const QString first = store.folderPath(ConfigStore::Download);
    QCOMPARE(QFileInfo(first).fileName(), QString("Download"));
    QCOMPARE(shown->text(), QDir::toNativeSeparators(first));
    Prompts::forgetFolders();
    QCOMPARE(Prompts::saveFolder(), first);
    QVERIFY(QFileInfo(Prompts::openFolder()).isDir());
    QVERIFY(Prompts::openFolder() != QDir::currentPath());

    // Changed on the settings page: shown, used, kept for the next start.
    QTemporaryDir tmp;
    const QString chosen = tmp.filePath("收到的文件");
    settings->setFolderChooser(
        [&](const QString& current) { return current == first ? chosen : QString(); });
    QSignalSpy changed(settings, &SettingDialog::downloadDirChanged);
    settings->utility()->browse->click();
    QCOMPARE(changed.count(), 1);
    QCOMPARE(store.folderPath(ConfigStore::Download), chosen);
    QCOMPARE(shown->text(), QDir::toNativeSeparators(chosen));
    QVERIFY(QFileInfo(chosen).isDir());
    quelix::settings_t saved;
    saved.setPath(store.filePath(ConfigStore::GlobalSettings));
    QVERIFY(saved.load());
    QCOMPARE(saved.downloadDir(), chosen);

    // A save proposes the name there until the user saves elsewhere; an open starts where
    // the last file was chosen.
    QString proposed;
    Prompts::setSaveName([&](QWidget*, const QString& p, const QString&) {
        proposed = p;
        return tmp.filePath("x.png");
    });
    Prompts::saveName(nullptr, "20240102030405", QString());
    QCOMPARE(proposed, chosen + "/20240102030405");
    Prompts::saveName(nullptr, "again", QString());
    QCOMPARE(proposed, tmp.path() + "/again");
    Prompts::setSaveName({});
    QString startedIn;
    Prompts::setOpenName([&](QWidget*, const QString&, const QString& folder, const QString&) {
        startedIn = folder;
        return chosen + "/a.txt";
    });
    Prompts::openName(nullptr, QString(), QString());
    QCOMPARE(startedIn, QDir::homePath());
    Prompts::openName(nullptr, QString(), QString());
    QCOMPARE(startedIn, chosen);
    Prompts::setOpenName({});
    Prompts::forgetFolders();

    store.settings().setDownloadDir(QString());
    QVERIFY(store.settings().save());
}

// The size chosen on the settings page reaches a message row's text, a talk-list row's name,
// the input, the tray's pop-up and a card; "跟随系统" puts every one back as it was.
void TestTray::fontSizeReachesTheTextAndTheSystemsComesBack() {
    ConfigStore& store = ConfigStore::instance();
    MainWindow window(store);
    ShellServices shell(&window, store, new FakeTrayBackend);
    window.loginSuccess("7");
    QComboBox* size = shell.settings()->utility()->fontSize;
    size->setCurrentIndex(0);

    qx_output::View output("102", false);
    output.resize(600, 400);
    output.show();
    BaseMsg::MMessage m;
    m.msgId = 1;
    m.time = 1700000000;
    m.kind = BaseMsg::Text;
    m.text = QStringLiteral("一段足够长的消息文字，好让它在窄的窗口里也占上几行。@李娜");
    m.senderId = QStringLiteral("102");
    output.addMessage(m);
    const auto messageRow = [&output]() -> qx_output::TextMsgItem* {
        qx_output::ListWidget* list = output.listWidget();
        return qobject_cast<qx_output::TextMsgItem*>(
            list->itemWidget(list->item(list->count() - 1)));
    };
    QTRY_VERIFY(messageRow());
    ChatListItemWidget talk("102", QStringLiteral("李娜"));
    talk.show();
    QLabel* name = nullptr;
    for (QLabel* l : talk.findChildren<QLabel*>())
        if (l->text() == QStringLiteral("李娜")) name = l;
    QVERIFY(name);
    ConversationContentInputEdit input;
    input.show();
    // The tray's pop-up and a file card: texts with sizes of their own, in boxes of their own.
    MessageLabel popup;
    popup.showMessage(QStringLiteral("102"), QStringLiteral("李娜"), QStringLiteral("你好"),
                      QString());
    const auto findPopupName = [&popup]() -> QLabel* {
        for (QLabel* l : popup.findChildren<QLabel*>())
            if (l->text() == QStringLiteral("李娜")) return l;
        return nullptr;
    };
    QTRY_VERIFY(findPopupName());
    QLabel* popupName = findPopupName();
    BaseMsg::MMessage file = m;
    file.msgId = 2;
    file.kind = BaseMsg::MediaFile;
    file.mediaPath = QStringLiteral("/tmp/报告.pdf");
    output.addMessage(file);
    file.msgId = 3;
    file.kind = BaseMsg::Text;
    output.addMessage(file);  // the text row stays the last one

    struct Sizes {
        QFont text;
        int rowHeight;
        QFont name;
        QFont input;
        int popupText;
        int popupHeight;
        int fileRowHeight;
    };
    const auto now = [&] {
        QApplication::processEvents();
        qx_output::ListWidget* list = output.listWidget();
        return Sizes{messageRow()->edit()->document()->defaultFont(),
                     list->entryAt(list->count() - 1)->sizeHint().height(),
                     name->font(),
                     input.font(),
                     QFontInfo(popupName->font()).pixelSize(),
                     popup.height(),
                     list->entryAt(list->count() - 2)->sizeHint().height()};
    };
    QTRY_VERIFY(messageRow() && now().rowHeight > 0);
    const Sizes system = now();

    size->setCurrentIndex(size->findData(18));
    QTRY_VERIFY(messageRow());
    const Sizes large = now();
    QVERIFY(QFontInfo(large.text).pixelSize() > QFontInfo(system.text).pixelSize());
    QVERIFY(large.rowHeight > system.rowHeight);
    QVERIFY(QFontInfo(large.name).pixelSize() > QFontInfo(system.name).pixelSize());
    QCOMPARE(QFontInfo(large.input).pixelSize(), 18);
    QCOMPARE(large.popupText, 18);
    QVERIFY(large.popupHeight > system.popupHeight);
    QVERIFY(large.fileRowHeight > system.fileRowHeight);

    size->setCurrentIndex(size->findData(0));
    QTRY_VERIFY(messageRow());
    const Sizes back = now();
    QCOMPARE(back.text, system.text);
    QCOMPARE(back.rowHeight, system.rowHeight);
    QCOMPARE(back.name, system.name);
    QCOMPARE(back.input, system.input);
    QCOMPARE(back.popupText, system.popupText);
    QCOMPARE(back.popupHeight, system.popupHeight);
    QCOMPARE(back.fileRowHeight, system.fileRowHeight);
    QCOMPARE(QApplication::font(), UiFont::systemFont());
}

// The path a live message takes: the IM core's record and text, then the talk list's unread
// report, through the main window's delegate to the tray.
void TestTray::delegateAlertsReachTheTray() {
    ConfigStore& store = ConfigStore::instance();
    MainWindow window(store);
    MainViewDelegate::setInstance(&window);
    ShellServices shell(&window, store, new FakeTrayBackend);
    int sounds = 0;
    shell.tray()->setSoundPlayer([&sounds] { ++sounds; });
    shell.tray()->setAlertSource([] { return SystemTrayIcon::Alerts{true, true, true}; });
    MainViewDelegate* d = &window;
    ConversationRecord record;
    record.id = "8";
    record.name = "Han Meimei";
    window.talkListUpdateSignal(record, "are you there?");
    d->newMessageAlert("8", "Han Meimei", 1);
    QCOMPARE(sounds, 1);
    QVERIFY(shell.tray()->isBlinking());
    QCOMPARE(shell.tray()->card()->entries().first().summary, QString("are you there?"));
    QCOMPARE(shell.tray()->popup()->conversationId(), QString("8"));
    // Read in the talk list: the card empties and the blinking stops on the next tick.
    d->totalUnread(0);
    shell.tray()->iconChanged();
    QVERIFY(!shell.tray()->isBlinking());
    MainViewDelegate::setInstance(nullptr);
}

void TestTray::closeFollowsCloseQuit() {
    ConfigStore& store = ConfigStore::instance();
    QFile::remove(MainWindow::shellStateFile(store));
    MainWindow window(store);
    window.setTrayAvailable(true);
    int asked = 0;
    bool answer = false;
    window.setCloseQuestion([&] {
        ++asked;
        return answer;
    });
    QSignalSpy quit(qApp, &QCoreApplication::aboutToQuit);

    // CloseQuit false: to the tray, the client keeps running.
    store.settings().setCloseQuit(false);
    window.show();
    QVERIFY(!window.close());
    QVERIFY(!window.isVisible());
    QCOMPARE(asked, 0);

    // CloseQuit true: asked once; "no" keeps it in the tray and is remembered.
    store.settings().setCloseQuit(true);
    window.show();
    QVERIFY(!window.close());
    QCOMPARE(asked, 1);
    QVERIFY(!store.settings().closeQuit());
    quelix::settings_t saved;
    saved.setPath(store.filePath(ConfigStore::GlobalSettings));
    QVERIFY(saved.load());
    QVERIFY(!saved.closeQuit());

    // Chosen again in the settings: no second question, closing quits.
    store.settings().setCloseQuit(true);
    window.show();
    QVERIFY(window.close());
    QCOMPARE(asked, 1);
    QVERIFY(!window.isVisible());
}

QTEST_MAIN(TestTray)
#include "tst_tray.moc"
