#pragma once

#include <QWidget>

#include <functional>

#include "loginuser.h"

class LoginRequestManager;
class PasswordVault;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QMovie;
class QPushButton;
class Requester;

// The log-in window: user name with the remembered accounts, password, the two check
// boxes, and the hint line. It drives the back-end half of signing in and then asks for
// the IM half; the account is remembered only once both have succeeded.
class LoginView : public QWidget {
    Q_OBJECT
public:
    // IM log-in result for a wrong account or secret.
    static constexpr int kImWrongPassword = 8;
    static constexpr int kImInsecure = 9;

    explicit LoginView(QWidget* parent = nullptr);
    ~LoginView() override;

    // Shows the window; signs in at once when allowed and an account is set to.
    void start(bool autoLogin, bool kicked);
    // The session was taken over by another desktop.
    void showKicked();

    Requester* requester() const { return requester_; }
    LoginRequestManager* requestManager() const { return manager_; }
    const LoginUser& user() const;
    bool isBusy() const { return busy_; }
    QString hint() const;

    // How a question is put to the user; tests answer it themselves.
    void setConfirm(std::function<bool(const QString& title, const QString& text)> confirm) {
        confirm_ = std::move(confirm);
    }

signals:
    void LoginSeccess();
    void closeLogineView();
    void onLoginRequestSignal(QString strUserName, QString strPassword, bool isCheckBeta);
    // The back end accepted the user: the IM facade signs the session in.
    void imLoginRequestSignal(const LoginUser& user);

public slots:
    void OnHttpBack(int retcode);
    void OnUserNameChanged(const QString& name);
    void OnClickedLogin();
    void OnClickedForget();
    void OnClickedRegister();
    void onInputTextChanged();
    void onRememberStateChanged(int stata);
    void onAutoStateChanged(int state);
    void showAccount(QString account);
    void removeAccount(QString account);
    // The IM half's result: 0 signed in, 8 wrong account or secret, anything else no server.
    void OnImLoginResult(int code);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    void setBusy(bool busy);
    void setHint(const QString& text);
    void fillAccounts();
    void rememberAccount();

    Requester* requester_;
    LoginRequestManager* manager_;
    PasswordVault* vault_;
    QComboBox* m_cboxUserName;
    QListWidget* accountList_;
    QLineEdit* m_editPassword;
    QPushButton* m_btnLogin;
    QCheckBox* m_checkRemember;
    QCheckBox* m_checkAutoLogin;
    QPushButton* m_btnForget;
    QPushButton* m_btnRegister;
    QPushButton* m_btnClose;
    QLabel* m_labHint;
    QLabel* waiting_;
    QMovie* waitingMovie_;
    QString lastHttpText_;
    QString pendingPassword_;
    bool busy_ = false;
    QPoint dragOffset_;
    std::function<bool(const QString&, const QString&)> confirm_;
};
