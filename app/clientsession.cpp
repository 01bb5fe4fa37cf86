#include "clientsession.h"

#include <QImageReader>
#include <QStackedWidget>

#include "conversationcontentview.h"
#include "conversationview.h"
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
        window, &MainWindow::conversationViewCreated, im, [im](ConversationView* view) {
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
                                         // Pictures go through the IM service; other files
                                         // through the back end, offered as file cards.
                                         if (QImageReader(path).canRead())
                                             im->sendPicture(id, path);
                                         else if (qx_output::View* out = outputOf(page))
                                             out->uploadFile(path);
                                         else
                                             im->sendFile(id, path);
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
