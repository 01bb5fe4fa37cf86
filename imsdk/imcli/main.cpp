// quelix-imcli: a headless client over the IM SDK, for operators and tests.
#include <QGuiApplication>
#include <cstdio>

#include "base/at_exit.h"
#include "imcli/im_cli.h"

int main(int argc, char** argv) {
    // Gui only for reading picture sizes; no window is ever shown.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    base::AtExitManager exitManager;
    ImCli cli;
    if (!cli.start(app.arguments())) {
        std::fputs(qPrintable(ImCli::usage()), stderr);
        return 2;
    }
    return app.exec();
}
