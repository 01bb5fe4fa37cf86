#include "textmarkup.h"

#include "emotionset.h"

namespace qx_output {

namespace {
constexpr int kMaxMentionChars = 24;

bool endsMention(QChar c) { return c.isSpace() || c == QLatin1Char('@'); }

void appendPlain(QString& out, const QString& run) {
    int i = 0;
    while (i < run.size()) {
        const QChar c = run.at(i);
        if (c == QLatin1Char('@') && i + 1 < run.size() && !endsMention(run.at(i + 1))) {
            int end = i + 1;
            while (end < run.size() && end - i <= kMaxMentionChars && !endsMention(run.at(end)))
                ++end;
            out += QStringLiteral("<span style=\"color:#FFA54F\">%1</span>")
                       .arg(run.mid(i, end - i).toHtmlEscaped());
            i = end;
            continue;
        }
        if (c == QLatin1Char('\n'))
            out += QStringLiteral("<br>");
        else if (c == QLatin1Char('\r'))
            ;
        else if (c == QLatin1Char('<'))
            out += QStringLiteral("&lt;");
        else if (c == QLatin1Char('>'))
            out += QStringLiteral("&gt;");
        else if (c == QLatin1Char('&'))
            out += QStringLiteral("&amp;");
        else if (c == QLatin1Char('"'))
            out += QStringLiteral("&quot;");
        else
            out += c;
        ++i;
    }
}
}  // namespace

QString TextMarkup::toHtml(const QString& text) {
    QString out = QStringLiteral("<div style=\"white-space:pre-wrap\">");
    out.reserve(text.size() * 2 + 64);
    for (const EmotionSet::Run& run : EmotionSet::instance().split(text)) {
        if (run.picture.isEmpty()) {
            appendPlain(out, run.text);
        } else {
            out += QStringLiteral(
                       "<img class='emo' src=\"%1\" width=\"%2\" height=\"%2\" "
                       "style=\"vertical-align:middle\">")
                       .arg(run.picture.toHtmlEscaped())
                       .arg(kEmotionSize);
        }
    }
    out += QStringLiteral("</div>");
    return out;
}

bool TextMarkup::mentions(const QString& text, const QString& name) {
    if (name.isEmpty()) return false;
    const QString tag = QLatin1Char('@') + name;
    for (int at = text.indexOf(tag); at >= 0; at = text.indexOf(tag, at + 1)) {
        const int end = at + tag.size();
        if (end == text.size() || endsMention(text.at(end))) return true;
    }
    return false;
}

}  // namespace qx_output
