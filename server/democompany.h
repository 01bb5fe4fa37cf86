#pragma once

#include "improvisioner.h"

#include <QString>
#include <QStringList>

class Database;

// Seeds a company into an empty directory. The demo company is always the same (a
// department tree four levels deep, a few hundred colleagues with Chinese names and their
// pinyin, a dozen projects with members and tasks); generated companies have any size, for
// benchmarks. Only the passwords' salts and the IM secrets differ between runs.
class DemoCompany {
public:
    static constexpr qint64 kCompanyId = 1;
    static constexpr int kDemoColleagues = 320;
    static const char kPassword[];  // every seeded colleague's company password

    // Both return false, with a reason, when seeding failed; seeding a directory that already
    // holds a company is refused.
    static bool seedDemo(Database* db, int hashIterations, QString* error);
    static bool seedGenerated(Database* db, int colleagues, int departments, int hashIterations,
                              QString* error);

    static bool isEmpty(Database* db);
    // User names of the first `count` colleagues, in id order (the demo's sign-in accounts).
    static QStringList accounts(Database* db, int count);
    // Every colleague's IM account and secret, for provisioning.
    static QVector<ImProvisioner::Account> imAccounts(Database* db);
};
