#include "loginview.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMouseEvent>
#include <QMovie>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "accountitem.h"
#include "configstore.h"
#include "directorystore.h"
#include "loginrequestmanager.h"
#include "passwordvault.h"
#include "plaintext.h"
#include "requester.h"
#include "uifont.h"

namespace {
const char* const kBtnIdle = ":/resource/LoginWindow/login-btn1.png";
const char* const kBtnBusy = ":/resource/LoginWindow/login-btn2.png";

QString buttonStyle(const char* image) {
    return UiFont::scaled(
        QStringLiteral("QPushButton#m_btnLogin{border-image:url(%1);color:#ffffff;font-size:15px;}"
                       "QPushButton#m_btnLogin:disabled{color:#eef5fe;}")
            .arg(QLatin1String(image)));
}

// The pages for a forgotten password and for joining live on the company's work site.
QString sitePage(const char* path) {
    QString home = ConfigStore::instance().url(UrlTable::UrlHome);
    while (home.endsWith(QLatin1Char('/'))) home.chop(1);
    return home + QLatin1String(path);
}
}  // namespace

LoginView::LoginView(QWidget* parent)
    : QWidget(parent),
      requester_(new Requester(nullptr, this)),
      manager_(new LoginRequestManager(requester_, &DirectoryStore::instance(), this)),
      vault_(new PasswordVault(ConfigStore::instance().folderPath(ConfigStore::Config))) {
    setWindowFlags(Qt::FramelessWindowHint | Qt::Window);
    setWindowIcon(QIcon(QStringLiteral(":/resource/240x240.ico")));
    setWindowTitle(QStringLiteral("Quelix"));
    setFixedSize(360, 470);

    auto* frame = new QFrame(this);
    frame->setObjectName(QStringLiteral("LoginWindowBackgroundFrame"));
    frame->setStyleSheet(QStringLiteral(
        "QFrame#LoginWindowBackgroundFrame{background-color:#ffffff;border:1px solid #c9d3de;}"));
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(frame);

    auto* banner = new QLabel(frame);
    banner->setFixedHeight(150);
    banner->setPixmap(QPixmap(QStringLiteral(":/resource/LoginWindow/login-bg.png")));
    banner->setScaledContents(true);
    m_btnClose = new QPushButton(banner);
    m_btnClose->setObjectName(QStringLiteral("m_btnClose"));
    m_btnClose->setGeometry(326, 6, 26, 26);
    m_btnClose->setStyleSheet(QStringLiteral(
        "QPushButton{border-image:url(:/resource/Chat/close_normal.png);background:transparent;}"
        "QPushButton:hover{border-image:url(:/resource/Chat/close_hover.png);}"));

    m_cboxUserName = new QComboBox(frame);
    m_cboxUserName->setObjectName(QStringLiteral("m_cboxUserName"));
    m_cboxUserName->setEditable(true);
    m_cboxUserName->lineEdit()->setPlaceholderText(QStringLiteral("用户名"));
    m_cboxUserName->lineEdit()->setMaxLength(100);
    accountList_ = new QListWidget(m_cboxUserName);
    m_cboxUserName->setModel(accountList_->model());
    m_cboxUserName->setView(accountList_);

    m_editPassword = new QLineEdit(frame);
    m_editPassword->setObjectName(QStringLiteral("m_editPassword"));
    m_editPassword->setEchoMode(QLineEdit::Password);
    m_editPassword->setPlaceholderText(QStringLiteral("密码"));
    m_editPassword->setMaxLength(200);

    m_checkRemember = new QCheckBox(QStringLiteral("记住密码"), frame);
    m_checkRemember->setObjectName(QStringLiteral("m_checkRemember"));
    m_checkAutoLogin = new QCheckBox(QStringLiteral("自动登录"), frame);
    m_checkAutoLogin->setObjectName(QStringLiteral("m_checkAutoLogin"));

    m_btnLogin = new QPushButton(QStringLiteral("登 录"), frame);
    m_btnLogin->setObjectName(QStringLiteral("m_btnLogin"));
    m_btnLogin->setFixedHeight(40);
    m_btnLogin->setDefault(true);
    m_btnLogin->setStyleSheet(buttonStyle(kBtnIdle));

    m_btnForget = new QPushButton(QStringLiteral("忘记密码"), frame);
    m_btnForget->setObjectName(QStringLiteral("m_btnForget"));
    m_btnForget->setFlat(true);
    m_btnRegister = new QPushButton(QStringLiteral("注册账号"), frame);
    m_btnRegister->setObjectName(QStringLiteral("m_btnRegister"));
    m_btnRegister->setFlat(true);
    for (QPushButton* link : {m_btnForget, m_btnRegister}) {
        link->setCursor(Qt::PointingHandCursor);
        link->setStyleSheet(
            QStringLiteral("QPushButton{color:#2d8cf0;border:none;background:transparent;}"
                           "QPushButton:hover{color:#1f6fd1;text-decoration:underline;}"));
    }

    m_labHint = plaintext::label(QString(), frame);  // may carry the back end's own words
    m_labHint->setObjectName(QStringLiteral("m_labHint"));
    m_labHint->setAlignment(Qt::AlignCenter);
    m_labHint->setStyleSheet(QStringLiteral("QLabel{color:#e5484d;}"));

    waiting_ = new QLabel(frame);
    waitingMovie_ = new QMovie(QCoreApplication::applicationDirPath() +
                                   QStringLiteral("/resource/style/images/waitingGif.gif"),
                               QByteArray(), this);
    waiting_->setMovie(waitingMovie_);
    waiting_->setAlignment(Qt::AlignCenter);
    waiting_->hide();

    frame->setStyleSheet(frame->styleSheet() +
                         UiFont::scaled(QStringLiteral(
                             "QComboBox,QLineEdit{min-height:34px;border:1px solid #d5dde6;"
                             "border-radius:4px;padding-left:8px;font-size:14px;}"
                             "QComboBox:focus,QLineEdit:focus{border-color:#2d8cf0;}")));

    auto* form = new QVBoxLayout(frame);
    form->setContentsMargins(0, 0, 0, 12);
    form->setSpacing(10);
    form->addWidget(banner);
    auto* fields = new QVBoxLayout;
    fields->setContentsMargins(40, 10, 40, 0);
    fields->setSpacing(12);
    fields->addWidget(m_cboxUserName);
    fields->addWidget(m_editPassword);
    auto* checks = new QHBoxLayout;
    checks->addWidget(m_checkRemember);
    checks->addStretch();
    checks->addWidget(m_checkAutoLogin);
    fields->addLayout(checks);
    fields->addWidget(m_btnLogin);
    fields->addWidget(waiting_);
    fields->addWidget(m_labHint);
    form->addLayout(fields);
    form->addStretch();
    auto* links = new QHBoxLayout;
    links->setContentsMargins(30, 0, 30, 0);
    links->addWidget(m_btnForget);
    links->addStretch();
    links->addWidget(m_btnRegister);
    form->addLayout(links);

    confirm_ = [this](const QString& title, const QString& text) {
        QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, this);
        QPushButton* yes = box.addButton(QStringLiteral("是"), QMessageBox::YesRole);
        box.addButton(QStringLiteral("否"), QMessageBox::NoRole);
        box.exec();
        return box.clickedButton() == yes;
    };

    connect(m_btnLogin, &QPushButton::clicked, this, &LoginView::OnClickedLogin);
    connect(m_editPassword, &QLineEdit::returnPressed, this, &LoginView::OnClickedLogin);
    connect(m_btnForget, &QPushButton::clicked, this, &LoginView::OnClickedForget);
    connect(m_btnRegister, &QPushButton::clicked, this, &LoginView::OnClickedRegister);
    connect(m_btnClose, &QPushButton::clicked, this, [this] {
        hide();
        emit closeLogineView();
    });
    connect(m_cboxUserName, &QComboBox::currentTextChanged, this, &LoginView::OnUserNameChanged);
    connect(m_cboxUserName, &QComboBox::currentTextChanged, this, &LoginView::onInputTextChanged);
    connect(m_editPassword, &QLineEdit::textChanged, this, &LoginView::onInputTextChanged);
    connect(m_checkRemember, &QCheckBox::stateChanged, this, &LoginView::onRememberStateChanged);
    connect(m_checkAutoLogin, &QCheckBox::stateChanged, this, &LoginView::onAutoStateChanged);
    connect(this, &LoginView::onLoginRequestSignal, manager_, &LoginRequestManager::onLoginRequest);
    connect(manager_, &LoginRequestManager::httpBack, this, [this](int code, const QString& text) {
        lastHttpText_ = text;
        OnHttpBack(code);
    });
    fillAccounts();
}

