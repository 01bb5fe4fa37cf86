#include "clientsession.h"

#include <QImageReader>

#include "conversationcontentview.h"
#include "conversationview.h"
#include "loginview.h"
#include "mainwindow.h"
#include "openimmanager.h"

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
                                     [im](const QString& id, const QString& path) {
                                         // Pictures go as pictures, anything else as a file.
                                         if (QImageReader(path).canRead())
                                             im->sendPicture(id, path);
                                         else
                                             im->sendFile(id, path);
                                     });
                });
        });
}
