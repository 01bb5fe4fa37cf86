// Text from colleagues is shown as text, end to end: a private Prosody, the reference back
// end with colleagues whose name, department and contact fields are markup, the client's
// own windows (offscreen) and SDK sessions for two colleagues. One of them names a project
// `<img src="FIFO">` with the user in it. A label that took that for markup would read the
// FIFO on the GUI thread and wait there for ever; every page the client has is shown and
// drawn, and no label, tool tip or item may read the text as markup.
#include <QtTest>

#include <QAbstractItemView>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QListWidget>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTextDocument>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../shell/faketraybackend.h"
#include "../support/clientrig.h"
#include "../support/quietshell.h"
#include "base/at_exit.h"
#include "conversationview.h"
#include "directorystore.h"
#include "mainwindow.h"
#include "openim/itribe.h"
#include "openimmanager.h"
#include "orgnizationview.h"
#include "personalinforcard.h"
#include "sdk/wide_text.h"
#include "sharechooser.h"
#include "shellservices.h"
#include "taskmsgitem.h"
#include "tribeconverview.h"
#include "tribememberview.h"
#include "tribetitleview.h"
#include "triggermanager.h"

using wide_text::fromQ;

namespace {

// Stands by the GUI thread. When the thread has not come back to its event loop for a
// while, something may be stuck opening the FIFO: opening the other end (never waiting)
// lets such a reader go, and is counted, so the test fails instead of hanging. Once it has
// had to, it keeps doing so at once.
class FifoWatchdog {
public:
    static constexpr qint64 kStuckMs = 10000;

    explicit FifoWatchdog(const QByteArray& path) : path_(path) {
        beat();
        thread_ = std::thread([this] { run(); });
    }
    ~FifoWatchdog() {
        stop_ = true;
        thread_.join();
    }
    void beat() { last_ = now(); }
    // How many times a reader was found waiting on the FIFO.
    int freed() const { return freed_; }

private:
    static qint64 now() {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
    void run() {
        while (!stop_) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (freed_ == 0 && now() - last_ < kStuckMs) continue;
            const int fd = ::open(path_.constData(), O_WRONLY | O_NONBLOCK);
            if (fd >= 0) {  // someone is reading it
                ++freed_;
                ::close(fd);
            }
        }
    }

    const QByteArray path_;
    std::atomic<qint64> last_{0};
    std::atomic<int> freed_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// A widget's class and its parents', innermost first.
QString ancestry(QWidget* w) {
    QStringList line;
    for (; w; w = w->parentWidget()) line << QString::fromLatin1(w->metaObject()->className());
    return line.join('<');
}

// Every index of a model, depth first.
void eachIndex(const QAbstractItemModel* model, const QModelIndex& parent,
               const std::function<void(const QModelIndex&)>& visit) {
    for (int r = 0; r < model->rowCount(parent); ++r) {
        const QModelIndex i = model->index(r, 0, parent);
        visit(i);
        eachIndex(model, i, visit);
    }
}

}  // namespace

class TestPlainText : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void everyPageShowsMarkupFromColleaguesAsText();

private:
    // The colleagues' fields, straight in the back end's database: names, departments and
    // contact fields are whatever the company's directory holds.
    bool makeColleaguesHostile(const QString& dataDir);
    // Draws every window that is up, then looks at what it shows.
    void lookAtEveryWindow();

    QTemporaryDir fifoDir_;
    QString fifo_;
    QString hostile_;
    std::unique_ptr<FifoWatchdog> watchdog_;
    QTimer heartbeat_;

    ClientRig rig_{QStringLiteral(QUELIX_BACKEND_BIN)};
    MainWindow* window_ = nullptr;
    ShellServices* shell_ = nullptr;
    FakeTrayBackend* tray_ = nullptr;
    DemoBackend* http_ = nullptr;
    QStringList userNames_;
    DemoPerson me_, owner_, third_;
    TestSession* ownerIm_ = nullptr;
    TestSession* thirdIm_ = nullptr;