LoginView::~LoginView() { delete vault_; }

const LoginUser& LoginView::user() const { return manager_->user(); }

QString LoginView::hint() const { return m_labHint->text(); }

void LoginView::setHint(const QString& text) { m_labHint->setText(text); }

void LoginView::setBusy(bool busy) {
    busy_ = busy;
    m_btnLogin->setStyleSheet(buttonStyle(busy ? kBtnBusy : kBtnIdle));
    m_btnLogin->setEnabled(!busy);
    m_cboxUserName->setEnabled(!busy);
    m_editPassword->setEnabled(!busy);
    waiting_->setVisible(busy && waitingMovie_->isValid());
    if (busy)
        waitingMovie_->start();
    else
        waitingMovie_->stop();
}

void LoginView::fillAccounts() {
    accountList_->clear();
    const quelix::listlogin_t& logins = ConfigStore::instance().loginList();
    for (const auto& entry : logins.logins) {
        auto* item = new QListWidgetItem(accountList_);
        item->setText(entry.username);
        auto* row = new AccountItem(entry.username, accountList_);
        item->setSizeHint(QSize(0, 30));
        accountList_->setItemWidget(item, row);
        connect(row, &AccountItem::removeAccount, this, &LoginView::removeAccount);
        connect(row, &AccountItem::showAccount, this, &LoginView::showAccount);
    }
}

