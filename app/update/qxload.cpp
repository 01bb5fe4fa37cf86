// The update loader: qxload <url_maximum|url_minimum> [--ini FILE] [--install-dir DIR]
// Installs the package the client's update description names under the key, then starts
// the new client; on any failure the old client stays and is started again.
#include <QApplication>
#include <QCommandLineParser>
#include <QMessageBox>

#include <cstdio>

#include "configstore.h"
#include "logger.h"
#include "packageinstaller.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption ini(QStringLiteral("ini"), QStringLiteral("Update description."),
                                 QStringLiteral("file"));
    const QCommandLineOption installDir(QStringLiteral("install-dir"),
                                        QStringLiteral("The client's folder."),
                                        QStringLiteral("dir"));
    const QCommandLineOption quiet(QStringLiteral("quiet"),
                                   QStringLiteral("Report failures on standard error only."));
    const QCommandLineOption noStart(QStringLiteral("no-start"),
                                     QStringLiteral("Do not start the client afterwards."));
    parser.addOptions({ini, installDir, quiet, noStart});
    parser.addPositionalArgument(QStringLiteral("key"),
                                 QStringLiteral("url_maximum or url_minimum"));
    parser.process(app);
    if (parser.positionalArguments().size() != 1) parser.showHelp(2);

    PackageInstaller::Options o;
    o.key = parser.positionalArguments().first();
    o.iniPath = parser.isSet(ini) ? parser.value(ini)
                                  : ConfigStore::instance().filePath(ConfigStore::UpdateIni);
    o.installDir = parser.isSet(installDir) ? parser.value(installDir)
                                            : QCoreApplication::applicationDirPath();
    o.startClient = !parser.isSet(noStart);
    PackageInstaller installer(o);
    if (installer.run()) return 0;
    std::fprintf(stderr, "qxload: %s\n", qPrintable(installer.error()));
    if (!parser.isSet(quiet)) {
        // The reason may name a package or a folder from the update description.
        QMessageBox box(
            QMessageBox::Warning, QStringLiteral("提示"),
            QStringLiteral("更新没有完成，将继续使用当前版本。\n原因：") + installer.error(),
            QMessageBox::NoButton);
        box.setTextFormat(Qt::PlainText);
        box.addButton(QStringLiteral("确定"), QMessageBox::AcceptRole);
        box.exec();
    }
    // The client quit for the update; the one still installed comes back.
    if (o.startClient) PackageInstaller::startProgram(o.installDir);
    return 1;
}