    // What the walks found: labels showing the text (by class), tool tips and item tips
    // carrying it, and every way it was shown as markup.
    QSet<QString> labelsShowing_, tipsShowing_;
    QSet<QString> markup_;
};

bool TestPlainText::makeColleaguesHostile(const QString& dataDir) {
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "hostile");
        db.setDatabaseName(dataDir + "/backend/directory.db");
        ok = db.open();
        const auto run = [&](const QString& sql, const QVariantList& values) {
            QSqlQuery q(db);
            q.prepare(sql);
            for (const QVariant& v : values) q.addBindValue(v);
            if (!q.exec()) {
                qWarning() << sql << q.lastError().text();
                ok = false;
            }
        };
        // The project's owner: name, contact fields and department; the user's own name.
        run("UPDATE users SET real_name = ?, mobile = ?, email = ? WHERE user_name = ?",
            {hostile_, hostile_, hostile_, userNames_[1]});
        run("UPDATE dept SET org_name = ? WHERE id = (SELECT dept_id FROM users WHERE "
            "user_name = ?)",
            {hostile_, userNames_[1]});
        run("UPDATE users SET real_name = ? WHERE user_name = ?", {hostile_, userNames_[0]});
        db.close();
    }
    QSqlDatabase::removeDatabase("hostile");
    return ok;
}

void TestPlainText::initTestCase() {
    QVERIFY(fifoDir_.isValid());
    fifo_ = fifoDir_.filePath("picture");
    QCOMPARE(::mkfifo(QFile::encodeName(fifo_).constData(), 0600), 0);
    hostile_ = "<img src=\"" + fifo_ + "\">";
    watchdog_ = std::make_unique<FifoWatchdog>(QFile::encodeName(fifo_));
    heartbeat_.setInterval(200);
    connect(&heartbeat_, &QTimer::timeout, this, [this] { watchdog_->beat(); });
    heartbeat_.start();

    QVERIFY2(rig_.startServers(3), qPrintable(rig_.error()));
    http_ = &rig_.backend();
    userNames_ = rig_.company().userNames();
    // The back end keeps the directory's reply from its start: changed while it is down.
    http_->stop();
    QVERIFY(makeColleaguesHostile(rig_.company().dataDir()));
    QVERIFY2(rig_.company().startBackend(), qPrintable(rig_.error()));
    QVERIFY2(rig_.company().signInColleagues(), qPrintable(rig_.error()));
    me_ = rig_.person(0);
    owner_ = rig_.person(1);
    third_ = rig_.person(2);

    window_ = rig_.openClient();
    QVERIFY(window_);
    tray_ = new FakeTrayBackend;
    shell_ = attachQuietShell(window_, tray_);
    QVERIFY(rig_.signIn());
    QCOMPARE(DirectoryStore::instance().colleague(owner_.id)->displayName(), hostile_);

    ownerIm_ = rig_.addSession("owner", 1);
    thirdIm_ = rig_.addSession("third", 2);
    QVERIFY(rig_.sessionsSignedIn());
}

void TestPlainText::cleanupTestCase() {
    rig_.stop();
    heartbeat_.stop();
    watchdog_.reset();
}

