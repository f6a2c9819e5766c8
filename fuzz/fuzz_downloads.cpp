// The rules around a download against models of them: the progress label, the address of a file,
// the path it is saved at.
//
// The lines of the input: what follows "data:" in the update URL, the name of the file, two
// directories, how many files are saved, and one line each with the sizes of the files. A request
// for an address without a host or a scheme of the network is answered within the process.

#include "manifest/Paths.h"
#include "updater/Updater.h"

#include "fuzz/Disagreement.h"
#include "fuzz/Harness.h"
#include "fuzz/Offscreen.h"
#include "tests/support/UpdaterProbe.h"

#include <QNetworkReply>
#include <QProgressDialog>

#include <cstdint>
#include <string>

namespace {

/// What the other lines are about.
struct Input
{
    QString updateUrl;
    QString name;
    QString directory;
    QString otherDirectory;
    int saved = 0;
    QVector<quint64> sizes;
};

Input inputFrom(const std::uint8_t* bytes, std::size_t size)
{
    QList<QByteArray> lines = fuzz::linesOf(bytes, size);
    while (lines.size() < 5)
        lines.append(QByteArray());
    Input input;
    input.updateUrl = "data:" + QString::fromUtf8(lines.at(0));
    input.name = QString::fromUtf8(lines.at(1)).remove(':'); // Brings no scheme of its own.
    input.directory = QString::fromUtf8(lines.at(2));
    input.otherDirectory = QString::fromUtf8(lines.at(3));
    for (int i = 5; i < lines.size(); ++i)
        input.sizes.append(fuzz::numberFrom(lines.at(i)));
    input.saved = static_cast<int>(fuzz::numberFrom(lines.at(4)) %
                                   (static_cast<quint64>(input.sizes.size()) + 3));
    return input;
}

/// The figure of the progress label: a signed number of 32 bits in MiB, to the nearest hundredth.
QString mebibytes(std::uint32_t bytes)
{
    const bool negative = bytes >= 0x80000000U;
    const std::uint64_t magnitude = negative ? 0x100000000ULL - bytes : bytes;
    const std::uint64_t hundredths = (magnitude * 100 + 0x80000) / 0x100000;
    const std::string fraction = std::to_string(100 + hundredths % 100).substr(1);
    return QString::fromStdString((negative ? "-" : "") + std::to_string(hundredths / 100) + '.' +
                                  fraction);
}

QString labelFor(const Input& input)
{
    std::uint64_t left = 0; // What it loses at the top does not show in the low half.
    int index = 0;
    for (const quint64 size : input.sizes)
        left += index++ < input.saved ? 0 : size;
    return "Downloading file " + QString::number(input.saved + 1) + " of " +
           QString::number(input.sizes.size()) + " (" +
           mebibytes(static_cast<std::uint32_t>(left & 0xffffffffU)) + " MB left)";
}

/// How many characters of @p path there are up to its last separator, and with it.
int lengthWithSeparator(const QString& path)
{
    int length = 0;
    for (int i = 0; i < path.size(); ++i) {
        if (fuzz::isSeparator(path.at(i)))
            length = i + 1;
    }
    return length;
}

QString bare(const QString& path)
{
    int length = static_cast<int>(path.size());
    while (length > 0 && fuzz::isSeparator(path.at(length - 1)))
        --length;
    return path.left(length);
}

bool sameButForCase(QChar one, QChar other)
{
    return (fuzz::isSeparator(one) && fuzz::isSeparator(other)) ||
           one.toCaseFolded() == other.toCaseFolded();
}

bool isInside(const QString& path, const QString& top)
{
    const QString inner = bare(path);
    const QString outer = bare(top);
    if (outer.isEmpty() || inner.size() < outer.size())
        return false;
    for (int i = 0; i < outer.size(); ++i) {
        if (!sameButForCase(inner.at(i), outer.at(i)))
            return false;
    }
    return inner.size() == outer.size() || fuzz::isSeparator(inner.at(outer.size()));
}

QString addressOf(const Input& input)
{
    QString base;
    QString part;
    for (const QChar c : input.updateUrl) {
        part += c;
        if (c == '/') {
            base += part;
            part.clear();
        }
    }
    return base + input.name;
}

/// The object whose rules are tried, with a progress dialog that is never shown.
class Client
{
public:
    Client() : state(updater) { state.progressDialog = new QProgressDialog; }