void LoginView::start(bool autoLogin, bool kicked) {
    show();
    raise();
    activateWindow();
    const quelix::listlogin_t& logins = ConfigStore::instance().loginList();
    if (!logins.logins.isEmpty()) showAccount(logins.logins.first().username);
    if (kicked) {
        showKicked();
        return;
    }
    if (!autoLogin || logins.autoLogin.isEmpty()) return;
    showAccount(logins.autoLogin);
    if (m_cboxUserName->currentText() == logins.autoLogin && !m_editPassword->text().isEmpty())
        OnClickedLogin();
}

void LoginView::showKicked() {
    setBusy(false);
    show();
    raise();
    setHint(QStringLiteral("您的账号在别处登录，请重新登录。"));
}

void LoginView::OnClickedLogin() {
    if (busy_) return;
    const QString name = m_cboxUserName->currentText().trimmed();
    if (name.isEmpty()) return setHint(QStringLiteral("用户名不能为空"));
    if (m_editPassword->text().isEmpty()) return setHint(QStringLiteral("密码不能为空"));
    setHint(QString());
    setBusy(true);
    pendingPassword_ = m_editPassword->text();
    const bool beta =
        ConfigStore::instance().readValue(ConfigStore::ExistFile, QStringLiteral("LoginBeta")) ==
        QLatin1String("true");
    emit onLoginRequestSignal(name, pendingPassword_, beta);
}

void LoginView::OnHttpBack(int retcode) {
    if (retcode != LoginRequestManager::Success) {
        setBusy(false);
        setHint(lastHttpText_.isEmpty()
                    ? LoginRequestManager::textFor(LoginRequestManager::Result(retcode))
                    : lastHttpText_);
        return;
    }
    emit imLoginRequestSignal(manager_->user());
}

