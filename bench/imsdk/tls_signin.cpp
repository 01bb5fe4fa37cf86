// What TLS costs a sign-in: 20 SDK sign-ins to a private Prosody that requires TLS (with a
// certificate from its own authority, verified) and 20 to one without TLS, turn about, from
// the sign-in call to the SDK's report. Prints the medians and their ratio.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdio>
#include <vector>

#include "benchfigures.h"
#include "support/prosody_server.h"
#include "support/scratch_folder.h"
#include "support/test_session.h"

namespace {

// One sign-in and sign-out; the sign-in's milliseconds, -1 when it failed.
double signIn(const ProsodyServer& server, const QString& name) {
    TestSession s(name);
    QElapsedTimer clock;
    clock.start();
    s.login(server, QStringLiteral("alice"), QStringLiteral("pw"));
    if (!waitUntil([&] { return s.probe().count("loginOk") == 1; }, 20000)) return -1;
    const double ms = double(clock.nsecsElapsed()) / 1e6;
    s.logout();
    waitUntil([&] { return s.probe().count("logouted") == 1; }, 5000);
    return ms;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const ScratchFolder scratch;  // stores, server data, downloads: this run's only
    ProsodyServer tls;
    ProsodyServer plain;
    if (!tls.start() || !plain.start(true)) {
        std::fprintf(stderr, "prosody: %s%s\n", qPrintable(tls.lastError()),
                     qPrintable(plain.lastError()));
        return 1;
    }
    for (ProsodyServer* s : {&tls, &plain}) s->registerUser(QStringLiteral("alice"), "pw");
    constexpr int kRounds = 20;
    std::vector<double> tlsMs, plainMs;
    for (int i = 0; i < kRounds; ++i) {
        const double t = signIn(tls, QStringLiteral("tls-%1").arg(i));
        const double p = signIn(plain, QStringLiteral("plain-%1").arg(i));
        if (t < 0 || p < 0) {
            std::fprintf(stderr, "a sign-in failed (round %d)\n", i);
            return 1;
        }
        tlsMs.push_back(t);
        plainMs.push_back(p);
    }
    const double tlsMedian = bench::percentile(tlsMs, 0.5);
    const double plainMedian = bench::percentile(plainMs, 0.5);
    std::printf("tls_signin_ms=%.1f\n", tlsMedian);
    std::printf("plain_signin_ms=%.1f\n", plainMedian);
    std::printf("tls_vs_plain_signin_ratio=%.2f\n", tlsMedian / plainMedian);
    return 0;
}
