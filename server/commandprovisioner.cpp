#include "commandprovisioner.h"

#include <QProcess>
#include <deque>
#include <memory>

CommandProvisioner::CommandProvisioner(const QString& domain, const QStringList& command,
                                       const QStringList& fallbackCommand, int parallel)
    : domain_(domain),
      command_(command),
      fallback_(fallbackCommand),
      parallel_(qMax(1, parallel)) {}

QStringList CommandProvisioner::expand(const QStringList& command, const Account& account) const {
    QStringList out;
    for (QString arg : command) {
        // Each placeholder is a whole argument or part of one; never passed through a shell.
        arg.replace(QLatin1String("%u"), account.user);
        arg.replace(QLatin1String("%d"), domain_);
        arg.replace(QLatin1String("%p"), account.secret);
        out << arg;
    }
    return out;
}

bool CommandProvisioner::provision(const QVector<Account>& accounts, QString* error) {
    if (command_.isEmpty()) {
        if (error) *error = QStringLiteral("no provisioning command");
        return false;
    }
    struct Job {
        std::unique_ptr<QProcess> process;
        Account account;
        bool retried;
    };
    auto launch = [](const QStringList& cmd) {
        auto p = std::make_unique<QProcess>();
        p->setProcessChannelMode(QProcess::MergedChannels);
        p->start(cmd.first(), cmd.mid(1));
        return p;
    };
    std::deque<Job> running;
    int next = 0;
    QString failure;
    while (failure.isEmpty() && (next < accounts.size() || !running.empty())) {
        // Keep a few tool processes going at once: each one spends most of its time starting.
        while (next < accounts.size() && int(running.size()) < parallel_) {
            const Account& a = accounts[next++];
            running.push_back(Job{launch(expand(command_, a)), a, false});
        }
        Job job = std::move(running.front());
        running.pop_front();
        QProcess& p = *job.process;
        const bool finished = p.waitForFinished(60000);
        if (finished && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0) continue;
        if (!finished) p.kill();
        if (!job.retried && !fallback_.isEmpty()) {
            running.push_back(Job{launch(expand(fallback_, job.account)), job.account, true});
            continue;
        }
        failure = QStringLiteral("%1 failed for %2: %3")
                      .arg(command_.first(), job.account.user,
                           QString::fromLocal8Bit(p.readAll()).trimmed());
    }
    for (Job& job : running) {
        job.process->kill();
        job.process->waitForFinished();
    }
    if (!failure.isEmpty() && error) *error = failure;
    return failure.isEmpty();
}
