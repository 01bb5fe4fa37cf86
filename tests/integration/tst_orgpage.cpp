// The organisation and tribe pages end to end: a private Prosody sharing colleagues'
// presence, the reference back end with its demo company, the client's window (offscreen)
// for one colleague and SDK sessions for two others.
#include <QtTest>

#include <QCheckBox>
#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include "../support/clientrig.h"
#include "allmembertree.h"
#include "avatarmanager.h"
#include "base/at_exit.h"
#include "base/bind.h"
#include "chatlistitemwidget.h"
#include "clientsession.h"
#include "configstore.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "loginview.h"
#include "mainwindow.h"
#include "openim/itribe.h"
#include "openim/itribe_service.h"
#include "openim/service_guids.h"
#include "openimmanager.h"
#include "orgnizationview.h"
#include "orgtreemodel.h"
#include "personalcarditem.h"
#include "personalinforcard.h"
#include "sdk/wide_text.h"
#include "tribeconverview.h"
#include "tribemanager.h"
#include "tribememberview.h"
#include "tribetitleview.h"

using wide_text::fromQ;
using wide_text::toQ;

namespace {}  // namespace

class TestOrgPage : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void colleaguesPresenceReachesTreeAndTalkList();
    void tribePageListsProjectsAndMembersFromTheBackEnd();
    void sharedCardReachesTheColleague();

private:
    ClientRig rig_{QStringLiteral(QUELIX_BACKEND_BIN)};
    MainWindow* window_ = nullptr;
    DemoBackend* http_ = nullptr;
    DemoPerson me_, owner_, third_;
    TestSession* ownerIm_ = nullptr;
    TestSession* thirdIm_ = nullptr;
};

void TestOrgPage::initTestCase() {
    QVERIFY2(rig_.start(3), qPrintable(rig_.error()));
    http_ = &rig_.backend();
    me_ = rig_.person(0);
    owner_ = rig_.person(1);
    third_ = rig_.person(2);

    window_ = rig_.openClient();
    QVERIFY(window_);
    // A short heartbeat: presence is read with it (from the sign-in on).
    ConfigStore::instance().settings().setCheckStateMs(1000);
    QVERIFY(rig_.signIn());

    ownerIm_ = rig_.addSession("owner", 1);
    thirdIm_ = rig_.addSession("third", 2);
    QVERIFY(rig_.sessionsSignedIn());
}

void TestOrgPage::cleanupTestCase() { rig_.stop(); }

void TestOrgPage::colleaguesPresenceReachesTreeAndTalkList() {
    OrgnizationView* org = window_->orgView();
    QVERIFY(org);
    OrgTreeModel* model = org->tree()->orgModel();
    // The demo company is in the tree, and every colleague is somewhere in it.
    QVERIFY(model->rowCount() > 0);
    QVERIFY(model->indexOfColleague(owner_.id).isValid());
    QVERIFY(model->indexOfColleague(third_.id).isValid());

    // The others signed in before the checks: the server shares their presence.
    ConversationView* talk = window_->conversationView();
    talk->showConversation(third_.id, 0);
    const auto online = [model](const QString& id) {
        return model->indexOfColleague(id).data(OrgTreeModel::OnlineRole).toBool();
    };
    QTRY_VERIFY_WITH_TIMEOUT(online(owner_.id) && online(third_.id), 20000);
    QVERIFY(DirectoryStore::instance().isOnline(third_.id));

    // One goes: the tree, the card and the talk list's picture follow.
    org->showViewOfUser(third_.id);
    QCOMPARE(org->card()->stateLabel()->text(), QStringLiteral("在线"));
    QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
    thirdIm_->logout();
    QTRY_VERIFY_WITH_TIMEOUT(!online(third_.id), 20000);
    QVERIFY(!changed.isEmpty());
    QCOMPARE(org->card()->stateLabel()->text(), QStringLiteral("离线"));
    QVERIFY(online(owner_.id));
    auto* row = qobject_cast<ChatListItemWidget*>(
        talk->talkList()->itemWidget(talk->talkList()->item(talk->rowOf(third_.id))));
    QVERIFY(row);
    const QImage grey(quelix::AvatarManager::instance().displayPath(third_.id, false));
    bool greyShown = false;
    for (QLabel* l : row->findChildren<QLabel*>()) {
        const QImage shown = l->pixmap(Qt::ReturnByValue).toImage();
        if (!shown.isNull() && shown == grey.convertToFormat(shown.format())) greyShown = true;
    }
    QVERIFY(greyShown);

    // And comes back.
    const QString authority = rig_.prosody().adminJid().section('@', 0, 0);
    thirdIm_->login(rig_.prosody(), third_.id, third_.secret, authority);
    QTRY_VERIFY_WITH_TIMEOUT(online(third_.id), 20000);
    QCOMPARE(org->card()->stateLabel()->text(), QStringLiteral("在线"));
}

