// Saves a large talk list over and over, alternating between two contents, until killed;
// the atomic-save test kills it at random moments and checks the file left behind. Both
// contents are serialised up front so that nearly all of the time goes into writing.
#include <QCoreApplication>
#include <cstdio>

#include "configstore.h"

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 3) return 2;
    ConfigStore store(QString::fromLocal8Bit(argv[1]));
    store.init();
    store.setUser(1, 2);
    const int entries = QByteArray(argv[2]).toInt();
    QByteArray contents[2];
    for (int version = 0; version < 2; ++version) {
        quelix::listtalk_t talk;
        for (int i = 0; i < entries; ++i) {
            quelix::listtalk_t::Entry e;
            e.id = quint64(i);
            e.time = quint64(version);
            e.text = QStringLiteral("version %1 entry %2").arg(version).arg(i);
            talk.entries.append(e);
        }
        contents[version] = talk.serialize();
    }
    const QString path = store.filePath(ConfigStore::TalkListFile);
    for (int round = 0;; ++round) {
        if (!quelix::configbase_t::writeFileAtomically(path, contents[round % 2])) return 1;
        std::printf("saved %d\n", round);
        std::fflush(stdout);
    }
}
