#pragma once

// A virtual X display of the test's own (Xvfb), for tests that need what the offscreen
// platform lacks: the web engine draws through OpenGL, which Xvfb offers (software
// rendered) and offscreen does not. Start it before the application object exists.
#include <QByteArray>
#include <QProcess>
#include <QStringList>

#include <cstdio>

class PrivateDisplay {
public:
    bool start() {
        xvfb_.setProcessChannelMode(QProcess::SeparateChannels);
        xvfb_.start(QStringLiteral("Xvfb"),
                    {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-nolisten"),
                     QStringLiteral("tcp"), QStringLiteral("-screen"), QStringLiteral("0"),
                     QStringLiteral("1280x900x24")});
        if (!xvfb_.waitForStarted(10000) || !xvfb_.waitForReadyRead(10000)) {
            std::fprintf(stderr, "Xvfb did not start\n");
            return false;
        }
        qputenv("DISPLAY", ":" + xvfb_.readAllStandardOutput().trimmed());
        qputenv("QT_QPA_PLATFORM", "xcb");
        // Software rendering: no GPU here, and none needed for a page.
        if (!qEnvironmentVariableIsSet("QTWEBENGINE_CHROMIUM_FLAGS"))
            qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--disable-gpu");
        return true;
    }
    ~PrivateDisplay() {
        if (xvfb_.state() == QProcess::NotRunning) return;
        xvfb_.terminate();
        xvfb_.waitForFinished(5000);
    }

private:
    QProcess xvfb_;
};
