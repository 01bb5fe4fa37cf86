// A received text turned into the rich text of its row: whatever the sender wrote, the
// only markup in the result is ours.
#include "emotionset.h"
#include "support/fuzzcheck.h"
#include "textmarkup.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = [] {
        EmotionSet::instance().setItems(
            {{QStringLiteral(":/e/smile.png"), QStringLiteral("[smile]")},
             {QStringLiteral(":/e/cry.png"), QStringLiteral("[cry]")},
             {QStringLiteral(":/e/ok.png"), QStringLiteral("[ok]")}});
        return true;
    }();
    (void)ready;
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    const QString html = qx_output::TextMarkup::toHtml(text);
    FUZZ_CHECK(html.startsWith(QLatin1String("<div")) && html.endsWith(QLatin1String("</div>")));
    FUZZ_CHECK(!html.contains(QLatin1String("<script"), Qt::CaseInsensitive));
    const int at = text.indexOf(QLatin1Char('@'));
    if (at >= 0) qx_output::TextMarkup::mentions(text, text.mid(at + 1, 8));
    return 0;
}
