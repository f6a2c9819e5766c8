// Plays the host application: creates a shared-memory segment, as the application does before it
// starts the updater, and prints its contents.
//
//   shm_host KEY SIZE
//   shm_host KEY        attaches to an existing segment
//
// It prints "ready" or "failed" first, and then one line for each command on standard input:
//
//   dump           the bytes of the segment in hexadecimal
//   write HEX      "done"; does not take the lock
//   lock, unlock   "done"
//   waiting        how many processes and threads wait for the lock
//   qt             the version of Qt
//   quit           "done", and ends
//
// It also ends with its input, so that it never outlives the test.

#include <QByteArray>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSharedMemory>

#include <cstring>
#include <iostream>
#include <string>

#include <sys/ipc.h>
#include <sys/sem.h>

namespace {

/// What a segment holds before anyone has written to it.
constexpr int fillByte = 0xAA;

/// Returns how many wait for the lock of the segment @p key; -1 when that is unknown.
///
/// Qt has no function for it. It derives the semaphore from a file in the temporary directory,
/// whose name ends with the digest of the key.
int waitingForLock(const QString& key)
{
    const QString digest = QString::fromLatin1(
        QCryptographicHash::hash(key.toUtf8(), QCryptographicHash::Sha1).toHex());
    const QStringList keyFiles =
        QDir::temp().entryList({QStringLiteral("qipc_systemsem_*") + digest}, QDir::Files);
    if (keyFiles.isEmpty())
        return -1;
    const QByteArray path = QFile::encodeName(QDir::temp().filePath(keyFiles.first()));
    const int semaphore = ::semget(::ftok(path.constData(), 'Q'), 1, 0);
    return semaphore < 0 ? -1 : ::semctl(semaphore, 0, GETNCNT);
}

QByteArray contentsOf(const QSharedMemory& segment)
{
    return QByteArray(static_cast<const char*>(segment.constData()),
                      static_cast<int>(segment.size()));
}

/// Writes the bytes that @p hex stands for to the start of the segment.
bool write(const std::string& hex, QSharedMemory& segment)
{
    const QByteArray bytes = QByteArray::fromHex(QByteArray::fromStdString(hex));
    if (bytes.size() > segment.size())
        return false;
    std::memcpy(segment.data(), bytes.constData(), static_cast<size_t>(bytes.size()));
    return true;
}

QByteArray answer(const std::string& command, QSharedMemory& segment)
{
    static const std::string writeCommand = "write ";
    if (command == "dump")
        return contentsOf(segment).toHex();
    if (command == "waiting")
        return QByteArray::number(waitingForLock(segment.key()));
    if (command == "qt")
        return qVersion();
    bool done = command == "quit";
    if (command == "lock")
        done = segment.lock();
    else if (command == "unlock")
        done = segment.unlock();
    else if (command.compare(0, writeCommand.size(), writeCommand) == 0)
        done = write(command.substr(writeCommand.size()), segment);
    return done ? "done" : "failed";
}

/// Makes a segment of the size given, or attaches to the one that is there.
bool open(QSharedMemory& segment, const char* size)
{
    if (size == nullptr)
        return segment.attach(QSharedMemory::ReadWrite);
    if (!segment.create(QByteArray(size).toInt()))
        return false;
    std::memset(segment.data(), fillByte, static_cast<size_t>(segment.size()));
    return true;
}

void say(const QByteArray& line)
{
    std::cout << line.constData() << std::endl;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3)
        return 2;
    QSharedMemory segment(QString::fromUtf8(argv[1]));
    if (!open(segment, argv[2])) {
        say("failed");
        return 1;
    }
    say("ready");

    std::string command;
    while (std::getline(std::cin, command)) {
        say(answer(command, segment));
        if (command == "quit")
            break;
    }
    return 0;
}
