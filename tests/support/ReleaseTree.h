// Independent oracles for release trees: what find, sha1sum and stat report, without the product's
// code.
#ifndef TESTS_SUPPORT_RELEASETREE_H
#define TESTS_SUPPORT_RELEASETREE_H

#include "manifest/ProgramData.h"

#include <QMap>
#include <QString>
#include <QStringList>

namespace tree {

/// Makes @p path a named pipe.
void makeFifo(const QString& path);

/// Makes @p path a socket.
void makeSocket(const QString& path);

/// Copies what is in the directory @p source into the directory @p destination, as "cp -a" does.
void copy(const QString& source, const QString& destination);

/// Returns the file entry for a file with @p contents.
ProgramFile entry(const QString& name, const QByteArray& contents);

/// Returns one line for each of @p files, in their order: digest, size and name. Such lists
/// compare, and print, better than records.
QStringList lines(const QVector<ProgramFile>& files);

/// Returns the digest and size of every regular file in @p top and below, by its relative path, as
/// sha1sum and stat print them. Links are followed, as "find -L" does, which refuses cycles.
QMap<QString, ProgramFile> seenByTools(const QString& top);

/// Returns the relative paths of the regular files in @p top and below, depth first: every
/// directory in name order ignoring case, files and directories mixed.
QStringList listingOrder(const QString& top);

/// Returns the version file of @p data, put together line by line without the product's writer.
QString versionFile(const ProgramData& data);

/// Returns the file entries of the version file @p text, found by its lines. Ends the test program
/// when a line is not what it should be.
QVector<ProgramFile> entriesOf(const QString& text);

} // namespace tree

#endif // TESTS_SUPPORT_RELEASETREE_H