void TestOrgPage::tribePageListsProjectsAndMembersFromTheBackEnd() {
    TribeConverView* page = window_->tribeView();
    QVERIFY(page);
    const QString project = http_->startProject(owner_, "组织页项目", {me_.id, third_.id});
    QVERIFY(!project.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(page->rowOf(project) >= 0, 20000);
    QVERIFY(!page->loadingLabel()->isVisibleTo(page));  // the projects arrived

    // Choosing the tribe reads its members from the back end, the owner first.
    page->tribeList()->setCurrentRow(page->rowOf(project));
    TribeMemberView* members = page->memberView();
    QTRY_VERIFY_WITH_TIMEOUT(members->memberCount() == 3, 20000);
    QCOMPARE(members->members().first().id, owner_.id);
    QStringList ids;
    for (const TribeMember& m : members->members()) ids << m.id;
    QVERIFY(ids.contains(me_.id) && ids.contains(third_.id));

    // "退出群" asks the member's question; "No" sends nothing.
    TribeManager* tribes = OpenIMManager::instance()->tribes();
    QStringList asked;
    QWidget* askedOver = nullptr;
    tribes->setQuestion([&](QWidget* parent, const QString& text) {
        asked << text;
        askedOver = parent;
        return QMessageBox::No;
    });
    QSignalSpy sent(tribes, &TribeManager::projectActionSent);
    page->titleView()->quitButton()->click();
    QCOMPARE(asked, QStringList{QStringLiteral("是否确定退出该群？")});
    QCOMPARE(askedOver, static_cast<QWidget*>(window_));  // over the window, not loose
    QCOMPARE(sent.size(), 0);
    QVERIFY(page->rowOf(project) >= 0);

    // "查看任务" hands the project's task page to the shell, which the back end serves.
    QSignalSpy task(window_, &MainWindow::openTaskPageSignal);
    page->titleView()->taskButton()->click();
    QCOMPARE(task.size(), 1);
    const QString url = task.first().first().toString();
    QVERIFY(url.startsWith(http_->url()));
    QVERIFY(url.contains("projectId=" + project));
    QNetworkRequest request{QUrl(url)};
    request.setRawHeader("Cookie", "QXSESSION=" + me_.session.toUtf8());
    QNetworkAccessManager network;
    QNetworkReply* reply = network.get(request);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(finished.wait(20000));
    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
    QVERIFY(QString::fromUtf8(reply->readAll()).contains(QStringLiteral("组织页项目")));
    reply->deleteLater();
}

void TestOrgPage::sharedCardReachesTheColleague() {
    ConversationView* view = window_->conversationView();
    view->setShareQuestion([this](auto, auto) { return owner_.id; });
    QCOMPARE(view->shareColleague(third_.id), owner_.id);
    QVERIFY(waitUntil(
        [&] {
            for (const openim::IMMessage& m : ownerIm_->unread(me_.id)) {
                const QJsonObject o =
                    QJsonDocument::fromJson(toQ(m.content.content).toUtf8()).object();
                if (o.value("msgType").toInt() == int(BaseMsg::CustomCard) &&
                    o.value("userId").toString() == third_.id)
                    return true;
            }
            return false;
        },
        20000));
}

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    base::AtExitManager atExit;
    TestOrgPage test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_orgpage.moc"
