#pragma once

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <vector>

// Helpers the benchmarks share to take their figures.
namespace bench {

// This process's resident memory in KiB, from /proc (0 where there is none).
inline long rssKb() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').first().toLong();
    return 0;
}

// The p-quantile (0..1) of the samples, by rank.
inline double percentile(std::vector<double> v, double p) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[std::min(v.size() - 1, size_t(p * double(v.size())))];
}

}  // namespace bench