    void take(const Input& input)
    {
        state.updateUrl = input.updateUrl;
        state.currentFile = input.saved;
        state.programData.files.clear();
        for (const quint64 size : input.sizes)
            state.programData.files.append({input.name, QString(), size});
    }

    /// Sends the request for the current file, and takes it back.
    QUrl requestedUrl()
    {
        updater.downloadNewProgramData();
        const auto replies = state.netManager.findChildren<QNetworkReply*>();
        if (replies.size() != 1)
            fuzz::disagree("one request", QString::number(replies.size()));
        QUrl url = replies.first()->url();
        delete replies.first();
        return url;
    }

    Updater updater{"", "", "", "", "", ""};
    UpdaterProbe state;
};

Client& client()
{
    static Client instance;
    return instance;
}

void compareLabel(const Input& input)
{
    // A new list begins with its first file; the sum then continues from one file to the next.
    for (const int file : {0, input.saved - 1}) {
        client().state.currentFile = qMax(file, 0);
        client().updater.updateProgressLabel();
    }
    client().state.currentFile = input.saved;
    client().updater.updateProgressLabel();
    fuzz::compare("the progress label", client().state.progressDialog->labelText(), labelFor(input),
                  QString::number(input.saved));
}

void compareAddress(const Input& input)
{
    if (input.saved < input.sizes.size())
        fuzz::compare("the address of a file", client().requestedUrl().toString(),
                      QUrl(addressOf(input)).toString(), input.updateUrl + '\n' + input.name);
}

void compareSeparators(const QString& path)
{
    const bool ends = !path.isEmpty() && fuzz::isSeparator(path.back());
    if (paths::endsWithSeparator(path) != ends)
        fuzz::disagree("the path ends with a separator", path);
    const QString separated = ends ? path : path + '/';
    QString changed = path;
    client().updater.endWithSeparator(changed);
    fuzz::compare("with a separator", changed, separated, path);
    fuzz::compare("with a separator", paths::withSeparator(path), separated, path);
    changed = path;
    client().updater.endWithoutSeparator(changed);
    fuzz::compare("without separators", changed + '|', bare(path) + '|', path);
    fuzz::compare("without separators", paths::withoutSeparator(path) + '|', bare(path) + '|',
                  path);
}

void compareDirectory(const QString& path)
{
    const int length = lengthWithSeparator(path);
    if (paths::lastSeparator(path) != length - 1)
        fuzz::disagree("the last separator", path);
    const std::optional<QString> directory = paths::directoryPart(path);
    if (directory.has_value() != (length > 0))
        fuzz::disagree("whether the path has a directory", path);
    if (directory)
        fuzz::compare("the directory", *directory + '|', path.left(length - 1) + '|', path);
}

void compareTarget(const Input& input)
{
    const QString& directory = input.directory;
    const bool ends = !directory.isEmpty() && fuzz::isSeparator(directory.back());
    const QString path = directory + (ends ? "" : "/") + input.name;
    fuzz::compare("the path of a file", paths::withSeparator(directory) + input.name, path,
                  input.name);
    compareDirectory(path);
}

void compareInside(const QString& path, const QString& top)
{
    if (paths::isInside(path, top) != isInside(path, top))
        fuzz::disagree("one is inside the other", path + '\n' + top);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzz::makeOffscreenApplication();
    const Input input = inputFrom(bytes, size);
    client().take(input);
    compareLabel(input);
    compareAddress(input);
    for (const QString& path : {input.directory, input.otherDirectory, input.name}) {
        compareSeparators(path);
        compareDirectory(path);
    }
    compareTarget(input);
    compareInside(input.directory, input.otherDirectory);
    compareInside(input.directory + input.name, input.directory);
    return 0;
}
