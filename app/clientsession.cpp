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
#include "view.h"

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
                                 if (im->isLoggedIn()) im->getMoreMsg(page->id());
                             });
            // Messages reach the page of their conversation, which is made when needed.
            QObject::connect(im, &OpenIMManager::chatMessage, view,
                             [view](const BaseMsg::MMessage& m) {
                                 if (m.conversationId.isEmpty()) return;
                                 if (qx_output::View* out = outputOf(view->page(m.conversationId)))
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
            // The web sidebar takes these once it exists; until then they are logged.
            QObject::connect(outputs, &qx_output::Manager::openTaskSignal, view,
                             [](const QString& url) {
                                 Logger::instance().write(QStringLiteral("open task: ") + url);
                             });
            QObject::connect(outputs, &qx_output::Manager::createTaskSignal, view,
                             [](const QString& url) {
                                 Logger::instance().write(QStringLiteral("create task: ") + url);
                             });
        });
    // File transfers go with the signed-in back-end session.
    qx_output::Manager::instance()->setNetwork(loginView->requester()->network());
}
