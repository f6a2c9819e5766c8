// The downloads: slots that each take the next file, and files that are built up, checked and
// renamed.

#include "host/guard/Downloads.h"

#include "host/guard/Fetch.h"
#include "manifest/Digest.h"
#include "manifest/Paths.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPair>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Not without a name: members of the class below have these types.
namespace downloading {

/// How often a file is tried.
constexpr int mostTries = 3;

/// What Qt holds of a transfer at most, and what is read and written at once.
constexpr int transferBlock = 131072;

/// QNetworkAccessManager keeps so many connections to a server.
constexpr int connectionsOfAManager = 6;

/// True for a plain file of @p mostBytes at most at @p path. A link is none, whatever it leads to.
bool isPlainFile(const QByteArray& path, quint64 mostBytes)
{
    struct stat status;
    return ::lstat(path.constData(), &status) == 0 && S_ISREG(status.st_mode) &&
           static_cast<quint64>(status.st_size) <= mostBytes;
}

/// Removes what is at @p path, unless it is a directory with something in it.
void removeAny(const QByteArray& path)
{
    static_cast<void>(::remove(path.constData()));
}

/// A file that grows at its end, with the digest of its contents.
class PartFile
{
public:
    explicit PartFile(const QString& path) : m_path(QFile::encodeName(path)) {}
    ~PartFile() { close(); }
    Q_DISABLE_COPY(PartFile)

    /// Takes over what an earlier run left, if that is a plain file of @p mostBytes at most.
    /// Anything else is removed.
    void adopt(quint64 mostBytes);

    /// Makes the file if it is not there yet. @return 0, or the number of the error.
    int create();

    /// @return 0, or the number of the error.
    int append(const char* data, qint64 size);

    /// Removes the file. The next byte is the first one.
    void discard();

    /// The digest of the contents. Afterwards only moveTo() and discard() are allowed.
    QString digest() { return m_digest->result(); }

    /// Gives the file its final name. @return 0, or the number of the error.
    int moveTo(const QString& path);

    quint64 size() const { return m_size; }

private:
    int close();
    bool readAll();

