// Message output under load: 2,000 text messages (mixed lengths, some with emoticons)
// appended one by one to one conversation's output, each append followed by the event
// processing and painting it causes; then switching between 20 conversations of 200
// messages each. Runs on the offscreen platform unless a display is asked for.
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QStackedWidget>

#include <malloc.h>
#include <algorithm>
#include <cstdio>
#include <vector>

#include "benchfigures.h"
#include "configstore.h"
#include "directorystore.h"
#include "emotionset.h"
#include "listwidget.h"
#include "resources.h"
#include "sdk/emotion_catalogue.h"
#include "view.h"

namespace {

double p99(const std::vector<double>& v) { return bench::percentile(v, 0.99); }

const char* const kWords[] = {"项目", "进度", "明天",   "会议",   "需求", "测试", "上线", "确认",
                              "好的", "文档", "review", "deploy", "OK",   "谢谢", "收到", "周报"};

BaseMsg::MMessage message(int i, const QString& peer) {
    BaseMsg::MMessage m;
    m.msgId = quint64(i) + 1;
    m.conversationId = peer;
    m.kind = BaseMsg::Text;
    m.isSelf = i % 3 == 0;
    m.senderId = m.isSelf ? QStringLiteral("101") : peer;
    m.time = 1700000000 + i * 40;
    // Lengths from a word to a long paragraph; every fifth message has emoticons.
    const int words = 1 + (i * 37) % (i % 10 == 0 ? 120 : 14);
    for (int w = 0; w < words; ++w) {
        m.text += QString::fromUtf8(kWords[(i + w * 7) % 16]);
        m.text += w % 4 == 3 ? QStringLiteral("，") : QStringLiteral(" ");
    }
    if (i % 5 == 0) m.text += QStringLiteral("[smile][thumbsup]");
    return m;
}

void settle() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    quelixInitResources();
    ConfigStore::instance().init();
    DirectoryStore::instance().setSelfId(QStringLiteral("101"));
    QList<EmotionSet::Item> items;
    for (const EmotionCatalogue::Entry& e : EmotionCatalogue::entries())
        items.append({e.picture, e.code});
    EmotionSet::instance().setItems(items);

    // Warm-up: fonts, style sheets and emoticon pictures loaded once, as in a running client.
    {
        qx_output::View warm(QStringLiteral("1"), false);
        warm.resize(700, 600);
        warm.show();
        for (int i = 0; i < 50; ++i) warm.addMessage(message(i, QStringLiteral("1")));
        settle();
    }
    settle();
    malloc_trim(0);

    // One conversation, 2,000 appends.
    auto* view = new qx_output::View(QStringLiteral("102"), false);
    view->resize(700, 600);
    view->show();
    settle();
    const long empty = bench::rssKb();
    std::vector<double> append;
    std::vector<double> addOnly;
    QElapsedTimer clock;
    for (int i = 0; i < 2000; ++i) {
        const BaseMsg::MMessage m = message(i, QStringLiteral("102"));
        clock.start();
        view->addMessage(m);
        addOnly.push_back(clock.nsecsElapsed() / 1e6);
        settle();
        append.push_back(clock.nsecsElapsed() / 1e6);
    }
    if (qEnvironmentVariableIsSet("QUELIX_BENCH_DETAIL")) {
        std::printf("adding alone (before events and painting): p99 %.2f ms\n", p99(addOnly));
        for (int part = 0; part < 4; ++part)
            std::printf(
                "appends %d-%d: p50 %.2f ms, p99 %.2f ms\n", part * 500, part * 500 + 499,
                [&] {
                    std::vector<double> v(append.begin() + part * 500,
                                          append.begin() + part * 500 + 500);
                    std::sort(v.begin(), v.end());
                    return v[250];
                }(),
                p99(std::vector<double>(append.begin() + part * 500,
                                        append.begin() + part * 500 + 500)));
    }
    malloc_trim(0);
    const long full = bench::rssKb();
    std::printf("appended 2000 messages, %d rows, %d row widgets alive\n",
                view->listWidget()->count(), view->listWidget()->liveWidgetCount());
    delete view;
    settle();

    // Twenty conversations of 200 messages each, switched through in turn.
    QStackedWidget stack;
    stack.resize(700, 600);
    stack.show();
    for (int c = 0; c < 20; ++c) {
        // As in the client: the page is in place before its messages arrive.
        auto* v = new qx_output::View(QString::number(200 + c), false);
        stack.addWidget(v);
        for (int i = 0; i < 200; ++i)
            v->addMessage(message(c * 1000 + i, QString::number(200 + c)));
    }
    settle();
    std::vector<double> switches;
    for (int round = 0; round < 5; ++round) {
        for (int c = 0; c < 20; ++c) {
            const int next = (c * 7 + round) % 20;
            clock.start();
            stack.setCurrentIndex(next);
            const double shown = clock.nsecsElapsed() / 1e6;
            stack.repaint();  // shown and painted, as the user sees it
            const double painted = clock.nsecsElapsed() / 1e6;
            settle();
            switches.push_back(clock.nsecsElapsed() / 1e6);
            if (qEnvironmentVariableIsSet("QUELIX_BENCH_DETAIL") && switches.back() > 20)
                std::printf("switch to %d: shown %.1f, painted %.1f, settled %.1f ms\n", next,
                            shown, painted, switches.back());
        }
    }

    const double perMsg = double(full - empty) / 2000.0;
    std::printf("view_append_p99_ms=%.2f\n", p99(append));
    std::printf("view_rss_per_msg_kb=%.2f\n", perMsg);
    std::printf("view_switch_p99_ms=%.2f\n", p99(switches));
    return 0;
}