void LoginView::OnImLoginResult(int code) {
    if (!busy_) return;
    setBusy(false);
    if (code != 0) {
        setHint(code == kImWrongPassword ? QStringLiteral("登录失败，用户或密码错误")
                : code == kImInsecure
                    ? QStringLiteral("通讯服务器的连接不安全（未加密或证书不受信任），已停止登录")
                    : QStringLiteral("无法连接通讯服务器"));
        return;
    }
    rememberAccount();
    hide();
    emit LoginSeccess();
}

void LoginView::rememberAccount() {
    ConfigStore& config = ConfigStore::instance();
    quelix::listlogin_t& logins = config.loginList();
    const QString name = m_cboxUserName->currentText().trimmed();
    for (int i = logins.logins.size() - 1; i >= 0; --i)
        if (logins.logins[i].username == name) logins.logins.removeAt(i);
    // The password is kept sealed, and only when the user asked for it.
    const QString stored =
        m_checkRemember->isChecked() ? vault_->protect(pendingPassword_) : QString();
    logins.logins.prepend({name, stored});
    if (m_checkAutoLogin->isChecked())
        logins.autoLogin = name;
    else if (logins.autoLogin == name)
        logins.autoLogin.clear();
    logins.save();
    pendingPassword_.clear();
    fillAccounts();
}

void LoginView::OnUserNameChanged(const QString& name) {
    const quelix::listlogin_t& logins = ConfigStore::instance().loginList();
    for (const auto& entry : logins.logins) {
        if (entry.username != name) continue;
        const QString password = vault_->unprotect(entry.password);
        m_editPassword->setText(password);
        m_checkRemember->setChecked(!password.isEmpty());
        m_checkAutoLogin->setChecked(logins.autoLogin == name && !password.isEmpty());
        return;
    }
}

void LoginView::onInputTextChanged() {
    if (!busy_) setHint(QString());
}

// Signing in by itself needs the password, so the two boxes move together.
void LoginView::onRememberStateChanged(int stata) {
    if (stata == Qt::Unchecked) m_checkAutoLogin->setChecked(false);
}

void LoginView::onAutoStateChanged(int state) {
    if (state == Qt::Checked) m_checkRemember->setChecked(true);
}

void LoginView::showAccount(QString account) {
    m_cboxUserName->hidePopup();
    m_cboxUserName->setEditText(account);
    OnUserNameChanged(account);
}

void LoginView::removeAccount(QString account) {
    m_cboxUserName->hidePopup();
    if (!confirm_(QStringLiteral("提示！"), QStringLiteral("是否确定删除该账户？\n "))) return;
    quelix::listlogin_t& logins = ConfigStore::instance().loginList();
    for (int i = logins.logins.size() - 1; i >= 0; --i)
        if (logins.logins[i].username == account) logins.logins.removeAt(i);
    if (logins.autoLogin == account) logins.autoLogin.clear();
    logins.save();
    if (m_cboxUserName->currentText() == account) {
        m_cboxUserName->setEditText(QString());
        m_editPassword->clear();
        m_checkRemember->setChecked(false);
    }
    fillAccounts();
}

void LoginView::OnClickedForget() {
    QDesktopServices::openUrl(QUrl(sitePage("/work/findPassword.htm")));
}

void LoginView::OnClickedRegister() {
    QDesktopServices::openUrl(QUrl(sitePage("/work/invite.htm")));
}

void LoginView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        dragOffset_ = event->globalPos() - frameGeometry().topLeft();
    QWidget::mousePressEvent(event);
}

void LoginView::mouseMoveEvent(QMouseEvent* event) {
    if (event->buttons() & Qt::LeftButton) move(event->globalPos() - dragOffset_);
    QWidget::mouseMoveEvent(event);
}
