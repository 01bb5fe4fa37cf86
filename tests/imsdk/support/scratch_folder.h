#pragma once

#include <QString>
#include <QTemporaryDir>
#include <QtGlobal>

// Where a benchmark's stores, server data and downloads go: a temporary folder removed at
// exit, unless QUELIX_TEST_TMP already names one (the test runner's).
class ScratchFolder {
public:
    ScratchFolder() {
        if (!qEnvironmentVariableIsSet("QUELIX_TEST_TMP"))
            qputenv("QUELIX_TEST_TMP", dir_.path().toLocal8Bit());
    }

    // The temporary folder itself (also when QUELIX_TEST_TMP named another).
    QString path() const { return dir_.path(); }
    QString filePath(const QString& name) const { return dir_.filePath(name); }

private:
    QTemporaryDir dir_;
};
