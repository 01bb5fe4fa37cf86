#include "clientsession.h"

#include <QFileInfo>
#include <QImageReader>
#include <QJsonArray>
#include <QPointer>
#include <QStackedWidget>

#include "backendurls.h"
#include "colleague.h"
#include "configstore.h"
#include "conversationcontentinputedit.h"
#include "conversationcontentinputview.h"
#include "conversationcontentview.h"
#include "conversationview.h"
#include "directorystore.h"
#include "envelope.h"
#include "logger.h"
#include "loginview.h"
#include "mainwindow.h"
#include "manager.h"
#include "openimmanager.h"
#include "requester.h"
#include "sidebarview.h"
#include "taskreadflags.h"
#include "tribeconverview.h"
#include "tribemanager.h"
#include "view.h"
#include "worksitepage.h"

namespace {
qx_output::View* outputOf(ConversationContentView* page) {
    return page ? qobject_cast<qx_output::View*>(page->output()) : nullptr;
}
}  // namespace

void ClientSession::connect(MainWindow* window, OpenIMManager* im) {
    LoginView* loginView = window->loginView();
    im->setRequester(loginView->requester());
    QObject::connect(loginView, &LoginView::imLoginRequestSignal, im, &OpenIMManager::login);
    QObject::connect(im, &OpenIMManager::loginResult, loginView, &LoginView::OnImLoginResult);

    // What the user sends from a conversation page goes to the IM core.
    QObject::connect(
        window, &MainWindow::conversationViewCreated, im, [im, loginView](ConversationView* view) {
            QObject::connect(
                view, &ConversationView::pageCreated, im, [im](ConversationContentView* page) {
                    QObject::connect(page, &ConversationContentView::sendTextMsg, im,
                                     [im](const QString& id, const QString& text) {
                                         im->sendTextOrCustom(id, QString(), text);
                                     });
                    QObject::connect(
                        page, &ConversationContentView::sendCustomMsg, im,
                        [im](const QString& id, const QString& content, const QString& summary) {
                            im->sendTextOrCustom(id, summary, content);
                        });
                    QObject::connect(page, &ConversationContentView::sendMediaMsg, im,
                                     [im, page](const QString& id, const QString& path) {
                                         // Pictures go through the IM service; other files,
                                         // and pictures too big for a picture message, go
                                         // through the back end, offered as file cards.
                                         if (QImageReader(path).canRead() &&
                                             QFileInfo(path).size() <
                                                 ConversationContentInputEdit::kMaxPictureBytes)
                                             im->sendPicture(id, path);
                                         else if (qx_output::View* out = outputOf(page))
                                             out->uploadFile(path);
                                         else
                                             im->sendFile(id, path);
                                     });
                });

            // A tribe's members are offered after "@" in its input.
            QObject::connect(view, &ConversationView::pageCreated, loginView,
                             [loginView](ConversationContentView* page) {
                                 auto* input =
                                     qobject_cast<ConversationContentInputView*>(page->input());
                                 if (!page->isTribe() || !input) return;
                                 const QString url = BackendUrls::withQuery(
                                     ConfigStore::instance().url(UrlTable::UrlGroupMember),
                                     QStringLiteral("projectId=") + page->id());
                                 QPointer<ConversationContentInputView> target(input);
                                 loginView->requester()->get(url, [target](const QByteArray& body) {
                                     const Envelope reply = Envelope::parse(body);
                                     if (!target || !reply.isSuccess()) return;
                                     const QString self = DirectoryStore::instance().selfId();
                                     QList<AtListWidget::Member> members;
                                     for (const QJsonValue& v :
                                          reply.member(QStringLiteral("userList")).toArray()) {
                                         const Colleague c = Colleague::fromJson(v.toObject());
                                         if (!c.id().isEmpty() && c.id() != self)
                                             members.append({c.displayName(), c.id()});
                                     }
                                     target->edit()->setMentionMembers(members);
                                 });
                             });
            QObject::connect(view, &ConversationView::pageOpenedFirstTime, im,
                             [im](ConversationContentView* page) {
                                 if (im->isLoggedIn()) im->getLatestMsg(page->id());
                             });
            // Unread means not yet seen in an open conversation, kept in the IM store.
            QObject::connect(view, &ConversationView::conversationSeen, im,
                             &OpenIMManager::markSeen);
            QObject::connect(im, &OpenIMManager::unseenWaiting, view,
                             &ConversationView::restoreUnseen);
            QObject::connect(im, &OpenIMManager::unseenComplete, view,
                             &ConversationView::applyUnseen);
            // Messages reach the page of their conversation once the user has opened it;
            // until then the talk list counts them and the page reads them from the store.
            QObject::connect(
                im, &OpenIMManager::chatMessage, view, [view](const BaseMsg::MMessage& m) {
                    if (m.conversationId.isEmpty()) return;
                    if (qx_output::View* out = outputOf(view->openedPage(m.conversationId)))
                        out->addMessage(m);
                });
            // A send that failed says so below the message, with a way to send it again.
            QObject::connect(im, &OpenIMManager::sendFailed, view,
                             [view](const BaseMsg::MMessage& m, const QString& reason) {
                                 if (qx_output::View* out = outputOf(view->page(m.conversationId)))
                                     out->addSendFailure(m, reason);
                             });
            QObject::connect(qx_output::Manager::instance(), &qx_output::Manager::resendRequested,
                             im, &OpenIMManager::resend);
            QObject::connect(im, &OpenIMManager::mediaDownloaded, view,
                             [view](quint64 msgId, const QString& path) {
                                 bool shown = false;
                                 QStackedWidget* pages = view->pages();
                                 for (int i = 0; i < pages->count() && !shown; ++i) {
                                     auto* page =
                                         qobject_cast<ConversationContentView*>(pages->widget(i));
                                     if (qx_output::View* out = outputOf(page))
                                         shown = out->mediaReady(msgId, path);
                                 }
                                 if (!shown && path.isEmpty())
                                     qx_output::Manager::instance()->setMediaFailed(msgId);
                             });

            qx_output::Manager* outputs = qx_output::Manager::instance();
            QObject::connect(outputs, &qx_output::Manager::getHistoryMsgSignal, im,
                             &OpenIMManager::getMoreMsg);
            QObject::connect(
                outputs, &qx_output::Manager::sendCustemMsgSignal, view,
                [view](const QString& id, const QString& summary, const QString& content) {
                    view->page(id)->sendCustom(content, summary);
                });
            QObject::connect(outputs, &qx_output::Manager::talkToSignal, view,
                             [view](const QString& userId) { view->showConversation(userId, 0); });
            // Coming back to the window reads the open conversation.
            QObject::connect(outputs, &qx_output::Manager::mainWinActiveSignal, view,
                             &ConversationView::chatViewActive);
            QObject::connect(outputs, &qx_output::Manager::setAtTextHiddenSignal, view,
                             [view](const QString& id, bool hidden) {
                                 view->page(id)->setAtTextHiddenSlot(id, hidden);
                             });
        });
    // Task and goals pages open in the sliding sidebar beside the main window, and the
    // work-platform page shows the company's home page; both with the user's back-end
    // session, so the pages know who is looking.
    Requester* requester = loginView->requester();
    auto session = [requester] { return requester->session(); };
    auto* sidebar = new SidebarView(window);
    sidebar->setSessionSource(session);
    // Goes with the main window, which lives until the process ends.
    QObject::connect(window, &QObject::destroyed, sidebar, &QObject::deleteLater);
    window->workSitePage()->setSessionSource(session);
    // "查看任务" of the tribe page opens the project's tasks in the same sidebar.
    QObject::connect(window, &MainWindow::openTaskPageSignal, qx_output::Manager::instance(),
                     &qx_output::Manager::openTaskPage);
    // Task cards show the user's own read flags.
    qx_output::Manager::instance()->readFlags()->setFetcher([requester](const QStringList& ids) {
        const QString url =
            BackendUrls::withQuery(ConfigStore::instance().url(UrlTable::UrlTaskReaded),
                                   QStringLiteral("taskIds=") + ids.join(QLatin1Char(',')));
        requester->get(url, [](const QByteArray& body) {
            const Envelope reply = Envelope::parse(body);
            if (!reply.isSuccess()) return;  // the cards keep what they say
            qx_output::Manager::instance()->readFlags()->setFlags(
                qx_output::TaskReadFlags::parse(reply.results()));
        });
    });
    // The tribe page: members from the back end, the list as the projects arrive, and
    // quitting through the IM core's dissolve-or-leave question.
    QObject::connect(
        window, &MainWindow::tribeViewCreated, im, [im, loginView, window](TribeConverView* view) {
            QPointer<Requester> requester(loginView->requester());
            view->setMemberFetcher([requester](const QString& tribeId, auto done) {
                if (!requester) return done(false, TribeMembers(), QStringLiteral("signed out"));
                const QString url =
                    BackendUrls::withQuery(ConfigStore::instance().url(UrlTable::UrlGroupMember),
                                           QStringLiteral("projectId=") + tribeId);
                requester->get(
                    url,
                    [done](const QByteArray& body) {
                        TribeMembers members;
                        QString error;
                        const bool ok = TribeConverView::parseMembers(body, &members, &error);
                        done(ok, members, error);
                    },
                    [done](const QString& reason) { done(false, TribeMembers(), reason); });
            });
            TribeManager* tribes = im->tribes();
            tribes->setDialogParent(window);
            QObject::connect(tribes, &TribeManager::projectsLoaded, view,
                             [view] { view->setLoadingTribes(false); });
            // Saved talk-list rows of tribes can be named now.
            QObject::connect(tribes, &TribeManager::projectsLoaded, window, [window] {
                if (ConversationView* talks = window->conversationView()) talks->restoreTalkList();
            });
            QObject::connect(tribes, &TribeManager::projectsFailed, view,
                             [view] { view->setLoadingTribes(false); });
            QObject::connect(tribes, &TribeManager::projectActionDone, view,
                             [view] { view->reloadTribes(); });
            QObject::connect(tribes, &TribeManager::projectActionFailed, view,
                             [view](quint64 tribe, const QString& text) {
                                 view->showActionFailure(QString::number(tribe), text);
                             });
            QObject::connect(view, &TribeConverView::quitTribe, im, [im](const QString& id) {
                bool ok = false;
                const quint64 tribe = id.toULongLong(&ok);
                if (ok) im->dissolveOrLeave(tribe);
            });
        });
    // File transfers go with the signed-in back-end session.
    qx_output::Manager::instance()->setNetwork(loginView->requester()->network());
}
