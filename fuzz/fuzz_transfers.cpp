// Whole downloads against a model of the retry rule: which requests are made, what is saved and
// installed, and how the run ends. The files come from a directory, through "file:" URLs.
//
// The lines of the input are in pairs: the name of a file, and what becomes of its transfers one
// after the other:
//
//   o  succeeds              s  lacks the last byte      w  ends with another byte
//   m  the file is missing   l  has one byte more
//
// A "z" before them gives the manifest a wrong size, so that no transfer succeeds.

#include "updater/Updater.h"

#include "fuzz/Disagreement.h"
#include "fuzz/Harness.h"
#include "fuzz/Offscreen.h"
#include "tests/support/EventLoop.h"
#include "tests/support/Files.h"
#include "tests/support/MessageBoxes.h"
#include "tests/support/UpdaterProbe.h"

#include <QNetworkReply>

#include <cstdint>
#include <vector>

namespace {

constexpr int mostFiles = 4;
constexpr int mostCharacters = 60;

/// A file of the update, and what becomes of its transfers. After the listed ones they succeed.
struct Item
{
    QString name;
    QByteArray outcomes;
    QByteArray contents;

    ProgramFile entry() const
    {
        const QString sha1 = files::sha1(contents); // Either case will do.
        return {name, contents.size() % 2 ? sha1.toUpper() : sha1,
                static_cast<quint64>(contents.size() + (hasWrongSize() ? 1 : 0))};
    }

    bool hasWrongSize() const { return outcomes.startsWith('z'); }
};

/// A name for the file @p number that begins with the number, so that no two get in each other's
/// way, and that leads nowhere outside: no part of it begins with a dot.
QString nameFrom(const QByteArray& line, int number)
{
    static const QByteArray allowed = "abcdefgXYZ0123456789 -+?#/\\.";
    QString name = QString::number(number);
    for (const char c : line.left(mostCharacters)) {
        const bool dotFits = !fuzz::isSeparator(name.back()) && name.back() != '.';
        if (static_cast<std::uint8_t>(c) >= 0x80)
            name += QChar(static_cast<std::uint8_t>(c));
        else if (allowed.contains(c) && (c != '.' || dotFits))
            name += c;
    }
    return name;
}

std::vector<Item> itemsFrom(const std::uint8_t* bytes, std::size_t size)
{
    const QList<QByteArray> lines = fuzz::linesOf(bytes, size);
    // What is saved first makes the run begin with no failures to its name.
    std::vector<Item> items{{"first", "o", "contents"}};
    for (int i = 0; i + 1 < lines.size() && i < 2 * mostFiles; i += 2) {
        const QString name = nameFrom(lines.at(i), i / 2);
        items.push_back({name, lines.at(i + 1), "contents of " + name.toUtf8()});
    }
    return items;
}

/// The directories of a run.
struct Places
{
    TestDir dir;
    QString served = dir / "served/";
    QString downloads = dir / "downloads";
    QString app = dir / "app";

    QUrl urlOf(const QString& name) const { return QUrl("file://" + served + name); }