void TestPlainText::lookAtEveryWindow() {
    for (QWidget* top : QApplication::topLevelWidgets()) {
        if (!top->isVisible()) continue;
        top->grab();  // laid out and drawn, as the user would see it
        QTest::qWait(50);
        QList<QWidget*> widgets = top->findChildren<QWidget*>();
        widgets.prepend(top);
        for (QWidget* w : widgets) {
            const QString where = QString::fromLatin1(w->metaObject()->className()) + " " +
                                  w->objectName() + " in " +
                                  QString::fromLatin1(top->metaObject()->className());
            if (auto* label = qobject_cast<QLabel*>(w)) {
                // The whole text, or the part of it that fits.
                if (label->text().contains("<img") && label->textFormat() != Qt::PlainText)
                    markup_ << "label guesses markup: " + where;
                if (label->text().contains(hostile_)) labelsShowing_ << ancestry(label);
            }
            const auto checkTip = [&](const QString& tip, const QString& what) {
                if (tip.contains("<img")) {
                    markup_ << what + " carries markup: " + where;
                } else if (tip.contains("&lt;img")) {
                    // Escaped inside markup of our own: shown as the very text.
                    QTextDocument shown;
                    shown.setHtml(tip);
                    if (!Qt::mightBeRichText(tip) || !shown.toPlainText().contains(hostile_))
                        markup_ << what + " does not show the text: " + where + ": " + tip;
                    tipsShowing_ << what + " of " + ancestry(w);
                }
            };
            checkTip(w->toolTip(), "tool tip");
            if (auto* view = qobject_cast<QAbstractItemView*>(w)) {
                if (!view->model()) continue;
                eachIndex(view->model(), QModelIndex(), [&](const QModelIndex& i) {
                    checkTip(i.data(Qt::ToolTipRole).toString(), "item tip");
                });
            }
        }
    }
}