    const QByteArray m_path;
    int m_descriptor = -1;
    quint64 m_size = 0;
    std::unique_ptr<digest::Sha1> m_digest = std::make_unique<digest::Sha1>();
};

void PartFile::adopt(quint64 mostBytes)
{
    if (isPlainFile(m_path, mostBytes))
        m_descriptor = ::open(m_path.constData(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    if (m_descriptor < 0 || !readAll())
        discard();
}

/// Takes the contents into the digest, and leaves the position at the end.
bool PartFile::readAll()
{
    QByteArray block(transferBlock, Qt::Uninitialized);
    for (;;) {
        const ssize_t count = ::read(m_descriptor, block.data(), static_cast<size_t>(block.size()));
        if (count == 0)
            return true;
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0) {
            m_digest->add(block.constData(), count);
            m_size += static_cast<quint64>(count);
        }
    }
}

int PartFile::create()
{
    if (m_descriptor >= 0)
        return 0;
    m_descriptor =
        ::open(m_path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    return m_descriptor < 0 ? errno : 0;
}

int PartFile::append(const char* data, qint64 size)
{
    for (qint64 done = 0; done < size;) {
        const ssize_t count = ::write(m_descriptor, data + done, static_cast<size_t>(size - done));
        if (count < 0 && errno != EINTR)
            return errno;
        done += qMax<ssize_t>(count, 0);
    }
    m_digest->add(data, size);
    m_size += static_cast<quint64>(size);
    return 0;
}

void PartFile::discard()
{
    close();
    removeAny(m_path);
    m_size = 0;
    m_digest = std::make_unique<digest::Sha1>();
}

int PartFile::moveTo(const QString& path)
{
    // Some file systems report only here that there was no room.
    const int error = close();
    if (error != 0)
        return error;
    return std::rename(m_path.constData(), QFile::encodeName(path).constData()) == 0 ? 0 : errno;
}

int PartFile::close()
{
    if (m_descriptor < 0)
        return 0;
    const int status = ::close(m_descriptor);
    m_descriptor = -1;
    return status == 0 || errno == EINTR ? 0 : errno;
}

/// True when there is a plain file at @p path with the contents of @p file.
bool isThere(const QString& path, const ProgramFile& file)
{
    const QByteArray name = QFile::encodeName(path);
    if (!isPlainFile(name, file.size))
        return false;
    const int descriptor = ::open(name.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    QFile contents;
    return descriptor >= 0 &&
           contents.open(descriptor, QIODevice::ReadOnly | QIODevice::Unbuffered,
                         QFileDevice::AutoCloseHandle) &&
           static_cast<quint64>(contents.size()) == file.size &&
           digest::isSame(digest::sha1OfOpenFile(contents), file.sha1);
}

/// What became of a file.
struct Outcome
{
    bool isReady = false;
    QString failure;       ///< When it is not.
    bool diskFull = false; ///< The failure is that.
    qint64 reused = 0;     ///< Bytes of an earlier run.
};

/// Where the bytes of @p contentRange ("bytes 100-199/200") begin; nothing when it does not say.
std::optional<quint64> firstByteOf(const QByteArray& contentRange)
{
    const QByteArray unit("bytes ");
    const QByteArray range = contentRange.trimmed();
    if (!range.toLower().startsWith(unit))
        return std::nullopt;
    const auto begin = unit.size();
    bool isNumber = false;
    const quint64 first = range.mid(begin, range.indexOf('-') - begin).toULongLong(&isNumber);
    return isNumber ? std::optional<quint64>(first) : std::nullopt;
}

bool isEncoded(const QNetworkReply& reply)
{
    const QByteArray encoding = reply.rawHeader("Content-Encoding").trimmed().toLower();
    return !encoding.isEmpty() && encoding != "identity";
}

/// One file on its way, with all its tries.
class Transfer : public QObject
{
public:
    struct Job
    {
        ProgramFile file;
        QUrl url;
        QString path;     ///< Where the file is put.
        int milliseconds; ///< See Downloads::Settings::stallSeconds.
    };
    using Ended = std::function<void(const Outcome&)>;

    /// Keeps references to @p manager and to @p downloaded, which counts the bytes that come.
    Transfer(const Job& job, QNetworkAccessManager& manager, qint64& downloaded, Ended ended);
    ~Transfer() override { drop(); }
    Q_DISABLE_COPY(Transfer)

    /// Begins. The end may come before this returns.
    void start();

private:
    void request();
    void requestSoon();
    void receive();
    bool accept();
    bool acceptContinuation();
    bool store(qint64 count);
    void finish();
    void conclude();
    void reject(const QString& why);
    void startOver();
    void discardPart();
    void retry(const QString& why);
    void drop();
    void endReady(qint64 reused);
    void endWithError(int error);

    const Job m_job;
    QNetworkAccessManager& m_manager;
    qint64& m_downloaded;
    const Ended m_ended;
    PartFile m_part;
    qint64 m_reused = 0;        ///< Bytes of the part that are of an earlier run.
    bool m_isContinued = false; ///< The part is not of one reply alone.
    int m_failures = 0;
    QNetworkReply* m_reply = nullptr;
    bool m_wantsRest = false;  ///< The request is for what the part lacks.
    bool m_isAccepted = false; ///< The body of the reply goes into the part.
    qint64 m_received = 0;     ///< Bytes of that body.
    QByteArray m_block = QByteArray(transferBlock, Qt::Uninitialized);
    QTimer m_stall;
};

Transfer::Transfer(const Job& job, QNetworkAccessManager& manager, qint64& downloaded, Ended ended)
    : m_job(job)
    , m_manager(manager)
    , m_downloaded(downloaded)
    , m_ended(std::move(ended))
    , m_part(job.path + QLatin1String(".part"))
{
    m_stall.setSingleShot(true);
    m_stall.setInterval(job.milliseconds);
    connect(&m_stall, &QTimer::timeout, this, [this] {
        retry(QStringLiteral("nothing came for %1 seconds").arg(m_job.milliseconds / 1000));
    });
}

void Transfer::start()
{
    if (isThere(m_job.path, m_job.file)) {
        endReady(static_cast<qint64>(m_job.file.size));
        return;
    }
    removeAny(QFile::encodeName(m_job.path));
    m_part.adopt(m_job.file.size);
    m_reused = static_cast<qint64>(m_part.size());
    m_isContinued = m_reused > 0;
    if (m_isContinued && m_part.size() == m_job.file.size)
        conclude();
    else
        request();
}

void Transfer::request()
{
    QNetworkRequest request = guardedRequest(m_job.url);
    m_wantsRest = m_part.size() > 0;
    if (m_wantsRest) {
        request.setRawHeader("Range", "bytes=" + QByteArray::number(m_part.size()) + "-");
        // The range is one of the contents, not of what they are packed to.
        request.setRawHeader("Accept-Encoding", "identity");
    }
    m_isAccepted = false;
    m_received = 0;
    m_reply = m_manager.get(request);
    m_reply->setReadBufferSize(transferBlock);
    const auto restart = [this] {
        m_stall.start();
    };
    connect(m_reply, &QNetworkReply::metaDataChanged, this, restart);
    connect(m_reply, &QNetworkReply::downloadProgress, this, restart);
    connect(m_reply, &QNetworkReply::readyRead, this, [this] { receive(); });
    connect(m_reply, &QNetworkReply::finished, this, [this] { finish(); });
    m_stall.start();
}

/// Called from slots of the reply, which is better left alone before the next one.
void Transfer::requestSoon()
{
    QMetaObject::invokeMethod(this, [this] { request(); }, Qt::QueuedConnection);
}

/// Takes what has come. Afterwards there may be no reply any more.
void Transfer::receive()
{
    m_stall.start();
    if (!m_isAccepted && !accept())
        return;
    qint64 count = 0;
    while ((count = m_reply->read(m_block.data(), m_block.size())) > 0) {
        if (!store(count))
            return;
    }
}

/// @return False when the body is of no use. The next step is taken then.
bool Transfer::accept()
{
    if (m_wantsRest) {
        if (!acceptContinuation())
            return false;
    } else {
        const QString refusal = refusalOf(*m_reply);
        if (!refusal.isEmpty()) {
            retry(refusal);
            return false;
        }
    }
    const int error = m_part.create();
    if (error != 0)
        endWithError(error);
    else
        m_isAccepted = true;
    return m_isAccepted;
}

bool Transfer::acceptContinuation()
{
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const bool isRest = status.toInt() == 206;
    const bool isWhole = status.toInt() == 200;
    if ((isRest || isWhole) && isEncoded(*m_reply)) {
        startOver();
        return false;
    }
    if (isRest && firstByteOf(m_reply->rawHeader("Content-Range")) == m_part.size()) {
        m_isContinued = true;
        return true;
    }
    // Without an answer the server may still have the rest.
    if (status.isValid())
        discardPart();
    if (isWhole)
        return true;
    retry(isRest ? QStringLiteral("the server sent another part of the file than it was asked for")
                 : refusalOf(*m_reply));
    return false;
}

/// Appends @p count bytes of the block. @return False when nothing more is wanted of the reply. The
/// next step is taken then.
bool Transfer::store(qint64 count)
{
    m_received += count;
    if (static_cast<quint64>(count) > m_job.file.size - m_part.size()) {
        reject(QStringLiteral("more than %1 bytes came").arg(m_job.file.size));
        return false;
    }
    const int error = m_part.append(m_block.constData(), count);
    if (error != 0) {
        endWithError(error);
        return false;
    }
    m_downloaded += count;
    return true;
}

void Transfer::finish()
{
    receive();
    if (!m_reply)
        return;
    const QString damage = damageOf(*m_reply, m_received);
    // A body of unknown length may have been cut without a sign, and the rest may still be had.
    const bool isUnsure =
        !m_reply->header(QNetworkRequest::ContentLengthHeader).isValid() || isEncoded(*m_reply);
    if (damage.isEmpty() && isUnsure && m_part.size() < m_job.file.size)
        retry(QStringLiteral("the transfer ended early"));
    else if (damage.isEmpty())
        conclude();
    else
        retry(damage);
}

/// The part is all that was to come.
void Transfer::conclude()
{
    if (m_part.size() != m_job.file.size) {
        reject(QStringLiteral("%1 bytes came instead of %2")
                   .arg(QString::number(m_part.size()), QString::number(m_job.file.size)));
        return;
    }
    const QString digest = m_part.digest();
    if (!digest::isSame(digest, m_job.file.sha1)) {
        reject(QStringLiteral("the SHA-1 is %1 instead of %2").arg(digest, m_job.file.sha1));
        return;
    }
    const int error = m_part.moveTo(m_job.path);
    if (error != 0)
        endWithError(error);
    else
        endReady(m_reused);
}

/// The part is wrong. If the server has sent all of it, that was a try. Otherwise the start may be
/// of another file.
void Transfer::reject(const QString& why)
{
    if (m_isContinued) {
        startOver();
        return;
    }
    discardPart();
    retry(why);
}

void Transfer::startOver()
{
    discardPart();
    drop();
    requestSoon();
}

void Transfer::discardPart()
{
    m_part.discard();
    m_isContinued = false;
    m_reused = 0;
}

void Transfer::retry(const QString& why)
{
    drop();
    if (++m_failures < mostTries) {
        requestSoon();
        return;
    }
    Outcome outcome;
    outcome.failure = why;
    m_ended(outcome);
}

/// Lets go of the reply, which ends the transfer. (abort() would emit signals, and complain after
/// an error.)
void Transfer::drop()
{
    m_stall.stop();
    if (!m_reply)
        return;
    m_reply->disconnect(this);
    m_reply->deleteLater();
    m_reply = nullptr;
}

void Transfer::endReady(qint64 reused)
{
    drop();
    Outcome outcome;
    outcome.isReady = true;
    outcome.reused = reused;
    m_ended(outcome);
}

void Transfer::endWithError(int error)
{
    drop();
    Outcome outcome;
    outcome.failure = QStringLiteral("cannot be written: ") + qt_error_string(error);
    outcome.diskFull = error == ENOSPC || error == EDQUOT;
    m_ended(outcome);
}

/// What identifies an entry that was given to the constructor.
using Entry = QPair<QString, QString>;

Entry entryOf(const ProgramFile& file)
{
    return Entry(file.name, Downloads::keyOf(file));
}

bool isSha1(const QString& text)
{
    const auto isDigit = [](QChar c) {
        const ushort code = c.toLower().unicode();
        return (code >= '0' && code <= '9') || (code >= 'a' && code <= 'f');
    };
    constexpr int digits = 40;
    return text.size() == digits && std::all_of(text.begin(), text.end(), isDigit);
}

} // namespace downloading

/// The transfers that run, and the files that wait for one.
class Downloads::Transfers
{
public:
    Transfers(const Settings& settings, const QVector<ProgramFile>& files, Downloads& owner);

    void startSoon();
    bool contains(const ProgramFile& file) const
    {
        return m_entries.contains(downloading::entryOf(file));
    }
    State stateOf(const ProgramFile& file) const;
    QString pathOf(const QString& key) const { return QDir(m_settings.directory).filePath(key); }

    QString failure;
    bool diskFull = false;
    qint64 downloaded = 0;
    qint64 reused = 0;

private:
    void startNext();
    void startTransfer(size_t slot, const ProgramFile& file);
    void ended(size_t slot, const ProgramFile& file, const downloading::Outcome& outcome);
    void settle(const ProgramFile& file, const downloading::Outcome& outcome);
    void giveUpAll(const downloading::Outcome& outcome);

    const Settings m_settings;
    Downloads& m_owner;
    QSet<downloading::Entry> m_entries;
    QHash<QString, State> m_states; ///< By key.
    QVector<ProgramFile> m_queue;   ///< One for each key.
    int m_next = 0;                 ///< The first one of the queue that is not begun.
    std::vector<std::unique_ptr<QNetworkAccessManager>> m_managers;
    std::vector<std::unique_ptr<downloading::Transfer>> m_slots; ///< Null where none runs.
};

Downloads::Transfers::Transfers(const Settings& settings, const QVector<ProgramFile>& files,
                                Downloads& owner)
    : m_settings(settings), m_owner(owner)
{
    for (const ProgramFile& file : files) {
        m_entries.insert(downloading::entryOf(file));
        const QString key = keyOf(file);
        if (!m_states.contains(key))
            m_queue.append(file);
        m_states.insert(key, State::Waiting);
    }
    // Not more than can be used, whatever was asked for.
    const int jobs = qBound(1, settings.jobs, qMax(1, static_cast<int>(m_queue.size())));
    m_slots.resize(static_cast<size_t>(jobs));
    for (size_t slot = 0; slot < m_slots.size(); slot += downloading::connectionsOfAManager)
        m_managers.push_back(std::make_unique<QNetworkAccessManager>());
}

Downloads::State Downloads::Transfers::stateOf(const ProgramFile& file) const
{
    return contains(file) ? m_states.value(keyOf(file)) : State::Failed;
}

/// Not at once: with many files that are there already, everything else would have to wait.
void Downloads::Transfers::startSoon()
{
    QMetaObject::invokeMethod(&m_owner, [this] { startNext(); }, Qt::QueuedConnection);
}

void Downloads::Transfers::startNext()
{
    const auto slot = std::find(m_slots.begin(), m_slots.end(), nullptr);
    if (slot == m_slots.end() || m_next == m_queue.size())
        return;
    const ProgramFile file = m_queue.at(m_next++);
    startSoon();
    if (keyOf(file).isEmpty()) {
        downloading::Outcome outcome;
        outcome.failure = QStringLiteral("the SHA-1 in the version file is none");
        settle(file, outcome);
        return;
    }
    startTransfer(static_cast<size_t>(slot - m_slots.begin()), file);
}

void Downloads::Transfers::startTransfer(size_t slot, const ProgramFile& file)
{
    constexpr int mostSeconds = 2000000; // More would not fit into a timer.
    const downloading::Transfer::Job job{
        file, QUrl(paths::besideVersionFile(m_settings.versionFileUrl, file.name)),
        pathOf(keyOf(file)), qMin(m_settings.stallSeconds, mostSeconds) * 1000};
    m_slots[slot] = std::make_unique<downloading::Transfer>(
        job, *m_managers.at(slot / downloading::connectionsOfAManager), downloaded,
        [this, slot, file](const downloading::Outcome& outcome) { ended(slot, file, outcome); });
    m_slots[slot]->start();
}

void Downloads::Transfers::ended(size_t slot, const ProgramFile& file,
                                 const downloading::Outcome& outcome)
{
    m_slots[slot].release()->deleteLater(); // It is the caller.
    if (outcome.diskFull) {
        giveUpAll(outcome);
        return;
    }
    startSoon();
    settle(file, outcome);
}

/// Without room on the disk the others would fail too, one after the other.
void Downloads::Transfers::giveUpAll(const downloading::Outcome& outcome)
{
    for (std::unique_ptr<downloading::Transfer>& transfer : m_slots)
        transfer.reset();
    m_next = static_cast<int>(m_queue.size());
    for (const ProgramFile& file : std::as_const(m_queue)) {
        if (m_states.value(keyOf(file)) == State::Waiting)
            settle(file, outcome);
    }
}

void Downloads::Transfers::settle(const ProgramFile& file, const downloading::Outcome& outcome)
{
    const QString key = keyOf(file);
    m_states.insert(key, outcome.isReady ? State::Ready : State::Failed);
    if (!outcome.isReady && failure.isEmpty())
        failure = file.name + QLatin1String(": ") + outcome.failure;
    diskFull = diskFull || outcome.diskFull;
    reused += outcome.reused;
    Q_EMIT m_owner.settled(key);
}

Downloads::Downloads(const Settings& settings, const QVector<ProgramFile>& files, QObject* parent)
    : QObject(parent), m_transfers(std::make_unique<Transfers>(settings, files, *this))
{
}

Downloads::~Downloads() = default;

void Downloads::start()
{
    m_transfers->startSoon();
}

bool Downloads::contains(const ProgramFile& file) const
{
    return m_transfers->contains(file);
}

Downloads::State Downloads::stateOf(const ProgramFile& file) const
{
    return m_transfers->stateOf(file);
}

QString Downloads::pathOf(const ProgramFile& file) const
{
    return m_transfers->pathOf(keyOf(file));
}

QString Downloads::failure() const
{
    return m_transfers->failure;
}

bool Downloads::isDiskFull() const
{
    return m_transfers->diskFull;
}

qint64 Downloads::bytesDownloaded() const
{
    return m_transfers->downloaded;
}

qint64 Downloads::bytesReused() const
{
    return m_transfers->reused;
}

QString Downloads::keyOf(const ProgramFile& file)
{
    if (!downloading::isSha1(file.sha1))
        return QString();
    return file.sha1.toLower() + QLatin1Char('-') + QString::number(file.size);
}
