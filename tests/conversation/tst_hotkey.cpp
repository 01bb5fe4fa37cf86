// The screenshot hot key is grabbed system-wide: a key press that X delivers to nobody in
// particular still reaches the client. Runs on a private Xvfb display.
#include <QtTest>

#include <QProcess>
#include <QX11Info>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include "conversationview.h"
#include "mainviewdelegate.h"
#include "resources.h"

namespace {
class ScreenshotCounter : public MainViewDelegate {
public:
    void startScreenshot() override { ++count; }
    int count = 0;
};

xcb_keycode_t keycodeOf(xcb_connection_t* c, xcb_keysym_t sym) {
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(c);
    xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, sym);
    const xcb_keycode_t code = codes ? codes[0] : 0;
    free(codes);
    xcb_key_symbols_free(symbols);
    return code;
}

void fake(xcb_connection_t* c, uint8_t type, xcb_keycode_t code) {
    xcb_test_fake_input(c, type, code, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}
}  // namespace

class TestHotKey : public QObject {
    Q_OBJECT
private slots:
    void ctrlShiftZStartsAScreenshot();
};

void TestHotKey::ctrlShiftZStartsAScreenshot() {
    ScreenshotCounter shell;
    MainViewDelegate::setInstance(&shell);
    ConversationView view;
    QVERIFY(view.hotKeyRegistered());

    xcb_connection_t* c = QX11Info::connection();
    const xcb_keycode_t ctrl = keycodeOf(c, 0xffe3);   // Control_L
    const xcb_keycode_t shift = keycodeOf(c, 0xffe1);  // Shift_L
    const xcb_keycode_t z = keycodeOf(c, 'z');
    auto press = [&](bool withShift) {
        fake(c, XCB_KEY_PRESS, ctrl);
        if (withShift) fake(c, XCB_KEY_PRESS, shift);
        fake(c, XCB_KEY_PRESS, z);
        fake(c, XCB_KEY_RELEASE, z);
        if (withShift) fake(c, XCB_KEY_RELEASE, shift);
        fake(c, XCB_KEY_RELEASE, ctrl);
        xcb_flush(c);
    };
    press(true);
    QTRY_COMPARE(shell.count, 1);
    press(false);  // Ctrl+Z alone is someone else's
    QTest::qWait(300);
    QCOMPARE(shell.count, 1);
    press(true);  // the key is grabbed again after each press
    QTRY_COMPARE(shell.count, 2);
    MainViewDelegate::setInstance(nullptr);
}

int main(int argc, char** argv) {
    // A display of our own, whatever the machine has.
    QProcess xvfb;
    xvfb.setProcessChannelMode(QProcess::SeparateChannels);
    xvfb.start(QStringLiteral("Xvfb"),
               {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-nolisten"),
                QStringLiteral("tcp"), QStringLiteral("-screen"), QStringLiteral("0"),
                QStringLiteral("640x480x24")});
    if (!xvfb.waitForStarted(10000) || !xvfb.waitForReadyRead(10000)) {
        fprintf(stderr, "Xvfb did not start\n");
        return 1;
    }
    const QByteArray display = ":" + xvfb.readAllStandardOutput().trimmed();
    qputenv("DISPLAY", display);
    qputenv("QT_QPA_PLATFORM", "xcb");
    int rc = 0;
    {
        QApplication app(argc, argv);
        quelixInitResources();
        TestHotKey test;
        rc = QTest::qExec(&test, argc, argv);
    }
    xvfb.terminate();
    xvfb.waitForFinished(5000);
    return rc;
}

#include "tst_hotkey.moc"
