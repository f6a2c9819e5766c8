// A release tree that a test fills.
//
//   const ReleaseDir release;
//   release.add("Contents/Info.plist", "<plist/>");
//   release::describe(release.tree(), "Editor", "2.0");
//   const QByteArray text = files::read(release.index());
#ifndef TESTS_SUPPORT_RELEASEDIR_H
#define TESTS_SUPPORT_RELEASEDIR_H

#include "tests/support/Files.h"

#include <QFileInfo>

/// A release tree, empty at first, in a private directory.
class ReleaseDir
{
public:
    ReleaseDir() { files::makeDirectory(tree()); }

    QString tree() const { return outside("tree"); }
    QString operator/(const QString& name) const { return tree() + "/" + name; }

    /// The path of the version file.
    QString index() const { return *this / "index.txt"; }

    /// The path of @p name in the private directory, beside the tree.
    QString outside(const QString& name) const { return m_top + "/" + name; }

    void add(const QString& name, const QByteArray& contents = "contents") const
    {
        files::write(*this / name, contents);
    }

private:
    const TestDir m_dir;
    const QString m_top = QFileInfo(m_dir.path()).canonicalFilePath();
};

#endif // TESTS_SUPPORT_RELEASEDIR_H
