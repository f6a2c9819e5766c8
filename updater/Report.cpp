// The report to the host application: the published version and its required flag, left in the
// shared-memory segment that the host made (docs/integrating.md).

#include "updater/Updater.h"

#include <QSharedMemory>

#include <cstring>

namespace {

/// The bytes of a report: the text, a zero byte, "1" or "0", a zero byte.
QByteArray reportBytes(const QString& text, bool flag)
{
    QByteArray bytes = text.toLatin1();
    bytes.append('\0');
    bytes.append(flag ? '1' : '0');
    bytes.append('\0');
    return bytes;
}

} // namespace

void Updater::writeVersionToSHM(const QString& text, bool flag)
{
    if (sharedMemKey.isEmpty())
        return;
    const QByteArray report = reportBytes(text, flag);
    QSharedMemory segment(sharedMemKey, this);
    if (!segment.attach(QSharedMemory::ReadWrite))
        return;

    segment.lock();
    if (segment.size() >= report.size()) {
        std::memset(segment.data(), 0, static_cast<size_t>(segment.size()));
        std::memcpy(segment.data(), report.constData(), static_cast<size_t>(report.size()));
    }
    // In this order on purpose: the segment is let go before the lock is.
    segment.detach();
    segment.unlock();
}
