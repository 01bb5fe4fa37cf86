#include "conversationcontentview.h"

#include <QLabel>
#include <QSplitter>
#include <QVBoxLayout>

#include <atomic>

#include "directorystore.h"
#include "uifont.h"

namespace {
std::atomic<bool> g_online{false};

QWidget* emptyArea(QWidget* parent, const char* name) {
    auto* w = new QWidget(parent);
    w->setObjectName(QLatin1String(name));
    return w;
}
}  // namespace

ConversationContentView::ConversationContentView(const QString& id, bool isTribe, QWidget* parent)
    : QWidget(parent), id_(id), isTribe_(isTribe) {
    splitter_ = new QSplitter(Qt::Vertical, this);
    splitter_->setStyleSheet(QStringLiteral("QSplitter::handle { background-color: #dfe8ef }"));
    splitter_->setHandleWidth(1);
    output_ = emptyArea(splitter_, "outputArea");
    input_ = emptyArea(splitter_, "inputArea");
    splitter_->addWidget(output_);
    splitter_->addWidget(input_);
    splitter_->setStretchFactor(0, 3);
    splitter_->setStretchFactor(1, 1);
    title_ = new QLabel(this);
    title_->setObjectName(QStringLiteral("conversationTitle"));
    title_->setTextFormat(Qt::PlainText);
    UiFont::keepStyled(
        title_,
        QStringLiteral("QLabel#conversationTitle{color:#1f2d3d;font-size:15px;padding:10px 16px;"
                       "border-bottom:1px solid #dfe8ef;background:#f9fafc;}"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(title_);
    layout->addWidget(splitter_);
}

void ConversationContentView::setTitle(const QString& title) { title_->setText(title); }

QString ConversationContentView::title() const { return title_->text(); }

void ConversationContentView::setOutput(QWidget* output) {
    delete splitter_->replaceWidget(0, output);
    output->show();  // a widget made without a parent stays hidden until shown
    output_ = output;
    splitter_->setSizes({3000, 1000});  // three quarters for the messages
}

void ConversationContentView::setInput(QWidget* input) {
    delete splitter_->replaceWidget(1, input);
    input->show();
    input_ = input;
    splitter_->setSizes({3000, 1000});
}

void ConversationContentView::setClientOnline(bool online) { g_online = online; }

bool ConversationContentView::clientOnline() { return g_online; }

bool ConversationContentView::mayBeSent(Payload payload) {
    if (!g_online) {
        showTipLabel(QStringLiteral("您目前处于离线状态，暂时无法发送消息。"));
        return false;
    }
    if (isTribe_) {
        const DirectoryStore& store = DirectoryStore::instance();
        const DirectoryStore::Tribe* tribe = store.tribe(id_);
        const quint64 own = store.companyId().toULongLong();
        if (tribe && tribe->left) {
            // Dissolved, left or removed: the page stays readable, the room takes nothing.
            showTipLabel(QStringLiteral("您已不在该群中，无法发送消息。"));
            return false;
        }
        if (tribe && !tribe->companyId.isEmpty() && tribe->companyId.toULongLong() != own) {
            showTipLabel(payload == Payload::File
                             ? QStringLiteral("暂不支持在非本公司群中传输文件。")
                             : QStringLiteral("暂不支持在非本公司群中发言。"));
            return false;
        }
    }
    return true;
}

bool ConversationContentView::checkSend() { return mayBeSent(Payload::Message); }

bool ConversationContentView::sendText(const QString& content) {
    if (!mayBeSent(Payload::Message)) return false;
    emit sendTextMsg(id_, content);
    return true;
}

bool ConversationContentView::sendMedia(const QString& filePath) {
    if (!mayBeSent(Payload::File)) return false;
    emit sendMediaMsg(id_, filePath);
    return true;
}

bool ConversationContentView::sendCustom(const QString& content, const QString& summary) {
    if (!mayBeSent(Payload::Message)) return false;
    emit sendCustomMsg(id_, content, summary);
    return true;
}

void ConversationContentView::showTipLabel(const QString& text) {
    tips_ << text;
    emit tipSignal(text);
}

void ConversationContentView::startToUploadSlot(const QString& path) { sendMedia(path); }

void ConversationContentView::setAtTextHiddenSlot(const QString& id, bool isHidden) {
    // The mention text lives in the input; it follows the output's mention tip.
    if (id != id_ || !input_) return;
    if (QWidget* mention = input_->findChild<QWidget*>(QStringLiteral("atText")))
        mention->setHidden(isHidden);
}
