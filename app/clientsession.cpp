#include "clientsession.h"

#include "loginview.h"
#include "mainwindow.h"
#include "openimmanager.h"

void ClientSession::connect(MainWindow* window, OpenIMManager* im) {
    LoginView* loginView = window->loginView();
    im->setRequester(loginView->requester());
    QObject::connect(loginView, &LoginView::imLoginRequestSignal, im, &OpenIMManager::login);
    QObject::connect(im, &OpenIMManager::loginResult, loginView, &LoginView::OnImLoginResult);
}
