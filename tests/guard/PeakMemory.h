// How much memory this process has had at most.
//
//   const qint64 before = peakMemory();
//   ...
//   QVERIFY(peakMemory() - before < 10000);
#ifndef TESTS_GUARD_PEAKMEMORY_H
#define TESTS_GUARD_PEAKMEMORY_H

#include <QByteArray>
#include <QFile>

/// In KiB. 0 where there is no /proc.
inline qint64 peakMemory()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = status.readAll();
    return text.mid(text.indexOf("VmHWM:") + 6).trimmed().split(' ').first().toLongLong();
}

#endif // TESTS_GUARD_PEAKMEMORY_H
