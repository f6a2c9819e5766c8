// Finds files in a release tree that would not survive the version file, the web server or the
// installation. Checks each path component once, so a bad directory name is reported once, not once
// per file.

#include "publisher/Lint.h"

#include "manifest/Paths.h"
#include "publisher/Output.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QUrl>
#include <QVector>

#include <algorithm>
#include <utility>

namespace publisher {

namespace {

bool isControl(QChar character)
{
    return character.category() == QChar::Other_Control;
}

bool isOutsideAscii(QChar character)
{
    return character.unicode() > 0x7F;
}

bool hasPlaceholder(const QString& name)
{
    static const QRegularExpression marker(QStringLiteral("%L?[0-9]"));
    return marker.match(name).hasMatch();
}

/// True when QUrl would change this name, so that the updater would request a different file.
bool isChangedByUrl(const QString& name)
{
    // A query or a fragment is not part of the path.
    const QUrl url(QLatin1String("http://host/") + name);
    return url.path(QUrl::FullyDecoded) != QLatin1Char('/') + name;
}

/// True when a reader that trims paths would lose a space of the component @p name.
bool hasSpaceAtAnEnd(const QString& name, bool atTop, bool isDirectory)
{
    const QLatin1String separator("/");
    const QLatin1String none("");
    const QString path = (atTop ? none : separator) + name + (isDirectory ? separator : none);
    return path.trimmed() != path;
}

/// Separates the findings that the publisher accepts from the others.
class Report
{
public:
    /// Keeps a reference to @p output.
    Report(const QStringList& accepted, Output& output) : m_output(output)
    {
        for (const QString& pattern : accepted)
            m_accepted.append(paths::wildcard(pattern));
    }

    void finding(const QString& path, const QString& what)
    {
        const bool accepted =
            std::any_of(m_accepted.cbegin(), m_accepted.cend(),
                        [&](const auto& pattern) { return pattern.match(path).hasMatch(); });
        if (accepted)
            m_output.line(QLatin1String("accepted: ") + path + QLatin1String(": ") + what);
        else
            m_output.finding(path, what);
    }

private:
    QVector<QRegularExpression> m_accepted;
    Output& m_output;
};

/// One walk through a tree.
class Walk
{
public:
    /// Keeps a reference to @p report.
    Walk(const QString& program, Report& report) : m_program(program), m_report(report) {}

    /// Checks everything in @p dir and below. @p prefix is the path of @p dir from the top, with a
    /// "/" at the end; it is empty at the top.
    void look(const QDir& dir, const QString& prefix);

    bool hasProgram() const { return m_hasProgram; }

private:
    void checkName(const QFileInfo& entry, const QString& prefix);
    void checkSiblings(const QFileInfoList& entries, const QString& prefix);
    void checkEntry(const QFileInfo& entry, const QString& path);
    void checkDirectory(const QFileInfo& entry, const QString& path);
    void checkFile(const QFileInfo& entry, const QString& path);
    bool isProgram(const QString& path) const;
    void takeProgram(const QString& path);

