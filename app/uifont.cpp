#include "uifont.h"

#include <QApplication>
#include <QRegularExpression>
#include <QWidget>
#include <QtMath>

namespace {
QFont* g_systemFont = nullptr;
}  // namespace

UiFont& UiFont::instance() {
    static UiFont* font = new UiFont;  // kept to the end: widgets disconnect at their own
    return *font;
}

void UiFont::captureSystemFont() {
    if (!g_systemFont) g_systemFont = new QFont(QApplication::font());
}

QFont UiFont::systemFont() {
    captureSystemFont();
    return *g_systemFont;
}

void UiFont::apply(int pixels) {
    const QFont system = systemFont();
    chosen_ = pixels > 0 ? pixels : 0;
    QFont f = system;
    if (chosen_ > 0) f.setPixelSize(chosen_);
    QApplication::setFont(f);
    emit changed();
}

int UiFont::px(int designPixels) {
    const int chosen = instance().chosen_;
    if (chosen <= 0) return designPixels;
    return qMax(8, qRound(designPixels * qreal(chosen) / kDesignPixels));
}

QFont UiFont::font(int designPixels) {
    QFont f = QApplication::font();
    f.setPixelSize(px(designPixels));
    return f;
}

QString UiFont::scaled(const QString& designSheet) {
    if (instance().chosen_ <= 0) return designSheet;
    static const QRegularExpression size(QStringLiteral("font-size:\\s*(\\d+)px"));
    QString out;
    int from = 0;
    for (auto it = size.globalMatch(designSheet); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        out += designSheet.mid(from, m.capturedStart() - from);
        out += QStringLiteral("font-size:%1px").arg(px(m.captured(1).toInt()));
        from = m.capturedEnd();
    }
    return out + designSheet.mid(from);
}

void UiFont::keepStyled(QWidget* widget, const QString& designSheet) {
    widget->setStyleSheet(scaled(designSheet));
    connect(&instance(), &UiFont::changed, widget,
            [widget, designSheet] { widget->setStyleSheet(scaled(designSheet)); });
}