    void clear() const
    {
        for (const QString& path : {served, downloads, app})
            QDir(path).removeRecursively();
        files::makeDirectory(served);
    }
};

/// One transfer: what the server has of which file.
struct Transfer
{
    const Item* item;
    char outcome;
};

/// What a run must do.
struct Expected
{
    std::vector<Transfer> transfers;
    std::vector<const Item*> saved;
    int status = 0;
    QString box;
};

/// A "?" or a "#" ends the path, so that nothing but a directory may be left of it.
bool canBeServed(const Item& item, const Places& places)
{
    return !places.urlOf(item.name).toLocalFile().endsWith('/');
}

char outcomeOf(const Item& item, int attempt, const Places& places)
{
    if (!canBeServed(item, places))
        return 'm';
    const char outcome = attempt < item.outcomes.size() ? item.outcomes.at(attempt) : 'o';
    const char known = QByteArray("omslw").contains(outcome) ? outcome : 'o';
    if (known == 'o' && item.hasWrongSize())
        return 'z';
    // What cannot be saved would be fetched without end.
    return known == 'o' && item.name.endsWith('/') ? 'w' : known;
}

QString boxFor(const Transfer& failed)
{
    if (failed.outcome == 'm')
        return MessageBoxes::transferError(QNetworkReply::ContentNotFoundError);
    QString shown;
    for (int i = 0; i < failed.item->name.size(); ++i) {
        const QChar c = failed.item->name.at(i);
        shown += c;
        if (fuzz::isSeparator(c) && i + 1 < failed.item->name.size())
            shown.clear();
    }
    if (fuzz::isSeparator(failed.item->name.back()))
        shown = failed.item->name;
    return MessageBoxes::damagedFile(shown);
}

Expected expectedOf(const std::vector<Item>& items, const Places& places)
{
    Expected expected;
    int failuresInARow = 0;
    for (const Item& item : items) {
        for (int attempt = 0;; ++attempt) {
            const Transfer transfer{&item, outcomeOf(item, attempt, places)};
            expected.transfers.push_back(transfer);
            if (transfer.outcome == 'o')
                break;
            if (++failuresInARow == 3) {
                expected.status = 1;
                expected.box = boxFor(transfer);
                return expected;
            }
        }
        failuresInARow = 0;
        expected.saved.push_back(&item);
    }
    return expected;
}

void serve(const Transfer& transfer, const Places& places)
{
    QDir(places.served).removeRecursively();
    files::makeDirectory(places.served);
    QByteArray body = transfer.item->contents;
    switch (transfer.outcome) {
    case 'm':
        return;
    case 's':
        body.chop(1);
        break;
    case 'l':
        body += '+';
        break;
    case 'w':
        body.back() = '!';
        break;
    default:
        break;
    }
    files::write(places.urlOf(transfer.item->name).toLocalFile(), body);
}

/// The files below @p dir, with their contents.
QStringList contentsOf(const QString& dir)
{
    QStringList lines;
    const QStringList names = files::list(dir);
    for (const QString& name : names) {
        if (!name.endsWith('/'))
            lines += name + ": " + QString::fromUtf8(files::read(dir + '/' + name));
    }
    return lines;
}

QString described(int status, const QString& box, const QStringList& requests,
                  QStringList downloads, QStringList installed)
{
    downloads.sort();
    installed.sort();
    return "status " + QString::number(status) + "\nbox " + box + "\nrequests " +
           requests.join("\n         ") + "\ndownloads " + downloads.join("\n          ") +
           "\ninstalled " + installed.join("\n          ");
}

QString described(const Expected& expected, const Places& places)
{
    QStringList requests;
    for (const Transfer& transfer : expected.transfers)
        requests += places.urlOf(transfer.item->name).toString();
    QStringList saved;
    for (const Item* item : expected.saved)
        saved += QDir::cleanPath(item->name) + ": " + QString::fromUtf8(item->contents);
    const bool done = expected.status == 0;
    return described(expected.status, expected.box, requests, done ? QStringList() : saved,
                     done ? saved : QStringList());
}

/// Downloads and installs @p items while the transfers go as in @p expected.
QString run(const std::vector<Item>& items, const Expected& expected, const Places& places)
{
    // No file has a ":" in its name, so none is started.
    Updater updater("no:file", places.app, "1.0", "file://" + places.served + "index.txt", "", "");
    UpdaterProbe state(updater);
    state.tempDir = places.downloads;
    for (const Item& item : items)
        state.programData.files.append(item.entry());

    const MessageBoxes boxes;
    QStringList requests;
    QObject::connect(&state.netManager, &QNetworkAccessManager::finished, &updater,
                     [&](const QNetworkReply* reply) {
                         requests += reply->url().toString();
                         const auto next = static_cast<std::size_t>(requests.size());
                         if (next < expected.transfers.size())
                             serve(expected.transfers[next], places);
                         else if (next > expected.transfers.size())
                             QCoreApplication::exit(endless);
                     });
    serve(expected.transfers.front(), places);
    const int status = exitStatusOf([&] { updater.downloadNewProgramData(); });
    return described(status, boxes.summaries().join('|'), requests, contentsOf(places.downloads),
                     contentsOf(places.app));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzz::makeOffscreenApplication();
    static const Places places;
    places.clear();
    const std::vector<Item> items = itemsFrom(bytes, size);
    const Expected expected = expectedOf(items, places);
    const QString actual = run(items, expected, places);
    if (actual != described(expected, places))
        fuzz::disagree("the run", "expected\n" + records::escaped(described(expected, places)) +
                                      "\nactual\n" + records::escaped(actual));
    return 0;
}
