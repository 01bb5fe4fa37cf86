#pragma once

#include <QComboBox>
#include <QLineEdit>
#include <QTest>

#include "clientsession.h"
#include "companytrust.h"
#include "configstore.h"
#include "loginview.h"
#include "mainviewdelegate.h"
#include "mainwindow.h"
#include "openimmanager.h"

// The real client's main window, wired as the application wires it, showing its log-in window.
inline MainWindow* startClient() {
    CompanyTrust::install(nullptr);
    auto* window = new MainWindow(ConfigStore::instance());
    MainViewDelegate::setInstance(window);
    ClientSession::connect(window, OpenIMManager::instance());
    window->start(true, false);
    return window;
}

// Signs in through the log-in window as a colleague would; true once the main window shows
// and the IM core has loaded what it shows after log-in.
inline bool signInThroughLoginWindow(MainWindow* window, const QString& userName) {
    LoginView* login = window->loginView();
    login->findChild<QComboBox*>("m_cboxUserName")->setEditText(userName);
    login->findChild<QLineEdit*>("m_editPassword")->setText("quelix123");
    login->OnClickedLogin();
    return QTest::qWaitFor([window] { return window->isVisible(); }, 30000) &&
           QTest::qWaitFor([] { return OpenIMManager::instance()->msgReady(); }, 20000);
}