    const QString m_program;
    Report& m_report;
    bool m_hasProgram = false;
};

void Walk::look(const QDir& dir, const QString& prefix)
{
    const QFileInfoList entries = paths::releaseEntries(dir);
    checkSiblings(entries, prefix);
    for (const QFileInfo& entry : entries) {
        checkName(entry, prefix);
        checkEntry(entry, prefix + entry.fileName());
    }
}

void Walk::checkName(const QFileInfo& entry, const QString& prefix)
{
    const QString name = entry.fileName();
    const QString path = prefix + name;
    const bool hasControls = std::any_of(name.begin(), name.end(), isControl);

    if (prefix.isEmpty() && name.compare(QLatin1String("index.txt"), Qt::CaseInsensitive) == 0)
        m_report.finding(path, QStringLiteral("version file of an earlier build; remove it, or the "
                                              "next one lists it and every update fails"));
    if (std::any_of(name.begin(), name.end(), isOutsideAscii))
        m_report.finding(
            path,
            QStringLiteral(
                "characters outside ASCII; rename it: the updater would request a different file"));
    if (name.contains(QLatin1Char('<')) || name.contains(QLatin1Char('>')))
        m_report.finding(path, QStringLiteral("\"<\" or \">\"; rename it: the version file has no "
                                              "escapes and could read this as a tag"));
    if (hasControls)
        m_report.finding(
            path, QStringLiteral(
                      "control character; rename it: not every server or disk accepts such names"));
    else if (hasSpaceAtAnEnd(name, prefix.isEmpty(), entry.isDir()))
        m_report.finding(
            path,
            QStringLiteral(
                "leading or trailing space; the updater trims it and requests a different file"));
    if (entry.isDir() && hasPlaceholder(name))
        m_report.finding(
            path, QStringLiteral("\"%\" and a digit in a directory's name; rename it: in the "
                                 "version file the names of its files could replace them"));
    if (name.contains(QLatin1Char('\\')))
        m_report.finding(
            path,
            entry.isDir()
                ? QStringLiteral("backslash in a directory's name; it becomes "
                                 "\"/\" in the version file")
                : QStringLiteral(
                      "backslash; the updater reads it as a separator and makes a directory"));
    if (!hasControls && isChangedByUrl(name))
        m_report.finding(path, QStringLiteral("\"#\", \"?\" or \"%\" with two digits; rename it: "
                                              "in a URL it would name a different file"));
}

void Walk::checkSiblings(const QFileInfoList& entries, const QString& prefix)
{
    QStringList names;
    for (const QFileInfo& entry : entries)
        names.append(entry.fileName());
    names.sort(); // The order of the listing ignores case, so it is not fixed for such names.

    QHash<QString, QString> seen;
    for (const QString& name : std::as_const(names)) {
        const QString folded = name.toCaseFolded();
        if (seen.contains(folded))
            m_report.finding(prefix + name,
                             QStringLiteral("differs from \"%1\" only in letter case; most users' "
                                            "disks ignore case and keep one of the two")
                                 .arg(seen.value(folded)));
        else
            seen.insert(folded, name);
    }
}

void Walk::checkEntry(const QFileInfo& entry, const QString& path)
{
    if (entry.isSymbolicLink()) {
        m_report.finding(path, QStringLiteral("symbolic link; users get a copy of its target, and "
                                              "nothing if the target is missing"));
        if (!m_hasProgram && entry.isFile() && isProgram(path))
            takeProgram(path);
    } else if (entry.isDir()) {
        checkDirectory(entry, path);
    } else if (entry.isFile()) {
        checkFile(entry, path);
    } else {
        m_report.finding(path, QStringLiteral("neither a file nor a directory; the version file "
                                              "leaves it out"));
    }
}

void Walk::checkDirectory(const QFileInfo& entry, const QString& path)
{
    const QDir dir(entry.filePath());
    if (!entry.isReadable() || !entry.isExecutable()) {
        m_report.finding(
            path,
            QStringLiteral(
                "directory that cannot be read; its files would be missing from the version file"));
    } else if (paths::releaseEntries(dir).isEmpty()) {
        m_report.finding(
            path,
            QStringLiteral(
                "empty directory; the version file lists only files, so users will not have it"));
    } else {
        look(dir, path + QLatin1Char('/'));
    }
}

void Walk::checkFile(const QFileInfo& entry, const QString& path)
{
    if (!QFile(entry.filePath()).open(QIODevice::ReadOnly))
        m_report.finding(
            path,
            QStringLiteral("file that cannot be read; the build of the version file would fail"));

    // The installation takes the first of several. Without a name, any of them may be the program.
    const bool program = isProgram(path) && (m_program.isEmpty() || !m_hasProgram);
    if (program)
        takeProgram(path);
    const bool executable =
        (entry.permissions() & (QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther)) != 0;
    if (executable && !program && !path.endsWith(QLatin1String(".icns"), Qt::CaseInsensitive))
        m_report.finding(path,
                         QStringLiteral("executable here, but not for users; an update makes only "
                                        "the program in Contents/MacOS and *.icns executable"));
}

bool Walk::isProgram(const QString& path) const
{
    // The installation compares the whole installed path, which has a directory before this.
    const QString installed = QLatin1Char('/') + path;
    const QString directory = QStringLiteral("Contents/MacOS/");
    if (!m_program.isEmpty())
        return installed.endsWith(directory + m_program, Qt::CaseInsensitive);
    const auto end = installed.lastIndexOf(QLatin1Char('/')) + 1;
    return installed.left(end).endsWith(directory, Qt::CaseInsensitive) &&
           installed.mid(end).compare(QLatin1String("updater"), Qt::CaseInsensitive) != 0;
}

/// If the program is in the wrong place, users get a second copy beside the old one.
void Walk::takeProgram(const QString& path)
{
    m_hasProgram = true;
    const QString place = QStringLiteral("Contents/MacOS/") + m_program;
    if (!m_program.isEmpty() && path.compare(place, Qt::CaseInsensitive) != 0)
        m_report.finding(
            path, QStringLiteral(
                      "the program, but not at %1; give the directory that contains \"Contents\"")
                      .arg(place));
}

} // namespace

void lint(const QString& dir, const QString& program, const QStringList& accepted, Output& output)
{
    const QFileInfo top(dir);
    if (dir.isEmpty() || !top.isDir() || !top.isReadable() || !top.isExecutable()) {
        output.finding(dir, QStringLiteral("not a readable directory"));
        return;
    }
    Report report(accepted, output);
    Walk walk(program, report);
    walk.look(QDir(dir), QString());
    if (walk.hasProgram())
        return;
    report.finding(
        dir, QStringLiteral(
                 "no file Contents/MacOS/%1; after an update the updater starts only what -x names")
                 .arg(program.isEmpty() ? QStringLiteral("NAME") : program));
}

} // namespace publisher