void TestPlainText::everyPageShowsMarkupFromColleaguesAsText() {
    QSignalSpy messages(OpenIMManager::instance(), &OpenIMManager::chatMessage);

    // The project with the user in it: a tribe named by the colleague.
    const QString project = http_->startProject(owner_, hostile_, {me_.id, third_.id});
    QVERIFY(!project.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(DirectoryStore::instance().tribe(project) != nullptr, 20000);
    QCOMPARE(DirectoryStore::instance().tribe(project)->name, hostile_);
    const quint64 tribe = project.toULongLong();
    QVERIFY(waitUntil([&] { return ownerIm_->tribe(tribe)->IsInRoom(); }, 20000));

    // In it, a line of markup, and a task of the same title with a reply to match.
    ownerIm_->tribe(tribe)->SendText(fromQ(hostile_), openim::ITribe::SendCallback());
    const qint64 task = http_->postTaskForm(
        owner_, "/work/task.htm?m=create&projectId=" + project,
        {{"m", "create"}, {"projectId", project}, {"title", hostile_}, {"executorId", me_.id}});
    QVERIFY(task > 0);
    QCOMPARE(http_->postTaskForm(
                 third_, "/work/task.htm?m=view&taskId=" + QString::number(task),
                 {{"m", "reply"}, {"taskId", QString::number(task)}, {"text", hostile_}}),
             task);
    const auto arrived = [&](bool inTribe,
                             const std::function<bool(const BaseMsg::MMessage&)>& is) {
        for (const QList<QVariant>& args : qAsConst(messages)) {
            const BaseMsg::MMessage m = args.first().value<BaseMsg::MMessage>();
            if (m.isTribe == inTribe && is(m)) return true;
        }
        return false;
    };
    const auto aboutTheTask = [&](const BaseMsg::MMessage& m) {
        return m.contentJson.contains(QString::number(task));
    };
    QTRY_VERIFY_WITH_TIMEOUT(
        arrived(true, [&](const BaseMsg::MMessage& m) { return m.text == hostile_; }), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(arrived(true,
                                     [&](const BaseMsg::MMessage& m) {
                                         return aboutTheTask(m) &&
                                                m.contentJson.contains("\"reply\"");
                                     }),
                             20000);
    // The task assistant's own card, which the tray announces under the assistant's name.
    QTRY_VERIFY_WITH_TIMEOUT(arrived(false, aboutTheTask), 20000);

    // Then directly to the user: a line and a file card, both markup.
    ownerIm_->sendText(me_.id, hostile_);
    const QJsonObject file{
        {"msgType", 3}, {"id", "424242"}, {"fileName", hostile_}, {"fileSize", 2048}};
    ownerIm_->sendCustom(me_.id, QString::fromUtf8(QJsonDocument(file).toJson()), "[文件]");
    QTRY_VERIFY_WITH_TIMEOUT(arrived(false,
                                     [&](const BaseMsg::MMessage& m) {
                                         return m.senderId == owner_.id &&
                                                m.contentJson.contains("424242");
                                     }),
                             20000);
    const auto popupShows = [&] {
        for (QWidget* top : QApplication::topLevelWidgets())
            if (top->objectName() == "messageLabel" && top->isVisible())
                for (QLabel* l : top->findChildren<QLabel*>())
                    if (l->text() == hostile_) return true;
        return false;
    };
    QTRY_VERIFY_WITH_TIMEOUT(popupShows(), 10000);

    // The talk list, the tray's pop-up and its card of unread conversations.
    ConversationView* talk = window_->conversationView();
    window_->showPage(MainViewDelegate::ChatPage);
    QTRY_VERIFY_WITH_TIMEOUT(talk->rowOf(project) >= 0 && talk->rowOf(owner_.id) >= 0, 20000);
    emit tray_->hoveredSignal(QPoint(1000, 700));
    lookAtEveryWindow();

    // The tribe's conversation, with its task card, then the colleague's with the file card.
    talk->showConversation(project, 0);
    QTRY_VERIFY_WITH_TIMEOUT(window_->findChild<qx_output::TaskMsgItem*>(), 20000);
    lookAtEveryWindow();
    talk->showConversation(owner_.id, 0);
    QTest::qWait(500);
    lookAtEveryWindow();

    // The organisation page with the colleague's card.
    window_->showPage(MainViewDelegate::OrgPage);
    OrgnizationView* org = window_->orgView();
    org->showViewOfUser(owner_.id);
    lookAtEveryWindow();

    // The tribe page: its list, its title, its members and a member's card.
    window_->showPage(MainViewDelegate::TribePage);
    TribeConverView* tribes = window_->tribeView();
    QTRY_VERIFY_WITH_TIMEOUT(tribes->rowOf(project) >= 0, 20000);
    tribes->tribeList()->setCurrentRow(tribes->rowOf(project));
    QTRY_VERIFY_WITH_TIMEOUT(tribes->memberView()->memberCount() == 3, 20000);
    emit tribes->memberView()->showPersonalInfoCard(owner_.id);
    lookAtEveryWindow();

    // The settings page, and the dialog that shares a colleague's card.
    window_->showPage(MainViewDelegate::SettingPage);
    lookAtEveryWindow();
    ShareChooser chooser(hostile_, {{project, hostile_}, {owner_.id, hostile_}}, window_);
    chooser.show();
    lookAtEveryWindow();
    chooser.close();

    // Nobody read the picture: no reader was ever waiting, and none has it open now.
    const int freed = watchdog_->freed();
    errno = 0;
    const int fd = ::open(QFile::encodeName(fifo_).constData(), O_WRONLY | O_NONBLOCK);
    const int error = errno;
    if (fd >= 0) ::close(fd);
    QVERIFY2(freed == 0,
             qPrintable(QStringLiteral("the GUI thread waited on the FIFO %1 times").arg(freed)));
    QCOMPARE(fd, -1);
    QCOMPARE(error, ENXIO);

    // The text was on the pages, always as text.
    QStringList found = markup_.values();
    found.sort();
    QVERIFY2(found.isEmpty(), qPrintable(found.join('\n')));
    const QString labels = QStringList(labelsShowing_.values()).join('\n');
    for (const char* shown :
         {"ChatListItemWidget", "FunctionListView", "MessageLabel", "UnreadMsgsCard",
          "TribeConverView", "TribeTitleView", "MemberIconAndNameWidget", "PersonalInforCard",
          "TaskMsgItem", "ShareChooser"})
        QVERIFY2(labels.contains(QLatin1String(shown)),
                 qPrintable(QString(shown) + " not among\n" + labels));
    const QString tips = QStringList(tipsShowing_.values()).join('\n');
    for (const char* shown : {"item tip of AllMemberTree", "item tip of QListWidget<",
                              "tool tip of QLabel<qx_output::FileMsgItem",
                              "tool tip of QLabel<QWidget<qx_output::TaskMsgItem"})
        QVERIFY2(tips.contains(QLatin1String(shown)),
                 qPrintable(QString(shown) + " not among\n" + tips));
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestPlainText test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_plaintext.moc"
